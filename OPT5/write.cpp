// A function leaves: its symbols, its blocks in layout order, its end.
//
// A block in memory always ends with an explicit transfer; a file has fall through. `lower_transfers` closes
// the gap, block by block, with `next` the block behind it:
//
//     IF(c, t, f)    t is next:      CBRANCH(c, LABEL f)
//                    f is next:      CBRANCH(not c, LABEL t)
//                    neither:        CBRANCH(c, LABEL f), BRANCH(LABEL t); where t is known to be the more
//                                    likely one, CBRANCH(not c, LABEL t), BRANCH(LABEL f)
//     BRANCH(t)      t is next:       nothing
//                    t is the exit:   URETURN
//     exit block     nothing: the body ends here
//
// CBRANCH jumps when its condition is zero. `not c` is the inverse comparison where there is one, the operand
// of an EXCLAIM, or an EXCLAIM of c. So a body whose blocks stand as they were read is written with
// the operators it had. Labels that are still referred to are numbered from 1 in layout order.

#include "write.h"

#include <cstdint>
#include <utility>
#include <vector>

#include "bblk.h"
#include "bbutils.h"
#include "dump.h"
#include "erase.h"
#include "fileopt.h"
#include "files.h"
#include "if_file.h"
#include "integrate.h"
#include "ls.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "pragma.h"
#include "symbol.h"
#include "types.h"

using namespace op;

namespace {

// --- Transfers in the form of the file.

bool compares_floating(const NODE* comparison) {
    return comparison->left->type->is_fltpt() || comparison->right->type->is_fltpt();
}

NODE* inverse_condition(NODE* condition) {
    const int inverse = boolean_inv[condition->op];
    // The plain comparisons have no form for an unordered operand.
    if (inverse != ILLOP && (condition->op >= FEQ || !compares_floating(condition))) {
        condition->op = inverse;
        return condition;
    }
    if (condition->op == EXCLAIM) {
        NODE* operand = condition->left;
        condition->left = nullptr;
        erase_node(condition);
        return operand;
    }
    return mk_EXCLAIM(condition);
}

// Whether a conditional jump of its own to the first arm is better than one to the second: the other arm
// follows, or is the less likely one and takes a second transfer.
bool jumps_when_true(const NODE* if_true, const NODE* if_false, const BBLK* next) {
    if (if_true->label->bb == next) return false;
    if (if_false->label->bb == next) return true;
    return if_true->freq > 0.5;
}

// Null: the transfer is the fall through. Otherwise the transfer, or what takes its place.
NODE* lower_BRANCH(NODE* transfer, const BBLK* next) {
    const BBLK* target = transfer->left->label->bb;
    if (target == next) return nullptr;
    if (!target->is_exit()) return transfer;
    transfer->left = erase_tree(transfer->left);
    NODE* name = mk_NAME(currfunc, nullptr);
    name->type = currfunc->otype;
    return maketree(URETURN, name, nullptr, tp->void_type(), nullptr);
}

void lower_IF(LIST* last, const BBLK* next) {
    NODE* transfer = last->first;
    NODE* arms = transfer->right;
    NODE* target = arms->right;
    NODE* other = arms->left;
    arms->left = arms->right = nullptr;
    erase_node(arms);
    transfer->op = CBRANCH;
    if (jumps_when_true(other, target, next)) {
        transfer->left = inverse_condition(transfer->left);
        std::swap(target, other);
    }
    transfer->right = target;
    if (other->label->bb == next) {
        erase_tree(other);
    } else {
        NODE* branch = maketree(BRANCH, other, nullptr, tp->void_type(), nullptr);
        NODE* lowered = lower_BRANCH(branch, next);
        if (lowered != branch) erase_tree(branch);
        last->next = mklist(lowered, nullptr, 0, 0);
        last->next->psn = last->psn;
    }
}

void drop_last_cell(BBLK* bb) {
    LIST** place = &bb->statements;
    while ((*place)->next != nullptr) place = &(*place)->next;
    *place = erase_tree_list(*place);
}

std::uint32_t count_cases(const NODE* list) {
    std::uint32_t count = 0;
    for (; list != nullptr && list->op == COMMA; list = list->left)
        if (list->right->op == CASE) count++;
    return count + (list != nullptr && list->op == CASE ? 1 : 0);
}

void lower_transfer(BBLK* bb) {
    LIST* last = last_cell(bb);
    if (last == nullptr) return;
    NODE* transfer = last->first;
    switch (transfer->op) {
        case IF: lower_IF(last, bb->next); break;
        case BRANCH: {
            NODE* lowered = lower_BRANCH(transfer, bb->next);
            if (lowered == nullptr) {
                drop_last_cell(bb);
            } else if (lowered != transfer) {
                erase_tree(transfer);
                last->first = lowered;
            }
            break;
        }
        case SWITCH: transfer->u.lval = INT65::from_unsigned(count_cases(transfer->right)); break;
        case URETURN:
            if (bb->is_exit()) drop_last_cell(bb);
            break;
        default: break;
    }
}

// Counts the references that are left, and numbers the labels.
void number_labels() {
    const auto count = [](NODE* tree) {
        walk_tree(tree, [](NODE* node) {
            if (node->op == LABEL && node->label != nullptr) node->label->refs++;
        });
    };
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        if (bb->label != nullptr) bb->label->refs = 0;
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next) {
            const NODE* statement = cell->first;
            if (statement->op == BRANCH) count(statement->left);
            if (statement->op == CBRANCH || statement->op == SWITCH) count(statement->right);
        }
    for (const EHT_ENTRY& entry : currfuninfo->eht) {
        walk_tree(static_cast<NODE*>(entry.tree), [](NODE* node) {
            if (node->op == LABEL && node->label != nullptr) node->label = label_of(node->label->bb);
        });
        count(static_cast<NODE*>(entry.tree));
    }
    std::int32_t number = 0;
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        if (bb->label != nullptr && bb->label->refs > 0) bb->label->number = ++number;
}

