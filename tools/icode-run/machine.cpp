#include "tools/icode-run/machine.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

constexpr std::uint32_t FRAME_UNITS = 2; // what a call takes of the stack besides its locals
constexpr std::size_t MAX_NESTING = 64;  // call-backs inside call-backs

bool is_builtin(const call_site& site, const char* name) { return site.name == name; }

int float_outcome(float a, float b) { return a == b ? 1 : a < b ? 2 : a > b ? 4 : 8; }

} // namespace

machine::machine(lowered_program& program, memory& space, const options& choice)
    : program_(program), space_(space), options_(choice), registers_(1024, 0),
      defined_(choice.check ? registers_.size() : 0, 0) {}

std::string machine::place() const {
    if (frames_.empty()) return "?:0";
    const frame& f = frames_.back();
    const std::size_t at = f.pc == 0 ? 0 : f.pc - 1;
    return f.function->name + ":" + std::to_string(at < f.function->lines.size() ? f.function->lines[at] : 0);
}

void machine::trace_access(bool store, std::uint32_t address, unsigned bits, std::int64_t value) {
    if (options_.trace == nullptr) return;
    const std::uint64_t shown = bits >= 64
                                    ? static_cast<std::uint64_t>(value)
                                    : static_cast<std::uint64_t>(value) & ((std::uint64_t{1} << bits) - 1);
    std::fprintf(options_.trace, "%c %s %u %llx\n", store ? 'W' : 'R', space_.describe(address).c_str(), bits,
                 static_cast<unsigned long long>(shown));
}

void machine::copy(std::uint32_t to, std::uint32_t from, std::uint32_t units, bool is_volatile) {
    space_.copy(to, from, units);
    counts_[static_cast<std::size_t>(COUNT::LOAD)] += units;
    counts_[static_cast<std::size_t>(COUNT::STORE)] += units;
    if (!is_volatile) return;
    for (std::uint32_t i = 0; i < units; i++) trace_access(true, to + i, 16, *space_.at(to + i));
}

void machine::no_function(const call_site& site) {
    throw program_fault(site.name.empty() ? std::string("call of no function")
                                          : "call of " + site.name + ", which is not there");
}

// Makes the callee's frame: its registers behind the caller's, its locals on the stack, its parameters
// stored.
void machine::enter(const lowered_function& callee, const call_site& site, const std::int64_t* arguments,
                    std::uint32_t dst, std::uint32_t result) {
    if (!callee.has_body) no_function(site);
    if (site.args.size() < callee.params.size())
        throw program_fault("call of " + callee.name + " with too few arguments");
    frame f{};
    f.function = &callee;
    f.stack = space_.stack_mark();
    f.dst = dst;
    f.result_kind = site.result;
    f.has_result = site.has_result;
    f.result = result;
    f.base = frames_.empty() ? 0 : frames_.back().base + frames_.back().function->registers;
    if (registers_.size() < f.base + callee.registers) {
        registers_.resize(2 * (f.base + callee.registers), 0);
        if (options_.check) defined_.resize(registers_.size(), 0);
    }
    space_.reserve_stack(FRAME_UNITS);
    std::int64_t* to = registers_.data() + f.base;
    to[0] = 0;
    if (options_.check) std::fill_n(defined_.begin() + f.base, callee.registers, std::uint8_t{0});

    // The arguments behind the last named one follow it in memory.
    std::vector<std::uint32_t> extra_at;
    std::uint32_t vararg_units = 0;
    if (callee.is_vararg && !callee.params.empty()) {
        const parameter& last = callee.params.back();
        std::uint32_t at = last.in_register ? 0 : callee.locals[last.place].units;
        for (std::size_t i = callee.params.size(); i < site.args.size(); i++) {
            const call_argument& arg = site.args[i];
            const std::uint32_t size = arg.units != 0 ? arg.units : units_of(arg.kind);
            const std::uint32_t align = std::max(1u, arg.align);
            at = (at + align - 1) / align * align;
            extra_at.push_back(at);
            at += size;
        }
        vararg_units = at;
    }
    for (std::size_t i = 0; i < callee.locals.size(); i++) {
        const memory_local& local = callee.locals[i];
        const bool takes_extras =
            vararg_units != 0 && !callee.params.back().in_register && callee.params.back().place == i;
        const std::uint32_t at =
            space_.push_local(&local.name, takes_extras ? std::max(vararg_units, local.units) : local.units,
                              takes_extras ? std::max(local.align, 2u) : local.align);
        to[local.address_register] = at;
    }
    for (std::size_t i = 0; i < callee.params.size(); i++) {
        const parameter& p = callee.params[i];
        const call_argument& arg = site.args[i];
        const std::int64_t given = arguments[i];
        if (p.units != 0) {
            if (arg.units == 0)
                throw program_fault("call of " + callee.name + " with a scalar for a structure");
            space_.copy(static_cast<std::uint32_t>(to[callee.locals[p.place].address_register]),
                        static_cast<std::uint32_t>(given), std::min(p.units, arg.units));
            continue;
        }
        const std::int64_t v = convert(arg.kind, p.kind, given);
        if (p.in_register) {
            to[p.place] = v;
            if (options_.check) defined_[f.base + p.place] = 1;
        } else {
            space_.store(p.kind, static_cast<std::uint32_t>(to[callee.locals[p.place].address_register]), v);
        }
    }
    for (std::size_t i = 0; i < extra_at.size(); i++) {
        const call_argument& arg = site.args[callee.params.size() + i];
        const std::int64_t given = arguments[callee.params.size() + i];
        const std::uint32_t at =
            static_cast<std::uint32_t>(to[callee.locals[callee.params.back().place].address_register]) +
            extra_at[i];
        if (arg.units != 0)
            space_.copy(at, static_cast<std::uint32_t>(given), arg.units);
        else
            space_.store(arg.kind, at, given);
    }
    frames_.push_back(f);
}

