#include "global_symbols.h"

#include <cstdio>
#include <string>
#include <unordered_map>
#include <vector>

#include "debug.h"
#include "dump.h"
#include "fileopt.h"
#include "files.h"
#include "pragma.h"
#include "symbol.h"
#include "types.h"

namespace {

constexpr int REPORT_LEVEL = 2; // of the information file

bool is_external(const SYMTAB* symbol) { return symbol->sclass == SC_EXTDEF || symbol->sclass == SC_EXTERN; }

bool is_marked(const SYMTAB* symbol, unsigned marks) { return (symbol->cqual & marks) != 0; }

// Pragmas that say where the object lies, who else knows it, or that the program does not set it up: what its
// initialiser says need not be what it holds.
bool is_placed_by_pragma(const SYMTAB* symbol) {
    for (const PRAGMA* pragma = symbol->pragmas; pragma != nullptr; pragma = pragma->next) {
        switch (pragma->kind) {
            case PRAG_DATA_SECTION:
            case PRAG_NORVANE_WEAK:
            case PRAG_PORT:
            case PRAG_SHARED:
            case PRAG_SHAREDPP:
            case PRAG_SYM_IS_REFERENCED:
            case PRAG_RETAIN:
            case PRAG_LOCATION:
            case PRAG_NOINIT:
            case PRAG_PERSISTENT: return true;
            default: break;
        }
    }
    return symbol_is_preemptible(symbol) || (symbol->otype->qual_kind(true) & QUAL_IOPORT) != 0;
}

void report(const SYMTAB* symbol, const char* text, const std::string& value) {
    for (std::FILE* stream : {finfo, print_debug != 0 ? fdebug : nullptr})
        if (stream != nullptr)
            std::fprintf(stream, "\n%s:\n\t%s%s%s\n", text, symbol->name, value.empty() ? "" : " = ",
                         value.c_str());
}

void make_const(SYMTAB* symbol) {
    symbol->type = tp->mk_qual(symbol->type, QUAL_CONST);
    const std::string value =
        symbol->known_value != nullptr ? tree_to_text(symbol->known_value) : std::string("?");
    report(symbol, "Making unmodified global variable CONST", value);
    info_sentence(symbol->psn, "%s is never modified and has become const: it is %s throughout", symbol->name,
                  value.c_str());
}

void analyze(SYMTAB* symbol) {
    if (symbol->otype->is_func()) return;
    if (!symbol->type->is_scalar()) {
        symbol->known_value = nullptr;
        symbol->cqual |= CQ_VISIBLE;
    }
    if (symbol->sclass != SC_STATIC && !is_external(symbol)) return;
    const bool is_known_here = symbol->sclass == SC_STATIC || no_outside_writers != 0;
    if (!is_known_here || symbol->otype->is_volatile()) symbol->cqual |= CQ_VISIBLE;
    const auto is_only_read = [symbol] {
        return is_marked(symbol, CQ_REFERENCED) && !is_marked(symbol, CQ_WRITTEN | CQ_ADDRESS_TAKEN);
    };
    if (symbol->type->is_scalar() && symbol->known_value == nullptr && is_only_read()) {
        symbol->cqual |= CQ_WRITTEN;
        report(symbol, "Variable has no explicitly assigned value", {});
        info_sentence(symbol->psn, "%s is read but is given no value", symbol->name);
    }
    if (is_only_read() && !is_placed_by_pragma(symbol)) {
        if (!is_immutable(symbol)) make_const(symbol);
    } else if (!is_immutable(symbol)) {
        symbol->known_value = nullptr;
    }
    if (is_marked(symbol, CQ_REGISTER)) symbol->cqual &= static_cast<std::uint16_t>(~CQ_WRITTEN);
}

// --- The reports on all variables.

class VARIABLES {
  public:
    VARIABLES();
    void report(const char* heading, unsigned mark) const;

  private:
    // A tentative definition without an initial value repeats a declaration.
    bool is_repeated(const SYMTAB* symbol) const;
    std::unordered_map<const char*, const SYMTAB*> declarations_; // by name; never walked
    std::vector<const SYMTAB*> shown_;
};

VARIABLES::VARIABLES() {
    for (const SYMTAB* symbol = global_symbols; symbol != nullptr; symbol = symbol->next)
        if (symbol->sclass == SC_EXTERN) declarations_[symbol->name] = symbol;
    for (const SYMTAB* symbol = global_symbols; symbol != nullptr; symbol = symbol->next)
        if (!symbol->otype->is_func() && (symbol->sclass == SC_STATIC || is_external(symbol)) &&
            !is_repeated(symbol))
            shown_.push_back(symbol);
}

bool VARIABLES::is_repeated(const SYMTAB* symbol) const {
    if (symbol->sclass != SC_EXTDEF || symbol->init != nullptr) return false;
    const auto found = declarations_.find(symbol->name);
    return found != declarations_.end() && tp->compatible_types(found->second->otype, symbol->otype, true);
}

void VARIABLES::report(const char* heading, unsigned mark) const {
    bool any = false;
    for (const SYMTAB* symbol : shown_) {
        if (is_marked(symbol, mark)) continue;
        if (!any) std::fprintf(finfo, "\n%s", heading);
        any = true;
        std::fprintf(finfo, "\t%s\n", symbol->name);
    }
}

} // namespace

void analyze_global_symbols() {
    set_up_and_build_call_graph();
    if (fileinfo.globals_are_analyzed) return;
    fileinfo.globals_are_analyzed = true;
    for (SYMTAB* symbol = global_symbols; symbol != nullptr; symbol = symbol->next) analyze(symbol);
    if (finfo == nullptr || write_opt_info < REPORT_LEVEL) return;
    const VARIABLES variables;
    variables.report("Global variable is not referenced in this file:\n", CQ_REFERENCED);
    variables.report("Global variable is not modified in this file:\n", CQ_WRITTEN);
    variables.report("Address of global variable is never taken:\n", CQ_ADDRESS_TAKEN);
}
