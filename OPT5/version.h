// What the tool calls itself.

#ifndef OPT5_VERSION_H
#define OPT5_VERSION_H

constexpr char OPTIMIZER_TITLE[] = "Norvane C/C++ Optimizer";
constexpr char OPTIMIZER_VERSION[] = "0.1.0";

#endif
