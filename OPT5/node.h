// Expression trees: nodes, statement cells, the operator property tables and the constructors for passes.
//
// Forms that exist only in memory:
//   IF(cond, COLON(LABEL t, LABEL f))  goes to t when cond is nonzero, to f otherwise; ends its block
//   LABELDEF                           `label` is defined here
//   LABEL                              a reference: `label` is the target once the flow graph stands
//   PPRAGMA                            u.rval is the PRAGMA
//   ASM                                u.lval is the record id (inline assembly or comment), `text` the text
// A body in memory has no CBRANCH: reading turns each into an IF, writing turns it back.

#ifndef OPT5_NODE_H
#define OPT5_NODE_H

#include <cstdint>

#include "base_node.h"
#include "opcodes.h"
#include "psn.h"
#include "xint.h"

class BBLK;
class LS;
class SYMTAB;
class TYPE;
struct DDEP;
struct FUNINFO;
struct LBL;
struct PRAGMA;
struct fkMDATA;
struct simul_fval;

// Bits of NODE::flags.
constexpr std::uint32_t NF_RECEIVES_PARAMETER = 2;     // part of the argument prolog
constexpr std::uint32_t NF_INLINE_DEPTH = 0x00ff0000u; // of a call: how many integrations brought it here
constexpr std::uint32_t NF_KEPT_BY_COPIES = NF_RECEIVES_PARAMETER | NF_INLINE_DEPTH;

constexpr std::uint32_t NO_PROFILE = 0xffffffffu; // edge_profile of a node without a count

class NODE final : public BASE_NODE {
  public:
    int op;
    TYPE* type;
    NODE* left;
    NODE* right;
    union {
        INT65 lval; // ICON, LABEL, SKIP, SWITCH, CALL, ASM
        void* rval; // see the typed readers below
    } u;
    union {
        fkMDATA* mdata;      // FIELD: the member
        FUNINFO* call_owner; // CALL, UCALL: the function whose call site it is, also in an integrated copy
    };
    std::uint32_t scratch[4]; // analysis scratch, free for the pass that holds the node
    LS* ls;                   // location set of the lvalue
    std::uint32_t scratch2[2];
    TYPE* otype; // declared type
    std::uint32_t edge_profile;
    double freq; // -1.0: unknown
    DDEP* ddep;
    std::uint16_t ddnode_number;
    LBL* label;       // LABEL, LABELDEF
    const char* text; // SCON: the bytes; FCON: cached text; ASM: the text
    union {
        std::uint32_t text_length;       // SCON
        std::uint32_t unique_call_index; // CALL, UCALL: the site's number in `call_owner`, from 1; 0 for none
    };
    std::uint32_t flags; // NF_*; the low bit is cleared by every constructor
    union {
        std::uint32_t i_eht_id; // CALL, UCALL as read
        NODE* ocall;            // the call from which call integration copied this one
    } u2;
    std::uint32_t scratch3;
    std::uint32_t stamp; // of the walk of the validators that met the node last

    SYMTAB* symbol() const { return static_cast<SYMTAB*>(u.rval); }            // NAME
    TYPE* csu() const { return static_cast<TYPE*>(u.rval); }                   // FIELD
    const char* intrinsic() const { return static_cast<const char*>(u.rval); } // ICALL family
    unsigned inline_depth() const { return (flags & NF_INLINE_DEPTH) >> 16; }  // CALL, UCALL
    void set_inline_depth(unsigned depth) { flags = (flags & ~NF_INLINE_DEPTH) | depth << 16; }
    simul_fval* fval() const { return static_cast<simul_fval*>(u.rval); } // FCON
    PRAGMA* pragma() const { return static_cast<PRAGMA*>(u.rval); }       // PPRAGMA

    // Nodes come from the current pool and go back by erase_node.
    static void* operator new(std::size_t size);
    static void operator delete(void* node, std::size_t size);
    NODE(int op, TYPE* type);

    // The operator as a file names it: LCON for an ICON that needs more than 32 bits, PCONV for an ISP2CHAR.
    int node_op() const override {
        return op == op::ICON && !fits_in_icon() ? int{op::LCON} : op == op::ISP2CHAR ? int{op::PCONV} : op;
    }
    bool fits_in_icon() const; // ICON: the value survives a record with 32 bits, read back by the type
    void set_node_op(int new_op) override { op = new_op; }
    TYPE* node_type() const override { return type; }
    BASE_NODE* node_left() const override { return left; }
    BASE_NODE* node_right() const override { return right; }
    void set_node_left(BASE_NODE* operand) override { left = static_cast<NODE*>(operand); }
    void set_node_right(BASE_NODE* operand) override { right = static_cast<NODE*>(operand); }

