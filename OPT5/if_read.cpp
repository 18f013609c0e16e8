// Reading an intermediate file: the container, its primitives and the records of a body.
//
// The reader trusts nothing. All bytes come through one window over the stream, whose limit is the end of
// the record at hand, so no field can run past its record and no record past the file. A count is compared
// with the bytes that are left before anything is sized by it. Trees are read with an explicit stack.

#include "if_file.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "base_node.h"
#include "pragma.h"
#include "types.h"

void (*if_fatal_hook)(const std::string& line) = nullptr;

void if_fatal(const std::string& line) {
    if (if_fatal_hook != nullptr) if_fatal_hook(line);
    std::fwrite(line.data(), 1, line.size(), stdout);
    if (line.empty() || line.back() != '\n') std::fputc('\n', stdout);
    std::exit(1);
}

namespace {

constexpr std::size_t WINDOW_SIZE = 32768;
constexpr char MAGIC[] = "!<icode>\n"; // 10 bytes with its zero

// Limits of the format on the sizes of arrays.
constexpr std::uint32_t MAX_STRINGS = 0x1fc00000;

} // namespace

void I_FILE::bad_file(const std::string& what) {
    if_fatal(name_ + ": offset " + std::to_string(if_tell()) + ": " + what);
}

I_FILE::~I_FILE() = default;

// --- The window.

void I_FILE::set_limit() {
    limit_ = window_end_;
    if (record_end_ >= 0) {
        const long in_window = record_end_ - window_offset_;
        if (in_window < window_end_ - window_.data()) limit_ = window_.data() + std::max(in_window, 0L);
    }
}

unsigned char I_FILE::get_slow() {
    const long position = window_offset_ + (cursor_ - window_.data());
    if (position == record_end_) bad_file("a field runs past the end of its record");
    window_offset_ = position;
    const std::size_t n = std::fread(window_.data(), 1, WINDOW_SIZE, stream_);
    cursor_ = window_.data();
    window_end_ = cursor_ + n;
    set_limit();
    if (n == 0) bad_file("unexpected end of file");
    return *cursor_++;
}

long I_FILE::if_tell() { return writing_ ? written_ : window_offset_ + (cursor_ - window_.data()); }

void I_FILE::if_seek(long offset) {
    if (writing_) {
        put_out();
        if (std::fseek(stream_, base_ + offset, SEEK_SET) != 0) write_failed_ = true;
        written_ = offset;
        return;
    }
    record_end_ = -1;
    if (offset >= window_offset_ && offset <= window_offset_ + (window_end_ - window_.data())) {
        cursor_ = window_.data() + (offset - window_offset_);
    } else {
        if (offset < 0 || offset > end_ || std::fseek(stream_, base_ + offset, SEEK_SET) != 0)
            bad_file("cannot seek to offset " + std::to_string(offset));
        window_offset_ = offset;
        cursor_ = window_end_ = window_.data();
    }
    set_limit();
}

std::uint64_t I_FILE::bytes_left() { return static_cast<std::uint64_t>(std::max(0L, end_ - if_tell())); }

// --- Primitives.

I_FILE::RECORD_HEADER I_FILE::i_read_header() {
    if (record_end_ >= 0) {
        if (if_tell() == record_end_) {
            record_end_ = -1;
            limit_ = window_end_;
        } else {
            if_seek(record_end_); // skips what a newer writer may have added to the record
        }
    }
    const int id = get();
    if (id == REC_EOF) return {id, 0};
    const std::uint32_t size = i_read_uint();
    if (size > bytes_left()) bad_file("record " + std::to_string(id) + " runs past the end of the file");
    record_end_ = if_tell() + static_cast<long>(size);
    set_limit();
    return {id, size};
}

unsigned I_FILE::i_read_u16() {
    const unsigned low = get();
    return low | (static_cast<unsigned>(get()) << 8);
}

int I_FILE::i_read_s16() { return static_cast<std::int16_t>(i_read_u16()); }

std::uint32_t I_FILE::i_read_u32() {
    const std::uint32_t low = i_read_u16();
    return low | (static_cast<std::uint32_t>(i_read_u16()) << 16);
}

std::int32_t I_FILE::i_read_s32() { return static_cast<std::int32_t>(i_read_u32()); }

