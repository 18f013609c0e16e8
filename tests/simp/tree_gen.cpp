#include "tests/simp/tree_gen.h"

#include <string>

#include "OPT5/copy.h"
#include "OPT5/files.h"
#include "OPT5/node.h"
#include "OPT5/opcodes.h"
#include "OPT5/symbol.h"
#include "OPT5/types.h"

using namespace op;

namespace prove {

int relation_of(int op, bool is_signed) {
    for (int i = 0; i < 6; i++)
        if (RELATIONS[i] == op || UNSIGNED_RELATIONS[i] == op)
            return is_signed ? RELATIONS[i] : UNSIGNED_RELATIONS[i];
    return op;
}

std::uint64_t edgy_number(RANDOM& random, unsigned bits) {
    const std::uint64_t all = bits >= 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << bits) - 1;
    const std::uint64_t power = std::uint64_t{1} << random.below(bits);
    switch (random.below(12)) {
        case 0: return 0;
        case 1: return 1;
        case 2: return all;                              // -1, or the greatest
        case 3: return (all >> 1) + random.below(3) - 1; // about the signed limits
        case 4: return power;                            // a bit
        case 5: return power - 1;                        // a low mask
        case 6: return (random.percent(50) ? power + 1 : 0 - power) & all;
        case 7: return ((power - 1) << random.below(bits)) & all; // a mask somewhere
        case 8: return (random.percent(50) ? ~power : all - random.below(4)) & all;
        case 9: return random.next() & all;
        default: return (std::uint64_t{random.below(20)} - (random.percent(30) ? 10 : 0)) & all;
    }
}

// --- Nodes.

GENERATOR::GENERATOR(const PALETTE& palette, std::uint64_t seed) : palette_(palette), random_(seed) {}

NODE* GENERATOR::node(int op, NODE* left, NODE* right, TYPE* type) {
    return maketree(op, left, right, type, nullptr);
}

NODE* GENERATOR::number(std::int64_t value, TYPE* type) { return mk_ICON(INT65::from_signed(value), type); }

NODE* GENERATOR::constant(TYPE* type) {
    static constexpr int small[] = {2, 3, 4, 5, 7, 8, 10, 16, 100};
    if (percent(20)) return number(random_.one_of(small), type);
    return mk_ICON(INT65::from_unsigned(edgy_number(random_, static_cast<unsigned>(type->size()))), type);
}

NODE* GENERATOR::copy(NODE* tree) { return copy_tree(tree, false); }

NODE* GENERATOR::to(TYPE* type, NODE* tree) {
    if (tree->type == type) return tree;
    return node(type->is_ptr() ? PCONV : SCONV, tree, nullptr, type);
}

TYPE* GENERATOR::integer_type() {
    const unsigned roll = below(100);
    if (roll < 36) return tp->int_type(IK_INT);
    if (roll < 58) return tp->int_type(IK_UINT);
    if (roll < 68) return tp->int_type(IK_LONG);
    if (roll < 78) return tp->int_type(IK_ULONG);
    return tp->int_type(static_cast<IKIND>(random_.one_of(INTEGER_KINDS)));
}

TYPE* GENERATOR::other_type(TYPE* type) {
    TYPE* other = integer_type();
    return other != type ? other : tp->int_type(static_cast<IKIND>(random_.one_of(INTEGER_KINDS)));
}

int GENERATOR::width(TYPE* type) const { return static_cast<int>(type->size()); }

int GENERATOR::comparison_operator(TYPE* type) {
    return relation_of(random_.one_of(RELATIONS), type->is_integral() && type->is_signed());
}

// --- The frame: what may be read and written where.

NODE* GENERATOR::generate(TYPE* type, int depth) {
    const SETS outer = current_;
    const std::uint64_t no_reads = no_reads_, no_writes = no_writes_;
    current_ = {};
    NODE* made = produce(type, depth);
    last_ = current_;
    current_ = {outer.reads | last_.reads, outer.writes | last_.writes, outer.tail | last_.tail};
    no_reads_ = no_reads;
    no_writes_ = no_writes;
    return made;
}

NODE* GENERATOR::operand(TYPE* type, int depth) {
    NODE* made = generate(type, depth);
    no_reads_ |= last_.writes;
    no_writes_ |= last_.reads | last_.writes;
    return made;
}

