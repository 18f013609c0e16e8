/* What is shared between files and what is not: names, types, weak definitions. */
#include "shared.h"
#include <stdio.h>

struct scratch {
    int a;
};                    /* another file has a larger one of this name */
static int state = 3; /* and a static of this name */
static const char* label(void) { return "main"; }

extern int table[];          /* its length is another file's business */
struct opaque* hidden(void); /* never complete here */
int hidden_value(struct opaque*);

WEAK int chosen(void) { return 1; } /* replaced by a strong one */
WEAK int fallback(void) { return 10; }
WEAK int setting = 5; /* replaced, too */

int main_has(int n) { return n + state; }

static int bump(int by) {
    static int count;
    count += by;
    return count;
}

static void show(const char* what, int value) { printf("%s: %d\n", what, value); }

int main(void) {
    struct scratch s = {4};
    struct node nodes[3];
    struct node* list = 0;
    int i;
    for (i = 0; i < 3; i++) list = push(&nodes[i], list, i + 1);
    show("sum", sum(list));
    show("head", head == list && head->next->value == 2);
    show("table", table[0] + table[3]);
    show("length", table_length());
    table[1] = 40;
    show("scratch", s.a + other_scratch());
    state++;
    show("state", state * 100 + other_state());
    bump(2);
    show("bump", bump(3) * 100 + other_bump(1));
    printf("%s %s\n", label(), other_label());
    for (i = 0; i < OPS; i++) printf("%d ", operations[i](7, 3));
    printf("%d\n", apply(main_has, 6));
    show("chosen", chosen());
    show("fallback", fallback());
    show("setting", setting);
    show("hidden", hidden_value(hidden()));
    both = swapped(both);
    printf("%d %ld\n", both.small, both.large);
    printf("%d %d\n", clamp(50), other_clamp(-50));
    printf("%d %d\n", total(3, 1, 2, 3), *where() == limits[1]);
    for (i = 0; i < 2; i++) show("volatile", tick);
    tick = 7;
    show("ticks", ticks());
    return shade == DARK ? 0 : 1;
}
