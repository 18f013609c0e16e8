// The closing step of every function.

#ifndef OPT5_OUTPUT_H
#define OPT5_OUTPUT_H

#include <cstdio>

// The log that the driver opened: "output function" goes back to it when a function has a log of its own.
extern std::FILE* remembered_fdebug;

// Drops the current function's unused locals, writes the function unless it is suppressed, and erases its
// body. Leaves no function in work.
void output_function();

#endif
