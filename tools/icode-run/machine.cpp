// Frames, calls, jumps out of functions, and the ways a run ends. The execution loop is in loop.cpp.

#include "tools/icode-run/machine.h"

#include <algorithm>
#include <cstring>

namespace run {

namespace {

constexpr std::size_t MAX_REGISTERS = std::size_t{1} << 25;
constexpr unsigned MAX_NATIVE_DEPTH = 500; // calls of the program by the library, one inside another
constexpr std::uint32_t LINKAGE = 2;       // units that every frame takes beside its objects

address align_up(address at, std::uint32_t align) { return (at + align - 1) / align * align; }

} // namespace

const char* const class_names[CLASSES] = {"arithmetic", "compare", "convert", "load", "store",
                                          "address",    "move",    "branch",  "call"};

machine::machine(image& image, const program_code& code, const run_options& options)
    : program(image), mem(image.mem), code_(code), options_(options), registers_(1 << 12),
      arguments_(std::max(code.most_arguments, 8u)), executed_(code.segments.size()), sp_(mem.stack_base()) {
    if (options.check) has_value_.resize(registers_.size());
    frames_.reserve(64);
}

class_counts machine::counts() const {
    class_counts sum{};
    for (std::size_t s = 0; s < executed_.size(); s++)
        for (unsigned c = 0; c < CLASSES; c++) sum[c] += executed_[s] * code_.segments[s][c];
    sum[LOAD_OP] += copied_units_;
    sum[STORE_OP] += copied_units_;
    return sum;
}

int machine::run_main(std::uint32_t main_function, const std::vector<std::string>& arguments) {
    int status = 0;
    try {
        try {
            const function_code& fn = code_.functions[main_function];
            call_site site;
            site.result = program.model.plain_int;
            if (!fn.params.empty()) {
                // The strings, then the vector of their addresses with a null behind.
                const std::uint32_t each = (program.model.pointer.bits + 15) / 16;
                const auto n = static_cast<std::uint32_t>(arguments.size());
                const address vector = mem.allocate((n + 1) * each, sp_);
                if (vector == 0) throw fault{"out of memory"};
                for (std::uint32_t i = 0; i < n; i++) {
                    const address text =
                        mem.allocate(static_cast<std::uint32_t>(arguments[i].size()) + 1, sp_);
                    if (text == 0) throw fault{"out of memory"};
                    mem.put_text(text, arguments[i]);
                    mem.store(vector + i * each, program.model.pointer.bits, text);
                }
                mem.store(vector + n * each, program.model.pointer.bits, 0);
                arguments_[0] = n;
                arguments_[1] = vector;
                site.args = {{program.model.plain_int, 1, 1}, {program.model.pointer, each, 1}};
            }
            status = static_cast<int>(call_function(main_function, site) & 0xff);
        } catch (const program_exit& e) {
            status = e.status;
        } catch (const raised& e) {
            report_exception(e.object, "is not caught");
            status = ABORT_STATUS;
        }
        // What atexit registered, the newest first; it may register more, or exit anew.
        while (!exit_functions.empty()) {
            const address next = exit_functions.back();
            exit_functions.pop_back();
            while (!frames_.empty()) pop_frame();
            native_depth_ = 0;
            forget_cleanups(0);
            try {
                call_back(next, nullptr, nullptr, 0, {});
            } catch (const program_exit& e) {
                status = e.status;
            } catch (const raised& e) {
                report_exception(e.object, "is not caught");
                status = ABORT_STATUS;
            }
        }
    } catch (const fault& f) {
        return end_with_fault(f.what);
    } catch (const jump&) {
        return end_with_fault("longjmp into a function that has returned");
    }
    out.flush();
    return status & 0xff;
}

int machine::end_with_fault(const std::string& what) {
    out.flush();
    std::fprintf(stderr, "icode-run: %s: %s\n", place().c_str(), what.c_str());
    return 3;
}

std::string machine::place() const {
    if (frames_.empty()) return "?:0";
    const frame& f = frames_.back();
    const auto pc = static_cast<std::uint32_t>(f.ip - f.fn->code.data());
    // `ip` has moved past the instruction at fault.
    auto behind = std::lower_bound(f.fn->lines.begin(), f.fn->lines.end(), pc,
                                   [](const line_mark& m, std::uint32_t at) { return m.pc < at; });
    const unsigned line = behind == f.fn->lines.begin() ? 0 : std::prev(behind)->line;
    return f.fn->name + ":" + std::to_string(line);
}

void machine::push_frame(std::uint32_t function, const call_site* site, std::uint32_t dst, bool native) {
    entered_++;
    const function_code& fn = code_.functions[function];
    const std::size_t given = site->args.size();
    if (given < fn.params.size()) throw fault{"call of " + fn.name + " with too few arguments"};

    frame f{&fn, fn.code.data(), 0, 0, fn.frame_units, dst, site, next_serial_++, native};
    if (!frames_.empty()) f.base = frames_.back().base + frames_.back().fn->registers;
    const std::size_t needed = f.base + fn.registers;
    if (needed > registers_.size()) {
        if (needed > MAX_REGISTERS) throw fault{"out of stack"};
        registers_.resize(std::max(needed, registers_.size() * 2));
        if (options_.check) has_value_.resize(registers_.size());
    }

    f.fp = align_up(sp_ + LINKAGE, fn.frame_align);
    if (std::uint64_t{f.fp} + fn.frame_units + 1 > mem.stack_limit()) throw fault{"out of stack"};
    std::copy(fn.frame_shadow.begin(), fn.frame_shadow.end(), mem.state(f.fp));
    if (fn.variadic) place_further_arguments(fn, *site, f);

    std::uint64_t* r = registers_.data() + f.base;
    for (std::size_t i = 0; i < fn.params.size(); i++) {
        const scalar& wanted = fn.params[i];
        const scalar& has = site->args[i].rep;
        r[i] = wanted.same_image(has) || !wanted.has_value() || wanted.is_float()
                   ? arguments_[i]
                   : extend(arguments_[i], wanted);
    }
    if (options_.check) {
        std::memset(has_value_.data() + f.base, 0, fn.registers);
        std::memset(has_value_.data() + f.base, 1, fn.params.size());
    }
    sp_ = f.fp + f.units;
    frames_.push_back(f);
}

// Arguments behind the last named one follow it in memory, each aligned for its type.
void machine::place_further_arguments(const function_code& fn, const call_site& site, frame& f) {
    address end = f.fp + fn.frame_units;
    for (std::size_t i = fn.params.size(); i < site.args.size(); i++) {
        const argument_info& info = site.args[i];
        const address at = align_up(end, std::max(info.align, 1u));
        if (std::uint64_t{at} + info.units + 1 > mem.stack_limit()) throw fault{"out of stack"};
        std::memset(mem.state(at), UNIT_READ | UNIT_WRITE, info.units);
        if (info.rep.is_aggregate())
            mem.copy(at, static_cast<address>(arguments_[i]), info.units);
        else if (info.rep.has_value())
            mem.store(at, info.rep.bits, arguments_[i]);
        end = at + info.units;
    }
    f.units = end - f.fp;
}

void machine::pop_frame() {
    const frame& f = frames_.back();
    mem.release(f.fp, f.units);
    frames_.pop_back();
    sp_ = frames_.empty() ? mem.stack_base() : frames_.back().fp + frames_.back().units;
}

std::uint64_t machine::call_function(std::uint32_t function, const call_site& site) {
    if (native_depth_ >= MAX_NATIVE_DEPTH) throw fault{"out of stack"};
    push_frame(function, &site, 0, true);
    native_depth_++;
    const std::uint64_t value = execute();
    native_depth_--;
    return value;
}

std::uint64_t machine::call_back(address function, const argument_info* infos, const std::uint64_t* values,
                                 std::size_t count, const scalar& result) {
    const global_place* target = program.function_at(function);
    if (target == nullptr) throw fault{"call of no function"};
    call_site site;
    site.args.assign(infos, infos + count);
    site.result = result;
    if (arguments_.size() < count) arguments_.resize(count);
    std::copy(values, values + count, arguments_.begin());
    if (target->kind == global_place::LIBRARY && target->library->what == special::NONE)
        return call_library(site, *target->library);
    if (target->kind != global_place::FUNCTION)
        throw fault{"call of " + *target->name + ", which is not there"};
    return call_function(target->function, site);
}

std::uint64_t machine::execute() {
    const std::size_t depth = frames_.size();
    const unsigned native = native_depth_;
    for (;;) {
        try {
            return loop();
        } catch (const jump& j) {
            const jump_target& target = jump_targets_[j.target];
            if (target.depth + 1 < depth) throw; // to a frame of an outer loop
            while (frames_.size() > target.depth + 1) pop_frame();
            forget_cleanups(target.depth);
            native_depth_ = native;
            frame& f = frames_.back();
            f.ip = target.ip;
            registers_[f.base + target.dst] =
                target.result.has_value() ? extend(j.value, target.result) : j.value;
        } catch (const raised& e) {
            if (frames_.size() < depth) throw; // this loop's own frames have ended
            native_depth_ = native;
            if (!unwind(e.object)) throw;
        }
    }
}

std::uint64_t machine::call_library(const call_site& site, const library_function& function) {
    const std::size_t n = site.args.size();
    if (n < function.arguments)
        throw fault{"call of " + std::string(function.name) + " with too few arguments"};
    // The function may call back, which overwrites the arguments.
    constexpr std::size_t FEW = 12;
    std::uint64_t few[FEW];
    std::vector<std::uint64_t> many;
    std::uint64_t* values = few;
    if (n > FEW) {
        many.resize(n);
        values = many.data();
    }
    std::copy_n(arguments_.begin(), n, values);
    library_call call(*this, site.args, values);
    const std::uint64_t result = function.run(call);
    if (site.result.is_float() || !site.result.has_value()) return result;
    return extend(result, site.result);
}

void machine::set_jump(const call_site& site, std::uint32_t dst, const insn* next) {
    if (site.args.empty()) throw fault{"call of setjmp with too few arguments"};
    const auto buffer = static_cast<address>(arguments_[0]) & mem.mask();
    auto [entry, is_new] =
        jump_numbers_.try_emplace(buffer, static_cast<std::uint32_t>(jump_targets_.size()));
    if (is_new) jump_targets_.emplace_back();
    jump_targets_[entry->second] = {frames_.back().serial, frames_.size() - 1, next, dst, site.result};
    mem.store(buffer, 16, entry->second + 1);
}

void machine::long_jump(address buffer, std::uint64_t value) {
    const std::uint64_t number = mem.load(buffer, 16, false);
    if (number == 0 || number > jump_targets_.size())
        throw fault{"longjmp to a place that setjmp never gave"};
    const jump_target& target = jump_targets_[number - 1];
    if (target.depth >= frames_.size() || frames_[target.depth].serial != target.serial)
        throw fault{"longjmp into a function that has returned"};
    throw jump{static_cast<std::uint32_t>(number - 1), value == 0 ? 1 : value};
}

void machine::begin_scope(const function_code& fn, std::uint32_t scope, address fp, std::size_t base) {
    for (std::uint32_t o : fn.scopes[scope].objects)
        std::memset(mem.state(fp + fn.objects[o].offset), UNIT_WRITE, fn.objects[o].units);
    for (std::uint32_t r : fn.scopes[scope].registers) has_value_[base + r] = 0;
}

void machine::end_scope(const function_code& fn, std::uint32_t scope, address fp) {
    for (std::uint32_t o : fn.scopes[scope].objects)
        mem.release(fp + fn.objects[o].offset, fn.objects[o].units);
}

std::string machine::name_of(address at) const {
    if (at < mem.stack_base() || at >= sp_) {
        const global_place* function = program.function_at(at);
        return function != nullptr ? *function->name : mem.name_of(at);
    }
    auto f = std::upper_bound(frames_.begin(), frames_.end(), at,
                              [](address a, const frame& x) { return a < x.fp; });
    if (f == frames_.begin()) return "";
    --f;
    const address offset = at - f->fp;
    auto object = std::upper_bound(f->fn->objects.begin(), f->fn->objects.end(), offset,
                                   [](address a, const frame_object& o) { return a < o.offset; });
    if (object == f->fn->objects.begin()) return "";
    --object;
    return f->fn->name + ":" + object->name + "+" + std::to_string(offset - object->offset);
}

// One line: direction, object and offset, width in bits, value. An address that leads to an object goes by
// that object, so that another layout gives the same line.
void machine::trace(std::uint16_t word, address at, std::uint64_t value) {
    const unsigned bits = word & 0x7f;
    const std::uint64_t shown = extend(value, bits, false);
    std::string target;
    if ((word & 0x100) != 0 && shown <= mem.mask()) target = name_of(static_cast<address>(shown));
    if (target.empty()) {
        char digits[20];
        std::snprintf(digits, sizeof digits, "%llx", static_cast<unsigned long long>(shown));
        target = digits;
    }
    std::string where = name_of(at & mem.mask());
    if (where.empty()) where = "?";
    std::fprintf(options_.trace, "%c %s %u %s\n", (word & 0x80) != 0 ? 'W' : 'R', where.c_str(), bits,
                 target.c_str());
}

} // namespace run
