// Intrinsics: calls of them in what is read, their types, and folding against the runner's own arithmetic.

#include <cstdint>
#include <string>
#include <vector>

#include "OPT5/pragma.h"
#include "OPT5/target_bif.h"
#include "ir_fixture.h"
#include "tools/icode-run/library.h"
#include "tools/icode-run/scalar.h"

using namespace op;

namespace {

const char* const NAMES[] = {
#define BIF(name, use, rule, operands, result) name,
#include "OPT5/target_bif.def"
#undef BIF
};

class BIF_TEST : public IR_TEST {
  protected:
    void SetUp() override {
        IR_TEST::SetUp();
        init_BIF_descriptors();
        long_type = tp->int_type(IK_LONG);
        unsigned_type = tp->int_type(IK_UINT);
        llong_type = tp->int_type(IK_LLONG);
        begin(function("f"));
        w = local("w", long_type);
        u = local("u", unsigned_type);
    }
    SYMTAB* external(const char* name, TYPE* result = nullptr) {
        return symbol(name, function_type(result != nullptr ? result : int_type), SC_EXTERN);
    }
    NODE* call_of(SYMTAB* callee, std::vector<NODE*> arguments) {
        if (arguments.empty()) return tree(UCALL, callee->type->return_type(), address(callee));
        NODE* node = tree(op::CALL, callee->type->return_type(), address(callee), list(arguments));
        node->mk_call(7, 0);
        return node;
    }
    NODE* list(const std::vector<NODE*>& arguments) {
        NODE* made = arguments[0];
        for (std::size_t i = 1; i < arguments.size(); i++) made = comma(made, arguments[i]);
        return made;
    }
    NODE* intrinsic(const char* name, const std::vector<NODE*>& arguments, TYPE* type) {
        return mk_ICALL(name, list(arguments), type);
    }
    static std::string fixed(NODE* tree) { return tree_to_text(fix_BIF_types(tree)); }
    static std::string folded(NODE* tree) { return tree_to_text(fold_BIF(tree)); }
    NODE* constant(std::int64_t value, TYPE* type) { return mk_ICON(INT65::from_signed(value), type); }

    TYPE *long_type, *unsigned_type, *llong_type;
    SYMTAB *w, *u;
};

} // namespace

// --- Calls.

TEST_F(BIF_TEST, ReadingTurnsCallsIntoIntrinsicsWithTheirTypes) {
    SYMTAB* ssub = external("_ssub");
    SYMTAB* mpy = external("__mpy", long_type); // behind the prefix of externals
    SYMTAB* never = external("_never_executed", void_type);
    stmt(asg(x, call_of(ssub, {name(w), tree(ACONV, int_type, name(u))})));
    stmt(asg(x, tree(PLUS, int_type, call_of(ssub, {call_of(mpy, {name(f), icon(3, long_type)}), name(x)}),
                     name(y))));
    stmt(asg(x, tree(SCONV, int_type, call_of(mpy, {inc(y), icon(2)}))));
    stmt(call_of(never, {}));
    end_uncleaned();
    EXPECT_EQ(graph(), "1: x = _ssub((int)w, (int)u); "
                       "x = _ssub((int)_mpy((int)f, 3), x) + y; "
                       "x = (int)_mpy(y = y + 1, 2); "
                       "_never_executed(); goto BB2 -> 2\n2: return ->\n");
    const LIST* cell = currfuninfo->bb_list->statements;
    const NODE* first = cell->first->right;
    EXPECT_EQ(first->op, ICALL);
    EXPECT_EQ(first->left->right->op, SCONV);
    const NODE* product = cell->next->first->right->left->left->left->left;
    EXPECT_TRUE(is_ICALL_callee(product, "_mpy"));
    EXPECT_EQ(product->left->right->type, int_type); // the constant is converted in place
    EXPECT_EQ(cell->next->next->next->first->op, UMCALL);
}

TEST_F(BIF_TEST, ResultIsConvertedToTheTypeOfTheCall) {
    SYMTAB* undeclared = external("_mpy"); // returns int, as far as the program knows
    SYMTAB* widened = external("_ssub", tp->flt_type(FK_FLOAT));
    EXPECT_EQ(fixed(call_of(undeclared, {name(x), name(y)})), "(int)_mpy(x, y)");
    EXPECT_EQ(fixed(call_of(widened, {name(x), name(y)})), "(float)_ssub(x, y)");
    // Intrinsic calls of the file have the same conversions, and those that fit stay as they are.
    EXPECT_EQ(fixed(intrinsic("LMIN", {name(x), name(w)}, int_type)), "(int)LMIN((long)x, w)");
    EXPECT_EQ(fixed(intrinsic("quest$colon", {name(f), name(w), name(w)}, long_type)),
              "quest$colon(f, w, w)");
}

