#include "tests/simp/tree_eval.h"

#include <algorithm>
#include <bit>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "OPT5/fpsmath.h"
#include "OPT5/node.h"
#include "OPT5/opcodes.h"
#include "OPT5/symbol.h"
#include "OPT5/types.h"

using namespace op;

namespace prove {

namespace {

__extension__ using wide = __int128;
__extension__ using unsigned_wide = unsigned __int128;

constexpr unsigned FIRST_UNIT = 16; // below: null and its neighbours

std::uint64_t mixed(std::uint64_t a, std::uint64_t b) {
    std::uint64_t x = a ^ (b + 0x9e3779b97f4a7c15u + (a << 6) + (a >> 2));
    x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9u;
    x = (x ^ (x >> 27)) * 0x94d049bb133111ebu;
    return x ^ (x >> 31);
}

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

unsigned units_of(unsigned bits) { return (bits + 15) / 16; }

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

enum INTRINSIC : std::uint8_t {
    LEAST,
    GREATEST,
    SUM,
    DIFFERENCE,
    SHIFTED,
    PRODUCT,
    PRODUCT_OF_HIGH,
    LOW,
    HIGH,
    CHOICE
};

// docs/intrinsics.md tells what they compute. Types by letter: i int, l long, q long long, their unsigned
// forms u, m and w, f a single; * whatever the tree has.
struct INTRINSIC_ROW {
    const char* name;
    INTRINSIC which;
    const char* operands;
    char result;
};
constexpr INTRINSIC_ROW INTRINSICS[] = {
    {"MIN", LEAST, "ii", 'i'},
    {"LMIN", LEAST, "ll", 'l'},
    {"LLMIN", LEAST, "qq", 'q'},
    {"MINU", LEAST, "uu", 'u'},
    {"LMINU", LEAST, "mm", 'm'},
    {"LLMINU", LEAST, "ww", 'w'},
    {"MAX", GREATEST, "ii", 'i'},
    {"LMAX", GREATEST, "ll", 'l'},
    {"LLMAX", GREATEST, "qq", 'q'},
    {"MAXU", GREATEST, "uu", 'u'},
    {"LMAXU", GREATEST, "mm", 'm'},
    {"LLMAXU", GREATEST, "ww", 'w'},
    {"FMIN", LEAST, "ff", 'f'},
    {"DMIN", LEAST, "ff", 'f'},
    {"LDMIN", LEAST, "ff", 'f'},
    {"FMAX", GREATEST, "ff", 'f'},
    {"DMAX", GREATEST, "ff", 'f'},
    {"LDMAX", GREATEST, "ff", 'f'},
    {"_sadd", SUM, "ii", 'i'},
    {"_sadd2", SUM, "ll", 'l'},
    {"_ssub", DIFFERENCE, "ii", 'i'},
    {"_ssub2", DIFFERENCE, "ll", 'l'},
    {"_sshl", SHIFTED, "iu", 'i'},
    {"_sshl2", SHIFTED, "lu", 'l'},
    {"_mpy", PRODUCT, "ii", 'l'},
    {"_mpyu", PRODUCT, "uu", 'm'},
    {"_mpysu", PRODUCT, "iu", 'l'},
    {"_mpyus", PRODUCT, "ui", 'l'},
    {"_mpyli", PRODUCT, "il", 'q'},
    {"_mpyhi", PRODUCT_OF_HIGH, "ll", 'q'},
    {"_lo", LOW, "q", 'm'},
    {"_hi", HIGH, "q", 'm'},
    {"quest$colon", CHOICE, "***", '*'},
};

const INTRINSIC_ROW* find_intrinsic(const char* name) {
    for (const INTRINSIC_ROW& row : INTRINSICS)
        if (std::strcmp(name, row.name) == 0) return &row;
    return nullptr;
}

REP rep_of_letter(char letter, const REP& otherwise) {
    switch (letter) {
        case 'i': return {REP::INTEGER, 16, true};
        case 'u': return {REP::INTEGER, 16, false};
        case 'l': return {REP::INTEGER, 32, true};
        case 'm': return {REP::INTEGER, 32, false};
        case 'q': return {REP::INTEGER, 64, true};
        case 'w': return {REP::INTEGER, 64, false};
        case 'f': return {REP::FLOATING, 32, false};
        default: return otherwise;
    }
}

} // namespace

// --- Values.

REP rep_of(TYPE* type) {
    if (type == nullptr || type->is_void()) return {};
    const auto bits = static_cast<std::uint8_t>(std::min<std::uint64_t>(type->size(), 255));
    switch (type->true_kind()) {
        case TYPE::INT_KIND:
        case TYPE::ENUM_KIND:
            if (bits < 1 || bits > 64) break;
            if (type->is_bool() || type->is_marked_bool()) return {REP::BOOLEAN, bits, false};
            return {REP::INTEGER, bits, type->is_signed()};
        case TYPE::PTR_KIND:
        case TYPE::REF_KIND: return {REP::POINTER, bits, false};
        case TYPE::FLTPT_KIND: return {REP::FLOATING, 32, false};
        default: break;
    }
    return {REP::AGGREGATE, 0, false};
}

std::uint64_t extend(std::uint64_t image, unsigned bits, bool is_signed) {
    if (bits >= 64) return image;
    const std::uint64_t low = image & ((std::uint64_t{1} << bits) - 1);
    return is_signed && (low >> (bits - 1)) != 0 ? low | ~std::uint64_t{0} << bits : low;
}

float single_of(std::uint64_t image) { return std::bit_cast<float>(static_cast<std::uint32_t>(image)); }
std::uint64_t image_of(float value) { return std::bit_cast<std::uint32_t>(value); }

std::uint64_t convert(std::uint64_t image, const REP& from, const REP& to) {
    if (to.kind == REP::BOOLEAN) return from.is_float() ? single_of(image) != 0.0f : image != 0;
    if (!from.is_float() && !to.is_float()) return extend(image, to.bits, to.is_signed);
    if (from.is_float() && to.is_float()) return image;
    if (to.is_float())
        return image_of(from.is_signed ? static_cast<float>(static_cast<std::int64_t>(image))
                                       : static_cast<float>(image));
    const float value = single_of(image);
    std::uint64_t whole;
    if (std::isnan(value))
        whole = 0;
    else if (to.is_signed || value < 0)
        whole = static_cast<std::uint64_t>(value >= 0x1p63f    ? INT64_MAX
                                           : value <= -0x1p63f ? INT64_MIN
                                                               : static_cast<std::int64_t>(value));
    else
        whole = value >= 0x1p64f ? UINT64_MAX : static_cast<std::uint64_t>(value);
    return extend(whole, to.bits, to.is_signed);
}

std::string show(std::uint64_t image, const REP& rep) {
    char text[80];
    if (rep.is_float())
        std::snprintf(text, sizeof text, "%.9g (0x%08llx)", static_cast<double>(single_of(image)),
                      static_cast<unsigned long long>(image));
    else if (rep.is_signed)
        std::snprintf(text, sizeof text, "%lld", static_cast<long long>(image));
    else
        std::snprintf(text, sizeof text, "%llu", static_cast<unsigned long long>(image));
    return text;
}

// --- Memory.

LAYOUT::LAYOUT() : owner_(FIRST_UNIT, -1) {}

void LAYOUT::add(const SYMTAB* symbol) {
    const bool is_function = symbol->type->is_func();
    const auto units = is_function ? 0 : static_cast<unsigned>(symbol->type->storage_size());
    const auto number = static_cast<std::int16_t>(objects_.size());
    index_[symbol] = objects_.size();
    objects_.push_back({symbol, static_cast<unsigned>(owner_.size()), units,
                        symbol->level == 0 && !is_function, is_function});
    owner_.insert(owner_.end(), units, number);
    owner_.push_back(-1); // a unit that is nobody's
}

const LAYOUT::OBJECT* LAYOUT::find(const SYMTAB* symbol) const {
    auto found = index_.find(symbol);
    return found == index_.end() ? nullptr : &objects_[found->second];
}

std::uint64_t MEMORY::bits(unsigned address, unsigned bit, unsigned width) const {
    unsigned_wide image = 0;
    const unsigned count = units_of(bit + width);
    for (unsigned i = 0; i < count; i++) image |= static_cast<unsigned_wide>(units[address + i]) << (16 * i);
    return extend(static_cast<std::uint64_t>(image >> bit), width, false);
}

void MEMORY::set_bits(unsigned address, unsigned bit, unsigned width, std::uint64_t value) {
    for (unsigned done = 0; done < width;) {
        const unsigned at = bit + done, here = at % 16, count = std::min(16 - here, width - done);
        const unsigned mask = ((1u << count) - 1) << here;
        std::uint16_t& unit = units[address + at / 16];
        unit = static_cast<std::uint16_t>((unit & ~mask) |
                                          (static_cast<unsigned>(value >> done) << here & mask));
        done += count;
    }
}

std::string show(const EVENT& event, const LAYOUT& layout) {
    static constexpr const char* words[] = {"read", "write", "call", "  argument", "  globals"};
    std::string text = words[event.kind];
    for (const LAYOUT::OBJECT& o : layout.objects())
        if (event.kind <= EVENT::CALL && event.where >= o.address &&
            event.where < o.address + std::max(o.units, 1u))
            text += std::string(" ") + o.symbol->name;
    char number[40];
    std::snprintf(number, sizeof number, " 0x%llx", static_cast<unsigned long long>(event.value));
    return event.kind == EVENT::CALL ? text : text + number;
}

// --- Translation. A stack of things to do takes the place of recursion; what is pushed last is done first.

enum PROGRAM::CODE : std::uint8_t {
    CONSTANT,
    LOAD_FIXED, // from a constant address
    LOAD,       // address -> value
    STORE,      // value, address -> new value
    COMPOUND,   // operand, address -> new value; the operator in `kind`, computed in `rep`
    STEP,       // operand, address -> old value
    COPY,       // address, address -> 0: a structure of `value` units
    OFFSET,     // address -> address plus `value`
    ARITHMETIC, // a, b -> value
    SHIFT,
    COMPARE,
    COMPARE_FLOAT,
    UNARY,
    CONVERT,
    SCALE,   // PMCONV by `value` units
    UNSCALE, // PVCONV
    TRUTH,   // value -> 1 or 0
    NOT_TRUTH,
    DROP,
    JUMP,
    JUMP_IF_ZERO, // takes the value
    MARK,         // where a jump leads to
    CALL_INTRINSIC,
    CALL_OPAQUE,
    PROMISE,
};

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

// --- Execution.

struct PROGRAM::RUNNING {
    const PROGRAM& program;
    MEMORY& memory;
    OUTCOME& outcome;
    bool strict;

