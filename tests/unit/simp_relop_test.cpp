// Comparisons, logical operators and conditionals: the canonical forms, and that every form means what the
// source said. Each row is simplified, compared with the text, simplified again (which must change nothing),
// and run before and after on many values; the sweeps do the same for every operator over many constants.

#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "OPT5/copy.h"
#include "OPT5/dump.h"
#include "OPT5/erase.h"
#include "OPT5/files.h"
#include "OPT5/node.h"
#include "OPT5/opcodes.h"
#include "OPT5/simp.h"
#include "OPT5/target_bif.h"
#include "OPT5/types.h"
#include "tests/simp/palette.h"
#include "tests/simp/prove.h"
#include "tests/simp/subjects.h"
#include "tests/unit/c_trees.h"

using namespace prove;

namespace {

const PALETTE& bare_palette() {
    static const PALETTE the_palette(false);
    return the_palette;
}

const PALETTE& palette() {
    const PALETTE& variables = bare_palette();
    static const bool has_table = (init_BIF_descriptors(), true);
    static_cast<void>(has_table);
    return variables;
}

NODE* tree(const std::string& text) { return tree_of(palette(), text); }

struct ROW {
    const char* source;
    const char* expected;
};

NODE* simplified_for_control(NODE* source, std::uint64_t) {
    return simp_for_control(simp_tree(source, nullptr), nullptr);
}

const SUBJECT& subject(const char* name) {
    static const SUBJECT control = {"control", RELATION::ZERO, simplified_for_control,
                                    false,     nullptr,        nullptr};
    if (std::string(name) == control.name) return control;
    for (const SUBJECT& s : all_subjects())
        if (std::string(s.name) == name) return s;
    std::abort();
}

std::string wrong_meaning(const char* subject_name, NODE* source, int rounds, bool exhaustively) {
    TRIAL trial;
    trial.rounds = rounds;
    trial.exhaustive_every = exhaustively ? 1 : 0;
    COUNTS counts;
    return PROVER(palette()).check(subject(subject_name), source, 4711, trial, counts);
}

void check_rows(const char* subject_name, const std::vector<ROW>& rows) {
    for (const ROW& row : rows) {
        SCOPED_TRACE(row.source);
        NODE* source = tree(row.source);
        NODE* result = subject(subject_name).apply(copy_tree(source, false), 0);
        EXPECT_EQ(tree_to_text(result), row.expected);
        NODE* again = simp_tree(copy_tree(result, false), nullptr);
        EXPECT_EQ(tree_to_text(again), row.expected) << "the second time";
        EXPECT_EQ(wrong_meaning(subject_name, source, 200, true), "");
        erase_tree(again);
        erase_tree(result);
        erase_tree(source);
    }
}
void check_values(const std::vector<ROW>& rows) { check_rows("simp_tree", rows); }
void check_control(const std::vector<ROW>& rows) { check_rows("control", rows); }

} // namespace

// --- Without intrinsics. Ahead of all others: they make the table of intrinsics.

TEST(SimpQuest, ATargetWithoutMinimumKeepsTheConditional) {
    const PALETTE& variables = bare_palette();
    ASSERT_EQ(find_target_BIF_descriptor("MIN"), nullptr);
    NODE* result = simp_tree(tree_of(variables, "i1 < i2 ? i1 : i2"), nullptr);
    EXPECT_EQ(tree_to_text(result), "i1 < i2 ? (i1 : i2)");
    erase_tree(result);
}

// --- Sweeps: every form with every operator and many constants, run before and after.

