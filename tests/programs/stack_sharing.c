// Arrays and structures in blocks side by side: loops that come back to a block, jumps into and out of
// blocks, cases that enter them in the middle, blocks in blocks, recursion with buffers in use above and
// below.
#include <stdint.h>
#include <stdio.h>
#include <string.h>

struct big {
    int v[12];
    long sum;
    char name[10];
};

static int sum_of(const int* p, int n) {
    int s = 0;
    while (n-- > 0) s += *p++;
    return s;
}

static void fill(int* p, int n, int from) {
    for (int i = 0; i < n; i++) p[i] = from + i;
}

static struct big* set(struct big* b, int from) {
    fill(b->v, 12, from);
    b->sum = sum_of(b->v, 12);
    strcpy(b->name, from % 2 != 0 ? "odd" : "even");
    return b;
}

static long in_turn(int n) {
    long total = 0;
    for (int i = 0; i < n; i++) {
        {
            int a[20];
            fill(a, 20, i);
            total += sum_of(a, 20);
        }
        if (i % 3 == 0) {
            struct big b;
            set(&b, i);
            total += b.sum + (long)strlen(b.name);
            {
                int c[10];
                fill(c, 10, b.v[3]);
                total += sum_of(c, 10);
            }
            {
                long d[9];
                for (int k = 0; k < 9; k++) d[k] = b.sum * k;
                total += d[i % 9] - b.v[11];
            }
            total += b.v[0];
        } else {
            char text[24];
            sprintf(text, "%d-%ld", i, total);
            total += text[0] + (long)strlen(text);
        }
    }
    return total;
}

// The array keeps its values over a jump back inside its block.
static int jumps(int n) {
    int r = 0;
    {
        int a[16];
        fill(a, 16, 0);
    again:
        a[n & 15] += 100;
        r += sum_of(a, 16);
        {
            int inner[8];
            fill(inner, 8, r & 7);
            r += inner[7];
        }
        if (--n > 0) goto again;
    }
    {
        int b[18];
        fill(b, 18, r & 15);
        r += sum_of(b, 18);
    }
    return r;
}

static int entered(int n) {
    int r = 0;
    switch (n) {
        case 0: {
            int a[14];
            fill(a, 14, 1);
            r = sum_of(a, 14);
            if (r > 1000) {
                case 1: fill(a, 14, 5); r += sum_of(a, 13);
            }
            break;
        }
        default: {
            struct big b[2];
            set(&b[0], n);
            b[1] = b[0];
            r = (int)b[1].sum + b[0].v[n % 12];
            if (n > 5) goto inside;
            break;
        }
        case 2: {
            int c[30];
            r = 1000;
        inside:
            fill(c, 30, r & 31);
            r += c[29];
        }
    }
    return r;
}

static long deep(int n) {
    long r = n;
    if (n <= 0) return 1;
    {
        int a[20];
        fill(a, 20, n);
        r += deep(n - 1);
        r += sum_of(a, 20);
    }
    {
        int b[25];
        fill(b, 25, -n);
        r += deep(n - 2);
        r += sum_of(b, 25);
    }
    return r;
}

int main(void) {
    printf("%ld\n", in_turn(17));
    printf("%d\n", jumps(6));
    for (int i = 0; i < 9; i++) printf("%d ", entered(i));
    printf("\n%ld\n", deep(7));
    return 0;
}
