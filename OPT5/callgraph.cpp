// The call graph: effects propagated over its edges, roots, order.

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <vector>

#include "clusters.h"
#include "debug.h"
#include "dump.h"
#include "fileopt.h"
#include "files.h"
#include "global_symbols.h"
#include "graphs.h"
#include "if_client.h"
#include "inliner.h"
#include "node.h"
#include "opcodes.h"
#include "pragma.h"
#include "recursion.h"
#include "symbol.h"
#include "types.h"

namespace {

// Takes effects from callers until nothing changes. A function is looked at again only when a callee has lost
// a promise, and there are few promises to lose, so the cost is linear in the edges.
void propagate_effects() {
    std::vector<std::vector<FUNINFO*>> callers(fileinfo.defined.size());
    for (std::size_t i = 0; i < fileinfo.defined.size(); i++)
        fileinfo.defined[i]->cg_number = static_cast<int>(i);
    for (FUNINFO* caller : fileinfo.defined)
        for (const CALL_EDGE* edge = caller->callees; edge != nullptr; edge = edge->next)
            if (edge->callee != caller && function_is_defined(edge->callee))
                callers[static_cast<std::size_t>(edge->callee->cg_number)].push_back(caller);
    std::vector<FUNINFO*> changed = fileinfo.defined;
    while (!changed.empty()) {
        FUNINFO* callee = changed.back();
        changed.pop_back();
        for (FUNINFO* caller : callers[static_cast<std::size_t>(callee->cg_number)]) {
            const std::uint32_t before = caller->flags;
            merge_callee_effects(caller, callee);
            if (caller->flags != before) changed.push_back(caller);
        }
    }
    for (FUNINFO* function : fileinfo.defined) function->cg_number = -1;
}

// Text in assembly may call what it names.
void note_functions_of_assembly() {
    mark_names_in_assembly();
    for (FUNINFO* function : fileinfo.defined) {
        if (!TEST_FLAG(function, FUN_is_referenced)) continue;
        function->flags |= FUN_is_cg_root;
        fileinfo.flags |= FILE_has_entry;
    }
}

void add_to_count(std::uint16_t& count, std::uint32_t more) {
    count = static_cast<std::uint16_t>(std::min<std::uint32_t>(0xffff, count + more));
}

// An indirect call may reach any function whose address is taken: each such pair is an edge. There may be
// very many, so they are not made one by one; FUN_calls_anonymous stands for them on the one side and the
// list of anonymous functions on the other.
void resolve_indirect_calls() {
    for (const FUNINFO* function : fileinfo.defined)
        if (TEST_FLAG(function, FUN_calls_anonymous)) fileinfo.indirect_callers++;
    for (FUNINFO* function : fileinfo.anonymous) {
        if (function == fileinfo.root || function->symbol == nullptr || !function_is_defined(function)) {
            fileinfo.flags |= FILE_calls_may_leave;
        } else if (fileinfo.indirect_callers > 0) {
            add_to_count(function->nCallers, fileinfo.indirect_callers);
            function->flags |= FUN_is_called;
        }
    }
}

void classify_callees() {
    for (FUNINFO* caller : fileinfo.defined) {
        for (const CALL_EDGE* edge = caller->callees; edge != nullptr; edge = edge->next) {
            FUNINFO* callee = edge->callee;
            if (edge->ncalls == 0) optassert("edge->ncalls != 0", __FILE__, __LINE__);
            if (callee == fileinfo.root) continue;
            if (edge->is_certain && TEST_FLAG(callee, FUN_never_returns) &&
                (caller->flags & (FUN_has_1_BB | FUN_calls_anonymous)) == FUN_has_1_BB) {
                caller->flags |= FUN_never_returns;
                caller->flags &= ~FUN_is_pure_fun;
            }
            if (function_is_defined(callee)) continue;
            if (TEST_FLAG(callee, FUN_is_SYSTEM)) {
                caller->flags |= FUN_calls_SYSTEM;
            } else {
                caller->flags |= FUN_calls_OUTSIDE;
                fileinfo.flags |= FILE_calls_may_leave;
            }
            callee->nArgs = -1;
            callee->flags |= FUN_cannot_beta;
        }
    }
}

void revert_if_needed() {
    const bool has_entry = (fileinfo.flags & FILE_has_entry) != 0;
    const bool self_contained =
        (fileinfo.flags & FILE_has_main) != 0 && (fileinfo.flags & FILE_calls_may_leave) == 0;
    if (!has_entry && (program_mode == 1 || program_mode == 2)) {
        std::fprintf(finfo != nullptr ? finfo : stderr,
                     "\"%s\": Warning - Reverting to -op0: file has no entry functions!\n", i_file_name);
        program_mode = 0;
    } else if (program_mode >= 0 || self_contained) {
        return;
    }
    if (no_outside_callers != 0 || no_outside_writers != 0 || whole_file_mode != 0)
        dprintf("\n>>>> WARNING: Reverting to -op0!\n\n");
    no_outside_callers = no_outside_writers = whole_file_mode = 0;
}

// Not a call that the program makes, so what is found out from calls stays as it is.
void add_call_from_root(FUNINFO* function) {
    const int mode = whole_file_mode;
    add_call_edge(fileinfo.root, function, true);
    whole_file_mode = mode;
}

void find_roots() {
    for (FUNINFO* f : fileinfo.defined) {
        if (no_outside_callers == 0 && TEST_FLAG(f, FUN_is_extern | FUN_is_anonymous))
            f->flags |= FUN_is_cg_root;
        const bool is_void = f->return_type == nullptr || f->return_type->is_void();
        if ((!is_void && TEST_FLAG(f, FUN_is_cg_root | FUN_is_anonymous)) ||
            symbol_has_pragma(f->symbol, PRAG_FUNC_IS_CTOR_DTOR))
            f->flags |= FUN_value_needed;
        const bool misused = is_void && TEST_FLAG(f, FUN_value_needed);
        if (!symbol_has_pragma(f->symbol, PRAG_INLINE) &&
            (TEST_FLAG(f, FUN_is_main | FUN_is_interrupt) || misused))
            f->flags |= FUN_cannot_inline | FUN_cannot_suppress;
        if (TEST_FLAG(f, FUN_is_cg_root | FUN_is_anonymous)) {
            if (TEST_FLAG(f, FUN_is_cg_root)) add_call_from_root(f);
            if (TEST_FLAG(f, FUN_is_anonymous)) add_call_from_root(f);
            f->nArgs = -1;
            f->flags |= FUN_cannot_beta;
        }
    }
}

void note_undefined(FUNINFO* callee) {
    auto& list = TEST_FLAG(callee, FUN_is_SYSTEM) ? fileinfo.undefined_SYSTEM : fileinfo.undefined_OUTSIDE;
    if (callee->is_listed) return;
    callee->is_listed = true;
    list.push_back(callee);
}

// Leaves only edges to defined functions.
void keep_defined_callees(FUNINFO* caller) {
    for (CALL_EDGE** place = &caller->callees; *place != nullptr;) {
        CALL_EDGE* edge = *place;
        if (function_is_defined(edge->callee)) {
            place = &edge->next;
            continue;
        }
        if (edge->callee != fileinfo.root) note_undefined(edge->callee);
        if (edge->callee->last_edge == edge) edge->callee->last_caller = nullptr;
        *place = edge->next;
        POOL::recycle(edge, sizeof(CALL_EDGE));
    }
}

// Reverse post-order from the root: a caller stands before its callees, but for calls back.
class ORDERING {
  public:
    void run();

