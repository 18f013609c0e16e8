// Primes: sieve over single units and over bits, factorisation, and Miller-Rabin checked against the sieve.
#include <stdint.h>
#include <stdio.h>

enum { LIMIT = 4000 };

static char composite[LIMIT];
static uint16_t bits[LIMIT / 32 + 1]; // odd numbers only

static int sieve(void) {
    int count = 0;
    for (int i = 2; i < LIMIT; i++) {
        if (composite[i]) continue;
        count++;
        for (int j = i + i; j < LIMIT; j += i) composite[j] = 1;
    }
    return count;
}

static int sieve_bits(void) {
    int count = 1;
    for (uint16_t i = 3; i < LIMIT; i += 2) {
        if (bits[i / 32] >> (i / 2 % 16) & 1) continue;
        count++;
        for (uint32_t j = (uint32_t)i * i; j < LIMIT; j += 2u * i)
            bits[j / 32] |= (uint16_t)(1u << (j / 2 % 16));
    }
    return count;
}

static uint16_t power_mod(uint16_t base, uint16_t e, uint16_t m) {
    uint32_t r = 1, b = base % m;
    for (; e; e >>= 1) {
        if (e & 1) r = r * b % m;
        b = b * b % m;
    }
    return (uint16_t)r;
}

static int probable(uint16_t n) {
    if (n < 2 || n % 2 == 0) return n == 2;
    uint16_t d = n - 1, s = 0;
    while (d % 2 == 0) d /= 2, s++;
    static const uint16_t bases[] = {2, 7};
    for (int i = 0; i < 2; i++) {
        uint16_t x = power_mod(bases[i], d, n);
        if (bases[i] % n == 0 || x == 1 || x == n - 1) continue;
        int ok = 0;
        for (uint16_t r = 1; r < s && !ok; r++) {
            x = (uint16_t)((uint32_t)x * x % n);
            ok = x == n - 1;
        }
        if (!ok) return 0;
    }
    return 1;
}

static void factor(uint32_t n) {
    printf("%lu =", (unsigned long)n);
    for (uint32_t p = 2; p * p <= n; p += p == 2 ? 1 : 2) {
        while (n % p == 0) {
            printf(" %lu", (unsigned long)p);
            n /= p;
        }
    }
    if (n > 1) printf(" %lu", (unsigned long)n);
    printf("\n");
}

int main(void) {
    printf("%d %d\n", sieve(), sieve_bits());
    int last = 0, gap = 0, at = 0;
    for (int i = 2; i < LIMIT; i++) {
        if (composite[i]) continue;
        if (last && i - last > gap) {
            gap = i - last;
            at = last;
        }
        last = i;
    }
    printf("last %d, widest gap %d after %d\n", last, gap, at);
    int wrong = 0;
    for (uint16_t i = 0; i < 600; i++) wrong += probable(i) != (i > 1 && !composite[i]);
    printf("%d wrong, %d %d\n", wrong, probable(65521u), probable(65535u));
    factor(3600);
    factor(1000003ul);
    factor(4294967295ul);
    factor(999999ul);
    return 0;
}
