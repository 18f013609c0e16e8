#include "tools/icode-text/layout.h"

#include <cstring>

#include "OPT5/if_file.h"
#include "OPT5/opcodes.h"

namespace icode_text {

namespace {

constexpr FORM U = FORM::UINT, S = FORM::SINT, B = FORM::BOOL, C = FORM::BYTE, Z = FORM::TEXT,
               P = FORM::POSITION, T = FORM::TYPE;

const FIELD AT{nullptr, P};
// Left out where they are the usual ones of such a type (-1).
const FIELD SIZE{"size", U, -1};
const FIELD ALIGN{"align", U, -1};

// Payloads of plain records. Sizes and alignments of symbols are left out where they are their type's (-1).
const std::vector<LAYOUT> records = {
    {REC_BEGIN_FUNC, "func", {AT, {nullptr, FORM::GLOBAL}}},
    {REC_END_FUNC, "endfunc", {AT}},
    {REC_BEGIN_BLOCK, "block", {AT}},
    {REC_END_BLOCK, "endblock", {AT}},
    {REC_END_ARGS, "endargs", {AT}},
    {REC_END_LOCALS, "endlocals", {AT}},
    {REC_SYMBOL,
     "symbol",
     {{nullptr, Z},
      {"size", U, -1},
      {"value", U, 0},
      {"class", FORM::CLASS, 1},
      {"cqual", FORM::WORD, 0},
      {nullptr, T},
      {"cpp", T, 0},
      {"align", U, -1},
      {"pragmas", FORM::SBYTE, -1},
      {"location", U, -1},
      {"options", U, 0},
      AT,
      {"retention", FORM::RETENTION, 0, -71}}},
    {REC_INLINE_ASM, "asm", {{nullptr, Z}, AT}},
    {REC_LOOP,
     "loop",
     {{nullptr, U}, {nullptr, U}, {nullptr, U}, {nullptr, U}, {nullptr, U}, {nullptr, FORM::WORD}}},
    {REC_LABEL, "label", {{nullptr, U}}},
    {REC_MBANK, "bank", {{nullptr, U}, {nullptr, U}, {nullptr, U}, {nullptr, U}, {nullptr, U}}},
    {REC_EXPR, "expr", {AT}},
    {REC_COMMENT, "comment", {{nullptr, Z}}},
    {REC_DD_EDGE, "ddedge", {{nullptr, U}, {nullptr, U}, {nullptr, U}}},
    {REC_DD_VECTOR, "ddvector", {{nullptr, U}, {nullptr, C}, {nullptr, FORM::PAIRS}}},
    {REC_CATCH, "catch", {{nullptr, FORM::CATCHES}}},
    {REC_FUNC_INFO, "info", {{nullptr, FORM::SBYTE}}},
    {REC_EHT_ENTRY, "ehentry", {{nullptr, U}, {nullptr, U}, {nullptr, U}, {nullptr, U}}},
    {REC_EHT, "ehtable", {{nullptr, U}}},
    {REC_PRAGMA, "pragma", {{nullptr, FORM::PRAGMA}, {nullptr, FORM::WORDS}}},
    {REC_INIT, "init", {{nullptr, FORM::GLOBAL}}},
    {REC_LDSPEC, "ldspec", {{nullptr, U}, {nullptr, FORM::LDSPEC}}},
    {REC_OPTION_SET, "options", {{nullptr, U}, {nullptr, FORM::WORDS}}},
    {REC_IR_BEGIN_FUNC, "irfunc", {{nullptr, U}, {nullptr, S}, {nullptr, FORM::SBYTE}, {nullptr, U}, AT}},
    {REC_INLOOP, "inloop", {{nullptr, U}, {nullptr, S}, {nullptr, S}, {nullptr, C}}},
    {REC_IR_END_FUNC, "endirfunc", {AT}},
    {REC_SOURCE, "file", {{nullptr, Z}}},
};

const FIELD EXPLICIT{"explicit", B, 0};

std::vector<FIELD> integer() { return {EXPLICIT, SIZE, ALIGN, {"is_bool", B, 0}, {"standard", B, 0}}; }

// Type records, behind the type's number and the code.
const std::vector<LAYOUT> types = {
    {0, "bool", integer()},
    {1, "char", integer()},
    {2, "uchar", integer()},
    {3, "wchar", integer()},
    {4, "short", integer()},
    {5, "ushort", integer()},
    {6, "int", integer()},
    {7, "uint", integer()},
    {8, "long", integer()},
    {9, "ulong", integer()},
    {50, "llong", integer()},
    {51, "ullong", integer()},
    {10, "float", {SIZE, ALIGN}},
    {11, "double", {SIZE, ALIGN}},
    {12, "ldouble", {SIZE, ALIGN}},
    {13, "fixed", {{nullptr, FORM::SBYTE}, EXPLICIT, {nullptr, T}, SIZE, ALIGN}},
    {14, "typedef", {{nullptr, Z}, {nullptr, T}, SIZE, ALIGN, {"cpp", B, 0}, {"lowered", B, 0}, AT}},
    {15, "pointer", {{nullptr, T}, SIZE, ALIGN}},
    {16, "reference", {{nullptr, T}, SIZE, ALIGN}},
    {17, "qualified", {{nullptr, T}, {nullptr, FORM::QUALIFIERS}, SIZE, ALIGN}},
    {18,
     "array",
     {{nullptr, T},
      {nullptr, U},
      SIZE,
      ALIGN,
      {"cpp", B, 0},
      {"complete", B, 1},
      {"vector", B, 0, -76},
      {"old", B, 0, -75, -74}}},
    {19, "memberptr", {{nullptr, T}, {nullptr, T}, SIZE, ALIGN}},
    {20, "function", {{nullptr, T}, {"vararg", B, 0}, {"proto", B, 1}, {"cc", C, 0}, {"cpp", B, 0}}},
    {21, "param", {{nullptr, T}, {"flag", B, 0}, {"attributes", U, 0}, {nullptr, Z}}},
    {22, "enum", {{nullptr, Z}, SIZE, ALIGN, {nullptr, T}, {"language", C, 0, -81}, AT}},
    {23, "enumerator", {{nullptr, Z}, {nullptr, FORM::ENUM_VALUE}, AT}},
    {24,
     "struct",
     {{nullptr, FORM::CSU},
      {nullptr, Z},
      {"complete", B, 1},
      {"lowered", B, 0},
      SIZE,
      ALIGN,
      {"members", B, 1},
      {"vector", B, 0, -84},
      {"cpp", B, 0, -81},
      AT}},
    {25,
     "class",
     {{nullptr, FORM::CSU},
      {nullptr, Z},
      {"complete", B, 1},
      {"lowered", B, 0},
      SIZE,
      ALIGN,
      {"count", U, 0},
      {nullptr, FORM::FLAGS9},
      {"vector", B, 0, -84},
      {"cpp", B, 0, -81},
      AT}},
    {28,
     "member",
     {{nullptr, U},
      {nullptr, Z},
      {nullptr, T},
      {"attribute", C, 0},
      {"offset", S, 0},
      {"field_attribute", C, 0, -74},
      {"old_flag", B, 0, -32768, -86},
      {"width", U, 0},
      {"bit_field", B, 0, -85},
      {"flag2", B, 0},
      {"flag3", B, 0, -85},
      AT}},
    {29, "base", {{nullptr, T}, {"offset", S, 0}, {"attribute", C, 0}, {"virtual", B, 0}}},
    {30, "access", {{"zero", U, 0}, {nullptr, C}}},
    {31, "friend", {{nullptr, Z}, {nullptr, T}}},
    {32, "friendclass", {{nullptr, T}}},
    {33, "nested", {{nullptr, T}}},
    {34, "static", {{nullptr, Z}, {nullptr, T}, {"attribute", C, 0}}},
    {35,
     "method",
     {{nullptr, Z}, {nullptr, T}, {"attribute", C, 0}, {"position", S, 0}, {nullptr, FORM::FLAGS4}}},
    {36, "complex", {SIZE, ALIGN, {nullptr, T}}},
    {49, "void", {}},
    {254, "list", {{nullptr, FORM::LIST}}},
    {255, "endlist", {{nullptr, FORM::LIST}}},
};

struct NUMBER_NAME {
    int number;
    const char* name;
};

constexpr NUMBER_NAME classes[] = {{1, "auto"},   {2, "extdef"}, {3, "static"},   {4, "register"},
                                   {5, "extern"}, {9, "parm"},   {17, "regparm"}, {27, "vararg"}};
constexpr NUMBER_NAME policies[] = {{0, "default"}, {1, "always"}, {2, "external"}, {3, "never"}};
constexpr NUMBER_NAME lists[] = {{0, "params"},  {1, "enumerators"},    {2, "bases"},  {3, "accesses"},
                                 {4, "friends"}, {5, "friend_classes"}, {6, "nested"}, {7, "members"},
                                 {8, "statics"}, {9, "methods"}};

template <std::size_t N> const char* name_in(const NUMBER_NAME (&table)[N], int number) {
    for (const NUMBER_NAME& row : table)
        if (row.number == number) return row.name;
    return nullptr;
}

template <std::size_t N> int number_in(const NUMBER_NAME (&table)[N], std::string_view name) {
    for (const NUMBER_NAME& row : table)
        if (row.name == name) return row.number;
    return -1;
}

const LAYOUT* layout_in(const std::vector<LAYOUT>& table, int id) {
    for (const LAYOUT& layout : table)
        if (layout.id == id) return &layout;
    return nullptr;
}

const LAYOUT* layout_in(const std::vector<LAYOUT>& table, std::string_view name) {
    for (const LAYOUT& layout : table)
        if (layout.name == name) return &layout;
    return nullptr;
}

} // namespace

const LAYOUT* record_layout(int id) { return layout_in(records, id); }

const LAYOUT* record_layout(std::string_view name) { return layout_in(records, name); }

const LAYOUT* type_layout(int code) { return layout_in(types, code); }

const LAYOUT* type_layout(std::string_view name) { return layout_in(types, name); }

const char* class_name(int sclass) { return name_in(classes, sclass); }
const char* retention_name(int policy) { return name_in(policies, policy); }
const char* list_name(int list) { return name_in(lists, list); }
int class_of_name(std::string_view name) { return number_in(classes, name); }
int retention_of_name(std::string_view name) { return number_in(policies, name); }
int list_of_name(std::string_view name) { return number_in(lists, name); }

// --- Facts about types.

void type_facts::note(std::int64_t number, int code, const std::vector<FIELD>& fields,
                      const std::vector<VALUE>& values) {
    if ((code >= 21 && code <= 23 && code != 22) || (code >= 28 && code <= 35) || code >= 254)
        return; // elements
    fact f;
    f.code = code;
    for (std::size_t i = 0; i < fields.size() && i < values.size(); i++) {
        if (fields[i].form == FORM::TYPE) f.target = values[i].number;
        if (fields[i].key == nullptr) continue;
        if (std::strcmp(fields[i].key, "size") == 0) f.size = values[i].number;
        if (std::strcmp(fields[i].key, "align") == 0) f.align = values[i].number;
    }
    facts_[number] = f;
}

bool type_facts::is_signed(std::int64_t number) const {
    // A chain is as long as the file makes it, but only loops are longer than all types together.
    for (std::size_t hops = 0; hops <= facts_.size(); hops++) {
        const auto found = facts_.find(number);
        if (found == facts_.end()) return false;
        switch (found->second.code) {
            case 1:
            case 4:
            case 6:
            case 8:
            case 50:
            case 10:
            case 11:
            case 12: return true;
            case 13:
            case 14:
            case 17:
            case 22:
            case 36: number = found->second.target; break;
            default: return false;
        }
    }
    return false;
}

bool type_facts::has_signed_enumerators(std::int64_t number) const {
    const auto found = facts_.find(number);
    return found != facts_.end() && is_signed(found->second.target);
}

std::int64_t type_facts::size(std::int64_t number) const {
    const auto found = facts_.find(number);
    return found == facts_.end() || found->second.code == 20 ? 0 : found->second.size;
}

std::int64_t type_facts::align(std::int64_t number) const {
    const auto found = facts_.find(number);
    return found == facts_.end() || found->second.code == 20
               ? 16
               : std::max<std::int64_t>(16, found->second.align);
}

std::int64_t type_facts::usual_size(int code, const std::vector<VALUE>& values) const {
    switch (code) {
        case 8:
        case 9:
        case 10:
        case 11:
        case 12: return 32;
        case 50:
        case 51: return 64;
        case 14: return size(values[1].number);
        case 17: return size(values[0].number);
        case 18: return size(values[0].number) * values[1].number;
        case 22: return size(values[3].number);
        case 24:
        case 25: return 0;
        case 36: return 2 * size(values[2].number);
        default: return 16;
    }
}

std::int64_t type_facts::usual_align(int code, const std::vector<VALUE>& values) const {
    switch (code) {
        case 8:
        case 9:
        case 10:
        case 11:
        case 12:
        case 50:
        case 51: return 32;
        case 14: return align(values[1].number);
        case 17:
        case 18: return align(values[0].number);
        case 22: return align(values[3].number);
        case 36: return align(values[2].number);
        default: return 16;
    }
}

// --- Bytes.

unsigned byte_reader::byte() {
    if (at_ >= bytes_.size()) {
        ok_ = false;
        return 0;
    }
    return static_cast<unsigned char>(bytes_[at_++]);
}

std::uint64_t byte_reader::uint() {
    std::uint64_t value = 0;
    for (unsigned shift = 0; shift < 35; shift += 7) {
        const unsigned b = byte();
        value |= static_cast<std::uint64_t>(b & 0x7f) << shift;
        if (b < 0x80) {
            if (value > UINT32_MAX) ok_ = false;
            return value;
        }
    }
    ok_ = false;
    return 0;
}

std::int64_t byte_reader::sint() {
    std::uint64_t value = 0;
    for (unsigned shift = 0; shift < 35; shift += 7) {
        const unsigned b = byte();
        value |= static_cast<std::uint64_t>(b & 0x7f) << shift;
        if (b < 0x80) {
            if (shift + 7 < 32 && (b & 0x40) != 0) value |= ~std::uint64_t{0} << (shift + 7);
            return static_cast<std::int32_t>(value);
        }
    }
    ok_ = false;
    return 0;
}

std::string byte_reader::text() {
    const std::size_t end = bytes_.find('\0', at_);
    if (end == std::string_view::npos) {
        ok_ = false;
        at_ = bytes_.size();
        return {};
    }
    std::string result(bytes_.substr(at_, end - at_));
    at_ = end + 1;
    return result;
}

std::string byte_reader::raw(std::size_t n) {
    if (n > bytes_.size() - at_) {
        ok_ = false;
        return {};
    }
    std::string result(bytes_.substr(at_, n));
    at_ += n;
    return result;
}

void put_uint(std::string& out, std::uint64_t value) {
    auto rest = static_cast<std::uint32_t>(value);
    while (rest >= 0x80) {
        out.push_back(static_cast<char>(rest | 0x80));
        rest >>= 7;
    }
    out.push_back(static_cast<char>(rest));
}

void put_sint(std::string& out, std::int64_t value) {
    auto rest = static_cast<std::int32_t>(value);
    for (;;) {
        const int group = rest & 0x7f;
        rest >>= 7;
        if ((rest == 0 && (group & 0x40) == 0) || (rest == -1 && (group & 0x40) != 0)) {
            out.push_back(static_cast<char>(group));
            return;
        }
        out.push_back(static_cast<char>(group | 0x80));
    }
}

void put_record(std::string& out, int id, std::string_view payload) {
    out.push_back(static_cast<char>(id));
    put_uint(out, payload.size());
    out += payload;
}

// --- Fields.

VALUE decode(byte_reader& in, const FIELD& field, const type_facts& known, std::int64_t owner) {
    VALUE v;
    switch (field.form) {
        case FORM::UINT:
        case FORM::TYPE:
        case FORM::GLOBAL:
        case FORM::PRAGMA:
        case FORM::QUALIFIERS: v.number = static_cast<std::int64_t>(in.uint()); break;
        case FORM::SINT: v.number = in.sint(); break;
        case FORM::BOOL:
        case FORM::BYTE:
        case FORM::RETENTION:
        case FORM::CSU: v.number = in.byte(); break;
        case FORM::SBYTE:
        case FORM::CLASS:
        case FORM::LIST: v.number = static_cast<signed char>(in.byte()); break;
        case FORM::WORD:
            v.number = in.byte();
            v.number |= static_cast<std::int64_t>(in.byte()) << 8;
            break;
        case FORM::TEXT: v.words.push_back(in.text()); break;
        case FORM::POSITION:
            v.number = static_cast<std::int64_t>(in.uint());
            if (v.number != 0) {
                v.line = static_cast<std::int64_t>(in.uint());
                v.column = static_cast<std::int64_t>(in.uint());
            }
            break;
        case FORM::WORDS: {
            const std::uint64_t n = in.uint();
            for (std::uint64_t i = 0; i < n && in.ok(); i++) v.words.push_back(in.text());
            break;
        }
        case FORM::PAIRS: {
            const unsigned n = in.byte();
            for (unsigned i = 0; i < n && in.ok(); i++) {
                v.numbers.push_back(in.byte());
                v.numbers.push_back(static_cast<signed char>(in.byte()));
            }
            break;
        }
        case FORM::CATCHES:
            while (!in.at_end() && in.ok()) {
                v.words.push_back(in.text());
                v.numbers.push_back(static_cast<std::int64_t>(in.uint()));
                v.numbers.push_back(in.byte());
            }
            break;
        case FORM::FLAGS9:
        case FORM::FLAGS4:
            for (int i = 0; i < (field.form == FORM::FLAGS9 ? 9 : 4); i++) v.numbers.push_back(in.byte());
            break;
        case FORM::ENUM_VALUE:
            v.number = known.has_signed_enumerators(owner) ? in.sint() : static_cast<std::int64_t>(in.uint());
            break;
        case FORM::LDSPEC: {
            // kind, then its numbers: induction loop stride type level index; random a b type level index;
            // region n.
            const unsigned kind = in.byte();
            v.number = kind;
            if (kind == 2) {
                v.numbers.push_back(static_cast<std::int64_t>(in.uint()));
            } else if (kind < 2) {
                v.numbers.push_back(static_cast<std::int64_t>(in.uint()));
                v.numbers.push_back(kind == 0 ? in.sint() : static_cast<std::int64_t>(in.uint()));
                v.numbers.push_back(static_cast<std::int64_t>(in.uint()));
                v.numbers.push_back(in.sint());
                v.numbers.push_back(static_cast<std::int64_t>(in.uint()));
            }
            break;
        }
    }
    return v;
}

void encode(std::string& out, const FIELD& field, const VALUE& v, const type_facts& known,
            std::int64_t owner) {
    const auto put_text = [&out](const std::string& text) {
        out += text;
        out.push_back('\0');
    };
    switch (field.form) {
        case FORM::UINT:
        case FORM::TYPE:
        case FORM::GLOBAL:
        case FORM::PRAGMA:
        case FORM::QUALIFIERS: put_uint(out, static_cast<std::uint64_t>(v.number)); break;
        case FORM::SINT: put_sint(out, v.number); break;
        case FORM::BOOL:
        case FORM::BYTE:
        case FORM::RETENTION:
        case FORM::CSU:
        case FORM::SBYTE:
        case FORM::CLASS:
        case FORM::LIST: out.push_back(static_cast<char>(v.number)); break;
        case FORM::WORD:
            out.push_back(static_cast<char>(v.number));
            out.push_back(static_cast<char>(v.number >> 8));
            break;
        case FORM::TEXT: put_text(v.words.empty() ? std::string() : v.words[0]); break;
        case FORM::POSITION:
            put_uint(out, static_cast<std::uint64_t>(v.number));
            if (v.number != 0) {
                put_uint(out, static_cast<std::uint64_t>(v.line));
                put_uint(out, static_cast<std::uint64_t>(v.column));
            }
            break;
        case FORM::WORDS:
            put_uint(out, v.words.size());
            for (const std::string& word : v.words) put_text(word);
            break;
        case FORM::PAIRS:
            out.push_back(static_cast<char>(v.numbers.size() / 2));
            for (std::int64_t n : v.numbers) out.push_back(static_cast<char>(n));
            break;
        case FORM::CATCHES:
            for (std::size_t i = 0; i < v.words.size(); i++) {
                put_text(v.words[i]);
                put_uint(out, static_cast<std::uint64_t>(v.numbers[2 * i]));
                out.push_back(static_cast<char>(v.numbers[2 * i + 1]));
            }
            break;
        case FORM::FLAGS9:
        case FORM::FLAGS4:
            for (std::int64_t n : v.numbers) out.push_back(static_cast<char>(n));
            break;
        case FORM::ENUM_VALUE:
            if (known.has_signed_enumerators(owner))
                put_sint(out, v.number);
            else
                put_uint(out, static_cast<std::uint64_t>(v.number));
            break;
        case FORM::LDSPEC:
            out.push_back(static_cast<char>(v.number));
            for (std::size_t i = 0; i < v.numbers.size(); i++)
                if (v.number != 2 && (i == 3 || (i == 1 && v.number == 0)))
                    put_sint(out, v.numbers[i]);
                else
                    put_uint(out, static_cast<std::uint64_t>(v.numbers[i]));
            break;
    }
}

std::string quote(std::string_view text) {
    std::string out = "\"";
    for (char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        switch (c) {
            case '"': out += "\\\""; break;
            case '\\': out += "\\\\"; break;
            case '\n': out += "\\n"; break;
            case '\t': out += "\\t"; break;
            default:
                if (byte >= 0x20 && byte < 0x7f) {
                    out.push_back(c);
                } else {
                    constexpr char digits[] = "0123456789abcdef";
                    out += "\\x";
                    out.push_back(digits[byte >> 4]);
                    out.push_back(digits[byte & 15]);
                }
                break;
        }
    }
    return out + "\"";
}

PAYLOAD payload_of(int code) {
    switch (code) {
        case op::LABEL: return PAYLOAD::LABEL;
        case op::NAME: return PAYLOAD::NAME;
        case op::SCON: return PAYLOAD::BYTES;
        case op::ICON: return PAYLOAD::INTEGER;
        case op::FCON:
        case op::LCON:
        case op::ICALL:
        case op::UICALL:
        case op::MCALL:
        case op::UMCALL: return PAYLOAD::TEXT;
        case op::FIELD: return PAYLOAD::MEMBER;
        case op::SWITCH:
        case op::EPVAL: return PAYLOAD::COUNT;
        case op::CALL: return PAYLOAD::CALL;
        case op::UCALL: return PAYLOAD::UCALL;
        case op::SKIP: return PAYLOAD::SKIP;
        case op::DDNODE: return PAYLOAD::DDNODE;
        case op::VREG: return PAYLOAD::VREG;
        default: return PAYLOAD::NOTHING;
    }
}

int subtrees_of(int code) {
    if_node_table_init();
    if (code < 0 || code >= FIRST_INTERNAL_OPCODE || if_node_info[code].name == nullptr) return -1;
    return code == op::SKIP ? 0 : if_node_info[code].operands;
}

} // namespace icode_text