NODE* GENERATOR::before(TYPE* type, int depth) {
    const std::uint64_t tail = current_.tail;
    NODE* made = generate(type, depth);
    current_.tail = tail;
    return made;
}

NODE* GENERATOR::pure(TYPE* type, int depth) {
    pure_++;
    NODE* made = operand(type, depth);
    pure_--;
    return made;
}

NODE* GENERATOR::tree() {
    effects_ = percent(40);
    if (percent(35)) {
        // One variable of 16 bits: all its values can be tried.
        const IKIND kind = percent(50) ? IK_INT : percent(60) ? IK_UINT : percent(50) ? IK_SHORT : IK_USHORT;
        only_ = variable(tp->int_type(kind), false);
    }
    const int depth = 1 + static_cast<int>(below(4));
    const unsigned roll = below(100);
    if (effects_ && roll < 25) return effect(integer_type(), depth);
    if (roll < 35) return condition(depth);
    if (roll < 42) return generate(tp->flt_type(FK_FLOAT), depth);
    if (roll < 46 && only_ == nullptr) return generate(palette_.int_pointer_type, depth);
    return generate(integer_type(), depth);
}

NODE* GENERATOR::produce(TYPE* type, int depth) {
    if (type->is_fltpt()) return floating(type, depth);
    if (type->is_ptr()) return pointer(type, depth);
    return integer(type, depth);
}

NODE* GENERATOR::condition(int depth) {
    const unsigned roll = below(100);
    if (roll < 55) return generate(tp->int_type(IK_INT), depth);
    if (roll < 93) return generate(integer_type(), depth);
    return roll < 97 || only_ != nullptr ? generate(tp->flt_type(FK_FLOAT), depth)
                                         : generate(palette_.int_pointer_type, depth);
}

// --- Places and leaves.

SYMTAB* GENERATOR::variable(TYPE* type, bool write) {
    SYMTAB* found = nullptr;
    unsigned count = 0;
    for (const PALETTE::VARIABLE& v : palette_.scalars) {
        if (v.symbol->type != type || (only_ != nullptr && v.symbol != only_)) continue;
        if (write ? !may_write(v.bit) : !may_read(v.bit)) continue;
        if (below(++count) == 0) found = v.symbol;
    }
    for (const PALETTE::VARIABLE& v : palette_.scalars) {
        if (v.symbol != found) continue;
        (write ? current_.writes : current_.reads) |= v.bit;
        if (write) current_.tail |= v.bit;
    }
    return found;
}

NODE* GENERATOR::member_of_record(const fkMDATA* member, bool write) {
    const std::uint64_t bits = palette_.record_bits;
    if (only_ != nullptr || (write ? !may_write(bits) : !may_read(bits))) return nullptr;
    const bool through_pointer = percent(30);
    (write ? current_.writes : current_.reads) |= bits;
    if (write) current_.tail |= bits;
    TYPE* type = member->type->normalized();
    NODE* field = node(FIELD, nullptr, nullptr, type);
    field->mk_field(1, const_cast<fkMDATA*>(member), palette_.record_type);
    if (!through_pointer) return node(STDOT, mk_NAME(palette_.record), field, type);
    NODE* pointer = percent(50)
                        ? mk_NAME(palette_.record_pointer)
                        : node(UAND, mk_NAME(palette_.record), nullptr, palette_.record_pointer->type);
    return node(STREF, pointer, field, type);
}

