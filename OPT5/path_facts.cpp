#include "path_facts.h"

#include <algorithm>
#include <cstddef>
#include <map>

#include "bblk.h"
#include "bbutils.h"
#include "congruent.h"
#include "copy.h"
#include "erase.h"
#include "fileopt.h"
#include "files.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "optypes.h"
#include "simp.h"
#include "simp_cond.h"
#include "simpcfg_rules.h"
#include "symbol.h"
#include "types.h"

using namespace op;

namespace {

constexpr int MAX_TEST_NODES = 48;         // of a test, also with what has been put into it
constexpr std::size_t MAX_STATEMENTS = 24; // of one block that are looked at one by one
constexpr int MAX_BLOCKS = 24;             // of the path and ahead of it
constexpr std::size_t MAX_PLACES = 8;      // at which a question is asked on all ways
constexpr int MAX_EDGES = 24;              // of these ways
constexpr int MAX_SUBSTITUTIONS = 2;       // in one question, by other values than constants
constexpr int MAX_CHANGES = 256;           // symbols that the blocks of one query change
constexpr std::size_t MAX_CASES = 16;      // that a DEFAULT excludes
constexpr std::size_t MAX_FACTS = 4;       // that one edge tells

bool is_small_and_pure(NODE* tree, int limit) {
    return !any_node(tree, [&limit](const NODE* node) {
        return --limit < 0 || side_effects[node->op] != SE_NONE || node_is_volatile_access(node);
    });
}

// What is known to be zero, or not to be, on an edge.
struct FACT {
    NODE* test;
    bool truth;
};

// The outcome of a test, taken apart: both sides of `a && b` that holds, of `a || b` that doesn't.
void list_facts(NODE* test, bool truth, std::vector<FACT>& facts) {
    facts.push_back({test, truth});
    for (std::size_t i = 0; i < facts.size() && facts.size() < MAX_FACTS; i++) {
        const FACT fact = facts[i];
        if (fact.test->op != (fact.truth ? ANDAND : OROR)) continue;
        facts.push_back({fact.test->left, fact.truth});
        facts.push_back({fact.test->right, fact.truth});
    }
}

// The tree of which the fact tells the value, and that value; false where it tells less.
bool reads_value(const FACT& fact, NODE*& tree, INT65& value) {
    NODE* test = fact.test;
    if (test->op == (fact.truth ? EQ : NEQ) && test->right->op == ICON) {
        tree = test->left;
        value = test->right->u.lval;
        return is_int_or_ptr(tree->type);
    }
    tree = test;
    value = INT65::from_signed(0);
    return !fact.truth && is_int_or_ptr(test->type);
}

} // namespace

// --- Building.

std::size_t PATH_FACTS::index(const BBLK* bb) { return bb->uon(); }

PATH_FACTS::PATH_FACTS() : tails_(currfuninfo->blocks.size()), cases_(currfuninfo->blocks.size()) {
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        TAIL& end = tails_[index(bb)];
        std::size_t count = 0;
        for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next) count++;
        end.is_whole = count <= MAX_STATEMENTS;
        for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next)
            if (count-- <= MAX_STATEMENTS) end.statements.push_back(cell->first);
        std::reverse(end.statements.begin(), end.statements.end());
        list_cases(bb, end.statements.front());
    }
}

void PATH_FACTS::list_cases(const BBLK* bb, NODE* transfer) {
    if (transfer->op != SWITCH) return;
    for (NODE* list = transfer->right; list != nullptr;) {
        NODE* element = list->op == COMMA ? list->right : list;
        list = list->op == COMMA ? list->left : nullptr;
        const NODE* label = element->op == CASE ? element->right : element->left;
        auto& known = cases_[index(label->label->bb)];
        if (!known.empty() && known.back().first == bb) {
            known.back().second = nullptr;
        } else {
            known.push_back({bb, element});
        }
    }
}

NODE* PATH_FACTS::only_element(const BBLK* from, const BBLK* to) const {
    for (const auto& [bb, element] : cases_[index(to)])
        if (bb == from) return element;
    return nullptr;
}

bool PATH_FACTS::can_ask(const BBLK* bb) const {
    const NODE* transfer = tail(bb).statements.front();
    return (transfer->op == IF || transfer->op == SWITCH) && transfer->left->op != ICON &&
           is_small_and_pure(transfer->left, MAX_TEST_NODES);
}

