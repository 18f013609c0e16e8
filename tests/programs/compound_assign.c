// Compound assignment with operands of different width, sign and kind, as statements and as values.
#include <stdint.h>
#include <stdio.h>

static int16_t globals[4] = {100, -200, 300, -400};
struct pair {
    int32_t l;
    float f;
    uint16_t u;
};

static uint16_t* pick(uint16_t* p, int* calls) {
    ++*calls;
    return p;
}

int main(void) {
    int16_t s = 1000;
    uint16_t u = 50000u;
    int32_t l = 100000L;
    int64_t q = 10000000000LL;
    float f = 2.5f;

    s += 70000L - 69000L;
    s *= 3;
    s -= f;    // 6000 - 2.5 = 5997.5, cut to 5997
    s /= 2.0f; // 2998
    printf("%d\n", s);
    s = (int16_t)(s % 1000);
    s <<= 4; // 998 * 16
    s %= 5000L;
    s ^= 0x0F0F;
    printf("%d\n", s);
    u = (uint16_t)(u + l); // modulo 65536
    u -= (uint16_t)q;
    u |= 0x8000u;
    u >>= 3;
    printf("%u\n", (unsigned)u);
    l += s;
    l *= -3;
    l -= u;
    l /= 7;
    l %= 10007;
    l &= q;
    printf("%ld\n", (long)l);
    q += l;
    q -= u;
    q *= s;
    q >>= 5;
    q ^= l;
    q /= (int32_t)-1234567L;
    printf("%lld\n", (long long)q);
    f += s;
    f *= 0.5f;
    f -= 1;
    f /= l ? 4 : 2;
    printf("%f\n", f);
    l = 7;
    l *= 2.75f; // 19.25, cut to 19
    l += f > 0;
    printf("%ld\n", (long)l);

    int i = 1;
    globals[i++] += 50;
    globals[i] -= globals[i - 1] *= 2;
    globals[++i] /= -3;
    printf("%d %d %d %d\n", globals[0], globals[1], globals[2], globals[3]);
    struct pair p = {1, 0.25f, 3};
    p.l = p.u += 4;
    p.f += p.l <<= 2;
    p.u *= p.u;
    printf("%ld %f %u\n", (long)p.l, p.f, (unsigned)p.u);
    int calls = 0;
    *pick(&u, &calls) += 9;
    *pick(&u, &calls) <<= 1;
    printf("%u %d\n", (unsigned)u, calls);
    int16_t* walk = globals;
    walk += 3;
    walk -= 2;
    *walk |= 1;
    printf("%d %d\n", (int)(walk - globals), *walk);
    _Bool b = 0;
    b |= 256;
    b += 7;
    b ^= 1;
    printf("%d\n", b);
    return 0;
}
