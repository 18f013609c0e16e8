// Bit-fields: signed and unsigned, truncation on store, compound assignment, neighbours left alone, wide
// members.
#include <stdint.h>
#include <stdio.h>

struct flags {
    unsigned ready : 1;
    unsigned mode : 3;
    signed level : 4;
    unsigned count : 7;
    unsigned : 0;
    signed tiny : 1;
    unsigned tail : 15;
};

struct wide {
    uint32_t low : 20;
    uint32_t high : 12;
    int32_t sval : 17;
};

static struct flags table[3] = {
    {1, 2, -3, 100, -1, 1000}, {.mode = 7, .tail = 32767}, {.level = -8, .ready = 1}};
volatile struct flags hw;

static void show(const struct flags* f) {
    printf("%u %u %d %u %d %u\n", f->ready, f->mode, f->level, f->count, f->tiny, f->tail);
}

static struct flags bump(struct flags f) {
    f.mode++;
    f.level--;
    f.count += 50;
    f.tail ^= 0x55;
    return f;
}

int main(void) {
    for (int i = 0; i < 3; i++) {
        show(&table[i]);
        table[i] = bump(table[i]);
        show(&table[i]);
    }
    struct flags f = {0};
    for (int i = 0; i < 20; i++) {
        f.mode = i & 7;
        f.level = (i & 15) - 8;
        f.count = (unsigned)i * 9 & 127;
        f.ready = !f.ready;
        if (i % 6 == 5) show(&f);
    }
    // The value of an assignment is what the field holds afterwards.
    int got = (f.mode = 13 & 7) + (f.level = -5);
    printf("%d\n", got);
    got = f.level++;
    printf("%d %d\n", got, f.level);
    got = --f.level;
    printf("%d %d\n", got, f.mode-- > 2);
    f.level *= 2;
    f.tail = 0;
    f.tail--;
    show(&f);

    struct wide w = {0xABCDE, 0xFED, -65536L};
    w.low += 0x54321;
    printf("%lx %lx %ld\n", (unsigned long)w.low, (unsigned long)w.high, (long)w.sval);
    w.low += 1;
    w.high <<= 4;
    w.sval /= 3;
    printf("%lx %lx %ld\n", (unsigned long)w.low, (unsigned long)w.high, (long)w.sval);
    hw.mode = 5;
    hw.count = 99;
    hw.ready |= 1;
    hw.count -= hw.mode;
    printf("%u %u %u\n", hw.ready, hw.mode, hw.count);
    return 0;
}
