#include "shared.h"
#include <stdarg.h>

struct opaque {
    int secret[2];
};
static struct opaque state = {{6, 7}};
const int limits[2] = {-9, 9};
pair both = {1, 70000L};

static int plus(int a, int b) { return a + b; }
static int minus(int a, int b) { return a - b; }
static int times(int a, int b) { return a * b; }
operation* const operations[OPS] = {plus, minus, times};

struct opaque* hidden(void) {
    return &state;
}
int hidden_value(struct opaque* o) { return o->secret[0] * o->secret[1]; }
const int* where(void) { return limits + 1; }

pair swapped(pair p) {
    pair q;
    q.small = (int)(p.large / 10000);
    q.large = p.small;
    return q;
}

int total(int count, ...) {
    va_list list;
    int n = 0;
    va_start(list, count);
    while (count-- > 0) n += va_arg(list, int);
    va_end(list);
    return n;
}
