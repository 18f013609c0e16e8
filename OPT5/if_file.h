// The intermediate file: reader and writer of the container, its primitives and its records.
//
// One I_FILE is either a reader or a writer for its life. It knows the format and nothing of its client: it
// reads through IF_CLIENT and talks to symbols and trees only through I_SYMTAB and BASE_NODE.
//
// A reader trusts no byte: every count, index, type number, level and offset is checked where it is read,
// and no allocation exceeds what the rest of the file can fill. A fault of the file ends the run with one
// line on standard output and status 1 (see if_fatal).

#ifndef OPT5_IF_FILE_H
#define OPT5_IF_FILE_H

#include <cstdint>
#include <cstdio>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "i_symtab.h"
#include "if_client.h"
#include "opcodes.h"
#include "psn.h"

class BASE_NODE;
class TYPE;
class TYPE_PKG;
struct PRAGMA;
struct fkMDATA;

// Record ids.
enum RECORD_ID : int {
    REC_BEGIN_FUNC = 1,
    REC_END_FUNC = 2,
    REC_BEGIN_BLOCK = 3,
    REC_END_BLOCK = 4,
    REC_END_ARGS = 5,
    REC_END_LOCALS = 6,
    REC_HEADER = 8,
    REC_INSTRUCTION = 34,
    REC_SYMBOL = 35,
    REC_INLINE_ASM = 36,
    REC_LOOP = 38,
    REC_LABEL = 42,
    REC_MBANK = 45,
    REC_EXPR = 46,
    REC_COMMENT = 47,
    REC_DD_EDGE = 58,
    REC_DD_VECTOR = 59,
    REC_CATCH = 63,
    REC_FUNC_INFO = 64,
    REC_EHT_ENTRY = 91,
    REC_EHT = 93,
    REC_PRAGMA = 94,
    REC_NODE = 101,
    REC_INIT = 105,
    REC_LDSPEC = 108,
    REC_OPTION_SET = 111,
    REC_TYPE = 116,
    REC_IR_BEGIN_FUNC = 123,
    REC_INLOOP = 124,
    REC_IR_END_FUNC = 125,
    REC_SOURCE = 126,
    REC_EOF = 255
};

// The file version that this system writes. Versions are negative and count upward to the present: a file
// has a feature introduced with version V if its own version is V or greater.
constexpr int ICODE_VERSION = -71;
constexpr int ICODE_CPU_ID = 1000;
constexpr std::uint32_t NULL_LEVEL = 0xffffffffu; // level of a NAME without a symbol

// Ends the run because of the bytes of a file: prints `line` (and a newline, if it has none) on standard
// output and exits with status 1. A test harness may install a hook, which must not return.
extern void (*if_fatal_hook)(const std::string& line);
[[noreturn]] void if_fatal(const std::string& line);

// What the reader knows of a type number: the type, and its members by number when it is an aggregate.
struct TYPE_INFO {
    TYPE* type = nullptr;
    int open_list = -1;         // list id that the last header opened, -1 when none is open
    unsigned pending_lists = 0; // bit per list id still to come before the type is complete
};

struct OPTION_SET {
    unsigned number = 0;
    std::vector<std::string> words;
};

class I_FILE {
  public:
    // --- Opening and closing (if_read.cpp, if_write.cpp).

    // Opens a reader on `stream`, which the object takes over on success. Null when the header is not that
    // of a file we can read; the stream stays the caller's then, as it does when a hook of if_fatal leaves
    // the call. `name` stands in error messages.
    static I_FILE* if_open(std::FILE* stream, IF_CLIENT* client, const char* name);

    // Makes a writer on `stream`, which it takes over: writes a header with zero offsets.
    static I_FILE* if_create(std::FILE* stream, TYPE_PKG* types, const char* producer, const char* name);

    // Closes and deletes `file`: a writer that is not abandoned writes all sections and the final header.
    // Returns 0, or nonzero on a stream error.
    static int if_close(I_FILE* file, bool abandon);

    const char* producer() const { return producer_.c_str(); }
    int version() const { return version_; }
    const std::vector<OPTION_SET>& option_sets() const { return option_sets_; }

    // Readers: the package that type records are made in; set before anything but the options is read.
    void if_type_init(TYPE_PKG* types) { tp_ = types; }
    TYPE_PKG* type_pkg() const { return tp_; }

    // Offsets relative to where the file begins in its stream.
    long if_tell();
    void if_seek(long offset);
    void if_flush();

    // --- Reading (if_read.cpp, if_symbol.cpp, if_type.cpp).

    void if_read_file();  // all sections, then the body
    int if_read_record(); // one record of the body; returns its id
    void if_read_func(long offset);
    void if_skip_func();
    void if_read_type_defs(); // if_type.cpp
    void if_read_options();
    void if_read_file_names();
    void if_read_all_init();
    void if_read_globals();
    BASE_NODE* if_read_expr_node(bool with_header);
    int if_check_lengths(); // 1 when the body is well formed

