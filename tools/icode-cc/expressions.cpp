// Expressions.

#include "clang/AST/Attr.h"

#include "tools/icode-cc/lowering.h"

using namespace clang;

// --- Making trees.

model::tree* lowering::make(int code, TYPE* type, tree* left, tree* right) {
    return pool_.new_tree(code, type, left, right);
}

model::tree* lowering::icon(TYPE* type, std::int64_t value) {
    value = wrap(value, type);
    const bool fits = type->is_signed() ? value >= INT32_MIN && value <= INT32_MAX
                                        : static_cast<std::uint64_t>(value) <= UINT32_MAX;
    tree* t = pool_.new_tree(fits ? op::ICON : op::LCON, type);
    if (fits) {
        t->mk_icon(static_cast<int>(value));
    } else {
        const std::string text =
            type->is_signed() ? std::to_string(value) : std::to_string(static_cast<std::uint64_t>(value));
        t->mk_lcon(text.c_str());
    }
    return t;
}

model::tree* lowering::fcon(TYPE* type, float value) {
    char text[64];
    if (value != value)
        std::snprintf(text, sizeof text, "NaN");
    else if (value - value != 0)
        std::snprintf(text, sizeof text, value > 0 ? "Inf" : "-Inf");
    else
        std::snprintf(text, sizeof text, "%a", static_cast<double>(value));
    tree* t = pool_.new_tree(op::FCON, type);
    t->mk_fcon(text);
    return t;
}

model::tree* lowering::name(symbol* s) {
    tree* t = pool_.new_tree(op::NAME, s->type);
    t->sym = s;
    return t;
}

model::tree* lowering::label_ref(unsigned number) {
    tree* t = pool_.new_tree(op::LABEL, int_);
    t->value = number;
    return t;
}

model::tree* lowering::address_of(tree* lvalue) {
    // The address of what a pointer points at is the pointer.
    if (lvalue->op == op::UMULT) {
        tree* pointer = lvalue->left;
        TYPE* wanted = types_.mk_ptr(lvalue->type);
        return pointer->type == wanted ? pointer : make(op::PCONV, wanted, pointer);
    }
    return make(op::UAND, types_.mk_ptr(lvalue->type), lvalue);
}

model::tree* lowering::to_bool(tree* value) {
    if (value->type->is_bool()) return value;
    tree* zero = value->type->is_fltpt() ? fcon(value->type, 0) : icon(value->type, 0);
    return make(op::SCONV, types_.int_type(IK_BOOL), make(op::NEQ, int_, value, zero));
}

model::tree* lowering::convert(tree* value, TYPE* to) {
    TYPE* plain = to->stqs();
    if (value->type->stqs() == plain) return value;
    if (plain->is_void()) return value;
    if (plain->is_bool()) return to_bool(value);
    if (plain->is_ptr()) {
        if (value->op == op::ICON && !value->type->is_ptr()) return icon(plain, value->value);
        return make(op::PCONV, plain, value);
    }
    if (value->op == op::ICON && plain->is_integral()) return icon(plain, value->value);
    return make(op::SCONV, plain, value);
}

model::tree* lowering::scon(const StringLiteral* literal, TYPE* type, bool with_zero) {
    std::string bytes = literal->getBytes().str();
    if (with_zero) bytes.push_back('\0');
    tree* t = pool_.new_tree(op::SCON, type);
    t->mk_scon(bytes.data(), static_cast<unsigned>(bytes.size()));
    return t;
}

model::tree* lowering::clone(const tree* t) {
    if (t == nullptr) return nullptr;
    tree* copy = pool_.new_tree(t->op, t->type, clone(t->left), clone(t->right));
    copy->value = t->value;
    copy->sym = t->sym;
    copy->member = t->member;
    copy->csu = t->csu;
    copy->text = t->text;
    return copy;
}

model::tree* lowering::assign(tree* lvalue, tree* value) {
    const int code = lvalue->type->is_csu() ? op::STASG : lvalue->type->is_array() ? op::ARASG : op::ASG;
    return make(code, lvalue->type->stqs(), lvalue, value);
}

