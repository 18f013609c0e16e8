// INT65: the 65-bit signed integer in which all integer constants of trees live.

#ifndef OPT5_XINT_H
#define OPT5_XINT_H

#include <compare>
#include <cstdint>
#include <string>

class TYPE;

// Two's complement in three 32-bit words: a signed and an unsigned 64-bit target value both fit without
// loss. `sign` is 0 or all ones, the replicated 65th bit. Trivial, so that it can stand in unions.
struct INT65 {
    std::uint32_t sign;
    std::uint32_t low;
    std::uint32_t high;

    // The value, sign-extended from 64 bits.
    static constexpr INT65 from_signed(std::int64_t value) {
        const auto bits = static_cast<std::uint64_t>(value);
        return {value < 0 ? 0xffffffffu : 0u, static_cast<std::uint32_t>(bits),
                static_cast<std::uint32_t>(bits >> 32)};
    }
    // The value, zero-extended from 64 bits.
    static constexpr INT65 from_unsigned(std::uint64_t value) {
        return {0u, static_cast<std::uint32_t>(value), static_cast<std::uint32_t>(value >> 32)};
    }
    // The low 64 bits, read as signed or unsigned.
    constexpr std::uint64_t bits() const { return (static_cast<std::uint64_t>(high) << 32) | low; }
    constexpr std::int64_t to_signed() const { return static_cast<std::int64_t>(bits()); }
    constexpr bool is_negative() const { return sign != 0; }

    friend constexpr bool operator==(const INT65&, const INT65&) = default;
};

// Reduces the value to what an object of the type can hold: wraps to its width, and sign- or zero-extends by
// its signedness. A null or non-integral type counts as unsigned of 64 bits, or of its size where it has one.
INT65 truncate_to_type(const INT65& value, TYPE* type);

// Decimal text with an optional "-", wrapped to 65 bits; stops at the first character that is no digit.
INT65 text2int(const char* decimal);

// Decimal text of the value.
std::string int2text(const INT65& value);

#endif
