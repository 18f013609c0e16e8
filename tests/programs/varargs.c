// Variable argument lists: every width, pointers, structures' addresses, va_copy, lists handed to other
// functions.
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>

static long sum(int n, ...) {
    va_list ap;
    va_start(ap, n);
    long s = 0;
    while (n-- > 0) s += va_arg(ap, int);
    va_end(ap);
    return s;
}

// Each letter of `types` tells the next argument: i int, u unsigned, l long, q long long, d double, s text, p
// int pointer.
static void show_list(const char* types, va_list ap) {
    for (; *types; types++) {
        switch (*types) {
            case 'i': printf("i%d ", va_arg(ap, int)); break;
            case 'u': printf("u%u ", va_arg(ap, unsigned)); break;
            case 'l': printf("l%ld ", va_arg(ap, long)); break;
            case 'q': printf("q%lld ", va_arg(ap, long long)); break;
            case 'd': printf("d%.3f ", va_arg(ap, double)); break;
            case 's': printf("s%s ", va_arg(ap, char*)); break;
            case 'p': printf("p%d ", *va_arg(ap, int*)); break;
        }
    }
    printf("\n");
}

static void show(const char* types, ...) {
    va_list ap;
    va_start(ap, types);
    show_list(types, ap);
    va_end(ap);
}

static long twice(int n, ...) {
    va_list a, b;
    long s = 0;
    va_start(a, n);
    va_copy(b, a);
    for (int i = 0; i < n; i++) s += va_arg(a, long);
    for (int i = 0; i < n; i++) s += va_arg(b, long) * 2;
    va_end(b);
    va_end(a);
    return s;
}

static int largest(int first, ...) {
    va_list ap;
    int best = first, v;
    va_start(ap, first);
    while ((v = va_arg(ap, int)) >= 0)
        if (v > best) best = v;
    va_end(ap);
    return best;
}

static void print(const char* format, ...) {
    va_list ap;
    va_start(ap, format);
    vprintf(format, ap);
    va_end(ap);
}

int main(void) {
    printf("%ld %ld %ld\n", sum(0), sum(1, 7), sum(6, 1, -2, 30, -400, 5000, 30000));
    int x = 77;
    short narrow = -3;
    float f = 2.5f;
    show("ilqd", 1, 100000L, 10000000000LL, 1.25);
    show("ididp", 1, 0.5, 2, -0.125, &x);
    show("qiqil", -1LL, 2, 3LL << 40, 4, -5L);
    show("sius", "text", narrow, 60000u, "end");
    show("ddd", f, (double)f * 2, f + 1.0);
    show("");
    printf("%ld\n", twice(3, 100000L, -5L, 40L));
    printf("%d %d\n", largest(3, 9, 2, -1), largest(-1, -1));
    print("%s=%d %c %ld\n", "print", 42, 'x', -123456L);
    return 0;
}
