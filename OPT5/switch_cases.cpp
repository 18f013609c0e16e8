// Cases that a SWITCH cannot have.
//
// What is known of a selector is a range, a residue by some factor, and the bits that may be one: from the
// tree itself, and from what the blocks on the only way here have tested or promised of it. Each CASE that
// does not fit goes. Where the values that are left are few, the multiplication of the selector goes too, and
// every value gets a CASE, so that the code generator's table needs no test of its bounds: the DEFAULT then
// stands for a point that is never reached.

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "bblk.h"
#include "bbutils.h"
#include "block_effects.h"
#include "buildcfg.h"
#include "congruent.h"
#include "debug.h"
#include "dump.h"
#include "erase.h"
#include "fileopt.h"
#include "files.h"
#include "if_file.h"
#include "known_bits.h"
#include "node.h"
#include "opcodes.h"
#include "optypes.h"
#include "pool.h"
#include "psn.h"
#include "simp.h"
#include "simp_cond.h"
#include "simpcfg.h"
#include "simpcfg_rules.h"
#include "types.h"
#include "valrange.h"
#include "value_facts.h"

using namespace op;

namespace {

// A selector with so many values or more is not rewritten.
constexpr int RANGE_LIMIT = 500;

std::string text_of(WIDE value) { return int2text(to_int65(value)); }

WIDE modulo(WIDE value, WIDE factor) { return ((value % factor) + factor) % factor; }

// What is known of a value.
struct KNOWN {
    WIDE min, max;
    WIDE factor = 1, residue = 0; // the value modulo the factor
    std::uint64_t may = ~std::uint64_t{0};

    bool below(WIDE value) const { return value < min; }
    bool above(WIDE value) const { return value > max; }
    bool off_grid(WIDE value) const { return modulo(value, factor) != residue; }
    bool has_other_bits(WIDE value, const INT_SHAPE& shape) const {
        return (static_cast<std::uint64_t>(value) & shape.mask() & ~may) != 0;
    }
    bool allows(WIDE value, const INT_SHAPE& shape) const {
        return !below(value) && !above(value) && !off_grid(value) && !has_other_bits(value, shape);
    }
    void take_factor(WIDE new_factor, WIDE new_residue) {
        if (new_factor <= factor) return;
        factor = new_factor;
        residue = modulo(new_residue, new_factor);
    }
};

// What the tree itself tells; its type is integral.
KNOWN known_of_tree(NODE* tree) {
    KNOWN known{to_wide(calculate_minval_for_tree(tree, nullptr)),
                to_wide(calculate_maxval_for_tree(tree, nullptr))};
    known.take_factor(to_wide(max_ICON_factor(tree, nullptr)), 0);
    known.may = find_known_zeros(tree, tree->type).bits();
    return known;
}

bool adds_constant(const NODE* tree) { return tree->op == PLUS && tree->right->op == ICON; }

// The constant that a sum adds, as a number of its type.
WIDE added_constant(const NODE* sum) { return shape_of(sum->type).number(sum->right->u.lval.bits()); }

bool is_promise(const NODE* tree) { return tree->op == NASSERT || tree->op == ASSERT; }

// --- What tests and promises tell of one tree.

class CONTEXT {
  public:
    CONTEXT(NODE* base, const BLOCK_EFFECTS& effects)
        : base_(base), effects_(effects), reads_(effects.reads_of(base)), known_(known_of_tree(base)),
          at_start_(known_) {}
    // Follows the only way to the end of the block, from a few blocks above on.
    KNOWN find(const BBLK* bb);

  private:
    static constexpr std::size_t MAX_BLOCKS = 8;
    static constexpr int MAX_STATEMENTS = 256; // of the blocks above
    static constexpr int MAX_PARTS = 16;       // of one test

    void walk_block(const BBLK* bb);
    void enter(const BBLK* from, const BBLK* to);
    void learn(NODE* test, bool truth);
    void learn_value(const VALUE_TEST& test, bool is_inside);

