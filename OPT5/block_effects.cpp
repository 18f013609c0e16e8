#include "block_effects.h"

#include <algorithm>
#include <string_view>

#include "bblk.h"
#include "bbutils.h"
#include "fileopt.h"
#include "files.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "symbol.h"

using namespace op;

namespace {

const SYMTAB* named_object(const NODE* place) {
    while (place != nullptr && place->op == STDOT) place = place->left;
    return place != nullptr && place->op == NAME ? place->symbol() : nullptr;
}

} // namespace

void BLOCK_EFFECTS::find_exposed(NODE* tree) {
    walk_tree(tree, [this](NODE* node) {
        if (node->op == UAND || node->op == ARGREF) {
            const SYMTAB* symbol = named_object(node->left);
            if (symbol != nullptr && symbol->level > 0) exposed_.insert(symbol);
        } else if (node->op == CALL || node->op == UCALL) {
            const SYMTAB* callee = get_callee_for_call(node);
            if (callee == nullptr) return;
            const std::string_view name = skip_name_prefix(callee->name);
            has_hidden_edges_ = has_hidden_edges_ || name == "setjmp" || name == "sigsetjmp";
        }
    });
}

bool BLOCK_EFFECTS::is_memory(const SYMTAB* symbol) const {
    return symbol->level == 0 || symbol->sclass == SC_STATIC || (has_open_arguments_ && symbol->level == 1) ||
           exposed_.count(symbol) != 0;
}

void BLOCK_EFFECTS::note(const NODE* node, TREE_CHANGES& changes) const {
    if (opcode_is_ASG(node->op)) {
        const SYMTAB* symbol = named_object(node->left);
        if (symbol != nullptr) changes.symbols.push_back(symbol);
        if (symbol == nullptr || is_memory(symbol)) changes.memory = true;
        return;
    }
    switch (node->op) {
        case CALL:
        case UCALL:
        case MEMCPY: changes.memory = true; break;
        case ASM: changes.all = changes.all || !is_comment(node); break;
        case MCALL:
        case UMCALL: // what its ARGREFs name is exposed
            changes.memory = true;
            break;
        default: break;
    }
}

BLOCK_EFFECTS::BLOCK_EFFECTS()
    : changes_(currfuninfo->blocks.size()), has_hidden_edges_(!currfuninfo->eht.empty()) {
    for (const SYMTAB* symbol = currfuninfo->params; symbol != nullptr; symbol = symbol->next)
        has_open_arguments_ = has_open_arguments_ || symbol->class_as_read == SC_VARARG;
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next) find_exposed(cell->first);
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        TREE_CHANGES& changes = changes_[bb->id];
        for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next)
            walk_tree(cell->first, [&](NODE* node) { note(node, changes); });
    }
}

TREE_READS BLOCK_EFFECTS::reads_of(NODE* tree) const {
    TREE_READS reads;
    walk_tree(tree, [&](const NODE* node) {
        if (node->op == UMULT || node->op == STREF) reads.memory = true;
        if (node->op != NAME) return;
        reads.symbols.push_back(node->symbol());
        if (is_memory(node->symbol())) reads.memory = true;
    });
    return reads;
}

const TREE_CHANGES& BLOCK_EFFECTS::of(const BBLK* bb) const { return changes_[bb->id]; }

TREE_CHANGES BLOCK_EFFECTS::changes_of(NODE* statement) const {
    TREE_CHANGES changes;
    walk_tree(statement, [&](const NODE* node) { note(node, changes); });
    return changes;
}

bool bb_modifies_lvalue_in_tree(const TREE_CHANGES& changes, const TREE_READS& reads, int& budget) {
    if (changes.all || (changes.memory && reads.memory)) return true;
    for (const SYMTAB* symbol : changes.symbols) {
        if (--budget < 0) return true;
        if (std::find(reads.symbols.begin(), reads.symbols.end(), symbol) != reads.symbols.end()) return true;
    }
    return false;
}
