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
void dump_state(const char* when);

// Announces the current function in the debug file: name, source file and line. Nothing without debugging.
void dump_function_header();

#endif
