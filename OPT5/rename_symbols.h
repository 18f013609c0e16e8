// One symbol for each web of stores and reads.

#ifndef OPT5_RENAME_SYMBOLS_H
#define OPT5_RENAME_SYMBOLS_H

// Gives private scalars of the current function that serve for several independent values, each from its
// stores to its last read, a symbol for each: the value that arrives from outside, or else the first in the
// function, keeps the symbol; the others get temporaries of the same type. Does nothing in a function whose
// flow is not known.
//
// Needs right edges; leaves blocks and edges alone, renumbers DFNs. Near linear: in the largest functions it
// stops after a fixed amount of work.
void rename_symbols();

#endif
