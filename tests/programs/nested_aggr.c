// Structures and unions in one another: anonymous members, arrays of structures in structures, deep member
// chains.
#include <stdint.h>
#include <stdio.h>

enum kind { NUMBER, PAIR, TEXT };

struct value {
    enum kind kind;
    union {
        int32_t number;
        struct {
            int16_t first, second;
        };
        char text[6];
    };
};

struct row {
    int16_t id;
    struct cell {
        struct value v[2];
        union {
            int16_t tag;
            uint16_t utag;
        } u;
    } cells[3];
};

struct sheet {
    struct row rows[2];
    struct row* current;
    const char* title;
};

static struct sheet sheet;

static void put(struct value* v, int16_t n) {
    v->kind = (enum kind)(n % 3);
    switch (v->kind) {
        case NUMBER: v->number = n * 10000L; break;
        case PAIR:
            v->first = n;
            v->second = (int16_t)-n;
            break;
        case TEXT:
            for (int i = 0; i < 5; i++) v->text[i] = (char)('A' + n + i);
            v->text[5] = 0;
            break;
    }
}

static void print(struct value v) {
    if (v.kind == NUMBER)
        printf("%ld ", (long)v.number);
    else if (v.kind == PAIR)
        printf("(%d,%d) ", v.first, v.second);
    else
        printf("%s ", v.text);
}

int main(void) {
    int16_t n = 0;
    sheet.title = "sheet";
    for (int r = 0; r < 2; r++) {
        sheet.rows[r].id = (int16_t)(100 + r);
        for (int c = 0; c < 3; c++) {
            for (int i = 0; i < 2; i++) put(&sheet.rows[r].cells[c].v[i], n++);
            sheet.rows[r].cells[c].u.tag = (int16_t)(-r - c);
        }
    }
    for (sheet.current = sheet.rows; sheet.current < sheet.rows + 2; sheet.current++) {
        printf("%d: ", sheet.current->id);
        for (struct cell* c = sheet.current->cells; c != &sheet.current->cells[3]; ++c) {
            print(c->v[0]);
            print(c->v[1]);
            printf("%u ", (unsigned)c->u.utag);
        }
        printf("\n");
    }
    struct sheet copy = sheet;
    copy.rows[1].cells[2].v[1] = copy.rows[0].cells[0].v[0];
    copy.rows[0] = copy.rows[1];
    copy.current = &copy.rows[0];
    copy.current->cells[1].v[0].kind = PAIR;
    copy.current->cells[1].v[0].second = 7;
    copy.current->cells[1].v[0].first = (int16_t)(copy.current->cells[2].u.tag * 3);
    for (int c = 0; c < 3; c++) {
        print(copy.rows[0].cells[c].v[0]);
        print(sheet.rows[0].cells[c].v[0]);
        print(copy.current->cells[c].v[1]);
    }
    printf("%s %d\n", copy.title, copy.current[1].id);
    return 0;
}