// A reference with a profile count is written under an EPVAL.
void restore_profile_counts(NODE* tree) {
    walk_tree(tree, [](NODE* node) {
        for (NODE** place : {&node->left, &node->right}) {
            NODE* operand = *place;
            if (operand == nullptr || operand->op != LABEL || operand->edge_profile == NO_PROFILE) continue;
            auto* wrapper = new NODE(EPVAL, operand->type);
            wrapper->edge_profile = operand->edge_profile;
            operand->edge_profile = NO_PROFILE;
            wrapper->left = operand;
            *place = wrapper;
        }
    });
}

// --- Records.

void debug_line(const char* key, int record, const PSN* psn) {
    if (print_debug == 0) return;
    dprintf("%s\t%d\t%ld\t\t\t;%s\n", key, record, psn != nullptr ? static_cast<long>(psn->line) : 0L,
            psn != nullptr && psn->file != nullptr ? psn->file : "NO_FILE");
}

void write_symbol(SYMTAB* symbol) {
    revert_symbol_type(symbol);
    o_file->if_enter_local(symbol);
    o_file->if_write_symbol(symbol);
}

void write_symbols() {
    for (SYMTAB* symbol = currfuninfo->params; symbol != nullptr; symbol = symbol->next) write_symbol(symbol);
    wrstcr(REC_END_ARGS, currfuninfo->args_psn);
    for (SYMTAB* symbol = currfuninfo->locals; symbol != nullptr; symbol = symbol->next) write_symbol(symbol);
    currfuninfo->temps = revsymtab(currfuninfo->temps);
    for (SYMTAB* symbol = currfuninfo->temps; symbol != nullptr; symbol = symbol->next) write_symbol(symbol);
    wrstcr(REC_END_LOCALS, currfuninfo->locals_psn);
}

// --- The exception table.

template <class VISIT> void walk_statements(VISIT visit) {
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next)
            walk_tree(cell->first, visit);
}

bool is_call(const NODE* node) { return node->op == CALL || node->op == UCALL; }

// The entries that are kept: the two fixed ones, those that a call names or a kept entry leads to, and with
// each of them the marks of its end.
std::vector<char> live_entries(const std::vector<EHT_ENTRY>& table) {
    std::vector<char> kept(table.size());
    std::vector<unsigned> pending;
    std::vector<std::vector<unsigned>> ends(table.size()); // by the entry that the mark leads to
    const auto keep = [&](unsigned id) {
        if (id >= table.size() || kept[id] != 0) return;
        kept[id] = 1;
        pending.push_back(id);
    };
    const auto keep_of_tree = [&](NODE* tree) {
        walk_tree(tree, [&](const NODE* node) {
            if (is_call(node)) keep(node->u2.i_eht_id);
        });
    };
    for (unsigned i = 0; i < table.size(); i++)
        if (table[i].kind == EHK_CLEANUP_END && table[i].third < table.size())
            ends[table[i].third].push_back(i);
    keep(0);
    keep(1);
    walk_statements([&](const NODE* node) {
        if (is_call(node)) keep(node->u2.i_eht_id);
    });
    while (!pending.empty()) {
        const unsigned id = pending.back();
        pending.pop_back();
        keep(table[id].third);
        keep_of_tree(static_cast<NODE*>(table[id].tree));
        if (id > 1)
            for (const unsigned end : ends[id]) keep(end);
    }
    return kept;
}

