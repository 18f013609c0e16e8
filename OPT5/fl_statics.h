// Static variables of functions that need not be static.

#ifndef OPT5_FL_STATICS_H
#define OPT5_FL_STATICS_H

struct FUNINFO;

// Finds the function-local statics of the current function whose value never outlives one call, and lists
// them in the information file: nothing but this function names them, their address is not taken, and on
// every way each read comes behind a write of the same activation. To be called once the whole file has been
// read, as another body may name a static too. Linear in the function for each 64 statics of it.
void identify_fl_statics_safe_for_auto();

// Makes automatic variables of those that have been found in the function, which must be the current one.
void convert_safe_fl_statics_to_auto(FUNINFO* function);

// Both, for every function of the file.
void change_fl_statics_to_auto();

#endif
