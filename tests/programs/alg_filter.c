// Digital filters in fixed point: a FIR with a delay line, a biquad cascade, a moving average, decimation.
#include <stdint.h>
#include <stdio.h>

enum { TAPS = 16, SAMPLES = 160 };

static const int16_t taps[TAPS] = {-120, -340, -210, 480,  1650, 3300, 4900, 5860,
                                   5860, 4900, 3300, 1650, 480,  -210, -340, -120};
static int16_t input[SAMPLES], output[SAMPLES];

static int16_t saturate(int32_t v) {
    if (v > 32767) return 32767;
    if (v < -32768L) return -32767 - 1;
    return (int16_t)v;
}

static int16_t fir(int16_t sample) {
    static int16_t line[TAPS];
    static int16_t at;
    line[at] = sample;
    int32_t acc = 1L << 14;
    int16_t from = at;
#pragma MUST_ITERATE(16, 16)
    for (int16_t i = 0; i < TAPS; i++) {
        acc += (int32_t)taps[i] * line[from];
        from = (int16_t)(from == 0 ? TAPS - 1 : from - 1);
    }
    at = (int16_t)((at + 1) % TAPS);
    return saturate(acc >> 15);
}

struct biquad {
    int16_t b0, b1, b2, a1, a2;
    int16_t x1, x2, y1, y2;
};

static int16_t step(struct biquad* f, int16_t x) {
    int32_t acc = (int32_t)f->b0 * x + (int32_t)f->b1 * f->x1 + (int32_t)f->b2 * f->x2;
    acc -= (int32_t)f->a1 * f->y1 + (int32_t)f->a2 * f->y2;
    f->x2 = f->x1;
    f->x1 = x;
    f->y2 = f->y1;
    f->y1 = saturate(acc >> 13);
    return f->y1;
}

static uint16_t fold(const int16_t* v, int n) {
    uint16_t h = 0x55;
    for (int i = 0; i < n; i++) h = (uint16_t)((uint16_t)(h << 5) ^ (uint16_t)(h >> 11) ^ (uint16_t)v[i]);
    return h;
}

static void generate(void) {
    // A square wave, a ramp and a little noise.
    uint16_t seed = 3;
    for (int i = 0; i < SAMPLES; i++) {
        seed = (uint16_t)(seed * 2053u + 13849u);
        input[i] = (int16_t)((i / 20 % 2 ? 6000 : -6000) + i * 30 + (int16_t)(seed >> 8) - 128);
    }
}

int main(void) {
    generate();
    for (int i = 0; i < SAMPLES; i++) output[i] = fir(input[i]);
    printf("fir %x: %d %d %d %d\n", (unsigned)fold(output, SAMPLES), output[0], output[15], output[47],
           output[159]);

    struct biquad cascade[2] = {{547, 1094, 547, -11840, 5837}, {1638, -2000, 1638, -9000, 3000}};
    for (int i = 0; i < SAMPLES; i++) {
        int16_t v = input[i];
        for (int k = 0; k < 2; k++) v = step(&cascade[k], v);
        output[i] = v;
    }
    printf("iir %x: %d %d %d\n", (unsigned)fold(output, SAMPLES), output[5], output[50], output[150]);

    int32_t sum = 0;
    for (int i = 0; i < SAMPLES; i++) {
        sum += input[i];
        if (i >= 8) sum -= input[i - 8];
        output[i] = (int16_t)(sum / 8);
    }
    printf("mean %x: %d %d\n", (unsigned)fold(output, SAMPLES), output[8], output[100]);

    int n = 0;
    for (int i = 0; i + 4 <= SAMPLES; i += 4) {
        int32_t s = 0;
        for (int k = 0; k < 4; k++) s += input[i + k];
        output[n++] = (int16_t)(s >> 2);
    }
    printf("decimated %d %x\n", n, (unsigned)fold(output, n));
    int32_t energy = 0;
    for (int i = 0; i < n; i++) energy += ((int32_t)output[i] * output[i]) >> 6;
    printf("energy %ld\n", (long)energy);
    return 0;
}
