// The step "output function".
//
// Trees: they get the form that suits the code generator, with every conversion that the file asks for;
// locals of the outermost scope that no tree names any more lose their symbol; assignments to locals that
// nobody reads go. Blocks get the order in which they are written. Requires edges and blocks; behind it the
// body is gone. Near linear in the function.

#include "output.h"

#include <vector>

#include "bblk.h"
#include "block_layout.h"
#include "casts.h"
#include "dead_assigns.h"
#include "debug.h"
#include "erase.h"
#include "fileopt.h"
#include "files.h"
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

void drop_unused_locals() {
    for (SYMTAB* symbol = currfuninfo->locals; symbol != nullptr; symbol = symbol->next)
        if (symbol->level == OUTERMOST_LOCALS) symbol->use_count = 0;
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next) count_uses(cell->first);
    for (const EHT_ENTRY& entry : currfuninfo->eht)
        if (entry.tree != nullptr) count_uses(static_cast<NODE*>(entry.tree));

    SYMTAB** link = &currfuninfo->locals;
    SYMTAB* last = nullptr;
    while (SYMTAB* symbol = *link) {
        if (symbol->level == OUTERMOST_LOCALS && symbol->use_count == 0) {
            *link = symbol->next;
            continue;
        }
        last = symbol;
        link = &symbol->next;
    }
    currfuninfo->locals_tail = last;
}

} // namespace

void output_function() {
    drop_unused_locals();
    optimize_SWITCH_cases();
    elim_dead_assigns(false, false);
    if (!TEST_FLAG(currfuninfo, FUN_is_suppressed)) {
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
        write_func_body();
    }
    currfuninfo->flags |= FUN_is_processed;
    erase_all();
    currfuninfo = nullptr;
    currfunc = nullptr;
    restore_global_flags();
    end_function_log();
}

void end_function_log() {
    if (!print_debug || fdebug == remembered_fdebug) return;
    std::fclose(fdebug);
    fdebug = remembered_fdebug;
}
