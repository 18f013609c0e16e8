// An expression language: tokeniser, recursive descent into a tree, folding, evaluation, and a stack machine
// beside it.
#include <ctype.h>
#include <stdint.h>
#include <stdio.h>

struct node {
    char op; // 'n' number, 'v' variable, else the operator
    int32_t value;
    int16_t left, right;
};

static struct node nodes[64];
static int16_t node_count;
static const char* at;
static const char* error;
static int32_t variables[26];
static int32_t stack[32];
static int16_t depth, deepest, executed;

static int16_t make(char op, int32_t value, int16_t left, int16_t right) {
    if (node_count == 64) {
        error = "too long";
        return 0;
    }
    nodes[node_count] = (struct node){op, value, left, right};
    return node_count++;
}

static char look(void) {
    while (*at == ' ') at++;
    return *at;
}

static int16_t assignment(void);

static int16_t primary(void) {
    char c = look();
    if (isdigit(c)) {
        int32_t v = 0;
        while (isdigit(*at)) v = v * 10 + (*at++ - '0');
        return make('n', v, 0, 0);
    }
    if (islower(c)) {
        at++;
        return make('v', c - 'a', 0, 0);
    }
    if (c == '(') {
        at++;
        int16_t n = assignment();
        if (look() == ')')
            at++;
        else
            error = "missing )";
        return n;
    }
    if (c == '-' || c == '!') {
        at++;
        return make(c == '-' ? '~' : '!', 0, primary(), 0);
    }
    error = "operand expected";
    return 0;
}

static int level(char c) {
    switch (c) {
        case '*':
        case '/':
        case '%': return 4;
        case '+':
        case '-': return 3;
        case '<':
        case '>': return 2;
        case '&':
        case '|': return 1;
    }
    return 0;
}

static int16_t binary(int lowest) {
    int16_t left = primary();
    while (!error) {
        char op = look();
        int l = level(op);
        if (l < lowest || l == 0) break;
        at++;
        int16_t right = binary(l + 1);
        left = make(op, 0, left, right);
    }
    return left;
}

static int16_t assignment(void) {
    int16_t left = binary(1);
    if (!error && look() == '=') {
        at++;
        if (nodes[left].op != 'v') {
            error = "variable expected";
            return 0;
        }
        return make('=', 0, left, assignment());
    }
    return left;
}

static int32_t apply(char op, int32_t a, int32_t b) {
    switch (op) {
        case '+': return a + b;
        case '-': return a - b;
        case '*': return a * b;
        case '/': return b ? a / b : (error = "division by zero", 0);
        case '%': return b ? a % b : (error = "division by zero", 0);
        case '<': return a < b;
        case '>': return a > b;
        case '&': return a && b;
        case '|': return a || b;
        case '~': return -a;
        case '!': return !a;
    }
    return 0;
}

static int32_t evaluate(int16_t n) {
    const struct node* e = &nodes[n];
    if (e->op == 'n') return e->value;
    if (e->op == 'v') return variables[e->value];
    if (e->op == '=') return variables[nodes[e->left].value] = evaluate(e->right);
    int32_t a = evaluate(e->left);
    return apply(e->op, a, e->op == '~' || e->op == '!' ? 0 : evaluate(e->right));
}

static void execute(int16_t n) {
    const struct node* e = &nodes[n];
    executed++;
    switch (e->op) {
        case 'n': stack[depth++] = e->value; break;
        case 'v': stack[depth++] = variables[e->value]; break;
        case '=':
            execute(e->right);
            variables[nodes[e->left].value] = stack[depth - 1];
            break;
        case '~':
        case '!':
            execute(e->left);
            stack[depth - 1] = apply(e->op, stack[depth - 1], 0);
            break;
        default:
            execute(e->left);
            execute(e->right);
            depth--;
            stack[depth - 1] = apply(e->op, stack[depth - 1], stack[depth]);
    }
    if (depth > deepest) deepest = depth;
}

static void run(const char* text) {
    node_count = depth = 0;
    at = text;
    error = 0;
    int16_t root = assignment();
    if (!error && look()) error = "end expected";
    if (error) {
        printf("%s: %s at %d\n", text, error, (int)(at - text));
        return;
    }
    int32_t v = evaluate(root);
    if (error) {
        printf("%s: %s\n", text, error);
        return;
    }
    execute(root);
    printf("%s = %ld%s\n", text, (long)v, stack[0] == v ? "" : " (machine differs)");
}

int main(void) {
    static const char* const lines[] = {"1 + 2 * 3",
                                        "(1 + 2) * 3",
                                        "100000 / 7 % 1000 - -5",
                                        "a = b = 12",
                                        "a * a - b",
                                        "2 - 3 - 4",
                                        "c = (a > 5) & (b < 5 | !0)",
                                        "((((((7))))))",
                                        "1 +",
                                        "4 / (b - 12)",
                                        "(3",
                                        "5 = 4",
                                        "3 $ 4",
                                        "d = a*10000 + b*100 + c",
                                        "-d + - - 5",
                                        "e = d % 97 * (d / 97 > 1000)",
                                        "f = a + 1 > b",
                                        "a*a*a - a"};
    for (unsigned i = 0; i < sizeof lines / sizeof lines[0]; i++) run(lines[i]);
    printf("%d deep, %d executed\n", deepest, executed);
    return 0;
}