    I_SYMTAB* name_sym() override;
    int field_kind() override { return 1; }
    fkMDATA* field_mval() override { return mdata; }
    TYPE* field_csu() override { return csu(); }
    unsigned icon_uvalue() override;
    int icon_svalue() override { return static_cast<int>(u.lval.low); }
    const char* lcon_value() override;
    const char* fcon_value() override;
    const char* scon_value() override { return text; }
    unsigned scon_length() override { return text_length; }
    unsigned label_id() override;
    int vreg_id() override { return 0; }
    int skip_value() override { return static_cast<int>(u.lval.low); }
    int case_count() override { return static_cast<int>(u.lval.low); }
    int ddnode_id() override { return ddnode_number; }
    int ddnode_flags() override { return 0; }
    int ddnode_kind() override { return 0; }
    unsigned call_id() override { return u.lval.low; }
    const char* icall_name() override { return intrinsic(); }
    unsigned eh_entry_id() override { return u2.i_eht_id; }
    unsigned get_edge_profile_value() override { return edge_profile; }

    void set_edge_profile_value(unsigned count) override { edge_profile = count; }
    void mk_name(I_SYMTAB* symbol) override;
    void mk_field(int kind, fkMDATA* member, TYPE* csu) override;
    void mk_icon(int value) override;
    void mk_lcon(const char* decimal) override;
    void mk_fcon(const char* value) override;
    void mk_scon(const char* bytes, unsigned length) override;
    void mk_label(unsigned number) override;
    void mk_vreg(int) override {}
    void mk_skip(int bits) override;
    void mk_case_count(int count) override;
    void mk_ddnode(int, int, int) override {}
    void mk_call(unsigned id, unsigned eht_index) override;
    void mk_ucall(unsigned eht_index) override;
    void mk_icall(const char* name) override;
};

// Cell of a statement list, and of other lists of trees.
struct LIST {
    NODE* first;
    PSN* psn; // null: no position
    std::uint16_t number1;
    std::uint16_t number2;
    LIST* next;
};

// --- Operator properties, indexed by operator number; filled by init_opcode_tables.

constexpr int OPCODE_TABLE_SIZE = 223;
constexpr int ANY_OPERANDS = 255;

enum SIDE_EFFECTS : std::uint8_t { SE_NONE = 0, SE_ASSIGNS = 1, SE_CONTROL = 2, SE_ANY = 255 };

extern const char* node_operator_name[OPCODE_TABLE_SIZE]; // null for a gap
extern std::uint8_t number_of_operands[OPCODE_TABLE_SIZE];
extern std::uint8_t op_OK_for_SP[OPCODE_TABLE_SIZE];
extern std::uint8_t precedence[OPCODE_TABLE_SIZE];
extern std::uint8_t side_effects[OPCODE_TABLE_SIZE];
extern std::uint8_t op_of_opASG[OPCODE_TABLE_SIZE]; // ILLOP for other operators
extern std::uint8_t boolean_inv[OPCODE_TABLE_SIZE]; // ILLOP where there is none
extern std::uint8_t commute_inv[OPCODE_TABLE_SIZE]; // ILLOP where there is none
extern std::uint8_t boolean_result[OPCODE_TABLE_SIZE];
extern std::uint8_t float_op_to_micro_ops[OPCODE_TABLE_SIZE]; // bits: 1 equal, 2 less, 4 greater, 8 unordered
extern std::uint8_t float_micro_ops_to_op[16];

// Fills the tables and checks them against the file layer's; a mismatch ends the run.
void init_opcode_tables();

// The operator's name; null for a gap or a number outside the table.
const char* opname(int op);

// --- Constructors (opt_expr.cpp). Operands become part of the new tree.

NODE* new_node(int op, TYPE* type); // the reader's
NODE* maketree(int op, NODE* left, NODE* right, TYPE* type, LS* ls);
NODE* mktree(int op, NODE* left, NODE* right, TYPE* type, SYMTAB* symbol, const INT65& value);
NODE* mk_ASG(NODE* left, NODE* right); // STASG, ARASG or ASG by the left type
NODE* mk_NAME(SYMTAB* symbol, LS* ls = nullptr);
NODE* mk_ICON(const INT65& value, TYPE* type);
NODE* mk_FIELD(fkMDATA* member, TYPE* csu); // of the type that accesses to the member have
NODE* mk_MINUS(NODE* left, NODE* right);
NODE* mk_EXCLAIM(NODE* operand);
NODE* mk_COMMAOP(NODE* effect, NODE* value);
NODE* mk_ICALL(const char* name, NODE* arguments, TYPE* type); // UICALL without arguments
NODE* mk_MCALL(const char* name, NODE* arguments, TYPE* type);
NODE* mk_LABELDEF(LBL* label);
NODE* mk_LABELREF(const INT65& number, unsigned edge_profile);
NODE* mk_LABELREF_to_bb(BBLK* target, LS* ls);               // gives the block a label if it has none
NODE* mk_IF(NODE* condition, NODE* if_true, NODE* if_false); // the arms are LABEL nodes
NODE* mk_BRANCH(BBLK* target, LS* ls);

// Cells from the current pool.
LIST* mklist(NODE* tree, LIST* next, int number1, int number2);
LIST* mkelist(NODE* tree, LIST* next, const PSN* psn); // the position is copied; may be null

#endif
