// icode-dis: an intermediate file as text.
//
// The file is taken into memory and walked record by record with bounded readers. A record whose bytes are
// not exactly what its layout would write is shown as raw bytes, so that the text always leads back to the
// same file.

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "OPT5/if_file.h"
#include "OPT5/opcodes.h"
#include "OPT5/pragma.h"
#include "tools/icode-text/layout.h"

using namespace icode_text;

namespace {

constexpr std::size_t MAX_LINE = 100; // a tree that is longer goes over several lines
constexpr int MAX_INDENT = 40;        // deeper levels stand at this column

std::string file_name;

[[noreturn]] void bad_file(std::size_t offset, const std::string& what) {
    std::fflush(stdout);
    std::fprintf(stderr, "icode-dis: %s: offset %zu: %s\n", file_name.c_str(), offset, what.c_str());
    std::exit(1);
}

struct record {
    int id = REC_EOF;
    std::size_t offset = 0; // of the id
    std::string_view payload;
};

bool is_plain_name(const std::string& name) {
    if (name.empty() || (name[0] >= '0' && name[0] <= '9')) return false;
    return std::all_of(name.begin(), name.end(), [](unsigned char c) {
        return std::isalnum(c) != 0 || c == '_' || c == '$' || c == '.';
    });
}

class disassembler {
  public:
    explicit disassembler(std::string bytes) : bytes_(std::move(bytes)) {}

    void run() {
        header();
        collect();
        section("options", options_);
        section("files", files_);
        section("types", types_at_);
        symbols();
        section("inits", inits_);
        std::printf("\nsection body\n");
        walk(body_);
    }

  private:
    struct name_entry {
        std::string name;
        std::int64_t level = 0;
        bool unique = true;
    };

    std::string bytes_;
    int version_ = 0;
    std::size_t body_ = 0, options_ = 0, inits_ = 0, types_at_ = 0, files_ = 0, symbols_ = 0;
    type_facts types_;
    std::vector<name_entry> globals_, locals_;
    std::unordered_map<std::string, int> local_count_;
    std::map<std::int64_t, std::int64_t> location_;            // of a global, by index
    std::map<std::int64_t, std::vector<std::string>> members_; // names by structure
    std::int64_t level_ = 0;

    // --- Records.

    record next(std::size_t& at) const {
        record r;
        r.offset = at;
        if (at >= bytes_.size()) bad_file(at, "the section does not end");
        r.id = static_cast<unsigned char>(bytes_[at++]);
        if (r.id == REC_EOF) return r;
        byte_reader in(std::string_view(bytes_).substr(at));
        const std::uint64_t size = in.uint();
        if (!in.ok() || size > bytes_.size() - at - in.position())
            bad_file(r.offset, "a record runs past the end of the file");
        at += in.position();
        r.payload = std::string_view(bytes_).substr(at, size);
        at += size;
        return r;
    }

    void header() {
        std::size_t at = 0;
        if (bytes_.empty() || static_cast<unsigned char>(bytes_[0]) != REC_HEADER)
            bad_file(0, "not an intermediate file");
        const record r = next(at);
        byte_reader in(r.payload);
        if (in.raw(10) != std::string("!<icode>\n\0", 10)) bad_file(0, "not an intermediate file");
        const auto word = [&in] {
            const unsigned low = in.byte();
            return static_cast<std::int16_t>(low | (in.byte() << 8));
        };
        const auto offset = [&in] {
            std::uint32_t v = 0;
            for (int shift = 0; shift < 32; shift += 8) v |= static_cast<std::uint32_t>(in.byte()) << shift;
            return static_cast<std::size_t>(v);
        };
        version_ = word();
        const int cpu = word();
        options_ = offset();
        inits_ = offset();
        types_at_ = offset();
        files_ = offset();
        symbols_ = offset();
        const std::string producer = in.text();
        std::printf("icode version=%d cpu=%d producer=%s", version_, cpu, quote(producer).c_str());
        if (version_ >= -83)
            if (const std::size_t extra = offset(); extra != 0) std::printf(" extra=%zu", extra);
        std::printf("\n");
        if (!in.ok() || !in.at_end()) bad_file(0, "the header has an unknown form");
        body_ = at;
        for (std::size_t section : {options_, inits_, types_at_, files_, symbols_})
            if (section >= bytes_.size()) bad_file(section, "a section lies outside the file");
    }

