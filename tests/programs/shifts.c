// Shifts of every width and sign, with constant and variable counts, and combined with masks.
#include <stdint.h>
#include <stdio.h>

volatile int16_t vcount = 3;

static uint16_t rotl16(uint16_t x, int16_t n) {
    n &= 15;
    if (n == 0) return x;
    return (uint16_t)((uint16_t)(x << n) | (uint16_t)(x >> (16 - n)));
}

static uint32_t rotr32(uint32_t x, int16_t n) { return n ? (x >> n) | (x << (32 - n)) : x; }

int main(void) {
    int16_t s = -12345;
    uint16_t u = 0xC3A5u;
    int32_t sl = -123456789L;
    uint32_t ul = 0xDEADBEEFul;
    int64_t sq = -1234567890123456789LL;
    uint64_t uq = 0xFEDCBA9876543210ull;

    for (int16_t n = 0; n < 16; n++) {
        printf("%d %d %x %x %x\n", n, s >> n, (unsigned)(uint16_t)(u << n), (unsigned)(u >> n),
               (unsigned)rotl16(u, n));
    }
    for (int16_t n = 0; n < 32; n += 5) {
        printf("%d %ld %lx %lx %lx\n", n, (long)(sl >> n), (unsigned long)(uint32_t)(ul << n),
               (unsigned long)(ul >> n), (unsigned long)rotr32(ul, n));
    }
    for (int16_t n = 0; n < 64; n += 9) {
        printf("%d %lld %llx %llx\n", n, (long long)(sq >> n), (unsigned long long)(uq << n),
               (unsigned long long)(uq >> n));
    }
    // The left operand alone decides the type: a 64-bit count leaves a 16-bit shift.
    long long wide_count = 4;
    printf("%x\n", (unsigned)(uint16_t)(u << wide_count));
    printf("%d\n", s >> vcount);
    u <<= 2;
    u >>= 3;
    s >>= vcount;
    sl = (int32_t)((uint32_t)sl << 1);
    sl >>= 4;
    printf("%x %d %ld\n", (unsigned)u, s, (long)sl);
    // Shift pairs that extract a field or extend a sign.
    uint16_t w = 0x0F5A;
    printf("%x %d\n", (unsigned)((uint16_t)(w << 4) >> 8), (int16_t)(uint16_t)(w << 8) >> 8);
    printf("%d %d\n", (uint32_t)1 << 31 != 0, (int)(((uint32_t)1 << 31) >> 31));
    return 0;
}
