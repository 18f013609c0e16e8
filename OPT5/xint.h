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
    constexpr bool is_zero() const { return (sign | low | high) == 0; }
    // The distance from zero, wrapped to 64 bits: only the least value of all does not fit.
    constexpr std::uint64_t magnitude() const { return is_negative() ? 0 - bits() : bits(); }

    friend constexpr bool operator==(const INT65&, const INT65&) = default;
    friend constexpr std::strong_ordering operator<=>(const INT65& a, const INT65& b) {
        return a.sign != b.sign ? b.sign <=> a.sign : a.bits() <=> b.bits();
    }
    friend constexpr INT65 operator-(const INT65& a) {
        return of_sum(0 - a.bits(), -a.top_bit() - (a.bits() != 0));
    }
    friend constexpr INT65 operator~(const INT65& a) { return {~a.sign, ~a.low, ~a.high}; }
    friend constexpr INT65 operator&(const INT65& a, const INT65& b) {
        return {a.sign & b.sign, a.low & b.low, a.high & b.high};
    }
    friend constexpr INT65 operator|(const INT65& a, const INT65& b) {
        return {a.sign | b.sign, a.low | b.low, a.high | b.high};
    }
    friend constexpr INT65 operator^(const INT65& a, const INT65& b) {
        return {a.sign ^ b.sign, a.low ^ b.low, a.high ^ b.high};
    }
    // Wrapped to 65 bits.
    friend constexpr INT65 operator+(const INT65& a, const INT65& b) {
        const std::uint64_t sum = a.bits() + b.bits();
        return of_sum(sum, a.top_bit() + b.top_bit() + (sum < a.bits()));
    }
    friend constexpr INT65 operator-(const INT65& a, const INT65& b) {
        return of_sum(a.bits() - b.bits(), a.top_bit() - b.top_bit() - (a.bits() < b.bits()));
    }
    // On magnitudes, wrapped to 64 bits, then the sign. Division truncates towards zero; the divisor is not
    // zero.
    friend constexpr INT65 operator*(const INT65& a, const INT65& b) {
        return signed_magnitude(a.magnitude() * b.magnitude(), a.sign != b.sign);
    }
    friend constexpr INT65 operator/(const INT65& a, const INT65& b) {
        return signed_magnitude(a.magnitude() / b.magnitude(), a.sign != b.sign);
    }
    friend constexpr INT65 operator%(const INT65& a, const INT65& b) {
        return signed_magnitude(a.magnitude() % b.magnitude(), a.is_negative());
    }
    // By 0 to 65 bits and more; to the right the sign follows. The 65th bit is what the shift leaves there.
    friend constexpr INT65 operator<<(const INT65& a, int count) {
        if (count <= 0) return a;
        if (count > 64) return {0, 0, 0};
        const std::uint64_t top = (a.bits() >> (64 - count)) & 1;
        return of_sum(count == 64 ? 0 : a.bits() << count, static_cast<int>(top));
    }
    friend constexpr INT65 operator>>(const INT65& a, int count) {
        if (count <= 0) return a;
        const std::uint64_t fill = a.is_negative() ? ~std::uint64_t{0} : 0;
        return of_sum(count >= 64 ? fill : a.bits() >> count | (fill << (64 - count)), a.top_bit());
    }

  private:
    // The 65th bit as a number.
    constexpr int top_bit() const { return sign != 0 ? 1 : 0; }
    static constexpr INT65 of_sum(std::uint64_t low64, int top) {
        return {(top & 1) != 0 ? 0xffffffffu : 0u, static_cast<std::uint32_t>(low64),
                static_cast<std::uint32_t>(low64 >> 32)};
    }
    static constexpr INT65 signed_magnitude(std::uint64_t magnitude, bool negative) {
        return of_sum(negative ? 0 - magnitude : magnitude, negative && magnitude != 0);
    }
};

// Reduces the value to what an object of the type can hold: wraps to its width, and sign- or zero-extends by
// its signedness. A pointer counts as signed; an enumeration keeps a nonnegative number as it is. A null or
// non-integral type counts as unsigned of 64 bits, or of its size where it has one.
INT65 truncate_to_type(const INT65& value, TYPE* type);

// Decimal text with an optional "-", wrapped to 65 bits; stops at the first character that is no digit.
INT65 text2int(const char* decimal);

// Decimal text of the value.
std::string int2text(const INT65& value);

#endif
