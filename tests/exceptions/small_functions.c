/* Small functions with tables of their own, called inside a try: whoever takes them into the caller must take the
   tables along. */
#include "exceptions.h"

static int trail;
static void step(int what) { trail = trail * 10 + what; }

static inline int checked(int n, int most) {
    if (n > most) THROW_INT(n);
    return n;
}
static inline int guarded(int n, int most) {
    int held = n;
    __cleanup(2, 1, (step(held), 0));
    __region(2);
    held++;
    n = checked(n, most);
    __region(0);
    held = 0;
    return n * 2;
}
static inline int twice_guarded(int n, int most) {
    int sum = 1;
    __cleanup(2, 1, (step(sum), 0));
    __cleanup(3, 2, (sum += 2, step(7), 0));
    __region(2);
    sum += guarded(n, most);
    __region(3);
    sum += guarded(n + 1, most);
    __region(0);
    return sum;
}
static inline void must_not(int n) {
    __terminates(2);
    __cleanup(3, 2, (step(9), 0));
    __region(3);
    if (n < 0) checked(1, 0);
    __region(0);
    step(1);
}
/* The same function more than once, in regions of its own and in the caller's. */
static int caller(int n, int most) {
    int done = 0, value = 0;
    __catches(2, 1, "an_int", 1, 0, 2);
    __cleanup(3, 2, (done += 100, step(8), 0));
    switch (__eh_switch()) {
    case 1:
        value += CAUGHT(int) * 1000;
        __cxa_end_catch();
        return value + done;
    case 2: return -1;
    default: break;
    }
    __region(2);
    value = guarded(n, most);
    done = 1;
    __region(3);
    value += twice_guarded(n + 1, most);
    done = 2;
    must_not(n);
    __region(2);
    for (int i = 0; i < 3; i++) {
        value += guarded(n + i + 2, most);
        done++;
    }
    __region(0);
    return value + done;
}

int main(void) {
    for (int most = 0; most < 8; most++) {
        trail = 0;
        printf("%d", caller(1, most));
        printf(" %d\n", trail);
    }
    return 0;
}
