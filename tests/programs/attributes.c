// inline functions and attributes: always and never inlined, pure, noreturn, aligned, sections, weak, unused,
// used.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

static inline int16_t clamp(int16_t v, int16_t lo, int16_t hi) { return v < lo ? lo : v > hi ? hi : v; }
static inline __attribute__((always_inline)) int32_t square(int32_t v) { return v * v; }
__attribute__((noinline)) static int32_t cube(int32_t v) { return square(v) * v; }
__attribute__((pure)) static int16_t sum(const int16_t* p, int16_t n) {
    int16_t s = 0;
    while (n-- > 0) s += *p++;
    return s;
}
__attribute__((const, noinline)) static int16_t mix(int16_t a, int16_t b) { return (int16_t)(a * 3 ^ b); }
__attribute__((noreturn, noinline)) static void leave(int code) {
    printf("leaving %d\n", code);
    exit(code);
}
__attribute__((weak)) int16_t preset(void) { return 31; }
static int16_t spare(void) __attribute__((unused));
static int16_t spare(void) { return 0; }
_Noreturn static void stop(void) { leave(0); }

static int16_t aligned_one __attribute__((aligned(4))) = 1;
static __attribute__((aligned(8))) int16_t block[5] = {1, 2, 3, 4, 5};
__attribute__((section(".fast"))) static int16_t fast_data = 9;
__attribute__((section(".code_fast"), noinline)) static int16_t fast_code(int16_t v) {
    return (int16_t)(v + fast_data);
}
static const int16_t kept __attribute__((used)) = 77;

static int32_t choose(int16_t which) {
    int32_t r = 0;
    if (__builtin_expect(which == 1, 0))
        r = cube(11);
    else if (which == 2)
        r = square(mix(4, 5));
    else if (which > 100)
        stop();
    return r;
}

int main(void) {
    printf("%d %d %d\n", clamp(5, 0, 10), clamp(-5, 0, 10), clamp(50, 0, 10));
    printf("%ld %ld\n", (long)square(-300), (long)cube(-30));
    printf("%d %d\n", sum(block, 5), sum(block + 1, 3));
    printf("%d %d\n", mix(10, 7), mix(10, 7) - mix(7, 10));
    printf("%d %d %d\n", preset(), fast_code(33), kept);
    printf("%d\n", ((uintptr_t)&aligned_one | (uintptr_t)block) % 4 == 0);
    for (int16_t i = 0; i < 3; i++) printf("%ld ", (long)choose(i));
    printf("\n");
    choose(200);
    printf("not reached\n");
    return 1;
}
