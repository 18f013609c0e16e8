// The closing step of every function.

#ifndef OPT5_OUTPUT_H
#define OPT5_OUTPUT_H

#include <cstdio>

// The log of the run, while a function may have one of its own.
extern std::FILE* remembered_fdebug;

// Drops the current function's unused locals, writes the function unless it is suppressed, and erases its
// body. Leaves no function in work.
void output_function();

// Closes the log of the function in work, if it has its own, and goes back to the run's.
void end_function_log();

#endif
