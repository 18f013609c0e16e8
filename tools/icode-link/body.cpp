// The reader of one file. While symbols are read it collects them; while the body is read it writes each
// record as it comes, so that memory holds no more than one function.

#include <string>
#include <utility>

#include "OPT5/opcodes.h"
#include "tools/icode-link/linker.h"

namespace linking {

class copier final : public IF_CLIENT {
  public:
    copier(linker& owner, input& file) : owner_(owner), in_(file), nodes_(std::make_unique<model::pool>()) {}

    void copy_body(I_FILE& to) {
        to_ = &to;
        in_.file->if_seek(in_.file->body_offset());
        while (in_.file->if_read_record() != REC_EOF) {
        }
        if (in_.file->level() != 0) in_.file->bad_file("the body ends inside a function");
        in_body_ = false;
        drop_nodes();
    }

    void copy_initialisers() {
        for (const auto& [symbol, trees] : kept_inits_) write_initialiser(symbol, trees);
        in_.file->if_read_all_init();
        drop_nodes();
    }

    // --- Symbols.

    BASE_NODE* cl_new_node(int op, TYPE* type) override {
        model::pool& pool = in_.file->level() == 0 && in_body_ ? kept_nodes_ : *nodes_;
        return pool.new_tree(op, type);
    }

    I_SYMTAB* cl_symbol_create(const SYMBOL_RECORD& record) override {
        if (record.level == 0 && to_ != nullptr)
            in_.file->bad_file(std::string("the global symbol ") + record.name + " stands in the body");
        model::symbol* s = (record.level == 0 ? owner_.symbol_pool() : *nodes_).new_symbol();
        s->take(record);
        if (record.level == 0) in_.globals.push_back(s);
        return s;
    }

    void cl_pragma(I_SYMTAB* symbol, PRAGMA* pragma) override {
        auto* s = static_cast<model::symbol*>(symbol);
        (to_ == nullptr ? owner_.symbol_pool() : *nodes_).adopt(pragma);
        if (s != nullptr) {
            pragma->next = s->pragmas;
            s->pragmas = pragma;
        } else if (writes()) {
            to_->if_write_pragma(pragma);
        }
    }

    void cl_symbol_def(I_SYMTAB* symbol) override {
        if (!writes()) return;
        auto* s = static_cast<model::symbol*>(symbol);
        s->option_set = owner_.option_set(in_, s->option_set, s);
        to_->if_enter_local(s);
        to_->if_write_symbol(s);
    }

    void cl_option_set(unsigned number, const std::vector<std::string>& words) override {
        in_.option_sets.push_back({number, words});
    }

    void cl_symbol_init(I_SYMTAB* symbol, INIT_TREES&& trees) override {
        auto* s = static_cast<model::symbol*>(symbol);
        if (in_body_) {
            kept_inits_.emplace_back(s, std::move(trees));
        } else {
            write_initialiser(s, trees);
            drop_nodes();
        }
    }

    // --- Functions.

    void cl_begin_func(I_SYMTAB* symbol, const PSN* psn) override {
        auto* s = static_cast<model::symbol*>(symbol);
        is_dropped_ = owner_.standing(s) != s;
        if (is_dropped_ && s->sclass == SC_EXTERN)
            in_.file->bad_file("a body of '" + s->name + "', which is only declared");
        if (writes()) to_->if_write_begin_func(s, psn);
    }

    void cl_end_func(const PSN* psn) override {
        if (writes()) to_->if_write_end_func(psn);
        is_dropped_ = false;
        drop_nodes();
    }