  private:
    static constexpr int ON_PATH = -2;
    void enter(FUNINFO* function) {
        function->cg_number = ON_PATH;
        function->dfs_cursor = function->callees;
        path_.push_back(function);
    }
    FUNINFO* next_callee(FUNINFO* function);
    void note_calls_back();

    std::vector<FUNINFO*> path_, left_;
    std::size_t next_anonymous_ = 0; // the ones in front have been entered
};

// The next callee that has not been entered, null when there is none. Calls through pointers come first.
FUNINFO* ORDERING::next_callee(FUNINFO* function) {
    if (TEST_FLAG(function, FUN_calls_anonymous)) {
        while (next_anonymous_ < fileinfo.anonymous.size()) {
            FUNINFO* callee = fileinfo.anonymous[next_anonymous_++];
            if (function_is_defined(callee) && callee->cg_number == -1) return callee;
        }
    }
    while (CALL_EDGE* edge = function->dfs_cursor) {
        function->dfs_cursor = edge->next;
        if (edge->callee->cg_number == -1) return edge->callee;
    }
    return nullptr;
}

void ORDERING::note_calls_back() {
    int last_indirect = -1;
    for (const FUNINFO* caller : fileinfo.ordered) {
        if (TEST_FLAG(caller, FUN_calls_anonymous)) last_indirect = caller->cg_number;
        for (const CALL_EDGE* edge = caller->callees; edge != nullptr; edge = edge->next)
            if (edge->callee->cg_number <= caller->cg_number) edge->callee->flags |= FUN_follows_call;
    }
    for (FUNINFO* function : fileinfo.anonymous)
        if (function->cg_number >= 0 && function->cg_number <= last_indirect)
            function->flags |= FUN_follows_call;
}

void ORDERING::run() {
    if (fileinfo.root->callees == nullptr) return;
    enter(fileinfo.root);
    while (!path_.empty()) {
        FUNINFO* function = path_.back();
        if (FUNINFO* callee = next_callee(function)) {
            enter(callee);
        } else {
            path_.pop_back();
            left_.push_back(function);
        }
    }
    fileinfo.ordered.assign(left_.rbegin(), left_.rend());
    for (std::size_t i = 0; i < fileinfo.ordered.size(); i++)
        fileinfo.ordered[i]->cg_number = static_cast<int>(i);
    note_calls_back();
}

// What an initialiser of one value says of a scalar.
void note_known_values() {
    for (SYMTAB* symbol = global_symbols; symbol != nullptr; symbol = symbol->next) {
        const EXPR_LIST* first = symbol->init;
        if (symbol->known_value == nullptr && first != nullptr && first->next != first &&
            first->next->next == first && first->next->tree->op == op::ENDINIT)
            symbol->known_value = first->tree;
    }
}

void report_uncalled() {
    if (finfo == nullptr) return;
    for (const FUNINFO* f : fileinfo.defined) {
        if (f->cg_number >= 0 || TEST_FLAG(f, FUN_is_anonymous | FUN_is_suppressed)) continue;
        std::fprintf(finfo, "\n>>>> WARNING - Function %s()", f->name.c_str());
        std::fputs(" is not called and will not be compiled\n", finfo);
        info_sentence(f->psn, "%s() is never called", f->name.c_str());
    }
}

void write_names(std::FILE* stream, const char* heading, const std::vector<FUNINFO*>& list) {
    if (stream == nullptr || list.empty()) return;
    std::fputs(heading, stream);
    for (const FUNINFO* function : list) std::fprintf(stream, "\t%s()\n", function->name.c_str());
}

// The callees without a body here, in the information file and in the debug file.
void report_undefined_callees() {
    if (fileinfo.callees_are_reported) return;
    fileinfo.callees_are_reported = true;
    if (fileinfo.undefined_SYSTEM.empty() && fileinfo.undefined_OUTSIDE.empty()) return;
    for (std::FILE* stream : {finfo, print_debug != 0 ? fdebug : nullptr}) {
        if (stream == nullptr) continue;
        std::fputs("\nThese external functions are called but not defined here:\n", stream);
        write_names(stream, "\nThese SYSTEM functions are called but not defined:\n",
                    fileinfo.undefined_SYSTEM);
        write_names(stream, "\nThese OUTSIDE functions are called but not defined:\n",
                    fileinfo.undefined_OUTSIDE);
    }
}

void list_constant_variables() {
    if (print_debug == 0) return;
    bool any = false;
    for (const SYMTAB* symbol = global_symbols; symbol != nullptr; symbol = symbol->next) {
        if (symbol->known_value == nullptr || !is_immutable(symbol)) continue;
        if (!any) dprintf("\nThese variables are constant:\n");
        any = true;
        dprintf("\t%s = %s\n", symbol->name, tree_to_text(symbol->known_value).c_str());
    }
}

} // namespace