// An index in elements becomes units.
model::tree* lowering::scaled(tree* index, TYPE* element) {
    const std::int64_t units = element->is_void() || element->is_func() ? 1 : units_of(element);
    if (index->op == op::ICON) return icon(int_, index->value * units);
    if (index->type->size() != 16) index = make(op::SCONV, index->type->is_signed() ? int_ : uint_, index);
    return make(op::PMCONV, index->type, index, int_icon(units * 16));
}

model::tree* lowering::from_constant(const constant& value, TYPE* type) {
    TYPE* plain = type->stqs();
    switch (value.what) {
        case constant::form::integer:
            return plain->is_fltpt() ? fcon(plain, static_cast<float>(value.number))
                                     : icon(plain, value.number);
        case constant::form::floating: return fcon(plain, value.single);
        case constant::form::text:
        case constant::form::address: break;
    }
    tree* base = nullptr;
    if (value.what == constant::form::text) {
        if (value.string->isWide() || value.string->getCharByteWidth() != 1) {
            TYPE* wide = type_of(value.string->getType());
            base = make(op::UAND, plain, name(image(wide, static_initialiser(value.string, wide))));
        } else {
            base = scon(value.string, plain, true);
        }
    } else {
        base = make(op::UAND, plain, name(value.base));
    }
    if (value.number == 0) return base;
    return make(value.number > 0 ? op::PLUS : op::MINUS, plain, base,
                int_icon(value.number > 0 ? value.number : -value.number));
}

// An array in memory as a pointer to its first element.
model::tree* lowering::decay(tree* array, TYPE* pointer) {
    TYPE* plain = pointer->stqs();
    if (array->op == op::SCON) {
        array->type = plain;
        return array;
    }
    if (array->op == op::UMULT)
        return array->left->type == plain ? array->left : make(op::PCONV, plain, array->left);
    return make(op::UAND, plain, array);
}

// --- Lvalues.

model::tree* lowering::field(tree* aggregate, fkMDATA* data, TYPE* csu) {
    tree* f = pool_.new_tree(op::FIELD, data->type);
    f->mk_field(1, data, csu->true_type());
    // The qualifiers of the aggregate are those of its members.
    TYPE* type = data->type;
    const unsigned bits = csu->qual_kind() & (QUAL_CONST | QUAL_VOLATILE);
    if (bits != 0 && !type->is_array()) type = types_.mk_qual(type, static_cast<unsigned char>(bits));
    f->type = type;
    if (aggregate->op == op::UMULT) return make(op::STREF, type, aggregate->left, f);
    return make(op::STDOT, type, aggregate, f);
}

model::tree* lowering::member(const MemberExpr* expr) {
    fkMDATA* data = member_of(cast<FieldDecl>(expr->getMemberDecl()));
    if (data == nullptr) {
        refuse(expr->getExprLoc(), "member has no place");
        return int_icon(0);
    }
    tree* base = nullptr;
    if (expr->isArrow()) {
        tree* pointer = value(expr->getBase());
        base = make(op::UMULT, pointer->type->type_pointed_to(), pointer);
    } else if (expr->getBase()->isLValue()) {
        base = lvalue(expr->getBase());
    } else {
        tree* aggregate = value(expr->getBase());
        base = in_temporary(aggregate, aggregate->type);
    }
    return field(base, data, base->type);
}

// A value with an address: stored in a temporary on the way.
model::tree* lowering::in_temporary(tree* aggregate, TYPE* type) {
    symbol* temp = temporary(type->stqs());
    tree* store = assign(name(temp), aggregate);
    tree* pointer = make(op::UAND, types_.mk_ptr(temp->type), name(temp));
    return make(op::UMULT, temp->type, make(op::COMMAOP, pointer->type, store, pointer));
}

