#include "calc.h"
#include <string.h>

static long half(long x) { return x / 2; }

static struct entry pool[8] = {{"half", 0, half, 0}};
static struct entry* first = pool;
static int errors_of_names;
unsigned lookups;

struct entry* find(const char* name, int length) {
    struct entry* e;
    for (e = first; e; e = e->next, lookups++)
        if (!strncmp(e->name, name, length) && !e->name[length]) return e;
    errors_of_names++;
    return 0;
}

void define(const char* name, long value, long (*call)(long)) {
    static int used = 1;
    struct entry* e = &pool[used++];
    strcpy(e->name, name);
    e->value = value;
    e->call = call;
    e->next = first;
    first = e;
}
