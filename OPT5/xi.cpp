#include "xi.h"

#include <bit>
#include <climits>
#include <cstring>

const XI xi_zero{};
const XI xi_minint{{0x80}};
int xi_error = 0;

namespace {

constexpr int BYTES = 16;

bool is_negative(const XI* a) { return (a->byte[0] & 0x80) != 0; }

// a + b + carry; the carry out.
int add_with_carry(const XI* a, const XI* b, unsigned invert, unsigned carry, XI* result) {
    for (int i = BYTES - 1; i >= 0; i--) {
        const unsigned sum = a->byte[i] + (b->byte[i] ^ invert) + carry;
        result->byte[i] = static_cast<unsigned char>(sum);
        carry = sum >> 8;
    }
    return static_cast<int>(carry);
}

int compare_unsigned(const XI* a, const XI* b) {
    const int order = std::memcmp(a->byte, b->byte, BYTES);
    return order < 0 ? -1 : order > 0 ? 1 : 0;
}

void magnitude(const XI* a, XI* result) {
    if (is_negative(a)) {
        XI_neg(a, result);
    } else {
        XI_asg(a, result);
    }
}

// Quotient and rest of the magnitudes bit by bit, then the signs. The magnitude of xi_minint is right as an
// unsigned number.
int divide(const XI* a, const XI* b, XI* quotient, XI* rest) {
    if (XI_eq(b, &xi_zero)) {
        xi_error = 1;
        *quotient = *rest = xi_zero;
        return 1;
    }
    XI dividend;
    XI divisor;
    magnitude(a, &dividend);
    magnitude(b, &divisor);
    XI q = xi_zero;
    XI r = xi_zero;
    for (int bit = 0; bit < 8 * BYTES; bit++) {
        XI_shl(&r, 1, &r); // below the divisor, which is at most 2 to the 127: the top bit is free
        r.byte[BYTES - 1] |= static_cast<unsigned char>(dividend.byte[bit / 8] >> (7 - bit % 8) & 1);
        if (compare_unsigned(&r, &divisor) < 0) continue;
        XI_sub(&r, &divisor, &r);
        q.byte[bit / 8] |= static_cast<unsigned char>(0x80 >> bit % 8);
    }
    const bool negative_quotient = is_negative(a) != is_negative(b);
    const bool negative_rest = is_negative(a);
    *quotient = q;
    *rest = r;
    if (negative_quotient) XI_neg(quotient, quotient);
    if (negative_rest) XI_neg(rest, rest);
    return 0;
}

// The bits of a host integer, with the bytes above filled.
void from_bits(unsigned long long bits, unsigned char fill, XI* result) {
    std::memset(result->byte, fill, BYTES);
    for (int i = 0; i < 8; i++) result->byte[BYTES - 1 - i] = static_cast<unsigned char>(bits >> (8 * i));
}

} // namespace

int XI_add(const XI* a, const XI* b, XI* result) { return add_with_carry(a, b, 0, 0, result); }

int XI_sub(const XI* a, const XI* b, XI* result) { return add_with_carry(a, b, 0xff, 1, result); }

void XI_neg(const XI* a, XI* result) { XI_sub(&xi_zero, a, result); }

void XI_mpy(const XI* a, const XI* b, XI* result) {
    XI product = xi_zero;
    for (int i = BYTES - 1; i >= 0; i--) {
        unsigned carry = 0;
        for (int j = BYTES - 1; i + j >= BYTES - 1; j--) {
            const int place = i + j - (BYTES - 1);
            carry += product.byte[place] + static_cast<unsigned>(a->byte[i]) * b->byte[j];
            product.byte[place] = static_cast<unsigned char>(carry);
            carry >>= 8;
        }
    }
    *result = product;
}

int XI_div(const XI* a, const XI* b, XI* quotient) {
    XI rest;
    return divide(a, b, quotient, &rest);
}

int XI_mod(const XI* a, const XI* b, XI* rest) {
    XI quotient;
    return divide(a, b, &quotient, rest);
}

void XI_and(const XI* a, const XI* b, XI* result) {
    for (int i = 0; i < BYTES; i++) result->byte[i] = a->byte[i] & b->byte[i];
}

