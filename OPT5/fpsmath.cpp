// The stored form of simulated floating values and the arithmetic on it.
//
// Addition, multiplication and division compute into a working array of words: a carry word, then the
// mantissa, then more words than are kept. f_normalize brings it into the stored form. Leading zero words are
// skipped before (the last of them serves as the carry word), so that the first discarded word is always the
// one behind six significant ones, and rounding is half up at exactly that word.

#include "fpsmath.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>

int fp_error = 0;

namespace {

constexpr int WORDS = 6;

using u128 = unsigned __int128;

} // namespace

const simul_fval pos_zero{{}, F_EXP_ZERO, 0};
const simul_fval neg_zero{{}, F_EXP_ZERO, 1};
const simul_fval pos_infin{{}, F_EXP_SPECIAL, 0};
const simul_fval neg_infin{{}, F_EXP_SPECIAL, 1};
const simul_fval a_nan{{0x8000}, F_EXP_SPECIAL, 0};
const simul_fval one{{1}, 16, 0};

namespace {

const simul_fval one_half{{0x8000}, 0, 0};
const simul_fval one_p_five{{1, 0x8000}, 16, 0};
const simul_fval three_q{{0xc000}, 0, 0};

int raise(int flag) {
    fp_error |= flag;
    return -1;
}

int invalid(simul_fval* result) {
    *result = a_nan;
    return raise(FP_INVALID);
}

int give(const simul_fval& value, simul_fval* result) {
    *result = value;
    return 0;
}

const simul_fval& zero_of(unsigned sign) { return sign != 0 ? neg_zero : pos_zero; }
const simul_fval& infin_of(unsigned sign) { return sign != 0 ? neg_infin : pos_infin; }

// The value within the limits of the exponent, or infinity or zero with the flag.
int check_exponent(int exp, std::uint8_t sign, simul_fval* result) {
    if (exp < F_EXP_ZERO) {
        *result = zero_of(sign);
        return raise(FP_UNDERFLOW);
    }
    if (exp >= F_EXP_SPECIAL) {
        *result = infin_of(sign);
        return raise(FP_OVERFLOW);
    }
    result->exp = exp;
    result->sign = sign;
    return 0;
}

// Ends an operation: `work` is a carry word and `nwords` words behind it. The array is long enough that six
// words and the one that rounds follow the leading zeros.
int finish(unsigned short* work, int exp, int nwords, std::uint8_t sign, simul_fval* result) {
    if (work[0] == 0) {
        int zeros = 0;
        while (zeros < nwords && work[zeros + 1] == 0) zeros++;
        if (zeros == nwords) return give(zero_of(sign), result);
        work += zeros;
        nwords -= zeros;
        exp -= 16 * zeros;
    }
    f_normalize(work, &exp, nwords);
    for (int i = 0; i < WORDS; i++) result->mant[i] = work[i + 1];
    return check_exponent(exp, sign, result);
}

// By exponent, then mantissa: right for zero and infinity too.
int compare_magnitude(const simul_fval* a, const simul_fval* b) {
    if (a->exp != b->exp) return a->exp < b->exp ? -1 : 1;
    for (int i = 0; i < WORDS; i++) {
        if (a->mant[i] != b->mant[i]) return a->mant[i] < b->mant[i] ? -1 : 1;
    }
    return 0;
}

constexpr int UNORDERED = 2;

// -1, 0 or 1; UNORDERED, with the flag, where an operand is NaN.
int compare(const simul_fval* a, const simul_fval* b) {
    if (f_is_nan(a) || f_is_nan(b)) {
        raise(FP_INVALID);
        return UNORDERED;
    }
    if (f_is_zero(a) && f_is_zero(b)) return 0;
    if (a->sign != b->sign) return a->sign != 0 ? -1 : 1;
    const int order = compare_magnitude(a, b);
    return a->sign != 0 ? -order : order;
}

// |a| >= |b|, both finite and not zero. `b` counts with the sign given.
int add_magnitudes(const simul_fval* a, const simul_fval* b, bool subtract, std::uint8_t sign,
                   simul_fval* result) {
    // Words of `b` from the ninth on are too small to reach the word that rounds, even where the
    // difference loses its first word.
    constexpr int REACH = 7;
    constexpr int NWORDS = REACH + WORDS;
    const int distance = (a->exp - b->exp) / 16;
    if (distance > REACH) {
        *result = *a;
        result->sign = sign;
        return 0;
    }
    unsigned short work[NWORDS + 1] = {};
    for (int i = 0; i < WORDS; i++) work[i + 1] = a->mant[i];
    const int exp = a->exp;
    int carry = 0; // 1, or -1 for a borrow
    for (int i = WORDS - 1; i >= -(distance + 1); i--) {
        const int word = i >= 0 ? b->mant[i] : 0;
        const int sum = work[distance + 1 + i] + (subtract ? -word : word) + carry;
        work[distance + 1 + i] = static_cast<unsigned short>(sum & 0xffff);
        carry = sum < 0 ? -1 : sum >> 16;
    }
    return finish(work, exp, NWORDS, sign, result);
}

int add_signed(const simul_fval* a, const simul_fval* b, std::uint8_t b_sign, simul_fval* result) {
    if (f_is_nan(a)) return give(*a, result);
    if (f_is_nan(b)) return give(*b, result);
    if (f_is_infin(a)) {
        if (f_is_infin(b) && a->sign != b_sign) return invalid(result);
        return give(*a, result);
    }
    if (f_is_infin(b)) return give(infin_of(b_sign), result);
    if (f_is_zero(b)) {
        if (f_is_zero(a)) return give(zero_of(a->sign & b_sign), result);
        return give(*a, result);
    }
    if (f_is_zero(a)) {
        *result = *b;
        result->sign = b_sign;
        return 0;
    }
    const int order = compare_magnitude(a, b);
    if (a->sign != b_sign && order == 0) return give(pos_zero, result);
    if (order >= 0) return add_magnitudes(a, b, a->sign != b_sign, a->sign, result);
    return add_magnitudes(b, a, a->sign != b_sign, b_sign, result);
}

} // namespace

