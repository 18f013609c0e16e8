// The type package: all C and C++ types of a run, made, interned, merged, compared and printed in one
// TYPE_PKG. It is independent of trees and of the optimizer, and serves every stage of the tool chain.
//
// Types are immutable once frozen, and live to the end of the run. A pointer to a type, its qualified forms,
// its arrays and its functions are unique: two requests for one type give one object.

#ifndef OPT5_TYPES_H
#define OPT5_TYPES_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "psn.h"

class TYPE;
class TYPE_PKG;

// Integer kinds, in the order of the package's table of basic types.
enum IKIND : int {
    IK_BOOL = 0,
    IK_CHAR,
    IK_UCHAR,
    IK_WCHAR,
    IK_SHORT,
    IK_USHORT,
    IK_INT,
    IK_UINT,
    IK_LONG,
    IK_ULONG,
    IK_LLONG,
    IK_ULLONG,
    IK_COUNT
};

// Floating kinds; entries 12 to 14 of the table of basic types.
enum FKIND : int { FK_FLOAT = 0, FK_DOUBLE, FK_LDOUBLE, FK_COUNT };

// Qualifier bits of a qualified type.
enum QUAL : unsigned {
    QUAL_CONST = 1,
    QUAL_VOLATILE = 2,
    QUAL_PACKED = 4,
    QUAL_NEAR = 8,
    QUAL_FAR = 16,
    QUAL_IOPORT = 32,
    QUAL_RESTRICT = 64,
    QUAL_ONCHIP = 128
};

// Flat numbers of TYPE::ekind(): the IKINDs, then these.
enum EKIND : int {
    EK_FLOAT = 12,
    EK_DOUBLE = 13,
    EK_LDOUBLE = 14,
    EK_FXTPT = 15,
    EK_COMPLEX = 16,
    EK_PTR = 17,
    EK_REF = 18,
    EK_ARRAY = 19,
    EK_PTM = 20,
    EK_FUNC = 21,
    EK_ENUM = 22,
    EK_STRUCT = 23,
    EK_UNION = 24,
    EK_CLASS = 25,
    EK_VOID = 26
};

// Recoverable errors of the package.
enum TP_ERROR_CODE : int { TP_NO_ERROR = 0, TP_SIZE_NOT_SUPPORTED = 1, TP_UNKNOWN_ERROR = 2 };

// The text of a code: "no error", "object size not supported" or "unknown error".
const char* error_code_name(TP_ERROR_CODE code);

// Prints "TP>> internal error: %s\n" on standard error and ends the run with status 1.
[[noreturn]] void tp_die(const char* text);
// A test harness may take the text instead of ending the run; the hook must not return.
extern void (*tp_die_hook)(const char* text);

// Elements of a type's lists. All strings are interned; element vectors belong to their type.

struct fkPARAM { // parameter of a function type
    TYPE* type = nullptr;
    unsigned attributes = 0;
    const char* name = "";
};

struct fkENUMERATOR {
    const char* name = "";
    std::int64_t value = 0;
    PSN psn{};
    bool has_psn = false;
};

struct fkMDATA {         // data member
    unsigned number = 0; // from 1, in the order of the list
    const char* name = "";
    TYPE* type = nullptr;
    std::uint8_t attribute = 0;
    std::int64_t offset = 0; // bits from the start of the aggregate
    std::uint8_t field_attribute = 0;
    const char* fti = nullptr; // "fti:%x" of a nonzero field attribute, else null
    unsigned width = 0;        // bits of a bit-field, 0 when the member is none
    // The first of the three bools tells that the member is a bit-field.
    bool bit_field = false;
    bool flag2 = false;
    bool flag3 = false;
    PSN psn{};
    bool has_psn = false;
};

struct fkBCLASS { // base class
    TYPE* type = nullptr;
    std::int64_t offset = 0; // bits
    std::uint8_t attribute = 0;
    bool is_virtual = false;
};

struct fkACCESS { // access declaration
    std::uint8_t kind = 0;
};

struct fkFFRIEND { // friend function
    const char* name = "";
    TYPE* type = nullptr;
};

struct fkSDATA { // static data member
    const char* name = "";
    TYPE* type = nullptr;
    std::uint8_t attribute = 0;
};

struct fkMFUNC { // member function
    const char* name = "";
    TYPE* type = nullptr;
    std::uint8_t attribute = 0;
    std::int64_t position = 0;
    bool flags[4] = {};
};

