/* What may be found out about a whole file, and what only looks as if it could be. */
#include <setjmp.h>
#include <stdio.h>
#include <stdlib.h>

/* Never modified: constants. */
static int limit = 7;
extern int visible;
int visible = 40;
static int unused_writer_target = 5;

/* Modified, each in a way of its own. */
static int through_pointer = 1;
static int* pointer = &through_pointer;
static int through_table = 2;
static int* const table[] = {&limit, &through_table};
static int by_comparison;
static int by_exit = 3;
static int by_increment = 4;
static int in_condition = 5;
static int by_callback = 6;
static long by_argument = 8;

static void never_called(void) { unused_writer_target = 6; }

static int compare(const void* a, const void* b) {
    by_comparison++;
    return *(const int*)a - *(const int*)b;
}

static void at_end(void) {
    by_exit++;
    printf("exit %d %d\n", by_exit, limit);
}

static void bump(long* place) { ++*place; }

/* A value that does not outlive a call. */
static int fresh(int n) {
    static int work = 100;
    static struct pair { int a, b; } both;
    struct pair given = {n, n + 1};
    both = given;
    work = n * 2;
    work += both.a + both.b;
    return work;
}

/* One that only seems so: the call in between writes it again. */
static int nested(int n) {
    static int depth;
    int result;
    depth = n;
    result = n > 0 ? nested(n - 1) : 0;
    return result + depth;
}

static int (*again)(int);
static int indirect(int n) {
    static int depth;
    depth = n;
    if (n > 0) again(n - 1);
    return depth;
}

static int in_callback;
static int sort_depth(const void* a, const void* b);
static int sorts(int n) {
    static int kept;
    int values[2];
    kept = n;
    values[0] = 2, values[1] = 1;
    if (n > 0) qsort(values, 2, sizeof values[0], sort_depth);
    return kept;
}
static int sort_depth(const void* a, const void* b) {
    if (!in_callback) {
        in_callback = 1;
        by_callback += sorts(0);
    }
    return *(const int*)a - *(const int*)b;
}

/* Written on one way only, or counted. */
static int counts(int set) {
    static int total = 10;
    static int last;
    if (set) last = set;
    total += last;
    return total;
}

static int* escapes(int n) {
    static int kept;
    kept = n;
    return &kept;
}

static jmp_buf place;
static int jumps(int n) {
    static int seen;
    seen = n;
    if (setjmp(place) == 0) {
        seen = n + 1;
        longjmp(place, 1);
    }
    return seen;
}

/* The same function under another name. */
static int sum(int a, int b) { return a + b * 2 + limit; }
int other_sum(int a, int b) { return sum(a, b); }
static void put(int a) { printf("<%d>", a); }
void other_put(int a) { put(a); }
int swapped_sum(int a, int b) { return sum(b, a); }

static int even(int n);
static int odd(int n) { return n == 0 ? 0 : even(n - 1); }
static int even(int n) { return n == 0 ? 1 : odd(n - 1); }

static int (*const operations[])(int, int) = {sum, swapped_sum, other_sum};

int main(void) {
    int values[] = {3, 1, 2}, i;
    if (limit < 0) never_called();
    atexit(at_end);
    *pointer += 1;
    *table[1] += *table[0];
    qsort(values, 3, sizeof values[0], compare);
    by_increment++;
    if ((in_condition = in_condition + limit) > 10 && by_increment) by_increment--;
    bump(&by_argument);
    printf("%d %d %d %d\n", through_pointer, through_table, by_comparison > 0, by_increment);
    printf("%d %ld %d %d\n", in_condition, by_argument, visible + limit, unused_writer_target);
    printf("%d %d %d\n", fresh(1), fresh(2), nested(3));
    again = indirect;
    i = indirect(2);
    printf("%d %d %d\n", i, sorts(5), by_callback);
    i = counts(0);
    i += counts(2);
    printf("%d %d\n", i, counts(0));
    ++*escapes(4);
    printf("%d %d\n", *escapes(6), jumps(8));
    for (i = 0; i < 3; i++) printf("%d ", operations[i](i, 3));
    other_put(odd(5) + even(5));
    put(other_sum == sum);
    printf("\n");
    return 0;
}