    // What names and numbers mean, gathered before anything is printed.
    void collect() {
        if (types_at_ != 0)
            for (std::size_t at = types_at_;;) {
                const record r = next(at);
                if (r.id == REC_EOF) break;
                if (r.id == REC_TYPE) note_type(r);
            }
        if (symbols_ != 0)
            for (std::size_t at = symbols_;;) {
                const record r = next(at);
                if (r.id == REC_EOF) break;
                if (r.id == REC_SYMBOL) globals_.push_back({byte_reader(r.payload).text(), 0, true});
            }
        std::unordered_map<std::string, int> count;
        for (const name_entry& g : globals_) count[g.name]++;
        for (name_entry& g : globals_) g.unique = is_plain_name(g.name) && count[g.name] == 1;
        for (std::size_t at = body_;;) {
            const record r = next(at);
            if (r.id == REC_EOF) break;
            if (r.id != REC_BEGIN_FUNC) continue;
            byte_reader in(r.payload);
            if (in.uint() != 0) {
                in.uint();
                in.uint();
            }
            location_[static_cast<std::int64_t>(in.uint())] = static_cast<std::int64_t>(r.offset);
        }
        if (inits_ != 0)
            for (std::size_t at = inits_;;) {
                const record r = next(at);
                if (r.id == REC_EOF) break;
                if (r.id == REC_INIT)
                    location_[static_cast<std::int64_t>(byte_reader(r.payload).uint())] =
                        static_cast<std::int64_t>(r.offset);
            }
    }

    void note_type(const record& r) {
        std::vector<VALUE> values;
        std::int64_t number = 0;
        const LAYOUT* layout = nullptr;
        if (!type_record(r, number, layout, values)) return;
        types_.note(number, layout->id, layout->fields, values);
        if (layout->id == 28) members_[number].push_back(values[1].words[0]);
    }

    // Sizes that such a type usually has need no saying.
    void leave_out_usual(const LAYOUT& layout, std::vector<VALUE>& values) const {
        const std::int64_t size = types_.usual_size(layout.id, values),
                           align = types_.usual_align(layout.id, values);
        for (std::size_t i = 0; i < values.size(); i++) {
            if (layout.fields[i].key == nullptr || layout.fields[i].absent != -1) continue;
            const bool is_size = std::strcmp(layout.fields[i].key, "size") == 0;
            if (values[i].number == (is_size ? size : align)) values[i].number = -1;
        }
    }

    // Reads fields; false unless they give back exactly the bytes.
    bool fields(byte_reader& in, const std::vector<FIELD>& layout, std::int64_t owner,
                std::string_view payload, std::string& prefix, std::vector<VALUE>& values) const {
        std::string again = prefix;
        for (const FIELD& field : layout) {
            VALUE v;
            if (in_version(field, version_)) {
                v = decode(in, field, types_, owner);
                if (!in.ok()) return false;
                encode(again, field, v, types_, owner);
            } else {
                v.number = field.absent;
            }
            values.push_back(std::move(v));
        }
        return in.at_end() && again == payload;
    }

    bool type_record(const record& r, std::int64_t& number, const LAYOUT*& layout,
                     std::vector<VALUE>& values) const {
        byte_reader in(r.payload);
        number = static_cast<std::int64_t>(in.uint());
        const unsigned code = in.byte();
        layout = type_layout(static_cast<int>(code));
        if (layout == nullptr || !in.ok()) return false;
        std::string prefix;
        put_uint(prefix, static_cast<std::uint64_t>(number));
        prefix.push_back(static_cast<char>(code));
        return fields(in, layout->fields, number, r.payload, prefix, values);
    }

    // --- Values as text.

    std::string global(std::int64_t index) const {
        if (index < 0 || static_cast<std::size_t>(index) >= globals_.size())
            return "#0:" + std::to_string(index);
        const name_entry& g = globals_[static_cast<std::size_t>(index)];
        if (g.unique) return "@" + g.name;
        return "@" + (is_plain_name(g.name) ? g.name : std::string()) + "#" + std::to_string(index);
    }

