// Linked lists on the heap: insertion, reversal, removal through pointer to pointer, merging, freeing,
// realloc.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

struct node {
    int16_t value;
    struct node* next;
};

static int live;

static struct node* cons(int16_t value, struct node* next) {
    struct node* n = malloc(sizeof *n);
    if (!n) abort();
    n->value = value;
    n->next = next;
    live++;
    return n;
}

static void drop(struct node* n) {
    while (n) {
        struct node* next = n->next;
        free(n);
        live--;
        n = next;
    }
}

static struct node* reverse(struct node* n) {
    struct node* done = NULL;
    while (n) {
        struct node* next = n->next;
        n->next = done;
        done = n;
        n = next;
    }
    return done;
}

static void remove_if(struct node** at, int16_t divisor) {
    while (*at) {
        struct node* n = *at;
        if (n->value % divisor == 0) {
            *at = n->next;
            free(n);
            live--;
        } else {
            at = &n->next;
        }
    }
}

static void insert_sorted(struct node** at, int16_t value) {
    while (*at && (*at)->value < value) at = &(*at)->next;
    *at = cons(value, *at);
}

static struct node* merge(struct node* a, struct node* b) {
    struct node head = {0, NULL}, *tail = &head;
    while (a && b) {
        struct node** least = a->value <= b->value ? &a : &b;
        tail->next = *least;
        tail = *least;
        *least = (*least)->next;
    }
    tail->next = a ? a : b;
    return head.next;
}

static void print(const struct node* n) {
    for (; n; n = n->next) printf("%d ", n->value);
    printf("\n");
}

int main(void) {
    struct node *a = NULL, *b = NULL;
    for (int16_t i = 0; i < 10; i++) a = cons((int16_t)(i * 7 % 20), a);
    print(a);
    a = reverse(a);
    print(a);
    for (const struct node* n = a; n; n = n->next) insert_sorted(&b, n->value);
    print(b);
    remove_if(&b, 3);
    print(b);
    struct node* c = NULL;
    for (int16_t i = 30; i > 0; i -= 6) c = cons(i, c);
    b = merge(b, c);
    print(b);
    drop(a);
    printf("%d live\n", live);
    drop(b);
    printf("%d live\n", live);

    int16_t* v = NULL;
    int room = 0, used = 0;
    for (int16_t i = 0; i < 50; i++) {
        if (used == room) {
            room = room ? room * 2 : 4;
            v = realloc(v, (size_t)room * sizeof *v);
            if (!v) abort();
        }
        v[used++] = (int16_t)(i * i);
    }
    printf("%d %d %d %d\n", room, v[0], v[17], v[49]);
    free(v);
    int32_t* zero = calloc(20, sizeof *zero);
    int32_t sum = 0;
    for (int i = 0; i < 20; i++) sum += zero[i];
    zero[19] = 70000L;
    printf("%ld %ld\n", (long)sum, (long)zero[19]);
    free(zero);
    free(NULL);
    return 0;
}
