/* A throw caught in the same function, by type, and by what catches everything; the switch done again and again. */
#include "exceptions.h"

static int once(int n) {
    int state = 1;
    __catches(2, 1, "an_int", 1, "a_long", 2, 0, 3);
    switch (__eh_switch()) {
    case 1:
        state += CAUGHT(int);
        __cxa_end_catch();
        return state;
    case 2:
        state += (int)CAUGHT(long) * 2;
        __cxa_end_catch();
        return state;
    case 3:
        __cxa_begin_catch(0);
        __cxa_end_catch();
        return -state;
    default: break;
    }
    __region(2);
    state = 10;
    if (n == 1) THROW_INT(n + 100);
    state = 20;
    if (n == 2) THROW_LONG(70000);
    state = 30;
    if (n == 3) THROW(int, a_string, 5, 0);
    return state;
}

static void thrower(int n) {
    if (n % 3 == 0) THROW_INT(n);
    if (n % 7 == 0) THROW_LONG(n * 100000L);
}

/* The try stands in a loop, and what the handler changes is read by the next turn. */
static long many(int turns) {
    long sum = 0;
    int i = 0, caught = 0;
    __catches(2, 1, "an_int", 1, "a_long", 2);
again:
    switch (__eh_switch()) {
    case 1:
        sum += CAUGHT(int);
        caught++;
        __cxa_end_catch();
        i++;
        goto again;
    case 2:
        sum -= CAUGHT(long) % 1000;
        caught += 100;
        __cxa_end_catch();
        i++;
        goto again;
    default: break;
    }
    __region(2);
    for (; i < turns; i++) {
        thrower(i);
        sum++;
    }
    __region(0);
    printf("%d caught\n", caught);
    return sum;
}

/* Two tries, one behind the other, with one switch. */
static int parts(int first, int second) {
    int seen = 0;
    __catches(2, 1, "an_int", 1);
    __catches(3, 1, "an_int", 2);
    switch (__eh_switch()) {
    case 1:
        seen = CAUGHT(int);
        __cxa_end_catch();
        goto next;
    case 2:
        seen = seen * 10 + CAUGHT(int);
        __cxa_end_catch();
        return seen;
    default: break;
    }
    __region(2);
    thrower(first);
next:
    __region(3);
    thrower(second);
    __region(0);
    return seen - 1;
}

int main(void) {
    for (int n = 0; n < 5; n++) printf("%d\n", once(n));
    printf("%ld\n", many(50));
    printf("%d %d %d %d\n", parts(1, 2), parts(3, 1), parts(1, 6), parts(9, 3));
    return 0;
}
