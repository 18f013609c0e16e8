#include "erase.h"

#include <cstdio>

#include "bblk.h"
#include "bbutils.h"
#include "fileopt.h"
#include "files.h"
#include "node.h"
#include "opcodes.h"
#include "pool.h"
#include "pragma.h"
#include "symbol.h"

namespace {

[[noreturn]] void double_erase(const NODE* node) {
    const char* format = "\n\n!!! COMPILER (OPTIMIZER) ERROR IN 'erase_node' %p !!!\n\n";
    std::fprintf(stderr, format, static_cast<const void*>(node));
    dprintf(format, static_cast<const void*>(node));
    abort_optimizer();
}

} // namespace

void erase_node(NODE* node) {
    // Until a recycled cell is handed out again it still shows the operator that marks it as erased.
    if (POOL::is_recycled(node) || node->op == op::ILLOP) double_erase(node);
    node->op = op::ILLOP;
    node->left = node->right = nullptr;
    node->ddep = nullptr;
    POOL::recycle(node, sizeof(NODE));
}

NODE* erase_tree(NODE* tree) {
    if (tree == nullptr) return nullptr;
    NODE_STACK pending;
    pending.push(tree);
    while (!pending.empty()) {
        for (NODE* node = pending.pop(); node != nullptr;) {
            NODE* left = node->left;
            NODE* right = node->right;
            if (node->op == op::CSE_DUPE) left = right = nullptr;
            erase_node(node);
            if (right != nullptr) pending.push(right);
            node = left;
        }
    }
    return nullptr;
}

LIST* erase_tree_list_to_entry(LIST* list, LIST* stop, bool with_trees) {
    while (list != nullptr && list != stop) {
        LIST* next = list->next;
        if (with_trees) erase_tree(list->first);
        POOL::recycle(list, sizeof(LIST));
        list = next;
    }
    return list;
}

LIST* erase_tree_list(LIST* list) { return erase_tree_list_to_entry(list, nullptr, true); }

LIST* erase_tree_list_only(LIST* list) { return erase_tree_list_to_entry(list, nullptr, false); }

void erase_all() {
    FUNINFO* function = currfuninfo != nullptr ? currfuninfo
                        : currfunc != nullptr  ? find_FUNINFO(currfunc)
                                               : nullptr;
    if (function == nullptr) return;
    // Blocks, trees, symbols and scopes hold no memory of their own: giving back the pool frees them all.
    function->snmap.clear();
    function->spmap.clear();
    for (PRAGMA* pragma : function->owned_pragmas) delete pragma;
    function->owned_pragmas = {};
    function->blocks = {};
    function->eht = {};
    function->dominators.reset();
    function->bb_list = nullptr;
    function->bb_count = 0;
    function->statements = nullptr;
    function->params = function->params_tail = nullptr;
    function->locals = function->locals_tail = nullptr;
    function->temps = nullptr;
    function->scopes = function->open_scope = function->body_scope = nullptr;
    function->stack_sharing = {};
    function->labels = nullptr;
    function->psn = function->end_psn = function->args_psn = function->locals_psn = nullptr;
    function->pool.release_all();
}
