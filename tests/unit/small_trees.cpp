#include "small_trees.h"

#include <algorithm>
#include <cstring>

#include "OPT5/erase.h"

using namespace op;

void SMALL_TREES::SetUp() {
    IR_TEST::SetUp();
    schar4 = sized_int(IK_CHAR, 4);
    uchar4 = sized_int(IK_UCHAR, 4);
    TYPE* of_fields = tp->mk_struct("FIELDS", TYPE_LAYOUT{64, 32, nullptr});
    if (!of_fields->is_frozen()) {
        const auto add = [&](const char* name, IKIND kind, unsigned width, int offset) {
            fkMDATA member;
            member.name = name;
            member.type = tp->int_type(kind);
            member.width = width;
            member.bit_field = true;
            member.offset = offset;
            tp->add_member(of_fields, member);
        };
        add("s3", IK_INT, 3, 0);
        add("u3", IK_UINT, 3, 3);
        add("s1", IK_INT, 1, 6);
        add("u1", IK_UINT, 1, 7);
        add("b1", IK_BOOL, 1, 8);
        add("s9", IK_LONG, 9, 16);
        add("u20", IK_ULONG, 20, 32);
        tp->type_frozen(of_fields);
    }
    begin(function("f"));
    types = {schar4, uchar4};
    for (int kind : {IK_INT, IK_UINT, IK_LONG, IK_ULONG, IK_LLONG, IK_ULLONG, IK_BOOL, IK_UCHAR})
        types.push_back(tp->int_type(static_cast<IKIND>(kind)));
    places.clear();
    const auto add = [this](const char* name, TYPE* type, bool is_target) {
        SYMTAB* made = local(name, type);
        const auto width = static_cast<unsigned>(type->size());
        places.push_back({made, nullptr, type, width, type->is_signed(), is_target, false});
        return made;
    };
    s4 = add("s4", schar4, false);
    t4 = add("t4", schar4, false);
    u4 = add("u4", uchar4, false);
    v4 = add("v4", uchar4, false);
    const char* const names[] = {"", "", "i", "u", "l", "ul", "ll", "ull", "b", "uc"};
    for (std::size_t i = 2; i < types.size(); i++) add(names[i], types[i], false);
    const char* const targets[] = {"zs4", "zu4", "zi", "zu", "zl", "zul", "zll", "zull", "zb", "zuc"};
    for (std::size_t i = 0; i < types.size(); i++) add(targets[i], types[i], true);
    record = local("record", of_fields);
    SYMTAB* target_record = local("target", of_fields);
    for (SYMTAB* owner : {record, target_record}) {
        for (unsigned i = 1; of_fields->member(i) != nullptr; i++) {
            fkMDATA* m = of_fields->member(i);
            places.push_back(
                {owner, m, m->type, m->width, m->type->is_signed(), owner == target_record, false});
        }
    }
}

void SMALL_TREES::TearDown() {
    stmt(tree(op::RETURN, int_type, name(currfunc), icon(0)));
    end();
    IR_TEST::TearDown();
}

NODE* SMALL_TREES::field_node(SYMTAB* symbol, fkMDATA* member) {
    NODE* field = new_node(FIELD, member->type);
    field->mk_field(1, member, symbol->otype);
    return tree(STDOT, member->type, name(symbol), field);
}

NODE* SMALL_TREES::place_node(const PLACE& place) {
    return place.member == nullptr ? name(place.symbol) : field_node(place.symbol, place.member);
}

NODE* SMALL_TREES::intrinsic(const char* name, TYPE* type, NODE* a, NODE* b) {
    return mk_ICALL(name, b != nullptr ? comma(a, b) : a, type);
}

// --- The generator.

NUMBER SMALL_TREES::random_number(TYPE* type) {
    const unsigned width = static_cast<unsigned>(type->size());
    NUMBER value = 0;
    switch (below(6)) {
        case 0: value = static_cast<int>(below(5)) - 2; break;
        case 1: value = NUMBER{1} << below(width); break;
        case 2: value = (NUMBER{1} << below(width)) - 1; break;
        case 3: value = -(NUMBER{1} << below(width)); break;
        case 4: value = below(100); break;
        default: value = static_cast<NUMBER>(random_()) << 32 | random_(); break;
    }
    return convert(value, type);
}

