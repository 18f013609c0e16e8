// The type package: interning, qualifiers, normal forms, conversions, merging, the end of types.

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "OPT5/types.h"
#include "tests/unit/file_fixture.h"

namespace {

class Types : public ::testing::Test {
  protected:
    Types() { tp.init_type_pkg(); }

    TYPE_PKG tp;

    TYPE* i() { return tp.int_type(IK_INT); }
    TYPE* structure(const char* name, TYPE* member = nullptr, const char* member_name = "m") {
        TYPE* s = tp.mk_struct(name, {16, 16});
        if (member != nullptr) add(s, member, member_name);
        return done(s);
    }
    void add(TYPE* s, TYPE* type, const char* name = "m") {
        fkMDATA member;
        member.name = name;
        member.type = type;
        tp.add_member(s, member);
    }
    TYPE* done(TYPE* s, bool complete = true) {
        tp.open_csu(s)->is_complete = complete;
        tp.type_frozen(s);
        return s;
    }
    TYPE* func(TYPE* result, std::vector<TYPE*> params, const char* name = "") {
        FUNC_BODY body;
        body.return_type = result;
        for (TYPE* type : params) body.params.push_back({type, 0, name});
        return tp.mk_func(body);
    }
    // Merges every type in order of number, as a reader does behind its type section.
    void merge_all() {
        const std::vector<TYPE*> all = tp.all_types();
        for (TYPE* type : all)
            if (type != nullptr) tp.find_equivalent_type(type);
    }
};

TEST_F(Types, EqualRequestsGiveOneObject) {
    TYPE* s = structure("S");
    const std::string name = "parameter"; // the same text in another place is the same name
    const std::string same = "parameter";
    EXPECT_EQ(tp.mk_ptr(i()), tp.mk_ptr(i()));
    EXPECT_EQ(tp.mk_qual(s, QUAL_CONST), tp.mk_qual(s, QUAL_CONST));
    EXPECT_EQ(tp.mk_array(s, 4), tp.mk_array(s, 4));
    EXPECT_EQ(tp.mk_ptm(i(), s), tp.mk_ptm(i(), s));
    EXPECT_EQ(tp.mk_complex(i()), tp.mk_complex(i()));
    EXPECT_EQ(func(i(), {s}, name.c_str()), func(i(), {s}, same.c_str()));
    EXPECT_EQ(tp.mk_typedef("T", i(), false, false, {16, 16}),
              tp.mk_typedef("T", i(), false, false, {16, 16}));

    EXPECT_NE(tp.mk_ptr(i()), tp.mk_ptr(i(), {32, 32}));
    EXPECT_NE(tp.mk_array(i(), 4), tp.mk_vector(i(), 4));
    EXPECT_NE(tp.mk_ptr(i()), tp.mk_ref(i()));
    EXPECT_NE(tp.mk_int(IK_CHAR, true), tp.mk_int(IK_CHAR, false));
    EXPECT_NE(func(i(), {s}), func(i(), {tp.mk_ptr(s)}));
    EXPECT_NE(structure("S"), structure("S")) << "tagged types are one only by merging";
    const PSN here{nullptr, 1, 1}, there{nullptr, 2, 1};
    EXPECT_NE(tp.mk_typedef("T", i(), false, false, {16, 16, &here}),
              tp.mk_typedef("T", i(), false, false, {16, 16, &there}));
}

TEST_F(Types, QualifiersCollectInOneType) {
    TYPE* c = tp.mk_qual(i(), QUAL_CONST);
    TYPE* cv = tp.mk_qual(c, QUAL_VOLATILE);
    EXPECT_EQ(cv, tp.mk_qual(i(), QUAL_CONST | QUAL_VOLATILE));
    EXPECT_EQ(tp.mk_qual(cv, QUAL_CONST), cv);
    EXPECT_EQ(tp.remove_known_qual(cv, QUAL_CONST), tp.mk_qual(i(), QUAL_VOLATILE));
    EXPECT_EQ(tp.remove_known_qual(c, QUAL_CONST | QUAL_RESTRICT), i());

    // A qualifier behind a typedef counts, and is not repeated in front of it.
    TYPE* t = tp.mk_typedef("T", c, false, false, {16, 16});
    EXPECT_EQ(t->qual_kind(), unsigned{QUAL_CONST});
    EXPECT_EQ(tp.mk_qual(t, QUAL_CONST), t);
    EXPECT_EQ(tp.mk_qual(t, QUAL_CONST | QUAL_VOLATILE)->own_qual(), unsigned{QUAL_VOLATILE});
    EXPECT_EQ(tp.remove_known_qual(t, QUAL_CONST), i());

    // An array of a const element counts as const only where arrays are looked through.
    TYPE* array = tp.mk_array(tp.mk_array(t, 2), 3);
    EXPECT_FALSE(array->is_qualified());
    EXPECT_TRUE(array->is_const());
    EXPECT_FALSE(tp.mk_ptr(c)->is_const());
    EXPECT_EQ(tp.mk_qual(array, QUAL_VOLATILE)->qual_kind(true), unsigned{QUAL_CONST | QUAL_VOLATILE});
}

TEST_F(Types, TrueTypeLooksThroughNamesAndQualifiers) {
    TYPE* p = tp.mk_ptr(i());
    TYPE* t = tp.mk_typedef("T", tp.mk_qual(p, QUAL_CONST), false, false, {16, 16});
    EXPECT_EQ(t->true_type(), p);
    EXPECT_EQ(t->kind(), TYPE::TYPEDEF_KIND);
    EXPECT_EQ(t->ekind(), EK_PTR);
    EXPECT_EQ(tp.mk_qual(t, QUAL_VOLATILE)->type_pointed_to(), i());
    EXPECT_EQ(t->stds(), tp.mk_qual(p, QUAL_CONST));
}

// `const struct S*` may stand inside `struct S`, where the size of S is not known yet.
TEST_F(Types, NamesAndQualifiedFormsFollowAnOpenStructure) {
    TYPE* s = tp.mk_struct("S", {0, 16});
    TYPE* c = tp.mk_qual(s, QUAL_CONST);
    TYPE* t = tp.mk_typedef("T", c, false, false, {s->size(), s->align()});
    add(s, tp.mk_ptr(t));
    tp.set_layout(s, {64, 32});
    done(s);
    EXPECT_EQ(c->size(), 64u);
    EXPECT_EQ(c->align(), 32u);
    EXPECT_EQ(t->size(), 64u);
    EXPECT_EQ(tp.mk_qual(s, QUAL_CONST), c) << "the one const S before and after";
    EXPECT_EQ(tp.mk_typedef("T", c, false, false, {64, 32}), t);
}

TEST_F(Types, NormalFormsDropNamesAndKeepQualifiers) {
    TYPE* s = structure("S");
    TYPE* word = tp.mk_typedef("word", i(), false, false, {16, 16});
    TYPE* cword = tp.mk_qual(word, QUAL_CONST);
    EXPECT_EQ(word->normalized(), i());
    EXPECT_EQ(cword->normalized(), tp.mk_qual(i(), QUAL_CONST));
    EXPECT_EQ(tp.mk_int(IK_CHAR, true)->normalized(), tp.int_type(IK_CHAR));
    EXPECT_EQ(tp.mk_ptr(tp.mk_array(cword, 3))->normalized(),
              tp.mk_ptr(tp.mk_array(tp.mk_qual(i(), QUAL_CONST), 3)));
    EXPECT_EQ(tp.mk_vector(word, 4)->normalized(), tp.mk_vector(i(), 4));
    EXPECT_EQ(func(word, {cword}, "a")->normalized(), func(i(), {tp.mk_qual(i(), QUAL_CONST)}));
    EXPECT_EQ(tp.mk_typedef("T", s, false, false, {16, 16})->normalized(), s);
    // const around a typedef of volatile int is one qualified int.
    TYPE* v = tp.mk_typedef("V", tp.mk_qual(i(), QUAL_VOLATILE), false, false, {16, 16});
    EXPECT_EQ(tp.mk_qual(v, QUAL_CONST)->normalized(), tp.mk_qual(i(), QUAL_CONST | QUAL_VOLATILE));
    EXPECT_EQ(tp.mk_int(IK_INT, false, false, {32, 32})->normalized()->size(), 32u);
}

// On this target char, short and int have one size, so unsigned short promotes to unsigned int.
TEST_F(Types, PromotionsAndConversionsFollowTheSizes) {
    const auto type = [this](int kind) { return tp.basic(kind); };
    const int promoted[12] = {IK_INT, IK_INT,  IK_INT,  IK_UINT,  IK_INT,   IK_UINT,
                              IK_INT, IK_UINT, IK_LONG, IK_ULONG, IK_LLONG, IK_ULLONG};
    for (int kind = 0; kind < IK_COUNT; kind++)
        EXPECT_EQ(tp.c_integral_promotions(type(kind)), type(promoted[kind])) << kind;
    TYPE* e = tp.mk_enum("E", type(IK_SHORT), 0, {16, 16});
    tp.type_frozen(e);
    EXPECT_EQ(tp.c_integral_promotions(tp.mk_qual(e, QUAL_CONST)), i());

    const int conversions[][3] = {{IK_INT, IK_UINT, IK_UINT},
                                  {IK_UINT, IK_LONG, IK_LONG},
                                  {IK_LONG, IK_ULONG, IK_ULONG},
                                  {IK_ULONG, IK_LLONG, IK_LLONG},
                                  {IK_CHAR, IK_USHORT, IK_UINT},
                                  {IK_BOOL, IK_BOOL, IK_INT},
                                  {IK_LLONG, 12, 12},
                                  {12, 14, 14},
                                  {IK_LLONG, IK_ULLONG, IK_ULLONG}};
    for (const auto& [a, b, expected] : conversions) {
        EXPECT_EQ(tp.c_usual_arith_conv(type(a), type(b)), type(expected)) << a << " " << b;
        EXPECT_EQ(tp.c_usual_arith_conv(type(b), type(a)), type(expected)) << b << " " << a;
    }
    TYPE* cf = tp.mk_complex(type(12));
    EXPECT_EQ(tp.c_usual_arith_conv(cf, type(13)), tp.mk_complex(type(13)));
    EXPECT_EQ(tp.c_usual_arith_conv(i(), cf), cf);
    TYPE* fixed = tp.mk_fxtpt(i(), 15, true, {16, 16});
    EXPECT_EQ(tp.c_usual_arith_conv(i(), fixed), fixed);
    EXPECT_EQ(tp.c_usual_arith_conv(fixed, type(12)), type(12));

    faults_throw guard;
    TYPE* open = tp.begin_func(i(), false, true, 0, false);
    EXPECT_THROW(tp.c_integral_promotions(open), file_fault);
    EXPECT_THROW(tp.c_usual_arith_conv(i(), open), file_fault);
}

TEST_F(Types, CompatibilityFollowsTheLanguage) {
    TYPE* s = structure("S");
    TYPE* c = tp.mk_qual(i(), QUAL_CONST);
    TYPE* e = tp.mk_enum("E", i(), 0, {16, 16});
    tp.type_frozen(e);
    EXPECT_TRUE(tp.compatible_types(c, i(), true));
    EXPECT_FALSE(tp.compatible_types(c, i(), false));
    EXPECT_FALSE(tp.compatible_types(tp.mk_ptr(c), tp.mk_ptr(i()), true)) << "inside, qualifiers count";
    EXPECT_TRUE(tp.compatible_types(tp.mk_ptr(e), tp.mk_ptr(i()), false));
    EXPECT_TRUE(tp.compatible_types(tp.mk_array(i(), 3), tp.mk_array(i(), 0, false, false, {0, 16}), false));
    EXPECT_FALSE(tp.compatible_types(tp.mk_array(i(), 3), tp.mk_array(i(), 4), false));
    EXPECT_TRUE(tp.compatible_types(func(i(), {c}, "a"), func(i(), {i()}, "b"), false));
    EXPECT_FALSE(tp.compatible_types(func(i(), {i()}), func(i(), {}), false));
    EXPECT_FALSE(tp.compatible_types(s, structure("S"), false));
    EXPECT_FALSE(tp.compatible_types(i(), tp.int_type(IK_UINT), true));
}

TEST_F(Types, TheSizeOfAnObjectIsBounded) {
    EXPECT_EQ(tp.mk_array(i(), 0xfffffff)->size(), 0xfffffff0u);
    EXPECT_EQ(tp.error_code(), TP_NO_ERROR);
    TYPE* large = tp.mk_array(i(), 0x10000000);
    EXPECT_EQ(tp.error_code(), TP_SIZE_NOT_SUPPORTED);
    EXPECT_STREQ(tp.error_text(),
                 "Object size 268435456 bytes is greater than maximum supported size 268435455 bytes");
    // The product of dimensions does not come round to a small number again.
    TYPE* huge = tp.mk_array(tp.mk_array(large, 0x80000000u), 0x80000000u);
    EXPECT_GE(huge->size(), large->size());
}

TEST_F(Types, FrozenTypesAreNotChanged) {
    faults_throw guard;
    TYPE* s = structure("S", i());
    EXPECT_THROW(tp.add_member(s, *s->member(1)), file_fault);
    EXPECT_THROW(tp.set_layout(s, {32, 16}), file_fault);
    EXPECT_THROW(s->set_is_complete(false), file_fault);
    EXPECT_THROW(i()->elem_type(), file_fault);
    EXPECT_EQ(s->member(0), nullptr);
    EXPECT_EQ(s->member(2), nullptr);
}

TEST_F(Types, ArraysTakeAnotherElement) {
    TYPE* c = tp.mk_qual(i(), QUAL_CONST);
    TYPE* two = tp.mk_array(tp.mk_array(c, 3), 2);
    EXPECT_EQ(tp.replace_array_elem(two, i()), tp.mk_array(tp.mk_array(i(), 3), 2));
    EXPECT_EQ(tp.replace_array_elem(two, tp.int_type(IK_LONG))->size(), 6u * 32);
    faults_throw guard;
    EXPECT_THROW(tp.replace_array_elem(i(), c), file_fault);
}

TEST_F(Types, TextReadsAsADeclaration) {
    TYPE* c = tp.mk_qual(i(), QUAL_CONST);
    EXPECT_EQ(tp.mk_ptr(c)->printstr(), "const int *");
    EXPECT_EQ(tp.mk_qual(tp.mk_ptr(i()), QUAL_CONST)->printstr(), "int *const");
    EXPECT_EQ(tp.mk_ptr(func(i(), {tp.mk_ptr(i())}))->printstr(), "int (*)(int *)");
    EXPECT_EQ(tp.mk_ptr(tp.mk_array(i(), 3))->printstr(), "int (*)[3]");
    EXPECT_EQ(tp.mk_array(tp.mk_ptr(i()), 3)->printstr(), "int *[3]");
    EXPECT_EQ(tp.mk_qual(tp.mk_complex(i()), QUAL_CONST)->printstr(), "const complex int");
    EXPECT_EQ(tp.mk_qual(tp.mk_fxtpt(i(), 4, true, {16, 16}), QUAL_VOLATILE)->printstr(),
              "volatile fixed<int,4>");
    // A file may qualify what is qualified, and an array as a whole.
    EXPECT_EQ(tp.mk_qual(c, QUAL_VOLATILE, {16, 16})->printstr(), "const volatile int");
    EXPECT_EQ(tp.mk_qual(tp.mk_array(i(), 3), QUAL_CONST)->printstr(), "const int [3]");
}

// --- Merging.

TEST_F(Types, EqualStructuresOfTwoUnitsBecomeOne) {
    TYPE* first = structure("S", tp.mk_ptr(i()));
    tp.set_translation_unit(1);
    TYPE* second = structure("S", tp.mk_ptr(i()));
    TYPE* pointer = tp.mk_ptr(tp.mk_qual(second, QUAL_CONST));
    TYPE* function = func(i(), {tp.mk_ptr(second)});
    TYPE* of_first = tp.mk_ptr(tp.mk_qual(first, QUAL_CONST));
    TYPE* function_of_first = func(i(), {tp.mk_ptr(first)});
    merge_all();
    EXPECT_EQ(second->equiv_end(), first);
    EXPECT_EQ(first->equiv_end(), first);
    EXPECT_EQ(of_first->equiv_end(), pointer->equiv_end()) << "what is derived from them follows";
    EXPECT_EQ(function_of_first->equiv_end(), function->equiv_end());
    EXPECT_TRUE(tp.compatible_types(tp.mk_ptr(first), tp.mk_ptr(second), false));
}

TEST_F(Types, DifferentStructuresStayApart) {
    TYPE* base = structure("S", i());
    const std::vector<TYPE*> others = {structure("S", tp.int_type(IK_UINT)), structure("S", i(), "other"),
                                       structure("S", tp.mk_qual(i(), QUAL_VOLATILE)), structure("R", i()),
                                       structure("S")};
    TYPE* unnamed = structure("", i());
    TYPE* unnamed_too = structure("", i());
    TYPE* as_union = tp.mk_union("S", {16, 16});
    add(as_union, i());
    done(as_union);
    TYPE* late = structure("S", i(), "other"); // equals one that is not the first of its tag
    merge_all();
    for (TYPE* type : others) EXPECT_EQ(type->equiv_end(), type);
    EXPECT_EQ(base->equiv_end(), base);
    EXPECT_EQ(as_union->equiv_end(), as_union);
    EXPECT_NE(unnamed->equiv_end(), unnamed_too->equiv_end()) << "types without a tag are never one";
    EXPECT_EQ(late->equiv_end(), others[1]);
}

TEST_F(Types, StructuresThatReferToEachOtherMerge) {
    // struct A { struct B* b; }; struct B { struct A* a; }; in two units, B of `last` member type.
    const auto unit = [this](TYPE* last) {
        TYPE* a = tp.mk_struct("A", {16, 16});
        TYPE* b = tp.mk_struct("B", {16, 16});
        add(a, tp.mk_ptr(b));
        add(b, tp.mk_ptr(a));
        add(b, last);
        return std::pair{done(a), done(b)};
    };
    const auto [a1, b1] = unit(i());
    const auto [a2, b2] = unit(i());
    const auto [a3, b3] = unit(tp.int_type(IK_LONG));
    merge_all();
    EXPECT_EQ(a2->equiv_end(), a1);
    EXPECT_EQ(b2->equiv_end(), b1);
    EXPECT_EQ(tp.mk_ptr(a2)->equiv_end(), tp.mk_ptr(a1));
    EXPECT_EQ(a3->equiv_end(), a3) << "the difference is one step away";
    EXPECT_EQ(b3->equiv_end(), b3);
}

// A unit that only declares a tag means the structure that another unit defines.
TEST_F(Types, ADeclaredTagMergesWithItsDefinition) {
    TYPE* declared = done(tp.mk_struct("S", {0, 16}), false);
    TYPE* pointer = tp.mk_ptr(declared);
    TYPE* defined = structure("S", i());
    EXPECT_TRUE(tp.compatible_types(pointer, tp.mk_ptr(defined), false)) << "whichever definition it means";
    EXPECT_FALSE(tp.compatible_types(pointer, tp.mk_ptr(structure("T", i())), false));
    merge_all();
    EXPECT_EQ(declared->equiv_end(), defined);
    EXPECT_EQ(defined->equiv_end(), defined);
    EXPECT_TRUE(tp.compatible_types(pointer, tp.mk_ptr(defined), false));
}

// Two structures that hold one that is only declared: were it made one with the second, that would hold
// itself.
TEST_F(Types, AStructureIsNotMergedIntoItself) {
    TYPE* declared = done(tp.mk_struct("S", {0, 16}), false);
    TYPE* outer = structure("S", tp.mk_array(declared, 2));
    TYPE* other = structure("S", i());
    merge_all();
    EXPECT_EQ(declared->equiv_end(), declared);
    EXPECT_EQ(outer->equiv_end(), outer);
    EXPECT_EQ(other->equiv_end(), other);
}

// Types without a tag are one where they stand in the same place of types that are one, and only there.
TEST_F(Types, UnnamedTypesFollowTheirPlace) {
    TYPE* unnamed[4];
    TYPE* pointers[4];
    for (int n = 0; n < 4; n++) {
        unnamed[n] = structure("", i());
        pointers[n] = tp.mk_ptr(unnamed[n]);
    }
    TYPE* first = structure("S", pointers[0]);
    TYPE* second = structure("S", pointers[1]);
    structure("R", pointers[2]);
    merge_all();
    EXPECT_EQ(second->equiv_end(), first);
    EXPECT_EQ(unnamed[1]->equiv_end(), unnamed[0]);
    EXPECT_EQ(pointers[1]->equiv_end(), pointers[0]);
    for (const int n : {2, 3}) {
        EXPECT_EQ(unnamed[n]->equiv_end(), unnamed[n]);
        EXPECT_EQ(pointers[n]->equiv_end(), pointers[n]);
    }
}

// A type that the writer counts on is not linked away; types that come later merge with what stands.
TEST_F(Types, MergingGoesOnWithLaterTypes) {
    TYPE* first = structure("S", tp.mk_ptr(i()));
    TYPE* kept = structure("S", tp.mk_ptr(i()));
    kept->set_referenced();
    merge_all();
    EXPECT_EQ(kept->equiv_end(), kept);
    TYPE* open = tp.mk_struct("S", {16, 16});
    EXPECT_FALSE(tp.equiv_mtypes(open, first));
    add(open, tp.mk_ptr(i()));
    done(open);
    EXPECT_TRUE(tp.equiv_mtypes(open, first));
    merge_all();
    EXPECT_EQ(open->equiv_end(), first);
}

TEST_F(Types, MergingOfLongListsOfStructuresTakesLinearTime) {
    // Two units with a list of structures, each of which points at the next; the last ones are equal in one
    // pair of units and differ in the other.
    constexpr int COUNT = 20'000;
    std::vector<std::string> names;
    for (int n = 0; n < COUNT; n++) names.push_back("S" + std::to_string(n));
    const auto unit = [&](TYPE* last) {
        TYPE* next = last;
        for (int n = COUNT - 1; n >= 0; n--)
            next = structure(names[static_cast<std::size_t>(n)].c_str(), tp.mk_ptr(next));
        return next;
    };
    // The heads come first, as the reader meets them in files: the worst order for a comparison.
    TYPE* head = unit(i());
    TYPE* same = unit(i());
    TYPE* different = unit(tp.int_type(IK_LONG));
    const std::vector<TYPE*> all = tp.all_types();
    for (auto type = all.rbegin(); type != all.rend(); ++type)
        if (*type != nullptr) tp.find_equivalent_type(*type);
    EXPECT_EQ(head->equiv_end(), same->equiv_end());
    EXPECT_NE(head->equiv_end(), different->equiv_end());
}

TEST_F(Types, MangledNamesAreReadInLinearTime) {
    bool is_cpp = false;
    EXPECT_EQ(tp.demangle_type_name("3abc", &is_cpp), "abc");
    EXPECT_TRUE(is_cpp);
    EXPECT_EQ(tp.demangle_type_name("N1a2bcE", &is_cpp), "a::bc");
    EXPECT_TRUE(is_cpp);
    for (const char* plain : {"abc", "4abc", "3abcd", "N1a", "NE", "0", "", "99999999999999999999a"}) {
        EXPECT_EQ(tp.demangle_type_name(plain, &is_cpp), plain);
        EXPECT_FALSE(is_cpp) << plain;
    }
    std::string segments = "N";
    for (int n = 0; n < 1'000'000; n++) segments += "1a";
    EXPECT_EQ(tp.demangle_type_name((segments + "E").c_str()).size(), 3'000'000u - 2);
}

// --- The end of types.

TEST_F(Types, DeletedTypesLeaveNothingBehind) {
    TYPE* s = structure("S");
    TYPE* p = tp.mk_ptr(s);
    tp.mk_ptr(p);
    func(i(), {p});
    structure("R", tp.mk_array(s, 2));
    const unsigned number = s->uid();
    tp.delete_type_tree(s, true, true);
    EXPECT_EQ(tp.find_named_type("S"), nullptr);
    EXPECT_EQ(tp.find_named_type("R"), nullptr) << "a structure goes with what it holds";
    EXPECT_EQ(tp.find_type_by_number(number), nullptr);
    // Nothing that is made or looked for now meets what is gone.
    structure("S");
    TYPE* q = structure("Q");
    func(i(), {tp.mk_ptr(q)});
    tp.delete_type_tree(q, false, true);
    EXPECT_NE(tp.mk_ptr(q), nullptr);
    for (TYPE* type : tp.all_types())
        if (type != nullptr) type->printstr();

    tp.delete_type_tree(tp.root_type(), true, false);
    EXPECT_EQ(tp.root_type(), nullptr);
    for (TYPE* type : tp.all_types()) EXPECT_EQ(type, nullptr);
}

} // namespace
