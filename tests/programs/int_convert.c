// Conversions between integer types of 16, 32 and 64 bits: truncation, sign and zero extension.
#include <stdint.h>
#include <stdio.h>

static const int64_t samples[] = {0,
                                  1,
                                  -1,
                                  32767,
                                  32768,
                                  -32768,
                                  -32769,
                                  65535,
                                  65536,
                                  2147483647LL,
                                  2147483648LL,
                                  -2147483648LL,
                                  4294967295LL,
                                  4294967296LL,
                                  -81985529216486896LL};

static int16_t to_s16(int64_t v) { return (int16_t)v; }
static uint16_t to_u16(int64_t v) { return (uint16_t)v; }
static int32_t to_s32(int64_t v) { return (int32_t)v; }
static uint32_t to_u32(int64_t v) { return (uint32_t)v; }

int main(void) {
    for (unsigned i = 0; i < sizeof samples / sizeof samples[0]; i++) {
        int64_t v = samples[i];
        int16_t s16 = to_s16(v);
        uint16_t u16 = to_u16(v);
        int32_t s32 = to_s32(v);
        uint32_t u32 = to_u32(v);
        printf("%lld: %d %u %ld %lu\n", (long long)v, (int)s16, (unsigned)u16, (long)s32, (unsigned long)u32);
        // Widening back keeps the value of the narrow type, so the sign decides the upper part.
        int64_t back = (int64_t)s16 + (int64_t)u16 + s32 + u32;
        printf("  sum %lld s16->u32 %lu u16->s32 %ld s32->u64 %llu\n", (long long)back,
               (unsigned long)(uint32_t)s16, (long)(int32_t)u16, (unsigned long long)(uint64_t)s32);
        printf("  truth %d %d %d\n", (_Bool)v, (_Bool)s16, !!u32);
    }
    // Conversions that chain: each step truncates before the next one extends.
    int32_t x = 0x0001FFFEL;
    printf("%ld\n", (long)(int32_t)(int16_t)x);
    printf("%lu\n", (unsigned long)(uint32_t)(int32_t)(int16_t)0x8000);
    printf("%lld\n", (long long)(int64_t)(uint32_t)(int16_t)-2);
    printf("%lld\n", (long long)(int64_t)(int32_t)(uint16_t)-2);
    _Bool b = 256;
    b = (_Bool)(b + 1);
    printf("%d\n", b);
    return 0;
}