namespace {

const std::vector<std::string> ORDERINGS = {" == ", " != ", " < ", " <= ", " > ", " >= "};

// Proves the trees of all the texts; every `exhaustive`th on all values of its variable.
void sweep(const char* subject_name, const std::vector<std::string>& texts, int rounds, int exhaustive) {
    int failures = 0;
    for (std::size_t i = 0; i < texts.size() && failures < 5; i++) {
        NODE* source = tree(texts[i]);
        const bool all = exhaustive != 0 && i % static_cast<std::size_t>(exhaustive) == 0;
        const std::string why = wrong_meaning(subject_name, source, rounds, all);
        if (!why.empty()) failures++;
        EXPECT_EQ(why, "") << texts[i];
        erase_tree(source);
    }
}

std::vector<std::string> pairs(const std::vector<std::string>& lefts, const std::vector<std::string>& infixes,
                               const std::vector<std::string>& rights) {
    std::vector<std::string> texts;
    for (const std::string& left : lefts)
        for (const std::string& infix : infixes)
            for (const std::string& right : rights)
                texts.push_back("(" + left + ")" + infix + "(" + right + ")");
    return texts;
}

// The forms of one variable x that the rules know.
std::vector<std::string> forms_of(const std::string& x) {
    std::vector<std::string> forms;
    for (const char* form : {"x + 5",
                             "x - 5",
                             "7 - x",
                             "-x",
                             "~x",
                             "x * 3",
                             "x * 4",
                             "x * 6",
                             "x * -2",
                             "x << 3",
                             "x << 15",
                             "x >> 3",
                             "x >> 15",
                             "x / 7",
                             "x / 4",
                             "x / -3",
                             "x % 8",
                             "x % 7",
                             "x & 12",
                             "x & 8",
                             "x & -32767-1",
                             "x | 6",
                             "x ^ 9",
                             "(long)x",
                             "(unsigned long)(long)x",
                             "(unsigned)x",
                             "(int)x",
                             "(long long)x",
                             "(x & 255) + 3",
                             "(x & 255) * 5",
                             "(x & 255) * -5",
                             "(x & 255) - 300",
                             "300 - (x & 255)",
                             "(x & 15) << 4",
                             "(x & 255) / 10",
                             "(x & 64) ^ 64",
                             "(x | 4) & 6",
                             "(x | 4) & 5",
                             "x < 3",
                             "x & 1",
                             "x > 3 ? 5 : 9",
                             "x > 3 ? x : 7",
                             "x > 3 ? 7 : x",
                             "~x & 7",
                             "(x ^ 5) & 12",
                             "(x + 3) & 7",
                             "(x - 3) & 15",
                             "(x >> 3) & 1",
                             "(x >> 2) & 7",
                             "(x >> 14) & 7",
                             "(x >> 14) & 4",
                             "(x << 2) & 24",
                             "!x",
                             "x && u2",
                             "(long)x + 5l",
                             "(long)x * 3l",
                             "(unsigned long)x >> 4",
                             "-(long)x",
                             "~(long)x",
                             "(x & 3) == 3 ? 2 : x & 3",
                             "x == 5 ? x : 0"}) {
        std::string text = form;
        for (std::size_t at = 0; (at = text.find('x', at)) != std::string::npos; at += x.size())
            text.replace(at, 1, x);
        forms.push_back(text);
    }
    return forms;
}

const std::vector<std::string> CONSTANTS = {
    "0",   "1",   "-1",  "2",  "3",   "5",   "7",   "8",   "12",    "15",     "16",       "32",
    "255", "256", "300", "-5", "-16", "-25", "295", "-45", "32767", "-32767", "-32767-1", "65535l"};

} // namespace

TEST(SimpRelop, SignedFormsAgainstConstants) {
    sweep("simp_tree", pairs(forms_of("i1"), ORDERINGS, CONSTANTS), 64, 29);
}

TEST(SimpRelop, UnsignedFormsAgainstConstants) {
    sweep("simp_tree", pairs(forms_of("u1"), ORDERINGS, CONSTANTS), 64, 29);
}

TEST(SimpRelop, OtherWidthsAgainstConstants) {
    for (const char* name : {"l1", "ul1", "ll1", "ull1", "c1", "b1", "record.a", "record.b", "record.c"})
        sweep("simp_tree",
              pairs(forms_of(name), ORDERINGS, {"0", "1", "-1", "7", "8", "-5", "32767", "80000l"}), 48, 0);
}

TEST(SimpRelop, FormsAgainstForms) {
    const std::vector<std::string> few = {"i1",
                                          "i2",
                                          "i1 + 5",
                                          "i2 + 5",
                                          "i1 + i2",
                                          "i1 - i2",
                                          "-i1",
                                          "~i1",
                                          "~i2",
                                          "i1 * 3",
                                          "i2 * 3",
                                          "i1 & 8",
                                          "(i1 & 255) + 5",
                                          "i1 ^ i2",
                                          "u1",
                                          "u1 & u2",
                                          "u1 | u2",
                                          "u1 % u2",
                                          "u1 >> 3",
                                          "(long)i1",
                                          "(long)u1",
                                          "(long)c1",
                                          "l1",
                                          "(unsigned long)i2",
                                          "(long)i2",
                                          "(unsigned)i1",
                                          "(unsigned)i2",
                                          "i1 < i2",
                                          "i1 & 1",
                                          "(long)i1 + 3l",
                                          "(i1 & 255) + 7",
                                          "(i2 & 255) + 5",
                                          "(i2 & 255) + 7"};
    sweep("simp_tree", pairs(few, ORDERINGS, few), 64, 0);
}

TEST(SimpControl, FormsInConditions) {
    for (const char* name : {"i1", "u1", "l1", "ul1", "ll1", "c1", "b1", "record.b"}) {
        const bool small = std::string("i1u1c1b1").find(name) != std::string::npos;
        sweep("control", forms_of(name), 64, small ? 1 : 0);
        std::vector<std::string> negations;
        for (const std::string& form : forms_of(name)) negations.push_back("!(" + form + ")");
        sweep("simp_tree", negations, 64, 0);
        sweep("simp_IF", negations, 64, 0);
    }
}

