#include "tests/simp/tree_eval.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "OPT5/node.h"
#include "OPT5/opcodes.h"
#include "OPT5/symbol.h"
#include "OPT5/types.h"
#include "tests/simp/tree_program.h"

using namespace op;

namespace prove {

namespace {

__extension__ using wide = __int128;
__extension__ using unsigned_wide = unsigned __int128;

constexpr unsigned FIRST_UNIT = 16; // below: null and its neighbours

std::uint64_t mixed(std::uint64_t a, std::uint64_t b) {
    std::uint64_t x = a ^ (b + 0x9e3779b97f4a7c15u + (a << 6) + (a >> 2));
    x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9u;
    x = (x ^ (x >> 27)) * 0x94d049bb133111ebu;
    return x ^ (x >> 31);
}

unsigned units_of(unsigned bits) { return (bits + 15) / 16; }

REP rep_of_letter(char letter, const REP& otherwise) {
    switch (letter) {
        case 'i': return {REP::INTEGER, 16, true};
        case 'u': return {REP::INTEGER, 16, false};
        case 'l': return {REP::INTEGER, 32, true};
        case 'm': return {REP::INTEGER, 32, false};
        case 'q': return {REP::INTEGER, 64, true};
        case 'w': return {REP::INTEGER, 64, false};
        case 'f': return {REP::FLOATING, 32, false};
        default: return otherwise;
    }
}

} // namespace

// --- Values.

REP rep_of(TYPE* type) {
    if (type == nullptr || type->is_void()) return {};
    const auto bits = static_cast<std::uint8_t>(std::min<std::uint64_t>(type->size(), 255));
    switch (type->true_kind()) {
        case TYPE::INT_KIND:
        case TYPE::ENUM_KIND:
            if (bits < 1 || bits > 64) break;
            if (type->is_bool() || type->is_marked_bool()) return {REP::BOOLEAN, bits, false};
            return {REP::INTEGER, bits, type->is_signed()};
        case TYPE::PTR_KIND:
        case TYPE::REF_KIND: return {REP::POINTER, bits, false};
        case TYPE::FLTPT_KIND: return {REP::FLOATING, 32, false};
        default: break;
    }
    return {REP::AGGREGATE, 0, false};
}

std::uint64_t extend(std::uint64_t image, unsigned bits, bool is_signed) {
    if (bits >= 64) return image;
    const std::uint64_t low = image & ((std::uint64_t{1} << bits) - 1);
    return is_signed && (low >> (bits - 1)) != 0 ? low | ~std::uint64_t{0} << bits : low;
}

float single_of(std::uint64_t image) { return std::bit_cast<float>(static_cast<std::uint32_t>(image)); }
std::uint64_t image_of(float value) { return std::bit_cast<std::uint32_t>(value); }

std::uint64_t convert(std::uint64_t image, const REP& from, const REP& to) {
    if (to.kind == REP::BOOLEAN) return from.is_float() ? single_of(image) != 0.0f : image != 0;
    if (!from.is_float() && !to.is_float()) return extend(image, to.bits, to.is_signed);
    if (from.is_float() && to.is_float()) return image;
    if (to.is_float())
        return image_of(from.is_signed ? static_cast<float>(static_cast<std::int64_t>(image))
                                       : static_cast<float>(image));
    const float value = single_of(image);
    std::uint64_t whole;
    if (std::isnan(value))
        whole = 0;
    else if (to.is_signed || value < 0)
        whole = static_cast<std::uint64_t>(value >= 0x1p63f    ? INT64_MAX
                                           : value <= -0x1p63f ? INT64_MIN
                                                               : static_cast<std::int64_t>(value));
    else
        whole = value >= 0x1p64f ? UINT64_MAX : static_cast<std::uint64_t>(value);
    return extend(whole, to.bits, to.is_signed);
}

std::string show(std::uint64_t image, const REP& rep) {
    char text[80];
    if (rep.is_float())
        std::snprintf(text, sizeof text, "%.9g (0x%08llx)", static_cast<double>(single_of(image)),
                      static_cast<unsigned long long>(image));
    else if (rep.is_signed)
        std::snprintf(text, sizeof text, "%lld", static_cast<long long>(image));
    else
        std::snprintf(text, sizeof text, "%llu", static_cast<unsigned long long>(image));
    return text;
}

// --- Memory.

LAYOUT::LAYOUT() : owner_(FIRST_UNIT, -1) {}

void LAYOUT::add(const SYMTAB* symbol) {
    const bool is_function = symbol->type->is_func();
    const auto units = is_function ? 0 : static_cast<unsigned>(symbol->type->storage_size());
    const auto number = static_cast<std::int16_t>(objects_.size());
    index_[symbol] = objects_.size();
    objects_.push_back({symbol, static_cast<unsigned>(owner_.size()), units,
                        symbol->level == 0 && !is_function, is_function});
    owner_.insert(owner_.end(), units, number);
    owner_.push_back(-1); // a unit that is nobody's
}

const LAYOUT::OBJECT* LAYOUT::find(const SYMTAB* symbol) const {
    auto found = index_.find(symbol);
    return found == index_.end() ? nullptr : &objects_[found->second];
}

std::uint64_t MEMORY::bits(unsigned address, unsigned bit, unsigned width) const {
    unsigned_wide image = 0;
    const unsigned count = units_of(bit + width);
    for (unsigned i = 0; i < count; i++) image |= static_cast<unsigned_wide>(units[address + i]) << (16 * i);
    return extend(static_cast<std::uint64_t>(image >> bit), width, false);
}

void MEMORY::set_bits(unsigned address, unsigned bit, unsigned width, std::uint64_t value) {
    for (unsigned done = 0; done < width;) {
        const unsigned at = bit + done, here = at % 16, count = std::min(16 - here, width - done);
        const unsigned mask = ((1u << count) - 1) << here;
        std::uint16_t& unit = units[address + at / 16];
        unit = static_cast<std::uint16_t>((unit & ~mask) |
                                          (static_cast<unsigned>(value >> done) << here & mask));
        done += count;
    }
}

std::string show(const EVENT& event, const LAYOUT& layout) {
    static constexpr const char* words[] = {"read", "write", "call", "  argument", "  globals"};
    std::string text = words[event.kind];
    for (const LAYOUT::OBJECT& o : layout.objects())
        if (event.kind <= EVENT::CALL && event.where >= o.address &&
            event.where < o.address + std::max(o.units, 1u))
            text += std::string(" ") + o.symbol->name;
    char number[40];
    std::snprintf(number, sizeof number, " 0x%llx", static_cast<unsigned long long>(event.value));
    return event.kind == EVENT::CALL ? text : text + number;
}

// --- Execution.

struct PROGRAM::RUNNING {
    const PROGRAM& program;
    MEMORY& memory;
    OUTCOME& outcome;
    bool strict;

