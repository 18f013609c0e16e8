// The harness tried on transformations that are known to be right or wrong, and the simplifier on many trees.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include <gtest/gtest.h>

#include "OPT5/bbutils.h"
#include "OPT5/copy.h"
#include "OPT5/erase.h"
#include "OPT5/files.h"
#include "OPT5/node.h"
#include "OPT5/opcodes.h"
#include "OPT5/simp.h"
#include "OPT5/symbol.h"
#include "OPT5/types.h"
#include "tests/simp/campaign.h"
#include "tests/simp/subjects.h"

using namespace op;
using namespace prove;

namespace {

const PALETTE& palette() {
    static const PALETTE the_palette;
    return the_palette;
}

NODE* identity(NODE* tree, std::uint64_t) { return tree; }

// Makes a transformation of a rule on single nodes that rewrites in place.
template <void (*RULE)(NODE*)> NODE* everywhere(NODE* tree, std::uint64_t) {
    walk_tree(tree, RULE);
    return tree;
}

bool is_icon(const NODE* node, std::int64_t value) {
    return node->op == ICON && node->u.lval == INT65::from_signed(value);
}

void multiply_becomes_add(NODE* n) { // x * 2 -> x + 1
    if (n->op != MULT || !is_icon(n->right, 2)) return;
    n->op = PLUS;
    n->right->u.lval = INT65::from_signed(1);
}

void halve_by_shift(NODE* n) { // x / 2 -> x >> 1, also for signed x
    if (n->op != DIV || !is_icon(n->right, 2)) return;
    n->op = SRL;
    n->right->u.lval = INT65::from_signed(1);
}

void lose_first_of_comma(NODE* n) {
    if (n->op == COMMAOP && n->left->op == ASG) {
        erase_tree(n->left);
        n->left = mk_ICON(INT65::from_signed(0), tp->int_type(IK_INT));
    }
}

void swap_shift_and_mask(NODE* n) { // (x & k) >> n -> (x >> n) & k
    if (n->op != SRL || n->left->op != ANDB || n->left->right->op != ICON || n->right->op != ICON) return;
    n->op = ANDB;
    n->left->op = SRL;
    std::swap(n->right, n->left->right);
}

void add_widths(NODE* n) { // (x << a) << b -> x << (a + b), also where all bits leave
    if (n->op != SLL || n->left->op != SLL || n->right->op != ICON || n->left->right->op != ICON) return;
    n->right->u.lval = n->right->u.lval + n->left->right->u.lval;
    NODE* inner = n->left;
    n->left = inner->left;
    erase_tree(inner->right);
    erase_node(inner);
}

void compare_moved_constant(NODE* n) { // x + k1 < k2 -> x < k2 - k1
    if (n->op != LT || n->right->op != ICON || n->left->op != PLUS || n->left->right->op != ICON) return;
    n->right->u.lval = truncate_to_type(n->right->u.lval - n->left->right->u.lval, n->right->type);
    NODE* sum = n->left;
    n->left = sum->left;
    erase_tree(sum->right);
    erase_node(sum);
}

void invert_float(NODE* n) { // !(a < b) -> a >= b, which a NaN tells apart
    if (n->op == EXCLAIM && n->left->op == FLT)
        n->left->op = FGE, n->op = NEQ, n->right = mk_ICON(INT65::from_signed(0), tp->int_type(IK_INT));
}

void old_value_lost(NODE* n) { // x++ -> x += 1
    if (n->op == PLUSPLUS && is_icon(n->right, 1)) n->op = PLUSASG;
}

void narrow_conversion(NODE* n) { // (T)(S)x -> (T)x
    if (n->op != SCONV || n->left->op != SCONV) return;
    NODE* middle = n->left;
    n->left = middle->left;
    erase_node(middle);
}

void mixed_widths(NODE* n) { // operands of different types
    if (n->op == PLUS && n->left->op == SCONV && n->left->left->type->size() != n->type->size())
        n->left = n->left->left;
}

void turn_operands(NODE* n) { // right, but never at rest
    if (n->op == ANDB) std::swap(n->left, n->right);
}

void crash(NODE* n) {
    if (n->op == XORB) __builtin_trap();
}

SUBJECT wrong(NODE* (*apply)(NODE*, std::uint64_t), bool idempotent = false) {
    return {"wrong", RELATION::VALUE, apply, idempotent, nullptr, nullptr, nullptr};
}

CAMPAIGN campaign(const SUBJECT& subject, std::uint64_t trees) {
    CAMPAIGN c;
    c.trees = trees;
    c.subjects = {subject};
    c.max_reports = 1;
    return c;
}

} // namespace

TEST(Harness, AcceptsWhatChangesNothing) {
    CAMPAIGN c = campaign({"identity", RELATION::VALUE, identity, true, nullptr, nullptr, nullptr}, 3000);
    c.subjects.push_back(
        {"identity as truth of itself", RELATION::ZERO, identity, true, nullptr, nullptr, nullptr});
    const RESULT result = run_campaign(palette(), c);
    for (const std::string& report : result.reports) ADD_FAILURE() << report;
}

