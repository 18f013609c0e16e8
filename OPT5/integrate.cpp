#include "integrate.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>

#include "bblk.h"
#include "bbutils.h"
#include "copy_cfg.h"
#include "erase.h"
#include "fileopt.h"
#include "files.h"
#include "in_function.h"
#include "ls.h"
#include "node.h"
#include "opcodes.h"
#include "optypes.h"
#include "pragma.h"
#include "psn.h"
#include "symbol.h"
#include "types.h"

using namespace op;

// --- What may be integrated.

namespace {

// Larger locals count; unasked, a callee brings no more than so much of them into its callers.
constexpr std::uint32_t BITS_PER_BYTE = 8;
constexpr std::uint32_t LARGE_LOCAL = 32 * BITS_PER_BYTE;
constexpr std::uint64_t MAX_LARGE_LOCALS = 256 * BITS_PER_BYTE;

// What keeps the symbols from becoming another function's; null where nothing does.
const char* fault_of_symbols(const SYMTAB* list, bool any_size, std::uint64_t& large) {
    for (const SYMTAB* symbol = list; symbol != nullptr; symbol = symbol->next) {
        if (symbol->otype->is_volatile() || has_volatile_part(symbol->otype))
            return "it has a volatile local";
        if (symbol->class_as_read == SC_VARARG) return "its number of arguments varies";
        if ((symbol->cqual & CQ_REGISTER) != 0) continue;
        switch (symbol->sclass) {
            case SC_AUTO:
            case SC_REGISTER:
            case SC_PARM:
            case SC_REGPARM:
            case 22:
                if (symbol->size > LARGE_LOCAL && !any_size) large += symbol->size;
                if (large > MAX_LARGE_LOCALS) return "its locals are large";
                break;
            case SC_STATIC:
            case SC_EXTERN:
            case 6: break;
            default: return "it has a local of a storage class that can't be copied";
        }
    }
    return nullptr;
}

// A place that control can come back to without a call belongs to its frame.
bool is_landing(NODE* node) {
    if (node->op == UMCALL) return std::strcmp(node->intrinsic(), EH_SWITCH) == 0;
    const SYMTAB* callee = get_callee_for_call(node);
    return callee != nullptr && std::strcmp(skip_name_prefix(callee->name), "setjmp") == 0;
}

const char* fault_of_body(const FUNINFO* function) {
    for (const EHT_ENTRY& entry : function->eht)
        if (entry.kind == EHK_CATCH) return "it catches exceptions";
    constexpr const char* LANDS = "control can come back to it from elsewhere";
    for (const LIST* cell = function->statements; cell != nullptr; cell = cell->next)
        if (any_node(cell->first, is_landing)) return LANDS;
    for (const BBLK* bb = function->bb_list; bb != nullptr; bb = bb->next)
        for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next)
            if (any_node(cell->first, is_landing)) return LANDS;
    return nullptr;
}

void warn(const FUNINFO* function, const char* why) {
    const PSN* psn = function->psn;
    const char* file = psn != nullptr && psn->file != nullptr ? psn->file : "NO_FILE";
    const long line = psn != nullptr ? static_cast<long>(psn->line) : 0;
    const char* name = function->name.c_str();
    std::fprintf(stderr, "\"%s\", line %ld: Warning - Function %s() cannot be inlined.\n", file, line, name);
    if (finfo != nullptr)
        std::fprintf(finfo, "\n>>> Warning: 'inline' declaration for %s() must be ignored.\n\n", name);
    info_sentence(psn, "%s() can't be inlined: %s", name, why);
    dprintf("\n\t!!! %s is not integrable.\n", name);
}

} // namespace

bool is_asked_for(const SYMTAB* function) {
    return symbol_has_pragma(function, PRAG_INLINE) || symbol_has_pragma(function, PRAG_FUNC_ALWAYS_INLINE);
}

