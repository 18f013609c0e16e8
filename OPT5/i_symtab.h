// The symbol as the file layer sees it.

#ifndef OPT5_I_SYMTAB_H
#define OPT5_I_SYMTAB_H

#include <cstdint>

class TYPE;
struct PRAGMA;
struct PSN;

class I_SYMTAB {
  public:
    enum RETENTION_POLICY : std::uint8_t { DEFAULT_C = 0, ALWAYS = 1, EXTERNAL = 2, NEVER = 3 };

    // `index` of a symbol that no file has entered yet.
    static constexpr std::uint32_t NOT_ENTERED = 0xffffffffu;

    std::uint32_t index = NOT_ENTERED; // place in the file layer's vector of globals or locals
    RETENTION_POLICY retention = DEFAULT_C;

    virtual ~I_SYMTAB() = default;

    virtual const char* sym_name() const = 0;
    virtual unsigned sym_size() const = 0;  // bits
    virtual int sym_value() const = 0;      // offset or number
    virtual int sym_class() const = 0;      // storage class
    virtual unsigned sym_cqual() const = 0; // 16-bit flag word
    virtual TYPE* sym_type() const = 0;
    virtual TYPE* sym_cpp_type() const = 0;    // null when none
    virtual unsigned sym_align() const = 0;    // bits
    virtual const PSN* sym_psn() const = 0;    // null when none
    virtual PRAGMA* sym_pragma() const = 0;    // head of the chain
    virtual int sym_prag_num() const = 0;      // its length
    virtual unsigned sym_location() const = 0; // file offset of the initialiser or function
    virtual unsigned sym_option_set() const = 0;
    virtual int sym_level() const = 0; // 0 global, 1 parameter, 2 and up local
    virtual void set_level(int level) = 0;
    virtual void set_location(unsigned offset) = 0;
};

// Storage classes of symbols.
enum STORAGE_CLASS : int {
    SC_AUTO = 1,
    SC_EXTDEF = 2, // external, defined here
    SC_STATIC = 3, // defined here, not visible outside
    SC_REGISTER = 4,
    SC_EXTERN = 5,   // external, only declared here
    SC_PARM = 9,     // parameter in memory
    SC_REGPARM = 17, // parameter in a register
    SC_VARARG = 27,  // last named parameter of a function with a variable argument list
};

#endif
