/* What tempts a step to assume too much: ways into and out of a function, places with two names, values that
   change as they are stored, parts that may not be evaluated. 16-bit only. */
#include <setjmp.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

/* --- parameters in memory, and what lies above the last named one */
static int sum(int n, ...) {
    va_list ap;
    int s = 0;
    va_start(ap, n);
    n = 3;
    while (n--) s += va_arg(ap, int);
    va_end(ap);
    return s;
}
static int param_address(int a, int b) {
    int* p = &a;
    *p = b;
    b = a + 1;
    p = &b;
    *p += 2;
    return a * 100 + b;
}

/* --- setjmp: what is assigned between the two returns */
static jmp_buf env;
static void thrower(int n) { longjmp(env, n); }
static int jumps(void) {
    volatile int tries = 0;
    int kept = 5, n;
    n = setjmp(env);
    if (n < 3) {
        tries = tries + 1;
        thrower(n + 1);
    }
    return tries * 100 + n * 10 + kept;
}

/* --- compound assignments convert */
static int compounds(void) {
    unsigned char_like = 65535u;
    int i = -1;
    long l = 100000;
    float f = 2.5f;
    unsigned u = 3;
    signed char c = 32767;
    long long ll = 1;
    int r;
    i += 1.75f; /* (int)(-1 + 1.75) */
    r = i;
    i = 7;
    i *= f;
    r = r * 100 + i;
    i = -7;
    i /= u; /* unsigned division */
    r += i & 0xff;
    i = 5;
    i -= l; /* wraps */
    r ^= i;
    c += 1; /* 16 bits */
    r ^= c;
    u -= 4;
    r ^= (int)(u >> 3);
    char_like += 1;
    r ^= char_like;
    i = 1;
    i <<= 3;
    i += ll << 17 >> 16;
    return r + i;
}

/* --- booleans, bit-fields, unions */
struct bits {
    unsigned a : 3;
    int b : 4;
    unsigned c : 9;
    int d;
};
static int fields(int x) {
    struct bits s = {0};
    int v;
    v = s.a = x;
    if (x & 4) s.b |= 2;
    s.b = s.b + 9;
    s.c = -1;
    s.c += 2;
    s.d = s.c = x + 600;
    return v * 1000 + s.b * 10 + s.c + s.d;
}
union view {
    long l;
    int i[2];
    float f;
    struct {
        unsigned lo : 5;
        unsigned hi : 11;
    } b;
};
static int views(int x) {
    union view u;
    int a;
    u.l = 0x12345678L;
    a = u.i[0];
    u.i[0] = x;
    u.b.lo = 3;
    a += u.i[0] + u.i[1];
    u.f = 1.5f;
    return a + (int)(u.l >> 20);
}
static _Bool flag(int x) {
    _Bool b = x & 6;
    b += 255;
    b |= x;
    if (x & 8) b ^= 1;
    return b;
}

/* --- conditional evaluation */
static int calls;
static int call(int x) {
    calls++;
    return x;
}
static int conditional(int a, int b) {
    int x = 1, y = 2, z;
    z = a && (x = call(b)) && (y = x + 1);
    z += b ? (x += 2, y) : (y -= 1, x);
    z = z * 10 + (a || (y = call(7)));
    return z * 100 + x * 10 + y;
}
static int div_guard(int a, int b) {
    int q = 0;
    if (b) q = a / b;
    return q + (b != 0 ? a % b : -1);
}
static int null_guard(int* p) {
    int v = 3;
    if (p) v = *p;
    if (p && *p > 2) v++;
    return v;
}

/* --- address-taken locals and pointers into parts */
static void set(int* p, int v) { *p = v; }
static int parts(int n) {
    int a[4] = {1, 2, 3, 4};
    struct {
        int x, y;
        int* p;
    } s = {5, 6, 0};
    int *q = &a[1], one = 1;
    s.p = &s.y;
    *s.p = n;
    q[1] = 9;
    q += one;
    set(&s.x, a[2] + *q);
    set(q + 1, s.y);
    a[n & 3] += 1;
    return s.x * 1000 + s.y * 100 + a[3] * 10 + a[2];
}
static int two_names(int n) {
    int x = n, y = x, *p = &x;
    *p = 4;
    y += x;
    p = &y;
    *p = *p + x;
    return x * 10 + y;
}