std::uint32_t I_FILE::read_long_uint() {
    unsigned char byte = get();
    if (byte < 0x80) return byte;
    std::uint32_t value = byte & 0x7fu;
    for (unsigned shift = 7; shift < 35; shift += 7) {
        byte = get();
        if (shift < 32) value |= static_cast<std::uint32_t>(byte & 0x7fu) << shift;
        if (byte < 0x80) return value;
    }
    bad_file("a number has more than five bytes");
}

std::int32_t I_FILE::read_long_sint() {
    std::uint32_t value = 0;
    for (unsigned shift = 0; shift < 35; shift += 7) {
        const unsigned char byte = get();
        if (shift < 32) value |= static_cast<std::uint32_t>(byte & 0x7fu) << shift;
        if (byte < 0x80) {
            if (shift + 7 < 32 && (byte & 0x40) != 0) value |= ~0u << (shift + 7);
            return static_cast<std::int32_t>(value);
        }
    }
    bad_file("a number has more than five bytes");
}

const char* I_FILE::i_read_string() {
    scratch_.clear();
    for (;;) {
        // Whole stretches of the window at a time.
        if (cursor_ == limit_) {
            const unsigned char byte = get_slow();
            if (byte == 0) break;
            scratch_.push_back(static_cast<char>(byte));
            continue;
        }
        const auto room = static_cast<std::size_t>(limit_ - cursor_);
        const void* zero = std::memchr(cursor_, 0, room);
        const auto length = zero == nullptr
                                ? room
                                : static_cast<std::size_t>(static_cast<const unsigned char*>(zero) - cursor_);
        scratch_.append(reinterpret_cast<const char*>(cursor_), length);
        cursor_ += length;
        if (zero != nullptr) {
            cursor_++;
            break;
        }
    }
    return scratch_.c_str();
}

const char* I_FILE::i_read_string(unsigned n) {
    if (n > bytes_left()) bad_file("a text runs past the end of the file");
    scratch_.resize(n);
    i_read_raw(scratch_.data(), n);
    return scratch_.c_str();
}

void I_FILE::i_read_raw(void* to, unsigned n) {
    auto* bytes = static_cast<unsigned char*>(to);
    while (n > 0) {
        if (cursor_ == limit_) {
            *bytes++ = get_slow();
            n--;
            continue;
        }
        const auto chunk = std::min<std::size_t>(n, static_cast<std::size_t>(limit_ - cursor_));
        std::memcpy(bytes, cursor_, chunk);
        cursor_ += chunk;
        bytes += chunk;
        n -= static_cast<unsigned>(chunk);
    }
}

void I_FILE::i_read_skip(unsigned n) {
    const long to = if_tell() + static_cast<long>(n);
    const long record_end = record_end_;
    if (to > (record_end >= 0 ? record_end : end_)) bad_file("a skip runs past the end of its record");
    if_seek(to);
    record_end_ = record_end;
    set_limit();
}

bool I_FILE::i_read_psn(PSN& psn) {
    const std::uint32_t file = i_read_uint();
    if (file == 0) return false;
    if (file >= file_names_.size()) bad_file("file number " + std::to_string(file) + " is not in the table");
    psn.file = file_names_[file];
    psn.line = i_read_uint();
    psn.column = i_read_uint();
    return true;
}

TYPE* I_FILE::i_read_typeref() { return find_typeref(i_read_uint()); }

const char* I_FILE::i_get_file_name(unsigned id) const {
    return id == 0 || id >= file_names_.size() ? nullptr : file_names_[id];
}

unsigned I_FILE::i_get_file_id(const char* name) const {
    const auto found = file_ids_.find(intern_text(name));
    return found == file_ids_.end() ? 0 : found->second;
}

// --- Opening.

