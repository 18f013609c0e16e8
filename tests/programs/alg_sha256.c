// SHA-256 in 32-bit arithmetic; the digests of the empty text, "abc" and a longer text are well known.
#include <stdint.h>
#include <stdio.h>

static uint32_t k[64], start[8];

// The constants are the first 32 fraction bits of roots of the primes; integer roots of scaled primes give
// them.
static uint32_t fraction_of_root(uint32_t p, int cube) {
    uint64_t lo = 0, hi = (uint64_t)9 << 32;
    // Find the largest r with r^2 <= p * 2^64, or r^3 <= p * 2^96, by halving; the product is compared limb
    // by limb.
    while (hi - lo > 1) {
        uint64_t mid = lo + (hi - lo) / 2;
        uint32_t limb[4] = {1, 0, 0, 0};
        uint64_t over = 0;
        for (int i = 0; i < 2 + cube; i++) {
            uint64_t low = mid & 0xFFFFFFFFul, high = mid >> 32;
            uint32_t next[4];
            uint64_t carry = 0;
            for (int j = 0; j < 4; j++) {
                uint64_t v = limb[j] * low + carry + (j ? limb[j - 1] * high % 0x100000000ull : 0);
                uint64_t up = j ? limb[j - 1] * high >> 32 : 0;
                next[j] = (uint32_t)v;
                carry = (v >> 32) + up;
            }
            over += carry + limb[3] * high;
            for (int j = 0; j < 4; j++) limb[j] = next[j];
        }
        int point = 2 + cube; // the limb that holds the whole part
        uint64_t whole = point < 4 ? limb[point] : 0;
        if (over || whole >= p)
            hi = mid;
        else
            lo = mid;
    }
    return (uint32_t)lo;
}

static void make_constants(void) {
    int n = 0;
    for (uint32_t p = 2; n < 64; p++) {
        int prime = 1;
        for (uint32_t d = 2; d * d <= p; d++)
            if (p % d == 0) prime = 0;
        if (!prime) continue;
        if (n < 8) start[n] = fraction_of_root(p, 0);
        k[n++] = fraction_of_root(p, 1);
    }
}

static uint32_t rotr(uint32_t v, int n) { return v >> n | v << (32 - n); }

static void block(uint32_t h[8], const uint32_t* words) {
    static uint32_t w[64];
    for (int i = 0; i < 16; i++) w[i] = words[i];
    for (int i = 16; i < 64; i++) {
        uint32_t s0 = rotr(w[i - 15], 7) ^ rotr(w[i - 15], 18) ^ w[i - 15] >> 3;
        uint32_t s1 = rotr(w[i - 2], 17) ^ rotr(w[i - 2], 19) ^ w[i - 2] >> 10;
        w[i] = w[i - 16] + s0 + w[i - 7] + s1;
    }
    uint32_t a = h[0], b = h[1], c = h[2], d = h[3], e = h[4], f = h[5], g = h[6], l = h[7];
    for (int i = 0; i < 64; i++) {
        uint32_t t1 = l + (rotr(e, 6) ^ rotr(e, 11) ^ rotr(e, 25)) + ((e & f) ^ (~e & g)) + k[i] + w[i];
        uint32_t t2 = (rotr(a, 2) ^ rotr(a, 13) ^ rotr(a, 22)) + ((a & b) ^ (a & c) ^ (b & c));
        l = g, g = f, f = e, e = d + t1, d = c, c = b, b = a, a = t1 + t2;
    }
    h[0] += a, h[1] += b, h[2] += c, h[3] += d, h[4] += e, h[5] += f, h[6] += g, h[7] += l;
}

static void digest(const char* text) {
    uint32_t h[8], words[16] = {0};
    for (int i = 0; i < 8; i++) h[i] = start[i];
    uint32_t n = 0;
    int at = 0;
    for (;; text++) {
        uint32_t c = *text ? (uint32_t)*text : 0x80;
        words[at / 4] |= c << (24 - at % 4 * 8);
        if (++at == 64) {
            block(h, words);
            for (int i = 0; i < 16; i++) words[i] = 0;
            at = 0;
        }
        if (!*text) break;
        n++;
    }
    if (at > 56) {
        block(h, words);
        for (int i = 0; i < 16; i++) words[i] = 0;
    }
    words[15] = n * 8;
    block(h, words);
    for (int i = 0; i < 8; i++) printf("%08lx", (unsigned long)h[i]);
    printf("\n");
}

int main(void) {
    make_constants();
    printf("%08lx %08lx\n", (unsigned long)start[0], (unsigned long)k[63]); // 6a09e667 c67178f2
    digest("");
    digest("abc");
    digest("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq");
    return 0;
}
