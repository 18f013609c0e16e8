// Binary search trees on the heap: insertion, lookup, deletion, height, traversals in three orders, freeing.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

typedef struct tree {
    int16_t key;
    int16_t count;
    struct tree* kid[2];
} tree;

static tree* insert(tree* t, int16_t key) {
    if (!t) {
        t = calloc(1, sizeof *t);
        if (!t) abort();
        t->key = key;
        t->count = 1;
        return t;
    }
    if (key == t->key)
        t->count++;
    else
        t->kid[key > t->key] = insert(t->kid[key > t->key], key);
    return t;
}

static tree** locate(tree** t, int16_t key) {
    while (*t && (*t)->key != key) t = &(*t)->kid[key > (*t)->key];
    return t;
}

static int erase(tree** root, int16_t key) {
    tree **at = locate(root, key), *t = *at;
    if (!t) return 0;
    if (t->kid[0] && t->kid[1]) {
        tree** least = &t->kid[1];
        while ((*least)->kid[0]) least = &(*least)->kid[0];
        tree* l = *least;
        t->key = l->key;
        t->count = l->count;
        *least = l->kid[1];
        free(l);
    } else {
        *at = t->kid[0] ? t->kid[0] : t->kid[1];
        free(t);
    }
    return 1;
}

static int height(const tree* t) {
    if (!t) return 0;
    int a = height(t->kid[0]), b = height(t->kid[1]);
    return 1 + (a > b ? a : b);
}

static int walk(const tree* t, int order, int* budget) {
    if (!t) return 0;
    int n = 1;
    if (order == 0 && (*budget)-- > 0) printf("%d ", t->key);
    n += walk(t->kid[0], order, budget);
    if (order == 1 && (*budget)-- > 0) printf("%d ", t->key);
    n += walk(t->kid[1], order, budget);
    if (order == 2 && (*budget)-- > 0) printf("%d ", t->key);
    return n;
}

static void release(tree* t) {
    if (t) {
        release(t->kid[0]);
        release(t->kid[1]);
        free(t);
    }
}

int main(void) {
    tree* root = NULL;
    uint16_t seed = 99;
    for (int i = 0; i < 60; i++) {
        seed = (uint16_t)(seed * 205u + 29573u);
        root = insert(root, (int16_t)(seed % 100u));
    }
    for (int order = 0; order < 3; order++) {
        int budget = 12;
        printf("%d\n", walk(root, order, &budget));
    }
    printf("height %d\n", height(root));
    int removed = 0, twice = 0;
    for (int16_t k = 0; k < 100; k++) {
        tree* t = *locate(&root, k);
        if (t && t->count > 1) twice++;
        if (k % 3 == 0) removed += erase(&root, k);
    }
    int budget = 30;
    int left = walk(root, 1, &budget);
    printf("\n%d removed, %d left, %d twice, height %d\n", removed, left, twice, height(root));
    printf("%d %d\n", erase(&root, 3), *locate(&root, 3) == NULL);
    while (root) erase(&root, root->key);
    root = insert(root, 5);
    release(root);
    return 0;
}