namespace {

const std::vector<std::string> TESTS = {"i1",
                                        "i1 == 0",
                                        "i1 != 3",
                                        "i1 == 3",
                                        "i1 < 5",
                                        "i1 >= 5",
                                        "i1 < 3",
                                        "i1 > 3",
                                        "i1 >= 0",
                                        "i1 & 4",
                                        "i1 & 8",
                                        "(i1 & 12) == 8",
                                        "(i1 & 4) == 0",
                                        "(i1 & 6) != 2",
                                        "(i1 >> 3) & 1",
                                        "i2",
                                        "i2 == 0",
                                        "i2 < i1",
                                        "i1 <= i2",
                                        "b1",
                                        "l1 & 8",
                                        "!(i1 < i2 && u1)",
                                        "*p",
                                        "*(p + 1)",
                                        "u1 / u2",
                                        "i1 == 0 && i2",
                                        "call0()",
                                        "p",
                                        "f1 < f2",
                                        "(i1 & -32767-1) != 0"};

}

TEST(SimpBool, TestsAndTests) { sweep("simp_tree", pairs(TESTS, {" && ", " || "}, TESTS), 64, 5); }

TEST(SimpBool, NegatedPairs) {
    std::vector<std::string> texts;
    for (const std::string& pair : pairs(TESTS, {" && ", " || "}, TESTS)) texts.push_back("!(" + pair + ")");
    sweep("simp_tree", texts, 32, 0);
}

TEST(SimpQuest, ConditionsAndArms) {
    const std::vector<std::string> conditions = {"i1 < i2",
                                                 "i1 >= i2",
                                                 "i1",
                                                 "i1 == 0",
                                                 "i1 == i2",
                                                 "i1 != 7",
                                                 "i1 < 7",
                                                 "i1 <= 7",
                                                 "i1 > 0",
                                                 "u1 < 7u",
                                                 "i1 & 8",
                                                 "b1",
                                                 "(unsigned)i1 < (unsigned)i2",
                                                 "(long)i1 < (long)i2",
                                                 "u1 > u2",
                                                 "call0()",
                                                 "(long)i1 <= 9l"};
    const std::vector<std::string> arms = {
        "i1",           "i2",      "0",        "1",        "7",  "8",  "i1 + 3", "i2 + 3",
        "i1 * i2",      "b1",      "i2 < 4",   "(long)i1", "u1", "7u", "u2",     "i1 == 0 ? i2 : 7",
        "i2 ? i1 : i2", "i1 / u2", "(long)i2", "(u2 = 3u)"};
    std::vector<std::string> texts;
    for (const std::string& condition : conditions)
        for (const std::string& arm : pairs(arms, {" : "}, arms))
            texts.push_back("(" + condition + ") ? " + arm);
    sweep("simp_tree", texts, 48, 0);
    for (std::string& text : texts) text = "(int)(" + text + ") & 3";
    sweep("control", texts, 16, 0);
}

// --- Comparisons.

// Two reads of a volatile object have no order that a proof could keep, so the text alone is checked.
TEST(SimpRelop, VolatileReadsStayBoth) {
    NODE* result = simp_tree(tree("v_int == v_int"), nullptr);
    EXPECT_EQ(tree_to_text(result), "v_int == v_int");
    erase_tree(result);
}

TEST(SimpRelop, ConstantsStandRightAndLimitsDecide) {
    check_values({
        {"5 < i1", "i1 > 5"},
        {"5u <= u1", "u1 >= 5"},
        {"3 == i1", "i1 == 3"},
        {"&target == p", "p == &target"},
        {"2.0f < f1", "f1 > 2F"},
        {"i1 < -32768l", "0"},
        {"u1 >= 0u", "1"},
        {"u1 > 65535u", "0"},
        {"u1 < 1u", "u1 == 0"},
        {"u1 >= 65535u", "u1 == 65535"},
        {"u1 <= 65534u", "u1 != 65535"},
        {"i1 < -32767", "i1 == -32768"},
        {"i1 <= 32766", "i1 != 32767"},
        {"ull1 <= 0ull", "ull1 == 0"},
        {"i1 == i1", "1"},
        {"i1 + i2 > i1 + i2", "0"},
        {"f1 == f1", "f1 == f1"}, // a NaN differs from itself
    });
}

TEST(SimpRelop, EffectsOutliveTheirComparison) {
    check_values({
        {"call0() < -32767-1", "call0() ,OP 0"},
        {"call0() <= 32767", "call0() ,OP 1"},
        {"(call0() & 0) == 0", "call0() ,OP 1"},
        {"(i1 = 5) < 3", "i1 = 5 ,OP 0"},
        {"(g_int = i2) > 32767", "g_int = i2 ,OP 0"},
        {"(long)(g_int = i2) == 80000l", "g_int = i2 ,OP 0"},
        {"(call0() ? 3 : 5) > 2", "call0() ,OP 1"},
    });
}

TEST(SimpRelop, TheConstantIsTheOneClosestToZero) {
    check_values({
        {"i1 < 1", "i1 <= 0"},
        {"i1 < 10", "i1 <= 9"},
        {"i1 >= 10", "i1 > 9"},
        {"i1 > -1", "i1 >= 0"},
        {"i1 <= -6", "i1 < -5"},
        {"i1 < 0", "i1 < 0"},
        {"i1 >= -5", "i1 >= -5"},
        {"u1 < 10u", "u1 < 10"},
    });
}

