// Writes an intermediate file of any size for measurements: FUNCTIONS functions of STATEMENTS statements
// each. Prints the number of nodes in it.
//
// The shape "plain" has functions that know nothing of each other. With "calls", the statements of each
// function are calls of functions further on, and an assignment to one of a hundred statics: a large call
// graph with some cycles, under one `main`. With "tangle" the calls go anywhere, so that most functions are
// on one cycle.

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "OPT5/if_file.h"
#include "OPT5/opcodes.h"
#include "OPT5/types.h"
#include "tools/model/tree.h"

namespace {

class maker {
  public:
    explicit maker(std::FILE* stream, const char* name) {
        types_.init_type_pkg();
        int_ = types_.int_type(IK_INT);
        file_ = I_FILE::if_create(stream, &types_, "make_file", name);
    }

    // int fN(int p) { int x; x = p; then conditional jumps and assignments in turn; return x; }
    void function(int number, int statements) {
        model::pool nodes;
        nodes_ = &nodes;
        TYPE* type = types_.mk_func({int_, {{int_, 0, "p"}}, false, true, 0, false});
        model::symbol* f = symbols_.new_symbol();
        f->name = "f" + std::to_string(number);
        f->type = type;
        f->sclass = SC_EXTDEF;
        file_->if_enter_global(f);
        PSN psn{intern_text("made.c"), static_cast<unsigned>(number) + 1, 1};

        file_->if_write_begin_func(f, &psn);
        model::symbol* p = local("p", SC_PARM, nodes);
        file_->if_write_end_args(nullptr);
        file_->if_write_end_locals(nullptr);
        file_->if_write_begin_block(nullptr);
        model::symbol* x = local("x", SC_AUTO, nodes);
        write(binary(op::ASG, name(p), name(p)), psn); // the argument prolog
        write(binary(op::ASG, name(x), name(p)), psn);
        unsigned label = 0;
        for (int i = 0; i < statements; i++) {
            psn.line++;
            // x = x * k + (p ^ k): nine nodes
            model::tree* product = binary(op::MULT, name(x), icon(i % 1000 + 3));
            write(binary(op::ASG, name(x),
                         binary(op::PLUS, product, binary(op::XORB, name(p), icon(i % 500 + 1)))),
                  psn);
            if (i % 8 != 7) continue;
            model::tree* target = node(op::LABEL);
            target->mk_label(++label);
            write(binary(op::CBRANCH, binary(op::LT, name(x), name(p)), target), psn);
            write(binary(op::PLUSASG, name(x), icon(5)), psn);
            file_->if_write_label(label);
        }
        model::tree* own = name(f);
        write(binary(op::RETURN, own, name(x)), psn);
        file_->if_write_end_block(nullptr);
        file_->if_write_end_func(&psn);
    }

    // int main(void) and static int fN(int p), which call one another `calls` times each.
    void call_graph(int count, int calls, bool tangled) {
        model::pool nodes;
        nodes_ = &nodes;
        TYPE* type = types_.mk_func({int_, {{int_, 0, "p"}}, false, true, 0, false});
        TYPE* main_type = types_.mk_func({int_, {}, false, true, 0, false});
        std::vector<model::symbol*> functions, statics;
        for (int i = 0; i < count; i++) {
            const std::string name = i == 0 ? std::string("main") : "f" + std::to_string(i);
            functions.push_back(global(name, i == 0 ? main_type : type, i == 0 ? SC_EXTDEF : SC_STATIC));
        }
        for (int i = 0; i < 100; i++) statics.push_back(global("g" + std::to_string(i), int_, SC_STATIC));
        for (int i = 0; i < count; i++)
            calling(functions, i, calls, tangled, statics[static_cast<std::size_t>(i % 100)]);
    }

    long finish() { return I_FILE::if_close(file_, false) == 0 ? count_ : -1; }

