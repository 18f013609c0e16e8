#include "fpsmath.h"

#include <bit>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// A value at rest has a word-aligned exponent. Conversions to and from the IEEE single work on its 96
// fraction bits as one number, justified so that the top bit is set.

namespace {

constexpr std::int32_t EXP_ZERO = -32767;
constexpr std::int32_t EXP_SPECIAL = 32767; // infinity or NaN

void set_special(simul_fval* value, std::int32_t exp, std::uint16_t word0, std::uint8_t sign) {
    std::memset(value, 0, sizeof *value);
    value->exp = exp;
    value->mant[0] = word0;
    value->sign = sign;
}

// The 96 fraction bits: the top 64 in `high`, the rest in the top half of `low`.
struct FRACTION {
    std::uint64_t high;
    std::uint64_t low;
};

FRACTION fraction_of(const simul_fval* value) {
    FRACTION f{0, 0};
    for (int i = 0; i < 4; i++) f.high = (f.high << 16) | value->mant[i];
    f.low = (static_cast<std::uint64_t>(value->mant[4]) << 48) |
            (static_cast<std::uint64_t>(value->mant[5]) << 32);
    return f;
}

} // namespace

void ieee_cvt_ftos(std::uint32_t image, simul_fval* value) {
    const auto sign = static_cast<std::uint8_t>(image >> 31);
    const int biased = static_cast<int>((image >> 23) & 0xff);
    std::uint32_t fraction = image & 0x7fffff;
    if (biased == 255) return set_special(value, EXP_SPECIAL, fraction != 0 ? 0x8000 : 0, sign);
    if (biased == 0 && fraction == 0) return set_special(value, EXP_ZERO, 0, sign);
    // The value is 0.f times 2 to the exp, with f the 24 bits behind the point.
    int exp = biased - 126;
    if (biased == 0) {
        exp = -125;
    } else {
        fraction |= 0x800000;
    }
    std::uint64_t bits = static_cast<std::uint64_t>(fraction) << 40;
    const int lead = std::countl_zero(bits);
    bits <<= lead;
    exp -= lead;
    const int aligned = exp > 0 ? (exp + 15) / 16 * 16 : -(-exp / 16 * 16);
    bits >>= aligned - exp; // at most 15 of the 40 zero bits below
    set_special(value, aligned, 0, sign);
    for (int i = 0; i < 4; i++) value->mant[i] = static_cast<std::uint16_t>(bits >> (48 - 16 * i));
}

std::uint32_t get_ieee_flt_fmt(const simul_fval* value) {
    const std::uint32_t sign = value->sign != 0 ? 0x80000000u : 0u;
    if (value->exp == EXP_SPECIAL) return sign | (value->mant[0] != 0 ? 0x7fc00000u : 0x7f800000u);
    FRACTION f = fraction_of(value);
    if (f.high == 0) return sign;
    const int lead = std::countl_zero(f.high);
    if (lead != 0) {
        f.high = (f.high << lead) | (f.low >> (64 - lead));
        f.low <<= lead;
    }
    int biased = value->exp - lead + 126;
    std::uint64_t bits = f.high >> 40; // 24 bits
    std::uint64_t rest = f.high << 24; // the bits behind them, the guard bit on top
    bool sticky = f.low != 0;
    if (biased < 1) {
        // Denormal: the hidden bit moves into the fraction.
        for (; biased < 1 && bits != 0; biased++) {
            sticky = sticky || rest != 0;
            rest = (bits & 1) << 63;
            bits >>= 1;
        }
        if (biased < 1) return sign;
        biased = 0;
    }
    const bool guard = (rest >> 63) != 0;
    sticky = sticky || (rest << 1) != 0;
    if (guard && (sticky || (bits & 1) != 0)) bits++;
    if (biased == 0) return sign | static_cast<std::uint32_t>(bits); // a carry gives the smallest normal
    if (bits == 0x1000000) {
        bits = 0x800000;
        biased++;
    }
    if (biased > 254) return sign | 0x7f800000u;
    return sign | (static_cast<std::uint32_t>(biased) << 23) | static_cast<std::uint32_t>(bits & 0x7fffff);
}

int f_atof(const char* text, simul_fval* value) {
    char* end = nullptr;
    const float nearest = std::strtof(text, &end);
    if (end == text || *end != '\0') {
        set_special(value, EXP_ZERO, 0, 0);
        return -1;
    }
    ieee_cvt_ftos(std::bit_cast<std::uint32_t>(nearest), value);
    return 0;
}

void truncate_fval_to_target(simul_fval* value) { ieee_cvt_ftos(get_ieee_flt_fmt(value), value); }

std::string f_print_hex(const simul_fval* value) {
    const std::uint32_t image = get_ieee_flt_fmt(value);
    const auto number = std::bit_cast<float>(image);
    if (std::isnan(number)) return "NaN";
    if (std::isinf(number)) return std::signbit(number) ? "-Inf" : "Inf";
    char text[64];
    std::snprintf(text, sizeof text, "%a", static_cast<double>(number));
    return text;
}
