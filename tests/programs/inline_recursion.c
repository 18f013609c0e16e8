/* Inline functions that call themselves or one another, chains of them, and some that cannot be inlined. */
#include <setjmp.h>
#include <stdarg.h>
#include <stdio.h>

static inline int fact(int n) { return n < 2 ? 1 : n * fact(n - 1); }

static inline int is_odd(int n);
static inline int is_even(int n) { return n == 0 ? 1 : is_odd(n - 1); }
static inline int is_odd(int n) { return n == 0 ? 0 : is_even(n - 1); }

static inline int fib(int n) { return n < 2 ? n : fib(n - 1) + fib(n - 2); }

static inline int leaf(int x) { return x + 1; }
static inline int level1(int x) { return leaf(x) * leaf(x + 1); }
static inline int level2(int x) { return level1(x) - level1(x - 1); }
static inline int level3(int x) { return level2(x) > 3 ? level2(x + 1) : level1(level2(x)); }

static inline __attribute__((noinline)) int apart(int x) { return x * 3; }

static inline int total(int n, ...) {
    va_list list;
    int sum = 0;
    va_start(list, n);
    while (n-- > 0) sum += va_arg(list, int);
    va_end(list);
    return sum;
}

static jmp_buf place;
static inline int guarded(int n) {
    volatile int before = n;
    if (setjmp(place)) return before + 1000;
    if (n > 2) longjmp(place, 1);
    return before;
}

static inline int watched(int n) {
    volatile int v = n;
    v = v + 1;
    return v;
}

static inline long room(int n) {
    int table[200];
    for (int i = 0; i < 200; i++) table[i] = i * n;
    long s = 0;
    for (int i = 0; i < 200; i += 50) s += table[i];
    return s;
}

static int (*pointer)(int) = leaf;

int main(void) {
    printf("%d %d %d %d\n", fact(5), fact(7), is_even(10), is_odd(7));
    printf("%d %d\n", fib(10), fib(fib(5)));
    for (int i = 0; i < 4; i++) printf("%d ", level3(i));
    printf("\n%d %d\n", apart(leaf(2)), total(3, leaf(1), leaf(2), total(2, 5, 6)));
    printf("%d %d %d\n", guarded(1), guarded(5), watched(4));
    printf("%ld %ld\n", room(2), room(3) + room(1));
    printf("%d %d\n", pointer(4), pointer == leaf);
    return 0;
}
