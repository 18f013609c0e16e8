// The file layer: primitive encodings, the container, every kind of record, and what damage does to it.

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include "OPT5/base_node.h"
#include "OPT5/if_file.h"
#include "OPT5/pragma.h"
#include "OPT5/types.h"
#include "tests/unit/file_fixture.h"
#include "tools/model/program.h"
#include "tools/model/tree.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

// Writes down every call-back as one line.
class recorder final : public IF_CLIENT {
  public:
    model::pool nodes;
    std::vector<std::string> log;
    std::vector<model::tree*> exprs;
    std::vector<model::symbol*> symbols;

    BASE_NODE* cl_new_node(int op, TYPE* type) override { return nodes.new_tree(op, type); }
    I_SYMTAB* cl_symbol_create(const SYMBOL_RECORD& record) override {
        model::symbol* s = nodes.new_symbol();
        s->name = record.name;
        s->type = record.type;
        symbols.push_back(s);
        log.push_back("symbol " + s->name + " level " + std::to_string(record.level) + " class " +
                      std::to_string(record.sclass) + " retention " + std::to_string(record.retention));
        return s;
    }
    void cl_pragma(I_SYMTAB* owner, PRAGMA* pragma) override {
        nodes.adopt(pragma);
        std::string line = std::string("pragma ") + pragma->name();
        for (const std::string& arg : pragma->args) line += " " + arg;
        log.push_back(line + (owner != nullptr ? " of " + std::string(owner->sym_name()) : ""));
    }
    void cl_symbol_init(I_SYMTAB* symbol, INIT_TREES&& trees) override {
        log.push_back(std::string("init ") + symbol->sym_name() + " " + std::to_string(trees.size()));
    }
    void cl_option_set(unsigned number, const std::vector<std::string>& words) override {
        std::string line = "options " + std::to_string(number);
        for (const std::string& word : words) line += " " + word;
        log.push_back(line);
    }
    void cl_begin_func(I_SYMTAB* f, const PSN* psn) override {
        log.push_back(std::string("begin ") + f->sym_name() + at(psn));
    }
    void cl_end_func(const PSN* psn) override { log.push_back("end" + at(psn)); }
    void cl_begin_block(const PSN* psn) override { log.push_back("{" + at(psn)); }
    void cl_end_block(const PSN* psn) override { log.push_back("}" + at(psn)); }
    void cl_end_args(const PSN* psn) override { log.push_back("args" + at(psn)); }
    void cl_end_locals(const PSN* psn) override { log.push_back("locals" + at(psn)); }
    void cl_expr(BASE_NODE* tree, const PSN* psn) override {
        exprs.push_back(static_cast<model::tree*>(tree));
        std::string line = "expr " + std::to_string(tree->node_op()) + at(psn);
        const model::tree* lvalue = exprs.back()->left;
        if (lvalue != nullptr && lvalue->op == op::STREF)
            line += std::string(" .") + lvalue->right->member->name;
        log.push_back(line);
    }
    void cl_label(unsigned number) override { log.push_back("label " + std::to_string(number)); }
    void cl_inline_asm(const char* text, const PSN* psn) override {
        log.push_back(std::string("asm ") + text + at(psn));
    }
    void cl_comment(const char* text) override { log.push_back(std::string("comment ") + text); }
    void cl_func_info(int value) override { log.push_back("info " + std::to_string(value)); }
    void cl_func_eht(std::vector<EHT_ENTRY>&& entries) override {
        std::string line = "eht";
        for (const EHT_ENTRY& entry : entries) {
            line += " " + std::to_string(entry.kind);
            for (const I_CATCH_ENTRY& item : entry.catches) line += "(" + item.type_name + ")";
        }
        log.push_back(line);
    }
    void cl_loop_def(unsigned a, unsigned b, unsigned c, unsigned d, unsigned e, unsigned f) override {
        log.push_back("loop " + std::to_string(a + 10 * b + 100 * c + 1000 * d + 10000 * e) + " " +
                      std::to_string(f));
    }
    void cl_loop_header(unsigned loop, int level, int index, unsigned kind) override {
        log.push_back("inloop " + std::to_string(loop) + " " + std::to_string(level) + " " +
                      std::to_string(index) + " " + std::to_string(kind));
    }
    void cl_dd_vector(unsigned index, unsigned kind,
                      const std::vector<std::pair<std::uint8_t, std::int8_t>>& entries) override {
        std::string line = "vector " + std::to_string(index) + " " + std::to_string(kind);
        for (const auto& [direction, distance] : entries)
            line += " " + std::to_string(direction) + ":" + std::to_string(distance);
        log.push_back(line);
    }
    void cl_dd_edge(unsigned a, unsigned b, unsigned c) override {
        log.push_back("edge " + std::to_string(a) + " " + std::to_string(b) + " " + std::to_string(c));
    }
    void cl_mbank(unsigned a, unsigned, unsigned, unsigned, unsigned e) override {
        log.push_back("bank " + std::to_string(a) + " " + std::to_string(e));
    }
    void cl_ldspec_induct(unsigned a, unsigned, int stride, TYPE*, I_SYMTAB* s) override {
        log.push_back("induct " + std::to_string(a) + " " + std::to_string(stride) + " " +
                      (s ? s->sym_name() : "-"));
    }
    void cl_ldspec_rand(unsigned, unsigned, unsigned b, TYPE*, I_SYMTAB* s) override {
        log.push_back("rand " + std::to_string(b) + " " + (s ? s->sym_name() : "-"));
    }
    void cl_ldspec_region(unsigned, unsigned region) override {
        log.push_back("region " + std::to_string(region));
    }
    void cl_ir_begin_func(unsigned a, int b, int c, unsigned d, const PSN* psn) override {
        log.push_back("ir begin " + std::to_string(a) + " " + std::to_string(b) + " " + std::to_string(c) +
                      " " + std::to_string(d) + at(psn));
    }
    void cl_ir_ins(const PSN* psn) override { log.push_back("ir ins" + at(psn)); }
    void cl_ir_end_func(const PSN* psn) override { log.push_back("ir end" + at(psn)); }

