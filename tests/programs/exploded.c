// Structures whose members become variables of their own, and those that must not.
#include <stdio.h>
struct In {
    int a;
    int* q;
};
struct P {
    int x;
    long y;
    struct In in;
};
struct V {
    float re, im;
};
struct E {
    enum { A, B, C } k;
    _Bool f;
    unsigned short c;
};
union U {
    short i;
    long l;
};
struct W {
    int a;
    union U u;
};
static int g1 = 3, g2 = 4;
static struct P gp = {1, 2, {3, &g1}};
__attribute__((noinline)) struct P get(int n) {
    struct P r;
    r.x = n;
    r.y = n * 1000L;
    r.in.a = n + 1;
    r.in.q = &g2;
    return r;
}
__attribute__((noinline)) long take(struct P p) {
    p.x += 1;
    p.in.a *= 2;
    p.y -= p.x;
    return p.x + p.y + p.in.a + *p.in.q;
}
__attribute__((noinline)) long only_read(struct P p) { return p.x + p.y; }
static struct V cmul(struct V a, struct V b) {
    struct V r;
    r.re = a.re * b.re - a.im * b.im;
    r.im = a.re * b.im + a.im * b.re;
    return r;
}
__attribute__((noinline)) int chain(struct P* p) {
    struct P s = *p, t;
    t = s;
    s.in = t.in;
    s.in.a++;
    p->in = s.in;
    p->x += (t = s).x;
    *p = t;
    return s.x + t.in.a;
}
struct L {
    struct L* next;
    int v;
};
__attribute__((noinline)) int list(struct L* l) {
    struct L cur = *l;
    int sum = cur.v;
    while (cur.next) {
        cur = *cur.next;
        sum = sum * 3 + cur.v;
    }
    return sum;
}
__attribute__((noinline)) int idx(struct P* a, int i) {
    struct P s;
    s = a[i++];
    s.x += i;
    a[i] = s;
    {
        struct P s;
        s = a[i];
        s.x++;
        i += s.x;
    }
    return s.x + i;
}
__attribute__((noinline)) int kinds(int n) {
    struct E e, f;
    e.k = n > 1 ? B : C;
    e.f = n;
    e.c = n + 250;
    f = e;
    f.k++;
    f.f = !f.f;
    f.c += 20;
    return e.k * 1000 + e.f * 100 + e.c + f.k * 7 + f.f * 3 + f.c;
}
__attribute__((noinline)) int kept(int n) {
    struct P a, b;
    struct W w;
    int* p = &b.x;
    a.x = n;
    b = a;
    (*p)++;
    w.a = n;
    w.u.l = 70000L + n;
    struct W z = w;
    return a.x + b.x + z.u.i + z.a;
}
__attribute__((noinline)) int vol(int n) {
    volatile struct In v;
    struct In s;
    s.a = n;
    v.a = s.a;
    s.a += v.a;
    return s.a;
}
__attribute__((noinline)) int cond(int n) {
    struct In a, b, c;
    a.a = n;
    b.a = -n;
    a.q = b.q = &g1;
    c = n > 2 ? a : b;
    return c.a + *c.q;
}
int main(void) {
    struct P p = get(5), q;
    q = p;
    q.x = 9;
    printf("%ld %ld %ld\n", take(p), take(q), only_read(gp));
    struct V a = {1, 2}, b = {3, -1};
    a = cmul(a, b);
    a = cmul(a, a);
    printf("%f %f\n", a.re, a.im);
    int got = chain(&p);
    printf("%d %d %d\n", got, p.x, p.in.a);
    struct L z = {0, 7}, y = {&z, 5}, x = {&y, 2};
    printf("%d\n", list(&x));
    struct P arr[4] = {{1}, {2}, {3}, {4}};
    got = idx(arr, 1);
    printf("%d %d\n", got, arr[2].x);
    printf("%d %d %d\n", kinds(0), kinds(1), kinds(5));
    printf("%d %d %d %d\n", kept(4), vol(3), cond(1), cond(8));
    return 0;
}
