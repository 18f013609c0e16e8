#include "recursion.h"

#include <cstdio>
#include <memory>
#include <vector>

#include "bitvec.h"
#include "debug.h"
#include "fileopt.h"
#include "files.h"
#include "node.h"
#include "opcodes.h"
#include "pragma.h"
#include "symbol.h"

namespace {

// The sets of reachable functions are kept as long as they take no more than this.
constexpr std::size_t MAX_ROW_BITS = std::size_t{1} << 28;

// The graph of calls by number: the functions in their order, the root first, and behind them one node that
// stands for the library, which may call whatever has its address taken.
class REACH {
  public:
    REACH();
    void find_cycles();
    void fill_rows();

  private:
    using NUMBER = unsigned;
    void add_edge(NUMBER from, const FUNINFO* to) {
        if (to->cg_number >= 0) edges_[from].push_back(static_cast<NUMBER>(to->cg_number));
    }

    const NUMBER count_;
    std::vector<std::vector<NUMBER>> edges_;
    std::vector<int> cycle_;                   // of each node, -1 until it is left
    std::vector<std::vector<NUMBER>> members_; // of each cycle; a cycle's callees have lower numbers
};

REACH::REACH() : count_(static_cast<NUMBER>(fileinfo.ordered.size())), edges_(count_ + 1) {
    const NUMBER root = 0, library = count_;
    for (const FUNINFO* function : fileinfo.ordered) {
        const auto from = static_cast<NUMBER>(function->cg_number);
        for (const CALL_EDGE* edge = function->callees; edge != nullptr; edge = edge->next) {
            // Nobody calls main again where the file is the whole program.
            const bool is_start = from == root && TEST_FLAG(edge->callee, FUN_is_main) &&
                                  whole_file_mode != 0 && no_outside_callers != 0;
            if (!is_start) add_edge(from, edge->callee);
        }
        if (TEST_FLAG(function, FUN_calls_OUTSIDE)) edges_[from].push_back(root);
        if (TEST_FLAG(function, FUN_calls_SYSTEM) && no_outside_callers == 0) edges_[from].push_back(library);
    }
    for (const FUNINFO* function : fileinfo.anonymous)
        if (function_is_defined(function)) add_edge(library, function);
}

// Strongly connected components, by one walk with a stack of its own. A component is complete only after all
// that it can reach, so components are numbered from the callees up.
void REACH::find_cycles() {
    struct FRAME {
        NUMBER node;
        std::size_t next;
    };
    const NUMBER nodes = count_ + 1;
    std::vector<unsigned> entered(nodes, 0), lowest(nodes, 0); // 0: not entered
    std::vector<NUMBER> open;
    std::vector<FRAME> path;
    unsigned clock = 0;
    cycle_.assign(nodes, -1);
    for (NUMBER start = 0; start < nodes; start++) {
        if (entered[start] != 0) continue;
        path.push_back({start, 0});
        while (!path.empty()) {
            const NUMBER node = path.back().node;
            if (entered[node] == 0) {
                entered[node] = lowest[node] = ++clock;
                open.push_back(node);
            }
            if (path.back().next < edges_[node].size()) {
                const NUMBER to = edges_[node][path.back().next++];
                if (entered[to] == 0) {
                    path.push_back({to, 0});
                } else if (cycle_[to] < 0 && entered[to] < lowest[node]) {
                    lowest[node] = entered[to];
                }
                continue;
            }
            path.pop_back();
            if (!path.empty() && lowest[node] < lowest[path.back().node])
                lowest[path.back().node] = lowest[node];
            if (lowest[node] != entered[node]) continue;
            members_.emplace_back();
            for (NUMBER member = nodes; member != node;) {
                member = open.back();
                open.pop_back();
                cycle_[member] = static_cast<int>(members_.size()) - 1;
                members_.back().push_back(member);
            }
        }
    }
    for (FUNINFO* function : fileinfo.ordered) {
        function->cycle = cycle_[static_cast<std::size_t>(function->cg_number)];
        function->shares_cycle = members_[static_cast<std::size_t>(function->cycle)].size() > 1;
    }
}

// The closure of the graph. All functions of a cycle reach the same ones, and what a cycle reaches is the
// union of its members, where it is one, and of what its callees reach; so one union for every call does it,
// where closing the matrix of all pairs would take a number of operations that grows with the cube of the
// functions. Where even the rows would be too many, only the root keeps one, and the cycles answer for the
// rest.
void REACH::fill_rows() {
    const bool keeps_all = members_.size() * (count_ + std::size_t{1}) <= MAX_ROW_BITS;
    const NUMBER nodes = count_ + 1;
    std::vector<std::shared_ptr<BITVEC>> rows(keeps_all ? members_.size() : 0);
    for (std::size_t c = 0; c < rows.size(); c++) {
        rows[c] = std::make_shared<BITVEC>(nodes);
        for (NUMBER member : members_[c])
            for (NUMBER to : edges_[member]) {
                rows[c]->add(to);
                const auto callee = static_cast<std::size_t>(cycle_[to]);
                if (callee != c) rows[c]->merge(*rows[callee]);
            }
    }
    if (keeps_all) {
        for (FUNINFO* function : fileinfo.ordered)
            function->reachable = rows[static_cast<std::size_t>(function->cycle)];
        return;
    }
    auto row = std::make_shared<BITVEC>(nodes);
    std::vector<NUMBER> pending{0};
    while (!pending.empty()) {
        const NUMBER node = pending.back();
        pending.pop_back();
        for (NUMBER to : edges_[node]) {
            if (row->test(to)) continue;
            row->add(to);
            pending.push_back(to);
        }
    }
    fileinfo.root->reachable = row;
}

void report_recursion() {
    bool any = false;
    for (const FUNINFO* function : fileinfo.ordered) {
        if (function == fileinfo.root || !function_may_be_recursive(function)) continue;
        if (!any && finfo != nullptr) std::fputs("\nThese functions may be recursive:\n", finfo);
        if (!any) dprintf("\nThese functions may be recursive:\n");
        any = true;
        if (finfo != nullptr) std::fprintf(finfo, "\t%s()\n", function->name.c_str());
        dprintf("\t%s()\n", function->name.c_str());
    }
    if (!any) return;
    for (const FUNINFO* function : fileinfo.ordered)
        if (function != fileinfo.root && function_may_be_recursive(function))
            info_sentence(function->psn, "%s() may be called again while it runs", function->name.c_str());
}

bool has_self_edge(const FUNINFO* function) {
    for (const CALL_EDGE* edge = function->callees; edge != nullptr; edge = edge->next)
        if (edge->callee == function) return true;
    return false;
}

} // namespace

