// Operators by name. To add one, add its row.

#include <algorithm>
#include <cctype>
#include <string>
#include <unordered_map>

#include "tools/icode-run/library.h"

namespace run {

namespace {

using values = const std::uint64_t*;
using infos = const argument_info*;

std::int64_t signed_value(std::uint64_t value) { return static_cast<std::int64_t>(value); }

// The operands as values of the result's width, with the sign that the operator gives them.
std::uint64_t as(std::uint64_t value, const argument_info& info, const scalar& result, bool is_signed) {
    return extend(convert(value, info.rep, result), result.bits, is_signed);
}

template <bool Least, bool Signed> std::uint64_t extreme(values v, infos i, const scalar& result) {
    const std::uint64_t a = as(v[0], i[0], result, Signed), b = as(v[1], i[1], result, Signed);
    const bool a_less = Signed ? signed_value(a) < signed_value(b) : a < b;
    return extend(a_less == Least ? a : b, result);
}

float as_number(std::uint64_t value, const argument_info& info) {
    return as_float(convert(value, info.rep, {scalar::FLOATING, 32, false}));
}

template <bool Least> std::uint64_t float_extreme(values v, infos i, const scalar&) {
    const float a = as_number(v[0], i[0]), b = as_number(v[1], i[1]);
    return image_of((a < b) == Least ? a : b);
}

__extension__ using wide = __int128;

std::uint64_t saturated(wide value, const scalar& result) {
    const wide most = (wide{1} << (result.bits - 1)) - 1;
    return extend(static_cast<std::uint64_t>(std::clamp(value, -most - 1, most)), result);
}

template <int Sign> std::uint64_t saturating_sum(values v, infos i, const scalar& result) {
    const wide a = signed_value(as(v[0], i[0], result, true)), b = signed_value(as(v[1], i[1], result, true));
    return saturated(a + Sign * b, result);
}

std::uint64_t saturating_shift(values v, infos i, const scalar& result) {
    const wide a = signed_value(as(v[0], i[0], result, true));
    const std::uint64_t n = v[1] & 63;
    const wide factor = wide{1} << n;
    return saturated(a * factor, result);
}

std::uint64_t absolute(values v, infos i, const scalar& result) {
    const wide a = signed_value(as(v[0], i[0], result, true));
    return saturated(a < 0 ? -a : a, result);
}

std::uint64_t choose(values v, infos i, const scalar& result) {
    const bool first = i[0].rep.is_float() ? as_float(v[0]) != 0.0f : v[0] != 0;
    const unsigned taken = first ? 1 : 2;
    return result.has_value() ? convert(v[taken], i[taken].rep, result) : v[taken];
}

// The magnitude that cannot be represented saturates; the sums wrap nowhere either.
const intrinsic table[] = {
    {"min", 2, extreme<true, true>},
    {"lmin", 2, extreme<true, true>},
    {"llmin", 2, extreme<true, true>},
    {"max", 2, extreme<false, true>},
    {"lmax", 2, extreme<false, true>},
    {"llmax", 2, extreme<false, true>},
    {"minu", 2, extreme<true, false>},
    {"lminu", 2, extreme<true, false>},
    {"llminu", 2, extreme<true, false>},
    {"maxu", 2, extreme<false, false>},
    {"lmaxu", 2, extreme<false, false>},
    {"llmaxu", 2, extreme<false, false>},
    {"fmin", 2, float_extreme<true>},
    {"dmin", 2, float_extreme<true>},
    {"ldmin", 2, float_extreme<true>},
    {"fmax", 2, float_extreme<false>},
    {"dmax", 2, float_extreme<false>},
    {"ldmax", 2, float_extreme<false>},
    {"sadd", 2, saturating_sum<1>},
    {"lsadd", 2, saturating_sum<1>},
    {"ssub", 2, saturating_sum<-1>},
    {"lssub", 2, saturating_sum<-1>},
    {"sshl", 2, saturating_shift},
    {"abs", 1, absolute},
    {"labs", 1, absolute},
    {"quest$colon", 3, choose},
};

} // namespace

const intrinsic* find_intrinsic(std::string_view name) {
    static const auto index = [] {
        std::unordered_map<std::string_view, const intrinsic*> made;
        for (const intrinsic& i : table) made.emplace(i.name, &i);
        return made;
    }();
    while (!name.empty() && name.front() == '_') name.remove_prefix(1);
    std::string key(name);
    for (char& c : key) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    auto found = index.find(key);
    return found == index.end() ? nullptr : found->second;
}

} // namespace run
