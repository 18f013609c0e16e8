// Enumerations: values given and counted on, negative, from expressions, as indexes, in switches and bit
// sets.
#include <stdio.h>

enum colour { RED, GREEN = 5, BLUE, NEGATIVE = -3, NEXT, ALIAS = BLUE };
enum bits { A = 1 << 0, B = 1 << 1, C = 1 << 2, ALL = A | B | C, MASK = ~ALL & 0xFF };
typedef enum { IDLE, RUN, WAIT, STOP, STATES } state;
enum { LENGTH = sizeof(int[7]) / sizeof(int), CHAR = 'x', PICK = LENGTH > 5 ? 100 : 200 };

static const char* const names[STATES] = {[IDLE] = "idle", [STOP] = "stop", [RUN] = "run", [WAIT] = "wait"};
static const state after[STATES] = {RUN, WAIT, STOP, IDLE};
static int visits[STATES];

static const char* name(enum colour c) {
    switch (c) {
        case RED: return "red";
        case GREEN: return "green";
        case BLUE: return "blue";
        case NEGATIVE: return "negative";
        case NEXT: return "next";
    }
    return "?";
}

static enum bits toggle(enum bits set, enum bits which) { return (enum bits)(set ^ which); }

struct lamp {
    enum colour colour;
    enum { OFF, ON } power;
};

int main(void) {
    printf("%d %d %d %d %d %d\n", RED, GREEN, BLUE, NEGATIVE, NEXT, ALIAS);
    printf("%d %d %d %d %d\n", ALL, MASK, LENGTH, CHAR, PICK);
    for (int c = -4; c < 7; c++) printf("%s ", name((enum colour)c));
    printf("\n");
    state s = IDLE;
    for (int i = 0; i < 10; i++) {
        visits[s] += i;
        printf("%s ", names[s]);
        s = s == WAIT && i > 5 ? IDLE : after[s];
    }
    printf("%d\n", s);
    for (s = IDLE; s < STATES; s++) printf("%d ", visits[s]);
    enum bits set = A;
    set = toggle(set, B);
    set = toggle(set, A);
    set |= C;
    printf("%d %d\n", set, (set & ALL) == (B | C));
    struct lamp l = {ALIAS, ON};
    l.power = l.colour == BLUE ? OFF : ON;
    printf("%d %d %d\n", l.power, l.colour > NEGATIVE, -1 < (int)RED);
    return 0;
}
