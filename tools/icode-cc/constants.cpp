// Constant expressions, by the data model of the target.

#include <cmath>

#include "tools/icode-cc/lowering.h"

using namespace clang;

std::int64_t lowering::wrap(std::int64_t value, TYPE* type) {
    if (type->is_bool()) return value != 0;
    const auto bits = type->size();
    if (bits == 0 || bits >= 64) return value;
    const std::uint64_t mask = (std::uint64_t{1} << bits) - 1;
    auto low = static_cast<std::uint64_t>(value) & mask;
    if (type->is_signed() && (low >> (bits - 1)) != 0) low |= ~mask;
    return static_cast<std::int64_t>(low);
}

std::int64_t lowering::character(const CharacterLiteral* literal) {
    auto value = static_cast<std::int64_t>(static_cast<std::int32_t>(literal->getValue()));
    // The parser's plain characters have eight bits and a sign; the target's have room for all of a byte.
    if (literal->getKind() == CharacterLiteral::Ascii && value < 0 && value >= -128) value &= 0xff;
    return value;
}

std::int64_t lowering::enumerator_value(const EnumConstantDecl* decl) {
    const auto known = enumerators_.find(decl);
    if (known != enumerators_.end()) return known->second;
    std::int64_t next = 0;
    const auto* parent = cast<EnumDecl>(decl->getDeclContext());
    for (const EnumConstantDecl* item : parent->enumerators()) {
        if (const Expr* init = item->getInitExpr()) next = evaluate_integer(init).value_or(0);
        enumerators_[item] = next++;
    }
    return enumerators_[decl];
}

std::int64_t lowering::sizeof_value(const UnaryExprOrTypeTraitExpr* expr) {
    TYPE* type = nullptr;
    if (expr->isArgumentType()) {
        type = type_of(expr->getArgumentTypeInfo()->getTypeLoc());
    } else {
        // An operand's type comes from the trees where it is an lvalue, since array bounds are ours.
        const Expr* operand = expr->getArgumentExpr()->IgnoreParens();
        if (const auto* ref = dyn_cast<DeclRefExpr>(operand))
            type = type_of(ref->getDecl());
        else if (const auto* member = dyn_cast<MemberExpr>(operand);
                 member != nullptr && isa<FieldDecl>(member->getMemberDecl()))
            type = type_of(cast<FieldDecl>(member->getMemberDecl()));
        else
            type = type_of(operand->getType());
    }
    if (expr->getKind() == UETT_SizeOf) return type->is_func() || type->is_void() ? 1 : units_of(type);
    return std::max<std::int64_t>(1, type->align() / 16);
}

std::optional<std::int64_t> lowering::evaluate_integer(const Expr* expr) {
    const auto value = evaluate(expr);
    if (!value || value->what != constant::form::integer) return std::nullopt;
    return value->number;
}

constant lowering::convert(constant value, TYPE* to, TYPE* from) {
    const bool from_unsigned_64 = from->is_integral() && from->size() == 64 && from->is_unsigned();
    if (to->is_fltpt()) {
        if (value.what == constant::form::integer) {
            value.single = from_unsigned_64 ? static_cast<float>(static_cast<std::uint64_t>(value.number))
                                            : static_cast<float>(value.number);
            value.what = constant::form::floating;
        }
        return value;
    }
    if (value.what == constant::form::floating) {
        value.what = constant::form::integer;
        if (to->is_bool()) {
            value.number = value.single != 0.0F;
            return value;
        }
        const double wide = std::trunc(static_cast<double>(value.single));
        if (wide >= 9223372036854775808.0 && wide < 18446744073709551616.0)
            value.number = static_cast<std::int64_t>(static_cast<std::uint64_t>(wide));
        else if (wide > -9223372036854775809.0 && wide < 9223372036854775808.0)
            value.number = static_cast<std::int64_t>(wide);
        else
            value.number = 0;
    }
    if (value.what == constant::form::integer) value.number = wrap(value.number, to);
    return value;
}

