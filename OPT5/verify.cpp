#include "verify.h"

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "bblk.h"
#include "bbutils.h"
#include "fileopt.h"
#include "files.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "pool.h"
#include "symbol.h"
#include "tree_check.h"

using namespace op;

namespace {

class VERIFIER {
  public:
    explicit VERIFIER(const char* step) : step_(step) {}
    void run();

  private:
    [[noreturn]] void fail(const char* format, ...) __attribute__((format(printf, 2, 3)));

    void check_list();
    void check_block(const BBLK* bb);
    void check_transfer(const BBLK* bb, NODE* transfer);
    void check_edges(BBLK* bb);
    void check_mirror();
    void check_label(const NODE* parent, NODE* label);
    void check_case_list(NODE* statement);
    void check_tree(NODE* tree);
    void check_node(NODE* node);
    void check_operands(NODE* node);
    void visit(NODE* node);
    void stamp_symbols(SYMTAB* list);

    const char* step_;
    const BBLK* bb_ = nullptr;
    NODE* statement_ = nullptr;
    const BBLK* exit_ = nullptr;
    std::uint32_t stamp_ = 0;
};

void VERIFIER::fail(const char* format, ...) {
    char fault[400];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(fault, sizeof fault, format, arguments);
    va_end(arguments);
    std::string text = std::string("after step '") + step_ + "', function " + currfuninfo->name + ": ";
    if (bb_ != nullptr) text += "BB" + std::to_string(bb_->dfn) + ": ";
    text += fault;
    abort_optimizer(text.c_str());
}

// --- Blocks and edges.

void VERIFIER::check_list() {
    const BBLK* previous = nullptr;
    std::int32_t position = 0;
    BLOCK_SET listed;
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; previous = bb, bb = bb->next) {
        bb_ = bb;
        if (bb->manager_ != currfuninfo) fail("the block belongs to another function");
        if (bb->id >= currfuninfo->blocks.size() || currfuninfo->blocks[bb->id] != bb)
            fail("the block is not in the function's vector at its id %u", bb->id);
        if (!listed.insert(bb)) fail("the block is on the list twice");
        if (previous != nullptr && bb->prev != previous) fail("the back link is wrong");
        if (bb->layout_next != bb->next) fail("the second forward link differs from the first");
        position++;
        if (currfuninfo->dfn_is_valid && bb->dfn != position) fail("the block has position %d", position);
    }
    bb_ = nullptr;
    if (currfuninfo->bb_list->prev != previous) fail("the first block does not lead back to the last");
    if (currfuninfo->bb_count != position)
        fail("the function has %d blocks and counts %d", position, currfuninfo->bb_count);
    exit_ = previous;
}

void VERIFIER::check_block(const BBLK* bb) {
    const LIST* last = nullptr;
    for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next) {
        if (cell->first == nullptr) fail("a cell without a statement");
        if (last != nullptr && opcode_is_transfer(last->first->op))
            fail("%s is not the last statement", name_of(last->first));
        last = cell;
        statement_ = cell->first;
        check_tree(cell->first);
    }
    statement_ = nullptr;
    if (last == nullptr || !opcode_is_transfer(last->first->op))
        fail("the block does not end with a transfer");
    check_transfer(bb, last->first);
}

void VERIFIER::check_label(const NODE* parent, NODE* label) {
    if (label == nullptr || label->op != LABEL) fail("%s without a label", name_of(parent));
    if (label->label == nullptr || label->label->bb == nullptr) fail("a label that leads nowhere");
    const BBLK* target = label->label->bb;
    if (target->manager_ != currfuninfo || (target->next == nullptr && target != exit_) ||
        target->prev == nullptr)
        fail("a label of a block that is not on the list");
}

void VERIFIER::check_case_list(NODE* statement) {
    NODE* list = statement->right;
    const NODE* last = list->op == COMMA ? list->right : list;
    if (last->op != DEFAULT) fail("SWITCH without a DEFAULT at the end");
    check_label(last, last->left);
    while (list->op == COMMA) {
        list = list->left;
        const NODE* element = list->op == COMMA ? list->right : list;
        if (element->op != CASE) fail("%s in the list of a SWITCH", name_of(element));
        if (element->left->op != ICON) fail("CASE without a constant");
        check_label(element, element->right);
    }
}

void VERIFIER::check_transfer(const BBLK* bb, NODE* transfer) {
    switch (transfer->op) {
        case BRANCH: check_label(transfer, transfer->left); break;
        case IF:
            if (transfer->right->op != COLON) fail("IF without its two arms");
            check_label(transfer, transfer->right->left);
            check_label(transfer, transfer->right->right);
            break;
        case SWITCH: check_case_list(transfer); break;
        case URETURN:
            if (bb != exit_) fail("URETURN outside the exit block");
            break;
        default: break;
    }
    if (bb == exit_ && transfer->op != URETURN) fail("the exit block ends with %s", name_of(transfer));
}

void VERIFIER::check_edges(BBLK* bb) {
    NODE* transfer = last_statement(bb);
    BLOCK_SET targets;
    int count = 0;
    if (transfer->op == RETURN) {
        targets.insert(currfuninfo->bb_list->prev);
        count = 1;
    }
    for_each_labelref(transfer, [&](NODE* label) { count += targets.insert(label->label->bb) ? 1 : 0; });
    for (const EDGE* edge = bb->successors; edge != nullptr; edge = edge->next) {
        if (!targets.contains(edge->bb))
            fail("an edge to BB%d, which %s does not name", edge->bb->dfn, name_of(transfer));
        count--;
    }
    if (count > 0) fail("%d targets of %s have no edge", count, name_of(transfer));
    if (count < 0) fail("a successor appears twice");
}

