// A parameter that the program assigns to itself, which looks like the receipt of an argument.
int printf(const char*, ...);
int g;
__attribute__((noinline)) int f(int p, int q) {
    int i;
    for (i = 0; i < 3; i++) {
        p = q + i;
        if (g) {
            p = p;
        } else
            q++;
        g = !g;
        printf("%d ", p);
    }
    return p;
}
__attribute__((noinline)) int h(int p, int q) {
    int t;
    p = q * 3;
    t = p;
    p = t;
    printf("%d ", p);
    { p = p; }
    g++;
    return p + q;
}
__attribute__((noinline)) int k(int p, int q) {
    int t;
    t = p + q;
    p = t;
    if (q) p = t;
    g += t;
    q = p;
    p = q;
    g ^= p;
    return p * q;
}
int main(void) {
    printf("%d\n", f(1, 2));
    printf("%d\n", h(4, 5));
    printf("%d %d\n", k(4, 5), g);
    return 0;
}
