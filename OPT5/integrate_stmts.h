// Call integration in statement form: calls are replaced while their caller is being read, ahead of its flow
// graph, by the statements of callees that were read earlier in the file. The debug switch `inline_statements`
// turns it on.

#ifndef OPT5_INTEGRATE_STMTS_H
#define OPT5_INTEGRATE_STMTS_H

class LS;
class NODE;
class SYMTAB;
struct FUNINFO;
struct LIST;

// Stores a private copy of the statements of the function that is being read, with symbols, labels, scopes and
// exception table of its own, and sets FUN_is_inlined. Calls of hook functions are left out of the copy if
// `remove_hooks_when_inlining`. A function that can't be integrated gets the marks of
// check_integrable_definition, and no copy. Nothing happens if there is a copy. Linear.
void make_integrable_definition(FUNINFO* function);

// Copies the symbols of the stored definition into the current function, as locals of the scopes that
// integrate_integrable_scopes has made; a definition's symbol finds its copy by its number.
void merge_integrable_symbols(FUNINFO* callee);

// Whether the call passes what the parameters of the stored definition expect: as many arguments or more, each
// of a type that can be assigned.
bool verify_that_args_match(const NODE* call, const FUNINFO* callee);

// How a call stands in its statement.
enum CALL_POSITION {
    CALL_IS_STATEMENT = 0,
    CALL_GIVES_VALUE = 1, // to the variable that the statement assigns it to, or to a temporary
    CALL_DECIDES = 2      // in the condition of a transfer
};

// Replaces the call at `place` in the statement of `cell` by the statements of its callee, which are returned in
// order and are to stand ahead of the cell. In the cell stays what becomes of the value: its variable, or 0.
LIST* integrate_call(CALL_POSITION position, NODE** place, LIST* cell);

// Replaces the calls in the statements of the function that is being read. A call that is evaluated under a
// condition, or behind something that it could change, stays.
void integrate_calls_in_statements();

#endif
