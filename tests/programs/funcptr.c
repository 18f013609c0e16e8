// Function pointers: tables, callbacks with context, pointers in structures, functions that return functions.
#include <stdint.h>
#include <stdio.h>

typedef int16_t (*binary)(int16_t, int16_t);

static int16_t add(int16_t a, int16_t b) { return (int16_t)(a + b); }
static int16_t sub(int16_t a, int16_t b) { return (int16_t)(a - b); }
static int16_t mul(int16_t a, int16_t b) { return (int16_t)(a * b); }
static int16_t max(int16_t a, int16_t b) { return a > b ? a : b; }

static const struct {
    const char* name;
    binary apply;
} table[] = {{"add", add}, {"sub", sub}, {"mul", &mul}, {"max", max}};

struct shape {
    const struct shape_ops* ops;
    int16_t a, b;
};
struct shape_ops {
    int32_t (*area)(const struct shape*);
    void (*scale)(struct shape*, int16_t);
};

static int32_t rect_area(const struct shape* s) { return (int32_t)s->a * s->b; }
static void rect_scale(struct shape* s, int16_t k) {
    s->a = (int16_t)(s->a * k);
    s->b = (int16_t)(s->b * k);
}
static int32_t tri_area(const struct shape* s) { return (int32_t)s->a * s->b / 2; }
static void tri_scale(struct shape* s, int16_t k) { s->a = (int16_t)(s->a * k); }
static const struct shape_ops rect_ops = {rect_area, rect_scale}, tri_ops = {tri_area, tri_scale};

static binary choose(char op) {
    switch (op) {
        case '+': return add;
        case '-': return sub;
        case '*': return mul;
        default: return 0;
    }
}

static int16_t fold(binary f, const int16_t* v, int n, int16_t start) {
    while (n-- > 0) start = f(start, *v++);
    return start;
}

static void each(int16_t n, void (*visit)(void*, int16_t), void* context) {
    for (int16_t i = 1; i <= n; i++) visit(context, i);
}
static void sum_visit(void* context, int16_t v) { *(int32_t*)context += v; }
static void product_visit(void* context, int16_t v) { *(int32_t*)context *= v; }

static int calls;
static void hook_a(void) { calls += 1; }
static void hook_b(void) { calls += 100; }
static void (*hook)(void) = hook_a;

int main(void) {
    static const int16_t v[] = {3, 1, 4, 1, 5};
    for (unsigned i = 0; i < sizeof table / sizeof table[0]; i++)
        printf("%s %d %d\n", table[i].name, table[i].apply(7, -3), fold(table[i].apply, v, 5, 2));
    for (const char* p = "+-*?"; *p; p++) {
        binary f = choose(*p);
        if (f)
            printf("%c %d %d\n", *p, f(6, 4), (*f)(4, 6));
        else
            printf("%c none\n", *p);
    }
    struct shape shapes[] = {{&rect_ops, 3, 4}, {&tri_ops, 6, 5}};
    int32_t area = 0;
    for (int i = 0; i < 2; i++) {
        shapes[i].ops->scale(&shapes[i], 10);
        area += shapes[i].ops->area(&shapes[i]);
    }
    printf("%ld\n", (long)area);
    int32_t s = 0, p = 1;
    each(100, sum_visit, &s);
    each(10, product_visit, &p);
    printf("%ld %ld\n", (long)s, (long)p);
    hook();
    hook = hook_b;
    hook();
    if (hook == hook_b) hook = 0;
    if (hook) hook();
    printf("%d %d\n", calls, hook == 0);
    printf("%d\n", choose('+') == add && choose('-') != add);
    printf("%d\n", (calls > 50 ? max : add)(8, 9));
    return 0;
}
