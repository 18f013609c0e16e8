#include "shared.h"

struct scratch {
    long a[3];
    char b;
};
static int state = 30;
static const char* label(void) { return "other"; }

int table[] = {1, 2, 3, 4, 5};
struct node* head;
enum shade shade = DARK;
volatile int tick = 1;
int setting = 50;

int chosen(void) { return 2; }
int fallback(void);
WEAK int fallback(void) { return 20; }

struct node* push(struct node* n, struct node* next, int value) {
    n->value = value;
    n->next = next;
    head = n;
    return n;
}

int sum(const struct node* n) {
    int s = 0;
    for (; n; n = n->next) s += n->value;
    return s;
}

int table_length(void) { return sizeof table / sizeof *table + table[1]; }

int other_scratch(void) {
    struct scratch s = {{1, 2, 300}, 'a'};
    return (int)s.a[2] + (s.b == 'a');
}

int other_state(void) { return main_has(state++); }

static int bump(int by) {
    static int count = 50;
    count -= by;
    return count;
}

int other_bump(int by) { return bump(by) + bump(by); }
const char* other_label(void) { return label(); }
int apply(int (*f)(int), int argument) { return f(argument); }
int other_clamp(int n) { return clamp(n); }
int ticks(void) { return tick + tick; }
