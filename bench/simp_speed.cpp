// How fast the tree simplifier is, for bench/measure.
//
//   simp_speed corpus FILE...       the statements of these files as they are read, simplified over and over
//   simp_speed shape NAME NODES     a single tree of that shape and size
//
// Trees are made and erased outside the measured time, which is the processor's. Prints "NODES SECONDS": of
// the corpus for one round over it.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <utility>
#include <vector>

#include "OPT5/bbutils.h"
#include "OPT5/copy.h"
#include "OPT5/debug.h"
#include "OPT5/erase.h"
#include "OPT5/fileopt.h"
#include "OPT5/files.h"
#include "OPT5/if_file.h"
#include "OPT5/node.h"
#include "OPT5/opcodes.h"
#include "OPT5/option_obj.h"
#include "OPT5/pragma.h"
#include "OPT5/read.h"
#include "OPT5/simp.h"
#include "OPT5/symbol.h"
#include "OPT5/target_bif.h"
#include "OPT5/types.h"

using namespace op;

namespace {

constexpr double CORPUS_SECONDS = 1.0; // for all files together
constexpr double SHAPE_SECONDS = 0.1;  // for each tree

double now() { return static_cast<double>(std::clock()) / CLOCKS_PER_SEC; }

long count_nodes(NODE* tree) {
    long nodes = 0;
    walk_tree(tree, [&nodes](NODE*) { nodes++; });
    return nodes;
}

// No symbols, no functions, no trees.
void start_records() {
    init_symbols();
    init_proc_integration();
    init_fileopts();
}

// What the driver sets up ahead of a file.
void start() {
    tp = new TYPE_PKG;
    tp->init_type_pkg();
    file_options = new option_obj(true);
    all_option_sets = {file_options};
    reset_global_flags();
    init_opcode_tables();
    start_records();
    init_BIF_descriptors();
}

// The statements of one function. The copies live in its pool.
struct BODY {
    FUNINFO* function;
    std::vector<NODE*> statements;
};

// Seconds for one simplification of every statement. The trees stay as they are.
double simplify_copies(const BODY& body) {
    currfuninfo = body.function;
    currfunc = body.function->symbol;
    std::vector<NODE*> copies;
    for (NODE* tree : body.statements) copies.push_back(copy_tree(tree, false));
    const double begin = now();
    for (NODE*& tree : copies) tree = simp_tree(tree, nullptr);
    const double end = now();
    for (NODE* tree : copies) erase_tree(tree);
    return end - begin;
}

// Reads as the optimizer does, and keeps a copy of every statement as it is before the reader simplifies it.
class KEEPER final : public IF_CLIENT {
  public:
    std::vector<BODY> bodies;