void machine::leave() {
    space_.release(frames_.back().stack);
    frames_.pop_back();
}

// --- setjmp and longjmp. The buffer holds the number of the place, from 1.

void machine::set_jump(std::uint32_t buffer, std::uint32_t pc, std::uint32_t dst) {
    // Places in frames that are gone serve nobody any more.
    while (!jumps_.empty() && jumps_.back().depth > frames_.size()) jumps_.pop_back();
    jumps_.push_back({frames_.size(), loops_, pc, dst});
    space_.store(KIND::U32, buffer, static_cast<std::int64_t>(jumps_.size()));
}

void machine::long_jump(std::uint32_t buffer, std::int64_t value) {
    const auto number = static_cast<std::size_t>(space_.load(KIND::U32, buffer));
    if (number == 0 || number > jumps_.size())
        throw program_fault("longjmp to a place that setjmp never gave");
    const jump_target target = jumps_[number - 1];
    if (target.depth > frames_.size()) throw program_fault("longjmp into a function that has returned");
    if (target.loop != loops_) throw program_fault("longjmp out of a function that the library called");
    while (frames_.size() > target.depth) leave();
    frame& f = frames_.back();
    f.pc = target.pc;
    registers_[f.base + target.dst] = value == 0 ? 1 : value;
}

// --- Execution.

std::int64_t machine::call_back(std::uint32_t address, const std::vector<std::int64_t>& arguments) {
    const auto found = program_.function_at.find(address);
    call_site site;
    if (found == program_.function_at.end()) no_function(site);
    const lowered_function& callee = program_.functions[static_cast<std::size_t>(found->second)];
    if (loops_ >= MAX_NESTING) throw program_fault("out of stack");
    site.name = callee.name;
    site.args.assign(arguments.size(), {0, KIND::U16, 0, 1});
    site.has_result = true;
    enter(callee, site, arguments.data(), 0, 0);
    loops_++;
    const std::int64_t result = execute(frames_.size());
    loops_--;
    return result;
}

int machine::run_main(const std::vector<std::string>& arguments) {
    const lowered_function* entry = nullptr;
    std::uint32_t address = 0;
    for (const auto& [at, index] : program_.function_at)
        if (program_.functions[static_cast<std::size_t>(index)].name == "main" &&
            program_.functions[static_cast<std::size_t>(index)].has_body) {
            entry = &program_.functions[static_cast<std::size_t>(index)];
            address = at;
        }
    if (entry == nullptr) throw program_fault("the program has no main");
    std::vector<std::int64_t> values;
    if (!entry->params.empty()) {
        // argv and its texts are objects like any other.
        std::vector<std::uint32_t> texts;
        for (const std::string& text : arguments) {
            const std::uint32_t at = space_.allocate(static_cast<std::uint32_t>(text.size()) + 1);
            if (at == 0) throw program_fault("out of memory");
            for (std::size_t i = 0; i <= text.size(); i++)
                *space_.at(at + static_cast<std::uint32_t>(i)) = static_cast<unsigned char>(text.c_str()[i]);
            texts.push_back(at);
        }
        const std::uint32_t table = space_.allocate(static_cast<std::uint32_t>(texts.size()) + 1);
        if (table == 0) throw program_fault("out of memory");
        for (std::size_t i = 0; i < texts.size(); i++)
            *space_.at(table + static_cast<std::uint32_t>(i)) = static_cast<std::uint16_t>(texts[i]);
        *space_.at(table + static_cast<std::uint32_t>(texts.size())) = 0;
        values = {static_cast<std::int64_t>(texts.size()), static_cast<std::int64_t>(table), 0};
        values.resize(entry->params.size(), 0);
    }
    return static_cast<int>(call_back(address, values));
}

