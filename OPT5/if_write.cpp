// Writing an intermediate file: the container, its primitives and the plain records.
//
// A record is put together in memory, because its size stands in front of it, and goes to the stream whole.

#include <cstdlib>
#include <cstring>
#include <memory>

#include "base_node.h"
#include "if_file.h"
#include "pragma.h"
#include "types.h"

namespace {

constexpr std::size_t BUFFER_SIZE = 32768;
constexpr char MAGIC[] = "!<icode>\n"; // 10 bytes with its zero

} // namespace

// --- Primitives.

void I_FILE::grow(std::size_t n) {
    const std::size_t needed = used_ + n;
    buffer_.resize(needed > 2 * buffer_.size() ? needed : 2 * buffer_.size());
}

void I_FILE::append(const void* bytes, std::size_t n) {
    if (n == 0) return;
    if (n > buffer_.size() - used_) grow(n);
    std::memcpy(&buffer_[used_], bytes, n);
    used_ += n;
}

void I_FILE::put_out() {
    if (fwrite_unlocked(out_.data(), 1, out_used_, stream_) != out_used_) write_failed_ = true;
    out_used_ = 0;
}

void I_FILE::put(const void* bytes, std::size_t n) {
    written_ += static_cast<long>(n);
    if (n > out_.size() - out_used_) {
        put_out();
        if (n > out_.size()) {
            if (fwrite_unlocked(bytes, 1, n, stream_) != n) write_failed_ = true;
            return;
        }
    }
    if (n != 0) std::memcpy(&out_[out_used_], bytes, n);
    out_used_ += n;
}

void I_FILE::i_write_i16(int value) {
    if (value < -32768 || value > 65535) if_fatal(">> Value exceeds size of short\n");
    append(static_cast<unsigned char>(value));
    append(static_cast<unsigned char>(value >> 8));
}

void I_FILE::i_write_i32(std::uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8) append(static_cast<unsigned char>(value >> shift));
}

void I_FILE::i_write_sint(std::int32_t value) {
    for (;;) {
        const auto group = static_cast<unsigned char>(value & 0x7f);
        value >>= 7;
        const bool rest_is_sign = (value == 0 && (group & 0x40) == 0) || (value == -1 && (group & 0x40) != 0);
        if (rest_is_sign) {
            append(group);
            return;
        }
        append(group | 0x80);
    }
}

void I_FILE::i_write_string(const char* text) { append(text, std::strlen(text) + 1); }
void I_FILE::i_write_string(const char* bytes, unsigned n) { append(bytes, n); }

void I_FILE::i_write_raw(const void* bytes, unsigned n) { put(bytes, n); }

void I_FILE::i_write_psn(const PSN* psn) {
    if (psn == nullptr) {
        i_write_uint(0);
        return;
    }
    i_write_uint(i_enter_file_name(psn->file != nullptr ? psn->file : "NO_FILE"));
    i_write_uint(psn->line);
    i_write_uint(psn->column);
}

void I_FILE::i_write_typeref(TYPE* type) {
    if (type == nullptr) {
        i_write_uint(0);
        return;
    }
    TYPE* representative = type->equiv_end();
    representative->set_referenced();
    i_write_uint(representative->uid());
}

void I_FILE::i_flush(int id) {
    unsigned char head[8];
    std::size_t n = 0;
    head[n++] = static_cast<unsigned char>(id);
    auto size = static_cast<std::uint32_t>(used_);
    while (size >= 0x80) {
        head[n++] = static_cast<unsigned char>(size | 0x80);
        size >>= 7;
    }
    head[n++] = static_cast<unsigned char>(size);
    put(head, n);
    put(buffer_.data(), used_);
    used_ = 0;
}

void I_FILE::i_write_eof() {
    const unsigned char end = REC_EOF;
    put(&end, 1);
}

void I_FILE::if_flush() {
    put_out();
    if (std::fflush(stream_) != 0) write_failed_ = true;
}

// --- Creation and close.

I_FILE* I_FILE::if_create(std::FILE* stream, TYPE_PKG* types, const char* producer, const char* name) {
    const auto drop = [](I_FILE* file) { delete file; };
    std::unique_ptr<I_FILE, decltype(drop)> file(new I_FILE, drop);
    file->name_ = name;
    file->stream_ = stream;
    file->writing_ = true;
    file->tp_ = types;
    file->producer_ = producer;
    file->file_names_.push_back(nullptr);
    file->base_ = std::ftell(stream);
    if (file->base_ < 0) if_fatal(file->name_ + ": cannot seek in the output");
    std::setvbuf(stream, nullptr, _IONBF, 0); // whole blocks reach it
    file->buffer_.resize(BUFFER_SIZE);
    file->out_.resize(BUFFER_SIZE);
    if_node_table_init();
    file->if_write_magic();
    file->body_offset_ = static_cast<std::uint32_t>(file->written_);
    return file.release();
}