    const char* i_get_file_name(unsigned id) const; // null for 0 or out of range
    unsigned i_get_file_id(const char* name) const;

    const std::vector<I_SYMTAB*>& globals() const { return globals_; }
    const std::vector<I_SYMTAB*>& locals() const { return locals_; }
    int level() const { return level_; }

    // --- Writing (if_write.cpp, if_symbol.cpp, if_type.cpp).

    unsigned i_enter_file_name(const char* name); // returns the number, from 1
    void if_enter_option_set(unsigned number, const std::vector<std::string>& words);
    // Gives the symbol its index as the next place of the vector, and its level.
    void if_enter_global(I_SYMTAB* symbol);
    void if_enter_local(I_SYMTAB* symbol);

    void if_write_begin_func(I_SYMTAB* function, const PSN* psn);
    void if_write_end_func(const PSN* psn);
    void if_write_begin_block(const PSN* psn);
    void if_write_end_block(const PSN* psn);
    void if_write_end_args(const PSN* psn);
    void if_write_end_locals(const PSN* psn);
    void if_write_control(int id, const PSN* psn);     // any of the six above but begin func
    void if_write_symbol(I_SYMTAB* symbol);            // the record and one record per pragma
    void if_write_symbol(const SYMBOL_RECORD& record); // the record alone
    void if_write_label(unsigned number);
    void if_write_assembly(const char* text, const PSN* psn);
    void if_write_source(const char* name);
    void if_write_comment(const char* text);
    void if_write_pragma(const PRAGMA* pragma);
    void if_write_func_info(int value);
    void if_write_expr(BASE_NODE* tree, const PSN* psn); // record 46 and the tree
    void if_write_expr_node(BASE_NODE* tree);            // the tree alone
    void if_write_init(I_SYMTAB* symbol);                // record 105; the trees follow
    void if_write_loop(unsigned, unsigned, unsigned, unsigned, unsigned, unsigned);
    void if_write_inloop(unsigned loop, int level, int index, unsigned kind);
    void if_write_dep_vector(unsigned index, unsigned kind,
                             const std::vector<std::pair<std::uint8_t, std::int8_t>>& entries);
    void if_write_dep_edge(unsigned, unsigned, unsigned);
    void if_write_mbank(unsigned, unsigned, unsigned, unsigned, unsigned);
    void if_write_ldspec_induct(unsigned index, unsigned loop, int stride, TYPE* type, I_SYMTAB* symbol);
    void if_write_ldspec_rand(unsigned index, unsigned a, unsigned b, TYPE* type, I_SYMTAB* symbol);
    void if_write_ldspec_region(unsigned index, unsigned region);
    void if_write_func_eht(const std::vector<EHT_ENTRY>& entries);
    void if_write_all_types(); // if_type.cpp

    void if_copy_raw(long offset, long length, I_FILE* to);
    void if_copy_symbols(I_FILE* to);

    // --- Primitives, public for the text form's assembler and disassembler.

    struct RECORD_HEADER {
        int id;
        unsigned size; // payload bytes
    };
    RECORD_HEADER i_read_header();
    unsigned i_read_u8() { return get(); }
    int i_read_s8() { return static_cast<signed char>(get()); }
    bool i_read_bool() { return get() != 0; }
    unsigned i_read_u16();
    int i_read_s16();
    std::uint32_t i_read_u32();
    std::int32_t i_read_s32();
    // Most numbers of a file have one byte.
    std::uint32_t i_read_uint() {
        return cursor_ != limit_ && *cursor_ < 0x80 ? *cursor_++ : read_long_uint();
    }
    std::int32_t i_read_sint() {
        if (cursor_ == limit_ || *cursor_ >= 0x80) return read_long_sint();
        const int group = *cursor_++;
        return group < 0x40 ? group : group - 0x80;
    }
    // A zero-terminated string; valid until the next call.
    const char* i_read_string();
    // Exactly `n` bytes; valid until the next call of i_read_string.
    const char* i_read_string(unsigned n);
    void i_read_raw(void* to, unsigned n);
    void i_read_skip(unsigned n);
    // False for a null position; `psn` is filled otherwise.
    bool i_read_psn(PSN& psn);
    TYPE* i_read_typeref();

    void i_write_i8(int value) { append(static_cast<unsigned char>(value)); }
    void i_write_bool(bool value) { append(value ? 1 : 0); }
    void i_write_i16(int value); // -32768 to 65535, else fatal
    void i_write_i32(std::uint32_t value);
    void i_write_uint(std::uint32_t value) {
        for (; value >= 0x80; value >>= 7) append(static_cast<unsigned char>(value | 0x80));
        append(static_cast<unsigned char>(value));
    }
    void i_write_sint(std::int32_t value);
    void i_write_string(const char* text);              // with its zero
    void i_write_string(const char* bytes, unsigned n); // without
    void i_write_raw(const void* bytes, unsigned n);    // straight to the stream
    void i_write_psn(const PSN* psn);
    void i_write_typeref(TYPE* type);
    void i_flush(int id); // ends the record under construction
    void i_write_eof();

