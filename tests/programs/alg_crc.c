// Cyclic redundancy checks of 16 and 32 bits, by bits and by table; the check values of "123456789" are well
// known.
#include <stdint.h>
#include <stdio.h>

static uint16_t table16[256];
static uint32_t table32[256];

static uint16_t crc16_bits(const char* p, int n) {
    uint16_t crc = 0xFFFFu;
    while (n--) {
        crc ^= (uint16_t)((uint16_t)(*p++ & 255) << 8);
        for (int i = 0; i < 8; i++)
            crc = (uint16_t)(crc & 0x8000u ? (uint16_t)(crc << 1) ^ 0x1021u : (uint16_t)(crc << 1));
    }
    return crc;
}

static uint32_t crc32_bits(const char* p, int n) {
    uint32_t crc = 0xFFFFFFFFul;
    while (n--) {
        crc ^= (uint32_t)(*p++ & 255);
        for (int i = 0; i < 8; i++) crc = crc >> 1 ^ (crc & 1 ? 0xEDB88320ul : 0);
    }
    return crc ^ 0xFFFFFFFFul;
}

static void make_tables(void) {
    for (uint16_t i = 0; i < 256; i++) {
        uint16_t c = (uint16_t)(i << 8);
        uint32_t d = i;
        for (int k = 0; k < 8; k++) {
            c = (uint16_t)(c & 0x8000u ? (uint16_t)(c << 1) ^ 0x1021u : (uint16_t)(c << 1));
            d = d & 1 ? d >> 1 ^ 0xEDB88320ul : d >> 1;
        }
        table16[i] = c;
        table32[i] = d;
    }
}

static uint16_t crc16(uint16_t crc, const char* p, int n) {
    while (n--) crc = (uint16_t)((uint16_t)(crc << 8) ^ table16[(crc >> 8 ^ (*p++ & 255)) & 255]);
    return crc;
}

static uint32_t crc32(uint32_t crc, const char* p, int n) {
    crc = ~crc & 0xFFFFFFFFul;
    while (n--) crc = crc >> 8 ^ table32[(crc ^ (uint32_t)*p++) & 255];
    return ~crc & 0xFFFFFFFFul;
}

static uint32_t adler(const char* p, int n) {
    uint32_t a = 1, b = 0;
    while (n--) {
        a = (a + (uint32_t)(*p++ & 255)) % 65521ul;
        b = (b + a) % 65521ul;
    }
    return b << 16 | a;
}

int main(void) {
    static const char digits[] = "123456789";
    static char block[512];
    make_tables();
    printf("%04x %04x\n", (unsigned)crc16_bits(digits, 9), (unsigned)crc16(0xFFFFu, digits, 9)); // 29b1
    printf("%08lx %08lx\n", (unsigned long)crc32_bits(digits, 9),
           (unsigned long)crc32(0, digits, 9));         // cbf43926
    printf("%08lx\n", (unsigned long)adler(digits, 9)); // 091e01de
    for (int i = 0; i < 512; i++) block[i] = (char)(i * 7 & 255);
    uint32_t whole = crc32(0, block, 512), parts = 0;
    uint16_t whole16 = crc16(0, block, 512), parts16 = 0;
    for (int at = 0, n = 1; at < 512; at += n, n = n * 2 % 61) {
        int take = at + n > 512 ? 512 - at : n;
        parts = crc32(parts, block + at, take);
        parts16 = crc16(parts16, block + at, take);
    }
    printf("%d %d\n", whole == parts, whole16 == parts16);
    block[100] ^= 1;
    printf("%d %d\n", crc32(0, block, 512) != whole, crc16(0, block, 512) != whole16);
    printf("%08lx %04x\n", (unsigned long)whole, (unsigned)whole16);
    printf("%08lx\n", (unsigned long)crc32(0, block, 0));
    return 0;
}
