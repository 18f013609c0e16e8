#include "tools/model/program.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace model {

namespace {

// Builds the program as the file is read.
class reader final : public IF_CLIENT {
  public:
    reader(program& target, const std::string& file_name) : p(target), name(file_name) {}

    BASE_NODE* cl_new_node(int op, TYPE* type) override { return p.nodes.new_tree(op, type); }

    I_SYMTAB* cl_symbol_create(const SYMBOL_RECORD& record) override {
        symbol* s = p.nodes.new_symbol();
        s->take(record);
        s->location = record.location;
        if (record.level == 0) {
            p.globals.push_back(s);
        } else if (current != nullptr) {
            if (record.level == 1) current->params.push_back(s);
            item(body_item::kind::symbol, nullptr).sym = s;
        }
        return s;
    }

    void cl_option_set(unsigned number, const std::vector<std::string>& words) override {
        p.option_sets.push_back({number, words});
    }

    void cl_pragma(I_SYMTAB* owner, PRAGMA* pragma) override {
        p.nodes.adopt(pragma);
        if (owner != nullptr) {
            auto* s = static_cast<symbol*>(owner);
            pragma->next = s->pragmas;
            s->pragmas = pragma;
        } else if (current != nullptr) {
            item(body_item::kind::pragma, nullptr).prag = pragma;
        }
    }

    void cl_symbol_init(I_SYMTAB* owner, INIT_TREES&& trees) override {
        auto* s = static_cast<symbol*>(owner);
        s->init.clear();
        for (BASE_NODE* node : trees) s->init.push_back(static_cast<tree*>(node));
    }

    void cl_begin_func(I_SYMTAB* owner, const PSN* psn) override {
        current = &p.functions.emplace_back();
        current->sym = static_cast<symbol*>(owner);
        current->has_psn = psn != nullptr;
        if (psn != nullptr) current->psn = *psn;
    }

    void cl_end_func(const PSN*) override { current = nullptr; }
    void cl_end_args(const PSN* psn) override { item(body_item::kind::end_args, psn); }
    void cl_end_locals(const PSN* psn) override { item(body_item::kind::end_locals, psn); }
    void cl_begin_block(const PSN* psn) override { item(body_item::kind::begin_block, psn); }
    void cl_end_block(const PSN* psn) override { item(body_item::kind::end_block, psn); }
    void cl_expr(BASE_NODE* node, const PSN* psn) override {
        item(body_item::kind::expr, psn).expr = static_cast<tree*>(node);
    }
    void cl_label(unsigned number) override { item(body_item::kind::label, nullptr).number = number; }
    void cl_inline_asm(const char* text, const PSN* psn) override {
        item(body_item::kind::assembly, psn).text = text;
    }
    void cl_comment(const char* text) override {
        if (current != nullptr) item(body_item::kind::comment, nullptr).text = text;
    }
    void cl_func_eht(std::vector<EHT_ENTRY>&& entries) override {
        if (current != nullptr) current->eht = std::move(entries);
    }

  private:
    program& p;
    const std::string& name;
    function* current = nullptr; // null outside functions, and in a function of instructions

    body_item& item(body_item::kind what, const PSN* psn) {
        if (current == nullptr) if_fatal(name + ": a statement in a function of instructions");
        body_item& made = current->body.emplace_back();
        made.what = what;
        made.has_psn = psn != nullptr;
        if (psn != nullptr) made.psn = *psn;
        return made;
    }
};

} // namespace

program::program() { types.init_type_pkg(); }
program::~program() = default;

bool program::read(const std::string& file_name, std::string& error) {
    std::FILE* stream = std::fopen(file_name.c_str(), "rb");
    if (stream == nullptr) {
        error = file_name + ": " + std::strerror(errno);
        return false;
    }
    return read(stream, file_name, error);
}

bool program::read(std::FILE* stream, const std::string& name, std::string& error) {
    // Both are given back even when a hook of if_fatal leaves the call.
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> owned(stream, std::fclose);
    reader client(*this, name);
    const auto close = [](I_FILE* file) { I_FILE::if_close(file, true); };
    std::unique_ptr<I_FILE, decltype(close)> file(I_FILE::if_open(stream, &client, name.c_str()), close);
    if (file == nullptr) {
        error = name + ": not an intermediate file";
        return false;
    }
    owned.release(); // the file closes it
    producer = file->producer();
    file->if_type_init(&types);
    file->if_read_file();
    return true;
}

} // namespace model