SMALL_TREES::VALUES SMALL_TREES::random_values() {
    VALUES values;
    for (const PLACE& place : places)
        values.push_back(
            place.type->is_bool() ? below(2) : wrap(random_number(place.type), place.width, place.is_signed));
    return values;
}

NODE* SMALL_TREES::random_place(TYPE* type, bool is_target) {
    std::vector<PLACE*> fitting;
    for (PLACE& place : places)
        if (place.type == type && place.is_target == is_target && !place.is_used) fitting.push_back(&place);
    if (fitting.empty()) return nullptr;
    PLACE* chosen = fitting[below(static_cast<unsigned>(fitting.size()))];
    chosen->is_used = is_target;
    return place_node(*chosen);
}

NODE* SMALL_TREES::random_leaf(TYPE* type) {
    return below(3) == 0 ? number(random_number(type), type) : random_place(type, false);
}

NODE* SMALL_TREES::random_tree(TYPE* type, int depth) {
    for (PLACE& place : places) place.is_used = false;
    return grow(type, depth);
}

NODE* SMALL_TREES::grow(TYPE* type, int depth) {
    if (depth == 0 || below(8) == 0) return random_leaf(type);
    const auto any_type = [this] { return types[below(static_cast<unsigned>(types.size()))]; };
    const auto operand = [&] { return grow(type, depth - 1); };
    const auto other = [&] { return grow(any_type(), depth - 1); };
    const unsigned width = static_cast<unsigned>(type->size());
    const auto count = [&]() -> NODE* {
        if (below(3) != 0) return icon(static_cast<int>(below(width)));
        return tree(ANDB, int_type, grow(int_type, depth - 1), icon(static_cast<int>(width - 1)));
    };
    if (type->is_bool()) {
        switch (below(4)) {
            case 0: return tree(COMMAOP, type, other(), operand());
            case 1:
                if (NODE* target = random_place(type, true)) return tree(ASG, type, target, operand());
                return random_leaf(type);
            default: return tree(SCONV, type, other());
        }
    }
    switch (below(22)) {
        case 0:
        case 1: return tree(PLUS, type, operand(), operand());
        case 2: return tree(MINUS, type, operand(), operand());
        case 3: return tree(MULT, type, operand(), operand());
        case 4: return tree(MULT, type, operand(), number(random_number(type), type));
        case 5: {
            NODE* by = below(2) != 0 ? number(random_number(type), type) : operand();
            return tree(below(2) != 0 ? DIV : MOD, type, operand(), by);
        }
        case 6: return tree(ANDB, type, operand(), operand());
        case 7:
        case 8: return tree(ANDB, type, operand(), number(random_number(type), type));
        case 9: return tree(ORB, type, operand(), below(2) != 0 ? operand() : random_leaf(type));
        case 10: return tree(XORB, type, operand(), below(2) != 0 ? operand() : random_leaf(type));
        case 11: return tree(SLL, type, operand(), count());
        case 12: return tree(SRL, type, operand(), count());
        case 13: {
            const int unary[] = {UMINUS, NOTB, ABS};
            const int op = unary[below(3)];
            return tree(op == ABS && !type->is_signed() ? NOTB : op, type, operand());
        }
        case 14: {
            TYPE* condition = any_type();
            NODE* arms = tree(COLON, type, operand(), operand());
            return tree(QUEST, type, grow(condition, depth - 1), arms);
        }
        case 15: return tree(COMMAOP, type, other(), operand());
        case 16:
        case 17:
        case 18: return random_assignment(type, depth);
        case 19: {
            const char* const names[] = {"MIN", "LMAX", "_LLMINU", "MAXU", "_lssub", "SADD", "abs"};
            const unsigned which = below(7);
            if (which == 6) return intrinsic(names[6], type, operand(), nullptr);
            return intrinsic(names[which], type, operand(), operand());
        }
        case 20:
            if (type == int_type) {
                TYPE* compared = any_type();
                const auto side = [&] { return grow(compared, depth - 1); };
                if (below(4) == 0) return tree(below(2) != 0 ? ANDAND : OROR, type, side(), side());
                if (below(4) == 0) return tree(EXCLAIM, type, side());
                const int relation = compared->is_signed() ? LE : ULE;
                return tree(below(3) == 0 ? EQ : relation, type, side(), side());
            }
            return tree(SCONV, type, other());
        default: return tree(SCONV, type, other());
    }
}

