// What the two forms of call integration share: a call's arguments meet the callee's parameters, its symbols
// become the caller's, its exception table goes behind the caller's.

#ifndef OPT5_BIND_CALL_H
#define OPT5_BIND_CALL_H

#include <unordered_map>
#include <vector>

#include "if_client.h"

class NODE;
class SYMTAB;

// The arguments, in order.
std::vector<NODE*> arguments_of(const NODE* call);

// Takes the call's arguments out of it, in order: what is passed, without the marks of passing it. What is left
// of the call is freed but for the call's own node, which loses its operands.
std::vector<NODE*> take_arguments(NODE* call);

// The assignments of a callee's argument prolog, by parameter; never walked.
using PROLOG = std::unordered_map<const SYMTAB*, NODE*>;

// Consumes the prolog.
PROLOG take_prolog_apart(NODE* prolog);

// The assignment that gives the parameter the value: that of the prolog, or one of its own where the prolog has
// none. Consumes the value.
NODE* assignment_to_parameter(const PROLOG& prolog, SYMTAB* parameter, NODE* value);

// Makes a copied symbol of a callee a local of the current function's outermost scope and gives a temporary a
// name that is free there. Its place on a list of the function is the caller's matter.
void make_local_of_caller(SYMTAB* symbol);

// Appends the copied table to the current function's: what would leave the callee goes on at `region`, the
// call's. Returns by how much the ids of its entries have grown. An entry that catches must not occur.
unsigned append_exception_table(std::vector<EHT_ENTRY>&& copied, unsigned region);

// Gives the calls in a copied tree their regions in the grown table, and the depth that is theirs inside `call`.
void adjust_copied_calls(NODE* tree, const NODE* call, unsigned offset);

// The assignment of a returned value to `target` as the call would make it; for a null target what is left of
// the value are its effects, null for none. Consumes the value.
NODE* returned_value(NODE* value, const NODE* call, SYMTAB* target);

// So many integrations deep, a call stays one: the option's value, or the usual one.
unsigned inline_recursion_limit();

#endif
