// 128-bit integers, for conversions between integers and simulated floating values.
//
// A number is a two's complement integer of 16 bytes, the most significant one first. Every operation wraps
// to 128 bits. A result may be the same object as an operand.

#ifndef OPT5_XI_H
#define OPT5_XI_H

#include <cstdio>

struct XI {
    unsigned char byte[16];
};

extern const XI xi_zero;
extern const XI xi_minint; // -2 to the 127

// Set to 1 by a shift of more than 128 places and by a division by zero; never cleared here.
extern int xi_error;

// Sum and difference; both return the carry out of the top byte (of a difference: 1 where nothing was
// borrowed).
int XI_add(const XI* a, const XI* b, XI* result);
int XI_sub(const XI* a, const XI* b, XI* result);
void XI_neg(const XI* a, XI* result);
void XI_mpy(const XI* a, const XI* b, XI* result);

// The quotient truncated towards zero, and the rest, which has the sign of `a`. Return 0; 1 for a zero
// divisor, with xi_error set and a zero as the result.
int XI_div(const XI* a, const XI* b, XI* quotient);
int XI_mod(const XI* a, const XI* b, XI* rest);

void XI_and(const XI* a, const XI* b, XI* result);
void XI_or(const XI* a, const XI* b, XI* result);
void XI_xor(const XI* a, const XI* b, XI* result);
void XI_notb(const XI* a, XI* result); // all bits inverted

// Signed comparison: -1, 0 or 1.
int XI_cmp(const XI* a, const XI* b);
// 1 where it holds, else 0.
int XI_eq(const XI* a, const XI* b);
int XI_ne(const XI* a, const XI* b);
int XI_lt(const XI* a, const XI* b);
int XI_le(const XI* a, const XI* b);
int XI_gt(const XI* a, const XI* b);
int XI_ge(const XI* a, const XI* b);

void XI_asg(const XI* a, XI* result);

// Sign- or zero-extended from the host's integer.
void XI_itox(int value, XI* result);
void XI_llitox(long long value, XI* result);
void XI_utox(unsigned value, XI* result);
void XI_llutox(unsigned long long value, XI* result);

// The low bits.
int XI_xtoi(const XI* a);
long long XI_xtolli(const XI* a);
unsigned XI_xtou(const XI* a);
unsigned long long XI_xtollu(const XI* a);

// The number of significant bits, the number read as an unsigned one: 0 for zero, 128 for a negative one.
int XI_size(const XI* a);

// Shifts that fill with zeros on both sides; a negative count shifts the other way. Return 0; 1 for a count
// above 128, with xi_error set and a zero as the result.
int XI_shl(const XI* a, int count, XI* result);
int XI_shr(const XI* a, int count, XI* result);

// Writes the 32 hexadecimal digits to the stream.
void XI_dump(const XI* a, std::FILE* stream);

#endif
