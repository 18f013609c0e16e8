// Conversions between floating and integer types of all widths, rounding towards zero, and exact limits.
#include <stdint.h>
#include <stdio.h>

static int16_t to_s16(float f) { return (int16_t)f; }
static uint16_t to_u16(float f) { return (uint16_t)f; }
static int32_t to_s32(float f) { return (int32_t)f; }
static uint32_t to_u32(float f) { return (uint32_t)f; }
static int64_t to_s64(float f) { return (int64_t)f; }

static float half_up(float f) { return (float)(int32_t)(f + (f < 0 ? -0.5f : 0.5f)); }

int main(void) {
    static const float f[] = {0.0f, 0.75f, -0.75f, 1.5f, -1.5f, 99.99f, -32768.0f, 32767.0f};
    for (int i = 0; i < 8; i++)
        printf("%d %ld %lld ", to_s16(f[i]), (long)to_s32(f[i]), (long long)to_s64(f[i]));
    printf("\n");
    printf("%u %u %lu %lu\n", (unsigned)to_u16(65535.0f), (unsigned)to_u16(0.9f),
           (unsigned long)to_u32(4294967040.0f), (unsigned long)to_u32(2147483648.0f));
    printf("%ld %ld %lld %lld\n", (long)to_s32(-2147483648.0f), (long)to_s32(2147483520.0f),
           (long long)to_s64(-9223372036854775808.0f), (long long)to_s64(1099511627776.0f));
    // Integers that need more than 24 bits are rounded to nearest even.
    int32_t l = 16777217L;
    printf("%f %f\n", (float)l, (float)16777219L);
    uint32_t u = 4294967295ul;
    int64_t q = -9223372036854775807LL;
    printf("%f %f %f\n", (float)u, (float)q, (float)(uint16_t)65535u);
    printf("%f %f\n", (float)(int16_t)-32768, (float)(int32_t)-1);
    printf("%d %d %d\n", (_Bool)0.25f, (_Bool)0.0f, !0.5f);
    for (float x = -2.0f; x <= 2.0f; x += 0.5f) printf("%.0f ", half_up(x));
    printf("\n");
    int16_t s = 7;
    float mean = (float)(s + 4) / 4;
    printf("%f %d %f\n", mean, (int)mean, (s + 4) / 4 * 1.0f);
    int32_t ticks = 1000000L;
    float seconds = ticks * 0.001f;
    printf("%d\n", (int)(seconds / 10 + 0.5f));
    s = (int16_t)(mean * 1000 + s);
    s *= 1.5f;
    printf("%d\n", s);
    static const int16_t samples[] = {100, -200, 300, -400};
    float energy = 0;
    for (int i = 0; i < 4; i++) {
        float v = samples[i] / 256.0f;
        energy += v * v;
    }
    printf("%f %ld\n", energy, (long)(energy * 65536.0f));
    return 0;
}