void detect_recursion() {
    set_up_and_build_call_graph();
    if (fileinfo.recursion_is_known || fileinfo.ordered.empty()) return;
    fileinfo.recursion_is_known = true;
    REACH reach;
    reach.find_cycles();
    reach.fill_rows();
    report_recursion();
}

bool function_may_be_recursive(const FUNINFO* function) {
    if (function->cycle < 0) return true;
    if (function->reachable != nullptr)
        return function->reachable->test(static_cast<unsigned>(function->cg_number));
    return function->shares_cycle || has_self_edge(function);
}

bool call_may_be_recursive(NODE* call) {
    if (whole_file_mode != 0 && no_outside_callers != 0 && TEST_FLAG(currfuninfo, FUN_is_main)) return false;
    if (code_is_reentrant == 0 && !symbol_has_pragma(currfunc, PRAG_REENTRANT)) return false;
    if (call->op != op::CALL && call->op != op::UCALL) return false;
    const FUNINFO* callee = find_FUNINFO_for_call(call);
    if (callee == nullptr || !function_is_defined(callee)) callee = fileinfo.root;
    if (callee->cycle < 0 || currfuninfo->cycle < 0) return true;
    if (callee->reachable != nullptr)
        return callee->reachable->test(static_cast<unsigned>(currfuninfo->cg_number));
    // The current function calls this one, so it is called back where both are on one cycle.
    return callee->cycle == currfuninfo->cycle;
}