    // Which NaN an operation gives is nobody's promise: where it can be seen, all of them are one.
    static std::uint64_t one_nan(std::uint64_t image) {
        return std::isnan(single_of(image)) ? 0x7fc00000u : image;
    }

    // Faults are noted, and the run ends at the next instruction.
    void fault(const char* why) { outcome.fault = why; }

    std::uint64_t fetch(const PLACE& place, std::uint64_t address) {
        const unsigned width = place.is_field ? place.width : place.rep.bits;
        if (!program.layout_->contains(address, units_of(place.bit + width))) {
            fault("access outside any object");
            return 0;
        }
        std::uint64_t bits;
        if (place.is_volatile) {
            memory.outside = mixed(memory.outside, address);
            bits = extend(memory.outside >> (memory.outside % 23), width, false);
            if (place.rep.kind == REP::BOOLEAN) bits &= 1;
            outcome.events.push_back(
                {EVENT::READ, static_cast<std::uint8_t>(width), static_cast<std::uint32_t>(address), bits});
        } else if (width == 16 && place.bit == 0) {
            bits = memory.units[address];
        } else {
            bits = memory.bits(static_cast<unsigned>(address), place.bit, width);
        }
        return extend(bits, width, place.rep.is_signed);
    }

    // Returns what is there afterwards.
    std::uint64_t put(const PLACE& place, std::uint64_t address, std::uint64_t value) {
        const unsigned width = place.is_field ? place.width : place.rep.bits;
        if (!program.layout_->contains(address, units_of(place.bit + width))) {
            fault("access outside any object");
            return 0;
        }
        if (place.rep.is_float()) value = one_nan(value);
        if (place.is_volatile)
            outcome.events.push_back({EVENT::WRITE, static_cast<std::uint8_t>(width),
                                      static_cast<std::uint32_t>(address), extend(value, width, false)});
        memory.set_bits(static_cast<unsigned>(address), place.bit, width, value);
        return extend(value, width, place.rep.is_signed);
    }

