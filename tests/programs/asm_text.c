// Assembly text as a statement: passes through untouched and keeps its place among the statements around it.
#include <stdint.h>
#include <stdio.h>

volatile int16_t port;

static int16_t work(int16_t n) {
    int16_t r = 0;
    asm(" nop");
    for (int16_t i = 0; i < n; i++) {
        asm(" nop");
        r += i;
        if (r > 20) {
            asm(" nop # leaving early");
            break;
        }
    }
    __asm__ volatile(" nop");
    return r;
}

int main(void) {
    port = 1;
    asm(" nop");
    port = 2;
    printf("%d %d\n", work(4), work(100));
    if (port == 2)
        asm(" nop");
    else
        printf("unexpected\n");
    printf("%d\n", port);
    return 0;
}
