#include "tests/unit/c_trees.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "OPT5/files.h"
#include "OPT5/node.h"
#include "OPT5/opcodes.h"
#include "OPT5/optypes.h"
#include "OPT5/symbol.h"
#include "OPT5/types.h"

using namespace op;

namespace {

struct BINARY {
    const char* token;
    int level; // of binding
    int op;
};

// Longer tokens first.
constexpr BINARY BINARIES[] = {
    {"<<=", 1, SLLASG}, {">>=", 1, SRLASG}, {"+=", 1, PLUSASG}, {"-=", 1, MINUSASG}, {"*=", 1, MULTASG},
    {"&=", 1, ANDBASG}, {"|=", 1, ORBASG},  {"^=", 1, XORBASG}, {"||", 3, OROR},     {"&&", 4, ANDAND},
    {"==", 8, EQ},      {"!=", 8, NEQ},     {"<=", 9, LE},      {">=", 9, GE},       {"<<", 10, SLL},
    {">>", 10, SRL},    {"=", 1, ASG},      {"|", 5, ORB},      {"^", 6, XORB},      {"&", 7, ANDB},
    {"<", 9, LT},       {">", 9, GT},       {"+", 11, PLUS},    {"-", 11, MINUS},    {"*", 12, MULT},
    {"/", 12, DIV},     {"%", 12, MOD}};

class PARSER {
  public:
    PARSER(const prove::PALETTE& palette, const std::string& text) : palette_(palette), text_(text) {}

    NODE* whole() {
        NODE* tree = comma();
        if (peek() != '\0') fail("end expected");
        return tree;
    }

  private:
    [[noreturn]] void fail(const char* why) {
        std::fprintf(stderr, "'%s' at %zu: %s\n", text_.c_str(), at_, why);
        std::abort();
    }
    char peek() {
        while (text_[at_] == ' ') at_++;
        return text_[at_];
    }
    bool accept(const char* token) {
        peek();
        const std::size_t length = std::strlen(token);
        if (text_.compare(at_, length, token) != 0) return false;
        at_ += length;
        return true;
    }
    void expect(const char* token) {
        if (!accept(token)) fail(token);
    }
    std::string word() {
        peek();
        const std::size_t start = at_;
        while (std::isalnum(static_cast<unsigned char>(text_[at_])) != 0 || text_[at_] == '_') at_++;
        return text_.substr(start, at_ - start);
    }

    static NODE* make(int op, NODE* left, NODE* right, TYPE* type) {
        return maketree(op, left, right, type, nullptr);
    }
    static TYPE* int_type() { return tp->int_type(IK_INT); }

    NODE* comma() {
        NODE* tree = binary(1);
        while (accept(",")) tree = mk_COMMAOP(tree, binary(1));
        return tree;
    }
    NODE* binary(int level) {
        NODE* left = level == 13 ? unary() : binary(level + 1);
        for (;;) {
            if (level == 2) {
                if (!accept("?")) return left;
                NODE* a = comma();
                expect(":");
                left = choice(left, a, binary(2));
                continue;
            }
            const BINARY* found = nullptr;
            peek();
            for (const BINARY& b : BINARIES)
                if (found == nullptr && text_.compare(at_, std::strlen(b.token), b.token) == 0) found = &b;
            if (found == nullptr || found->level != level) return left;
            at_ += std::strlen(found->token);
            left = combine(found->op, left, binary(level == 1 ? 1 : level + 1));
        }
    }

    static NODE* choice(NODE* condition, NODE* a, NODE* b) {
        TYPE* type = a->type->true_type();
        if (type->is_arithmetic() && b->type->is_arithmetic()) {
            type = combined_type(a->type, b->type);
            a = coerce_to_type(a, type);
            b = coerce_to_type(b, type);
        }
        return make(QUEST, condition, make(COLON, a, b, type), type);
    }

    static NODE* combine(int op, NODE* left, NODE* right) {
        if (op == ASG) return make(op, left, coerce_to_type(right, left->type), left->type);
        if (op_of_opASG[op] != ILLOP) return make(op, left, right, left->type);
        if (op == ANDAND || op == OROR) return make(op, left, right, int_type());
        if (left->type->is_ptr() && (op == PLUS || op == MINUS) && right->type->is_integral())
            return make(op, left, right, left->type->true_type());
        TYPE* type = operator_type_for_operand_types(op, left->type, right->type);
        left = coerce_to_type(left, type);
        if (op != SLL && op != SRL) right = coerce_to_type(right, type);
        if (op < EQ || op > GT) return make(op, left, right, type->is_ptr() ? int_type() : type);
        if (type->is_fltpt()) {
            static constexpr int floating[] = {FEQ, FNEQN, FLE, FLT, FGE, FGT};
            return make(floating[op - EQ], left, right, int_type());
        }
        const bool is_ordering = op != EQ && op != NEQ;
        return make(is_ordering && type->is_unsigned() ? op + (ULE - LE) : op, left, right, int_type());
    }

    NODE* unary() {
        if (accept("!")) return mk_EXCLAIM(unary());
        if (accept("-")) return promoted(UMINUS, unary());
        if (accept("~")) return promoted(NOTB, unary());
        if (accept("*")) {
            NODE* pointer = unary();
            return make(UMULT, pointer, nullptr, pointer->type->type_pointed_to());
        }
        if (accept("&")) {
            NODE* place = unary();
            return make(UAND, place, nullptr, tp->mk_ptr(place->type));
        }
        const std::size_t before = at_;
        if (accept("(")) {
            if (TYPE* type = type_name()) {
                expect(")");
                return coerce_to_type(unary(), type);
            }
            at_ = before;
        }
        return postfix();
    }
    static NODE* promoted(int op, NODE* operand) {
        TYPE* type = promoted_type(operand->type);
        return make(op, coerce_to_type(operand, type), nullptr, type);
    }

