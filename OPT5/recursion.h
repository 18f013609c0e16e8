// Which functions may be active more than once at a time.

#ifndef OPT5_RECURSION_H
#define OPT5_RECURSION_H

class NODE;
struct FUNINFO;

// Finds out for every function of the call graph which functions it may reach through calls, those of code
// outside the file and of the library included, and reports the ones that may reach themselves. Fills
// FUNINFO::cycle, and FUNINFO::reachable where the file is not too large for it. Runs once.
void detect_recursion();

// Whether the function may call itself again, directly or through others. True where that is not known.
bool function_may_be_recursive(const FUNINFO* function);

// Whether the call, in the current function, may lead to another activation of the current function.
bool call_may_be_recursive(NODE* call);

#endif
