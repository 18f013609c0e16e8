// icode-as: an intermediate file from its text form.

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include <unistd.h>

#include "OPT5/if_file.h"
#include "OPT5/opcodes.h"
#include "OPT5/pragma.h"
#include "tools/icode-text/layout.h"

using namespace icode_text;

namespace {

enum class TOKEN { END, WORD, NUMBER, STRING, SYMBOL, PUNCTUATION };

struct token {
    TOKEN what = TOKEN::END;
    std::string text;
    std::int64_t number = 0;
    int line = 1, column = 1;
};

struct source_error {
    int line, column;
    std::string what;
};

class lexer {
  public:
    explicit lexer(std::string text) : text_(std::move(text)) { advance(); }

    const token& peek() const { return current_; }
    token take() {
        token t = std::move(current_);
        advance();
        return t;
    }
    bool is(const char* punctuation) const {
        return current_.what == TOKEN::PUNCTUATION && current_.text == punctuation;
    }
    // The character behind the present token, for telling KEY=VALUE from a keyword.
    bool followed_by_equals() const { return at_ < text_.size() && text_[at_] == '='; }
    [[noreturn]] void fail(const std::string& what) const {
        throw source_error{current_.line, current_.column, what};
    }

  private:
    std::string text_;
    std::size_t at_ = 0;
    int line_ = 1;
    std::size_t line_start_ = 0;
    token current_;

    static bool is_word(char c) {
        return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '$' || c == '.';
    }

    void advance() {
        current_ = token{};
        for (; at_ < text_.size(); at_++) {
            if (text_[at_] == '\n') {
                line_++;
                line_start_ = at_ + 1;
            } else if (text_[at_] == ';') {
                while (at_ + 1 < text_.size() && text_[at_ + 1] != '\n') at_++;
            } else if (std::isspace(static_cast<unsigned char>(text_[at_])) == 0) {
                break;
            }
        }
        current_.line = line_;
        current_.column = static_cast<int>(at_ - line_start_) + 1;
        if (at_ >= text_.size()) return;
        const char c = text_[at_];
        const std::size_t start = at_;
        if (c == '"') {
            string();
        } else if (std::isdigit(static_cast<unsigned char>(c)) != 0 ||
                   (c == '-' && at_ + 1 < text_.size() &&
                    std::isdigit(static_cast<unsigned char>(text_[at_ + 1])) != 0)) {
            at_++;
            while (at_ < text_.size() && is_word(text_[at_])) at_++;
            current_.what = TOKEN::NUMBER;
            current_.text = text_.substr(start, at_ - start);
            char* end = nullptr;
            errno = 0;
            current_.number = std::strtoll(current_.text.c_str(), &end, 0);
            if (*end != '\0' || errno != 0) fail("bad number \"" + current_.text + "\"");
        } else if (is_word(c)) {
            while (at_ < text_.size() && is_word(text_[at_])) at_++;
            current_.what = TOKEN::WORD;
            current_.text = text_.substr(start, at_ - start);
        } else if (c == '@' || c == '%' || c == '#') {
            at_++;
            while (at_ < text_.size() && (is_word(text_[at_]) || text_[at_] == '#' || text_[at_] == ':'))
                at_++;
            current_.what = TOKEN::SYMBOL;
            current_.text = text_.substr(start, at_ - start);
        } else if (std::strchr("(){}[]:=|", c) != nullptr) {
            at_++;
            current_.what = TOKEN::PUNCTUATION;
            current_.text = std::string(1, c);
        } else {
            fail(std::string("unexpected character '") + c + "'");
        }
    }

