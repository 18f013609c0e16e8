// The step "output function".
//
// Trees: they get the form that suits the code generator, with every conversion that the file asks for;
// locals of the outermost scope and temporaries that no tree names any more lose their symbol; assignments to
// one place of memory come together; variables that never need memory get the class of register variables;
// assignments to locals that nobody reads go. Blocks get the order in which they are written. Requires edges
// and blocks; behind it the body is gone. Near linear in the function.

#include "output.h"

#include <vector>

#include "allocate_regs.h"
#include "bblk.h"
#include "block_layout.h"
#include "casts.h"
#include "clusters.h"
#include "copyprop.h"
#include "dead_assigns.h"
#include "debug.h"
#include "dump.h"
#include "erase.h"
#include "fileopt.h"
#include "files.h"
#include "graphs.h"
#include "integrate.h"
#include "node.h"
#include "rotate_loops.h"
#include "simpcfg.h"
#include "symbol.h"
#include "unsimplify.h"
#include "write.h"

std::FILE* remembered_fdebug = nullptr;

namespace {

constexpr int OUTERMOST_LOCALS = 2;

void count_uses(NODE* tree) {
    std::vector<NODE*> pending{tree};
    while (!pending.empty()) {
        NODE* node = pending.back();
        pending.pop_back();
        for (; node != nullptr; node = node->left) {
            if (node->op == op::NAME) {
                // The counter is narrow; that a symbol is used is all that matters.
                if (node->symbol()->level == OUTERMOST_LOCALS && node->symbol()->use_count != 0xffff)
                    node->symbol()->use_count++;
                break;
            }
            if (node->right != nullptr) pending.push_back(node->right);
        }
    }
}

void clear_uses(SYMTAB* list) {
    for (SYMTAB* symbol = list; symbol != nullptr; symbol = symbol->next)
        if (symbol->level == OUTERMOST_LOCALS) symbol->use_count = 0;
}

// Returns the last symbol of the list.
SYMTAB* drop_unused(SYMTAB*& list) {
    SYMTAB** link = &list;
    SYMTAB* last = nullptr;
    while (SYMTAB* symbol = *link) {
        if (symbol->level == OUTERMOST_LOCALS && symbol->use_count == 0) {
            *link = symbol->next;
            continue;
        }
        last = symbol;
        link = &symbol->next;
    }
    return last;
}

// A symbol that the exception table names is used there.
void drop_unused_locals() {
    clear_uses(currfuninfo->locals);
    clear_uses(currfuninfo->temps);
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next) count_uses(cell->first);
    for (const EHT_ENTRY& entry : currfuninfo->eht)
        if (entry.tree != nullptr) count_uses(static_cast<NODE*>(entry.tree));
    currfuninfo->locals_tail = drop_unused(currfuninfo->locals);
    drop_unused(currfuninfo->temps);
}

} // namespace

void output_function() {
    expand_cluster_refs(); // whatever the order of the steps was
    drop_unused_locals();
    combine_asgs_to_memory();
    optimize_SWITCH_cases();
    init_reg_defs();
    allocate_regs();
    elim_dead_assigns(false, false);
    if (!is_suppressed(currfuninfo)) {
        write_func_header();
        fold_ANDBASGs();
        simpcfg(true, false);
        rotate_loops();
        straighten_traces_in_cfg();
        unsimplify();
        // Last of all: cleaning the graph makes and simplifies conditionals, and what unsimplify moves into
        // its place may need a conversion there.
        for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
            for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next)
                insert_mandatory_casts_in_tree(cell->first);
        dump_state(STATE_AS_WRITTEN);
        write_function_graphs();
        // A function that nothing reaches is written where no step has dropped it: what it names must stay.
        if (fileinfo.is_built && currfuninfo->cg_number < 0) add_marks_of_body(currfuninfo);
        write_func_body();
    }
    currfuninfo->flags |= FUN_is_processed;
    erase_all();
    const FUNINFO* done = currfuninfo;
    currfuninfo = nullptr;
    currfunc = nullptr;
    release_integrable_definitions(done);
    restore_global_flags();
    end_function_log();
}

void end_function_log() {
    if (!print_debug || fdebug == remembered_fdebug) return;
    std::fclose(fdebug);
    fdebug = remembered_fdebug;
}