    NODE* base_;
    const BLOCK_EFFECTS& effects_;
    const TREE_READS reads_;
    KNOWN known_;
    const KNOWN at_start_;
};

void CONTEXT::learn_value(const VALUE_TEST& test, bool is_inside) {
    NODE* value = test.value;
    const auto [lo, hi] = test.interval;
    const INT_SHAPE shape = shape_of(base_->type);
    if (trees_are_congruent(value, base_)) {
        // Read with the other sign, a number means the same where both have it.
        const WIDE greatest = shape.greatest();
        if (test.numbers.is_unsigned == shape.is_signed && (!is_inside || hi > greatest)) return;
        if (is_inside) {
            known_.min = std::max(known_.min, lo);
            known_.max = std::min(known_.max, hi);
        } else if (lo <= known_.min && known_.min <= hi) {
            known_.min = hi + 1;
        } else if (lo <= known_.max && known_.max <= hi) {
            known_.max = lo - 1;
        }
        return;
    }
    if (!is_inside || lo != hi || (value->op != ANDB && value->op != MOD) || value->right->op != ICON ||
        !trees_are_congruent(value->left, base_))
        return;
    const WIDE constant = shape_of(value->type).number(value->right->u.lval.bits());
    if (value->op == MOD) {
        // A rest below zero is one of a value below zero; both differ by a multiple.
        if (constant > 0) known_.take_factor(constant, lo);
        return;
    }
    const auto mask = static_cast<std::uint64_t>(constant) & shape.mask();
    if (lo == 0) known_.may &= ~mask;
    if (constant > 0 && (mask & (mask + 1)) == 0) known_.take_factor(constant + 1, lo);
}

void CONTEXT::learn(NODE* test, bool truth) {
    struct PART {
        NODE* test;
        bool truth;
    };
    std::vector<PART> parts{{test, truth}};
    for (std::size_t i = 0; i < parts.size() && i < MAX_PARTS; i++) {
        const PART part = parts[i];
        if (part.test->op == EXCLAIM) {
            parts.push_back({part.test->left, !part.truth});
        } else if (part.test->op == (part.truth ? ANDAND : OROR)) {
            parts.push_back({part.test->left, part.truth});
            parts.push_back({part.test->right, part.truth});
        } else if (VALUE_TEST value; read_value_test(part.test, value)) {
            learn_value(value, value.outside != part.truth);
        }
    }
}

void CONTEXT::walk_block(const BBLK* bb) {
    for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next) {
        int budget = MAX_STATEMENTS;
        if (is_promise(cell->first)) {
            learn(cell->first->left, true);
        } else if (bb_modifies_lvalue_in_tree(effects_.changes_of(cell->first), reads_, budget)) {
            known_ = at_start_;
        }
    }
}

void CONTEXT::enter(const BBLK* from, const BBLK* to) {
    const NODE* fork = last_statement(from);
    if (fork->op != IF || tree_has_side_effects(fork->left)) return;
    const BBLK* if_true = fork->right->left->label->bb;
    if (if_true != fork->right->right->label->bb) learn(fork->left, if_true == to);
}

KNOWN CONTEXT::find(const BBLK* bb) {
    // A value with effects, or one that changes by itself, is not the one that was tested.
    if (tree_has_side_effects(base_) || effects_.has_hidden_edges()) return known_;
    std::vector<const BBLK*> way{bb};
    int statements = 0;
    while (way.size() < MAX_BLOCKS) {
        const EDGE* edge = way.back()->predecessors;
        if (edge == nullptr || edge->next != nullptr || edge->bb == bb || way.back()->is_kept) break;
        for (const LIST* cell = edge->bb->statements; cell != nullptr && statements <= MAX_STATEMENTS;
             cell = cell->next)
            statements++;
        if (statements > MAX_STATEMENTS) {
            // Its test still counts: it stands behind its statements.
            enter(edge->bb, way.back());
            break;
        }
        way.push_back(edge->bb);
    }
    for (std::size_t i = way.size(); i-- > 0;) {
        walk_block(way[i]);
        if (i > 0) enter(way[i], way[i - 1]);
    }
    return known_;
}

// --- One SWITCH.

class SWITCH_CASES {
  public:
    SWITCH_CASES(BBLK* bb, const BLOCK_EFFECTS& effects);
    // Whether anything has changed: edges are stale then.
    bool run();

  private:
    struct CASE_OF {
        NODE* node;
        WIDE value;
    };