  private:
    static std::string at(const PSN* psn) {
        return psn == nullptr ? "" : std::string(" ") + psn->file + ":" + std::to_string(psn->line);
    }
};

// A writer whose bytes can be taken when it is closed.
class writer {
  public:
    TYPE_PKG types;
    model::pool nodes;
    I_FILE* file;

    writer() {
        types.init_type_pkg();
        stream_ = std::tmpfile();
        // The file layer closes its stream: it gets a second one on the same file.
        file = I_FILE::if_create(fdopen(dup(fileno(stream_)), "w+b"), &types, "test", "test.ic");
    }
    ~writer() { std::fclose(stream_); }

    model::symbol* symbol(const char* name, TYPE* type, int sclass) {
        model::symbol* s = nodes.new_symbol();
        s->name = name;
        s->type = type;
        s->size = static_cast<unsigned>(type->size());
        s->sclass = sclass;
        return s;
    }
    model::symbol* global(const char* name, TYPE* type, int sclass) {
        model::symbol* s = symbol(name, type, sclass);
        file->if_enter_global(s);
        return s;
    }
    model::tree* icon(TYPE* type, int value) {
        model::tree* t = nodes.new_tree(op::ICON, type);
        t->mk_icon(value);
        return t;
    }
    model::tree* name(model::symbol* s) {
        model::tree* t = nodes.new_tree(op::NAME, s->type);
        t->sym = s;
        return t;
    }
    bytes close() {
        EXPECT_EQ(I_FILE::if_close(file, false), 0);
        return contents(stream_);
    }

  private:
    std::FILE* stream_;
};

// Reads the bytes; the fault, or an empty text.
std::string read(const bytes& data, IF_CLIENT& client) {
    faults_throw guard;
    TYPE_PKG types;
    types.init_type_pkg();
    std::FILE* stream = stream_of(data);
    I_FILE* file = nullptr;
    try {
        file = I_FILE::if_open(stream, &client, "in.ic");
        if (file == nullptr) {
            std::fclose(stream);
            return "refused";
        }
        file->if_type_init(&types);
        file->if_read_file();
    } catch (const file_fault& fault) {
        if (file != nullptr)
            I_FILE::if_close(file, true);
        else
            std::fclose(stream);
        return fault.what();
    }
    I_FILE::if_close(file, true);
    return "";
}

