#include "block_effects.h"

#include <algorithm>

#include "bblk.h"
#include "bbutils.h"
#include "fileopt.h"
#include "files.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "symbol.h"
#include "target_bif.h"

using namespace op;

void BLOCK_EFFECTS::note(const NODE* node, TREE_CHANGES& changes) const {
    if (opcode_is_ASG(node->op)) {
        const NODE* name = name_of_place(node->left);
        const SYMTAB* symbol = name != nullptr ? name->symbol() : nullptr;
        if (symbol != nullptr) changes.symbols.push_back(symbol);
        if (symbol == nullptr || is_memory(symbol)) changes.memory = true;
        return;
    }
    switch (node->op) {
        case CALL:
        case UCALL:
        case MEMCPY: changes.memory = true; break;
        case ASM: changes.all = changes.all || !is_comment(node); break;
        case UMCALL:
            changes.memory = true;
            changes.all = changes.all || is_ICALL_callee(node, EH_SWITCH);
            break;
        case MCALL:
        case ARGREF: // of any call; what it names is not private
            changes.memory = true;
            break;
        default: break;
    }
}

BLOCK_EFFECTS::BLOCK_EFFECTS() : changes_(currfuninfo->blocks.size()) {
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        TREE_CHANGES& changes = changes_[bb->id];
        for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next)
            walk_tree(cell->first, [&](NODE* node) { note(node, changes); });
    }
}

bool BLOCK_EFFECTS::has_exposed_locals() const {
    for (const SYMTAB* list : {currfuninfo->params, currfuninfo->locals, currfuninfo->temps})
        for (const SYMTAB* symbol = list; symbol != nullptr; symbol = symbol->next)
            if (is_memory(symbol)) return true;
    return false;
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

bool call_leaves_memory_alone(NODE* call) {
    if (!fileinfo.is_built) return false; // until then a record promises more than its body keeps
    if (call->op != CALL && call->op != UCALL) return false;
    constexpr std::uint32_t promises = FUN_no_global_asg | FUN_no_ind_asg | FUN_no_byref_asg;
    const FUNINFO* callee = find_FUNINFO_for_call(call);
    return callee != nullptr && (callee->flags & promises) == promises;
}

bool bb_modifies_lvalue_in_tree(const TREE_CHANGES& changes, const TREE_READS& reads, int& budget) {
    if (changes.all || (changes.memory && reads.memory)) return true;
    for (const SYMTAB* symbol : changes.symbols) {
        if (--budget < 0) return true;
        if (std::find(reads.symbols.begin(), reads.symbols.end(), symbol) != reads.symbols.end()) return true;
    }
    return false;
}