// An element of an array, or what a pointer leads to.
NODE* GENERATOR::element(bool write, TYPE* type) {
    const bool is_int = type == tp->int_type(IK_INT);
    if (!is_int && type != tp->int_type(IK_LONG)) return nullptr;
    const std::uint64_t bits = is_int ? palette_.int_target_bits : palette_.long_target_bits;
    if (only_ != nullptr || (write ? !may_write(bits) : !may_read(bits))) return nullptr;
    TYPE* address = is_int ? palette_.int_pointer_type : palette_.long_pointer_type;
    SYMTAB* array = is_int ? palette_.array : palette_.long_array;
    const int mask = is_int ? 7 : 3, bits_each = is_int ? 16 : 32;
    TYPE* index_type = tp->int_type(IK_INT);
    NODE* base = nullptr;
    if (percent(30) && (!is_int || may_read(palette_.pointer_bit))) {
        base = mk_NAME(is_int ? palette_.pointer : palette_.long_pointer);
        if (is_int) current_.reads |= palette_.pointer_bit;
    } else {
        base = node(UAND, mk_NAME(array), nullptr, address);
        NODE* index = percent(40) ? number(below(static_cast<unsigned>(mask)), index_type)
                                  : node(ANDB, pure(index_type, 0), number(mask, index_type), index_type);
        base = node(PLUS, base, node(PMCONV, index, number(bits_each, index_type), index_type), address);
    }
    (write ? current_.writes : current_.reads) |= bits;
    if (write) current_.tail |= bits;
    return node(UMULT, base, nullptr, type);
}

NODE* GENERATOR::place_to_write(TYPE* type) {
    const unsigned roll = below(100);
    if (roll < 12) {
        if (NODE* place = element(true, type); place != nullptr) return place;
    } else if (roll < 22) {
        std::vector<const fkMDATA*> fitting;
        for (const fkMDATA* m : palette_.record_type->csu().members)
            if (m->type->normalized() == type) fitting.push_back(m);
        if (!fitting.empty())
            if (NODE* place = member_of_record(fitting[below(static_cast<unsigned>(fitting.size()))], true))
                return place;
    } else if (roll < 27 && only_ == nullptr && may_write(palette_.outside_bit)) {
        for (const PALETTE::VARIABLE& v : palette_.volatiles)
            if (v.symbol->type->type_qualified() == type) {
                current_.writes |= palette_.outside_bit;
                return mk_NAME(v.symbol);
            }
    }
    SYMTAB* symbol = variable(type, true);
    return symbol != nullptr ? mk_NAME(symbol) : nullptr;
}

NODE* GENERATOR::any_leaf(TYPE* type) {
    const unsigned roll = below(100);
    if (roll < 40) {
        const auto& members = palette_.record_type->csu().members;
        NODE* place = member_of_record(members[below(static_cast<unsigned>(members.size()))], false);
        if (place != nullptr) return to(type, place);
    } else if (roll < 75) {
        NODE* place = element(false, percent(60) ? tp->int_type(IK_INT) : tp->int_type(IK_LONG));
        if (place != nullptr) return to(type, place);
    } else if (effects_here() && only_ == nullptr && (palette_.outside_bit & no_writes_) == 0) {
        current_.writes |= palette_.outside_bit;
        const auto& v = palette_.volatiles[below(static_cast<unsigned>(palette_.volatiles.size()))];
        TYPE* plain = v.symbol->type->type_qualified();
        NODE* name = mk_NAME(v.symbol);
        if (plain != type) return to(type, name);
        return name;
    }
    return constant(type);
}

NODE* GENERATOR::leaf(TYPE* type) {
    const unsigned roll = below(100);
    if (roll < 22) return constant(type);
    if (roll < 30) return any_leaf(type);
    if (roll < 82) {
        if (SYMTAB* symbol = variable(type, false); symbol != nullptr) return mk_NAME(symbol);
        if (only_ != nullptr)
            if (SYMTAB* symbol = variable(only_->type, false); symbol != nullptr)
                return to(type, mk_NAME(symbol));
    }
    // A variable of another type, truth values and floating ones included.
    SYMTAB* symbol = nullptr;
    for (int tries = 0; tries < 4 && symbol == nullptr; tries++) {
        const auto& v = palette_.scalars[below(static_cast<unsigned>(palette_.scalars.size()))];
        if (v.symbol->type->is_fltpt() && percent(80)) continue;
        symbol = variable(v.symbol->type, false);
    }
    return symbol != nullptr ? to(type, mk_NAME(symbol)) : constant(type);
}

// --- Integers.