// One function that uses every kind of record that stands in bodies.
bytes whole_file() {
    writer w;
    I_FILE& f = *w.file;
    TYPE* i = w.types.int_type(IK_INT);
    TYPE* fn = w.types.mk_func({i, {{i, 0, "a"}}, false, true, 0, false});
    const PSN psn{intern_text("a.c"), 3, 7};

    TYPE* s = w.types.mk_struct("S", {32, 16});
    w.types.add_member(s, {0, "x", i});
    fkMDATA next;
    next.name = "next";
    next.type = w.types.mk_ptr(s);
    next.offset = 16;
    w.types.add_member(s, next);
    w.types.open_csu(s)->is_complete = true;
    w.types.type_frozen(s);

    f.if_enter_option_set(0, {"--opt_level=2", "--far_externs"});
    model::symbol* g = w.global("g", w.types.mk_array(s, 2), SC_EXTDEF);
    g->psn = psn;
    g->has_psn = true;
    g->pragmas = w.nodes.new_pragma(PRAG_DATA_ALIGN, {"4"});
    model::symbol* main = w.global("main", fn, SC_EXTDEF);
    main->pragmas = w.nodes.new_pragma(PRAG_SYM_IS_REFERENCED);

    f.if_write_comment("made by a test");
    f.if_write_begin_func(main, &psn);
    model::symbol* a = w.symbol("a", i, SC_PARM);
    f.if_enter_local(a);
    f.if_write_symbol(a);
    f.if_write_end_args(&psn);
    f.if_write_end_locals(nullptr);
    f.if_write_begin_block(nullptr);
    model::symbol* b = w.symbol("b", w.types.flt_type(FK_FLOAT), SC_AUTO);
    f.if_enter_local(b);
    f.if_write_symbol(b);
    f.if_write_pragma(w.nodes.new_pragma(PRAG_UNROLL, {"4"}));
    f.if_write_label(7);
    model::tree* half = w.nodes.new_tree(op::FCON, b->type);
    half->mk_fcon("0x1p-1");
    model::tree* test = w.nodes.new_tree(op::LT, i, w.name(b), half);
    model::tree* label = w.nodes.new_tree(op::LABEL, i);
    label->value = 7;
    f.if_write_expr(w.nodes.new_tree(op::CBRANCH, i, test, label), &psn);
    model::tree* field = w.nodes.new_tree(op::FIELD, i);
    field->mk_field(1, s->member(1), s);
    f.if_write_expr(
        w.nodes.new_tree(op::ASG, i, w.nodes.new_tree(op::STREF, i, w.name(g), field), w.icon(i, -5)), &psn);
    f.if_write_assembly(" nop", &psn);
    f.if_write_end_block(nullptr);
    f.if_write_func_info(-3);
    f.if_write_loop(1, 2, 3, 4, 5, 65535);
    f.if_write_inloop(1, -1, -1, 2);
    f.if_write_mbank(1, 2, 3, 4, 9);
    f.if_write_dep_vector(4, 1, {{1, -1}, {2, 100}});
    f.if_write_dep_edge(1, 2, 300);
    f.if_write_ldspec_induct(1, 2, -4, i, a);
    f.if_write_ldspec_rand(1, 2, 3, i, nullptr);
    f.if_write_ldspec_region(1, 77);
    EHT_ENTRY cleanup, handler;
    cleanup.kind = EHK_EXPR;
    cleanup.tree = w.icon(i, 1);
    handler.kind = EHK_CATCH;
    handler.catches = {{"int", 1, true}, {"long", 2, false}};
    f.if_write_func_eht({cleanup, handler, EHT_ENTRY{}});
    f.if_write_end_func(&psn);

    f.if_write_init(g);
    f.if_write_expr_node(w.icon(i, 1));
    model::tree* skip = w.nodes.new_tree(op::SKIP, i);
    skip->value = 16;
    f.if_write_expr_node(skip);
    f.if_write_expr_node(w.nodes.new_tree(op::ENDINIT, i));
    return w.close();
}

