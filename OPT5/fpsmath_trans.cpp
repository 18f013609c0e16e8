// Transcendental functions of simulated floating values.
//
// Each reduces its argument to a small range and evaluates a polynomial or a quotient of two, with
// coefficients for about 60 bits: as exact as a double, and no more. Constants are decimal text, read on each
// call. The method and most coefficients are those of W. J. Cody and W. Waite, Software Manual for the
// Elementary Functions, 1980.

#include "fpsmath.h"

#include <initializer_list>

namespace {

// A value with the operators of the simulator, for formulas.
struct NUMBER {
    simul_fval v;
    NUMBER() : v(pos_zero) {}
    explicit NUMBER(const simul_fval& value) : v(value) {}
    explicit NUMBER(const char* text) { f_atof(text, &v); }
    explicit NUMBER(long long value) { f_itof(value, &v); }
    friend NUMBER operator+(const NUMBER& a, const NUMBER& b) { return by(f_add, a, b); }
    friend NUMBER operator-(const NUMBER& a, const NUMBER& b) { return by(f_sub, a, b); }
    friend NUMBER operator*(const NUMBER& a, const NUMBER& b) { return by(f_mul, a, b); }
    friend NUMBER operator/(const NUMBER& a, const NUMBER& b) { return by(f_div, a, b); }
    NUMBER operator-() const {
        NUMBER result;
        f_neg(&v, &result.v);
        return result;
    }
    friend bool operator<(const NUMBER& a, const NUMBER& b) { return f_lt(&a.v, &b.v) != 0; }
    friend bool operator>(const NUMBER& a, const NUMBER& b) { return f_gt(&a.v, &b.v) != 0; }
    bool is_negative() const { return v.sign != 0; }
    NUMBER magnitude() const { return is_negative() ? -*this : *this; }

  private:
    static NUMBER by(int (*operation)(const simul_fval*, const simul_fval*, simul_fval*), const NUMBER& a,
                     const NUMBER& b) {
        NUMBER result;
        operation(&a.v, &b.v, &result.v);
        return result;
    }
};

const NUMBER& unit() {
    static const NUMBER number(one);
    return number;
}

NUMBER ldexp(const NUMBER& a, int n) {
    NUMBER result;
    f_ldexp(&a.v, n, &result.v);
    return result;
}

NUMBER half_of(const NUMBER& a) { return ldexp(a, -1); }

// The polynomial of x with the coefficients, that of the highest power first.
NUMBER polynomial(const NUMBER& x, std::initializer_list<const char*> coefficients) {
    NUMBER sum;
    for (const char* coefficient : coefficients) sum = sum * x + NUMBER(coefficient);
    return sum;
}

// Ends a function: the result, and whether it raised a flag since the start of the scope.
class SCOPE {
  public:
    SCOPE() : before_(fp_error) { fp_error = 0; }
    SCOPE(const SCOPE&) = delete;
    SCOPE& operator=(const SCOPE&) = delete;
    ~SCOPE() { fp_error |= before_; }
    int give(const NUMBER& value, simul_fval* result) {
        *result = value.v;
        return fp_error != 0 ? -1 : 0;
    }
    int fail(int flag, const simul_fval& value, simul_fval* result) {
        fp_error = flag;
        *result = value;
        return -1;
    }
    int invalid(simul_fval* result) { return fail(FP_INVALID, a_nan, result); }