    void cl_end_args(const PSN* psn) override {
        if (writes()) to_->if_write_end_args(psn);
    }
    void cl_end_locals(const PSN* psn) override {
        if (writes()) to_->if_write_end_locals(psn);
    }
    void cl_begin_block(const PSN* psn) override {
        if (writes()) to_->if_write_begin_block(psn);
    }
    void cl_end_block(const PSN* psn) override {
        if (writes()) to_->if_write_end_block(psn);
    }
    void cl_expr(BASE_NODE* tree, const PSN* psn) override {
        if (!writes()) return;
        owner_.complete_names(static_cast<model::tree*>(tree));
        to_->if_write_expr(tree, psn);
    }
    void cl_label(unsigned number) override {
        if (writes()) to_->if_write_label(number);
    }
    void cl_inline_asm(const char* text, const PSN* psn) override {
        if (writes()) to_->if_write_assembly(text, psn);
    }
    void cl_comment(const char* text) override {
        if (writes()) to_->if_write_comment(text);
    }
    void cl_source(const char* name) override {
        if (writes()) to_->if_write_source(name);
    }
    void cl_func_info(int value) override {
        if (writes()) to_->if_write_func_info(value);
    }
    void cl_func_eht(std::vector<EHT_ENTRY>&& entries) override {
        if (!writes()) return;
        for (const EHT_ENTRY& entry : entries)
            if (entry.tree != nullptr) owner_.complete_names(static_cast<model::tree*>(entry.tree));
        to_->if_write_func_eht(entries);
    }

    // --- Records of the code generator.

    void cl_loop_def(unsigned loop, unsigned head, unsigned parent, unsigned trips, unsigned flags,
                     unsigned last) override {
        if (writes()) to_->if_write_loop(loop, head, parent, trips, flags, last);
    }
    void cl_loop_header(unsigned loop, int level, int index, unsigned kind) override {
        if (!writes()) return;
        if (level == 0) {
            if (index < 0 || static_cast<std::size_t>(index) >= in_.globals.size())
                in_.file->bad_file("a loop's symbol is not in the table");
            index = static_cast<int>(in_.globals[static_cast<std::size_t>(index)]->index);
        }
        to_->if_write_inloop(loop, level, index, kind);
    }
    void cl_dd_vector(unsigned index, unsigned kind,
                      const std::vector<std::pair<std::uint8_t, std::int8_t>>& entries) override {
        if (writes()) to_->if_write_dep_vector(index, kind, entries);
    }
    void cl_dd_edge(unsigned from, unsigned to, unsigned vector) override {
        if (writes()) to_->if_write_dep_edge(from, to, vector);
    }
    void cl_mbank(unsigned a, unsigned b, unsigned c, unsigned d, unsigned e) override {
        if (writes()) to_->if_write_mbank(a, b, c, d, e);
    }
    void cl_ldspec_induct(unsigned index, unsigned loop, int stride, TYPE* type, I_SYMTAB* symbol) override {
        if (writes()) to_->if_write_ldspec_induct(index, loop, stride, type, symbol);
    }
    void cl_ldspec_rand(unsigned index, unsigned a, unsigned b, TYPE* type, I_SYMTAB* symbol) override {
        if (writes()) to_->if_write_ldspec_rand(index, a, b, type, symbol);
    }
    void cl_ldspec_region(unsigned index, unsigned region) override {
        if (writes()) to_->if_write_ldspec_region(index, region);
    }
    void cl_ir_begin_func(unsigned, int, int, unsigned, const PSN*) override {
        in_.file->bad_file("functions of instructions cannot be merged");
    }

  private:
    bool writes() const { return to_ != nullptr && !is_dropped_; }
    void drop_nodes() { nodes_ = std::make_unique<model::pool>(); }

    void write_initialiser(model::symbol* symbol, const INIT_TREES& trees) {
        if (owner_.standing(symbol) != symbol) return;
        to_->if_write_init(symbol);
        for (BASE_NODE* tree : trees) {
            owner_.complete_names(static_cast<model::tree*>(tree));
            to_->if_write_expr_node(tree);
        }
    }

    linker& owner_;
    input& in_;
    I_FILE* to_ = nullptr; // the output, from the body on
    bool in_body_ = true;
    bool is_dropped_ = false;            // the function at hand has given way to another
    std::unique_ptr<model::pool> nodes_; // of the function or initialiser at hand
    model::pool kept_nodes_;             // of `kept_inits_`
    std::vector<std::pair<model::symbol*, INIT_TREES>> kept_inits_; // that stand in the body
};

std::unique_ptr<IF_CLIENT> make_copier(linker& owner, input& file) {
    return std::make_unique<copier>(owner, file);
}

void copy_body(input& file, I_FILE& to) { static_cast<copier&>(*file.client).copy_body(to); }
void copy_initialisers(input& file) { static_cast<copier&>(*file.client).copy_initialisers(); }

} // namespace linking