model::tree* lowering::lvalue(const Expr* expr) {
    expr = expr->IgnoreParens();
    if (const auto* ref = dyn_cast<DeclRefExpr>(expr)) return name(symbol_of(ref->getDecl()));
    if (const auto* access = dyn_cast<MemberExpr>(expr)) return member(access);
    if (const auto* unary = dyn_cast<UnaryOperator>(expr)) {
        if (unary->getOpcode() == UO_Deref) {
            tree* pointer = value(unary->getSubExpr());
            TYPE* target = pointer->type->type_pointed_to();
            if (target->is_void() || !target->is_complete()) target = type_of(expr->getType());
            return make(op::UMULT, target, pointer);
        }
        if (unary->getOpcode() == UO_Extension) return lvalue(unary->getSubExpr());
    }
    if (const auto* subscript = dyn_cast<ArraySubscriptExpr>(expr)) {
        tree* pointer = value(subscript->getBase());
        tree* index = value(subscript->getIdx());
        TYPE* element = pointer->type->type_pointed_to();
        return make(op::UMULT, element, make(op::PLUS, pointer->type, pointer, scaled(index, element)));
    }
    if (const auto* string = dyn_cast<StringLiteral>(expr)) {
        TYPE* type = type_of(expr->getType());
        if (string->getCharByteWidth() != 1) return name(image(type, static_initialiser(string, type)));
        return scon(string, type, true);
    }
    if (const auto* literal = dyn_cast<CompoundLiteralExpr>(expr)) {
        TYPE* type = type_of(literal->getTypeSourceInfo()->getTypeLoc());
        if (!type->is_complete()) type = type_of(literal->getType());
        if (function_ == nullptr || literal->isFileScope())
            return name(image(type, static_initialiser(literal->getInitializer(), type)));
        symbol* temp = temporary(types_.remove_known_qual(type, QUAL_CONST));
        std::vector<tree*> effects;
        initialise(name(temp), literal->getInitializer(), temp->type, effects);
        tree* pointer = make(op::UAND, types_.mk_ptr(temp->type), name(temp));
        return make(op::UMULT, temp->type, in_sequence(effects, pointer));
    }
    if (const auto* function = dyn_cast<PredefinedExpr>(expr)) return lvalue(function->getFunctionName());
    if (const auto* selection = dyn_cast<GenericSelectionExpr>(expr))
        return lvalue(selection->getResultExpr());
    if (const auto* choose = dyn_cast<ChooseExpr>(expr)) return lvalue(choose->getChosenSubExpr());
    if (const auto* cast = dyn_cast<CastExpr>(expr); cast != nullptr && cast->getCastKind() == CK_NoOp)
        return lvalue(cast->getSubExpr());
    if (const auto* va = dyn_cast<VAArgExpr>(expr)) return value_of_va_arg(va);
    if (!expr->isLValue()) {
        tree* v = value(expr);
        return in_temporary(v, v->type);
    }
    refuse(expr->getExprLoc(),
           std::string("expression of kind ") + expr->getStmtClassName() + " is not supported");
    return name(temporary(int_));
}

// --- Values.

model::tree* lowering::in_sequence(const std::vector<tree*>& effects, tree* last) {
    for (auto effect = effects.rbegin(); effect != effects.rend(); ++effect)
        last = make(op::COMMAOP, last->type, *effect, last);
    return last;
}

model::tree* lowering::compare(BinaryOperatorKind kind, tree* left, tree* right) {
    const bool plain = !(left->type->is_ptr() || (left->type->is_integral() && left->type->is_unsigned()));
    int code = op::EQ;
    switch (kind) {
        case BO_EQ: code = op::EQ; break;
        case BO_NE: code = op::NEQ; break;
        case BO_LT: code = plain ? op::LT : op::ULT; break;
        case BO_GT: code = plain ? op::GT : op::UGT; break;
        case BO_LE: code = plain ? op::LE : op::ULE; break;
        default: code = plain ? op::GE : op::UGE; break;
    }
    return make(code, int_, left, right);
}

model::tree* lowering::value_of_cast(const CastExpr* cast) {
    const Expr* operand = cast->getSubExpr();
    TYPE* to = type_of(cast->getType());
    switch (cast->getCastKind()) {
        case CK_LValueToRValue: {
            tree* t = lvalue(operand);
            return t;
        }
        case CK_ArrayToPointerDecay: {
            tree* array = lvalue(operand);
            // The element's own type, since a bound may differ from the parser's.
            TYPE* pointer = array->type->is_array() ? types_.mk_ptr(array->type->elem_type()) : to;
            return decay(array, pointer);
        }
        case CK_BuiltinFnToFnPtr:
        case CK_FunctionToPointerDecay: {
            tree* function = lvalue(operand);
            if (function->op == op::UMULT) return function->left;
            return make(op::UAND, types_.mk_ptr(function->type), function);
        }
        case CK_NoOp: {
            tree* v = operand->isLValue() && cast->isLValue() ? lvalue(operand) : value(operand);
            return v;
        }
        case CK_ToVoid: return effects(operand);
        case CK_NullToPointer: {
            tree* zero = icon(to->stqs(), 0);
            return zero;
        }
        case CK_IntegralToBoolean:
        case CK_PointerToBoolean:
        case CK_FloatingToBoolean: return to_bool(value(operand));
        case CK_IntegralToPointer: {
            tree* v = value(operand);
            if (v->type->size() != 16) v = convert(v, uint_);
            return convert(v, to);
        }
        case CK_BitCast:
        case CK_AddressSpaceConversion: {
            tree* v = value(operand);
            return v->type->stqs() == to->stqs() ? v : make(op::PCONV, to->stqs(), v);
        }
        default: return convert(value(operand), to);
    }
}

