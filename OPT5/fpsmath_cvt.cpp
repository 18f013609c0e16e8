// Conversions of simulated floating values: to and from integers and the formats of IEEE 754.
//
// All of them work on a left-justified copy: 96 bits with the top bit set, value = 0.bits times 2 to the exp.

#include "fpsmath.h"

#include <bit>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "types.h"

namespace {

using u128 = unsigned __int128;

constexpr int MANTISSA_BITS = 96;

simul_fval justified(const simul_fval* value) {
    simul_fval copy = *value;
    f_left_justify(&copy);
    return copy;
}

// The integral part of the magnitude of a left-justified value with `exp` up to 64.
std::uint64_t integral_part(const simul_fval& value) {
    if (value.exp <= 0) return 0;
    return static_cast<std::uint64_t>(f_mantissa(&value) >> (MANTISSA_BITS - value.exp));
}

void make_value(u128 mantissa, int exp, std::uint8_t sign, simul_fval* result) {
    f_set_mantissa(result, mantissa);
    result->exp = exp;
    result->sign = sign;
    f_left_justify(result);
    f_align_radix_pt(result);
}

// A format of IEEE 754: the fraction's bits without the hidden one, and those of the exponent.
struct FORMAT {
    int fraction_bits;
    int exponent_bits;
    constexpr int bias() const { return (1 << (exponent_bits - 1)) - 1; }
    constexpr int greatest() const { return (1 << exponent_bits) - 2; } // biased, of a finite number
    constexpr std::uint64_t sign(unsigned set) const {
        return set != 0 ? std::uint64_t{1} << (fraction_bits + exponent_bits) : 0;
    }
    constexpr std::uint64_t hidden() const { return std::uint64_t{1} << fraction_bits; }
    constexpr std::uint64_t infinity() const {
        return static_cast<std::uint64_t>(greatest() + 1) << fraction_bits;
    }
};

constexpr FORMAT SINGLE{23, 8};
constexpr FORMAT DOUBLE{52, 11};

// The flag of a conversion stands alone: it replaces what earlier operations have left.
int lost(int flag, std::uint64_t result, std::uint64_t* image) {
    fp_error = flag;
    *image = result;
    return 1;
}

int encode(const FORMAT& format, const simul_fval* value, std::uint64_t* image) {
    const std::uint64_t sign = format.sign(value->sign);
    if (f_is_zero(value)) {
        *image = sign;
        return 0;
    }
    if (value->exp == F_EXP_SPECIAL) {
        *image = sign | format.infinity() | (f_is_nan(value) ? format.hidden() >> 1 : 0);
        return 0;
    }
    const simul_fval copy = justified(value);
    const u128 bits = f_mantissa(&copy);
    const int below = MANTISSA_BITS - format.fraction_bits - 1;
    int exponent = copy.exp + format.bias() - 1;
    auto fraction = static_cast<std::uint64_t>(bits >> below);
    bool guard = (bits >> (below - 1) & 1) != 0;
    bool sticky = bits << (128 - (below - 1)) != 0;
    const bool denormal = exponent < 1;
    if (denormal) {
        for (;;) {
            sticky = sticky || guard;
            guard = (fraction & 1) != 0;
            fraction >>= 1;
            if (exponent >= 0 || fraction == 0) break;
            exponent++;
        }
        if (exponent < 0) guard = false; // far below the least denormal
        if (!guard && fraction != 0) {
            *image = sign | fraction;
            return 0;
        }
        if (!guard) return lost(FP_UNDERFLOW, sign, image);
    }
    if (guard && (sticky || (fraction & 1) != 0)) fraction++;
    if (denormal) {
        if (fraction == 0) return lost(FP_UNDERFLOW, sign, image);
        *image = sign | fraction; // a carry gives the smallest normal
        return 0;
    }
    if (fraction == format.hidden() << 1) {
        fraction = format.hidden();
        exponent++;
    }
    if (exponent > format.greatest()) return lost(FP_OVERFLOW, sign | format.infinity(), image);
    *image =
        sign | static_cast<std::uint64_t>(exponent) << format.fraction_bits | (fraction ^ format.hidden());
    return 0;
}

void decode(const FORMAT& format, std::uint64_t image, simul_fval* value) {
    const std::uint8_t sign = (image & format.sign(1)) != 0;
    const auto exponent = static_cast<int>((image & (format.sign(1) - 1)) >> format.fraction_bits);
    std::uint64_t fraction = image & (format.hidden() - 1);
    if (exponent > format.greatest()) {
        *value = fraction != 0 ? a_nan : pos_infin;
        value->sign = sign;
        return;
    }
    if (exponent == 0 && fraction == 0) {
        *value = sign != 0 ? neg_zero : pos_zero;
        return;
    }
    // A denormal has no hidden bit, and the exponent of the smallest normal.
    if (exponent != 0) fraction |= format.hidden();
    const int true_exponent = (exponent != 0 ? exponent : 1) - format.bias() + 1;
    make_value(static_cast<u128>(fraction) << (MANTISSA_BITS - 1 - format.fraction_bits), true_exponent, sign,
               value);
}

} // namespace

int f_itof(long long value, simul_fval* result) {
    const auto bits = static_cast<unsigned long long>(value);
    f_utof(value < 0 ? 0 - bits : bits, result);
    if (value < 0) result->sign = 1;
    return 0;
}

int f_utof(unsigned long long value, simul_fval* result) {
    *result = pos_zero;
    if (value != 0) make_value(static_cast<u128>(value) << (MANTISSA_BITS - 64), 64, 0, result);
    return 0;
}

