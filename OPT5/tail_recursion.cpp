// Tail recursion as a loop.
//
//     f(a, b): ...; return f(b, a + 1)        t = b; u = a + 1; a = t; b = u; goto the block behind the
//     prolog
//
// A conditional value that is such a call in one of its arms is split into two returns first.
//
// The frame of the call takes the place of the caller's. So nobody may hold an address in it, and it must be
// made of plain variables that the start of the body does not find initialised.

#include "tail_recursion.h"

#include <algorithm>
#include <cstddef>
#include <vector>

#include "bblk.h"
#include "bbutils.h"
#include "block_effects.h"
#include "buildcfg.h"
#include "congruent.h"
#include "copy.h"
#include "debug.h"
#include "dump.h"
#include "erase.h"
#include "fileopt.h"
#include "files.h"
#include "if_file.h"
#include "node.h"
#include "opcodes.h"
#include "optypes.h"
#include "pool.h"
#include "psn.h"
#include "simp.h"
#include "symbol.h"
#include "types.h"

using namespace op;

namespace {

// A call as the last act of a block.
struct TAIL_CALL {
    BBLK* bb = nullptr;
    LIST* cell = nullptr; // of the statement that holds the call
    NODE* call = nullptr;
    std::vector<NODE*> arguments; // in order
};

bool is_self_call(NODE* tree) { return get_callee_for_call(tree) == currfunc; }

// The call that is all that the last statements of the block do; null for other blocks.
NODE* find_tail_call(BBLK* bb, LIST*& cell) {
    NODE* call = nullptr;
    for (LIST *ahead = nullptr, *at = bb->statements; at != nullptr; ahead = at, at = at->next) {
        if (at->next != nullptr) continue;
        NODE* transfer = at->first;
        if (transfer->op == RETURN) {
            cell = at;
            call = transfer->right;
        } else if (transfer->op == BRANCH && ahead != nullptr && transfer->left->label->bb->is_exit()) {
            cell = ahead;
            call = ahead->first;
        }
    }
    return call != nullptr && is_self_call(call) ? call : nullptr;
}

bool read_arguments(const NODE* call, std::vector<NODE*>& arguments) {
    NODE* list = call->op == CALL ? call->right : nullptr;
    while (list != nullptr) {
        NODE* argument = list->op == COMMA ? list->right : list;
        if (argument->op == STARG || argument->op == ARGREF) return false;
        arguments.push_back(argument);
        list = list->op == COMMA ? list->left : nullptr;
    }
    std::reverse(arguments.begin(), arguments.end());
    return true;
}

// Whether the value becomes the parameter's as an assignment would make it.
bool passes_as(const SYMTAB* parameter, const NODE* argument) {
    return argument->type->is_scalar() && (same_representation(parameter->type, argument->type) ||
                                           (parameter->type->is_integral() && argument->type->is_integral()));
}

// Parameters arrive as they are: the prolog, where there is one, converts nothing.
bool prolog_is_plain(NODE* prolog) {
    return !any_node(
        prolog, [](const NODE* node) { return node->op != ASG && node->op != PCOMMA && node->op != NAME; });
}

bool calls_itself() {
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next)
            if (any_node(cell->first, is_self_call)) return true;
    return false;
}

class TAIL_RECURSION {
  public:
    bool run();

  private:
    bool function_fits() const;
    bool frame_is_plain() const;
    bool split_returns() const;
    bool find_calls();
    BBLK* start_of_loop() const;
    static void take_off_entries(const BBLK* bb);
    void replace(const TAIL_CALL& tail, BBLK* start) const;
    LIST* assign_arguments(const TAIL_CALL& tail) const;

    std::vector<SYMTAB*> parameters_;
    std::vector<TAIL_CALL> calls_;
};

bool TAIL_RECURSION::function_fits() const {
    // A variable argument list can't be changed, and an interrupt handler is not called.
    if (TEST_FLAG(currfuninfo, FUN_cannot_beta | FUN_is_interrupt)) return false;
    const auto is_plain = [](const SYMTAB* symbol) {
        return symbol->otype->is_scalar() && !symbol->otype->is_volatile() &&
               symbol->class_as_read != SC_VARARG;
    };
    if (!std::all_of(parameters_.begin(), parameters_.end(), is_plain)) return false;
    NODE* first = currfuninfo->bb_list->statements->first;
    return !tree_is_arg_prolog(first) || prolog_is_plain(first);
}

bool TAIL_RECURSION::frame_is_plain() const {
    for (const SYMTAB* symbol = currfuninfo->locals; symbol != nullptr; symbol = symbol->next)
        if (symbol->init != nullptr) return false;
    const BLOCK_EFFECTS effects;
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        if (effects.of(bb).all) return false; // assembly text may count on the frame
    return !effects.has_exposed_locals() && !effects.has_hidden_edges();
}

// Whether the value of one of the conditional's arms, or of theirs, is that of a call of the function itself.
bool yields_self_call(NODE* quest) {
    NODE_STACK pending;
    pending.push(quest);
    while (!pending.empty()) {
        NODE* node = pending.pop();
        if (is_self_call(node)) return true;
        if (node->op != QUEST) continue;
        pending.push(node->right->left);
        pending.push(node->right->right);
    }
    return false;
}