std::optional<constant> lowering::evaluate_address(const Expr* expr) {
    expr = expr->IgnoreParens();
    constant value;
    value.what = constant::form::address;
    if (const auto* ref = dyn_cast<DeclRefExpr>(expr)) {
        if (const auto* variable = dyn_cast<VarDecl>(ref->getDecl());
            variable != nullptr && !variable->hasGlobalStorage())
            return std::nullopt;
        value.base = symbol_of(ref->getDecl());
        if (value.base == nullptr) return std::nullopt;
        return value;
    }
    if (const auto* string = dyn_cast<StringLiteral>(expr)) {
        value.what = constant::form::text;
        value.string = string;
        return value;
    }
    if (const auto* unary = dyn_cast<UnaryOperator>(expr); unary != nullptr && unary->getOpcode() == UO_Deref)
        return evaluate(unary->getSubExpr());
    if (const auto* element = dyn_cast<ArraySubscriptExpr>(expr)) {
        auto base = evaluate(element->getBase());
        const auto index = evaluate_integer(element->getIdx());
        if (!base || !index || base->what == constant::form::floating) return std::nullopt;
        base->number += *index * units_of(type_of(element->getType()));
        return base;
    }
    if (const auto* member = dyn_cast<MemberExpr>(expr)) {
        auto base = member->isArrow() ? evaluate(member->getBase()) : evaluate_address(member->getBase());
        const fkMDATA* data = member_of(cast<FieldDecl>(member->getMemberDecl()));
        if (!base || data == nullptr) return std::nullopt;
        base->number += data->offset / 16;
        return base;
    }
    if (const auto* literal = dyn_cast<CompoundLiteralExpr>(expr)) {
        // At file level a compound literal is a nameless static object.
        if (function_ != nullptr && !literal->isFileScope()) return std::nullopt;
        TYPE* type = type_of(literal->getTypeSourceInfo()->getTypeLoc());
        if (!type->is_complete()) type = type_of(literal->getType());
        value.base = image(type, static_initialiser(literal->getInitializer(), type));
        return value;
    }
    return std::nullopt;
}

std::optional<constant> lowering::evaluate_cast(const CastExpr* cast) {
    const Expr* operand = cast->getSubExpr();
    switch (cast->getCastKind()) {
        case CK_ArrayToPointerDecay:
        case CK_FunctionToPointerDecay: return evaluate_address(operand);
        case CK_LValueToRValue: {
            // A const object is no constant expression in C; enumerations and literals never come this way.
            if (const auto* literal = dyn_cast<CompoundLiteralExpr>(operand->IgnoreParens()))
                if (literal->getType()->isScalarType())
                    if (const auto* list = dyn_cast<InitListExpr>(literal->getInitializer());
                        list != nullptr && list->getNumInits() == 1)
                        return evaluate(list->getInit(0));
            return std::nullopt;
        }
        case CK_NullToPointer: {
            constant zero;
            return zero;
        }
        case CK_NoOp:
        case CK_BitCast:
        case CK_LValueBitCast: return evaluate(operand);
        default: break;
    }
    auto value = evaluate(operand);
    if (!value) return std::nullopt;
    TYPE* to = type_of(cast->getType());
    TYPE* from = type_of(operand->getType());
    if (value->what == constant::form::address || value->what == constant::form::text) {
        if (to->is_bool()) {
            constant one;
            one.number = 1;
            return one;
        }
        if (to->size() == 16) return value;
        return std::nullopt;
    }
    return convert(*value, to, from);
}

namespace {

// The outcome of a comparison operator.
template <class NUMBER> bool compared(BinaryOperatorKind kind, NUMBER a, NUMBER b) {
    switch (kind) {
        case BO_EQ: return a == b;
        case BO_NE: return a != b;
        case BO_LT: return a < b;
        case BO_GT: return a > b;
        case BO_LE: return a <= b;
        default: return a >= b;
    }
}

} // namespace

