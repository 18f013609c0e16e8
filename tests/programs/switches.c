// Switch statements: dense, sparse, wide and negative selectors, fall through, default in the middle,
// nesting.
#include <stdint.h>
#include <stdio.h>

volatile int16_t port;

static int dense(int n) {
    switch (n) {
        case 0: return 10;
        case 1: return 11;
        case 2: return 14;
        case 3:
        case 4: return 13;
        case 5: return -1;
        case 6: return 99;
    }
    return 0;
}

static int sparse(int32_t n) {
    switch (n) {
        case -2147483647L: return 1;
        case -70000L: return 2;
        case -1: return 3;
        case 0: return 4;
        case 1000: return 5;
        case 32768L: return 6;
        case 70000L: return 7;
        case 2147483647L: return 8;
        default: return 0;
    }
}

static int wide(int64_t n) {
    switch (n) {
        case 5000000000LL: return 1;
        case -5000000000LL: return 2;
        case 705032704LL: return 3; // the low half of the first
        default: return 4;
    }
}

static int fall(int n) {
    int r = 0;
    switch (n) {
        case 3: r += 1000;
        // fall through
        case 2: r += 100;
        // fall through
        default: r += 10;
        // fall through
        case 1: r += 1; break;
        case 7: r = -1;
    }
    return r;
}

static int nested(int a, int b) {
    int r = 1;
    switch (a) {
        case 0:
            switch (b) {
                case 0: r = 2; break;
                case 1: return 50;
                default: r = 3;
            }
            r *= 10;
            break;
        case 1:
            for (int i = 0; i < 5; i++) {
                switch (i ^ b) {
                    case 1: continue;
                    case 3: break;
                    default: r += i;
                }
                r *= 2;
            }
            break;
        default:
            while (a-- > 0) {
                switch (b & 1)
                case 1:
                    r += a;
                if (r > 20) break;
            }
    }
    return r;
}

static const char* word(char c) {
    switch (c) {
        case 'a':
        case 'e':
        case 'i':
        case 'o':
        case 'u': return "vowel";
        case '6':
        case '7':
        case '8': return "digit";
        case ' ': return "blank";
        default: return c >= 'a' && c <= 'z' ? "consonant" : "other";
    }
}

int main(void) {
    for (int i = -1; i < 8; i++) printf("%d %d, ", dense(i), fall(i));
    printf("\n");
    static const int32_t s[] = {-2147483647L, -70000L, -1,     0,    1,          1000,
                                32768L,       -32768L, 70000L, 4464, 2147483647L};
    for (int i = 0; i < 11; i++) printf("%d ", sparse(s[i]));
    printf("%d %d %d %d\n", wide(5000000000LL), wide(-5000000000LL), wide(705032704LL), wide(0));
    for (int a = 0; a < 4; a++)
        for (int b = 0; b < 4; b++) printf("%d ", nested(a, b));
    printf("\n");
    for (const char* p = "ab 7Z"; *p; p++) printf("%s ", word(*p));
    printf("\n");
    int hits = 0;
    for (port = 0; port < 12; port++) {
        switch (port) {
            case 2: hits += 1; break;
            case 4: port += 2; break;
            case 9: hits += 10;
        }
    }
    switch (hits) {}
    switch (hits++)
    default:
        hits++;
    printf("%d %d\n", hits, port);
    uint16_t u = 65535u;
    switch (u) {
        case 65535u: printf("top\n"); break;
        case 1: printf("one\n");
    }
    return 0;
}