    std::uint64_t shifted(int op, const REP& rep, std::uint64_t a, std::uint64_t b, const REP& count) {
        if (b >= rep.bits || (count.is_signed && static_cast<std::int64_t>(b) < 0)) {
            fault("shift count outside the type");
            return 0;
        }
        a = extend(a, rep.bits, rep.is_signed);
        if (op == SLL) return extend(a << b, rep.bits, rep.is_signed);
        if (!rep.is_signed) return a >> b;
        const wide down = static_cast<wide>(static_cast<std::int64_t>(a)) >> b;
        return extend(static_cast<std::uint64_t>(down), rep.bits, true);
    }

    static std::uint64_t float_arithmetic(int op, float a, float b) {
        switch (op) {
            case PLUS: return image_of(a + b);
            case MINUS: return image_of(a - b);
            case MULT: return image_of(a * b);
            default:
                if (b != 0.0f) return image_of(a / b);
                if (a == 0.0f || std::isnan(a)) return 0x7fc00000u;
                return std::signbit(a) != std::signbit(b) ? 0xff800000u : 0x7f800000u;
        }
    }

    std::uint64_t power(const REP& rep, std::uint64_t base, std::uint64_t exponent) {
        if (static_cast<std::int64_t>(exponent) < 0 && base != 1) {
            fault("a negative exponent");
            return 0;
        }
        std::uint64_t result = 1;
        for (std::uint64_t n = exponent; n != 0 && base != 1; n >>= 1, base *= base)
            if ((n & 1) != 0) result *= base;
        return extend(result, rep.bits, rep.is_signed);
    }

