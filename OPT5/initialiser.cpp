#include "initialiser.h"

#include <algorithm>

#include "node.h"
#include "opcodes.h"
#include "pool.h"
#include "symbol.h"
#include "types.h"

void append_to_initialiser(EXPR_LIST*& list, NODE* tree) {
    auto* cell = static_cast<EXPR_LIST*>(current_pool().allocate(sizeof(EXPR_LIST)));
    cell->tree = tree;
    if (list == nullptr) {
        list = cell->next = cell->prev = cell;
        return;
    }
    cell->next = list;
    cell->prev = list->prev;
    cell->prev->next = cell->next->prev = cell;
}

std::uint64_t initialiser_bits(const NODE* tree) {
    constexpr std::uint64_t UNIT_BITS = 16;
    if (tree->op == op::SKIP) return tree->u.lval.bits();
    const std::uint64_t size = tree->type->size();
    if (tree->op != op::SCON || tree->type->is_ptr()) return size;
    return std::max<std::uint64_t>(size, tree->text_length * UNIT_BITS);
}
