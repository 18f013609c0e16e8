// The rest of the library: character classes, number parsing, absolute values, random numbers within their
// range.
#include <ctype.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

static void classes(int c) {
    putchar(isalpha(c) ? 'a' : '-');
    putchar(isdigit(c) ? 'd' : '-');
    putchar(isalnum(c) ? 'n' : '-');
    putchar(isspace(c) ? 's' : '-');
    putchar(isupper(c) ? 'U' : '-');
    putchar(islower(c) ? 'l' : '-');
    putchar(ispunct(c) ? 'p' : '-');
    putchar(isxdigit(c) ? 'x' : '-');
    putchar(isprint(c) ? 'P' : '-');
    putchar(iscntrl(c) ? 'c' : '-');
    putchar(' ');
}

int main(void) {
    for (const char* s = "aZ5 \t_~\nGf"; *s; s++) classes(*s);
    printf("\n");
    for (const char* s = "Hello, World 1"; *s; s++) putchar(isupper(*s) ? tolower(*s) : toupper(*s));
    printf("\n");
    printf("%d %d %d %d %d\n", atoi("123"), atoi("  -45xyz"), atoi(""), atoi("+7"), atoi("abc"));
    printf("%ld %ld\n", atol("100000"), atol("-2147483647"));
    char* end;
    long v = strtol("0x1fG", &end, 0);
    printf("%ld %s\n", v, end);
    v = strtol("  -0777,", &end, 0);
    printf("%ld %s\n", v, end);
    v = strtol("zz!", &end, 36);
    printf("%ld %s\n", v, end);
    printf("%ld %ld\n", strtol("1011", NULL, 2), strtol("none", &end, 10));
    printf("%s %lu\n", end, strtoul("4294967295", NULL, 10));
    printf("%d %d %ld %ld\n", abs(-5), abs(7), labs(-100000L), labs(3L));
    srand(1);
    int in_range = 1, first = rand(), differ = 0;
    for (int i = 0; i < 200; i++) {
        int r = rand();
        in_range &= r >= 0 && r <= RAND_MAX;
        differ |= r != first;
    }
    srand(1);
    printf("%d %d %d %d\n", in_range, differ, rand() == first, RAND_MAX >= 32767);
    return 0;
}
