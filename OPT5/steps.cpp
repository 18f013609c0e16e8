// The 79 steps.
//
// The order is the pipeline's design. Barriers stand together near its start: everything behind step 10 sees
// a function with its callers' and callees' facts known, and takes it to the end before the next one starts.
// A step without a body keeps its number and name, so that a recorded order stays valid.

#include "steps.h"

#include "clusters.h"
#include "cond_paths.h"
#include "copyprop.h"
#include "csu_temps.h"
#include "dead_assigns.h"
#include "debug.h"
#include "embedded_assigns.h"
#include "expand_bitfields.h"
#include "explode_structs.h"
#include "fileopt.h"
#include "files.h"
#include "global_symbols.h"
#include "inliner.h"
#include "instrument.h"
#include "integrate.h"
#include "lcse.h"
#include "ls.h"
#include "merge_symbols.h"
#include "output.h"
#include "pass.h"
#include "propagate_increments.h"
#include "recursion.h"
#include "rename_symbols.h"
#include "simpcfg.h"
#include "stack_sharing.h"
#include "sti_to_cinit.h"
#include "subrange.h"
#include "superblocks.h"
#include "symbol.h"
#include "version.h"

namespace {

void pass_2_header() {
    if (write_opt_info) std::fflush(finfo);
    if (!print_debug) return;
    std::fflush(fdebug);
    std::printf("%s Pass 2\n", OPTIMIZER_TITLE);
}

void pass_2_inits() {
    LS::print(currfuninfo->scopes);
    add_instrumentation_exit_routine_to_atexit();
    LS::validate(currfuninfo->scopes);
    integrate_calls_in_function();
    // What has just been integrated may name statics that the function knows as members of clusters.
    if (cluster_refs_are_expanded()) expand_cluster_refs();
    promote_all_embedded_assignments();
    sym_split(currfuninfo);
    simpcfg(false, false);
}

void clean_values_in_pass_1() {
    fast_CP(4, 0);
    elim_dead_assigns(false, false);
}
void fast_CP_in_pass_1() { fast_CP(4, 0); }
void fast_CP_with_combining() { fast_CP(4, 1); }
void propagate_copies() { copyprop(1); }
void follow_parts_of_objects() {
    reset_alias_info();
    lcse_subrange_assignments();
    elim_dead_subrange_assigns();
}
void combine_and_clean_up() { fast_CP(0, 1); }

constexpr char NOT_BUILT[] = "nothing: not built yet";
constexpr char EMPTY_HERE[] = "nothing: empty in this target";

} // namespace

