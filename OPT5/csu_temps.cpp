// Per block, with statements counted: a call that returns a structure to a variable named twice in the
// function waits for the second place, the copy. The copy goes if its target was last accessed by the call's
// arguments or before.

#include "csu_temps.h"

#include <vector>

#include "accesses.h"
#include "bblk.h"
#include "bbutils.h"
#include "copyprop.h"
#include "debug.h"
#include "erase.h"
#include "fileopt.h"
#include "files.h"
#include "node.h"
#include "object_parts.h"
#include "opcodes.h"
#include "optypes.h"
#include "symbol.h"
#include "types.h"

using namespace op;

namespace {

class CALL_TEMPS {
  public:
    explicit CALL_TEMPS(const PRIVATE_SYMBOLS& symbols);
    void run_block(BBLK* bb);

  private:
    struct VARIABLE {
        int names = 0;        // in the whole function
        int last_access = -1; // the statement
        int last_write = -1;
        LIST* call = nullptr; // that returns to it, in the block in work
        int called_at = -1;
    };
    VARIABLE* variable_of(const SYMTAB* symbol) {
        const int number = symbols_.number_of(symbol);
        return number >= 0 ? &variables_[static_cast<std::size_t>(number)] : nullptr;
    }
    bool end_copy(LIST* cell);
    void note_accesses(NODE* statement);
    void note_call(LIST* cell);

    const PRIVATE_SYMBOLS& symbols_;
    std::vector<VARIABLE> variables_; // by number
    std::vector<ACCESS> accesses_;
    int statement_ = 0;
    int block_start_ = 0;
};

CALL_TEMPS::CALL_TEMPS(const PRIVATE_SYMBOLS& symbols)
    : symbols_(symbols), variables_(static_cast<std::size_t>(symbols.count())) {
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next) {
            walk_tree(cell->first, [this](const NODE* node) {
                if (node->op != NAME) return;
                if (VARIABLE* variable = variable_of(node->symbol())) variable->names++;
            });
        }
    }
}

bool is_copy_of_names(const NODE* statement) {
    return statement->op == STASG && statement->left->op == NAME && statement->right->op == NAME;
}

bool is_temporary(const SYMTAB* symbol) {
    return symbol->level >= 2 && (opt_level() > 0 || symbol->name[0] == '$');
}

// If the statement copies what a call has returned, lets the call store it where it goes.
bool CALL_TEMPS::end_copy(LIST* cell) {
    const NODE* copy = cell->first;
    if (!is_copy_of_names(copy)) return false;
    SYMTAB* to = copy->left->symbol();
    const SYMTAB* from = copy->right->symbol();
    const VARIABLE* temp = variable_of(from);
    const VARIABLE* target = variable_of(to);
    if (temp == nullptr || target == nullptr || temp == target || temp->names != 2) return false;
    if (temp->call == nullptr || temp->called_at < block_start_ || !is_temporary(from)) return false;
    // What the call is given is read before it stores.
    if (target->last_access > temp->called_at || target->last_write >= temp->called_at) return false;
    if (to->type->normalized()->true_type() != from->type->normalized()->true_type()) return false;
    if (has_volatile_part(to->otype)) return false;
    if (print_debug != 0)
        dprintf("\nsubst_csu_returning_temp_for_local_var()\n  is substituting *%s\n", from->name);
    NODE* assignment = temp->call->first;
    NODE* name = copy->left;
    erase_node(assignment->left);
    assignment->left = name;
    assignment->type = copy->type;
    cell->first->left = nullptr;
    erase_node(cell->first->right);
    erase_node(cell->first);
    cell->first = nullptr;
    return true;
}

void CALL_TEMPS::note_accesses(NODE* statement) {
    accesses_.clear();
    list_part_accesses(statement, accesses_);
    for (const ACCESS& access : accesses_) {
        if (access.name == nullptr) continue;
        VARIABLE* variable = variable_of(access.name->symbol());
        if (variable == nullptr) continue;
        variable->last_access = statement_;
        if (access.kind != ACC_READ) variable->last_write = statement_;
    }
}

void CALL_TEMPS::note_call(LIST* cell) {
    const NODE* statement = cell->first;
    if (statement->op != STASG || statement->left->op != NAME) return;
    if (statement->right->op != CALL && statement->right->op != UCALL) return;
    VARIABLE* variable = variable_of(statement->left->symbol());
    if (variable == nullptr || variable->names != 2) return;
    variable->call = cell;
    variable->called_at = statement_;
}

void CALL_TEMPS::run_block(BBLK* bb) {
    block_start_ = statement_;
    bool changed = false;
    for (LIST* cell = bb->statements; cell != nullptr; cell = cell->next) {
        if (end_copy(cell)) {
            changed = true;
        } else {
            note_accesses(cell->first);
            note_call(cell);
        }
        statement_++;
    }
    if (changed) bb->statements = tidy_statement_list(bb->statements);
}

} // namespace

void subst_csu_returning_temp_for_local_var() {
    const PRIVATE_SYMBOLS symbols(true);
    if (!symbols.flow_is_known()) return;
    CALL_TEMPS temps(symbols);
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) temps.run_block(bb);
}
