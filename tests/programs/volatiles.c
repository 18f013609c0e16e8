// Volatile and const objects: every access happens, in order, and none is added; registers, flags and
// polling.
#include <stdint.h>
#include <stdio.h>

volatile int16_t status;
volatile uint16_t control = 0x10;
volatile int32_t counter;
volatile struct { int16_t data, ready; } device;
const volatile int16_t serial = 321;
volatile int16_t fifo[4];
static const int16_t limits[] = {5, 10, 15};
static volatile int16_t quiet;

static int16_t poll(int16_t tries) {
    while (tries-- > 0) {
        if (status & 1) return tries;
        status++;
    }
    return -1;
}

static void pulse(volatile uint16_t* reg, uint16_t bits) {
    *reg |= bits;
    *reg &= (uint16_t)~bits;
}

static int16_t read_twice(void) {
    int16_t a = status;
    int16_t b = status;
    return (int16_t)(a + b);
}

int main(void) {
    status = 0;
    status = 0; // both stores stay
    printf("%d\n", poll(5));
    printf("%d\n", read_twice());
    pulse(&control, 0x8001u);
    control ^= 0xFF;
    printf("%x\n", (unsigned)control);
    for (int16_t i = 0; i < 6; i++) {
        fifo[i & 3] = (int16_t)(i * i);
        int16_t other = fifo[(i + 1) & 3];
        counter += other;
    }
    printf("%ld\n", (long)counter);
    status; // a read whose value nobody uses
    (void)control;
    device.data = serial;
    device.ready = 1;
    int16_t got = device.ready ? device.data : 0;
    device.ready = 0;
    printf("%d %d\n", got, device.ready);
    int16_t spent = 0;
    quiet = 3;
    do spent += limits[quiet - 1];
    while (--quiet);
    printf("%d %d\n", spent, quiet);
    volatile int16_t local = 4;
    local = (int16_t)(local * local);
    int16_t* volatile moving = &spent;
    int16_t amount = local;
    *moving += amount;
    printf("%d\n", *moving);
    if (counter > 5 && status) counter = -counter;
    printf("%ld\n", (long)(counter ? counter : 1L));
    return 0;
}
