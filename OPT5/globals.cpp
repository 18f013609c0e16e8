// The closing run over the global symbols.

#include <cstdio>

#include "casts.h"
#include "clusters.h"
#include "fileopt.h"
#include "files.h"
#include "if_file.h"
#include "pragma.h"
#include "symbol.h"
#include "types.h"
#include "write.h"

namespace {

// Storage classes that the closing run gives.
constexpr std::uint8_t CLASS_REVERTED_STATIC = 108;
constexpr std::uint8_t CLASS_REVERTED_EXTERN = 109;

// A function with one of these keeps its default retention.
constexpr std::uint32_t KEPT =
    FUN_is_main | FUN_is_interrupt | FUN_is_anonymous | FUN_is_processed | FUN_is_referenced;
static_assert(KEPT == 0x40003a00);

bool is_left_alone(const SYMTAB* symbol, bool only_always) {
    return symbol->retention == I_SYMTAB::ALWAYS ||
           (!only_always && symbol->retention == I_SYMTAB::DEFAULT_C);
}

void decide_retention(SYMTAB* symbol) {
    if ((symbol->flags & SF_REVERT_CLASS) != 0)
        symbol->sclass = symbol->sclass == SC_EXTDEF ? CLASS_REVERTED_EXTERN : CLASS_REVERTED_STATIC;
    revert_symbol_type(symbol);
    if (symbol->sclass != SC_EXTDEF && symbol->sclass != SC_STATIC) return;
    if (symbol->type->is_func()) {
        if (is_left_alone(symbol, no_outside_callers != 0 || symbol->sclass == SC_STATIC)) return;
        const FUNINFO* function = find_FUNINFO(symbol);
        if (function != nullptr && function_is_defined(function) && !TEST_FLAG(function, KEPT))
            symbol->retention = I_SYMTAB::NEVER;
        return;
    }
    if (is_left_alone(symbol, symbol->sclass == SC_STATIC && no_outside_writers != 0)) return;
    if ((symbol->cqual & CQ_REFERENCED) == 0) symbol->retention = I_SYMTAB::NEVER;
}

const char* policy_word(const SYMTAB* symbol) {
    static constexpr const char* WORDS[] = {"DEFAULT_C", "ALWAYS", "EXTERNAL", "NEVER"};
    return symbol->retention <= I_SYMTAB::NEVER ? WORDS[symbol->retention] : "?";
}

void print_symbol(const SYMTAB* symbol) {
    dprintf("%c   %-11.32s %2u\t%4d   %2d  %#6x  %2u %-16s %13s", '#', symbol->name, symbol->sym_size(),
            symbol->value, symbol->sclass, symbol->cqual, symbol->sym_align(),
            symbol->type->printstr().c_str(), policy_word(symbol));
    dprintf("\t; (%d,%d)\n", symbol->level, static_cast<int>(symbol->index));
}

const char* first_argument(const PRAGMA* pragma) {
    return pragma->args.empty() ? "" : pragma->args[0].c_str();
}

const char* constructor_kind(const PRAGMA* pragma) {
    const std::string kind = first_argument(pragma);
    return kind == "1" ? "CONSTRUCTOR" : kind == "2" ? "DESTRUCTOR" : "CONSTRUCTOR/DESTRUCTOR";
}

void print_pragma(const PRAGMA* pragma) {
    const char* text = first_argument(pragma);
    switch (pragma->kind) {
        case PRAG_SRC_LANGUAGE: dprintf("\t  Symbol pragma: SOURCE LANGUAGE = '%s'\n", text); break;
        case PRAG_SCOPING_FUNC: dprintf("\t  Symbol pragma: SYMBOL IS LOCAL STATIC OF %s()\n", text); break;
        case PRAG_TRANSLATION_UNIT_ID: dprintf("\t  Symbol pragma: TRANSLATION UNIT ID #%s\n", text); break;
        case PRAG_IS_CLASS_MEMBER: dprintf("\t  Symbol pragma: SYMBOL IS CLASS MEMBER\n"); break;
        case PRAG_COMDAT_GROUP: dprintf("\t  Symbol pragma: COMDAT GROUP %s\n", text); break;
        case PRAG_FUNC_IS_CTOR_DTOR:
            dprintf("\t  Symbol pragma: SYMBOL IS %s\n", constructor_kind(pragma));
            break;
        case PRAG_FUNC_ESPEC:
            dprintf("\t  Symbol pragma: EXCEPTION SPEC: (");
            for (const std::string& arg : pragma->args) dprintf(" %s", arg.c_str());
            dprintf(" )\n");
            break;
        case PRAG_FUNC_SYNONYM: dprintf("\t  Symbol pragma: SYMBOL IS FUNCTION SYNONYM of %s\n", text); break;
        case PRAG_FUNC_RET_BY_CCTOR: dprintf("\t  Symbol pragma: FUNC_RET_BY_CCTOR\n"); break;
        case PRAG_FUNC_ALWAYS_INLINE: dprintf("\t  Symbol pragma: FUNCTION ALWAYS INLINE\n"); break;
        default:
            dprintf("\t  Symbol pragma #%d has %d arguments:", pragma->kind,
                    static_cast<int>(pragma->args.size()));
            for (const std::string& arg : pragma->args) dprintf(" %s", arg.c_str());
            dprintf("\n");
            break;
    }
}

void write_initialiser(SYMTAB* symbol) {
    o_file->if_write_init(symbol);
    EXPR_LIST* cell = symbol->init;
    do {
        wrtree(insert_mandatory_casts_in_tree(cell->tree));
        cell = cell->next;
    } while (cell != symbol->init);
}

} // namespace

void closing_run_over_globals() {
    close_file_summary();
    mark_names_in_assembly();
    close_clusters();
    for (SYMTAB* symbol = global_symbols; symbol != nullptr; symbol = symbol->next) decide_retention(symbol);
    if (print_debug != 0) {
        dprintf("\n\fGlobal symbols\n\n");
        dprintf("-- variable -- size -- offset/class");
        dprintf("/scqual/aln/stype -- policy;\n");
    }
    for (SYMTAB* symbol = global_symbols; symbol != nullptr; symbol = symbol->next) {
        if (print_debug != 0) print_symbol(symbol);
        if (symbol->init != nullptr) write_initialiser(symbol);
        if (print_debug != 0)
            for (const PRAGMA* pragma = symbol->pragmas; pragma != nullptr; pragma = pragma->next)
                print_pragma(pragma);
    }
}
