// Collecting the call sites of a function, with what policies want to know of each.

#ifndef OPT5_CALL_SITES_H
#define OPT5_CALL_SITES_H

class NODE;
struct CALLSITE;
struct FUNINFO;

// Gives up the function's call sites.
void drop_call_sites(FUNINFO* function);

// Numbers the calls of the current function anew, so that no two of them share a bit of `inlined_sites`, and
// lists the ones in its blocks in `callsites`. Nothing is marked as inlined. Sets the estimates to what the
// body is now. Linear.
void collect_call_sites();

// Adds what takes an analysis of the flow: loops, frequencies, post-dominance and register pressure, and
// copies of the arguments. The sites of the current function must have been collected. Frequencies are taken
// from the branch predictor if the function is profiled or `predict` is set, else from the nesting of loops.
void analyze_call_sites(bool predict);

// Frees the copies of the arguments.
void drop_copied_arguments(FUNINFO* function);

// Whether the arguments of the call, which stands in `caller`, may be bound to the callee's parameters.
bool arguments_match(NODE* call, const FUNINFO* caller, const FUNINFO* callee);

// Whether a list of arguments (null for none) fits the prototype. Linear in the arguments.
bool arguments_fit_prototype(NODE* arguments, const FUNINFO* callee);

// How many arguments a list (null for none) has.
int arg_list_count(const NODE* arguments);

#endif
