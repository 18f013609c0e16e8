#include "graph_writer.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

#include <sys/stat.h>

namespace {

constexpr std::size_t BUFFER_SIZE = 1 << 16;

bool is_printable(unsigned char c) { return c >= ' ' && c < 0x7f; }

void append_hex(std::string& out, const char* prefix, unsigned char c) {
    char text[8];
    std::snprintf(text, sizeof text, "%s%02x", prefix, c);
    out += text;
}

bool is_regular_or_new(const char* name) {
    struct stat status;
    return stat(name, &status) != 0 || S_ISREG(status.st_mode);
}

} // namespace

GRAPH_WRITER::GRAPH_WRITER(std::string path, GRAPH_FORMAT format, std::string_view title)
    : path_(std::move(path)), format_(format), stream_(std::fopen(path_.c_str(), "w")) {
    if (stream_ == nullptr) fail();
    if (format_ == GRAPH_GDL) {
        put("graph: {\n  title: ");
        quoted(title);
        put("\n  display_edge_labels: yes\n  port_sharing: no\n  layoutalgorithm: minbackward\n");
    } else {
        put("digraph ");
        quoted(title);
        put(" {\n  label=");
        quoted(title);
        put(" labelloc=t\n  node [shape=box fontname=\"monospace\"]\n  edge [fontname=\"monospace\"]\n");
    }
}

GRAPH_WRITER::~GRAPH_WRITER() {
    if (stream_ != nullptr) std::fclose(stream_);
}

void GRAPH_WRITER::node(unsigned number, std::string_view label, NODE_KIND kind) {
    if (format_ == GRAPH_GDL) {
        put("  node: { title: \"n");
        put_number(number);
        put("\" label: ");
        quoted(label);
        put(kind == FAINT_NODE ? " borderstyle: dashed }\n" : " }\n");
    } else {
        put("  n");
        put_number(number);
        put(" [label=");
        quoted(label);
        put(kind == FAINT_NODE ? " style=dashed]\n" : "]\n");
    }
    flush(false);
}

void GRAPH_WRITER::edge(unsigned from, unsigned to, std::string_view label, EDGE_KIND kind) {
    const bool back = kind == BACK_EDGE;
    if (format_ == GRAPH_GDL) {
        put(back ? "  backedge: { sourcename: \"n" : "  edge: { sourcename: \"n");
        put_number(from);
        put("\" targetname: \"n");
        put_number(to);
        put("\"");
        if (!label.empty()) {
            put(" label: ");
            quoted(label);
        }
        put(back ? " linestyle: dashed }\n" : " }\n");
    } else {
        put("  n");
        put_number(from);
        put(" -> n");
        put_number(to);
        if (back) put(" [style=dashed]");
        if (!label.empty()) {
            put(" [label=");
            quoted(label);
            put("]");
        }
        put("\n");
    }
    flush(false);
}

void GRAPH_WRITER::begin_group(unsigned number, std::string_view title) {
    put(format_ == GRAPH_GDL ? "  graph: {\n  title: \"g" : "  subgraph cluster_");
    put_number(number);
    put(format_ == GRAPH_GDL ? "\"\n  status: clustered\n  label: " : " {\n  label=");
    quoted(title);
    put("\n");
}

void GRAPH_WRITER::end_group() { put("  }\n"); }

void GRAPH_WRITER::close() {
    put("}\n");
    flush(true);
    if (std::fclose(std::exchange(stream_, nullptr)) != 0) fail();
}

// Both formats take strings in double quotes with escapes of C. DOT also reads character entities, and "\l"
// as an end of line that aligns what stands before it to the left.
void GRAPH_WRITER::quoted(std::string_view text) {
    const bool several_lines = text.find('\n') != std::string_view::npos;
    const char* end_of_line = format_ == GRAPH_GDL ? "\\n" : "\\l";
    buffer_ += '"';
    for (const char c : text) {
        if (c == '\n') {
            buffer_ += end_of_line;
        } else if (c == '"' || c == '\\') {
            buffer_ += '\\';
            buffer_ += c;
        } else if (c == '&' && format_ == GRAPH_DOT) {
            buffer_ += "&amp;";
        } else if (is_printable(static_cast<unsigned char>(c))) {
            buffer_ += c;
        } else {
            append_hex(buffer_, "\\\\x", static_cast<unsigned char>(c));
        }
    }
    if (several_lines && format_ == GRAPH_DOT) buffer_ += end_of_line;
    buffer_ += '"';
}

void GRAPH_WRITER::flush(bool always) {
    if (!always && buffer_.size() < BUFFER_SIZE) return;
    if (std::fwrite(buffer_.data(), 1, buffer_.size(), stream_) != buffer_.size()) fail();
    buffer_.clear();
}

void GRAPH_WRITER::fail() const {
    std::fprintf(stderr, "opt5: cannot write graph %s: %s\n", path_.c_str(), std::strerror(errno));
    std::exit(1);
}

std::string graph_file_name(const char* output, const char* input, std::string_view part, const char* kind,
                            GRAPH_FORMAT format) {
    std::string name = is_regular_or_new(output) ? output : input;
    const std::size_t slash = name.rfind('/');
    const std::size_t first = slash == std::string::npos ? 0 : slash + 1;
    const std::size_t dot = name.rfind('.');
    if (dot != std::string::npos && dot > first) name.resize(dot);

    std::string fit;
    std::uint64_t hash = 0xcbf29ce484222325u; // FNV-1a
    for (const char c : part) {
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3u;
        const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                           c == '_' || c == '$' || c == '.';
        if (plain)
            fit += c;
        else
            append_hex(fit, "%", static_cast<unsigned char>(c));
    }
    constexpr std::size_t LONGEST = 120; // a component of a path has 255 bytes
    if (fit.size() > LONGEST) {
        char digits[24];
        std::snprintf(digits, sizeof digits, "~%016llx", static_cast<unsigned long long>(hash));
        fit.resize(LONGEST);
        fit += digits;
    }
    if (!fit.empty()) name += "." + fit;
    return name + "." + kind + (format == GRAPH_DOT ? ".dot" : ".gdl");
}

std::string shortened(std::string_view text, std::size_t limit) {
    if (text.size() <= limit) return std::string(text);
    return std::string(text.substr(0, limit)) + "...";
}
