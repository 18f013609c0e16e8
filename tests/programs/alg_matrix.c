// Matrices: integer and float products, powers, determinant by elimination over a prime field, transposition
// in place.
#include <stdint.h>
#include <stdio.h>

enum { N = 12 };

static int16_t a[N][N], b[N][N];
static int32_t c[N][N];
static float fa[N][N], fb[N][N], fc[N][N];

static void multiply(int32_t out[N][N], int16_t x[N][N], int16_t y[N][N]) {
    for (int i = 0; i < N; i++)
        for (int j = 0; j < N; j++) {
            int32_t s = 0;
            for (int k = 0; k < N; k++) s += (int32_t)x[i][k] * y[k][j];
            out[i][j] = s;
        }
}

static void multiply_float(float* restrict out, const float* restrict x, const float* restrict y, int n) {
    for (int i = 0; i < n; i++)
        for (int j = 0; j < n; j++) out[i * n + j] = 0;
    for (int k = 0; k < n; k++)
        for (int i = 0; i < n; i++) {
            float v = x[i * n + k];
            for (int j = 0; j < n; j++) out[i * n + j] += v * y[k * n + j];
        }
}

static void transpose(int16_t m[N][N]) {
    for (int i = 0; i < N; i++)
        for (int j = 0; j < i; j++) {
            int16_t t = m[i][j];
            m[i][j] = m[j][i];
            m[j][i] = t;
        }
}

enum { PRIME = 8191 };

static int32_t inverse(int32_t v) {
    int32_t r = 1;
    for (int e = PRIME - 2; e; e >>= 1) {
        if (e & 1) r = r * v % PRIME;
        v = v * v % PRIME;
    }
    return r;
}

static int32_t determinant(int16_t m[N][N]) {
    static int32_t w[N][N];
    int32_t det = 1;
    for (int i = 0; i < N; i++)
        for (int j = 0; j < N; j++) w[i][j] = ((int32_t)m[i][j] % PRIME + PRIME) % PRIME;
    for (int i = 0; i < N; i++) {
        int p = i;
        while (p < N && w[p][i] == 0) p++;
        if (p == N) return 0;
        if (p != i) {
            det = PRIME - det;
            for (int j = 0; j < N; j++) {
                int32_t t = w[p][j];
                w[p][j] = w[i][j];
                w[i][j] = t;
            }
        }
        det = det * w[i][i] % PRIME;
        int32_t inv = inverse(w[i][i]);
        for (int k = i + 1; k < N; k++) {
            int32_t factor = w[k][i] * inv % PRIME;
            for (int j = i; j < N; j++) w[k][j] = (w[k][j] + (PRIME - factor) * w[i][j]) % PRIME;
        }
    }
    return det;
}

static uint32_t fibonacci(int n) {
    uint32_t m[2][2] = {{1, 1}, {1, 0}}, r[2][2] = {{1, 0}, {0, 1}};
    for (; n; n >>= 1) {
        uint32_t t[2][2];
        if (n & 1) {
            for (int i = 0; i < 4; i++)
                t[i / 2][i % 2] = r[i / 2][0] * m[0][i % 2] + r[i / 2][1] * m[1][i % 2];
            for (int i = 0; i < 4; i++) r[i / 2][i % 2] = t[i / 2][i % 2];
        }
        for (int i = 0; i < 4; i++) t[i / 2][i % 2] = m[i / 2][0] * m[0][i % 2] + m[i / 2][1] * m[1][i % 2];
        for (int i = 0; i < 4; i++) m[i / 2][i % 2] = t[i / 2][i % 2];
    }
    return r[0][1];
}

int main(void) {
    for (int i = 0; i < N; i++)
        for (int j = 0; j < N; j++) {
            a[i][j] = (int16_t)((i * 17 + j * 29) % 41 - 20);
            b[i][j] = (int16_t)((i * i + j * 3) % 23 - 11);
            fa[i][j] = (float)a[i][j] / 4;
            fb[i][j] = (float)b[i][j];
        }
    multiply(c, a, b);
    int32_t trace = 0;
    for (int i = 0; i < N; i++) trace += c[i][i] * (i + 1);
    printf("%ld %ld %ld\n", (long)trace, (long)c[0][N - 1], (long)c[N - 1][0]);
    multiply_float(&fc[0][0], &fa[0][0], &fb[0][0], N);
    int equal = 0;
    for (int i = 0; i < N * N; i++) equal += fc[i / N][i % N] * 4 == (float)c[i / N][i % N];
    printf("%d %f\n", equal, fc[3][4]);
    int32_t d = determinant(b);
    transpose(b);
    printf("%ld %d\n", (long)d, determinant(b) == d);
    for (int i = 0; i < N; i++) a[i][i] = (int16_t)(a[i][i] * 3 + i + 50);
    printf("%ld\n", (long)determinant(a));
    printf("%lu %lu %lu\n", (unsigned long)fibonacci(10), (unsigned long)fibonacci(47),
           (unsigned long)fibonacci(0));
    return 0;
}
