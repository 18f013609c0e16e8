// Functions with random flow graphs, reducible or not.

#ifndef TESTS_UNIT_RANDOM_GRAPH_H
#define TESTS_UNIT_RANDOM_GRAPH_H

#include <functional>
#include <random>
#include <string>

#include "ir_fixture.h"

class RANDOM_GRAPH_TEST : public IR_TEST {
  protected:
    void SetUp() override {
        IR_TEST::SetUp();
        begin(function("fn"));
    }
    // Erases the current function and begins one more.
    void begin_another() {
        erase_current();
        begin(function(("fn" + std::to_string(++functions_)).c_str()));
    }
    // A body of `count` labelled parts that jump as `random` says; `fill` makes their other statements.
    void build_random(std::mt19937& random, unsigned count, bool returns,
                      const std::function<void(unsigned)>& fill) {
        const auto some_label = [&] { return 1 + random() % count; };
        for (unsigned i = 1; i <= count; i++) {
            label(i);
            fill(i);
            switch (random() % 6) {
                case 0: stmt(branch(some_label())); break;
                case 1:
                case 2: stmt(cbranch(name(y), some_label())); break;
                case 3:
                    stmt(switch_on(name(y), comma(case_of(1, some_label()), default_to(some_label()))));
                    break;
                case 4:
                    if (returns) stmt(ret(name(x)));
                    break;
                default: break;
            }
        }
        if (!returns) stmt(branch(some_label()));
        end();
    }

  private:
    int functions_ = 0;
};

#endif
