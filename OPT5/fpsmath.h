// Simulated floating values: what an FCON holds.

#ifndef OPT5_FPSMATH_H
#define OPT5_FPSMATH_H

#include <cstdint>
#include <string>

#include "xint.h"

class TYPE;

// A word-normalised base-65536 value 0.w0w1w2w3w4w5 times 2 to the `exp`. At rest `exp` is a multiple of 16
// and word 0 is nonzero; `exp` -32767 with word 0 zero is zero, 32767 with word 0 zero infinity, 32767 with
// word 0 nonzero NaN.
struct simul_fval {
    std::uint16_t mant[6];
    std::int32_t exp;
    std::uint8_t sign;
};

// Exact: the value of an IEEE single bit image.
void ieee_cvt_ftos(std::uint32_t image, simul_fval* value);

// Rounds to nearest even; the image of the IEEE single.
std::uint32_t get_ieee_flt_fmt(const simul_fval* value);

// Reads decimal or hexadecimal text, "NaN", "Inf" and "-Inf" included. Returns 0, or -1 when the text is no
// number.
int f_atof(const char* text, simul_fval* value);

// Rounds the value to the target's format, IEEE single.
void truncate_fval_to_target(simul_fval* value);
void truncate_fval_to_target(simul_fval* value, TYPE* type);

extern int fp_error;
extern const simul_fval pos_zero, one;
int f_add(const simul_fval* a, const simul_fval* b, simul_fval* result);
int f_sub(const simul_fval* a, const simul_fval* b, simul_fval* result);
int f_mul(const simul_fval* a, const simul_fval* b, simul_fval* result);
int f_div(const simul_fval* a, const simul_fval* b, simul_fval* result);
int f_neg(const simul_fval* a, simul_fval* result);
int f_abs(const simul_fval* a, simul_fval* result);
int f_sqrt(const simul_fval* a, simul_fval* result);
int f_eq(const simul_fval* a, const simul_fval* b);
int f_ne(const simul_fval* a, const simul_fval* b);
int f_le(const simul_fval* a, const simul_fval* b);
int f_lt(const simul_fval* a, const simul_fval* b);
int f_ge(const simul_fval* a, const simul_fval* b);
int f_gt(const simul_fval* a, const simul_fval* b);
void f_int65tof(const INT65& value, simul_fval* result);
INT65 f_ftoint65(const simul_fval* value);

// The value in format "%a" ("NaN", "Inf", "-Inf" for the special ones): lossless for a value that has been
// through truncate_fval_to_target.
std::string f_print_hex(const simul_fval* value);

#endif
