// Arithmetic on simulated floating values: what an FCON holds, without the host's floating-point unit.
//
// Arithmetic rounds half up at the first discarded word, not to the target's format; what the target holds is
// decided by truncate_fval_to_target. Unless told otherwise: routines return 0, or -1 when they raised a flag
// of fp_error; a NaN operand is the result as it is, the first operand first; a result may be the same object
// as an operand; operands are values at rest.

#ifndef OPT5_FPSMATH_H
#define OPT5_FPSMATH_H

#include <cstdint>
#include <cstdio>
#include <string>

#include "xi.h"
#include "xint.h"

class TYPE;

// A word-normalised base-65536 value 0.w0w1w2w3w4w5 times 2 to the `exp`. At rest `exp` is a multiple of 16
// and word 0 is nonzero, which leaves 81 to 96 significant bits and makes all inner loops word operations;
// `exp` -32767 with word 0 zero is zero, 32767 with word 0 zero infinity, 32767 with word 0 nonzero NaN.
struct simul_fval {
    std::uint16_t mant[6];
    std::int32_t exp;
    std::uint8_t sign;
};

constexpr std::int32_t F_EXP_ZERO = -32767;
constexpr std::int32_t F_EXP_SPECIAL = 32767; // infinity or NaN

// A value with one more word: an entry of a table whose last bit matters.
struct precise_sim_fval {
    std::uint16_t mant[7];
    std::int32_t exp;
    std::uint8_t sign;
};

// The target's bit image: an IEEE single in the low 32 bits.
using trg_fval = std::uint64_t;

// Flags of fp_error.
enum FP_FLAG : int {
    FP_INVALID = 1,     // the result is a_nan
    FP_ZERO_DIVIDE = 2, // a nonzero value by zero
    FP_OVERFLOW = 4,
    FP_UNDERFLOW = 8,
};

// Sticky: cleared by callers before an operation, read after it. Arithmetic adds flags; a conversion to a
// target format that raises one replaces what is there.
extern int fp_error;

extern const simul_fval pos_zero;
extern const simul_fval neg_zero;
extern const simul_fval pos_infin;
extern const simul_fval neg_infin;
extern const simul_fval a_nan;
extern const simul_fval one;

// --- Basic arithmetic -----------------------------------------------------------------------------------

int f_add(const simul_fval* a, const simul_fval* b, simul_fval* result);
int f_sub(const simul_fval* a, const simul_fval* b, simul_fval* result);
int f_mul(const simul_fval* a, const simul_fval* b, simul_fval* result);
// Infinity and FP_ZERO_DIVIDE for a nonzero value by zero.
int f_div(const simul_fval* a, const simul_fval* b, simul_fval* result);
int f_neg(const simul_fval* a, simul_fval* result);
int f_abs(const simul_fval* a, simul_fval* result);
int f_cvf(const simul_fval* a, simul_fval* result); // a copy
// Good to the last few bits, not exact; pos_zero and FP_INVALID for a negative value.
int f_sqrt(const simul_fval* a, simul_fval* result);
// a times 2 to the n.
int f_ldexp(const simul_fval* a, int n, simul_fval* result);
// a = fraction times 2 to the `exponent`, the fraction's magnitude in [0.5, 1). Of zero, infinity and NaN the
// fraction is the value itself and the exponent 0.
int f_frexp(const simul_fval* a, simul_fval* fraction, int* exponent);
// The integral part and the rest, both with the sign of `a`. `integral` and `fraction` are different objects.
int f_modf(const simul_fval* a, simul_fval* integral, simul_fval* fraction);
// The exact rest of a / b, with the sign of `a`.
int f_fmod(const simul_fval* a, const simul_fval* b, simul_fval* result);
int f_trunc(const simul_fval* a, simul_fval* result);
int f_floor(const simul_fval* a, simul_fval* result);
int f_ceil(const simul_fval* a, simul_fval* result);
int f_round(const simul_fval* a, simul_fval* result); // halves away from zero

