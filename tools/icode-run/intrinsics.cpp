// Operators by name. To add one, write the function that computes it and give it a row.
//
// A function's C++ types are those of its operands and of its result on the target: the arguments of a call
// are converted to them, whatever types the tree has, and the result is converted to the type of the tree.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <type_traits>
#include <unordered_map>
#include <utility>

#include "tools/icode-run/library.h"
#include "tools/icode-run/memory.h"

namespace run {

namespace {

using values = const std::uint64_t*;
using infos = const argument_info*;
using i16 = std::int16_t;
using u16 = std::uint16_t;
using i32 = std::int32_t;
using u32 = std::uint32_t;
using i64 = std::int64_t;
using u64 = std::uint64_t;

template <class T>
constexpr scalar representation =
    std::is_floating_point_v<T> ? scalar{scalar::FLOATING, 32, false}
                                : scalar{scalar::INTEGER, sizeof(T) * 8, std::is_signed_v<T>};

template <class T> T operand(u64 value, const argument_info& info) {
    const u64 converted = convert(value, info.rep, representation<T>);
    if constexpr (std::is_floating_point_v<T>)
        return as_float(converted);
    else
        return static_cast<T>(converted);
}

template <class T> u64 image(T value) {
    if constexpr (std::is_floating_point_v<T>)
        return image_of(value);
    else
        return static_cast<u64>(static_cast<i64>(value));
}

template <auto Function> struct adapter;
template <class R, class... A, R (*Function)(A...)> struct adapter<Function> {
    static constexpr unsigned arguments = sizeof...(A);
    static u64 run(values v, infos i, const scalar& result) {
        return call(v, i, result, std::index_sequence_for<A...>());
    }
    template <std::size_t... N>
    static u64 call(values v, infos i, const scalar& result, std::index_sequence<N...>) {
        const R computed = Function(operand<A>(v[N], i[N])...);
        return result.has_value() ? convert(image(computed), representation<R>, result) : 0;
    }
};

// The forms of ?: that they stand for, which decides what a NaN and a zero of either sign give.
template <class T> T least(T a, T b) { return a < b ? a : b; }
template <class T> T greatest(T a, T b) { return a > b ? a : b; }

template <class T> T saturated(i64 value) {
    using limits = std::numeric_limits<T>;
    return static_cast<T>(std::clamp<i64>(value, limits::min(), limits::max()));
}
template <class T> T saturating_sum(T a, T b) { return saturated<T>(i64{a} + b); }
template <class T> T saturating_difference(T a, T b) { return saturated<T>(i64{a} - b); }
// At most 32 bits by 31: exact.
template <class T> T saturating_shift(T a, u16 count) { return saturated<T>(a * (i64{1} << (count & 31))); }

template <class R, class A, class B> R product(A a, B b) { return static_cast<R>(a) * static_cast<R>(b); }
i64 product_of_high(i32 a, i32 b) { return i64{a >> 16} * b; }
u32 low(i64 value) { return static_cast<u32>(value); }
u32 high(i64 value) { return static_cast<u32>(static_cast<u64>(value) >> 32); }

u64 choose(values v, infos i, const scalar& result) {
    const bool first = i[0].rep.is_float() ? as_float(v[0]) != 0.0f : v[0] != 0;
    const unsigned taken = first ? 1 : 2;
    return result.has_value() ? convert(v[taken], i[taken].rep, result) : v[taken];
}

// A value under a name of its own, whatever else is known of it.
u64 same(values v, infos i, const scalar& result) {
    return result.has_value() ? convert(v[0], i[0].rep, result) : v[0];
}

u64 never(values, infos, const scalar&) { throw fault{"a point that is never reached"}; }

template <auto Function> constexpr intrinsic by_name(std::string_view name) {
    return {name, adapter<Function>::arguments, adapter<Function>::run, false};
}
template <auto Function> constexpr intrinsic callable(std::string_view name) {
    return {name, adapter<Function>::arguments, adapter<Function>::run, true};
}

const intrinsic table[] = {
    by_name<least<i16>>("MIN"),
    by_name<least<i32>>("LMIN"),
    by_name<least<i64>>("LLMIN"),
    by_name<greatest<i16>>("MAX"),
    by_name<greatest<i32>>("LMAX"),
    by_name<greatest<i64>>("LLMAX"),
    by_name<least<u16>>("MINU"),
    by_name<least<u32>>("LMINU"),
    by_name<least<u64>>("LLMINU"),
    by_name<greatest<u16>>("MAXU"),
    by_name<greatest<u32>>("LMAXU"),
    by_name<greatest<u64>>("LLMAXU"),
    by_name<least<float>>("FMIN"),
    by_name<least<float>>("DMIN"),
    by_name<least<float>>("LDMIN"),
    by_name<greatest<float>>("FMAX"),
    by_name<greatest<float>>("DMAX"),
    by_name<greatest<float>>("LDMAX"),
    callable<saturating_sum<i16>>("_sadd"),
    callable<saturating_sum<i32>>("_sadd2"),
    callable<saturating_difference<i16>>("_ssub"),
    callable<saturating_difference<i32>>("_ssub2"),
    callable<saturating_shift<i16>>("_sshl"),
    callable<saturating_shift<i32>>("_sshl2"),
    callable<product<i32, i16, i16>>("_mpy"),
    callable<product<u32, u16, u16>>("_mpyu"),
    callable<product<i32, i16, u16>>("_mpysu"),
    callable<product<i32, u16, i16>>("_mpyus"),
    callable<product<i64, i16, i32>>("_mpyli"),
    callable<product_of_high>("_mpyhi"),
    callable<low>("_lo"),
    callable<high>("_hi"),
    {"__builtin_expect", 2, same, false},
    {"_never_executed", 0, never, true},
    {"quest$colon", 3, choose, false},
    {"def$assert", 2, same, false},
    {"def$entry", 1, same, false},
};

} // namespace

const intrinsic* find_intrinsic(std::string_view name) {
    static const auto index = [] {
        std::unordered_map<std::string_view, const intrinsic*> made;
        for (const intrinsic& i : table) made.emplace(i.name, &i);
        return made;
    }();
    auto found = index.find(name);
    return found == index.end() ? nullptr : found->second;
}

const intrinsic* find_intrinsic_function(std::string_view name) {
    const intrinsic* found = find_intrinsic(name);
    if (found == nullptr && (name.starts_with('_') || name.starts_with('.')))
        found = find_intrinsic(name.substr(1));
    return found != nullptr && found->is_function ? found : nullptr;
}

} // namespace run
