// Signed and unsigned division and remainder by constants and variables, near zero and at the ends of the
// range.
#include <stdint.h>
#include <stdio.h>

static int16_t div_s(int16_t a, int16_t b) { return (int16_t)(a / b); }
static int16_t mod_s(int16_t a, int16_t b) { return (int16_t)(a % b); }
static uint16_t div_u(uint16_t a, uint16_t b) { return (uint16_t)(a / b); }
static uint16_t mod_u(uint16_t a, uint16_t b) { return (uint16_t)(a % b); }

static void by_constants(int16_t a) {
    uint16_t u = (uint16_t)a;
    printf("%d: %d %d %d %d %d %d |", a, a / 2, a % 2, a / 16, a % 16, a / 10, a % 10);
    printf(" %d %d %d %d |", a / -4, a % -4, a / 7, a % -7);
    printf(" %u %u %u %u %u %u\n", (unsigned)(u / 2), (unsigned)(u % 8), (unsigned)(u / 10),
           (unsigned)(u % 10), (unsigned)(u / 32768u), (unsigned)(u % 32768u));
}

int main(void) {
    static const int16_t a[] = {0,  1,   -1, 2,   -2,  9,    -9,    15,     -15,
                                16, -16, 17, -17, 100, -100, 32767, -32767, -32767 - 1};
    static const int16_t b[] = {1, 2, -2, 3, -3, 8, 10, -16, 255, 32767};
    for (unsigned i = 0; i < sizeof a / sizeof a[0]; i++) by_constants(a[i]);
    long check = 0;
    for (unsigned i = 0; i < sizeof a / sizeof a[0]; i++) {
        for (unsigned j = 0; j < sizeof b / sizeof b[0]; j++) {
            int16_t q = div_s(a[i], b[j]), r = mod_s(a[i], b[j]);
            if ((long)q * b[j] + r != a[i]) printf("identity fails for %d / %d\n", a[i], b[j]);
            if (r != 0 && (r < 0) != (a[i] < 0)) printf("sign fails for %d %% %d\n", a[i], b[j]);
            uint16_t ub = (uint16_t)b[j];
            check = (check * 31 + q * 7L + r + (long)div_u((uint16_t)a[i], ub) + mod_u((uint16_t)a[i], ub)) %
                    1000003L;
        }
        printf("%ld ", check);
    }
    printf("\n");
    return 0;
}
