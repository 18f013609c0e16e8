// Mathematics in single precision, which is what every floating type is here. Each function goes by its
// single-precision name and by the others.

#include <algorithm>
#include <cmath>

#include "tools/icode-run/machine.h"

namespace run {

namespace {

template <float (*F)(float)> std::uint64_t one(library_call& c) { return image_of(F(c.number(0))); }
template <float (*F)(float, float)> std::uint64_t two(library_call& c) {
    return image_of(F(c.number(0), c.number(1)));
}

void store_float(library_call& c, std::size_t pointer, float value) {
    c.vm.mem.store(c.pointer(pointer), 32, image_of(value));
}

std::uint64_t split_exponent(library_call& c) {
    int exponent = 0;
    const float fraction = std::frexp(c.number(0), &exponent);
    c.vm.mem.store(c.pointer(1), c.vm.program.model.plain_int.bits,
                   static_cast<std::uint64_t>(static_cast<std::int64_t>(exponent)));
    return image_of(fraction);
}

std::uint64_t split_fraction(library_call& c) {
    float whole = 0;
    const float fraction = std::modf(c.number(0), &whole);
    store_float(c, 1, whole);
    return image_of(fraction);
}

std::uint64_t scale(library_call& c) {
    return image_of(
        std::ldexp(c.number(0), static_cast<int>(std::clamp<std::int64_t>(c.integer(1), -10000, 10000))));
}

} // namespace

const std::vector<library_function>& math_functions() {
#define NAMES(NAME, ARGUMENTS, RUN)                                                                          \
    {NAME, ARGUMENTS, RUN}, {NAME "f", ARGUMENTS, RUN}, { NAME "l", ARGUMENTS, RUN }
#define ONE(NAME) NAMES(#NAME, 1, one<std::NAME>)
#define TWO(NAME) NAMES(#NAME, 2, two<std::NAME>)
    static const std::vector<library_function> table = {
        ONE(sqrt),
        ONE(fabs),
        ONE(floor),
        ONE(ceil),
        ONE(trunc),
        ONE(round),
        ONE(sin),
        ONE(cos),
        ONE(tan),
        ONE(asin),
        ONE(acos),
        ONE(atan),
        ONE(sinh),
        ONE(cosh),
        ONE(tanh),
        ONE(exp),
        ONE(exp2),
        ONE(log),
        ONE(log10),
        ONE(log2),
        ONE(cbrt),
        ONE(rint),
        TWO(pow),
        TWO(fmod),
        TWO(atan2),
        TWO(fmin),
        TWO(fmax),
        TWO(hypot),
        TWO(copysign),
        NAMES("frexp", 2, split_exponent),
        NAMES("modf", 2, split_fraction),
        NAMES("ldexp", 2, scale),
    };
#undef TWO
#undef ONE
#undef NAMES
    return table;
}

} // namespace run
