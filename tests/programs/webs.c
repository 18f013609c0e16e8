// Variables that serve for several values, and copies of variables: reused counters and parameters, values
// that meet and part, swaps and rotations in loops, lost copies, conditional and embedded stores, structures.
// Each function keeps its variables to itself: none is inlined.
#include <setjmp.h>
#include <stdint.h>
#include <stdio.h>

#define KEPT __attribute__((noinline))

struct pair {
    int a;
    long b;
};

static volatile int zero;
static int calls;
static int next(void) { return ++calls; }

KEPT static int reused(int n) {
    int i, t, r = 0;
    for (i = 0; i < n; i++) r += i;
    t = r * 2;
    r += t;
    for (i = n; i > 0; i -= 2) r ^= i;
    t = i;
    r = r * 3 + t;
    for (n = 3; n < 6; n++) {
        t = n * r;
        if (t & 1) {
            i = t;
            r += i & 15;
        } else {
            i = -t;
            r -= i & 7;
        }
    }
    return r + n;
}

KEPT static int meets(int n) {
    int x = n, y;
    if (n & 1) {
        x = next();
        y = x + 1;
    } else {
        y = n;
    }
    n = x + y;
    x = y;
    while (n > 50) {
        y = x;
        x = n / 3;
        n -= x + y + 1;
    }
    return x * 100 + y;
}

KEPT static long swaps(int n) {
    int a = 1, b = 2, c = 3, t;
    long r = 0;
    while (n-- > 0) {
        t = a;
        a = b;
        b = t;
        if (n % 3 == 0) {
            t = a;
            a = b;
            b = c;
            c = t;
        }
        r = r * 4 + a * 2 + b - c;
        r %= 100003L;
    }
    return r;
}

// The old value is wanted behind the store of the new one.
KEPT static int lost(int n) {
    int x = 1, y;
    do {
        y = x;
        x = y + n;
    } while (x < 100);
    return y;
}

KEPT static int fibonacci(int n) {
    int a = 0, b = 1;
    for (int i = 0; i < n; i++) {
        int old = a;
        a = b;
        b = old + b;
    }
    return a;
}

KEPT static int inside(int n) {
    int x = n, y, z = 0;
    y = x;
    z += (x = n + 4, x) + y;
    y = x;
    if (n > 2 && (x = next()) > n) z += x;
    z += x * 10 + y;
    x = y = z;
    x++;
    return (n > 3 ? (y += x) : (x -= y)) + x + y * z;
}

KEPT static long structures(int n) {
    struct pair p = {n, n * 3L}, q, r;
    q = p;
    if (n & 2) q.a = 7;
    r = q;
    r.b += q.a;
    q = r;
    p = q;
    p.a++;
    r = p;
    return r.a * 1000 + q.a * 100 + r.b + q.b;
}

KEPT static float floats(float x, int n) {
    float y = x, z;
    for (; n > 0; n--) {
        z = y;
        y = z * 0.5f + 1;
        x = z;
    }
    return x * 16 + y;
}

static jmp_buf again;
KEPT static int jumps(int n) {
    volatile int count = 0;
    int x = n;
    int y = x;
    if (setjmp(again) < 3) {
        count++;
        longjmp(again, count);
    }
    x = y + count;
    y = x;
    return x * y;
}

KEPT static int uninitialised(int n) {
    int x, y;
    for (int i = 0; i < n; i++) {
        if (i == 0) x = n;
        y = x;
        if (y > 3) x = y - 1;
        if (zero) y = x = 0;
    }
    return n > 0 ? x : n;
}

int main(void) {
    for (int i = 0; i < 7; i++) {
        printf("%d %d ", reused(i), meets(i * 31));
        printf("%ld %d %d %d ", swaps(i * 5), lost(i + 1), fibonacci(i * 3), inside(i));
        printf("%ld %d %d\n", structures(i), jumps(i), uninitialised(i));
    }
    printf("%d\n", (int)floats(3.0f, 4));
    return 0;
}
