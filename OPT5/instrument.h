// Counting how often the blocks and edges of each function run.
//
// With GO_FOR_INSTRUMENTATION each function gets an array "$O$counts$<function>" of unsigned long: the
// checksum of its plan (flow_plan.h), the number of its counters, and the counters. A counter's step is an
// ordinary assignment, which the passes treat like any other. A table "$O$flow_counts" of the file holds a
// name and the address of an array for each function, and a null pointer at its end; being named there, the
// arrays may be read by anybody. `main` hands the routine __flow_counts_exit of the library to atexit, and it
// writes the counts of all tables in the program.

#ifndef OPT5_INSTRUMENT_H
#define OPT5_INSTRUMENT_H

extern bool GO_FOR_INSTRUMENTATION;

// Adds the counters of the current function, whose graph buildcfg has just made, and puts it into its
// profile-instrumentation state. Edges and DFNs are right afterwards.
void instrument_function();

// Behind the last function, outside of any: makes the table, and tells the file's record that the counts are
// read from outside. Nothing where no function is counted.
void finish_instrumentation();

// In `main`, at the step that begins the second pass: the call of atexit, behind the prolog. Nothing in other
// functions, and where nothing is counted.
void add_instrumentation_exit_routine_to_atexit();

#endif
