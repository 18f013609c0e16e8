// Members, elements and bit-fields that are stored and read again: through unions, pointers, indices that are
// not known, copies, calls, volatile members and ways that join.
#include <stdint.h>
#include <stdio.h>

struct inner {
    int16_t x, y;
};
struct outer {
    int16_t n;
    int32_t l;
    struct inner in[3];
    unsigned low : 3, high : 5;
    signed sign : 4;
    volatile int16_t v;
    float f;
};
union views {
    int32_t l;
    int16_t i[2];
    uint16_t u[2];
    float f;
};

static struct outer shared, other;
static int16_t table[6];
static int16_t calls;

static int16_t touch(void) {
    shared.n += 1;
    return ++calls;
}
static int16_t look(const int16_t* p) { return *p; }
static struct outer make(int16_t n) {
    struct outer o = {n, n * 3, {{n, 1}, {2, n}, {3, 4}}, 5, 6, -3, 1, 0.5f};
    return o;
}

static int16_t members(int16_t x) {
    struct outer o;
    o.n = 5;
    o.in[1].y = x;
    o.in[2].x = o.n;
    o.l = o.in[1].y * (int32_t)1000;
    x = 9;
    o.in[0].x = o.in[1].y;
    return o.n + o.in[0].x + o.in[2].x + (int16_t)(o.l / 500) + x;
}
static void unions(int32_t k) {
    union views v;
    v.l = k;
    v.i[0] = 5;
    printf("%ld %d %u\n", (long)v.l, v.i[1], (unsigned)v.u[0]);
    v.i[1] = 2;
    v.l = k;
    v.u[1] = 0xffff;
    printf("%d %d %ld\n", v.i[0], v.i[1], (long)v.l);
    v.f = 1.0f;
    v.i[0] = v.i[0];
    printf("%f %lx\n", v.f, (long)v.l);
}
static void unknown_places(int16_t i) {
    int16_t a[6] = {0, 1, 2, 3, 4, 5};
    a[1] = 50;
    a[i] = 60;
    a[2] = a[1];
    table[2] = 7;
    table[i] = 8;
    table[3] = table[2];
    *(&a[0] + i + 1) = 70;
    printf("%d %d %d %d %d %d\n", a[0], a[1], a[2], a[3], table[2], table[3]);
}
static void calls_between(void) {
    shared.n = 5;
    int16_t before = shared.n;
    touch();
    shared.l = shared.n;
    shared.n = 5;
    printf("%d %ld %d ", before, (long)shared.l, shared.n);
    int16_t sum = shared.n + touch() * 100;
    sum += shared.n;
    printf("%d\n", sum);
}
static void pointers(int16_t* p, struct outer* q) {
    shared.in[0].x = 1;
    shared.in[0].y = 2;
    *p = 30;
    q->in[0].y = shared.in[0].x;
    printf("%d %d\n", shared.in[0].x, shared.in[0].y);
}
static void bits(int16_t k) {
    shared.low = 13;
    shared.high = 63;
    shared.sign = 9;
    printf("%d %d %d ", shared.low, shared.high, shared.sign);
    shared.low = k;
    shared.high = shared.low;
    shared.low = shared.high + 7;
    shared.sign = k;
    printf("%d %d %d\n", shared.low, shared.high, shared.sign);
}
static void copies(int16_t k) {
    struct outer a = make(k), b;
    a.n = 7;
    b = a;
    a.n = 8;
    b.in[1] = a.in[2];
    a.in[2].x = 44;
    other = b;
    b = a;
    other.in[0].y = b.in[2].x;
    printf("%d %d %d %d %d %d %f\n", a.n, b.n, other.n, other.in[1].x, other.in[0].y, other.sign, other.f);
}
static void volatiles(void) {
    shared.v = 3;
    shared.v = 3;
    int16_t v = shared.v + shared.v;
    shared.v = v;
    printf("%d\n", shared.v);
}
static int16_t ways(int16_t c) {
    struct inner a = {1, 2}, b;
    b.x = 3;
    b.y = 4;
    if (c > 2) {
        b.x = a.x + c;
        a.y = b.x;
    } else if (c == 1) {
        return b.y;
    }
    a.x = look(&b.x);
    b.y = 9;
    while (c-- > 0) {
        a.x += b.x;
        if (c == 1) b.x = a.y;
        table[0] = a.x;
    }
    b.x = 100;
    return a.x + a.y + table[0];
}
static void effects(void) {
    struct inner a;
    a.x = touch();
    a.x = touch();
    a.y = (a.x = 5, touch());
    table[touch() % 6] = 1;
    printf("%d %d %d\n", a.x, a.y, calls);
}

int main(void) {
    printf("%d\n", members(4));
    unions(0x12345678);
    for (int16_t i = 1; i < 4; i++) unknown_places(i);
    calls_between();
    pointers(&shared.in[0].x, &shared);
    pointers(&table[0], &other);
    bits(3);
    bits(-3);
    copies(2);
    volatiles();
    for (int16_t c = 0; c < 5; c++) printf("%d ", ways(c));
    effects();
    return 0;
}
