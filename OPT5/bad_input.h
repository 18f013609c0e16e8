// The end of the run because of what the input says.

#ifndef OPT5_BAD_INPUT_H
#define OPT5_BAD_INPUT_H

struct PSN;

// Prints one line on standard error that names the input, the function and the line where they are known, and
// what is wrong; removes the output; ends with status 1. `psn` may be null.
[[noreturn]] void bad_input(const PSN* psn, const char* format, ...) __attribute__((format(printf, 2, 3)));

#endif
