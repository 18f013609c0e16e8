// Scopes: shadowing, blocks in loops, names reused for other kinds, for-declarations, prototypes with the
// same names.
#include <stdint.h>
#include <stdio.h>

static int x = 1;
struct x {
    int x;
};
enum tag { x_tag = 7 };
static int f(int x), g(void);

static int f(int x) {
    {
        int x = 20;
        {
            int y = x;
            int x = y + 5;
            x++;
            y += x;
            if (y > 40) {
                int y = 2;
                x *= y;
            }
            return x + y;
        }
    }
}

static int g(void) {
    int r = 0;
    for (int x = 0; x < 3; x++) {
        int x2 = x * 2;
        for (int x = x2; x > 0; x--) {
            static int x;
            x++;
            r += x;
        }
        r += x;
    }
    return r;
}

static int typedefs(void) {
    typedef int16_t T;
    T a = 5;
    {
        typedef int32_t T;
        T b = 100000L;
        a = (int16_t)(b / 1000 + a);
    }
    T c = a;
    return c;
}

static int fresh_each_time(int n) {
    int total = 0;
    for (int i = 0; i < n; i++) {
        int local;
        if (i == 0)
            local = 3;
        else
            local = i;
        {
            int local = total;
            total = local + 1;
        }
        total += local;
    }
    return total;
}

int main(void) {
    struct x x_struct = {x};
    printf("%d %d %d\n", f(3), x, x_struct.x);
    printf("%d\n", g());
    int sum = x;
    {
        extern int printf(const char*, ...);
        int x = 5;
        sum += x;
        {
            enum tag { x_tag = 50 };
            sum += x_tag;
            struct x {
                long a, b;
            } v = {1, 2};
            sum += (int)(v.a + v.b);
        }
        sum += x_tag;
    x:
        if (x++ < 8) goto x;
        sum += x;
    }
    printf("%d %d\n", sum, typedefs());
    printf("%d\n", fresh_each_time(5));
    for (int i = 0; i < 2; i++) {
        int i = 7;
        printf("%d ", i++);
    }
    printf("%d\n", x);
    return 0;
}
