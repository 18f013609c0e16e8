// The string functions, on ordinary and corner cases, and a few of them written out by hand beside.
#include <stdint.h>
#include <stdio.h>
#include <string.h>

static int sign(int n) { return (n > 0) - (n < 0); }

static unsigned my_strlen(const char* s) {
    const char* e = s;
    while (*e) ++e;
    return (unsigned)(e - s);
}

static char* my_strcpy(char* to, const char* from) {
    char* start = to;
    while ((*to++ = *from++) != 0) {
    }
    return start;
}

static void reverse(char* s) {
    for (int i = 0, j = (int)strlen(s) - 1; i < j; i++, j--) {
        char t = s[i];
        s[i] = s[j];
        s[j] = t;
    }
}

static int words(const char* s) {
    int n = 0, inside = 0;
    for (; *s; s++) {
        if (*s == ' ' || *s == '\t')
            inside = 0;
        else if (!inside)
            inside = 1, n++;
    }
    return n;
}

int main(void) {
    char a[32], b[32];
    strcpy(a, "hello");
    strcat(a, ", ");
    strncat(a, "worlds apart", 5);
    printf("%s %d %u\n", a, (int)strlen(a), my_strlen(a));
    printf("%d %d %d %d %d\n", sign(strcmp("abc", "abd")), sign(strcmp("abc", "abc")),
           sign(strcmp("abd", "abc")), sign(strcmp("ab", "abc")), sign(strcmp("", "")));
    printf("%d %d %d\n", sign(strncmp("abcdef", "abcxyz", 3)), sign(strncmp("abcdef", "abcxyz", 4)),
           sign(strncmp("a", "b", 0)));
    memset(b, '#', sizeof b);
    strncpy(b, "abc", 6);
    printf("%s %d %d %c\n", b, b[3], b[5], b[6]);
    char *p = strchr(a, 'o'), *q = strrchr(a, 'o');
    printf("%d %d %d %d\n", (int)(p - a), (int)(q - a), strchr(a, 'z') == 0, strchr(a, 0) == a + strlen(a));
    const char* hay = "aaab";
    printf("%s %d %d\n", strstr("needle in a haystack", "in a"), strstr("abc", "abcd") == 0,
           (int)(strstr(hay, "aab") - hay));
    memmove(a + 2, a, 6);
    printf("%s\n", a);
    memcpy(a, "12", 2);
    printf("%s %d\n", a, sign(memcmp(a, "12h", 3)));
    p = memchr(a, 'w', 12);
    printf("%s\n", p ? p : "(none)");
    reverse(my_strcpy(b, "stressed"));
    printf("%s\n", b);
    printf("%d %d %d\n", words("  the quick\tbrown   fox "), words(""), words("x"));
    printf("%d %d\n", (int)strspn("123abc", "0123456789"), (int)strcspn("abc,def", ",;"));
    static const char* const names[] = {"zeta", "alpha", "mu", "beta", "omega"};
    const char* least = names[0];
    for (int i = 1; i < 5; i++)
        if (strcmp(names[i], least) < 0) least = names[i];
    printf("%s %c%c\n", least, least[1], *(names[4] + 2));
    const char text[] = "tab\there \"quoted\" back\\slash \101\x42 \0hidden";
    printf("%s %d\n", text, (int)(sizeof text / sizeof text[0]));
    return 0;
}
