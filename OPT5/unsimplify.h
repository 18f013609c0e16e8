// The last rewrites of a function: forms that suit the code generator better than the passes.

#ifndef OPT5_UNSIMPLIFY_H
#define OPT5_UNSIMPLIFY_H

// Joins runs of statements `x &= k` on one place, in every block of the current function.
void fold_ANDBASGs();

// Chains assignments of one constant, 0 or 1, that stand together (x = 0; y = 0 as x = y = 0), moves a value
// that has a single use, in the statement behind it, to that use, writes differences where a constant is
// negative, and orders the stack's variables. Linear in the function.
void unsimplify();

#endif
