// The expression node as the file layer sees it.
//
// I_FILE reads and writes trees only through these operations, so it depends on no client's node layout.
// The optimizer's NODE and the companion tools' trees both implement them.

#ifndef OPT5_BASE_NODE_H
#define OPT5_BASE_NODE_H

class I_SYMTAB;
class TYPE;
struct fkMDATA;

class BASE_NODE {
  public:
    virtual ~BASE_NODE() = default;

    // Shape. `node_op` is an operator number of opcodes.h; the operands are null where absent.
    virtual int node_op() const = 0;
    virtual void set_node_op(int op) = 0;
    virtual TYPE* node_type() const = 0;
    virtual BASE_NODE* node_left() const = 0;
    virtual BASE_NODE* node_right() const = 0;
    virtual void set_node_left(BASE_NODE* operand) = 0;
    virtual void set_node_right(BASE_NODE* operand) = 0;

    // Payload readers. Each is valid only for the operators named.
    virtual I_SYMTAB* name_sym() = 0;              // NAME
    virtual int field_kind() = 0;                  // FIELD: always 1
    virtual fkMDATA* field_mval() = 0;             // FIELD: the member
    virtual TYPE* field_csu() = 0;                 // FIELD: the aggregate type
    virtual unsigned icon_uvalue() = 0;            // ICON of unsigned (or pointer) type
    virtual int icon_svalue() = 0;                 // ICON of signed type
    virtual const char* lcon_value() = 0;          // LCON: decimal text
    virtual const char* fcon_value() = 0;          // FCON: text, format "%a"
    virtual const char* scon_value() = 0;          // SCON: the bytes
    virtual unsigned scon_length() = 0;            // SCON: their count
    virtual unsigned label_id() = 0;               // LABEL: label number
    virtual int vreg_id() = 0;                     // VREG
    virtual int skip_value() = 0;                  // SKIP: bits
    virtual int case_count() = 0;                  // SWITCH: cases, without the default
    virtual int ddnode_id() = 0;                   // DDNODE: dependence record
    virtual int ddnode_flags() = 0;                // DDNODE
    virtual int ddnode_kind() = 0;                 // DDNODE
    virtual unsigned call_id() = 0;                // CALL: call number
    virtual const char* icall_name() = 0;          // ICALL, UICALL, MCALL, UMCALL
    virtual unsigned eh_entry_id() = 0;            // CALL, UCALL: exception table index
    virtual unsigned get_edge_profile_value() = 0; // EPVAL

    // Payload writers: fill a node that the reader has just made. Texts and bytes are copied.
    virtual void set_edge_profile_value(unsigned count) = 0;
    virtual void mk_name(I_SYMTAB* symbol) = 0; // null is fatal
    virtual void mk_field(int kind, fkMDATA* member, TYPE* csu) = 0;
    virtual void mk_icon(int value) = 0;
    virtual void mk_lcon(const char* decimal) = 0;
    virtual void mk_fcon(const char* text) = 0;
    virtual void mk_scon(const char* bytes, unsigned length) = 0;
    virtual void mk_label(unsigned number) = 0;
    virtual void mk_vreg(int number) = 0;
    virtual void mk_skip(int bits) = 0;
    virtual void mk_case_count(int count) = 0;
    virtual void mk_ddnode(int id, int flags, int kind) = 0;
    virtual void mk_call(unsigned id, unsigned eht_index) = 0;
    virtual void mk_ucall(unsigned eht_index) = 0;
    virtual void mk_icall(const char* name) = 0;
};

#endif