// Kind-specific records.

struct FUNC_BODY {
    TYPE* return_type = nullptr;
    std::vector<fkPARAM> params;
    bool vararg = false;
    bool proto = true;        // declared with a parameter list
    std::uint8_t cc_kind = 0; // calling convention, carried through
    bool is_cpp = false;
};

struct ARRAY_BODY {
    TYPE* elem_type = nullptr;
    unsigned count = 0; // elements
    bool is_cpp = false;
    bool is_complete = true;
    bool is_vector = false;
};

struct ENUM_BODY {
    TYPE* underlying_type = nullptr;
    std::vector<fkENUMERATOR> enumerators;
    std::uint8_t language = 0;
};

struct CSU_BODY {
    bool is_complete = false;
    bool is_lowered = false;
    bool is_struct_vector = false;
    bool is_cpp = false;
    unsigned count_word = 0; // the long record's count word, carried through
    std::vector<fkBCLASS> bases;
    std::vector<fkACCESS> accesses;
    std::vector<fkFFRIEND> friend_functions;
    std::vector<TYPE*> friend_classes;
    std::vector<TYPE*> nested_types;
    std::vector<fkMDATA*> members; // owned by the type
    std::vector<fkSDATA> static_members;
    std::vector<fkMFUNC> member_functions;
    std::vector<fkPARAM> params;
};

// Types derived from one type: by canonical text, and in order of making.
struct BASED_TYPE_CONTAINER {
    std::map<std::string, TYPE*, std::less<>> by_name;
    std::vector<TYPE*> list;
};

class TYPE {
  public:
    enum KIND : std::uint32_t {
        VOID_KIND = 0,
        INT_KIND = 1,
        FLTPT_KIND = 2,
        FXTPT_KIND = 3,
        COMPLEX_KIND = 4,
        PTR_KIND = 5,
        REF_KIND = 6,
        QUAL_KIND = 7,
        TYPEDEF_KIND = 8,
        ARRAY_KIND = 9,
        PTM_KIND = 10,
        FUNC_KIND = 11,
        ENUM_KIND = 12,
        CLASS_KIND = 13,
        STRUCT_KIND = 14,
        UNION_KIND = 15
    };

    virtual ~TYPE();

    // The number of the type, 0 until it is registered. A written file refers to a type by it.
    unsigned uid() const { return uid_; }

    // The type's own kind, typedefs and qualifiers included; `true_kind` looks through them. Every test of
    // what a type is reads `true_kind`.
    KIND kind() const { return kind_; }
    KIND true_kind() const { return true_type_->kind_; }

    // This type without typedefs and qualifiers; a plain type is its own true type.
    TYPE* true_type() const { return true_type_; }

    std::uint64_t size() const { return size_; } // bits
    unsigned align() const { return align_; }    // bits
    // Addressing units: a unit has 16 bits on this target, so these divide by 16 and not by 8.
    std::uint64_t size_in_bytes() const { return size_ >> 4; }
    unsigned align_in_bytes() const { return align_ >> 4; }
    // Units that an object of the type occupies: the size rounded up to whole units.
    std::uint64_t storage_size() const { return (size_ + 15) >> 4; }

    const char* name() const; // tag or typedef name; "Bad kind:  TYPE::name" for other kinds
    bool has_name() const;    // a typedef or tagged type with a nonempty name
    const PSN* psn() const { return has_psn_ ? &psn_ : nullptr; }
    unsigned translation_unit() const { return unit_; }
    bool is_frozen() const { return frozen_; }
    bool is_merged() const { return merged_; }
    bool is_referenced() const { return referenced_; }
    void set_referenced() { referenced_ = true; }

    // Chain of equivalents: `equiv_end` is the representative, the type itself where there is no chain.
    void set_equiv(TYPE* representative);
    TYPE* equiv_end();

