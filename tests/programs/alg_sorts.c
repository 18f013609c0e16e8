// Six sorting algorithms over the same data, each checked for order and for holding the same elements.
#include <stdint.h>
#include <stdio.h>

enum { N = 200 };

static int16_t data[N], work[N], spare[N];

static void insertion(int16_t* v, int n) {
    for (int i = 1; i < n; i++) {
        int16_t x = v[i];
        int j = i;
        for (; j > 0 && v[j - 1] > x; j--) v[j] = v[j - 1];
        v[j] = x;
    }
}

static void shell(int16_t* v, int n) {
    for (int gap = n / 2; gap; gap /= 2)
        for (int i = gap; i < n; i++)
            for (int j = i - gap; j >= 0 && v[j] > v[j + gap]; j -= gap) {
                int16_t t = v[j];
                v[j] = v[j + gap];
                v[j + gap] = t;
            }
}

static void quick_range(int16_t* v, int lo, int hi) {
    while (lo < hi) {
        int16_t pivot = v[lo + (hi - lo) / 2];
        int i = lo, j = hi;
        while (i <= j) {
            while (v[i] < pivot) i++;
            while (v[j] > pivot) j--;
            if (i <= j) {
                int16_t t = v[i];
                v[i++] = v[j];
                v[j--] = t;
            }
        }
        if (j - lo < hi - i) {
            quick_range(v, lo, j);
            lo = i;
        } else {
            quick_range(v, i, hi);
            hi = j;
        }
    }
}
static void quick(int16_t* v, int n) { quick_range(v, 0, n - 1); }

static void sift(int16_t* v, int at, int n) {
    for (int kid; (kid = 2 * at + 1) < n; at = kid) {
        if (kid + 1 < n && v[kid + 1] > v[kid]) kid++;
        if (v[at] >= v[kid]) return;
        int16_t t = v[at];
        v[at] = v[kid];
        v[kid] = t;
    }
}
static void heap(int16_t* v, int n) {
    for (int i = n / 2; i-- > 0;) sift(v, i, n);
    while (--n > 0) {
        int16_t t = v[0];
        v[0] = v[n];
        v[n] = t;
        sift(v, 0, n);
    }
}

static void merge(int16_t* v, int n) {
    if (n < 2) return;
    int half = n / 2;
    merge(v, half);
    merge(v + half, n - half);
    for (int i = 0; i < half; i++) spare[i] = v[i];
    int16_t *a = spare, *end = spare + half, *b = v + half, *to = v;
    while (a < end) *to++ = b < v + n && *b < *a ? *b++ : *a++;
}

// Radix sort by nibbles; the top nibble is biased so that negative values come first.
static void radix(int16_t* v, int n) {
    for (int shift = 0; shift < 16; shift += 4) {
        int16_t count[17] = {0};
        for (int i = 0; i < n; i++) count[(((uint16_t)v[i] ^ 0x8000u) >> shift & 15) + 1]++;
        for (int i = 0; i < 15; i++) count[i + 1] += count[i];
        for (int i = 0; i < n; i++) spare[count[((uint16_t)v[i] ^ 0x8000u) >> shift & 15]++] = v[i];
        for (int i = 0; i < n; i++) v[i] = spare[i];
    }
}

static const struct {
    const char* name;
    void (*sort)(int16_t*, int);
} sorts[] = {{"insertion", insertion}, {"shell", shell}, {"quick", quick},
             {"heap", heap},           {"merge", merge}, {"radix", radix}};

int main(void) {
    uint16_t seed = 4711;
    int32_t sum = 0;
    for (int i = 0; i < N; i++) {
        seed = (uint16_t)(seed * 25173u + 13849u);
        data[i] = (int16_t)((int16_t)(seed % 2000u) - 1000);
        sum += data[i];
    }
    for (unsigned s = 0; s < sizeof sorts / sizeof sorts[0]; s++) {
        for (int n = 0; n <= N; n = n < 4 ? n + 1 : n + 49) {
            int32_t left = 0, right = 0;
            for (int i = 0; i < n; i++) left += work[i] = data[i];
            sorts[s].sort(work, n);
            int ordered = 1;
            for (int i = 0; i < n; i++) {
                right += work[i];
                if (i && work[i - 1] > work[i]) ordered = 0;
            }
            if (!ordered || left != right) printf("%s fails for %d\n", sorts[s].name, n);
        }
        printf("%s %d %d %d\n", sorts[s].name, work[0], work[100], work[199]);
    }
    printf("%ld\n", (long)sum);
    return 0;
}
