// A hash table with open addressing and deletion marks: word counts over a text, growth, lookups, removals.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

struct entry {
    const char* key;
    int16_t length;
    int16_t value;
};
struct table {
    struct entry* slots;
    uint16_t size, used, filled;
};

static const char gone[] = "";
static const char text[] =
    "the cat sat on the mat and the dog sat on the cat while a bird over the mat saw the cat and the dog and "
    "a fish "
    "in the pond under the tree by the house where the old man and the child read the book on the bench";

static uint32_t hash(const char* s, int n) {
    uint32_t h = 2166136261ul;
    while (n-- > 0) {
        h ^= (uint32_t)*s++;
        h *= 16777619ul;
    }
    return h;
}

static struct entry* probe(const struct table* t, const char* key, int n, int insert) {
    uint16_t at = (uint16_t)(hash(key, n) % t->size);
    struct entry* free_slot = NULL;
    for (uint16_t i = 0; i < t->size; i++) {
        struct entry* e = &t->slots[at];
        if (!e->key) return insert ? (free_slot ? free_slot : e) : NULL;
        if (e->key == gone) {
            if (!free_slot) free_slot = e;
        } else if (e->length == n && memcmp(e->key, key, (size_t)n) == 0) {
            return e;
        }
        if (++at == t->size) at = 0;
    }
    return insert ? free_slot : NULL;
}

static int16_t* put(struct table* t, const char* key, int n);

static void grow(struct table* t) {
    struct table bigger = {calloc((size_t)t->size * 2 + 1, sizeof(struct entry)), (uint16_t)(t->size * 2 + 1),
                           0, 0};
    if (!bigger.slots) abort();
    for (uint16_t i = 0; i < t->size; i++) {
        struct entry* e = &t->slots[i];
        if (e->key && e->key != gone) *put(&bigger, e->key, e->length) = e->value;
    }
    free(t->slots);
    *t = bigger;
}

static int16_t* put(struct table* t, const char* key, int n) {
    if ((t->filled + 1) * 4 > t->size * 3) grow(t);
    struct entry* e = probe(t, key, n, 1);
    if (!e->key || e->key == gone) {
        if (!e->key) t->filled++;
        e->key = key;
        e->length = (int16_t)n;
        e->value = 0;
        t->used++;
    }
    return &e->value;
}

static int cut(struct table* t, const char* key, int n) {
    struct entry* e = probe(t, key, n, 0);
    if (!e) return -1;
    e->key = gone;
    t->used--;
    return e->value;
}

int main(void) {
    struct table t = {calloc(7, sizeof(struct entry)), 7, 0, 0};
    if (!t.slots) abort();
    const char* s = text;
    while (*s) {
        const char* e = s;
        while (*e && *e != ' ') e++;
        ++*put(&t, s, (int)(e - s));
        s = *e ? e + 1 : e;
    }
    printf("%u words in %u\n", (unsigned)t.used, (unsigned)t.size);
    static const char* const ask[] = {"the", "cat", "and", "bench", "horse", "a"};
    for (int i = 0; i < 6; i++) {
        struct entry* e = probe(&t, ask[i], (int)strlen(ask[i]), 0);
        printf("%s %d, ", ask[i], e ? e->value : 0);
    }
    printf("\n");
    printf("%d %d %d\n", cut(&t, "the", 3), cut(&t, "horse", 5), cut(&t, "cat", 3));
    printf("%d %d\n", cut(&t, "the", 3), probe(&t, "dog", 3, 0)->value);
    *put(&t, "the", 3) = 77;
    int32_t weight = 0;
    for (uint16_t i = 0; i < t.size; i++)
        if (t.slots[i].key && t.slots[i].key != gone) weight += (int32_t)t.slots[i].value * t.slots[i].length;
    printf("%u %ld\n", (unsigned)t.used, (long)weight);
    for (int round = 0; round < 200; round++) {
        put(&t, text + round, 3 + round % 3);
        if (round % 2) cut(&t, text + round - 1, 3 + (round - 1) % 3);
    }
    printf("%u\n", (unsigned)t.used);
    free(t.slots);
    return 0;
}