NODE* GENERATOR::integer(TYPE* type, int depth) {
    if (depth <= 0) return leaf(type);
    const unsigned roll = below(100);
    if (roll < 24) {
        static constexpr int plain[] = {PLUS, PLUS, MINUS, MULT, ANDB, ANDB, ORB, XORB};
        const int op = random_.one_of(plain);
        NODE* left = percent(8) ? constant(type) : operand(type, depth - 1);
        NODE* right = percent(45) ? constant(type) : operand(type, depth - 1);
        return node(op, left, right, type);
    }
    if (roll < 29) return quotient(type, depth);
    if (roll < 35) return shift(type, depth);
    if (roll < 39) {
        static constexpr int unary[] = {UMINUS, UMINUS, NOTB, NOTB, op::ABS};
        const int op = random_.one_of(unary);
        return node(op == op::ABS && type->is_unsigned() ? NOTB : op, operand(type, depth - 1), nullptr,
                    type);
    }
    if (roll < 46) return to(type, percent(12) ? float_comparison(depth) : comparison(depth));
    if (roll < 51) return to(type, logical(depth));
    if (roll < 56) return choice(type, depth);
    if (roll < 63) return conversion(type, depth);
    if (roll < 70) return effects_here() ? effect(type, depth) : integer(type, depth - 1);
    if (roll < 73) return intrinsic(type, depth);
    if (roll < 77) return sum_shape(type, depth);
    if (roll < 79) return difference_shape(type, depth);
    if (roll < 84) return mask_shape(type, depth);
    if (roll < 87) return shift_shape(type, depth);
    if (roll < 90) return quotient_shape(type, depth);
    if (roll < 93) return to(type, comparison_shape(depth));
    if (roll < 95) return to(type, percent(75) ? two_sided_shape(depth) : guarded_shape(type));
    if (roll < 97) return truth_shape(type, depth);
    if (roll < 99 || only_ != nullptr) return choice_shape(type, depth);
    return to(type, pointer_shape(depth));
}

NODE* GENERATOR::shift(TYPE* type, int depth) {
    const int op = percent(50) ? SLL : SRL;
    TYPE* count_type = percent(70) ? tp->int_type(IK_INT) : integer_type();
    NODE* left = operand(type, depth - 1);
    NODE* count;
    if (percent(65))
        count = number(below(static_cast<unsigned>(width(type))), count_type);
    else if (percent(70))
        count =
            node(ANDB, operand(count_type, depth - 1), number(percent(50) ? 15 : 3, count_type), count_type);
    else
        count = percent(30) ? constant(count_type) : operand(count_type, depth - 1);
    return node(op, left, count, type);
}

NODE* GENERATOR::quotient(TYPE* type, int depth) {
    NODE* left = operand(type, depth - 1);
    NODE* right = percent(75)   ? constant(type)
                  : percent(50) ? node(ORB, operand(type, depth - 1), number(1, type), type)
                                : operand(type, depth - 1);
    return node(percent(50) ? DIV : MOD, left, right, type);
}

NODE* GENERATOR::comparison(int depth) {
    TYPE* type = integer_type();
    if (only_ == nullptr && percent(5)) type = palette_.int_pointer_type;
    const int op = comparison_operator(type);
    NODE* left = operand(type, depth - 1);
    NODE* right = type->is_ptr() ? operand(type, 0) : percent(50) ? constant(type) : operand(type, depth - 1);
    if (percent(7)) std::swap(left, right);
    return node(op, left, right, tp->int_type(IK_INT));
}

NODE* GENERATOR::float_comparison(int depth) {
    TYPE* type = tp->flt_type(FK_FLOAT);
    const int op = FEQ + static_cast<int>(below(FUNO - FEQ + 1));
    NODE* left = operand(type, depth - 1);
    NODE* right = operand(type, percent(50) ? 0 : depth - 1);
    return node(op, left, right, tp->int_type(IK_INT));
}

NODE* GENERATOR::logical(int depth) {
    TYPE* type = tp->int_type(IK_INT);
    const unsigned roll = below(3);
    if (roll == 0)
        return node(EXCLAIM, percent(15) ? float_comparison(depth - 1) : condition(depth - 1), nullptr, type);
    const std::uint64_t tail = current_.tail;
    NODE* left = condition(depth - 1);
    current_.tail = tail;
    return node(roll == 1 ? ANDAND : OROR, left, condition(depth - 1), type);
}

