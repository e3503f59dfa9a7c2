// qObjArray.h: qObjArray<T>, a growable array of plain values.
//
// Holds the frames and the comments of an animation (pointer elements) and the bytes of one
// comment. The array never owns what pointer elements point to: clear() and the destructor
// release only the element block; the owner deletes the pointed-to objects first.
//
//   qObjArray<char> bytes(16);   // capacity grows 16, 32, 48, ... as bytes are appended
//
// Invariant: count() <= capacity(), and the elements from count() to capacity() - 1 are zero
// bytes, so a comment whose length is not a multiple of 16 is followed by a zero byte.
//
// capacity() grows in steps of grow_by as the owner asked, but the block behind it grows
// geometrically: appending the bytes of a 16 MiB comment one by one reallocates about 20 times
// instead of a million, so reading a long comment is linear, not quadratic.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "qimg/core/qExport.h"

// The element blocks of every qObjArray come from the library's allocator (so the allocation
// tests reach them too); these two calls are its only entry from the header.
struct QIMG_API qObjArrayBlock {
    // As realloc: null on failure, with the old block still valid.
    static void* resize(void* block, std::size_t bytes);
    static void release(void* block);
};

template <class T>
class qObjArray final {
    static_assert(std::is_trivially_copyable_v<T>, "qObjArray holds plain values only");

public:
    // An empty array growing in steps of `grow_by` elements (values below 1 are taken as 1).
    explicit qObjArray(int grow_by) : grow_by_(grow_by < 1 ? 1 : grow_by) {}
    ~qObjArray() { qObjArrayBlock::release(data_); }
    qObjArray(const qObjArray&) = delete;
    qObjArray& operator=(const qObjArray&) = delete;

    // Releases the element block: empty, capacity 0.
    virtual void clear() {
        qObjArrayBlock::release(data_);
        data_ = nullptr;
        count_ = 0;
        capacity_ = 0;
        allocated_ = 0;
    }

    // Makes capacity() n rounded up to a multiple of grow_by, keeping the first
    // min(count(), new capacity) elements; elements beyond count() are zero. false (array
    // unchanged) for n < 1, for a capacity beyond the int range, or when allocation fails.
    virtual bool reserve(int n) {
        if (n < 1) return false;
        // ((n + grow_by - 1) / grow_by) * grow_by, in 64 bits.
        const int64_t wanted = (int64_t{n} + grow_by_ - 1) / grow_by_ * grow_by_;
        if (wanted > INT32_MAX) return false;
        const int capacity = static_cast<int>(wanted);
        if (capacity > allocated_ && !grow_block(capacity)) return false;
        if (count_ > capacity) {
            // Dropped elements go back to zero so the invariant holds for the smaller capacity.
            std::memset(static_cast<void*>(data_ + capacity), 0,
                        sizeof(T) * static_cast<std::size_t>(count_ - capacity));
            count_ = capacity;
        }
        capacity_ = capacity;
        return true;
    }

    // Stores `value` behind the last element; false (nothing changed) when the array cannot
    // grow. Callers turn false into ST_NO_MEMORY.
    bool append(T value) {
        if (count_ == capacity_ && !reserve(count_ + 1)) return false;
        data_[count_++] = value;
        return true;
    }

    // Stores the n elements at `source` behind the last element, growing the capacity as n
    // single appends would; false (nothing changed) when the array cannot grow that far.
    bool append(const T* source, int n) {
        if (n <= 0) return true;
        if (int64_t{count_} + n > INT32_MAX) return false;
        if (count_ + n > capacity_ && !reserve(count_ + n)) return false;
        std::memcpy(static_cast<void*>(data_ + count_), source,
                    sizeof(T) * static_cast<std::size_t>(n));
        count_ += n;
        return true;
    }

    // Empties the array, then copies the n elements at `source` into a block of n rounded up to
    // grow_by. false and an empty array for a null source, n <= 0 or an allocation failure.
    bool assign(const T* source, int n) {
        clear();
        if (source == nullptr || n <= 0 || !reserve(n)) return false;
        std::memcpy(static_cast<void*>(data_), source, sizeof(T) * static_cast<std::size_t>(n));
        count_ = n;
        return true;
    }

    int count() const { return count_; }
    int capacity() const { return capacity_; }
    int grow_by() const { return grow_by_; }
    // The elements (null while nothing was ever reserved); valid indices are 0 .. count() - 1.
    T* data() { return data_; }
    const T* data() const { return data_; }
    T& operator[](int i) { return data_[i]; }
    const T& operator[](int i) const { return data_[i]; }

private:
    // Grows the block to at least `capacity` elements, at least doubling it, and zeroes the new
    // part. The old block stays valid when the allocation fails.
    bool grow_block(int capacity) {
        int64_t target = int64_t{allocated_} * 2;
        if (target < capacity) target = capacity;
        if (target > INT32_MAX) target = INT32_MAX;
        // Where size_t has 32 bits, sizeof(T) * target may not fit it.
        constexpr uint64_t kMaxElements = SIZE_MAX / sizeof(T);
        if (static_cast<uint64_t>(target) > kMaxElements)
            target = static_cast<int64_t>(kMaxElements);
        if (int64_t{capacity} > target) return false;
        void* block = qObjArrayBlock::resize(data_, sizeof(T) * static_cast<std::size_t>(target));
        if (block == nullptr) return false;
        data_ = static_cast<T*>(block);
        std::memset(static_cast<void*>(data_ + allocated_), 0,
                    sizeof(T) * static_cast<std::size_t>(target - allocated_));
        allocated_ = static_cast<int>(target);
        return true;
    }

    T* data_ = nullptr;
    int count_ = 0;
    int capacity_ = 0;
    const int grow_by_;
    int allocated_ = 0;  // elements the block really holds; >= capacity_
};
