// The operator property tables, and the constructors of nodes and list cells.

#include "opt_expr.h"

#include <cstdio>
#include <cstring>

#include "bblk.h"
#include "debug.h"
#include "fileopt.h"
#include "files.h"
#include "ls.h"
#include "node.h"
#include "opcodes.h"
#include "pool.h"
#include "symbol.h"
#include "types.h"

using namespace op;

const char* node_operator_name[OPCODE_TABLE_SIZE];
std::uint8_t number_of_operands[OPCODE_TABLE_SIZE];
std::uint8_t op_OK_for_SP[OPCODE_TABLE_SIZE];
std::uint8_t precedence[OPCODE_TABLE_SIZE];
std::uint8_t side_effects[OPCODE_TABLE_SIZE];
std::uint8_t op_of_opASG[OPCODE_TABLE_SIZE];
std::uint8_t boolean_inv[OPCODE_TABLE_SIZE];
std::uint8_t commute_inv[OPCODE_TABLE_SIZE];
std::uint8_t boolean_result[OPCODE_TABLE_SIZE];
std::uint8_t float_op_to_micro_ops[OPCODE_TABLE_SIZE];
std::uint8_t float_micro_ops_to_op[16];

namespace {

struct PAIR {
    OPCODE first, second;
};

constexpr PAIR OP_OF_OPASG[] = {{PLUSASG, PLUS}, {MINUSASG, MINUS}, {MULTASG, MULT}, {ANDBASG, ANDB},
                                {ORBASG, ORB},   {XORBASG, XORB},   {DIVASG, DIV},   {MODASG, MOD},
                                {SLLASG, SLL},   {SRLASG, SRL}};

// A floating comparison inverts to the form that holds for an unordered operand: !(a < b) is true of a NaN.
constexpr PAIR INVERSES[] = {{EQ, NEQ},    {LE, GT},    {LT, GE},    {ULE, UGT},  {ULT, UGE},  {FEQ, FNEQN},
                             {FNEQ, FEQN}, {FLE, FGTN}, {FLT, FGEN}, {FGE, FLTN}, {FGT, FLEN}, {FORD, FUNO}};

constexpr PAIR COMMUTED[] = {{PLUS, PLUS},       {MULT, MULT},         {ANDB, ANDB},
                             {ORB, ORB},         {XORB, XORB},         {EQ, EQ},
                             {NEQ, NEQ},         {FEQ, FEQ},           {FNEQ, FNEQ},
                             {FEQN, FEQN},       {FNEQN, FNEQN},       {FORD, FORD},
                             {FUNO, FUNO},       {MIX_CONJ, MIX_CONJ}, {MIX_DISJ, MIX_DISJ},
                             {DFG_MAX, DFG_MAX}, {DFG_MIN, DFG_MIN},   {LE, GE},
                             {LT, GT},           {ULE, UGE},           {ULT, UGT},
                             {FLE, FGE},         {FLT, FGT},           {FLEN, FGEN},
                             {FLTN, FGTN}};

struct MICRO {
    OPCODE op;
    std::uint8_t set;
};
constexpr MICRO MICRO_OPS[] = {{FEQ, 1},   {FNEQ, 6},  {FLE, 3},   {FLT, 2},    {FGE, 5},
                               {FGT, 4},   {FORD, 7},  {FEQN, 9},  {FNEQN, 14}, {FLEN, 11},
                               {FLTN, 10}, {FGEN, 13}, {FGTN, 12}, {FUNO, 8}};

void fill_tables() {
    for (int i = 0; i < OPCODE_TABLE_SIZE; i++) {
        number_of_operands[i] = ANY_OPERANDS;
        op_of_opASG[i] = boolean_inv[i] = commute_inv[i] = ILLOP;
    }
#define OPCODE(number, name, operands, sp, prec, effects)                                                    \
    node_operator_name[number] = #name;                                                                      \
    number_of_operands[number] = operands;                                                                   \
    op_OK_for_SP[number] = sp;                                                                               \
    precedence[number] = prec;                                                                               \
    side_effects[number] = effects;
#include "opcodes.def"
#undef OPCODE
    for (const PAIR& p : OP_OF_OPASG) op_of_opASG[p.first] = p.second;
    for (const PAIR& p : INVERSES) {
        boolean_inv[p.first] = p.second;
        boolean_inv[p.second] = p.first;
    }
    for (const PAIR& p : COMMUTED) {
        commute_inv[p.first] = p.second;
        commute_inv[p.second] = p.first;
    }
    for (int i = EQ; i <= UGT; i++) boolean_result[i] = 1;
    for (int i = FEQ; i <= FUNO; i++) boolean_result[i] = 1;
    for (int i : {ANDAND, OROR, EXCLAIM, MIX_CONJ, MIX_DISJ}) boolean_result[i] = 1;
    for (const MICRO& m : MICRO_OPS) {
        float_op_to_micro_ops[m.op] = m.set;
        float_micro_ops_to_op[m.set] = m.op;
    }
}

[[noreturn]] void node_info_mismatch() {
    std::fputs("INTERNAL ERROR: if_node_info[] mismatch\n", stderr);
    abort_optimizer();
}

bool same_text(const char* a, const char* b) {
    return a != nullptr && b != nullptr && std::strcmp(a, b) == 0;
}

void check_against_file_layer() {
    if_node_table_init();
    if (!same_text(if_node_info[NAME].name, "NAME") || !same_text(if_node_info[UMINUS].name, "UMINUS") ||
        !same_text(if_node_info[CALL].name, "CALL"))
        node_info_mismatch();
    bool mismatch = false;
    for (int i = 0; i < FIRST_INTERNAL_OPCODE; i++) {
        if (node_operator_name[i] == nullptr) continue;
        const IF_NODE_INFO& info = if_node_info[i];
        if (info.number == i && info.operands == number_of_operands[i] &&
            same_text(info.name, node_operator_name[i]))
            continue;
        mismatch = true;
        if (print_debug != 0) {
            dprintf("OP#%d: %d || %d || (%d != %d) <<%s>> <<%s>>\n", i, info.number != i,
                    !same_text(info.name, node_operator_name[i]), info.operands, number_of_operands[i],
                    info.name != nullptr ? info.name : "", node_operator_name[i]);
            dprintf("\tNo match for %s\n", node_operator_name[i]);
        }
    }
    if (mismatch) node_info_mismatch();
}

void check_micro_ops() {
    for (int i = FEQ; i <= FUNO; i++) {
        if (float_micro_ops_to_op[float_op_to_micro_ops[i]] == i) continue;
        const char* format = "float_micro_ops_to_op is not the reverse of float_op_to_micro_ops at %s\n";
        if (fdebug != nullptr) std::fprintf(fdebug, format, opname(i));
        std::fprintf(stderr, format, opname(i));
        abort_optimizer();
    }
}

} // namespace

