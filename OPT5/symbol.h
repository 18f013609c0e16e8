// Symbols: variables, functions, parameters and temporaries.

#ifndef OPT5_SYMBOL_H
#define OPT5_SYMBOL_H

#include <cstddef>
#include <cstdint>

#include "i_symtab.h"
#include "if_client.h"

class LS;
class NODE;
class TYPE;
struct EXPR_LIST;
struct FUNINFO;
struct INIT_ENTRY;
struct LIST;
struct PRAGMA;
struct PSN;

// Bits of SYMTAB::flags.
enum SYMBOL_FLAGS : std::uint8_t {
    SF_REGISTER_CANDIDATE = 0x01,
    SF_ADDRESS_TAKEN = 0x02, // of a local: as the last analysis of the function found
    SF_SET_AT_CREATION = 0x04,
    SF_REVERT_CLASS = 0x80, // the closing run gives class 108 or 109
};

// Bits of SYMTAB::cqual. Those of the file stay below bit 13.
enum CQUAL_BITS : std::uint16_t {
    CQ_REGISTER = 0x0090,      // register-like: bits 4 and 7
    CQ_INTERRUPT = 0x0020,     // an interrupt handler
    CQ_FILE_BITS = 0x19ff,     // what reading keeps
    CQ_ADDRESS_TAKEN = 0x2000, // what is known of a global
    CQ_WRITTEN = 0x4000,
    CQ_REFERENCED = 0x8000,
    CQ_VISIBLE = CQ_ADDRESS_TAKEN | CQ_WRITTEN | CQ_REFERENCED
};

class SYMTAB final : public I_SYMTAB {
  public:
    const char* name = nullptr; // interned
    std::uint32_t size = 0;     // bits; equals the size of `otype` for an object
    std::int32_t value = 0;     // offset or number
    std::uint8_t sclass = 0;
    std::uint8_t class_as_read = 0;
    std::uint16_t cqual = 0;
    TYPE* type = nullptr;     // normalised; an enum appears as its underlying type
    TYPE* otype = nullptr;    // as read
    TYPE* cpp_type = nullptr; // null when none
    std::int32_t align = 16;  // bits
    LS* scope = nullptr;
    void* ptr_entry = nullptr; // cached entry of the alias tables
    PSN* psn = nullptr;
    PRAGMA* pragmas = nullptr;   // chain, owned by the symbol
    EXPR_LIST* init = nullptr;   // initialiser, null if none
    NODE* known_value = nullptr; // of a global scalar: what its initialiser says, null if not known
    const INIT_ENTRY* auto_inits = nullptr; // the initialiser by offset, see global_consts.h
    std::uint32_t auto_init_count = 0;
    std::int32_t level = 0; // 0 global, 1 parameter, 2 and up local
    std::uint32_t location = 0;
    std::uint32_t option_set = 0;
    SYMTAB* next = nullptr; // of the list that holds the symbol
    void* alias_info = nullptr;
    std::uint32_t serial = 0; // the function's running number of symbols
    std::uint16_t use_count = 0xffff;
    std::int16_t def_count = -1; // -1: not known, not tracked; see def_use.h
    NODE* sole_def = nullptr;    // the assignment, where `def_count` is 1 and it is a plain one
    std::uint32_t pass_stamp = 0, pass_number = 0; // see SYMBOL_NUMBERS
    std::int32_t widened = 0;
    FUNINFO* scanned_by = nullptr; // the function that has this static on its list of statics
    std::uint8_t flags = 0;        // SYMBOL_FLAGS
    std::uint32_t stamp = 0;       // of the run of the validators that found the symbol on a list last

    const char* sym_name() const override { return name; }
    unsigned sym_size() const override { return size; }
    int sym_value() const override { return value; }
    int sym_class() const override { return sclass; }
    unsigned sym_cqual() const override { return cqual; }
    TYPE* sym_type() const override { return type; }
    TYPE* sym_cpp_type() const override { return cpp_type; }
    unsigned sym_align() const override { return static_cast<unsigned>(align); }
    const PSN* sym_psn() const override { return psn; }
    PRAGMA* sym_pragma() const override { return pragmas; }
    int sym_prag_num() const override;
    unsigned sym_location() const override { return location; }
    unsigned sym_option_set() const override { return option_set; }
    int sym_level() const override { return level; }
    void set_level(int new_level) override { level = new_level; }
    void set_location(unsigned offset) override { location = offset; }

    // Symbols come from the current pool: a local one ends with its function, a global one with the run.
    static void* operator new(std::size_t size);
    static void operator delete(void*) {}
};

// An initialiser: its trees in a doubly linked circular list; the last one is an ENDINIT.
struct EXPR_LIST {
    NODE* tree;
    EXPR_LIST* next;
    EXPR_LIST* prev;
};

