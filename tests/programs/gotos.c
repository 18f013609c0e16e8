// Jumps: loops made of goto, leaving nested loops, entering blocks and loops, code that two paths share.
#include <stdint.h>
#include <stdio.h>

static int collatz(long n) {
    int steps = 0;
again:
    if (n == 1) goto done;
    steps++;
    if (n & 1) goto odd;
    n /= 2;
    goto again;
odd:
    n = 3 * n + 1;
    goto again;
done:
    return steps;
}

static int find(int16_t m[4][5], int16_t what) {
    int i, j;
    for (i = 0; i < 4; i++)
        for (j = 0; j < 5; j++)
            if (m[i][j] == what) goto found;
    return -1;
found:
    return i * 10 + j;
}

// Two entries into one loop.
static int irreducible(int a, int n) {
    int r = 0;
    if (a) goto middle;
top:
    r += 3;
middle:
    r = r * 2 % 1001;
    if (--n > 0) goto top;
    return r;
}

static int cleanup(int fail_at) {
    int state = 0;
    if (fail_at == 0) goto out;
    state |= 1;
    if (fail_at == 1) goto undo1;
    state |= 2;
    if (fail_at == 2) goto undo2;
    state |= 4;
    return state;
undo2:
    state &= ~2;
    state += 16;
undo1:
    state &= ~1;
    state += 32;
out:
    return state;
}

static int into_block(int flag) {
    int x = 1;
    if (flag) goto inside;
    {
        int y;
        y = 5;
        x += y;
    inside:
        y = 7;
        x = x * 10 + y;
    }
    while (x < 2000) {
        x += 300;
        if (x % 7 == 0) goto escape;
    }
    return x;
escape:
    return -x;
}

int main(void) {
    int total = 0;
    for (long n = 1; n < 60; n++) total += collatz(n);
    printf("%d %d\n", collatz(871), total);
    int16_t m[4][5];
    for (int i = 0; i < 20; i++) m[i / 5][i % 5] = (int16_t)(i * 13 % 41);
    printf("%d %d %d %d\n", find(m, 0), find(m, 26), find(m, m[3][4]), find(m, 40));
    for (int n = 1; n < 8; n++) printf("%d %d ", irreducible(0, n), irreducible(1, n));
    printf("\n");
    for (int i = 0; i < 4; i++) printf("%d ", cleanup(i));
    printf("%d %d\n", into_block(0), into_block(1));
    return 0;
}
