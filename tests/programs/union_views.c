// The same storage seen through several members: words of a long, the bits of a float, a tagged message.
#include <stdint.h>
#include <stdio.h>
#include <string.h>

union word {
    uint32_t whole;
    int32_t s;
    uint16_t half[2];
    float f;
};

union message {
    struct {
        uint16_t type, length;
        uint16_t body[4];
    } raw;
    struct {
        uint16_t type, length;
        uint32_t id;
        int16_t delta;
    } update;
};

static uint16_t checksum(const union message* m) {
    uint16_t sum = (uint16_t)(m->raw.type ^ m->raw.length);
    for (int i = 0; i < 4; i++)
        sum = (uint16_t)((uint16_t)(sum << 1) ^ (uint16_t)(sum >> 15) ^ m->raw.body[i]);
    return sum;
}

static float fast_half(float x) {
    union word w;
    w.f = x;
    w.whole -= 0x00800000ul; // one less in the exponent
    return w.f;
}

int main(void) {
    union word w = {0x12345678ul};
    printf("%x %x\n", (unsigned)w.half[0], (unsigned)w.half[1]);
    w.half[1] = 0xFFFFu;
    printf("%lx %ld\n", (unsigned long)w.whole, (long)w.s);
    w.f = 1.0f;
    printf("%lx\n", (unsigned long)w.whole);
    w.f = -2.5f;
    printf("%lx %d\n", (unsigned long)w.whole, (int)(w.whole >> 31));
    w.whole = 0x40490FDBul;
    printf("%f\n", w.f);
    printf("%f %f\n", fast_half(10.0f), fast_half(0.375f));

    union message m;
    memset(&m, 0, sizeof m);
    m.update.type = 3;
    m.update.length = 6;
    m.update.id = 0xCAFE1234ul;
    m.update.delta = -2;
    printf("%x %x %x %x\n", (unsigned)m.raw.body[0], (unsigned)m.raw.body[1], (unsigned)m.raw.body[2],
           (unsigned)checksum(&m));
    union message n = m;
    n.raw.body[1] = 0;
    printf("%lx %lx %d\n", (unsigned long)n.update.id, (unsigned long)m.update.id, n.update.delta);

    // The words of an object through a pointer to a narrower type of the same storage.
    uint32_t values[3] = {1, 0x20002ul, 0xFFFF0000ul};
    uint16_t words[6];
    memcpy(words, values, sizeof values);
    for (int i = 0; i < 6; i++) printf("%x ", (unsigned)words[i]);
    printf("\n");
    return 0;
}