void init_symbols();
// Makes a symbol from its record: normalised type, flags of its set of options. A type that is absent, or a
// size that does not match the type, ends the run.
SYMTAB* mk_symbol(const SYMBOL_RECORD& record);
// A new external symbol of the type `int name()`, declared and entered in the output file.
SYMTAB* mk_library_symbol(const char* name);
// Puts a new symbol in its list: a global at the head of global_symbols and in the output file, a parameter
// or local at the tail of the current function's list.
void sym_def(SYMTAB* symbol);
// Makes a temporary "$O$<kind><number>" of the current function; a negative number takes the next one.
SYMTAB* sym_temp(int kind, int number, TYPE* type, LS* ls);
// Makes a temporary "$O$CSU$<object>$<member>" for a member of a local object, in the object's scope.
SYMTAB* sym_member_temp(const SYMTAB* object, const char* member, TYPE* type);
// Takes the symbol out of the list; returns the new head.
SYMTAB* unlink_symbol(SYMTAB* symbol, SYMTAB* list);
// The defining symbol of an external declaration, by name: the symbol itself where there is no other.
SYMTAB* get_sym_def_for_decl(SYMTAB* symbol);
bool symbol_has_pragma(const SYMTAB* symbol, int kind);
PRAGMA* remove_pragma(int kind,
                      PRAGMA* chain); // returns the new head; the pragmas taken out stay their owner's
// The global of that name that is visible outside the file, a definition before a declaration; null if none.
SYMTAB* find_external_symbol(const char* name);

// Interning across functions.
SYMTAB* intern_symbol(SYMTAB* symbol, FUNINFO* function);
SYMTAB* find_interned_symbol(SYMTAB* symbol);
void map_over_interned_symbols(void (*visit)(SYMTAB*));
void interned_stats();

// Names.
bool name_has_prefix(const char* name);
const char* skip_name_prefix(const char* name); // skips one leading "_" or "."
bool is_internal_name(const char* name);        // begins with "$O"
bool is_internal_symbol(const SYMTAB* symbol);
bool is_optimizer_temp(const char* name, char c1, char c2);

// Whether the symbol is storage of one activation of a function: a local or a parameter, and no static.
bool is_automatic(const SYMTAB* symbol);
// Whether the object keeps its value: it is const, by its declaration or because nothing modifies it, and not
// volatile.
bool is_immutable(const SYMTAB* symbol);
// Whether the address of the symbol needs more than a data pointer's bits.
bool sym_is_FAR(const SYMTAB* symbol);
// Puts every symbol of the function on the list that it belongs on, where passes have left others: parameters
// by their level, temporaries by their names. Keeps the order of symbols that stay. Linear.
void sym_split(FUNINFO* function);

// Numbers the symbols that one run of a pass meets, from 0 in order of meeting. Only the numbering made last
// is valid: the numbers are kept in the symbols.
class SYMBOL_NUMBERS {
  public:
    SYMBOL_NUMBERS() : stamp_(++last_stamp_) {}
    // The symbol's number, a fresh one if it has none.
    std::uint32_t of(SYMTAB* symbol) {
        if (symbol->pass_stamp != stamp_) {
            symbol->pass_stamp = stamp_;
            symbol->pass_number = count_++;
        }
        return symbol->pass_number;
    }
    std::uint32_t count() const { return count_; }

  private:
    static std::uint32_t last_stamp_;
    std::uint32_t stamp_;
    std::uint32_t count_ = 0;
};

extern SYMTAB* errno_symbol; // null until seen

// Small list cells, from the current pool.
struct SYMLIST {
    SYMTAB* sym;
    SYMLIST* next;
};
struct SYMALIST {
    SYMTAB* sym;
    NODE* tree;
    SYMALIST* next;
};
struct SYMPAIRLIST {
    SYMTAB* from;
    SYMTAB* to;
    SYMPAIRLIST* next;
};
SYMLIST* mk_symlist(SYMTAB* sym, SYMLIST* next);
SYMALIST* mk_symalist(SYMTAB* sym, NODE* tree, SYMALIST* next);
SYMPAIRLIST* mk_symplist(SYMTAB* from, SYMTAB* to, SYMPAIRLIST* next);
SYMLIST* find_sym_in_symlist(const SYMTAB* sym, SYMLIST* list);
SYMPAIRLIST* find_sym_in_sympairlist(const SYMTAB* sym, SYMPAIRLIST* list);
bool symbol_in_list(const SYMTAB* sym, const SYMTAB* list);
SYMLIST* remove_sym_from_symlist(const SYMTAB* sym, SYMLIST* list);
SYMLIST* revsymlist(SYMLIST* list);
SYMALIST* revsymalist(SYMALIST* list);
SYMTAB* revsymtab(SYMTAB* list);

#endif
