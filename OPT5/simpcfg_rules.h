// What the modules that clean the flow graph share. Passes call simpcfg.h.
//
// While simpcfg works, edge lists are stale, and LBL::refs counts the references to each block.

#ifndef OPT5_SIMPCFG_RULES_H
#define OPT5_SIMPCFG_RULES_H

class BBLK;
class NODE;
struct INT65;
struct LIST;

// The block that a BRANCH leads to.
BBLK* target_of(const NODE* branch);

// How often the statements of the function name the block.
int reference_count(const BBLK* bb);

// Turns the IF or SWITCH of the cell `last` into a BRANCH by `label`, one of its LABEL nodes. The effects of
// its condition stay as statements ahead. Returns the cell of the BRANCH. Reference counts and edges are the
// caller's.
LIST* settle_transfer(LIST* last, NODE* label);

// Puts the statement (null: none), broken up at its commas, in the place of the cell's, which must be the
// last of its block, and the transfer behind it. The cell's old statement is the caller's. Returns the cell
// of the transfer.
LIST* replace_transfer(LIST* last, NODE* statement, NODE* transfer);

// Whether the IF that ends the block becomes an expression: a small conditional assignment of which nothing
// needs the condition as a guard. Reads reference counts, changes nothing.
bool if_is_convertible(const BBLK* bb, const LIST* last);

// Makes that expression; null where if_is_convertible says no. Returns the cell of the BRANCH to the join.
// The arms are no longer referred to; reference counts are the caller's.
LIST* convert_if(BBLK* bb, LIST* last);

// The LABEL node of a SWITCH to which the value leads.
NODE* label_for_value(const NODE* transfer, const INT65& value);

// How many nodes the copies of one block may add to the current function.
int duplication_budget();

// Whether a second copy of the statement in the same function means the same.
bool ok_to_dupe_stmt(NODE* statement);

// Both parts of do_early_cross_jumping; edges and DFNs must be right. True where the graph has changed: edges
// are stale then.
bool cross_jump();
bool remove_redundant_ifs();

#endif
