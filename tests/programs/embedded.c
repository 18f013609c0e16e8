// Assignments inside expressions: chains, conditions, arguments, selectors, and those that must stay.
#include <stdio.h>
static int g;
static long gl;
static int arr[8];
volatile int vv;
static int n0;
static int next(void) {
    static int k;
    return k < 5 ? ++k : -1;
}
static int peek(void) { return g; }
struct S {
    int a;
    unsigned b : 4;
    long c;
};
static int chain(struct S* p, int n) {
    int a, b;
    long c;
    a = b = c = n * 3;
    p->a = a = g = b + 1;
    p->b = p->a = a + 20;
    p->c = p->b = 17;
    arr[a = 2] = b = 9;
    arr[g = 3] = a;
    return a + b + (int)c + p->a + p->b + (int)p->c;
}
static int loops(void) {
    int c, s = 0;
    while ((c = next()) != -1) s = s * 10 + c;
    do {
        if ((c = s % 7) > 3 && (s -= c) > 0) s++;
    } while ((s /= 2) > 10);
    for (; (c += 3) < 20;) s ^= c;
    return s;
}
static int order(int n) {
    int a = 1;
    int r = 3 + (g = n);
    r += (a = 5, a) * (g += 2);
    r += peek();
    r = r * 2 + (vv = 3);
    r += (vv = r);
    r += n ? (a = 7) : (g = 9);
    r += (n > 100 || (a = 3)) + (n < 0 && (a = 4));
    return r + a + g;
}
static int args(int n) {
    int a, b;
    a = n + 1;
    n = a + (b = a * 2);
    return printf("%d %d %d\n", a = n, b += 3, (gl = n, (int)gl)) + a + b;
}
static int kinds(int n) {
    _Bool f;
    unsigned char c;
    float x;
    int* p = &g;
    int k = (f = n);
    int* q = p;
    k += (c = n * 1000);
    k += (int)(x = n * 0.5f);
    k += (*p = n);
    k += (p++, p--, *p) + *q;
    k += (n <<= 2);
    k += (n -= 3);
    switch (k = k & 3) {
        case 1: k = 10; break;
        default: k += 4;
    }
    return k + f + c + (int)x + n;
}
static int ret(int* p, int n) {
    if (n) return *p = n * 2;
    return g = *p;
}
int main(void) {
    struct S s = {0};
    printf("%d %d %d\n", chain(&s, 5), arr[2], arr[3]);
    printf("%d\n", loops());
    g = 4;
    printf("%d ", order(3));
    printf("%d %d\n", order(0), g);
    printf("%d\n", args(6));
    printf("%d %d %d\n", kinds(0), kinds(5), kinds(-77));
    n0 = ret(&g, 8);
    printf("%d %d %d\n", n0, ret(&n0, 0), g);
    return 0;
}