    // Which NaN an operation gives is nobody's promise: where it can be seen, all of them are one.
    static std::uint64_t one_nan(std::uint64_t image) {
        return std::isnan(single_of(image)) ? 0x7fc00000u : image;
    }

    // Faults are noted, and the run ends at the next instruction.
    void fault(const char* why) { outcome.fault = why; }

    std::uint64_t fetch(const PLACE& place, std::uint64_t address) {
        const unsigned width = place.is_field ? place.width : place.rep.bits;
        if (!program.layout_->contains(address, units_of(place.bit + width))) {
            fault("access outside any object");
            return 0;
        }
        std::uint64_t bits;
        if (place.is_volatile) {
            memory.outside = mixed(memory.outside, address);
            bits = extend(memory.outside >> (memory.outside % 23), width, false);
            if (place.rep.kind == REP::BOOLEAN) bits &= 1;
            outcome.events.push_back(
                {EVENT::READ, static_cast<std::uint8_t>(width), static_cast<std::uint32_t>(address), bits});
        } else if (width == 16 && place.bit == 0) {
            bits = memory.units[address];
        } else {
            bits = memory.bits(static_cast<unsigned>(address), place.bit, width);
        }
        return extend(bits, width, place.rep.is_signed);
    }

    // Returns what is there afterwards.
    std::uint64_t put(const PLACE& place, std::uint64_t address, std::uint64_t value) {
        const unsigned width = place.is_field ? place.width : place.rep.bits;
        if (!program.layout_->contains(address, units_of(place.bit + width))) {
            fault("access outside any object");
            return 0;
        }
        if (place.rep.is_float()) value = one_nan(value);
        if (place.is_volatile)
            outcome.events.push_back({EVENT::WRITE, static_cast<std::uint8_t>(width),
                                      static_cast<std::uint32_t>(address), extend(value, width, false)});
        memory.set_bits(static_cast<unsigned>(address), place.bit, width, value);
        return extend(value, width, place.rep.is_signed);
    }