// --- One query.

class PATH_FACTS::QUESTION {
  public:
    QUESTION(const PATH_FACTS& facts, NODE* transfer)
        : facts_(facts), is_switch_(transfer->op == SWITCH), asked_(copy_tree(transfer->left, false)),
          reads_(facts.effects_.reads_of(asked_)) {}
    QUESTION(const QUESTION& other)
        : facts_(other.facts_), is_switch_(other.is_switch_), asked_(copy_tree(other.asked_, false)),
          reads_(other.reads_), substitutions_(other.substitutions_), budget_(other.budget_) {}
    ~QUESTION() { erase_tree(asked_); }
    QUESTION& operator=(const QUESTION&) = delete;

    bool is_settled() const { return asked_->op == ICON; }
    const INT65& answer() const { return asked_->u.lval; }
    bool is_same(const QUESTION& other) const {
        return is_switch_ == other.is_switch_ && trees_are_congruent(asked_, other.asked_, 1);
    }
    // Each takes the question to what is ahead; false where that is not possible.
    bool go_back_over(const BBLK* bb, bool with_transfer);
    void go_back_along_edge(const BBLK* from, const BBLK* to);

  private:
    bool is_touched_by(const NODE* tree) const;
    bool go_back_over(NODE* statement);
    struct STORED {
        const SYMTAB* symbol;
        NODE* value;
    };
    bool list_stored(NODE* assignment, std::vector<STORED>& stored) const;
    bool substitute(NODE* assignment);
    void learn(const FACT& fact);
    void learn_of_default(NODE* transfer);
    template <class VALUE_OF> bool replace(VALUE_OF value_of);
    void replace_congruent(NODE* tree, const INT65& value);
    void simplify();

    const PATH_FACTS& facts_;
    const bool is_switch_;
    NODE* asked_; // at the place that has been reached
    TREE_READS reads_;
    int substitutions_ = MAX_SUBSTITUTIONS;
    int budget_ = MAX_CHANGES;
};

void PATH_FACTS::QUESTION::simplify() {
    asked_ = simp_tree(asked_, nullptr);
    if (!is_switch_) asked_ = simp_for_control(asked_, nullptr);
    reads_ = facts_.effects_.reads_of(asked_);
}

// Puts copies of what `value_of` gives for a node, null for nothing, in the place of all such nodes in the
// question. False, and no change, where one is a place of which a part or the address is taken.
template <class VALUE_OF> bool PATH_FACTS::QUESTION::replace(VALUE_OF value_of) {
    bool is_found = false, is_place = false;
    walk_tree(asked_, [&](NODE* node) {
        is_found = is_found || value_of(node) != nullptr;
        const bool has_place = node->op == UAND || node->op == STDOT || node->op == ARGREF ||
                               node->op == REAL || node->op == IMAG || node->op == SIMDHI ||
                               node->op == SIMDLO;
        if (has_place && value_of(node->left) != nullptr) is_place = true;
    });
    if (is_place || !is_found) return !is_place;
    asked_ = rewrite_tree(asked_, [&](NODE* node) {
        NODE* value = value_of(node);
        if (value == nullptr) return node;
        TYPE* type = node->type;
        erase_tree(node);
        return coerce_to_type(copy_tree(value, false), type);
    });
    simplify();
    return true;
}

// Takes the assignment apart: the variables that it stores to, and with what each is left; false where it
// does anything else. The values are the caller's.
bool PATH_FACTS::QUESTION::list_stored(NODE* assignment, std::vector<STORED>& stored) const {
    const int room = MAX_TEST_NODES - count_nodes_in_tree(asked_);
    std::vector<NODE*> places;
    NODE* value = assignment;
    for (; value->op == ASG; value = value->right) places.push_back(value->left);
    const auto is_variable = [](const NODE* place) {
        return place->op == NAME && is_int_or_ptr(place->type) && !node_is_volatile_access(place);
    };
    if (places.empty() && opcode_is_ASG(value->op) && is_variable(value->left) &&
        is_small_and_pure(value->right, room)) {
        const SYMTAB* symbol = value->left->symbol();
        NODE* plain = opASG_to_ASG(copy_tree(value, false));
        if (plain->op == ASG && plain->left->op == NAME && plain->left->symbol() == symbol)
            stored.push_back({symbol, coerce_to_type(copy_tree(plain->right, false), plain->left->type)});
        erase_tree(plain);
        return !stored.empty();
    }
    if (places.empty() || !std::all_of(places.begin(), places.end(), is_variable) ||
        !is_small_and_pure(value, room))
        return false;
    value = copy_tree(value, false);
    for (auto place = places.rbegin(); place != places.rend(); ++place) {
        value = coerce_to_type(value, (*place)->type);
        stored.push_back({(*place)->symbol(), copy_tree(value, false)});
    }
    erase_tree(value);
    return true;
}

