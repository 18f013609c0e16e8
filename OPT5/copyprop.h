// Propagation of copies and constants.

#ifndef OPT5_COPYPROP_H
#define OPT5_COPYPROP_H

class NODE;
class SYMTAB;
class TYPE;
struct LIST;

// Replaces the uses of locals that are assigned one constant, constant address or unchanging parameter in the
// whole function. At most `limit` rounds: a round that settles a branch is followed by another, which sees
// the graph without the code that is never reached. With `full`, combine_asgs_to_memory comes first, and dead
// assignments go in any case; otherwise only if something was replaced. Nothing at level 0. Edges are right
// afterwards. Linear in the function for each round.
void fast_CP(int limit, int full);

// Replaces the uses of what was assigned a constant, a constant address or another variable on the only way
// to the use, within extended basic blocks. At most `limit` rounds, each as fast_CP's. Edges are right
// afterwards. Linear in the function for each round.
void copyprop(int limit);

// Joins assignments to one place of memory that stand in one block, when nothing between them touches the
// place: x = 5; x += 2 as x = 7. Near linear in the function.
void combine_asgs_to_memory();

// Replaces reads of constants with known initial values in the tree, which is, or is part of, the statement
// in `stmt`; below an assignment's left side and an address operator (there the tree is given with
// `is_lvalue`) only pointers and indices are read. Consumes the tree and returns what takes its place, not
// simplified above what was replaced.
NODE* propagate_global_constants(NODE* tree, LIST* stmt, bool is_lvalue);

// The same for one member access, `.` or `->`, of a constant structure or union; other trees come back as
// they are.
NODE* prop_constant_for_CSU_member(NODE* member, LIST* stmt);

// --- What the propagators share.

// Replacements in this run of the program; debug texts show it.
extern long replacement_count;

// A copy of the value of `symbol`, converted to the symbol's type and then to that of the node `use`.
NODE* value_for_use(const NODE* use, const SYMTAB* symbol, NODE* value);

// Simplifies a statement in which something was replaced, and reduces it to its effects. Null when nothing is
// left. `settled` is set when the statement chooses its successor and now has only one.
NODE* tidy_statement(NODE* statement, bool& settled);

// Takes the empty cells (without a tree) out of the list, and the commas of its statements apart.
LIST* tidy_statement_list(LIST* list);

// Brings edges and blocks in line with branches that have been settled.
void repair_flow();

#endif
