// Formats of printf: flags, widths, precisions, lengths, and the values at the ends of the ranges.
#include <stdio.h>

int main(void) {
    printf("[%d] [%5d] [%-5d] [%05d] [%+d] [% d] [%+d]\n", 42, 42, 42, 42, 42, 42, -42);
    printf("[%i] [%.3d] [%8.3d] [%-8.3d] [%.0d] [%05d]\n", -7, 5, 5, 5, 0, -42);
    printf("[%u] [%5u] [%05u] [%x] [%X] [%#x] [%#X] [%o] [%#o]\n", 65535u, 7u, 7u, 48879u, 48879u, 255u, 255u,
           8u, 8u);
    printf("[%08x] [%-8x] [%#08x] [%.4x] [%8.4x] [%#x]\n", 0xbeu, 0xbeu, 0xbeu, 0xbeu, 0xbeu, 0u);
    printf("[%ld] [%12ld] [%-12ld] [%012ld] [%lu] [%lx]\n", -2147483647L, 123456L, 123456L, -123456L,
           4294967295ul, 0xdeadbeeful);
    printf("[%lld] [%22lld] [%llu] [%llx] [%llo]\n", -9223372036854775807LL, 1234567890123LL,
           18446744073709551615ull, 0x123456789abcdefull, 01234567012345670ull);
    printf("[%hd] [%hu]\n", (short)-5, (unsigned short)60000u);
    printf("[%c] [%3c] [%-3c] [%c%c]\n", 'a', 'b', 'c', 'd', 'e');
    printf("[%s] [%8s] [%-8s] [%.2s] [%8.2s] [%.0s] [%s]\n", "text", "text", "text", "text", "text", "text",
           "");
    printf("[%%] [%5s%%] [%d%%]\n", "x", 100);
    printf("[%f] [%.2f] [%8.3f] [%-8.1f] [%08.2f] [%+.1f] [%.0f]\n", 1.5, 3.140625, -2.625, 0.5, -1.25, 2.0,
           2.5);
    printf("[%e] [%.2e] [%12.3e] [%E]\n", 1500.0, 0.03125, -65536.0, 0.5);
    printf("[%g] [%g] [%g] [%g] [%g] [%.3g]\n", 0.5, 100000.0, 1000000.0, 0.0001220703125, 1.0, 1234.0);
    printf("[%f] [%f] [%g]\n", 0.0, 16777216.0, 0.0);
    printf("[%*d] [%-*d] [%.*f] [%.*s]\n", 6, 42, 6, 42, 3, 0.125, 2, "abc");
    int n = printf("%s-%d\n", "count", 12345);
    printf("%d\n", n);
    n = puts("puts adds a newline") >= 0;
    putchar('0' + n);
    putchar('\n');
    char buffer[32];
    n = sprintf(buffer, "%d/%s/%c", -99, "ab", 'z');
    printf("%s %d\n", buffer, n);
    n = snprintf(buffer, 5, "%s", "truncated");
    printf("%s %d\n", buffer, n);
    return 0;
}
