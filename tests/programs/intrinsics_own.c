// A program's own functions under names of intrinsics, and an intrinsic that is declared without its
// parameters. 16-bit only.
#include <stdio.h>

int _ssub(int a, int b) { return a - b + 1000; }
static long _lo(long long a) { return (long)(a >> 48); }
int MIN(int a, int b);
int _sadd();
long _mpy();

static int (*const difference)(int, int) = _ssub;

int MIN(int a, int b) { return a * 10 + b; }

int main(void) {
    long wide = 98305L;
    printf("%d %d\n", _ssub(5, 5), difference(-32767, 32767));
    printf("%ld %d\n", _lo(0x0007000000000009LL), MIN(3, 2));
    printf("%d %ld %d\n", _sadd(wide, -2), _mpy(300L, 300), _ssub(0, 1) < 0);
    int a = 1, b = 2;
    int least = a < b ? a : b;
    printf("%d %d\n", least, MIN(a, b));
    return 0;
}
