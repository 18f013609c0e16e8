// Which function each position that call integration has copied comes from, for debug reports.

#ifndef OPT5_PSNMAP_H
#define OPT5_PSNMAP_H

#include <cstdio>

class SYMTAB;
struct PSN;

// Enters the function among those that positions refer to. Positions are entered by value: the first function
// that one is entered for stays. A null position is none.
void psnref_add(SYMTAB* function);
void psnmap_add(const PSN* psn, SYMTAB* function);
// The function from which the position was copied; null where none was.
SYMTAB* psn_search(const PSN* psn);
// Whether the position lies between the two, ends included, by line and then by column. None may be null.
bool psn_is_within_psn_range(const PSN* psn, const PSN* low, const PSN* high);
// Both print nothing where nothing was entered.
void dump_psnrefs(std::FILE* stream); // the functions, by line
void dump_psnmap(std::FILE* stream);  // the positions, in the order in which they were entered
void clear_psnmap();

#endif