    std::string local(std::int64_t level, std::int64_t index) const {
        if (index >= 0 && static_cast<std::size_t>(index) < locals_.size() &&
            locals_[static_cast<std::size_t>(index)].level == level) {
            const name_entry& l = locals_[static_cast<std::size_t>(index)];
            // A name that is declared again later is told apart from the start.
            const auto count = local_count_.find(l.name);
            if (is_plain_name(l.name) && count != local_count_.end() && count->second == 1)
                return "%" + l.name;
            return "%" + (is_plain_name(l.name) ? l.name : std::string()) + "#" + std::to_string(index);
        }
        return "#" + std::to_string(level) + ":" + std::to_string(index);
    }

    std::string text_of(const FIELD& field, const VALUE& v) const {
        const std::string number = std::to_string(v.number);
        const auto named = [&number](const char* name) {
            return name != nullptr ? std::string(name) : number;
        };
        const auto group = [](const std::string& inside) { return "{" + inside + " }"; };
        switch (field.form) {
            case FORM::TYPE: return "t" + number;
            case FORM::GLOBAL: return global(v.number);
            case FORM::CLASS: return named(class_name(static_cast<int>(v.number)));
            case FORM::RETENTION: return named(retention_name(static_cast<int>(v.number)));
            case FORM::LIST: return named(list_name(static_cast<int>(v.number)));
            case FORM::CSU:
                return named(v.number == 0   ? "struct"
                             : v.number == 1 ? "union"
                             : v.number == 2 ? "class"
                                             : nullptr);
            case FORM::PRAGMA: {
                const std::string name = pragma_kind_name(static_cast<int>(v.number));
                return is_plain_name(name) && name != "unknown" ? name : number;
            }
            case FORM::QUALIFIERS: {
                constexpr const char* words[] = {"const", "volatile", "packed",   "near",
                                                 "far",   "ioport",   "restrict", "onchip"};
                if (v.number <= 0 || v.number > 255) return number;
                std::string text;
                for (int bit = 0; bit < 8; bit++)
                    if ((v.number >> bit & 1) != 0)
                        text += (text.empty() ? "" : "|") + std::string(words[bit]);
                return text;
            }
            case FORM::TEXT: return quote(v.words[0]);
            case FORM::POSITION:
                if (v.number == 0) return "";
                return "[" + number + ":" + std::to_string(v.line) + ":" + std::to_string(v.column) + "]";
            case FORM::WORDS: {
                std::string text;
                for (const std::string& word : v.words) text += (text.empty() ? "" : " ") + quote(word);
                return text;
            }
            case FORM::CATCHES: {
                std::string text;
                for (std::size_t i = 0; i < v.words.size(); i++)
                    text += " " + quote(v.words[i]) + " " + std::to_string(v.numbers[2 * i]) + " " +
                            std::to_string(v.numbers[2 * i + 1]);
                return group(text);
            }
            case FORM::PAIRS:
            case FORM::FLAGS9:
            case FORM::FLAGS4:
            case FORM::LDSPEC: {
                std::string text;
                if (field.form == FORM::LDSPEC) text = " " + number;
                for (std::int64_t n : v.numbers) text += " " + std::to_string(n);
                return group(text);
            }
            default: return number;
        }
    }

    std::string line_of(const std::vector<FIELD>& layout, const std::vector<VALUE>& values) const {
        std::string line;
        for (std::size_t i = 0; i < layout.size(); i++) {
            const FIELD& field = layout[i];
            if (!in_version(field, version_)) continue;
            if (field.key != nullptr) {
                if (values[i].number != field.absent)
                    line += std::string(" ") + field.key + "=" + text_of(field, values[i]);
                continue;
            }
            const std::string text = text_of(field, values[i]);
            if (!text.empty()) line += " " + text;
        }
        return line;
    }

    void raw(const record& r, int indent) const {
        std::printf("%*srecord %d %s\n", indent, "", r.id, quote(r.payload).c_str());
    }

    // --- Trees.

    struct node {
        std::string text; // "(OP type payload"
        int subtrees = 0;
        std::size_t width = 0; // of the whole subtree on one line
    };

