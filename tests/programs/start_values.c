// What main stores first, and what may not come from the initialisers: values that were read before, objects
// that a pointer leads to, halves and bits of initialised words.
#include <stdint.h>
#include <stdio.h>

struct record {
    int16_t n;
    int32_t l;
    int16_t a[4];
    unsigned low : 3, high : 5;
    float f;
    const char* name;
    struct record* next;
};
static struct record first = {1, 2, {3, 4, 5}, 6, 7, 1.5f, "one"}, second;
static union {
    int32_t l;
    int16_t i[2];
} mixed = {0x12345678};
static int16_t plain = 4, read_first = 5, stepped = 6, late = 7, seen_by_pointer = 8, kept;
static int16_t* way = &seen_by_pointer;
static int16_t table[6] = {1, 2, 3};
static char word[4] = "abc";
static volatile int16_t port = 3;

static int16_t report(void) { return plain + late; }

int main(void) {
    static int16_t own = 1;
    int16_t before = read_first;
    plain = 40;
    own = 2;
    first.l = -2;
    first.a[2] = 50;
    first.high = 31;
    first.f = 2.5f;
    first.name = "two";
    first.next = &second;
    second.a[3] = 9;
    second.low = 5;
    mixed.i[1] = 99;
    table[4] = 5;
    table[0] = 0;
    table[4] = 6;
    word[1] = 'x';
    read_first = 50;
    stepped += 2;
    stepped = stepped * 2;
    *way = 80;
    seen_by_pointer = 81;
    int16_t ported = port;
    port = 4;
    kept = 12;
    int16_t reported = report();
    late = 70;
    printf("%d %d %d %d %d %d %d\n", before, plain, own, read_first, stepped, seen_by_pointer, *way);
    printf("%d %ld %d %d %d %d %f %s %d\n", first.n, (long)first.l, first.a[2], first.a[3], first.low,
           first.high, first.f, first.name, first.next->a[3]);
    printf("%d %d %ld %d %d %d %d %s\n", second.low, second.n, (long)mixed.l, mixed.i[0], table[0], table[4],
           table[1], word);
    printf("%d %d %d %d %d %d\n", ported, port, kept, reported, late, report());
    return 0;
}
