#include "xint.h"

#include <algorithm>

#include "types.h"

INT65 truncate_to_type(const INT65& value, TYPE* type) {
    unsigned width = 64;
    bool is_signed = false;
    if (type != nullptr) {
        // A pointer's number is read as signed: what the code generator expects of an address constant.
        is_signed = type->is_signed() || type->is_ptr();
        // An enumerator beyond the signed half of its type keeps its number.
        if (type->is_enum() && !value.is_negative()) is_signed = false;
        if (type->size() > 0 && type->size() < 64) width = static_cast<unsigned>(type->size());
    }
    const unsigned shift = 64 - width;
    const std::uint64_t bits = value.bits() << shift;
    return is_signed ? INT65::from_signed(static_cast<std::int64_t>(bits) >> shift)
                     : INT65::from_unsigned(bits >> shift);
}

INT65 text2int(const char* decimal) {
    const bool negative = *decimal == '-';
    if (negative) decimal++;
    // The 65 bits as the 64 low ones and the sign bit: both wrap on their own.
    std::uint64_t bits = 0;
    unsigned top = 0;
    for (; *decimal >= '0' && *decimal <= '9'; decimal++) {
        const unsigned __int128 next = static_cast<unsigned __int128>(bits) * 10 +
                                       static_cast<unsigned>(*decimal - '0') +
                                       (static_cast<unsigned __int128>(top * 10) << 64);
        bits = static_cast<std::uint64_t>(next);
        top = static_cast<unsigned>(next >> 64) & 1;
    }
    if (negative) {
        top = (~top + (bits == 0 ? 1 : 0)) & 1;
        bits = 0 - bits;
    }
    return {top != 0 ? 0xffffffffu : 0u, static_cast<std::uint32_t>(bits),
            static_cast<std::uint32_t>(bits >> 32)};
}

std::string int2text(const INT65& value) {
    // The magnitude of a negative value can be 2 to the 64, which is bits 0 with the sign set.
    unsigned __int128 magnitude = value.bits();
    if (value.is_negative()) magnitude = (static_cast<unsigned __int128>(1) << 64) - value.bits();
    std::string digits;
    do {
        digits.push_back(static_cast<char>('0' + static_cast<int>(magnitude % 10)));
        magnitude /= 10;
    } while (magnitude != 0);
    if (value.is_negative()) digits.push_back('-');
    std::reverse(digits.begin(), digits.end());
    return digits;
}
