// 128-bit integers against the host's.

#include "OPT5/xi.h"

#include <climits>
#include <random>

#include <gtest/gtest.h>

namespace {

using i128 = __int128;
using u128 = unsigned __int128;

XI of(u128 bits) {
    XI number;
    for (int i = 15; i >= 0; i--, bits >>= 8) number.byte[i] = static_cast<unsigned char>(bits);
    return number;
}

u128 bits_of(const XI& number) {
    u128 bits = 0;
    for (const unsigned char byte : number.byte) bits = bits << 8 | byte;
    return bits;
}

// Numbers of all sizes and both signs, with the limits among them.
class NUMBERS {
  public:
    u128 next() {
        const u128 wide = static_cast<u128>(random_()) << 64 | random_();
        const auto kind = random_();
        u128 number = wide >> kind % 128;
        if ((kind >> 8) % 8 == 0) number = static_cast<u128>(1) << kind % 128;
        if ((kind >> 11) % 8 == 0) number = (static_cast<u128>(1) << kind % 128) - 1;
        return (kind >> 14) % 2 == 0 ? number : 0 - number;
    }
    unsigned count() { return static_cast<unsigned>(random_() % 129); }

  private:
    std::mt19937_64 random_{1};
};

TEST(XI_NUMBERS, AgreeWithTheHostsInAllOperations) {
    NUMBERS numbers;
    for (int round = 0; round < 50000; round++) {
        const u128 a = numbers.next();
        const u128 b = numbers.next();
        const XI x = of(a);
        const XI y = of(b);
        XI r;
        ASSERT_EQ(XI_add(&x, &y, &r), (a + b < a));
        ASSERT_TRUE(bits_of(r) == a + b);
        ASSERT_EQ(XI_sub(&x, &y, &r), (a >= b));
        ASSERT_TRUE(bits_of(r) == a - b);
        XI_mpy(&x, &y, &r);
        ASSERT_TRUE(bits_of(r) == a * b);
        r = x;
        XI_mpy(&r, &r, &r);
        ASSERT_TRUE(bits_of(r) == a * a);
        const auto order = static_cast<i128>(a) <=> static_cast<i128>(b);
        ASSERT_EQ(XI_cmp(&x, &y), order < 0 ? -1 : order > 0);
        ASSERT_EQ(XI_lt(&x, &y) + 2 * XI_le(&x, &y) + 4 * XI_ge(&x, &y) + 8 * XI_gt(&x, &y),
                  (order < 0) + 2 * (order <= 0) + 4 * (order >= 0) + 8 * (order > 0));
        ASSERT_EQ(XI_eq(&x, &y), (a == b));
        ASSERT_EQ(XI_ne(&x, &y), (a != b));
        const unsigned count = numbers.count();
        ASSERT_EQ(XI_shl(&x, static_cast<int>(count), &r), 0);
        ASSERT_TRUE(bits_of(r) == (count < 128 ? a << count : 0));
        r = x;
        ASSERT_EQ(XI_shl(&r, -static_cast<int>(count), &r), 0); // to the right
        ASSERT_TRUE(bits_of(r) == (count < 128 ? a >> count : 0));
        ASSERT_EQ(XI_size(&x) == 0, a == 0);
        ASSERT_TRUE(a == 0 || a >> (XI_size(&x) - 1) == 1);
        ASSERT_EQ(XI_xtolli(&x), static_cast<long long>(a));
        ASSERT_EQ(XI_xtou(&x), static_cast<unsigned>(a));
        XI_llitox(static_cast<long long>(a), &r);
        ASSERT_TRUE(bits_of(r) == static_cast<u128>(static_cast<i128>(static_cast<long long>(a))));
        XI_utox(static_cast<unsigned>(a), &r);
        ASSERT_TRUE(bits_of(r) == static_cast<unsigned>(a));
        XI_and(&x, &y, &r);
        ASSERT_TRUE(bits_of(r) == (a & b));
        XI_xor(&x, &r, &r);
        XI_notb(&r, &r);
        ASSERT_TRUE(bits_of(r) == ~(a & ~b));
    }
}

TEST(XI_NUMBERS, DivideAsTheHostsDo) {
    NUMBERS numbers;
    for (int round = 0; round < 5000; round++) {
        const u128 a = numbers.next();
        const u128 b = numbers.next();
        if (b == 0 || b == ~u128{0}) continue;
        const XI x = of(a);
        XI r = of(b);
        ASSERT_EQ(XI_div(&x, &r, &r), 0);
        ASSERT_TRUE(bits_of(r) == static_cast<u128>(static_cast<i128>(a) / static_cast<i128>(b)));
        r = of(b);
        ASSERT_EQ(XI_mod(&x, &r, &r), 0);
        ASSERT_TRUE(bits_of(r) == static_cast<u128>(static_cast<i128>(a) % static_cast<i128>(b)));
    }
    // What the host cannot do: the least number by -1 wraps.
    XI minus_one;
    XI r;
    XI_itox(-1, &minus_one);
    EXPECT_EQ(XI_div(&xi_minint, &minus_one, &r), 0);
    EXPECT_TRUE(XI_eq(&r, &xi_minint));
    XI_mod(&xi_minint, &minus_one, &r);
    EXPECT_TRUE(XI_eq(&r, &xi_zero));
}

TEST(XI_NUMBERS, MarkWhatHasNoResult) {
    const XI x = of(5);
    XI r;
    for (const int count : {129, INT_MAX, -129, INT_MIN}) {
        xi_error = 0;
        EXPECT_EQ(XI_shl(&x, count, &r), 1) << count;
        EXPECT_EQ(xi_error, 1) << count;
        EXPECT_TRUE(XI_eq(&r, &xi_zero)) << count;
        xi_error = 0;
        EXPECT_EQ(XI_shr(&x, count, &r), 1) << count;
        EXPECT_EQ(xi_error, 1) << count;
    }
    xi_error = 0;
    EXPECT_EQ(XI_shl(&x, 128, &r), 0);
    EXPECT_EQ(xi_error, 0);
    EXPECT_EQ(XI_div(&x, &xi_zero, &r), 1);
    EXPECT_EQ(xi_error, 1);
    xi_error = 0;
}

} // namespace
