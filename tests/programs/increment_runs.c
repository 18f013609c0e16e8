// Runs of increments in one block, whose uses may be given offsets: pointers of several sizes, wrapping
// unsigned and signed counters, steps back and forth, variables that others see, and increments as values.
#include <stdint.h>
#include <stdio.h>

static int16_t data[12] = {3, 1, 4, 1, 5, 9, 2, 6, 5, 3, 5, 8};
static int32_t wide[6] = {10, 20, 30, 40, 50, 60};
struct pair {
    int16_t a;
    int32_t b;
};
static struct pair pairs[4] = {{1, 2}, {3, 4}, {5, 6}, {7, 8}};
static int16_t* shared;
static volatile int16_t ticks;

static int16_t next(void) { return *shared++; }

static int16_t walk(const int16_t* p) {
    int16_t s = *p++;
    s = s * 10 + *p++;
    s = s * 10 + *p++;
    p -= 2;
    s += *p;
    s += *++p * 2;
    s -= *--p;
    return s + (int16_t)(p - data);
}
static int16_t* fill(int16_t* p, int16_t v) {
    *p++ = v++;
    *p++ = v++;
    *p++ = v--;
    *p = v;
    return ++p;
}
static int32_t of_wide(const int32_t* p, const struct pair* q) {
    int32_t s = *p++ + q++->b;
    s += *p++ * q++->a;
    s += *p++ - q->b;
    q++;
    return s + *p + q->a;
}
static void wraps(uint16_t u, int16_t i, uint32_t l, int64_t q) {
    u += 0xffff;
    uint32_t a = u;
    u += 2;
    uint32_t b = u;
    u -= 5;
    i += 0x7fff;
    int32_t c = i;
    i += 1;
    int32_t d = i;
    i++;
    l -= 1;
    uint64_t e = l;
    l += 3;
    uint64_t f = l;
    q++;
    int64_t g = q;
    q += 65000;
    printf("%lu %lu %u %ld %ld %d %llu %llu %lld %lld\n", (unsigned long)a, (unsigned long)b, (unsigned)u,
           (long)c, (long)d, i, (unsigned long long)e, (unsigned long long)f, (long long)g, (long long)q);
}
static int16_t seen(int16_t i) {
    int16_t* p = &i;
    i++;
    *p += 10;
    i++;
    shared = data;
    int16_t a = *shared++, b = next(), c = *shared++;
    return i * 1000 + a * 100 + b * 10 + c;
}
static int16_t conditional(int16_t i, int16_t c) {
    int16_t r = data[i++];
    r += c > 1 ? data[i++] : data[i + 1];
    r += data[i++] * 2;
    if (c && i++ > 3) r += i;
    i++;
    return r * 16 + i;
}
static int16_t branches(const int16_t* p, int16_t n) {
    int16_t s = 0;
    do {
        s += *p++;
        if (*p++ > 4) {
            s += *p++;
            s ^= *p--;
        }
        n--;
        n--;
    } while (n-- > 0);
    return s + (int16_t)(p - data);
}
static int16_t kept(const int16_t* p) {
    const int16_t* t = p;
    p++;
    int16_t s = *t + *p;
    t = p;
    p += 2;
    s += *t * 3 - *p;
    p++;
    return s + (int16_t)(p - t);
}

int main(void) {
    printf("%d %d\n", walk(data), walk(data + 4));
    int16_t room[5] = {0};
    printf("%d ", (int)(fill(room, 7) - room));
    printf("%d %d %d %d %d\n", room[0], room[1], room[2], room[3], room[4]);
    printf("%ld\n", (long)of_wide(wide, pairs));
    wraps(0, 1, 0, -1);
    wraps(7, -32768, 0xfffffffe, 0x7fffffff);
    printf("%d\n", seen(2));
    for (int16_t c = 0; c < 3; c++) printf("%d ", conditional(c, c));
    printf("%d %d\n", branches(data, 9), kept(data + 3));
    ticks++;
    ticks++;
    printf("%d\n", ticks++ + 1);
    return 0;
}
