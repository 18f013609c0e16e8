// Every statement is gone through in the order of evaluation, and each node gets the number of its value. The
// first node on the path that computes a value is its leader. What is found out about a later one is kept as
// a match until the statement has been numbered: then matches are applied from the root down, so that the
// largest trees win.
//
// A match takes a variable that holds the value; else the leader gives its value to a temporary: by an
// assignment ahead of its statement where nothing happens there that the leader would have to come behind,
// else where it stands. Operands of one statement may be evaluated in any order, so within the leader's own
// statement only the first way will do, and no variable will that the statement changes on the way.

#include "lcse.h"
#include "insertions.h"

#include <cstdint>
#include <unordered_set>
#include <utility>
#include <vector>

#include "accesses.h"
#include "bblk.h"
#include "bbutils.h"
#include "block_effects.h"
#include "erase.h"
#include "extended_blocks.h"
#include "fileopt.h"
#include "files.h"
#include "local_values.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "optypes.h"
#include "seq_trees.h"
#include "simp.h"
#include "symbol.h"
#include "types.h"

using namespace op;

namespace {

using REGION = LOCAL_VALUES::REGION;

constexpr int TEMP_KIND = 'C';

// Words of a node while its statement is in work.
std::uint32_t& value_word(NODE* node) { return node->scratch[0]; }
std::uint32_t& occurrence_word(NODE* node) { return node->scratch[1]; } // from 1; 0: it leads nothing
std::uint32_t& match_word(NODE* node) { return node->scratch[2]; }      // from 1; 0: it has none

int value_of(NODE* node) { return static_cast<int>(value_word(node)); }

bool is_volatile_place(const NODE* node) {
    return node_is_volatile_access(node) || (node->right != nullptr && node_is_volatile_access(node->right));
}

bool has_effect(const NODE* node) {
    return node->op != COMMAOP && (side_effects[node->op] != SE_NONE || is_volatile_place(node));
}

// Puts the node that `from` is in the place of `node`, whose operands are someone else's by now.
void overwrite(NODE* node, NODE* from) {
    *node = *from;
    erase_node(from);
}

class CSE {
  public:
    explicit CSE(const PRIVATE_SYMBOLS& symbols)
        : symbols_(symbols), values_(symbols), changed_in_(static_cast<std::size_t>(symbols.count()), 0) {}
    void run();

  private:
    enum TASK : std::uint8_t { VALUE, PLACE, END_VALUE, END_PLACE, OPEN_CONDITIONAL, CLOSE_CONDITIONAL };
    struct ITEM {
        NODE* node;
        TASK task;
        int effects; // that had happened when the node was entered
    };
    struct OCCURRENCE {
        NODE* node; // null when it has gone or given its place to the temporary
        LIST* cell;
        BBLK* bb;
        TYPE* type;
        bool may_go_ahead; // of its statement
        SYMTAB* temp;      // that has its value; null until one is needed
    };
    struct MATCH {
        NODE* node; // null when it has gone
        int holder; // -1: take the leader
        int leader;
    };

    void visit_block(BBLK* bb);
    void visit_statement(LIST* cell);
    void prepare(NODE* root);
    void number(NODE* root);
    void push(NODE* node, TASK task) {
        if (node != nullptr) pending_.push_back({node, task, effects_done_});
    }
    void push_conditional(NODE* node);
    void enter(NODE* node, TASK task);
    void push_operands_of_place(NODE* place);
    void end(NODE* node, TASK task, int effects_before);
    int value_of_operator(NODE* node);
    int place_number(NODE* place);
    int contents_of(NODE* place, int place_number);
    int end_assignment(NODE* node);
    int result_of_compound(NODE* node, int old);
    void end_store(NODE* place, int value);
    void note_holder(int value, int variable);
    void consider(NODE* node);
    bool is_worth_a_temp(NODE* node) const;

    void apply(const MATCH& match);
    NODE* name_of_leader(int leader);
    void forget(NODE* tree);
    void note_changed(LIST* cell, BBLK* bb);
    void finish();

