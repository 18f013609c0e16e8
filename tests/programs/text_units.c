/* Units of constant texts: read by a constant index as by a variable one, beyond seven bits too. */
#include <stdio.h>

static int unit(const char* text, int i) { return text[i]; }

int main(void) {
    int i = 1;
    printf("%d %d\n", "\xff"[0], unit("\xff", 0));
    printf("%d %d\n", "A\x80z"[1], "A\x80z"[i]);
    printf("%d %d %d\n", "abc"[0], *"abc", *("abc" + 2));
    printf("%d %d\n", "abc"[3], 1 ["xyz"]);
    return 0;
}
