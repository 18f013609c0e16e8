// Graph algorithms on one weighted graph: all-pairs shortest paths, single-source with a heap, spanning tree,
// order.
#include <stdint.h>
#include <stdio.h>

enum { N = 14, EDGES = 30, FAR = 9999 };

struct edge {
    int16_t from, to, cost;
};

static struct edge edges[EDGES];
static int16_t distance[N][N], via[N][N], from0[N];

static void make(void) {
    uint16_t seed = 17;
    for (int i = 0; i < EDGES; i++) {
        seed = (uint16_t)(seed * 4005u + 1013u);
        edges[i].from = (int16_t)(i % N);
        edges[i].to = (int16_t)((i % N + 1 + (seed >> 4) % 5u) % N);
        edges[i].cost = (int16_t)(1 + (seed >> 7) % 40u);
    }
}

static void all_pairs(void) {
    for (int i = 0; i < N; i++)
        for (int j = 0; j < N; j++) distance[i][j] = i == j ? 0 : FAR, via[i][j] = -1;
    for (int i = 0; i < EDGES; i++) {
        struct edge e = edges[i];
        if (e.cost < distance[e.from][e.to]) distance[e.from][e.to] = e.cost;
    }
    for (int16_t k = 0; k < N; k++)
        for (int i = 0; i < N; i++)
            for (int j = 0; j < N; j++)
                if (distance[i][k] + distance[k][j] < distance[i][j]) {
                    distance[i][j] = (int16_t)(distance[i][k] + distance[k][j]);
                    via[i][j] = k;
                }
}

static void path(int16_t i, int16_t j) {
    if (via[i][j] < 0) {
        printf(" %d", j);
        return;
    }
    path(i, via[i][j]);
    path(via[i][j], j);
}

static struct { int16_t key, node; } heap[EDGES + 1];
static int16_t heap_size;

static void push(int16_t key, int16_t node) {
    int16_t at = heap_size++;
    while (at > 0 && heap[(at - 1) / 2].key > key) {
        heap[at] = heap[(at - 1) / 2];
        at = (int16_t)((at - 1) / 2);
    }
    heap[at].key = key;
    heap[at].node = node;
}

static int16_t pop(int16_t* key) {
    int16_t node = heap[0].node, at = 0;
    *key = heap[0].key;
    heap_size--;
    for (;;) {
        int16_t kid = (int16_t)(2 * at + 1);
        if (kid >= heap_size) break;
        if (kid + 1 < heap_size && heap[kid + 1].key < heap[kid].key) kid++;
        if (heap[heap_size].key <= heap[kid].key) break;
        heap[at] = heap[kid];
        at = kid;
    }
    heap[at] = heap[heap_size];
    return node;
}

static void single_source(int16_t start) {
    for (int i = 0; i < N; i++) from0[i] = FAR;
    from0[start] = 0;
    push(0, start);
    while (heap_size) {
        int16_t d, n = pop(&d);
        if (d > from0[n]) continue;
        for (int i = 0; i < EDGES; i++)
            if (edges[i].from == n && d + edges[i].cost < from0[edges[i].to]) {
                from0[edges[i].to] = (int16_t)(d + edges[i].cost);
                push(from0[edges[i].to], edges[i].to);
            }
    }
}

static int16_t root[N];
static int16_t find(int16_t n) { return root[n] == n ? n : (root[n] = find(root[n])); }

static int16_t spanning_tree(void) {
    for (int16_t i = 0; i < N; i++) root[i] = i;
    int16_t total = 0;
    for (int i = 1; i < EDGES; i++) {
        struct edge e = edges[i];
        int j = i;
        for (; j > 0 && edges[j - 1].cost > e.cost; j--) edges[j] = edges[j - 1];
        edges[j] = e;
    }
    for (int i = 0; i < EDGES; i++) {
        int16_t a = find(edges[i].from), b = find(edges[i].to);
        if (a == b) continue;
        root[a] = b;
        total += edges[i].cost;
    }
    return total;
}

int main(void) {
    make();
    all_pairs();
    single_source(0);
    int same = 1;
    int32_t sum = 0;
    for (int i = 0; i < N; i++) {
        same &= from0[i] == distance[0][i];
        for (int j = 0; j < N; j++) sum += distance[i][j];
    }
    printf("%d %ld\n", same, (long)sum);
    for (int16_t j = 3; j < N; j += 5) {
        printf("0 to %d, %d:", j, distance[0][j]);
        path(0, j);
        printf("\n");
    }
    printf("%d\n", spanning_tree());
    return 0;
}
