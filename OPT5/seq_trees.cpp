#include "seq_trees.h"

#include <vector>

#include "bbutils.h"
#include "erase.h"
#include "fileopt.h"
#include "files.h"
#include "fold.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "pool.h"

using namespace op;

namespace {

// Takes the effects ahead of the last part out of a comma, in order of execution.
NODE* split_comma(NODE* tree, std::vector<NODE*>& ahead) {
    std::vector<NODE*> pending{tree};
    NODE* last = nullptr;
    while (!pending.empty()) {
        NODE* node = pending.back();
        pending.pop_back();
        if (node->op == COMMAOP) {
            pending.push_back(node->right);
            pending.push_back(node->left);
            erase_node(node);
            continue;
        }
        if (last != nullptr) ahead.push_back(last);
        last = node;
    }
    return last;
}

// The statement without what comes ahead of it; null where nothing is left.
NODE* sequence(NODE* statement, std::vector<NODE*>& ahead) {
    ahead.clear();
    switch (statement->op) {
        case IF:
        case SWITCH:
            if (statement->left->op == COMMAOP) statement->left = split_comma(statement->left, ahead);
            return statement;
        case RETURN:
            if (statement->right->op == COMMAOP) statement->right = split_comma(statement->right, ahead);
            return statement;
        case PCOMMA: return statement;
        default: break;
    }
    if (tree_is_arg_prolog(statement)) return statement;
    NODE* effects = peel_for_effect(statement);
    return effects != nullptr && effects->op == COMMAOP ? split_comma(effects, ahead) : effects;
}

void drop_cell(LIST** place) {
    LIST* cell = *place;
    *place = cell->next;
    POOL::recycle(cell, sizeof(LIST));
}

} // namespace

void seq_trees() {
    // The list under construction has its last statement first.
    std::vector<NODE*> ahead;
    for (LIST** place = &currfuninfo->statements; *place != nullptr;) {
        LIST* cell = *place;
        cell->first = sequence(cell->first, ahead);
        if (cell->first == nullptr) {
            drop_cell(place);
            continue;
        }
        for (auto effect = ahead.rbegin(); effect != ahead.rend(); ++effect) {
            cell->next = mkelist(*effect, cell->next, cell->psn);
            cell = cell->next;
        }
        place = &cell->next;
    }
}

LIST* promote_toplevel_COMMAOPs_in_list(LIST* list) {
    std::vector<NODE*> ahead;
    for (LIST** place = &list; *place != nullptr;) {
        LIST* cell = *place;
        cell->first = sequence(cell->first, ahead);
        if (cell->first == nullptr) {
            drop_cell(place);
            continue;
        }
        for (NODE* effect : ahead) {
            *place = mkelist(effect, cell, cell->psn);
            place = &(*place)->next;
        }
        place = &cell->next;
    }
    return list;
}
