// What is known of the globals of the whole file.

#ifndef OPT5_GLOBAL_SYMBOLS_H
#define OPT5_GLOBAL_SYMBOLS_H

// Decides from the marks of the call graph's live code which globals other code may touch, and makes those
// const that keep their initial value. Reports what is not used, not modified, and not addressed. Runs once.
// Linear in the globals.
void analyze_global_symbols();

#endif