/* --- loops that end in odd ways, statics, goto into a block */
static int spin(int n) {
    static int total = 3;
    int i = 0;
    for (;;) {
        if (i++ > n) break;
        if (i & 1) continue;
        total += i;
    }
    goto inside;
    {
        int k;
        k = 5;
    inside:
        k = total;
        total = k + 1;
    }
    return total;
}
static void forever_unless(int n) {
    while (n == 12345)
        ;
    if (n == 4321)
        for (;;) n++;
}
static int chained(int n) {
    int a, b, c;
    char h;
    long l;
    a = b = c = n;
    a = (h = 300) + 1;
    l = a = b = -1;
    b = l == -1 && h == 300;
    l = (unsigned)(a = -2);
    return a + b * 10 + (l == 65534L) + c;
}
static volatile int hardware = 1;
static int hard(void) {
    int x = hardware, y = x;
    hardware = y + 1;
    hardware = 5;
    hardware;
    x += hardware;
    hardware += 2;
    return x + y * (hardware, 3);
}
static unsigned wrap(unsigned x) {
    unsigned y = x - 1, z = 0;
    if (y > 65000u) z = 1;
    if (x + 1 > x) z += 2;
    for (unsigned i = 65534u; i > 3; i++) z++;
    return z + y;
}
static int selects(int x) {
    int r = 0;
    switch (x & 3) {
        case 0: r = 1; break;
        case 1: r = 2;
        case 3: r += 4; break;
        case 17: r = 99; break;
    }
    switch ((unsigned long)x) {
        case 0x10001UL: r += 100; break;
        case 1: r += 1000; break;
        case 0xFFFFFFFFUL: r += 5; break;
    }
    switch (x < 0) {
        case 0: r++;
        case 1: r++;
    }
    switch (r) {
        default: r--;
    }
    switch (r) {}
    return r;
}
static int tail(int n, int acc) { return n == 0 ? acc : tail(n - 1, acc + n); }
static int tail_address(int n, int* p) {
    int here = n + (p ? *p : 0);
    if (n == 0) return here;
    return tail_address(n - 1, &here);
}
static int swap_tail(int a, int b, int n) {
    if (n == 0) return a * 10 + b;
    return swap_tail(b, a, n - 1);
}
static int uninit_path(int c) {
    int x;
    if (c) x = 5;
    if (c) return x;
    x = 6;
    return x;
}
static int self(int n) {
    int x = n;
    x = x;
    x = x + (x = 3, 0) * 0 + 1;
    return x > 0;
}
/* --- assignments that look like the arrival of a parameter */
static long narrowed(long q, int times) {
    while (times--) {
        q += 70000;
        q = (int)q;
    }
    return q;
}
static int itself(unsigned char q) {
    q = 14;
    q = q;
    return q;
}
static volatile int seen;
static int itself_volatile(volatile int q) {
    q = 7;
    q = q;
    seen = q;
    return q;
}
int main(void) {
    printf("%ld %d %d\n", narrowed(4, 3), itself(1), itself_volatile(1));
    printf("%d\n", sum(9, 1, 2, 3));
    printf("%d %d\n", param_address(1, 2), jumps());
    printf("%d\n", compounds());
    for (int i = 0; i < 10; i++) printf("%d %d %d,", fields(i), views(i), flag(i));
    printf("\n");
    for (int i = 0; i < 4; i++) printf("%d %d %d;", conditional(i & 1, i & 2), div_guard(i, i - 2), calls);
    int seven = 7;
    printf("\n%d %d %d %d\n", null_guard(0), null_guard(&seven), parts(6), two_names(3));
    printf("%d %d\n", spin(7), spin(4));
    forever_unless(1);
    printf("%d %d %u %u\n", chained(2), hard(), wrap(0), wrap(9));
    for (int i = -2; i < 6; i++) printf("%d ", selects(i));
    printf("\n%d %d %d %d\n", tail(10, 0), tail_address(3, 0), swap_tail(1, 2, 3),
           uninit_path(0) + uninit_path(1));
    printf("%d\n", self(4));
    return 0;
}