    void string() {
        current_.what = TOKEN::STRING;
        for (at_++;; at_++) {
            if (at_ >= text_.size() || text_[at_] == '\n') fail("string does not end");
            char c = text_[at_];
            if (c == '"') break;
            if (c == '\\') {
                c = ++at_ < text_.size() ? text_[at_] : '\0';
                switch (c) {
                    case 'n': c = '\n'; break;
                    case 't': c = '\t'; break;
                    case '"':
                    case '\\': break;
                    case '0': c = '\0'; break;
                    case 'x': {
                        if (at_ + 2 >= text_.size() ||
                            std::isxdigit(static_cast<unsigned char>(text_[at_ + 1])) == 0 ||
                            std::isxdigit(static_cast<unsigned char>(text_[at_ + 2])) == 0)
                            fail("\\x needs two hexadecimal digits");
                        c = static_cast<char>(std::stoi(text_.substr(at_ + 1, 2), nullptr, 16));
                        at_ += 2;
                        break;
                    }
                    default: fail("unknown escape in string");
                }
            }
            current_.text.push_back(c);
        }
        at_++;
    }
};

class assembler {
  public:
    explicit assembler(std::string text) : in_(std::move(text)) {}

    std::string run() {
        header();
        while (in_.peek().what != TOKEN::END) statement();
        return finish();
    }

  private:
    // A global as given; what is told from elsewhere is filled in at the end.
    struct global_symbol {
        std::vector<VALUE> values;
        std::string raw; // a record given as bytes
        std::vector<std::string> pragmas;
    };

    lexer in_;
    int version_ = ICODE_VERSION, cpu_ = ICODE_CPU_ID;
    std::string producer_ = "icode-as";
    std::int64_t extra_ = 0;

    enum class SECTION { OPTIONS, FILES, TYPES, SYMBOLS, INITS, BODY } section_ = SECTION::BODY;
    std::string options_, files_, types_text_, inits_, body_;
    bool has_[6] = {};

    type_facts types_;
    std::map<std::string, std::int64_t, std::less<>> type_labels_;
    std::map<std::int64_t, std::vector<std::string>> members_;
    std::int64_t next_type_ = 1000;
    std::vector<global_symbol> globals_;
    std::unordered_map<std::string, std::int64_t> global_index_;
    std::map<std::int64_t, std::int64_t> function_at_, init_at_; // offsets in body and initialisers
    struct local_symbol {
        std::string name;
        std::int64_t level;
    };
    std::vector<local_symbol> locals_;
    std::unordered_map<std::string, std::int64_t> local_index_;
    std::int64_t level_ = 0;

    std::string& out() {
        switch (section_) {
            case SECTION::OPTIONS: return options_;
            case SECTION::FILES: return files_;
            case SECTION::TYPES: return types_text_;
            case SECTION::INITS: return inits_;
            default: return body_;
        }
    }

    std::int64_t number() {
        if (in_.peek().what != TOKEN::NUMBER) in_.fail("a number is expected");
        return in_.take().number;
    }

    std::string string() {
        if (in_.peek().what != TOKEN::STRING) in_.fail("a string is expected");
        return in_.take().text;
    }

    void expect(const char* punctuation) {
        if (!in_.is(punctuation)) in_.fail(std::string("'") + punctuation + "' is expected");
        in_.take();
    }

    void header() {
        if (in_.peek().what == TOKEN::WORD && in_.peek().text == "icode") {
            in_.take();
            while (in_.peek().what == TOKEN::WORD && in_.followed_by_equals()) {
                const token key = in_.take();
                expect("=");
                if (key.text == "version")
                    version_ = static_cast<int>(number());
                else if (key.text == "cpu")
                    cpu_ = static_cast<int>(number());
                else if (key.text == "producer")
                    producer_ = string();
                else if (key.text == "extra")
                    extra_ = number();
                else
                    throw source_error{key.line, key.column, "unknown header field \"" + key.text + "\""};
            }
        }
    }

    // --- Types.