TEST(SimpRelop, BitsAndRangesDecide) {
    check_values({
        {"(i1 & 12) == 3", "0"},
        {"(i1 | 1) != (i2 & 14)", "1"},
        {"(i1 & 15) < 16", "1"},
        {"(i1 & 15) >= 15", "(i1 & 15) == 15"},
        {"(i1 & 15) <= 0", "(i1 & 15) == 0"},
        {"(i1 & 7) < (i2 | 8 & 15)", "(i1 & 7) < (i2 | 8)"},
        {"(i1 & 7) < (i2 & 7) + 8", "1"},
        {"record.b > 31u", "0"},
        {"(u1 & u2) <= u1", "1"},
        {"(u1 | u2) < u2", "0"},
        {"u1 >> i1 > u1", "0"},
        {"u1 % u2 < u2", "1"},
        {"u2 <= u1 % u2", "0"},
    });
}

TEST(SimpRelop, TheConstantTakesOperatorsOver) {
    check_values({
        {"i1 + 3 == 5", "i1 == 2"},
        {"i1 - 3 != 32767", "i1 != -32766"},
        {"i1 + 3 < 5", "i1 + 3 <= 4"}, // may wrap
        {"(i1 & 255) + 3 < 5", "(i1 & 255) <= 1"},
        {"(long)i1 + 3l < 5l", "i1 <= 1"},
        {"5 - i1 == 3", "i1 == 2"},
        {"5l - (long)i1 < 3l", "i1 > 2"},
        {"-i1 == 4", "i1 == -4"},
        {"-i1 < 4", "-i1 <= 3"}, // the least number has no negative
        {"~i1 < 4", "i1 >= -4"},
        {"i1 * 3 == 9", "i1 == 3"},
        {"i1 * 3 == 10", "i1 == -21842"}, // wraps
        {"i1 * 4 == 8", "(i1 & 16383) == 2"},
        {"i1 * 4 == 9", "0"},
        {"(i1 & 255) * 4 <= 9", "(i1 & 255) <= 2"},
        {"i1 * 3 < 9", "i1 * 3 <= 8"},
        {"i1 >> 3 == 5", "(i1 & -8) == 40"},
        {"i1 >> 3 < 5", "i1 <= 39"},
        {"u1 >> 3 > 8191u", "0"},
        {"i1 / 7 < 3", "i1 <= 20"},
        {"i1 / 7 < -3", "i1 < -27"},
        {"i1 / 7 == 3", "i1 / 7 == 3"},
        {"u1 / 7u == 0u", "u1 < 7"},
        {"i1 % 8 == 0", "(i1 & 7) == 0"},
        {"i1 % 8 == 1", "i1 % 8 == 1"}, // not of negative numbers
        {"i1 - i2 == 0", "i1 == i2"},
        {"i1 - i2 < 0", "i1 - i2 < 0"},
        {"(i1 & 255) - (i2 & 255) < 0", "(i1 & 255) < (i2 & 255)"},
    });
}

TEST(SimpRelop, MasksAskForAsFewBitsAsTheyCan) {
    check_values({
        {"(i1 & 8) == 8", "(i1 & 8) != 0"},
        {"(i1 & 8) != 8", "(i1 & 8) == 0"},
        {"(i1 & 12) == 12", "(i1 & 12) == 12"},
        {"(i1 & 12) == 16", "0"},
        {"(i1 | 3) == 7", "(i1 & -4) == 4"},
        {"(i1 ^ 9) == 5", "i1 == 12"},
        {"(i1 ^ i2) == 0", "i1 == i2"},
        {"((i1 ^ 5) & 12) == 4", "(i1 & 12) == 0"},
        {"((i1 + 3) & 7) == 0", "(i1 & 7) == 5"},
        {"((i1 + 3) & 12) == 4", "(i1 + 3 & 12) == 4"}, // a carry comes in
        {"(~i1 & 12) == 0", "(i1 & 12) == 12"},
        {"((i1 >> 3) & 1) == 0", "(i1 & 8) == 0"},
        {"(u1 & (1u << u2)) == (1u << u2)", "(1 << u2 & u1) != 0"},
    });
}

TEST(SimpRelop, OperandsAreAsNarrowAsTheirValues) {
    check_values({
        {"(long)i1 < 5l", "i1 <= 4"},
        {"(long)i1 < 80000l", "1"},
        {"(long)u1 == -1l", "0"},
        {"(unsigned long)i1 < 5ul", "(unsigned)i1 < 5"},
        {"(unsigned long)i1 < 80000ul", "i1 >= 0"},
        {"(unsigned long)i1 == 4294967295ul", "i1 == -1"},
        {"(long)i1 < (long)i2", "i1 < i2"},
        {"(unsigned long)i1 < (unsigned long)i2", "(unsigned)i1 < (unsigned)i2"},
        {"(long)u1 == (long)u2", "u1 == u2"},
        {"(long)i1 == (long)u2", "(long)i1 == (long)u2"},
        {"(unsigned)i1 == 65535u", "i1 == -1"},
        {"(int)(unsigned)l1 == 5", "(int)l1 == 5"},
        {"(int*)lp == 0", "lp == 0"},
        {"(int*)lp == (int*)rp", "lp == rp"},
    });
}

