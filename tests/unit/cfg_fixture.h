// A function at level 2 whose flow graph is built, cleaned, and compared as text.

#ifndef TESTS_UNIT_CFG_FIXTURE_H
#define TESTS_UNIT_CFG_FIXTURE_H

#include <string>

#include "OPT5/simpcfg.h"
#include "ir_fixture.h"

class CLEANED_GRAPH : public IR_TEST {
  protected:
    void SetUp() override {
        IR_TEST::SetUp();
        before_ = file_options;
        file_options = &options_;
        all_option_sets = {file_options};
        set_level("2");
        global = symbol("global", int_type, SC_EXTDEF);
        callee = function("callee", SC_EXTERN);
        begin(function("fn"));
    }
    void TearDown() override {
        IR_TEST::TearDown();
        file_options = before_;
        all_option_sets = {file_options};
    }
    void set_level(const char* level) { options_.set(46, level); }
    void set_goal(const char* goal) { options_.set(57, goal); }

    // The graph as the statements give it, cleaned, as text.
    std::string cleaned(bool quest_is_ok = false, bool cross_jump_ok = false) {
        end_uncleaned();
        simpcfg(quest_is_ok, cross_jump_ok);
        EXPECT_TRUE(verify_function("cleaning"));
        const std::string text = graph();
        simpcfg(quest_is_ok, cross_jump_ok);
        EXPECT_EQ(graph(), text) << "cleaning a clean graph changes it";
        return text;
    }
    // if (condition) { a } else { b }; null for no statement.
    void if_else(NODE* condition, NODE* a, NODE* b) {
        const unsigned other = next_label_++, join = next_label_++;
        stmt(cbranch(condition, other));
        if (a != nullptr) stmt(a);
        if (b != nullptr) stmt(branch(join));
        label(other);
        if (b != nullptr) {
            stmt(b);
            label(join);
        }
    }
    NODE* bit_test(SYMTAB* symbol, int mask) { return tree(op::ANDB, int_type, name(symbol), icon(mask)); }
    NODE* set_bits(SYMTAB* symbol, int mask, int op = op::ORBASG) {
        return tree(op, int_type, name(symbol), icon(mask));
    }

    SYMTAB *global = nullptr, *callee = nullptr;

  private:
    option_obj options_{true};
    option_obj* before_ = nullptr;
    unsigned next_label_ = 100;
};

#endif
