// _Generic selection and _Static_assert, evaluated at translation time with the types the language gives.
#include <stdint.h>
#include <stdio.h>

#define NAME(x)                                                                                              \
    _Generic((x), char: "char", signed char: "schar", unsigned char: "uchar", short: "short", unsigned short: "ushort", \
           int: "int", unsigned: "unsigned", long: "long", unsigned long: "ulong", long long: "llong", \
           unsigned long long: "ullong", float: "float", double: "double", long double: "ldouble", _Bool: "bool", \
           char *: "char*", const char *: "const char*", void *: "void*", int *: "int*", default: "other")

static int16_t abs_s(int16_t v) { return (int16_t)(v < 0 ? -v : v); }
static int32_t abs_l(int32_t v) { return v < 0 ? -v : v; }
static float abs_f(float v) { return v < 0 ? -v : v; }
#define ABS(x) _Generic((x), int16_t : abs_s, int32_t : abs_l, float : abs_f)(x)

struct s {
    int a;
};

_Static_assert(sizeof(long) > sizeof(short), "long is wider");
_Static_assert(_Generic(1L, long : 1, default : 0), "1L is a long");
_Static_assert((unsigned)-1 > 0 && -1 < 0, "signs");

int main(void) {
    _Static_assert(sizeof(struct s) == sizeof(int), "no padding");
    char c = 1;
    short h = 2;
    unsigned short us = 3;
    float f = 4;
    int i = 5, *p = &i;
    const int ci = 6;
    _Bool b = 1;
    printf("%s %s %s %s %s %s\n", NAME(c), NAME((signed char)c), NAME(h), NAME(i), NAME(ci), NAME(b));
    printf("%s %s %s %s %s\n", NAME(c + c), NAME(h + h), NAME(i + 1L), NAME(1u + 1), NAME(1L + 1ull));
    printf("%s %s %s %s %s\n", NAME(f), NAME(f + 1), NAME(f + 1.0), NAME(1.0L), NAME(f > 1));
    printf("%s %s %s %s %s\n", NAME("text"), NAME((const char*)"x"), NAME(p), NAME((void*)p), NAME(*p));
    printf("%s %s %s %s\n", NAME('a'), NAME(!c), NAME(-c), NAME(b ? 1 : 2L));
    printf("%s %s\n", NAME((struct s){1}), NAME(us));
    printf("%s %s\n", NAME(c << 1L), NAME(1ul << c));
    printf("%d %ld %f\n", ABS((int16_t)-5), (long)ABS((int32_t)-100000L), ABS(-2.5f));
    // The operand of _Generic is not evaluated, nor is that of sizeof.
    int n = 0;
    (void)_Generic(n++, int : 0);
    (void)sizeof(n++);
    printf("%d\n", n);
    return 0;
}