struct WRONG_RULE {
    const char* name;
    SUBJECT subject;
    const char* answer; // part of it
};
void PrintTo(const WRONG_RULE& rule, std::ostream* stream) { *stream << rule.name; }

class WrongRule : public testing::TestWithParam<WRONG_RULE> {};

TEST_P(WrongRule, IsCaughtAndShrunk) {
    const auto& [name, subject, words] = GetParam();
    CAMPAIGN c = campaign(subject, 20000);
    c.seconds_per_tree = 2;
    const RESULT result = run_campaign(palette(), c);
    ASSERT_GE(result.failures, 1u);
    ASSERT_EQ(result.reports.size(), 1u);
    EXPECT_NE(result.reports[0].find(words), std::string::npos) << result.reports[0];
    EXPECT_LE(std::count(result.short_reports[0].begin(), result.short_reports[0].end(), '('), 12)
        << result.reports[0];
    if (std::getenv("SHOW") != nullptr) std::puts(result.reports[0].c_str());
}

INSTANTIATE_TEST_SUITE_P(
    Rules, WrongRule,
    testing::Values(WRONG_RULE{"x2", wrong(everywhere<multiply_becomes_add>), "the values differ"},
                    WRONG_RULE{"halve", wrong(everywhere<halve_by_shift>), "the values differ"},
                    WRONG_RULE{"comma", wrong(everywhere<lose_first_of_comma>), "differ"},
                    WRONG_RULE{"mask", wrong(everywhere<swap_shift_and_mask>), "the values differ"},
                    WRONG_RULE{"shifts", wrong(everywhere<add_widths>), "the result is faulty"},
                    WRONG_RULE{"compare", wrong(everywhere<compare_moved_constant>), "differ"},
                    WRONG_RULE{"float", wrong(everywhere<invert_float>), "the values differ"},
                    WRONG_RULE{"old", wrong(everywhere<old_value_lost>), "differ"},
                    WRONG_RULE{"narrow", wrong(everywhere<narrow_conversion>), "the values differ"},
                    WRONG_RULE{"types", wrong(everywhere<mixed_widths>), "not well-typed"},
                    WRONG_RULE{"turn", wrong(everywhere<turn_operands>, true), "a second application"},
                    WRONG_RULE{"crash", wrong(everywhere<crash>), "it ends by"}),
    [](const auto& info) { return std::string(info.param.name); });

// --- The simplifier. Each test is an entry of its own, so that they run side by side. SIMP_TREES sets the
// number of trees of an entry.

namespace {

constexpr std::uint64_t ENTRIES = 8;

std::uint64_t trees_per_entry() {
    const char* text = std::getenv("SIMP_TREES");
    return text != nullptr ? std::strtoull(text, nullptr, 10) : 25000;
}

void prove_right(CAMPAIGN c) {
    const RESULT result = run_campaign(palette(), c);
    for (const std::string& report : result.reports) ADD_FAILURE() << report;
    EXPECT_EQ(result.failures, 0u);
}

} // namespace

class Trees : public testing::TestWithParam<std::uint64_t> {};

TEST_P(Trees, KeepValueAndEffects) {
    CAMPAIGN c;
    c.trees = trees_per_entry();
    c.first = GetParam() * c.trees;
    c.subjects = subjects_named("simp_tree");
    prove_right(c);
}

INSTANTIATE_TEST_SUITE_P(Seeds, Trees, testing::Range(std::uint64_t{0}, ENTRIES));

class Subjects : public testing::TestWithParam<SUBJECT> {};

TEST_P(Subjects, HoldsOnGeneratedTrees) {
    CAMPAIGN c;
    c.trees = trees_per_entry();
    c.first = ENTRIES * c.trees; // trees that simp_tree has not seen in the entries above
    c.subjects = {GetParam()};
    c.trial.exhaustive_every = 64;
    prove_right(c);
}

INSTANTIATE_TEST_SUITE_P(All, Subjects, testing::ValuesIn(all_subjects()),
                         [](const auto& info) { return std::string(info.param.name); });

// --- Depth: no recursion, and time in proportion.

