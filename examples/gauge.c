// A level gauge: samples are filtered, limited and classified. Small enough to read its trees.
#include <stdio.h>

enum { SAMPLES = 24, LOW = 200, HIGH = 800 };

static const int raw[SAMPLES] = {120, 180, 260, 340, 390, 450,  520,  610, 700, 790, 860, 930,
                                 990, 970, 900, 810, 690, 1200, 1500, 480, 350, 260, 190, 100};
static int smooth[SAMPLES];

static int clamp(int value, int low, int high) { return value < low ? low : value > high ? high : value; }

static void filter(const int* from, int* to, int count) {
    int state = from[0];
#pragma MUST_ITERATE(1)
    for (int i = 0; i < count; i++) {
        state += (clamp(from[i], 0, 1000) - state) / 4;
        to[i] = state;
    }
}

static char classify(int value) {
    if (value < LOW) return '_';
    if (value > HIGH) return '^';
    return '-';
}

int main(void) {
    int alarms = 0;
    filter(raw, smooth, SAMPLES);
    for (int i = 0; i < SAMPLES; i++) {
        char c = classify(smooth[i]);
        alarms += c != '-';
        putchar(c);
    }
    printf("\n%d alarms, last %d\n", alarms, smooth[SAMPLES - 1]);
    return 0;
}
