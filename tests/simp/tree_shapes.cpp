// The shapes that rules of the simplifier look for.

#include <utility>

#include "OPT5/files.h"
#include "OPT5/node.h"
#include "OPT5/opcodes.h"
#include "OPT5/symbol.h"
#include "OPT5/types.h"
#include "tests/simp/tree_gen.h"

using namespace op;

namespace prove {

NODE* GENERATOR::sum_shape(TYPE* type, int depth) {
    const int sign = percent(60) ? PLUS : MINUS;
    NODE* x = pure(type, depth - 2);
    switch (below(9)) {
        case 0: { // x * k1 + x * k2
            NODE* first = node(MULT, copy(x), constant(type), type);
            return node(sign, first, node(MULT, x, constant(type), type), type);
        }
        case 1: { // x * k + y * k
            NODE* k = constant(type);
            NODE* first = node(MULT, x, k, type);
            return node(sign, first, node(MULT, operand(type, depth - 2), copy(k), type), type);
        }
        case 2: // x * k + x
            return node(sign, node(MULT, copy(x), constant(type), type), x, type);
        case 3: { // (x + k1) * k2 + (x + k3) * k4
            NODE* first = node(MULT, node(PLUS, copy(x), constant(type), type), constant(type), type);
            NODE* second = node(MULT, node(PLUS, x, constant(type), type), constant(type), type);
            return node(sign, first, second, type);
        }
        case 4: // k1 - (k2 - x)
            return node(sign, constant(type), node(MINUS, constant(type), x, type), type);
        case 5: { // x + -y, x + -(y * k)
            NODE* y = operand(type, depth - 2);
            if (percent(50)) y = node(MULT, y, constant(type), type);
            y = node(UMINUS, y, nullptr, type);
            return percent(50) ? node(sign, x, y, type) : node(sign, y, x, type);
        }
        case 6: // -x - 1, ~x + 1
            return node(sign, node(percent(50) ? UMINUS : NOTB, x, nullptr, type), number(1, type), type);
        case 7: { // (x + y) - x and like
            NODE* sum = node(sign, copy(x), operand(type, depth - 2), type);
            return node(percent(50) ? PLUS : MINUS, sum, x, type);
        }
        default: { // sums of conversions: (T)(a + k) + k2
            TYPE* inner = other_type(type);
            NODE* sum = node(sign, to(inner, x), constant(inner), inner);
            return node(PLUS, to(type, sum), constant(type), type);
        }
    }
}

NODE* GENERATOR::mask_shape(TYPE* type, int depth) {
    const int bits = width(type);
    TYPE* int_type = tp->int_type(IK_INT);
    NODE* x = pure(type, depth - 2);
    const auto count = [&] { return number(below(static_cast<unsigned>(bits)), int_type); };
    static constexpr int logic[] = {ANDB, ORB, XORB};
    switch (below(9)) {
        case 0: return node(SRL, node(ANDB, x, constant(type), type), count(), type);
        case 1: return node(ANDB, node(percent(50) ? SRL : SLL, x, count(), type), constant(type), type);
        case 2: { // ((x & k1) + k2) & k3
            const std::int64_t low = (std::int64_t{1} << below(static_cast<unsigned>(bits - 1))) - 1;
            NODE* masked = node(ANDB, x, percent(70) ? number(low, type) : constant(type), type);
            NODE* sum = node(percent(70) ? PLUS : MINUS, masked, constant(type), type);
            return node(ANDB, sum, percent(70) ? number(low, type) : constant(type), type);
        }
        case 3: // (x op k1) op k2
            return node(random_.one_of(logic), node(random_.one_of(logic), x, constant(type), type),
                        constant(type), type);
        case 4: { // x op x, x op ~x
            NODE* second = percent(50) ? node(NOTB, copy(x), nullptr, type) : copy(x);
            return node(random_.one_of(logic), x, second, type);
        }
        case 5: // (x * 2^k) & m
            return node(
                ANDB,
                node(MULT, x, number(std::int64_t{1} << below(static_cast<unsigned>(bits - 1)), type), type),
                constant(type), type);
        case 6: { // (T)(narrower) & m
            TYPE* inner = other_type(type);
            return node(ANDB, to(type, to(inner, x)), constant(type), type);
        }
        case 7: { // (x & k1) | (y & k2)
            NODE* first = node(ANDB, x, constant(type), type);
            NODE* second = node(ANDB, operand(type, depth - 2), constant(type), type);
            return node(random_.one_of(logic), first, second, type);
        }
        default: // (x << n) >> n by arithmetic and logic: sign and zero extension
            return node(SRL, node(SLL, x, count(), type), count(), type);
    }
}

NODE* GENERATOR::shift_shape(TYPE* type, int depth) {
    TYPE* int_type = tp->int_type(IK_INT);
    const auto bits = static_cast<unsigned>(width(type));
    const auto count = [&] { return number(below(bits), int_type); };
    NODE* x = operand(type, depth - 2);
    const int inner = percent(50) ? SLL : SRL, outer = percent(50) ? SLL : SRL;
    switch (below(5)) {
        case 0: return node(outer, node(inner, x, count(), type), count(), type);
        case 1: // the same count twice
        {
            const std::int64_t n = below(bits);
            return node(outer, node(inner, x, number(n, int_type), type), number(n, int_type), type);
        }
        case 2: return node(outer, node(MULT, x, constant(type), type), count(), type);
        case 3: return node(MULT, node(inner, x, count(), type), constant(type), type);
        default: {
            TYPE* middle = other_type(type);
            NODE* first = node(inner, to(middle, x),
                               number(below(static_cast<unsigned>(width(middle))), int_type), middle);
            return node(outer, to(type, first), count(), type);
        }
    }
}

NODE* GENERATOR::quotient_shape(TYPE* type, int depth) {
    const std::int64_t power = std::int64_t{1} << below(static_cast<unsigned>(width(type) - 1));
    NODE* x = pure(type, depth - 2);
    const int op = percent(50) ? DIV : MOD;
    switch (below(7)) {
        case 0: return node(op, x, number(power, type), type);
        case 1: return node(op, x, number(-power, type), type);
        case 2: return node(percent(50) ? DIV : MOD, node(op, x, constant(type), type), constant(type), type);
        case 3: return node(op, node(MULT, x, constant(type), type), constant(type), type);
        case 4: return node(MULT, node(op, x, constant(type), type), constant(type), type);
        case 5: { // x - x / k * k
            NODE* k = constant(type);
            NODE* whole = node(MULT, node(DIV, copy(x), k, type), copy(k), type);
            return node(MINUS, x, whole, type);
        }
        default:
            return node(op, node(percent(50) ? SRL : ANDB, x, number(below(15), type), type), constant(type),
                        type);
    }
}

NODE* GENERATOR::comparison_shape(int depth) {
    TYPE* type = integer_type();
    TYPE* int_type = tp->int_type(IK_INT);
    const int op = comparison_operator(type);
    NODE* x = pure(type, depth - 2);
    const auto bits = static_cast<unsigned>(width(type));
    NODE* left = nullptr;
    switch (below(12)) {
        case 0: left = node(percent(50) ? PLUS : MINUS, x, constant(type), type); break;
        case 1: left = node(MINUS, constant(type), x, type); break;
        case 2: left = node(MULT, x, constant(type), type); break;
        case 3: left = node(percent(50) ? SRL : SLL, x, number(below(bits), int_type), type); break;
        case 4: { // (x & k) == k, and k with another mask
            NODE* k = percent(50) ? number(std::int64_t{1} << below(bits - 1), type) : constant(type);
            return node(percent(70) ? EQ : op, node(ANDB, x, k, type), percent(60) ? copy(k) : constant(type),
                        int_type);
        }
        case 5: left = node(percent(50) ? ORB : XORB, x, constant(type), type); break;
        case 6: left = to(type, to(other_type(type), x)); break;
        case 7: // x + k1 op y + k2
            return node(op, node(PLUS, copy(x), constant(type), type),
                        node(percent(50) ? PLUS : MINUS, x, constant(type), type), int_type);
        case 8: // _ssub(x, y) against zero
            left = mk_ICALL("_ssub", node(COMMA, to(int_type, x), pure(int_type, depth - 2), tp->void_type()),
                            int_type);
            return node(relation_of(op, true), left, percent(80) ? number(0, int_type) : constant(int_type),
                        int_type);
        case 9: { // k1 < x && x < k2
            NODE* first = node(op, copy(x), constant(type), int_type);
            NODE* second = node(comparison_operator(type), x, constant(type), int_type);
            return node(percent(50) ? ANDAND : OROR, first, second, int_type);
        }
        case 10: left = node(percent(50) ? DIV : MOD, x, constant(type), type); break;
        default: left = node(percent(50) ? UMINUS : NOTB, x, nullptr, type);
    }
    return node(op, left, constant(type), int_type);
}

NODE* GENERATOR::truth_shape(TYPE* type, int depth) {
    TYPE* int_type = tp->int_type(IK_INT);
    const auto masked = [&](TYPE* of) {
        const std::int64_t bit = std::int64_t{1} << below(static_cast<unsigned>(width(of) - 1));
        return node(ANDB, percent(60) ? pure(of, 0) : pure(of, depth - 2),
                    percent(60) ? number(bit, of) : constant(of), of);
    };
    const auto compared = [&] { return percent(80) ? comparison(depth - 1) : logical(depth - 1); };
    pure_++; // several conditions side by side
    NODE* made = nullptr;
    switch (below(9)) {
        case 0: made = node(percent(50) ? ANDAND : OROR, masked(type), masked(type), int_type); break;
        case 1: { // both of one variable
            NODE* x = pure(type, 0);
            made = node(percent(50) ? ANDAND : OROR, node(ANDB, copy(x), constant(type), type),
                        node(ANDB, x, constant(type), type), int_type);
            break;
        }
        case 2: made = node(EXCLAIM, percent(50) ? compared() : masked(type), nullptr, int_type); break;
        case 3: made = node(percent(50) ? EQ : NEQ, compared(), number(below(3), int_type), int_type); break;
        case 4: {
            static constexpr int ops[] = {ANDB, ORB, XORB, PLUS, MINUS, MULT};
            NODE* first = compared();
            made = node(random_.one_of(ops), first, percent(50) ? number(1, int_type) : compared(), int_type);
            break;
        }
        case 5: // (x >> k) & 1
            made = node(ANDB,
                        node(SRL, pure(type, depth - 2),
                             number(below(static_cast<unsigned>(width(type))), int_type), type),
                        number(1, type), type);
            break;
        case 6: // the sign
            made = node(SRL, pure(type, depth - 2), number(width(type) - 1, int_type), type);
            break;
        case 7: { // nested under a condition
            NODE* test = compared();
            made = node(QUEST, test,
                        node(COLON, number(percent(50), int_type), number(percent(50), int_type), int_type),
                        int_type);
            break;
        }
        default: { // (x & k) ^ k
            NODE* k = number(std::int64_t{1} << below(static_cast<unsigned>(width(type) - 1)), type);
            made = node(XORB, node(ANDB, pure(type, depth - 2), k, type), copy(k), type);
        }
    }
    pure_--;
    if (percent(30)) made = node(EXCLAIM, made, nullptr, int_type);
    return to(type, made);
}

NODE* GENERATOR::choice_shape(TYPE* type, int depth) {
    TYPE* int_type = tp->int_type(IK_INT);
    NODE* x = pure(type, depth - 2);
    NODE* y = percent(30) ? constant(type) : pure(type, depth - 2);
    const int op = comparison_operator(type);
    const auto quest = [&](NODE* test, NODE* first, NODE* second) {
        return node(QUEST, test, node(COLON, first, second, type), type);
    };
    switch (below(9)) {
        case 0: // minimum and maximum, also with the arms turned
        case 1: {
            NODE* test = node(op, copy(x), copy(y), int_type);
            return percent(50) ? quest(test, x, y) : quest(test, y, x);
        }
        case 2: { // an arm is what the condition looks at
            NODE* test = node(op, copy(x), copy(y), int_type);
            return percent(50) ? quest(test, x, constant(type)) : quest(test, constant(type), y);
        }
        case 3: { // one operator in both arms
            static constexpr int ops[] = {PLUS, MINUS, MULT, ANDB, ORB, XORB};
            const int both = random_.one_of(ops);
            NODE* test = condition(depth - 2);
            return quest(test, node(both, copy(x), y, type), node(both, x, constant(type), type));
        }
        case 6: { // nested choices with an arm in common
            NODE* inner = quest(condition(depth - 2), percent(50) ? copy(x) : constant(type), copy(y));
            if (percent(30)) std::swap(inner->right->left, inner->right->right);
            NODE* outer = percent(50) ? quest(condition(depth - 2), inner, percent(50) ? x : y)
                                      : quest(condition(depth - 2), percent(50) ? x : y, inner);
            return outer;
        }
        case 7: // the constant that the condition has found
        {
            NODE* k = constant(type);
            NODE* test = node(percent(80) ? (percent(50) ? EQ : NEQ) : op, copy(x), k, int_type);
            NODE* other = percent(50) ? copy(k) : constant(type);
            return percent(50) ? quest(test, other, x) : quest(test, x, other);
        }
        case 8: { // limits
            NODE* k = constant(type);
            NODE* near =
                percent(60) ? copy(k) : mk_ICON(k->u.lval + INT65::from_signed(percent(50) ? 1 : -1), type);
            NODE* test = node(op, copy(x), k, int_type);
            return percent(50) ? quest(test, near, x) : quest(test, x, near);
        }
        case 4: { // the value or a constant, the condition being the value itself
            NODE* other = percent(50) ? number(below(3), type) : constant(type);
            return percent(50) ? quest(copy(x), x, other) : quest(copy(x), other, x);
        }
        default: { // -x below zero: the magnitude
            NODE* test = node(op, copy(x), number(0, type), int_type);
            NODE* negative = node(UMINUS, copy(x), nullptr, type);
            return percent(50) ? quest(test, negative, x) : quest(test, x, negative);
        }
    }
}

// Terms that cancel, and constants inside.
NODE* GENERATOR::difference_shape(TYPE* type, int depth) {
    NODE* x = pure(type, depth - 2);
    NODE* y = pure(type, depth - 2);
    const auto make = [&](int op, NODE* left, NODE* right) { return node(op, left, right, type); };
    const auto negative = [&](NODE* tree) { return node(UMINUS, tree, nullptr, type); };
    const int sign = percent(50) ? PLUS : MINUS;
    switch (below(11)) {
        case 0:
            return percent(50) ? make(MINUS, x, make(sign, copy(x), y))
                               : make(MINUS, y, make(sign, x, copy(y)));
        case 1: { // (x + y) - (z + x)
            NODE* z = pure(type, depth - 2);
            NODE* first = percent(50) ? make(sign, x, y) : make(sign, y, x);
            NODE* second =
                percent(50) ? make(percent(50) ? PLUS : MINUS, z, copy(x)) : make(PLUS, copy(x), z);
            return make(MINUS, first, second);
        }
        case 2: // (k - x) + y, (k - x) - (k2 - y)
            return percent(50) ? make(sign, make(MINUS, constant(type), x), y)
                               : make(sign, make(MINUS, constant(type), x), make(MINUS, constant(type), y));
        case 3: { // x * z + y * z
            NODE* z = pure(type, 0);
            NODE* first = percent(50) ? make(MULT, x, z) : make(MULT, z, x);
            NODE* again = copy(z);
            return make(sign, first, percent(50) ? make(MULT, y, again) : make(MULT, again, y));
        }
        case 4: return make(percent(50) ? MULT : PLUS, negative(x), negative(y));
        case 5: return make(MULT, negative(x), constant(type));
        case 6: return make(sign, make(MULT, x, constant(type)), negative(make(MULT, y, constant(type))));
        case 7: { // ~-x, -~x, ~(x + k), -(x - y)
            NODE* inner = percent(40)   ? negative(x)
                          : percent(50) ? make(sign, x, constant(type))
                                        : make(sign, x, y);
            return node(percent(60) ? NOTB : UMINUS, inner, nullptr, type);
        }
        case 8: { // (x >> k) * 2^k, (x / k) * k
            const int k = static_cast<int>(below(static_cast<unsigned>(width(type) - 1)));
            NODE* power = number(std::int64_t{1} << k, type);
            NODE* whole =
                percent(60) ? make(SRL, x, number(k, tp->int_type(IK_INT))) : make(DIV, x, copy(power));
            return make(MULT, whole, power);
        }
        case 9: { // powers
            NODE* first = make(EXPT, copy(x), number(below(5), type));
            return make(MULT, first, percent(50) ? x : make(EXPT, x, number(below(4), type)));
        }
        default: return make(sign, make(MULT, x, y), make(MULT, copy(x), constant(type)));
    }
}

// Comparisons of two trees that have much in common.
NODE* GENERATOR::two_sided_shape(int depth) {
    TYPE* type = integer_type();
    TYPE* int_type = tp->int_type(IK_INT);
    int op = comparison_operator(type);
    NODE* x = pure(type, depth - 2);
    NODE* y = pure(type, depth - 2);
    const auto make = [&](int o, NODE* left, NODE* right) { return node(o, left, right, type); };
    static constexpr int ops[] = {PLUS, MINUS, ANDB, ORB, XORB, MULT, MOD, SRL};
    NODE *left = nullptr, *right = nullptr;
    switch (below(9)) {
        case 0: { // one operator on both sides
            const int both = percent(50) ? NOTB : UMINUS;
            left = node(both, x, nullptr, type);
            right = node(both, y, nullptr, type);
            break;
        }
        case 1: {
            NODE* k = constant(type);
            const int both = percent(60) ? MULT : random_.one_of(ops);
            if (both == SRL) k->u.lval = INT65::from_signed(below(15));
            left = make(both, x, k);
            right = make(both, y, copy(k));
            break;
        }
        case 2: // x + k1 and y + k2
            left = make(PLUS, x, constant(type));
            right = make(PLUS, y, constant(type));
            break;
        case 3: { // x op y against x
            const int inner = random_.one_of(ops);
            left = inner == SRL ? make(SRL, x, number(below(15), int_type)) : make(inner, x, y);
            right = copy(percent(60) || inner == SRL ? x : y);
            break;
        }
        case 4: // x op y against x op z
            left = make(PLUS, x, y);
            right = make(PLUS, percent(50) ? copy(x) : copy(y), pure(type, 0));
            break;
        case 5: // bits of y in x: (x & y) == y
            op = percent(80) ? (percent(50) ? EQ : NEQ) : op;
            left = percent(50) ? make(ANDB, x, y) : make(ANDB, y, x);
            right = copy(y);
            break;
        case 6: { // a bit that moves: (x & (1 << n)) == (1 << n)
            TYPE* count = tp->int_type(IK_INT);
            NODE* bit = make(SLL, number(1, type), node(ANDB, pure(count, 0), number(7, count), count));
            op = percent(80) ? (percent(50) ? EQ : NEQ) : op;
            left = make(ANDB, x, bit);
            right = copy(bit);
            break;
        }
        case 7: { // two narrower values
            TYPE* inner = other_type(type);
            left = to(type, to(inner, x));
            right = to(type, to(inner, y));
            break;
        }
        default: left = make(percent(50) ? MINUS : XORB, x, y); right = number(below(2), type);
    }
    if (percent(40)) std::swap(left, right);
    return node(op, left, right, int_type);
}

// a && b where b must not run without a, or may since a runs the same thing.
NODE* GENERATOR::guarded_shape(TYPE* type) {
    TYPE* int_type = tp->int_type(IK_INT);
    pure_++;
    const auto masked = [&](NODE* tree) {
        return percent(50) ? node(ANDB, tree, number(std::int64_t{1} << below(15), tree->type), tree->type)
                           : tree;
    };
    NODE *first = nullptr, *second = nullptr;
    const unsigned roll = below(4);
    if (roll == 0) { // the quotient only where the divisor is not zero
        NODE* divisor = pure(type, 0);
        first = percent(50) ? copy(divisor) : node(DIV, pure(type, 0), copy(divisor), type);
        second = node(percent(50) ? DIV : MOD, pure(type, 0), divisor, type);
    } else if (roll == 1) { // shifts by one count
        NODE* count = pure(int_type, 0);
        first = node(percent(50) ? SLL : SRL, pure(type, 0), copy(count), type);
        second = node(percent(50) ? SLL : SRL, pure(type, 0), count, type);
    } else { // members and elements
        first = any_leaf(type);
        second = percent(30) ? copy(first) : any_leaf(type);
    }
    pure_--;
    return node(percent(50) ? ANDAND : OROR, masked(first), masked(second), int_type);
}

NODE* GENERATOR::pointer_shape(int depth) {
    TYPE* int_type = tp->int_type(IK_INT);
    TYPE* type = palette_.int_pointer_type;
    NODE* first = operand(type, depth - 1);
    NODE* second = operand(type, depth - 2);
    if (percent(50)) { // the distance in elements
        NODE* difference = node(MINUS, first, second, int_type);
        return node(PVCONV, difference, number(percent(70) ? 16 : 32, int_type), int_type);
    }
    if (percent(30)) { // of other types
        first = node(PCONV, first, nullptr, palette_.long_pointer_type);
        second = node(PCONV, second, nullptr, palette_.long_pointer_type);
    }
    if (percent(15)) second = mk_ICON(INT65::from_signed(0), first->type);
    return node(random_.one_of(UNSIGNED_RELATIONS), first, second, int_type);
}

// Assignments that say something about their own target, or stand in both arms.
NODE* GENERATOR::stored_shape(TYPE* type, int depth) {
    TYPE* int_type = tp->int_type(IK_INT);
    SYMTAB* symbol = nullptr;
    NODE* right = nullptr;
    const unsigned roll = below(4);
    pure_++;
    NODE* test = condition(depth - 1);
    if (roll == 0) { // a truth value from another one
        type = percent(50) ? tp->int_type(IK_BOOL) : int_type;
        NODE* inner = percent(50) ? to(int_type, to(tp->int_type(IK_BOOL), test))
                                  : node(ANDB, operand(int_type, 0), number(1, int_type), int_type);
        right = to(type, node(percent(70) ? EQ : NEQ, inner, number(below(2), int_type), int_type));
    } else {
        right = operand(type, depth - 1);
    }
    NODE* other = roll == 3 ? operand(type, 0) : nullptr;
    pure_--;
    symbol = variable(type, true);
    if (symbol == nullptr) return right;
    if (roll == 1 && only_ == nullptr) { // x = (y = k)
        SYMTAB* second = variable(type, true);
        if (second != nullptr && second != symbol)
            right = mk_ASG(mk_NAME(second), percent(60) ? number(0, type) : right);
    } else if (roll == 2) { // x = k - x, x = (x + y) - z, x = y - (z - x)
        std::uint64_t bit = 0;
        for (const PALETTE::VARIABLE& v : palette_.scalars)
            if (v.symbol == symbol) bit = v.bit;
        if (may_read(bit)) {
            NODE* same = mk_NAME(symbol);
            NODE* k = constant(type);
            const int sign = percent(50) ? PLUS : MINUS;
            right = percent(40)   ? node(MINUS, node(sign, same, right, type), k, type)
                    : percent(50) ? node(MINUS, right, node(sign, same, k, type), type)
                                  : node(sign, node(PLUS, right, k, type), same, type);
        }
    } else if (roll == 3) { // c ? (x = a) : (x = b)
        static constexpr int ops[] = {ASG, ASG, PLUSASG, ANDBASG, XORBASG, MULTASG};
        const int op = random_.one_of(ops);
        NODE* first = node(op, mk_NAME(symbol), right, type);
        NODE* second = node(percent(85) ? op : ASG, mk_NAME(symbol), other, type);
        return node(QUEST, test, node(COLON, first, second, type), type);
    }
    return mk_ASG(mk_NAME(symbol), right);
}

} // namespace prove