    BASE_NODE* cl_new_node(int op, TYPE* type) override { return opt_client.cl_new_node(op, type); }
    I_SYMTAB* cl_symbol_create(const SYMBOL_RECORD& record) override {
        return opt_client.cl_symbol_create(record);
    }
    void cl_pragma(I_SYMTAB* symbol, PRAGMA* pragma) override { opt_client.cl_pragma(symbol, pragma); }
    void cl_symbol_init(I_SYMTAB* symbol, INIT_TREES&& trees) override {
        opt_client.cl_symbol_init(symbol, std::move(trees));
    }
    void cl_begin_func(I_SYMTAB* symbol, const PSN* psn) override { opt_client.cl_begin_func(symbol, psn); }
    void cl_end_func(const PSN* psn) override {
        BODY body{currfuninfo, {}};
        for (LIST* cell = currfuninfo->statements; cell != nullptr; cell = cell->next)
            body.statements.push_back(fix_BIF_types(copy_tree(cell->first, false)));
        bodies.push_back(std::move(body));
        opt_client.cl_end_func(psn);
    }
    void cl_begin_block(const PSN* psn) override { opt_client.cl_begin_block(psn); }
    void cl_end_block(const PSN* psn) override { opt_client.cl_end_block(psn); }
    void cl_end_args(const PSN* psn) override { opt_client.cl_end_args(psn); }
    void cl_end_locals(const PSN* psn) override { opt_client.cl_end_locals(psn); }
    void cl_expr(BASE_NODE* tree, const PSN* psn) override { opt_client.cl_expr(tree, psn); }
    void cl_label(unsigned number) override { opt_client.cl_label(number); }
    void cl_inline_asm(const char* text, const PSN* psn) override { opt_client.cl_inline_asm(text, psn); }
    void cl_comment(const char* text) override { opt_client.cl_comment(text); }
    void cl_func_eht(std::vector<EHT_ENTRY>&& entries) override {
        opt_client.cl_func_eht(std::move(entries));
    }
};

struct RATE {
    long nodes = 0;
    double seconds = 0; // of one round
};

RATE measure_file(const char* name, double budget) {
    std::FILE* stream = std::fopen(name, "rb");
    if (stream == nullptr) {
        std::perror(name);
        std::exit(1);
    }
    start();
    KEEPER keeper;
    i_file = I_FILE::if_open(stream, &keeper, name);
    if (i_file == nullptr) {
        std::fprintf(stderr, "%s: not an intermediate file\n", name);
        std::exit(1);
    }
    i_file->if_type_init(tp);
    i_file->if_read_file();

    RATE rate;
    for (const BODY& body : keeper.bodies)
        for (NODE* tree : body.statements) rate.nodes += count_nodes(tree);
    double total = 0;
    int rounds = 0;
    for (const double begin = now(); rounds == 0 || now() - begin < budget; rounds++)
        for (const BODY& body : keeper.bodies) total += simplify_copies(body);
    rate.seconds = total / rounds;

    for (SYMTAB* function : functions) {
        currfunc = function;
        currfuninfo = find_FUNINFO(function);
        erase_all();
    }
    functions.clear();
    currfunc = nullptr;
    currfuninfo = nullptr;
    I_FILE::if_close(i_file, false);
    i_file = nullptr;
    return rate;
}

NODE* make(int op, NODE* left, NODE* right, TYPE* type = nullptr) {
    return maketree(op, left, right, type != nullptr ? type : tp->int_type(IK_INT), nullptr);
}

NODE* constant(int value) { return mk_ICON(INT65::from_signed(value), tp->int_type(IK_INT)); }

SYMTAB* variable(const char* name) {
    SYMBOL_RECORD record;
    record.name = name;
    record.type = tp->int_type(IK_INT);
    record.size = 16;
    record.align = 16;
    record.sclass = SC_EXTDEF;
    return static_cast<SYMTAB*>(opt_client.cl_symbol_create(record));
}

struct SHAPE {
    const char* name;
    NODE* (*grow)(NODE* tree, int step, SYMTAB* const* variables);
};

constexpr SHAPE SHAPES[] = {
    {"long sum",
     [](NODE* tree, int i, SYMTAB* const* v) {
         return make(PLUS, tree, make(MULT, mk_NAME(v[i % 3]), constant(i % 1000 + 2)));
     }},
    {"deep condition",
     [](NODE* tree, int i, SYMTAB* const* v) {
         return make(i % 2 != 0 ? ANDAND : OROR, tree, make(LT, mk_NAME(v[i % 3]), constant(i % 1000)));
     }},
    {"comma chain",
     [](NODE* tree, int i, SYMTAB* const* v) {
         return make(COMMAOP, make(ASG, mk_NAME(v[i % 3]), constant(i % 1000)), tree);
     }},
    {"nested conversions",
     [](NODE* tree, int i, SYMTAB* const*) {
         static constexpr IKIND kinds[] = {IK_LONG, IK_UINT, IK_LLONG, IK_INT};
         return make(SCONV, tree, nullptr, tp->int_type(kinds[i % 4]));
     }},
};

// A tree of at least that size. The first of a process lies in memory that has held no other, node by node;
// later ones are scattered, and large ones then tell of the memory.
NODE* fresh_tree(const SHAPE& shape, long size) {
    start_records();
    SYMTAB* const variables[] = {variable("x"), variable("y"), variable("z")};
    NODE* tree = mk_NAME(variables[0]);
    long nodes = 1, last = 0;
    for (int step = 0; nodes < size; step++) {
        tree = shape.grow(tree, step, variables);
        if (step == 0) last = count_nodes(tree) - 1;
        nodes += last;
    }
    return tree;
}

// The quickest of the simplifications for which there is time.
RATE measure_shape(const SHAPE& shape, long size) {
    RATE rate{0, 1e9};
    for (const double begin = now(); rate.nodes == 0 || now() - begin < SHAPE_SECONDS;) {
        NODE* tree = fresh_tree(shape, size);
        rate.nodes = count_nodes(tree);
        const double before = now();
        tree = simp_tree(tree, nullptr);
        rate.seconds = std::min(rate.seconds, now() - before);
        erase_tree(tree);
    }
    return rate;
}

} // namespace

int main(int argc, char** argv) {
    if (argc > 2 && std::strcmp(argv[1], "corpus") == 0) {
        RATE all;
        for (int i = 2; i < argc; i++) {
            const RATE one = measure_file(argv[i], CORPUS_SECONDS / (argc - 2));
            all.nodes += one.nodes;
            all.seconds += one.seconds;
        }
        std::printf("%ld %.9f\n", all.nodes, all.seconds);
        return 0;
    }
    if (argc == 4 && std::strcmp(argv[1], "shape") == 0) {
        const long size = std::atol(argv[3]);
        for (const SHAPE& shape : SHAPES) {
            if (std::strcmp(shape.name, argv[2]) != 0 || size <= 0) continue;
            start();
            const RATE rate = measure_shape(shape, size);
            std::printf("%ld %.9f\n", rate.nodes, rate.seconds);
            return 0;
        }
    }
    std::fprintf(stderr, "Usage: simp_speed corpus FILE... | simp_speed shape NAME NODES\nThe shapes are");
    for (const SHAPE& shape : SHAPES) std::fprintf(stderr, " '%s'", shape.name);
    std::fputs(".\n", stderr);
    return 2;
}