  private:
    int before_;
};

// The nearest integer.
NUMBER nearest(const NUMBER& x) {
    NUMBER result;
    f_round(&x.v, &result.v);
    return result;
}

// Takes the value where it is NaN already.
bool pass_nan(const simul_fval* a, simul_fval* result) {
    if (!f_is_nan(a)) return false;
    *result = *a;
    return true;
}

// e to the x, with the exponent limited by the form of the value only.
NUMBER exponential(const NUMBER& x) {
    const NUMBER n = nearest(x * NUMBER("1.4426950408889634074"));
    const NUMBER g = x - n * NUMBER("0.693359375") - n * NUMBER("-2.121944400546905827679e-4");
    const NUMBER z = g * g;
    const NUMBER p = g * polynomial(z, {"3.1555192765684646356e-5", "7.5753180159422776666e-3", "0.25"});
    const NUMBER q = polynomial(
        z, {"7.5104028399870046114e-7", "6.3121894374398503557e-4", "5.6817302698551221787e-2", "0.5"});
    return ldexp(NUMBER("0.5") + p / (q - p), f_int(&n.v) + 1);
}

// The natural logarithm of a positive finite value.
NUMBER logarithm(const NUMBER& x) {
    NUMBER f;
    int exponent;
    f_frexp(&x.v, &f.v, &exponent);
    const NUMBER half("0.5");
    NUMBER numerator;
    NUMBER denominator;
    if (f > NUMBER("0.70710678118654752440")) {
        numerator = f - unit();
        denominator = f * half + half;
    } else {
        exponent--;
        numerator = f - half;
        denominator = numerator * half + half;
    }
    const NUMBER z = numerator / denominator;
    const NUMBER w = z * z;
    const NUMBER a =
        polynomial(w, {"-0.78956112887491257267", "0.16383943563021534222e2", "-0.64124943423745581147e2"});
    const NUMBER b = polynomial(
        w, {"1", "-0.35667977739034646171e2", "0.31203222091920532844e3", "-0.76949932108494879777e3"});
    const NUMBER n(static_cast<long long>(exponent));
    return n * NUMBER("-2.121944400546905827679e-4") + (z + z * (w * a / b)) + n * NUMBER("0.693359375");
}

// What f_log and f_log10 have in common: their special operands. `scale` is null for the natural logarithm.
int logarithm_by(const char* scale, const simul_fval* a, simul_fval* result) {
    if (pass_nan(a, result)) return 0;
    SCOPE scope;
    if (f_is_zero(a)) return scope.fail(FP_ZERO_DIVIDE, neg_infin, result);
    if (a->sign != 0) return scope.invalid(result);
    if (f_is_infin(a)) return scope.give(NUMBER(pos_infin), result);
    NUMBER value = logarithm(NUMBER(*a));
    if (scale != nullptr) value = value * NUMBER(scale);
    return scope.give(value, result);
}

// Beyond this magnitude the reduction by multiples of pi has no bits left.
bool beyond_reduction(const simul_fval* a) { return a->exp > 64; }

// The sine of a finite value, or the cosine: the sine of what is a quarter turn on.
NUMBER sine(const NUMBER& a, bool cosine) {
    const NUMBER x = a.magnitude();
    NUMBER n;
    if (cosine) {
        n = nearest((x + NUMBER("1.57079632679489661923")) * NUMBER("0.31830988618379067154"));
    } else {
        n = nearest(x * NUMBER("0.31830988618379067154"));
    }
    const bool odd = (f_ftou(&n.v) & 1) != 0;
    if (cosine) n = n - NUMBER("0.5");
    const NUMBER f = x - n * NUMBER("3.1416015625") - n * NUMBER("-8.908910206761537356617e-6");
    const NUMBER g = f * f;
    const NUMBER r = g * polynomial(g, {"0.27204790957888846175e-14", "-0.76429178068910467734e-12",
                                        "0.16058936490371589114e-9", "-0.25052106798274584544e-7",
                                        "0.27557319210152756119e-5", "-0.19841269841201840457e-3",
                                        "0.83333333333331650314e-2", "-0.16666666666666665052"});
    const NUMBER value = f + f * r;
    return odd != (!cosine && a.is_negative()) ? -value : value;
}

int sine_or_cosine(const simul_fval* a, bool cosine, simul_fval* result) {
    if (pass_nan(a, result)) return 0;
    SCOPE scope;
    if (beyond_reduction(a)) return scope.invalid(result);
    if (f_is_zero(a)) return scope.give(NUMBER(cosine ? one : *a), result);
    return scope.give(sine(NUMBER(*a), cosine), result);
}

// x times the quotient of two polynomials of its square, plus x.
NUMBER odd_quotient(const NUMBER& x, std::initializer_list<const char*> p,
                    std::initializer_list<const char*> q) {
    const NUMBER g = x * x;
    return x + x * (g * polynomial(g, p) / polynomial(g, q));
}

// The arc sine of a magnitude up to a half.
NUMBER small_arc_sine(const NUMBER& x) {
    return odd_quotient(x,
                        {"-0.69674573447350646411", "0.10152522233806463645e2", "-0.39688862997504877339e2",
                         "0.57208227877891731407e2", "-0.27368494524164255994e2"},
                        {"1", "-0.23823859153670238830e2", "0.15095270841030604719e3",
                         "-0.38186303361750149284e3", "0.41714430248260412556e3",
                         "-0.16421096714498560795e3"});
}

// The arc sine, or the arc cosine, of a magnitude up to one.
NUMBER arc_sine(const NUMBER& a, bool cosine) {
    const NUMBER x = a.magnitude();
    const NUMBER quarter_turn("1.57079632679489661923");
    if (!(x > NUMBER("0.5"))) {
        const NUMBER value = small_arc_sine(a);
        return cosine ? quarter_turn - value : value;
    }
    // asin x = pi/2 - 2 asin sqrt((1 - x) / 2)
    NUMBER root = half_of(unit() - x);
    f_sqrt(&root.v, &root.v);
    const NUMBER twice = ldexp(small_arc_sine(root), 1);
    if (cosine) return a.is_negative() ? ldexp(quarter_turn, 1) - twice : twice;
    const NUMBER value = quarter_turn - twice;
    return a.is_negative() ? -value : value;
}

int arc_sine_or_cosine(const simul_fval* a, bool cosine, simul_fval* result) {
    if (pass_nan(a, result)) return 0;
    SCOPE scope;
    if (f_is_infin(a) || NUMBER(*a).magnitude() > unit()) return scope.invalid(result);
    if (f_is_zero(a) && !cosine) return scope.give(NUMBER(*a), result);
    return scope.give(arc_sine(NUMBER(*a), cosine), result);
}

// The arc tangent of any value but NaN and zero.
NUMBER arc_tangent(const NUMBER& a) {
    NUMBER x = a.magnitude();
    const bool inverse = x > unit();
    if (inverse) x = unit() / x;
    NUMBER sum;
    if (x > NUMBER("0.26794919243112270647")) { // 2 - sqrt 3
        const NUMBER root("1.73205080756887729353");
        sum = NUMBER("0.52359877559829887308"); // pi/6
        x = (x * root - unit()) / (root + x);
    }
    NUMBER value;
    if (!f_is_zero(&x.v)) {
        value = odd_quotient(x,
                             {"-0.83758299368150059274", "-0.84946240351320683534e1",
                              "-0.20505855195861651981e2", "-0.13688768894191926929e2"},
                             {"1", "0.15024001160028576121e2", "0.59578436142597344465e2",
                              "0.86157349597130242515e2", "0.41066306682575781263e2"});
    }
    value = sum + value;
    if (inverse) value = NUMBER("1.57079632679489661923") - value;
    return a.is_negative() ? -value : value;
}

// x to the n by squaring; n is not negative.
NUMBER integral_power(NUMBER x, unsigned n) {
    NUMBER product = unit();
    for (; n != 0; n >>= 1) {
        if ((n & 1) != 0) product = product * x;
        if (n > 1) x = x * x;
    }
    return product;
}

bool is_integral(const simul_fval* a) {
    simul_fval whole;
    f_trunc(a, &whole);
    return f_bit_eq(a, &whole) != 0;
}

// Whether an integral finite value is odd.
bool is_odd(const simul_fval* a) {
    simul_fval two = one;
    simul_fval rest;
    two.mant[0] = 2;
    f_fmod(a, &two, &rest);
    return !f_is_zero(&rest);
}

} // namespace