NODE* SMALL_TREES::random_assignment(TYPE* type, int depth) {
    NODE* target = random_place(type, true);
    if (target == nullptr) return random_leaf(type);
    const int ops[] = {PLUSASG, MINUSASG, MULTASG, ANDBASG, ORBASG, XORBASG, DIVASG, MODASG};
    const int op = ops[below(8)];
    switch (below(4)) {
        case 0: return tree(ASG, type, target, grow(type, depth - 1));
        case 1:
            return tree(op, type, target, grow(types[below(static_cast<unsigned>(types.size()))], depth - 1));
        case 2: {
            NODE* by = icon(static_cast<int>(below(static_cast<unsigned>(type->size()))));
            return tree(below(2) != 0 ? SLLASG : SRLASG, type, target, by);
        }
        default: return tree(below(2) != 0 ? PLUSPLUS : MINMIN, type, target, number(1, type));
    }
}

// --- The evaluator.

NUMBER SMALL_TREES::wrap(NUMBER value, unsigned width, bool is_signed) {
    const NUMBER span = NUMBER{1} << width;
    value &= span - 1;
    return is_signed && value >= span / 2 ? value - span : value;
}

NUMBER SMALL_TREES::convert(NUMBER value, TYPE* type) {
    if (type->is_bool()) return value != 0 ? 1 : 0;
    return wrap(value, static_cast<unsigned>(type->size()), type->is_signed());
}

SMALL_TREES::PLACE& SMALL_TREES::place_of(const NODE* lvalue) {
    for (PLACE& place : places)
        if (lvalue->op == NAME
                ? place.symbol == lvalue->symbol() && place.member == nullptr
                : place.symbol == lvalue->left->symbol() && place.member == lvalue->right->mdata)
            return place;
    ADD_FAILURE() << "an unknown place";
    return places[0];
}

std::optional<NUMBER> SMALL_TREES::compute(int op, NUMBER a, NUMBER b, TYPE* type, unsigned width,
                                           bool is_signed) {
    __extension__ using UNBOUND = unsigned __int128;
    NUMBER result = 0;
    switch (op) {
        case PLUS: result = a + b; break;
        case MINUS: result = a - b; break;
        case MULT: result = static_cast<NUMBER>(static_cast<UNBOUND>(a) * static_cast<UNBOUND>(b)); break;
        case DIV:
        case MOD:
            if (b == 0) return std::nullopt;
            result = op == DIV ? a / b : a % b;
            break;
        case ANDB: result = a & b; break;
        case ORB: result = a | b; break;
        case XORB: result = a ^ b; break;
        case SLL:
        case SRL:
            if (b < 0 || b >= width) return std::nullopt;
            result = op == SRL ? a >> static_cast<int>(b)
                               : static_cast<NUMBER>(static_cast<UNBOUND>(a) << static_cast<int>(b));
            break;
        default: ADD_FAILURE() << "an unknown operator " << opname(op);
    }
    return type != nullptr ? convert(result, type) : wrap(result, width, is_signed);
}

