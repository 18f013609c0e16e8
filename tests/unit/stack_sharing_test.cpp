// Frame space of disjoint blocks, on random blocks in blocks.

#include <map>
#include <random>

#include "OPT5/opt_expr.h"
#include "OPT5/stack_sharing.h"
#include "ir_fixture.h"

using namespace op;

namespace {

class SHARED_STACK : public IR_TEST {
  protected:
    struct VARIABLE {
        SYMTAB* symbol;
        std::vector<int> path; // the blocks that it is in, from the outside in
    };

    void open(int level) {
        opt_client.cl_begin_block(at(1));
        path_.push_back(++blocks_);
        level_ = level;
    }
    void close() {
        opt_client.cl_end_block(at(1));
        path_.pop_back();
        level_--;
    }
    // An array whose address goes somewhere.
    void array(unsigned count, TYPE* element) {
        TYPE* type = tp->mk_array(element, count);
        SYMTAB* array = symbol(("v" + std::to_string(variables_.size())).c_str(), type, SC_AUTO, level_);
        array->align = static_cast<std::int32_t>(type->align());
        NODE* address = tree(UAND, tp->mk_ptr(element), name(array));
        NODE* callee = tree(UAND, tp->mk_ptr(use_->otype), name(use_));
        NODE* call = tree(CALL, int_type, callee, address);
        call->mk_call(1, 0);
        stmt(call);
        variables_.push_back({array, path_});
    }
    // The offsets in bits of the variables that have moved, by name.
    std::map<std::string, std::int64_t> moved() {
        std::map<std::string, std::int64_t> result;
        for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
            for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next) {
                if (cell->first->op != CALL) continue;
                const NODE* place = cell->first->right->left;
                if (place->op == NAME) continue;
                result[place->right->mdata->name] =
                    place->right->mdata->offset + place->left->right->mdata->offset;
            }
        return result;
    }
    static bool live_together(const VARIABLE& a, const VARIABLE& b) {
        for (std::size_t i = 0; i < a.path.size() && i < b.path.size(); i++)
            if (a.path[i] != b.path[i]) return false;
        return true;
    }
    void begin_function(int number) {
        begin(function(("fn" + std::to_string(number)).c_str()));
        variables_.clear();
        path_.clear();
        level_ = 2;
    }
    void SetUp() override {
        IR_TEST::SetUp();
        use_ = function("use", SC_EXTERN);
    }

    SYMTAB* use_ = nullptr;
    std::vector<VARIABLE> variables_;
    std::vector<int> path_;
    int blocks_ = 0, level_ = 2;
};

} // namespace

TEST_F(SHARED_STACK, WhatLivesTogetherStaysApart) {
    std::mt19937 random(5);
    int shared = 0;
    for (int round = 0; round < 500 && !HasFailure(); round++) {
        begin_function(round);
        for (unsigned i = 4 + random() % 20; i > 0; i--) {
            const unsigned kind = random() % 5;
            if (kind < 2) {
                open(level_ + 1);
            } else if (kind == 2 && level_ > 2) {
                close();
            } else {
                array(random() % 40 + 1, random() % 3 == 0 ? tp->int_type(IK_LONG) : int_type);
            }
        }
        while (level_ > 2) close();
        end_uncleaned();
        build_stack_sharing_type();
        verify_function("stack sharing");
        const auto offsets = moved();
        std::int64_t sum = 0, end = 0;
        for (const VARIABLE& a : variables_) {
            if (offsets.count(a.symbol->name) == 0) continue;
            const std::int64_t from = offsets.at(a.symbol->name), size = a.symbol->size;
            EXPECT_EQ(from % a.symbol->align, 0);
            sum += size;
            end = std::max(end, from + size);
            for (const VARIABLE& b : variables_) {
                if (&a == &b || offsets.count(b.symbol->name) == 0 || !live_together(a, b)) continue;
                const std::int64_t other = offsets.at(b.symbol->name);
                EXPECT_TRUE(other >= from + size || other + b.symbol->size <= from) << graph();
            }
        }
        if (offsets.empty()) {
            EXPECT_EQ(currfuninfo->temps, nullptr);
        } else {
            shared++;
            EXPECT_GE(sum - end, 16 * 16);
            EXPECT_GE(currfuninfo->temps->size, end);
        }
        erase_current();
    }
    EXPECT_GT(shared, 100);
}

TEST_F(SHARED_STACK, AVariableThatIsTakenBackStays) {
    begin_function(0);
    for (int i = 0; i < 3; i++) {
        open(3);
        array(30, int_type);
        close();
    }
    end_uncleaned();
    delete_stack_sharing_variable(variables_[1].symbol);
    build_stack_sharing_type();
    EXPECT_EQ(moved().count("v1"), 0u);
    EXPECT_EQ(moved().size(), 2u);
    EXPECT_EQ(currfuninfo->temps->size, 30u * 16);
}