    std::uint64_t arithmetic(int op, const REP& rep, std::uint64_t a, std::uint64_t b) {
        if (op == EXPT) return power(rep, a, b);
        if (rep.is_float()) return float_arithmetic(op, single_of(a), single_of(b));
        a = extend(a, rep.bits, rep.is_signed);
        b = extend(b, rep.bits, rep.is_signed);
        const auto number = [&rep](std::uint64_t v) {
            return rep.is_signed ? static_cast<wide>(static_cast<std::int64_t>(v)) : static_cast<wide>(v);
        };
        std::uint64_t result = 0;
        switch (op) {
            case PLUS: result = a + b; break;
            case MINUS: result = a - b; break;
            case MULT: result = a * b; break;
            case ANDB: result = a & b; break;
            case ORB: result = a | b; break;
            case XORB: result = a ^ b; break;
            default:
                if (b == 0) {
                    fault("division by zero");
                    return 0;
                }
                result =
                    static_cast<std::uint64_t>(op == DIV ? number(a) / number(b) : number(a) % number(b));
        }
        result = extend(result, rep.bits, rep.is_signed);
        if (strict && rep.kind == REP::POINTER && (op == PLUS || op == MINUS) && result < FIRST_UNIT)
            fault("a pointer to nowhere");
        return result;
    }

    static bool compared(int op, const REP& rep, std::uint64_t a, std::uint64_t b) {
        const bool ordered_by_sign = op == LT || op == LE || op == GT || op == GE;
        a = extend(a, rep.bits, ordered_by_sign);
        b = extend(b, rep.bits, ordered_by_sign);
        const auto x = static_cast<std::int64_t>(a), y = static_cast<std::int64_t>(b);
        switch (op) {
            case EQ: return a == b;
            case NEQ: return a != b;
            case LT: return x < y;
            case LE: return x <= y;
            case GT: return x > y;
            case GE: return x >= y;
            case ULT: return a < b;
            case ULE: return a <= b;
            case UGT: return a > b;
            default: return a >= b;
        }
    }

    static std::uint64_t unary(int op, const REP& rep, std::uint64_t a) {
        if (rep.is_float()) {
            const float x = single_of(a);
            switch (op) {
                case UMINUS: return a ^ 0x80000000u;
                case op::ABS: return a & 0x7fffffffu;
                case SQR: return image_of(x * x);
                case SQRT: return image_of(std::sqrt(x));
                default: return float_arithmetic(DIV, 1.0f, x);
            }
        }
        a = extend(a, rep.bits, rep.is_signed);
        switch (op) {
            case UMINUS: a = 0 - a; break;
            case NOTB: a = ~a; break;
            case SQR: a = a * a; break;
            default:
                if (rep.is_signed && static_cast<std::int64_t>(a) < 0) a = 0 - a;
        }
        return extend(a, rep.bits, rep.is_signed);
    }

