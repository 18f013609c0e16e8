// What a generated program needs from its header, written for the 16-bit data model: arithmetic that never
// leaves its defined range (the first operand comes back instead), and the checksum over all global
// variables.
#ifndef CSMITH_H
#define CSMITH_H

#include <stdint.h>
#include <stdio.h>
#include <string.h>

// All operators on the signed type T with the unsigned counterpart U, which has BITS bits and the largest
// value MAX.
#define SIGNED_OPERATORS(T, U, BITS, MAX)                                                                    \
    static T safe_unary_minus_func_##T##_s(T a) { return a == -(MAX)-1 ? a : (T)-a; }                        \
    static T safe_add_func_##T##_s_s(T a, T b) {                                                             \
        return (a > 0 && b > (MAX)-a) || (a < 0 && b < -(MAX)-1 - a) ? a : (T)(a + b);                       \
    }                                                                                                        \
    static T safe_sub_func_##T##_s_s(T a, T b) {                                                             \
        return (b < 0 && a > (MAX) + b) || (b > 0 && a < -(MAX)-1 + b) ? a : (T)(a - b);                     \
    }                                                                                                        \
    static T safe_mul_func_##T##_s_s(T a, T b) {                                                             \
        if (a > 0 ? (b > 0 ? a > (MAX) / b : b < (-(MAX)-1) / a)                                             \
                  : (b > 0 ? a < (-(MAX)-1) / b : a != 0 && b < (MAX) / a))                                  \
            return a;                                                                                        \
        return (T)(a * b);                                                                                   \
    }                                                                                                        \
    static T safe_div_func_##T##_s_s(T a, T b) {                                                             \
        return b == 0 || (a == -(MAX)-1 && b == -1) ? a : (T)(a / b);                                        \
    }                                                                                                        \
    static T safe_mod_func_##T##_s_s(T a, T b) {                                                             \
        return b == 0 || (a == -(MAX)-1 && b == -1) ? a : (T)(a % b);                                        \
    }                                                                                                        \
    static T safe_lshift_func_##T##_s_s(T a, int b) {                                                        \
        return a < 0 || b < 0 || b >= BITS || a > (MAX) >> b ? a : (T)(a << b);                              \
    }                                                                                                        \
    static T safe_lshift_func_##T##_s_u(T a, unsigned b) {                                                   \
        return a < 0 || b >= BITS || a > (MAX) >> b ? a : (T)(a << b);                                       \
    }                                                                                                        \
    static T safe_rshift_func_##T##_s_s(T a, int b) {                                                        \
        return a < 0 || b < 0 || b >= BITS ? a : (T)(a >> b);                                                \
    }                                                                                                        \
    static T safe_rshift_func_##T##_s_u(T a, unsigned b) { return a < 0 || b >= BITS ? a : (T)(a >> b); }    \
    static U safe_unary_minus_func_##U##_u(U a) { return (U)(0 - a); }                                       \
    static U safe_add_func_##U##_u_u(U a, U b) { return (U)(a + b); }                                        \
    static U safe_sub_func_##U##_u_u(U a, U b) { return (U)(a - b); }                                        \
    static U safe_mul_func_##U##_u_u(U a, U b) { return (U)(a * (1ul * b)); }                                \
    static U safe_div_func_##U##_u_u(U a, U b) { return b == 0 ? a : (U)(a / b); }                           \
    static U safe_mod_func_##U##_u_u(U a, U b) { return b == 0 ? a : (U)(a % b); }                           \
    static U safe_lshift_func_##U##_u_s(U a, int b) { return b < 0 || b >= BITS ? a : (U)(a << b); }         \
    static U safe_lshift_func_##U##_u_u(U a, unsigned b) { return b >= BITS ? a : (U)(a << b); }             \
    static U safe_rshift_func_##U##_u_s(U a, int b) { return b < 0 || b >= BITS ? a : (U)(a >> b); }         \
    static U safe_rshift_func_##U##_u_u(U a, unsigned b) { return b >= BITS ? a : (U)(a >> b); }

SIGNED_OPERATORS(int16_t, uint16_t, 16, 32767)
SIGNED_OPERATORS(int32_t, uint32_t, 32, 2147483647L)
SIGNED_OPERATORS(int64_t, uint64_t, 64, 9223372036854775807LL)

static uint32_t crc32_table[256];
static uint32_t crc32_context = 0xFFFFFFFFul;

static void platform_main_begin(void) {}

static void crc32_gentab(void) {
    for (uint32_t i = 0; i < 256; i++) {
        uint32_t crc = i;
        for (int bit = 0; bit < 8; bit++) crc = crc & 1 ? crc >> 1 ^ 0xEDB88320ul : crc >> 1;
        crc32_table[i] = crc;
    }
}

static void transparent_crc(uint64_t value, const char* name, int print) {
    for (int byte = 0; byte < 8; byte++) {
        crc32_context = crc32_context >> 8 ^ crc32_table[(crc32_context ^ (uint32_t)value) & 0xFF];
        value >>= 8;
    }
    if (print) printf("%s = %lX\n", name, (unsigned long)(crc32_context ^ 0xFFFFFFFFul));
}

static void platform_main_end(uint32_t crc, int print) {
    (void)print;
    printf("checksum = %lX\n", (unsigned long)crc);
}

#endif