TEST(SimpRelop, WhatBothSidesHaveGoes) {
    check_values({
        {"i1 + i2 == i1", "i2 == 0"},
        {"i1 + i2 == i2 + g_int", "i1 == g_int"},
        {"i1 + i2 < i1", "i1 + i2 < i1"},
        {"i1 - i2 == i1 - g_int", "i2 == g_int"},
        {"(i1 ^ i2) != i2", "i1 != 0"},
        {"-i1 == -i2", "i1 == i2"},
        {"~i1 < ~i2", "i1 > i2"},
        {"i1 * 3 == i2 * 3", "i1 == i2"},
        {"i1 * 2 == i2 * 2", "i1 * 2 == i2 * 2"},
        {"i1 + 5 == i2 + 3", "i1 + 2 == i2"},
        {"p + 1 == p", "0"},
        {"p + i1 == p + i2", "i1 == i2"},
        {"p + i1 == q + i1", "p == q"},
    });
}

TEST(SimpRelop, TruthValuesAreTheirOwnTests) {
    check_values({
        {"(i1 < 3) == 0", "i1 > 2"},
        {"(i1 < 3) == 1", "i1 <= 2"},
        {"(i1 < 3) > 0", "i1 <= 2"},
        {"(i1 < 3) == 2", "0"},
        {"b1 == 1", "(int)b1"},
        {"b1 != 1", "b1 == 0"},
        {"record.c != 0u", "(int)record.c"},
        {"(f1 < f2) == 0", "FGEN(f1, f2)"},
        {"(i1 ? 3 : 5) == 3", "i1 != 0"},
        {"(i1 ? 5 : 3) == 3", "i1 == 0"},
        {"(i1 ? i2 : 5) == 3", "i1 && i2 == 3"},
        {"(i1 ? 3 : i2 / u1) == 3u", "i1 || (unsigned)i2 / u1 == 3"},
    });
}

TEST(SimpRelop, AddressesOfObjectsAreNotNull) {
    check_values({
        {"&target == 0", "0"},
        {"array + i1 != 0", "1"},
        {"&record.d == &target", "&record.d == &target"},
        {"&target == &i1", "0"},
        {"p == 0", "p == 0"},
    });
}

TEST(SimpRelop, SaturatingDifferencesHaveTheSignOfTheTrueOnes) {
    check_values({
        {"_ssub(i1, i2) < 0", "i1 < i2"},
        {"_ssub(i1, i2) == 0", "i1 == i2"},
        {"0 <= _ssub(i1, i2)", "i1 >= i2"},
        {"_ssub(i1, i2) < 2", "_ssub(i1, i2) <= 1"},
    });
}

// --- Tests for zero.

TEST(SimpControl, OnlyZeroCounts) {
    check_control({
        {"i1 != 0", "i1"},
        {"(long)i1", "i1"},
        {"(int)l1", "(int)l1"}, // a narrower one can be zero where the operand is not
        {"(bool)l1", "l1"},
        {"i1 % 8", "i1 & 7"},
        {"i1 % -8", "i1 & 7"},
        {"i1 % 7", "i1 % 7"},
        {"i1 >> 15", "i1 & -32768"},
        {"(i1 >> 3) & 1", "i1 & 8"},
        {"(int)(l1 >> 20) & 1", "l1 & 1048576"},
        {"(ll1 >> 40) & 1ll", "ll1 >> 40 & 1"}, // the mask would be a wide constant
        {"(i1 | 4) & 3", "i1 & 3"},
        {"i1 | 4", "1"},
        {"call0() | 4", "call0() ,OP 1"},
        {"(i1 & 8) ^ 8", "(i1 & 8) == 0"},
        {"i1 ^ 9", "i1 != 9"},
        {"-i1", "i1"},
        {"i1 - i2", "i1 != i2"},
        {"i1 + 3", "i1 != -3"},
        {"i1 + i2", "i1 + i2"},
        {"i1++", "(i1 += 1) != 1"},
        {"c1++", "c1++ by 1"},
        {"u1 / 3u", "u1 >= 3"},
        {"i1 * 3", "i1"},
        {"i1 << 4", "i1 & 4095"},
        {"_ssub(i1, i2)", "i1 != i2"},
        {"i1 ? i2 : 0", "i1 && i2"},
        {"i1 ? 0 : i2 / u1", "i1 == 0 && (unsigned)i2 / u1"},
        {"i1 < 3 ? i2 % 8 : (int)(l1 >> 20) & 1", "i1 <= 2 ? (i2 & 7 : (l1 & 1048576) != 0)"},
        {"(call0(), i1 != 0)", "call0() ,OP i1"},
        {"array", "1"},
    });
    check_values({{"g_int = i1 % 8", "g_int = i1 % 8"}}); // no test
}

// --- Logical operators.

