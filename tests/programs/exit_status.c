// The exit status of the program, functions registered with atexit, and exit from inside a call.
#include <stdio.h>
#include <stdlib.h>

static int step;

static void first(void) { printf("first registered, step %d\n", step); }
static void second(void) {
    printf("second registered, step %d\n", step);
    step++;
}

static int compute(int n) {
    if (n > 5) exit(n * 7);
    return n + 2;
}

int main(void) {
    atexit(first);
    atexit(second);
    int n = 0;
    while (1) {
        step++;
        n = compute(n);
        printf("%d\n", n);
    }
}