    const PRIVATE_SYMBOLS& symbols_;
    LOCAL_VALUES values_;
    std::vector<int> holders_; // by value: the variable that was given it last; -1 for none
    std::vector<OCCURRENCE> occurrences_;
    INSERTIONS insertions_; // by occurrence: they stand in order of evaluation
    std::unordered_set<const void*> known_as_changed_;
    std::vector<std::pair<LIST*, BBLK*>> changed_cells_;
    std::vector<BBLK*> changed_blocks_;

    // Of the statement in work.
    BBLK* bb_ = nullptr;
    LIST* cell_ = nullptr;
    int effects_ = 0;       // all of them
    int effects_above_ = 0; // those of the operators around the node in work
    int effects_done_ = 0;
    bool numbers_only_ = false;
    std::vector<ITEM> pending_;
    std::vector<LOCAL_VALUES::MARK> conditions_; // open ones
    std::vector<MATCH> matches_;
    std::vector<ACCESS> accesses_;
    // By variable: the last statement, counted, that stores into it other than as its last act.
    std::vector<int> changed_in_;
    int statements_ = 0;
};

// --- What to compute once.

bool CSE::is_worth_a_temp(NODE* node) const {
    if (!node->type->is_scalar() || values_.is_constant(value_of(node))) return false;
    switch (node->op) {
        case PLUS:
        case MINUS:
            // An address with a constant offset is part of the access.
            return !node->type->is_ptr() || node->left->left != nullptr || node->right->op != ICON;
        case PMCONV: return node->right->op != ICON || node->right->u.lval != INT65::from_signed(16);
        case MULT:
        case DIV:
        case MOD:
        case ANDB:
        case ORB:
        case XORB:
        case SLL:
        case SRL:
        case UMINUS:
        case NOTB:
        case ABS:
        case PVCONV:
        case UMULT:
        case STREF: return true;
        default: return false;
    }
}

// Finds what else has the value of the node, which does nothing but give it; or makes the node a leader.
void CSE::consider(NODE* node) {
    if (numbers_only_ || !is_worth_a_temp(node)) return;
    const int value = value_of(node);
    TYPE* type = node->type->normalized();
    const auto add_match = [&](int holder, int leader) {
        matches_.push_back({node, holder, leader});
        match_word(node) = static_cast<std::uint32_t>(matches_.size());
    };
    const int holder = static_cast<std::size_t>(value) < holders_.size() ? holders_[value] : -1;
    if (holder >= 0 && values_.of_variable(holder) == value &&
        changed_in_[static_cast<std::size_t>(holder)] != statements_ &&
        same_representation(symbols_.symbol(holder)->type, type))
        return add_match(holder, -1);
    if (const int leader = values_.leader(value); leader >= 0) {
        const OCCURRENCE& first = occurrences_[static_cast<std::size_t>(leader)];
        if (first.node != nullptr || first.temp != nullptr) {
            if ((first.cell != cell_ || first.may_go_ahead) && same_representation(first.type, type))
                add_match(-1, leader);
            return;
        }
    }
    if (!conditions_.empty()) return;
    occurrences_.push_back({node, cell_, bb_, type, effects_ == effects_above_, nullptr});
    occurrence_word(node) = static_cast<std::uint32_t>(occurrences_.size());
    values_.set_leader(value, static_cast<int>(occurrences_.size()) - 1);
}

void CSE::note_holder(int value, int variable) {
    const auto i = static_cast<std::size_t>(value);
    if (i >= holders_.size()) holders_.resize(i + 1 + i / 2, -1);
    const int before = holders_[i];
    if (before < 0 || values_.of_variable(before) != value) holders_[i] = variable;
}

// --- Numbering a statement.

// What is asked of the whole tree before it is numbered.
void CSE::prepare(NODE* root) {
    walk_tree(root, [this](NODE* node) {
        occurrence_word(node) = match_word(node) = 0;
        effects_ += has_effect(node) ? 1 : 0;
    });
    if (effects_ < 2 && !(effects_ == 1 && !opcode_is_ASG(root->op))) return;
    accesses_.clear();
    list_accesses(root, accesses_);
    for (const ACCESS& access : accesses_) {
        if (access.assignment == nullptr || access.assignment == root) continue;
        const int number = symbols_.number_of(access.name->symbol());
        if (number >= 0) changed_in_[static_cast<std::size_t>(number)] = statements_;
    }
}

void CSE::number(NODE* root) {
    effects_ = effects_above_ = effects_done_ = 0;
    prepare(root);
    push(root, VALUE);
    while (!pending_.empty()) {
        const ITEM item = pending_.back();
        pending_.pop_back();
        switch (item.task) {
            case VALUE:
            case PLACE: enter(item.node, item.task); break;
            case END_VALUE:
            case END_PLACE: end(item.node, item.task, item.effects); break;
            case OPEN_CONDITIONAL: conditions_.push_back(values_.open_scope()); break;
            case CLOSE_CONDITIONAL:
                values_.close_conditional(conditions_.back());
                conditions_.pop_back();
                break;
        }
    }
}

// Tasks come from a stack: what is to be done first is pushed last.
void CSE::push_conditional(NODE* node) {
    pending_.push_back({nullptr, CLOSE_CONDITIONAL, 0});
    push(node, VALUE);
    pending_.push_back({nullptr, OPEN_CONDITIONAL, 0});
}

void CSE::push_operands_of_place(NODE* place) {
    switch (place->op) {
        case UMULT:
        case STREF: push(place->left, VALUE); break;
        case STDOT: push(place->left, PLACE); break;
        default:
            push(place->right, VALUE);
            push(place->left, VALUE);
            break;
    }
}

void CSE::enter(NODE* node, TASK task) {
    push(node, task == VALUE ? END_VALUE : END_PLACE);
    if (has_effect(node)) effects_above_++;
    if (task == PLACE) return push_operands_of_place(node);
    switch (node->op) {
        case UMULT:
        case STREF:
        case STDOT: push_operands_of_place(node); break;
        case UAND: push(node->left, PLACE); break;
        case ANDAND:
        case OROR:
            push_conditional(node->right);
            push(node->left, VALUE);
            break;
        case QUEST:
            push_conditional(node->right->right);
            push_conditional(node->right->left);
            push(node->left, VALUE);
            break;
        default:
            if (opcode_is_ASG(node->op)) {
                push(node->left, PLACE);
                push(node->right, VALUE);
            } else {
                push(node->right, VALUE);
                push(node->left, VALUE);
            }
            break;
    }
}

void CSE::end(NODE* node, TASK task, int effects_before) {
    const int value = task == END_VALUE ? value_of_operator(node) : place_number(node);
    value_word(node) = static_cast<std::uint32_t>(value);
    if (has_effect(node)) {
        effects_above_--;
        effects_done_++;
    }
    if (task == END_VALUE && effects_done_ == effects_before) consider(node);
}

int CSE::place_number(NODE* place) {
    if (is_volatile_place(place)) return values_.fresh();
    switch (place->op) {
        case NAME: return values_.of_operator(NAME, nullptr, values_.of_leaf(place), -1, place->symbol());
        case UMULT: return values_.of_operator(UMULT, nullptr, value_of(place->left), -1, nullptr);
        case STREF:
        case STDOT:
            return values_.of_operator(place->op, nullptr, value_of(place->left), -1, place->right->mdata);
        default: return values_.fresh();
    }
}

int CSE::contents_of(NODE* place, int place_number) {
    if (is_volatile_place(place)) return values_.fresh();
    return values_.of_contents(place_number, place->type, values_.region_of(place));
}

int CSE::value_of_operator(NODE* node) {
    switch (node->op) {
        case ICON:
        case FCON:
        case SCON: return values_.of_leaf(node);
        case NAME: {
            const int variable = symbols_.number_of(node->symbol());
            if (variable < 0)
                return node->symbol()->otype->is_func() ? values_.of_leaf(node)
                                                        : contents_of(node, place_number(node));
            if (!same_representation(node->type->normalized(), node->symbol()->type)) return values_.fresh();
            const int value = values_.of_variable(variable);
            note_holder(value, variable);
            return value;
        }
        case UMULT:
        case STREF:
        case STDOT: return contents_of(node, place_number(node));
        case COMMAOP: return value_of(node->right);
        case UAND:
        case SCONV:
        case PCONV:
        case ACONV:
        case UMINUS:
        case NOTB:
        case EXCLAIM:
        case ABS: return values_.of_operator(node->op, node->type, value_of(node->left), -1, nullptr);
        case PLUS:
        case MINUS:
        case MULT:
        case DIV:
        case MOD:
        case ANDB:
        case ORB:
        case XORB:
        case SLL:
        case SRL:
        case PMCONV:
        case PVCONV:
            return values_.of_operator(node->op, node->type, value_of(node->left), value_of(node->right),
                                       nullptr);
        case CALL:
        case UCALL:
            if (!call_leaves_memory_alone(node)) values_.clobber_memory();
            return values_.fresh();
        default: break;
    }
    if (opcode_is_ASG(node->op)) return end_assignment(node);
    if (boolean_result[node->op] != 0 && node->op != ANDAND && node->op != OROR)
        return values_.of_operator(node->op, node->type, value_of(node->left), value_of(node->right),
                                   nullptr);
    if (side_effects[node->op] != SE_NONE || node->op == ARGREF) values_.clobber_memory();
    return values_.fresh();
}

// --- Stores.

// What the compound assignment stores into a place that held `old`.
int CSE::result_of_compound(NODE* node, int old) {
    TYPE* type = node->left->type->normalized();
    TYPE* operand = node->right->type->normalized();
    int op = op_of_opASG[node->op];
    if (node->op == PLUSPLUS || node->op == MINMIN) op = node->op == PLUSPLUS ? PLUS : MINUS;
    if (op == ILLOP || is_bit_field(node->left) || !type->is_scalar()) return values_.fresh();
    if (!type->is_ptr()) {
        TYPE* computed = operator_type_for_operand_types(op, type, operand);
        if (!same_representation(computed, type)) return values_.fresh();
        if (op != SLL && op != SRL && !same_representation(operand, type)) return values_.fresh();
    }
    return values_.of_operator(op, type, old, value_of(node->right), nullptr);
}

int CSE::end_assignment(NODE* node) {
    NODE* place = node->left;
    if (node->op == ASG) {
        TYPE* type = place->type->normalized();
        const bool as_it_is = type->is_scalar() && !is_bit_field(place) &&
                              same_representation(type, node->right->type->normalized());
        const int value = as_it_is ? value_of(node->right) : values_.fresh();
        end_store(place, value);
        return value;
    }
    if (node->op == STASG || node->op == ARASG) {
        end_store(place, values_.fresh());
        return values_.fresh();
    }
    const int variable = place->op == NAME ? symbols_.number_of(place->symbol()) : -1;
    const int old = variable >= 0 ? values_.of_variable(variable) : contents_of(place, value_of(place));
    const int value = result_of_compound(node, old);
    end_store(place, value);
    return node->op == PLUSPLUS || node->op == MINMIN ? old : value;
}

void CSE::end_store(NODE* place, int value) {
    const REGION region = values_.region_of(place);
    if (region.kind == REGION::PRIVATE && place->op == NAME) {
        if (!same_representation(place->type->normalized(), region.object->type)) value = values_.fresh();
        values_.set_variable(region.number, value);
        if (region.object->type->is_scalar()) note_holder(value, region.number);
        return;
    }
    values_.store(region);
    if (!place->type->is_scalar() || is_bit_field(place) || is_volatile_place(place)) return;
    values_.set_contents(value_of(place), place->type, region, value);
}

// --- The function.

void CSE::visit_statement(LIST* cell) {
    NODE* statement = cell->first;
    cell_ = cell;
    statements_++;
    numbers_only_ = statement->op == NASSERT || statement->op == ASSERT;
    if (tree_is_arg_prolog(statement)) {
        accesses_.clear();
        list_accesses(statement, accesses_);
        for (const ACCESS& access : accesses_) values_.store(values_.region_of(access.name));
        return;
    }
    switch (statement->op) {
        case BRANCH:
        case URETURN:
        case PPRAGMA: return;
        case ASM: values_.clobber_memory(); return;
        case IF:
        case SWITCH: number(statement->left); break;
        case RETURN: number(statement->right); break;
        default: number(statement); break;
    }
    // The matches inside of a larger one go with it.
    for (auto match = matches_.rbegin(); match != matches_.rend(); ++match) apply(*match);
    matches_.clear();
}

void CSE::visit_block(BBLK* bb) {
    bb_ = bb;
    for (LIST* cell = bb->statements; cell != nullptr; cell = cell->next) visit_statement(cell);
}

void CSE::run() {
    walk_extended_blocks(
        [this](BBLK* bb) {
            const LOCAL_VALUES::MARK mark = values_.open_scope();
            visit_block(bb);
            return mark;
        },
        [this](const LOCAL_VALUES::MARK& mark) { values_.close_scope(mark); });
    finish();
}

// --- Rewriting.

void CSE::note_changed(LIST* cell, BBLK* bb) {
    if (known_as_changed_.insert(cell).second) changed_cells_.emplace_back(cell, bb);
    if (known_as_changed_.insert(bb).second) changed_blocks_.push_back(bb);
}

// Frees the operands that a match makes superfluous, and what is known of them.
void CSE::forget(NODE* tree) {
    walk_tree(tree, [this](NODE* node) {
        if (match_word(node) != 0) matches_[match_word(node) - 1].node = nullptr;
        if (occurrence_word(node) != 0) occurrences_[occurrence_word(node) - 1].node = nullptr;
    });
    erase_tree(tree);
}

// The leader's value by the name of its temporary, which is made if need be.
NODE* CSE::name_of_leader(int leader) {
    OCCURRENCE& first = occurrences_[static_cast<std::size_t>(leader)];
    if (first.temp == nullptr) {
        NODE* place = first.node;
        TYPE* type = place->type;
        first.temp = sym_temp(TEMP_KIND, -1, first.type, nullptr);
        first.node = nullptr;
        NODE* computed = new_node(place->op, type);
        *computed = *place;
        NODE* assignment = mk_ASG(mk_NAME(first.temp), computed);
        if (first.may_go_ahead) {
            insertions_.add(first.cell, leader, assignment);
            overwrite(place, coerce_to_type(mk_NAME(first.temp), type));
        } else {
            overwrite(place, assignment);
        }
        note_changed(first.cell, first.bb);
    }
    return mk_NAME(first.temp);
}

void CSE::apply(const MATCH& match) {
    NODE* node = match.node;
    if (node == nullptr) return;
    if (match.leader >= 0) {
        const OCCURRENCE& first = occurrences_[static_cast<std::size_t>(match.leader)];
        if (first.node == nullptr && first.temp == nullptr) return;
        if (first.temp == nullptr && first.cell == cell_ &&
            any_node(node, [&first](NODE* part) { return part == first.node; }))
            return;
    }
    NODE* name = match.leader >= 0 ? name_of_leader(match.leader) : mk_NAME(symbols_.symbol(match.holder));
    TYPE* type = node->type;
    if (node->right != nullptr) forget(node->right);
    if (node->left != nullptr) forget(node->left);
    overwrite(node, coerce_to_type(name, type));
    note_changed(cell_, bb_);
}

void CSE::finish() {
    for (auto [cell, bb] : changed_cells_) cell->first = simp_tree(cell->first, bb->loop);
    for (BBLK* bb : changed_blocks_) {
        insertions_.put_into(bb);
        bb->statements = promote_toplevel_COMMAOPs_in_list(bb->statements);
    }
}

} // namespace

void lcse() {
    dprintf("\n\n\t\t\t---------- ENTERING 'lcse' ---------------------\n");
    const PRIVATE_SYMBOLS symbols;
    if (symbols.flow_is_known()) CSE(symbols).run();
}