TEST(SimpBool, ConstantsAndRepeatedTestsDecide) {
    check_values({
        {"call0() && 0", "call0() ,OP 0"},
        {"0 && call0()", "0"},
        {"1 || call0()", "1"},
        {"call0() || 2", "call0() ,OP 1"},
        {"1 && i1", "i1 != 0"},
        {"i1 && 1", "i1 != 0"},
        {"i1 && i1 != 0", "i1 != 0"},
        {"v_int && v_int", "v_int && v_int"},
        {"i1 && i1 == 0", "0"},
        {"i1 < i2 || i1 >= i2", "1"},
        {"f1 < f2 && !(f1 < f2)", "0"},
        {"(p && i1) && i1", "p && i1"},
    });
}

TEST(SimpBool, TwoTestsOfOneValueAreOne) {
    check_values({
        {"i1 & 4 && i1 & 8", "(i1 & 12) == 12"},
        {"i1 & 4 || i1 & 8", "(i1 & 12) != 0"},
        {"(i1 & 4) == 0 && (i1 & 8) == 0", "(i1 & 12) == 0"},
        {"(i1 & 12) == 8 && (i1 & 3) == 1", "(i1 & 15) == 9"},
        {"(i1 & 12) == 8 && (i1 & 12) == 4", "0"},
        {"*p & 4 && *p & 8", "(*p & 12) == 12"},
        {"i1 >= 0 && i1 != 0", "i1 > 0"},
        {"i1 > 3 && i1 < 3", "0"},
        {"i1 > 3 || i1 < 10", "1"},
        {"i1 > 3 && i1 > 10", "i1 > 10"},
        {"i1 > 3 && i1 < 10", "i1 > 3 && i1 <= 9"},
        {"i1 == 5 || i1 > 5", "i1 > 4"},
    });
}

TEST(SimpBool, NegationsStandOutsideOrAreTheOperators) {
    check_values({
        {"i1 == 0 && p == 0", "(i1 || p) == 0"},
        {"i1 == 0 || i2 == 0", "(i1 && i2) == 0"},
        {"!(i1 < i2 && i2 < 3)", "i1 >= i2 || i2 > 2"},
        {"!(i1 && i2)", "(i1 && i2) == 0"},
        {"!!i1", "i1 != 0"},
        {"!(i1 == 0)", "i1 != 0"},
        {"!(b1 == 0)", "(int)b1"},
        {"!f1", "f1 == 0F"},
        {"!!(f1 < f2)", "f1 < f2"},
    });
}

TEST(SimpBool, SafeOperandsAreCombinedWithoutABranch) {
    check_values({
        {"i1 || i2", "(i1 | i2) != 0"},
        {"i1 || l1", "((long)i1 | l1) != 0"},
        {"i1 & 4 && i2 & 8", "(i1 << 1 & i2 & 8) != 0"},
        {"i1 & 4 && i2 & 4", "(i2 & i1 & 4) != 0"},
        {"i1 && i2", "i1 && i2"},
        {"b1 && b2", "(int)b1 & (int)b2"},
        {"i1 || i2 < 3", "i1 || i2 <= 2"},
        {"i1 || call0()", "i1 || call0()"},
        {"i1 || v_int", "i1 || v_int"},
        {"i1 || *(array + 2)", "(*(&array + 2) | i1) != 0"},
        {"i1 || *(array + 9)", "i1 || *(&array + 9)"}, // outside the object
        {"i1 || *(array - 1)", "i1 || *(&array + -1)"},
        {"i1 || *(long*)(array + 6)", "((long)i1 | *(long *)(&array + 6)) != 0"},
        {"i1 || *(long*)(array + 7)", "i1 || *(long *)(&array + 7)"},
        {"i1 || *p", "i1 || *p"},
        {"*p || *p + i1", "(*p | *p + i1) != 0"},
        {"*p || *(p + 1)", "*p || *(p + 1)"},
        {"*(p + 1) || *p", "*(p + 1) || *p"},
        {"(i1 && *p ? i2 : u1) || *p", "(i1 && *p ? ((unsigned)i2 : u1)) || *p"}, // not always an access
        {"i1 || i2 / 3", "(i2 / 3 | i1) != 0"},
        {"i1 || i2 / u1", "i1 || (unsigned)i2 / u1"},
        {"i2 / u1 || i1 / u1", "((unsigned)i2 / u1 | (unsigned)i1 / u1) != 0"},
        {"i1 || i2 << u1", "i1 || i2 << u1"},
        {"rp->a || rp->b", "((unsigned)rp->a | rp->b) != 0"}, // of one unit
        {"rp->d || rp->h", "rp->d || rp->h"},
    });
}

TEST(SimpBool, TheHeightOfWhatIsCombinedIsLimited) {
    const std::string eight = "i1||i2||g_int||c1||c2||s1||s2||target";
    const std::string bits = "i1 | i2 | g_int | c1 | c2 | s1 | s2 | target";
    const std::string nine = eight + "||i1 * i2", ten = eight + "||i1 * i2||g_uint";
    NODE* height = tree("i1 | i2 | i1 + i2 * g_int");
    EXPECT_EQ(andor_andor_height(height, 9, nullptr), 4);
    EXPECT_EQ(andor_andor_height(height, 9, height->right), 3);
    EXPECT_EQ(andor_andor_height(height, 2, nullptr), 3);
    check_values({{nine.c_str(), ("(" + bits + " | i1 * i2) != 0").c_str()}});
    // The operators of the first nine are nine levels high with the tenth.
    check_values({{ten.c_str(), (bits + " | i1 * i2 || g_uint").c_str()}});
}