bool PATH_FACTS::QUESTION::substitute(NODE* assignment) {
    std::vector<STORED> stored;
    if (!list_stored(assignment, stored)) return false;
    // Of two stores to one variable the one listed later happens later.
    const auto value_of = [&stored](const NODE* node) -> NODE* {
        if (node->op != NAME) return nullptr;
        for (auto store = stored.rbegin(); store != stored.rend(); ++store)
            if (store->symbol == node->symbol()) return store->value;
        return nullptr;
    };
    const bool are_constants = std::all_of(stored.begin(), stored.end(),
                                           [](const STORED& store) { return store.value->op == ICON; });
    const bool is_replaced = (are_constants || substitutions_-- > 0) && replace(value_of);
    for (const STORED& store : stored) erase_tree(store.value);
    return is_replaced && count_nodes_in_tree(asked_) <= MAX_TEST_NODES;
}

bool PATH_FACTS::QUESTION::go_back_over(NODE* statement) {
    int budget = MAX_CHANGES;
    if (!bb_modifies_lvalue_in_tree(facts_.effects_.changes_of(statement), reads_, budget)) return true;
    if (!opcode_is_ASG(statement->op) || tree_is_arg_prolog(statement)) return false;
    return substitute(statement);
}

// With or without the block's transfer, which itself may change something.
bool PATH_FACTS::QUESTION::go_back_over(const BBLK* bb, bool with_transfer) {
    if (!bb_modifies_lvalue_in_tree(facts_.effects_.of(bb), reads_, budget_)) return true;
    const TAIL& end = facts_.tail(bb);
    for (std::size_t i = with_transfer ? 0 : 1; i < end.statements.size(); i++) {
        if (!go_back_over(end.statements[i])) return false;
        if (is_settled()) return true;
    }
    return end.is_whole;
}

bool PATH_FACTS::QUESTION::is_touched_by(const NODE* tree) const {
    if (reads_.memory) return true;
    return any_node(const_cast<NODE*>(tree), [this](const NODE* node) {
        return node->op == NAME && std::find(reads_.symbols.begin(), reads_.symbols.end(), node->symbol()) !=
                                       reads_.symbols.end();
    });
}

// The tree is known to have the value.
void PATH_FACTS::QUESTION::replace_congruent(NODE* tree, const INT65& value) {
    NODE* constant = mk_number(to_wide(value), tree->type);
    replace([tree, constant](NODE* node) {
        return node->op == tree->op && trees_are_congruent(node, tree, 1) ? constant : nullptr;
    });
    erase_tree(constant);
}

void PATH_FACTS::QUESTION::learn(const FACT& fact) {
    if (!is_switch_) {
        std::map<int, int> outcomes{{0, fact.truth ? 1 : 0}};
        asked_ = simp_redundant_test(asked_, outcomes, {fact.test}, nullptr);
        if (is_settled()) return;
    }
    NODE* known;
    INT65 value;
    if (!reads_value(fact, known, value)) return;
    replace_congruent(known, value);
}

void PATH_FACTS::QUESTION::go_back_along_edge(const BBLK* from, const BBLK* to) {
    NODE* transfer = facts_.tail(from).statements.front();
    if ((transfer->op != IF && transfer->op != SWITCH) || transfer->left->op == ICON ||
        !is_small_and_pure(transfer->left, MAX_TEST_NODES) || !is_touched_by(transfer->left))
        return;
    if (transfer->op == IF) {
        const NODE* arms = transfer->right;
        if (arms->left->label->bb == arms->right->label->bb) return;
        std::vector<FACT> facts;
        list_facts(transfer->left, arms->left->label->bb == to, facts);
        for (const FACT& fact : facts)
            if (!is_settled()) learn(fact);
        return;
    }
    const NODE* element = facts_.only_element(from, to);
    if (element == nullptr) return;
    if (element->op == CASE) {
        replace_congruent(transfer->left, element->left->u.lval);
    } else if (!is_switch_ && is_int_or_ptr(transfer->left->type)) {
        learn_of_default(transfer);
    }
}

