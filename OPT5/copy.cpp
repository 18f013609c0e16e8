#include "copy.h"

#include <cstring>
#include <tuple>
#include <utility>
#include <vector>

#include "bbutils.h"
#include "fileopt.h"
#include "files.h"
#include "fpsmath.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "pool.h"
#include "pragma.h"

NODE* copy_node(NODE* node, bool keep_scratch) {
    auto* copy = new NODE(node->op, node->type);
    copy->u = node->u;
    copy->mdata = node->mdata;
    copy->ls = node->ls;
    copy->otype = node->otype;
    copy->edge_profile = node->edge_profile;
    copy->freq = node->freq;
    copy->label = node->label;
    copy->text = node->text;
    copy->text_length = node->text_length;
    copy->u2 = node->u2;
    copy->flags = node->flags & NF_KEPT_BY_COPIES;
    if (keep_scratch) {
        std::memcpy(copy->scratch, node->scratch, sizeof copy->scratch);
        std::memcpy(copy->scratch2, node->scratch2, sizeof copy->scratch2);
        copy->scratch3 = node->scratch3;
        copy->flags = node->flags;
        copy->ddnode_number = node->ddnode_number;
    }
    copy->flags &= ~1u;
    if (node->op == op::FCON) {
        auto* value = static_cast<simul_fval*>(current_pool().allocate(sizeof(simul_fval)));
        *value = *node->fval();
        copy->u.rval = value;
    } else if (node->op == op::PPRAGMA && currfuninfo != nullptr) {
        auto* pragma = new PRAGMA(*node->pragma());
        pragma->next = nullptr;
        currfuninfo->owned_pragmas.push_back(pragma);
        copy->u.rval = pragma;
    }
    return copy;
}

NODE* copy_tree(NODE* tree, bool keep_scratch) {
    NODE* result = nullptr;
    std::vector<std::pair<NODE*, NODE**>> pending; // what to copy, and where the copy goes
    NODE** place = &result;
    for (;;) {
        for (; tree != nullptr; tree = tree->left) {
            NODE* copy = copy_node(tree, keep_scratch);
            *place = copy;
            if (tree->right != nullptr) pending.emplace_back(tree->right, &copy->right);
            place = &copy->left;
        }
        if (pending.empty()) return result;
        std::tie(tree, place) = pending.back();
        pending.pop_back();
    }
}

namespace {

template <class COPY> LIST* copy_cells(LIST* list, COPY copy_first, bool copy_psn) {
    LIST* head = nullptr;
    LIST** place = &head;
    for (; list != nullptr; list = list->next) {
        LIST* cell = mklist(copy_first(list->first), nullptr, list->number1, list->number2);
        cell->psn = copy_psn ? mk_psn(list->psn) : list->psn;
        *place = cell;
        place = &cell->next;
    }
    return head;
}

} // namespace

LIST* copy_statements(LIST* list, bool keep_scratch) {
    return copy_cells(
        list, [keep_scratch](NODE* tree) { return copy_tree(tree, keep_scratch); }, true);
}

LIST* copy_shared_statements(LIST* list) {
    return copy_cells(
        list, [](NODE* tree) { return tree; }, false);
}
