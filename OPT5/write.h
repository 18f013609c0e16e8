// Writing a function back as records, through o_file.

#ifndef OPT5_WRITE_H
#define OPT5_WRITE_H

class NODE;
class SYMTAB;
struct LBL;
struct LIST;
struct PSN;

// The begin of function record of the current function.
void write_func_header();

// Everything behind it: symbols, blocks, exception table, end. Transfers take the file's form in place, so
// the function's flow graph is gone afterwards; what is left to do with it is erase_all.
void write_func_body();

// One control record, 2 to 6; with debugging also a line of the debug file.
void wrstcr(int record, const PSN* psn);
// One statement: a pragma, a text, or a tree with its position.
void wrexpr(LIST* statement);
// One tree without the framing of a statement.
void wrtree(NODE* tree);
// The definition of a label.
void wrbdlr(LBL* label);
// The blocks of the current function in list order, with the labels that are referred to.
void wrbblocks();
// A text: inline assembly or a comment, by the record's id.
void wrasmr(int record, const char* text, const PSN* psn);

// Gives the symbol the type and class as they stood in the input.
void revert_symbol_type(SYMTAB* symbol);

#endif