    bool read_list();
    void find_known();
    bool drop_impossible();
    void remark(const NODE* impossible) const;
    bool find_values();
    void trace() const;
    bool simplify_selector();
    void replace_selector(NODE* selector, WIDE factor, WIDE offset);
    void settle();
    bool populate();
    void add_default_block();
    void rebuild_list();

    BBLK* const bb_;
    const BLOCK_EFFECTS& effects_;
    LIST* const last_;
    NODE* const switch_;
    INT_SHAPE shape_{};
    KNOWN known_{};
    std::vector<CASE_OF> cases_; // in the order of the list
    std::vector<NODE*> dropped_; // still part of the list
    NODE* default_ = nullptr;
    std::vector<WIDE> values_; // all that the selector can have, where they are few
};

SWITCH_CASES::SWITCH_CASES(BBLK* bb, const BLOCK_EFFECTS& effects)
    : bb_(bb), effects_(effects), last_(last_cell(bb)), switch_(last_->first) {}

bool SWITCH_CASES::read_list() {
    shape_ = shape_of(switch_->left->type);
    if (shape_.width == 0 || !switch_->left->type->is_integral()) return false;
    for (NODE* list = switch_->right; list != nullptr; list = list->op == COMMA ? list->left : nullptr) {
        NODE* element = list->op == COMMA ? list->right : list;
        if (element->op == CASE) {
            cases_.push_back({element, shape_.number(element->left->u.lval.bits())});
        } else if (default_ == nullptr && cases_.empty()) {
            default_ = element;
        } else {
            return false;
        }
    }
    std::reverse(cases_.begin(), cases_.end());
    if (default_ == nullptr || default_->op != DEFAULT) return false;
    const NODE* label = default_->left;
    // A count of runs above zero says that the default is needed.
    const bool runs = label->edge_profile != NO_PROFILE && label->edge_profile > 0;
    return label->label->refs > 0 && !runs && !is_never_executed(label->label->bb);
}

// The selector's facts, then those of what it is made of.
void SWITCH_CASES::find_known() {
    NODE* selector = switch_->left;
    known_ = CONTEXT(selector, effects_).find(bb_);
    if (adds_constant(selector)) {
        const WIDE addend = added_constant(selector);
        const KNOWN inner = CONTEXT(selector->left, effects_).find(bb_);
        const bool wraps = inner.min + addend < shape_.least() || inner.max + addend > shape_.greatest();
        // A power of two divides the numbers of the type: the residue stays right beyond their end.
        if (!wraps || (inner.factor & (inner.factor - 1)) == 0)
            known_.take_factor(inner.factor, inner.residue + addend);
        if (!wraps) {
            known_.min = std::max(known_.min, inner.min + addend);
            known_.max = std::min(known_.max, inner.max + addend);
        }
    } else if ((selector->op == ANDB || selector->op == MOD) && selector->right->op == ICON) {
        // The operation changes nothing where the value is in its range already.
        const WIDE constant = added_constant(selector);
        const WIDE greatest = selector->op == ANDB ? constant : constant - 1;
        const bool is_mask = selector->op == MOD || (constant & (constant + 1)) == 0;
        const KNOWN inner = CONTEXT(selector->left, effects_).find(bb_);
        if (greatest >= 0 && is_mask && inner.min >= 0 && inner.max <= greatest) {
            known_.min = std::max(known_.min, inner.min);
            known_.max = std::min(known_.max, inner.max);
            known_.take_factor(inner.factor, inner.residue);
        }
    }
}

void SWITCH_CASES::remark(const NODE* impossible) const {
    if (write_opt_info == 0 || finfo == nullptr) return;
    const PSN* psn = last_->psn;
    std::fprintf(finfo, "\nCase %s of this statement cannot be reached:  switch ( %s ) ...\n",
                 text_of(shape_.number(impossible->left->u.lval.bits())).c_str(),
                 tree_to_text(switch_->left).c_str());
    if (psn != nullptr)
        std::fprintf(finfo, "    in file <%s> at line %lu, column %lu\n",
                     psn->file != nullptr ? psn->file : "NO_FILE", static_cast<unsigned long>(psn->line),
                     static_cast<unsigned long>(psn->column));
}

