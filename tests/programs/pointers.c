// Pointers: arithmetic in elements, differences, comparisons, pointers to pointers, and aliases that must be
// seen.
#include <stdint.h>
#include <stdio.h>

struct item {
    int32_t key;
    int16_t data[3];
};

static struct item items[8];
static int16_t shared = 5;
static int16_t* alias = &shared;
static int16_t numbers[10] = {9, 8, 7, 6, 5, 4, 3, 2, 1, 0};

static void swap(int16_t** a, int16_t** b) {
    int16_t* t = *a;
    *a = *b;
    *b = t;
}

static int16_t through(int16_t* a, int16_t* b) {
    *a = 1;
    *b = 2;
    return *a; // 2 when both name one object
}

static int16_t* find(int16_t* from, int16_t* end, int16_t what) {
    for (; from != end; ++from)
        if (*from == what) return from;
    return 0;
}

static void copy(int16_t* restrict to, const int16_t* restrict from, int n) {
    while (n--) *to++ = *from++;
}

int main(void) {
    for (struct item* p = items; p < items + 8; p++) {
        p->key = (int32_t)(p - items) * 70000L;
        for (int16_t* d = p->data; d < p->data + 3; d++) *d = (int16_t)((p - items) * 10 + (d - p->data));
    }
    struct item *last = &items[7], *mid = last - 3;
    printf("%d %d %ld %d\n", (int)(last - mid), (int)(items - last), (long)mid[-1].key, mid[2].data[1]);
    printf("%d %d %d\n", mid<last, mid == &items[4], last> items + 8);
    mid += 2;
    --mid;
    long before = mid++->key;
    printf("%ld %ld\n", before, (long)mid->key);
    int16_t* dp = &items[2].data[2];
    *dp-- = -1;
    *--dp = -2;
    printf("%d %d %d\n", items[2].data[0], items[2].data[1], items[2].data[2]);

    int16_t one = 11, two = 22, *a = &one, *b = &two;
    swap(&a, &b);
    (*a)++;
    *b += 5;
    printf("%d %d\n", one, two);
    int16_t apart = through(&one, &two), same = through(&one, &one);
    printf("%d %d %d\n", apart, same, one);
    *alias += 3;
    int16_t seen = shared;
    alias = &one;
    *alias = 40;
    printf("%d %d %d\n", seen, shared, one);

    int16_t* f = find(numbers, numbers + 10, 3);
    printf("%d %d\n", (int)(f - numbers), find(numbers, f, 3) == 0);
    int16_t* pp[3] = {f, f + 1, f - 1};
    int16_t** q = pp;
    printf("%d %d %d\n", **q, *q[1], *(*(q + 2)));
    int16_t buf[10];
    copy(buf, numbers, 10);
    copy(buf + 1, numbers, 4);
    for (int i = 0; i < 10; i++) printf("%d ", buf[i]);
    printf("\n");
    const char *s = "pointer", *e = s;
    while (*e) e++;
    while (e > s) putchar(*--e);
    putchar('\n');
    void* v = &items[3];
    printf("%ld\n", (long)((struct item*)v)->key);
    int16_t idx = 4;
    printf("%d %d\n", idx[numbers], *(numbers + idx - 1));
    return 0;
}