    // t7, or a label: tpoint. Basic types need no definition.
    std::int64_t type_reference(bool defining = false) {
        const token& t = in_.peek();
        if (t.what != TOKEN::WORD || t.text.size() < 2 || t.text[0] != 't') in_.fail("a type is expected");
        const std::string label = t.text.substr(1);
        if (std::all_of(label.begin(), label.end(), [](unsigned char c) { return std::isdigit(c) != 0; })) {
            const std::int64_t n = std::strtoll(label.c_str(), nullptr, 10);
            in_.take();
            return n;
        }
        const auto known = type_labels_.find(label);
        if (known != type_labels_.end()) {
            in_.take();
            return known->second;
        }
        static const char* const basic[] = {"bool",  "char",   "uchar",   "wchar", "short", "ushort",
                                            "int",   "uint",   "long",    "ulong", "llong", "ullong",
                                            "float", "double", "ldouble", "void"};
        const std::int64_t n = next_type_++;
        if (!defining) {
            if (std::find(std::begin(basic), std::end(basic), label) == std::end(basic))
                in_.fail("type \"" + label + "\" is not defined");
            define_basic(n, label);
        }
        type_labels_[label] = n;
        in_.take();
        return n;
    }

    void define_basic(std::int64_t number, const std::string& name) {
        const LAYOUT* layout = type_layout(name);
        std::vector<VALUE> values(layout->fields.size());
        for (std::size_t i = 0; i < values.size(); i++) {
            values[i].number = layout->fields[i].absent;
            if (name == "bool" && std::strcmp(layout->fields[i].key, "is_bool") == 0) values[i].number = 1;
        }
        write_type(number, *layout, values, types_text_); // it may be asked for in the middle of a tree
    }

    void write_type(std::int64_t number, const LAYOUT& layout, std::vector<VALUE> values, std::string& to) {
        for (std::size_t i = 0; i < values.size(); i++) {
            if (layout.fields[i].absent != -1 || values[i].number != -1) continue;
            const bool size = std::strcmp(layout.fields[i].key, "size") == 0;
            values[i].number =
                size ? types_.usual_size(layout.id, values) : types_.usual_align(layout.id, values);
        }
        types_.note(number, layout.id, layout.fields, values);
        if (layout.id == 28) members_[number].push_back(values[1].words[0]);
        std::string payload;
        put_uint(payload, static_cast<std::uint64_t>(number));
        payload.push_back(static_cast<char>(layout.id));
        for (std::size_t i = 0; i < values.size(); i++)
            if (in_version(layout.fields[i], version_))
                encode(payload, layout.fields[i], values[i], types_, number);
        put_record(to, REC_TYPE, payload);
        has_[static_cast<int>(SECTION::TYPES)] = true;
    }

    void type_statement() {
        const std::int64_t number = type_reference(true);
        if (in_.peek().what != TOKEN::WORD) in_.fail("a kind of type is expected");
        const LAYOUT* layout = type_layout(in_.peek().text);
        if (layout == nullptr) in_.fail("unknown kind of type \"" + in_.peek().text + "\"");
        in_.take();
        std::vector<VALUE> values = field_values(*layout); // may define types of its own
        write_type(number, *layout, std::move(values),
                   section_ == SECTION::BODY && level_ > 0 ? body_ : types_text_);
    }

    // --- Fields.

    std::vector<VALUE> field_values(const LAYOUT& layout) {
        std::vector<VALUE> values(layout.fields.size());
        for (std::size_t i = 0; i < values.size(); i++)
            values[i].number = layout.fields[i].key != nullptr ? layout.fields[i].absent : 0;
        std::size_t place = 0;
        for (;;) {
            if (in_.peek().what == TOKEN::WORD && in_.followed_by_equals()) {
                std::size_t i = 0;
                while (i < values.size() &&
                       (layout.fields[i].key == nullptr || in_.peek().text != layout.fields[i].key))
                    i++;
                if (i == values.size()) in_.fail("\"" + in_.peek().text + "\" is no field of " + layout.name);
                if (!in_version(layout.fields[i], version_))
                    in_.fail("field \"" + in_.peek().text + "\" is not in version " +
                             std::to_string(version_));
                in_.take();
                expect("=");
                values[i] = value(layout.fields[i]);
                continue;
            }
            while (place < values.size() &&
                   (layout.fields[place].key != nullptr || !in_version(layout.fields[place], version_)))
                place++;
            if (place == values.size()) return values;
            if (layout.fields[place].form == FORM::POSITION && !in_.is("[")) {
                place++;
                continue;
            }
            values[place] = value(layout.fields[place]);
            place++;
        }
    }

