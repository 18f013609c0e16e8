// Builds function bodies through the reading client, as a file would, for tests of trees, blocks and records.

#ifndef TESTS_UNIT_IR_FIXTURE_H
#define TESTS_UNIT_IR_FIXTURE_H

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "OPT5/bblk.h"
#include "OPT5/debug.h"
#include "OPT5/dump.h"
#include "OPT5/fileopt.h"
#include "OPT5/files.h"
#include "OPT5/if_file.h"
#include "OPT5/node.h"
#include "OPT5/opcodes.h"
#include "OPT5/option_obj.h"
#include "OPT5/read.h"
#include "OPT5/symbol.h"
#include "OPT5/types.h"
#include "OPT5/verify.h"

class IR_TEST : public ::testing::Test {
  protected:
    void SetUp() override {
        if (tp == nullptr) {
            tp = new TYPE_PKG;
            tp->init_type_pkg();
            file_options = new option_obj(true);
            all_option_sets = {file_options};
            reset_global_flags();
            init_opcode_tables();
        }
        currfunc = nullptr;
        currfuninfo = nullptr;
        functions.clear();
        init_symbols();
        init_proc_integration();
        init_fileopts();
        int_type = tp->int_type(IK_INT);
        float_type = tp->flt_type(FK_FLOAT);
        void_type = tp->void_type();
    }
    void TearDown() override {
        if (currfunc != nullptr) erase_current();
        for (SYMTAB* symbol : functions) {
            currfunc = symbol;
            currfuninfo = find_FUNINFO(symbol);
            erase_current();
        }
    }
    void erase_current();

    // --- Symbols.
    SYMTAB* symbol(const char* name, TYPE* type, int sclass, int level = 0,
                   I_SYMTAB::RETENTION_POLICY retention = I_SYMTAB::DEFAULT_C) {
        SYMBOL_RECORD record;
        record.name = name;
        record.type = type;
        record.size = type->is_func() ? 0 : static_cast<unsigned>(type->size());
        record.sclass = sclass;
        record.align = 16;
        record.level = level;
        record.retention = retention;
        return static_cast<SYMTAB*>(opt_client.cl_symbol_create(record));
    }
    TYPE* function_type(TYPE* result, std::vector<TYPE*> parameters = {}) {
        FUNC_BODY body;
        body.return_type = result;
        for (TYPE* type : parameters) body.params.push_back({type, 0, ""});
        return tp->mk_func(body);
    }
    SYMTAB* function(const char* name, int sclass = SC_EXTDEF) {
        return symbol(name, function_type(int_type), sclass);
    }
    void pragma(SYMTAB* owner, int kind, const char* argument = nullptr);

    // --- Bodies. `body_of` opens one with `x`, `y` int locals and `f` a float local.
    void begin(SYMTAB* symbol) {
        opt_client.cl_begin_func(symbol, at(1));
        opt_client.cl_end_args(at(1));
        x = local("x", int_type);
        y = local("y", int_type);
        f = local("f", float_type);
        opt_client.cl_end_locals(at(1));
    }
    SYMTAB* local(const char* name, TYPE* type) { return symbol(name, type, SC_AUTO, 2); }
    void stmt(NODE* tree, unsigned line = 2) { opt_client.cl_expr(tree, at(line)); }
    void label(unsigned number) { opt_client.cl_label(number); }
    // Ends the body; it becomes the current function, with its flow graph.
    void end() {
        SYMTAB* symbol = currfunc;
        opt_client.cl_end_func(at(99));
        currfunc = symbol;
        currfuninfo = find_FUNINFO(symbol);
    }
    // The same, with the graph as the statements give it: nothing is cleaned.
    void end_uncleaned() {
        opt_client.build_flow_graph(at(99));
        currfuninfo->is_defined = true;
        functions.push_back(currfunc);
    }
    // Leaves the function that `end` made current, so that another can begin.
    static void leave() {
        currfunc = nullptr;
        currfuninfo = fileinfo.root;
    }
    const PSN* at(unsigned line) {
        position_ = {"t.c", line, 1};
        return &position_;
    }

    // --- Trees, in the form of a file.
    NODE* tree(int op, TYPE* type, NODE* left = nullptr, NODE* right = nullptr) {
        NODE* node = new_node(op, type);
        node->left = left;
        node->right = right;
        return node;
    }
    NODE* name(SYMTAB* symbol) {
        NODE* node = new_node(op::NAME, symbol->otype);
        node->mk_name(symbol);
        return node;
    }
    NODE* icon(int value, TYPE* type = nullptr) {
        NODE* node = new_node(op::ICON, type != nullptr ? type : int_type);
        node->mk_icon(value);
        return node;
    }
    NODE* ref(unsigned number) {
        NODE* node = new_node(op::LABEL, void_type);
        node->mk_label(number);
        return node;
    }
    NODE* asg(SYMTAB* to, NODE* value) { return tree(op::ASG, to->otype, name(to), value); }
    NODE* inc(SYMTAB* symbol) { return asg(symbol, tree(op::PLUS, symbol->otype, name(symbol), icon(1))); }
    NODE* compare(int op, NODE* left, NODE* right) { return tree(op, int_type, left, right); }
    NODE* cbranch(NODE* condition, unsigned number) {
        return tree(op::CBRANCH, void_type, condition, ref(number));
    }
    NODE* branch(unsigned number) { return tree(op::BRANCH, void_type, ref(number)); }
    NODE* switch_on(NODE* selector, NODE* list) { return tree(op::SWITCH, void_type, selector, list); }
    NODE* case_of(int value, unsigned number) { return tree(op::CASE, void_type, icon(value), ref(number)); }
    NODE* default_to(unsigned number) { return tree(op::DEFAULT, void_type, ref(number)); }
    NODE* comma(NODE* left, NODE* right) { return tree(op::COMMA, void_type, left, right); }
    NODE* ret(NODE* value) { return tree(op::RETURN, int_type, name(currfunc), value); }
    NODE* ureturn() { return tree(op::URETURN, void_type, name(currfunc)); }
    NODE* address(SYMTAB* symbol) { return tree(op::UAND, tp->mk_ptr(symbol->otype), name(symbol)); }
    NODE* call(SYMTAB* callee) {
        NODE* node = tree(op::UCALL, int_type, address(callee));
        node->mk_ucall(0);
        return node;
    }

    // The blocks as text, one a line: "2: x = 1; goto BB3 -> 3".
    std::string graph() {
        std::string text;
        for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
            text += std::to_string(bb->dfn) + ":";
            for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next)
                text += (cell != bb->statements ? "; " : " ") + tree_to_text(cell->first);
            text += " ->";
            for (const EDGE* edge = bb->successors; edge != nullptr; edge = edge->next)
                text += " " + std::to_string(edge->bb->dfn);
            text += "\n";
        }
        return text;
    }
    BBLK* block(int dfn) {
        BBLK* bb = currfuninfo->bb_list;
        while (bb != nullptr && bb->dfn != dfn) bb = bb->next;
        return bb;
    }

    TYPE *int_type, *float_type, *void_type;
    SYMTAB *x = nullptr, *y = nullptr, *f = nullptr;

  private:
    PSN position_{};
};

#endif
