// Stand-in until the full package is merged.
#include <bit>
#include <cmath>

#include "fpsmath.h"
int fp_error;
const simul_fval pos_zero{{}, -32767, 0}, one{{1}, 16, 0};
namespace {
float h(const simul_fval* v) { return std::bit_cast<float>(get_ieee_flt_fmt(v)); }
int put(float f, simul_fval* r) {
    if (std::isnan(f)) fp_error |= 1;
    if (std::isinf(f)) fp_error |= 4;
    ieee_cvt_ftos(std::bit_cast<std::uint32_t>(f), r);
    return fp_error != 0 ? -1 : 0;
}
} // namespace
int f_add(const simul_fval* a, const simul_fval* b, simul_fval* r) { return put(h(a) + h(b), r); }
int f_sub(const simul_fval* a, const simul_fval* b, simul_fval* r) { return put(h(a) - h(b), r); }
int f_mul(const simul_fval* a, const simul_fval* b, simul_fval* r) { return put(h(a) * h(b), r); }
int f_div(const simul_fval* a, const simul_fval* b, simul_fval* r) { return put(h(a) / h(b), r); }
int f_neg(const simul_fval* a, simul_fval* r) { return put(-h(a), r); }
int f_abs(const simul_fval* a, simul_fval* r) { return put(std::fabs(h(a)), r); }
int f_sqrt(const simul_fval* a, simul_fval* r) { return put(std::sqrt(h(a)), r); }
int f_eq(const simul_fval* a, const simul_fval* b) { return h(a) == h(b); }
int f_ne(const simul_fval* a, const simul_fval* b) { return h(a) != h(b); }
int f_le(const simul_fval* a, const simul_fval* b) { return h(a) <= h(b); }
int f_lt(const simul_fval* a, const simul_fval* b) { return h(a) < h(b); }
int f_ge(const simul_fval* a, const simul_fval* b) { return h(a) >= h(b); }
int f_gt(const simul_fval* a, const simul_fval* b) { return h(a) > h(b); }
void truncate_fval_to_target(simul_fval* v, TYPE*) { truncate_fval_to_target(v); }
void f_int65tof(const INT65& v, simul_fval* r) {
    put(v.is_negative() ? -static_cast<float>(v.magnitude()) : static_cast<float>(v.bits()), r);
}
INT65 f_ftoint65(const simul_fval* v) {
    const float f = std::trunc(h(v));
    if (!(std::fabs(f) < 18446744073709551616.0f)) return INT65::from_signed(0);
    return f < 0 ? -INT65::from_unsigned(static_cast<std::uint64_t>(-f))
                 : INT65::from_unsigned(static_cast<std::uint64_t>(f));
}