    VALUE value(const FIELD& field) {
        VALUE v;
        const auto by_name = [&](int (*look_up)(std::string_view), const char* what) {
            if (in_.peek().what == TOKEN::NUMBER) return number();
            const int n = in_.peek().what == TOKEN::WORD ? look_up(in_.peek().text) : -1;
            if (n < 0) in_.fail(std::string("a ") + what + " is expected");
            in_.take();
            return static_cast<std::int64_t>(n);
        };
        switch (field.form) {
            case FORM::TYPE: v.number = type_reference(); break;
            case FORM::GLOBAL: v.number = global_reference(); break;
            case FORM::CLASS: v.number = by_name(class_of_name, "storage class"); break;
            case FORM::RETENTION: v.number = by_name(retention_of_name, "retention policy"); break;
            case FORM::LIST: v.number = by_name(list_of_name, "list"); break;
            case FORM::CSU:
                v.number = by_name(
                    [](std::string_view s) {
                        return s == "struct" ? 0 : s == "union" ? 1 : s == "class" ? 2 : -1;
                    },
                    "structure kind");
                break;
            case FORM::PRAGMA:
                v.number = by_name(
                    [](std::string_view s) { return pragma_kind_of_name(std::string(s).c_str()); }, "pragma");
                break;
            case FORM::QUALIFIERS: {
                constexpr const char* words[] = {"const", "volatile", "packed",   "near",
                                                 "far",   "ioport",   "restrict", "onchip"};
                if (in_.peek().what == TOKEN::NUMBER) {
                    v.number = number();
                    break;
                }
                for (bool more = true; more;) {
                    int bit = 0;
                    while (bit < 8 && in_.peek().text != words[bit]) bit++;
                    if (bit == 8 || in_.peek().what != TOKEN::WORD) in_.fail("a qualifier is expected");
                    in_.take();
                    v.number |= 1 << bit;
                    more = in_.is("|");
                    if (more) in_.take();
                }
                break;
            }
            case FORM::TEXT: v.words.push_back(string()); break;
            case FORM::POSITION:
                expect("[");
                v.number = number();
                expect(":");
                v.line = number();
                expect(":");
                v.column = number();
                expect("]");
                break;
            case FORM::WORDS:
                while (in_.peek().what == TOKEN::STRING) v.words.push_back(string());
                break;
            case FORM::CATCHES:
                expect("{");
                while (!in_.is("}")) {
                    v.words.push_back(string());
                    v.numbers.push_back(number());
                    v.numbers.push_back(number());
                }
                expect("}");
                break;
            case FORM::LDSPEC:
            case FORM::PAIRS:
            case FORM::FLAGS9:
            case FORM::FLAGS4:
                expect("{");
                if (field.form == FORM::LDSPEC) v.number = number();
                while (!in_.is("}")) v.numbers.push_back(number());
                if (field.form == FORM::PAIRS && v.numbers.size() % 2 != 0) in_.fail("pairs are expected");
                if (field.form == FORM::FLAGS9 && v.numbers.size() != 9) in_.fail("nine flags are expected");
                if (field.form == FORM::FLAGS4 && v.numbers.size() != 4) in_.fail("four flags are expected");
                expect("}");
                break;
            default: v.number = number(); break;
        }
        return v;
    }

    // --- Symbols.

    static std::int64_t after_hash(const std::string& text) {
        const std::size_t hash = text.find('#', 1);
        return hash == std::string::npos ? -1 : std::strtoll(text.c_str() + hash + 1, nullptr, 10);
    }