bool f_is_nan(const simul_fval* a) { return a->exp == F_EXP_SPECIAL && a->mant[0] != 0; }
bool f_is_infin(const simul_fval* a) { return a->exp == F_EXP_SPECIAL && a->mant[0] == 0; }
bool f_is_zero(const simul_fval* a) { return a->exp == F_EXP_ZERO && a->mant[0] == 0; }

void f_normalize(unsigned short* work, int* exp, int nwords) {
    constexpr int ROUNDING = WORDS + 1;
    for (int i = ROUNDING + 1; i <= nwords; i++) work[i] = 0;
    const int last = std::min(nwords, ROUNDING);
    for (;;) {
        if (work[0] != 0) {
            std::memmove(work + 1, work, static_cast<std::size_t>(last) * sizeof *work);
            work[0] = 0;
            *exp += 16;
        }
        if (work[1] == 0) {
            int first = 2;
            while (first <= last && work[first] == 0) first++;
            if (first > last) {
                *exp = 0;
                return;
            }
            const int distance = first - 1;
            for (int i = 1; i <= last; i++) work[i] = i + distance <= last ? work[i + distance] : 0;
            *exp -= 16 * distance;
        }
        if (nwords < ROUNDING || (work[ROUNDING] & 0x8000) == 0) return;
        int place = WORDS;
        while (place >= 0 && ++work[place] == 0) place--;
        if (place > 0) return;
    }
}

unsigned __int128 f_mantissa(const simul_fval* value) {
    u128 bits = 0;
    for (const std::uint16_t word : value->mant) bits = bits << 16 | word;
    return bits;
}