std::optional<constant> lowering::evaluate_binary(const BinaryOperator* expr) {
    const BinaryOperatorKind kind = expr->getOpcode();
    const auto left = evaluate(expr->getLHS());
    if (!left) return std::nullopt;
    constant result;
    const auto is_true = [](const constant& c) {
        return c.what == constant::form::integer    ? c.number != 0
               : c.what == constant::form::floating ? c.single != 0.0F
                                                    : true;
    };
    if (kind == BO_LAnd || kind == BO_LOr) {
        if (is_true(*left) == (kind == BO_LOr)) {
            result.number = kind == BO_LOr;
            return result;
        }
        const auto right = evaluate(expr->getRHS());
        if (!right) return std::nullopt;
        result.number = is_true(*right);
        return result;
    }
    const auto right = evaluate(expr->getRHS());
    if (!right) return std::nullopt;
    if (kind == BO_Comma) return right;
    TYPE* type = type_of(expr->getType());

    const bool left_address = left->what == constant::form::address || left->what == constant::form::text;
    const bool right_address = right->what == constant::form::address || right->what == constant::form::text;
    TYPE* left_type = type_of(expr->getLHS()->getType());
    TYPE* right_type = type_of(expr->getRHS()->getType());
    if (left_address || right_address || left_type->is_ptr() || right_type->is_ptr()) {
        if (kind == BO_Add || kind == BO_Sub) {
            if (left_type->is_ptr() && right_type->is_ptr()) {
                if (kind != BO_Sub || left->base != right->base || left->what != right->what)
                    return std::nullopt;
                result.number = (left->number - right->number) / units_of(left_type->type_pointed_to());
                return result;
            }
            const constant& pointer = left_type->is_ptr() ? *left : *right;
            const constant& index = left_type->is_ptr() ? *right : *left;
            TYPE* element = (left_type->is_ptr() ? left_type : right_type)->type_pointed_to();
            result = pointer;
            result.number += (kind == BO_Sub ? -1 : 1) * index.number * units_of(element);
            if (result.what == constant::form::integer) result.number = wrap(result.number, type);
            return result;
        }
        if (left->what == right->what && left->base == right->base && left->string == right->string &&
            expr->isComparisonOp()) {
            const auto a = static_cast<std::uint16_t>(left->number),
                       b = static_cast<std::uint16_t>(right->number);
            result.number = compared(kind, a, b);
            return result;
        }
        return std::nullopt;
    }

    if (left->what == constant::form::floating || right->what == constant::form::floating) {
        const float a = left->single, b = right->single;
        result.what = constant::form::floating;
        switch (kind) {
            case BO_Add: result.single = a + b; return result;
            case BO_Sub: result.single = a - b; return result;
            case BO_Mul: result.single = a * b; return result;
            case BO_Div: result.single = a / b; return result;
            default: break;
        }
        result.what = constant::form::integer;
        if (!expr->isComparisonOp()) return std::nullopt;
        result.number = compared(kind, a, b);
        return result;
    }

    // Integers: the operands have the operation's type, except in shifts and comparisons.
    const bool is_unsigned = left_type->is_unsigned();
    const std::int64_t a = left->number, b = right->number;
    const auto ua = static_cast<std::uint64_t>(a), ub = static_cast<std::uint64_t>(b);
    const auto bits = static_cast<std::int64_t>(type->size());
    switch (kind) {
        case BO_Add: result.number = static_cast<std::int64_t>(ua + ub); break;
        case BO_Sub: result.number = static_cast<std::int64_t>(ua - ub); break;
        case BO_Mul: result.number = static_cast<std::int64_t>(ua * ub); break;
        case BO_Div:
        case BO_Rem:
            if (b == 0) return std::nullopt;
            if (is_unsigned)
                result.number = static_cast<std::int64_t>(kind == BO_Div ? ua / ub : ua % ub);
            else if (b == -1)
                result.number = kind == BO_Div ? static_cast<std::int64_t>(0 - ua) : 0;
            else
                result.number = kind == BO_Div ? a / b : a % b;
            break;
        case BO_And: result.number = a & b; break;
        case BO_Or: result.number = a | b; break;
        case BO_Xor: result.number = a ^ b; break;
        case BO_Shl:
            if (b < 0 || b >= bits) return std::nullopt;
            result.number = static_cast<std::int64_t>(ua << b);
            break;
        case BO_Shr:
            if (b < 0 || b >= bits) return std::nullopt;
            result.number = is_unsigned ? static_cast<std::int64_t>(ua >> b) : a >> b;
            break;
        case BO_EQ: result.number = a == b; return result;
        case BO_NE: result.number = a != b; return result;
        case BO_LT: result.number = is_unsigned ? ua < ub : a < b; return result;
        case BO_GT: result.number = is_unsigned ? ua > ub : a > b; return result;
        case BO_LE: result.number = is_unsigned ? ua <= ub : a <= b; return result;
        case BO_GE: result.number = is_unsigned ? ua >= ub : a >= b; return result;
        default: return std::nullopt;
    }
    result.number = wrap(result.number, type);
    return result;
}