NODE* GENERATOR::choice(TYPE* type, int depth) {
    const std::uint64_t tail = current_.tail;
    NODE* test = condition(depth - 1);
    current_.tail = tail;
    NODE* first =
        percent(25) && !type->is_ptr() && !type->is_fltpt() ? constant(type) : after(type, depth - 1);
    NODE* second =
        percent(25) && !type->is_ptr() && !type->is_fltpt() ? constant(type) : after(type, depth - 1);
    return node(QUEST, test, node(COLON, first, second, type), type);
}

NODE* GENERATOR::conversion(TYPE* type, int depth) {
    if (percent(6)) return to(type, generate(tp->flt_type(FK_FLOAT), depth - 1));
    if (percent(8)) return to(type, to(tp->int_type(IK_BOOL), condition(depth - 1)));
    TYPE* from = other_type(type);
    NODE* inner = generate(from, depth - 1);
    if (percent(40)) inner = to(integer_type(), inner); // there and on
    return to(type, inner);
}

NODE* GENERATOR::intrinsic(TYPE* type, int depth) {
    static constexpr const char* minmax[3][4] = {{"MIN", "MAX", "MINU", "MAXU"},
                                                 {"LMIN", "LMAX", "LMINU", "LMAXU"},
                                                 {"LLMIN", "LLMAX", "LLMINU", "LLMAXU"}};
    TYPE* none = tp->void_type();
    TYPE* int_type = tp->int_type(IK_INT);
    const unsigned roll = below(100);
    if (roll < 60) {
        const int row = width(type) <= 16 ? 0 : width(type) <= 32 ? 1 : 2;
        const char* name = minmax[row][below(2) + (type->is_signed() ? 0 : 2)];
        NODE* left = operand(type, depth - 1);
        return mk_ICALL(name, node(COMMA, left, operand(type, depth - 1), none), type);
    }
    if (roll < 88) {
        struct ROW {
            const char* name;
            IKIND left, right, result;
        };
        static constexpr ROW rows[] = {
            {"_ssub", IK_INT, IK_INT, IK_INT},     {"_ssub2", IK_LONG, IK_LONG, IK_LONG},
            {"_sadd", IK_INT, IK_INT, IK_INT},     {"_sadd2", IK_LONG, IK_LONG, IK_LONG},
            {"_sshl", IK_INT, IK_UINT, IK_INT},    {"_sshl2", IK_LONG, IK_UINT, IK_LONG},
            {"_mpy", IK_INT, IK_INT, IK_LONG},     {"_mpyu", IK_UINT, IK_UINT, IK_ULONG},
            {"_mpysu", IK_INT, IK_UINT, IK_LONG},  {"_mpyli", IK_INT, IK_LONG, IK_LLONG},
            {"_mpyhi", IK_LONG, IK_LONG, IK_LLONG}};
        const ROW& row = random_.one_of(rows);
        NODE* left = operand(tp->int_type(row.left), depth - 1);
        TYPE* by = tp->int_type(row.right);
        NODE* right = row.name[2] == 's' && percent(60) ? number(below(17), by) : operand(by, depth - 1);
        return to(type, mk_ICALL(row.name, node(COMMA, left, right, none), tp->int_type(row.result)));
    }
    NODE* test = operand(int_type, depth - 1);
    NODE* first = operand(type, depth - 1);
    NODE* second = operand(type, depth - 1);
    return mk_ICALL("quest$colon", node(COMMA, node(COMMA, test, first, none), second, none), type);
}

// --- Effects.

NODE* GENERATOR::effect(TYPE* type, int depth) {
    const unsigned roll = below(100);
    if (roll < 30) return to(type, assignment(type, depth));
    if (roll < 55) return compound(type, depth);
    if (roll < 60 && only_ == nullptr) return call(type, depth);
    if (roll < 63) return to(type, stored_shape(type, depth));
    if (roll < 65) {
        NODE* promise = node(NASSERT, before(tp->int_type(IK_INT), depth - 1), nullptr, tp->void_type());
        return node(COMMAOP, promise, after(type, depth - 1), type);
    }
    const std::uint64_t tail = current_.tail;
    NODE* left = percent(60) ? effect(integer_type(), depth - 1 > 0 ? depth - 1 : 1) : condition(depth - 1);
    current_.tail = tail;
    return node(COMMAOP, left, after(type, depth - 1), type);
}