    // Tests of the true type.
    bool is_void() const { return true_kind() == VOID_KIND; }
    bool is_integer() const { return true_kind() == INT_KIND; } // not an enum
    bool is_integral() const { return true_kind() == INT_KIND || true_kind() == ENUM_KIND; }
    bool is_fltpt() const { return true_kind() == FLTPT_KIND; }
    bool is_ptr() const { return true_kind() == PTR_KIND; }
    bool is_ref() const { return true_kind() == REF_KIND; }
    bool is_array() const { return true_kind() == ARRAY_KIND; }
    bool is_func() const { return true_kind() == FUNC_KIND; }
    bool is_enum() const { return true_kind() == ENUM_KIND; }
    bool is_ptm() const { return true_kind() == PTM_KIND; }
    bool is_csu() const { return true_kind() >= CLASS_KIND; } // class, struct or union
    bool is_union() const { return true_kind() == UNION_KIND; }
    bool is_complex() const { return true_kind() == COMPLEX_KIND; }
    bool is_ikind(IKIND kind) const;
    bool is_fkind(FKIND kind) const;
    bool is_bool() const { return is_ikind(IK_BOOL); }
    bool is_schar() const; // char with an explicit sign
    bool is_uchar() const { return is_ikind(IK_UCHAR); }
    bool is_plain_char() const; // char without an explicit sign
    bool is_wchar_t() const { return is_ikind(IK_WCHAR); }
    bool is_short() const { return is_ikind(IK_SHORT); }
    bool is_ushort() const { return is_ikind(IK_USHORT); }
    bool is_int() const { return is_ikind(IK_INT); }
    bool is_uint() const { return is_ikind(IK_UINT); }
    bool is_long() const { return is_ikind(IK_LONG); }
    bool is_ulong() const { return is_ikind(IK_ULONG); }
    bool is_llong() const { return is_ikind(IK_LLONG); }
    bool is_ullong() const { return is_ikind(IK_ULLONG); }
    bool is_float() const { return is_fkind(FK_FLOAT); }
    bool is_double() const { return is_fkind(FK_DOUBLE); }
    bool is_ldouble() const { return is_fkind(FK_LDOUBLE); }
    bool is_cchar() const; // complex types, by part type
    bool is_cshort() const;
    bool is_cint() const;
    bool is_clong() const;
    bool is_cllong() const;
    bool is_cfloat() const;
    bool is_cdouble() const;
    bool is_arithmetic() const; // integer, enum, floating, fixed point, complex
    bool is_scalar() const;     // arithmetic, pointer, reference, pointer to member
    bool is_udt() const;        // class, struct, union or enum
    bool is_vector() const;
    bool is_vpred() const; // vector predicate: a vector of bool
    bool is_complete() const;
    bool is_lowered() const;
    bool is_explicit_sign() const;                               // integer made with an explicit sign
    bool is_marked_bool() const { return true_type_->is_bool_; } // integer record's truth value mark
    bool is_cpp_typedef() const { return is_cpp_; }
    unsigned own_qual() const { return static_cast<unsigned>(subkind_); } // bits of this qualified type alone

    // Signedness of the value: an enum answers for its underlying type. Integer types other than bool and
    // the unsigned kinds are signed, as are floating and signed fixed point types. Pointers are unsigned.
    bool is_signed() const;
    bool is_unsigned() const { return !is_signed(); }

    // Qualifiers of the type itself, typedefs skipped; with `through_arrays` those of an array's element
    // count too, since an array of a const element counts as const.
    unsigned qual_kind(bool through_arrays = false) const { return through_arrays ? deep_quals_ : quals_; }
    bool is_qualified() const { return qual_kind() != 0; }
    bool is_const() const { return (qual_kind(true) & QUAL_CONST) != 0; }
    bool is_volatile() const { return (qual_kind(true) & QUAL_VOLATILE) != 0; }

    IKIND ikind() const; // integer types only
    FKIND fkind() const; // floating types only
    int rank() const;    // integer conversion rank: bool 0, char 1, short 2, int 3, long 4, long long 5
    int ekind() const;   // flat number, see EKIND; "unhandled type kind: TYPE::ekind()" otherwise

    TYPE* stds() { return stds_; }      // strips typedefs only
    TYPE* stqs() { return true_type_; } // strips typedefs and qualifiers on the way to the unqualified type

    // Parts. Each looks through typedefs and qualifiers, and ends the run with "Bad kind:  TYPE::..." when
    // the type is not of the kind asked for.
    TYPE* elem_type();       // array, vector
    TYPE* part_type();       // complex
    TYPE* type_pointed_to(); // pointer, reference, pointer to member
    TYPE* ptm_class();       // pointer to member
    TYPE* underlying_type(); // enum, fixed point
    TYPE* type_qualified();  // of the type itself: what it qualifies; itself when unqualified
    TYPE* type_named();      // of the type itself: what the typedef names
    TYPE* return_type();     // function
    int binary_point();      // fixed point
    const FUNC_BODY& func() const;
    const ARRAY_BODY& array() const;
    const ENUM_BODY& enumeration() const;
    const CSU_BODY& csu() const;
    TYPE* getr(KIND kind); // the true type, fatal unless of that kind
    TYPE* getd(KIND kind); // the true type, or null when it is of another kind
    TYPE* get_csu();       // the true type of a class, struct or union, else null
    TYPE* getr_csu();      // the same, fatal

