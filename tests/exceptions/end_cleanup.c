/* An exception that leaves a clean-up ends the program, whatever could catch it. */
#include "exceptions.h"

static int bad(int n) {
    if (n == 3) THROW_LONG(n);
    printf("bad %d\n", n);
    return n;
}
static void work(int n) {
    __cleanup(2, 1, bad(n));
    __region(2);
    THROW_INT(n);
}
int main(void) {
    int i = 0;
    __catches(2, 1, 0, 1);
again:
    switch (__eh_switch()) {
    case 1:
        __cxa_begin_catch(0);
        __cxa_end_catch();
        i++;
        goto again;
    default: break;
    }
    __region(2);
    work(i);
    return 0;
}
