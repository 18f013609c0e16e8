// The call graph: effects propagated over its edges, roots, order.

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

#include "debug.h"
#include "fileopt.h"
#include "files.h"
#include "graphs.h"
#include "if_client.h"
#include "pragma.h"
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

// An indirect call may reach any function whose address is taken. The root stands between the two sides: each
// indirect caller has an edge to it, and it gets one to each such function.
void resolve_indirect_calls() {
    for (const FUNINFO* function : fileinfo.anonymous)
        if (function == fileinfo.root || function->symbol == nullptr || !function_is_defined(function))
            fileinfo.flags |= FILE_calls_may_leave;
}

void classify_callees() {
    for (FUNINFO* caller : fileinfo.defined) {
        for (const CALL_EDGE* edge = caller->callees; edge != nullptr; edge = edge->next) {
            FUNINFO* callee = edge->callee;
            if (edge->ncalls == 0) optassert("edge->ncalls != 0", __FILE__, __LINE__);
            if (callee == fileinfo.root || function_is_defined(callee)) continue;
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
            add_call_edge(fileinfo.root, f, true);
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
void order_functions() {
    std::vector<FUNINFO*> path{fileinfo.root};
    std::vector<FUNINFO*> left;
    constexpr int ON_PATH = -2;
    fileinfo.root->cg_number = ON_PATH;
    fileinfo.root->dfs_cursor = fileinfo.root->callees;
    if (fileinfo.root->callees == nullptr) return;
    while (!path.empty()) {
        FUNINFO* function = path.back();
        if (CALL_EDGE* edge = function->dfs_cursor) {
            function->dfs_cursor = edge->next;
            FUNINFO* callee = edge->callee;
            if (callee->cg_number != -1) continue;
            callee->cg_number = ON_PATH;
            callee->dfs_cursor = callee->callees;
            path.push_back(callee);
        } else {
            path.pop_back();
            left.push_back(function);
        }
    }
    fileinfo.ordered.assign(left.rbegin(), left.rend());
    for (std::size_t i = 0; i < fileinfo.ordered.size(); i++)
        fileinfo.ordered[i]->cg_number = static_cast<int>(i);
    for (FUNINFO* caller : fileinfo.ordered)
        for (const CALL_EDGE* edge = caller->callees; edge != nullptr; edge = edge->next)
            if (edge->callee->cg_number <= caller->cg_number) edge->callee->flags |= FUN_follows_call;
}

void report_uncalled() {
    if (finfo == nullptr) return;
    for (const FUNINFO* f : fileinfo.defined) {
        if (f->cg_number >= 0 || TEST_FLAG(f, FUN_is_anonymous | FUN_is_suppressed)) continue;
        std::fprintf(finfo, "\n>>>> WARNING - Function %s()", f->name.c_str());
        std::fputs(" is not called and will not be compiled\n", finfo);
    }
}

} // namespace

void set_up_and_build_call_graph() {
    if (fileinfo.is_built) return;
    fileinfo.is_built = true;
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
    order_functions();
    report_uncalled();
}

void dump_call_graph_debug() {
    set_up_and_build_call_graph();
    if (dump_ocg_in_GDL != 0) view_call_graph();
    for (const FUNINFO* function : fileinfo.ordered)
        dprintf("%3d: %s\n", function->cg_number, function->name.c_str());
}

void set_call_graph_order() {
    set_up_and_build_call_graph();
    functions.clear();
    for (const FUNINFO* function : fileinfo.ordered) {
        if (function == fileinfo.root || TEST_FLAG(function, FUN_is_processed)) continue;
        if ((function->flags & (FUN_is_suppressed | FUN_cannot_suppress)) == FUN_is_suppressed) continue;
        functions.push_back(function->symbol);
    }
}
