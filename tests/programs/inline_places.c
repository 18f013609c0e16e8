/* Calls to inline functions at every place where a value can stand: what is around them keeps its order. */
#include <stdio.h>

static int trace;

static inline __attribute__((always_inline)) int mark(int n) {
    trace = (trace * 7 + n) & 0x3ff;
    printf("[%d]", n);
    return n;
}

static inline __attribute__((always_inline)) int bump(int *p) {
    *p += 3;
    return *p;
}

static inline __attribute__((always_inline)) void note(int n) { printf("(%d)", n); }

static inline __attribute__((always_inline)) int pick(int c, int a, int b) {
    if (c) return a;
    return b;
}

static int global = 5;

static inline __attribute__((always_inline)) int touch(void) {
    global += 10;
    return global;
}

static int plain(int a, int b, int c) {
    printf("<%d %d %d>", a, b, c);
    return a - b + c;
}

int main(void) {
    int a[4] = {1, 2, 3, 4}, i = 0, x = 7;
    /* Operands ahead of a call that changes them. */
    int r = global + 0 * i;
    r = r + touch();
    printf("%d %d\n", r, global);
    r = (x++, mark(1)) + (x++, mark(2)) * mark(3);
    printf(" %d %d\n", r, x);
    /* Arguments of calls that stay, and of calls that go. */
    r = plain(x, pick(i, 2, mark(3)), x + 1);
    printf(" %d\n", r);
    r = pick(pick(1, 0, mark(1)), pick(0, 2, 3), bump(&x));
    printf(" %d %d\n", r, x);
    /* Under a condition: only the arm that is taken. */
    for (i = 0; i < 4; i++) {
        r = i & 1 ? mark(i) : i == 2 ? mark(8) + mark(9) : -mark(7);
        printf(" %d", r);
        if (i > 1 && mark(i) && mark(5) > 4) printf(" and");
        if (i == 0 || !mark(6) || mark(i) == 2) printf(" or");
        r = (i && mark(i)) + (!i || mark(4));
        printf(" %d\n", r);
    }
    i & 1 ? note(1) : note(2);
    i == 4 && (note(3), 1);
    /* Places: an index, a pointer, both sides of an assignment. */
    a[mark(1)] = x;
    a[2] += mark(3);
    a[mark(3)] -= x;
    *(mark(0) ? &a[0] : &a[mark(3)]) = 40;
    (&x)[mark(0)]++;
    printf(" %d %d %d %d %d\n", a[0], a[1], a[2], a[3], x);
    /* Transfers. */
    switch (mark(2)) {
        case 1: printf("one"); break;
        case 2: printf("two"); /* falls */
        default: printf("other");
    }
    while (mark(i--) > 2) note(i);
    do i++; while (bump(&x) < 30 && mark(i) < 9);
    printf(" %d %d\n", i, x);
    for (int k = mark(1); k < mark(3); k += mark(1)) note(k);
    printf("\n%d\n", trace);
    return pick(mark(0), 1, 0);
}
