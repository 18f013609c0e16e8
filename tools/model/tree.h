// Trees and symbols of the companion tools: a plain implementation of the file layer's interfaces that
// shares nothing with the optimizer's own, so that the tools stay independent witnesses.

#ifndef TOOLS_MODEL_TREE_H
#define TOOLS_MODEL_TREE_H

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "OPT5/base_node.h"
#include "OPT5/i_symtab.h"
#include "OPT5/if_client.h"
#include "OPT5/pragma.h"
#include "OPT5/psn.h"

namespace model {

class symbol;

// One expression node. The payload fields in use depend on the operator.
class tree final : public BASE_NODE {
  public:
    int op = 0;
    TYPE* type = nullptr;
    tree* left = nullptr;
    tree* right = nullptr;

    // ICON and LCON: the value, zero- or sign-extended by the type's signedness. LABEL: number. SKIP: bits.
    // SWITCH: cases. CALL: call number. VREG, DDNODE: number. EPVAL: count.
    std::int64_t value = 0;
    model::symbol* sym = nullptr; // NAME
    fkMDATA* member = nullptr;    // FIELD
    TYPE* csu = nullptr;          // FIELD
    std::string_view text;  // SCON: bytes; FCON, LCON: text; ICALL family: name. Zero-terminated behind.
    unsigned eht_index = 0; // CALL, UCALL
    int flags = 0;          // DDNODE
    int kind = 0;           // DDNODE

    // The value of an FCON: its text read as an IEEE single.
    float fcon() const;

    int node_op() const override { return op; }
    void set_node_op(int new_op) override { op = new_op; }
    TYPE* node_type() const override { return type; }
    BASE_NODE* node_left() const override { return left; }
    BASE_NODE* node_right() const override { return right; }
    void set_node_left(BASE_NODE* operand) override { left = static_cast<tree*>(operand); }
    void set_node_right(BASE_NODE* operand) override { right = static_cast<tree*>(operand); }

    I_SYMTAB* name_sym() override;
    int field_kind() override { return 1; }
    fkMDATA* field_mval() override { return member; }
    TYPE* field_csu() override { return csu; }
    unsigned icon_uvalue() override { return static_cast<unsigned>(value); }
    int icon_svalue() override { return static_cast<int>(value); }
    const char* lcon_value() override { return text.data(); }
    const char* fcon_value() override { return text.data(); }
    const char* scon_value() override { return text.data(); }
    unsigned scon_length() override { return static_cast<unsigned>(text.size()); }
    unsigned label_id() override { return static_cast<unsigned>(value); }
    int vreg_id() override { return static_cast<int>(value); }
    int skip_value() override { return static_cast<int>(value); }
    int case_count() override { return static_cast<int>(value); }
    int ddnode_id() override { return static_cast<int>(value); }
    int ddnode_flags() override { return flags; }
    int ddnode_kind() override { return kind; }
    unsigned call_id() override { return static_cast<unsigned>(value); }
    const char* icall_name() override { return text.data(); }
    unsigned eh_entry_id() override { return eht_index; }
    unsigned get_edge_profile_value() override { return static_cast<unsigned>(value); }

    void set_edge_profile_value(unsigned count) override { value = count; }
    void mk_name(I_SYMTAB* symbol) override;
    void mk_field(int kind, fkMDATA* member, TYPE* csu) override;
    void mk_icon(int value) override;
    void mk_lcon(const char* decimal) override;
    void mk_fcon(const char* text) override;
    void mk_scon(const char* bytes, unsigned length) override;
    void mk_label(unsigned number) override { value = number; }
    void mk_vreg(int number) override { value = number; }
    void mk_skip(int bits) override { value = bits; }
    void mk_case_count(int count) override { value = count; }
    void mk_ddnode(int id, int flags, int kind) override;
    void mk_call(unsigned id, unsigned eht_index) override;
    void mk_ucall(unsigned eht_index) override { this->eht_index = eht_index; }
    void mk_icall(const char* name) override;
};

class symbol final : public I_SYMTAB {
  public:
    std::string name;
    unsigned size = 0; // bits
    int value = 0;
    int sclass = 0;
    unsigned cqual = 0;
    TYPE* type = nullptr;
    TYPE* cpp_type = nullptr;
    unsigned align = 16; // bits
    PSN psn{};
    bool has_psn = false;
    PRAGMA* pragmas = nullptr; // chain, owned by the pool
    unsigned location = 0;
    unsigned option_set = 0;
    int level = 0;
    std::vector<tree*> init; // trees of the initialiser, the ENDINIT included; empty when none

    // Takes all that the record says but the level, the retention and the place in the file, which the reader
    // sets or the writer knows.
    void take(const SYMBOL_RECORD& record);

    // The first pragma of that kind on the chain, or null.
    const PRAGMA* pragma(int kind) const;

    const char* sym_name() const override { return name.c_str(); }
    unsigned sym_size() const override { return size; }
    int sym_value() const override { return value; }
    int sym_class() const override { return sclass; }
    unsigned sym_cqual() const override { return cqual; }
    TYPE* sym_type() const override { return type; }
    TYPE* sym_cpp_type() const override { return cpp_type; }
    unsigned sym_align() const override { return align; }
    const PSN* sym_psn() const override { return has_psn ? &psn : nullptr; }
    PRAGMA* sym_pragma() const override { return pragmas; }
    int sym_prag_num() const override;
    unsigned sym_location() const override { return location; }
    unsigned sym_option_set() const override { return option_set; }
    int sym_level() const override { return level; }
    void set_level(int new_level) override { level = new_level; }
    void set_location(unsigned offset) override { location = offset; }
};

// Owner of trees, symbols, pragmas and texts: all of them live as long as the pool.
class pool {
  public:
    tree* new_tree(int op, TYPE* type);
    tree* new_tree(int op, TYPE* type, tree* left, tree* right = nullptr);
    symbol* new_symbol();
    PRAGMA* new_pragma(int kind, std::vector<std::string> args = {});
    // Takes over a pragma that the reader made.
    PRAGMA* adopt(PRAGMA* pragma);

  private:
    std::deque<tree> trees_;
    std::deque<symbol> symbols_;
    std::vector<std::unique_ptr<PRAGMA>> pragmas_;
};

} // namespace model

#endif