    std::int64_t global_reference() {
        if (in_.peek().what != TOKEN::SYMBOL) in_.fail("a global symbol is expected");
        const std::string text = in_.peek().text;
        if (text[0] == '#') {
            long long level = 0, index = 0;
            if (std::sscanf(text.c_str(), "#%lld:%lld", &level, &index) != 2 || level != 0)
                in_.fail("a global symbol is expected");
            in_.take();
            return index;
        }
        if (text[0] != '@') in_.fail("a global symbol is expected");
        std::int64_t index = after_hash(text);
        if (index < 0) {
            const auto found = global_index_.find(text.substr(1));
            if (found == global_index_.end()) in_.fail("no global symbol " + text);
            index = found->second;
        }
        in_.take();
        return index;
    }

    void symbol_statement() {
        const LAYOUT* layout = record_layout(REC_SYMBOL);
        std::vector<VALUE> values = field_values(*layout);
        if (section_ == SECTION::SYMBOLS || (section_ == SECTION::BODY && level_ == 0)) {
            global_index_.emplace(values[0].words[0], static_cast<std::int64_t>(globals_.size()));
            globals_.push_back({std::move(values), {}, {}});
            while (in_.peek().what == TOKEN::WORD && in_.peek().text == "pragma") {
                in_.take();
                globals_.back().pragmas.push_back(pragma_payload());
            }
            return;
        }
        local_index_.emplace(values[0].words[0], static_cast<std::int64_t>(locals_.size()));
        locals_.push_back({values[0].words[0], level_});
        std::vector<std::string> pragmas;
        const bool counted = find(*layout, values, "pragmas") >= 0;
        while (in_.peek().what == TOKEN::WORD && in_.peek().text == "pragma" && !counted) {
            in_.take();
            pragmas.push_back(pragma_payload());
        }
        put_record(body_, REC_SYMBOL, symbol_payload(values, static_cast<std::int64_t>(pragmas.size()), 0));
        for (const std::string& pragma : pragmas) put_record(body_, REC_PRAGMA, pragma);
    }

    static std::int64_t find(const LAYOUT& layout, const std::vector<VALUE>& values, const char* key) {
        for (std::size_t i = 0; i < values.size(); i++)
            if (layout.fields[i].key != nullptr && std::strcmp(layout.fields[i].key, key) == 0)
                return values[i].number;
        return 0;
    }

    std::string symbol_payload(std::vector<VALUE> values, std::int64_t pragmas, std::int64_t location) const {
        const LAYOUT* layout = record_layout(REC_SYMBOL);
        std::string payload;
        for (std::size_t i = 0; i < values.size(); i++) {
            const FIELD& field = layout->fields[i];
            if (!in_version(field, version_)) continue;
            if (field.key != nullptr && field.absent == -1 && values[i].number == -1) {
                const std::int64_t type = values[5].number;
                const std::string key = field.key;
                values[i].number = key == "size"      ? types_.size(type)
                                   : key == "align"   ? types_.align(type)
                                   : key == "pragmas" ? pragmas
                                                      : location;
            }
            encode(payload, field, values[i], types_, 0);
        }
        return payload;
    }

    std::string pragma_payload() {
        const LAYOUT* layout = record_layout(REC_PRAGMA);
        const std::vector<VALUE> values = field_values(*layout);
        std::string payload;
        for (std::size_t i = 0; i < values.size(); i++)
            encode(payload, layout->fields[i], values[i], types_, 0);
        return payload;
    }

    // --- Trees.

