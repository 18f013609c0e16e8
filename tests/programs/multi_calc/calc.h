/* A calculator in three parts: a reader of words, a stack machine, and the names that it knows. */
typedef enum { END, NUMBER, NAME, SIGN, BAD } kind;

struct word {
    kind kind;
    union {
        long number;
        char sign;
        struct entry* entry;
    } u;
};

struct entry {
    char name[8];
    long value;
    long (*call)(long);
    struct entry* next;
};

void start(const char* text);
int next_word(struct word* w);
struct entry* find(const char* name, int length);
void define(const char* name, long value, long (*call)(long));
extern unsigned lookups;
long expression(int least);
extern int errors;