std::optional<constant> lowering::evaluate(const Expr* expr) {
    expr = expr->IgnoreParens();
    constant result;
    if (const auto* wrapper = dyn_cast<ConstantExpr>(expr)) return evaluate(wrapper->getSubExpr());
    if (const auto* literal = dyn_cast<IntegerLiteral>(expr)) {
        result.number =
            wrap(static_cast<std::int64_t>(literal->getValue().getLimitedValue()), type_of(expr->getType()));
        return result;
    }
    if (const auto* literal = dyn_cast<CharacterLiteral>(expr)) {
        result.number = wrap(character(literal), type_of(expr->getType()));
        return result;
    }
    if (const auto* literal = dyn_cast<FloatingLiteral>(expr)) {
        // Rounded once, from the value that the parser read exactly enough.
        llvm::APFloat value = literal->getValue();
        bool inexact = false;
        value.convert(llvm::APFloat::IEEEsingle(), llvm::APFloat::rmNearestTiesToEven, &inexact);
        result.what = constant::form::floating;
        result.single = value.convertToFloat();
        return result;
    }
    if (const auto* ref = dyn_cast<DeclRefExpr>(expr)) {
        if (const auto* enumerator = dyn_cast<EnumConstantDecl>(ref->getDecl())) {
            result.number = enumerator_value(enumerator);
            return result;
        }
        return std::nullopt;
    }
    if (const auto* size = dyn_cast<UnaryExprOrTypeTraitExpr>(expr)) {
        result.number = sizeof_value(size);
        return result;
    }
    if (const auto* offset = dyn_cast<OffsetOfExpr>(expr)) {
        result.number = offset_of(offset) / 16;
        return result;
    }
    if (const auto* cast = dyn_cast<CastExpr>(expr)) return evaluate_cast(cast);
    if (const auto* selection = dyn_cast<GenericSelectionExpr>(expr))
        return evaluate(selection->getResultExpr());
    if (const auto* choose = dyn_cast<ChooseExpr>(expr)) return evaluate(choose->getChosenSubExpr());
    if (const auto* unary = dyn_cast<UnaryOperator>(expr)) {
        if (unary->getOpcode() == UO_AddrOf) return evaluate_address(unary->getSubExpr());
        auto value = evaluate(unary->getSubExpr());
        if (!value) return std::nullopt;
        TYPE* type = type_of(expr->getType());
        switch (unary->getOpcode()) {
            case UO_Plus:
            case UO_Extension: return value;
            case UO_Minus:
                if (value->what == constant::form::floating) {
                    value->single = -value->single;
                    return value;
                }
                if (value->what != constant::form::integer) return std::nullopt;
                value->number =
                    wrap(static_cast<std::int64_t>(0 - static_cast<std::uint64_t>(value->number)), type);
                return value;
            case UO_Not:
                if (value->what != constant::form::integer) return std::nullopt;
                value->number = wrap(~value->number, type);
                return value;
            case UO_LNot:
                result.number = value->what == constant::form::floating  ? value->single == 0.0F
                                : value->what == constant::form::integer ? value->number == 0
                                                                         : 0;
                return result;
            default: return std::nullopt;
        }
    }
    if (const auto* binary = dyn_cast<BinaryOperator>(expr)) {
        if (binary->isAssignmentOp()) return std::nullopt;
        return evaluate_binary(binary);
    }
    if (const auto* ternary = dyn_cast<ConditionalOperator>(expr)) {
        const auto cond = evaluate(ternary->getCond());
        if (!cond) return std::nullopt;
        const bool is_true = cond->what == constant::form::integer    ? cond->number != 0
                             : cond->what == constant::form::floating ? cond->single != 0.0F
                                                                      : true;
        return evaluate(is_true ? ternary->getTrueExpr() : ternary->getFalseExpr());
    }
    if (const auto* call = dyn_cast<CallExpr>(expr)) {
        const FunctionDecl* callee = call->getDirectCallee();
        if (callee != nullptr && callee->getName() == "__builtin_constant_p") {
            const auto value = evaluate(call->getArg(0));
            result.number = value && value->what != constant::form::address;
            return result;
        }
        if (callee != nullptr && callee->getName() == "__builtin_expect") return evaluate(call->getArg(0));
        return std::nullopt;
    }
    if (const auto* list = dyn_cast<InitListExpr>(expr); list != nullptr && expr->getType()->isScalarType())
        return list->getNumInits() == 1 ? evaluate(list->getInit(0)) : std::optional<constant>(result);
    if (isa<ImplicitValueInitExpr>(expr) && expr->getType()->isScalarType()) {
        if (expr->getType()->isFloatingType()) result.what = constant::form::floating;
        return result;
    }
    return std::nullopt;
}
