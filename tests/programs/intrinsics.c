// Every intrinsic that a program can call, at the ends of the ranges: against the same in wider arithmetic,
// and with operands and results of other types than its own. 16-bit only.
#include <intrinsics.h>
#include <stdio.h>

static const int ints[] = {0,      1,     -1,     2,     -2,    255,    -256,      12345,
                           -12345, 16384, -16384, 32766, 32767, -32767, -32767 - 1};
static const long longs[] = {0,         1,           -1,          65535L,      65536L,          -65536L,
                             99999999L, 1073741824L, 2147483646L, 2147483647L, -2147483647L - 1};
enum { INTS = sizeof ints / sizeof *ints, LONGS = sizeof longs / sizeof *longs };

static int failures;

static void expect(const char* name, long long a, long long b, long long got, long long want) {
    if (got == want) return;
    failures++;
    printf("%s(%lld, %lld) is %lld, not %lld\n", name, a, b, got, want);
}

static long long clamp(long long value, long long least, long long most) {
    return value < least ? least : value > most ? most : value;
}
static long long to_int(long long value) { return clamp(value, -32767 - 1, 32767); }
static long long to_long(long long value) { return clamp(value, -2147483647L - 1, 2147483647L); }

static void on_ints(int a, int b) {
    unsigned ua = a, ub = b;
    expect("_sadd", a, b, _sadd(a, b), to_int((long)a + b));
    expect("_ssub", a, b, _ssub(a, b), to_int((long)a - b));
    expect("_mpy", a, b, _mpy(a, b), (long long)a * b);
    expect("_mpyu", ua, ub, _mpyu(ua, ub), (long long)ua * ub);
    expect("_mpysu", a, ub, _mpysu(a, ub), (long long)a * ub);
    expect("_mpyus", ua, b, _mpyus(ua, b), (long long)ua * b);
    // A saturating difference compares like its operands.
    expect("_ssub < 0", a, b, _ssub(a, b) < 0, a < b);
    expect("_ssub == 0", a, b, _ssub(a, b) == 0, a == b);
    expect("_ssub >= 0", a, b, _ssub(a, b) >= 0, a >= b);
}

static void on_longs(long a, long b) {
    expect("_sadd2", a, b, _sadd2(a, b), to_long((long long)a + b));
    expect("_ssub2", a, b, _ssub2(a, b), to_long((long long)a - b));
    expect("_ssub2 > 0", a, b, _ssub2(a, b) > 0, a > b);
    expect("_mpyhi", a, b, _mpyhi(a, b), (long long)(int)(a >> 16) * b);
    long long joined = (long long)a * 65536 * 65536 + (unsigned long)b;
    expect("_hi", a, b, _hi(joined), (unsigned long)a);
    expect("_lo", a, b, _lo(joined), (unsigned long)b);
}

static void shifts(long value) {
    int low = (int)value;
    for (unsigned n = 0; n < 32; n++) {
        expect("_sshl", low, n, _sshl(low, n), to_int(low * (1LL << n)));
        expect("_sshl2", value, n, _sshl2(value, n), to_long(value * (1LL << n)));
    }
    expect("_sshl", low, 33, _sshl(low, 33), _sshl(low, 1)); // five bits count
}

// Arguments and results of other types are converted like those of any function.
static void conversions(void) {
    long wide = 98305L; // 1 and 32769: the low unit is -32767
    char c = -3;
    float f = 2.75f;
    printf("%d %d %ld %d\n", _ssub(wide, 2), _sadd(c, f), _mpy(wide, 3) + 1, (char)_mpy(300, 300));
    printf("%ld %d %.1f\n", (long)_sadd(wide, wide), _ssub(_sadd(32767, 1), _mpy(181, 181)),
           (double)_mpyu(-1, -1));
    printf("%lld %lx\n", _mpyli(wide, 98305L), _lo(_mpyli(300, 300)));
}

// Each argument is evaluated once, and for its effects too where the value is not used.
static void effects(void) {
    int n = 0;
    int sum = _sadd(n++, 100);
    sum = _ssub(sum, ++n);
    _mpy(n++, 2);
    (void)_sshl(1, (n += 2, 3));
    printf("%d %d\n", sum, n);
}

static int sign(int x) {
    if (x > 0) return 1;
    if (x <= 0) return -1;
    _never_executed();
    return 0;
}

// What is constant may be computed early, and gives the same.
static void constants(void) {
    printf("%d %d %d %d\n", _sadd(32767, 1), _sadd(-32767, -2), _ssub(-32767, 2), _sshl(-1, 15));
    printf("%d %d %d %d\n", _sshl(1, 15), _sshl(-1, 16), _sshl(0, 31), _sshl(3, 13));
    printf("%ld %ld %ld %ld\n", _sadd2(2147483647L, 1), _ssub2(-2147483647L, 2), _sshl2(-1, 31),
           _sshl2(1, 31));
    printf("%ld %lu %ld %ld\n", _mpy(-32768, -32768), _mpyu(65535u, 65535u), _mpysu(-32768, 65535u),
           _mpyus(65535u, -32768));
    printf("%lld %lld\n", _mpyli(-32768, -2147483647L - 1), _mpyhi(-2147483647L - 1, 2147483647L));
    printf("%lx %lx\n", _hi(0x123456789abcdef0LL), _lo(0x123456789abcdef0LL));
}

int main(void) {
    for (int i = 0; i < INTS; i++)
        for (int j = 0; j < INTS; j++) on_ints(ints[i], ints[j]);
    for (int i = 0; i < LONGS; i++)
        for (int j = 0; j < LONGS; j++) on_longs(longs[i], longs[j]);
    for (int i = 0; i < INTS; i++)
        for (int j = 0; j < LONGS; j++)
            expect("_mpyli", ints[i], longs[j], _mpyli(ints[i], longs[j]), (long long)ints[i] * longs[j]);
    for (int i = 0; i < INTS; i++) shifts(ints[i]);
    for (int i = 0; i < LONGS; i++) shifts(longs[i]);
    constants();
    conversions();
    effects();
    printf("%d %d\n", sign(5), sign(0));
    printf("%d failures\n", failures);
    return failures != 0;
}
