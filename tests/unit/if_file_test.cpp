// The file layer: primitive encodings, the container, every kind of record, and what damage does to it.

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "OPT5/base_node.h"
#include "OPT5/if_file.h"
#include "OPT5/pragma.h"
#include "OPT5/types.h"
#include "tests/unit/file_fixture.h"
#include "tools/model/tree.h"

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

TEST(Damage, EverySingleByteMutationEndsCleanly) {
    const bytes data = whole_file();
    std::fflush(stdout);
    for (std::size_t at = 0; at < data.size(); at++)
        for (int change : {0x01, 0x40, 0x80, 0xff, 0x7f}) {
            bytes mutant = data;
            mutant[at] = static_cast<unsigned char>(mutant[at] ^ change);
            recorder client;
            read(mutant, client); // sanitizers and the depth of the stack are the judges
        }
}

} // namespace
