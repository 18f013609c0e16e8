// Exceptions of the program: the search for a handler through tables and frames, and the runtime functions.

#include <string>
#include <vector>

#include "OPT5/if_client.h"
#include "tools/icode-run/machine.h"

namespace run {

namespace {

std::string quoted(const std::string& name) { return "'" + name + "'"; }

} // namespace

bool machine::unwind(address object) {
    for (;;) {
        const frame& f = frames_.back();
        if (!cleanups_.empty() && cleanups_.back().depth + 1 == frames_.size())
            terminate(object, "leaves a clean-up of " + f.fn->name);
        // `ip` stands behind the call.
        if (search_frame(object, f.fn->sites[f.ip[-1].c].region, 0)) return true;
        const bool native = f.native;
        pop_frame();
        if (native) return false;
    }
}

bool machine::search_frame(address object, std::uint32_t region, std::uint32_t visited) {
    frame& f = frames_.back();
    const std::vector<exception_region>& regions = f.fn->regions;
    const std::string& type = exceptions_.at(object).type;
    while (region > 1) {
        const std::string number = std::to_string(region);
        if (region >= regions.size()) throw fault{"no region " + number + " in the exception table"};
        if (visited++ >= regions.size()) throw fault{"the links of the exception table go in a circle"};
        const exception_region& r = regions[region];
        region = r.link;
        switch (r.kind) {
            case EHK_EXPR:
                cleanups_.push_back({object, frames_.size() - 1, r.link, visited});
                f.ip = f.fn->code.data() + r.cleanup_pc;
                return true;
            case EHK_CATCH:
                for (const exception_region::catch_clause& clause : r.clauses)
                    if (clause.everything || clause.type == type) {
                        land(object, clause.value);
                        return true;
                    }
                break;
            case EHK_CLEANUP_END: break;
            case EHK_TERMINATE: terminate(object, "is not allowed to leave a part of " + f.fn->name);
            default: throw fault{"region " + number + " of the exception table is of no known kind"};
        }
    }
    return false;
}

void machine::land(address object, std::uint64_t value) {
    frame& f = frames_.back();
    const resume_point& at = f.fn->eh_switch;
    if (at.pc == resume_point::NONE) throw fault{"an exception is caught in a function without an EH switch"};
    f.ip = f.fn->code.data() + at.pc;
    registers_[f.base + at.reg] = extend(value, at.rep);
    landed_.push_back(object);
}

void machine::end_cleanup() {
    const cleanup done = cleanups_.back();
    cleanups_.pop_back();
    if (search_frame(done.object, done.link, done.visited)) return;
    const bool native = frames_.back().native;
    pop_frame();
    if (native || !unwind(done.object)) throw raised{done.object};
}

void machine::forget_cleanups(std::size_t depth) {
    while (!cleanups_.empty() && cleanups_.back().depth >= depth) cleanups_.pop_back();
}

void machine::report_exception(address object, const std::string& what) {
    const exception_object& e = exceptions_.at(object);
    out.write(2, "icode-run: " + e.place + ": an exception of type " + quoted(e.type) + " " + what + "\n");
    exit_functions.clear();
}

void machine::terminate(address object, const std::string& what) {
    report_exception(object, what);
    throw program_exit{ABORT_STATUS};
}

// --- The runtime functions.

address machine::allocate_exception(std::uint64_t units) {
    const address at = units > mem.mask() ? 0 : mem.allocate(static_cast<std::uint32_t>(units), sp_);
    if (at == 0) throw fault{"out of memory"};
    exceptions_[at] = {};
    return at;
}

void machine::throw_exception(address object, address type, address destructor) {
    auto found = exceptions_.find(object);
    if (found == exceptions_.end()) throw fault{"throw of what is no exception object"};
    exception_object& e = found->second;
    if (e.thrown) throw fault{"throw of an object that is thrown already"};
    // The type goes by the name of its symbol.
    std::string name = name_of(type);
    if (name.ends_with("+0")) name.resize(name.size() - 2);
    if (name.empty()) throw fault{"throw of an object without a type"};
    e = {true, 0, name, destructor, place()};
    throw raised{object};
}

address machine::begin_catch(address object) {
    if (landed_.empty()) throw fault{"__cxa_begin_catch without a caught exception"};
    const address caught = landed_.back();
    if (object != 0 && object != caught) throw fault{"__cxa_begin_catch of another object than was caught"};
    landed_.pop_back();
    exception_object& e = exceptions_.at(caught);
    e.handlers = (e.handlers < 0 ? -e.handlers : e.handlers) + 1;
    if (handled_.empty() || handled_.back() != caught) handled_.push_back(caught);
    return caught;
}

// The last handler that ends takes the object along, unless it is on its way to a further handler.
void machine::end_catch() {
    if (handled_.empty()) throw fault{"__cxa_end_catch without a caught exception"};
    const address object = handled_.back();
    exception_object& e = exceptions_.at(object);
    const bool thrown_again = e.handlers < 0;
    e.handlers += thrown_again ? 1 : -1;
    if (e.handlers != 0) return;
    handled_.pop_back();
    if (thrown_again) return;
    const address destructor = e.destructor;
    if (destructor != 0) {
        const scalar& pointer = program.model.pointer;
        const argument_info info{pointer, (pointer.bits + 15u) / 16, program.model.pointer_align};
        const std::uint64_t value = object;
        try {
            call_back(destructor, &info, &value, 1, {});
        } catch (const raised& second) {
            terminate(second.object, "leaves the destructor of an exception");
        }
    }
    exceptions_.erase(object);
    mem.free_block(object);
}

void machine::rethrow() {
    if (handled_.empty() || exceptions_.at(handled_.back()).handlers < 0)
        throw fault{"__cxa_rethrow without a caught exception"};
    exception_object& e = exceptions_.at(handled_.back());
    e.handlers = -e.handlers;
    throw raised{handled_.back()};
}

const std::vector<library_function>& exception_functions() {
    static const std::vector<library_function> table = {
        {"__cxa_allocate_exception", 1,
         [](library_call& c) -> std::uint64_t { return c.vm.allocate_exception(c.raw(0)); }},
        {"__cxa_throw", 3,
         [](library_call& c) -> std::uint64_t {
             c.vm.throw_exception(c.pointer(0), c.pointer(1), c.pointer(2));
         }},
        {"__cxa_begin_catch", 1,
         [](library_call& c) -> std::uint64_t { return c.vm.begin_catch(c.pointer(0)); }},
        {"__cxa_end_catch", 0,
         [](library_call& c) -> std::uint64_t {
             c.vm.end_catch();
             return 0;
         }},
        {"__cxa_rethrow", 0, [](library_call& c) -> std::uint64_t { c.vm.rethrow(); }},
    };
    return table;
}

} // namespace run