int f_exp(const simul_fval* a, simul_fval* result) {
    if (pass_nan(a, result)) return 0;
    if (f_is_infin(a)) {
        *result = a->sign != 0 ? pos_zero : pos_infin;
        return 0;
    }
    SCOPE scope;
    const NUMBER x(*a);
    if (x > NUMBER("89.41598624")) return scope.fail(FP_OVERFLOW, pos_infin, result);
    if (x < NUMBER("-22800")) return scope.fail(FP_UNDERFLOW, pos_zero, result);
    return scope.give(exponential(x), result);
}

int f_log(const simul_fval* a, simul_fval* result) { return logarithm_by(nullptr, a, result); }

int f_log10(const simul_fval* a, simul_fval* result) { return logarithm_by("0.4342944819032518", a, result); }

int f_pow(const simul_fval* a, const simul_fval* b, simul_fval* result) {
    if (pass_nan(a, result) || pass_nan(b, result)) return 0;
    SCOPE scope;
    const NUMBER x(*a);
    const NUMBER y(*b);
    if (f_is_zero(b) || f_bit_eq(a, &one)) return scope.give(unit(), result);
    const bool whole = f_is_infin(b) || is_integral(b);
    const bool odd = !f_is_infin(b) && whole && is_odd(b);
    const bool negative = x.is_negative() && odd;
    if (f_is_zero(a)) {
        if (!y.is_negative()) return scope.give(NUMBER(negative ? neg_zero : pos_zero), result);
        const simul_fval& infinity = negative ? neg_infin : pos_infin;
        if (f_is_infin(b)) return scope.give(NUMBER(infinity), result);
        return scope.fail(FP_ZERO_DIVIDE, infinity, result);
    }
    if (f_is_infin(a) || f_is_infin(b)) {
        const NUMBER size = x.magnitude();
        if (f_is_infin(b) && f_bit_eq(&size.v, &one)) return scope.give(unit(), result);
        const bool grows = (size > unit()) != y.is_negative();
        const simul_fval& limit = grows ? pos_infin : pos_zero;
        return scope.give(negative ? -NUMBER(limit) : NUMBER(limit), result);
    }
    if (x.is_negative() && !whole) return scope.invalid(result);
    constexpr int SMALL_POWER = 1024;
    const NUMBER size = y.magnitude();
    NUMBER value;
    if (whole && size < NUMBER(static_cast<long long>(SMALL_POWER))) {
        value = integral_power(x.magnitude(), static_cast<unsigned>(f_ftou(&size.v)));
        if (y.is_negative()) {
            // The power's own flag would be about the inverse of the result.
            if (fp_error == 0) {
                value = unit() / value;
            } else {
                value = NUMBER((fp_error & FP_OVERFLOW) != 0 ? pos_zero : pos_infin);
                fp_error = (fp_error & FP_OVERFLOW) != 0 ? FP_UNDERFLOW : FP_OVERFLOW;
            }
        }
    } else {
        const NUMBER power = y * logarithm(x.magnitude());
        const int status = f_exp(&power.v, &value.v);
        if (status != 0 && negative) f_neg(&value.v, &value.v);
        if (status != 0) return scope.give(value, result);
    }
    return scope.give(negative ? -value : value, result);
}

