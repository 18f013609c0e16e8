// 32-bit arithmetic: all operators on signed and unsigned operands, with constants and variables.
#include <stdint.h>
#include <stdio.h>

static const int32_t values[] = {0,      1,      -1,      7,         -7,          1000,        -1000,
                                 65535L, 65536L, -65536L, 99999999L, 2147483647L, -2147483647L};
enum { COUNT = sizeof values / sizeof values[0] };

static uint32_t mix(uint32_t h, uint32_t v) {
    h ^= v;
    h *= 16777619ul;
    return h;
}

int main(void) {
    uint32_t h = 2166136261ul;
    for (int i = 0; i < COUNT; i++) {
        for (int j = 0; j < COUNT; j++) {
            int32_t a = values[i], b = values[j];
            uint32_t ua = (uint32_t)a, ub = (uint32_t)b;
            h = mix(h, ua + ub);
            h = mix(h, ua - ub);
            h = mix(h, ua * ub);
            h = mix(h, ua & ub);
            h = mix(h, ua | ub);
            h = mix(h, ua ^ ub);
            if (b) {
                h = mix(h, (uint32_t)(a / b));
                h = mix(h, (uint32_t)(a % b));
                h = mix(h, ua / ub);
                h = mix(h, ua % ub);
            }
            h = mix(h,
                    (uint32_t)((a < b) | (a <= b) << 1 | (ua < ub) << 2 | (ua >= ub) << 3 | (a == b) << 4));
        }
        printf("%ld %lx\n", (long)values[i], (unsigned long)h);
    }
    for (int i = 0; i < COUNT; i++) {
        int32_t v = values[i];
        printf("%ld %ld %ld %ld %ld\n", (long)(v / 8), (long)(v % 8), (long)(v / -3), (long)(v % 10),
               (long)~v);
    }
    int32_t product = 1;
    for (int32_t i = 1; i <= 12; i++) product *= i;
    printf("%ld %ld\n", (long)product, (long)-product);
    return 0;
}
