// Assignments inside expressions as statements of their own.

#ifndef OPT5_EMBEDDED_ASSIGNS_H
#define OPT5_EMBEDDED_ASSIGNS_H

// Moves assignments that stand inside expressions of the current function ahead of their statements, where
// nothing else with effects is evaluated before them and no condition decides whether they happen: a = b = e
// as b = e; a = b. What is used further is the variable assigned if nothing but its name leads to it, else a
// temporary. Increments that yield the old value stay where they are. Nothing at level 0. Edges stay. Linear.
void promote_all_embedded_assignments();

#endif
