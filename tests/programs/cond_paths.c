// Tests whose outcome is known on some ways, values that only some ways need, and what keeps them in place.

#include <setjmp.h>
#include <stdio.h>

static int trace_length;
static unsigned trace_hash;

static int note(int what) {
    trace_length++;
    trace_hash = trace_hash * 31u + (unsigned)what;
    return what;
}

static int g, h;
static volatile int watched;

// Flags set in arms, through copies and increments, with something else ahead of the test.
static int flags(int p, int q) {
    int x, y = 0;
    if (p > 3) {
        note(1);
        x = 1;
    } else {
        x = y;
        note(2);
    }
    g += q;
    h ^= g;
    if (x) {
        note(3);
        y = 2;
    } else if (q == 5) {
        y = x - 1;
    }
    y++;
    if (y == 3) note(4);
    if (y == 0) note(5);
    return y;
}

// A state machine: each state knows the next one, and the way back goes by the loop's head.
static int machine(const char* text) {
    int state = 0, words = 0, i;
    for (i = 0;; i++) {
        char c = text[i];
        if (c == 0) break;
        switch (state) {
            case 0:
                if (c != ' ') {
                    words++;
                    state = 1;
                }
                break;
            case 1: state = c == ' ' ? 0 : c == '"' ? 2 : 1; break;
            case 2:
                if (c == '"') state = 1;
                break;
            default: note(99);
        }
        if (state == 2) note(i);
    }
    return words * 10 + state;
}

// Loops that a flag ends, with `continue` and a second way into the body.
static int searches(const int* values, int count, int wanted) {
    int i = 0, found = 0, skipped = 0;
    while (!found) {
        if (i >= count) break;
        if (values[i] < 0) {
            skipped++;
            i++;
            continue;
        }
        if (values[i] == wanted) found = 1;
        i++;
    }
    return found ? i * 100 + skipped : -skipped;
}

static int enters_in_the_middle(int n, int skip_first) {
    int sum = 0, first = 1;
    if (skip_first) goto middle;
    while (n > 0) {
        if (first) {
            sum += 1000;
            first = 0;
        } else {
            sum += n;
        }
    middle:
        n--;
        if (sum > 5000) first = 1;
    }
    return sum + first;
}

static int nested(int limit) {
    int i, j, k, sum = 0;
    for (i = 0; i < 4; i++)
        for (j = 0; j < limit; j++) {
            int done = 0;
            for (k = 0; k < 3 && !done; k++) {
                if ((i + j + k) % 4 == 3) done = 1;
                sum += i * j - k;
            }
            if (!done) sum += 100;
        }
    return sum;
}

// Tests that follow from others, or look like it. Unsigned numbers wrap at 16 bits.
static int follows(int p, unsigned u, int q) {
    int r = 0;
    if (p > 3 && q < 10) r |= 1;
    note(r);
    if (p <= 3) r |= 2;
    if (q >= 10) r |= 4;
    if (u > 65530u) {
        u += 10u;
        note(6);
        if (u > 65530u) r |= 8;
        if (u < 5u) r |= 16;
    }
    if (p == 7)
        q = p;
    else
        q = 8;
    note(q);
    if (q == 7) r |= 32;
    if (q != p) r |= 64;
    return r;
}

// What a test reads may change on the way: by a call, a store through a pointer, from outside.
static void set_g(int value) { g = value; }

static int changes(int p) {
    int x = 1, *to = p & 1 ? &x : &g, r = 0;
    g = 0;
    if (p & 2) note(7);
    *to = 5;
    if (x == 1) r |= 1;
    if (g == 0) r |= 2;
    g = 3;
    if (p & 4) set_g(4);
    if (g == 3) r |= 4;
    watched = p;
    if (watched == p) r |= 8;
    if (watched != p) r |= 16;
    return r;
}

// Values for one way: in order, not past what changes their operands, not if the other way reads them.
static int values(int a, int b, int way) {
    int x = a * b, y = x + 3, z = g, w = a - b;
    x += y;
    g = a;
    if (way == 12345) return x * 7 - y + z;
    b = a + w;
    x = b * 3;
    if (way > 2) {
        note(x);
        return b - z;
    }
    a = 9;
    if (way == 1) return w;
    return x + a;
}

static int last_in_loop(const int* p, int n) {
    int i, last = -1, twice = 0, sum = 0;
    for (i = 0; i < n; i++) {
        last = i * 3;
        twice = p[i] * 2;
        if (p[i] == 77) return last + twice;
        sum += p[i];
    }
    return sum - twice;
}

// A second return finds the variable as it was left.
static jmp_buf place;
static int returns_twice(int n) {
    volatile int turns = 0;
    int back = setjmp(place);
    int known = 0;
    if (turns == 0) known = 1;
    turns++;
    if (back < n) longjmp(place, back + 1);
    if (known) return 1000 + turns;
    return turns;
}

int main(void) {
    static const int numbers[] = {5, -1, 8, 77, -2, 3, 9};
    int i;
    for (i = 0; i < 8; i++)
        printf("%d %d %d %d\n", flags(i, 5 - i % 2), g, h, follows(i, 65528u + (unsigned)i, i * 2));
    printf("%d %d %d\n", machine("one two  three"), machine(" a \"b c\" d"), machine("x\""));
    printf("%d %d %d\n", searches(numbers, 7, 8), searches(numbers, 7, 3), searches(numbers, 7, 50));
    printf("%d %d %d\n", enters_in_the_middle(7, 0), enters_in_the_middle(7, 1), enters_in_the_middle(0, 0));
    printf("%d %d\n", nested(5), nested(0));
    for (i = 0; i < 8; i++) printf("%d ", changes(i));
    printf("\n%d %d %d %d\n", values(3, 4, 12345), values(3, 4, 3), values(3, 4, 1), values(3, 4, 0));
    printf("%d %d %d\n", last_in_loop(numbers, 3), last_in_loop(numbers, 7), last_in_loop(numbers, 0));
    printf("%d\n", returns_twice(3));
    printf("%d %u\n", trace_length, trace_hash);
    return 0;
}