    void name_payload(std::string& payload) {
        if (in_.peek().what != TOKEN::SYMBOL) in_.fail("a symbol is expected");
        const std::string text = in_.peek().text;
        if (text[0] == '@') {
            put_uint(payload, 0);
            put_uint(payload, static_cast<std::uint64_t>(global_reference()));
            return;
        }
        if (text[0] == '#') {
            if (text.rfind("#null:", 0) == 0) {
                put_uint(payload, NULL_LEVEL);
                put_uint(payload, std::strtoull(text.c_str() + 6, nullptr, 10));
            } else {
                long long level = 0, index = 0;
                if (std::sscanf(text.c_str(), "#%lld:%lld", &level, &index) != 2)
                    in_.fail("bad symbol " + text);
                put_uint(payload, static_cast<std::uint64_t>(level));
                put_uint(payload, static_cast<std::uint64_t>(index));
            }
            in_.take();
            return;
        }
        std::int64_t index = after_hash(text);
        if (index < 0) {
            const auto found = local_index_.find(text.substr(1));
            if (found == local_index_.end()) in_.fail("no local symbol " + text);
            index = found->second;
        }
        if (static_cast<std::size_t>(index) >= locals_.size()) in_.fail("no local symbol " + text);
        put_uint(payload, static_cast<std::uint64_t>(locals_[static_cast<std::size_t>(index)].level));
        put_uint(payload, static_cast<std::uint64_t>(index));
        in_.take();
    }

    std::int64_t keyed(const char* key) {
        if (in_.peek().what != TOKEN::WORD || in_.peek().text != key || !in_.followed_by_equals()) return -1;
        in_.take();
        expect("=");
        return number();
    }

    void tree() {
        struct level {
            token start;
            int left;
        };
        std::vector<level> open;
        do {
            if (in_.is(")")) {
                const level& top = open.back();
                if (top.left > 0)
                    throw source_error{top.start.line, top.start.column,
                                       top.start.text + " needs more operands"};
                in_.take();
                open.pop_back();
                continue;
            }
            if (!open.empty() && open.back().left-- == 0)
                in_.fail(open.back().start.text + " has too many operands");
            expect("(");
            const token name = in_.peek();
            const int code = name.what == TOKEN::WORD ? if_opcode_of_name(name.text.c_str()) : -1;
            if (code < 0) in_.fail("an operator is expected");
            in_.take();
            const std::int64_t type = type_reference();
            std::string payload;
            payload.push_back(static_cast<char>(code));
            put_uint(payload, static_cast<std::uint64_t>(type));
            operand_payload(code, type, payload);
            put_record(out(), REC_NODE, payload);
            open.push_back({name, subtrees_of(code)});
        } while (!open.empty());
    }

    void operand_payload(int code, std::int64_t type, std::string& payload) {
        switch (payload_of(code)) {
            case PAYLOAD::NOTHING: break;
            case PAYLOAD::LABEL:
            case PAYLOAD::COUNT:
            case PAYLOAD::SKIP: put_uint(payload, static_cast<std::uint64_t>(number())); break;
            case PAYLOAD::NAME: name_payload(payload); break;
            case PAYLOAD::BYTES: {
                const std::string data = string();
                put_uint(payload, data.size());
                payload += data;
                break;
            }
            case PAYLOAD::INTEGER:
                if (types_.is_signed(type))
                    put_sint(payload, number());
                else
                    put_uint(payload, static_cast<std::uint64_t>(number()));
                break;
            case PAYLOAD::TEXT:
                payload += string();
                payload.push_back('\0');
                break;
            case PAYLOAD::MEMBER: {
                const std::int64_t kind = keyed("kind");
                payload.push_back(static_cast<char>(kind < 0 ? 1 : kind));
                const token member = in_.take();
                const std::int64_t csu = type_reference();
                std::int64_t n = member.number;
                if (member.what == TOKEN::WORD && member.text[0] == '.') {
                    const std::vector<std::string>& names = members_[csu];
                    const auto found = std::find(names.begin(), names.end(), member.text.substr(1));
                    if (found == names.end())
                        throw source_error{member.line, member.column, "no member " + member.text};
                    n = found - names.begin() + 1;
                } else if (member.what != TOKEN::NUMBER) {
                    throw source_error{member.line, member.column, "a member is expected"};
                }
                put_uint(payload, static_cast<std::uint64_t>(n));
                put_uint(payload, static_cast<std::uint64_t>(csu));
                break;
            }
            case PAYLOAD::CALL: {
                const std::int64_t id = keyed("id"), eht = keyed("eht");
                put_uint(payload, id < 0 ? 0 : static_cast<std::uint64_t>(id));
                put_uint(payload, eht < 0 ? 0 : static_cast<std::uint64_t>(eht));
                break;
            }
            case PAYLOAD::UCALL: {
                const std::int64_t eht = keyed("eht");
                put_uint(payload, eht < 0 ? 0 : static_cast<std::uint64_t>(eht));
                break;
            }
            case PAYLOAD::DDNODE:
                put_uint(payload, static_cast<std::uint64_t>(number()));
                put_uint(payload, static_cast<std::uint64_t>(number()));
                payload.push_back(static_cast<char>(number()));
                break;
            case PAYLOAD::VREG: put_sint(payload, number()); break;
        }
    }

