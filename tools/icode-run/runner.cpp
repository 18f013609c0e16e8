#include "tools/icode-run/runner.h"

#include "OPT5/opcodes.h"
#include "tools/icode-run/image.h"
#include "tools/icode-run/lower.h"
#include "tools/icode-run/machine.h"

namespace run {

std::string stats_line(const class_counts& counts, std::uint64_t entered) {
    std::uint64_t total = 0;
    std::string classes;
    for (unsigned c = 0; c < CLASSES; c++) {
        total += counts[c];
        classes +=
            (c == 0 ? "\"" : ", \"") + std::string(class_names[c]) + "\": " + std::to_string(counts[c]);
    }
    return "{\"total\": " + std::to_string(total) + ", \"classes\": {" + classes +
           "}, \"entered\": " + std::to_string(entered) + "}";
}

int run_program(const model::program& program, const std::vector<std::string>& arguments,
                const settings& with, class_counts* counts) {
    if_node_table_init(); // operators are named in messages
    try {
        std::uint32_t main_function = 0;
        while (main_function < program.functions.size() &&
               program.functions[main_function].sym->name != "main")
            main_function++;
        if (main_function == program.functions.size()) throw bad_program("the program has no function main");
        image loaded(program);
        const program_code code = lower_program(loaded, {with.check, with.trace != nullptr});
        loaded.mem.seal();
        machine vm(loaded, code, {with.check, with.trace, with.max_steps});
        const int status = vm.run_main(main_function, arguments);
        if (with.flow_counts != nullptr) *with.flow_counts = vm.flow_counts;
        if (with.stats) std::fprintf(stderr, "%s\n", stats_line(vm.counts(), vm.entered()).c_str());
        if (counts != nullptr) *counts = vm.counts();
        return status;
    } catch (const bad_program& e) {
        std::fprintf(stderr, "icode-run: %s\n", e.what());
        return 1;
    } catch (const fault& f) {
        std::fprintf(stderr, "icode-run: ?:0: %s\n", f.what.c_str());
        return 3;
    }
}

} // namespace run