    // The member of that number (from 1), or null. Constant time.
    fkMDATA* member(unsigned number);

    // The normal form for optimisation: basic types for scalars, typedefs gone, qualifiers kept. Cached.
    TYPE* normalized();

    // A canonical text of the type, the key of interning. Bounded: parts appear by number.
    std::string map_name() const;

    // Readable C-like text, for reports.
    std::string printstr() const;
    void print(std::FILE* stream) const;
    void println(std::FILE* stream) const;
    void dump(std::FILE* stream) const;

    // Ends the run with "Modifying frozen type:  TYPE::check_nfrozen" if the type is complete.
    void check_nfrozen() const;
    void set_is_complete(bool complete);

    // Appends the types that this one is built from, those of a structure's members and lists included.
    void append_parts(std::vector<TYPE*>& parts) const;

    // Writer's marks: spread `referenced` over all that marked types name or contain.
    void mark_named_types(bool mark_all);
    void mark_refed_types();

  private:
    friend class TYPE_PKG;
    TYPE() = default;
    static void* operator new(std::size_t size);
    static void operator delete(void* block, std::size_t size);

    [[noreturn]] static void bad_kind(const char* reader);

    unsigned uid_ = 0;
    KIND kind_ = VOID_KIND;
    std::uint64_t size_ = 0;
    unsigned align_ = 16;
    TYPE_PKG* pkg_ = nullptr;
    bool frozen_ = false;
    bool merged_ = false;
    unsigned meaning_ = 0; // types of one number have one meaning, as long as the package knows the meanings
    // What a walk along names and qualifiers would find, kept so that a long chain of them is not walked.
    TYPE* true_type_ = nullptr;
    TYPE* stds_ = nullptr;
    unsigned quals_ = 0;
    unsigned deep_quals_ = 0; // with those of an array's element
    TYPE* normalized_ = nullptr;
    bool referenced_ = false;
    bool doomed_ = false; // delete_type_tree is about to free it
    PSN psn_{};
    bool has_psn_ = false;
    unsigned unit_ = 0;
    TYPE* equiv_ = nullptr;
    const char* name_ = "";
    BASED_TYPE_CONTAINER based_;
    TYPE* parent_ = nullptr; // whose `based_` holds this type; null at the root

    // Kind-specific record: at most one of these is in use.
    int subkind_ = 0;            // IKIND, FKIND, qualifier bits, binary point
    bool explicit_sign_ = false; // integer, fixed point
    bool is_bool_ = false;       // integer record's is_bool
    bool lowered_ = false;       // typedef
    bool is_cpp_ = false;        // typedef
    TYPE* target_ = nullptr;     // pointed to, qualified, named, part, underlying
    TYPE* class_ = nullptr;      // pointer to member
    FUNC_BODY* func_ = nullptr;
    ARRAY_BODY* array_ = nullptr;
    ENUM_BODY* enum_ = nullptr;
    CSU_BODY* csu_ = nullptr;
};

// Optional place and layout of a type under construction: the long form of the makers.
struct TYPE_LAYOUT {
    std::uint64_t size = 0; // bits
    unsigned align = 16;    // bits
    const PSN* psn = nullptr;
};

class TYPE_PKG {
  public:
    TYPE_PKG();
    ~TYPE_PKG();
    TYPE_PKG(const TYPE_PKG&) = delete;
    TYPE_PKG& operator=(const TYPE_PKG&) = delete;

    static int cpu_version;
    static int abi;
    static int tp_count; // users of the type tree

    // Makes the root and the basic types with the sizes and alignments of the 16-bit target.
    void init_type_pkg();

    TYPE* root_type() const { return root_; }

    // Basic types by index: the IKINDs, then 12 to 14 the floating kinds, 15 void.
    TYPE* basic(int index) const { return basic_[index]; }
    TYPE* int_type(IKIND kind) const { return basic_[kind]; }
    TYPE* flt_type(FKIND kind) const { return basic_[12 + static_cast<int>(kind)]; }
    TYPE* void_type() const { return basic_[15]; }

