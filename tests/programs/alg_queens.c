// Eight queens by backtracking over arrays, by bit sets, and a sudoku-like exact fill; counts must agree.
#include <stdint.h>
#include <stdio.h>

static int16_t column[8], used[8], rising[15], falling[15];
static int16_t solutions;
static int32_t tried;

static void place(int16_t row) {
    if (row == 8) {
        if (++solutions == 1 || solutions == 92) {
            for (int16_t i = 0; i < 8; i++) printf("%d", column[i]);
            printf("\n");
        }
        return;
    }
    for (int16_t c = 0; c < 8; c++) {
        tried++;
        if (used[c] || rising[row + c] || falling[row - c + 7]) continue;
        column[row] = c;
        used[c] = rising[row + c] = falling[row - c + 7] = 1;
        place((int16_t)(row + 1));
        used[c] = rising[row + c] = falling[row - c + 7] = 0;
    }
}

static int16_t by_bits(uint16_t all, uint16_t cols, uint16_t left, uint16_t right) {
    int16_t count = 0;
    if (cols == all) return 1;
    for (uint16_t free = all & (uint16_t) ~(cols | left | right); free;) {
        uint16_t bit = (uint16_t)(free & (~free + 1u));
        free ^= bit;
        count += by_bits(all, cols | bit, (uint16_t)((left | bit) << 1), (uint16_t)((right | bit) >> 1));
    }
    return count;
}

// Latin squares of order 4 with a fixed first row.
static char square[4][4] = {"1234"};
static int16_t squares(int16_t cell) {
    if (cell == 16) return 1;
    int16_t count = 0, r = cell / 4, c = cell % 4;
    for (char d = '1'; d <= '4'; d++) {
        int clash = 0;
        for (int16_t i = 0; i < c && !clash; i++) clash = square[r][i] == d;
        for (int16_t i = 0; i < r && !clash; i++) clash = square[i][c] == d;
        if (clash) continue;
        square[r][c] = d;
        count += squares((int16_t)(cell + 1));
    }
    square[r][c] = 0;
    return count;
}

int main(void) {
    place(0);
    printf("%d solutions, %ld tried\n", solutions, (long)tried);
    for (uint16_t n = 1; n <= 8; n++) printf("%d ", by_bits((uint16_t)((1u << n) - 1), 0, 0, 0));
    printf("\n%d squares\n", squares(4));
    return 0;
}