model::tree* lowering::effects(const Expr* expr) {
    // A volatile lvalue whose value is dropped is still read; other reads are nothing.
    return value(expr);
}

model::tree* lowering::condition(const Expr* expr) { return value(expr); }

model::tree* lowering::value_of_unary(const UnaryOperator* expr) {
    TYPE* type = type_of(expr->getType());
    switch (expr->getOpcode()) {
        case UO_AddrOf: {
            const Expr* operand = expr->getSubExpr()->IgnoreParens();
            tree* t = lvalue(operand);
            return address_of(t);
        }
        case UO_Deref: return lvalue(expr);
        case UO_Plus:
        case UO_Extension: return value(expr->getSubExpr());
        case UO_Minus: return make(op::UMINUS, type->stqs(), value(expr->getSubExpr()));
        case UO_Not: return make(op::NOTB, type->stqs(), value(expr->getSubExpr()));
        case UO_LNot: return make(op::EXCLAIM, int_, value(expr->getSubExpr()));
        case UO_PreInc:
        case UO_PreDec:
        case UO_PostInc:
        case UO_PostDec: return value_of_increment(expr);
        default: refuse(expr->getExprLoc(), "operator is not supported"); return int_icon(0);
    }
}

// An lvalue that can be evaluated twice: its address is computed once into a temporary when it has to be.
// `first` becomes the computation, or null.
model::tree* lowering::reusable(tree* lvalue, tree*& first) {
    first = nullptr;
    const tree* base = lvalue;
    while (base->op == op::STDOT) base = base->left;
    if (base->op == op::NAME) return lvalue;
    // The chain of members stays; the pointer at its foot goes to a temporary.
    tree* foot = lvalue;
    while (foot->op == op::STDOT) foot = foot->left;
    tree* pointer = foot->left;
    symbol* temp = temporary(pointer->type->stqs());
    first = assign(name(temp), pointer);
    foot->left = name(temp);
    return lvalue;
}

model::tree* lowering::value_of_increment(const UnaryOperator* expr) {
    const bool up = expr->isIncrementOp();
    tree* target = lvalue(expr->getSubExpr());
    TYPE* type = target->type->stqs();
    if (type->is_bool()) {
        // One more is true, one less is the opposite.
        tree* first = nullptr;
        target = reusable(target, first);
        tree* next = up ? icon(type, 1) : make(op::SCONV, type, make(op::EXCLAIM, int_, clone(target)));
        tree* result = assign(target, next);
        if (expr->isPostfix()) {
            symbol* old = temporary(type);
            tree* keep = assign(name(old), clone(target));
            result = make(op::COMMAOP, type, make(op::COMMAOP, type, keep, result), name(old));
        }
        return first == nullptr ? result : make(op::COMMAOP, type, first, result);
    }
    tree* step = nullptr;
    if (type->is_ptr()) {
        TYPE* element = type->type_pointed_to();
        step = int_icon(element->is_void() || element->is_func() ? 1 : units_of(element));
    } else {
        step = type->is_fltpt() ? fcon(type, 1) : icon(type, 1);
    }
    if (expr->isPostfix()) return make(up ? op::PLUSPLUS : op::MINMIN, type, target, step);
    return make(up ? op::PLUSASG : op::MINUSASG, type, target, step);
}