void XI_or(const XI* a, const XI* b, XI* result) {
    for (int i = 0; i < BYTES; i++) result->byte[i] = a->byte[i] | b->byte[i];
}

void XI_xor(const XI* a, const XI* b, XI* result) {
    for (int i = 0; i < BYTES; i++) result->byte[i] = a->byte[i] ^ b->byte[i];
}

void XI_notb(const XI* a, XI* result) {
    for (int i = 0; i < BYTES; i++) result->byte[i] = static_cast<unsigned char>(~a->byte[i]);
}

int XI_cmp(const XI* a, const XI* b) {
    if (is_negative(a) != is_negative(b)) return is_negative(a) ? -1 : 1;
    return compare_unsigned(a, b);
}

int XI_eq(const XI* a, const XI* b) { return XI_cmp(a, b) == 0; }
int XI_ne(const XI* a, const XI* b) { return XI_cmp(a, b) != 0; }
int XI_lt(const XI* a, const XI* b) { return XI_cmp(a, b) < 0; }
int XI_le(const XI* a, const XI* b) { return XI_cmp(a, b) <= 0; }
int XI_gt(const XI* a, const XI* b) { return XI_cmp(a, b) > 0; }
int XI_ge(const XI* a, const XI* b) { return XI_cmp(a, b) >= 0; }

void XI_asg(const XI* a, XI* result) { *result = *a; }

void XI_itox(int value, XI* result) { XI_llitox(value, result); }

void XI_llitox(long long value, XI* result) {
    from_bits(static_cast<unsigned long long>(value), value < 0 ? 0xff : 0, result);
}

void XI_utox(unsigned value, XI* result) { XI_llutox(value, result); }

void XI_llutox(unsigned long long value, XI* result) { from_bits(value, 0, result); }

int XI_xtoi(const XI* a) { return static_cast<int>(XI_xtou(a)); }

long long XI_xtolli(const XI* a) { return static_cast<long long>(XI_xtollu(a)); }

unsigned XI_xtou(const XI* a) { return static_cast<unsigned>(XI_xtollu(a)); }

unsigned long long XI_xtollu(const XI* a) {
    unsigned long long bits = 0;
    for (int i = BYTES - 8; i < BYTES; i++) bits = bits << 8 | a->byte[i];
    return bits;
}

int XI_size(const XI* a) {
    for (int i = 0; i < BYTES; i++) {
        if (a->byte[i] != 0) return 8 * (BYTES - i) - std::countl_zero(a->byte[i]);
    }
    return 0;
}

int XI_shl(const XI* a, int count, XI* result) {
    if (count < 0) return XI_shr(a, count == INT_MIN ? INT_MAX : -count, result);
    if (count >= 8 * BYTES) {
        *result = xi_zero;
        if (count > 8 * BYTES) xi_error = 1;
        return count > 8 * BYTES;
    }
    const int whole = count / 8;
    const int rest = count % 8;
    // Each byte takes from places at or below its own, so the result may be the operand.
    for (int i = 0; i < BYTES; i++) {
        const unsigned high = i + whole < BYTES ? a->byte[i + whole] : 0u;
        const unsigned low = i + whole + 1 < BYTES ? a->byte[i + whole + 1] : 0u;
        result->byte[i] = static_cast<unsigned char>((high << 8 | low) << rest >> 8);
    }
    return 0;
}

int XI_shr(const XI* a, int count, XI* result) {
    if (count < 0) return XI_shl(a, count == INT_MIN ? INT_MAX : -count, result);
    if (count >= 8 * BYTES) {
        *result = xi_zero;
        if (count > 8 * BYTES) xi_error = 1;
        return count > 8 * BYTES;
    }
    const int whole = count / 8;
    const int rest = count % 8;
    for (int i = BYTES - 1; i >= 0; i--) {
        const unsigned low = i - whole >= 0 ? a->byte[i - whole] : 0u;
        const unsigned high = i - whole - 1 >= 0 ? a->byte[i - whole - 1] : 0u;
        result->byte[i] = static_cast<unsigned char>((high << 8 | low) >> rest);
    }
    return 0;
}

void XI_dump(const XI* a, std::FILE* stream) {
    for (const unsigned char byte : a->byte) std::fprintf(stream, "%02x", byte);
}
