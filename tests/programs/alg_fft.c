// Fast Fourier transform of 64 points in 16-bit fixed point, with bit reversal, and the slow transform beside
// it.
#include <stdint.h>
#include <stdio.h>

enum { LOG = 6, N = 1 << LOG };

// A quarter of a sine wave in 15 fraction bits: round(32767 * sin(2 pi i / 64)).
static const int16_t quarter[N / 4 + 1] = {0,     3212,  6393,  9512,  12539, 15446, 18204, 20787, 23170,
                                           25329, 27245, 28898, 30273, 31356, 32137, 32609, 32767};

static int16_t re[N], im[N];

static int16_t sine(int i) {
    i &= N - 1;
    if (i < N / 4) return quarter[i];
    if (i < N / 2) return quarter[N / 2 - i];
    return (int16_t)-sine(i - N / 2);
}
static int16_t cosine(int i) { return sine(i + N / 4); }

static int16_t scaled(int16_t a, int16_t b) { return (int16_t)(((int32_t)a * b + 0x4000) >> 15); }

static void reorder(void) {
    for (int i = 0, j = 0; i < N; i++) {
        if (j > i) {
            int16_t t = re[i];
            re[i] = re[j];
            re[j] = t;
            t = im[i];
            im[i] = im[j];
            im[j] = t;
        }
        int bit = N >> 1;
        while (bit && j & bit) {
            j ^= bit;
            bit >>= 1;
        }
        j |= bit;
    }
}

// Every stage halves, so the result is the transform divided by N.
static void fft(void) {
    reorder();
    for (int half = 1, stride = N / 2; half < N; half <<= 1, stride >>= 1) {
        for (int k = 0; k < half; k++) {
            int16_t wr = cosine(k * stride), wi = (int16_t)-sine(k * stride);
            for (int i = k; i < N; i += 2 * half) {
                int j = i + half;
                int16_t tr = (int16_t)(scaled(wr, re[j]) - scaled(wi, im[j]));
                int16_t ti = (int16_t)(scaled(wr, im[j]) + scaled(wi, re[j]));
                re[j] = (int16_t)((re[i] - tr) >> 1);
                im[j] = (int16_t)((im[i] - ti) >> 1);
                re[i] = (int16_t)((re[i] + tr) >> 1);
                im[i] = (int16_t)((im[i] + ti) >> 1);
            }
        }
    }
}

static int16_t slow_real(const int16_t* x, int bin) {
    int32_t s = 0;
    for (int i = 0; i < N; i++) s += (int32_t)x[i] * cosine(i * bin) >> 6;
    return (int16_t)(s >> 15);
}

int main(void) {
    int16_t signal[N];
    for (int i = 0; i < N; i++)
        signal[i] =
            (int16_t)(2000 + scaled(6000, cosine(5 * i)) + scaled(3000, sine(12 * i)) + (i & 1 ? 500 : -500));
    for (int i = 0; i < N; i++) {
        re[i] = signal[i];
        im[i] = 0;
    }
    fft();
    int worst = 0;
    for (int bin = 0; bin < N / 2; bin++) {
        int d = re[bin] - slow_real(signal, bin);
        if (d < 0) d = -d;
        if (d > worst) worst = d;
        if (re[bin] > 50 || re[bin] < -50 || im[bin] > 50 || im[bin] < -50)
            printf("%d: %d %d\n", bin, re[bin], im[bin]);
    }
    printf("half %d, worst difference small %d\n", re[N / 2], worst < 12);
    // The same again turned backwards: conjugate, transform, compare.
    for (int i = 0; i < N; i++) im[i] = (int16_t)-im[i];
    fft();
    worst = 0;
    for (int i = 0; i < N; i++) {
        int d = re[i] * N - signal[i];
        if (d < 0) d = -d;
        if (d > worst) worst = d;
    }
    printf("back %d %d\n", re[0], worst < 400);
    return 0;
}