    static bool is_true(const REP& rep, std::uint64_t a) {
        return rep.is_float() ? single_of(a) != 0.0f : a != 0;
    }

    // An opaque function sees its arguments and all globals, gives anything, and may change any global.
    std::uint64_t call(const CALLEE& callee, const std::uint64_t* arguments, const REP& rep) {
        std::uint64_t hash = callee.address;
        outcome.events.push_back({EVENT::CALL, 0, callee.address, 0});
        for (std::size_t i = 0; i < callee.arguments.size(); i++) {
            std::uint64_t value = extend(arguments[i], callee.arguments[i].bits, false);
            if (callee.arguments[i].is_float()) value = one_nan(value);
            outcome.events.push_back({EVENT::ARGUMENT, callee.arguments[i].bits, 0, value});
            hash = mixed(hash, value);
        }
        std::uint64_t seen = 0;
        for (const LAYOUT::OBJECT& o : program.layout_->objects())
            for (unsigned i = 0; o.is_global && i < o.units; i++)
                seen = mixed(seen, memory.units[o.address + i]);
        outcome.events.push_back({EVENT::GLOBALS, 64, 0, seen});
        hash = mixed(hash, seen);
        memory.outside = mixed(memory.outside, hash);
        std::uint64_t stream = memory.outside;
        for (const LAYOUT::OBJECT& o : program.layout_->objects()) {
            if (!o.is_global || o.symbol->type->is_volatile() || o.symbol->type->is_ptr()) continue;
            stream = mixed(stream, o.address);
            for (unsigned i = 0; i < o.units && (stream & 1) != 0; i++)
                memory.units[o.address + i] = static_cast<std::uint16_t>(stream >> (8 + 8 * i));
        }
        return rep.is_scalar() ? extend(stream >> (stream % 31), rep.bits, rep.is_signed) : 0;
    }
};

void PROGRAM::run(MEMORY& memory, OUTCOME& outcome, bool strict) const {
    outcome.fault = nullptr;
    outcome.value = 0;
    outcome.events.clear();
    RUNNING r{*this, memory, outcome, strict};
    static std::vector<std::uint64_t> stack; // kept: a tree is run many thousand times
    stack.clear();
    const auto pop = [] {
        const std::uint64_t top = stack.back();
        stack.pop_back();
        return top;
    };
    const auto push = [](std::uint64_t value) { stack.push_back(value); };
    for (std::size_t at = 0; at < code_.size() && outcome.fault == nullptr; at++) {
        const INSTRUCTION& i = code_[at];
        switch (i.code) {
            case CONSTANT: push(i.value); break;
            case LOAD_FIXED: push(r.fetch(places_[i.place], i.value)); break;
            case LOAD: push(r.fetch(places_[i.place], pop())); break;
            case STORE: {
                const std::uint64_t address = pop(), value = convert(pop(), i.from, places_[i.place].rep);
                push(r.put(places_[i.place], address, value));
                break;
            }
            case COMPOUND:
            case STEP: {
                const PLACE& place = places_[i.place];
                const std::uint64_t address = pop(), by = pop(), old = r.fetch(place, address);
                const std::uint64_t left = convert(old, place.rep, i.rep);
                const std::uint64_t result =
                    i.kind == SLL || i.kind == SRL
                        ? r.shifted(i.kind, i.rep, left, by, i.from)
                        : r.arithmetic(i.kind, i.rep, left, convert(by, i.from, i.rep));
                if (outcome.fault != nullptr) break;
                const std::uint64_t now = r.put(place, address, convert(result, i.rep, place.rep));
                push(i.code == STEP ? old : now);
                break;
            }
            case COPY: {
                const std::uint64_t to = pop(), from = pop();
                if (!layout_->contains(to, static_cast<unsigned>(i.value)) ||
                    !layout_->contains(from, static_cast<unsigned>(i.value))) {
                    r.fault("access outside any object");
                    break;
                }
                std::memmove(&memory.units[to], &memory.units[from], i.value * sizeof(std::uint16_t));
                push(0);
                break;
            }
            case OFFSET: push(extend(pop() + i.value, 16, false)); break;
            case ARITHMETIC: {
                const std::uint64_t b = pop(), a = pop();
                push(r.arithmetic(i.kind, i.rep, a, b));
                break;
            }
            case SHIFT: {
                const std::uint64_t b = pop(), a = pop();
                push(r.shifted(i.kind, i.rep, a, b, i.from));
                break;
            }
            case COMPARE: {
                const std::uint64_t b = pop(), a = pop();
                push(RUNNING::compared(i.kind, i.from, a, b));
                break;
            }
            case COMPARE_FLOAT: {
                const float b = single_of(pop()), a = single_of(pop());
                const unsigned result = std::isunordered(a, b) ? 8 : a == b ? 1 : a < b ? 2 : 4;
                push((i.value & result) != 0);
                break;
            }
            case UNARY: push(RUNNING::unary(i.kind, i.rep, pop())); break;
            case CONVERT: push(convert(pop(), i.from, i.rep)); break;
            case SCALE:
                push(extend(convert(pop(), i.from, i.rep) * i.value, i.rep.bits, i.rep.is_signed));
                break;
            case UNSCALE: {
                const auto distance = static_cast<std::int64_t>(extend(pop(), i.from.bits, true));
                push(extend(static_cast<std::uint64_t>(distance / static_cast<std::int64_t>(i.value)),
                            i.rep.bits, i.rep.is_signed));
                break;
            }
            case TRUTH: push(RUNNING::is_true(i.from, pop())); break;
            case NOT_TRUTH: push(!RUNNING::is_true(i.from, pop())); break;
            case DROP: pop(); break;
            case JUMP: at = i.value; break;
            case JUMP_IF_ZERO:
                if (!RUNNING::is_true(i.from, pop())) at = i.value;
                break;
            case MARK: break;
            case CALL_INTRINSIC:
            case CALL_OPAQUE: {
                const CALLEE& callee = callees_[i.place];
                const std::size_t count = callee.arguments.size();
                const std::uint64_t* arguments = stack.data() + (stack.size() - count);
                const std::uint64_t value =
                    i.code == CALL_OPAQUE ? r.call(callee, arguments, i.rep) : intrinsic(i, arguments);
                stack.resize(stack.size() - count);
                push(value);
                break;
            }
            case PROMISE:
                if (!RUNNING::is_true(i.from, pop())) r.fault("violated promise");
                push(0);
                break;
        }
    }
    if (outcome.fault == nullptr && !stack.empty()) outcome.value = stack.back();
}

std::uint64_t PROGRAM::intrinsic(const INSTRUCTION& i, const std::uint64_t* arguments) const {
    const INTRINSIC_ROW& row = INTRINSICS[i.kind];
    const std::vector<REP>& reps = callees_[i.place].arguments;
    if (row.which == CHOICE) {
        const std::size_t taken = RUNNING::is_true(reps[0], arguments[0]) ? 1 : 2;
        return convert(arguments[taken], reps[taken], i.rep);
    }
    const REP result = rep_of_letter(row.result, i.rep);
    const auto image = [&](std::size_t k) {
        return convert(arguments[k], reps[k], rep_of_letter(row.operands[k], reps[k]));
    };
    if (result.is_float()) { // the second operand where neither is less
        const float a = single_of(image(0)), b = single_of(image(1));
        return convert(image_of((row.which == LEAST ? a < b : a > b) ? a : b), result, i.rep);
    }
    const auto number = [&](std::size_t k) {
        const bool is_signed = rep_of_letter(row.operands[k], reps[k]).is_signed;
        return is_signed ? static_cast<wide>(static_cast<std::int64_t>(image(k)))
                         : static_cast<wide>(image(k));
    };
    const auto saturated = [&result](wide v) {
        const wide most = (wide{1} << (result.bits - 1)) - 1;
        return std::clamp(v, -most - 1, most);
    };
    wide value = 0;
    switch (row.which) {
        case LEAST: value = std::min(number(0), number(1)); break;
        case GREATEST: value = std::max(number(0), number(1)); break;
        case SUM: value = saturated(number(0) + number(1)); break;
        case DIFFERENCE: value = saturated(number(0) - number(1)); break;
        case SHIFTED: value = saturated(number(0) * (wide{1} << static_cast<int>(number(1) % 32))); break;
        case PRODUCT: value = number(0) * number(1); break;
        case PRODUCT_OF_HIGH: value = (number(0) >> 16) * number(1); break;
        case LOW: value = number(0); break;
        default: value = number(0) >> 32; break;
    }
    return convert(extend(static_cast<std::uint64_t>(value), result.bits, result.is_signed), result, i.rep);
}

} // namespace prove
