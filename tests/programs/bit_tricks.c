// Bit manipulation: counts, reversals, parity, Gray codes, packing, isolating bits, saturation, sign tricks.
#include <stdint.h>
#include <stdio.h>

static int popcount(uint32_t v) {
    v = v - ((v >> 1) & 0x55555555ul);
    v = (v & 0x33333333ul) + ((v >> 2) & 0x33333333ul);
    return (int)((((v + (v >> 4)) & 0x0F0F0F0Ful) * 0x01010101ul & 0xFFFFFFFFul) >> 24);
}

static uint16_t reverse(uint16_t v) {
    v = (uint16_t)((v & 0x5555) << 1 | (v >> 1 & 0x5555));
    v = (uint16_t)((v & 0x3333) << 2 | (v >> 2 & 0x3333));
    v = (uint16_t)((v & 0x0F0F) << 4 | (v >> 4 & 0x0F0F));
    return (uint16_t)(v << 8 | v >> 8);
}

static int leading_zeroes(uint16_t v) {
    int n = 0;
    if (v == 0) return 16;
    while (!(v & 0x8000u)) v = (uint16_t)(v << 1), n++;
    return n;
}

static uint16_t gray(uint16_t v) { return (uint16_t)(v ^ v >> 1); }
static uint16_t ungray(uint16_t g) {
    for (int s = 8; s; s >>= 1) g ^= (uint16_t)(g >> s);
    return g;
}

static int16_t saturate(int32_t v) { return v > 32767 ? 32767 : v < -32767 - 1 ? -32767 - 1 : (int16_t)v; }
static int16_t branchless_max(int16_t a, int16_t b) { return (int16_t)(a ^ ((a ^ b) & -(a < b))); }
static int is_power(uint16_t v) { return v && !(v & (v - 1u)); }

static uint32_t pack(uint16_t r, uint16_t g, uint16_t b) {
    return (uint32_t)(r & 31) << 11 | (uint32_t)(g & 63) << 5 | (uint32_t)(b & 31);
}

int main(void) {
    static const uint16_t v[] = {0, 1, 2, 3, 0x00F0, 0x1234, 0x7FFF, 0x8000u, 0xA5A5u, 0xFFFFu};
    for (int i = 0; i < 10; i++) {
        uint16_t x = v[i];
        printf("%x: %d %x %d %x %x %d %x %x\n", (unsigned)x, popcount(x), (unsigned)reverse(x),
               leading_zeroes(x), (unsigned)gray(x), (unsigned)ungray(gray(x)), is_power(x),
               (unsigned)(uint16_t)(x & (~x + 1u)), (unsigned)(uint16_t)(x | (x >> 3 & 0x11)));
    }
    printf("%d %d\n", popcount(0xFFFFFFFFul), popcount(0x80000001ul));
    printf("%d %d %d\n", saturate(40000L), saturate(-40000L), saturate(-5));
    printf("%d %d\n", branchless_max(-3, 8), branchless_max(20, -20));
    uint32_t colour = pack(17, 42, 9);
    printf("%lx %d %d %d\n", (unsigned long)colour, (int)(colour >> 11), (int)(colour >> 5 & 63),
           (int)(colour & 31));
    uint32_t bits[4] = {0};
    for (int i = 0; i < 128; i += 1 + i % 7) bits[i / 32] |= (uint32_t)1 << i % 32;
    for (int i = 0; i < 4; i++) {
        bits[i] &= ~((uint32_t)0xF << 4 * i);
        printf("%lx ", (unsigned long)bits[i]);
    }
    printf("\n");
    uint16_t a = 0x1234, b = 0x00FF;
    a ^= b;
    b ^= a;
    a ^= b;
    printf("%x %x %x\n", (unsigned)a, (unsigned)b, (unsigned)(uint16_t) ~(a | b));
    return 0;
}