    // --- Statements.

    void statement() {
        if (in_.is("(")) {
            tree();
            return;
        }
        if (in_.peek().what != TOKEN::WORD) in_.fail("a statement is expected");
        const token word = in_.peek();
        if (word.text == "section") {
            in_.take();
            section();
            return;
        }
        if (word.text == "type") {
            in_.take();
            type_statement();
            return;
        }
        if (word.text == "record") {
            in_.take();
            raw_record();
            return;
        }
        const LAYOUT* layout = record_layout(word.text);
        if (layout == nullptr) in_.fail("unknown statement \"" + word.text + "\"");
        in_.take();
        if (layout->id == REC_SYMBOL) {
            symbol_statement();
            return;
        }
        const std::vector<VALUE> values = field_values(*layout);
        if (layout->id == REC_BEGIN_FUNC)
            function_at_[values[1].number] = static_cast<std::int64_t>(body_.size());
        if (layout->id == REC_INIT && section_ == SECTION::INITS)
            init_at_[values[0].number] = static_cast<std::int64_t>(inits_.size());
        std::string payload;
        for (std::size_t i = 0; i < values.size(); i++)
            if (in_version(layout->fields[i], version_))
                encode(payload, layout->fields[i], values[i], types_, 0);
        put_record(out(), layout->id, payload);
        follow(layout->id);
        if (layout->id == REC_EXPR && in_.is("(")) tree();
    }

    // Scopes, as the reader of a file follows them.
    void follow(int id) {
        switch (id) {
            case REC_BEGIN_FUNC:
            case REC_IR_BEGIN_FUNC:
                level_ = 1;
                locals_.clear();
                local_index_.clear();
                break;
            case REC_BEGIN_BLOCK: level_++; break;
            case REC_END_BLOCK: level_--; break;
            case REC_END_ARGS: level_ = 2; break;
            case REC_END_FUNC:
            case REC_IR_END_FUNC: level_ = 0; break;
            default: break;
        }
    }

    void raw_record() {
        const std::int64_t id = number();
        const std::string payload = string();
        if (section_ == SECTION::SYMBOLS) {
            globals_.push_back({{}, payload, {}});
            if (id != REC_SYMBOL) in_.fail("only symbols stand among the symbols");
            return;
        }
        if (id == REC_SYMBOL && level_ > 0) locals_.push_back({byte_reader(payload).text(), level_});
        put_record(out(), static_cast<int>(id), payload);
        follow(static_cast<int>(id));
    }

    void section() {
        constexpr const char* names[] = {"options", "files", "types", "symbols", "inits", "body"};
        int i = 0;
        while (i < 6 && in_.peek().text != names[i]) i++;
        if (i == 6) in_.fail("unknown section");
        in_.take();
        section_ = static_cast<SECTION>(i);
        has_[i] = true;
    }

    // --- The file.

