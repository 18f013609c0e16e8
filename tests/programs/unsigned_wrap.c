// Unsigned arithmetic modulo 2^16, 2^32 and 2^64, and the loops and tests that rely on the wrap.
#include <stdint.h>
#include <stdio.h>

static uint16_t mul16(uint16_t a, uint16_t b) { return (uint16_t)((uint32_t)a * b); }

int main(void) {
    uint16_t a = 65535u, b = 2;
    printf("%u %u %u\n", (unsigned)(uint16_t)(a + b), (unsigned)(uint16_t)(b - a), (unsigned)mul16(a, a));
    uint32_t c = 4294967295ul, d = 3;
    printf("%lu %lu %lu\n", (unsigned long)(uint32_t)(c + d), (unsigned long)(uint32_t)(d - c),
           (unsigned long)(uint32_t)(c * d));
    uint64_t e = 18446744073709551615ull, f = 5;
    printf("%llu %llu %llu\n", (unsigned long long)(e + f), (unsigned long long)(f - e),
           (unsigned long long)(e * f));
    printf("%lu %lu\n", (unsigned long)(c / d), (unsigned long)(c % 10));
    printf("%llu %llu\n", (unsigned long long)(e / f), (unsigned long long)(e % 1000));
    printf("%u %u\n", (unsigned)(a / b), (unsigned)(a % 7));

    // Carry out of an unsigned addition is seen by comparing with an operand.
    int carries = 0;
    uint16_t sum = 0;
    for (uint16_t i = 0; i < 1000; i++) {
        uint16_t addend = mul16(i, 37);
        uint16_t next = (uint16_t)(sum + addend);
        if (next < sum) carries++;
        sum = next;
    }
    printf("%u %d\n", (unsigned)sum, carries);

    // A down-counting loop that ends by wrapping below zero.
    int rounds = 0;
    for (uint16_t i = 9; i < 10; i--) rounds++;
    printf("%d\n", rounds);

    // Distance on a ring of 2^16 positions.
    uint16_t head = 10, tail = 65530u;
    printf("%u\n", (unsigned)(uint16_t)(head - tail));

    // A linear congruential generator modulo 2^32.
    uint32_t seed = 12345;
    for (int i = 0; i < 100; i++) seed = seed * 1664525ul + 1013904223ul;
    printf("%lu\n", (unsigned long)seed);
    uint32_t minus = -(uint32_t)1;
    printf("%lx %x\n", (unsigned long)minus, (unsigned)(uint16_t) - (uint16_t)1);
    printf("%lu\n", (unsigned long)(uint32_t) ~(uint32_t)0xFF);
    return 0;
}