    std::uint64_t shifted(int op, const REP& rep, std::uint64_t a, std::uint64_t b, const REP& count) {
        if (b >= rep.bits || (count.is_signed && static_cast<std::int64_t>(b) < 0)) {
            fault("shift count outside the type");
            return 0;
        }
        a = extend(a, rep.bits, rep.is_signed);
        if (op == SLL) return extend(a << b, rep.bits, rep.is_signed);
        if (!rep.is_signed) return a >> b;
        const wide down = static_cast<wide>(static_cast<std::int64_t>(a)) >> b;
        return extend(static_cast<std::uint64_t>(down), rep.bits, true);
    }

    static std::uint64_t float_arithmetic(int op, float a, float b) {
        switch (op) {
            case PLUS: return image_of(a + b);
            case MINUS: return image_of(a - b);
            case MULT: return image_of(a * b);
            default:
                if (b != 0.0f) return image_of(a / b);
                if (a == 0.0f || std::isnan(a)) return 0x7fc00000u;
                return std::signbit(a) != std::signbit(b) ? 0xff800000u : 0x7f800000u;
        }
    }

    std::uint64_t power(const REP& rep, std::uint64_t base, std::uint64_t exponent) {
        if (static_cast<std::int64_t>(exponent) < 0 && base != 1) {
            fault("a negative exponent");
            return 0;
        }
        std::uint64_t result = 1;
        for (std::uint64_t n = exponent; n != 0 && base != 1; n >>= 1, base *= base)
            if ((n & 1) != 0) result *= base;
        return extend(result, rep.bits, rep.is_signed);
    }

    std::uint64_t arithmetic(int op, const REP& rep, std::uint64_t a, std::uint64_t b) {
        if (op == EXPT) return power(rep, a, b);
        if (rep.is_float()) return float_arithmetic(op, single_of(a), single_of(b));
        a = extend(a, rep.bits, rep.is_signed);
        b = extend(b, rep.bits, rep.is_signed);
        const auto number = [&rep](std::uint64_t v) {
            return rep.is_signed ? static_cast<wide>(static_cast<std::int64_t>(v)) : static_cast<wide>(v);
        };
        std::uint64_t result = 0;
        switch (op) {
            case PLUS: result = a + b; break;
            case MINUS: result = a - b; break;
            case MULT: result = a * b; break;
            case ANDB: result = a & b; break;
            case ORB: result = a | b; break;
            case XORB: result = a ^ b; break;
            default:
                if (b == 0) {
                    fault("division by zero");
                    return 0;
                }
                result =
                    static_cast<std::uint64_t>(op == DIV ? number(a) / number(b) : number(a) % number(b));
        }
        result = extend(result, rep.bits, rep.is_signed);
        if (strict && rep.kind == REP::POINTER && (op == PLUS || op == MINUS) && result < FIRST_UNIT)
            fault("a pointer to nowhere");
        return result;
    }

    static bool compared(int op, const REP& rep, std::uint64_t a, std::uint64_t b) {
        const bool ordered_by_sign = op == LT || op == LE || op == GT || op == GE;
        a = extend(a, rep.bits, ordered_by_sign);
        b = extend(b, rep.bits, ordered_by_sign);
        const auto x = static_cast<std::int64_t>(a), y = static_cast<std::int64_t>(b);
        switch (op) {
            case EQ: return a == b;
            case NEQ: return a != b;
            case LT: return x < y;
            case LE: return x <= y;
            case GT: return x > y;
            case GE: return x >= y;
            case ULT: return a < b;
            case ULE: return a <= b;
            case UGT: return a > b;
            default: return a >= b;
        }
    }

    static std::uint64_t unary(int op, const REP& rep, std::uint64_t a) {
        if (rep.is_float()) {
            const float x = single_of(a);
            switch (op) {
                case UMINUS: return a ^ 0x80000000u;
                case op::ABS: return a & 0x7fffffffu;
                case SQR: return image_of(x * x);
                case SQRT: return image_of(std::sqrt(x));
                default: return float_arithmetic(DIV, 1.0f, x);
            }
        }
        a = extend(a, rep.bits, rep.is_signed);
        switch (op) {
            case UMINUS: a = 0 - a; break;
            case NOTB: a = ~a; break;
            case SQR: a = a * a; break;
            default:
                if (rep.is_signed && static_cast<std::int64_t>(a) < 0) a = 0 - a;
        }
        return extend(a, rep.bits, rep.is_signed);
    }

