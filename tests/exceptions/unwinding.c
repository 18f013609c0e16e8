/* Exceptions on their way: clean-ups of several frames in order, what they change, calls by the library. */
#include "exceptions.h"

void qsort(void *, unsigned, unsigned, int (*)(const void *, const void *));

static int log_[40], logged;
static void note(int what) { log_[logged++] = what; }
static void print_log(const char *name) {
    printf("%s:", name);
    for (int i = 0; i < logged; i++) printf(" %d", log_[i]);
    printf("\n");
    logged = 0;
}

static void deepest(int n) {
    __cleanup(2, 1, (note(30), 0));
    __cleanup(3, 2, (note(31 + n), 0));
    __region(2);
    note(1);
    __region(3);
    if (n == 1) THROW_INT(n);
    if (n == 2) THROW_LONG(n);
    __region(0);
    note(2);
}

/* No table: exceptions pass. */
static int between(int n) {
    deepest(n);
    return n + 1;
}

/* The order of links is not that of the entries. */
static int outer(int n) {
    int local = 5;
    __catches(2, 4, "a_long", 1);
    __cleanup(3, 2, local += 2);
    __cleanup(4, 1, (note(local), 0));
    __cleanup_end(5, 6);
    __cleanup(6, 3, local *= 10);
    switch (__eh_switch()) {
    case 1:
        local += (int)CAUGHT(long);
        __cxa_end_catch();
        return local;
    default: break;
    }
    __region(5);
    local = 7;
    local += between(n);
    __region(0);
    return local;
}

static int top(int n) {
    int result = -1;
    __catches(2, 1, "a_string", 9, "an_int", 1);
    switch (__eh_switch()) {
    case 1:
        result = 1000 + CAUGHT(int);
        __cxa_end_catch();
        return result;
    case 9: return -9;
    default: break;
    }
    __region(2);
    result = outer(n);
    return result;
}

/* A clean-up that throws and catches on its own. */
static int inner_catch(int n) {
    __catches(2, 1, 0, 4);
    switch (__eh_switch()) {
    case 4:
        n += CAUGHT(int);
        __cxa_end_catch();
        note(n);
        return n;
    default: break;
    }
    __region(2);
    between(1);
    THROW_INT(50);
    return 0;
}

static int with_busy_cleanup(int n) {
    int result = 0;
    __catches(2, 1, "a_long", 1);
    __cleanup(3, 2, result += inner_catch(n));
    __cleanup(4, 3, result += inner_catch(n * 2));
    switch (__eh_switch()) {
    case 1:
        result = result * 10 + (int)CAUGHT(long);
        __cxa_end_catch();
        return result;
    default: break;
    }
    __region(4);
    between(n);
    return result;
}

static int limit;
static int compare(const void *a, const void *b) {
    __cleanup(2, 1, (note(77), 0));
    __region(2);
    if (*(const int *)a == limit || *(const int *)b == limit) THROW_INT(limit);
    return *(const int *)a - *(const int *)b;
}

static int sorted(int forbidden) {
    int a[6] = {5, 3, 9, 1, 7, 2};
    limit = forbidden;
    __catches(2, 1, "an_int", 1);
    switch (__eh_switch()) {
    case 1:
        a[0] += 100 * CAUGHT(int);
        __cxa_end_catch();
        break;
    default:
        __region(2);
        qsort(a, 6, 1, compare);
        __region(0);
        break;
    }
    return a[0];
}

/* A recursion: every frame has its own clean-up and its own locals. */
static void down(int n, void (*last)(int)) {
    int mine = n * n;
    __cleanup(2, 1, (note(mine), 0));
    __region(2);
    if (n == 0)
        last(1);
    else
        down(n - 1, last);
    note(-1);
}

struct pair {
    int a;
    long b;
};
static struct pair made(int n) {
    struct pair p = {n, n * 1000L};
    __cleanup(2, 1, (note(p.a), note((int)(p.b / 1000)), 0));
    __region(2);
    p.a++;
    if (n > 5) THROW_INT(n);
    p.b += 1000;
    return p;
}

static long structures(int n) {
    struct pair p = {1, 1};
    __catches(2, 1, 0, 3);
    switch (__eh_switch()) {
    case 3:
        p.b += CAUGHT(int);
        __cxa_end_catch();
        return p.a + p.b;
    default: break;
    }
    __region(2);
    p = made(n);
    return p.a + p.b + made(n + 1).b;
}

int main(void) {
    for (int n = 0; n < 3; n++) {
        printf("%d\n", top(n));
        print_log("top");
    }
    printf("%d\n", with_busy_cleanup(2));
    print_log("busy");
    printf("%d %d\n", sorted(4), sorted(9));
    print_log("sorted");
    {
        __catches(2, 1, "an_int", 1);
        switch (__eh_switch()) {
        case 1:
            printf("%d\n", CAUGHT(int));
            __cxa_end_catch();
            print_log("down");
            break;
        default:
            __region(2);
            down(5, deepest);
            __region(0);
            break;
        }
    }
    printf("%ld %ld %ld\n", structures(3), structures(5), structures(6));
    print_log("structures");
    return 0;
}
