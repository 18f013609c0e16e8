// Character types hold 16 bits, plain char is signed, and they promote to int. 16-bit only: the expected
// values are worked out by hand.
#include <stdio.h>
#include <string.h>

static char plain[4] = {127, 128, 1000, -1000};
static unsigned char uns[3] = {255, 256, 65535u};
volatile signed char vsc = 12345;

static int as_int(char c) { return c; }
static unsigned as_unsigned(unsigned char c) { return c; }

int main(void) {
    for (int i = 0; i < 4; i++) printf("%d ", plain[i]);
    printf("\n");
    for (int i = 0; i < 3; i++) printf("%u ", (unsigned)uns[i]);
    printf("\n");
    char c = (char)300;
    c = (char)(c + 30000);
    printf("%d\n", c); // 30300
    c = (char)(c + 3000);
    printf("%d\n", c); // 33300 - 65536 = -32236
    unsigned char u = 255;
    u++;
    printf("%u\n", (unsigned)u); // 256: no wrap at 8 bits
    u = (unsigned char)65535u;
    u++;
    printf("%u\n", (unsigned)u); // 0
    u = (unsigned char)~0;
    printf("%d\n", u == 65535u);
    printf("%d %u\n", as_int((char)0x8001), as_unsigned((unsigned char)0x8001u));
    long l = 0x12345678L;
    printf("%x %x\n", (unsigned)(char)l, (unsigned)(unsigned char)(l >> 16));
    vsc = (signed char)(vsc * 2);
    printf("%d\n", vsc); // 24690
    vsc = (signed char)(vsc * 2);
    printf("%d\n", vsc); // 49380 - 65536 = -16156
    // memset and memcmp work on whole 16-bit units.
    int words[3];
    memset(words, 0x1234, sizeof words);
    printf("%x %x %x %d\n", words[0], words[1], words[2], (int)sizeof words);
    long pair = 0;
    char* p = (char*)&pair;
    p[0] = 1;
    p[1] = 2;
    printf("%lx\n", pair); // low unit first
    char s[] = "ab";
    printf("%d %d %d\n", s[0], s[1], s[2]);
    return 0;
}