model::tree* lowering::value_of_binary(const BinaryOperator* expr) {
    const BinaryOperatorKind kind = expr->getOpcode();
    TYPE* type = type_of(expr->getType())->stqs();
    if (kind == BO_Assign) {
        tree* target = lvalue(expr->getLHS());
        tree* source = value(expr->getRHS());
        return assign(target, source);
    }
    if (kind == BO_Comma) {
        tree* left = effects(expr->getLHS());
        tree* right = value(expr->getRHS());
        return make(op::COMMAOP, right->type->stqs(), left, right);
    }
    if (kind == BO_LAnd || kind == BO_LOr) {
        tree* left = condition(expr->getLHS());
        tree* right = condition(expr->getRHS());
        return make(kind == BO_LAnd ? op::ANDAND : op::OROR, int_, left, right);
    }
    tree* left = value(expr->getLHS());
    tree* right = value(expr->getRHS());
    if (expr->isComparisonOp()) {
        if (left->type->is_ptr() && right->type->is_ptr() && left->type->stqs() != right->type->stqs())
            right = make(op::PCONV, left->type->stqs(), right);
        return compare(kind, left, right);
    }
    if (left->type->is_ptr() || right->type->is_ptr()) {
        if (kind == BO_Sub && right->type->is_ptr()) {
            TYPE* element = left->type->type_pointed_to();
            const std::int64_t units = element->is_void() || element->is_func() ? 1 : units_of(element);
            tree* difference = make(op::MINUS, int_, left, right);
            return make(op::PVCONV, int_, difference, int_icon(units * 16));
        }
        if (right->type->is_ptr()) std::swap(left, right);
        TYPE* element = left->type->type_pointed_to();
        return make(kind == BO_Sub ? op::MINUS : op::PLUS, left->type->stqs(), left, scaled(right, element));
    }
    int code = op::PLUS;
    switch (kind) {
        case BO_Add: code = op::PLUS; break;
        case BO_Sub: code = op::MINUS; break;
        case BO_Mul: code = op::MULT; break;
        case BO_Div: code = op::DIV; break;
        case BO_Rem: code = op::MOD; break;
        case BO_And: code = op::ANDB; break;
        case BO_Or: code = op::ORB; break;
        case BO_Xor: code = op::XORB; break;
        case BO_Shl: code = op::SLL; break;
        case BO_Shr: code = op::SRL; break;
        default: refuse(expr->getExprLoc(), "operator is not supported"); break;
    }
    return make(code, type, left, right);
}

model::tree* lowering::value_of_compound(const CompoundAssignOperator* expr) {
    tree* target = lvalue(expr->getLHS());
    tree* operand = value(expr->getRHS());
    TYPE* type = target->type->stqs();
    int code = op::PLUSASG;
    switch (expr->getOpcode()) {
        case BO_AddAssign: code = op::PLUSASG; break;
        case BO_SubAssign: code = op::MINUSASG; break;
        case BO_MulAssign: code = op::MULTASG; break;
        case BO_DivAssign: code = op::DIVASG; break;
        case BO_RemAssign: code = op::MODASG; break;
        case BO_AndAssign: code = op::ANDBASG; break;
        case BO_OrAssign: code = op::ORBASG; break;
        case BO_XorAssign: code = op::XORBASG; break;
        case BO_ShlAssign: code = op::SLLASG; break;
        default: code = op::SRLASG; break;
    }
    if (type->is_ptr()) return make(code, type, target, scaled(operand, type->type_pointed_to()));
    TYPE* computation = type_of(expr->getComputationResultType())->stqs();
    const bool shift = expr->isShiftAssignOp();
    if (type->is_bool()) {
        // What is stored is whether the result is nonzero.
        constexpr int plain[] = {op::PLUS, op::MINUS, op::MULT, op::DIV, op::MOD,
                                 op::ANDB, op::ORB,   op::XORB, op::SLL, op::SRL};
        constexpr int compound[] = {op::PLUSASG, op::MINUSASG, op::MULTASG, op::DIVASG, op::MODASG,
                                    op::ANDBASG, op::ORBASG,   op::XORBASG, op::SLLASG, op::SRLASG};
        int operation = op::PLUS;
        for (int i = 0; i < 10; i++)
            if (compound[i] == code) operation = plain[i];
        tree* first = nullptr;
        target = reusable(target, first);
        tree* combined = make(operation, computation, convert(clone(target), computation), operand);
        tree* result = assign(target, to_bool(combined));
        return first == nullptr ? result : make(op::COMMAOP, type, first, result);
    }
    if (!shift) operand = convert(operand, computation);
    return make(code, type, target, operand);
}

