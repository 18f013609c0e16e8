// setjmp and longjmp: errors out of deep calls, retries, nested handlers, values that survive.
#include <setjmp.h>
#include <stdint.h>
#include <stdio.h>

static jmp_buf top, inner;
static volatile int16_t attempts;

static int depth(int n, int limit) {
    if (n == limit) longjmp(top, limit);
    return depth(n + 1, limit) + 1;
}

static int guarded_divide(int a, int b) {
    if (b == 0) longjmp(inner, 0); // arrives as 1
    return a / b;
}

static int safe(int a, int b) {
    switch (setjmp(inner)) {
        case 0: return guarded_divide(a, b);
        case 1: return -1000;
        default: return -2000;
    }
}

static int retry(void) {
    volatile int done = 0;
    int code = setjmp(top);
    if (code != 0) {
        attempts++;
        done += code;
    }
    if (attempts < 4) longjmp(top, attempts + 1);
    return done;
}

static void leave_loop(void) {
    volatile int i = 0;
    if (setjmp(inner) == 0) {
        for (;; i++)
            for (int j = 0; j < 5; j++)
                if (i * j == 12) longjmp(inner, 2);
    }
    printf("left at %d\n", i);
}

int main(void) {
    int code = setjmp(top);
    if (code == 0) {
        printf("start\n");
        printf("%d\n", depth(0, 9));
    } else if (code == 9) {
        printf("caught %d\n", code);
        depth(3, 12);
    } else {
        printf("caught %d, going on\n", code);
    }
    printf("%d %d %d\n", safe(100, 7), safe(5, 0), safe(-9, 3));
    int sum = retry();
    printf("%d %d\n", sum, attempts);
    leave_loop();
    return 0;
}