// Compares both sides of the edges without look-ups: for each block the count of its incoming edges, and a
// sum over their sources as a fingerprint of the set, from the successor lists and from its predecessor list.
void VERIFIER::check_mirror() {
    struct SIDE {
        std::uint32_t count = 0;
        std::uint64_t sum = 0;
        void add(const BBLK* source) {
            count++;
            sum += (source->id + 1) * 0x9e3779b97f4a7c15u;
        }
        bool operator==(const SIDE&) const = default;
    };
    std::vector<SIDE> into(currfuninfo->blocks.size());
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        for (const EDGE* edge = bb->successors; edge != nullptr; edge = edge->next)
            into[edge->bb->id].add(bb);
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        bb_ = bb;
        SIDE from;
        BLOCK_SET seen;
        for (const EDGE* edge = bb->predecessors; edge != nullptr; edge = edge->next) {
            if (!seen.insert(edge->bb)) fail("predecessor BB%d appears twice", edge->bb->dfn);
            from.add(edge->bb);
        }
        if (!(from == into[bb->id])) fail("the predecessors are not the blocks that lead here");
    }
    bb_ = currfuninfo->bb_list;
    if (bb_->predecessors != nullptr) fail("the first block has a predecessor");
    bb_ = nullptr;
}

// --- Trees.

bool is_erased(const NODE* node) { return POOL::is_recycled(node) || node->op == ILLOP; }

void VERIFIER::visit(NODE* node) {
    if (is_erased(node)) fail("an erased node in a tree");
    if (node->stamp == stamp_) fail("%s belongs to two trees", name_of(node));
    node->stamp = stamp_;
}

void VERIFIER::check_tree(NODE* tree) {
    walk_tree(tree, [this](NODE* node) {
        visit(node);
        check_node(node);
    });
}

// Operators with a place of their own: whoever holds one checks it.
bool may_stand(const NODE* parent, const NODE* operand) {
    switch (operand->op) {
        case LABEL:
            return parent->op == BRANCH || parent->op == COLON || parent->op == CASE || parent->op == DEFAULT;
        case COLON: return operand == parent->right && (parent->op == IF || parent->op == QUEST);
        case CASE:
        case DEFAULT: return parent->op == SWITCH || parent->op == COMMA;
        case FIELD:
            return operand == parent->right &&
                   (parent->op == STDOT || parent->op == STREF || parent->op == STFIELD);
        case BRANCH:
        case CBRANCH:
        case IF:
        case SWITCH:
        case RETURN:
        case URETURN:
        case LABELDEF:
        case NOP:
        case LCON:
        case EPVAL:
        case SKIP:
        case ENDINIT: return false;
        default: return true;
    }
}

void VERIFIER::check_operands(NODE* node) {
    if (node->op < 0 || node->op >= OPCODE_TABLE_SIZE || opname(node->op) == nullptr)
        fail("operator %d", node->op);
    const int count = number_of_operands[node->op];
    if (count == ANY_OPERANDS) return;
    const int present = (node->left != nullptr ? 1 : 0) + (node->right != nullptr ? 1 : 0);
    if (present != count || (count == 1 && node->left == nullptr))
        fail("%s has %d operands instead of %d", name_of(node), present, count);
}

void VERIFIER::check_node(NODE* node) {
    check_operands(node);
    if (node->type == nullptr) fail("%s without a type", name_of(node));
    if (node == statement_ && (node->op == CBRANCH || node->op == LABELDEF || node->op == LABEL ||
                               node->op == COLON || node->op == CASE || node->op == DEFAULT))
        fail("%s is no statement", name_of(node));
    for (const NODE* operand : {node->left, node->right}) {
        if (operand == nullptr) continue;
        if (is_erased(operand)) fail("an erased node under %s", name_of(node));
        if (operand->type == nullptr) fail("%s without a type", name_of(operand));
        if (!may_stand(node, operand)) fail("%s under %s", name_of(operand), name_of(node));
    }
    if (node->op == NAME) {
        const SYMTAB* symbol = node->symbol();
        if (symbol == nullptr) fail("NAME without a symbol");
        if (symbol->level != 0 && symbol->stamp != stamp_)
            fail("symbol %s is not one of the function's", symbol->name);
    }
    if (const std::string fault = node_fault(node); !fault.empty()) fail("%s", fault.c_str());
}

void VERIFIER::stamp_symbols(SYMTAB* list) {
    for (; list != nullptr; list = list->next) {
        if (list->stamp == stamp_) fail("symbol %s is on the function's lists twice", list->name);
        list->stamp = stamp_;
    }
}

void VERIFIER::run() {
    stamp_ = fresh_stamp();
    stamp_symbols(currfuninfo->params);
    stamp_symbols(currfuninfo->locals);
    stamp_symbols(currfuninfo->temps);
    check_list();
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        bb_ = bb;
        check_block(bb);
    }
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        bb_ = bb;
        check_edges(bb);
    }
    check_mirror();
}

} // namespace

bool verify_function(const char* step) {
    if (currfuninfo == nullptr || currfuninfo->bb_list == nullptr) return true;
    VERIFIER(step).run();
    return true;
}