// Assignments: the value is that of the place afterwards, of the steps by one that before.
std::optional<NUMBER> SMALL_TREES::store(NODE* node, VALUES& values) {
    const PLACE& place = place_of(node->left);
    const auto by = evaluate(node->right, values);
    if (!by) return std::nullopt;
    NUMBER& at = values[static_cast<std::size_t>(&place - places.data())];
    const NUMBER old = at;
    const auto put = [&](NUMBER value) {
        at = place.type->is_bool() ? convert(value, place.type) : wrap(value, place.width, place.is_signed);
        return at;
    };
    switch (node->op) {
        case ASG: return put(*by);
        case PLUSPLUS: put(old + *by); return old;
        case MINMIN: put(old - *by); return old;
        default: break;
    }
    // The usual conversions of C, with `int` of 16 bits, where characters and small bit-fields become `int`.
    struct FORM {
        unsigned width;
        bool is_signed;
    };
    const auto promoted = [](TYPE* type, unsigned width) -> FORM {
        if (width < 16 || type->is_uchar() || type->is_bool()) return {16, true};
        return {static_cast<unsigned>(type->size()), type->is_signed()};
    };
    FORM in = promoted(place.type, place.width);
    const int op = op_of_opASG[node->op];
    if (op != SLL && op != SRL) {
        const FORM right = promoted(node->right->type, static_cast<unsigned>(node->right->type->size()));
        if (right.width == in.width)
            in.is_signed = in.is_signed && right.is_signed;
        else if (right.width > in.width)
            in = right;
    }
    const NUMBER b = op == SLL || op == SRL ? *by : wrap(*by, in.width, in.is_signed);
    const auto result = compute(op, wrap(old, in.width, in.is_signed), b, nullptr, in.width, in.is_signed);
    if (!result) return std::nullopt;
    return put(*result);
}

std::optional<NUMBER> SMALL_TREES::call(NODE* node, VALUES& values) {
    const char* text = node->intrinsic();
    const auto is = [text](const char* lower) { return std::strcmp(text, lower) == 0; };
    const unsigned width = static_cast<unsigned>(node->type->size());
    const bool is_signed = !is("_LLMINU") && !is("MAXU");
    const auto left = evaluate(is("abs") ? node->left : node->left->left, values);
    if (!left) return std::nullopt;
    const NUMBER a = wrap(*left, width, is_signed);
    const auto saturated = [width](NUMBER value) {
        const NUMBER most = (NUMBER{1} << (width - 1)) - 1;
        return std::clamp(value, -most - 1, most);
    };
    if (is("abs")) return convert(saturated(a < 0 ? -a : a), node->type);
    const auto right = evaluate(node->left->right, values);
    if (!right) return std::nullopt;
    const NUMBER b = wrap(*right, width, is_signed);
    if (is("_lssub")) return convert(saturated(a - b), node->type);
    if (is("SADD")) return convert(saturated(a + b), node->type);
    return convert(is("MIN") || is("_LLMINU") ? std::min(a, b) : std::max(a, b), node->type);
}

std::optional<NUMBER> SMALL_TREES::evaluate(NODE* node, VALUES& values) {
    NODE *left = node->left, *right = node->right;
    TYPE* type = node->type;
    switch (node->op) {
        case ICON: return convert(static_cast<NUMBER>(node->u.lval.to_signed()), type);
        case NAME:
        case STDOT: return values[static_cast<std::size_t>(&place_of(node) - places.data())];
        case ICALL: return call(node, values);
        case COMMAOP:
            if (!evaluate(left, values)) return std::nullopt;
            return evaluate(right, values);
        default: break;
    }
    if (node->op == PLUSPLUS || node->op == MINMIN || node->op == ASG || op_of_opASG[node->op] != ILLOP)
        return store(node, values);
    const auto a = evaluate(left, values);
    if (!a) return std::nullopt;
    switch (node->op) {
        case SCONV: return convert(*a, type);
        case UMINUS: return convert(-*a, type);
        case NOTB: return convert(~*a, type);
        case ABS: return convert(*a < 0 ? -*a : *a, type);
        case EXCLAIM: return *a == 0 ? 1 : 0;
        case QUEST: return evaluate(*a != 0 ? right->left : right->right, values);
        case ANDAND:
            if (*a == 0) return 0;
            break;
        case OROR:
            if (*a != 0) return 1;
            break;
        default: break;
    }
    const auto b = evaluate(right, values);
    if (!b) return std::nullopt;
    switch (node->op) {
        case ANDAND:
        case OROR: return *b != 0 ? 1 : 0;
        case NEQ: return *a != *b ? 1 : 0;
        case EQ: return *a == *b ? 1 : 0;
        case LE:
        case ULE: return *a <= *b ? 1 : 0;
        case LT:
        case ULT: return *a < *b ? 1 : 0;
        case GE:
        case UGE: return *a >= *b ? 1 : 0;
        case GT:
        case UGT: return *a > *b ? 1 : 0;
        default:
            return compute(node->op, *a, *b, type, static_cast<unsigned>(type->size()), type->is_signed());
    }
}