const STEP_ROW step_table[STEP_COUNT] = {
    // The clean-up of each function on its own, ahead of the whole-program steps that read it.
    {0, "pass 1 fcp/eda", false, LEVEL_2_UP, clean_values_in_pass_1,
     "replaces uses of values that are assigned once; drops assignments that nothing reads"},
    {1, "pass 1 fast_CP(4,0)", false, ANY_LEVEL, fast_CP_in_pass_1,
     "replaces uses of values that are assigned once"},
    {2, "value propagation for pass 1", false, LEVEL_2_UP, nullptr, NOT_BUILT},
    // The whole program: each barrier sees every function as the steps ahead of it left them.
    {3, "analyze globals", true, ANY_LEVEL, analyze_global_symbols,
     "builds the call graph; makes globals const that nothing modifies"},
    {4, "detect_recursion", true, ANY_LEVEL, detect_recursion,
     "finds the functions that may be active twice"},
    {5, "do_interprocedural_propagation", true, ANY_LEVEL, nullptr, NOT_BUILT},
    {6, "auto_inline_call_sites", true, ANY_LEVEL, auto_inline_call_sites,
     "decides which calls are integrated; copies the bodies of the functions that they call"},
    {7, "dump_call_graph_debug", true, ANY_LEVEL, dump_call_graph_debug,
     "lists the call graph and the constant variables in the debug file, the undefined callees in the "
     "information file, and draws the graph when asked"},
    {8, "collect_clustered_symbols", true, ANY_LEVEL, collect_clustered_symbols,
     "finds statics that the same functions use, and makes structures of them"},
    {9, "pass 2 header", true, ANY_LEVEL, pass_2_header, "flushes the logs and announces the second pass"},
    {10, "set call-graph order", true, ANY_LEVEL, set_call_graph_order,
     "orders the functions by the call graph and drops those that need no code"},
    // From here on each function goes to the end before the next one starts.
    {11, "pass 2 inits", false, ANY_LEVEL, pass_2_inits,
     "lets a counting program leave its counts; replaces the calls chosen for inlining by copies of their "
     "callees; makes statements of the assignments inside expressions; cleans the flow graph"},
    {12, "stack sharing", false, ANY_LEVEL, build_stack_sharing_type,
     "gives arrays and structures of blocks that never live together the same room in the frame"},
    {13, "CPS", false, ANY_LEVEL, straighten_cond_paths,
     "merges blocks that do the same; takes away tests that others have settled, and leads ways past tests "
     "whose outcome is known on them"},
    {14, "early LIR", false, ANY_LEVEL, nullptr, NOT_BUILT},
    {15, "early fast_CP(4,1)", false, ANY_LEVEL, fast_CP_with_combining,
     "joins assignments to one place; then as step 1"},
    {16, "MVP global assertions", false, ANY_LEVEL, nullptr, NOT_BUILT},
    {17, "intraprocedural MVP", false, LEVEL_2_UP, nullptr, NOT_BUILT},
    {18, "value propagation for SIMD", false, LEVEL_2_UP, nullptr, NOT_BUILT},
    {19, "explode auto structs", false, LEVEL_2_UP, explode_auto_struct_vars,
     "replaces local structures by a variable for each member"},
    {20, "non-DD clone SSA NASSERTs", false, LEVEL_2_UP, nullptr, NOT_BUILT},
    {21, "non-DD SSA CP", false, LEVEL_2_UP, nullptr, NOT_BUILT},
    {22, "non-DD SSA EDA", false, LEVEL_2_UP, nullptr, NOT_BUILT},
    {23, "SSA RP with benign loads", false, LEVEL_2_UP, nullptr, NOT_BUILT},
    {24, "expand bitfields", false, ANY_LEVEL, expand_bitfields,
     "replaces bit-fields by shifts and masks of the integers around them"},
    {25, "fast_CP(0,1)", false, ANY_LEVEL, combine_and_clean_up,
     "joins assignments to one place; drops assignments that nothing reads"},
    {26, "add profile loop annotations", false, ANY_LEVEL, nullptr, NOT_BUILT},
    {27, "CD vectorizations", false, ANY_LEVEL, nullptr, NOT_BUILT},
    // The dependence-driven group: loops are normalised and have a hierarchy inside each of these.
    {28, "forward_substitution", false, LEVEL_2_UP, nullptr, NOT_BUILT},
    {29, "SSA_hoist", false, LEVEL_2_UP, nullptr, NOT_BUILT},
    {30, "SSA_NASSERTs", false, LEVEL_2_UP, nullptr, NOT_BUILT},
    {31, "SSA_propagate", false, LEVEL_2_UP, nullptr, NOT_BUILT},
    {32, "SSA_deadasg", false, LEVEL_2_UP, nullptr, NOT_BUILT},
    {33, "SSA_reg_promote", false, LEVEL_2_UP, nullptr, NOT_BUILT},
    {34, "loop_assertions", false, LEVEL_2_UP, nullptr, NOT_BUILT},
    {35, "undeltafy", false, LEVEL_2_UP, nullptr, NOT_BUILT},
    {36, "add_downcounters", false, LEVEL_2_UP, nullptr, NOT_BUILT},
    {37, "collapse_loops", false, LEVEL_2_UP, nullptr, NOT_BUILT},
    {38, "circular_addressing", false, LEVEL_2_UP, nullptr, NOT_BUILT},
    {39, "loop_if_interchange", false, LEVEL_2_UP, nullptr, NOT_BUILT},
    {40, "cd_unroll_by_request", false, LEVEL_2_UP, nullptr, NOT_BUILT},
    {41, "DMAC_conversion", false, LEVEL_2_UP, nullptr, EMPTY_HERE},
    {42, "cd_unroll_completely_for_speed", false, LEVEL_2_UP, nullptr, EMPTY_HERE},
    {43, "unroll_completely_for_SP", false, LEVEL_2_UP, nullptr, EMPTY_HERE},
    {44, "unroll_and_jam", false, LEVEL_2_UP, nullptr, NOT_BUILT},
    {45, "loop fusion", false, LEVEL_2_UP, nullptr, NOT_BUILT},
    {46, "runtime_alias_predication", false, LEVEL_2_UP, nullptr, EMPTY_HERE},
    {47, "peel_and_unroll", false, LEVEL_2_UP, nullptr, EMPTY_HERE},
    {48, "cd_unroll_for_speed", false, LEVEL_2_UP, nullptr, EMPTY_HERE},
    {49, "PT_info", false, LEVEL_2_UP, nullptr, NOT_BUILT},
    {50, "explode_arrays", false, LEVEL_2_UP, nullptr, NOT_BUILT},
    {51, "unroll_for_SP", false, LEVEL_2_UP, nullptr, NOT_BUILT},
    {52, "simplify_useless_loop_clones", false, LEVEL_2_UP, nullptr, EMPTY_HERE},
    {53, "alias_advice", false, LEVEL_2_UP, nullptr, NOT_BUILT},
    {54, "reduction_interleaving", false, LEVEL_2_UP, nullptr, NOT_BUILT},
    {55, "value_propagation", false, LEVEL_2_UP, nullptr, NOT_BUILT},
    // The one step of the group with a body below level 2.
    {56, "DIVs_by_ICONs", false, ANY_LEVEL, nullptr, NOT_BUILT},
    {57, "SSA_propagate_vector", false, LEVEL_2_UP, nullptr, NOT_BUILT},
    {58, "SSA_deadasg", false, LEVEL_2_UP, nullptr, NOT_BUILT},
    {59, "SSA_reg_promote_with_simpcfg", false, LEVEL_2_UP, nullptr, NOT_BUILT},
    // The loop hierarchy is gone: global clean-up, then what a single block or statement still gives.
    {60, "CD ILP", false, ANY_LEVEL, nullptr, NOT_BUILT},
    {61, "late fast_CP(4,1)", false, ANY_LEVEL, fast_CP_with_combining, "as step 15"},
    {62, "global CP", false, LEVEL_2_UP_F2, propagate_copies,
     "replaces uses of what was assigned a constant or another variable"},
    {63, "late points-to", false, LEVEL_2_UP_F2, nullptr, NOT_BUILT},
    {64, "global CSE", false, LEVEL_2_UP_F2, nullptr, NOT_BUILT},
    {65, "Quillon rotate loops", false, ANY_LEVEL, nullptr, EMPTY_HERE},
    {66, "late rename symbols", false, LEVEL_2_UP_F2, rename_symbols,
     "gives each independent value of a local a symbol of its own"},
    {67, "merge symbols", false, LEVEL_2_UP_F2, merge_symbols,
     "makes locals that are copies of one another one"},
    {68, "DD restructuring", false, ANY_LEVEL, nullptr, EMPTY_HERE},
    {69, "expand cluster refs", false, ANY_LEVEL, expand_cluster_refs,
     "makes members of the statics that have been put together"},
    {70, "CSU returning temp", false, ANY_LEVEL, subst_csu_returning_temp_for_local_var,
     "lets a call store the structure it returns where it is copied to"},
    {71, "superblocks", false, LEVEL_1_UP, optimize_superblocks_in_cfg,
     "settles tests and moves assignments along likely paths"},
    {72, "subrange", false, LEVEL_1_UP, follow_parts_of_objects,
     "follows the values of members and elements within a block and its continuations; drops stores to them "
     "that nothing reads"},
    {73, "lcp", false, LEVEL_1_UP, propagate_copies, "as step 62"},
    {74, "sti-to-cinit", false, LEVEL_2_UP, convert_sti_to_cinit,
     "makes initialisers of the assignments with which the program starts"},
    {75, "lcse", false, LEVEL_1_UP, lcse,
     "computes common subexpressions of a block and its continuations once"},
    {76, "propagate increments", false, LEVEL_1_UP, propagate_increments,
     "joins increments of a variable in a block; uses between them take an offset"},
    {77, "late LIR", false, ANY_LEVEL, nullptr, NOT_BUILT},
    // Made by the driver behind every list: writing is not part of any order.
    {OUTPUT_STEP, "output function", false, ANY_LEVEL, output_function,
     "drops unused locals, cases and assignments in vain, weighs locals for registers, cleans the flow "
     "graph, "
     "orders the blocks, writes the function and erases it"},
};

void run_step_body(int id) {
    const STEP_ROW& row = step_table[id];
    if (row.body == nullptr) return;
    switch (row.level) {
        case ANY_LEVEL: break;
        case LEVEL_1_UP:
            if (opt_level() < 1) return;
            break;
        case LEVEL_2_UP:
            if (opt_level() < 2) return;
            break;
        case LEVEL_2_UP_F2:
            if (opt_level() < 2 || currfuninfo->bb_count < 2) return;
            break;
    }
    row.body();
}

void document_steps(std::FILE* stream) {
    constexpr const char* level_words[] = {"any", "1 and up", "2 and up", "2 and up, F2"};
    std::fprintf(stream, "| id | step | kind | level | today |\n|---|---|---|---|---|\n");
    for (const STEP_ROW& row : step_table)
        std::fprintf(stream, "| %d | %s | %s | %s | %s |\n", row.id, row.name,
                     row.barrier ? "barrier" : "function", level_words[row.level], row.today);
}
