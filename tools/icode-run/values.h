// Values of the runner: what a register holds, and the arithmetic on it. Nothing here comes from the
// optimizer: the runner is its witness.

#ifndef TOOLS_ICODE_RUN_VALUES_H
#define TOOLS_ICODE_RUN_VALUES_H

#include <bit>
#include <cstdint>

class TYPE;

// How a scalar is represented. A register holds an integer extended to 64 bits by its signedness, or the bit
// image of a single.
enum class KIND : std::uint8_t { I16, U16, I32, U32, I64, U64, F32 };

inline unsigned units_of(KIND kind) {
    switch (kind) {
        case KIND::I16:
        case KIND::U16: return 1;
        case KIND::I64:
        case KIND::U64: return 4;
        default: return 2;
    }
}

inline bool is_signed(KIND kind) { return kind == KIND::I16 || kind == KIND::I32 || kind == KIND::I64; }
inline unsigned bits_of(KIND kind) { return 16 * units_of(kind); }

// Wraps to the width and extends again.
inline std::int64_t normalise(KIND kind, std::uint64_t value) {
    switch (kind) {
        case KIND::I16: return static_cast<std::int16_t>(value);
        case KIND::U16: return static_cast<std::uint16_t>(value);
        case KIND::I32: return static_cast<std::int32_t>(value);
        case KIND::U32: return static_cast<std::uint32_t>(value);
        case KIND::F32: return static_cast<std::uint32_t>(value);
        default: return static_cast<std::int64_t>(value);
    }
}

inline float to_float(std::int64_t reg) { return std::bit_cast<float>(static_cast<std::uint32_t>(reg)); }
inline std::int64_t from_float(float value) { return std::bit_cast<std::uint32_t>(value); }

// A number of one representation in another, as C converts; a float that does not fit keeps its low bits.
inline std::int64_t convert(KIND from, KIND to, std::int64_t value) {
    if (from == to) return value;
    if (from == KIND::F32) {
        const double wide = static_cast<double>(to_float(value));
        std::uint64_t bits = 0;
        if (wide > -9223372036854775809.0 && wide < 9223372036854775808.0)
            bits = static_cast<std::uint64_t>(static_cast<std::int64_t>(wide));
        else if (wide >= 9223372036854775808.0 && wide < 18446744073709551616.0)
            bits = static_cast<std::uint64_t>(wide);
        else if (wide > 0)
            bits = 0x7fffffffffffffffu;
        else if (wide < 0)
            bits = 0x8000000000000000u;
        return normalise(to, bits);
    }
    if (to == KIND::F32)
        return from_float(from == KIND::U64 ? static_cast<float>(static_cast<std::uint64_t>(value))
                                            : static_cast<float>(value));
    return normalise(to, static_cast<std::uint64_t>(value));
}

#endif
