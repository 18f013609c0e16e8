// Trees to programs. A stack of things to do takes the place of recursion; what is pushed last is done first.

#include <algorithm>
#include <cmath>
#include <cstring>

#include "OPT5/fpsmath.h"
#include "OPT5/node.h"
#include "OPT5/opcodes.h"
#include "OPT5/symbol.h"
#include "OPT5/types.h"
#include "tests/simp/tree_eval.h"
#include "tests/simp/tree_program.h"

using namespace op;

namespace prove {

namespace {

// The single that the constant holds, rounded to nearest even from its 96 bits.
std::uint64_t image_of_constant(const simul_fval& value) {
    const std::uint64_t sign = value.sign != 0 ? 0x80000000u : 0;
    if (value.mant[0] == 0) return sign | (value.exp == 32767 ? 0x7f800000u : 0);
    if (value.exp == 32767) return sign | 0x7fc00000u;
    // 64 bits of the fraction with the rest as a sticky bit: the x87 format holds them, and rounds once.
    std::uint64_t top = 0;
    for (int i = 0; i < 4; i++) top = top << 16 | value.mant[i];
    if ((value.mant[4] | value.mant[5]) != 0) top |= 1;
    static_assert(sizeof(long double) > 8, "a fraction of 64 bits is needed");
    return sign | image_of(static_cast<float>(std::ldexp(static_cast<long double>(top), value.exp - 64)));
}

// The outcomes of a floating comparison for which it is true: 1 equal, 2 less, 4 greater, 8 unordered.
unsigned outcomes_of(int op) {
    switch (op) {
        case FEQ: return 1;
        case FNEQ: return 2 | 4;
        case FLE: return 1 | 2;
        case FLT: return 2;
        case FGE: return 1 | 4;
        case FGT: return 4;
        case FEQN: return 8 | 1;
        case FNEQN: return 8 | 2 | 4;
        case FLEN: return 8 | 1 | 2;
        case FLTN: return 8 | 2;
        case FGEN: return 8 | 1 | 4;
        case FGTN: return 8 | 4;
        case FORD: return 1 | 2 | 4;
        default: return 8; // FUNO
    }
}

int plain_operator(int op) {
    switch (op) {
        case PLUSASG:
        case PLUSPLUS: return PLUS;
        case MINUSASG:
        case MINMIN: return MINUS;
        case MULTASG: return MULT;
        case ANDBASG: return ANDB;
        case ORBASG: return ORB;
        case XORBASG: return XORB;
        case DIVASG: return DIV;
        case MODASG: return MOD;
        case SLLASG: return SLL;
        case SRLASG: return SRL;
        default: return 0;
    }
}

const INTRINSIC_ROW* find_intrinsic(const char* name) {
    for (const INTRINSIC_ROW& row : INTRINSICS)
        if (std::strcmp(name, row.name) == 0) return &row;
    return nullptr;
}

} // namespace

class TRANSLATOR {
  public:
    TRANSLATOR(PROGRAM& program, const LAYOUT& layout) : p_(program), layout_(layout) {}
    std::string run(NODE* tree);

  private:
    using INSTRUCTION = PROGRAM::INSTRUCTION;
    struct TASK {
        enum WHAT : std::uint8_t { VALUE, ADDRESS, EMIT } what;
        NODE* node;
        INSTRUCTION instruction;
    };
    void value(NODE* node) { tasks_.push_back({TASK::VALUE, node, {}}); }
    void address(NODE* node) { tasks_.push_back({TASK::ADDRESS, node, {}}); }
    void emit(const INSTRUCTION& i) { tasks_.push_back({TASK::EMIT, nullptr, i}); }
    void emit(PROGRAM::CODE code, std::uint64_t v = 0) {
        emit({.code = code, .rep = {}, .from = {}, .value = v});
    }
    void test(NODE* condition, PROGRAM::CODE code, std::uint64_t label = 0) {
        emit({.code = code, .rep = {}, .from = rep_of(condition->type), .value = label});
    }
    std::uint64_t label() { return labels_++; }
    void fail(const NODE* node, const char* why) {
        if (error_.empty())
            error_ = std::string(opname(node->op) != nullptr ? opname(node->op) : "?") + " " + why;
    }
    void do_value(NODE* node);
    void do_address(NODE* node);
    void do_choice(NODE* node, NODE* condition, NODE* first, NODE* second, bool convert_arms);
    void do_logical(NODE* node);
    void do_binary(NODE* node);
    void do_assignment(NODE* node);
    void do_compound(NODE* node);
    void do_intrinsic(NODE* node);
    void do_call(NODE* node);
    std::uint32_t place_of(NODE* node);
    REP in_which(const REP& left, NODE* place, NODE* by) const;
    static REP promoted(const REP& rep, TYPE* type);
    static std::vector<NODE*> list_of(NODE* list);
    void resolve();

