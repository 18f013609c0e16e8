// A dictionary compressor over a sliding window and its decompressor; every text comes back unchanged.
#include <stdint.h>
#include <stdio.h>
#include <string.h>

enum { WINDOW = 255, SHORTEST = 3, LONGEST = 18, ROOM = 2000 };

static char text[ROOM], packed[ROOM + ROOM / 8 + 16], back[ROOM];

// A flag unit announces eight items, lowest bit first: 0 a literal, 1 a pair of distance and length.
static int compress(const char* in, int n, char* out) {
    int at = 0, to = 0, flag_at = 0, item = 8;
    while (at < n) {
        if (item == 8) {
            flag_at = to++;
            out[flag_at] = 0;
            item = 0;
        }
        int best = 0, best_distance = 0;
        int from = at > WINDOW ? at - WINDOW : 0;
        for (int p = at - 1; p >= from; p--) {
            if (in[p] != in[at]) continue;
            int length = 1;
            while (length < LONGEST && at + length < n && in[p + length] == in[at + length]) length++;
            if (length > best) {
                best = length;
                best_distance = at - p;
                if (best == LONGEST) break;
            }
        }
        if (best >= SHORTEST) {
            out[flag_at] |= (char)(1 << item);
            out[to++] = (char)best_distance;
            out[to++] = (char)best;
            at += best;
        } else {
            out[to++] = in[at++];
        }
        item++;
    }
    return to;
}

static int expand(const char* in, int n, char* out) {
    int at = 0, to = 0;
    while (at < n) {
        int flags = in[at++];
        for (int item = 0; item < 8 && at < n; item++) {
            if (flags >> item & 1) {
                int distance = in[at] & 255, length = in[at + 1] & 255;
                at += 2;
                for (int i = 0; i < length; i++, to++) out[to] = out[to - distance];
            } else {
                out[to++] = in[at++];
            }
        }
    }
    return to;
}

static uint16_t fletcher(const char* p, int n) {
    uint16_t a = 1, b = 0;
    while (n--) {
        a = (uint16_t)((a + (*p++ & 255)) % 251u);
        b = (uint16_t)((a + b) % 251u);
    }
    return (uint16_t)(b << 8 | a);
}

static void run(const char* name, int n) {
    int small = compress(text, n, packed);
    memset(back, 1, sizeof back);
    int again = expand(packed, small, back);
    int same = again == n && memcmp(text, back, (size_t)n) == 0;
    printf("%s %d -> %d, sum %x, %s\n", name, n, small, (unsigned)fletcher(packed, small),
           same ? "same" : "DIFFERENT");
}

int main(void) {
    run("empty", 0);
    text[0] = 'x';
    run("single", 1);
    memset(text, 'a', 600);
    run("runs", 600);
    static const char phrase[] = "it was the best of times, it was the worst of times, ";
    for (int i = 0; i < 800; i++) text[i] = phrase[i % (sizeof phrase / sizeof phrase[0] - 1)];
    run("phrase", 800);
    uint16_t seed = 1;
    for (int i = 0; i < 500; i++) {
        seed = (uint16_t)(seed * 31821u + 13849u);
        text[i] = (char)('a' + (seed >> 8) % 26u);
    }
    run("noise", 500);
    for (int i = 0; i < 700; i++) {
        seed = (uint16_t)(seed * 31821u + 13849u);
        text[i] = (char)("abcab"[(seed >> 10) % 5u]);
    }
    run("few", 700);
    return 0;
}
