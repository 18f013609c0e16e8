// Bit-fields of structures that become variables, and of those that stay.
#include <stdio.h>
struct B {
    unsigned a : 3;
    int b : 5;
    long c : 20;
    unsigned long long d : 40;
    int e;
};
struct C {
    int lo : 4, mid : 8, hi : 4;
    _Bool f : 1;
    unsigned g : 15;
    volatile int v : 3;
    unsigned long w : 32;
    signed char sc : 7;
};
struct D {
    int x;
    unsigned p : 9;
    unsigned q : 7;
    struct C c;
    struct D* next;
};
struct Z {
    unsigned a : 5;
    unsigned : 0;
    unsigned b : 6;
    int : 3;
    int d : 16;
};
static struct B gb;
static struct D arr[3];
static int calls;
__attribute__((noinline)) int bump(struct B* p) {
    calls++;
    p->a++;
    p->b -= 3;
    return p->a + p->b;
}
__attribute__((noinline)) long locals(int n) {
    struct B b = {0}, c;
    b.a = n;
    b.b = n * 3;
    b.c = n * 70001L;
    b.d = (unsigned long long)n << 33;
    c = b;
    c.a += 5;
    c.b--;
    c.b *= 3;
    b.c ^= c.a;
    b.d |= 5;
    b.c++;
    b.e = c.b = n + 9;
    int k = (c.a = n + 7) * 2;
    c.c <<= 3;
    b.a /= 2;
    return b.a + b.b * 10 + b.c + (long)b.d + c.a + c.b + c.c + c.d + b.e + k;
}
__attribute__((noinline)) long through(struct D* d, int i) {
    d[i].q = 100 + i;
    i++;
    d->p = bump(&gb);
    d->c.mid += i;
    d->c.hi = d->c.lo = i * 5;
    d->c.f = i;
    d->c.g -= 7;
    d->c.v = i;
    d->c.v += 2;
    d->c.w = ~0ul - i;
    d->c.sc = -i;
    d->next->c.mid--;
    ++d->next->c.hi;
    d->next = d->next->next;
    d->c.lo++;
    return d->p + d->q + d->c.lo + d->c.mid + d->c.hi + d->c.f + d->c.g + d->c.v + (long)(d->c.w >> 3) +
           d->c.sc;
}
__attribute__((noinline)) long inter(void) {
    int t = gb.b;
    gb.b = bump(&gb);
    t += gb.b;
    gb.a = t + (gb.c = bump(&gb) * 1000L);
    gb.d = gb.a ? gb.c : gb.b;
    if (gb.c > 5 && (gb.b = 4)) gb.a = ~gb.a;
    return gb.a + gb.b * 100 + gb.c + (long)gb.d;
}
__attribute__((noinline)) int zz(int n) {
    struct Z z, y;
    z.a = n;
    z.b = n + 60;
    z.d = -n;
    y = z;
    struct Z* p = &y;
    p->d += 5;
    p->b ^= 3;
    return z.a + z.b + z.d + y.a + p->b * 3 + y.d;
}
__attribute__((noinline)) unsigned loop(struct D* d, int n) {
    unsigned s = 0;
    int i;
    for (i = 0; i < n; i++) {
        d->p = i * 37;
        d->q = d->p >> 2;
        s += d->p ^ d->q;
        if (d->p & 1) d->p = 0;
    }
    return s;
}
int main(void) {
    int i;
    arr[0].next = &arr[1];
    arr[1].next = &arr[2];
    arr[2].next = &arr[0];
    for (i = -3; i < 4; i++) printf("%ld %d ", locals(i * 5), zz(i));
    printf("\n");
    printf("%ld %ld\n", through(arr, 0), through(arr, 1));
    printf("%ld %d\n", inter(), calls);
    printf("%u\n", loop(arr, 20));
    for (i = 0; i < 3; i++)
        printf("%u %u %d %d %d %d %u %lu\n", arr[i].p, arr[i].q, arr[i].c.lo, arr[i].c.mid, arr[i].c.hi,
               arr[i].c.f, arr[i].c.g, (unsigned long)arr[i].c.w);
    return 0;
}
