// Simulated floating values against the host's singles, doubles and integers, and against exact rationals.

#include "OPT5/fpsmath.h"

#include <algorithm>
#include <bit>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <random>
#include <string>

#include <boost/multiprecision/cpp_int.hpp>
#include <gtest/gtest.h>

#include "OPT5/types.h"

namespace {

using boost::multiprecision::cpp_int;
using i128 = __int128;

simul_fval of(float number) {
    simul_fval value;
    ieee_cvt_ftos(std::bit_cast<std::uint32_t>(number), &value);
    return value;
}

simul_fval of(double number) {
    simul_fval value;
    ieee_cvt_dtos(std::bit_cast<std::uint64_t>(number), &value);
    return value;
}

simul_fval of(const char* text) {
    simul_fval value;
    f_atof(text, &value);
    return value;
}

float single(const simul_fval& value) { return std::bit_cast<float>(get_ieee_flt_fmt(&value)); }

// Same bits, or both NaN.
bool same(float a, float b) {
    return (std::isnan(a) && std::isnan(b)) ||
           std::bit_cast<std::uint32_t>(a) == std::bit_cast<std::uint32_t>(b);
}

bool at_rest(const simul_fval& value) {
    if (value.mant[0] == 0) return value.exp == F_EXP_ZERO || value.exp == F_EXP_SPECIAL;
    return value.exp == F_EXP_SPECIAL || (value.exp % 16 == 0 && std::abs(value.exp) < F_EXP_SPECIAL);
}

// Singles of every kind, and pairs of them that interact: near exponents, near values, edges of words.
class SINGLES {
  public:
    explicit SINGLES(unsigned seed) : random_(seed) {}
    float next() {
        const auto bits = static_cast<std::uint32_t>(random_());
        switch (random_() % 8) {
            case 0: return std::bit_cast<float>((bits & 0xff800000) | (bits & 0x7fffff) >> (bits >> 5) % 24);
            case 1:
                return std::bit_cast<float>((bits & 0xff800000) | (0x7fffff << (bits >> 5) % 24 & 0x7fffff));
            case 2: return std::bit_cast<float>(bits & 0x80ffffff); // zeros and denormals among them
            case 3: return SPECIAL[bits % std::size(SPECIAL)];
            default: return std::bit_cast<float>(bits);
        }
    }
    // Within 50 powers of two of a.
    float near(float a) {
        const auto bits = std::bit_cast<std::uint32_t>(a);
        const auto change = random_();
        if (change % 4 == 0) return next();
        if (change % 4 == 1)
            return std::bit_cast<float>(bits + static_cast<std::uint32_t>(change >> 8) % 17 - 8);
        const auto exponent = static_cast<std::uint32_t>(change >> 8) % 101 - 50 + (bits >> 23);
        return std::bit_cast<float>((exponent & 0xff) << 23 |
                                    (static_cast<std::uint32_t>(change >> 32) & 0x807fffff));
    }
    std::uint64_t bits() { return random_(); }

