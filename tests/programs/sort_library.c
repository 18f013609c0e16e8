// qsort and bsearch with callbacks of several kinds: numbers, pointers, structures with two keys.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

struct record {
    char name[8];
    int32_t weight;
    int16_t rank;
};

static int compares;

static int by_int(const void* a, const void* b) {
    compares++;
    int16_t x = *(const int16_t*)a, y = *(const int16_t*)b;
    return (x > y) - (x < y);
}
static int by_int_down(const void* a, const void* b) { return by_int(b, a); }
static int by_text(const void* a, const void* b) {
    return strcmp(*(const char* const*)a, *(const char* const*)b);
}
static int by_weight_then_name(const void* a, const void* b) {
    const struct record *x = a, *y = b;
    if (x->weight != y->weight) return x->weight < y->weight ? -1 : 1;
    return strcmp(x->name, y->name);
}
static int name_is(const void* key, const void* element) {
    return strcmp(key, ((const struct record*)element)->name);
}
static int by_name(const void* a, const void* b) {
    return strcmp(((const struct record*)a)->name, ((const struct record*)b)->name);
}

static struct record records[] = {{"lead", 11340, 1}, {"cork", 240, 2},      {"gold", 19300, 3},
                                  {"iron", 7870, 4},  {"water", 1000, 5},    {"tin", 7870, 6},
                                  {"ash", 240, 7},    {"osmium", 100000L, 8}};
enum { RECORDS = sizeof records / sizeof records[0] };

int main(void) {
    int16_t v[40];
    uint16_t seed = 7;
    for (int i = 0; i < 40; i++) {
        seed = (uint16_t)(seed * 251u + 13u);
        v[i] = (int16_t)(seed % 1000u) - 500;
    }
    qsort(v, 40, sizeof v[0], by_int);
    int ordered = 1;
    for (int i = 1; i < 40; i++) ordered &= v[i - 1] <= v[i];
    printf("%d %d %d %d %d\n", ordered, v[0], v[20], v[39], compares > 0);
    int16_t key = v[33];
    int16_t* hit = bsearch(&key, v, 40, sizeof v[0], by_int);
    printf("%d\n", hit && *hit == key);
    key = 600;
    printf("%d\n", bsearch(&key, v, 40, sizeof v[0], by_int) == NULL);
    qsort(v + 10, 5, sizeof v[0], by_int_down);
    printf("%d %d\n", v[10] >= v[11] && v[11] >= v[12], v[9] <= v[14]);

    const char* words[] = {"pear", "apple", "fig", "quince", "banana", "date"};
    qsort(words, 6, sizeof words[0], by_text);
    for (int i = 0; i < 6; i++) printf("%s ", words[i]);
    printf("\n");

    qsort(records, RECORDS, sizeof records[0], by_weight_then_name);
    for (int i = 0; i < RECORDS; i++)
        printf("%s:%ld:%d ", records[i].name, (long)records[i].weight, records[i].rank);
    printf("\n");
    qsort(records, RECORDS, sizeof records[0], by_name);
    static const char* const wanted[] = {"tin", "ash", "water", "air"};
    for (int i = 0; i < 4; i++) {
        struct record* r = bsearch(wanted[i], records, RECORDS, sizeof records[0], name_is);
        if (r)
            printf("%s %ld at %d\n", r->name, (long)r->weight, (int)(r - records));
        else
            printf("%s missing\n", wanted[i]);
    }
    return 0;
}