void check_integrable_definition(FUNINFO* function) {
    const bool any_size = is_asked_for(function->symbol);
    std::uint64_t large = 0;
    const char* why = nullptr;
    for (const SYMTAB* list : {function->params, function->locals, function->temps})
        if (why == nullptr) why = fault_of_symbols(list, any_size, large);
    if (why == nullptr) why = fault_of_body(function);
    if (why == nullptr) return;
    function->flags |= FUN_cannot_inline | FUN_cannot_suppress;
    if (symbol_has_pragma(function->symbol, PRAG_INLINE)) warn(function, why);
}

// --- The integrable definition.

namespace {

STACK_SHARING copy_of_notes(const STACK_SHARING& notes, const CFG_COPY& copy) {
    STACK_SHARING copied;
    for (const STACK_SHARING::SCOPE& scope : notes.scopes) {
        copied.scopes.push_back({scope.level, scope.parent, {}});
        for (const SYMTAB* symbol : scope.variables) {
            const auto place = copy.symbols.find(symbol);
            if (place != copy.symbols.end()) copied.scopes.back().variables.push_back(place->second);
        }
    }
    return copied;
}

} // namespace

void make_integrable_cfg(FUNINFO* function) {
    if (function->integrable_cfg != nullptr || function->bb_list == nullptr) return;
    sym_split(function);
    auto definition = std::make_unique<FUNINFO>();
    definition->symbol = function->symbol;
    definition->return_type = function->return_type;
    definition->name = function->name;
    definition->flags = function->flags;
    definition->has_no_calls = function->has_no_calls;
    definition->names_register_symbol = function->names_register_symbol;
    definition->fields_seen = function->fields_seen;
    CFG_COPY copy = copy_cfg(function, definition.get());
    definition->bb_list = copy.first;
    definition->bb_count = function->bb_count;
    definition->params = copy.params;
    definition->locals = copy.locals;
    definition->temps = copy.temps;
    definition->scopes = copy.scopes;
    definition->body_scope = copy.scopes != nullptr && copy.scopes->children != nullptr
                                 ? copy.scopes->children->children
                                 : nullptr;
    definition->eht = std::move(copy.eht);
    definition->stack_sharing = copy_of_notes(function->stack_sharing, copy);
    function->integrable_cfg = std::move(definition);
    function->flags |= FUN_is_inlined;
    fileinfo.definition_count++;
}

// --- Suppressed functions.

void unsuppress_inline_function(FUNINFO* f) {
    if (f->bb_list == nullptr || f == currfuninfo || !is_suppressed(f) || TEST_FLAG(f, FUN_is_processed))
        return;
    // Another file has the body of an external function, unless the linker takes one of several.
    if (TEST_FLAG(f, FUN_is_extern) && no_outside_callers == 0 &&
        !symbol_has_pragma(f->symbol, PRAG_COMDAT_GROUP))
        return;
    f->flags |= FUN_cannot_suppress;
    if (write_opt_info != 0 && finfo != nullptr) {
        std::fprintf(finfo, "\nInlineable function %s() was marked for suppression,", f->name.c_str());
        std::fprintf(finfo, "\nbut it cannot be because of a problematic use in %s().\n\n",
                     currfuninfo != nullptr ? currfuninfo->name.c_str() : "?");
    }
    f->flags &= ~FUN_is_suppressed;
    f->flags |= FUN_is_unsuppressed;
    // A forced order may have it on the list still.
    if (!f->is_left_out) return;
    f->is_left_out = false;
    functions.push_back(f->symbol);
}

void release_integrable_definitions(const FUNINFO* done) {
    // A caller stands ahead of its callees in the order, so behind the first function that is still to be
    // processed nothing is in the way of one ahead of it.
    if (done->cg_number < 0) return;
    for (; fileinfo.released < fileinfo.ordered.size(); fileinfo.released++) {
        FUNINFO* f = fileinfo.ordered[fileinfo.released];
        if (f == fileinfo.root) continue;
        if (!TEST_FLAG(f, FUN_is_processed)) {
            if (!is_suppressed(f)) return;
            const IN_FUNCTION current(f);
            erase_all();
        }
        if (f->integrable_cfg == nullptr) continue;
        f->integrable_cfg.reset();
        fileinfo.definition_count--;
    }
}