void f_set_mantissa(simul_fval* value, unsigned __int128 bits) {
    for (int i = WORDS - 1; i >= 0; i--) {
        value->mant[i] = static_cast<std::uint16_t>(bits);
        bits >>= 16;
    }
}

void f_left_justify(simul_fval* value) {
    if ((value->mant[0] & 0x8000) != 0 || value->exp == F_EXP_SPECIAL || f_is_zero(value)) return;
    int zeros = 0;
    while (zeros < WORDS && value->mant[zeros] == 0) zeros++;
    if (zeros == WORDS) {
        std::fputs(">>>Internal Error: Illegal float representation!\n", stderr);
        std::exit(1);
    }
    const int shift = 16 * zeros + std::countl_zero(value->mant[zeros]);
    f_set_mantissa(value, f_mantissa(value) << shift);
    value->exp -= shift;
}

void f_align_radix_pt(simul_fval* value) {
    if (value->exp == F_EXP_SPECIAL || f_is_zero(value)) return;
    const int shift = -value->exp & 15;
    value->exp += shift;
    if (value->exp >= F_EXP_SPECIAL) {
        *value = infin_of(value->sign);
    } else if (value->exp < F_EXP_ZERO) {
        *value = zero_of(value->sign);
    } else if (shift != 0) {
        f_set_mantissa(value, f_mantissa(value) >> shift);
    }
}

int f_findexp(const simul_fval* value) {
    simul_fval copy = *value;
    f_left_justify(&copy);
    return copy.exp;
}

int f_sgn(const simul_fval* value) {
    if (f_is_zero(value) || f_is_nan(value)) return 0;
    return value->sign != 0 ? -1 : 1;
}

void f_rnd_prectbl(const precise_sim_fval* entries, simul_fval* result, int n) {
    for (int entry = 0; entry < n; entry++) {
        const precise_sim_fval& from = entries[entry];
        simul_fval& to = result[entry];
        std::copy_n(from.mant, WORDS, to.mant);
        to.exp = from.exp;
        to.sign = from.sign;
        if ((from.mant[WORDS] & 0x8000) == 0) continue;
        int place = WORDS - 1;
        while (place >= 0 && ++to.mant[place] == 0) place--;
        if (place >= 0) continue;
        to.mant[0] = 1; // all words have wrapped to zero
        to.exp += 16;
    }
}

int f_add(const simul_fval* a, const simul_fval* b, simul_fval* result) {
    return add_signed(a, b, b->sign, result);
}

int f_sub(const simul_fval* a, const simul_fval* b, simul_fval* result) {
    return add_signed(a, b, b->sign ^ 1, result);
}

int f_mul(const simul_fval* a, const simul_fval* b, simul_fval* result) {
    if (f_is_nan(a)) return give(*a, result);
    if (f_is_nan(b)) return give(*b, result);
    const std::uint8_t sign = a->sign ^ b->sign;
    if (f_is_infin(a) || f_is_infin(b)) {
        if (f_is_zero(a) || f_is_zero(b)) return invalid(result);
        return give(infin_of(sign), result);
    }
    if (f_is_zero(a) || f_is_zero(b)) return give(zero_of(sign), result);
    unsigned short work[2 * WORDS + 1] = {};
    for (int i = WORDS - 1; i >= 0; i--) {
        const std::uint32_t multiplier = b->mant[i];
        if (multiplier == 0) continue;
        std::uint32_t carry = 0;
        for (int j = WORDS - 1; j >= 0; j--) {
            // At most 0xffff * 0xffff + 2 * 0xffff: fits.
            carry += multiplier * a->mant[j] + work[i + j + 2];
            work[i + j + 2] = static_cast<unsigned short>(carry & 0xffff);
            carry >>= 16;
        }
        work[i + 1] = static_cast<unsigned short>(carry);
    }
    return finish(work, a->exp + b->exp, 2 * WORDS, sign, result);
}

