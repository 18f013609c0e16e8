// Dynamic programming: common subsequence, edit distance, knapsack, coin change, longest rising run.
#include <stdint.h>
#include <stdio.h>
#include <string.h>

enum { MAX = 40 };

static int16_t table[MAX + 1][MAX + 1];

static int16_t min3(int16_t a, int16_t b, int16_t c) {
    int16_t m = a < b ? a : b;
    return m < c ? m : c;
}

static void common(const char* a, const char* b) {
    int n = (int)strlen(a), m = (int)strlen(b);
    memset(table, 0, sizeof table);
    for (int i = 1; i <= n; i++)
        for (int j = 1; j <= m; j++)
            table[i][j] = a[i - 1] == b[j - 1]                 ? (int16_t)(table[i - 1][j - 1] + 1)
                          : table[i - 1][j] >= table[i][j - 1] ? table[i - 1][j]
                                                               : table[i][j - 1];
    char out[MAX + 1];
    int at = table[n][m];
    out[at] = 0;
    for (int i = n, j = m; i && j;) {
        if (a[i - 1] == b[j - 1]) {
            out[--at] = a[i - 1];
            i--, j--;
        } else if (table[i - 1][j] >= table[i][j - 1]) {
            i--;
        } else {
            j--;
        }
    }
    printf("%s %d\n", out, table[n][m]);
}

static int16_t edit(const char* a, const char* b) {
    int16_t row[MAX + 1];
    int m = (int)strlen(b);
    for (int j = 0; j <= m; j++) row[j] = (int16_t)j;
    for (int16_t i = 1; *a; a++, i++) {
        int16_t diagonal = row[0];
        row[0] = i;
        for (int j = 1; j <= m; j++) {
            int16_t next = min3((int16_t)(row[j] + 1), (int16_t)(row[j - 1] + 1),
                                (int16_t)(diagonal + (*a != b[j - 1])));
            diagonal = row[j];
            row[j] = next;
        }
    }
    return row[m];
}

static int32_t knapsack(const int16_t* weight, const int32_t* worth, int n, int room) {
    int32_t best[101] = {0};
    for (int i = 0; i < n; i++)
        for (int r = room; r >= weight[i]; r--) {
            int32_t with = best[r - weight[i]] + worth[i];
            if (with > best[r]) best[r] = with;
        }
    return best[room];
}

static int32_t ways(int16_t sum, const int16_t* coins, int n) {
    int32_t count[201] = {1};
    while (n--)
        for (int16_t s = coins[n]; s <= sum; s++) count[s] += count[s - coins[n]];
    return count[sum];
}

static int rising(const int16_t* v, int n) {
    int16_t tails[MAX];
    int length = 0;
    for (int i = 0; i < n; i++) {
        int lo = 0, hi = length;
        while (lo < hi) {
            int mid = (lo + hi) / 2;
            if (tails[mid] < v[i])
                lo = mid + 1;
            else
                hi = mid;
        }
        tails[lo] = v[i];
        if (lo == length) length++;
    }
    return length;
}

int main(void) {
    common("the quick brown fox", "a thick crown box");
    common("abcbdab", "bdcaba");
    common("", "x");
    printf("%d %d %d %d\n", edit("kitten", "sitting"), edit("", "abc"), edit("same", "same"),
           edit("intention", "execution"));
    static const int16_t weight[] = {12, 7, 11, 8, 9, 6, 20, 33};
    static const int32_t worth[] = {24000L, 13000L, 23000L, 15000L, 16000L, 11000L, 47000L, 80000L};
    printf("%ld %ld\n", (long)knapsack(weight, worth, 5, 26), (long)knapsack(weight, worth, 8, 100));
    static const int16_t coins[] = {1, 2, 5, 10, 20, 50, 100, 200};
    printf("%ld %ld\n", (long)ways(200, coins, 8), (long)ways(50, coins + 1, 3));
    static const int16_t v[] = {10, 22, 9, 33, 21, 50, 41, 60, 80, 3, 81, 79};
    printf("%d\n", rising(v, 12));
    return 0;
}