int f_sin(const simul_fval* a, simul_fval* result) { return sine_or_cosine(a, false, result); }

int f_cos(const simul_fval* a, simul_fval* result) { return sine_or_cosine(a, true, result); }

int f_tan(const simul_fval* a, simul_fval* result) {
    if (pass_nan(a, result)) return 0;
    SCOPE scope;
    if (beyond_reduction(a)) return scope.invalid(result);
    if (f_is_zero(a)) return scope.give(NUMBER(*a), result);
    return scope.give(sine(NUMBER(*a), false) / sine(NUMBER(*a), true), result);
}

int f_asin(const simul_fval* a, simul_fval* result) { return arc_sine_or_cosine(a, false, result); }

int f_acos(const simul_fval* a, simul_fval* result) { return arc_sine_or_cosine(a, true, result); }

int f_atan(const simul_fval* a, simul_fval* result) {
    if (pass_nan(a, result)) return 0;
    SCOPE scope;
    if (f_is_zero(a)) return scope.give(NUMBER(*a), result);
    return scope.give(arc_tangent(NUMBER(*a)), result);
}

int f_atan2(const simul_fval* y, const simul_fval* x, simul_fval* result) {
    if (pass_nan(y, result) || pass_nan(x, result)) return 0;
    SCOPE scope;
    const bool negative = y->sign != 0;
    const NUMBER half_turn("3.14159265358979323846");
    NUMBER angle; // of the point with the magnitudes
    if (f_is_infin(y) && f_is_infin(x)) {
        angle = ldexp(half_turn, -2);
    } else if (f_is_zero(y) || f_is_infin(x)) {
        angle = NUMBER(pos_zero);
    } else if (f_is_zero(x) || f_is_infin(y)) {
        angle = half_of(half_turn);
    } else {
        // A quotient beyond the limits is an angle of 0 or a quarter turn, and no fault.
        const NUMBER quotient = NUMBER(*y).magnitude() / NUMBER(*x).magnitude();
        fp_error = 0;
        if (!f_is_zero(&quotient.v)) angle = arc_tangent(quotient);
    }
    if (x->sign != 0) angle = half_turn - angle;
    return scope.give(negative ? -angle : angle, result);
}