// --- Conditionals.

TEST(SimpQuest, TruthValues) {
    check_values({
        {"i1 ? 1 : 0", "i1 != 0"},
        {"i1 ? 0 : 1", "i1 == 0"},
        {"f1 ? 1 : 0", "f1 != 0F"},
        {"i1 < 3 ? b1 : 0", "i1 <= 2 && b1"},
        {"i1 < 3 ? 1 : i2 < u1", "i1 <= 2 || (unsigned)i2 < u1"},
        {"i1 & 8 ? 8 : 0", "i1 & 8"},
        {"i1 == 0 ? u1 : u2", "i1 ? (u2 : u1)"},
        {"call0() ? i2 : i2", "call0() ,OP i2"},
        {"i1 ? call0() : call0()", "call0()"},
        {"1 ? i1 : call0()", "i1"},
    });
}

TEST(SimpQuest, MinimumAndMaximum) {
    check_values({
        {"i1 < i2 ? i1 : i2", "MIN(i1, i2)"},
        {"i1 < i2 ? i2 : i1", "MAX(i1, i2)"},
        {"i1 >= i2 ? i1 : i2", "MAX(i1, i2)"},
        // A character without sign promotes to int, which does not hold its numbers.
        {"(long)uc1 >= (long)i1 ? (long)uc1 : (long)i1", "LMAX((long)uc1, (long)i1)"},
        {"u1 <= u2 ? u1 : u2", "MINU(u1, u2)"},
        {"l1 < l2 ? l1 : l2", "LMIN(l1, l2)"},
        {"ull1 > ull2 ? ull1 : ull2", "LLMAXU(ull1, ull2)"},
        {"c1 < c2 ? c1 : c2", "MIN(c1, c2)"},
        {"(long)i1 < (long)i2 ? (long)i1 : (long)i2", "(long)MIN(i1, i2)"},
        {"i1 < 10 ? i1 : 10", "MIN(i1, 10)"},
        {"i1 <= 7 ? i1 : 8", "MIN(i1, 8)"},
        {"i1 <= 7 ? i1 : 9", "i1 <= 7 ? (i1 : 9)"},
        {"i1 < 10 ? 10 : i1", "MAX(i1, 10)"},
        {"i1 > 0 ? i1 : 0", "MAX(i1, 0)"},
        {"u1 < 10u ? u1 : 10u", "MINU(u1, 10)"},
        {"f1 < f2 ? f1 : f2", "FMIN(f1, f2)"},
        {"f1 > f2 ? f2 : f1", "FMIN(f2, f1)"},
        {"f1 <= f2 ? f1 : f2", "f1 <= f2 ? (f1 : f2)"}, // zeros of both signs
        {"v_int < i1 ? v_int : i1", "v_int < i1 ? (v_int : i1)"},
    });
}

TEST(SimpQuest, ArmsThatTheConditionTells) {
    check_values({
        {"i1 == 3 ? i1 : i2", "i1 == 3 ? (3 : i2)"},
        {"i1 != 3 ? i1 : 3", "i1"},
        {"i1 == i2 ? i1 : i2", "i2"},
        {"i1 ? i2 : i1", "i1 ? (i2 : 0)"},
        {"i1 ? (i1 ? u1 : u2) : us1", "i1 ? (u1 : us1)"},
        {"i1 ? (i2 ? u1 : u2) : u2", "i1 && i2 ? (u1 : u2)"},
        {"i1 ? u1 : (i2 ? u1 : u2)", "i1 | i2 ? (u1 : u2)"},
        {"i1 < 3 ? (i2 ? u1 : u2) : u1", "i1 > 2 || i2 ? (u1 : u2)"},
        {"i1 < 3 ? u2 : (i2 ? u1 : u2)", "i1 > 2 && i2 ? (u1 : u2)"},
    });
}

TEST(SimpQuest, WhatBothArmsDoIsDoneOnce) {
    check_values({
        {"i1 ? i1 + u1 : i2 + u1", "(unsigned)(i1 ? (i1 : i2)) + u1"},
        {"i1 ? i2 + 1 : i2 + 2", "(i1 ? (1 : 2)) + i2"},
        {"i1 ? i2 * 2 : i2 * 4", "i1 ? (i2 * 2 : i2 * 4)"},
        {"i1 < i2 ? -i1 : -i2", "-MIN(i1, i2)"},
        {"i1 ? i2 / u1 : 0", "i1 ? ((unsigned)i2 / u1 : 0)"},
        {"call0() ? i1 + 3 : i2 + 3", "(call0() ? (i1 : i2)) + 3"},
        {"call0() ? i1 + g_int : i2 + g_int", "call0() ? (i1 + g_int : i2 + g_int)"},
        {"call0() ? (g_int = 3) : (g_int = i1)", "g_int = call0() ? (3 : i1)"},
        {"i1 ? (g_int += i2) : (g_int += 3)", "g_int += i1 ? (i2 : 3)"},
        {"call0() ? (g_int += 3) : (g_int += i1)", "call0() ? ((g_int += 3) : (g_int += i1))"},
        {"i1 ? (v_int = 3) : (v_int = i2)", "i1 ? ((v_int = 3) : (v_int = i2))"},
    });
}