int f_div(const simul_fval* a, const simul_fval* b, simul_fval* result) {
    if (f_is_nan(a)) return give(*a, result);
    if (f_is_nan(b)) return give(*b, result);
    const std::uint8_t sign = a->sign ^ b->sign;
    if (f_is_infin(a)) return f_is_infin(b) ? invalid(result) : give(infin_of(sign), result);
    if (f_is_infin(b)) return give(zero_of(sign), result);
    if (f_is_zero(b)) {
        if (f_is_zero(a)) return invalid(result);
        *result = infin_of(sign);
        return raise(FP_ZERO_DIVIDE);
    }
    if (f_is_zero(a)) return give(zero_of(sign), result);
    // The quotient of two normalised mantissas is between 1/65536 and 65536: word 0 or word 1 is its first,
    // and seven words behind word 0 are enough to round by. The rest takes 96 bits.
    constexpr int NWORDS = WORDS + 1;
    unsigned short work[NWORDS + 1];
    const u128 divisor = f_mantissa(b);
    u128 rest = f_mantissa(a);
    for (unsigned short& word : work) {
        word = static_cast<unsigned short>(rest / divisor);
        rest = rest % divisor << 16;
    }
    return finish(work, a->exp - b->exp, NWORDS, sign, result);
}

int f_neg(const simul_fval* a, simul_fval* result) {
    *result = *a;
    result->sign ^= 1;
    return 0;
}

int f_abs(const simul_fval* a, simul_fval* result) {
    *result = *a;
    result->sign = 0;
    return 0;
}

int f_cvf(const simul_fval* a, simul_fval* result) { return give(*a, result); }

int f_sqrt(const simul_fval* a, simul_fval* result) {
    if (f_is_nan(a) || f_is_zero(a)) return give(*a, result);
    if (a->sign != 0) {
        *result = pos_zero;
        return raise(FP_INVALID);
    }
    if (f_is_infin(a)) return give(*a, result);
    // Newton's iteration for the inverse root: the start is within a factor of 2.7 below or 1.1 above, from
    // where nine steps reach the last bits. Nothing here leaves the limits: y squared is about 1 / x.
    const simul_fval x = *a;
    simul_fval half_x;
    f_mul(&x, &one_half, &half_x);
    simul_fval y;
    f_ldexp(&three_q, -f_findexp(&x) / 2, &y);
    for (int step = 0; step < 10; step++) {
        simul_fval t;
        f_mul(&half_x, &y, &t);
        f_mul(&t, &y, &t);
        f_sub(&one_p_five, &t, &t);
        f_mul(&y, &t, &y);
    }
    return f_mul(&x, &y, result);
}

int f_ldexp(const simul_fval* a, int n, simul_fval* result) {
    *result = *a;
    if (a->exp == F_EXP_SPECIAL || f_is_zero(a)) return 0;
    f_left_justify(result);
    // Any n beyond this leaves the limits whatever the value is.
    const int exp = result->exp + std::clamp(n, -200000, 200000);
    // Up to a multiple of 16, as alignment will take it.
    if (check_exponent(exp + (-exp & 15), result->sign, result) != 0) return -1;
    result->exp = exp;
    f_align_radix_pt(result);
    return 0;
}

int f_frexp(const simul_fval* a, simul_fval* fraction, int* exponent) {
    *fraction = *a;
    *exponent = 0;
    if (a->exp == F_EXP_SPECIAL || f_is_zero(a)) return 0;
    f_left_justify(fraction);
    *exponent = fraction->exp;
    fraction->exp = 0;
    return 0;
}

int f_modf(const simul_fval* a, simul_fval* integral, simul_fval* fraction) {
    const simul_fval value = *a;
    f_trunc(&value, integral);
    if (f_is_nan(&value)) return give(value, fraction);
    if (f_is_infin(&value)) return give(zero_of(value.sign), fraction);
    f_sub(&value, integral, fraction); // exact
    fraction->sign = value.sign;       // of a zero too
    return 0;
}

