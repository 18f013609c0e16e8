// One symbol for copies of one another.

#ifndef OPT5_MERGE_SYMBOLS_H
#define OPT5_MERGE_SYMBOLS_H

// Where one private symbol of the current function is copied to another of the same type and the two never
// hold different values that are still needed, makes them one: the names of one become names of the other,
// the copy goes, and so does the symbol without names. A parameter stays in preference to a variable of the
// source, and that to a temporary. Does nothing in a function whose flow is not known.
//
// Needs right edges and leaves right ones; DFNs are renumbered. Near linear: in the largest functions it
// stops after a fixed amount of work.
void merge_symbols();

#endif