    // The type named here; null, and nothing taken, where none is.
    TYPE* type_name() {
        struct ROW {
            const char* text;
            IKIND kind;
        };
        static constexpr ROW rows[] = {{"unsigned long long", IK_ULLONG},
                                       {"unsigned long", IK_ULONG},
                                       {"unsigned char", IK_UCHAR},
                                       {"unsigned", IK_UINT},
                                       {"long long", IK_LLONG},
                                       {"long", IK_LONG},
                                       {"int", IK_INT},
                                       {"char", IK_CHAR},
                                       {"bool", IK_BOOL}};
        TYPE* type = nullptr;
        for (const ROW& row : rows) {
            if (!accept(row.text)) continue;
            type = tp->int_type(row.kind);
            break;
        }
        if (type == nullptr && accept("float")) type = tp->flt_type(FK_FLOAT);
        while (type != nullptr && accept("*")) type = tp->mk_ptr(type);
        return type;
    }

    NODE* postfix() {
        NODE* tree = primary();
        for (;;) {
            if (accept("++")) {
                tree = make(PLUSPLUS, tree, mk_ICON(INT65::from_signed(1), int_type()), tree->type);
            } else if (accept("--")) {
                tree = make(MINMIN, tree, mk_ICON(INT65::from_signed(1), int_type()), tree->type);
            } else if (accept("->")) {
                tree = member(STREF, tree, tree->type->type_pointed_to());
            } else if (accept(".")) {
                tree = member(STDOT, tree, tree->type);
            } else {
                return tree;
            }
        }
    }
    NODE* member(int op, NODE* object, TYPE* record) {
        record = record->true_type();
        const std::string name = word();
        for (unsigned i = 1; i <= 10; i++) {
            fkMDATA* data = record->member(i);
            if (data == nullptr || name != data->name) continue;
            NODE* field = make(FIELD, nullptr, nullptr, data->type);
            field->mk_field(1, data, record);
            return make(op, object, field, data->type);
        }
        fail("no such member");
    }

    NODE* primary() {
        if (accept("(")) {
            NODE* tree = comma();
            expect(")");
            return tree;
        }
        if (std::isdigit(static_cast<unsigned char>(peek())) != 0) return number();
        const std::string name = word();
        if (name.empty()) fail("operand expected");
        if (accept("(")) return call(name);
        const auto named = [&name](const SYMTAB* symbol) { return name == symbol->name; };
        for (const prove::LAYOUT::OBJECT& object : palette_.layout.objects()) {
            if (!named(object.symbol)) continue;
            NODE* tree = mk_NAME(const_cast<SYMTAB*>(object.symbol));
            if (!object.symbol->type->is_array()) return tree;
            return make(UAND, tree, nullptr, tp->mk_ptr(object.symbol->type->elem_type()));
        }
        fail("no such variable");
    }

    NODE* number() {
        const std::size_t start = at_;
        char* end = nullptr;
        const unsigned long long value = std::strtoull(text_.c_str() + start, &end, 0);
        at_ = static_cast<std::size_t>(end - text_.c_str());
        if (text_[at_] == '.' || text_[at_] == 'f') {
            const std::string digits = std::to_string(std::strtod(text_.c_str() + start, &end));
            at_ = static_cast<std::size_t>(end - text_.c_str());
            accept("f");
            NODE* tree = make(FCON, nullptr, nullptr, tp->flt_type(FK_FLOAT));
            tree->mk_fcon(digits.c_str());
            return tree;
        }
        const bool is_unsigned = accept("u");
        int kind = accept("ll") ? IK_LLONG : accept("l") ? IK_LONG : IK_INT;
        if (kind == IK_INT && value > 0x7fff && !is_unsigned) kind = value > 0x7fffffff ? IK_LLONG : IK_LONG;
        return mk_ICON(INT65::from_unsigned(value),
                       tp->int_type(static_cast<IKIND>(kind + (is_unsigned ? 1 : 0))));
    }

    NODE* call(const std::string& name) {
        const bool is_intrinsic = name[0] == '_' || std::isupper(static_cast<unsigned char>(name[0])) != 0;
        NODE* list = nullptr;
        unsigned count = 0;
        while (!accept(")")) {
            if (list != nullptr) expect(",");
            NODE* argument = coerce_to_type(binary(1), int_type());
            list = list == nullptr ? argument : make(COMMA, list, argument, tp->void_type());
            count++;
        }
        if (is_intrinsic) return mk_ICALL(name.c_str(), list, int_type());
        SYMTAB* function = palette_.calls.at(count);
        if (name != function->name) fail("no such function");
        NODE* callee = make(UAND, mk_NAME(function), nullptr, tp->mk_ptr(function->type));
        return make(list != nullptr ? CALL : UCALL, callee, list, function->type->return_type());
    }

    const prove::PALETTE& palette_;
    const std::string& text_;
    std::size_t at_ = 0;
};

} // namespace

NODE* tree_of(const prove::PALETTE& palette, const std::string& text) {
    return PARSER(palette, text).whole();
}
