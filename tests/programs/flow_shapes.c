/* Shapes of control flow that the flow graph's cleaning rewrites: tail calls, flags moved by tests, settled
   tests, equal ends, selectors of few values. */
#include <stdio.h>

static int calls;
static unsigned flags;
static volatile int port = 5;

/* Arguments that read each other's places. */
static long gcd(long a, long b) { return b == 0 ? a : gcd(b, a % b); }

static int rotate3(int a, int b, int c, int n) {
    if (n == 0) return a * 100 + b * 10 + c;
    return rotate3(b, c, a, n - 1);
}

static void count_down(int n) {
    calls++;
    if (n > 0) {
        if (n % 3 == 0) {
            count_down(n - 2);
            return;
        }
        count_down(n - 1);
    }
}

/* The address outlives the iteration: no loop. */
static int chain(int depth, const int* outer) {
    int here = depth * 2;
    if (depth == 0) return *outer;
    if (*outer > 100) return here + *outer;
    return chain(depth - 1, depth & 1 ? &here : outer);
}

static int narrow(signed char c, unsigned n) {
    if (n == 0) return c;
    return narrow((signed char)(c + 100), n - 1);
}

static unsigned move_bits(unsigned in, short s) {
    unsigned out = 0;
    long wide = 0;
    if (in & 1) out |= 0x100;
    if (in & 0x8000u) out ^= 2;
    if (in & 4) out |= 4;
    if (s & 0x4000) wide |= 0x100000L;
    if (s & 0x2) wide ^= 0x1L;
    if (s < 0) out |= 0x8000u;
    return out + (unsigned)(wide >> 16) + (unsigned)(wide & 1);
}

static int pick(int a, int b, const int* p) {
    int r, t = 7;
    if (a > b)
        r = a;
    else
        r = b;
    if (p) t = *p;
    if (a == 3) t = b;
    if (b != 0) r += a / b;
    if (port > a) flags |= 1;
    return r * 8 + t;
}

static int settled(int x, int y) {
    int r = 0;
    if (x > 10) {
        r += 1;
        if (x > 5)
            r += 10;
        else
            r += 1000;
        if (y && x < 8) r += 2000;
        x -= 6;
        if (x > 10) r += 100;
    } else if (x == 4) {
        switch (x) {
            case 3: r += 3; break;
            case 4: r += 40; break;
            default: r += 500;
        }
    }
    while (y-- > 0) {
        if (r > 60) break;
        r += x;
        if (r > 60) return -r;
    }
    return r;
}

static int ends(int k) {
    if (k == 1) {
        calls += 2;
        return k + 1;
    }
    if (k == 2) {
        calls += 3;
        return k + 1;
    }
    if (k == 3) {
        calls += 2;
        return k + 1;
    }
    if (k > 10) {
        calls += 2;
        return k + 1;
    }
    return 0;
}

static int few(unsigned u, int s) {
    int r = 0;
    switch (u & 3) {
        case 0: r = 1; break;
        case 1: r = 20; break;
        case 3: r = 300; break;
        case 4: r = 4000; break;
        default: r = -5; break;
    }
    switch (s % 3) {
        case -3: r += 9; break;
        case -2: r += 8; break;
        case -1: r += 7; break;
        case 2: r += 6; break;
        default: break;
    }
    switch ((u & 7) * 6 + 5) {
        case 5: r *= 2; break;
        case 6: r *= 3; break;
        case 17: r *= 5; break;
        case 47: r *= 7; break;
    }
    if (u < 6) switch (u) {
            case 2: return r + 1;
            case 5: return r + 2;
            case 6: return r + 3;
        }
    return r;
}

/* Two loops into each other's middles, empty jumps, tests whose arms meet. */
static int tangle(int n) {
    int r = 0, i = 0;
    if (n & 1) goto inner;
outer:
    if (r > 200) goto done;
    r += 3;
    goto hop;
hop:
    if (n > 0)
        goto inner;
    else
        goto inner;
inner:
    i++;
    r += i;
    if (i < n) {
        if (i & 2) goto outer;
        if (i & 4) goto inner;
        goto outer;
    }
done:
    return r;
}

int main(void) {
    static const int cell = 42;
    int i;
    printf("%ld %ld\n", gcd(1071L, 462L), gcd(17L, 0L));
    printf("%d %d\n", rotate3(1, 2, 3, 4), rotate3(4, 5, 6, 3));
    count_down(20);
    printf("%d\n", calls);
    i = 7;
    printf("%d %d\n", chain(5, &i), chain(60, &cell));
    printf("%d\n", narrow(27, 1));
    for (i = 0; i < 16; i++)
        printf("%u ", move_bits((unsigned)(i * 0x881) ^ (i & 1 ? 0x8000u : 0), (short)(i * 0x600 - 0x3000)));
    printf("\n");
    for (i = -2; i < 4; i++) printf("%d ", pick(i, 3 - i, i & 1 ? &cell : 0));
    printf("%u\n", flags);
    for (i = 0; i < 24; i += 2) printf("%d ", settled(i, i / 3));
    printf("\n");
    for (i = 0; i < 13; i++) printf("%d ", ends(i));
    printf("%d\n", calls);
    for (i = -6; i < 10; i++) printf("%d ", few((unsigned)i, i));
    printf("\n");
    for (i = 0; i < 9; i++) printf("%d ", tangle(i));
    printf("\n");
    return 0;
}