int f_fmod(const simul_fval* a, const simul_fval* b, simul_fval* result) {
    if (f_is_nan(a)) return give(*a, result);
    if (f_is_nan(b)) return give(*b, result);
    if (f_is_infin(a) || f_is_zero(b)) return invalid(result);
    if (f_is_zero(a) || f_is_infin(b) || compare_magnitude(a, b) < 0) return give(*a, result);
    // Long division by words, of which only the rest is kept: one step for each word between the radix
    // points, at most 4,095.
    const u128 divisor = f_mantissa(b);
    u128 rest = f_mantissa(a) % divisor;
    for (int distance = a->exp - b->exp; distance > 0 && rest != 0; distance -= 16) {
        rest = (rest << 16) % divisor;
    }
    const std::uint8_t sign = a->sign;
    if (rest == 0) return give(zero_of(sign), result);
    int exp = b->exp;
    for (; rest >> 80 == 0; exp -= 16) rest <<= 16;
    f_set_mantissa(result, rest);
    return check_exponent(exp, sign, result);
}

int f_trunc(const simul_fval* a, simul_fval* result) {
    *result = *a;
    if (a->exp == F_EXP_SPECIAL || f_is_zero(a)) return 0;
    if (a->exp <= 0) return give(zero_of(a->sign), result);
    for (int i = a->exp / 16; i < WORDS; i++) result->mant[i] = 0;
    return 0;
}

int f_floor(const simul_fval* a, simul_fval* result) {
    const simul_fval value = *a;
    f_trunc(&value, result);
    if (value.sign == 0 || f_bit_eq(&value, result)) return 0;
    return f_sub(result, &one, result);
}

int f_ceil(const simul_fval* a, simul_fval* result) {
    const simul_fval value = *a;
    f_trunc(&value, result);
    if (value.sign != 0 || f_bit_eq(&value, result)) return 0;
    return f_add(result, &one, result);
}

int f_round(const simul_fval* a, simul_fval* result) {
    if (a->exp >= 16 * WORDS) return give(*a, result); // integral, infinite or NaN
    // The half stands within the six words: no bit that decides is lost.
    const std::uint8_t sign = a->sign;
    f_abs(a, result);
    f_add(result, &one_half, result);
    f_trunc(result, result);
    result->sign = sign;
    return 0;
}

int f_eq(const simul_fval* a, const simul_fval* b) { return compare(a, b) == 0; }
int f_ne(const simul_fval* a, const simul_fval* b) { return compare(a, b) != 0; }
int f_lt(const simul_fval* a, const simul_fval* b) { return compare(a, b) == -1; }
int f_gt(const simul_fval* a, const simul_fval* b) { return compare(a, b) == 1; }

int f_le(const simul_fval* a, const simul_fval* b) {
    const int order = compare(a, b);
    return order == -1 || order == 0;
}

int f_ge(const simul_fval* a, const simul_fval* b) {
    const int order = compare(a, b);
    return order == 1 || order == 0;
}

int f_bit_eq(const simul_fval* a, const simul_fval* b) {
    return std::equal(a->mant, a->mant + WORDS, b->mant) && a->exp == b->exp && a->sign == b->sign;
}

int f_max(const simul_fval* list, simul_fval* result, int n) {
    const simul_fval* best = n > 0 ? list : &pos_zero;
    for (int i = 1; i < n; i++) {
        if (f_gt(&list[i], best)) best = &list[i];
    }
    return give(*best, result);
}

int f_min(const simul_fval* list, simul_fval* result, int n) {
    const simul_fval* best = n > 0 ? list : &pos_zero;
    for (int i = 1; i < n; i++) {
        if (f_lt(&list[i], best)) best = &list[i];
    }
    return give(*best, result);
}
