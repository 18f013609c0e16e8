// The payload operations of NODE: what the file layer calls to fill a node it has just made, and to write
// one.

#include "node.h"

#include <cstddef>

#include "bblk.h"
#include "fileopt.h"
#include "files.h"
#include "fpsmath.h"
#include "optypes.h"
#include "pool.h"
#include "symbol.h"
#include "types.h"

void* NODE::operator new(std::size_t size) { return current_pool().allocate_cell(size); }

void NODE::operator delete(void* node, std::size_t size) { POOL::recycle(node, size); }

// The memory comes zeroed: only what is not zero is set.
NODE::NODE(int op_number, TYPE* node_type)
    : op(op_number), type(node_type), left(nullptr), right(nullptr), u{}, mdata(nullptr), scratch{},
      ls(nullptr), scratch2{}, otype(node_type), edge_profile(NO_PROFILE), freq(UNKNOWN_FREQ), ddep(nullptr),
      ddnode_number(0), label(nullptr), text(nullptr), text_length(0), flags(0), u2{}, scratch3(0), stamp(0) {
}

bool NODE::fits_in_icon() const {
    if (type != nullptr && (type->is_signed() || type->is_ptr()))
        return u.lval.bits() == INT65::from_signed(static_cast<std::int32_t>(u.lval.low)).bits();
    return u.lval.high == 0;
}

unsigned NODE::icon_uvalue() {
    // In a file an address is a number without sign.
    return type != nullptr && type->is_ptr() ? (u.lval & type_mask(type)).low : u.lval.low;
}

I_SYMTAB* NODE::name_sym() { return symbol(); }

unsigned NODE::label_id() { return label != nullptr ? static_cast<unsigned>(label->number) : u.lval.low; }

const char* NODE::lcon_value() {
    // The sign word follows the type, whatever wrapped the value before.
    static std::string decimal; // valid until the next call
    decimal = int2text(truncate_to_type(u.lval, type));
    return decimal.c_str();
}

const char* NODE::fcon_value() {
    if (text == nullptr) {
        simul_fval rounded = *fval();
        truncate_fval_to_target(&rounded, type);
        text = current_pool().copy_text(f_print_hex(&rounded));
    }
    return text;
}

void NODE::mk_name(I_SYMTAB* symbol) {
    if (symbol == nullptr) abort_optimizer("a name without a symbol");
    auto* sym = static_cast<SYMTAB*>(symbol);
    u.rval = sym;
    otype = sym->otype;
    ls = sym->scope;
    if ((sym->cqual & 0x10) != 0 && currfuninfo != nullptr) currfuninfo->names_register_symbol = true;
}

void NODE::mk_field(int kind, fkMDATA* member, TYPE* csu) {
    if (kind != 1 || member == nullptr || csu == nullptr) abort_optimizer("a field that is no data member");
    u.rval = csu;
    mdata = member;
    if (type != nullptr) type = type->normalized();
    if (member->bit_field && currfuninfo != nullptr) currfuninfo->fields_seen++;
}

void NODE::mk_icon(int value) {
    u.lval = type != nullptr && type->is_signed() ? INT65::from_signed(value)
                                                  : INT65::from_unsigned(static_cast<std::uint32_t>(value));
    if (type != nullptr) u.lval = truncate_to_type(u.lval, type);
}

void NODE::mk_lcon(const char* decimal) {
    u.lval = truncate_to_type(text2int(decimal), type);
    op = op::ICON;
}

void NODE::mk_fcon(const char* value) {
    auto* number = static_cast<simul_fval*>(current_pool().allocate(sizeof(simul_fval)));
    f_atof(value, number); // text that is no number reads as zero
    truncate_fval_to_target(number, type);
    u.rval = number;
    text = nullptr;
}

void NODE::mk_scon(const char* bytes, unsigned length) {
    text = current_pool().copy_text({bytes, length});
    text_length = length;
}

void NODE::mk_label(unsigned number) { u.lval = INT65::from_unsigned(number); }

void NODE::mk_skip(int bits) { u.lval = INT65::from_signed(bits); }

void NODE::mk_case_count(int count) { u.lval = INT65::from_signed(count); }

void NODE::mk_call(unsigned id, unsigned eht_index) {
    u.lval = INT65::from_unsigned(id);
    mk_ucall(eht_index);
}

void NODE::mk_ucall(unsigned eht_index) {
    u2.i_eht_id = eht_index;
    if (currfuninfo != nullptr) currfuninfo->has_no_calls = false;
}

void NODE::mk_icall(const char* name) { u.rval = const_cast<char*>(intern_text(name)); }
