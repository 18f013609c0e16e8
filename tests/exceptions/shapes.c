/* EH switches as a simplifier would like them: with one case, with a case that goes where the default goes, alone
   before a loop, in a loop, behind a condition that is known. */
#include "exceptions.h"

static int tick(int n) {
    if (n % 4 == 3) THROW_INT(n);
    if (n % 4 == 1) THROW_LONG(n);
    return n;
}

/* Every outcome goes on at the same place. */
static int all_alike(int n) {
    int turns = 0, sum = 0;
    __catches(2, 1, "an_int", 1, "a_long", 2);
    switch (__eh_switch()) {
    case 1:
    case 2:
    default: break;
    }
    turns++;
    __region(2);
    if (turns < 4) sum += tick(n);
    __region(0);
    return turns * 100 + sum;
}

/* One case alone, and one of those goes where the default goes. */
static int one_case(int n) {
    int caught = 0;
    __catches(2, 1, "an_int", 1, 0, 7);
    switch (__eh_switch()) {
    case 1: caught += 10;
    }
    if (caught++ > 20) return caught;
    __region(2);
    tick(n);
    return -caught;
}

/* The switch is executed in every turn, and lies inside the loop that its handlers go on with. */
static int in_loop(int from, int to) {
    int i, sum = 0;
    __catches(2, 1, "an_int", 1, "a_long", 2);
    for (i = from; i < to; i++) {
        switch (__eh_switch()) {
        case 1:
            sum += CAUGHT(int) * 100;
            __cxa_end_catch();
            continue;
        case 2:
            sum += (int)CAUGHT(long) * 10000;
            __cxa_end_catch();
            break;
        default:
            __region(2);
            sum += tick(i);
            __region(0);
        }
        sum++;
    }
    return sum;
}

/* A try that is reached under a condition only, with handlers that lead into the other arm. */
static int conditional(int n, int flag) {
    int value = 3;
    __catches(2, 1, 0, 65535);
    if (n > 0) {
        switch (__eh_switch()) {
        case -1:
            __cxa_begin_catch(0);
            __cxa_end_catch();
            if (flag) goto other;
            return value;
        default: break;
        }
        value = 4;
        __region(2);
        value = 5 + tick(n);
    } else {
    other:
        value += 1000;
    }
    return value;
}

int main(void) {
    for (int n = 0; n < 4; n++)
        printf("%d %d %d %d\n", all_alike(n), one_case(n), conditional(n, 0), conditional(n, 1));
    printf("%d %d\n", in_loop(0, 3), in_loop(3, 9));
    return 0;
}