bool I_FILE::read_header_record(IF_CLIENT* client) {
    // A file that is no file of ours is refused, not reported: nothing here may run past the bytes.
    if (end_ < 2 || get() != REC_HEADER) return false;
    std::uint32_t size = 0;
    for (unsigned shift = 0;; shift += 7) {
        if (shift > 28 || if_tell() >= end_) return false;
        const unsigned char byte = get();
        size |= static_cast<std::uint32_t>(byte & 0x7fu) << shift;
        if (byte < 0x80) break;
    }
    constexpr unsigned FIXED = sizeof MAGIC + 4 + 5 * 4; // up to the producer
    if (size > bytes_left() || size < FIXED + 1) return false;
    const long record_end = if_tell() + static_cast<long>(size);
    char magic[sizeof MAGIC];
    i_read_raw(magic, sizeof magic);
    if (std::memcmp(magic, MAGIC, sizeof MAGIC) != 0) return false;
    version_ = i_read_s16();
    const int cpu = i_read_s16();
    if (cpu != ICODE_CPU_ID || version_ > ICODE_VERSION) return false;
    sections_.options = i_read_u32();
    sections_.inits = i_read_u32();
    sections_.types = i_read_u32();
    sections_.files = i_read_u32();
    sections_.symbols = i_read_u32();
    std::string producer(static_cast<std::size_t>(record_end - if_tell()), '\0');
    i_read_raw(producer.data(), static_cast<unsigned>(producer.size()));
    const std::size_t end_of_text = producer.find('\0');
    if (end_of_text == std::string::npos) return false;
    producer_ = producer.substr(0, end_of_text);
    if (version_ >= -83) {
        if (producer.size() < end_of_text + 5) return false;
        for (unsigned i = 0; i < 4; i++)
            extra_ |= static_cast<std::uint32_t>(static_cast<unsigned char>(producer[end_of_text + 1 + i]))
                      << (8 * i);
    }
    body_offset_ = static_cast<std::uint32_t>(record_end);
    return client->cl_magic();
}

I_FILE* I_FILE::if_open(std::FILE* stream, IF_CLIENT* client, const char* name) {
    const auto drop = [](I_FILE* file) { delete file; };
    std::unique_ptr<I_FILE, decltype(drop)> file(new I_FILE, drop);
    file->name_ = name;
    file->stream_ = stream;
    file->client_ = client;
    file->file_names_.push_back(nullptr);
    file->window_.resize(WINDOW_SIZE);
    file->cursor_ = file->limit_ = file->window_end_ = file->window_.data();
    file->base_ = std::ftell(stream);
    bool readable = file->base_ >= 0 && std::fseek(stream, 0, SEEK_END) == 0;
    if (readable) {
        file->end_ = std::ftell(stream) - file->base_;
        // A directory opens like a file and claims an absurd size; offsets of the format have 32 bits.
        readable = file->end_ >= 0 && file->end_ <= static_cast<long>(UINT32_MAX) &&
                   std::fseek(stream, file->base_, SEEK_SET) == 0;
    }
    if (!readable || !file->read_header_record(client)) return nullptr;
    file->record_end_ = -1;
    file->if_seek(file->body_offset_);
    if_node_table_init();
    client->cl_source(name);
    file->if_read_options();
    return file.release();
}

// --- Sections.

void I_FILE::begin_section(std::uint32_t offset, const char* what) {
    if (offset < body_offset_ || offset >= end_)
        bad_file(std::string("the ") + what + " section lies outside the file");
    if_seek(static_cast<long>(offset));
}

void I_FILE::if_read_options() {
    if (sections_.options == 0) return;
    const long position = if_tell();
    begin_section(sections_.options, "option");
    for (;;) {
        const RECORD_HEADER header = i_read_header();
        if (header.id == REC_EOF) break;
        if (header.id != REC_OPTION_SET)
            bad_file("record " + std::to_string(header.id) + " among the option sets");
        dispatch(header);
    }
    if_seek(position);
}

void I_FILE::if_read_file_names() {
    if (sections_.files == 0) return;
    const long position = if_tell();
    begin_section(sections_.files, "file-name");
    for (;;) {
        const RECORD_HEADER header = i_read_header();
        if (header.id == REC_EOF) break;
        if (header.id != REC_SOURCE)
            bad_file("record " + std::to_string(header.id) + " among the file names");
        const char* name = intern_text(i_read_string());
        file_ids_.emplace(name, static_cast<unsigned>(file_names_.size()));
        file_names_.push_back(name);
    }
    if_seek(position);
}

void I_FILE::if_read_all_init() {
    if (sections_.inits == 0) return;
    const long position = if_tell();
    begin_section(sections_.inits, "initialiser");
    for (;;) {
        const RECORD_HEADER header = i_read_header();
        if (header.id == REC_EOF) break;
        if (header.id != REC_INIT)
            bad_file("record " + std::to_string(header.id) + " among the initialisers");
        if_read_init();
    }
    if_seek(position);
}

void I_FILE::if_read_globals() {
    const long position = if_tell();
    begin_section(sections_.symbols, "symbol");
    for (;;) {
        const RECORD_HEADER header = i_read_header();
        if (header.id == REC_EOF) break;
        if (header.id != REC_SYMBOL) bad_file("record " + std::to_string(header.id) + " among the symbols");
        if_read_symbol_def();
    }
    if_seek(position);
}

