/* Handlers: nested, throwing on and throwing anew; when the objects of exceptions end. */
#include "exceptions.h"

struct value {
    int number, copies[3];
};
const int a_value = 0;
static int alive;

static void destroy(void *p) {
    struct value *v = p;
    printf("ends %d\n", v->number);
    alive--;
}

static void throw_value(int number) {
    struct value *v = __cxa_allocate_exception(sizeof *v);
    v->number = number;
    v->copies[2] = -number;
    alive++;
    __cxa_throw(v, &a_value, destroy);
}

/* Throws on what it has caught; the clean-up of the handler ends it. */
static int pass_on(int n) {
    int count = 0;
    __catches(2, 1, "a_value", 1);
    __cleanup(3, 1, (__cxa_end_catch(), 0));
    switch (__eh_switch()) {
    case 1: {
        struct value *v = __cxa_begin_catch(0);
        __region(3);
        count = v->number++;
        if (n > 1) __cxa_rethrow();
        __region(0);
        __cxa_end_catch();
        return count;
    }
    default: break;
    }
    __region(2);
    if (n > 0) throw_value(n * 10);
    return -1;
}

/* Throws another exception out of a handler: the first one ends on the way. */
static void exchange(int n) {
    __catches(2, 1, 0, 1);
    __cleanup(3, 1, (__cxa_end_catch(), 0));
    switch (__eh_switch()) {
    case 1: {
        struct value *v = __cxa_begin_catch(0);
        __region(3);
        printf("exchanges %d\n", v->number);
        if (n == 3) THROW_LONG(v->number * 100000L);
        throw_value(v->number + 1);
    }
    default: break;
    }
    __region(2);
    pass_on(n);
    throw_value(5);
}

static int all(int n) {
    int result = 0;
    __catches(2, 1, "a_value", 1, "a_long", 2);
    switch (__eh_switch()) {
    case 1: {
        struct value *v = __cxa_begin_catch(0);
        result = v->number * 10 + v->copies[2] + alive;
        __cxa_end_catch();
        return result + alive;
    }
    case 2:
        result = (int)(CAUGHT(long) / 100000);
        __cxa_end_catch();
        return -result;
    default: break;
    }
    __region(2);
    if (n < 0)
        throw_value(n);
    else
        exchange(n);
    return 0;
}

/* A handler that holds a try of its own: the inner exception is caught while the outer one lives. */
static int nested(int n) {
    int outer = 0, inner = 0;
    struct value *first = 0;
    __catches(2, 1, "a_value", 1);
    __cleanup(4, 1, (__cxa_end_catch(), 0));
    __catches(3, 4, "an_int", 2);
    switch (__eh_switch()) {
    case 1:
        first = __cxa_begin_catch(0);
        outer = first->number;
        goto handler;
    case 2:
        inner += CAUGHT(int);
        __cxa_end_catch();
        n--;
        goto handler;
    default: break;
    }
    __region(2);
    throw_value(n);
handler:
    __region(3);
    if (n == 100) throw_value(1);
    if (n > 2) THROW_INT(n);
    __region(4);
    outer += first->copies[2];
    printf("%d alive\n", alive);
    __region(0);
    __cxa_end_catch();
    return outer * 100 + inner;
}

static int handler_left_by_exception(int n) {
    int result = 0;
    __catches(2, 1, "a_value", 8);
    switch (__eh_switch()) {
    case 8:
        result = ((struct value *)__cxa_begin_catch(0))->number;
        __cxa_end_catch();
        return result;
    default: break;
    }
    __region(2);
    result = nested(n);
    return -result;
}

int main(void) {
    for (int n = 0; n < 2; n++) printf("%d\n", pass_on(n));
    for (int n = -1; n < 5; n++) printf("all %d: %d\n", n, all(n));
    printf("%d\n", nested(5));
    printf("%d %d\n", handler_left_by_exception(100), handler_left_by_exception(3));
    printf("%d alive\n", alive);
    return 0;
}