    bool read_node(const record& r, node& n) const {
        if (r.id != REC_NODE) return false;
        byte_reader in(r.payload);
        const int code = static_cast<int>(in.byte());
        const int subtrees = subtrees_of(code);
        const auto type = in.uint();
        if (subtrees < 0 || !in.ok()) return false;
        std::string again;
        again.push_back(static_cast<char>(code));
        put_uint(again, type);
        std::string text = std::string("(") + if_node_info[code].name + " t" + std::to_string(type);
        const auto uint = [&] {
            const std::uint64_t v = in.uint();
            put_uint(again, v);
            return v;
        };
        switch (payload_of(code)) {
            case PAYLOAD::NOTHING: break;
            case PAYLOAD::LABEL:
            case PAYLOAD::COUNT:
            case PAYLOAD::SKIP: text += " " + std::to_string(uint()); break;
            case PAYLOAD::NAME: {
                const std::uint64_t level = uint(), index = uint();
                if (level == NULL_LEVEL)
                    text += " #null:" + std::to_string(index);
                else
                    text += " " + (level == 0 ? global(static_cast<std::int64_t>(index))
                                              : local(static_cast<std::int64_t>(level),
                                                      static_cast<std::int64_t>(index)));
                break;
            }
            case PAYLOAD::BYTES: {
                const std::uint64_t length = uint();
                const std::string data = in.raw(length);
                again += data;
                text += " " + quote(data);
                break;
            }
            case PAYLOAD::INTEGER:
                if (types_.is_signed(static_cast<std::int64_t>(type))) {
                    const std::int64_t v = in.sint();
                    put_sint(again, v);
                    text += " " + std::to_string(v);
                } else {
                    text += " " + std::to_string(uint());
                }
                break;
            case PAYLOAD::TEXT: {
                const std::string data = in.text();
                again += data;
                again.push_back('\0');
                text += " " + quote(data);
                break;
            }
            case PAYLOAD::MEMBER: {
                const int kind = static_cast<signed char>(in.byte());
                again.push_back(static_cast<char>(kind));
                const auto number = static_cast<std::int64_t>(uint());
                const auto csu = static_cast<std::int64_t>(uint());
                if (kind != 1) text += " kind=" + std::to_string(kind);
                const auto names = members_.find(csu);
                std::string member = std::to_string(number);
                if (names != members_.end() && number >= 1 &&
                    static_cast<std::size_t>(number) <= names->second.size()) {
                    const std::string& name = names->second[static_cast<std::size_t>(number - 1)];
                    if (is_plain_name(name) && name.find('.') == std::string::npos &&
                        std::count(names->second.begin(), names->second.end(), name) == 1)
                        member = "." + name;
                }
                text += " " + member + " t" + std::to_string(csu);
                break;
            }
            case PAYLOAD::CALL: {
                const std::uint64_t id = uint(), eht = uint();
                text += " id=" + std::to_string(id);
                if (eht != 0) text += " eht=" + std::to_string(eht);
                break;
            }
            case PAYLOAD::UCALL:
                if (const std::uint64_t eht = uint(); eht != 0) text += " eht=" + std::to_string(eht);
                break;
            case PAYLOAD::DDNODE: {
                const std::uint64_t a = uint(), b = uint();
                const unsigned c = in.byte();
                again.push_back(static_cast<char>(c));
                text += " " + std::to_string(a) + " " + std::to_string(b) + " " + std::to_string(c);
                break;
            }
            case PAYLOAD::VREG: {
                const std::int64_t v = in.sint();
                put_sint(again, v);
                text += " " + std::to_string(v);
                break;
            }
        }
        if (!in.ok() || !in.at_end() || again != r.payload) return false;
        n.text = std::move(text);
        n.subtrees = subtrees;
        return true;
    }

    // The tree that begins at `at`, which moves behind it; empty when there is no well-formed one.
    std::vector<node> read_tree(std::size_t& at) const {
        std::vector<node> nodes;
        std::size_t position = at;
        std::uint64_t open = 1;
        while (open > 0) {
            if (position >= bytes_.size()) return {};
            node n;
            if (static_cast<unsigned char>(bytes_[position]) != REC_NODE || !read_node(next(position), n))
                return {};
            open += static_cast<std::uint64_t>(n.subtrees);
            open--;
            nodes.push_back(std::move(n));
        }
        at = position;
        return nodes;
    }

