// Bit-fields of every shape: neighbours of one container, containers of several units, values that wrap,
// operands that change the container themselves, addresses with effects.
#include <stdint.h>
#include <stdio.h>

enum colour { RED, GREEN, BLUE };

struct mixed {
    uint16_t low : 3;
    int16_t mid : 6;
    uint16_t top : 7;
    char plain;
    uint32_t long_low : 20;
    int32_t long_top : 12;
    uint64_t huge : 37;
    int64_t rest : 20;
    _Bool flag : 1;
    enum colour hue : 2;
};

// The 64 bits around `odd` hold `tail` as well, so no integer stands for the field alone.
struct odd {
    uint64_t odd : 40;
    int16_t tail;
};

union shapes {
    struct {
        uint16_t nibble : 4;
        uint16_t others : 12;
    } parts;
    uint16_t direct : 9;
    uint16_t all;
};

static struct mixed global;
static volatile struct mixed device;

static void show(const struct mixed* m) {
    printf("%d %d %d %d %ld %ld %lx%06lx %ld %d %d\n", (int)m->low, (int)m->mid, (int)m->top, m->plain,
           (long)m->long_low, (long)m->long_top, (long)(m->huge >> 24), (long)(m->huge & 0xffffff),
           (long)m->rest, (int)m->flag, (int)m->hue);
}

static int16_t touch(void) {
    global.mid += 5;
    return global.mid;
}

static void stores(struct mixed* m, long n) {
    m->low = (uint16_t)n;
    m->mid = (int16_t)n;
    m->top = (uint16_t)(n >> 2);
    m->plain = 'x';
    m->long_low = (uint32_t)(n * 31L);
    m->long_top = (int32_t)-n;
    m->huge = (uint64_t)n << 20 | 5;
    m->rest = -n;
    m->flag = n & 4;
    m->hue = BLUE;
}

// Neighbours that are set together, with constants and without.
static struct mixed built(int n) {
    struct mixed local = {0};
    local.low = 5;
    local.mid = -7;
    local.top = 100;
    local.long_low = 0xfffff;
    local.long_top = -1;
    if (n > 2) local.mid = (int16_t)n;
    local.huge = ~0ULL;
    local.rest = local.mid;
    return local;
}

static void compound(struct mixed* m) {
    m->low += 6;
    m->mid *= -3;
    m->mid /= 2;
    m->top >>= 1;
    m->top <<= 2;
    m->low %= 5;
    m->long_low ^= 0xabcdeL;
    m->long_top -= 3000;
    m->huge += m->long_low;
    m->huge <<= 3;
    m->rest >>= 2;
    m->rest |= 1;
    m->flag += 1;
    m->hue = m->hue == BLUE ? RED : GREEN;
    m->low -= (uint16_t)(m->mid & 3);
}

// An unsigned field that `int` can hold is computed with as an `int`.
static int promoted(struct mixed* m) {
    m->low = 2;
    m->top = 10;
    const int below = m->low - 3 < 0;
    m->top /= -3;
    return below + 2 * (m->top == 125) + 4 * (-m->low < 1);
}

static long values(struct mixed* m) {
    long sum = (m->low = 13);
    sum = sum * 10 + (m->mid = 40);
    sum = sum * 10 + (m->top += 120);
    sum = sum * 10 + m->mid++;
    sum = sum * 10 + --m->low;
    sum = sum * 10 + (m->long_top = 2047) + m->long_top--;
    sum += (m->flag = 6) + m->flag;
    return sum + (m->rest = 1.9e5f);
}

static void effects(void) {
    struct mixed row[3] = {{0}}, *p = row;
    global.mid = 1;
    global.low = (uint16_t)touch();
    global.top = (uint16_t)(global.mid++ + 3);
    global.low = global.top = 77;
    printf("%d %d %d\n", (int)global.low, (int)global.mid, (int)global.top);
    p++->mid = 9;
    p->low = (p + 1)->mid = 12;
    (p += 1)->top += 3;
    int i = 0;
    row[i++].top = 50;
    row[i++].mid -= 20;
    printf("%d %d %ld\n", i, (int)row[i].mid, (long)(p - row));
    for (i = 0; i < 3; i++) printf("%d %d %d\n", (int)row[i].low, (int)row[i].mid, (int)row[i].top);
    if ((row[1].low = 8) || row[1].low++ || row[1].low++) printf("%d\n", (int)row[1].low);
}

static int views(int n) {
    union shapes u;
    u.all = 0x1234;
    u.parts.nibble += n;
    const int seen = u.all;
    u.direct = 0x155;
    return seen + u.parts.others;
}

int main(void) {
    struct mixed a = {0};
    for (long n = -70000; n < 80000; n += 29999) {
        stores(&a, n);
        show(&a);
        compound(&a);
        show(&a);
        printf("%d ", promoted(&a));
        printf("%ld\n", values(&a));
    }
    a = built(1);
    show(&a);
    a = built(9);
    show(&a);
    effects();
    printf("%d %d\n", views(3), views(14));
    struct odd o = {0x123456789aULL, -5};
    o.odd += 0xf000000000ULL;
    o.tail--;
    printf("%lx %lx %d\n", (long)(o.odd >> 20), (long)(o.odd & 0xfffff), o.tail);
    device.low = 3;
    device.mid = -3;
    device.low++;
    device.long_low |= device.low;
    printf("%d %d %ld\n", (int)device.low, (int)device.mid, (long)device.long_low);
    return 0;
}