    std::string header_record(const std::size_t (&offsets)[5]) const {
        std::string payload("!<icode>\n\0", 10);
        const auto word = [&payload](int v) {
            payload.push_back(static_cast<char>(v));
            payload.push_back(static_cast<char>(v >> 8));
        };
        const auto offset = [&payload](std::size_t v) {
            for (int shift = 0; shift < 32; shift += 8) payload.push_back(static_cast<char>(v >> shift));
        };
        word(version_);
        word(cpu_);
        for (std::size_t v : offsets) offset(v);
        payload += producer_;
        payload.push_back('\0');
        if (version_ >= -83) offset(static_cast<std::size_t>(extra_));
        std::string record;
        put_record(record, REC_HEADER, payload);
        return record;
    }

    std::string finish() {
        const char end = static_cast<char>(REC_EOF);
        std::size_t offsets[5] = {}; // options, inits, types, files, symbols
        const std::size_t body_at = header_record(offsets).size();
        std::string rest = body_ + end;
        const auto append = [&](SECTION section, const std::string& bytes, int slot) {
            if (!has_[static_cast<int>(section)]) return;
            offsets[slot] = body_at + rest.size();
            rest += bytes + end;
        };
        append(SECTION::INITS, inits_, 1);
        append(SECTION::OPTIONS, options_, 0);
        append(SECTION::TYPES, types_text_, 2);
        append(SECTION::FILES, files_, 3);
        offsets[4] = body_at + rest.size();
        for (std::size_t i = 0; i < globals_.size(); i++) {
            const global_symbol& g = globals_[i];
            if (g.values.empty()) {
                put_record(rest, REC_SYMBOL, g.raw);
                continue;
            }
            const auto index = static_cast<std::int64_t>(i);
            std::int64_t location = 0;
            if (const auto f = function_at_.find(index); f != function_at_.end())
                location = static_cast<std::int64_t>(body_at) + f->second;
            if (const auto n = init_at_.find(index); n != init_at_.end())
                location = static_cast<std::int64_t>(offsets[1]) + n->second;
            put_record(rest, REC_SYMBOL,
                       symbol_payload(g.values, static_cast<std::int64_t>(g.pragmas.size()), location));
            for (const std::string& pragma : g.pragmas) put_record(rest, REC_PRAGMA, pragma);
        }
        rest += end;
        return header_record(offsets) + rest;
    }
};

[[noreturn]] void usage() {
    std::fprintf(stderr, "Usage: icode-as FILE.txt -o FILE.ic\n");
    std::exit(1);
}

} // namespace

int main(int argc, char** argv) {
    std::string input, output;
    for (int i = 1; i < argc; i++) {
        const std::string word = argv[i];
        if (word == "--help") {
            std::printf("Usage: icode-as FILE.txt -o FILE.ic\n");
            return 0;
        }
        if (word == "-o" && i + 1 < argc)
            output = argv[++i];
        else if (input.empty() && (word == "-" || word[0] != '-'))
            input = word;
        else
            usage();
    }
    if (input.empty() || output.empty()) usage();
    std::FILE* stream = input == "-" ? stdin : std::fopen(input.c_str(), "rb");
    if (stream == nullptr) {
        std::fprintf(stderr, "icode-as: %s: %s\n", input.c_str(), std::strerror(errno));
        return 1;
    }
    std::string text;
    char buffer[65536];
    for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, stream)) > 0;) text.append(buffer, n);
    if (stream != stdin) std::fclose(stream);

    std::string bytes;
    try {
        bytes = assembler(std::move(text)).run();
    } catch (const source_error& error) {
        std::fprintf(stderr, "%s:%d:%d: %s\n", input.c_str(), error.line, error.column, error.what.c_str());
        return 1;
    }
    const std::string temporary = output + ".tmp";
    stream = std::fopen(temporary.c_str(), "wb");
    bool written = stream != nullptr && std::fwrite(bytes.data(), 1, bytes.size(), stream) == bytes.size();
    if (stream != nullptr && std::fclose(stream) != 0) written = false;
    if (!written || std::rename(temporary.c_str(), output.c_str()) != 0) {
        std::fprintf(stderr, "icode-as: %s: %s\n", output.c_str(), std::strerror(errno));
        unlink(temporary.c_str());
        return 1;
    }
    return 0;
}