  private:
    static constexpr float SPECIAL[] = {
        0.0f,      -0.0f, 1.0f,  -1.0f,           0x1p-149f,        0x1p-126f, -0x1p-126f, INFINITY,
        -INFINITY, NAN,   3.0f,  0x1.fffffep127f, 0x1.fffffep-127f, 65535.5f,  65536.0f,   0x1p-16f,
        0.5f,      2.5f,  -0.5f, 0x1p63f,         -0x1p63f,         0x1p64f,   0x1p-64f,   16777216.0f};
    std::mt19937_64 random_;
};

TEST(FPSMATH, OperationsOnSinglesAgreeWithTheHost) {
    struct OPERATION {
        const char* name;
        int (*simulated)(const simul_fval*, const simul_fval*, simul_fval*);
        float (*host)(float, float);
    };
    static const OPERATION operations[] = {
        {"+", f_add, [](float a, float b) { return a + b; }},
        {"-", f_sub, [](float a, float b) { return a - b; }},
        {"*", f_mul, [](float a, float b) { return a * b; }},
        {"/", f_div, [](float a, float b) { return a / b; }},
        {"fmod", f_fmod, [](float a, float b) { return std::fmod(a, b); }},
        {"sqrt", [](const simul_fval* a, const simul_fval*, simul_fval* r) { return f_sqrt(a, r); },
         [](float a, float) { return a < 0 ? 0.0f : std::sqrt(a); }}, // of a negative value: zero
    };
    SINGLES singles(2);
    for (int round = 0; round < 200000; round++) {
        const float a = singles.next();
        const float b = singles.near(a);
        const simul_fval x = of(a);
        const simul_fval y = of(b);
        for (const OPERATION& operation : operations) {
            simul_fval r;
            operation.simulated(&x, &y, &r);
            ASSERT_TRUE(at_rest(r)) << a << operation.name << b;
            const float expected = operation.host(a, b);
            ASSERT_TRUE(same(single(r), expected)) << std::hexfloat << a << " " << operation.name << " " << b
                                                   << ": " << single(r) << ", not " << expected;
        }
        ASSERT_EQ(f_lt(&x, &y) + 2 * f_le(&x, &y) + 4 * f_eq(&x, &y) + 8 * f_ge(&x, &y) + 16 * f_gt(&x, &y) +
                      32 * f_ne(&x, &y),
                  (a < b) + 2 * (a <= b) + 4 * (a == b) + 8 * (a >= b) + 16 * (a > b) + 32 * (a != b));
        simul_fval r;
        f_trunc(&x, &r);
        ASSERT_TRUE(same(single(r), std::trunc(a))) << a;
        f_floor(&x, &r);
        ASSERT_TRUE(same(single(r), std::floor(a))) << a;
        f_ceil(&x, &r);
        ASSERT_TRUE(same(single(r), std::ceil(a))) << a;
        f_round(&x, &r);
        ASSERT_TRUE(same(single(r), std::round(a))) << a;
        const int shift = static_cast<int>(singles.bits() % 600) - 300;
        f_ldexp(&x, shift, &r);
        ASSERT_TRUE(same(single(r), std::ldexp(a, shift))) << a << " " << shift;
    }
}

// --- The rule of rounding, by exact rationals ---

cpp_int mantissa(const simul_fval& value) {
    cpp_int number = 0;
    for (const std::uint16_t word : value.mant) number = number << 16 | word;
    return number;
}

cpp_int shifted(const cpp_int& number, int count) {
    return count >= 0 ? cpp_int(number << count) : cpp_int(number >> -count);
}

// numerator / denominator times 2 to the exp, rounded half up at the sixth word.
simul_fval rounded(cpp_int numerator, cpp_int denominator, int exp) {
    simul_fval value = pos_zero;
    if (numerator == 0) return value;
    const bool negative = numerator < 0;
    if (negative) numerator = -numerator;
    exp += 96;
    // Until the quotient has exactly 96 bits in six words, the first not zero.
    while (numerator >= denominator << 96) denominator <<= 16, exp += 16;
    while (numerator < denominator << 80) numerator <<= 16, exp -= 16;
    cpp_int words = (2 * numerator + denominator) / (2 * denominator);
    if ((words >> 96) != 0) words >>= 16, exp += 16;
    for (int i = 5; i >= 0; i--, words >>= 16) value.mant[i] = static_cast<std::uint16_t>(words & 0xffff);
    value.exp = exp;
    value.sign = negative;
    return value;
}

TEST(FPSMATH, ArithmeticRoundsHalfUpAtTheSixthWord) {
    std::mt19937_64 random(3);
    const auto make = [&random] {
        simul_fval value;
        for (std::uint16_t& word : value.mant) {
            static constexpr std::uint16_t edges[] = {0, 1, 0x7fff, 0x8000, 0xffff, 0xfffe};
            const auto bits = random();
            word = bits % 3 != 0 ? edges[(bits >> 8) % 6] : static_cast<std::uint16_t>(bits >> 16);
        }
        if (value.mant[0] == 0) value.mant[0] = 1;
        if (random() % 4 == 0)
            std::fill(value.mant + 1 + random() % 6, std::end(value.mant), std::uint16_t{0});
        value.exp = (static_cast<int>(random() % 21) - 10) * 16;
        value.sign = random() & 1;
        return value;
    };
    for (int round = 0; round < 20000; round++) {
        const simul_fval a = make();
        const simul_fval b = make();
        const cpp_int m = a.sign != 0 ? cpp_int(-mantissa(a)) : mantissa(a);
        const cpp_int n = b.sign != 0 ? cpp_int(-mantissa(b)) : mantissa(b);
        const int low = std::min(a.exp, b.exp) - 96;
        const cpp_int wide_m = shifted(m, a.exp - 96 - low);
        const cpp_int wide_n = shifted(n, b.exp - 96 - low);
        const auto expect = [&](const char* name, const simul_fval& r, const simul_fval& expected) {
            if (f_bit_eq(&r, &expected)) return true;
            for (const simul_fval* v : {&a, &b, &r, &expected}) f_dbg(v, stderr), std::fputc('\n', stderr);
            ADD_FAILURE() << name;
            return false;
        };
        simul_fval r = a;
        f_add(&r, &b, &r);
        ASSERT_TRUE(expect("+", r, rounded(wide_m + wide_n, 1, low)));
        r = b;
        f_sub(&a, &r, &r);
        ASSERT_TRUE(expect("-", r, rounded(wide_m - wide_n, 1, low)));
        r = b;
        f_mul(&a, &r, &r);
        ASSERT_TRUE(expect("*", r, rounded(m * n, 1, a.exp + b.exp - 192)));
        r = b;
        f_div(&a, &r, &r);
        ASSERT_TRUE(expect("/", r, rounded(n < 0 ? -m : m, abs(n), a.exp - b.exp)));
        r = b;
        f_fmod(&a, &r, &r);
        simul_fval rest = rounded(wide_m % wide_n, 1, low);
        if (f_is_zero(&rest)) rest.sign = a.sign;
        ASSERT_TRUE(expect("fmod", r, rest));
    }
}

TEST(FPSMATH, NormalizeDropsMovesAndRounds) {
    {
        // Rounding carries through all words into the carry word.
        unsigned short work[9] = {0, 0xffff, 0xffff, 0xffff, 0xffff, 0xffff, 0xffff, 0x8000, 0};
        int exp = 32;
        f_normalize(work, &exp, 8);
        EXPECT_EQ(work[1], 1);
        EXPECT_EQ(work[2], 0);
        EXPECT_EQ(exp, 48);
    }
    {
        // Just below the half: what follows the first discarded word does not count.
        unsigned short work[9] = {0, 1, 0, 0, 0, 0, 1, 0x7fff, 0xffff};
        int exp = 0;
        f_normalize(work, &exp, 8);
        EXPECT_EQ(work[6], 1);
        EXPECT_EQ(exp, 0);
    }
    {
        // The carry word pushes out the last word, which then rounds.
        unsigned short work[8] = {2, 0, 0, 0, 0, 0, 0x8000, 0};
        int exp = 0;
        f_normalize(work, &exp, 7);
        EXPECT_EQ(work[1], 2);
        EXPECT_EQ(work[6], 1);
        EXPECT_EQ(exp, 16);
    }
    {
        unsigned short work[8] = {0, 0, 0, 7, 8, 0, 0, 0};
        int exp = 16;
        f_normalize(work, &exp, 7);
        EXPECT_EQ(work[1], 7);
        EXPECT_EQ(work[2], 8);
        EXPECT_EQ(work[4], 0);
        EXPECT_EQ(exp, -16);
    }
    unsigned short work[8] = {};
    int exp = 16;
    f_normalize(work, &exp, 7);
    EXPECT_EQ(exp, 0);
}

TEST(FPSMATH, PreciseEntriesRoundHalfUp) {
    const precise_sim_fval entries[] = {{{1, 0, 0, 0, 0, 0xffff, 0x8000}, 16, 0},
                                        {{1, 0, 0, 0, 0, 5, 0x7fff}, 16, 1},
                                        {{0xffff, 0xffff, 0xffff, 0xffff, 0xffff, 0xffff, 0xffff}, -16, 1}};
    simul_fval r[3];
    f_rnd_prectbl(entries, r, 3);
    const simul_fval expected[] = {{{1, 0, 0, 0, 1, 0}, 16, 0}, {{1, 0, 0, 0, 0, 5}, 16, 1}, {{1}, 0, 1}};
    for (int i = 0; i < 3; i++) EXPECT_TRUE(f_bit_eq(&r[i], &expected[i])) << i;
}

// --- Special operands ---

TEST(FPSMATH, RaisesTheFlagsOfFaults) {
    const simul_fval two = of(2.0f);
    const simul_fval minus_two = of(-2.0f);
    const simul_fval huge{{0xffff, 0, 0, 0, 0, 0}, 32752, 0};
    const simul_fval tiny{{1, 0, 0, 0, 0, 0}, -32752, 1};
    struct CASE {
        int (*operation)(const simul_fval*, const simul_fval*, simul_fval*);
        const simul_fval *a, *b;
        int flags;
        const simul_fval* result;
    };
    const CASE cases[] = {
        {f_add, &pos_infin, &neg_infin, FP_INVALID, &a_nan},
        {f_add, &pos_infin, &pos_infin, 0, &pos_infin},
        {f_sub, &neg_infin, &neg_infin, FP_INVALID, &a_nan},
        {f_sub, &two, &two, 0, &pos_zero},
        {f_sub, &neg_zero, &pos_zero, 0, &neg_zero},
        {f_mul, &neg_zero, &pos_infin, FP_INVALID, &a_nan},
        {f_mul, &neg_zero, &two, 0, &neg_zero},
        {f_div, &pos_zero, &neg_zero, FP_INVALID, &a_nan},
        {f_div, &pos_infin, &neg_infin, FP_INVALID, &a_nan},
        {f_div, &two, &neg_zero, FP_ZERO_DIVIDE, &neg_infin},
        {f_div, &two, &neg_infin, 0, &neg_zero},
        {f_fmod, &two, &pos_zero, FP_INVALID, &a_nan},
        {f_add, &huge, &huge, FP_OVERFLOW, &pos_infin},
        {f_mul, &huge, &minus_two, FP_OVERFLOW, &neg_infin},
        {f_mul, &tiny, &tiny, FP_UNDERFLOW, &pos_zero},
        {f_div, &tiny, &huge, FP_UNDERFLOW, &neg_zero},
        {f_pow, &pos_zero, &minus_two, FP_ZERO_DIVIDE, &pos_infin},
        {f_pow, &huge, &minus_two, FP_UNDERFLOW, &pos_zero},
    };
    for (const CASE& c : cases) {
        simul_fval r;
        fp_error = 0;
        EXPECT_EQ(c.operation(c.a, c.b, &r), c.flags != 0 ? -1 : 0) << &c - cases;
        EXPECT_EQ(fp_error, c.flags) << &c - cases;
        EXPECT_TRUE(f_bit_eq(&r, c.result)) << &c - cases;
    }
    simul_fval r;
    fp_error = FP_OVERFLOW;
    EXPECT_EQ(f_sqrt(&minus_two, &r), -1);
    EXPECT_TRUE(f_bit_eq(&r, &pos_zero));
    EXPECT_EQ(fp_error, FP_OVERFLOW | FP_INVALID); // sticky
    f_sqrt(&neg_zero, &r);
    EXPECT_TRUE(f_bit_eq(&r, &neg_zero));

    // A NaN goes through as it is, the first operand's before the second's; a comparison marks it.
    const simul_fval first{{0x9000, 1, 0, 0, 0, 0}, F_EXP_SPECIAL, 1};
    fp_error = 0;
    for (auto* operation : {f_add, f_sub, f_mul, f_div, f_fmod, f_pow, f_atan2}) {
        EXPECT_EQ(operation(&first, &a_nan, &r), 0);
        EXPECT_TRUE(f_bit_eq(&r, &first));
        EXPECT_EQ(operation(&pos_zero, &first, &r), 0);
        EXPECT_TRUE(f_bit_eq(&r, &first));
    }
    EXPECT_EQ(fp_error, 0);
    EXPECT_EQ(f_ne(&first, &first), 1);
    EXPECT_EQ(fp_error, FP_INVALID);
    const simul_fval list[] = {minus_two, two, neg_infin};
    f_max(list, &r, 3);
    EXPECT_TRUE(f_bit_eq(&r, &two));
    f_min(list, &r, 3);
    EXPECT_TRUE(f_bit_eq(&r, &neg_infin));
    f_max(list, &r, 0);
    EXPECT_TRUE(f_bit_eq(&r, &pos_zero));
    fp_error = 0;
}

TEST(FPSMATH, PartsOfAValueAddUp) {
    SINGLES singles(4);
    for (int round = 0; round < 5000; round++) {
        const float a = singles.next();
        if (!std::isfinite(a)) continue;
        const simul_fval x = of(a);
        simul_fval whole;
        simul_fval part;
        f_modf(&x, &whole, &part);
        float host_whole;
        const float host_part = std::modf(a, &host_whole);
        ASSERT_TRUE(same(single(whole), host_whole) && same(single(part), host_part)) << a;
        int exponent;
        int host_exponent;
        f_frexp(&x, &part, &exponent);
        ASSERT_TRUE(same(single(part), std::frexp(a, &host_exponent))) << a;
        ASSERT_EQ(exponent, host_exponent) << a;
        ASSERT_EQ(f_sgn(&x), (a > 0) - (a < 0));
        simul_fval back = x;
        f_left_justify(&back);
        ASSERT_TRUE(a == 0 || (back.mant[0] & 0x8000) != 0);
        f_align_radix_pt(&back);
        ASSERT_TRUE(f_bit_eq(&back, &x)) << a;
    }
    simul_fval beyond{{0x8000, 0, 0, 0, 0, 0}, 32753, 1};
    f_align_radix_pt(&beyond);
    EXPECT_TRUE(f_bit_eq(&beyond, &neg_infin));
}

TEST(FPSMATH_DEATH, ABrokenValueEndsTheRun) {
    simul_fval broken{{}, 16, 0};
    EXPECT_EXIT(f_left_justify(&broken), testing::ExitedWithCode(1),
                "^>>>Internal Error: Illegal float representation!\n$");
}

// --- Formats and integers ---

TEST(FPSMATH, ConversionToSingleIsThatOfTheHostsDouble) {
    SINGLES singles(5);
    for (int round = 0; round < 200000; round++) {
        // A single, or the middle to the next, or a little to a side of it; down to below all denormals.
        const auto bits = singles.bits();
        auto wide = std::bit_cast<std::uint64_t>(static_cast<double>(singles.next()));
        if (bits % 4 == 1) wide ^= 0x10000000;
        if (bits % 4 == 2) wide += 0x10000000 + (bits >> 8) % 3 - 1;
        if (bits % 4 == 3) wide = (bits & 0x800fffffffffffff) | (896 - 30 + (bits >> 52) % 60) << 52;
        const double number = std::bit_cast<double>(wide);
        const simul_fval value = of(number);
        ASSERT_TRUE(at_rest(value));
        ASSERT_TRUE(same(single(value), static_cast<float>(number))) << std::hexfloat << number;
        if (std::isnan(number)) continue;
        ASSERT_EQ(get_ieee_dbl_fmt(&value), wide);
        ASSERT_EQ(f_ftoh(&value), number);
    }
}

TEST(FPSMATH, ConversionFlagsReplaceOthersAndLeaveThemWhereNothingIsLost) {
    const auto convert = [](const simul_fval& value, int before, trg_fval* image) {
        fp_error = before;
        return f_cvt_stot(&value, image, 0);
    };
    trg_fval image;
    EXPECT_EQ(convert(of("1e39"), FP_INVALID, &image), 1);
    EXPECT_EQ(image, 0x7f800000u);
    EXPECT_EQ(fp_error, FP_OVERFLOW);
    EXPECT_EQ(convert(of("-0x1p-150"), FP_INVALID, &image), 1); // a tie, to even
    EXPECT_EQ(image, 0x80000000u);
    EXPECT_EQ(fp_error, FP_UNDERFLOW);
    EXPECT_EQ(convert(of("1e-9000"), 0, &image), 1);
    EXPECT_EQ(fp_error, FP_UNDERFLOW);
    EXPECT_EQ(convert(of("0x1.000001p-150"), FP_ZERO_DIVIDE, &image), 0);
    EXPECT_EQ(image, 1u);
    EXPECT_EQ(fp_error, FP_ZERO_DIVIDE);
    EXPECT_EQ(convert(neg_infin, 0, &image), 0);
    EXPECT_EQ(image, 0xff800000u);
    simul_fval value = of("-1e400");
    std::uint64_t wide;
    EXPECT_EQ(ieee_cvt_stod(&value, &wide), 1);
    EXPECT_EQ(wide, 0xfff0000000000000u);
    image = 0x80000000;
    f_cvt_ttos(&image, &value, 1);
    EXPECT_TRUE(f_bit_eq(&value, &neg_zero));
    fp_error = 0;
}

TEST(FPSMATH, IntegersAgreeWithTheHost) {
    SINGLES singles(6);
    for (int round = 0; round < 100000; round++) {
        const std::uint64_t bits = singles.bits() >> singles.bits() % 64;
        const auto number = static_cast<long long>(singles.bits() % 2 != 0 ? bits : 0 - bits);
        simul_fval value;
        f_itof(number, &value);
        ASSERT_TRUE(at_rest(value));
        ASSERT_EQ(f_ftoi(&value), std::max(number, -LLONG_MAX));
        ASSERT_TRUE(same(single(value), static_cast<float>(number))) << number;
        f_utof(bits, &value);
        ASSERT_EQ(f_ftou(&value), bits);
        const INT65 wide = {singles.bits() % 2 != 0 ? 0xffffffffu : 0, static_cast<std::uint32_t>(bits),
                            static_cast<std::uint32_t>(bits >> 32)};
        fp_error = 0;
        f_int65tof(wide, &value);
        ASSERT_TRUE(at_rest(value));
        ASSERT_EQ(f_ftoint65(&value), wide);
        ASSERT_EQ(fp_error, 0);

        // Singles below 2 to the 127 are what the host can convert.
        const float a = singles.next();
        if (!(std::abs(a) < 0x1p127f)) continue;
        value = of(a);
        const auto exact = static_cast<i128>(a);
        XI x;
        ASSERT_EQ(f_ftox(&value, &x), 0);
        ASSERT_EQ(XI_xtollu(&x), static_cast<unsigned long long>(exact));
        XI_shr(&x, 64, &x);
        ASSERT_EQ(XI_xtollu(&x), static_cast<unsigned long long>(exact >> 64));
        ASSERT_TRUE(std::abs(a) >= 0x1p63f || f_ftoi(&value) == static_cast<long long>(a));
        ASSERT_TRUE(a < 0 || a >= 0x1p64f || f_ftou(&value) == static_cast<unsigned long long>(a));
        // Beyond 96 bits the number is truncated to its first six words.
        const std::uint64_t high = singles.bits() >> singles.bits() % 64;
        for (int i = 0; i < 16; i++)
            x.byte[i] = static_cast<unsigned char>((i < 8 ? high : bits) >> (56 - 8 * (i % 8)));
        if (XI_eq(&x, &xi_zero)) continue;
        f_xtof(&x, &value);
        ASSERT_TRUE(at_rest(value));
        XI back;
        ASSERT_EQ(f_ftox(&value, &back), 0);
        XI lost;
        XI_sub(&x, &back, &lost);
        ASSERT_TRUE(XI_eq(&lost, &xi_zero) || (XI_lt(&lost, &xi_zero) == XI_lt(&x, &xi_zero)));
        if (XI_lt(&lost, &xi_zero)) XI_neg(&lost, &lost);
        ASSERT_LE(XI_size(&lost), 47);
        ASSERT_TRUE(XI_size(&lost) == 0 || high >> 16 != 0);
    }
}

TEST(FPSMATH, IntegersSaturate) {
    const auto ftoi = [](const char* text) {
        const simul_fval value = of(text);
        return f_ftoi(&value);
    };
    EXPECT_EQ(ftoi("0x1p64"), LLONG_MAX);
    EXPECT_EQ(ftoi("-0x1p64"), -LLONG_MAX);
    EXPECT_EQ(ftoi("-0x1p63"), -LLONG_MAX);
    EXPECT_EQ(ftoi("-0.99"), 0);
    EXPECT_EQ(ftoi("Inf"), LLONG_MAX);
    EXPECT_EQ(f_ftou(&pos_infin), ULLONG_MAX);
    const simul_fval minus_three = of(-3.7f);
    EXPECT_EQ(f_ftou(&minus_three), static_cast<unsigned long long>(-3));
    EXPECT_EQ(f_int(&neg_infin), INT_MIN);
    simul_fval value;
    XI x;
    f_xtof(&xi_minint, &value);
    EXPECT_EQ(f_ftox(&value, &x), 0);
    EXPECT_TRUE(XI_eq(&x, &xi_minint));
    fp_error = 0;
    f_abs(&value, &value);
    EXPECT_EQ(f_ftox(&value, &x), -1);
    EXPECT_EQ(fp_error, FP_INVALID);
    EXPECT_EQ(x.byte[0], 0x7f);
    const struct {
        const char* text;
        const char* number;
        int flags;
    } cases[] = {{"0x1p64", "18446744073709551615", FP_INVALID},
                 {"18446744073709551615.75", "18446744073709551615", 0},
                 {"-18446744073709551616.75", "-18446744073709551616", 0},
                 {"-18446744073709551617", "-18446744073709551616", FP_INVALID},
                 {"Inf", "18446744073709551615", FP_INVALID},
                 {"NaN", "0", FP_INVALID},
                 {"-0.5", "0", 0}};
    for (const auto& c : cases) {
        fp_error = 0;
        value = of(c.text);
        EXPECT_EQ(int2text(f_ftoint65(&value)), c.number) << c.text;
        EXPECT_EQ(fp_error, c.flags) << c.text;
    }
    fp_error = 0;
}

// --- Text ---

std::string printed(const char* format, const simul_fval& value) {
    char text[F_TEXT_LIMIT];
    f_ftoa(text, format, &value);
    return text;
}

std::string host_printed(const char* format, double number) {
    char text[1500];
    std::snprintf(text, sizeof text, format, number);
    return text;
}

TEST(FPSMATH, TextOfSinglesIsThatOfTheHostAndReadsBack) {
    SINGLES singles(7);
    for (int round = 0; round < 30000; round++) {
        const float a = singles.next();
        if (!std::isfinite(a)) continue;
        const simul_fval value = of(a);
        for (const char* format : {"%a", "%e", "%g", "%.9g", "%.0f"}) {
            ASSERT_EQ(printed(format, value), host_printed(format, a)) << format;
        }
        const simul_fval hexadecimal = of(printed("%a", value).c_str());
        ASSERT_TRUE(f_bit_eq(&hexadecimal, &value)) << a; // lossless
        ASSERT_TRUE(same(single(of(printed("%.8e", value).c_str())), a)) << a;
        ASSERT_TRUE(same(single(of(printed("%.9g", value).c_str())), a)) << a;
    }
    for (const float a : {0.5f, 1.5f, 2.5f, 0.25f, 0.0f, -0.0f, 100000.5f, 9.9999995f, 999999.5f, 1e-5f,
                          0.05f, 0x1p-149f, 0x1.fffffep127f, 0x1p-64f}) {
        const simul_fval value = of(a);
        for (const char* format : {"%f", "%.0f", "%.1f", "%.0e", "%40a", "%12.4g", "%.25g", "a%3.2fb", "%.0g",
                                   "%.160e", "%.150f"}) {
            EXPECT_EQ(printed(format, value), host_printed(format, a)) << format << " " << a;
        }
        // The host may give a rounded form another first digit.
        for (const char* format : {"%.0a", "%.1a", "%.3a", "%.40a"}) {
            EXPECT_EQ(std::strtod(printed(format, value).c_str(), nullptr),
                      std::strtod(host_printed(format, a).c_str(), nullptr))
                << format << " " << a;
        }
    }
    EXPECT_EQ(printed("%f", a_nan) + printed("%5a", neg_infin) + printed("<%g>", pos_infin), "NaN -Inf<Inf>");
    EXPECT_EQ(printed("no conversion", one), "no conversion");
    EXPECT_EQ(printed("%.0a", of("0x1.fp3")), "0x1p+4");
    // The widest values there are.
    EXPECT_EQ(printed("%.0f", of("0x1p32000")).size(), 9633u);
    EXPECT_EQ(printed("%.3e", of("1.5e-9800")), "1.500e-9800");
}

// Decimal text of exactly the middle between two neighbours, with more digits behind it.
std::string middle_text(float a, const char* suffix) {
    const double middle = (static_cast<double>(a) + static_cast<double>(std::nextafter(a, INFINITY))) / 2;
    char text[400];
    std::snprintf(text, sizeof text, "%.160f", middle);
    return std::string(text) + suffix;
}

TEST(FPSMATH, DecimalTextReadsAsTheNearestSingle) {
    SINGLES singles(8);
    const auto check = [](const std::string& text) {
        const float expected = std::strtof(text.c_str(), nullptr);
        const float got = single(of(text.c_str()));
        if (!same(got, expected))
            ADD_FAILURE() << text << ": " << std::hexfloat << got << ", not " << expected;
        return same(got, expected);
    };
    for (int round = 0; round < 20000; round++) {
        std::string text;
        const auto digits = 1 + singles.bits() % (round % 10 == 0 ? 200 : 20);
        for (unsigned i = 0; i < digits; i++) text += static_cast<char>('0' + singles.bits() % 10);
        if (singles.bits() % 2 != 0) text.insert(singles.bits() % digits, 1, '.');
        text += "e" + std::to_string(static_cast<int>(singles.bits() % 100) - 60);
        ASSERT_TRUE(check(text));
    }
    // Middles are exact in up to 113 digits; one more digit far behind decides.
    for (int round = 0; round < 3000; round++) {
        const float a = std::abs(singles.next());
        if (!std::isfinite(a) || a == 0x1.fffffep127f) continue;
        ASSERT_TRUE(check(middle_text(a, "")));
        ASSERT_TRUE(check(middle_text(a, "0000000000000000001")));
        std::string below = middle_text(a, "");
        const auto last = below.find_last_of("123456789");
        below[last]--;
        below.replace(last + 1, std::string::npos, "9999999999");
        ASSERT_TRUE(below.find('.') > last || check(below));
    }
    for (const char* text :
         {"340282356779733661637539395458142568447.9999", "340282356779733661637539395458142568448", "1e-45",
          "7.006492321624085354618e-46", "7.0064923216240853546186479164495e-46",
          "7.0064923216240853546186479164496e-46", "1.17549428e-38", "0x1.ffffffp127", "0x1.fffffefp127",
          "0x1.000001000000000000000000000000001p0", "0xf.ffffe800000000000000000001p-3", "0x.8", "0X1P-150",
          "0x1.000002p-150", "1.", ".5e1"}) {
        check(text);
        check("-" + std::string(text));
    }
}

TEST(FPSMATH, TextThatIsNoNumberReadsAsZero) {
    for (const char* text : {"", "-", ".", "e5", "1e", "1e+", "1.5x", "1..5", "0x", "0xg", "0x1p", "1 ", " 1",
                             "0x1e+5q", "+-1", "infinit", "nanx", "1f"}) {
        simul_fval value = one;
        EXPECT_EQ(f_atof(text, &value), -1) << text;
        EXPECT_TRUE(f_bit_eq(&value, &pos_zero)) << text;
    }
    const simul_fval infinity = of("-iNfinity");
    EXPECT_TRUE(f_bit_eq(&infinity, &neg_infin));
    const simul_fval zero = of("-0.000e5");
    EXPECT_TRUE(f_bit_eq(&zero, &neg_zero));
}

TEST(FPSMATH, LongTextsAreReadInBoundedTime) {
    const std::string zeros(100000, '0');
    const std::string nines(100000, '9');
    fp_error = 0;
    EXPECT_EQ(single(of(("1" + zeros + "e-100000").c_str())), 1.0f);
    EXPECT_EQ(single(of(("0." + zeros + "25e100001").c_str())), 2.5f);
    EXPECT_EQ(single(of(("0." + nines).c_str())), 1.0f);
    EXPECT_EQ(single(of(("0x" + zeros + "1." + zeros + "1").c_str())), 1.0f);
    EXPECT_EQ(single(of(("1.000000059604644775390625" + zeros + "1").c_str())), 1.0f + 0x1p-23f);
    EXPECT_EQ(fp_error, 0);
    EXPECT_EQ(single(of("1e999999999999999999999999")), INFINITY);
    EXPECT_EQ(single(of("-1e999999999")), -INFINITY);
    EXPECT_EQ(single(of("1e-999999999")), 0.0f);
    EXPECT_EQ(single(of("0x1p999999999")), INFINITY);
    EXPECT_EQ(single(of(nines.c_str())), INFINITY);
    EXPECT_EQ(single(of("0e999999999")), 0.0f);
    fp_error = 0;
}

TEST(FPSMATH, DumpsShowTheTypeAndFilesTheSingle) {
    TYPE_PKG types;
    types.init_type_pkg();
    const simul_fval tenth = of("0.1");
    EXPECT_EQ(fval2text(&tenth, types.flt_type(FK_FLOAT)), "0.1F");
    EXPECT_EQ(fval2text(&tenth, types.flt_type(FK_DOUBLE)), "0.1");
    EXPECT_EQ(fval2text(&tenth, types.flt_type(FK_LDOUBLE)), "0.1L");
    EXPECT_EQ(f_print_hex(&tenth), "0x1.99999ap-4");
    simul_fval value = tenth;
    truncate_fval_to_target(&value, types.flt_type(FK_LDOUBLE));
    EXPECT_TRUE(same(single(value), 0.1f));
    EXPECT_EQ(f_ftoh(&value), static_cast<double>(0.1f));
}

// --- Transcendental functions ---

TEST(FPSMATH, TranscendentalFunctionsAreAsExactAsADouble) {
    struct FUNCTION {
        const char* name;
        int (*simulated)(const simul_fval*, simul_fval*);
        double (*host)(double);
        double low, high;
        double absolute; // the error where the result is small by cancellation, in units of 1
    };
    static const FUNCTION functions[] = {
        {"exp", f_exp, std::exp, -100, 89, 0},        {"log", f_log, std::log, 1e-30, 1000, 0},
        {"log10", f_log10, std::log10, 0, 1e6, 0},    {"sin", f_sin, std::sin, -1000, 1000, 1e-19},
        {"cos", f_cos, std::cos, -1000, 1000, 1e-19}, {"tan", f_tan, std::tan, -10, 10, 0},
        {"asin", f_asin, std::asin, -1, 1, 0},        {"acos", f_acos, std::acos, -1, 1, 0},
        {"atan", f_atan, std::atan, -20, 20, 0},      {"sinh", f_sinh, std::sinh, -5, 5, 0},
        {"cosh", f_cosh, std::cosh, -80, 80, 0},      {"tanh", f_tanh, std::tanh, -4, 4, 0},
    };
    constexpr double LIMIT = 8e-16;
    const auto close = [](double got, double expected, double absolute) {
        return std::abs(got - expected) <= LIMIT * std::abs(expected) + absolute;
    };
    std::mt19937_64 random(9);
    const auto between = [&random](double low, double high) {
        return low + (high - low) * static_cast<double>(random() >> 11) * 0x1p-53;
    };
    fp_error = 0;
    for (const FUNCTION& f : functions) {
        for (int round = 0; round < 1000; round++) {
            double x = between(f.low, f.high);
            if (round % 4 == 0) x *= std::ldexp(1, -static_cast<int>(random() % 40)); // also close to zero
            const simul_fval a = of(x);
            simul_fval r;
            ASSERT_EQ(f.simulated(&a, &r), 0) << f.name << " " << x;
            ASSERT_TRUE(at_rest(r));
            EXPECT_TRUE(close(f_ftoh(&r), f.host(x), f.absolute))
                << f.name << " " << x << " " << f_ftoh(&r) - f.host(x);
        }
    }
    for (int round = 0; round < 1000; round++) {
        const double x = between(0, 20);
        const double y = round % 2 == 0 ? between(-20, 20) : std::floor(between(-12, 12));
        const simul_fval a = of(x);
        const simul_fval b = of(y);
        simul_fval r;
        f_pow(&a, &b, &r);
        EXPECT_TRUE(std::abs(f_ftoh(&r) / std::pow(x, y) - 1) < 1e-14) << x << " " << y;
        f_atan2(&b, &a, &r);
        EXPECT_TRUE(close(f_ftoh(&r), std::atan2(y, x), 0)) << y << " " << x;
        simul_fval minus = a;
        f_neg(&a, &minus);
        f_atan2(&b, &minus, &r);
        EXPECT_TRUE(close(f_ftoh(&r), std::atan2(y, -x), 0)) << y << " " << -x;
    }
    EXPECT_EQ(fp_error, 0);
}

TEST(FPSMATH, TranscendentalFunctionsKnowTheirDomain) {
    struct CASE {
        int (*function)(const simul_fval*, simul_fval*);
        const char* operand;
        int flags;
        const simul_fval* result;
    };
    const CASE cases[] = {
        {f_exp, "89.42", FP_OVERFLOW, &pos_infin},
        {f_exp, "-Inf", 0, &pos_zero},
        {f_exp, "-1e9", FP_UNDERFLOW, &pos_zero},
        {f_exp, "0", 0, &one},
        {f_log, "-1", FP_INVALID, &a_nan},
        {f_log, "0", FP_ZERO_DIVIDE, &neg_infin},
        {f_log, "Inf", 0, &pos_infin},
        {f_log, "1", 0, &pos_zero},
        {f_log10, "-0.5", FP_INVALID, &a_nan},
        {f_asin, "1.0001", FP_INVALID, &a_nan},
        {f_acos, "-Inf", FP_INVALID, &a_nan},
        {f_sin, "Inf", FP_INVALID, &a_nan},
        {f_cos, "0", 0, &one},
        {f_sin, "-0", 0, &neg_zero},
        {f_tan, "1e30", FP_INVALID, &a_nan},
        {f_sinh, "-100", FP_OVERFLOW, &neg_infin},
        {f_cosh, "-Inf", 0, &pos_infin},
        {f_tanh, "1e30", 0, &one},
        {f_atan, "NaN", 0, &a_nan},
        {f_sqrt, "Inf", 0, &pos_infin},
    };
    for (const CASE& c : cases) {
        const simul_fval a = of(c.operand);
        simul_fval r;
        fp_error = 0;
        EXPECT_EQ(c.function(&a, &r), c.flags != 0 ? -1 : 0) << &c - cases;
        EXPECT_EQ(fp_error, c.flags) << &c - cases;
        EXPECT_TRUE(f_bit_eq(&r, c.result)) << &c - cases;
    }
    const simul_fval minus_two = of(-2.0f);
    const simul_fval three = of(3.0f);
    const simul_fval half = of(0.5f);
    simul_fval r;
    fp_error = 0;
    f_pow(&minus_two, &three, &r);
    EXPECT_EQ(single(r), -8.0f); // whole powers are exact
    EXPECT_EQ(f_pow(&minus_two, &half, &r), -1);
    EXPECT_EQ(fp_error, FP_INVALID);
    fp_error = 0;
}

TEST(Text, CanonicalFormOfAConstantKeepsItsValue) {
    const struct {
        const char *text, *canonical;
        int digits;
    } cases[] = {{"1", "+1.e0", 0},
                 {"-0012.500", "-1.25e1", 0},
                 {".00123e5", "+1.23e2", 0},
                 {"0.0", "+0", 0},
                 {"-000", "+0", 0},
                 {"+100", "+1.e2", 0},
                 {"9.87654e-3", "+9.87e-3", 3},
                 {"1000000e-6", "+1.e0", 0},
                 {"3.", "+3.e0", 0}};
    for (const auto& c : cases) EXPECT_EQ(normalize_fcon(c.text, c.digits), c.canonical) << c.text;
    std::mt19937 random(7);
    for (int i = 0; i < 2000; i++) {
        const std::string text = std::to_string(random() % 100000) + "." +
                                 std::to_string(random() % 1000000) + "e" +
                                 std::to_string(static_cast<int>(random() % 60) - 30);
        const simul_fval before = of(text.c_str()), after = of(normalize_fcon(text.c_str(), 0).c_str());
        EXPECT_EQ(single(before), single(after)) << text;
    }
}

} // namespace
