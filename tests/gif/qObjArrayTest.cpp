#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "qimg/core/qAllocationHookPriv.h"
#include "qimg/gif/qObjArray.h"

namespace {

// Every element from count() to capacity() - 1 is zero.
template <class T>
bool tail_is_zero(const qObjArray<T>& a) {
    for (int i = a.count(); i < a.capacity(); ++i) {
        T zero{};
        if (std::memcmp(&a[i], &zero, sizeof(T)) != 0) return false;
    }
    return true;
}

TEST(qObjArrayTest, AppendGrowsInStepsOfGrowBy) {
    qObjArray<char> bytes(16);
    EXPECT_EQ(bytes.capacity(), 0);
    EXPECT_EQ(bytes.data(), nullptr);
    for (int i = 0; i < 40; ++i) {
        ASSERT_TRUE(bytes.append(static_cast<char>('a' + i % 26)));
        EXPECT_EQ(bytes.capacity(), (i / 16 + 1) * 16) << i;
        EXPECT_TRUE(tail_is_zero(bytes));
    }
    EXPECT_EQ(bytes.count(), 40);
    EXPECT_EQ(bytes[39], 'a' + 39 % 26);
    // 40 is not a multiple of 16: a zero byte follows the last one.
    EXPECT_EQ(bytes[40], 0);

    qObjArray<void*> pointers(256);
    for (int i = 0; i < 257; ++i) ASSERT_TRUE(pointers.append(&pointers));
    EXPECT_EQ(pointers.capacity(), 512);
    EXPECT_TRUE(tail_is_zero(pointers));
}

TEST(qObjArrayTest, AssignAndReserve) {
    qObjArray<char> a(16);
    const char text[] = "twenty bytes of text";
    ASSERT_TRUE(a.assign(text, 20));
    EXPECT_EQ(a.count(), 20);
    EXPECT_EQ(a.capacity(), 32);
    EXPECT_EQ(std::memcmp(a.data(), text, 20), 0);
    EXPECT_TRUE(tail_is_zero(a));

    EXPECT_FALSE(a.assign(text, 0));
    EXPECT_EQ(a.count(), 0);
    EXPECT_EQ(a.capacity(), 0);
    ASSERT_TRUE(a.assign(text, 5));
    EXPECT_FALSE(a.assign(nullptr, 5));
    EXPECT_EQ(a.count(), 0);

    EXPECT_FALSE(a.reserve(0));
    EXPECT_FALSE(a.reserve(INT32_MAX));  // rounds beyond the int range
    ASSERT_TRUE(a.assign(text, 20));
    // Reserving less keeps the first elements and zeroes the rest.
    ASSERT_TRUE(a.reserve(3));
    EXPECT_EQ(a.capacity(), 16);
    EXPECT_EQ(a.count(), 16);
    EXPECT_EQ(std::memcmp(a.data(), text, 16), 0);
    a.clear();
    EXPECT_EQ(a.data(), nullptr);
    EXPECT_EQ(a.count(), 0);
}

TEST(qObjArrayTest, LongAppendKeepsEveryByte) {
    // 4 MiB appended byte by byte: contents and observable capacity stay exact.
    qObjArray<char> a(16);
    const int n = 4 << 20;
    for (int i = 0; i < n; ++i) ASSERT_TRUE(a.append(static_cast<char>(i * 31)));
    EXPECT_EQ(a.capacity(), n);
    for (int i = 0; i < n; i += 4099) ASSERT_EQ(a[i], static_cast<char>(i * 31));
}

#ifdef QIMG_TEST_HOOKS
TEST(qObjArrayTest, FailedGrowthChangesNothing) {
    qObjArray<char> a(4);
    for (char c : {'a', 'b', 'c', 'd'}) ASSERT_TRUE(a.append(c));
    qimg_fail_allocation(1);
    EXPECT_FALSE(a.append('e'));
    qimg_fail_allocation(0);
    EXPECT_EQ(a.count(), 4);
    EXPECT_EQ(a.capacity(), 4);
    EXPECT_EQ(a[3], 'd');
    qimg_fail_allocation(1);
    EXPECT_FALSE(a.assign("xyz", 3));
    qimg_fail_allocation(0);
    EXPECT_EQ(a.count(), 0);
    EXPECT_EQ(a.capacity(), 0);
}
#endif

}  // namespace
