// Assignments inside of expressions: what comes ahead of them, what they change, and what keeps them in
// place.
#include <stdint.h>
#include <stdio.h>

static int global, table[8];
static volatile int port;
struct pair {
    int first, second;
};

static int tell(int a, int b) {
    printf("%d,%d ", a, b);
    return a * 10 + b;
}

static int change(int by) { return global += by; }

static int copies(const int* from, int* to, int count) {
    int moved = 0, sum = 0;
    while (count-- > 0) sum += * to++ = *from++, moved++;
    return sum * 100 + moved;
}

// A condition decides whether the assignment happens at all.
static int conditional(int a, int b) {
    int x = 1, y = 2;
    const int both = a > 0 && (x = b) > 0;
    const int one = a > 5 || (y = b + 1) > 3;
    const int z = a > 2 ? (x += 10) : (y -= 10);
    return both + 2 * one + 4 * z + 100 * x + 1000 * y;
}

// The call ahead reads and writes the global that the assignment behind changes, and the other way round.
static int around_calls(void) {
    int x = 3, y;
    global = 1;
    y = change(2) + (x = global);
    printf("%d %d | ", x, y);
    y = (x = global) + change(4);
    printf("%d %d | ", x, y);
    y = change(x += 1) * 2;
    printf("%d %d %d\n", x, y, global);
    return y;
}

static int in_memory(int i) {
    struct pair p = {1, 2}, *q = &p;
    int n = 0;
    n += (table[i] = n + 5) * 2;
    n += (table[i] += 3) + (q->second = i);
    n += table[i]++ * 100;
    n += (p.first -= 4);
    n += q->second-- + (table[table[0] = 2] = 7);
    printf("%d %d %d %d %d\n", n, table[i], table[2], p.first, p.second);
    return n;
}

// The value is what the variable holds, not what was assigned.
static long converted(long wide) {
    uint16_t small;
    _Bool flag;
    float real;
    long sum = (small = (uint16_t)(wide + 70000L));
    sum += (flag = wide != 0) + 1;
    sum += (long)((real = (float)wide) * 2);
    sum += (small += 65000u);
    sum += small++;
    return sum * 2 + flag + small;
}

static int ordered(int n) {
    int x, y;
    x = port + (y = n);
    y = (port = x) + (x = y + 1);
    if ((port = y) > 3 && (x = port) > 0) y += x;
    port++;
    return (port -= 2) + x * 10 + y;
}

static int chains(int n) {
    int a, b, c, d = 0, e;
    a = b = c = n;
    for (int i = (a += b) + (b = 4); (i -= c) > 0; d += i) c = (c += 1) < 100 ? c : 1;
    switch (d = a - b) {
        case 2: c = (a = d) + (b = a * 2); break;
        case 6: return (a = c) + b;
        default: tell(a = 1, d--);
    }
    e = tell(a = b + 1, d = c + 2) * (b = n++);
    return e + a + b + d;
}

static struct pair both(struct pair p) {
    struct pair q, r;
    r = q = p;
    r.first = (q = p).second;
    r.second += q.first++;
    return r;
}

int main(void) {
    static const int source[] = {3, 1, 4, 1, 5};
    int target[5], *p = target;
    printf("%d", copies(source, target, 5));
    for (int i = 0; i < 5; i++) printf(" %d", *p++);
    printf("\n");
    for (int a = -1; a < 8; a += 3)
        for (int b = -1; b < 4; b += 2) printf("%d ", conditional(a, b));
    printf("\n%d\n", around_calls());
    printf("%d\n", in_memory(3));
    printf("%ld %ld\n", converted(0), converted(-12345));
    printf("%d\n", ordered(2));
    for (int n = 1; n < 4; n++) printf("%d\n", chains(n));
    const struct pair made = both((struct pair){4, 9});
    printf("%d %d\n", made.first, made.second);
    return 0;
}