    void print_tree(std::vector<node>& nodes, int indent) const {
        // Widths from the last node back: a node's subtrees follow it.
        std::vector<std::size_t> widths;
        for (std::size_t i = nodes.size(); i-- > 0;) {
            std::size_t width = nodes[i].text.size() + 1;
            for (int k = 0; k < nodes[i].subtrees; k++) {
                width += widths.back() + 1;
                widths.pop_back();
            }
            nodes[i].width = width;
            widths.push_back(width);
        }
        struct level {
            int left;
            bool broken;
        };
        std::vector<level> levels;
        for (std::size_t i = 0; i < nodes.size(); i++) {
            const node& n = nodes[i];
            const bool inside_line = !levels.empty() && !levels.back().broken;
            if (inside_line) {
                std::fputc(' ', stdout);
            } else if (!levels.empty() || i > 0) {
                std::fputc('\n', stdout);
                std::printf("%*s",
                            std::min(indent + 2 * static_cast<int>(std::min<std::size_t>(levels.size(), 100)),
                                     MAX_INDENT),
                            "");
            }
            std::fputs(n.text.c_str(), stdout);
            levels.push_back({n.subtrees, inside_line ? false : n.width > MAX_LINE});
            while (!levels.empty() && levels.back().left == 0) {
                std::fputc(')', stdout);
                levels.pop_back();
                if (!levels.empty()) levels.back().left--;
            }
        }
        std::fputc('\n', stdout);
    }

    // A tree on its own line, where one stands at `at`.
    bool tree_line(std::size_t& at, int indent) const {
        std::vector<node> nodes = read_tree(at);
        if (nodes.empty()) return false;
        std::printf("%*s", indent, "");
        print_tree(nodes, indent);
        return true;
    }

    // --- Sections.

    void section(const char* name, std::size_t at) {
        if (at == 0) return;
        std::printf("\nsection %s\n", name);
        walk(at);
    }

    void symbols() {
        std::printf("\nsection symbols\n");
        if (symbols_ != 0) walk(symbols_);
    }

    void symbol(const record& r, std::size_t at, int indent) {
        const LAYOUT* layout = record_layout(REC_SYMBOL);
        std::vector<VALUE> values;
        std::string prefix;
        byte_reader in(r.payload);
        const bool good = fields(in, layout->fields, 0, r.payload, prefix, values);
        const std::string name = byte_reader(r.payload).text();
        if (level_ != 0) locals_.push_back({name, level_, true});
        if (!good) {
            raw(r, indent);
            return;
        }
        // What can be told from elsewhere is left out.
        std::int64_t pragmas = 0;
        for (std::size_t p = at; p < bytes_.size() && static_cast<unsigned char>(bytes_[p]) == REC_PRAGMA;
             pragmas++)
            next(p);
        const std::int64_t index = level_ == 0 ? symbol_index_++ : -1;
        for (std::size_t i = 0; i < layout->fields.size(); i++) {
            const char* key = layout->fields[i].key;
            if (key == nullptr) continue;
            const std::int64_t type = values[5].number;
            std::int64_t told = layout->fields[i].absent;
            if (std::strcmp(key, "size") == 0) told = types_.size(type);
            if (std::strcmp(key, "align") == 0) told = types_.align(type);
            if (std::strcmp(key, "pragmas") == 0) told = pragmas;
            if (std::strcmp(key, "location") == 0) {
                const auto found = location_.find(index);
                told = index >= 0 && found != location_.end() ? found->second : 0;
            }
            if (values[i].number == told) values[i].number = layout->fields[i].absent;
        }
        std::printf("%*ssymbol%s\n", indent, "", line_of(layout->fields, values).c_str());
    }

