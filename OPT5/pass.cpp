#include "pass.h"

#include <array>
#include <cctype>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <utility>

#include "debug.h"
#include "dump.h"
#include "fileopt.h"
#include "files.h"
#include "option_obj.h"
#include "steps.h"
#include "verify.h"

pass_manager global_pass_manager;

pass_manager::~pass_manager() { clear(); }

void pass_manager::clear() {
    for (pass* step : all) delete step;
    all.clear();
    passes.clear();
    normal_order.clear();
}

pass::pass(std::string step_name, void (*body)())
    : serial_object(&global_pass_manager), name(std::move(step_name)), fn(body) {}

namespace {

// Checks what the step may have changed: the function in work, or after a barrier all of them.
void verify_after(pass& step) {
    if (!step.is_barrier()) {
        verify_function(step.name.c_str());
        return;
    }
    for (SYMTAB* function : functions) {
        currfunc = function;
        currfuninfo = find_FUNINFO(function);
        verify_function(step.name.c_str());
    }
    currfunc = nullptr;
    currfuninfo = nullptr;
}

} // namespace

void pass::run() {
    const int number = static_cast<int>(id);
    const int skipped = pass_debug("skip_pass");
    if (skipped > 0 && skipped == number) {
        dprintf("\n\n\t\t\t---------- SKIPPING step %d '%s' ----------\n", number, name.c_str());
        return;
    }
    dprintf("\n\n\t\t\t---------- ENTERING step %d '%s' ----------\n", number, name.c_str());
    dump_state(STATE_BEFORE);
    // clock() is a system call that costs more than an empty step, so only a debug run takes the time.
    const std::clock_t start = print_debug ? std::clock() : 0;
    fn();
    if (print_debug) dprintf("(%.1f sec for pass.)\n", static_cast<double>(std::clock() - start) / 1e6);
    dprintf("\n\n\n\t\t\t---------- EXITING step %d '%s' ----------\n", number, name.c_str());
    dump_state(STATE_AFTER);
    if (pass_debug("verify_each")) verify_after(*this);
}

namespace {

// The body of step N as a function of no arguments, which is what a pass holds.
template <int N> void body_of_step() { run_step_body(N); }

template <int... N>
constexpr std::array<void (*)(), sizeof...(N)> make_bodies(std::integer_sequence<int, N...>) {
    return {body_of_step<N>...};
}

constexpr auto step_bodies = make_bodies(std::make_integer_sequence<int, STEP_COUNT>());

pass* make_step(int id) {
    const STEP_ROW& row = step_table[id];
    auto* body = step_bodies[static_cast<std::size_t>(id)];
    return row.barrier ? new barrier_pass(row.name, body) : new pass(row.name, body);
}

// The numbers of a forced order: what stands in the text up to the first thing that is no number. A number
// that is no step ends the run.
std::vector<int> read_order(const char* text, const char* source, int count) {
    std::vector<int> order;
    std::string blanks = text;
    for (char& c : blanks)
        if (c == ',') c = ' ';
    for (const char* at = blanks.c_str();;) {
        char* end = nullptr;
        const long number = std::strtol(at, &end, 10);
        if (end == at) return order;
        if (number < 0 || number >= count) {
            while (std::isspace(static_cast<unsigned char>(*at))) at++;
            std::fprintf(stderr, "opt5: step number %.*s of the %s is not between 0 and %d\n",
                         static_cast<int>(end - at), at, source, count - 1);
            std::exit(1);
        }
        order.push_back(static_cast<int>(number));
        at = end;
    }
}

std::vector<int> random_order(int count) {
    std::srand(static_cast<unsigned>(std::time(nullptr) + std::clock()));
    std::vector<int> order(static_cast<std::size_t>(count));
    order[0] = 0;
    for (int i = 1; i < count; i++) {
        const auto j =
            static_cast<std::size_t>(static_cast<double>(std::rand()) * (i + 1) / (RAND_MAX + 1.0));
        order[static_cast<std::size_t>(i)] = order[j];
        order[j] = i;
    }
    return order;
}

} // namespace

std::vector<pass*>& add_dd_normal_order_passes(std::vector<pass*>& list) {
    for (int id = FIRST_DD_STEP; id <= LAST_DD_STEP; id++) list.push_back(make_step(id));
    return list;
}

void setup_passes(bool allow_forced_order) {
    pass_manager& m = global_pass_manager;
    m.clear();
    for (int id = 0; id < FIRST_DD_STEP; id++) m.normal_order.push_back(make_step(id));
    add_dd_normal_order_passes(m.normal_order);
    for (int id = LAST_DD_STEP + 1; id < OUTPUT_STEP; id++) m.normal_order.push_back(make_step(id));

    const char* text = nullptr;
    const char* source = nullptr;
    if (allow_forced_order) {
        if (file_options != nullptr && file_options->is_present(47)) {
            text = file_options->getstrarg(47, 0);
            source = "command-line option";
        } else {
            text = std::getenv("FORCED_OPT_PASSES");
            source = "environment variable";
        }
        if (text == nullptr) dprintf("Pass list is normal order.\n");
    }
    if (text == nullptr) {
        m.passes = m.normal_order;
    } else {
        const bool random = std::strcmp(text, "random") == 0;
        const int count = static_cast<int>(m.normal_order.size());
        const std::vector<int> order = random ? random_order(count) : read_order(text, source, count);
        for (int id : order) m.passes.push_back(m.normal_order[static_cast<std::size_t>(id)]);
        if (print_debug) {
            std::fprintf(fdebug, "Pass list, from %s, is%s: ", source, random ? " (random)" : "");
            for (int id : order) std::fprintf(fdebug, " %d", id);
            if (order.empty()) std::fprintf(fdebug, "<empty>");
            std::fprintf(fdebug, "\n\n");
        }
    }
    // Without a debug file the list goes where the user sees it.
    if (pass_debug("list_passes")) list_passes(fdebug != nullptr ? fdebug : stdout);
}

void list_passes(std::FILE* stream) {
    for (const pass* step : global_pass_manager.passes)
        std::fprintf(stream, "%2d:  %s\n", static_cast<int>(step->id), step->name.c_str());
}
