// Initialisers: partial, designated, nested, strings, addresses with offsets, compound literals, constants of
// all kinds.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

struct inner {
    int16_t a, b;
    char tag[4];
};
struct outer {
    int32_t id;
    struct inner in[3];
    const char* name;
    int16_t* where;
    union {
        int16_t i;
        int32_t l;
    } u;
};

static int16_t base[10] = {1, 2, 3, [7] = 8, 9, [4] = 5};
static int16_t matrix[3][4] = {{1, 2}, [2] = {5, 6, 7, 8}, [1][3] = 4};
static int16_t flat[2][3] = {1, 2, 3, 4};
static char text[] = "sized", padded[8] = "pad", exact[3] = "xyz";
static const char* const strings[] = {[2] = "two", [0] = "zero"};
static struct outer things[3] = {
    {.id = 70000L,
     .in = {{1, 2, "ab"}, [2].b = 9, [2].tag = {'q'}},
     .name = "first",
     .where = &base[3],
     .u.l = 100000L},
    [2] = {-1, {{.b = 5}, 3, 4, "cd"}, &text[2], base + 7, {-7}},
};
static struct outer* const link = &things[2];
static int16_t* const inside = &things[0].in[2].b;
static uint16_t computed = (uint16_t)(sizeof base / sizeof base[0] * 3 + (1 << 4) - 'A' % 7);
static int32_t folded = 1000L * 1000 - (5 > 3 ? 7 : 8) + ~0;
static float scale = 1.0f / 4 + 2;
static int (*const compare)(const char*, ...) = printf;
static struct inner* literal = &(struct inner){11, 12, "lit"};
static int16_t* numbers = (int16_t[]){5, 6, 7};

static int16_t sum(const int16_t* p, int n) {
    int16_t s = 0;
    while (n--) s += *p++;
    return s;
}

static int16_t total(struct inner v) { return (int16_t)(v.a * 100 + v.b * 10 + v.tag[0]); }

int main(void) {
    for (int i = 0; i < 10; i++) printf("%d ", base[i]);
    for (int i = 0; i < 3; i++)
        for (int j = 0; j < 4; j++) printf("%d ", matrix[i][j]);
    printf("%d %d\n", flat[1][0], flat[1][2]);
    printf("%d %s %d %s %d %c %s %s %d\n", (int)(sizeof text / sizeof text[0]), text, padded[7], padded,
           (int)sizeof exact, exact[2], strings[0], strings[2], strings[1] == NULL);
    for (int i = 0; i < 3; i++) {
        struct outer* t = &things[i];
        printf("%ld %d %d %s %s %d %d\n", (long)t->id, t->in[0].b, t->in[2].b, t->in[1].tag,
               t->name ? t->name : "-", t->where ? *t->where : 0, t->u.i == (int16_t)t->u.l);
    }
    printf("%ld %d %u %ld %f\n", (long)link->id, *inside, (unsigned)computed, (long)folded, scale);
    compare("%d %s %d\n", literal->b, literal->tag, numbers[2]);

    // Automatic objects take values known only when the program runs.
    int16_t n = base[2];
    int16_t local[6] = {n, [3] = (int16_t)(n * 2), (int16_t)(n * 3)};
    struct inner v = {.b = n, .a = base[7]}, w = v, list[2] = {v, {.tag = "z"}};
    printf("%d %d %d %d\n", sum(local, 6), total(v), total(w), list[0].a + list[1].tag[0] + list[1].tag[1]);
    printf("%d %d\n", total((struct inner){n, (int16_t)(n + 1), "A"}), sum((int16_t[4]){1, n, [3] = 10}, 4));
    int16_t* again = 0;
    for (int i = 0; i < 3; i++) {
        int16_t fresh[3] = {(int16_t)i};
        fresh[1] += 5;
        int16_t* p = (int16_t[]){(int16_t)(i * 2), 1};
        p[1] += *p;
        again = p;
        printf("%d %d ", fresh[1], again[1]);
    }
    char greeting[] = "hi", wide[6] = {'a', [4] = 'e'};
    greeting[0] -= 32;
    printf("%s %s%s %d\n", greeting, wide, &wide[4], (int)sizeof greeting);
    return 0;
}