void I_FILE::if_read_file() {
    if_read_file_names();
    if_read_type_defs();
    client_->cl_merge_type_defs();
    if_read_globals();
    if_read_all_init();
    client_->cl_preprocess_statics();
    if_seek(body_offset_);
    while (if_read_record() != REC_EOF) {
    }
    if (level_ != 0) bad_file("the body ends inside a function");
    need_complete_types();
}

void I_FILE::if_read_func(long offset) {
    if (offset != 0) if_seek(offset);
    for (;;) {
        const int id = if_read_record();
        if (id == REC_END_FUNC) return;
        if (id == REC_EOF) bad_file("the body ends inside a function");
    }
}

void I_FILE::if_skip_func() {
    for (;;) {
        const RECORD_HEADER header = i_read_header();
        if (header.id == REC_EOF) bad_file("the body ends inside a function");
        i_read_skip(header.size);
        if (header.id == REC_END_FUNC) return;
    }
}

// --- Records of a body.

void I_FILE::need_function(const char* what) {
    if (level_ == 0) bad_file(std::string(what) + " stands outside a function");
}

void I_FILE::enter_function(bool of_instructions) {
    if (level_ != 0) bad_file("a function begins inside another");
    level_ = 1;
    of_instructions_ = of_instructions;
    locals_.clear();
}

void I_FILE::leave_function(bool of_instructions) {
    need_function("an end of function");
    if (of_instructions_ != of_instructions) bad_file("a function ends that is of another kind");
    level_ = 0;
    locals_.clear(); // what follows cannot name them: a client frees them with their function
}

int I_FILE::if_read_record() {
    const RECORD_HEADER header = i_read_header();
    if (header.id != REC_EOF) dispatch(header);
    return header.id;
}

void I_FILE::dispatch(const RECORD_HEADER& header) {
    PSN position{};
    const auto psn = [&]() -> const PSN* { return i_read_psn(position) ? &position : nullptr; };
    switch (header.id) {
        case REC_BEGIN_FUNC: {
            const PSN* at = psn();
            const std::uint32_t index = i_read_uint();
            if (index >= globals_.size())
                bad_file("function symbol " + std::to_string(index) + " is not in the table");
            enter_function(false);
            client_->cl_begin_func(globals_[index], at);
            break;
        }
        case REC_END_FUNC: {
            const PSN* at = psn();
            leave_function(false);
            client_->cl_end_func(at);
            break;
        }
        case REC_BEGIN_BLOCK: {
            const PSN* at = psn();
            need_function("a block");
            client_->cl_begin_block(at);
            level_++;
            break;
        }
        case REC_END_BLOCK: {
            const PSN* at = psn();
            if (level_ < 3) bad_file("a block ends that was not begun");
            client_->cl_end_block(at);
            level_--;
            break;
        }
        case REC_END_ARGS: {
            const PSN* at = psn();
            if (level_ != 1) bad_file("the arguments end twice or outside a function");
            client_->cl_end_args(at);
            level_ = 2;
            break;
        }
        case REC_END_LOCALS: {
            const PSN* at = psn();
            need_function("an end of locals");
            client_->cl_end_locals(at);
            break;
        }
        case REC_INSTRUCTION: client_->cl_ir_ins(psn()); break;
        case REC_SYMBOL: if_read_symbol_def(); break;
        case REC_INLINE_ASM: {
            const std::string text = i_read_string();
            need_function("assembly text");
            client_->cl_inline_asm(text.c_str(), psn());
            break;
        }
        case REC_LOOP: {
            unsigned fields[5];
            for (unsigned& field : fields) field = i_read_uint();
            client_->cl_loop_def(fields[0], fields[1], fields[2], fields[3], fields[4], i_read_u16());
            break;
        }
        case REC_LABEL: {
            const std::uint32_t number = i_read_uint();
            need_function("a label");
            client_->cl_label(number);
            break;
        }
        case REC_MBANK: {
            unsigned fields[5];
            for (unsigned& field : fields) field = i_read_uint();
            client_->cl_mbank(fields[0], fields[1], fields[2], fields[3], fields[4]);
            break;
        }
        case REC_EXPR: {
            const PSN* at = psn();
            need_function("an expression");
            client_->cl_expr(if_read_expr_node(true), at);
            break;
        }
        case REC_COMMENT: client_->cl_comment(i_read_string()); break;
        case REC_DD_EDGE: {
            const unsigned a = i_read_uint(), b = i_read_uint();
            client_->cl_dd_edge(a, b, i_read_uint());
            break;
        }
        case REC_DD_VECTOR: {
            const unsigned index = i_read_uint(), kind = i_read_u8(), count = i_read_u8();
            std::vector<std::pair<std::uint8_t, std::int8_t>> entries;
            for (unsigned i = 0; i < count; i++) {
                const auto direction = static_cast<std::uint8_t>(i_read_u8());
                entries.emplace_back(direction, static_cast<std::int8_t>(i_read_s8()));
            }
            client_->cl_dd_vector(index, kind, entries);
            break;
        }
        case REC_FUNC_INFO: client_->cl_func_info(i_read_s8()); break;
        case REC_EHT: if_read_eht(); break;
        case REC_PRAGMA: if_read_pragma(nullptr); break;
        case REC_INIT: if_read_init(); break;
        case REC_LDSPEC: read_ldspec(); break;
        case REC_OPTION_SET: {
            OPTION_SET set;
            set.number = i_read_uint();
            const std::uint32_t count = i_read_uint();
            if (count > MAX_STRINGS || count > bytes_left()) bad_file("bad array length of an option set");
            for (std::uint32_t i = 0; i < count; i++) set.words.emplace_back(i_read_string());
            client_->cl_option_set(set.number, set.words);
            option_sets_.push_back(std::move(set));
            break;
        }
        case REC_TYPE: if_read_type(); break;
        case REC_IR_BEGIN_FUNC: {
            const unsigned a = i_read_uint();
            const int b = i_read_sint(), c = i_read_s8();
            const unsigned d = i_read_uint();
            const PSN* at = psn();
            enter_function(true);
            client_->cl_ir_begin_func(a, b, c, d, at);
            break;
        }
        case REC_INLOOP: {
            const unsigned loop = i_read_uint();
            const int level = i_read_sint(), index = i_read_sint();
            client_->cl_loop_header(loop, level, index, i_read_u8());
            break;
        }
        case REC_IR_END_FUNC: {
            const PSN* at = psn();
            leave_function(true);
            client_->cl_ir_end_func(at);
            break;
        }
        case REC_SOURCE: client_->cl_source(i_read_string()); break;
        default: std::printf("\n///ERROR @0x%lx\n\n", static_cast<unsigned long>(if_tell())); break;
    }
}