TEST_F(BIF_TEST, CallOfAnotherFunctionStays) {
    // Each differs from an intrinsic's call in one thing.
    EXPECT_EQ(fixed(call_of(function("_sadd"), {name(w), name(w)})), "_sadd(w, w)");
    EXPECT_EQ(fixed(call_of(function("_mpyu", SC_STATIC), {name(w), name(w)})), "_mpyu(w, w)");
    EXPECT_EQ(fixed(call_of(external("MIN"), {name(w), name(w)})), "MIN(w, w)");
    EXPECT_EQ(fixed(call_of(external("ssub"), {name(w), name(w)})), "ssub(w, w)");
    SYMTAB* ssub = external("_ssub");
    EXPECT_EQ(fixed(call_of(ssub, {name(w)})), "_ssub(w)");
    EXPECT_EQ(fixed(call_of(ssub, {name(w), name(w), name(w)})), "_ssub(w, w, w)");
    EXPECT_EQ(fixed(call_of(ssub, {address(x), name(w)})), "_ssub(&x, w)");
    SYMTAB* other = external("_ssub2");
    pragma(other, PRAG_FUNC_IS_NONCONFORMING);
    EXPECT_EQ(fixed(call_of(other, {name(w), name(w)})), "_ssub2(w, w)");
    SYMTAB* variable = local("_mpy", tp->mk_ptr(function_type(int_type, {int_type, int_type})));
    NODE* indirect = tree(op::CALL, int_type, name(variable), list({name(w), name(w)}));
    EXPECT_EQ(fix_BIF_types(indirect), indirect);
}

TEST_F(BIF_TEST, CallThroughADeclarationOfADefinedFunctionStays) {
    SYMTAB* declared = external("_sshl");
    function("_sshl");
    stmt(asg(x, call_of(declared, {name(w), name(u)})));
    end_uncleaned();
    EXPECT_EQ(graph(), "1: x = _sshl(w, u); goto BB2 -> 2\n2: return ->\n");
}

TEST_F(BIF_TEST, NestedCallsTakeLinearTimeAndNoStack) {
    SYMTAB* sadd = external("_sadd", long_type);
    NODE* sum = name(w);
    constexpr int DEPTH = 100000;
    for (int i = 0; i < DEPTH; i++) sum = call_of(sadd, {sum, icon(i & 7)});
    sum = fix_BIF_types(sum);
    int calls = 0;
    for (const NODE* node = sum; node->left != nullptr; node = node->left) {
        if (node->op != ICALL) continue;
        EXPECT_EQ(node->type, int_type);
        calls++;
    }
    EXPECT_EQ(calls, DEPTH);
}

// --- Folding.

namespace {

// The ends of every width and their neighbours.
std::vector<std::int64_t> boundaries() {
    std::vector<std::int64_t> values = {0, 1, 2, 3, 31, 32, 33, 12345, 0x12345678, 0x123456789abcdef0};
    for (int bits : {15, 16, 31, 32, 63}) {
        const auto end = static_cast<std::int64_t>(std::uint64_t{1} << bits);
        for (std::uint64_t i = 0; i < 3; i++)
            values.push_back(static_cast<std::int64_t>(static_cast<std::uint64_t>(end) - 1 + i));
    }
    const std::size_t positive = values.size();
    for (std::size_t i = 0; i < positive; i++)
        values.push_back(static_cast<std::int64_t>(0 - static_cast<std::uint64_t>(values[i])));
    return values;
}

} // namespace

TEST_F(BIF_TEST, FoldingAgreesWithTheRunner) {
    const std::vector<std::int64_t> values = boundaries();
    TYPE* bool_type = tp->int_type(IK_BOOL);
    long compared = 0;
    for (const char* name : NAMES) {
        const BIF_DESCRIPTOR* descriptor = find_target_BIF_descriptor(name);
        if (descriptor->has_effects && !descriptor->is_function) continue; // a part of the flow of control
        const run::intrinsic* runs = run::find_intrinsic(name);
        ASSERT_NE(runs, nullptr) << name;
        EXPECT_EQ(runs->arguments, static_cast<unsigned>(descriptor->operands)) << name;
        EXPECT_EQ(runs->is_function, descriptor->is_function) << name;
        EXPECT_EQ(run::find_intrinsic_function(name) != nullptr, find_BIF_descriptor(name) != nullptr)
            << name;
        if (descriptor->rule == BIF_UNKNOWN || descriptor->operands == 3 ||
            !descriptor->result_type->is_integral())
            continue;
        // Operands of their own types and of a wider one, and results of their own type, a narrow one and a
        // truth.
        for (const std::int64_t a : values) {
            for (const std::int64_t b : values) {
                const bool wide = ((a ^ b) & 1) != 0;
                TYPE* result = compared % 5 == 0   ? bool_type
                               : compared % 5 == 1 ? int_type
                                                   : descriptor->result_type;
                std::vector<NODE*> operands;
                std::uint64_t images[2] = {};
                run::argument_info infos[2];
                for (int i = 0; i < descriptor->operands; i++) {
                    TYPE* type = wide ? llong_type : descriptor->operand_type[i];
                    operands.push_back(constant(i == 0 ? a : b, type));
                    images[i] = operands.back()->u.lval.bits();
                    infos[i].rep = run::scalar_of(type);
                }
                const NODE* got = fold_BIF(intrinsic(name, operands, result));
                ASSERT_EQ(got->op, ICON) << name << " " << a << " " << b;
                EXPECT_EQ(got->type, result);
                const std::uint64_t want = runs->run(images, infos, run::scalar_of(result));
                ASSERT_EQ(got->u.lval.bits(), want) << name << " " << a << " " << b;
                compared++;
            }
        }
    }
    EXPECT_GT(compared, 60000);
}