// The right side is evaluated, then stored: the target may be read there, and be written ahead of a
// sequence point.
NODE* GENERATOR::assignment(TYPE* type, int depth) {
    const std::uint64_t no_writes = no_writes_, outer = current_.tail;
    current_.tail = 0;
    NODE* right = percent(20) ? constant(type) : operand(type, depth - 1);
    const std::uint64_t inner = last_.writes, no_writes_inside = no_writes_;
    no_writes_ = no_writes;
    if ((inner & palette_.outside_bit) != 0) no_writes_ |= palette_.outside_bit;
    NODE* target = place_to_write(type);
    no_writes_ = no_writes_inside;
    current_.tail |= outer;
    if (target == nullptr) return right;
    // x = x op y and its like.
    if (percent(25) && target->op == NAME && !target->symbol()->type->is_volatile()) {
        std::uint64_t bit = 0;
        for (const PALETTE::VARIABLE& v : palette_.scalars)
            if (v.symbol == target->symbol()) bit = v.bit;
        if (may_read(bit)) {
            static constexpr int plain[] = {PLUS, MINUS, MULT, ANDB, ORB, XORB};
            current_.reads |= bit;
            NODE* same = mk_NAME(target->symbol());
            if (percent(30))
                right = node(random_.one_of(plain), right, same, type);
            else
                right = node(random_.one_of(plain), same, right, type);
        }
    }
    if (percent(10)) return mk_ASG(target, to(type, to(other_type(type), right)));
    return mk_ASG(target, right);
}

NODE* GENERATOR::compound(TYPE* type, int depth) {
    static constexpr int ops[] = {PLUSASG, MINUSASG, MULTASG, ANDBASG, ORBASG,   XORBASG,
                                  DIVASG,  MODASG,   SLLASG,  SRLASG,  PLUSPLUS, MINMIN};
    const int op = random_.one_of(ops);
    const bool step = op == PLUSPLUS || op == MINMIN, is_shift = op == SLLASG || op == SRLASG;
    TYPE* by = is_shift ? tp->int_type(IK_INT) : percent(80) ? type : integer_type();
    NODE* right = step          ? number(percent(70) ? 1 : 1 + static_cast<int>(below(5)), type)
                  : is_shift    ? number(below(static_cast<unsigned>(width(type))), by)
                  : percent(50) ? constant(by)
                                : operand(by, depth - 1);
    // The target is read, too: no write in the right operand may touch it.
    const std::uint64_t no_writes = no_writes_;
    no_writes_ |= no_reads_;
    NODE* target = place_to_write(type);
    no_writes_ = no_writes;
    if (target == nullptr) return to(type, right);
    current_.reads |= last_.reads;
    return node(op, target, right, type);
}

NODE* GENERATOR::call(TYPE* type, int depth) {
    const std::uint64_t touched = palette_.outside_bit | palette_.global_bits;
    if ((touched & (no_writes_ | no_reads_)) != 0) return leaf(type);
    const unsigned count = below(static_cast<unsigned>(palette_.calls.size()));
    NODE* list = nullptr;
    TYPE* int_type = tp->int_type(IK_INT);
    const std::uint64_t no_writes = no_writes_;
    for (unsigned i = 0; i < count; i++) {
        NODE* argument = operand(int_type, depth - 1);
        list = list == nullptr ? argument : node(COMMA, list, argument, tp->void_type());
    }
    no_writes_ = no_writes;
    SYMTAB* callee = palette_.calls[count];
    current_.reads |= palette_.global_bits;
    current_.writes |= touched;
    TYPE* result = callee->type->return_type();
    NODE* address = node(UAND, mk_NAME(callee), nullptr, tp->mk_ptr(callee->type));
    return to(type, node(count == 0 ? UCALL : CALL, address, list, result));
}

// --- Floating values and pointers.

