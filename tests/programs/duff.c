// Switches whose labels lie inside loops: an unrolled copy, a coroutine, a loop entered in the middle.
#include <stdint.h>
#include <stdio.h>

static void copy8(int16_t* to, const int16_t* from, int count) {
    int n = (count + 7) / 8;
    if (count <= 0) return;
    switch (count % 8) {
        case 0: do { *to++ = *from++;
                case 7: *to++ = *from++;
                case 6: *to++ = *from++;
                case 5: *to++ = *from++;
                case 4: *to++ = *from++;
                case 3: *to++ = *from++;
                case 2: *to++ = *from++;
                case 1: *to++ = *from++;
            } while (--n > 0);
    }
}

// Yields the squares, then the cubes, one value per call; the state selects where it goes on.
static int next(void) {
    static int state, i;
    switch (state) {
        case 0:
            for (i = 1; i < 4; i++) {
                state = 1;
                return i * i;
                case 1:;
            }
            for (i = 1; i < 4; i++) {
                state = 2;
                return i * i * i;
                case 2:;
            }
    }
    state = 0;
    return -1;
}

static int entry(int where, int n) {
    int trace = 0;
    switch (where) {
        case 1:
            while (n > 0) {
                trace = trace * 3 + 1;
                if (0) {
                    case 2: trace = trace * 3 + 2;
                }
                n--;
                case 3: trace += n;
            }
    }
    return trace;
}

int main(void) {
    int16_t from[40], to[40];
    for (int i = 0; i < 40; i++) from[i] = (int16_t)(i * i - 50);
    for (int n = 0; n <= 20; n++) {
        for (int i = 0; i < 40; i++) to[i] = 0;
        copy8(to, from, n);
        int sum = 0, same = 0;
        for (int i = 0; i < 40; i++) {
            sum += to[i] * (i + 1) % 97;
            same += to[i] == from[i];
        }
        printf("%d:%d ", same, sum);
    }
    printf("\n");
    for (int i = 0; i < 9; i++) printf("%d ", next());
    printf("\n");
    for (int w = 0; w < 4; w++) printf("%d %d, ", entry(w, 1), entry(w, 4));
    printf("\n");
    return 0;
}
