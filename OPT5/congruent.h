// Comparing trees, and asking what a tree holds.

#ifndef OPT5_CONGRUENT_H
#define OPT5_CONGRUENT_H

class NODE;
class SYMTAB;
struct LIST;

// Whether both trees give the same value whenever they are evaluated side by side. Trees that have side
// effects or read volatile objects are congruent to nothing. With `exact_types` the types must be the same;
// without, compatible types will do, and of the constants only the values count. Linear; null is congruent to
// null.
bool trees_are_congruent(NODE* a, NODE* b, int exact_types = 0);

// The same for trees that may have side effects: they have the same ones in the same order.
bool trees_are_congruent_se_ok(NODE* a, NODE* b, int exact_types = 0);

// Lists of trees, cell by cell.
bool tree_lists_are_congruent(const LIST* a, const LIST* b, int exact_types = 0);

// Whether both trees are zero at the same time: congruent up to `!= 0`, conversions that keep zero, a swap of
// operands that the operator allows, and the order of both sides of a logical operator.
bool bools_are_congruent(NODE* a, NODE* b);

// Whether the tree names the symbol, its address included.
bool tree_references_NAME(NODE* tree, const SYMTAB* symbol);

// Whether the tree's value is fixed at compile or link time: constants, addresses of objects that do not
// move, and operators on these.
bool expr_is_constant(NODE* tree);

// Whether `part` is (strictly: below) a node of `tree`, by identity.
bool tree_is_subtree_of_tree(NODE* part, NODE* tree);
bool tree_is_strict_subtree_of_tree(NODE* part, NODE* tree);

// Whether the pointer is the address of a named object plus a constant; with such a term anywhere in a sum
// for pointer_contains_adcon_term, which therefore is never null.
bool pointer_is_an_adcon(NODE* pointer);
bool pointer_contains_adcon_term(NODE* pointer);

// Rewrites x = x op y to the compound form where the operands allow it, and back. Each takes the assignment
// and returns it, rewritten in place, or unchanged where the other form would not mean the same.
NODE* ASG_to_opASG(NODE* assignment);
NODE* opASG_to_ASG(NODE* assignment);

// The tree without its IDENTITY operators. Consumes the tree.
NODE* expunge_IDENTITY_ops_from_tree(NODE* tree);

#endif