void open_file_summary() {
    if (finfo == nullptr || fileinfo.summary_is_open || fileinfo.summary_is_closed) return;
    fileinfo.summary_is_open = true;
    std::fputs("\n\t\t======File-level Analysis Summary======\n\n", finfo);
}

void close_file_summary() {
    if (finfo == nullptr || !fileinfo.summary_is_open) return;
    fileinfo.summary_is_open = false;
    fileinfo.summary_is_closed = true;
    std::fputs("\n\t\t======= End file-level Analysis =======\n\n", finfo);
}

void info_sentence(const PSN* psn, const char* format, ...) {
    if (finfo == nullptr) return;
    if (psn != nullptr && psn->file != nullptr) std::fprintf(finfo, "%s, line %u: ", psn->file, psn->line);
    va_list args;
    va_start(args, format);
    std::vfprintf(finfo, format, args);
    va_end(args);
    std::fputs(".\n", finfo);
}

void set_up_and_build_call_graph() {
    if (fileinfo.is_built) return;
    fileinfo.is_built = true;
    open_file_summary();
    note_functions_of_assembly();
    std::stable_sort(
        fileinfo.defined.begin(), fileinfo.defined.end(),
        [](const FUNINFO* a, const FUNINFO* b) { return std::strcmp(a->name.c_str(), b->name.c_str()) < 0; });
    propagate_effects();
    resolve_indirect_calls();
    classify_callees();
    revert_if_needed();
    find_roots();
    for (FUNINFO* f : fileinfo.defined) {
        dump_FUNINFO(f, nullptr);
        keep_defined_callees(f);
    }
    ORDERING().run();
    note_known_values();
    derive_marks_of_globals();
    report_uncalled();
}

void dump_call_graph_debug() {
    set_up_and_build_call_graph();
    report_undefined_callees();
    if (dump_ocg_in_GDL != 0) view_call_graph();
    for (const FUNINFO* function : fileinfo.ordered)
        dprintf("%3d: %s\n", function->cg_number, function->name.c_str());
    list_constant_variables();
}

void analyze_call_graph() {
    set_up_and_build_call_graph();
    if (!fileinfo.ordered.empty()) {
        analyze_global_symbols();
        detect_recursion();
        auto_inline_call_sites();
        dump_call_graph_debug();
    }
    collect_clustered_symbols();
    close_file_summary();
}

void set_call_graph_order() {
    set_up_and_build_call_graph();
    close_file_summary();
    functions.clear();
    for (FUNINFO* function : fileinfo.ordered) {
        if (function == fileinfo.root || TEST_FLAG(function, FUN_is_processed)) continue;
        function->is_left_out = is_suppressed(function);
        if (!function->is_left_out) functions.push_back(function->symbol);
    }
}
