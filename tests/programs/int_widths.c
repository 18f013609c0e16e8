// The 16-bit data model: sizes count 16-bit units, limits follow the widths. 16-bit only: the expected values
// are worked out by hand.
#include <limits.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

struct mixed {
    char c;
    long l;
    int i;
    long long q;
    char* p;
};

enum small { SMALL_A, SMALL_B };

_Static_assert(sizeof(char) == 1, "char is one unit");
_Static_assert(CHAR_BIT == 16, "a unit has 16 bits");
_Static_assert(sizeof(long) == 2, "long is two units");

static int int_array[sizeof(long long)];

int main(void) {
    printf("char %d short %d int %d long %d llong %d\n", (int)sizeof(char), (int)sizeof(short),
           (int)sizeof(int), (int)sizeof(long), (int)sizeof(long long));
    printf("float %d double %d ldouble %d ptr %d fptr %d bool %d enum %d\n", (int)sizeof(float),
           (int)sizeof(double), (int)sizeof(long double), (int)sizeof(void*), (int)sizeof(int (*)(void)),
           (int)sizeof(_Bool), (int)sizeof(enum small));
    printf("CHAR_BIT %d CHAR_MIN %d CHAR_MAX %d UCHAR_MAX %u\n", CHAR_BIT, CHAR_MIN, CHAR_MAX,
           (unsigned)UCHAR_MAX);
    printf("INT %d %d %u\n", INT_MIN, INT_MAX, UINT_MAX);
    printf("LONG %ld %ld %lu\n", LONG_MIN, LONG_MAX, ULONG_MAX);
    printf("LLONG %lld %lld %llu\n", LLONG_MIN, LLONG_MAX, ULLONG_MAX);
    // A long is aligned to two units, so `l` skips one unit and `q` another; the tail is padded to two.
    printf("offsets %d %d %d %d %d size %d\n", (int)offsetof(struct mixed, c), (int)offsetof(struct mixed, l),
           (int)offsetof(struct mixed, i), (int)offsetof(struct mixed, q), (int)offsetof(struct mixed, p),
           (int)sizeof(struct mixed));
    printf("array %d %d\n", (int)(sizeof int_array / sizeof int_array[0]), (int)sizeof "hello");
    // 32767 is the largest int; the next decimal constant is a long, the next hexadecimal one unsigned.
    printf("consts %d %d %d %d\n", (int)sizeof(32767), (int)sizeof(32768), (int)sizeof(0x8000),
           (int)sizeof(0x10000));
    int i = INT_MAX;
    unsigned u = UINT_MAX;
    i += 1;
    u += 1;
    printf("wrap %d %u\n", i, u);
    i = 300;
    printf("mul %d\n", i * i);         // 90000 - 65536 = 24464
    printf("lmul %ld\n", (long)i * i); // 90000
    printf("neg %d\n", -INT_MIN == INT_MIN);
    unsigned a = 1;
    int b = -1;
    printf("mixed compare %d %d\n", a < b, (long)a < b);
    printf("shift %ld %d\n", 1L << 20, (int)(1u << 15 == 0x8000u));
    return 0;
}
