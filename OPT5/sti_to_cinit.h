// Initialisation by code that can be done by initialisers.

#ifndef OPT5_STI_TO_CINIT_H
#define OPT5_STI_TO_CINIT_H

// Takes assignments of constants to statics out of the code with which the program starts and puts the values
// into the initialisers of the statics. That code is the beginning of `main`, in C, or of a function that
// initialises the statics of a C++ file, up to the first call or access through a pointer. An object must not
// be read or written otherwise ahead of the assignment, and nothing that runs earlier may know it. Leaves
// blocks and edges alone. Linear in the function and in the initialisers that change.
void convert_sti_to_cinit();

#endif