// Drops the entries that nothing leads to, and numbers the others.
void update_eht_labels() {
    std::vector<EHT_ENTRY>& table = currfuninfo->eht;
    const std::vector<char> kept = live_entries(table);
    std::vector<unsigned> new_ids(table.size());
    unsigned count = 0;
    for (std::size_t i = 0; i < table.size(); i++)
        if (kept[i] != 0) new_ids[i] = count++;
    if (count == table.size()) return;
    const auto renumber = [&](NODE* node) {
        if (is_call(node) && node->u2.i_eht_id < table.size()) node->u2.i_eht_id = new_ids[node->u2.i_eht_id];
    };
    walk_statements(renumber);
    for (std::size_t i = 0; i < table.size(); i++) {
        EHT_ENTRY& entry = table[i];
        if (kept[i] == 0) {
            if (entry.tree != nullptr) erase_tree(static_cast<NODE*>(entry.tree));
            continue;
        }
        walk_tree(static_cast<NODE*>(entry.tree), renumber);
        if (entry.third < table.size()) entry.third = new_ids[entry.third];
        entry.first = new_ids[i];
    }
    std::size_t place = 0;
    for (std::size_t i = 0; i < table.size(); i++) {
        if (kept[i] == 0) continue;
        if (place != i) table[place] = std::move(table[i]);
        place++;
    }
    table.resize(place);
}

// --- Functions that were to have no code.

// What is named here is needed after all.
void note_needed_functions() {
    if (fileinfo.definition_count == 0) return;
    const auto note = [](const NODE* node) {
        if (node->op != NAME || node->symbol()->level != 0 || !node->symbol()->otype->is_func()) return;
        FUNINFO* function = find_FUNINFO(node->symbol());
        if (function != nullptr) unsuppress_inline_function(function);
    };
    walk_statements(note);
    for (const EHT_ENTRY& entry : currfuninfo->eht) walk_tree(static_cast<NODE*>(entry.tree), note);
}

} // namespace

void revert_symbol_type(SYMTAB* symbol) {
    symbol->type = symbol->otype;
    if (symbol->class_as_read == SC_VARARG && symbol->sclass == SC_PARM) symbol->sclass = SC_VARARG;
}

void wrstcr(int record, const PSN* psn) {
    static constexpr const char* KEYS[] = {"", "I_BF", "I_EF", "I_BB", "I_EB", "I_EA", "I_EL"};
    debug_line(record >= 1 && record <= REC_END_LOCALS ? KEYS[record] : "<unknown key>", record, psn);
    o_file->if_write_control(record, psn);
}

void wrasmr(int record, const char* text, const PSN* psn) {
    if (record == REC_COMMENT) {
        o_file->if_write_comment(text);
    } else {
        o_file->if_write_assembly(text, psn);
    }
    dprintf("%s\n", text);
}

void wrtree(NODE* tree) { o_file->if_write_expr_node(tree); }

void wrbdlr(LBL* label) {
    dprintf("L%d:\n", label->number);
    o_file->if_write_label(static_cast<unsigned>(label->number));
}

void wrexpr(LIST* statement) {
    NODE* tree = statement->first;
    switch (tree->op) {
        case PPRAGMA:
            if (tree->pragma()->kind == PRAG_LOOP_FLAGS) return;
            o_file->if_write_pragma(tree->pragma());
            break;
        case ASM: wrasmr(static_cast<int>(tree->u.lval.low), tree->text, statement->psn); return;
        default:
            restore_profile_counts(tree);
            o_file->if_write_expr(tree, statement->psn);
            break;
    }
    if (print_debug != 0) dprintf("\t%s\n", tree_to_text(tree).c_str());
}

void wrbblocks() {
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) lower_transfer(bb);
    number_labels();
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        if (bb->label != nullptr && bb->label->refs > 0) wrbdlr(bb->label);
        if (is_never_executed(bb) && !is_comment(bb->statements->first))
            wrasmr(REC_COMMENT, NEVER_REACHED, nullptr);
        for (LIST* cell = bb->statements; cell != nullptr; cell = cell->next) wrexpr(cell);
    }
}

void write_func_header() {
    debug_line("I_BF", REC_BEGIN_FUNC, currfuninfo->psn);
    o_file->if_write_begin_func(currfunc, currfuninfo->psn);
}

void write_func_body() {
    note_needed_functions();
    write_symbols();
    if (!currfuninfo->eht.empty()) update_eht_labels();
    wrbblocks();
    if (!currfuninfo->eht.empty()) {
        for (const EHT_ENTRY& entry : currfuninfo->eht)
            restore_profile_counts(static_cast<NODE*>(entry.tree));
        o_file->if_write_func_eht(currfuninfo->eht);
    }
    wrstcr(REC_END_FUNC, currfuninfo->end_psn);
    o_file->if_flush();
    currfuninfo->flags |= FUN_is_processed;
}
