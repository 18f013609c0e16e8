#include "tools/icode-run/scalar.h"

#include <algorithm>
#include <cmath>

#include "OPT5/types.h"

namespace run {

scalar scalar_of(TYPE* type) {
    if (type == nullptr || type->is_void()) return {};
    const auto bits = static_cast<std::uint8_t>(std::min<std::uint64_t>(type->size(), 255));
    const bool fits = bits >= 1 && bits <= 64;
    switch (type->true_kind()) {
        case TYPE::INT_KIND:
        case TYPE::ENUM_KIND:
            if (!fits) break;
            if (type->is_bool() || type->is_marked_bool()) return {scalar::BOOLEAN, bits, false};
            return {scalar::INTEGER, bits, type->is_signed()};
        case TYPE::PTR_KIND:
        case TYPE::REF_KIND:
            if (!fits) break;
            return {scalar::POINTER, bits, false};
        case TYPE::FLTPT_KIND:
            if (type->size() < 32) break;
            return {scalar::FLOATING, 32, false};
        default: break;
    }
    return {scalar::AGGREGATE, 0, false};
}

std::uint64_t float_to_integer(float value, unsigned bits, bool is_signed) {
    std::uint64_t result;
    if (std::isnan(value))
        result = 0;
    else if (value >= 0x1p64f)
        result = is_signed ? INT64_MAX : UINT64_MAX;
    else if (value >= 0x1p63f)
        result = is_signed ? INT64_MAX : static_cast<std::uint64_t>(value);
    else if (value < -0x1p63f)
        result = static_cast<std::uint64_t>(INT64_MIN);
    else
        result = static_cast<std::uint64_t>(static_cast<std::int64_t>(value));
    return extend(result, bits, is_signed);
}

std::uint64_t convert(std::uint64_t value, const scalar& from, const scalar& to) {
    if (to.kind == scalar::BOOLEAN) return from.is_float() ? as_float(value) != 0.0f : value != 0;
    if (from.is_float() && to.is_float()) return value;
    if (to.is_float()) return image_of(integer_to_float(value, from.is_signed));
    if (from.is_float()) return float_to_integer(as_float(value), to.bits, to.is_signed);
    return extend(value, to);
}

bool contains(const scalar& to, const scalar& from) {
    if (to.is_float() || from.is_float()) return to.is_float() == from.is_float();
    if (to.kind == scalar::BOOLEAN && from.kind != scalar::BOOLEAN) return false;
    if (from.is_signed) return to.is_signed && from.bits <= to.bits;
    return to.is_signed ? from.bits < to.bits : from.bits <= to.bits;
}

} // namespace run