// --- Tests with a known outcome.

TEST(SimpRedundantTest, KnownTestsDecideWhatTheyImply) {
    struct CASE {
        const char* test;
        const char* known;
        int outcome;
        const char* expected;
    };
    const CASE cases[] = {
        {"i1 < 5", "i1 < 5", 1, "1"},
        {"i1 < 5", "i1 < 5", 0, "0"},
        {"i1 < 5", "i1 < 3", 1, "1"},
        {"i1 < 5", "i1 < 9", 1, "i1 <= 4"},
        {"i1 < 5", "i1 > 7", 1, "0"},
        {"i1 < 5", "i1 > 7", 0, "i1 <= 4"},
        {"i1 < 5", "i1 >= 3", 0, "1"},
        {"i1 == 4", "i1 != 4", 0, "1"},
        {"i1 != 4", "i1 == 4", 0, "1"},
        {"i1 < 5", "i1 == 4", 0, "i1 <= 4"},
        {"i1", "i1 == 0", 1, "0"},
        {"i1 == 0", "i1", 1, "0"},
        {"i2 < i1", "i1 > i2", 1, "1"},
        {"i2 && i1 < 5", "i1 < 3", 1, "i2 != 0"},
        {"i2 || !(i1 < 5 && i2)", "i1 < 5", 0, "1"},
        {"call0() || i1", "i1", 1, "call0() ,OP 1"},
        {"u1 < 5u", "i1 < 5", 1, "u1 < 5"},
    };
    for (const CASE& c : cases) {
        SCOPED_TRACE(std::string(c.test) + " where " + c.known + " is " + std::to_string(c.outcome));
        const std::vector<NODE*> tests = {nullptr, simp_tree(tree(c.known), nullptr)};
        std::map<int, int> outcomes = {{1, c.outcome}};
        NODE* result = simp_redundant_test(simp_tree(tree(c.test), nullptr), outcomes, tests, nullptr);
        EXPECT_EQ(tree_to_text(result), c.expected);
        erase_tree(result);
        erase_tree(tests[1]);
    }
}

TEST(SimpRedundantTest, NumbersOfTestsStandForTheirOutcomes) {
    palette();
    TYPE* type = tp->int_type(IK_INT);
    const auto value = [type](int number) {
        return mktree(op::MIXVALUE, nullptr, nullptr, type, nullptr, INT65::from_signed(number));
    };
    // 5 || (6 && 7), with 5 false and 6 true, is 7.
    NODE* both = maketree(op::MIX_CONJ, value(6), value(7), type, nullptr);
    std::map<int, int> outcomes = {{5, 0}, {6, 1}};
    NODE* result =
        simp_redundant_test(maketree(op::MIX_DISJ, value(5), both, type, nullptr), outcomes, {}, nullptr);
    ASSERT_EQ(result->op, op::MIXVALUE);
    EXPECT_EQ(result->u.lval, INT65::from_signed(7));
    outcomes[7] = 1;
    EXPECT_EQ(tree_to_text(simp_redundant_test(result, outcomes, {}, nullptr)), "1");
}

// --- Depth.

TEST(SimpControl, DeepTreesOfConditionsEnd) {
    palette();
    TYPE* type = tp->int_type(IK_INT);
    constexpr int DEPTH = 100000;
    const auto make = [type](int op, NODE* left, NODE* right) {
        return maketree(op, left, right, type, nullptr);
    };
    const auto number = [type](int value) { return mk_ICON(INT65::from_signed(value), type); };
    // Conditionals whose constant arms make them logical operators in a test, sums and masks that an equality
    // takes over one by one, negations that move outwards, and ones that move inwards.
    NODE *arms = tree("i1"), *sums = tree("i1"), *outwards = tree("i2 == 0"), *inwards = tree("i1 < 3");
    for (int i = 0; i < DEPTH; i++) {
        arms = make(op::QUEST, tree("i2"), make(op::COLON, number(0), arms));
        sums = i % 2 != 0 ? make(op::PLUS, sums, number(i)) : make(op::XORB, sums, number(i | 1));
        outwards = make(op::ANDAND, tree("p == 0"), outwards);
        inwards = mk_EXCLAIM(make(op::ANDAND, inwards, tree("g_int < 7")));
    }
    for (NODE* deep : {arms, make(op::EQ, sums, number(7)), outwards, inwards})
        erase_tree(simp_for_control(simp_tree(deep, nullptr), nullptr));
}
