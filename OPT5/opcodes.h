// Operators of expression trees: their numbers and the file layer's table of them.
//
// To add an operator: its row in opcodes.def, its payload (if any) in if_read.cpp, if_write.cpp and the
// record layouts of tools/icode-text, its meaning in tools/icode-run.

#ifndef OPT5_OPCODES_H
#define OPT5_OPCODES_H

namespace op {

enum OPCODE : int {
#define OPCODE(number, name, operands, sp, precedence, effects) name = number,
#include "opcodes.def"
#undef OPCODE
    EPVAL = 110, // edge profile value: exists only in files
};

} // namespace op

// Operators of a file are below this number.
constexpr int FIRST_INTERNAL_OPCODE = 164;

// One operator as the file layer knows it.
struct IF_NODE_INFO {
    int number;       // operator number; equals the index for every entry in use
    const char* name; // null for a gap
    int operands;     // subtrees of a node in a file
};

// Indexed by operator number; filled by if_node_table_init.
constexpr int IF_NODE_INFO_SIZE = 201;
extern IF_NODE_INFO if_node_info[IF_NODE_INFO_SIZE];

// Fills if_node_info, once; later calls do nothing.
void if_node_table_init();

// Enters one operator. A number above 200 ends the run with "\nINTERNAL ERROR: Invalid opcode, aborting\n"
// on standard output and status 1.
void if_enter_node(int number, const char* name, int operands);

// The operator number of a name as it stands in if_node_info, or -1.
int if_opcode_of_name(const char* name);

#endif
