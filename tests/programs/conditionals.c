// Conditional expressions of every operand kind: integers of mixed width, structures, pointers, void, nested
// chains.
#include <stdint.h>
#include <stdio.h>

struct v {
    int16_t a, b, c;
};

static const struct v first = {1, 2, 3}, second = {4, 5, 6};
static int hits;
static void hit(int n) { hits = hits * 2 + n; }

static int grade(int s) { return s >= 90 ? 'A' : s >= 80 ? 'B' : s >= 70 ? 'C' : s >= 0 ? 'F' : '?'; }
static struct v pick(int c) { return c ? first : second; }
static const struct v* choose(int c) { return c < 0 ? 0 : c & 1 ? &first : &second; }
static int32_t widen(int c, int16_t s, int32_t l) { return c ? s : l; }
static int median(int a, int b, int c) {
    if (a > b) {
        if (b > c) return b;
        return a > c ? c : a;
    }
    if (a > c) return a;
    return b > c ? c : b;
}

static int dangling(int a, int b) {
    if (a)
        if (b)
            return 3;
        else
            return 2;
    else if (b)
        return 1;
    return 0;
}

static int chain(int n) {
    if (n < 0)
        hit(1);
    else if (n == 0)
        hit(0);
    else if (n < 10) {
        if (n % 2) hit(1);
    } else if (!(n & 1) && (n > 50 || n % 3 == 0))
        hit(0);
    else if (n == 11 || n == 13)
        ;
    else
        hit(1);
    return hits;
}

int main(void) {
    printf("%c%c%c%c%c\n", grade(95), grade(80), grade(79), grade(0), grade(-1));
    printf("%d %d %d\n", pick(1).a, pick(0).b, (hits ? first : second).c);
    struct v copy = choose(3) ? *choose(3) : second;
    printf("%d %d %d\n", copy.b, choose(-1) == 0, choose(2)->a);
    printf("%ld %ld %ld\n", (long)widen(1, -1, 5), (long)widen(0, 1, -70000L), (long)(hits ? 1 : -100000L));
    int set[3] = {9, 4, 7};
    for (int i = 0; i < 3; i++)
        for (int j = 0; j < 3; j++) printf("%d ", median(set[i], set[j], set[(i + j) % 3]));
    printf("\n");
    for (int i = 0; i < 4; i++) printf("%d ", dangling(i & 1, i >> 1));
    for (int i = -1; i < 16; i++) chain(i);
    chain(60);
    printf("%d\n", hits);
    int x = 0;
    x ? hit(1) : (void)0;
    x == 0 ? hit(0) : hit(1);
    printf("%d\n", hits);
    int a = 3, b = 5;
    *(a > b ? &a : &b) += 10;
    (a < b ? &a : &b)[0]--;
    printf("%d %d\n", a, b);
    float f = a ? 1.5f : b;
    int truth = (a && b) == !(!a || !b);
    printf("%f %d %d\n", f, truth, a > 1 == b > 1);
    const char* s = b ? "yes" : 0;
    printf("%s %s\n", s ? s : "null", "odd\0even" + (b % 2 ? 0 : 4));
    return 0;
}
