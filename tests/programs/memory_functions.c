// memcpy, memmove, memset and memcmp over arrays, structures, overlapping ranges and parts of objects.
#include <stdint.h>
#include <stdio.h>
#include <string.h>

struct packet {
    int16_t kind;
    int32_t stamp;
    int16_t payload[6];
};

static struct packet queue[4];
static int16_t line[16];

static void dump(const int16_t* p, int n) {
    while (n--) printf("%d ", *p++);
    printf("\n");
}

int main(void) {
    for (int i = 0; i < 16; i++) line[i] = (int16_t)(i + 1);
    memmove(line + 2, line, 6 * sizeof line[0]);
    dump(line, 10);
    memmove(line, line + 3, 8 * sizeof line[0]);
    dump(line, 10);
    memcpy(line + 12, line, 4 * sizeof line[0]);
    memset(line + 4, 0, 3 * sizeof line[0]);
    dump(line, 16);
    memcpy(line, line + 8, 0);

    struct packet p = {3, 123456L, {1, 2, 3}};
    for (int i = 0; i < 4; i++) {
        memcpy(&queue[i], &p, sizeof p);
        queue[i].kind = (int16_t)i;
        queue[i].payload[5] = (int16_t)(i * i);
    }
    memmove(&queue[0], &queue[1], 3 * sizeof queue[0]);
    for (int i = 0; i < 4; i++)
        printf("%d %ld %d, ", queue[i].kind, (long)queue[i].stamp, queue[i].payload[5]);
    printf("\n");
    printf("%d %d\n", memcmp(&queue[2], &queue[3], sizeof p) == 0,
           memcmp(queue[0].payload, p.payload, sizeof p.payload) == 0);
    memset(&p, 0, sizeof p);
    printf("%d %ld %d\n", p.kind, (long)p.stamp, p.payload[2]);

    int16_t matrix[3][4], copy[3][4];
    for (int i = 0; i < 12; i++) matrix[i / 4][i % 4] = (int16_t)(i * 11);
    memcpy(copy, matrix, sizeof matrix);
    memcpy(copy[2], matrix[0], sizeof matrix[0]);
    matrix[1][1] = -1;
    printf("%d %d %d\n", copy[1][1], copy[2][3], memcmp(copy[0], matrix[0], sizeof copy[0]));
    int32_t longs[3] = {-1, -1, -1};
    memset(&longs[1], 0, sizeof longs[1]);
    printf("%ld %ld %ld\n", (long)longs[0], (long)longs[1], (long)longs[2]);
    float f = 1.5f, g = 0;
    memcpy(&g, &f, sizeof g);
    printf("%f\n", g);
    return 0;
}