    // Counts the names of a function's locals, so that the ones declared twice are always told apart.
    void count_locals(std::size_t at) {
        local_count_.clear();
        for (;;) {
            if (at >= bytes_.size()) return;
            const record r = next(at);
            if (r.id == REC_EOF || r.id == REC_END_FUNC || r.id == REC_IR_END_FUNC) return;
            if (r.id == REC_SYMBOL) local_count_[byte_reader(r.payload).text()]++;
        }
    }

    void walk(std::size_t at) {
        int depth = 0;
        level_ = 0;
        for (;;) {
            const record r = next(at);
            if (r.id == REC_EOF) return;
            if (r.id == REC_END_BLOCK) depth = std::max(depth - 1, 1);
            if (r.id == REC_END_FUNC || r.id == REC_IR_END_FUNC) depth = 0;
            const int indent = 2 * std::min(depth, MAX_INDENT / 2);
            if (r.id == REC_BEGIN_FUNC || r.id == REC_IR_BEGIN_FUNC) {
                std::printf("\n");
                count_locals(at);
                locals_.clear();
            }
            print(r, at, indent);
            switch (r.id) {
                case REC_BEGIN_FUNC:
                case REC_IR_BEGIN_FUNC: level_ = depth = 1; break;
                case REC_BEGIN_BLOCK:
                    level_++;
                    depth++;
                    break;
                case REC_END_BLOCK: level_--; break;
                case REC_END_ARGS: level_ = 2; break;
                case REC_END_FUNC:
                case REC_IR_END_FUNC: level_ = 0; break;
                default: break;
            }
        }
    }

    void print(const record& r, std::size_t& at, int indent) {
        if (r.id == REC_SYMBOL) {
            symbol(r, at, indent);
            return;
        }
        if (r.id == REC_TYPE) {
            std::vector<VALUE> values;
            std::int64_t number = 0;
            const LAYOUT* layout = nullptr;
            if (type_record(r, number, layout, values)) {
                leave_out_usual(*layout, values);
                std::printf("%*stype t%lld %s%s\n", indent, "", static_cast<long long>(number), layout->name,
                            line_of(layout->fields, values).c_str());
            } else {
                raw(r, indent);
            }
            return;
        }
        if (r.id == REC_NODE) {
            // A tree that no statement introduces.
            std::size_t start = r.offset;
            std::vector<node> nodes = read_tree(start);
            if (nodes.empty()) {
                raw(r, indent);
                return;
            }
            std::printf("%*s  ", indent, "");
            print_tree(nodes, indent + 2);
            at = start;
            return;
        }
        const LAYOUT* layout = record_layout(r.id);
        std::vector<VALUE> values;
        std::string prefix;
        byte_reader in(r.payload);
        if (layout == nullptr || !fields(in, layout->fields, 0, r.payload, prefix, values)) {
            raw(r, indent);
            return;
        }
        if (r.id == REC_PRAGMA && level_ == 0) indent += 2;
        std::printf("%*s%s%s", indent, "", layout->name, line_of(layout->fields, values).c_str());
        if (r.id == REC_EXPR) {
            std::size_t position = at;
            std::vector<node> nodes = read_tree(position);
            if (!nodes.empty()) {
                std::fputc(' ', stdout);
                print_tree(nodes, indent + 2);
                at = position;
                return;
            }
        }
        std::printf("\n");
    }

    std::int64_t symbol_index_ = 0;
};

} // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
        std::printf("Usage: icode-dis FILE.ic\n");
        return 0;
    }
    if (argc != 2) {
        std::fprintf(stderr, "Usage: icode-dis FILE.ic\n");
        return 1;
    }
    file_name = argv[1];
    std::FILE* stream = std::fopen(argv[1], "rb");
    if (stream == nullptr) {
        std::fprintf(stderr, "icode-dis: %s: %s\n", argv[1], std::strerror(errno));
        return 1;
    }
    std::string bytes;
    char buffer[65536];
    for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, stream)) > 0;) bytes.append(buffer, n);
    if (std::ferror(stream) != 0) {
        std::fprintf(stderr, "icode-dis: %s: cannot be read\n", argv[1]);
        return 1;
    }
    std::fclose(stream);
    if_node_table_init();
    disassembler(std::move(bytes)).run();
    if (std::fflush(stdout) != 0) {
        std::perror("icode-dis");
        return 1;
    }
    return 0;
}