TEST(Primitives, ComeBackAsWritten) {
    const std::vector<std::uint32_t> unsigned_values = {0,     1,          127,        128,       16383,
                                                        16384, 0x7fffffff, 0x80000000, 0xffffffff};
    const std::vector<std::int32_t> signed_values = {0,    -1,   63,    64,    -64,        -65,
                                                     8191, 8192, -8192, -8193, 0x7fffffff, -0x7fffffff - 1};
    writer w;
    for (std::uint32_t value : unsigned_values) w.file->i_write_uint(value);
    for (std::int32_t value : signed_values) w.file->i_write_sint(value);
    for (int value : {-32768, -1, 0, 32767, 65535}) w.file->i_write_i16(value);
    w.file->i_write_i32(0x89abcdef);
    w.file->i_flush(200);
    const bytes data = w.close();

    recorder client;
    std::FILE* stream = stream_of(data);
    I_FILE* file = I_FILE::if_open(stream, &client, "in.ic");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(file->i_read_header().id, 200);
    for (std::uint32_t value : unsigned_values) EXPECT_EQ(file->i_read_uint(), value);
    for (std::int32_t value : signed_values) EXPECT_EQ(file->i_read_sint(), value);
    EXPECT_EQ(file->i_read_s16(), -32768);
    EXPECT_EQ(file->i_read_s16(), -1);
    EXPECT_EQ(file->i_read_u16(), 0u);
    EXPECT_EQ(file->i_read_s16(), 32767);
    EXPECT_EQ(file->i_read_u16(), 65535u);
    EXPECT_EQ(file->i_read_u32(), 0x89abcdefu);
    faults_throw guard;
    EXPECT_THROW(file->i_read_u8(), file_fault) << "a field ran past its record";
    I_FILE::if_close(file, true);
}

TEST(Primitives, HaveTheShortestForm) {
    writer w;
    w.file->i_write_uint(0);
    w.file->i_write_sint(-1);
    w.file->i_write_sint(64);
    w.file->i_flush(200);
    const bytes data = w.close();
    // The record stands right behind the header record.
    const std::size_t at = 2u + data[1];
    EXPECT_EQ(bytes(data.begin() + at, data.begin() + at + 6), (bytes{200, 4, 0x00, 0x7f, 0xc0, 0x00}));
    faults_throw guard;
    writer other;
    EXPECT_THROW(other.file->i_write_i16(65536), file_fault);
    I_FILE::if_close(other.file, true);
}

TEST(Container, EmptySectionsAreAbsent) {
    writer w;
    recorder client;
    const bytes data = w.close();
    std::FILE* stream = stream_of(data);
    I_FILE* file = I_FILE::if_open(stream, &client, "in.ic");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(file->sections().options, 0u);
    EXPECT_EQ(file->sections().inits, 0u);
    EXPECT_EQ(file->sections().types, 0u);
    EXPECT_EQ(file->sections().files, 0u);
    EXPECT_NE(file->sections().symbols, 0u);
    EXPECT_STREQ(file->producer(), "test");
    EXPECT_EQ(file->version(), ICODE_VERSION);
    I_FILE::if_close(file, true);
}

TEST(Container, EveryRecordReachesTheClient) {
    recorder client;
    ASSERT_EQ(read(whole_file(), client), "");
    const std::vector<std::string> expected = {
        "options 0 --opt_level=2 --far_externs",
        "symbol g level 0 class 2 retention 0",
        "pragma DATA_ALIGN 4 of g",
        "symbol main level 0 class 2 retention 0",
        "pragma SYM_IS_REFERENCED of main",
        "init g 3",
        "comment made by a test",
        "begin main a.c:3",
        "symbol a level 1 class 9 retention 0",
        "args a.c:3",
        "locals",
        "{",
        "symbol b level 3 class 1 retention 0",
        "pragma UNROLL 4",
        "label 7",
        "expr 109 a.c:3",
        "expr 58 a.c:3 .x",
        "asm  nop a.c:3",
        "}",
        "info -3",
        "loop 54321 65535",
        "inloop 1 -1 -1 2",
        "bank 1 9",
        "vector 4 1 1:-1 2:100",
        "edge 1 2 300",
        "induct 1 -4 a",
        "rand 3 -",
        "region 77",
        "eht 1 2(int)(long) 0",
        "end a.c:3",
    };
    EXPECT_EQ(client.log, expected);
    EXPECT_EQ(client.symbols[1]->retention, I_SYMTAB::ALWAYS) << "the pragma outranks the record";
    EXPECT_EQ(client.exprs[0]->left->op, op::FLT) << "a comparison of floats takes the floating form";
}