NODE* GENERATOR::floating(TYPE* type, int depth) {
    static constexpr const char* constants[] = {"0.0",   "-0.0",  "1.0",     "-1.0", "0.5", "2.0",  "3.0",
                                                "10.0",  "0.1",   "Inf",     "-Inf", "NaN", "1e38", "3.4e38",
                                                "1e-38", "1e-45", "65536.0", "4.0",  "0.25"};
    const unsigned roll = below(100);
    if (depth <= 0 || roll < 15) {
        if (percent(35)) {
            NODE* made = node(FCON, nullptr, nullptr, type);
            made->mk_fcon(random_.one_of(constants));
            return made;
        }
        if (percent(70))
            if (SYMTAB* symbol = variable(type, false); symbol != nullptr) return mk_NAME(symbol);
        return to(type, leaf(integer_type()));
    }
    if (roll < 60) {
        static constexpr int ops[] = {PLUS, MINUS, MULT, DIV};
        NODE* left = operand(type, depth - 1);
        return node(random_.one_of(ops), left, operand(type, percent(50) ? 0 : depth - 1), type);
    }
    if (roll < 70) return node(percent(70) ? UMINUS : op::ABS, operand(type, depth - 1), nullptr, type);
    if (roll < 80) return to(type, generate(integer_type(), depth - 1));
    if (roll < 88) return choice(type, depth);
    if (roll < 93) { // minimum and maximum
        NODE* x = pure(type, 0);
        NODE* y = pure(type, 0);
        NODE* test =
            node(FEQ + static_cast<int>(below(FUNO - FEQ + 1)), copy(x), copy(y), tp->int_type(IK_INT));
        return node(QUEST, test, percent(50) ? node(COLON, x, y, type) : node(COLON, y, x, type), type);
    }
    if (roll < 96) {
        NODE* left = operand(type, depth - 1);
        return mk_ICALL(percent(50) ? "FMIN" : "FMAX", node(COMMA, left, operand(type, 0), tp->void_type()),
                        type);
    }
    if (!effects_here()) return floating(type, 0);
    NODE* right = operand(type, depth - 1);
    SYMTAB* symbol = variable(type, true);
    return symbol != nullptr ? mk_ASG(mk_NAME(symbol), right) : right;
}

NODE* GENERATOR::pointer(TYPE* type, int depth) {
    TYPE* int_type = tp->int_type(IK_INT);
    const unsigned roll = below(100);
    if (depth <= 0 || roll < 25) {
        switch (below(5)) {
            case 0: return node(UAND, mk_NAME(palette_.array), nullptr, type);
            case 1: return node(UAND, mk_NAME(palette_.target), nullptr, type);
            case 2: return node(PCONV, mk_NAME(palette_.long_pointer), nullptr, type);
            case 3:
                if (!may_read(palette_.pointer_bit)) break;
                current_.reads |= palette_.pointer_bit;
                return mk_NAME(palette_.pointer);
            default: break;
        }
        return mk_NAME(palette_.other_pointer);
    }
    if (effects_here() && percent(20) && may_read(palette_.pointer_bit) && may_write(palette_.pointer_bit)) {
        // p += k, p++ and p = p + k, alone or with the old value made again
        current_.reads |= palette_.pointer_bit;
        current_.writes |= palette_.pointer_bit;
        const int k = static_cast<int>(below(7)) - 3;
        const auto name = [&] { return mk_NAME(palette_.pointer); };
        if (percent(40)) {
            NODE* moved = mk_ASG(name(), node(PLUS, name(), number(k, int_type), type));
            return node(COMMAOP, moved, node(PLUS, name(), number(percent(70) ? -k : k, int_type), type),
                        type);
        }
        current_.tail |= palette_.pointer_bit;
        static constexpr int ops[] = {PLUSASG, MINUSASG, PLUSPLUS, MINMIN};
        return node(random_.one_of(ops), name(), number(k, int_type), type);
    }
    if (roll < 80) {
        NODE* base = operand(type, depth - 1);
        NODE* index =
            percent(50) ? number(static_cast<int>(below(9)) - 4, int_type) : operand(int_type, depth - 1);
        NODE* offset = node(PMCONV, index, number(percent(70) ? 16 : 32, int_type), int_type);
        return node(percent(75) ? PLUS : MINUS, base, offset, type);
    }
    if (roll < 92) return choice(type, depth);
    return node(PCONV, generate(tp->int_type(IK_UINT), depth - 1), nullptr, type);
}

} // namespace prove
