// What a program that reads intermediate files gives to the file layer: call-backs, one per kind of record.
//
// Every PSN*, text and word list is valid only during the call; a client that keeps one copies it. Trees
// belong to the client from the call on.

#ifndef OPT5_IF_CLIENT_H
#define OPT5_IF_CLIENT_H

#include <cstdint>
#include <string>
#include <vector>

#include "i_symtab.h"

class BASE_NODE;
class TYPE;
struct PRAGMA;
struct PSN;

// Everything that a symbol record says, as read.
struct SYMBOL_RECORD {
    const char* name = "";
    unsigned size = 0;
    unsigned value = 0;
    int sclass = 0;
    unsigned cqual = 0;
    TYPE* type = nullptr;
    TYPE* cpp_type = nullptr;
    unsigned align = 0;
    int prag_num = 0;
    unsigned location = 0;
    unsigned option_set = 0;
    const PSN* psn = nullptr;
    I_SYMTAB::RETENTION_POLICY retention = I_SYMTAB::DEFAULT_C;
    int level = 0;
};

// The trees of one initialiser, in ascending order of address; the last is an ENDINIT.
using INIT_TREES = std::vector<BASE_NODE*>;

// What stands at an entry: a tree that is evaluated in passing, a list of types that are caught, a mark, or
// the end of the program.
enum EHT_ENTRY_KIND : unsigned { EHK_EXPR = 1, EHK_CATCH = 2, EHK_CLEANUP_END = 3, EHK_TERMINATE = 5 };

struct I_CATCH_ENTRY {
    std::string type_name;
    unsigned value = 0;
    bool flag = false;
};

struct EHT_ENTRY {
    unsigned first = 0;
    unsigned kind = 0;
    unsigned third = 0;
    unsigned count = 0;
    BASE_NODE* tree = nullptr;          // kind EHK_EXPR
    std::vector<I_CATCH_ENTRY> catches; // kind EHK_CATCH: `count` entries
};

class IF_CLIENT {
  public:
    virtual ~IF_CLIENT() = default;

    // Makes an empty node for the reader to fill; never null.
    virtual BASE_NODE* cl_new_node(int op, TYPE* type) = 0;
    // Makes a symbol; never null. The reader then sets index, level and retention.
    virtual I_SYMTAB* cl_symbol_create(const SYMBOL_RECORD& record) = 0;

    virtual bool cl_magic() { return true; }
    virtual void cl_source(const char*) {}
    virtual void cl_option_set(unsigned, const std::vector<std::string>&) {}
    virtual void cl_symbol_def(I_SYMTAB*) {}
    // The symbol is null for a pragma that stands alone. The client takes over the pragma.
    virtual void cl_pragma(I_SYMTAB*, PRAGMA*) {}
    virtual void cl_symbol_init(I_SYMTAB*, INIT_TREES&&) {}
    virtual void cl_merge_type_defs() {}
    virtual void cl_preprocess_statics() {}

    virtual void cl_begin_func(I_SYMTAB*, const PSN*) {}
    virtual void cl_end_func(const PSN*) {}
    virtual void cl_begin_block(const PSN*) {}
    virtual void cl_end_block(const PSN*) {}
    virtual void cl_end_args(const PSN*) {}
    virtual void cl_end_locals(const PSN*) {}
    virtual void cl_expr(BASE_NODE*, const PSN*) {}
    virtual void cl_label(unsigned) {}
    virtual void cl_inline_asm(const char*, const PSN*) {}
    virtual void cl_comment(const char*) {}
    virtual void cl_func_info(int) {}
    // The client takes over the entries' trees.
    virtual void cl_func_eht(std::vector<EHT_ENTRY>&&) {}

    virtual void cl_loop_def(unsigned, unsigned, unsigned, unsigned, unsigned, unsigned) {}
    virtual void cl_loop_header(unsigned, int, int, unsigned) {}
    virtual void cl_dd_vector(unsigned, unsigned, const std::vector<std::pair<std::uint8_t, std::int8_t>>&) {}
    virtual void cl_dd_edge(unsigned, unsigned, unsigned) {}
    virtual void cl_mbank(unsigned, unsigned, unsigned, unsigned, unsigned) {}
    virtual void cl_ldspec_induct(unsigned, unsigned, int, TYPE*, I_SYMTAB*) {}
    virtual void cl_ldspec_rand(unsigned, unsigned, unsigned, TYPE*, I_SYMTAB*) {}
    virtual void cl_ldspec_region(unsigned, unsigned) {}
    virtual void cl_ir_begin_func(unsigned, int, int, unsigned, const PSN*) {}
    virtual void cl_ir_end_func(const PSN*) {}
    virtual void cl_ir_ins(const PSN*) {}
};

#endif
