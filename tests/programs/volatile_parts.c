// Copies of structures with a volatile member, whose accesses count, wherever the copies go.
#include <stdio.h>

struct S {
    volatile int v;
    int a;
};
static struct S g = {1, 2};
struct A {
    int x[2];
    struct S s;
};
static int f(int n) {
    struct S s, t;
    s = g;
    t = s;
    t.a = n;
    struct A a;
    a.s = g;
    a.x[0] = n;
    struct S* p = &s;
    struct S u = *p;
    return s.a + n;
}
static int h(int n) {
    struct S s;
    s.v = n;
    s.a = 2;
    struct S t = s;
    if (n) t = g;
    return n;
}
int main(void) {
    int r = f(3);
    r += h(r);
    printf("%d\n", r);
    return 0;
}
