// Structures as values: assignment, arguments, results, members that are structures, and copies that stay
// apart.
#include <stdint.h>
#include <stdio.h>

struct point {
    int16_t x, y;
};
struct rect {
    struct point lo, hi;
};
struct big {
    int16_t v[20];
    int32_t sum;
    char name[8];
};

static struct point add(struct point a, struct point b) {
    a.x += b.x;
    a.y += b.y;
    return a;
}

static struct rect span(struct point a, struct point b) {
    struct rect r = {a, b};
    if (r.lo.x > r.hi.x) {
        int16_t t = r.lo.x;
        r.lo.x = r.hi.x;
        r.hi.x = t;
    }
    if (r.lo.y > r.hi.y) {
        int16_t t = r.lo.y;
        r.lo.y = r.hi.y;
        r.hi.y = t;
    }
    return r;
}

static struct big make(int16_t seed) {
    struct big b;
    b.sum = 0;
    for (int i = 0; i < 20; i++) b.sum += b.v[i] = (int16_t)(seed * i);
    for (int i = 0; i < 7; i++) b.name[i] = (char)('a' + (seed + i) % 26);
    b.name[7] = 0;
    return b;
}

static int32_t total(struct big a, int16_t scale, struct big b) {
    int32_t t = 0;
    for (int i = 0; i < 20; i++) {
        a.v[i] += b.v[19 - i];
        t += (int32_t)a.v[i] * scale;
    }
    return t + a.sum + b.sum;
}

static struct point grid[3][2];
static struct big saved;

int main(void) {
    struct point p = {3, -4}, q = {10, 20}, r;
    r = add(p, q);
    printf("%d %d %d %d\n", r.x, r.y, p.x, p.y);
    r = p = add(add(p, q), add(q, r));
    printf("%d %d %d\n", r.x, p.y, add(p, r).x);
    struct rect box = span(r, q);
    printf("%d %d %d %d\n", box.lo.x, box.lo.y, box.hi.x, box.hi.y);
    box.lo = box.hi;
    box.hi.x++;
    printf("%d %d %d %d\n", box.lo.x, box.lo.y, box.hi.x, box.hi.y);
    for (int i = 0; i < 3; i++)
        for (int j = 0; j < 2; j++) grid[i][j] = add((struct point){(int16_t)i, (int16_t)j}, p);
    struct point* g = (struct point*)grid + 2;
    *g = *(g + 3);
    g[1] = g[-1];
    for (int i = 0; i < 6; i++) printf("%d,%d ", grid[0][i >= 2 ? 0 : i].x, ((struct point*)grid)[i].y);
    printf("\n");
    struct big a = make(3), b = make(5);
    printf("%ld %ld\n", (long)total(a, 2, b), (long)total(b, -1, make(1)));
    saved = a;
    a.v[4] = 99;
    a.name[0] = 'Z';
    printf("%d %d %s %s %s\n", saved.v[4], a.v[4], saved.name, a.name, b.name);
    struct big* pick = saved.v[4] > 50 ? &a : &saved;
    b = *pick;
    *pick = make(2);
    printf("%s %s %ld\n", b.name, saved.name, (long)make(4).sum);
    return 0;
}
