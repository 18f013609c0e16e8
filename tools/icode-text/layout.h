// The text form's view of the file format: one table of record layouts, from which files are both taken apart
// and put together, so that the two directions cannot drift apart.

#ifndef TOOLS_ICODE_TEXT_LAYOUT_H
#define TOOLS_ICODE_TEXT_LAYOUT_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace icode_text {

// How a field is encoded, and how its value is written as text.
enum class FORM {
    UINT,       // uint
    SINT,       // sint
    BOOL,       // one byte, 0 or 1
    BYTE,       // one byte, unsigned
    SBYTE,      // one byte, signed
    WORD,       // two bytes, unsigned
    TEXT,       // zero-terminated
    POSITION,   // [file:line:column], nothing when null
    TYPE,       // type number: t7
    GLOBAL,     // index of a global: @name
    CLASS,      // storage class, by name
    RETENTION,  // by name
    PRAGMA,     // kind, by name
    CSU,        // structure code, by name
    LIST,       // list id, by name
    QUALIFIERS, // bits, by name
    WORDS,      // uint count, then texts
    PAIRS,      // byte count, then pairs of an unsigned and a signed byte
    CATCHES,    // to the end of the record: text, uint, bool
    FLAGS9,     // nine bools
    FLAGS4,     // four bools
    ENUM_VALUE, // sint or uint, by the signedness of the owner's underlying type
    LDSPEC,     // load speculation: what follows depends on the kind
};

struct FIELD {
    const char* key; // of an optional field; null for one that stands at its place
    FORM form;
    std::int64_t absent = 0; // value of an optional field that is left out
    int since = -32768;      // first and last version that has the field
    int until = 32767;
};

// The value of one field, whatever its form.
struct VALUE {
    std::int64_t number = 0;
    std::int64_t line = 0, column = 0; // POSITION
    std::vector<std::string> words;
    std::vector<std::int64_t> numbers;

    bool operator==(const VALUE&) const = default;
};

struct LAYOUT {
    int id;           // record id, or type code
    const char* name; // keyword of the text form
    std::vector<FIELD> fields;
};

// Layouts of plain records by id, and of type records by code; null for those without one.
const LAYOUT* record_layout(int id);
const LAYOUT* record_layout(std::string_view name);
const LAYOUT* type_layout(int code);
const LAYOUT* type_layout(std::string_view name);

// Names of small enumerations; null or -1 where there is none.
const char* class_name(int sclass);
const char* retention_name(int policy);
const char* list_name(int list);
int class_of_name(std::string_view name);
int retention_of_name(std::string_view name);
int list_of_name(std::string_view name);

// What the text form knows of the types of a file.
class type_facts {
  public:
    // Notes a type record: its code and the values of its fields.
    void note(std::int64_t number, int code, const std::vector<FIELD>& fields,
              const std::vector<VALUE>& values);
    bool is_signed(std::int64_t number) const; // of the value; false for an unknown type
    std::int64_t size(std::int64_t number) const;
    std::int64_t align(std::int64_t number) const;
    // Size and alignment in bits that a type record of that code usually has, given its fields.
    std::int64_t usual_size(int code, const std::vector<VALUE>& values) const;
    std::int64_t usual_align(int code, const std::vector<VALUE>& values) const;
    // The underlying type of an enumeration that enumerators belong to.
    bool has_signed_enumerators(std::int64_t number) const;

  private:
    struct fact {
        int code = -1;
        std::int64_t target = 0, size = 0, align = 16;
    };
    std::map<std::int64_t, fact> facts_;
};

// Bytes of a payload being read: running off the end is noted, not fatal.
class byte_reader {
  public:
    byte_reader(std::string_view bytes) : bytes_(bytes) {}
    bool ok() const { return ok_; }
    bool at_end() const { return at_ >= bytes_.size(); }
    std::size_t position() const { return at_; }
    unsigned byte();
    std::uint64_t uint();
    std::int64_t sint();
    std::string text();
    std::string raw(std::size_t n);

  private:
    std::string_view bytes_;
    std::size_t at_ = 0;
    bool ok_ = true;
};

// Appends encodings.
void put_uint(std::string& out, std::uint64_t value);
void put_sint(std::string& out, std::int64_t value);
void put_record(std::string& out, int id, std::string_view payload);

// Reads or writes one field. `owner` is the type that an element record belongs to.
VALUE decode(byte_reader& in, const FIELD& field, const type_facts& types, std::int64_t owner);
void encode(std::string& out, const FIELD& field, const VALUE& value, const type_facts& types,
            std::int64_t owner);

inline bool in_version(const FIELD& field, int version) {
    return version >= field.since && version <= field.until;
}

// A text with C escapes, quoted.
std::string quote(std::string_view text);

// Payload of an expression node behind its operator and type.
enum class PAYLOAD {
    NOTHING,
    LABEL,
    NAME,
    BYTES,
    INTEGER,
    TEXT,
    MEMBER,
    COUNT,
    CALL,
    UCALL,
    SKIP,
    DDNODE,
    VREG
};
PAYLOAD payload_of(int op);
// Subtrees of a node in a file; -1 for an operator that no file holds.
int subtrees_of(int op);

} // namespace icode_text

#endif