bool SWITCH_CASES::drop_impossible() {
    const auto is_impossible = [this](const CASE_OF& entry) {
        const WIDE value = entry.value;
        if (known_.allows(value, shape_)) return false;
        dprintf("--> CASE %s of this SWITCH cannot occur. \t(%d|%d|%d|%d)\n", text_of(value).c_str(),
                known_.below(value), known_.above(value), known_.off_grid(value),
                known_.has_other_bits(value, shape_));
        remark(entry.node);
        dropped_.push_back(entry.node);
        return true;
    };
    return std::erase_if(cases_, is_impossible) != 0;
}

// Lists the values that are possible; false where they are too many.
bool SWITCH_CASES::find_values() {
    const WIDE range = known_.max - known_.min + 1;
    if (range <= 0 || range >= RANGE_LIMIT) {
        dprintf("--> Range is <= 0 or >= 500\n");
        return false;
    }
    for (WIDE value = known_.min; value <= known_.max; value++)
        if (known_.allows(value, shape_)) values_.push_back(value);
    return !values_.empty();
}

void SWITCH_CASES::trace() const {
    if (print_debug == 0) return;
    dprintf("~~~#OSiBB#1 Total CASEs=%d, explicit CASEs=%d, %s\n", static_cast<int>(values_.size()),
            static_cast<int>(cases_.size()), tree_to_text(switch_->left).c_str());
    const auto line = [](const char* form, bool is_known, WIDE value) {
        dprintf(form, is_known ? text_of(value).c_str() : "-?-");
    };
    line("~~~#OSiBB#2 minval: %s\n", known_.min > shape_.least(), known_.min);
    line("~~~#OSiBB#2 maxval: %s\n", known_.max < shape_.greatest(), known_.max);
    line("~~~#OSiBB#2 factor: %s\n", known_.factor > 1, known_.factor);
    line("~~~#OSiBB#2 offset: %s\n", known_.factor > 1, known_.residue);
    const std::uint64_t mask = known_.may & shape_.mask();
    line("~~~#OSiBB#2 mask:   %s\n", mask != shape_.mask(), static_cast<WIDE>(mask));
}

void SWITCH_CASES::replace_selector(NODE* selector, WIDE factor, WIDE offset) {
    TYPE* type = switch_->left->type;
    erase_tree(switch_->left);
    switch_->left = selector;
    const auto divided = [&](WIDE value) { return (value - offset) / factor; };
    for (CASE_OF& entry : cases_) {
        entry.value = divided(entry.value);
        erase_tree(entry.node->left);
        entry.node->left = mk_ICON(to_int65(entry.value), type);
    }
    for (WIDE& value : values_) value = divided(value);
    dprintf("--> Simplified to switch(%s)...\n", tree_to_text(switch_->left).c_str());
}

// (y * factor) + offset, of which all values are there unwrapped: the table is for y.
bool SWITCH_CASES::simplify_selector() {
    NODE* product = switch_->left;
    WIDE offset = 0;
    if (adds_constant(product)) {
        offset = added_constant(product);
        product = product->left;
    }
    if ((product->op != MULT && product->op != SLL) || product->right->op != ICON ||
        !same_representation(product->type, product->left->type) ||
        shape_of(product->type).width != shape_.width)
        return false;
    const WIDE constant = shape_.number(product->right->u.lval.bits());
    if (product->op == SLL && (constant < 0 || constant >= static_cast<WIDE>(shape_.width) - 1)) return false;
    const WIDE factor = product->op == SLL ? WIDE{1} << constant : constant;
    if (factor < 2) return false;
    const KNOWN inner = CONTEXT(product->left, effects_).find(bb_);
    const auto fits = [this](WIDE value) { return shape_.least() <= value && value <= shape_.greatest(); };
    for (const WIDE end : {inner.min, inner.max})
        if (!fits(end * factor) || !fits(end * factor + offset)) return false;
    for (const WIDE value : values_)
        if (modulo(value - offset, factor) != 0) return false;
    NODE* selector = product->left;
    product->left = mk_ICON(INT65::from_signed(0), selector->type);
    replace_selector(selector, factor, offset);
    return true;
}

