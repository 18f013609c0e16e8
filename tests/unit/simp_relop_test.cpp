// Comparisons, logical operators and conditionals: the canonical forms, and that every form means what the
// source said. Each row is simplified, compared with the text, simplified again (which must change nothing),
// and run before and after on many values; the sweeps do the same for every operator over many constants.

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

const PALETTE& palette() {
    static const PALETTE the_palette;
    static const bool done = (init_BIF_descriptors(), true);
    static_cast<void>(done);
    return the_palette;
}

NODE* tree(const std::string& text) { return tree_of(palette(), text); }

struct ROW {
    const char* source;
    const char* expected;
};

const SUBJECT& subject(const char* name) {
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
void check_control(const std::vector<ROW>& rows) { check_rows("simp_for_control", rows); }

} // namespace

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
    sweep("simp_tree", pairs(forms_of("i1"), ORDERINGS, CONSTANTS), 64, 9);
}

TEST(SimpRelop, UnsignedFormsAgainstConstants) {
    sweep("simp_tree", pairs(forms_of("u1"), ORDERINGS, CONSTANTS), 64, 9);
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
                                          "(long)i1 + 3l"};
    sweep("simp_tree", pairs(few, ORDERINGS, few), 64, 0);
}

TEST(SimpControl, FormsInConditions) {
    for (const char* name : {"i1", "u1", "l1", "ul1", "ll1", "c1", "b1", "record.b"}) {
        const bool small = std::string("i1u1c1b1").find(name) != std::string::npos;
        sweep("simp_for_control", forms_of(name), 64, small ? 1 : 0);
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
    sweep("simp_for_control", texts, 16, 0);
}

// --- Comparisons.

TEST(SimpRelop, ConstantsStandRightAndLimitsDecide) {
    check_values({
        {"5 < i1", "i1 > 5"},
        {"5u <= u1", "u1 >= 5"},
        {"3 == i1", "i1 == 3"},
        {"&target == p", "p == &target"},
        {"i1 < -32768l", "i1 < -32768"}, // TODO
        {"u1 >= 0u", "1"},
        {"u1 < 0u", "0"},
        {"u1 > 65535u", "0"},
        {"u1 < 1u", "u1 == 0"},
        {"u1 >= 65535u", "u1 == 65535"},
        {"u1 <= 65534u", "u1 != 65535"},
        {"i1 < -32767", "i1 == -32768"},
        {"i1 <= 32766", "i1 != 32767"},
        {"i1 == i1", "1"},
        {"i1 + i2 > i1 + i2", "0"},
        {"f1 == f1", "f1 == f1"}, // a NaN differs from itself
        {"2.0f < f1", "f1 > 2"},
    });
}