    PROGRAM& p_;
    const LAYOUT& layout_;
    std::vector<TASK> tasks_;
    std::uint64_t labels_ = 0;
    std::string error_;
};

std::string TRANSLATOR::run(NODE* tree) {
    p_.code_.clear();
    p_.places_.clear();
    p_.callees_.clear();
    p_.layout_ = &layout_;
    p_.result_ = rep_of(tree->type);
    value(tree);
    while (!tasks_.empty() && error_.empty()) {
        const TASK task = tasks_.back();
        tasks_.pop_back();
        if (task.what == TASK::EMIT)
            p_.code_.push_back(task.instruction);
        else if (task.node == nullptr || task.node->type == nullptr)
            error_ = "an operand or a type is absent";
        else if (task.what == TASK::VALUE)
            do_value(task.node);
        else
            do_address(task.node);
    }
    if (error_.empty()) resolve();
    return error_;
}

// Jumps lead to labels while the code grows, to instructions afterwards.
void TRANSLATOR::resolve() {
    std::vector<std::uint64_t> at(labels_);
    for (std::size_t i = 0; i < p_.code_.size(); i++)
        if (p_.code_[i].code == PROGRAM::MARK) at[p_.code_[i].value] = i;
    for (INSTRUCTION& i : p_.code_)
        if (i.code == PROGRAM::JUMP || i.code == PROGRAM::JUMP_IF_ZERO) i.value = at[i.value];
}

std::uint32_t TRANSLATOR::place_of(NODE* node) {
    PROGRAM::PLACE place;
    place.rep = rep_of(node->type);
    place.is_volatile = node->type->is_volatile();
    if (node->op == NAME) place.is_volatile |= node->symbol()->type->is_volatile();
    if (node->op == UMULT && node->left->type->is_ptr())
        place.is_volatile |= node->left->type->type_pointed_to()->is_volatile();
    if (node->op == STDOT || node->op == STREF) {
        const fkMDATA* member = node->right->mdata;
        place.is_volatile |= member->type->is_volatile();
        if (member->bit_field) {
            place.rep = rep_of(member->type);
            place.is_field = true;
            place.bit = static_cast<std::uint8_t>(member->offset % 16);
            place.width = static_cast<std::uint8_t>(member->width);
        }
    }
    p_.places_.push_back(place);
    return static_cast<std::uint32_t>(p_.places_.size() - 1);
}

void TRANSLATOR::do_address(NODE* node) {
    switch (node->op) {
        case NAME: {
            const LAYOUT::OBJECT* object = layout_.find(node->symbol());
            if (object == nullptr) return fail(node, "of an unknown symbol");
            return emit(PROGRAM::CONSTANT, object->address);
        }
        case UMULT: return value(node->left);
        case STDOT:
        case STREF: {
            if (node->right == nullptr || node->right->op != FIELD) return fail(node, "without a member");
            emit(PROGRAM::OFFSET, static_cast<std::uint64_t>(node->right->mdata->offset) / 16);
            return node->op == STDOT ? address(node->left) : value(node->left);
        }
        default: return fail(node, "is no place in memory");
    }
}

void TRANSLATOR::do_value(NODE* node) {
    const REP rep = rep_of(node->type);
    switch (node->op) {
        case ICON:
        case LCON:
            if (!rep.is_scalar() || rep.is_float()) return fail(node, "has no integral type");
            return emit(PROGRAM::CONSTANT, extend(node->u.lval.bits(), rep.bits, rep.is_signed));
        case FCON:
            if (!rep.is_float()) return fail(node, "has no floating type");
            return emit(PROGRAM::CONSTANT, image_of_constant(*node->fval()));
        case LABEL: return emit(PROGRAM::CONSTANT, node->u.lval.bits());
        case NAME:
        case UMULT:
        case STDOT:
        case STREF:
            if (!rep.is_scalar()) return fail(node, "is no scalar");
            if (node->op == NAME && layout_.find(node->symbol()) != nullptr)
                return emit({.code = PROGRAM::LOAD_FIXED,
                             .rep = rep,
                             .from = {},
                             .place = place_of(node),
                             .value = layout_.find(node->symbol())->address});
            emit({.code = PROGRAM::LOAD, .rep = rep, .from = {}, .place = place_of(node)});
            return address(node);
        case UAND: return address(node->left);
        case SCONV:
        case PCONV:
        case ISP2CHAR:
        case ACONV:
        case IDENTITY:
            if (rep.kind == REP::NONE) {
                emit(PROGRAM::CONSTANT);
                emit(PROGRAM::DROP);
            } else if (rep.is_scalar() && rep_of(node->left->type).is_scalar()) {
                emit({.code = PROGRAM::CONVERT, .rep = rep, .from = rep_of(node->left->type)});
            } else {
                return fail(node, "between other than scalars");
            }
            return value(node->left);
        case UMINUS:
        case NOTB:
        case op::ABS:
        case SQR:
        case SQRT:
        case RECIP:
            if (!rep.is_scalar() || rep.is_float() != rep_of(node->left->type).is_float() ||
                (rep.is_float() ? node->op == NOTB : node->op == SQRT || node->op == RECIP))
                return fail(node, "of a type without it");
            emit({.code = PROGRAM::UNARY,
                  .kind = static_cast<std::uint8_t>(node->op),
                  .rep = rep,
                  .from = {}});
            return value(node->left);
        case PMCONV:
        case PVCONV:
            if (node->right == nullptr || node->right->op != ICON || node->right->u.lval.low < 16)
                return fail(node, "without a size");
            emit({.code = node->op == PMCONV ? PROGRAM::SCALE : PROGRAM::UNSCALE,
                  .rep = rep,
                  .from = rep_of(node->left->type),
                  .value = node->right->u.lval.low / 16});
            return value(node->left);
        case EXCLAIM: test(node->left, PROGRAM::NOT_TRUTH); return value(node->left);
        case ANDAND:
        case OROR: return do_logical(node);
        case QUEST:
        case IF:
            if (node->right == nullptr || node->right->op != COLON) return fail(node, "without arms");
            return do_choice(node, node->left, node->right->left, node->right->right, node->op == QUEST);
        case BRANCH: return value(node->left);
        case COMMAOP:
        case PCOMMA:
            if (node->right == nullptr) return fail(node, "without a value");
            if (rep.is_scalar() && rep != rep_of(node->right->type))
                emit({.code = PROGRAM::CONVERT, .rep = rep, .from = rep_of(node->right->type)});
            value(node->right);
            emit(PROGRAM::DROP);
            return value(node->left);
        case ASG: return do_assignment(node);
        case STASG:
            if (node->left->type->storage_size() != node->right->type->storage_size())
                return fail(node, "of another size");
            emit(PROGRAM::COPY, node->left->type->storage_size());
            address(node->left);
            return address(node->right);
        case NASSERT:
        case ASSERT: test(node->left, PROGRAM::PROMISE); return value(node->left);
        case ICALL: return do_intrinsic(node);
        case CALL:
        case UCALL: return do_call(node);
        default: break;
    }
    if (plain_operator(node->op) != 0) return do_compound(node);
    do_binary(node);
}

void TRANSLATOR::do_choice(NODE* node, NODE* condition, NODE* first, NODE* second, bool convert_arms) {
    const REP rep = rep_of(node->type);
    const std::uint64_t otherwise = label(), end = label();
    const auto arm = [&](NODE* tree) {
        const REP from = rep_of(tree->type);
        if (convert_arms && rep.is_scalar() && rep != from) {
            if (!from.is_scalar() || from.is_float() != rep.is_float()) return fail(node, "with an odd arm");
            emit({.code = PROGRAM::CONVERT, .rep = rep, .from = from});
        }
        value(tree);
    };
    emit(PROGRAM::MARK, end);
    arm(second);
    emit(PROGRAM::MARK, otherwise);
    emit(PROGRAM::JUMP, end);
    arm(first);
    test(condition, PROGRAM::JUMP_IF_ZERO, otherwise);
    value(condition);
}

void TRANSLATOR::do_logical(NODE* node) {
    if (node->right == nullptr) return fail(node, "without a right operand");
    const std::uint64_t other = label(), end = label();
    const bool conjunction = node->op == ANDAND;
    // a && b: a is zero: 0, else the truth of b; a || b: a is zero: the truth of b, else 1.
    emit(PROGRAM::MARK, end);
    if (conjunction) {
        emit(PROGRAM::CONSTANT, 0);
    } else {
        test(node->right, PROGRAM::TRUTH);
        value(node->right);
    }
    emit(PROGRAM::MARK, other);
    emit(PROGRAM::JUMP, end);
    if (conjunction) {
        test(node->right, PROGRAM::TRUTH);
        value(node->right);
    } else {
        emit(PROGRAM::CONSTANT, 1);
    }
    test(node->left, PROGRAM::JUMP_IF_ZERO, other);
    value(node->left);
}

void TRANSLATOR::do_binary(NODE* node) {
    if (number_of_operands[node->op] != 2 || node->right == nullptr) return fail(node, "has no meaning here");
    const REP rep = rep_of(node->type), left = rep_of(node->left->type), right = rep_of(node->right->type);
    if (!rep.is_scalar() || !left.is_scalar() || !right.is_scalar())
        return fail(node, "of other than scalars");
    INSTRUCTION i{.code = PROGRAM::ARITHMETIC,
                  .kind = static_cast<std::uint8_t>(node->op),
                  .rep = rep,
                  .from = left,
                  .value = 0};
    const bool floating = left.is_float() || right.is_float();
    if (floating && left.is_float() != right.is_float())
        return fail(node, "mixes integer and floating operands");
    if (node->op >= FEQ && node->op <= FUNO) {
        if (!floating) return fail(node, "compares integers");
        i.code = PROGRAM::COMPARE_FLOAT;
        i.value = outcomes_of(node->op);
    } else if (node->op >= EQ && node->op <= UGT) {
        if (floating) return fail(node, "compares floating operands");
        i.code = PROGRAM::COMPARE;
        i.from = left.bits >= right.bits ? left : right;
    } else if (node->op == SLL || node->op == SRL) {
        if (floating || rep.is_float()) return fail(node, "shifts a floating value");
        i.code = PROGRAM::SHIFT;
        i.from = right;
    } else {
        switch (node->op) {
            case PLUS:
            case MINUS:
            case MULT:
            case DIV: break;
            case EXPT:
                if (floating || rep != left) return fail(node, "of floating operands");
                i.value = 0;
                return emit(i), value(node->right), value(node->left);
            case MOD:
            case ANDB:
            case ORB:
            case XORB:
                if (floating) return fail(node, "of floating operands");
                break;
            default: return fail(node, "has no meaning here");
        }
        if (floating != rep.is_float()) return fail(node, "gives a value of the other kind");
        if (!floating && rep.kind != REP::POINTER && (left.bits != rep.bits || right.bits != rep.bits))
            return fail(node, "mixes widths");
    }
    emit(i);
    value(node->right);
    value(node->left);
}

void TRANSLATOR::do_assignment(NODE* node) {
    const REP from = rep_of(node->right->type);
    const std::uint32_t place = place_of(node->left);
    const REP to = p_.places_[place].rep;
    if (!from.is_scalar() || !to.is_scalar()) return fail(node, "of other than scalars");
    emit({.code = PROGRAM::STORE, .rep = rep_of(node->type), .from = from, .place = place});
    address(node->left);
    value(node->right);
}

// The type in which an operand of a compound assignment is computed. A character has int's width here, and
// yet the lesser rank.
REP TRANSLATOR::promoted(const REP& rep, TYPE* type) {
    const REP plain_int{REP::INTEGER, 16, true};
    if (rep.is_float() || rep.kind == REP::POINTER) return rep;
    const bool character = type->is_integer() && (type->ikind() == IK_CHAR || type->ikind() == IK_UCHAR);
    if (rep.kind == REP::BOOLEAN || character || rep.bits < 16) return plain_int;
    return {REP::INTEGER, rep.bits, rep.is_signed};
}

REP TRANSLATOR::in_which(const REP& left, NODE* place, NODE* by) const {
    const PROGRAM::PLACE& at = p_.places_.back();
    REP a = promoted(left, place->type);
    if (at.is_field && (at.width < 16 || (at.width == 16 && at.rep.is_signed))) a = {REP::INTEGER, 16, true};
    if (by == nullptr) return a; // a shift
    const REP b = promoted(rep_of(by->type), by->type);
    if (a.is_float() || b.is_float()) return {REP::FLOATING, 32, false};
    if (a.bits != b.bits) return a.bits > b.bits ? a : b;
    return a.is_signed ? b : a;
}

void TRANSLATOR::do_compound(NODE* node) {
    const int op = plain_operator(node->op);
    const bool step = node->op == PLUSPLUS || node->op == MINMIN;
    const std::uint32_t place = place_of(node->left);
    const REP to = p_.places_[place].rep, by = rep_of(node->right->type);
    if (!to.is_scalar() || !by.is_scalar()) return fail(node, "of other than scalars");
    REP in = to;
    if (step)
        in = to.kind == REP::BOOLEAN ? REP{REP::INTEGER, 16, true} : to;
    else if (to.kind != REP::POINTER)
        in = in_which(to, node->left, op == SLL || op == SRL ? nullptr : node->right);
    if (in.is_float() && op != PLUS && op != MINUS && op != MULT && op != DIV)
        return fail(node, "of floating operands");
    emit({.code = step ? PROGRAM::STEP : PROGRAM::COMPOUND,
          .kind = static_cast<std::uint8_t>(op),
          .rep = in,
          .from = by,
          .place = place});
    address(node->left);
    value(node->right);
}

std::vector<NODE*> TRANSLATOR::list_of(NODE* list) {
    std::vector<NODE*> items;
    for (; list != nullptr && list->op == COMMA; list = list->left) items.push_back(list->right);
    if (list != nullptr) items.push_back(list);
    std::reverse(items.begin(), items.end());
    return items;
}

void TRANSLATOR::do_intrinsic(NODE* node) {
    const INTRINSIC_ROW* row = find_intrinsic(node->intrinsic());
    const std::vector<NODE*> arguments = list_of(node->left);
    if (row == nullptr || std::strlen(row->operands) != arguments.size())
        return fail(node, node->intrinsic());
    PROGRAM::CALLEE callee{0, {}};
    for (NODE* argument : arguments) {
        if (!rep_of(argument->type).is_scalar()) return fail(node, "of other than scalars");
        callee.arguments.push_back(rep_of(argument->type));
    }
    p_.callees_.push_back(callee);
    emit({.code = PROGRAM::CALL_INTRINSIC,
          .kind = static_cast<std::uint8_t>(row - INTRINSICS),
          .rep = rep_of(node->type),
          .from = {},
          .place = static_cast<std::uint32_t>(p_.callees_.size() - 1)});
    for (std::size_t i = arguments.size(); i-- > 0;) value(arguments[i]);
}

void TRANSLATOR::do_call(NODE* node) {
    if (node->left->op != UAND || node->left->left->op != NAME) return fail(node, "of no named function");
    const LAYOUT::OBJECT* function = layout_.find(node->left->left->symbol());
    if (function == nullptr || !function->is_function) return fail(node, "of an unknown function");
    const std::vector<NODE*> arguments = list_of(node->op == CALL ? node->right : nullptr);
    PROGRAM::CALLEE callee{function->address, {}};
    for (NODE* argument : arguments) callee.arguments.push_back(rep_of(argument->type));
    p_.callees_.push_back(callee);
    emit({.code = PROGRAM::CALL_OPAQUE,
          .rep = rep_of(node->type),
          .from = {},
          .place = static_cast<std::uint32_t>(p_.callees_.size() - 1)});
    for (std::size_t i = arguments.size(); i-- > 0;) value(arguments[i]);
}

std::string PROGRAM::translate(NODE* tree, const LAYOUT& layout) {
    return TRANSLATOR(*this, layout).run(tree);
}

} // namespace prove
