// Functions with random flow graphs, reducible or not, and with random statements over int variables; and an
// evaluator for them, so that a pass can be held to what the function did before.

#ifndef TESTS_UNIT_RANDOM_GRAPH_H
#define TESTS_UNIT_RANDOM_GRAPH_H

#include <cstdint>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "ir_fixture.h"

class RANDOM_GRAPH_TEST : public IR_TEST {
  protected:
    void end() { end_uncleaned(); }
    using VALUES = std::map<const SYMTAB*, std::int16_t>;

    void SetUp() override {
        IR_TEST::SetUp();
        g = symbol("g", int_type, SC_EXTDEF);
        h = symbol("h", int_type, SC_EXTDEF);
        begin(function("fn"));
    }
    // Erases the current function and begins one more, whose int variables are `locals`: x, y and `count`
    // others. `p` and `q` point to one of `addressed`: the globals g and h, and a local.
    void begin_another(unsigned count);

    // A body of `count` labelled parts that jump as `random` says; `fill` makes their other statements.
    void build_random(std::mt19937& random, unsigned count, bool returns,
                      const std::function<void(unsigned)>& fill);
    // Values of at most `depth` nested operators, which do not depend on the order in which operands are
    // evaluated: one without effects, and one that stores into variables.
    NODE* random_pure(std::mt19937& random, int depth);
    NODE* random_value(std::mt19937& random, int depth);
    // One or no assignment.
    void random_statement(std::mt19937& random);
    SYMTAB* some_local(std::mt19937& random) { return locals[random() % locals.size()]; }
    NODE* some_place(std::mt19937& random);
    VALUES random_start(std::mt19937& random);

    // Runs the current function from these values of its locals, over at most `blocks` blocks. What can be
    // seen of it: each new value of the globals, the way it took, and the value returned.
    std::string run(VALUES values, int blocks);

    SYMTAB *g = nullptr, *h = nullptr, *p = nullptr, *q = nullptr;
    std::vector<SYMTAB*> locals, addressed;

  private:
    std::int16_t evaluate(NODE* node);
    std::int16_t apply(int op, std::int16_t a, std::int16_t b);
    void store(const SYMTAB* symbol, std::int16_t value);
    const SYMTAB* symbol_of(NODE* place);

    int functions_ = 0;
    VALUES values_;
    std::string seen_;
};

#endif
