// What operators become once their operands are items on the stack, and what each of them counts as.

#include <algorithm>

#include "OPT5/opcodes.h"
#include "OPT5/types.h"
#include "tools/icode-run/lowering.h"

using namespace op;

namespace run {

namespace {

bool fits_int32(std::int64_t value) { return value >= INT32_MIN && value <= INT32_MAX; }

// The member of a family of wrapping arithmetic for that width: the families list register and constant form
// for each width in turn.
opcode of_width(opcode first, const scalar& rep, bool constant) {
    unsigned width = 4;
    if (rep.bits == 16) width = rep.is_signed ? 0 : 1;
    if (rep.bits == 32) width = rep.is_signed ? 2 : 3;
    return static_cast<opcode>(first + width * 2 + (constant ? 1 : 0));
}

bool has_own_width(const scalar& rep) { return rep.bits == 16 || rep.bits == 32 || rep.bits == 64; }

int plain_operator(int op) {
    switch (op) {
        case PLUSASG: return PLUS;
        case MINUSASG: return MINUS;
        case MULTASG: return MULT;
        case ANDBASG: return ANDB;
        case ORBASG: return ORB;
        case XORBASG: return XORB;
        case DIVASG: return DIV;
        case MODASG: return MOD;
        case SLLASG: return SLL;
        default: return SRL;
    }
}

// The outcomes for which a floating comparison is true: 1 equal, 2 less, 4 greater, 8 unordered. An integer
// form over floating operands means what C means by it.
unsigned outcome_set(int op) {
    switch (op) {
        case EQ:
        case FEQ: return 1;
        case NEQ:
        case FNEQN: return 14;
        case LE:
        case ULE:
        case FLE: return 3;
        case LT:
        case ULT:
        case FLT: return 2;
        case GE:
        case UGE:
        case FGE: return 5;
        case GT:
        case UGT:
        case FGT: return 4;
        case FNEQ: return 6;
        case FEQN: return 9;
        case FLEN: return 11;
        case FLTN: return 10;
        case FGEN: return 13;
        case FGTN: return 12;
        case FORD: return 7;
        default: return 8; // FUNO
    }
}

comparison comparison_of(int op) {
    switch (op) {
        case EQ: return IS_EQ;
        case NEQ: return IS_NE;
        case LT: return IS_LTS;
        case LE: return IS_LES;
        case GT: return IS_GTS;
        case GE: return IS_GES;
        case ULT: return IS_LTU;
        case ULE: return IS_LEU;
        case UGT: return IS_GTU;
        default: return IS_GEU;
    }
}

comparison inverse(comparison c) {
    static constexpr comparison table[] = {IS_NE,  IS_EQ,  IS_GES, IS_GTS, IS_LES,
                                           IS_LTS, IS_GEU, IS_GTU, IS_LEU, IS_LTU};
    return table[c];
}

comparison swapped(comparison c) {
    static constexpr comparison table[] = {IS_EQ,  IS_NE,  IS_GTS, IS_GES, IS_LTS,
                                           IS_LES, IS_GTU, IS_GEU, IS_LTU, IS_LEU};
    return table[c];
}

} // namespace

// --- Conversions.

// A conversion counts when it changes the width, or the kind of number.
lowering::item lowering::converted(item from, const scalar& to, bool counted) {
    if (!to.has_value() || !from.rep.has_value()) {
        from.rep = to;
        return from;
    }
    const scalar was = from.rep;
    const bool to_bool = to.kind == scalar::BOOLEAN && was.kind != scalar::BOOLEAN && !from.truth;
    const bool changes = to_bool || was.is_float() != to.is_float() || was.bits != to.bits;
    if (changes && counted) {
        count(to_bool ? COMPARE_OP : CONVERT_OP);
        from.plain = false;
    }
    if (from.kind == item_kind::CONSTANT) {
        from.value = static_cast<std::int64_t>(convert(static_cast<std::uint64_t>(from.value), was, to));
        from.rep = to;
        return from;
    }
    if (contains(to, was) || (from.truth && !to.is_float())) {
        from.rep = to;
        return from;
    }
    const std::uint32_t reg = in_register(from);
    release(from);
    const std::uint32_t result = new_temp();
    if (to_bool)
        emit(was.is_float() ? FLT_TO_BOOL : INT_TO_BOOL, result, reg);
    else if (to.is_float())
        emit(INT_TO_FLT, result, reg, 0, width_word(was.bits, was.is_signed));
    else if (was.is_float())
        emit(FLT_TO_INT, result, reg, 0, width_word(to.bits, to.is_signed));
    else
        emit(NORM, result, reg, 0, width_word(to.bits, to.is_signed));
    item made = temp_item(result, to);
    made.plain = from.plain;
    return made;
}

// The type in which an operand of less than int's rank is computed. A character has int's width here and yet
// the lesser rank.
scalar lowering::promoted(const scalar& rep, TYPE* type, const item* place) const {
    const scalar& plain_int = image_.model.plain_int;
    if (rep.is_float() || rep.kind == scalar::POINTER) return rep;
    const bool character =
        type != nullptr && type->is_integer() && (type->ikind() == IK_CHAR || type->ikind() == IK_UCHAR);
    if (rep.kind == scalar::BOOLEAN || character || rep.bits < plain_int.bits) return plain_int;
    if (place != nullptr && place->is_field &&
        (place->field.bits < plain_int.bits ||
         (place->field.bits == plain_int.bits && place->field.is_signed)))
        return plain_int;
    return {scalar::INTEGER, rep.bits, rep.is_signed};
}

scalar lowering::usual(const scalar& a, const scalar& b) const {
    if (a.is_float() || b.is_float()) return {scalar::FLOATING, 32, false};
    if (a.bits != b.bits) return a.bits > b.bits ? a : b;
    return a.is_signed ? b : a;
}

// --- Places.

scalar lowering::rep_of_place(const item& place) const {
    return place.local ? scalar_of(locals_[place.local_index].symbol->type) : place.rep;
}

void lowering::note_access(const item& place, std::uint32_t value, std::uint32_t base, std::uint32_t offset,
                           bool write) {
    if (!place.is_volatile || !options_.trace) return;
    if (place.is_field)
        emit(TRACE, value, base, offset + place.field.unit, trace_word(place.field.bits, write, false));
    else
        emit(TRACE, value, base, offset,
             trace_word(place.rep.bits, write, place.rep.kind == scalar::POINTER));
}

// Loads from memory. The place keeps what it owns.
lowering::item lowering::load(item& from) {
    count(LOAD_OP);
    const scalar rep = from.rep;
    std::uint32_t offset = 0;
    if (from.is_field) {
        // Shift and mask, as code without bit-fields would have to.
        count(ARITHMETIC_OP, from.field.first_bit != 0 || from.field.is_signed ? 2 : 1);
        const std::uint32_t base = pointer_register(from, offset);
        bit_field field = from.field;
        field.unit += offset;
        const std::uint32_t result = new_temp();
        emit(LD_FIELD, result, base, static_cast<std::uint32_t>(out_->fields.size()));
        out_->fields.push_back(field);
        item made = temp_item(result, {scalar::INTEGER, field.bits, field.is_signed});
        note_access(from, result, base, offset, false);
        if (rep.kind == scalar::BOOLEAN) made.rep.kind = scalar::BOOLEAN;
        return converted(made, rep, false);
    }
    const unsigned units = (rep.bits + 15u) / 16;
    const bool inside = !from.checked && from.value >= from.begin && from.value + units <= from.end;
    const bool noted = from.is_volatile && options_.trace;
    const bool direct = inside && !noted && has_own_width(rep) && from.kind != item_kind::REGISTER &&
                        from.kind != item_kind::SUM;
    opcode family = LD_W64_A;
    if (rep.bits == 16) family = rep.is_signed ? LD_S16_A : LD_U16_A;
    if (rep.bits == 32) family = rep.is_signed ? LD_S32_A : LD_U32_A;
    if (direct) {
        const std::uint32_t result = new_temp();
        const unsigned form = from.kind == item_kind::CONSTANT ? 0 : 1;
        emit(static_cast<opcode>(family + form), result, 0, static_cast<std::uint32_t>(from.value));
        return temp_item(result, rep);
    }
    const std::uint32_t base = pointer_register(from, offset);
    const std::uint32_t result = new_temp();
    if (has_own_width(rep))
        emit(static_cast<opcode>(family + 2), result, base, offset);
    else
        emit(LD_ANY_P, result, base, offset, width_word(rep.bits, rep.is_signed));
    item made = temp_item(result, rep);
    note_access(from, result, base, offset, false);
    return made;
}

// Stores the value, which has the place's representation.
void lowering::store(item& to, item& from) {
    if (to.local) {
        if (from.plain) count(MOVE_OP);
        set_local(to.local_index, from);
        return;
    }
    const scalar rep = to.rep;
    std::uint32_t offset = 0;
    const std::uint32_t value = in_register(from);
    if (to.is_field) {
        count(LOAD_OP);
        count(ARITHMETIC_OP, to.field.first_bit != 0 ? 3 : 2);
        count(STORE_OP);
        const std::uint32_t base = pointer_register(to, offset);
        bit_field field = to.field;
        field.unit += offset;
        emit(ST_FIELD, value, base, static_cast<std::uint32_t>(out_->fields.size()));
        out_->fields.push_back(field);
        note_access(to, value, base, offset, true);
        return;
    }
    count(STORE_OP);
    const unsigned units = (rep.bits + 15u) / 16;
    const bool inside = !to.checked && to.value >= to.begin && to.value + units <= to.end;
    const bool noted = to.is_volatile && options_.trace;
    const bool direct =
        inside && !noted && has_own_width(rep) && to.kind != item_kind::REGISTER && to.kind != item_kind::SUM;
    const opcode family = rep.bits == 16 ? ST_16_A : rep.bits == 32 ? ST_32_A : ST_64_A;
    if (direct) {
        const unsigned form = to.kind == item_kind::CONSTANT ? 0 : 1;
        emit(static_cast<opcode>(family + form), value, 0, static_cast<std::uint32_t>(to.value));
        return;
    }
    const std::uint32_t base = pointer_register(to, offset);
    if (has_own_width(rep))
        emit(static_cast<opcode>(family + 2), value, base, offset);
    else
        emit(ST_ANY_P, value, base, offset, width_word(rep.bits, rep.is_signed));
    note_access(to, value, base, offset, true);
}

lowering::item lowering::read_place(item& from) {
    if (!from.local) return load(from);
    read_check(from.local_index);
    item v;
    v.kind = item_kind::REGISTER;
    v.reg = from.reg;
    v.rep = rep_of_place(from);
    v.plain = true;
    return v;
}

// Stores and leaves the place's new value when that is wanted, as a value of representation `as`.
void lowering::write_place(item& to, item& from, const scalar& as, bool wanted) {
    store(to, from);
    release(to);
    if (!wanted) {
        release(from);
        push(item{});
        return;
    }
    if (to.local) {
        release(from);
        item v;
        v.kind = item_kind::REGISTER;
        v.reg = to.reg;
        v.rep = rep_of_place(to);
        v.plain = true;
        push(converted(v, as, false));
        return;
    }
    if (to.is_field && to.rep.kind != scalar::BOOLEAN) {
        const std::uint32_t cut = new_temp();
        emit(NORM, cut, in_register(from), 0, width_word(to.field.bits, to.field.is_signed));
        release(from);
        push(converted(temp_item(cut, {scalar::INTEGER, to.field.bits, to.field.is_signed}), as, false));
        return;
    }
    push(converted(from, as, false));
}

void lowering::do_load(const tree* t) {
    item from = pop();
    if (from.rep.is_aggregate()) { // its address stands for it
        from.is_place = false;
        push(from);
        return;
    }
    if (!from.rep.has_value()) {
        release(from);
        push(item{});
        return;
    }
    const scalar as = scalar_of(t->type);
    item v = read_place(from);
    release(from.local ? item{} : from);
    push(converted(v, as, false));
}

void lowering::do_address(const tree* t) {
    item at = pop();
    if (at.is_field) bad(t, "of a bit-field");
    if (at.local) bad(t, "of a local that it does not name directly");
    item v;
    v.kind = at.kind;
    v.reg = at.reg;
    v.value = at.value;
    v.rep = scalar_of(t->type).has_value() ? scalar_of(t->type) : pointer_rep();
    v.plain = at.kind == item_kind::CONSTANT || at.kind == item_kind::FRAME;
    push(v);
}

void lowering::do_member(const tree* t) {
    item p = pop();
    const fkMDATA* member = t->right->member;
    if (t->op == STREF) {
        TYPE* pointer = t->left->type;
        p.is_place = true;
        p.checked = true;
        p.is_volatile = pointer != nullptr && (pointer->is_ptr() || pointer->is_ref()) &&
                        pointer->type_pointed_to()->is_volatile();
    }
    if (p.local) bad(t, "of something that is no structure");
    const auto first = static_cast<std::uint64_t>(member->offset);
    const auto units = static_cast<std::int64_t>(first / 16);
    if (units != 0) {
        // The members of a named object are as good as named.
        if (p.kind == item_kind::REGISTER || p.kind == item_kind::SUM) count(ADDRESS_OP);
        if (p.kind == item_kind::REGISTER) p.kind = item_kind::SUM;
        p.value += units;
    }
    p.rep = scalar_of(t->type != nullptr ? t->type : member->type);
    p.is_volatile |= (t->type != nullptr && t->type->is_volatile()) || member->type->is_volatile();
    if (member->width != 0 || first % 16 != 0) {
        const scalar declared = scalar_of(member->type);
        p.is_field = true;
        p.field.first_bit = first % 16;
        p.field.bits =
            static_cast<std::uint8_t>(std::min(member->width != 0 ? member->width : declared.bits, 64u));
        p.field.is_signed = declared.is_signed;
        if (!p.rep.has_value() || p.field.bits == 0) bad(t, "of a bit-field that is no integer");
    }
    push(p);
}

void lowering::do_indirect(const tree* t) {
    item p = pop();
    p.is_place = true;
    p.checked = true;
    p.rep = scalar_of(t->type);
    p.is_volatile = t->type != nullptr && t->type->is_volatile();
    if (t->op == UMULT && t->left->type != nullptr && t->left->type->is_ptr())
        p.is_volatile |= t->left->type->type_pointed_to()->is_volatile();
    push(p);
}

// --- Operators.

void lowering::do_unary(const tree* t) {
    item a = pop();
    const scalar rep = scalar_of(t->type);
    switch (t->op) {
        case SCONV:
        case PCONV:
        case ACONV:
            if (a.rep.is_aggregate() || rep.is_aggregate()) {
                a.rep = rep;
                push(a);
            } else if (!rep.has_value()) {
                release(a);
                push(item{});
            } else {
                push(converted(a, rep, true));
            }
            return;
        case PMCONV:
        case PVCONV: push(scaled(t, a)); return;
        case TOIEEE:
        case FRIEEE: push(converted(a, rep, false)); return;
        default: break;
    }
    if (!rep.has_value()) no_meaning(t);
    a = converted(a, rep, false);
    const std::uint32_t reg = in_register(a);
    const std::uint16_t width = width_word(rep.bits, rep.is_signed);
    count(ARITHMETIC_OP);
    release(a);
    const std::uint32_t result = new_temp();
    switch (t->op) {
        case UMINUS: emit(rep.is_float() ? FNEG : NEG, result, reg, 0, width); break;
        case NOTB: emit(NOT, result, reg, 0, width); break;
        case op::ABS: emit(rep.is_float() ? FABS : ABS_INT, result, reg, 0, width); break;
        case SQR:
            if (rep.is_float()) {
                emit(FMUL, result, reg, reg);
            } else {
                emit(of_width(MUL_S16_RR, rep, false), result, reg, reg);
                if (!has_own_width(rep)) emit(NORM, result, result, 0, width);
            }
            break;
        case SQRT:
        case RECIP:
            if (!rep.is_float()) no_meaning(t);
            emit(t->op == SQRT ? FSQRT : FRECIP, result, reg);
            break;
        default: bad(t, "is no operator of one operand");
    }
    push(temp_item(result, rep));
}

// PMCONV makes an index a distance in units, PVCONV a distance in units a number of elements. A factor of one
// costs nothing.
lowering::item lowering::scaled(const tree* t, item a) {
    const scalar rep = scalar_of(t->type).has_value() ? scalar_of(t->type) : a.rep;
    if (t->right == nullptr || t->right->op != ICON) bad(t, "without a constant factor");
    const std::int64_t bits = t->right->value;
    const std::int64_t units = bits / 16;
    if (bits <= 0 || bits % 16 != 0 || !fits_int32(units)) bad(t, "by no whole number of units");
    if (t->op == PMCONV) {
        a = converted(a, rep, false);
        if (units == 1) return a;
        if (a.kind == item_kind::CONSTANT)
            return constant_item(
                extend(static_cast<std::uint64_t>(a.value) * static_cast<std::uint64_t>(units), rep), rep);
        item factor = constant_item(static_cast<std::uint64_t>(units), rep);
        count(ADDRESS_OP);
        silent_++;
        item product = arithmetic(MULT, rep, a, factor);
        silent_--;
        return product;
    }
    // The distance is signed even where the operands' type is not.
    a = converted(a, {scalar::INTEGER, a.rep.bits, true}, false);
    if (units == 1) return converted(a, rep, false);
    count(ARITHMETIC_OP);
    const std::uint32_t reg = in_register(a);
    release(a);
    const std::uint32_t result = new_temp();
    emit(SCALE_DOWN, result, reg, static_cast<std::uint32_t>(units), width_word(rep.bits, rep.is_signed));
    return temp_item(result, rep);
}

// A pointer plus or minus a distance. A constant part is kept apart for the access that will use it.
lowering::item lowering::pointer_sum(int op, const scalar& rep, item& a, item& b) {
    if (op == PLUS && a.rep.kind != scalar::POINTER && b.rep.kind == scalar::POINTER) std::swap(a, b);
    const bool add = op == PLUS;
    item sum;
    sum.rep = rep;
    if (b.kind == item_kind::CONSTANT) {
        sum.kind = a.kind == item_kind::REGISTER ? item_kind::SUM : a.kind;
        sum.reg = a.reg;
        sum.borrowed = a.borrowed;
        sum.value = add ? a.value + b.value : a.value - b.value;
        if (a.kind == item_kind::CONSTANT)
            sum.value = static_cast<std::int64_t>(extend(static_cast<std::uint64_t>(sum.value), rep));
        count(ADDRESS_OP);
        return sum;
    }
    count(ADDRESS_OP);
    if (add && a.kind == item_kind::CONSTANT) {
        const std::uint32_t index = in_register(b);
        sum.kind = item_kind::SUM;
        sum.reg = index;
        sum.borrowed = b.borrowed;
        sum.value = a.value;
        return sum;
    }
    if (add && a.kind == item_kind::FRAME) {
        const std::uint32_t index = in_register(b);
        release(b);
        const std::uint32_t result = new_temp();
        emit(FRAME_SUM, result, index, static_cast<std::uint32_t>(a.value));
        return temp_item(result, rep);
    }
    const std::uint32_t left = in_register(a), right = in_register(b);
    release(a);
    release(b);
    const std::uint32_t result = new_temp();
    emit(of_width(add ? ADD_S16_RR : SUB_S16_RR, rep, false), result, left, right);
    if (!has_own_width(rep)) emit(NORM, result, result, 0, width_word(rep.bits, false));
    return temp_item(result, rep);
}

// Everything of two operands but shifts and comparisons. Both operands are used up.
lowering::item lowering::arithmetic(int op, const scalar& rep, item& a, item& b) {
    if (rep.kind == scalar::POINTER && (op == PLUS || op == MINUS)) return pointer_sum(op, rep, a, b);
    count(ARITHMETIC_OP);
    a = converted(a, rep, false);
    b = converted(b, rep, false);
    if (rep.is_float()) {
        const std::uint32_t left = in_register(a), right = in_register(b);
        release(a);
        release(b);
        const std::uint32_t result = new_temp();
        emit(op == PLUS ? FADD : op == MINUS ? FSUB : op == MULT ? FMUL : FDIV, result, left, right);
        return temp_item(result, rep);
    }
    if (a.kind == item_kind::CONSTANT && op != MINUS && op != DIV && op != MOD) std::swap(a, b);
    const std::uint16_t width = width_word(rep.bits, rep.is_signed);
    const bool divides = op == DIV || op == MOD;
    const bool constant = !divides && b.kind == item_kind::CONSTANT && fits_int32(b.value);
    const std::uint32_t left = in_register(a);
    const std::uint32_t right = constant ? static_cast<std::uint32_t>(b.value) : in_register(b);
    release(a);
    release(b);
    const std::uint32_t result = new_temp();
    switch (op) {
        case PLUS: emit(of_width(ADD_S16_RR, rep, constant), result, left, right); break;
        case MINUS: emit(of_width(SUB_S16_RR, rep, constant), result, left, right); break;
        case MULT: emit(of_width(MUL_S16_RR, rep, constant), result, left, right); break;
        case ANDB: emit(constant ? AND_RI : AND_RR, result, left, right); break;
        case ORB: emit(constant ? OR_RI : OR_RR, result, left, right); break;
        case XORB: emit(constant ? XOR_RI : XOR_RR, result, left, right); break;
        case DIV: emit(rep.is_signed ? DIVS : DIVU, result, left, right, width); break;
        default: emit(rep.is_signed ? MODS : MODU, result, left, right, width); break;
    }
    if (!has_own_width(rep) && (op == PLUS || op == MINUS || op == MULT))
        emit(NORM, result, result, 0, width);
    return temp_item(result, rep);
}

lowering::item lowering::shift(int op, const scalar& rep, item& a, item& b) {
    count(ARITHMETIC_OP);
    a = converted(a, rep, false);
    const bool constant = b.kind == item_kind::CONSTANT && b.value >= 0 && b.value < rep.bits;
    const std::uint32_t left = in_register(a);
    const std::uint32_t right = constant ? static_cast<std::uint32_t>(b.value) : in_register(b);
    if (!constant) emit(SHIFT_CHECK, 0, right, 0, rep.bits);
    release(a);
    release(b);
    const std::uint32_t result = new_temp();
    if (op == SLL) {
        emit(of_width(SHL_S16_RR, rep, constant), result, left, right);
        if (!has_own_width(rep)) emit(NORM, result, result, 0, width_word(rep.bits, rep.is_signed));
    } else if (rep.is_signed) {
        emit(constant ? SHRS_RI : SHRS_RR, result, left, right);
    } else {
        emit(constant ? SHRU_RI : SHRU_RR, result, left, right);
    }
    return temp_item(result, rep);
}

void lowering::do_binary(const tree* t) {
    item b = pop();
    item a = pop();
    const scalar rep = scalar_of(t->type);
    if (!rep.has_value()) no_meaning(t);
    if (is_comparison(t->op)) {
        count(COMPARE_OP);
        const compared c = compare_in_registers(t, a, b);
        const std::uint32_t result = new_temp();
        if (c.floating)
            emit(FCOMPARE, result, c.left, c.right, static_cast<std::uint16_t>(c.set));
        else
            emit(static_cast<opcode>(SET_EQ_RR + c.how * 2 + (c.constant ? 1 : 0)), result, c.left, c.right);
        item made = temp_item(result, rep);
        made.truth = true;
        push(made);
        return;
    }
    if (rep.is_float() && t->op != PLUS && t->op != MINUS && t->op != MULT && t->op != DIV) no_meaning(t);
    if (t->op == SLL || t->op == SRL) {
        push(shift(t->op, rep, a, b));
        return;
    }
    push(arithmetic(t->op, rep, a, b));
}

void lowering::do_boolean(const tree* t) {
    item v = pop();
    count(COMPARE_OP);
    const scalar rep = scalar_of(t->type);
    const bool floating = v.rep.is_float();
    const std::uint32_t reg = in_register(v);
    release(v);
    const std::uint32_t result = new_temp();
    if (floating) {
        emit(FLT_TO_BOOL, result, reg);
        emit(XOR_RI, result, result, 1);
    } else {
        emit(SET_EQ_RI, result, reg, 0);
    }
    item made = temp_item(result, rep);
    made.truth = true;
    push(made);
}

bool lowering::compare_operands(const tree* t, item& a, item& b, comparison& how, unsigned& set) {
    how = comparison_of(t->op);
    set = outcome_set(t->op);
    const scalar flt{scalar::FLOATING, 32, false};
    if (a.rep.is_float() || b.rep.is_float() || t->op >= FEQ) {
        a = converted(a, flt, false);
        b = converted(b, flt, false);
        return true;
    }
    // Whatever the operands' types say of the sign, the operator has the last word. Sign-extended images are
    // in the order of the unsigned values that they would be, so those need no care.
    const std::uint8_t bits = std::max(a.rep.bits, b.rep.bits);
    const bool ordered = how >= IS_LTS && how <= IS_GES;
    const scalar common{scalar::INTEGER, bits, ordered || (how <= IS_NE && a.rep.is_signed)};
    if (ordered || !a.rep.same_image(b.rep)) {
        a = converted(a, common, false);
        b = converted(b, common, false);
    }
    if (a.kind == item_kind::CONSTANT && b.kind != item_kind::CONSTANT) {
        std::swap(a, b);
        how = swapped(how);
    }
    if (b.kind == item_kind::CONSTANT && !fits_int32(b.value)) in_register(b);
    return false;
}

lowering::compared lowering::compare_in_registers(const tree* t, item& a, item& b) {
    compared c{};
    c.floating = compare_operands(t, a, b, c.how, c.set);
    c.left = in_register(a);
    c.constant = !c.floating && b.kind == item_kind::CONSTANT;
    c.right = c.constant ? static_cast<std::uint32_t>(b.value) : in_register(b);
    release(a);
    release(b);
    return c;
}

void lowering::do_test_compare(const tree* t, std::uint32_t label, bool flag) {
    item b = pop();
    item a = pop();
    count(COMPARE_OP);
    count(BRANCH_OP);
    const compared c = compare_in_registers(t, a, b);
    if (c.floating) {
        emit(FJUMP, c.left, c.right, label, static_cast<std::uint16_t>(flag ? c.set : c.set ^ 15u));
    } else {
        const comparison how = flag ? c.how : inverse(c.how);
        emit(static_cast<opcode>(BR_EQ_RR + how * 2 + (c.constant ? 1 : 0)), c.left, c.right, label);
    }
    close_segment();
}

void lowering::do_test(std::uint32_t label, bool flag) {
    item v = pop();
    count(BRANCH_OP);
    if (v.kind == item_kind::CONSTANT && !v.rep.is_float()) {
        if ((v.value != 0) == flag) emit(JUMP, 0, 0, label);
    } else {
        if (v.rep.is_float()) v = converted(v, {scalar::BOOLEAN, 16, false}, false);
        const std::uint32_t reg = in_register(v);
        emit(flag ? JUMP_NONZERO : JUMP_ZERO, reg, 0, label);
    }
    release(v);
    close_segment();
}

void lowering::do_promise() {
    item v = pop();
    if (v.rep.is_float()) v = converted(v, {scalar::BOOLEAN, 16, false}, false);
    emit(ASSERT_TRUE, in_register(v));
    release(v);
    silent_--;
    push(item{});
}

// --- Assignments.

void lowering::do_assign(const tree* t, bool wanted) {
    item to = pop();
    item from = pop();
    const scalar as = scalar_of(t->type).has_value() ? scalar_of(t->type) : to.rep;
    if (!to.rep.has_value()) bad(t, "to something without a value");
    from = converted(from, rep_of_place(to), true);
    write_place(to, from, as, wanted);
}

void lowering::do_compound(const tree* t, bool wanted) {
    item to = pop();
    item by = pop();
    const int op = plain_operator(t->op);
    const scalar rep = rep_of_place(to);
    if (!rep.has_value() || !by.rep.has_value()) bad(t, "on something without a value");
    const scalar as = scalar_of(t->type).has_value() ? scalar_of(t->type) : rep;
    item old = read_place(to);
    item result;
    if (rep.kind == scalar::POINTER && (op == PLUS || op == MINUS)) {
        result = arithmetic(op, rep, old, by);
    } else {
        const scalar left = promoted(rep, t->left->type, &to);
        if (op == SLL || op == SRL) {
            old = converted(old, left, true);
            result = shift(op, left, old, by);
        } else {
            const scalar in = usual(left, promoted(by.rep, t->right->type, nullptr));
            if (in.is_float() && op != PLUS && op != MINUS && op != MULT && op != DIV)
                bad(t, "on floating values");
            old = converted(old, in, true);
            by = converted(by, in, true);
            result = arithmetic(op, in, old, by);
        }
        result = converted(result, rep, true);
    }
    write_place(to, result, as, wanted);
}

void lowering::do_step(const tree* t, bool wanted) {
    item to = pop();
    item by = pop();
    const scalar rep = rep_of_place(to);
    if (!rep.has_value()) bad(t, "on something without a value");
    const scalar as = scalar_of(t->type).has_value() ? scalar_of(t->type) : rep;
    item old = read_place(to);
    if (wanted && to.local) {
        settle_item(old);
        old.plain = false;
        count(MOVE_OP);
    }
    item operand = old;
    operand.borrowed = wanted;
    const scalar in = rep.kind == scalar::BOOLEAN ? image_.model.plain_int : rep;
    operand = converted(operand, in, false);
    if (in.kind != scalar::POINTER) by = converted(by, in, false);
    item result = arithmetic(t->op == PLUSPLUS ? PLUS : MINUS, in, operand, by);
    result = converted(result, rep, false);
    store(to, result);
    release(result);
    release(to);
    push(wanted ? converted(old, as, false) : item{});
}

// --- Structures and memory.

// Notes the volatile scalars of a structure that is copied, in ascending order.
void lowering::note_leaves(std::uint32_t base, TYPE* type, bool outer_volatile, bool write) {
    if (!options_.trace || type == nullptr) return;
    struct part {
        TYPE* type;
        std::uint64_t bit;
        bool is_volatile;
        unsigned width; // of a bit-field, else 0
    };
    std::vector<part> stack{{type, 0, outer_volatile, 0}};
    std::uint32_t notes = 0;
    while (!stack.empty() && notes <= image_.mem.mask()) {
        part p = stack.back();
        stack.pop_back();
        p.is_volatile |= p.type->is_volatile();
        TYPE* plain = p.type->true_type();
        if (plain->is_array()) {
            TYPE* element = plain->elem_type();
            if (!p.is_volatile && !element->is_csu() && !element->is_array()) continue;
            const std::uint64_t count = std::min<std::uint64_t>(plain->array().count, image_.mem.mask());
            for (std::uint64_t i = count; i-- > 0;)
                stack.push_back({element, p.bit + i * element->size(), p.is_volatile, 0});
        } else if (plain->is_csu() && !plain->is_union()) {
            const auto& members = plain->csu().members;
            for (auto m = members.rbegin(); m != members.rend(); ++m)
                stack.push_back({(*m)->type, p.bit + static_cast<std::uint64_t>((*m)->offset), p.is_volatile,
                                 (*m)->width});
        } else if (p.is_volatile) {
            const scalar rep = scalar_of(plain);
            const auto unit = static_cast<std::uint32_t>(p.bit / 16);
            notes++;
            if (rep.has_value() && p.width == 0) {
                emit(TRACE_MEM, 0, base, unit, trace_word(rep.bits, write, rep.kind == scalar::POINTER));
            } else { // bit-fields and unions: the units they are in
                const std::uint64_t bits = p.width != 0 ? p.width : plain->size();
                for (std::uint64_t u = 0; u * 16 < p.bit % 16 + bits; u++)
                    emit(TRACE_MEM, 0, base, unit + static_cast<std::uint32_t>(u),
                         trace_word(16, write, false));
            }
        }
    }
}

void lowering::do_copy(const tree* t, bool wanted) {
    item to = pop();
    item from = pop();
    TYPE* type = t->left->type;
    if (type == nullptr || !to.rep.is_aggregate() || !from.rep.is_aggregate())
        bad(t, "of something that is no structure");
    std::uint32_t units = units_of(type);
    if (t->right->type != nullptr) units = std::min(units, units_of(t->right->type));
    count(LOAD_OP, units);
    count(STORE_OP, units);
    const std::uint32_t source = in_register(from), target = in_register(to);
    note_leaves(source, t->right->type, from.is_volatile, false);
    emit(COPY, target, source, units);
    note_leaves(target, type, to.is_volatile, true);
    release(from);
    if (wanted) {
        to.is_place = false;
        push(to);
    } else {
        release(to);
        push(item{});
    }
}

void lowering::do_memcpy(const tree*) {
    item units = pop();
    item from = pop();
    item to = pop();
    const std::uint32_t target = in_register(to), source = in_register(from);
    if (units.kind == item_kind::CONSTANT) {
        const auto n = static_cast<std::uint32_t>(std::clamp<std::int64_t>(units.value, 0, UINT32_MAX));
        count(LOAD_OP, n);
        count(STORE_OP, n);
        emit(COPY, target, source, n);
    } else {
        emit(COPY_REG, target, source, in_register(units));
    }
    release(units);
    release(from);
    push(to);
}

} // namespace run