// Puts a file together byte by byte, as a writer of any version would.
class old_file {
  public:
    explicit old_file(int version) : version_(version) {}

    old_file& u8(int value) {
        record_.push_back(static_cast<unsigned char>(value));
        return *this;
    }
    old_file& u(unsigned value) {
        for (; value >= 0x80; value >>= 7) u8(static_cast<int>(value & 0x7f) | 0x80);
        return u8(static_cast<int>(value));
    }
    old_file& text(const char* value) {
        while (*value != '\0') u8(*value++);
        return u8(0);
    }
    // A field that only some versions have.
    old_file& u8_if(bool present, int value) { return present ? u8(value) : *this; }
    old_file& end(int id) {
        out_.push_back(static_cast<unsigned char>(id));
        const bytes payload = std::move(record_);
        record_.clear();
        u(static_cast<unsigned>(payload.size()));
        out_.insert(out_.end(), record_.begin(), record_.end());
        out_.insert(out_.end(), payload.begin(), payload.end());
        record_.clear();
        return *this;
    }
    old_file& eof() {
        out_.push_back(REC_EOF);
        return *this;
    }
    old_file& section(int which) { // in the order of the header
        offsets_[which] = out_.size();
        return *this;
    }
    bytes finish() const {
        old_file head(version_);
        head.text("!<icode>\n").u8(version_).u8(version_ >> 8).u8(1000 & 0xff).u8(1000 >> 8);
        const std::size_t length = 2 + 14 + 20 + 2 + (version_ >= -83 ? 4 : 0);
        for (std::size_t offset : offsets_)
            for (int shift = 0; shift < 32; shift += 8)
                head.u8(static_cast<int>((offset == 0 ? 0 : offset + length) >> shift));
        head.text("p");
        if (version_ >= -83) head.u8(7).u8(0).u8(0).u8(0);
        head.end(REC_HEADER);
        EXPECT_EQ(head.out_.size(), length);
        head.out_.insert(head.out_.end(), out_.begin(), out_.end());
        return head.out_;
    }

  private:
    int version_;
    bytes record_, out_;
    std::size_t offsets_[5] = {};
};

// Each field that came or went with a version stands where that version has it.
TEST(Versions, FieldsStandWhereTheVersionHasThem) {
    for (int v : {-90, -86, -85, -84, -83, -82, -81, -80, -77, -76, -75, -74, -73, -72, -71}) {
        SCOPED_TRACE(v);
        old_file f(v);
        f.eof().section(2);                                        // types
        f.u(10).u8(6).u8(0).u(16).u(16).u8(0).u8(0).end(REC_TYPE); // int
        f.u(11).u8(24).u8(2).text("C").u8(1).u8(0).u(32).u(16).u8(1);
        f.u8_if(v >= -84, 1).u8_if(v >= -81, 1).u(0).end(REC_TYPE);
        f.u(11).u8(254).u8(7).end(REC_TYPE);
        f.u(11).u8(28).u(1).text("m").u(10).u8(2).u(4).u8_if(v >= -74, 0x1f);
        if (v >= -85)
            f.u(5).u8(1).u8(0).u8(1);
        else
            f.u8(1).u(5).u8(1);
        f.u(0).end(REC_TYPE);
        f.u(11).u8(255).u8(7).end(REC_TYPE);
        f.u(12).u8(18).u(10).u(2).u(32).u(16).u8(0).u8(1);
        f.u8_if(v >= -76, 1).u8_if(v == -75 || v == -74, 0).end(REC_TYPE);
        f.u(13).u8(22).text("E").u(16).u(16).u(10).u8_if(v >= -81, 9).u(0).end(REC_TYPE);
        f.u(13).u8(254).u8(1).end(REC_TYPE);
        f.u(13).u8(23).text("MINUS").u8(0x7f).u(0).end(REC_TYPE);
        f.u(13).u8(255).u8(1).end(REC_TYPE);
        f.eof().section(4);
        for (unsigned type : {11u, 12u, 13u}) {
            f.text("s").u(32).u(0).u8(SC_EXTDEF).u8(0).u8(0).u(type).u(0).u(16).u8(0).u(0).u(0).u(0);
            f.u8_if(v >= -71, I_SYMTAB::EXTERNAL).end(REC_SYMBOL);
        }
        const bytes data = f.eof().finish();

        recorder header_only;
        I_FILE* file = I_FILE::if_open(stream_of(data), &header_only, "old.ic");
        ASSERT_NE(file, nullptr);
        EXPECT_EQ(file->extra_word(), v >= -83 ? 7u : 0u);
        I_FILE::if_close(file, true);

        model::program program;
        std::string error;
        std::FILE* stream = stream_of(data);
        faults_throw guard;
        ASSERT_NO_THROW(ASSERT_TRUE(program.read(stream, "old.ic", error)) << error);
        ASSERT_EQ(program.globals.size(), 3u);
        TYPE* c = program.globals[0]->type;
        EXPECT_EQ(c->csu().is_struct_vector, v >= -84);
        EXPECT_EQ(c->csu().is_cpp, v >= -81) << "an unmangled name is a name of C";
        const fkMDATA& m = *c->member(1);
        EXPECT_EQ(m.width, 5u);
        EXPECT_EQ(m.offset, 4);
        EXPECT_TRUE(m.bit_field);
        EXPECT_EQ(m.flag2, v < -85);
        EXPECT_EQ(m.flag3, v >= -85);
        EXPECT_EQ(m.fti == nullptr ? "" : std::string(m.fti), v >= -74 ? "fti:1f" : "");
        EXPECT_EQ(program.globals[1]->type->is_vector(), v >= -76);
        EXPECT_EQ(program.globals[2]->type->enumeration().language, v >= -81 ? 9 : 0);
        EXPECT_EQ(program.globals[2]->type->enumeration().enumerators.at(0).value, -1);
        EXPECT_EQ(program.globals[0]->retention, v >= -71 ? I_SYMTAB::EXTERNAL : I_SYMTAB::DEFAULT_C);
    }
    recorder client;
    EXPECT_EQ(read(old_file(-70).eof().section(4).eof().finish(), client), "refused");
}