  private:
    model::symbol* global(const std::string& name, TYPE* type, int sclass) {
        model::symbol* s = symbols_.new_symbol();
        s->name = name;
        s->type = type;
        s->size = type == int_ ? 16 : 0;
        s->sclass = sclass;
        file_->if_enter_global(s);
        return s;
    }

    void calling(const std::vector<model::symbol*>& functions, int number, int calls, bool tangled,
                 model::symbol* counter) {
        model::pool nodes;
        nodes_ = &nodes;
        model::symbol* f = functions[static_cast<std::size_t>(number)];
        const int count = static_cast<int>(functions.size());
        PSN psn{intern_text("made.c"), static_cast<unsigned>(number) + 1, 1};
        file_->if_write_begin_func(f, &psn);
        model::symbol* p = number != 0 ? local("p", SC_PARM, nodes) : nullptr;
        file_->if_write_end_args(nullptr);
        file_->if_write_end_locals(nullptr);
        if (p != nullptr) write(binary(op::ASG, name(p), name(p)), psn);
        write(binary(op::ASG, name(counter), icon(number)), psn);
        for (int i = 0; i < calls; i++) {
            random_ = random_ * 1103515245u + 12345u;
            const int pick = static_cast<int>(random_ >> 8 & 0xfffff);
            int to = tangled ? pick % count : number + 1 + pick % 50;
            if (!tangled && number % 500 == 499 && i == 0) to = number - 100; // a cycle
            if (to <= 0 || to >= count) to = count - 1;
            if (to == 0) continue;
            model::symbol* callee = functions[static_cast<std::size_t>(to)];
            model::tree* address = node(op::UAND);
            address->type = types_.mk_ptr(callee->type);
            address->left = name(callee);
            model::tree* call = binary(op::CALL, address, icon(i));
            call->mk_call(1, 0);
            write(call, psn);
        }
        write(binary(op::RETURN, name(f), icon(0)), psn);
        file_->if_write_end_func(&psn);
    }

    model::tree* node(int op) {
        count_++;
        return nodes_->new_tree(op, int_);
    }
    model::tree* binary(int op, model::tree* left, model::tree* right) {
        count_++;
        return nodes_->new_tree(op, int_, left, right);
    }
    model::tree* name(model::symbol* symbol) {
        model::tree* t = node(op::NAME);
        t->sym = symbol;
        t->type = symbol->type;
        return t;
    }
    model::tree* icon(int value) {
        model::tree* t = node(op::ICON);
        t->mk_icon(value);
        return t;
    }
    model::symbol* local(const char* name, int sclass, model::pool& nodes) {
        model::symbol* s = nodes.new_symbol();
        s->name = name;
        s->type = int_;
        s->size = 16;
        s->sclass = sclass;
        file_->if_enter_local(s);
        file_->if_write_symbol(s);
        return s;
    }
    void write(model::tree* tree, const PSN& psn) { file_->if_write_expr(tree, &psn); }

    TYPE_PKG types_;
    model::pool symbols_;
    model::pool* nodes_ = nullptr;
    TYPE* int_ = nullptr;
    I_FILE* file_ = nullptr;
    long count_ = 0;
    unsigned random_ = 1;
};

} // namespace

int main(int argc, char** argv) {
    const std::string_view shape = argc == 5 ? argv[4] : "plain";
    if (argc < 4 || argc > 5 || (shape != "plain" && shape != "calls" && shape != "tangle")) {
        std::fprintf(stderr, "Usage: make_file FUNCTIONS STATEMENTS FILE [plain|calls|tangle]\n");
        return 2;
    }
    std::FILE* stream = std::fopen(argv[3], "wb");
    if (stream == nullptr) {
        std::perror(argv[3]);
        return 1;
    }
    maker m(stream, argv[3]);
    const int functions = std::atoi(argv[1]), statements = std::atoi(argv[2]);
    if (shape == "plain") {
        for (int i = 0; i < functions; i++) m.function(i, statements);
    } else {
        m.call_graph(functions, statements, shape == "tangle");
    }
    long nodes = m.finish();
    std::printf("%ld\n", nodes);
    return nodes < 0;
}
