// Static storage: local statics, tentative definitions, file statics, initial values, arrays that keep their
// state.
#include <stdint.h>
#include <stdio.h>

int tentative;
int tentative;
extern int declared_first;
int declared_first = 12;
static int16_t zeroes[50];
static int32_t chain = 5;
static int32_t* chain_pointer = &chain;
int16_t shadow = 1;

static int counter(void) {
    static int n = 10;
    return n += 3;
}
static int other_counter(void) {
    static int n;
    return ++n;
}

static const char* remember(int16_t v) {
    static char text[8];
    static int16_t length;
    if (length < 7) text[length++] = (char)('0' + v);
    return text;
}

static int16_t* slot(void) {
    static int16_t storage[4] = {1, 2, 3, 4};
    static unsigned at;
    return &storage[at++ & 3];
}

static int nested(int n) {
    {
        static int n_calls = 100;
        n_calls++;
        if (n > 0) nested(n - 1);
        n = n_calls;
    }
    {
        static int n_calls;
        n_calls += n;
        return n_calls;
    }
}

static int16_t ring_put(int16_t v) {
    static struct {
        int16_t data[5];
        int16_t head, full;
    } ring;
    int16_t old = ring.data[ring.head];
    ring.data[ring.head] = v;
    ring.head = (int16_t)((ring.head + 1) % 5);
    ring.full += ring.head == 0;
    return (int16_t)(old * 10 + ring.full);
}

int main(void) {
    int16_t shadow = 2;
    for (int i = 0; i < 4; i++) printf("%d %d ", counter(), other_counter());
    printf("\n");
    for (int16_t i = 0; i < 9; i++) remember(i);
    printf("%s\n", remember(9));
    for (int i = 0; i < 6; i++) *slot() += (int16_t)(i * 10);
    for (int i = 0; i < 2; i++) *slot() = 0;
    for (int i = 0; i < 4; i++) printf("%d ", *slot());
    printf("\n");
    int first = nested(2);
    printf("%d %d\n", first, nested(0));
    for (int16_t i = 1; i <= 12; i++) printf("%d ", ring_put(i));
    printf("\n");
    *chain_pointer *= 100000L;
    tentative -= 4;
    int sum = 0;
    for (int i = 0; i < 50; i++) sum += zeroes[i] == 0;
    printf("%ld %d %d %d %d\n", (long)chain, tentative, declared_first, sum, shadow);
    {
        extern int tentative;
        tentative++;
        printf("%d\n", tentative);
    }
    return 0;
}
