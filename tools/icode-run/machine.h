// The machine that executes lowered programs.

#ifndef TOOLS_ICODE_RUN_MACHINE_H
#define TOOLS_ICODE_RUN_MACHINE_H

#include <array>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "tools/icode-run/code.h"
#include "tools/icode-run/memory.h"

// Thrown by exit and abort: the end of the run with that status.
struct program_exit {
    int status;
};

class machine {
  public:
    struct options {
        bool check = false;
        std::uint64_t max_steps = UINT64_MAX;
        std::FILE* trace = nullptr; // volatile accesses, one line each; null for none
    };

    machine(lowered_program& program, memory& space, const options& choice);

    // Runs main with those arguments; returns its value. Throws program_fault or program_exit.
    int run_main(const std::vector<std::string>& arguments);
    // Runs what atexit registered, last first.
    void run_exit_functions();

    std::uint64_t count(COUNT c) const { return counts_[static_cast<std::size_t>(c)]; }
    // "FUNCTION:LINE" of what runs now, for faults.
    std::string place() const;

    // For library functions: a call of a function of the program by its address.
    std::int64_t call_back(std::uint32_t address, const std::vector<std::int64_t>& arguments);

    memory& space() { return space_; }
    std::vector<std::uint32_t> exit_functions;
    std::uint32_t random_state = 1;
    std::uint32_t token_cursor = 0; // of strtok

  private:
    struct frame {
        const lowered_function* function;
        std::uint32_t pc;
        std::uint32_t base;   // first register
        memory::mark stack;   // of the caller
        std::uint32_t dst;    // register of the caller that takes the value
        std::uint32_t result; // address that takes a structure value
        KIND result_kind;
        bool has_result;
    };
    struct jump_target {
        std::size_t depth;
        std::size_t loop;
        std::uint32_t pc, dst;
    };

    std::int64_t execute(std::size_t bottom);
    // Makes the callee's frame. `result`: where a structure result goes, 0 for none.
    void enter(const lowered_function& callee, const call_site& site, const std::int64_t* arguments,
               std::uint32_t dst, std::uint32_t result);
    void gather(const call_site& site, const std::int64_t* registers);
    void leave();
    void trace_access(bool store, std::uint32_t address, unsigned bits, std::int64_t value);
    void copy(std::uint32_t to, std::uint32_t from, std::uint32_t units, bool is_volatile);
    void set_jump(std::uint32_t buffer, std::uint32_t pc, std::uint32_t dst);
    void long_jump(std::uint32_t buffer, std::int64_t value);
    [[noreturn]] void no_function(const call_site& site);

    lowered_program& program_;
    memory& space_;
    options options_;
    std::vector<std::int64_t> registers_;
    std::vector<std::int64_t> arguments_; // of the call being made
    std::vector<std::uint8_t> defined_;   // with check only
    std::vector<frame> frames_;
    std::size_t loops_ = 0; // nested executions, for call-backs
    std::vector<jump_target> jumps_;
    std::array<std::uint64_t, static_cast<std::size_t>(COUNT::CLASSES)> counts_{};
};

// Where a library function finds its arguments, one after the other: at the call, or behind a va_list.
class argument_source {
  public:
    argument_source(machine& m, const std::vector<call_argument>* args,
                    const std::vector<std::int64_t>* values, std::size_t first)
        : m_(m), args_(args), values_(values), next_(first) {}
    argument_source(machine& m, std::uint32_t list) : m_(m), list_(list) {}

    std::int64_t next(KIND kind);

  private:
    machine& m_;
    const std::vector<call_argument>* args_ = nullptr;
    const std::vector<std::int64_t>* values_ = nullptr;
    std::size_t next_ = 0;
    std::uint32_t list_ = 0;
};

// printf's work: the formatted text.
std::string format_text(machine& m, const std::string& format, argument_source& args);

// Runs library function `index` on those values of the call's arguments. They are taken by value, since a
// library function can call functions of the program.
std::int64_t run_builtin(machine& m, int index, const call_site& site, std::vector<std::int64_t> values);

// The program's text up to its zero.
std::string text_at(machine& m, std::uint32_t address);

#endif
