// qAllocPriv.h: the library's one allocation choke point.
//
// Every allocation of the library goes through these helpers; none throws. A failed allocation
// gives null, which the caller turns into ST_NO_MEMORY. Builds with QIMG_TEST_HOOKS add a
// test-only hook (qAllocationHookPriv.h) that makes the Nth allocation fail, so tests can walk
// every failure path; without it the check compiles to nothing.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <new>
#include <utility>

#ifdef QIMG_TEST_HOOKS
// Counts the request (and its bytes) and answers whether it is the one to fail.
bool q_allocation_refused(std::size_t bytes) noexcept;
#else
constexpr bool q_allocation_refused(std::size_t) noexcept {
    return false;
}
#endif

// count * size, saturated: only the hook's byte count uses it, the allocators check for
// themselves.
constexpr std::size_t q_request_bytes(std::size_t count, std::size_t size) noexcept {
    return size != 0 && count > static_cast<std::size_t>(-1) / size ? static_cast<std::size_t>(-1)
                                                                    : count * size;
}

// Raw blocks (pixel buffers, row tables, LZW output). q_malloc(0) asks for one byte, so a
// success is never null.
inline void* q_malloc(std::size_t bytes) noexcept {
    if (q_allocation_refused(bytes)) return nullptr;
    return std::malloc(bytes ? bytes : 1);
}
inline void* q_calloc(std::size_t count, std::size_t size) noexcept {
    if (q_allocation_refused(q_request_bytes(count, size))) return nullptr;
    return std::calloc(count ? count : 1, size ? size : 1);
}
// Like realloc: on failure the old block stays valid and owned by the caller.
inline void* q_realloc(void* block, std::size_t bytes) noexcept {
    if (q_allocation_refused(bytes)) return nullptr;
    return std::realloc(block, bytes ? bytes : 1);
}
inline void q_free(void* block) noexcept {
    std::free(block);
}

// Objects, released with plain delete (so a virtual destructor works as usual).
template <class T, class... Args>
T* q_new(Args&&... args) noexcept {
    if (q_allocation_refused(sizeof(T))) return nullptr;
    return new (std::nothrow) T(std::forward<Args>(args)...);
}

// Value-initialised arrays (zeroed for plain types), released with delete[].
template <class T>
T* q_new_array(std::size_t count) noexcept {
    if (q_allocation_refused(q_request_bytes(count, sizeof(T)))) return nullptr;
    return new (std::nothrow) T[count ? count : 1]();
}

// What every clone() does: a new T filled by T::copy_from(args...); null when the allocation or
// the copy fails (the half-made object is destroyed).
template <class T, class... Args>
T* q_new_copy(Args&&... copy_args) noexcept {
    T* copy = q_new<T>();
    if (!copy) return nullptr;
    if (copy->copy_from(std::forward<Args>(copy_args)...) != 0) {
        delete copy;
        return nullptr;
    }
    return copy;
}