TEST(Container, FileNamesKeepTheirNumbers) {
    old_file f(-71);
    f.u(3).u(8).u(9).u(0).end(REC_BEGIN_FUNC).eof().section(3);
    for (const char* name : {"a.c", "b.h", "a.c"}) f.text(name).end(REC_SOURCE);
    const bytes data = f.eof().section(4).eof().finish();
    recorder client;
    std::FILE* stream = stream_of(data);
    I_FILE* file = I_FILE::if_open(stream, &client, "in.ic");
    ASSERT_NE(file, nullptr);
    file->if_read_file_names();
    EXPECT_EQ(file->extra_word(), 7u);
    EXPECT_STREQ(file->i_get_file_name(2), "b.h");
    EXPECT_STREQ(file->i_get_file_name(3), "a.c") << "a name that comes twice has both numbers";
    EXPECT_EQ(file->i_get_file_name(0), nullptr);
    EXPECT_EQ(file->i_get_file_name(4), nullptr);
    EXPECT_EQ(file->i_get_file_id("b.h"), 2u);
    EXPECT_EQ(file->i_get_file_id("c.h"), 0u);
    PSN psn{};
    file->i_read_header();
    ASSERT_TRUE(file->i_read_psn(psn));
    EXPECT_STREQ(psn.file, "a.c");
    EXPECT_EQ(psn.line, 8u);
    I_FILE::if_close(file, true);

    writer w;
    EXPECT_EQ(w.file->i_enter_file_name("x.c"), 1u);
    EXPECT_EQ(w.file->i_enter_file_name("y.c"), 2u);
    EXPECT_EQ(w.file->i_enter_file_name(std::string("x.c").c_str()), 1u) << "names count by their text";
    w.close();
}

TEST(Container, OutputThatCannotSeekIsRefused) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    std::FILE* stream = fdopen(ends[1], "wb");
    TYPE_PKG types;
    types.init_type_pkg();
    faults_throw guard;
    EXPECT_THROW(I_FILE::if_create(stream, &types, "p", "out.ic"), file_fault);
    std::fclose(stream);
    close(ends[0]);
}

TEST(Container, InstructionFunctionsReachTheirClient) {
    old_file f(-71);
    f.u(3).u8(0x7e).u8(0xff).u(9).u(0).end(REC_IR_BEGIN_FUNC);
    f.u(0).text("bytes of the code generator").end(REC_INSTRUCTION);
    f.u(0).end(REC_IR_END_FUNC);
    const bytes data = f.eof().section(4).eof().finish();
    recorder client;
    EXPECT_EQ(read(data, client), "");
    EXPECT_EQ(client.log, (std::vector<std::string>{"ir begin 3 -2 -1 9", "ir ins", "ir end"}));
}