// There is one value: its CASE, where there is one, is left, and certain.
void SWITCH_CASES::settle() {
    rebuild_list();
    settle_transfer(last_, cases_.empty() ? default_->left : cases_.front().node->right);
}

// The DEFAULT goes to a new block, behind the SWITCH, where nothing runs into it.
void SWITCH_CASES::add_default_block() {
    dprintf("--> Adding a new DEFAULT basic block.\n");
    auto* comment = new NODE(ASM, tp->void_type());
    comment->u.lval = INT65::from_signed(REC_COMMENT);
    comment->text = current_pool().copy_text(NEVER_REACHED);
    NODE* marker = mk_MCALL(NEVER_EXECUTED, nullptr, tp->void_type());
    NODE* leave = mk_BRANCH(currfuninfo->bb_list->prev, nullptr);
    LIST* statements =
        mkelist(comment, mkelist(marker, mkelist(leave, nullptr, last_->psn), last_->psn), nullptr);
    BBLK* never = insert_new_bb(bb_->dfn, bb_, statements);
    never->loop = bb_->loop;
    erase_tree(default_->left);
    default_->left = mk_LABELREF_to_bb(never, nullptr);
}

// For speed always; where size counts only a table that is half full already.
bool is_worth_populating(std::size_t total, std::size_t cases) {
    return size_speed_goal() >= 3 || total <= 2 * cases;
}

bool SWITCH_CASES::populate() {
    if (cases_.empty() || !is_worth_populating(values_.size(), cases_.size())) return false;
    std::vector<WIDE> given;
    for (const CASE_OF& entry : cases_) given.push_back(entry.value);
    std::sort(given.begin(), given.end());
    const auto is_given = [&](WIDE value) { return std::binary_search(given.begin(), given.end(), value); };
    dprintf("--> Fully populating this SWITCH with %d cases.\n", static_cast<int>(values_.size()));
    BBLK* otherwise = default_->left->label->bb;
    for (const WIDE value : values_) {
        if (is_given(value)) continue;
        dprintf("\tAdding %s\n", text_of(value).c_str());
        NODE* constant = mk_ICON(to_int65(value), switch_->left->type);
        NODE* label = mk_LABELREF_to_bb(otherwise, nullptr);
        cases_.push_back({maketree(CASE, constant, label, tp->void_type(), nullptr), value});
    }
    add_default_block();
    return true;
}

void SWITCH_CASES::rebuild_list() {
    // The chain of commas alone: its elements are in cases_, default_ and dropped_.
    for (NODE* list = switch_->right; list->op == COMMA;) {
        NODE* rest = list->left;
        list->left = list->right = nullptr;
        erase_node(list);
        list = rest;
    }
    for (NODE* element : dropped_) erase_tree(element);
    NODE* list = nullptr;
    const auto append = [&list](NODE* element) {
        list = list == nullptr ? element : maketree(COMMA, list, element, tp->void_type(), nullptr);
    };
    for (const CASE_OF& entry : cases_) append(entry.node);
    append(default_);
    switch_->right = list;
    switch_->u.lval = INT65::from_unsigned(cases_.size());
}

bool SWITCH_CASES::run() {
    if (!read_list()) return false;
    find_known();
    bool changed = false;
    if (known_.min <= known_.max) changed = drop_impossible();
    if (find_values()) {
        trace();
        if (values_.size() == 1) {
            settle();
            return true;
        }
        changed = simplify_selector() || changed;
        changed = populate() || changed;
    }
    if (changed) rebuild_list();
    return changed;
}

} // namespace

void optimize_SWITCH_cases() {
    dprintf("\n\n\t\t\t------ ENTERING 'optimize_SWITCH_cases' ----\n");
    if (currfuninfo->bb_list->predecessors != nullptr) abort_optimizer();
    std::vector<BBLK*> switches;
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        if (bb->successors != nullptr && bb->successors->next != nullptr &&
            last_statement(bb)->op == SWITCH && !is_EH_switch(last_statement(bb)))
            switches.push_back(bb);
    if (switches.empty()) return;
    const BLOCK_EFFECTS effects;
    bool changed = false;
    for (BBLK* bb : switches) changed = SWITCH_CASES(bb, effects).run() || changed;
    if (!changed) return;
    rebuildcfg();
    renumber_bblocks();
}
