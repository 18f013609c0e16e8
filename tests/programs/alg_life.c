// Conway's game of life on a torus, once over cells and once over bit rows; both must agree at every
// generation.
#include <stdint.h>
#include <stdio.h>

enum { SIZE = 16 };

static char cells[2][SIZE][SIZE];
static uint16_t rows[SIZE];

static void step_cells(int now) {
    for (int y = 0; y < SIZE; y++)
        for (int x = 0; x < SIZE; x++) {
            int n = 0;
            for (int dy = -1; dy <= 1; dy++)
                for (int dx = -1; dx <= 1; dx++)
                    if (dx || dy) n += cells[now][(y + dy + SIZE) % SIZE][(x + dx + SIZE) % SIZE];
            cells[!now][y][x] = (char)(n == 3 || (n == 2 && cells[now][y][x]));
        }
}

static uint16_t left(uint16_t r) { return (uint16_t)((uint16_t)(r << 1) | r >> 15); }
static uint16_t right(uint16_t r) { return (uint16_t)(r >> 1 | (uint16_t)(r << 15)); }

static void step_rows(void) {
    uint16_t next[SIZE];
    for (int y = 0; y < SIZE; y++) {
        uint16_t up = rows[(y + SIZE - 1) % SIZE], here = rows[y], down = rows[(y + 1) % SIZE];
        uint16_t around[8] = {left(up),    up,         right(up), left(here),
                              right(here), left(down), down,      right(down)};
        uint16_t ones = 0, twos = 0, more = 0; // a counter per bit, saturating at four
        for (int i = 0; i < 8; i++) {
            uint16_t carry = ones & around[i];
            ones ^= around[i];
            more |= twos & carry;
            twos ^= carry;
        }
        next[y] = (uint16_t)(twos & (uint16_t)~more & (ones | here));
    }
    for (int y = 0; y < SIZE; y++) rows[y] = next[y];
}

int main(void) {
    static const char* const pattern[] = {".O..............", "..O.....OOO.....", "OOO....OOO......",
                                          "...........OO...", "...........OO..."};
    for (int y = 0; y < 5; y++)
        for (int x = 0; x < SIZE; x++)
            if (pattern[y][x] == 'O') {
                cells[0][y + 2][x] = 1;
                rows[y + 2] |= (uint16_t)(1u << (15 - x));
            }
    int now = 0, agree = 1;
    for (int generation = 0; generation <= 24; generation++) {
        int alive = 0;
        for (int y = 0; y < SIZE; y++)
            for (int x = 0; x < SIZE; x++) {
                alive += cells[now][y][x];
                if (cells[now][y][x] != (rows[y] >> (15 - x) & 1)) agree = 0;
            }
        if (generation % 4 == 0) printf("%d: %d alive\n", generation, alive);
        step_cells(now);
        now = !now;
        step_rows();
    }
    printf("%s\n", agree ? "agree" : "differ");
    for (int y = 0; y < SIZE; y++) printf("%04x%c", (unsigned)rows[y], y % 8 == 7 ? '\n' : ' ');
    return 0;
}