model::tree* lowering::value_of_va_arg(const VAArgExpr* expr) {
    tree* list = lvalue(expr->getSubExpr());
    TYPE* type = type_of(expr->getType())->stqs();
    const std::int64_t units = units_of(type);
    const std::int64_t align = std::max<std::int64_t>(1, type->align() / 16);
    tree* first = nullptr;
    list = reusable(list, first);
    TYPE* pointer = list->type->stqs();
    // The list moves up to the argument's alignment, then behind the argument.
    std::vector<tree*> steps;
    if (first != nullptr) steps.push_back(first);
    if (align > 1) {
        tree* number = make(op::SCONV, uint_, make(op::PLUS, pointer, clone(list), int_icon(align - 1)));
        tree* rounded = make(op::ANDB, uint_, number, icon(uint_, -align));
        steps.push_back(assign(clone(list), make(op::PCONV, pointer, rounded)));
    }
    tree* behind = make(op::PLUSASG, pointer, clone(list), int_icon(units));
    tree* argument = make(op::PCONV, types_.mk_ptr(type), make(op::MINUS, pointer, behind, int_icon(units)));
    return make(op::UMULT, type, in_sequence(steps, argument));
}

model::tree* lowering::value_of_builtin(const CallExpr* expr, llvm::StringRef builtin) {
    if (builtin == "__builtin_va_start") {
        tree* list = lvalue(expr->getArg(0)->IgnoreParenImpCasts());
        const auto* last = dyn_cast<DeclRefExpr>(expr->getArg(1)->IgnoreParenImpCasts());
        if (last == nullptr) return nullptr;
        symbol* s = symbol_of(last->getDecl());
        TYPE* pointer = list->type->stqs();
        tree* start = make(op::PCONV, pointer, make(op::UAND, types_.mk_ptr(s->type), name(s)));
        return assign(list, make(op::PLUS, pointer, start, int_icon(units_of(s->type))));
    }
    if (builtin == "__builtin_va_end") return effects(expr->getArg(0)->IgnoreParenImpCasts());
    if (builtin == "__builtin_va_copy")
        return assign(lvalue(expr->getArg(0)->IgnoreParenImpCasts()),
                      lvalue(expr->getArg(1)->IgnoreParenImpCasts()));
    if (builtin == "__builtin_unreachable") return make(op::NASSERT, int_, int_icon(0));
    if (builtin == "__builtin_assume" || builtin == "_nassert")
        return make(op::NASSERT, int_, condition(expr->getArg(0)));
    if (builtin == "__builtin_expect") {
        tree* arguments = make(op::COMMA, int_, value(expr->getArg(0)), value(expr->getArg(1)));
        tree* expect = make(op::ICALL, type_of(expr->getType())->stqs(), arguments);
        expect->text = "__builtin_expect";
        return expect;
    }
    if (builtin == "__builtin_constant_p") {
        const auto known = evaluate(expr);
        return int_icon(known ? known->number : 0);
    }
    return nullptr;
}

model::tree* lowering::value_of_call(const CallExpr* expr) {
    if (const FunctionDecl* callee = expr->getDirectCallee())
        if (tree* special = value_of_builtin(expr, callee->getName())) return special;
    tree* function = value(expr->getCallee());
    TYPE* result = type_of(expr->getType())->stqs();
    const auto* proto = expr->getCallee()->getType()->getPointeeType()->getAs<FunctionProtoType>();
    tree* args = nullptr;
    for (unsigned i = 0; i < expr->getNumArgs(); i++) {
        const Expr* source = expr->getArg(i);
        tree* arg = nullptr;
        if (source->getType()->isRecordType()) {
            arg = value(source);
            arg = make(op::STARG, arg->type->stqs(), arg);
        } else {
            arg = value(source);
            // Converting an argument is the call's doing.
            TYPE* wanted = proto != nullptr && i < proto->getNumParams()
                               ? type_of(proto->getParamType(i))->stqs()
                               : arg->type->stqs();
            if (arg->op == op::SCONV && wanted == arg->type && !wanted->is_bool()) arg->op = op::ACONV;
        }
        args = args == nullptr ? arg : make(op::COMMA, int_, args, arg);
    }
    if (args == nullptr) return make(op::UCALL, result, function);
    tree* call = make(op::CALL, result, function, args);
    call->value = next_call_++;
    return call;
}