void I_FILE::read_ldspec() {
    const unsigned index = i_read_uint(), kind = i_read_u8();
    const auto read_symbol = [&]() -> I_SYMTAB* {
        const std::int32_t level = i_read_sint();
        const std::uint32_t number = i_read_uint();
        return level < 0 ? nullptr : find_symbol(static_cast<std::uint32_t>(level), number);
    };
    if (kind == 0) {
        const unsigned loop = i_read_uint();
        const int stride = i_read_sint();
        TYPE* type = i_read_typeref();
        client_->cl_ldspec_induct(index, loop, stride, type, read_symbol());
    } else if (kind == 1) {
        const unsigned a = i_read_uint(), b = i_read_uint();
        TYPE* type = i_read_typeref();
        client_->cl_ldspec_rand(index, a, b, type, read_symbol());
    } else if (kind == 2) {
        client_->cl_ldspec_region(index, i_read_uint());
    } else {
        bad_file("load speculation of kind " + std::to_string(kind));
    }
}

int I_FILE::if_check_lengths() {
    struct PLACE {
        long offset = 0;
        int id = 0, size = 0;
    } previous;
    if_seek(body_offset_);
    for (;;) {
        PLACE here;
        here.offset = if_tell();
        const RECORD_HEADER header = i_read_header();
        if (header.id == REC_EOF) return 1;
        here.id = header.id;
        here.size = static_cast<int>(header.size);
        static const bool* known = [] {
            static bool table[256] = {};
            for (int id : {1,  2,  3,  4,  5,  6,  34,  35,  36,  38,  42,  45,  46,  47,  58,
                           59, 63, 64, 91, 93, 94, 101, 105, 108, 111, 116, 123, 124, 125, 126})
                table[id] = true;
            return table;
        }();
        if (!known[header.id]) {
            std::printf(">>I-file error:@%ld,id=%d,sz=%d,prev [@%ld,id=%d,sz=%d]\n", here.offset, here.id,
                        here.size, previous.offset, previous.id, previous.size);
            return 0;
        }
        i_read_skip(header.size);
        previous = here;
    }
}
