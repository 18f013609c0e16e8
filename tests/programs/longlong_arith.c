// 64-bit arithmetic: factorials, division with remainder, powers, mixed widths and comparisons.
#include <stdint.h>
#include <stdio.h>

static uint64_t power(uint64_t base, unsigned e) {
    uint64_t r = 1;
    while (e) {
        if (e & 1) r *= base;
        base *= base;
        e >>= 1;
    }
    return r;
}

static int64_t gcd(int64_t a, int64_t b) {
    while (b) {
        int64_t t = a % b;
        a = b;
        b = t;
    }
    return a < 0 ? -a : a;
}

static uint64_t isqrt(uint64_t n) {
    uint64_t r = 0, bit = (uint64_t)1 << 62;
    while (bit > n) bit >>= 2;
    while (bit) {
        if (n >= r + bit) {
            n -= r + bit;
            r = (r >> 1) + bit;
        } else {
            r >>= 1;
        }
        bit >>= 2;
    }
    return r;
}

int main(void) {
    int64_t f = 1;
    for (int i = 1; i <= 20; i++) f *= i;
    printf("%lld %llx\n", (long long)f, (unsigned long long)f);
    for (int i = 20; i > 14; i--) {
        f /= -i;
        printf("%lld %lld\n", (long long)f, (long long)(f % 1000007));
    }
    printf("%llu %llu\n", (unsigned long long)power(3, 40), (unsigned long long)power(7, 30));
    printf("%lld\n", (long long)gcd(1234567890123LL * 42, -987654321LL * 42));
    printf("%llu %llu\n", (unsigned long long)isqrt(1000000000000000000ull),
           (unsigned long long)isqrt(18446744073709551615ull));
    int64_t big = -9007199254740993LL;
    int32_t narrow = 77777L;
    printf("%lld %lld\n", (long long)(big + narrow), (long long)(big * 64 / narrow));
    printf("%d %d %d\n", big<narrow, (uint64_t)big>(uint64_t) narrow, big == -9007199254740993LL);
    printf("%llx %llx\n", (unsigned long long)(uint64_t)~big,
           (unsigned long long)(uint64_t)(big & 0xFF00FF00FF00FFLL));
    uint64_t u = 0x123456789ABCDEF0ull;
    u ^= u >> 33;
    u *= 0xff51afd7ed558ccdull;
    u ^= u >> 33;
    printf("%llx\n", (unsigned long long)u);
    // Digits of a 64-bit value through repeated division.
    char buf[24];
    int n = 0;
    do {
        buf[n++] = (char)('0' + (int)(u % 10));
        u /= 10;
    } while (u);
    while (n) putchar(buf[--n]);
    putchar('\n');
    return 0;
}
