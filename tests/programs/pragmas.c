// Loop pragmas: trip counts, likely trip counts and unroll requests change how a loop is built, never what it
// does.
#include <stdint.h>
#include <stdio.h>

static int16_t a[64], b[64], out[64];

static int32_t dot8(const int16_t* p, const int16_t* q, int16_t n) {
    int32_t sum = 0;
#pragma MUST_ITERATE(8, 64, 8)
    for (int16_t i = 0; i < n; i++) sum += (int32_t)p[i] * q[i];
    return sum;
}

static int16_t at_least_once(const int16_t* p, int16_t n) {
    int16_t best = p[0];
#pragma MUST_ITERATE(1)
    for (int16_t i = 0; i < n; i++)
        if (p[i] > best) best = p[i];
    return best;
}

static void scale(int16_t* p, const int16_t* q, int16_t n, int16_t k) {
#pragma UNROLL(4)
    for (int16_t i = 0; i < n; i++) p[i] = (int16_t)(q[i] * k);
}

static int16_t likely(const int16_t* p, int16_t n) {
    int16_t zeroes = 0;
#pragma PROB_ITERATE(10, 40)
    while (n-- > 0) zeroes += p[n] == 0;
    return zeroes;
}

static int32_t nested(int16_t rows) {
    int32_t total = 0;
#pragma MUST_ITERATE(2, 8)
    for (int16_t r = 0; r < rows; r++) {
#pragma MUST_ITERATE(4, , 4)
#pragma UNROLL(2)
        for (int16_t c = 0; c < 8; c++) total += (int32_t)a[r * 8 + c] * (r + 1) - b[c];
    }
    return total;
}

int main(void) {
    for (int16_t i = 0; i < 64; i++) {
        a[i] = (int16_t)(i % 11 - 5);
        b[i] = (int16_t)(i * 3 - 50);
    }
    printf("%ld %ld\n", (long)dot8(a, b, 64), (long)dot8(b, b, 8));
    printf("%d %d\n", at_least_once(b, 64), at_least_once(a, 1));
    scale(out, b, 64, 7);
    scale(out, a, 3, -1);
    scale(out + 60, b, 0, 9);
    int32_t check = 0;
    for (int16_t i = 0; i < 64; i++) check = check * 3 % 100003L + out[i];
    printf("%ld %d %d\n", (long)check, likely(a, 64), likely(b, 30));
    printf("%ld %ld\n", (long)nested(2), (long)nested(8));
    int16_t i = 0;
#pragma UNROLL(1)
    do i += 5;
    while (i < 33);
    printf("%d\n", i);
    return 0;
}
