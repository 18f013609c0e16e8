// All relational operators on signed, unsigned, mixed and wide operands, as values and as conditions.
#include <stdint.h>
#include <stdio.h>

static int count;

#define SHOW(e) printf("%s %d\n", #e, (e))

static int branches(int32_t a, int32_t b) {
    int r = 0;
    if (a < b) r |= 1;
    if (a <= b) r |= 2;
    if (a > b) r |= 4;
    if (a >= b) r |= 8;
    if (a == b) r |= 16;
    if (a != b) r |= 32;
    if (!(a < b)) r |= 64;
    if (!(a == b) && !(a > b)) r |= 128;
    count++;
    return r;
}

static int ubranches(uint16_t a, uint16_t b) {
    int r = 0;
    while (a < b) {
        a++;
        if (++r == 5) break;
    }
    for (; a > b && r < 9; r++) a--;
    return a >= b ? r : -r;
}

int main(void) {
    static const int32_t v[] = {0, 1, -1, 32767, -32768L, 65535L, 2147483647L, -2147483647L - 1};
    for (unsigned i = 0; i < 8; i++) {
        for (unsigned j = 0; j < 8; j++) printf("%d ", branches(v[i], v[j]));
        printf("\n");
    }
    for (uint16_t i = 0; i < 4; i++) printf("%d %d ", ubranches(i, 60000u), ubranches(60000u, i));
    printf("%d\n", count);
    uint32_t ul = 5;
    int32_t sl = -5;
    int16_t s = -5;
    uint64_t uq = 5;
    SHOW(ul > (uint32_t)sl);
    SHOW((uint64_t)s > uq);
    SHOW(s < (int64_t)uq);
    SHOW(sl < s);
    SHOW(sl == s);
    SHOW((s < 0) == (sl < 0));
    SHOW((s < 0) + (sl < 0) + (ul < 1));
    SHOW(!s);
    SHOW(!!s);
    SHOW(-3 < -2 < -1);
    float f = 1.5f;
    SHOW(f > 1);
    SHOW(f <= s);
    SHOW(f == 1.5f && f != 1.25f);
    int *p = &count, *q = 0;
    SHOW(p != 0 && !q);
    SHOW(p == &count);
    return 0;
}