    // --- Makers. Each returns the one interned type; short forms take size and alignment from the package.
    TYPE* mk_void();
    TYPE* mk_int(IKIND kind, bool explicit_sign);
    TYPE* mk_int(IKIND kind, bool explicit_sign, bool is_bool, const TYPE_LAYOUT& layout);
    TYPE* mk_boolean_int(TYPE* integer); // an integer of that size marked as a truth value
    TYPE* mk_fltpt(FKIND kind);
    TYPE* mk_fltpt(FKIND kind, const TYPE_LAYOUT& layout);
    TYPE* mk_fxtpt(TYPE* underlying, int binary_point, bool explicit_sign, const TYPE_LAYOUT& layout);
    TYPE* mk_complex(TYPE* part);
    TYPE* mk_complex(TYPE* part, const TYPE_LAYOUT& layout);
    TYPE* mk_ptr(TYPE* target);
    TYPE* mk_ptr(TYPE* target, const TYPE_LAYOUT& layout);
    TYPE* mk_ref(TYPE* target);
    TYPE* mk_ref(TYPE* target, const TYPE_LAYOUT& layout);
    // Adds qualifier bits; bits that the type has already are not repeated.
    TYPE* mk_qual(TYPE* target, unsigned char bits);
    // The qualified type exactly as a file records it, with no folding of nested qualifiers.
    TYPE* mk_qual(TYPE* target, unsigned char bits, const TYPE_LAYOUT& layout);
    TYPE* remove_known_qual(TYPE* type, unsigned char bits);
    TYPE* mk_typedef(const char* name, TYPE* target, bool is_cpp, bool lowered, const TYPE_LAYOUT& layout);
    TYPE* mk_array(TYPE* element, unsigned count);
    TYPE* mk_array(TYPE* element, unsigned count, bool is_complete, bool is_cpp, const TYPE_LAYOUT& layout);
    TYPE* mk_vector(TYPE* element, unsigned count);
    TYPE* mk_vector(TYPE* element, unsigned count, bool is_cpp, const TYPE_LAYOUT& layout);
    TYPE* mk_vpred(unsigned count);
    TYPE* mk_ptm(TYPE* member, TYPE* csu);
    TYPE* mk_ptm(TYPE* member, TYPE* csu, const TYPE_LAYOUT& layout);
    TYPE* replace_array_elem(TYPE* array, TYPE* element);
    TYPE* mk_unsigned(TYPE* integer);
    TYPE* mk_signed(TYPE* integer);
    // A complete function type.
    TYPE* mk_func(const FUNC_BODY& body);

    // --- Types made in stages: begin, add, then freeze.
    TYPE* mk_enum(const char* name, TYPE* underlying, std::uint8_t language, const TYPE_LAYOUT& layout);
    TYPE* mk_struct(const char* name, const TYPE_LAYOUT& layout);
    TYPE* mk_union(const char* name, const TYPE_LAYOUT& layout);
    TYPE* mk_class(const char* name, const TYPE_LAYOUT& layout);
    TYPE* begin_func(TYPE* return_type, bool vararg, bool proto, std::uint8_t cc_kind, bool is_cpp);
    // The record of a type that is not frozen yet; null once it is, or for other kinds.
    FUNC_BODY* open_func(TYPE* type);
    ENUM_BODY* open_enum(TYPE* type);
    CSU_BODY* open_csu(TYPE* type);
    // Appends a copy of the member, numbered in order, and returns it.
    fkMDATA* add_member(TYPE* csu, const fkMDATA& member);
    // Sets size and alignment of a type that is not frozen yet (a structure whose members are now known), and
    // of its names and qualified forms, as far as they had the layout that it had.
    void set_layout(TYPE* type, const TYPE_LAYOUT& layout);
    // Completes the type: freezes, registers and interns it; `type` is replaced by the interned object.
    void type_frozen(TYPE*& type);

