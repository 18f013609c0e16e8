// A table-driven state machine: a lift controller fed with a script of events, with queues, timers and a log.
#include <stdint.h>
#include <stdio.h>

enum state { STANDING, OPENING, OPEN, CLOSING, MOVING, HALTED, STATE_COUNT };
enum event { TICK, CALL, BLOCKED, STOP, RESET, EVENT_COUNT };

struct lift {
    enum state state;
    int16_t floor, target, timer, travelled;
    uint16_t calls; // one bit per floor
    int16_t opened[8];
};

typedef enum state (*action)(struct lift*, int16_t);

static int16_t choose(const struct lift* l) {
    for (int16_t d = 0; d < 8; d++) {
        if (l->floor + d < 8 && l->calls >> (l->floor + d) & 1) return (int16_t)(l->floor + d);
        if (l->floor - d >= 0 && l->calls >> (l->floor - d) & 1) return (int16_t)(l->floor - d);
    }
    return -1;
}

static enum state keep(struct lift* l, int16_t arg) {
    (void)arg;
    return l->state;
}
static enum state take_call(struct lift* l, int16_t floor) {
    l->calls |= (uint16_t)(1u << (floor & 7));
    return l->state;
}
static enum state depart(struct lift* l, int16_t arg) {
    (void)arg;
    int16_t next = choose(l);
    if (next < 0) return STANDING;
    l->target = next;
    l->timer = 2;
    return next == l->floor ? OPENING : MOVING;
}
static enum state travel(struct lift* l, int16_t arg) {
    (void)arg;
    if (l->floor == l->target) {
        l->timer = 2;
        return OPENING;
    }
    l->floor += l->floor < l->target ? 1 : -1;
    l->travelled++;
    return MOVING;
}
static enum state open_up(struct lift* l, int16_t arg) {
    (void)arg;
    if (--l->timer > 0) return OPENING;
    l->calls &= (uint16_t) ~(1u << l->floor);
    l->opened[l->floor]++;
    l->timer = 3;
    return OPEN;
}
static enum state wait(struct lift* l, int16_t arg) {
    (void)arg;
    if (--l->timer > 0) return OPEN;
    l->timer = 2;
    return CLOSING;
}
static enum state shut(struct lift* l, int16_t arg) {
    if (--l->timer > 0) return CLOSING;
    return depart(l, arg);
}
static enum state reopen(struct lift* l, int16_t arg) {
    (void)arg;
    l->timer = 1;
    return OPENING;
}
static enum state halt(struct lift* l, int16_t arg) {
    (void)arg;
    l->calls = 0;
    return HALTED;
}
static enum state reset(struct lift* l, int16_t floor) {
    l->calls = (uint16_t)(1u << (floor & 7));
    return STANDING;
}

static const action table[STATE_COUNT][EVENT_COUNT] = {
    [STANDING] = {depart, take_call, keep, halt, keep}, [OPENING] = {open_up, take_call, keep, halt, keep},
    [OPEN] = {wait, take_call, keep, halt, keep},       [CLOSING] = {shut, take_call, reopen, halt, keep},
    [MOVING] = {travel, take_call, keep, halt, keep},   [HALTED] = {keep, keep, keep, keep, reset}};

static const char letters[] = "_o=cm!";

// Digits call a floor, other letters are events; every character is followed by one tick.
static const char script[] =
    "5......2.1.........b....7...0............s...3..r4..........6b6........b.b...........";

int main(void) {
    struct lift l = {.state = STANDING};
    for (const char* p = script; *p; p++) {
        enum event e = *p >= '0' && *p <= '7' ? CALL
                       : *p == 'b'            ? BLOCKED
                       : *p == 's'            ? STOP
                       : *p == 'r'            ? RESET
                                              : TICK;
        int16_t arg = (int16_t)(e == CALL ? *p - '0' : 3);
        if (e != TICK) l.state = table[l.state][e](&l, arg);
        l.state = table[l.state][TICK](&l, 0);
        putchar(letters[l.state]);
    }
    printf("\nfloor %d travelled %d calls %x\n", l.floor, l.travelled, (unsigned)l.calls);
    for (int i = 0; i < 8; i++) printf("%d ", l.opened[i]);
    printf("\n");
    return 0;
}
