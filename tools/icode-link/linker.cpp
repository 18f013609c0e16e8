#include "tools/icode-link/linker.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <tuple>

#include "OPT5/opcodes.h"
#include "OPT5/pragma.h"

namespace linking {

void fail(const std::string& what) {
    std::fprintf(stderr, "icode-link: %s\n", what.c_str());
    std::exit(1);
}

linker::linker() { types_.init_type_pkg(); }

linker::~linker() {
    for (const input& file : inputs_)
        if (file.file != nullptr) I_FILE::if_close(file.file, true);
}

void linker::add(const std::string& name) {
    input& file = inputs_.emplace_back();
    file.name = name;
    file.number = static_cast<unsigned>(inputs_.size());
    file.client = make_copier(*this, file);
    std::FILE* stream = std::fopen(name.c_str(), "rb");
    if (stream == nullptr) fail(name + ": " + std::strerror(errno));
    file.file = I_FILE::if_open(stream, file.client.get(), name.c_str());
    if (file.file == nullptr) {
        std::fclose(stream);
        fail(name + ": not an intermediate file");
    }
    types_.set_translation_unit(file.number);
    file.file->if_type_init(&types_);
    file.file->if_read_file_names();
    file.file->if_read_type_defs();
    file.file->if_read_globals();
}

// --- Symbols.

namespace {

bool is_external(const model::symbol& symbol) {
    return symbol.sclass == SC_EXTDEF || symbol.sclass == SC_EXTERN;
}

strength strength_of(const model::symbol& symbol) {
    if (symbol.sclass == SC_EXTERN) {
        const bool is_open =
            symbol.type->is_func() ? !symbol.type->func().proto : !symbol.type->is_complete();
        return is_open ? strength::declared : strength::declared_in_full;
    }
    const bool is_replaceable = symbol.pragma(PRAG_NORVANE_WEAK) != nullptr ||
                                symbol.pragma(PRAG_COMDAT_GROUP) != nullptr ||
                                (symbol.type->is_func() && symbol.pragma(PRAG_INLINE) != nullptr);
    return is_replaceable ? strength::replaceable : strength::defined;
}

// Pragmas that say of one declaration how it is to be treated, and nothing of what is declared.
bool is_of_declaration(int kind) {
    return kind == PRAG_NORVANE_WEAK || kind == PRAG_COMDAT_GROUP || kind == PRAG_INLINE ||
           kind == PRAG_SYM_IS_DEAD;
}

} // namespace

void linker::enter(model::symbol* symbol, const input& file) {
    if (!is_external(*symbol)) return;
    const holder comer{symbol, &file, strength_of(*symbol)};
    const auto [entry, is_new] = external_.emplace(symbol->name, comer);
    if (is_new) return;
    holder& now = entry->second;
    if (comer.hold == strength::defined && now.hold == strength::defined)
        fail("'" + symbol->name + "' is defined in " + now.file->name + " and in " + file.name);
    if (comer.hold <= now.hold) {
        losers_.emplace_back(comer, entry->first);
    } else {
        losers_.emplace_back(now, entry->first);
        now = comer;
    }
}

// Whether two declarations of one symbol agree in their types. Where they have one meaning they are made
// one, and so are the parts that do where the whole leaves something open in one of them.
bool linker::agree(TYPE* a, TYPE* b) {
    std::vector<std::pair<TYPE*, TYPE*>> pending{{a, b}};
    std::vector<TYPE*> parts_a, parts_b;
    while (!pending.empty()) {
        TYPE* x = pending.back().first->true_type();
        TYPE* y = pending.back().second->true_type();
        pending.pop_back();
        if (types_.merge_types(x, y) || x->is_csu() || y->is_csu()) continue;
        parts_a.clear();
        parts_b.clear();
        x->append_parts(parts_a);
        y->append_parts(parts_b);
        if (parts_a.size() != parts_b.size()) continue;
        for (std::size_t i = 0; i < parts_a.size(); i++) pending.emplace_back(parts_a[i], parts_b[i]);
    }
    return types_.compatible_types(a, b, false);
}

void linker::give_way(const holder& loser, const holder& winner) {
    model::symbol* from = loser.symbol;
    model::symbol* to = winner.symbol;
    if (!agree(to->type, from->type)) {
        const bool in_order = winner.file->number <= loser.file->number;
        const holder& first = in_order ? winner : loser;
        const holder& second = in_order ? loser : winner;
        fail("'" + to->name + "' is '" + first.symbol->type->printstr() + "' in " + first.file->name +
             " and '" + second.symbol->type->printstr() + "' in " + second.file->name);
    }
    stands_for_.emplace(from, to);
    if (from->type->is_array() && !from->type->is_complete()) has_open_arrays_ = true;
    if (from->retention == I_SYMTAB::ALWAYS) to->retention = I_SYMTAB::ALWAYS;
    // What a declaration says of the object or function holds wherever it is defined. What another
    // definition says goes with it.
    if (loser.hold >= strength::replaceable) return;
    std::vector<const PRAGMA*> chain;
    for (const PRAGMA* pragma = from->pragmas; pragma != nullptr; pragma = pragma->next)
        if (!is_of_declaration(pragma->kind) && to->pragma(pragma->kind) == nullptr) chain.push_back(pragma);
    for (auto pragma = chain.rbegin(); pragma != chain.rend(); ++pragma) {
        PRAGMA* copy = symbols_.new_pragma((*pragma)->kind, (*pragma)->args);
        copy->next = to->pragmas;
        to->pragmas = copy;
    }
}

void linker::complete_names(model::tree* tree) {
    if (!has_open_arrays_) return;
    std::vector<model::tree*> pending{tree};
    while (!pending.empty()) {
        model::tree* node = pending.back();
        pending.pop_back();
        if (node->op == op::NAME && node->type != nullptr && node->type->is_array() &&
            !node->type->is_complete())
            node->type = standing(node->sym)->type;
        for (model::tree* operand : {node->left, node->right})
            if (operand != nullptr) pending.push_back(operand);
    }
}

// --- Option sets.

void linker::merge_option_sets() {
    const bool any = std::any_of(inputs_.begin(), inputs_.end(),
                                 [](const input& file) { return !file.option_sets.empty(); });
    std::map<std::vector<std::string>, unsigned> numbers; // of sets in the output
    const auto enter = [&](input& file, const OPTION_SET& set) {
        const auto next = static_cast<unsigned>(option_sets_.size());
        const auto [entry, is_new] = numbers.emplace(set.words, next);
        if (is_new) option_sets_.push_back({next, set.words});
        if (!file.set_numbers.emplace(set.number, entry->second).second)
            fail(file.name + ": option set " + std::to_string(set.number) + " stands there twice");
    };
    for (input& file : inputs_) {
        // A file without sets is one whose set 0 has no words. Set 0 of the first file comes first, since it
        // is the one that holds for the output as a whole.
        std::stable_sort(file.option_sets.begin(), file.option_sets.end(),
                         [](const OPTION_SET& a, const OPTION_SET& b) { return a.number < b.number; });
        if (file.option_sets.empty() || file.option_sets.front().number != 0) enter(file, {0, {}});
        for (const OPTION_SET& set : file.option_sets) enter(file, set);
    }
    if (!any) option_sets_.clear();
}

unsigned linker::option_set(const input& file, unsigned number, const model::symbol* owner) const {
    const auto found = file.set_numbers.find(number);
    if (found == file.set_numbers.end())
        fail(file.name + ": symbol " + owner->name + " names option set " + std::to_string(number) +
             ", which the file does not have");
    return found->second;
}

// --- Types.

// Structures and enumerations without a tag are one when they stand at one place of the source, in a header,
// and have one meaning; what has a name is left to the package.
void linker::merge_types() {
    std::map<std::tuple<std::string_view, unsigned, unsigned>, std::vector<TYPE*>> at;
    const std::vector<TYPE*>& all = types_.all_types();
    for (TYPE* type : all) {
        if (type == nullptr || type->kind() < TYPE::ENUM_KIND || type->psn() == nullptr) continue;
        const PSN& place = *type->psn();
        if (place.file == nullptr) continue;
        // A macro can give one place several meanings; more than a few are left apart.
        std::vector<TYPE*>& others = at[{place.file, place.line, place.column}];
        const auto merges = [&](TYPE* other) { return types_.merge_types(other, type); };
        if (std::none_of(others.begin(), others.end(), merges) && others.size() < 8) others.push_back(type);
    }
    for (TYPE* type : all)
        if (type != nullptr) types_.find_equivalent_type(type);
}

void linker::resolve() {
    merge_option_sets();
    for (input& file : inputs_)
        for (model::symbol* symbol : file.globals) {
            symbol->option_set = option_set(file, symbol->option_set, symbol);
            enter(symbol, file);
        }
    for (const auto& [loser, name] : losers_) give_way(loser, external_.at(name));
    merge_types();
}

// --- Output.

bool linker::write(std::FILE* stream, const std::string& name) {
    I_FILE* file = I_FILE::if_create(stream, &types_, "icode-link", name.c_str());
    for (const OPTION_SET& set : option_sets_) file->if_enter_option_set(set.number, set.words);
    for (const input& in : inputs_)
        for (model::symbol* symbol : in.globals)
            if (standing(symbol) == symbol) file->if_enter_global(symbol);
    for (const auto& [loser, symbol_name] : losers_) loser.symbol->index = standing(loser.symbol)->index;
    for (input& in : inputs_) copy_body(in, *file);
    for (input& in : inputs_) copy_initialisers(in);
    return I_FILE::if_close(file, false) == 0;
}

} // namespace linking
