// The harness tried on transformations that are known to be right or wrong, and the simplifier on many trees.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <tuple>

#include <gtest/gtest.h>

#include "OPT5/bbutils.h"
#include "OPT5/copy.h"
#include "OPT5/erase.h"
#include "OPT5/files.h"
#include "OPT5/node.h"
#include "OPT5/opcodes.h"
#include "OPT5/types.h"
#include "tests/simp/campaign.h"

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
    return {"wrong", RELATION::VALUE, apply, idempotent, nullptr, nullptr};
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
    CAMPAIGN c = campaign({"identity", RELATION::VALUE, identity, true, nullptr, nullptr}, 3000);
    c.subjects.push_back({"identity as truth of itself", RELATION::ZERO, identity, true, nullptr, nullptr});
    const RESULT result = run_campaign(palette(), c);
    for (const std::string& report : result.reports) ADD_FAILURE() << report;
}

class WrongRule : public testing::TestWithParam<std::tuple<const char*, SUBJECT, const char*>> {};

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
    testing::Values(std::tuple{"x2", wrong(everywhere<multiply_becomes_add>), "the values differ"},
                    std::tuple{"halve", wrong(everywhere<halve_by_shift>), "the values differ"},
                    std::tuple{"comma", wrong(everywhere<lose_first_of_comma>), "differ"},
                    std::tuple{"mask", wrong(everywhere<swap_shift_and_mask>), "the values differ"},
                    std::tuple{"shifts", wrong(everywhere<add_widths>), "the result is faulty"},
                    std::tuple{"compare", wrong(everywhere<compare_moved_constant>), "the values differ"},
                    std::tuple{"float", wrong(everywhere<invert_float>), "the values differ"},
                    std::tuple{"old", wrong(everywhere<old_value_lost>), "differ"},
                    std::tuple{"narrow", wrong(everywhere<narrow_conversion>), "the values differ"},
                    std::tuple{"types", wrong(everywhere<mixed_widths>), "not well-typed"},
                    std::tuple{"turn", wrong(everywhere<turn_operands>, true), "a second application"},
                    std::tuple{"crash", wrong(everywhere<crash>), "it ends by"}),
    [](const auto& info) { return std::string(std::get<0>(info.param)); });