int f_sinh(const simul_fval* a, simul_fval* result) {
    if (pass_nan(a, result)) return 0;
    SCOPE scope;
    const NUMBER x(*a);
    if (f_is_zero(a) || f_is_infin(a)) return scope.give(x, result);
    const NUMBER size = x.magnitude();
    if (!(size > unit())) {
        // The difference of two exponentials would cancel.
        return scope.give(odd_quotient(x,
                                       {"-0.78966127417357099479", "-0.16375798202630751372e3",
                                        "-0.11563521196851768270e5", "-0.35181283430177117881e6"},
                                       {"1", "-0.27773523119650701667e3", "0.36162723109421836460e5",
                                        "-0.21108770058106271242e7"}),
                          result);
    }
    NUMBER power;
    if (f_exp(&size.v, &power.v) != 0) return scope.give(x.is_negative() ? -power : power, result);
    const NUMBER value = half_of(power - unit() / power);
    return scope.give(x.is_negative() ? -value : value, result);
}

int f_cosh(const simul_fval* a, simul_fval* result) {
    if (pass_nan(a, result)) return 0;
    SCOPE scope;
    const NUMBER size = NUMBER(*a).magnitude();
    if (f_is_infin(a)) return scope.give(size, result);
    NUMBER power;
    if (f_exp(&size.v, &power.v) != 0) return scope.give(power, result);
    return scope.give(half_of(power + unit() / power), result);
}

int f_tanh(const simul_fval* a, simul_fval* result) {
    if (pass_nan(a, result)) return 0;
    SCOPE scope;
    const NUMBER x(*a);
    if (f_is_zero(a)) return scope.give(x, result);
    const NUMBER size = x.magnitude();
    NUMBER value;
    if (size > NUMBER("40")) {
        value = unit();
    } else if (size > NUMBER("0.54930614433405484570")) { // half of the logarithm of 3
        const NUMBER power = exponential(ldexp(size, 1));
        value = unit() - ldexp(unit(), 1) / (power + unit());
    } else {
        return scope.give(
            odd_quotient(
                x, {"-0.96437492777225469787", "-0.99225929672236083313e2", "-0.16134119023996228053e4"},
                {"1", "0.11274474380534949335e3", "0.22337720718962312926e4", "0.48402357071988688686e4"}),
            result);
    }
    return scope.give(x.is_negative() ? -value : value, result);
}