long long f_ftoi(const simul_fval* value) {
    const simul_fval copy = justified(value);
    const long long magnitude = copy.exp >= 64 ? LLONG_MAX : static_cast<long long>(integral_part(copy));
    return copy.sign != 0 ? -magnitude : magnitude;
}

unsigned long long f_ftou(const simul_fval* value) {
    if (value->sign != 0) return static_cast<unsigned long long>(f_ftoi(value));
    const simul_fval copy = justified(value);
    return copy.exp >= 65 ? ULLONG_MAX : integral_part(copy);
}

int f_int(const simul_fval* value) {
    const long long number = f_ftoi(value);
    if (number > INT_MAX) return INT_MAX;
    if (number < INT_MIN) return INT_MIN;
    return static_cast<int>(number);
}

int f_xtof(const XI* value, simul_fval* result) {
    if (XI_eq(value, &xi_minint)) {
        *result = simul_fval{{0x8000}, 128, 1};
        return 0;
    }
    if (XI_eq(value, &xi_zero)) {
        *result = pos_zero;
        return 0;
    }
    const bool negative = XI_lt(value, &xi_zero) != 0;
    XI magnitude = *value;
    if (negative) XI_neg(&magnitude, &magnitude);
    result->exp = XI_size(&magnitude);
    result->sign = negative;
    XI_shl(&magnitude, 128 - result->exp, &magnitude);
    for (int i = 0; i < 6; i++) {
        result->mant[i] = static_cast<std::uint16_t>(magnitude.byte[2 * i] << 8 | magnitude.byte[2 * i + 1]);
    }
    f_align_radix_pt(result);
    return 0;
}

int f_ftox(const simul_fval* value, XI* result) {
    const simul_fval copy = justified(value);
    if (copy.exp >= 128) {
        *result = xi_minint;
        if (copy.exp == 128 && copy.sign != 0 && f_mantissa(&copy) == static_cast<u128>(1) << 95) return 0;
        if (copy.sign == 0 || f_is_nan(value)) XI_notb(&xi_minint, result);
        fp_error |= FP_INVALID;
        return -1;
    }
    *result = xi_zero;
    if (copy.exp <= 0) return 0;
    for (int i = 0; i < 6; i++) {
        result->byte[2 * i] = static_cast<unsigned char>(copy.mant[i] >> 8);
        result->byte[2 * i + 1] = static_cast<unsigned char>(copy.mant[i] & 0xff);
    }
    XI_shr(result, 128 - copy.exp, result);
    if (copy.sign != 0) XI_neg(result, result);
    return 0;
}

void f_int65tof(const INT65& value, simul_fval* result) {
    XI number;
    XI_llutox(value.bits(), &number);
    if (value.is_negative()) {
        XI high;
        XI_llitox(-1, &high);
        XI_shl(&high, 64, &high);
        XI_or(&number, &high, &number);
    }
    f_xtof(&number, result);
}

INT65 f_ftoint65(const simul_fval* value) {
    const INT65 greatest = INT65::from_unsigned(std::numeric_limits<std::uint64_t>::max());
    if (f_is_nan(value)) {
        fp_error |= FP_INVALID;
        return INT65::from_signed(0);
    }
    XI number;
    XI high;
    const int status = f_ftox(value, &number);
    XI_asg(&number, &high);
    for (int i = 8; i < 16; i++) high.byte[i] = 0;
    XI all_ones;
    XI_llitox(-1, &all_ones);
    XI_shl(&all_ones, 64, &all_ones);
    const bool negative = XI_eq(&high, &all_ones) != 0;
    if (status != 0 || (!negative && XI_ne(&high, &xi_zero) != 0)) {
        fp_error |= FP_INVALID;
        return value->sign != 0 ? ~greatest : greatest;
    }
    const INT65 low = INT65::from_unsigned(XI_xtollu(&number));
    return negative ? low | ~greatest : low;
}

int f_cvt_stot(const simul_fval* value, trg_fval* image, int) { return encode(SINGLE, value, image); }

int f_cvt_ttos(const trg_fval* image, simul_fval* value, int) {
    decode(SINGLE, *image & 0xffffffffu, value);
    return 0;
}

int ieee_cvt_stof(const simul_fval* value, std::uint32_t* image) {
    std::uint64_t wide;
    const int status = encode(SINGLE, value, &wide);
    *image = static_cast<std::uint32_t>(wide);
    return status;
}

int ieee_cvt_stod(const simul_fval* value, std::uint64_t* image) { return encode(DOUBLE, value, image); }

std::uint32_t get_ieee_flt_fmt(const simul_fval* value) {
    std::uint32_t image;
    ieee_cvt_stof(value, &image);
    return image;
}

std::uint64_t get_ieee_dbl_fmt(const simul_fval* value) {
    std::uint64_t image;
    ieee_cvt_stod(value, &image);
    return image;
}

void ieee_cvt_ftos(std::uint32_t image, simul_fval* value) { decode(SINGLE, image, value); }

void ieee_cvt_dtos(std::uint64_t image, simul_fval* value) { decode(DOUBLE, image, value); }

void truncate_fval_to_target(simul_fval* value, TYPE* type) {
    const int precision = type != nullptr && type->is_float() ? 0 : 1;
    trg_fval image;
    f_cvt_stot(value, &image, precision);
    f_cvt_ttos(&image, value, precision);
}

double f_ftoh(const simul_fval* value) {
    if (f_is_nan(value)) return std::strtod("NaN", nullptr);
    if (f_is_infin(value)) return std::strtod(value->sign != 0 ? "-Inf" : "Inf", nullptr);
    const int flags = fp_error; // the host's rounding is none of the target's
    const double number = std::bit_cast<double>(get_ieee_dbl_fmt(value));
    fp_error = flags;
    return number;
}
