#include "tests/simp/palette.h"

#include <string>

#include "OPT5/debug.h"
#include "OPT5/fileopt.h"
#include "OPT5/files.h"
#include "OPT5/node.h"
#include "OPT5/option_obj.h"
#include "OPT5/read.h"
#include "OPT5/symbol.h"
#include "OPT5/target_bif.h"
#include "OPT5/types.h"

namespace prove {

namespace {

// What the driver sets up ahead of a function, as far as trees need it.
void start_optimizer() {
    if (tp != nullptr) return;
    tp = new TYPE_PKG;
    tp->init_type_pkg();
    file_options = new option_obj(true);
    all_option_sets = {file_options};
    reset_global_flags();
    strict_fp = 1; // floating results must be the same to the last bit
    init_opcode_tables();
    init_symbols();
    init_proc_integration();
    init_fileopts();
}

TYPE* function_type(TYPE* result, unsigned parameters) {
    FUNC_BODY body;
    body.return_type = result;
    for (unsigned i = 0; i < parameters; i++) body.params.push_back({tp->int_type(IK_INT), 0, ""});
    return tp->mk_func(body);
}

SYMTAB* make_symbol(const char* name, TYPE* type, int sclass, int level) {
    SYMBOL_RECORD record;
    record.name = name;
    record.type = type;
    record.size = type->is_func() ? 0 : static_cast<unsigned>(type->size());
    record.sclass = sclass;
    record.align = type->is_func() ? 16 : type->align();
    record.level = level;
    return static_cast<SYMTAB*>(opt_client.cl_symbol_create(record));
}

// struct { int a:3; unsigned b:5; unsigned c:1; int d; long e; unsigned long f:20; unsigned long g:12;
//          unsigned h; int i:16; int j:12 }
TYPE* make_record() {
    struct ROW {
        const char* name;
        IKIND kind;
        int offset;
        unsigned width; // 0: no bit-field
    };
    static constexpr ROW rows[] = {{"a", IK_INT, 0, 3},     {"b", IK_UINT, 3, 5},  {"c", IK_UINT, 8, 1},
                                   {"d", IK_INT, 16, 0},    {"e", IK_LONG, 32, 0}, {"f", IK_ULONG, 64, 20},
                                   {"g", IK_ULONG, 84, 12}, {"h", IK_UINT, 96, 0}, {"i", IK_INT, 112, 16},
                                   {"j", IK_INT, 128, 12}};
    TYPE* record = tp->mk_struct("S", {160, 32});
    for (const ROW& row : rows) {
        fkMDATA member;
        member.name = row.name;
        member.type = tp->int_type(row.kind);
        member.offset = row.offset;
        member.width = row.width;
        member.bit_field = row.width != 0;
        tp->add_member(record, member);
    }
    record->set_is_complete(true);
    tp->type_frozen(record);
    return record;
}

} // namespace

SYMTAB* PALETTE::add(const char* name, TYPE* type, bool global) {
    SYMTAB* symbol = make_symbol(name, type, global ? SC_EXTDEF : SC_AUTO, global ? 0 : 2);
    layout.add(symbol);
    return symbol;
}

PALETTE::PALETTE(bool with_intrinsics) {
    start_optimizer();
    if (with_intrinsics) init_BIF_descriptors();
    static const PSN here{"prove.c", 1, 1};
    const auto bit = [this] {
        const std::uint64_t now = next_bit_;
        next_bit_ <<= 1;
        return now;
    };
    TYPE* int_type = tp->int_type(IK_INT);
    TYPE* long_type = tp->int_type(IK_LONG);
    TYPE* float_type = tp->flt_type(FK_FLOAT);

    // Ahead of the function: what is global.
    for (unsigned i = 0; i < 3; i++) {
        TYPE* type = function_type(i == 1 ? long_type : int_type, i);
        calls.push_back(make_symbol(std::string("call").append(1, static_cast<char>('0' + i)).c_str(), type,
                                    SC_EXTERN, 0));
        layout.add(calls.back());
    }
    for (const auto& [name, kind] : {std::pair{"g_int", IK_INT}, {"g_uint", IK_UINT}, {"g_long", IK_LONG}})
        scalars.push_back({add(name, tp->int_type(kind), true), bit()});
    global_bits = next_bit_ - 1;
    for (const auto& [name, kind] : {std::pair{"v_int", IK_INT}, {"v_ulong", IK_ULONG}})
        volatiles.push_back({add(name, tp->mk_qual(tp->int_type(kind), QUAL_VOLATILE), true), 0});
    outside_bit = bit();

    SYMTAB* function = make_symbol("prove", function_type(int_type, 0), SC_EXTDEF, 0);
    opt_client.cl_begin_func(function, &here);
    opt_client.cl_end_args(&here);
    static constexpr const char* names[] = {"b", "c", "uc", "w", "s", "us", "i", "u", "l", "ul", "ll", "ull"};
    for (int kind : INTEGER_KINDS)
        for (int k = 1; k <= 2; k++)
            scalars.push_back({add((names[kind] + std::to_string(k)).c_str(),
                                   tp->int_type(static_cast<IKIND>(kind)), false),
                               bit()});
    for (const char* name : {"b1", "b2"}) scalars.push_back({add(name, tp->int_type(IK_BOOL), false), bit()});
    for (const char* name : {"f1", "f2"}) scalars.push_back({add(name, float_type, false), bit()});

    // The target of int pointers is in `array` or `target`, that of the others in one object each.
    int_target_bits = bit();
    array = add("array", tp->mk_array(int_type, 8), false);
    target = add("target", int_type, false);
    long_target_bits = bit();
    long_array = add("long_array", tp->mk_array(long_type, 4), false);
    record_bits = bit();
    record_type = make_record();
    record = add("record", record_type, false);
    other_record = add("other_record", record_type, false);
    int_pointer_type = tp->mk_ptr(int_type);
    long_pointer_type = tp->mk_ptr(long_type);
    pointer_bit = bit();
    pointer = add("p", int_pointer_type, false);
    other_pointer = add("q", int_pointer_type, false);
    long_pointer = add("lp", long_pointer_type, false);
    record_pointer = add("rp", tp->mk_ptr(record_type), false);
    opt_client.cl_end_locals(&here);
}

} // namespace prove