void machine::run_exit_functions() {
    while (!exit_functions.empty()) {
        const std::uint32_t address = exit_functions.back();
        exit_functions.pop_back();
        call_back(address, {});
    }
}

// The values of a call's arguments, away from registers that the callee may move.
void machine::gather(const call_site& site, const std::int64_t* registers) {
    arguments_.clear();
    for (const call_argument& arg : site.args) arguments_.push_back(registers[arg.reg]);
}

std::int64_t machine::execute(std::size_t bottom) {
    frame* f = &frames_.back();
    const instruction* code = f->function->code.data();
    std::int64_t* r = registers_.data() + f->base;
    std::uint32_t pc = f->pc;
    // Steps are counted a block at a time, at jumps and calls.
    std::uint64_t budget = options_.max_steps;

    const auto reload = [&] {
        f = &frames_.back();
        code = f->function->code.data();
        r = registers_.data() + f->base;
        pc = f->pc;
    };
    const auto spend = [&] {
        std::uint64_t total = 0;
        for (std::size_t c = 1; c < counts_.size(); c++) total += counts_[c];
        if (total > budget) throw program_fault("out of steps");
    };
    unsigned until_check = 1024;

    for (;;) {
        const instruction& in = code[pc++];
        counts_[static_cast<std::size_t>(in.count)]++;
        const std::int64_t a = r[in.a];
        const std::int64_t b = in.has_imm ? in.imm : r[in.b];
        const auto fault_here = [&] { f->pc = pc; };
        const auto result = [&](std::uint64_t v) { r[in.dst] = normalise(in.kind, v); };
        const auto ua = static_cast<std::uint64_t>(a), ub = static_cast<std::uint64_t>(b);
        switch (in.code) {
            case CODE::MOVE: r[in.dst] = a; break;
            case CODE::CONST: r[in.dst] = in.imm; break;
            case CODE::ADD:
                if (in.kind == KIND::F32)
                    r[in.dst] = from_float(to_float(a) + to_float(b));
                else
                    result(ua + ub);
                break;
            case CODE::ADDI: result(ua + static_cast<std::uint64_t>(in.imm)); break;
            case CODE::SUB:
                if (in.kind == KIND::F32)
                    r[in.dst] = from_float(to_float(a) - to_float(b));
                else
                    result(ua - ub);
                break;
            case CODE::MUL:
                if (in.kind == KIND::F32)
                    r[in.dst] = from_float(to_float(a) * to_float(b));
                else
                    result(ua * ub);
                break;
            case CODE::DIV:
            case CODE::MOD:
                if (in.kind == KIND::F32) {
                    r[in.dst] = from_float(to_float(a) / to_float(b));
                    break;
                }
                if (b == 0) {
                    fault_here();
                    throw program_fault("division by zero");
                }
                if (!is_signed(in.kind))
                    result(in.code == CODE::DIV ? ua / ub : ua % ub);
                else if (b == -1)
                    result(in.code == CODE::DIV ? 0 - ua : 0);
                else
                    result(static_cast<std::uint64_t>(in.code == CODE::DIV ? a / b : a % b));
                break;
            case CODE::AND: result(ua & ub); break;
            case CODE::OR: result(ua | ub); break;
            case CODE::XOR: result(ua ^ ub); break;
            case CODE::SHL:
            case CODE::SHR:
                if (b < 0 || b >= static_cast<std::int64_t>(bits_of(in.kind))) {
                    fault_here();
                    throw program_fault("shift count " + std::to_string(b) + " outside the type");
                }
                if (in.code == CODE::SHL)
                    result(ua << b);
                else
                    result(is_signed(in.kind) ? static_cast<std::uint64_t>(a >> b) : ua >> b);
                break;
            case CODE::NEG:
                if (in.kind == KIND::F32)
                    r[in.dst] = from_float(-to_float(a));
                else
                    result(0 - ua);
                break;
            case CODE::NOT: result(~ua); break;
            case CODE::ABS:
                if (in.kind == KIND::F32)
                    r[in.dst] = from_float(std::fabs(to_float(a)));
                else
                    result(a < 0 ? 0 - ua : ua);
                break;
            case CODE::SQRT: r[in.dst] = from_float(std::sqrt(to_float(a))); break;
            case CODE::RECIP: r[in.dst] = from_float(1.0F / to_float(a)); break;
            case CODE::CONV: r[in.dst] = convert(in.kind2, in.kind, a); break;
            case CODE::EQ: r[in.dst] = normalise(in.kind, ua) == normalise(in.kind, ub); break;
            case CODE::NE: r[in.dst] = normalise(in.kind, ua) != normalise(in.kind, ub); break;
            case CODE::LT:
            case CODE::LE:
            case CODE::GT:
            case CODE::GE: {
                const std::int64_t x = normalise(in.kind, ua), y = normalise(in.kind, ub);
                int order = 0;
                if (in.kind == KIND::U64)
                    order = static_cast<std::uint64_t>(x) < static_cast<std::uint64_t>(y) ? -1 : x != y;
                else
                    order = x < y ? -1 : x != y;
                r[in.dst] = in.code == CODE::LT   ? order < 0
                            : in.code == CODE::LE ? order <= 0
                            : in.code == CODE::GT ? order > 0
                                                  : order >= 0;
                break;
            }
            case CODE::FCMP: r[in.dst] = (in.imm & float_outcome(to_float(a), to_float(r[in.b]))) != 0; break;
            case CODE::ISZERO: r[in.dst] = in.kind == KIND::F32 ? to_float(a) == 0.0F : a == 0; break;
            case CODE::NONZERO: r[in.dst] = in.kind == KIND::F32 ? to_float(a) != 0.0F : a != 0; break;
            case CODE::LOAD: {
                f->pc = pc;
                const auto at = static_cast<std::uint32_t>(a + in.imm);
                r[in.dst] = space_.load(in.kind, at);
                if (in.is_volatile) trace_access(false, at, bits_of(in.kind), r[in.dst]);
                break;
            }
            case CODE::STORE: {
                f->pc = pc;
                const auto at = static_cast<std::uint32_t>(a + in.imm);
                space_.store(in.kind, at, r[in.b]);
                if (in.is_volatile) trace_access(true, at, bits_of(in.kind), r[in.b]);
                break;
            }
            case CODE::LOADF: {
                f->pc = pc;
                const bit_field& field = f->function->fields[static_cast<std::size_t>(in.imm)];
                const auto at = static_cast<std::uint32_t>(a);
                space_.check(at, field.units, false);
                unsigned __int128 bits = 0;
                for (unsigned i = 0; i < field.units; i++)
                    bits |= static_cast<unsigned __int128>(*space_.at(at + i)) << (16 * i);
                auto value = static_cast<std::uint64_t>(bits >> field.shift);
                if (field.width < 64) {
                    value &= (std::uint64_t{1} << field.width) - 1;
                    if (is_signed(field.kind) && (value >> (field.width - 1)) != 0)
                        value |= ~std::uint64_t{0} << field.width;
                }
                r[in.dst] = normalise(field.kind, value);
                if (in.is_volatile) trace_access(false, at, field.width, r[in.dst]);
                break;
            }
            case CODE::STOREF: {
                f->pc = pc;
                const bit_field& field = f->function->fields[static_cast<std::size_t>(in.imm)];
                const auto at = static_cast<std::uint32_t>(a);
                space_.check(at, field.units, true);
                const auto given = static_cast<std::uint64_t>(r[in.b]);
                unsigned __int128 mask =
                    field.width >= 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << field.width) - 1;
                unsigned __int128 bits = 0;
                for (unsigned i = 0; i < field.units; i++)
                    bits |= static_cast<unsigned __int128>(*space_.at(at + i)) << (16 * i);
                bits = (bits & ~(mask << field.shift)) | ((given & mask) << field.shift);
                for (unsigned i = 0; i < field.units; i++)
                    *space_.at(at + i) = static_cast<std::uint16_t>(bits >> (16 * i));
                auto value = static_cast<std::uint64_t>(given & mask);
                if (field.width < 64 && is_signed(field.kind) && (value >> (field.width - 1)) != 0)
                    value |= ~std::uint64_t{0} << field.width;
                r[in.dst] = normalise(field.kind, value);
                if (in.is_volatile) trace_access(true, at, field.width, r[in.dst]);
                break;
            }
            case CODE::JUMP:
            case CODE::JZERO:
            case CODE::JNONZERO:
                if (in.code == CODE::JUMP || (in.code == CODE::JZERO) == (a == 0)) {
                    pc = static_cast<std::uint32_t>(in.imm);
                    if (--until_check == 0) {
                        until_check = 1024;
                        f->pc = pc;
                        spend();
                    }
                }
                break;
            case CODE::SWITCH: {
                const switch_table& table = f->function->switches[static_cast<std::size_t>(in.imm)];
                const auto found =
                    std::lower_bound(table.cases.begin(), table.cases.end(), a,
                                     [](const auto& entry, std::int64_t v) { return entry.first < v; });
                if (found != table.cases.end() && found->first == a)
                    pc = found->second;
                else if (table.otherwise >= 0)
                    pc = static_cast<std::uint32_t>(table.otherwise);
                break;
            }
            case CODE::CALL: {
                f->pc = pc;
                const call_site& site = f->function->calls[static_cast<std::size_t>(in.imm)];
                if (--until_check < 32) {
                    until_check = 1024;
                    spend();
                }
                std::int32_t callee = site.direct;
                if (callee < 0 && site.builtin < 0) {
                    const auto found = program_.function_at.find(static_cast<std::uint32_t>(a));
                    if (found == program_.function_at.end()) no_function(site);
                    callee = found->second;
                }
                int builtin = site.builtin;
                if (callee >= 0 && !program_.functions[static_cast<std::size_t>(callee)].has_body) {
                    builtin = find_builtin(program_.functions[static_cast<std::size_t>(callee)].name);
                    if (builtin < 0) {
                        call_site named = site;
                        named.name = program_.functions[static_cast<std::size_t>(callee)].name;
                        no_function(named);
                    }
                }
                if (builtin < 0) {
                    gather(site, r);
                    enter(program_.functions[static_cast<std::size_t>(callee)], site, arguments_.data(),
                          in.dst,
                          site.result_units == 0
                              ? 0
                              : static_cast<std::uint32_t>(
                                    r[f->function->locals[site.result_local].address_register]));
                    reload();
                    break;
                }
                if (is_builtin(site, "setjmp")) {
                    if (site.args.empty()) throw program_fault("call of setjmp with too few arguments");
                    set_jump(static_cast<std::uint32_t>(r[site.args[0].reg]), pc, in.dst);
                    r[in.dst] = 0;
                    break;
                }
                if (is_builtin(site, "longjmp")) {
                    if (site.args.size() < 2) throw program_fault("call of longjmp with too few arguments");
                    long_jump(static_cast<std::uint32_t>(r[site.args[0].reg]), r[site.args[1].reg]);
                    reload();
                    break;
                }
                gather(site, r);
                const std::int64_t v = run_builtin(*this, builtin, site, arguments_);
                f = &frames_.back();
                r = registers_.data() + f->base;
                if (site.has_result)
                    r[in.dst] =
                        site.result == KIND::F32 ? v : normalise(site.result, static_cast<std::uint64_t>(v));
                break;
            }
            case CODE::INTRINSIC: {
                f->pc = pc;
                const call_site& site = f->function->calls[static_cast<std::size_t>(in.imm)];
                gather(site, r);
                const std::int64_t v = run_builtin(*this, site.builtin, site, arguments_);
                if (site.has_result)
                    r[in.dst] =
                        site.result == KIND::F32 ? v : normalise(site.result, static_cast<std::uint64_t>(v));
                break;
            }
            case CODE::RET:
            case CODE::RETVOID:
            case CODE::RETSTRUCT:
            case CODE::FELLOFF: {
                std::int64_t v = 0;
                if (in.code == CODE::RET) v = a;
                if (in.code == CODE::RETSTRUCT && f->result != 0) {
                    f->pc = pc;
                    space_.copy(f->result, static_cast<std::uint32_t>(a), static_cast<std::uint32_t>(in.imm));
                }
                const std::uint32_t dst = f->dst;
                const bool has_result = f->has_result;
                const KIND kind = f->result_kind;
                const bool last = frames_.size() == bottom;
                leave();
                if (last) return v;
                reload();
                if (has_result)
                    r[dst] = kind == KIND::F32 ? v : normalise(kind, static_cast<std::uint64_t>(v));
                break;
            }
            case CODE::COPY:
                f->pc = pc;
                copy(static_cast<std::uint32_t>(a), static_cast<std::uint32_t>(r[in.b]),
                     static_cast<std::uint32_t>(in.has_imm ? in.imm : r[in.dst]), in.is_volatile);
                break;
            case CODE::NASSERT:
                if (a == 0) {
                    fault_here();
                    throw program_fault("violated assertion");
                }
                break;
            case CODE::CHECK:
                if (defined_[f->base + in.a] == 0) {
                    fault_here();
                    throw program_fault("local read before anything was stored in it");
                }
                break;
            case CODE::DEFINE: defined_[f->base + in.a] = 1; break;
        }
    }
}
