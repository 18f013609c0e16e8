// Increments and decrements, prefix and postfix, of every type, through pointers, members, elements and
// bit-fields.
#include <stdint.h>
#include <stdio.h>

struct thing {
    int16_t n;
    int32_t l;
    unsigned bits : 3;
    struct thing* next;
};

static int32_t longs[3] = {10, 20, 30};
static struct thing chain[3];
static volatile int16_t ticks;

int main(void) {
    int16_t s = 5;
    uint16_t u = 0;
    int32_t l = -1;
    int64_t q = 4294967295LL;
    float f = 0.5f;
    _Bool b = 0;
    int a1 = s++, a2 = ++s, a3 = s--, a4 = --s;
    printf("%d %d %d %d %d\n", a1, a2, a3, a4, s);
    u--;
    printf("%u\n", (unsigned)u);
    u++;
    printf("%u\n", (unsigned)u);
    long l1 = l++, l2 = l--, l3 = --l;
    printf("%ld %ld %ld %ld\n", l1, l2, l3, (long)l);
    long long q1 = q++, q2 = q;
    printf("%lld %lld %lld\n", q1, q2, (long long)--q);
    float f1 = f++, f2 = --f, f3 = --f;
    printf("%f %f %f\n", f1, f2, f3);
    int b1 = b++, b2 = b++, b3 = b;
    printf("%d %d %d\n", b1, b2, b3);

    int32_t* p = longs;
    long v1 = *p++, v2 = (*p)++, v3 = ++*p, v4 = *++p, v5 = *p--, v6 = --*p;
    printf("%ld %ld %ld %ld %ld %ld %d\n", v1, v2, v3, v4, v5, v6, (int)(p - longs));
    int i = 0, index[4] = {2, 0, 1, 3};
    longs[i++]++;
    longs[index[i++]]--;
    longs[index[i + 1] - 1] += i;
    ++i;
    i--;
    printf("%ld %ld %ld %d\n", (long)longs[0], (long)longs[1], (long)longs[2], i);

    for (int k = 0; k < 3; k++) chain[k].next = &chain[(k + 1) % 3];
    struct thing* t = chain;
    for (int k = 0; k < 10; k++) {
        t->n++;
        ++t->next->l;
        t->bits++;
        t = t->next;
    }
    printf("%d %d %d\n", chain[0].n, chain[1].n, chain[2].n);
    printf("%ld %ld %ld\n", (long)chain[0].l, (long)chain[1].l, (long)chain[2].l);
    chain[0].bits += 3;
    unsigned before = chain[0].bits++;
    printf("%u %u\n", before, chain[0].bits);
    before = --chain[0].bits;
    printf("%u\n", before);
    while (ticks++ < 3) s++;
    printf("%d %d\n", ticks, s);
    char text[] = "AZ", *c = text;
    ++*c++;
    --*c;
    printf("%s\n", text);
    int n = 3, sum = 0;
    while (n--) sum = sum * 10 + n;
    printf("%d %d\n", sum, n);
    return 0;
}