void I_FILE::if_write_magic() {
    i_write_string(MAGIC);
    i_write_i16(version_);
    i_write_i16(ICODE_CPU_ID);
    i_write_i32(sections_.options);
    i_write_i32(sections_.inits);
    i_write_i32(sections_.types);
    i_write_i32(sections_.files);
    i_write_i32(sections_.symbols);
    i_write_string(producer_.c_str());
    if (version_ >= -83) i_write_i32(extra_);
    i_flush(REC_HEADER);
}

int I_FILE::if_close(I_FILE* file, bool abandon) {
    if (file->writing_ && !abandon) {
        file->i_write_eof(); // of the body, or of the initialiser section if there is one
        file->if_write_all_options();
        file->if_write_all_types();
        file->if_write_all_files();
        file->if_write_all_globals();
        if (file->written_ > static_cast<long>(UINT32_MAX)) file->write_failed_ = true;
        file->if_seek(0);
        file->if_write_magic();
        file->put_out();
    }
    std::FILE* stream = file->stream_;
    const bool writing = file->writing_;
    int result = file->write_failed_ ? 1 : 0;
    delete file;
    if (writing && std::fflush(stream) != 0) result = 1;
    if (std::ferror(stream) != 0) result = 1;
    if (std::fclose(stream) != 0) result = 1;
    return result;
}

void I_FILE::if_write_all_options() {
    if (option_sets_.empty()) return;
    sections_.options = static_cast<std::uint32_t>(if_tell());
    for (const OPTION_SET& set : option_sets_) {
        i_write_uint(set.number);
        i_write_uint(static_cast<std::uint32_t>(set.words.size()));
        for (const std::string& word : set.words) i_write_string(word.c_str());
        i_flush(REC_OPTION_SET);
    }
    i_write_eof();
}

void I_FILE::if_write_all_files() {
    // The positions of the symbols' records are still to be written: their files join the table first.
    for (const I_SYMTAB* symbol : globals_)
        if (symbol->sym_psn() != nullptr) {
            const char* name = symbol->sym_psn()->file;
            i_enter_file_name(name != nullptr ? name : "NO_FILE");
        }
    if (file_names_.size() <= 1) return;
    sections_.files = static_cast<std::uint32_t>(if_tell());
    for (std::size_t number = 1; number < file_names_.size(); number++) if_write_source(file_names_[number]);
    i_write_eof();
}

void I_FILE::if_write_all_globals() {
    sections_.symbols = static_cast<std::uint32_t>(if_tell());
    for (I_SYMTAB* symbol : globals_) if_write_symbol(symbol);
    i_write_eof();
}

unsigned I_FILE::i_enter_file_name(const char* name) {
    const char* interned = intern_text(name);
    const auto [entry, is_new] = file_ids_.emplace(interned, static_cast<unsigned>(file_names_.size()));
    if (is_new) file_names_.push_back(interned);
    return entry->second;
}

void I_FILE::if_enter_option_set(unsigned number, const std::vector<std::string>& words) {
    option_sets_.push_back({number, words});
}

// --- Plain records.

void I_FILE::if_write_begin_func(I_SYMTAB* function, const PSN* psn) {
    function->set_location(static_cast<unsigned>(if_tell()));
    i_write_psn(psn);
    i_write_uint(function->index);
    i_flush(REC_BEGIN_FUNC);
    level_ = 1;
    locals_.clear();
}

void I_FILE::if_write_control(int id, const PSN* psn) {
    i_write_psn(psn);
    i_flush(id);
    switch (id) {
        case REC_END_FUNC: level_ = 0; break;
        case REC_BEGIN_BLOCK: level_++; break;
        case REC_END_BLOCK: level_--; break;
        case REC_END_ARGS: level_ = 2; break;
        default: break;
    }
}

void I_FILE::if_write_end_func(const PSN* psn) { if_write_control(REC_END_FUNC, psn); }
void I_FILE::if_write_begin_block(const PSN* psn) { if_write_control(REC_BEGIN_BLOCK, psn); }
void I_FILE::if_write_end_block(const PSN* psn) { if_write_control(REC_END_BLOCK, psn); }
void I_FILE::if_write_end_args(const PSN* psn) { if_write_control(REC_END_ARGS, psn); }
void I_FILE::if_write_end_locals(const PSN* psn) { if_write_control(REC_END_LOCALS, psn); }

void I_FILE::if_write_label(unsigned number) {
    i_write_uint(number);
    i_flush(REC_LABEL);
}

