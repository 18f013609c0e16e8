/* Statics that are used together: of all types and initial values, with addresses in tables, in calls and in
   comparisons, beside some that have to stay where they are. */
#include <stdio.h>
#include <string.h>

struct pair {
    int first;
    long second;
};
enum mode { IDLE, BUSY = 7 };

static int count;
static long total = 100000L;
static enum mode mode = BUSY;
static struct pair last = {3, 4};
static int window[4] = {9, 8, 7};
static char word[6] = "abc";
static float scale = 1.5f;
static int* cursor = &window[1];
static const struct pair limits[2] = {{-5, -6}, {5, 6}};
static const int steps[3] = {1, 10, 100};
static int zeros[40];
static struct {
    unsigned a : 3, b : 5;
    int c;
} bits = {5, 17, 1};

static volatile int tick;
static int placed __attribute__((section("fast"))) = 2;

/* Addresses as data: the objects move, and so must these. */
static int* const places[] = {&count, &window[2], &zeros[39], &placed};
static struct {
    long* total;
    char* text;
    const int* step;
    struct pair* pair;
} table = {&total, word + 1, &steps[1], &last};

static void add(int n) {
    count += n;
    total += count;
    last.first = n;
    last.second += total;
    window[count & 3] = n;
    scale = scale * 2;
    mode = count > 3 ? IDLE : BUSY;
    bits.a += 1;
    bits.c += bits.b;
}

static int check(void) {
    int seen = 0;
    if (cursor == &window[1]) seen |= 1;
    if (places[0] == &count) seen |= 2;
    if (&zeros[39] == places[2]) seen |= 4;
    if ((void*)&last != (void*)&total) seen |= 8;
    if (table.text - word == 1) seen |= 16;
    if (places[1] != cursor) seen |= 32;
    return seen;
}

/* A store through a table changes what the name shows, and the other way round. */
static int through(void) {
    int before = count;
    *places[0] = 50;
    window[2] = before;
    *places[1] += count;
    zeros[39] = 1;
    *places[2] += 2;
    return count + window[2] + zeros[39] + before;
}

static void edit(void) {
    cursor = window + 3;
    *cursor = 77;
    strcpy(word + 2, "xy");
    memcpy(window, steps, 2 * sizeof *steps);
    last = limits[1];
    table.pair->second++;
    tick = count;
    placed += tick;
}

static int local(int n) {
    static int calls;
    static int sum = 5;
    static int least = 1000;
    calls++;
    sum += n;
    if (n < least) least = n;
    return calls * 10000 + sum * 10 + least;
}

static int next(int n) { return n <= 1 ? count++ : next(n - 1) + steps[n % 3]; }

static void show(void) {
    printf("%d %ld %d %d %ld %d %d %d %d\n", count, total, mode, last.first, last.second, window[0],
           window[1], window[2], window[3]);
    printf("%s %.2f %d %d %d %d %d %d\n", word, (double)scale, (int)(cursor - window), zeros[39], bits.a,
           bits.b, bits.c, placed);
}

int main(void) {
    int i;
    show();
    for (i = 0; i < 4; i++) add(i);
    show();
    printf("%d\n", check());
    printf("%d\n", through());
    edit();
    show();
    for (i = 3; i > 0; i--) printf("%d\n", local(i * i));
    i = next(5);
    printf("%d %d\n", i, count);
    i = 0;
    printf("%ld %s %d %ld\n", *table.total, table.text, *table.step, table.pair->second);
    printf("%ld %d\n", limits[count & 1].second, steps[i + 1]);
    return 0;
}
