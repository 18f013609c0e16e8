// Readable dumps: trees as C-like text, and the blocks of a function.

#ifndef OPT5_DUMP_H
#define OPT5_DUMP_H

#include <string>

class NODE;

// The tree on one line, in infix form. Operators that C does not have appear as NAME(operands). Labels appear
// as the block they lead to ("BB3"), or as "L5" where no flow graph stands. Linear.
std::string tree_to_text(NODE* tree);

// Writes the blocks of currfuninfo to the debug file, with edges and statements. `first` and `last` give the
// range of DFNs (0: from the first, to the last); with `types` every statement is followed by the type of its
// value. Nothing without debugging.
void prbbinfix(int first, int last, int types);

// The same of the whole of currfuninfo, if it has blocks. With the switch debug:dump_changes the blocks are
// written only if they differ from those written last, behind a line "<<<< STATE when: 2 blocks, 9
// operators".
// A state "before" a step that follows another one of the same function is never written then: nothing has
// happened between.
enum STATE_TIME { STATE_BEFORE, STATE_AFTER, STATE_AS_WRITTEN };
void dump_state(STATE_TIME when);

// Announces the current function in the debug file: name, source file and line. Nothing without debugging.
void dump_function_header();

#endif