// The last pragma that speaks of retention wins, and all outrank the record.
TEST(Symbols, PragmasDecideRetention) {
    const auto retention = [](const std::vector<int>& kinds) {
        old_file f(-71);
        f.eof().section(2).u(10).u8(49).end(REC_TYPE).eof().section(4);
        f.text("s").u(0).u(0).u8(SC_EXTDEF).u8(0).u8(0).u(10).u(0).u(16).u8(static_cast<int>(kinds.size()));
        f.u(0).u(0).u(0).u8(I_SYMTAB::EXTERNAL).end(REC_SYMBOL);
        for (int kind : kinds) f.u(static_cast<unsigned>(kind)).u(0).end(REC_PRAGMA);
        recorder client;
        EXPECT_EQ(read(f.eof().finish(), client), "");
        return client.symbols.at(0)->retention;
    };
    EXPECT_EQ(retention({}), I_SYMTAB::EXTERNAL);
    EXPECT_EQ(retention({PRAG_INLINE}), I_SYMTAB::EXTERNAL);
    EXPECT_EQ(retention({PRAG_FUNC_EXT_CALLED}), I_SYMTAB::ALWAYS);
    EXPECT_EQ(retention({PRAG_SYM_IS_REFERENCED, PRAG_SYM_IS_DEAD}), I_SYMTAB::NEVER);
    EXPECT_EQ(retention({PRAG_SYM_IS_DEAD, PRAG_SYM_IS_REFERENCED}), I_SYMTAB::ALWAYS);
}

// Numbers that share their low bits with others, and with the null type.
TEST(Types, NumbersMayBeLarge) {
    old_file f(-71);
    f.eof().section(2);
    const std::vector<unsigned> numbers = {256, 512, 0x80000100, 1};
    for (unsigned number : numbers)
        f.u(number).u8(6).u8(0).u(number == 1 ? 32 : 16).u(number % 1000 + 8).u8(0).u8(0).end(REC_TYPE);
    f.eof().section(4);
    for (int round = 0; round < 2; round++)
        for (unsigned number : numbers) {
            f.text("s").u(16).u(0).u8(SC_EXTDEF).u8(0).u8(0).u(number).u(0).u(16).u8(0).u(0).u(0).u(0).u8(0);
            f.end(REC_SYMBOL);
        }
    recorder client;
    ASSERT_EQ(read(f.eof().finish(), client), "");
    ASSERT_EQ(client.symbols.size(), 8u);
}

// What a client would meet as a dangling pointer, or as a count that the record cannot hold, is refused.
TEST(Damage, WhatWouldDangleIsRefused) {
    const auto fault_of_types = [](const auto& write) {
        old_file f(-71);
        f.eof().section(2);
        f.u(10).u8(6).u8(0).u(16).u(16).u8(0).u8(0).end(REC_TYPE);
        write(f);
        recorder client;
        return read(f.eof().section(4).eof().finish(), client);
    };
    const auto function = [](old_file& f, unsigned number) {
        f.u(number).u8(20).u(10).u8(0).u8(1).u8(0).u8(0).end(REC_TYPE);
    };
    const auto list = [](old_file& f, unsigned number, int code, int id) {
        f.u(number).u8(code).u8(id).end(REC_TYPE);
    };
    // A function that is not complete may turn out to be one that stands already, and goes.
    EXPECT_EQ(fault_of_types([&](old_file& f) {
                  function(f, 11);
                  f.u(12).u8(15).u(11).u(16).u(16).end(REC_TYPE);
              }),
              "invalid forward reference");
    EXPECT_EQ(fault_of_types([&](old_file& f) {
                  function(f, 11);
                  list(f, 11, 255, -1);
              }),
              "Unexpected type attribute");
    EXPECT_NE(fault_of_types([&](old_file& f) { function(f, 11); }).find("not complete"), std::string::npos);

    // A local lives as long as its function is open.
    writer w;
    TYPE* i = w.types.int_type(IK_INT);
    model::symbol* main = w.global("main", w.types.mk_func({i, {}, false, true, 0, false}), SC_EXTDEF);
    w.file->if_write_begin_func(main, nullptr);
    model::symbol* x = w.symbol("x", i, SC_AUTO);
    w.file->if_enter_local(x);
    w.file->if_write_symbol(x);
    w.file->if_write_end_func(nullptr);
    w.file->i_write_uint(0);
    w.file->i_flush(REC_INIT); // still in the body
    w.file->if_write_expr_node(w.name(x));
    w.file->if_write_expr_node(w.nodes.new_tree(op::ENDINIT, i));
    recorder client;
    EXPECT_NE(read(w.close(), client).find("local symbol 0 is not in the table"), std::string::npos);

    faults_throw guard;
    writer other;
    model::symbol* g = other.global("g", other.types.int_type(IK_INT), SC_EXTDEF);
    for (int n = 0; n < 128; n++) {
        PRAGMA* pragma = other.nodes.new_pragma(PRAG_INLINE);
        pragma->next = g->pragmas;
        g->pragmas = pragma;
    }
    EXPECT_THROW(other.file->if_write_symbol(g), file_fault);
    EXPECT_THROW(
        other.file->if_write_dep_vector(1, 1, std::vector<std::pair<std::uint8_t, std::int8_t>>(256)),
        file_fault);
    I_FILE::if_close(other.file, true);
}