model::tree* lowering::value(const Expr* expr) {
    expr = expr->IgnoreParens();
    // A long chain of operators leans left and would cost the host's stack a frame a link; everything that
    // deep runs on the large stack that the driver sets up.
    if (const auto* wrapper = dyn_cast<ConstantExpr>(expr)) return value(wrapper->getSubExpr());
    if (isa<IntegerLiteral>(expr) || isa<CharacterLiteral>(expr) || isa<FloatingLiteral>(expr) ||
        isa<UnaryExprOrTypeTraitExpr>(expr) || isa<OffsetOfExpr>(expr)) {
        const auto known = evaluate(expr);
        return from_constant(*known, type_of(expr->getType()));
    }
    if (const auto* ref = dyn_cast<DeclRefExpr>(expr)) {
        if (const auto* enumerator = dyn_cast<EnumConstantDecl>(ref->getDecl()))
            return icon(type_of(expr->getType())->stqs(), enumerator_value(enumerator));
        return lvalue(expr);
    }
    if (const auto* cast = dyn_cast<CastExpr>(expr)) return value_of_cast(cast);
    if (const auto* compound = dyn_cast<CompoundAssignOperator>(expr)) return value_of_compound(compound);
    if (const auto* binary = dyn_cast<BinaryOperator>(expr)) return value_of_binary(binary);
    if (const auto* unary = dyn_cast<UnaryOperator>(expr)) return value_of_unary(unary);
    if (const auto* call = dyn_cast<CallExpr>(expr)) return value_of_call(call);
    if (const auto* ternary = dyn_cast<ConditionalOperator>(expr)) {
        TYPE* type = type_of(expr->getType())->stqs();
        tree* cond = condition(ternary->getCond());
        tree* yes = value(ternary->getTrueExpr());
        tree* no = value(ternary->getFalseExpr());
        if (type->is_ptr()) {
            yes = yes->type->stqs() == type ? yes : convert(yes, type);
            no = no->type->stqs() == type ? no : convert(no, type);
        }
        return make(op::QUEST, type, cond, make(op::COLON, type, yes, no));
    }
    if (const auto* elvis = dyn_cast<BinaryConditionalOperator>(expr)) {
        TYPE* type = type_of(expr->getType())->stqs();
        tree* common = value(elvis->getCommon());
        symbol* temp = temporary(common->type->stqs());
        tree* keep = assign(name(temp), common);
        tree* no = value(elvis->getFalseExpr());
        return make(op::QUEST, type, keep, make(op::COLON, type, convert(name(temp), type), no));
    }
    if (const auto* opaque = dyn_cast<OpaqueValueExpr>(expr)) return value(opaque->getSourceExpr());
    if (const auto* selection = dyn_cast<GenericSelectionExpr>(expr))
        return value(selection->getResultExpr());
    if (const auto* choose = dyn_cast<ChooseExpr>(expr)) return value(choose->getChosenSubExpr());
    if (const auto* va = dyn_cast<VAArgExpr>(expr)) return value_of_va_arg(va);
    if (isa<MemberExpr>(expr) || isa<ArraySubscriptExpr>(expr) || isa<CompoundLiteralExpr>(expr) ||
        isa<StringLiteral>(expr) || isa<PredefinedExpr>(expr))
        return lvalue(expr);
    if (const auto* list = dyn_cast<InitListExpr>(expr); list != nullptr && expr->getType()->isScalarType())
        return list->getNumInits() == 1 ? value(list->getInit(0))
                                        : from_constant(constant{}, type_of(expr->getType()));
    if (isa<ImplicitValueInitExpr>(expr) && expr->getType()->isScalarType())
        return from_constant(constant{}, type_of(expr->getType()));
    if (isa<StmtExpr>(expr))
        refuse(expr->getExprLoc(), "statement expressions are not supported");
    else if (isa<AddrLabelExpr>(expr))
        refuse(expr->getExprLoc(), "computed goto is not supported");
    else
        refuse(expr->getExprLoc(),
               std::string("expression of kind ") + expr->getStmtClassName() + " is not supported");
    return int_icon(0);
}