// return c ? f(a) : b; becomes if (c) return f(a); else return b;
bool TAIL_RECURSION::split_returns() const {
    bool split = false;
    // The new blocks are next on the list: conditionals in the arms have their turn.
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        LIST* last = last_cell(bb);
        NODE* transfer = last->first;
        if (transfer->op != RETURN || transfer->right->op != QUEST || !yields_self_call(transfer->right))
            continue;
        NODE* quest = transfer->right;
        NODE* arms = quest->right;
        const auto returning = [&](NODE* value) {
            NODE* name = copy_tree(transfer->left, false);
            return mkelist(maketree(RETURN, name, value, transfer->type, nullptr), nullptr, last->psn);
        };
        BBLK* if_false = insert_new_bb(bb->dfn, bb, returning(arms->right));
        BBLK* if_true = insert_new_bb(bb->dfn, bb, returning(arms->left));
        last->first = simp_node(
            mk_IF(quest->left, mk_LABELREF_to_bb(if_true, nullptr), mk_LABELREF_to_bb(if_false, nullptr)),
            nullptr);
        arms->left = arms->right = quest->left = nullptr;
        erase_tree(transfer);
        split = true;
    }
    if (split) rebuildcfg();
    return split;
}

bool TAIL_RECURSION::find_calls() {
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        if (bb->successors == nullptr || bb->successors->next != nullptr || !bb->successors->bb->is_exit())
            continue;
        TAIL_CALL tail;
        tail.bb = bb;
        tail.call = find_tail_call(bb, tail.cell);
        if (tail.call == nullptr || !read_arguments(tail.call, tail.arguments) ||
            tail.arguments.size() != parameters_.size() ||
            !std::equal(parameters_.begin(), parameters_.end(), tail.arguments.begin(), passes_as))
            continue;
        calls_.push_back(std::move(tail));
    }
    return !calls_.empty();
}

// The block behind the prolog; made here.
BBLK* TAIL_RECURSION::start_of_loop() const {
    BBLK* entry = currfuninfo->bb_list;
    LIST* first = entry->statements;
    return split_block(entry, tree_is_arg_prolog(first->first) ? first->next : first, true);
}

// All values are read before any parameter is written: a value that a later one could miss waits in a
// temporary.
LIST* TAIL_RECURSION::assign_arguments(const TAIL_CALL& tail) const {
    struct MOVE {
        SYMTAB* parameter;
        NODE* value;
    };
    std::vector<MOVE> moves;
    for (std::size_t i = 0; i < parameters_.size(); i++) {
        NODE* value = tail.arguments[i];
        if (value->op == NAME && value->symbol() == parameters_[i]) continue;
        NODE* copy = copy_tree(value, false);
        if (copy->op == ACONV) copy->op = SCONV; // the conversion of an argument, out of a call
        moves.push_back({parameters_[i], simp_tree(coerce_to_type(copy, parameters_[i]->type), nullptr)});
    }
    LIST* list = nullptr;
    LIST** place = &list;
    const auto append = [&](NODE* statement) {
        *place = mkelist(statement, nullptr, tail.cell->psn);
        place = &(*place)->next;
    };
    // The last value can go straight to its place; so can a constant, behind all others.
    for (std::size_t i = 0; i + 1 < moves.size(); i++) {
        MOVE& move = moves[i];
        if (expr_is_constant(move.value)) continue;
        SYMTAB* temporary = sym_temp('T', -1, move.parameter->type, nullptr);
        append(mk_ASG(mk_NAME(temporary), move.value));
        move.value = mk_NAME(temporary);
    }
    for (auto move = moves.rbegin(); move != moves.rend(); ++move)
        append(mk_ASG(mk_NAME(move->parameter), move->value));
    return list;
}

// Of a profiled function: what was an entry is none any more.
void TAIL_RECURSION::take_off_entries(const BBLK* bb) {
    if (currfuninfo->profile_state != 2 || bb->count < 0) return;
    currfuninfo->entry_count -= std::min(currfuninfo->entry_count, static_cast<std::uint32_t>(bb->count));
}

void TAIL_RECURSION::replace(const TAIL_CALL& tail, BBLK* start) const {
    take_off_entries(tail.bb);
    const PSN* psn = tail.cell->psn;
    if (print_debug != 0)
        dprintf("\n  ===> Tail recursive self-call removed at line %ld: %s\n\n",
                psn != nullptr ? static_cast<long>(psn->line) : 0L, tree_to_text(tail.call).c_str());
    LIST* statements = mkelist(mk_BRANCH(start, nullptr), nullptr, psn);
    if (LIST* assignments = assign_arguments(tail)) {
        LIST* last = assignments;
        while (last->next != nullptr) last = last->next;
        last->next = statements;
        statements = assignments;
    }
    if (source_interlist != 0) {
        auto* comment = new NODE(ASM, tp->void_type());
        comment->u.lval = INT65::from_signed(REC_COMMENT);
        comment->text = current_pool().copy_text("***\t; tail recursive call occurs here");
        statements = mkelist(comment, statements, nullptr);
    }
    // The call's cell takes the first statement; what stood behind it goes.
    erase_tree_list(tail.cell->next);
    erase_tree(tail.cell->first);
    *tail.cell = *statements;
    POOL::recycle(statements, sizeof(LIST));
}

bool TAIL_RECURSION::run() {
    for (SYMTAB* symbol = currfuninfo->params; symbol != nullptr; symbol = symbol->next)
        parameters_.push_back(symbol);
    if (!calls_itself() || !function_fits() || !frame_is_plain()) return false;
    const bool split = split_returns();
    if (!find_calls()) return split;
    // Splitting a block leaves the cells alone.
    BBLK* start = start_of_loop();
    for (const TAIL_CALL& tail : calls_) replace(tail, start);
    return true;
}

} // namespace

void remove_tail_recursion() {
    if (opt_level() <= 1 || !TAIL_RECURSION().run()) return;
    rebuildcfg();
    renumber_bblocks();
}