void I_FILE::if_write_assembly(const char* text, const PSN* psn) {
    i_write_string(text);
    i_write_psn(psn);
    i_flush(REC_INLINE_ASM);
}

void I_FILE::if_write_source(const char* name) {
    i_write_string(name);
    i_flush(REC_SOURCE);
}

void I_FILE::if_write_comment(const char* text) {
    i_write_string(text);
    i_flush(REC_COMMENT);
}

void I_FILE::if_write_func_info(int value) {
    i_write_i8(value);
    i_flush(REC_FUNC_INFO);
}

void I_FILE::if_write_loop(unsigned loop, unsigned head, unsigned parent, unsigned trips, unsigned flags,
                           unsigned last) {
    for (unsigned field : {loop, head, parent, trips, flags}) i_write_uint(field);
    i_write_i16(static_cast<int>(last));
    i_flush(REC_LOOP);
}

void I_FILE::if_write_inloop(unsigned loop, int level, int index, unsigned kind) {
    i_write_uint(loop);
    i_write_sint(level);
    i_write_sint(index);
    i_write_i8(static_cast<int>(kind));
    i_flush(REC_INLOOP);
}

void I_FILE::if_write_dep_vector(unsigned index, unsigned kind,
                                 const std::vector<std::pair<std::uint8_t, std::int8_t>>& entries) {
    if (entries.size() > 255) if_fatal(name_ + ": a dependence vector of more than 255 entries");
    i_write_uint(index);
    i_write_i8(static_cast<int>(kind));
    i_write_i8(static_cast<int>(entries.size()));
    for (const auto& [direction, distance] : entries) {
        i_write_i8(direction);
        i_write_i8(distance);
    }
    i_flush(REC_DD_VECTOR);
}

void I_FILE::if_write_dep_edge(unsigned from, unsigned to, unsigned vector) {
    for (unsigned field : {from, to, vector}) i_write_uint(field);
    i_flush(REC_DD_EDGE);
}

void I_FILE::if_write_mbank(unsigned a, unsigned b, unsigned c, unsigned d, unsigned e) {
    for (unsigned field : {a, b, c, d, e}) i_write_uint(field);
    i_flush(REC_MBANK);
}

namespace {

// Kinds of load speculation.
enum LDSPEC_KIND : int { LDSPEC_INDUCTION = 0, LDSPEC_RANDOM = 1, LDSPEC_REGION = 2 };

} // namespace

void I_FILE::if_write_ldspec_induct(unsigned index, unsigned loop, int stride, TYPE* type, I_SYMTAB* symbol) {
    i_write_uint(index);
    i_write_i8(LDSPEC_INDUCTION);
    i_write_uint(loop);
    i_write_sint(stride);
    i_write_typeref(type);
    i_write_sint(symbol != nullptr ? symbol->sym_level() : -1);
    i_write_uint(symbol != nullptr ? symbol->index : 0);
    i_flush(REC_LDSPEC);
}

void I_FILE::if_write_ldspec_rand(unsigned index, unsigned a, unsigned b, TYPE* type, I_SYMTAB* symbol) {
    i_write_uint(index);
    i_write_i8(LDSPEC_RANDOM);
    i_write_uint(a);
    i_write_uint(b);
    i_write_typeref(type);
    i_write_sint(symbol != nullptr ? symbol->sym_level() : -1);
    i_write_uint(symbol != nullptr ? symbol->index : 0);
    i_flush(REC_LDSPEC);
}

void I_FILE::if_write_ldspec_region(unsigned index, unsigned region) {
    i_write_uint(index);
    i_write_i8(LDSPEC_REGION);
    i_write_uint(region);
    i_flush(REC_LDSPEC);
}

// --- Copying between files.

void I_FILE::if_copy_raw(long offset, long length, I_FILE* to) {
    constexpr long BLOCK = 8192;
    std::vector<unsigned char> block(BLOCK);
    const long position = if_tell();
    if_seek(offset);
    while (length > 0) {
        const auto n = static_cast<unsigned>(length < BLOCK ? length : BLOCK);
        i_read_raw(block.data(), n);
        to->i_write_raw(block.data(), n);
        length -= n;
    }
    if_seek(position);
}

void I_FILE::if_copy_symbols(I_FILE* to) {
    const long position = if_tell();
    begin_section(sections_.symbols, "symbol");
    const long start = if_tell();
    long end = start;
    for (;;) {
        const RECORD_HEADER header = i_read_header();
        if (header.id == REC_EOF) break;
        i_read_skip(header.size);
        end = if_tell();
    }
    if_copy_raw(start, end - start, to);
    if_seek(position);
}