TEST_F(BIF_TEST, MinimumAndMaximumOfOneValueOrWithALimitFold) {
    TYPE* ullong = tp->int_type(IK_ULLONG);
    EXPECT_EQ(folded(intrinsic("MIN", {name(x), name(x)}, int_type)), "x");
    EXPECT_EQ(folded(intrinsic("LMAX", {name(w), name(w)}, int_type)), "(int)w");
    EXPECT_EQ(folded(intrinsic("FMIN", {name(f), name(f)}, float_type)), "f");
    EXPECT_EQ(folded(intrinsic("MIN", {icon(32767), name(x)}, int_type)), "x");
    EXPECT_EQ(folded(intrinsic("MAX", {name(x), icon(-32768)}, int_type)), "x");
    EXPECT_EQ(folded(intrinsic("MINU", {name(u), icon(0)}, unsigned_type)), "0");
    EXPECT_EQ(folded(intrinsic("MAXU", {name(u), icon(-1)}, unsigned_type)), "65535");
    EXPECT_EQ(folded(intrinsic("LLMINU", {name(w), constant(-1, ullong)}, ullong)), "(unsigned long long)w");
    // The next value is no limit, and a limit of another type is none.
    EXPECT_EQ(folded(intrinsic("MIN", {name(x), icon(32766)}, int_type)), "MIN(x, 32766)");
    EXPECT_EQ(folded(intrinsic("LMIN", {name(w), icon(32767)}, long_type)), "LMIN(w, 32767)");
    EXPECT_EQ(folded(intrinsic("MIN", {name(x), name(y)}, int_type)), "MIN(x, y)");
    // Effects stay, and a volatile object is read as often as before.
    EXPECT_EQ(folded(intrinsic("MINU", {inc(x), icon(0)}, unsigned_type)), "MINU(x = x + 1, 0)");
    SYMTAB* v = local("v", tp->mk_qual(int_type, QUAL_VOLATILE));
    EXPECT_EQ(folded(intrinsic("MIN", {name(v), name(v)}, int_type)), "MIN(v, v)");
}

TEST_F(BIF_TEST, StrictConditionalTakesItsArmUnlessTheOtherHasEffects) {
    EXPECT_EQ(folded(intrinsic("quest$colon", {icon(0), name(x), name(y)}, int_type)), "y");
    EXPECT_EQ(folded(intrinsic("quest$colon", {icon(-5), name(x), name(y)}, long_type)), "(long)x");
    EXPECT_EQ(folded(intrinsic("quest$colon", {icon(1), name(x), inc(y)}, int_type)),
              "quest$colon(1, x, y = y + 1)");
    EXPECT_EQ(folded(intrinsic("quest$colon", {icon(1), inc(x), name(y)}, int_type)), "x = x + 1");
    EXPECT_EQ(folded(intrinsic("quest$colon", {name(x), name(y), name(y)}, int_type)),
              "quest$colon(x, y, y)");
}

TEST_F(BIF_TEST, WhatIsNoConstantOrNoKnownIntrinsicStays) {
    EXPECT_EQ(folded(intrinsic("_ssub", {name(x), icon(0)}, int_type)), "_ssub(x, 0)");
    EXPECT_EQ(folded(intrinsic("_unheard_of", {icon(1), icon(2)}, int_type)), "_unheard_of(1, 2)");
    EXPECT_EQ(folded(intrinsic("_ssub", {icon(1)}, int_type)), "_ssub(1)");
    EXPECT_EQ(folded(intrinsic("_ssub", {icon(1), icon(2), icon(3)}, int_type)), "_ssub(1, 2, 3)");
    EXPECT_EQ(folded(intrinsic("def$assert", {icon(1), icon(1)}, int_type)), "def$assert(1, 1)");
}
