// Arrays of one to three dimensions: row pointers, partial indexing, transposition, arrays as parameters.
#include <stdint.h>
#include <stdio.h>

enum { X = 4, Y = 5, Z = 3 };

static int16_t cube[X][Y][Z];
static int32_t plane[Y][X];
static const int16_t kernel[3][3] = {{1, 2, 1}, {2, 4, 2}, {1, 2, 1}};

static int32_t sum_row(const int16_t row[], int n) {
    int32_t s = 0;
    while (n-- > 0) s += row[n];
    return s;
}

static int32_t sum_plane(int16_t (*p)[Z], int rows) {
    int32_t s = 0;
    for (int i = 0; i < rows; i++) s = s * 3 + sum_row(p[i], Z);
    return s;
}

static void transpose(int32_t to[X][Y], int32_t from[Y][X]) {
    for (int y = 0; y < Y; y++)
        for (int x = 0; x < X; x++) to[x][y] = from[y][x];
}

int main(void) {
    for (int x = 0; x < X; x++)
        for (int y = 0; y < Y; y++)
            for (int z = 0; z < Z; z++) cube[x][y][z] = (int16_t)(x * 100 + y * 10 + z);
    for (int x = 0; x < X; x++)
        printf("%ld %ld\n", (long)sum_plane(cube[x], Y), (long)sum_row(cube[x][x], Z));
    for (int y = 0; y < Y; y++)
        for (int x = X - 1; x >= 0; --x) plane[y][x] = cube[x][y][1] * 1000L + cube[x][Y - 1 - y][2];
    int32_t turned[X][Y];
    transpose(turned, plane);
    for (int x = 0; x < X; x++) {
        for (int y = 0; y < Y; y++) printf("%ld ", (long)turned[x][y]);
        printf("\n");
    }
    // A smoothing kernel over the inner part of a picture.
    int16_t picture[6][6], smooth[6][6] = {{0}};
    for (int i = 0; i < 36; i++) picture[i / 6][i % 6] = (int16_t)(i * 7 % 32);
    for (int i = 1; i < 5; i++)
        for (int j = 1; j < 5; j++) {
            int16_t acc = 0;
            for (int di = -1; di <= 1; di++)
                for (int dj = -1; dj <= 1; dj++)
                    acc += (int16_t)(picture[i + di][j + dj] * kernel[di + 1][dj + 1]);
            smooth[i][j] = acc / 16;
        }
    for (int i = 0; i < 6; i++) {
        for (int j = 0; j < 6; j++) printf("%d ", smooth[i][j]);
        printf("\n");
    }
    int16_t(*p)[Y][Z] = &cube[1];
    int16_t* flat = (int16_t*)cube;
    printf("%d %d %d %d\n", (*p)[2][1], p[1][0][2], *(*(*(cube + 3) + 4) + 2), flat[(2 * Y + 3) * Z + 1]);
    printf("%d %d\n", (int)(sizeof cube / sizeof cube[0]), (int)(sizeof cube[0] / sizeof cube[0][0][0]));
    int16_t triangle[10][10];
    for (int i = 0; i < 10; i++) {
        triangle[i][0] = triangle[i][i] = 1;
        for (int j = 1; j < i; j++) triangle[i][j] = (int16_t)(triangle[i - 1][j - 1] + triangle[i - 1][j]);
    }
    for (int j = 0; j < 10; j++) printf("%d ", triangle[9][j]);
    printf("\n");
    return 0;
}
