// Standard input: getchar to the end, a small tokeniser with one character of look-ahead, line and word
// counts.
#include <ctype.h>
#include <stdint.h>
#include <stdio.h>

static int peeked = -2;
static int16_t lines, characters;

static int peek(void) {
    if (peeked == -2) peeked = getchar();
    return peeked;
}

static int take(void) {
    int c = peek();
    peeked = -2;
    if (c != EOF) characters++;
    if (c == '\n') lines++;
    return c;
}

int main(void) {
    int16_t names = 0, numbers = 0, others = 0;
    int32_t sum = 0;
    char longest[24] = "";
    int16_t longest_length = 0;
    while (peek() != EOF) {
        int c = peek();
        if (isalpha(c) || c == '_') {
            char name[24];
            int16_t n = 0;
            while (isalnum(peek()) || peek() == '_') {
                c = take();
                if (n < 23) name[n++] = (char)c;
            }
            name[n] = 0;
            names++;
            if (n > longest_length) {
                longest_length = n;
                for (int16_t i = 0; i <= n; i++) longest[i] = name[i];
            }
        } else if (isdigit(c)) {
            int32_t v = 0;
            while (isdigit(peek())) v = v * 10 + (take() - '0');
            sum += v;
            numbers++;
        } else {
            take();
            if (!isspace(c)) others++;
        }
    }
    printf("%d lines, %d characters, %d names, %d numbers, %d others\n", lines, characters, names, numbers,
           others);
    printf("%s %ld %d\n", longest, (long)sum, getchar() == EOF);
    return 0;
}