    static bool is_true(const REP& rep, std::uint64_t a) {
        return rep.is_float() ? single_of(a) != 0.0f : a != 0;
    }

    // An opaque function sees its arguments and all globals, gives anything, and may change any global.
    std::uint64_t call(const CALLEE& callee, const std::uint64_t* arguments, const REP& rep) {
        std::uint64_t hash = callee.address;
        outcome.events.push_back({EVENT::CALL, 0, callee.address, 0});
        for (std::size_t i = 0; i < callee.arguments.size(); i++) {
            std::uint64_t value = extend(arguments[i], callee.arguments[i].bits, false);
            if (callee.arguments[i].is_float()) value = one_nan(value);
            outcome.events.push_back({EVENT::ARGUMENT, callee.arguments[i].bits, 0, value});
            hash = mixed(hash, value);
        }
        std::uint64_t seen = 0;
        for (const LAYOUT::OBJECT& o : program.layout_->objects())
            for (unsigned i = 0; o.is_global && i < o.units; i++)
                seen = mixed(seen, memory.units[o.address + i]);
        outcome.events.push_back({EVENT::GLOBALS, 64, 0, seen});
        hash = mixed(hash, seen);
        memory.outside = mixed(memory.outside, hash);
        std::uint64_t stream = memory.outside;
        for (const LAYOUT::OBJECT& o : program.layout_->objects()) {
            if (!o.is_global || o.symbol->type->is_volatile() || o.symbol->type->is_ptr()) continue;
            stream = mixed(stream, o.address);
            for (unsigned i = 0; i < o.units && (stream & 1) != 0; i++)
                memory.units[o.address + i] = static_cast<std::uint16_t>(stream >> (8 + 8 * i));
        }
        return rep.is_scalar() ? extend(stream >> (stream % 31), rep.bits, rep.is_signed) : 0;
    }
};

void PROGRAM::run(MEMORY& memory, OUTCOME& outcome, bool strict) const {
    outcome.fault = nullptr;
    outcome.value = 0;
    outcome.events.clear();
    RUNNING r{*this, memory, outcome, strict};
    static std::vector<std::uint64_t> stack; // kept: a tree is run many thousand times
    stack.clear();
    const auto pop = [] {
        const std::uint64_t top = stack.back();
        stack.pop_back();
        return top;
    };
    const auto push = [](std::uint64_t value) { stack.push_back(value); };
    for (std::size_t at = 0; at < code_.size() && outcome.fault == nullptr; at++) {
        const INSTRUCTION& i = code_[at];
        switch (i.code) {
            case CONSTANT: push(i.value); break;
            case LOAD_FIXED: push(r.fetch(places_[i.place], i.value)); break;
            case LOAD: push(r.fetch(places_[i.place], pop())); break;
            case STORE: {
                const std::uint64_t address = pop(), value = convert(pop(), i.from, places_[i.place].rep);
                push(r.put(places_[i.place], address, value));
                break;
            }
            case COMPOUND:
            case STEP: {
                const PLACE& place = places_[i.place];
                const std::uint64_t address = pop(), by = pop(), old = r.fetch(place, address);
                const std::uint64_t left = convert(old, place.rep, i.rep);
                const std::uint64_t result =
                    i.kind == SLL || i.kind == SRL
                        ? r.shifted(i.kind, i.rep, left, by, i.from)
                        : r.arithmetic(i.kind, i.rep, left, convert(by, i.from, i.rep));
                if (outcome.fault != nullptr) break;
                const std::uint64_t now = r.put(place, address, convert(result, i.rep, place.rep));
                push(i.code == STEP ? old : now);
                break;
            }
            case COPY: {
                const std::uint64_t to = pop(), from = pop();
                if (!layout_->contains(to, static_cast<unsigned>(i.value)) ||
                    !layout_->contains(from, static_cast<unsigned>(i.value))) {
                    r.fault("access outside any object");
                    break;
                }
                std::memmove(&memory.units[to], &memory.units[from], i.value * sizeof(std::uint16_t));
                push(0);
                break;
            }
            case OFFSET: push(extend(pop() + i.value, 16, false)); break;
            case ARITHMETIC: {
                const std::uint64_t b = pop(), a = pop();
                push(r.arithmetic(i.kind, i.rep, a, b));
                break;
            }
            case SHIFT: {
                const std::uint64_t b = pop(), a = pop();
                push(r.shifted(i.kind, i.rep, a, b, i.from));
                break;
            }
            case COMPARE: {
                const std::uint64_t b = pop(), a = pop();
                push(RUNNING::compared(i.kind, i.from, a, b));
                break;
            }
            case COMPARE_FLOAT: {
                const float b = single_of(pop()), a = single_of(pop());
                const unsigned result = std::isunordered(a, b) ? 8 : a == b ? 1 : a < b ? 2 : 4;
                push((i.value & result) != 0);
                break;
            }
            case UNARY: push(RUNNING::unary(i.kind, i.rep, pop())); break;
            case CONVERT: push(convert(pop(), i.from, i.rep)); break;
            case SCALE:
                push(extend(convert(pop(), i.from, i.rep) * i.value, i.rep.bits, i.rep.is_signed));
                break;
            case UNSCALE: {
                const auto distance = static_cast<std::int64_t>(extend(pop(), i.from.bits, true));
                push(extend(static_cast<std::uint64_t>(distance / static_cast<std::int64_t>(i.value)),
                            i.rep.bits, i.rep.is_signed));
                break;
            }
            case TRUTH: push(RUNNING::is_true(i.from, pop())); break;
            case NOT_TRUTH: push(!RUNNING::is_true(i.from, pop())); break;
            case DROP: pop(); break;
            case JUMP: at = i.value; break;
            case JUMP_IF_ZERO:
                if (!RUNNING::is_true(i.from, pop())) at = i.value;
                break;
            case MARK: break;
            case CALL_INTRINSIC:
            case CALL_OPAQUE: {
                const CALLEE& callee = callees_[i.place];
                const std::size_t count = callee.arguments.size();
                const std::uint64_t* arguments = stack.data() + (stack.size() - count);
                const std::uint64_t value =
                    i.code == CALL_OPAQUE ? r.call(callee, arguments, i.rep) : intrinsic(i, arguments);
                stack.resize(stack.size() - count);
                push(value);
                break;
            }
            case PROMISE:
                if (!RUNNING::is_true(i.from, pop())) r.fault("violated promise");
                push(0);
                break;
        }
    }
    if (outcome.fault == nullptr && !stack.empty()) outcome.value = stack.back();
}

std::uint64_t PROGRAM::intrinsic(const INSTRUCTION& i, const std::uint64_t* arguments) const {
    const INTRINSIC_ROW& row = INTRINSICS[i.kind];
    const std::vector<REP>& reps = callees_[i.place].arguments;
    if (row.which == CHOICE) {
        const std::size_t taken = RUNNING::is_true(reps[0], arguments[0]) ? 1 : 2;
        return convert(arguments[taken], reps[taken], i.rep);
    }
    const REP result = rep_of_letter(row.result, i.rep);
    const auto image = [&](std::size_t k) {
        return convert(arguments[k], reps[k], rep_of_letter(row.operands[k], reps[k]));
    };
    if (result.is_float()) { // the second operand where neither is less
        const float a = single_of(image(0)), b = single_of(image(1));
        return convert(image_of((row.which == LEAST ? a < b : a > b) ? a : b), result, i.rep);
    }
    const auto number = [&](std::size_t k) {
        const bool is_signed = rep_of_letter(row.operands[k], reps[k]).is_signed;
        return is_signed ? static_cast<wide>(static_cast<std::int64_t>(image(k)))
                         : static_cast<wide>(image(k));
    };
    const auto saturated = [&result](wide v) {
        const wide most = (wide{1} << (result.bits - 1)) - 1;
        return std::clamp(v, -most - 1, most);
    };
    wide value = 0;
    switch (row.which) {
        case LEAST: value = std::min(number(0), number(1)); break;
        case GREATEST: value = std::max(number(0), number(1)); break;
        case SUM: value = saturated(number(0) + number(1)); break;
        case DIFFERENCE: value = saturated(number(0) - number(1)); break;
        case SHIFTED: value = saturated(number(0) * (wide{1} << static_cast<int>(number(1) % 32))); break;
        case PRODUCT: value = number(0) * number(1); break;
        case PRODUCT_OF_HIGH: value = (number(0) >> 16) * number(1); break;
        case LOW: value = number(0); break;
        default: value = number(0) >> 32; break;
    }
    return convert(extend(static_cast<std::uint64_t>(value), result.bits, result.is_signed), result, i.rep);
}

} // namespace prove
