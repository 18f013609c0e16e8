// Graphs of what the optimizer works on: the flow graph and the trees of a function, the call graph of a
// file.
//
// The switches debug:flow_graph and debug:expr_graph ask for the graphs of each function in the form in which
// it is written, the option of the call graph for that of the file: 1 for GDL, 2 for DOT. Graphs stand beside
// the output file, one a file. A file that cannot be written ends the run with one line and status 1.
// Nothing here changes the function. Linear.

#ifndef OPT5_GRAPHS_H
#define OPT5_GRAPHS_H

#include "graph_writer.h"

// Writes the graphs that the switches ask for of the current function, which has its blocks and edges.
void write_function_graphs();

// The current function: its blocks with their first statements, edges with probabilities where known, back
// edges marked. `path` is the file to write.
void write_flow_graph(const char* path, GRAPH_FORMAT format);
// The current function: every statement as a tree of its operators, grouped by blocks.
void write_expr_graph(const char* path, GRAPH_FORMAT format);

// The file's call graph, in the form and place that the driver's option gives: the ordered functions with
// their sizes, calls with their number where there are several, calls back marked, and the functions that
// nothing reaches. Requires the ordered list.
void view_call_graph();

#endif