    // Sections, by offset; 0 when absent.
    struct SECTIONS {
        std::uint32_t options = 0, inits = 0, types = 0, files = 0, symbols = 0;
    };
    const SECTIONS& sections() const { return sections_; }
    std::uint32_t body_offset() const { return body_offset_; }
    std::uint32_t extra_word() const { return extra_; }

    // A fault of the bytes at hand: one line with file name, offset and `what`; never returns.
    [[noreturn]] void bad_file(const std::string& what);
    // Bytes from the present position to the end of the file.
    std::uint64_t bytes_left();

  private:
    I_FILE() = default;
    ~I_FILE();

    // --- Reader's buffer: one window of the stream. `limit_` ends the window or the record at hand,
    // whichever comes first, so that one comparison guards both.
    unsigned char get() { return cursor_ != limit_ ? *cursor_++ : get_slow(); }
    unsigned char get_slow();
    std::uint32_t read_long_uint();
    std::int32_t read_long_sint();
    void set_limit();
    bool read_header_record(IF_CLIENT* client);
    void begin_section(std::uint32_t offset, const char* what);

    // --- Type section (if_type.cpp).
    friend struct I_FILE_TYPES;
    TYPE* find_typeref(unsigned number) { // "invalid forward reference" is fatal
        const KNOWN_TYPE& known = known_types_[number % KNOWN_TYPES];
        return known.number == number ? known.type : look_up_type(number);
    }
    TYPE* look_up_type(unsigned number);
    fkMDATA* find_mdataref(TYPE* csu, unsigned number);
    void if_read_type();
    void need_complete_types(); // a list still to come is fatal, and so is a type that holds itself
    void if_mark_global_types();

    // --- Symbols and trees (if_symbol.cpp).
    I_SYMTAB* find_symbol(std::uint32_t level, std::uint32_t index);
    I_SYMTAB* if_read_symbol_def();
    void if_read_pragma(I_SYMTAB* owner);
    void if_read_init();
    void if_read_eht();
    BASE_NODE* read_node(int& subtrees);
    void write_node(BASE_NODE* node);
    [[noreturn]] void invalid_record();

    // --- Records of a body (if_read.cpp).
    void dispatch(const RECORD_HEADER& header);
    void read_ldspec();
    void need_function(const char* what);
    // Entry and exit of a function, of instructions (records 123 and 125) or of trees (1 and 2).
    void enter_function(bool of_instructions);
    void leave_function(bool of_instructions);

    void if_write_magic();
    void if_write_all_options();
    void if_write_all_files();
    void if_write_all_globals();
    // The record under construction, and what has left it on the way to the stream.
    void append(unsigned char byte) {
        if (used_ == buffer_.size()) grow(1);
        buffer_[used_++] = byte;
    }
    void append(const void* bytes, std::size_t n);
    void grow(std::size_t n);
    void put(const void* bytes, std::size_t n);
    void put_out();

    struct TREE_FRAME {
        BASE_NODE* node;
        int subtrees;
        int done;
    };

    std::string name_;
    std::string producer_;
    std::FILE* stream_ = nullptr;
    long base_ = 0;
    bool writing_ = false;
    IF_CLIENT* client_ = nullptr;
    int version_ = ICODE_VERSION;
    SECTIONS sections_;
    std::uint32_t body_offset_ = 0;
    std::vector<OPTION_SET> option_sets_;
    TYPE_PKG* tp_ = nullptr;
    std::unordered_map<unsigned, TYPE_INFO> type_map_;
    // The complete types that were asked for last, by the low bits of the number. Number 0 is no type.
    static constexpr unsigned KNOWN_TYPES = 256;
    struct KNOWN_TYPE {
        unsigned number = 0;
        TYPE* type = nullptr;
    };
    KNOWN_TYPE known_types_[KNOWN_TYPES];
    std::vector<const char*> file_names_;                // entry 0 is never used
    std::unordered_map<const char*, unsigned> file_ids_; // interned name to number
    std::uint32_t extra_ = 0;
    int level_ = 0;
    bool of_instructions_ = false; // the function at hand; see enter_function
    std::vector<I_SYMTAB*> locals_;
    std::vector<I_SYMTAB*> globals_;

    // Readers.
    std::vector<unsigned char> window_;
    unsigned char* cursor_ = nullptr;
    unsigned char* limit_ = nullptr;
    unsigned char* window_end_ = nullptr;
    long window_offset_ = 0; // of the window's first byte
    long end_ = 0;           // size of the file
    long record_end_ = -1;   // of the record at hand, -1 between records
    std::vector<TREE_FRAME> frames_;
    std::string scratch_; // result of i_read_string

    // Writers.
    std::vector<unsigned char> buffer_; // record under construction: its first `used_` bytes
    std::size_t used_ = 0;
    std::vector<unsigned char> out_; // whole records: the first `out_used_` bytes
    std::size_t out_used_ = 0;
    long written_ = 0; // of the file, those in `out_` included
    bool write_failed_ = false;
};

#endif
