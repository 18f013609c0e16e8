// Single-precision arithmetic on values that are exact, special values, comparisons and the sums that depend
// on order.
#include <stdint.h>
#include <stdio.h>

static float poly(float x, const float* c, int n) {
    float r = 0;
    while (n-- > 0) r = r * x + c[n];
    return r;
}

static int class_of(float x) {
    if (x != x) return 0;
    if (x == 0) return 1;
    if (x - x != 0) return x > 0 ? 2 : 3;
    return x > 0 ? 4 : 5;
}

static float newton_sqrt(float x) {
    float r = x > 1 ? x : 1;
    for (int i = 0; i < 20; i++) r = 0.5f * (r + x / r);
    return r;
}

volatile float zero;
static float table[8];

int main(void) {
    static const float c[] = {1.0f, -2.0f, 0.5f, 0.25f};
    for (int i = -3; i <= 3; i++) printf("%f ", poly((float)i, c, 4));
    printf("\n");
    float one = 1.0f, inf = one / zero, nan = inf - inf;
    printf("%d %d %d %d %d %d\n", class_of(nan), class_of(zero), class_of(inf), class_of(-inf), class_of(one),
           class_of(-one));
    printf("%d %d %d %d %d\n", nan < one, nan >= one, nan == nan, nan != nan, !(nan < one));
    printf("%d %d\n", -zero == zero, one / -zero < 0);
    // 2^24 + 1 does not fit in the 24 bits of a significand, so the order of the sum shows.
    float big = 16777216.0f;
    float left = big + one + one, right = big + (one + one);
    printf("%f %f %d\n", left, right, left == right);
    float acc = 0;
    for (int i = 0; i < 1000; i++) acc += 0.125f;
    printf("%f\n", acc);
    float tenth = 0;
    for (int i = 0; i < 10; i++) tenth += 0.1f;
    printf("%d %d\n", tenth == 1.0f, tenth > 1.0f);
    printf("%f %f %f\n", newton_sqrt(16), newton_sqrt(2.25f), newton_sqrt(0.0625f));
    for (int i = 0; i < 8; i++) table[i] = (i & 1 ? -1.0f : 1.0f) / (float)(1 << i);
    float sum = 0, product = 1;
    for (int i = 7; i >= 0; i--) {
        sum += table[i];
        product *= table[i] * 2;
    }
    printf("%f %e\n", sum, product);
    float a = 3.5f, b = -1.25f;
    printf("%f %f %f %f %f\n", a + b, a - b, a * b, a / -0.25f, -a);
    a += b *= 2;
    a /= 0.5f;
    printf("%f %f %d%d%d%d\n", a, b, a > b, a < b, a >= b, a != b);
    float smallest = 1.0f;
    int halvings = 0;
    while (1.0f + smallest != 1.0f) smallest /= 2, halvings++;
    printf("%d\n", halvings);
    double d = 0.75;
    long double e = 4.0L;
    printf("%f %f\n", d * 2 + 1, (double)(e / d * 3));
    return 0;
}
