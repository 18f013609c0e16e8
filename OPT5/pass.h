// The pass pipeline: step objects, the step list, forced orders.

#ifndef OPT5_PASS_H
#define OPT5_PASS_H

#include <cstdio>
#include <string>
#include <vector>

#include "serial_object.h"

class pass;

// Owner of all pass objects. `passes` is the running order, `normal_order` the one that was built.
class pass_manager {
  public:
    std::vector<pass*> all;
    std::vector<pass*> passes;
    std::vector<pass*> normal_order;

    ~pass_manager();
    // Gives up all passes and both orders.
    void clear();
    std::vector<pass*>& serial_objects(pass*) { return all; }
};

extern pass_manager global_pass_manager;

// One step, run once for each function with currfunc and currfuninfo set.
class pass : public serial_object<pass, pass_manager> {
  public:
    std::string name;
    void (*fn)();

    pass(std::string name, void (*fn)());
    virtual bool is_barrier() { return false; }
    // Runs the step in its bracket: skip switch, announcement, dumps, timing, verification.
    void run();
};

// A step run once for the whole program, with currfunc null.
class barrier_pass final : public pass {
  public:
    using pass::pass;
    bool is_barrier() override { return true; }
};

void setup_passes(bool allow_forced_order);
std::vector<pass*>& add_dd_normal_order_passes(std::vector<pass*>& list);
void list_passes(std::FILE* stream);
// The step made by the driver, always last and not in the running order.
void output_function();

#endif