void init_opcode_tables() {
    fill_tables();
    dprintf(" *** VALIDATING OPCODE TABLES\n");
    check_against_file_layer();
    check_micro_ops();
    dprintf(" *** OPCODE TABLES ARE OK\n\n");
}

const char* opname(int op) { return op >= 0 && op < OPCODE_TABLE_SIZE ? node_operator_name[op] : nullptr; }

bool opcode_is_ASG(int op) {
    switch (op) {
        case ASG:
        case STASG:
        case ARASG:
        case PLUSPLUS:
        case MINMIN: return true;
        default: return op >= 0 && op < OPCODE_TABLE_SIZE && op_of_opASG[op] != ILLOP;
    }
}

bool opcode_is_transfer(int op) {
    return op == BRANCH || op == IF || op == SWITCH || op == RETURN || op == URETURN;
}

namespace {

// Whether a pointer to this type counts as a pointer to any type: plain char with the package's signed char
// of the same size.
bool points_to_plain_char(TYPE* type) {
    return type != nullptr && type->is_ptr() && type->type_pointed_to()->is_plain_char() &&
           tp->int_type(IK_CHAR)->size() == tp->mk_int(IK_CHAR, true)->size();
}

// The types and operators that the constructors share. Conversions give a value, so their type loses its
// qualifiers.
void set_special_cases(NODE* node) {
    switch (node->op) {
        case SCONV:
        case PCONV:
        case ACONV:
            if (node->type != nullptr) node->type = node->type->type_qualified();
            break;
        default: break;
    }
}

} // namespace

NODE* new_node(int op, TYPE* type) {
    auto* node = new NODE(op, type);
    switch (op) {
        case SCONV:
            if (type != nullptr && type->is_enum()) node->type = type->underlying_type()->normalized();
            break;
        case PCONV:
            if (chars_alias_other_types != 0 && points_to_plain_char(type)) node->op = ISP2CHAR;
            break;
        case UCALL:
            if (currfuninfo != nullptr) currfuninfo->has_no_calls = false;
            break;
        default: break;
    }
    return node;
}

NODE* maketree(int op, NODE* left, NODE* right, TYPE* type, LS* ls) {
    auto* node = new NODE(op, type);
    node->left = left;
    node->right = right;
    node->ls = ls;
    set_special_cases(node);
    return node;
}

