// The driver: start-up, the reading of the whole input, the main loop over functions and barriers, the
// closing run over the globals.

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <new>
#include <unordered_map>
#include <utility>
#include <vector>

#include "DIAG/diag.h"
#include "debug.h"
#include "dump.h"
#include "fileopt.h"
#include "files.h"
#include "global_symbols.h"
#include "if_file.h"
#include "node.h"
#include "output.h"
#include "pass.h"
#include "psnmap.h"
#include "read.h"
#include "steps.h"
#include "symbol.h"
#include "target_bif.h"
#include "types.h"

namespace {

// For each function the steps that it has yet to run. All lists hold the same passes, so a list is the place
// in the common sequence; functions are found by pointer and never walked in pointer order.
class STEPS_TABLE {
  public:
    void set_sequence(std::vector<pass*> sequence) {
        sequence_ = std::move(sequence);
        for (std::size_t i = 0; i < sequence_.size(); i++)
            if (sequence_[i]->is_barrier()) behind_barriers_ = i + 1;
    }
    bool is_empty(SYMTAB* function) { return place(function) >= sequence_.size(); }
    pass* front(SYMTAB* function) { return sequence_[place(function)]; }
    void pop(SYMTAB* function) { place_[function]++; }
    // What comes back to the list of functions behind a barrier runs none of the barriers that have run.
    void pass_barrier(pass* barrier) {
        while (barriers_done_ < behind_barriers_ && sequence_[barriers_done_] != barrier) barriers_done_++;
        barriers_done_++;
    }
    // Whether the function has nothing left to do for now. One that is suppressed goes no further than the
    // last barrier unless its body turns out to be needed.
    bool is_done(SYMTAB* function) {
        if (is_empty(function)) return true;
        if (place(function) < behind_barriers_) return false;
        const FUNINFO* record = find_FUNINFO(function);
        return record != nullptr && is_suppressed(record);
    }

  private:
    std::size_t place(SYMTAB* function) {
        std::size_t& place = place_[function];
        while (place < barriers_done_ && sequence_[place]->is_barrier()) place++;
        return place;
    }

    std::vector<pass*> sequence_;
    std::size_t behind_barriers_ = 0; // place of the first step behind all barriers
    std::size_t barriers_done_ = 0;   // place behind the barrier that ran last
    std::unordered_map<SYMTAB*, std::size_t> place_;
};

STEPS_TABLE steps_table;

void announce_function() {
    remembered_fdebug = fdebug;
    if (pass_debug("split_odb")) open_debug_file(1, currfunc->name);
    dump_function_header();
    if (write_opt_info)
        std::fprintf(finfo,
                     "\n==============================================================================\n");
    dump_FUNINFO(currfuninfo, nullptr);
    if (TEST_FLAG(currfuninfo, FUN_is_unsuppressed) && opt_level() > 2)
        std::fprintf(fdebug, "\n!!! %s() (%s) must be unsuppressed !!!\n\n",
                     currfunc->type->printstr().c_str(), currfunc->name);
}

// Runs the steps of one function up to the next barrier or the end of its list.
void run_function_phase(SYMTAB* function) {
    currfuninfo = make_FUNINFO(function);
    currfunc = function;
    if (function != currfuninfo->symbol) {
        currfuninfo->symbol = get_sym_def_for_decl(currfuninfo->symbol);
        if (currfunc != currfuninfo->symbol) optassert("currfunc == currfuninfo->symbol", "main", 253);
    }
    bool announced = false;
    while (!steps_table.is_empty(function)) {
        pass* step = steps_table.front(function);
        if (step->is_barrier()) break;
        if (!announced && print_debug) announce_function();
        announced = true;
        step->run();
        steps_table.pop(function);
    }
    if (announced) dprintf("\n==== END OF PHASE OF FUNCTION %s\n", function->name);
    // At a barrier the function's own log is closed, as there may be more functions than files can be open.
    if (announced) end_function_log();
    currfuninfo = nullptr;
    currfunc = nullptr;
}

void run_barrier_phase() {
    pass* barrier = nullptr;
    for (SYMTAB* function : functions) {
        if (steps_table.is_done(function)) continue;
        pass* front = steps_table.front(function);
        if (barrier == nullptr) barrier = front;
        if (front != barrier) optassert("barrier_pass == passes.front()", "main", 289);
        steps_table.pop(function);
    }
    if (barrier == nullptr) return;
    steps_table.pass_barrier(barrier);
    barrier->run();
}

// Whether a function that the phase has left behind as suppressed turned out to be needed.
bool function_came_back() {
    for (SYMTAB* function : functions)
        if (!steps_table.is_done(function) && !steps_table.front(function)->is_barrier()) return true;
    return false;
}

bool steps_remain() {
    for (SYMTAB* function : functions)
        if (!steps_table.is_done(function)) return true;
    return false;
}

void run_steps() {
    auto* output = new pass("output function", [] { run_step_body(OUTPUT_STEP); });
    std::vector<pass*> sequence = global_pass_manager.passes;
    sequence.push_back(output);
    steps_table.set_sequence(std::move(sequence));
    while (steps_remain()) {
        // The list grows while it is walked: a function comes back when its body turns out to be needed.
        do {
            for (std::size_t i = 0; i < functions.size(); i++)
                if (!steps_table.is_done(functions[i])) run_function_phase(functions[i]);
        } while (function_came_back());
        run_barrier_phase();
    }
    if (print_debug == 0) return;
    dump_psnrefs(fdebug);
    dump_psnmap(fdebug);
}

[[noreturn]] void run(int argc, char** argv) {
    open_files(argc, argv);
    init_opcode_tables();
    init_symbols();
    init_fileopts();
    init_BIF_descriptors();
    setup_passes(true);
    // There is no rule base to parse: the switch exercises start-up and the end of a run alone.
    if (!pass_debug("parser")) {
        user_error_count = 0;
        i_file->if_read_file();
        opt_client.end_of_input();
        if (functions.empty()) {
            analyze_global_symbols();
        } else {
            run_steps();
        }
        closing_run_over_globals();
        interned_stats();
    }
    close_files();
    if (--TYPE_PKG::tp_count == 0) {
        delete tp;
        tp = nullptr;
    }
    std::exit(0);
}

} // namespace

int main(int argc, char** argv) {
    try {
        run(argc, argv);
    } catch (const std::bad_alloc&) {
        abort_optimizer("ERROR - OUT OF MEMORY");
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "Exception:  %s\n", exception.what());
        std::fprintf(stderr, "%s", support_message_text());
        std::exit(1);
    }
}