// 1 where it holds, else 0. A NaN operand raises FP_INVALID and makes all but f_ne 0. Zeros are equal.
int f_eq(const simul_fval* a, const simul_fval* b);
int f_ne(const simul_fval* a, const simul_fval* b);
int f_lt(const simul_fval* a, const simul_fval* b);
int f_le(const simul_fval* a, const simul_fval* b);
int f_gt(const simul_fval* a, const simul_fval* b);
int f_ge(const simul_fval* a, const simul_fval* b);
// Whether the stored words are the same; raises nothing.
int f_bit_eq(const simul_fval* a, const simul_fval* b);

// The greatest or least of n values; pos_zero where n is 0.
int f_max(const simul_fval* list, simul_fval* result, int n);
int f_min(const simul_fval* list, simul_fval* result, int n);

bool f_is_nan(const simul_fval* a);
bool f_is_infin(const simul_fval* a);
bool f_is_zero(const simul_fval* a);

// --- The stored form ------------------------------------------------------------------------------------

// Brings a working array into the stored form: `work` is a carry word and `nwords` (6 or more) words behind
// it, most significant first; afterwards words 1 to 6 are the mantissa and `exp`, which has counted from
// between words 0 and 1, is right for it. Drops what is behind word 7 and rounds half up by the top bit of
// word 7. All words zero: `exp` becomes 0. Does not check the exponent.
void f_normalize(unsigned short* work, int* exp, int nwords);

// Shifts the mantissa left until its top bit is set, and lowers `exp` by as much. Zero, infinity and NaN
// stay. All words zero with any other exponent is a broken value: a message and exit 1.
void f_left_justify(simul_fval* value);

// Back to rest: `exp` up to the next multiple of 16, the mantissa to the right by the difference. Beyond the
// limits of `exp` the signed infinity or zero, without a flag.
void f_align_radix_pt(simul_fval* value);

// n with 2 to the n-1 <= magnitude < 2 to the n. `exp` of zero, infinity and NaN.
int f_findexp(const simul_fval* value);

// -1, 0 or 1 by the value's sign; 0 for zero and NaN.
int f_sgn(const simul_fval* value);

// Rounds n entries to six words, half up. `entries` and `result` are arrays of n.
void f_rnd_prectbl(const precise_sim_fval* entries, simul_fval* result, int n);

// The six words as one number, word 0 on top of 96 bits, and back.
unsigned __int128 f_mantissa(const simul_fval* value);
void f_set_mantissa(simul_fval* value, unsigned __int128 bits);

// --- Integers -------------------------------------------------------------------------------------------

// Exact.
int f_itof(long long value, simul_fval* result);
int f_utof(unsigned long long value, simul_fval* result);

// Truncated towards zero. A magnitude of 2 to the 63 or more, infinity and NaN give 0x7fffffffffffffff with
// the value's sign. No flag.
long long f_ftoi(const simul_fval* value);
// Truncated towards zero; a negative value gives the bits of f_ftoi. Of 2 to the 64 and more all ones.
unsigned long long f_ftou(const simul_fval* value);
// Truncated towards zero, saturated to the host's int.
int f_int(const simul_fval* value);

// The top 81 to 96 bits of the number, truncated behind them.
int f_xtof(const XI* value, simul_fval* result);
// Truncated towards zero. A value outside of 128 bits saturates and raises FP_INVALID; so does NaN, as if
// positive.
int f_ftox(const simul_fval* value, XI* result);

// Exact.
void f_int65tof(const INT65& value, simul_fval* result);
// Truncated towards zero. A value outside of 65 bits saturates and raises FP_INVALID; so does NaN, as 0.
INT65 f_ftoint65(const simul_fval* value);

// --- Target formats -------------------------------------------------------------------------------------

// The nearest value of the target, ties to even, as its image. Returns 0; 1 when the result overflowed to the
// infinity or underflowed to zero, and then fp_error is that flag alone. `precision` (0 for float, else 1)
// changes nothing: every floating type is an IEEE single.
int f_cvt_stot(const simul_fval* value, trg_fval* image, int precision);
// Exact.
int f_cvt_ttos(const trg_fval* image, simul_fval* value, int precision);

// The same as f_cvt_stot, for IEEE single and double.
int ieee_cvt_stof(const simul_fval* value, std::uint32_t* image);
int ieee_cvt_stod(const simul_fval* value, std::uint64_t* image);
std::uint32_t get_ieee_flt_fmt(const simul_fval* value);
std::uint64_t get_ieee_dbl_fmt(const simul_fval* value);
// Exact: the value of an IEEE bit image.
void ieee_cvt_ftos(std::uint32_t image, simul_fval* value);
void ieee_cvt_dtos(std::uint64_t image, simul_fval* value);

