#include "tools/model/tree.h"

#include <cerrno>
#include <cstdlib>

#include "OPT5/if_file.h"
#include "OPT5/opcodes.h"
#include "OPT5/types.h"

namespace model {

float tree::fcon() const {
    // The text has its zero behind it.
    return std::strtof(text.data(), nullptr);
}

I_SYMTAB* tree::name_sym() { return sym; }

void tree::mk_name(I_SYMTAB* symbol) {
    if (symbol == nullptr) if_fatal("a NAME has no symbol");
    sym = static_cast<model::symbol*>(symbol);
}

void tree::mk_field(int field_kind, fkMDATA* data, TYPE* aggregate) {
    if (field_kind != 1) if_fatal("a FIELD of kind " + std::to_string(field_kind));
    member = data;
    csu = aggregate;
}

void tree::mk_icon(int number) {
    value = type != nullptr && type->is_signed() ? static_cast<std::int64_t>(number)
                                                 : static_cast<std::int64_t>(static_cast<unsigned>(number));
}

void tree::mk_lcon(const char* decimal) {
    text = intern_text(decimal);
    errno = 0;
    value = *decimal == '-' ? std::strtoll(decimal, nullptr, 10)
                            : static_cast<std::int64_t>(std::strtoull(decimal, nullptr, 10));
}

void tree::mk_fcon(const char* number) { text = intern_text(number); }
void tree::mk_scon(const char* bytes, unsigned length) {
    text = {intern_text(std::string_view(bytes, length)), length};
}
void tree::mk_icall(const char* name) { text = intern_text(name); }

void tree::mk_ddnode(int id, int new_flags, int new_kind) {
    value = id;
    flags = new_flags;
    kind = new_kind;
}

void tree::mk_call(unsigned id, unsigned index) {
    value = id;
    eht_index = index;
}

void symbol::take(const SYMBOL_RECORD& record) {
    name = record.name;
    size = record.size;
    value = static_cast<int>(record.value);
    sclass = record.sclass;
    cqual = record.cqual;
    type = record.type;
    cpp_type = record.cpp_type;
    align = record.align;
    option_set = record.option_set;
    has_psn = record.psn != nullptr;
    if (has_psn) psn = *record.psn;
}

const PRAGMA* symbol::pragma(int wanted) const {
    for (const PRAGMA* p = pragmas; p != nullptr; p = p->next)
        if (p->kind == wanted) return p;
    return nullptr;
}

int symbol::sym_prag_num() const {
    int n = 0;
    for (const PRAGMA* p = pragmas; p != nullptr; p = p->next) n++;
    return n;
}

tree* pool::new_tree(int op, TYPE* type) {
    tree& node = trees_.emplace_back();
    node.op = op;
    node.type = type;
    return &node;
}

tree* pool::new_tree(int op, TYPE* type, tree* left, tree* right) {
    tree* node = new_tree(op, type);
    node->left = left;
    node->right = right;
    return node;
}

symbol* pool::new_symbol() { return &symbols_.emplace_back(); }

PRAGMA* pool::new_pragma(int kind, std::vector<std::string> args) {
    pragmas_.push_back(std::make_unique<PRAGMA>());
    pragmas_.back()->kind = static_cast<std::uint8_t>(kind);
    pragmas_.back()->args = std::move(args);
    return pragmas_.back().get();
}

PRAGMA* pool::adopt(PRAGMA* pragma) {
    pragmas_.emplace_back(pragma);
    return pragma;
}

} // namespace model