NODE* mktree(int op, NODE* left, NODE* right, TYPE* type, SYMTAB* symbol, const INT65& value) {
    NODE* node = maketree(op, left, right, type, nullptr);
    if (symbol != nullptr) {
        node->u.rval = symbol;
    } else {
        node->u.lval = value;
    }
    return node;
}

NODE* mk_ASG(NODE* left, NODE* right) {
    TYPE* type = left->type;
    int op = ASG;
    if (type->is_csu()) {
        op = STASG;
    } else if (type->is_array() && !type->is_vector()) {
        op = ARASG;
    }
    NODE* node = maketree(op, left, right, type, left->ls);
    if (op == STASG) node->u.rval = left->u.rval;
    return node;
}

NODE* mk_NAME(SYMTAB* symbol, LS* ls) {
    NODE* node = maketree(NAME, nullptr, nullptr, symbol->type, ls != nullptr ? ls : symbol->scope);
    node->u.rval = symbol;
    node->otype = symbol->otype;
    return node;
}

NODE* mk_ICON(const INT65& value, TYPE* type) {
    return mktree(ICON, nullptr, nullptr, type, nullptr, truncate_to_type(value, type));
}

NODE* mk_MINUS(NODE* left, NODE* right) { return maketree(MINUS, left, right, left->type, nullptr); }

NODE* mk_FIELD(fkMDATA* member, TYPE* csu) {
    auto* field = new NODE(FIELD, member->type->normalized());
    field->mk_field(1, member, csu);
    return field;
}

NODE* mk_EXCLAIM(NODE* operand) { return maketree(EXCLAIM, operand, nullptr, tp->int_type(IK_INT), nullptr); }

NODE* mk_COMMAOP(NODE* effect, NODE* value) { return maketree(COMMAOP, effect, value, value->type, nullptr); }

namespace {

NODE* mk_intrinsic(int op, const char* name, NODE* arguments, TYPE* type) {
    NODE* node = maketree(op, arguments, nullptr, type, nullptr);
    node->u.rval = const_cast<char*>(intern_text(name));
    return node;
}

} // namespace

NODE* mk_ICALL(const char* name, NODE* arguments, TYPE* type) {
    return mk_intrinsic(arguments != nullptr ? ICALL : UICALL, name, arguments, type);
}

NODE* mk_MCALL(const char* name, NODE* arguments, TYPE* type) {
    return mk_intrinsic(arguments != nullptr ? MCALL : UMCALL, name, arguments, type);
}

NODE* mk_LABELDEF(LBL* label) {
    auto* node = new NODE(LABELDEF, tp->void_type());
    node->label = label;
    node->u.lval = INT65::from_signed(label->number);
    return node;
}

NODE* mk_LABELREF(const INT65& number, unsigned edge_profile) {
    NODE* node = mktree(LABEL, nullptr, nullptr, tp->void_type(), nullptr, number);
    node->edge_profile = edge_profile;
    return node;
}

NODE* mk_LABELREF_to_bb(BBLK* target, LS* ls) {
    LBL* label = label_of(target);
    NODE* node = mk_LABELREF(INT65::from_signed(label->number), NO_PROFILE);
    node->label = label;
    node->ls = ls;
    return node;
}

NODE* mk_IF(NODE* condition, NODE* if_true, NODE* if_false) {
    TYPE* type = tp->void_type();
    return maketree(IF, condition, maketree(COLON, if_true, if_false, type, nullptr), type, nullptr);
}

NODE* mk_BRANCH(BBLK* target, LS* ls) {
    return maketree(BRANCH, mk_LABELREF_to_bb(target, ls), nullptr, tp->void_type(), ls);
}

LIST* mklist(NODE* tree, LIST* next, int number1, int number2) {
    auto* cell = static_cast<LIST*>(current_pool().allocate_cell(sizeof(LIST)));
    cell->first = tree;
    cell->next = next;
    cell->number1 = static_cast<std::uint16_t>(number1);
    cell->number2 = static_cast<std::uint16_t>(number2);
    return cell;
}

PSN* mk_psn(const PSN* psn) {
    if (psn == nullptr) return nullptr;
    auto* copy = static_cast<PSN*>(current_pool().allocate_cell(sizeof(PSN)));
    *copy = *psn;
    return copy;
}

LIST* mkelist(NODE* tree, LIST* next, const PSN* psn) {
    LIST* cell = mklist(tree, next, 0, 0);
    cell->psn = mk_psn(psn);
    return cell;
}
