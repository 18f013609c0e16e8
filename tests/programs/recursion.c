// Recursion: deep, mutual, tail calls, several calls per level, arrays and statics along the way.
#include <stdint.h>
#include <stdio.h>

static int16_t depth_sum(int16_t n) { return n == 0 ? 0 : (int16_t)(1 + depth_sum((int16_t)(n - 1))); }

static uint16_t tail_gcd(uint16_t a, uint16_t b) { return b ? tail_gcd(b, a % b) : a; }

static int is_odd(int16_t n);
static int is_even(int16_t n) { return n == 0 || is_odd((int16_t)(n - 1)); }
static int is_odd(int16_t n) { return n != 0 && is_even((int16_t)(n - 1)); }

static int16_t ackermann(int16_t m, int16_t n) {
    if (m == 0) return (int16_t)(n + 1);
    if (n == 0) return ackermann((int16_t)(m - 1), 1);
    return ackermann((int16_t)(m - 1), ackermann(m, (int16_t)(n - 1)));
}

static int32_t fib(int16_t n) { return n < 2 ? n : fib((int16_t)(n - 1)) + fib((int16_t)(n - 2)); }

static int16_t moves;
static int16_t pegs[3][8], heights[3];
static void hanoi(int16_t n, int from, int to) {
    if (n == 0) return;
    int via = 3 - from - to;
    hanoi((int16_t)(n - 1), from, via);
    pegs[to][heights[to]++] = pegs[from][--heights[from]];
    moves++;
    hanoi((int16_t)(n - 1), via, to);
}

static void permute(char* s, int at, int len, int* count) {
    if (at == len) {
        if (++*count % 5 == 0) printf("%s ", s);
        return;
    }
    for (int i = at; i < len; i++) {
        char t = s[at];
        s[at] = s[i];
        s[i] = t;
        permute(s, at + 1, len, count);
        t = s[at];
        s[at] = s[i];
        s[i] = t;
    }
}

static void digits(uint32_t n, unsigned base) {
    if (n >= base) digits(n / base, base);
    putchar("0123456789abcdef"[n % base]);
}

static int32_t hofstadter_f(int16_t n);
static int32_t hofstadter_m(int16_t n) {
    return n == 0 ? 0 : n - hofstadter_f((int16_t)hofstadter_m((int16_t)(n - 1)));
}
static int32_t hofstadter_f(int16_t n) {
    return n == 0 ? 1 : n - hofstadter_m((int16_t)hofstadter_f((int16_t)(n - 1)));
}

int main(void) {
    printf("%d %u %d %d\n", depth_sum(700), (unsigned)tail_gcd(46368u, 28657u), is_even(300), is_odd(300));
    printf("%d %ld\n", ackermann(2, 9), (long)fib(15));
    for (int i = 0; i < 7; i++) pegs[0][i] = (int16_t)(7 - i);
    heights[0] = 7;
    hanoi(7, 0, 2);
    printf("%d %d %d %d\n", moves, heights[2], pegs[2][0], pegs[2][6]);
    char s[] = "abcd";
    int count = 0;
    permute(s, 0, 4, &count);
    printf("%d %s\n", count, s);
    digits(4000000000ul, 10);
    putchar(' ');
    digits(48879ul, 16);
    putchar(' ');
    digits(37, 2);
    putchar('\n');
    for (int16_t i = 0; i < 16; i++) printf("%ld %ld ", (long)hofstadter_f(i), (long)hofstadter_m(i));
    printf("\n");
    return 0;
}
