#include "calc.h"

static const char* first; /* not the list of another file */

static int is_letter(char c) { return c >= 'a' && c <= 'z'; }
static int is_digit(char c) { return c >= '0' && c <= '9'; }

void start(const char* text) { first = text; }

int next_word(struct word* w) {
    while (*first == ' ') first++;
    if (!*first) return w->kind = END;
    if (is_digit(*first)) {
        w->kind = NUMBER;
        for (w->u.number = 0; is_digit(*first); first++) w->u.number = w->u.number * 10 + (*first - '0');
    } else if (is_letter(*first)) {
        const char* begin = first;
        while (is_letter(*first)) first++;
        w->u.entry = find(begin, (int)(first - begin));
        w->kind = w->u.entry ? NAME : BAD;
    } else {
        w->u.sign = *first;
        w->kind = *first == '$' ? BAD : SIGN;
        first++;
    }
    return w->kind;
}
