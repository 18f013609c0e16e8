// Order of evaluation where C fixes it: comma, conditional, short circuit, calls; every side effect exactly
// once.
#include <stdint.h>
#include <stdio.h>

static char log_text[200];
static int log_length;

static int note(char c, int value) {
    log_text[log_length++] = c;
    log_text[log_length] = 0;
    return value;
}

static void flush(int value) {
    printf("%s=%d\n", log_text, value);
    log_length = 0;
    log_text[0] = 0;
}

static int* cell(int* base, int i) {
    note((char)('0' + i), 0);
    return base + i;
}

static int three(int a, int b, int c) { return a * 100 + b * 10 + c; }

int main(void) {
    for (int i = 0; i < 8; i++) {
        int a = i & 1, b = i >> 1 & 1, c = i >> 2 & 1;
        flush(note('a', a) && note('b', b) && note('c', c));
        flush(note('a', a) || note('b', b) || note('c', c));
        flush((note('a', a) && note('b', b)) || (note('c', c) && !note('d', a)));
        flush(note('a', a) ? note('b', b) ? 1 : 2 : note('c', c) ? 3 : 4);
        flush(!(note('a', a) || !note('b', b)) + (note('c', c) == 0));
    }
    int x = 0, v[4] = {10, 20, 30, 40};
    int r = (x = 5, x += 2, note('x', x * 3));
    flush(r);
    flush((note('p', 1), note('q', 2), note('r', 3)));
    r = x > 3 ? (x--, x * 2) : (x++, x);
    printf("%d %d\n", r, x);
    if ((r = note('k', 4)) > 3 && (x = r, x++) == 4) r += x;
    flush(r);
    for (int i = 0, j = 9; i < j; i += 2, j--, note('.', 0)) r += i * j;
    flush(r);
    *cell(v, 1) += 5;
    (*cell(v, 2))++;
    r = *cell(v, 3) = *cell(v, 0) + 1;
    printf("%s %d %d %d %d\n", log_text, v[0], v[1], v[2], r);
    log_length = 0;
    // Nested calls: the inner one is finished before the outer one begins.
    r = three(1, note('i', three(0, 0, 2)), 3);
    flush(three(r % 7, note('j', 4), r & 1));
    int* p = v;
    r = *p++;
    r += *p++ * 2;
    r += *++p;
    r -= --*p;
    printf("%d %d %d\n", r, (int)(p - v), v[3]);
    int t = 0;
    while (t++ < 5 && note((char)('0' + t), t != 4)) {
    }
    flush(t);
    do
        if (t == 8)
            continue;
        else
            t++;
    while (note('w', t) < 8);
    flush(t);
    r = (t > 0 && x > 0) + (t < 0 || x < 0) * 2 + (t ? 4 : 8);
    flush(r);
    return 0;
}
