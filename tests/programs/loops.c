// Loops: counted up and down, steps, several exits, empty bodies, bounds that change, long and unsigned
// counters.
#include <stdint.h>
#include <stdio.h>

static int16_t v[64], w[64];

static int32_t dot(const int16_t* a, const int16_t* b, int n) {
    int32_t s = 0;
    for (int i = 0; i < n; i++) s += (int32_t)a[i] * b[i];
    return s;
}

static int first_above(const int16_t* a, int n, int16_t limit) {
    int i;
    for (i = 0; i < n && a[i] <= limit; i++)
        ;
    return i;
}

static int triangle(int n) {
    int count = 0;
    for (int i = 0; i < n; i++) {
        for (int j = 0; j < n; j++) {
            if (j > i) break;
            if ((i + j) % 3 == 0) continue;
            for (int k = j; k; k >>= 1) count++;
        }
        if (count > 500) break;
    }
    return count;
}

static long zero_trip(int from, int to) {
    long r = 7;
    for (int i = from; i < to; i++) r = r * 2 + i;
    while (from > to) {
        r--;
        from -= 3;
    }
    do r += 100;
    while (from++ < to);
    return r;
}

int main(void) {
    for (int i = 0; i < 64; i++) v[i] = (int16_t)(i * 5 - 100);
    for (int i = 63; i >= 0; i--) w[63 - i] = (int16_t)(v[i] / 3);
    printf("%ld %ld %ld\n", (long)dot(v, w, 64), (long)dot(v, v, 10), (long)dot(v, w, 0));
    printf("%d %d %d\n", first_above(v, 64, 0), first_above(v, 64, -500), first_above(v, 64, 30000));
    printf("%d %d %d\n", triangle(5), triangle(12), triangle(100));
    printf("%ld %ld %ld %ld\n", zero_trip(0, 0), zero_trip(3, 9), zero_trip(9, 3), zero_trip(-2, 2));
    for (int i = 0; i < 64; i += 3) v[i] = 0;
    for (int i = 1; i < 64; i *= 2) v[i] += 1000;
    for (int i = 60, j = 0; i > j; i -= 4, j++) v[i] ^= v[j];
    // Each element from the one before: must not run side by side.
    for (int i = 1; i < 64; i++) w[i] = (int16_t)((w[i - 1] + w[i]) % 1000);
    for (int i = 0; i < 63; i++) w[i] = w[i + 1];
    int32_t check = 0;
    for (int i = 0; i < 64; i++) check = (check * 31 + v[i] * 3L + w[i]) % 1000003L;
    printf("%ld\n", (long)check);
    uint16_t u = 5;
    int spins = 0;
    do spins++;
    while (u-- != 65533u);
    printf("%d %u\n", spins, (unsigned)u);
    int64_t big = 0;
    for (int64_t i = 4294967290LL; i < 4294967300LL; i++) big += i;
    for (uint32_t i = 65530ul; i < 65540ul; i++) big ^= i;
    printf("%lld\n", (long long)big);
    float step = 0;
    int turns = 0;
    for (float x = 0; x < 2; x += 0.25f) step += x, turns++;
    printf("%f %d\n", step, turns);
    int bound = 10;
    for (int i = 0; i < bound; i++)
        if (i % 3 == 2) bound--;
    printf("%d\n", bound);
    int found = 0;
    for (;;) {
        found++;
        if (found * found > 2000) break;
    }
    printf("%d\n", found);
    int same = 0;
    for (int i = 0; i < 20; i++) {
        int invariant = bound * 3 + turns;
        if (bound > 3)
            same += invariant;
        else
            same -= i;
    }
    printf("%d\n", same);
    return 0;
}