namespace {

// A tree of that many levels.
NODE* deep_tree(const std::string& shape, int depth) {
    const auto& variables = palette().scalars; // first: it makes the types
    TYPE* int_type = tp->int_type(IK_INT);
    const auto name = [&](int i) -> NODE* {
        // g_int and the two locals of type int, in turn
        static std::vector<SYMTAB*> ints;
        if (ints.empty())
            for (const PALETTE::VARIABLE& v : variables)
                if (v.symbol->type == int_type) ints.push_back(v.symbol);
        return mk_NAME(ints[static_cast<std::size_t>(i) % ints.size()]);
    };
    const auto icon = [&](int value) { return mk_ICON(INT65::from_signed(value), int_type); };
    const auto make = [&](int op, NODE* left, NODE* right) {
        return maketree(op, left, right, int_type, nullptr);
    };
    NODE* tree = name(0);
    for (int i = 0; i < depth; i++) {
        if (shape == "left sum") {
            tree = make(PLUS, tree, name(i));
        } else if (shape == "right sum") {
            tree = make(PLUS, name(i), tree);
        } else if (shape == "sum of products") {
            tree = make(PLUS, tree, make(MULT, name(i), icon(i & 15)));
        } else if (shape == "sum of constants") {
            tree = make(i % 2 != 0 ? PLUS : MINUS, tree, icon(i));
        } else if (shape == "alternating masks") {
            tree = make(i % 2 != 0 ? ANDB : ORB, tree, icon(i));
        } else if (shape == "masked variables") {
            tree = make(XORB, make(ANDB, tree, name(i)), icon(i));
        } else if (shape == "shifts") {
            tree = make(i % 2 != 0 ? SLL : SRL, tree, icon(i & 3));
        } else if (shape == "conditions") {
            tree = make(i % 2 != 0 ? ANDAND : OROR, tree, make(LT, name(i), icon(i & 7)));
        } else if (shape == "right conditions") {
            tree = make(i % 2 != 0 ? ANDAND : OROR, make(LT, name(i), icon(i & 7)), tree);
        } else if (shape == "negations") {
            tree = make(EXCLAIM, tree, nullptr);
        } else if (shape == "minus signs") {
            tree = make(i % 2 != 0 ? UMINUS : NOTB, tree, nullptr);
        } else if (shape == "nested choices") {
            tree = make(QUEST, make(GT, name(i), icon(i & 7)), make(COLON, icon(i & 15), tree));
        } else if (shape == "conditions of choices") {
            tree = make(QUEST, tree, make(COLON, name(i), icon(i & 15)));
        } else if (shape == "comma chain") {
            tree = make(COMMAOP, make(ASG, name(1), icon(i & 15)), tree);
        } else if (shape == "left comma chain") {
            tree = make(COMMAOP, make(COMMAOP, tree, make(ASG, name(1), icon(i & 15))), name(0));
        } else if (shape == "conversions") {
            TYPE* other = tp->int_type(i % 3 != 0 ? IK_LONG : IK_UINT);
            tree =
                maketree(SCONV, maketree(SCONV, tree, nullptr, other, nullptr), nullptr, int_type, nullptr);
        } else if (shape == "comparisons") {
            tree = make(i % 2 != 0 ? LT : EQ, tree, icon(i & 3));
        } else if (shape == "assignments") {
            tree = make(ASG, name(i & 1), make(COMMAOP, tree, name(2)));
        } else if (shape == "quotients") {
            tree = make(DIV, make(PLUS, tree, name(i)), icon(3));
        }
    }
    return tree;
}

double seconds_for(const std::string& shape, int depth) {
    NODE* tree = deep_tree(shape, depth);
    const std::clock_t start = std::clock(); // of the processor: others use the machine, too
    tree = simp_tree(tree, nullptr);
    const std::clock_t end = std::clock();
    erase_tree(tree);
    return static_cast<double>(end - start) / CLOCKS_PER_SEC;
}

} // namespace

class Depth : public testing::TestWithParam<const char*> {};

TEST_P(Depth, IsNoLimit) {
    const std::string shape = GetParam();
    // In a process of its own: it could overflow the stack, or take for ever.
    bool died = false;
    const std::string text = run_in_child(
        [&] {
            // A shallow tree of the shape is right,
            for (int depth : {1, 2, 3, 7, 20}) {
                NODE* tree = deep_tree(shape, depth);
                COUNTS counts;
                const SUBJECT subject = subjects_named("simp_tree")[0];
                if (std::string wrong = PROVER(palette()).check(subject, tree, 1, {}, counts); !wrong.empty())
                    return wrong;
                erase_tree(tree);
            }
            // and a deep one takes as long for a level as one of fewer levels.
            double small = 1e9, large = 1e9;
            for (int i = 0; i < 3; i++) {
                small = std::min(small, seconds_for(shape, 25000));
                large = std::min(large, seconds_for(shape, 100000));
            }
            return large < 10 * small + 0.05 ? std::string()
                                             : "25000 levels take " + std::to_string(small) +
                                                   " s, 100000 levels " + std::to_string(large) + " s";
        },
        20, died);
    EXPECT_EQ(text, "");
}

INSTANTIATE_TEST_SUITE_P(Shapes, Depth,
                         testing::Values("left sum", "right sum", "sum of products", "sum of constants",
                                         "alternating masks", "masked variables", "shifts", "conditions",
                                         "right conditions", "negations", "minus signs", "nested choices",
                                         "conditions of choices", "comma chain", "left comma chain",
                                         "conversions", "comparisons", "assignments", "quotients"),
                         [](const auto& info) {
                             std::string name = info.param;
                             std::replace(name.begin(), name.end(), ' ', '_');
                             return name;
                         });
