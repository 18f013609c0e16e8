/* An exception that nobody catches runs the clean-ups it meets, and ends the program without what atexit holds. */
#include "exceptions.h"

int atexit(void (*)(void));
static void never(void) { printf("never\n"); }

static int work(int n) {
    int i = n;
    __cleanup(2, 1, printf("clean-up %d\n", i));
    __catches(3, 2, "an_int", 1);
    switch (__eh_switch()) {
    case 1: return CAUGHT(int);
    default: break;
    }
    __region(3);
    i++;
    THROW_LONG(n);
    return i;
}

int main(void) {
    atexit(never);
    __cleanup(2, 1, printf("main\n"));
    __region(2);
    return work(4);
}
