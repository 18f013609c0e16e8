#define WEAK __attribute__((weak))
enum { OPS = 3 };
enum shade { LIGHT, DARK };
struct node {
    int value;
    struct node* next;
};
typedef struct {
    int small;
    long large;
} pair;
typedef int operation(int, int);

extern struct node* head;
extern pair both;
extern operation* const operations[OPS];
extern enum shade shade;
extern const int limits[2];
extern volatile int tick;

struct node* push(struct node* n, struct node* next, int value);
int sum(const struct node*);
int table_length(void), other_scratch(void), other_state(void), other_bump(int), other_clamp(int);
const char* other_label(void);
int apply(int (*f)(int), int argument);
int main_has(int);
pair swapped(pair);
int total(int count, ...);
const int* where(void);
int ticks(void);

static inline int clamp(int n) { return n < limits[0] ? limits[0] : n > limits[1] ? limits[1] : n; }
