/* What goes into an inline function and what comes out: conversions, structures, parameters that it changes, reads often or
   never, locals, statics and control flow of its own. */
#include <stdio.h>

struct pair { int a, b; };
struct big { long v[6]; int n; };

#define INLINE static inline __attribute__((always_inline))

INLINE struct pair swap(struct pair p) {
    int t = p.a;
    p.a = p.b;
    p.b = t;
    return p;
}

INLINE struct big filled(int n, long step) {
    struct big b;
    b.n = n;
    for (int i = 0; i < 6; i++) b.v[i] = i < n ? i * step : -1;
    return b;
}

INLINE long sum(struct big b) {
    long s = 0;
    for (int i = 0; i < b.n; i++) s += b.v[i];
    b.n = 0;
    return s;
}

INLINE unsigned char low(long v) { return (unsigned char)v; }
INLINE float half(float f) { return f / 2; }
INLINE long widen(short s) { return s; }
INLINE _Bool truth(int v) { return v; }
INLINE int constant(int unused, int also) { return 42; }
INLINE int often(int v) { return v * v + v; }
INLINE int counted(void) {
    static int count;
    return ++count;
}
INLINE int grade(int v) {
    switch (v / 10) {
        case 0: return 'F';
        case 9:
        case 10: return 'A';
        default: break;
    }
    for (int limit = 30;; limit += 20)
        if (v < limit) return 'E' - (limit - 30) / 20;
}
INLINE int strange(int v) {
    int twice = v * 2;
again:
    if (twice > 100) return twice;
    twice += v;
    goto again;
}
INLINE const char *name(int n) { return n ? "one" : "zero"; }
INLINE void store(int *to, int v) {
    if (v < 0) return;
    *to = v;
}
INLINE void twice(void (*f)(int *, int), int *p) {
    f(p, *p + 1);
    f(p, *p * 2);
}
static void by_pointer(int *p, int v) { *p = v; }

volatile int port;

INLINE int poll(int want) {
    int tries = 0;
    while (port != want && tries < 5) {
        port = port + 1;
        tries++;
    }
    return tries;
}

int main(void) {
    struct pair p = {1, 2}, *q = &p;
    p = swap(p);
    printf("%d %d\n", p.a, p.b);
    p = swap(swap(swap(*q)));
    printf("%d %d %d\n", p.a, p.b, swap(p).a);
    struct big b = filled(4, 100000L);
    printf("%ld %d %ld\n", sum(b), b.n, sum(filled(3, -7)));
    printf("%d %d %d\n", (int)(100 * half(3)), low(0x12345L) & 0xff, (int)widen(-5));
    printf("%d %d %d\n", truth(256), truth(0), constant(printf("kept "), 0));
    int x = 3;
    printf("%d ", often(x++));
    printf("%d\n", x);
    x = often(x);
    printf("%d\n", x);
    for (int i = 0; i < 3; i++) printf("%d ", counted());
    printf("%d\n", counted() * 10);
    for (int i = 5; i <= 105; i += 20) printf("%c", grade(i));
    printf(" %d %s%s\n", strange(17), name(1), name(0));
    store(&x, -1);
    store(&x, 8);
    twice(by_pointer, &x);
    twice(store, &x);
    printf("%d\n", x);
    port = 2;
    printf("%d", poll(4));
    printf(" %d", poll(1));
    printf(" %d\n", port);
    return 0;
}
