// The optimizer's side of the reader: builds symbols, trees and function records from what a file holds.

#ifndef OPT5_READ_H
#define OPT5_READ_H

#include <unordered_map>
#include <vector>

#include "if_client.h"
#include "psn.h"

class NODE;
class SYMTAB;
struct LBL;

class OPT_CLIENT final : public IF_CLIENT {
  public:
    BASE_NODE* cl_new_node(int op, TYPE* type) override;
    I_SYMTAB* cl_symbol_create(const SYMBOL_RECORD& record) override;
    void cl_option_set(unsigned number, const std::vector<std::string>& words) override;
    void cl_pragma(I_SYMTAB* symbol, PRAGMA* pragma) override;
    void cl_symbol_init(I_SYMTAB* symbol, INIT_TREES&& trees) override;
    void cl_begin_func(I_SYMTAB* symbol, const PSN* psn) override;
    void cl_end_func(const PSN* psn) override;
    void cl_begin_block(const PSN* psn) override;
    void cl_end_block(const PSN* psn) override;
    void cl_end_args(const PSN* psn) override;
    void cl_end_locals(const PSN* psn) override;
    void cl_expr(BASE_NODE* tree, const PSN* psn) override;
    void cl_label(unsigned number) override;
    void cl_inline_asm(const char* text, const PSN* psn) override;
    void cl_comment(const char* text) override;
    void cl_func_eht(std::vector<EHT_ENTRY>&& entries) override;

    // The first half of cl_end_func: the flow graph as the statements give it.
    void build_flow_graph(const PSN* psn);

    // Ends the run if the file ended inside a function. To be called once the whole file is read.
    void end_of_input();

    // The label of that number in the function being read, made when it is first named.
    LBL* label_of_file(unsigned number);
    // A label that no number of the file names.
    LBL* fresh_label();
    // The position of the statement being read; null when it has none.
    const PSN* here() const { return has_here_ ? &here_ : nullptr; }

  private:
    void need_function(const char* what);
    void append(NODE* statement, const PSN* psn);
    void append_text(int record, const char* text, const PSN* psn);
    void check_labels();
    void set_here(const PSN* psn);

    struct FILE_LABEL {
        LBL* label = nullptr;
        bool defined = false;
        unsigned first_line = 0;
    };
    // Of the function being read.
    std::unordered_map<unsigned, FILE_LABEL> labels_; // by number in the file; never walked
    std::vector<unsigned> label_numbers_;             // in order of appearance
    bool is_first_expr_ = false;                      // no expression of the function has come yet
    int lex_ = 0;                                     // depth of open scopes; 0 outside a function
    bool args_ended_ = false;
    bool has_here_ = false;
    PSN here_{};
};

extern OPT_CLIENT opt_client;

// Brings a statement into the form that the optimizer expects (read_tree.cpp): declarations replaced by
// definitions, label references bound, CBRANCH(c, LABEL n) turned into IF(c, COLON(LABEL behind, LABEL n)).
// For such an IF `behind` is set to the label that must be defined right after the statement. Returns null
// for a statement that certainly has no effect; its tree is erased. A tree of impossible shape ends the run.
NODE* expr_cleanup(NODE* tree, LBL*& behind);

// The same for a tree outside the statements: an initialiser, or an entry of an exception table. Labels are
// bound only in a function.
NODE* name_cleanup(NODE* tree);

// Acts on the pragmas of a symbol that matter to the optimizer.
void opt_process_pragma(SYMTAB* symbol, PRAGMA* pragma);

#endif
