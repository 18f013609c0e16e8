// The machine: executes lowered code.

#ifndef ICODE_RUN_MACHINE_H
#define ICODE_RUN_MACHINE_H

#include <cstdint>
#include <cstdio>
#include <string>
#include <unordered_map>
#include <vector>

#include "tools/icode-run/code.h"
#include "tools/icode-run/image.h"
#include "tools/icode-run/library.h"
#include "tools/icode-run/output.h"

namespace run {

// The lowered program.
struct program_code {
    std::vector<function_code> functions; // as in model::program
    // By segment: what one pass through it executes.
    std::vector<class_counts> segments;
    std::uint32_t most_arguments = 0;
};

struct run_options {
    bool check = false;
    std::FILE* trace = nullptr;
    std::uint64_t max_steps = UINT64_MAX;
};

// Thrown to end the program with a status from anywhere inside.
struct program_exit {
    int status;
};

// Thrown while an exception of the program leaves calls by the library; the object says which.
struct raised {
    address object;
};

constexpr int ABORT_STATUS = 134; // what a shell shows for a program that aborts

class machine {
  public:
    machine(image& image, const program_code& code, const run_options& options);

    // Calls `main`, with the arguments when it takes them, then what atexit registered. Returns the exit
    // status: main's value, 3 after a fault (with a line on standard error), or what exit was given.
    int run_main(std::uint32_t main_function, const std::vector<std::string>& arguments);

    std::uint64_t steps() const { return steps_; }
    // Executed operators by class.
    class_counts counts() const;
    // How often functions of the program were entered, main included.
    std::uint64_t entered() const { return entered_; }

    // --- For the library.
    image& program;
    memory& mem;
    output_stream out;
    std::uint32_t random_state = 1;
    std::vector<address> exit_functions;
    address token_rest = 0;  // where strtok goes on
    std::string flow_counts; // what a program that counts its flow left at its end

    // Calls the function at that address and returns its value.
    std::uint64_t call_back(address function, const argument_info* infos, const std::uint64_t* values,
                            std::size_t count, const scalar& result);
    [[noreturn]] void long_jump(address buffer, std::uint64_t value);
    address stack_top() const { return sp_; }

    // Exceptions of the program; docs/exceptions.md tells what they mean. Objects go by their address.
    address allocate_exception(std::uint64_t units);
    [[noreturn]] void throw_exception(address object, address type, address destructor);
    address begin_catch(address object); // 0: the one that was caught last
    void end_catch();
    [[noreturn]] void rethrow();

  private:
    struct frame {
        const function_code* fn;
        const insn* ip;   // where it goes on; kept up to date only while it is not executing
        std::size_t base; // of its registers
        address fp;
        std::uint32_t units; // of memory, further arguments included
        std::uint32_t dst;   // the caller's register for the result
        const call_site* site;
        std::uint64_t serial;
        bool native; // called by the library: returning ends the loop
    };
    struct jump_target {
        std::uint64_t serial;
        std::size_t depth; // of the frame, from 0
        const insn* ip;
        std::uint32_t dst;
        scalar result;
    };
    struct jump { // thrown on the way to a target
        std::uint32_t target;
        std::uint64_t value;
    };

    struct exception_object {
        bool thrown = false;
        int handlers = 0; // that have begun and not ended; negative while it is thrown again
        std::string type;
        address destructor = 0;
        std::string place; // where it was thrown
    };
    struct cleanup { // that is being evaluated
        address object;
        std::size_t depth; // of the frame, from 0
        std::uint32_t link;
        std::uint32_t visited; // regions of the frame, this one included
    };

    // --- exceptions.cpp
    // Looks for a handler from the call on that the newest frame makes, and ends the frames that have none.
    // False when the frame that the library called has ended too.
    bool unwind(address object);
    // Looks in the newest frame. True when it goes on, in a clean-up or at its EH switch.
    bool search_frame(address object, std::uint32_t region, std::uint32_t visited);
    void land(address object, std::uint64_t value);
    // Behind a clean-up; throws `raised` when the exception leaves the frame that the library called.
    void end_cleanup();
    void forget_cleanups(std::size_t depth); // of that frame and newer ones
    void report_exception(address object, const std::string& what);
    [[noreturn]] void terminate(address object, const std::string& what);

    void push_frame(std::uint32_t function, const call_site* site, std::uint32_t dst, bool native);
    void pop_frame();
    void place_further_arguments(const function_code& fn, const call_site& site, frame& f);
    // Runs until the frame on top, a native one, has returned; gives its value.
    std::uint64_t execute();
    std::uint64_t loop();
    std::uint64_t call_library(const call_site& site, const library_function& function);
    std::uint64_t call_function(std::uint32_t function, const call_site& site);
    void set_jump(const call_site& site, std::uint32_t dst, const insn* next);
    void trace(std::uint16_t word, address at, std::uint64_t value);
    void begin_scope(const function_code& fn, std::uint32_t scope, address fp, std::size_t base);
    void end_scope(const function_code& fn, std::uint32_t scope, address fp);
    // "name+offset" of the object that holds the unit, such that another layout gives the same.
    std::string name_of(address at) const;
    // Where the program is: function, line and file.
    std::string place() const;
    int end_with_fault(const std::string& what);

    const program_code& code_;
    const run_options options_;
    std::vector<std::uint64_t> registers_;
    std::vector<std::uint8_t> has_value_; // per register, when checking
    std::vector<frame> frames_;
    std::vector<std::uint64_t> arguments_; // of the call being made
    std::vector<std::uint64_t> executed_;  // per segment
    std::uint64_t steps_ = 0;
    std::uint64_t copied_units_ = 0; // loads and stores of copies whose length is known only now
    std::uint64_t entered_ = 0;
    std::uint64_t next_serial_ = 1;
    address sp_ = 0; // end of the newest frame
    unsigned native_depth_ = 0;
    std::vector<jump_target> jump_targets_;
    std::unordered_map<address, std::uint32_t> jump_numbers_; // by buffer
    std::unordered_map<address, exception_object> exceptions_;
    std::vector<address> landed_;   // caught, and no handler has begun
    std::vector<address> handled_;  // in handlers, the innermost last
    std::vector<cleanup> cleanups_; // ascending depth
};

} // namespace run

#endif