// Rounds the value to what an object of the type holds: to the target's single for every type, null too.
void truncate_fval_to_target(simul_fval* value, TYPE* type);

// The host's nearest double.
double f_ftoh(const simul_fval* value);

// --- Text -----------------------------------------------------------------------------------------------

// Reads decimal text, hexadecimal text ("0x1.8p-3"), or "NaN", "Inf" and "Infinity" in any case, each with an
// optional sign. Returns -1 also when the text is no number, with pos_zero as the value. Linear in the text.
// The nearest single of the value is that of the text, for texts of any length.
int f_atof(const char* text, simul_fval* value);

// The most characters, with the final zero, that f_ftoa writes behind the format's own. The forms e, g and a
// of a width and precision below 100 stay below 128.
constexpr int F_TEXT_LIMIT = 12288;

// Writes the format up to "%", then the value by an optional width and precision (up to 1000 each; 6 where
// none is given) and the conversion e, f, g or a, then the rest of the format. As printf, except for "NaN",
// "Inf" and "-Inf", and for the form a without a precision, which drops trailing zeros. An unknown conversion
// reads as g. Returns the length.
int f_ftoa(char* out, const char* format, const simul_fval* value);

// Lays out one conversion, e, f, g or a; a negative precision gives the default.
std::string f_f2ascii(const simul_fval* value, char conversion, int precision);

// Digits of a finite value, correctly rounded with ties to even: `ndigit` significant ones (at least 1), or
// `ndigit` behind the decimal point (none at all are left where the value rounds to zero). The point stands
// behind the first `*decpt` digits; `*sign` is 1 for a negative value. Zero gives zeros and decpt 1.
std::string f_ecvt(const simul_fval* value, int ndigit, int* decpt, int* sign);
std::string f_fcvt(const simul_fval* value, int ndigit, int* decpt, int* sign);
// Hexadecimal digits, the first a 1 (0 for zero), with `ndigit` behind it; `*exponent` is the power of 2 of
// the first.
std::string f_acvt(const simul_fval* value, int ndigit, int* exponent, int* sign);

// Decimal digits of the number and a final zero; returns the place of the zero.
char* f_utoa(unsigned long long value, char* out);

// The value in format "%a", after truncate_fval_to_target.
std::string f_print_hex(const simul_fval* value);

// The value in format "%g", with "F" behind one of type float and "L" of long double. For dumps.
std::string fval2text(const simul_fval* value, TYPE* type);

// A constant's decimal text in canonical form: a sign, one digit that is not zero, a point, the other digits
// without closing zeros (at most `digits` in all; 0: every one) and the exponent, as in "+1.25e-3". Digits
// that are too many are cut off. A text without a digit other than zero gives "+0".
std::string normalize_fcon(const char* text, int digits);

// Write the value to the stream: in decimal, and as the stored words.
void f_print(const simul_fval* value, std::FILE* stream);
void f_dbg(const simul_fval* value, std::FILE* stream);

// --- Transcendental functions ---------------------------------------------------------------------------

// About as exact as a double, no more. Outside of the domain a_nan and FP_INVALID.
int f_exp(const simul_fval* a, simul_fval* result);   // overflows above 89.41598624
int f_log(const simul_fval* a, simul_fval* result);   // of zero: neg_infin and FP_ZERO_DIVIDE
int f_log10(const simul_fval* a, simul_fval* result); // likewise
int f_pow(const simul_fval* a, const simul_fval* b, simul_fval* result);
int f_sin(const simul_fval* a, simul_fval* result);
int f_cos(const simul_fval* a, simul_fval* result);
int f_tan(const simul_fval* a, simul_fval* result);
int f_asin(const simul_fval* a, simul_fval* result);
int f_acos(const simul_fval* a, simul_fval* result);
int f_atan(const simul_fval* a, simul_fval* result);
int f_atan2(const simul_fval* y, const simul_fval* x, simul_fval* result);
int f_sinh(const simul_fval* a, simul_fval* result);
int f_cosh(const simul_fval* a, simul_fval* result);
int f_tanh(const simul_fval* a, simul_fval* result);

#endif