    // --- Comparison and merging.
    bool exact_types(const TYPE* a, const TYPE* b) const;
    // As C has it for two declarations of one name. A structure that is only declared is compatible with any
    // of its kind and tag.
    bool compatible_types(const TYPE* a, const TYPE* b, bool ignore_qualifiers) const;
    // True when the two types, and all that they are built from, have one meaning. A structure that is only
    // declared means the first complete one of its tag. All types are sorted by meaning at once, which takes
    // time in the number of types; the answers are kept until a type is registered or completed.
    bool equiv_mtypes(TYPE* a, TYPE* b);
    // Links the types, and what stands in the same places of them, when they have one meaning. The later type
    // gives way to the earlier, a declared structure to a complete one, and a referenced type to none.
    bool merge_types(TYPE* a, TYPE* b);
    // Merges the type, behind what it is built from, with an earlier one of its name and parent. 1 when it is
    // merged, void, or has been here before; 0 when it stands for itself or is not registered.
    int find_equivalent_type(TYPE* type);
    TYPE* find_type(TYPE* type); // the registered type of the same canonical text, or null
    TYPE* find_named_type(const char* name);
    TYPE* find_type_by_number(unsigned uid);
    bool mdata_equal(const fkMDATA& a, const fkMDATA& b) const;
    bool is_same_sign(const TYPE* a, const TYPE* b) const;
    int compare_type_names(const char* a, const char* b) const;
    std::string demangle_type_name(const char* name, bool* is_cpp = nullptr) const;

    // The conversions of C; both types must be registered.
    TYPE* c_integral_promotions(TYPE* type);
    TYPE* c_usual_arith_conv(TYPE* a, TYPE* b);

    // The normal form, computed anew; use TYPE::normalized.
    TYPE* normalized_type_uncached(TYPE* type);

    // A bit-field of `width` bits at bit `offset` may be accessed through `container` placed at the
    // returned bit offset; get_container_offset_for_field answers -1 when it may not.
    bool is_legal_container_for_field(TYPE* container, std::int64_t offset, unsigned width) const;
    std::int64_t get_container_offset_for_field(TYPE* container, std::int64_t offset, unsigned width) const;

    // All registered types in order of number: index 0 is unused, an entry can be null.
    const std::vector<TYPE*>& all_types() const { return by_uid_; }

    void set_translation_unit(unsigned unit) { unit_ = unit; }

    // The next type that is registered takes this number if it is free and not absurdly large, so that types
    // keep their numbers from file to file; 0 takes the wish back.
    void set_wanted_uid(unsigned uid) { wanted_uid_ = uid; }

    // --- Errors and statistics.
    void set_error(TP_ERROR_CODE code, const char* format, ...) __attribute__((format(printf, 3, 4)));
    TP_ERROR_CODE error_code() const { return error_code_; }
    const char* error_text() const { return error_text_.c_str(); }
    void print_stats(std::FILE* stream) const;

    // Frees all types that are derived from `type` or built from such a type, and itself with `self`;
    // `keep_basic` spares the basic types and the root.
    void delete_type_tree(TYPE* type, bool self, bool keep_basic);

    // Counted allocation of all type objects, zeroed; "Out of memory: tp_alloc()" is fatal.
    static void* tp_alloc(std::size_t size);
    static void tp_free(void* block, std::size_t size);
    static std::size_t memory_used();

  private:
    friend class TYPE;
    struct STATS {
        unsigned types, classes, enums, funcs, arrays, vectors, ptrs, quals, typedefs, basics, complexes;
    };

    TYPE* create_type(TYPE::KIND kind, const TYPE_LAYOUT& layout);
    TYPE* make_csu(TYPE::KIND kind, const char* name, const TYPE_LAYOUT& layout);
    TYPE* derive(TYPE::KIND kind, TYPE* target, int subkind, const TYPE_LAYOUT& layout);
    TYPE* derive_array(const ARRAY_BODY& body, const TYPE_LAYOUT& layout);
    TYPE* parent_of(const TYPE* type) const;
    std::string body_text(const TYPE* type, std::vector<TYPE*>& parts) const;
    std::vector<TYPE*> definitions() const;
    void number_meanings();
    void link_types(TYPE* a, TYPE* b);
    void merge_by_name(TYPE* type);
    TYPE* register_type(TYPE* type, TYPE* parent);
    void assign_uid(TYPE* type);

    TYPE* root_ = nullptr;
    TYPE* basic_[16] = {};
    std::map<std::string, TYPE*> by_name_;
    std::vector<TYPE*> by_uid_;
    std::vector<TYPE*> all_;              // owned: registered, unfinished and interned-away types
    std::vector<TYPE*> first_of_meaning_; // the type that stands for each meaning
    bool meanings_known_ = false;         // no type has been registered or completed since they were numbered
    unsigned next_uid_ = 1;
    unsigned wanted_uid_ = 0;
    unsigned unit_ = 0;
    unsigned next_fake_ = 0;
    TP_ERROR_CODE error_code_ = TP_NO_ERROR;
    std::string error_text_;
    STATS stats_{};
};

#endif
