/* What a program expects of its conditions, and where control goes when it is wrong. 16-bit only. */
#include <intrinsics.h>
#include <stdio.h>
#include <stdlib.h>

#define likely(x) __builtin_expect(!!(x), 1)
#define unlikely(x) __builtin_expect((x) != 0, 0)

int calls;
volatile int port;

static int count(int x) {
    calls++;
    return x;
}

/* In conditions of every form; the operand is evaluated once, the constant never has an effect. */
static int forms(int a, int b) {
    int seen = 0;
    if (unlikely(count(a) > 3)) seen |= 1;
    if (likely(a && count(b))) seen |= 2;
    if (!unlikely(a == b)) seen |= 4;
    if (likely(a) && unlikely(b) && count(1)) seen |= 8;
    if (unlikely(a) || count(b - 2)) seen |= 16;
    if (__builtin_expect(a, 7) > 6) seen |= 32;
    if (__builtin_expect(__builtin_expect(b, 2), 3) == 3) seen |= 64;
    seen += unlikely(count(b)) ? 128 : 256;
    return seen;
}

/* As a value: the first operand as a long. */
static long values(int a, unsigned u) {
    long sum = __builtin_expect(a, 5) + __builtin_expect(u, 1) * 2;
    int narrowed = __builtin_expect(70000L + a, 0);
    __builtin_expect(count(a), 1);
    return sum + narrowed + (sizeof __builtin_expect(a, 1) == sizeof(long));
}

static int choose(int a) {
    switch (__builtin_expect(count(a), 3)) {
        case 1: return 10;
        case 2: calls += 2; /* falls through */
        case 3: return 30 + calls;
        case -1: return -10;
    }
    switch (__builtin_expect(a, 90)) {
        case 4: return 40;
        default: return 50;
    }
}

/* Loops whose test is expected to fail, to hold, and not to come out of the middle. */
static int loops(int n) {
    int total = 0, i = 0;
    while (unlikely(i < n)) total += i++;
    do {
        if (unlikely(total == 7)) break;
        if (likely(i & 1)) continue;
        total += 3;
    } while (likely(--i > 0));
    for (;;) {
        if (unlikely(total > 40)) return total;
        if (unlikely(port)) break;
        total += n + 1;
    }
    return -total;
}

/* Into a loop from two sides, and from one loop into another. */
static int tangled(int n) {
    int steps = 0;
    if (unlikely(n & 1)) goto inside;
outside:
    steps += 1;
    if (likely(n > 20)) goto done;
    n += 3;
inside:
    steps += 10;
    n += 5;
    if (unlikely(steps > 90)) goto done;
    for (int i = 0; likely(i < 3); i++)
        if (unlikely(n - i == 13)) goto outside;
    goto outside;
done:
    return steps * 100 + n;
}

static int cannot(int kind) {
    switch (kind) {
        case 0: return 5;
        case 1: return 6;
        default: _never_executed();
    }
    return -1;
}

/* The way that ends the program is the only one that leaves the loop. */
static void finish(int n) {
    for (;;) {
        if (n-- <= 0) {
            printf("calls %d\n", calls);
            exit(3);
        }
        calls += n;
        if (unlikely(calls < 0)) abort();
    }
}

int main(void) {
    for (int a = 0; a < 9; a += 4)
        for (int b = 0; b < 4; b++) printf("%d ", forms(a, b));
    printf("\n%ld %ld\n", values(5, 65535u), values(-3, 0));
    for (int a = -1; a < 6; a++) printf("%d ", choose(a));
    printf("\n");
    for (int n = 0; n < 7; n++) printf("%d %d ", loops(n), tangled(n));
    printf("\n%d %d\n", cannot(0), cannot(1));
    finish(5);
}
