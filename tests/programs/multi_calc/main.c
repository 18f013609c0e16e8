#include "calc.h"
#include <stdio.h>

static struct word now;
int errors;

static void advance(void) { errors += next_word(&now) == BAD; }

static int strength(char sign) { return sign == '+' || sign == '-' ? 1 : sign == '*' || sign == '/' ? 2 : 0; }

static long primary(void) {
    long value = 0;
    if (now.kind == NUMBER) {
        value = now.u.number;
        advance();
    } else if (now.kind == NAME) {
        struct entry* e = now.u.entry;
        advance();
        value = e->call ? e->call(primary()) : e->value;
    } else if (now.kind == SIGN && now.u.sign == '(') {
        advance();
        value = expression(1);
        advance();
    } else if (now.kind == SIGN && now.u.sign == '-') {
        advance();
        value = -primary();
    } else {
        errors++;
    }
    return value;
}

long expression(int least) {
    long left = primary();
    while (now.kind == SIGN && strength(now.u.sign) >= least) {
        char sign = now.u.sign;
        long right;
        advance();
        right = expression(strength(sign) + 1);
        switch (sign) {
            case '+': left += right; break;
            case '-': left -= right; break;
            case '*': left *= right; break;
            default:
                if (right)
                    left /= right;
                else
                    errors++;
        }
    }
    return left;
}

static long square(long x) { return x * x; }

static long evaluate(const char* text) {
    errors = 0;
    start(text);
    advance();
    return expression(1);
}

int main(void) {
    static const char* const lines[] = {
        "1 + 2 * 3",        "(1+2)*3 - -4", "answer * 1000 / 3", "square(12) - square 3",
        "half 7 + half(9)", "1 / 0",        "2 * $ + 1",         "unknown + answer"};
    unsigned i;
    define("answer", 42, 0);
    define("square", 0, square);
    for (i = 0; i < sizeof lines / sizeof *lines; i++) {
        long value = evaluate(lines[i]);
        printf("%s = %ld%s\n", lines[i], value, errors ? " ?" : "");
    }
    printf("%u\n", lookups);
    return 0;
}
