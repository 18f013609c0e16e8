// Call integration: the calls that the inlining policy has chosen are replaced by copies of their callees.

#ifndef OPT5_INTEGRATE_H
#define OPT5_INTEGRATE_H

class SYMTAB;
struct FUNINFO;

// Whether the source asks for the function's integration: it is declared inline, or always to be inlined.
bool is_asked_for(const SYMTAB* function);

// Tests whether the function that is being read may be integrated at all, as far as its local symbols and its
// statements tell; sets FUN_cannot_inline and FUN_cannot_suppress if it may not. A function declared inline
// gets a warning then.
void check_integrable_definition(FUNINFO* function);

// Gives the function its integrable definition in flow-graph form, a copy of its body as it is now, and sets
// FUN_is_inlined. Nothing happens if there is one. Linear.
void make_integrable_cfg(FUNINFO* function);

// Replaces the call sites of the current function that are marked in the `inlined_sites` of their owners.
// Edges, blocks and symbols are right afterwards. Linear in what is copied.
void integrate_calls_in_function();

// Takes back the suppression of a function whose body turns out to be needed: it is compiled after all.
void unsuppress_inline_function(FUNINFO* function);

// Frees the integrable definitions that no function still to be processed can need: those of functions up to
// and with the position of `done` in the call graph's order.
void release_integrable_definitions(const FUNINFO* done);

#endif
