// How a scalar value is represented: the only view of types that running code needs.

#ifndef ICODE_RUN_SCALAR_H
#define ICODE_RUN_SCALAR_H

#include <bit>
#include <cstdint>

class TYPE;

namespace run {

// A register of the machine holds 64 bits. An integer or pointer is kept sign- or zero-extended from its
// width, so that most operators need no care for the width; a floating value is the image of an IEEE single,
// zero-extended.
struct scalar {
    enum KIND : std::uint8_t { NONE, INTEGER, BOOLEAN, POINTER, FLOATING, AGGREGATE };

    KIND kind = NONE;
    std::uint8_t bits = 0; // 1 to 64; 0 for NONE and AGGREGATE
    bool is_signed = false;

    bool is_float() const { return kind == FLOATING; }
    bool is_aggregate() const { return kind == AGGREGATE; }
    bool has_value() const { return bits != 0; }
    bool same_image(const scalar& other) const {
        return bits == other.bits && is_signed == other.is_signed && is_float() == other.is_float();
    }
};

// The representation of a type's values: structures, arrays and functions are aggregates, and so is
// everything that has no scalar representation here (complex, fixed point); null and void have none.
scalar scalar_of(TYPE* type);

// Extends the low `bits` of the value, 1 to 64.
inline std::uint64_t extend(std::uint64_t value, unsigned bits, bool is_signed) {
    if (bits >= 64) return value;
    const unsigned unused = 64 - bits;
    if (is_signed) return static_cast<std::uint64_t>(static_cast<std::int64_t>(value << unused) >> unused);
    return value << unused >> unused;
}
inline std::uint64_t extend(std::uint64_t value, const scalar& as) {
    return extend(value, as.bits, as.is_signed);
}

inline float as_float(std::uint64_t image) { return std::bit_cast<float>(static_cast<std::uint32_t>(image)); }
inline std::uint64_t image_of(float value) { return std::bit_cast<std::uint32_t>(value); }

// Truncates towards zero, wrapped to the width; NaN gives 0, a value beyond 64 bits the nearest end first.
std::uint64_t float_to_integer(float value, unsigned bits, bool is_signed);

// The integer nearest to which the single lies, read as signed or unsigned.
inline float integer_to_float(std::uint64_t value, bool is_signed) {
    return is_signed ? static_cast<float>(static_cast<std::int64_t>(value)) : static_cast<float>(value);
}

// `value`, of representation `from`, as a value of representation `to`.
std::uint64_t convert(std::uint64_t value, const scalar& from, const scalar& to);

// True when every register image of `from` is the right image of the same value in `to`.
bool contains(const scalar& to, const scalar& from);

} // namespace run

#endif
