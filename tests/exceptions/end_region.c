/* A region out of which no exception may get, around a clean-up; exceptions caught inside are nobody's business. */
#include "exceptions.h"

static void inner(int n) {
    __catches(2, 1, "an_int", 1);
    switch (__eh_switch()) {
    case 1:
        printf("inner %d\n", CAUGHT(int));
        __cxa_end_catch();
        return;
    default: break;
    }
    __region(2);
    if (n < 2) THROW_INT(n);
    THROW_LONG(n);
}
static void strict(int n) {
    __terminates(2);
    __cleanup(3, 2, printf("strict %d\n", n));
    __region(3);
    inner(n);
    __region(0);
    printf("out\n");
}
int main(void) {
    __catches(2, 1, 0, 1);
    switch (__eh_switch()) {
    case 1: return 1;
    default: break;
    }
    __region(2);
    for (int n = 0; n < 4; n++) strict(n);
    return 0;
}