// None of the cases holds.
void PATH_FACTS::QUESTION::learn_of_default(NODE* transfer) {
    NODE* selector = transfer->left;
    std::size_t count = 0;
    for (NODE* list = transfer->right; list->op == COMMA && count < MAX_CASES; list = list->left, count++) {
        // The DEFAULT stands last; the CASE ahead of it is on the right of the next COMMA, or on its left.
        NODE* element = list->left->op == COMMA ? list->left->right : list->left;
        NODE* value = mk_number(to_wide(element->left->u.lval), selector->type);
        NODE* test = maketree(EQ, copy_tree(selector, false), value, tp->int_type(IK_INT), nullptr);
        learn({test, false});
        erase_tree(test);
        if (is_settled()) return;
    }
}

NODE* PATH_FACTS::label_of_answer(NODE* transfer, const INT65& answer) {
    if (transfer->op == SWITCH) return label_for_value(transfer, answer);
    return answer.is_zero() ? transfer->right->right : transfer->right->left;
}

NODE* PATH_FACTS::outcome(const std::vector<BBLK*>& path) const {
    const BBLK* bb = path.back();
    if (!flow_is_known() || !can_ask(bb)) return nullptr;
    NODE* transfer = tail(bb).statements.front();
    QUESTION question(*this, transfer);
    std::size_t place = path.size() - 1;
    int blocks = MAX_BLOCKS;
    for (bool is_first = true; !question.is_settled(); is_first = false) {
        if (!question.go_back_over(bb, !is_first)) return nullptr;
        if (question.is_settled()) break;
        if (blocks-- == 0) return nullptr;
        const BBLK* from = nullptr;
        if (place > 0) {
            from = path[--place];
        } else {
            const EDGE* edge = bb->predecessors;
            if (edge == nullptr || edge->next != nullptr || bb->is_kept) return nullptr;
            from = edge->bb;
        }
        question.go_back_along_edge(from, bb);
        bb = from;
    }
    return label_of_answer(transfer, question.answer());
}

// A question that comes back to where it has been asked already is settled by whatever settles it there: of
// all runs to that place, think of the one that has come by least often.
NODE* PATH_FACTS::only_outcome(BBLK* bb) const {
    if (!flow_is_known() || !can_ask(bb)) return nullptr;
    struct PLACE {
        const BBLK* bb; // at whose start the question is asked
        QUESTION question;
    };
    NODE* transfer = tail(bb).statements.front();
    std::vector<PLACE> places;
    places.reserve(MAX_PLACES);
    places.push_back({bb, QUESTION(*this, transfer)});
    if (!places[0].question.go_back_over(bb, false)) return nullptr;
    if (places[0].question.is_settled()) return label_of_answer(transfer, places[0].question.answer());
    NODE* only = nullptr;
    int edges = MAX_EDGES;
    for (std::size_t i = 0; i < places.size(); i++) {
        const BBLK* to = places[i].bb;
        if (to->predecessors == nullptr || to->is_kept) return nullptr;
        for (const EDGE* edge = to->predecessors; edge != nullptr; edge = edge->next) {
            if (edges-- == 0) return nullptr;
            PLACE place{edge->bb, places[i].question};
            place.question.go_back_along_edge(edge->bb, to);
            if (!place.question.is_settled() && !place.question.go_back_over(edge->bb, true)) return nullptr;
            if (place.question.is_settled()) {
                NODE* label = label_of_answer(transfer, place.question.answer());
                if (only != nullptr && only->label->bb != label->label->bb) return nullptr;
                only = label;
                continue;
            }
            const auto is_same = [&place](const PLACE& other) {
                return other.bb == place.bb && other.question.is_same(place.question);
            };
            if (std::any_of(places.begin(), places.end(), is_same)) continue;
            if (places.size() == MAX_PLACES) return nullptr;
            places.push_back(place);
        }
    }
    return only;
}