// Trees as deep as a file is long cost no stack in either direction.
TEST(Trees, MayBeAMillionDeep) {
    constexpr int DEPTH = 1'000'000;
    writer w;
    TYPE* i = w.types.int_type(IK_INT);
    model::symbol* main = w.global("main", w.types.mk_func({i, {}, false, true, 0, false}), SC_EXTDEF);
    w.file->if_write_begin_func(main, nullptr);
    for (bool left : {true, false}) {
        model::tree* tree = w.icon(i, 1);
        for (int n = 0; n < DEPTH; n++)
            tree = left ? w.nodes.new_tree(op::PLUS, i, tree, w.icon(i, 1))
                        : w.nodes.new_tree(op::PLUS, i, w.icon(i, 1), tree);
        w.file->if_write_expr(tree, nullptr);
    }
    w.file->if_write_end_func(nullptr);
    recorder client;
    ASSERT_EQ(read(w.close(), client), "");
    ASSERT_EQ(client.exprs.size(), 2u);
    int depth = 0;
    for (const model::tree* t = client.exprs[0]; t->op == op::PLUS; t = t->left) depth++;
    EXPECT_EQ(depth, DEPTH);
    depth = 0;
    for (const model::tree* t = client.exprs[1]; t->op == op::PLUS; t = t->right) depth++;
    EXPECT_EQ(depth, DEPTH);
}

TEST(Damage, EveryTruncationEndsCleanly) {
    const bytes data = whole_file();
    for (std::size_t n = 0; n < data.size(); n++) {
        recorder client;
        const std::string fault = read(bytes(data.begin(), data.begin() + static_cast<long>(n)), client);
        EXPECT_NE(fault, "") << "cut to " << n << " bytes";
        EXPECT_EQ(fault.find('\n', 1) == std::string::npos || fault.find('\n', 1) == fault.size() - 1, true)
            << fault;
    }
}

// Over the seeds of the fuzzer and the file of all records. Sanitizers are the judges, and that what was read
// can be written and read again.
TEST(Damage, EverySingleByteMutationEndsCleanly) {
    std::vector<bytes> files{whole_file()};
    for (const auto& entry : std::filesystem::directory_iterator(CORPUS_DIR)) {
        std::ifstream in(entry.path(), std::ios::binary);
        files.emplace_back(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    ASSERT_GT(files.size(), 1u) << "no seeds in " << CORPUS_DIR;
    testing::internal::CaptureStdout(); // unknown records are told there
    for (const bytes& data : files) {
        LLVMFuzzerTestOneInput(data.data(), data.size());
        for (std::size_t at = 0; at < data.size(); at++)
            for (int change : {0x01, 0x40, 0x80, 0xff}) {
                bytes mutant = data;
                mutant[at] = static_cast<unsigned char>(mutant[at] ^ change);
                LLVMFuzzerTestOneInput(mutant.data(), mutant.size());
            }
    }
    testing::internal::GetCapturedStdout();
}

} // namespace
