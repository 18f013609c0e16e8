// The execution loop. It keeps the instruction pointer, the frame's address and its registers in locals, and
// brings `frames_` up to date only where something else may look: before a call, and before what can throw.

#include <cmath>

#include "tools/icode-run/machine.h"

namespace run {

namespace {

// The outcome of a comparison as one of four bits: equal, less, greater, unordered.
unsigned outcome(float a, float b) { return a == b ? 1u : a < b ? 2u : a > b ? 4u : 8u; }

std::int64_t as_signed(std::uint64_t value) { return static_cast<std::int64_t>(value); }
// The constant in c.
std::int64_t constant_of(std::uint32_t c) { return static_cast<std::int32_t>(c); }
std::uint64_t bits_of(std::int64_t value) { return static_cast<std::uint64_t>(value); }

template <class T> std::uint64_t narrowed(std::uint64_t value) {
    if constexpr (std::is_signed_v<T>)
        return static_cast<std::uint64_t>(static_cast<std::int64_t>(static_cast<T>(value)));
    else
        return static_cast<T>(value);
}

std::uint64_t ADD(std::uint64_t a, std::uint64_t b) { return a + b; }
std::uint64_t SUB(std::uint64_t a, std::uint64_t b) { return a - b; }
std::uint64_t MUL(std::uint64_t a, std::uint64_t b) { return a * b; }
std::uint64_t SHL(std::uint64_t a, std::uint64_t b) { return a << (b & 63); }

// The quotient that does not exist, of the least value by -1, wraps.
std::uint64_t divide(std::int64_t a, std::int64_t b) { return b == -1 ? 0 - bits_of(a) : bits_of(a / b); }
std::uint64_t remainder(std::int64_t a, std::int64_t b) { return b == -1 ? 0 : bits_of(a % b); }

std::uint32_t switch_target(const switch_table& table, std::uint64_t value) {
    if (!table.dense.empty()) {
        const std::uint64_t index = value - bits_of(table.first);
        return index < table.dense.size() ? table.dense[index] : table.otherwise;
    }
    std::size_t low = 0, high = table.sorted.size();
    while (low < high) {
        const std::size_t middle = (low + high) / 2;
        if (table.sorted[middle].first < as_signed(value))
            low = middle + 1;
        else
            high = middle;
    }
    return low < table.sorted.size() && table.sorted[low].first == as_signed(value) ? table.sorted[low].second
                                                                                    : table.otherwise;
}

} // namespace

std::uint64_t machine::loop() {
    const std::uint32_t mask = mem.mask();
    const std::uint64_t max_steps = options_.max_steps;
    const function_code* fn;
    const insn* code;
    const insn* ip;
    std::uint64_t* r;
    address fp;

    auto enter = [&] { // takes up the newest frame
        const frame& f = frames_.back();
        fn = f.fn;
        code = fn->code.data();
        ip = f.ip;
        fp = f.fp;
        r = registers_.data() + f.base;
    };
    auto save = [&] { frames_.back().ip = ip; };
    // Ends the newest frame; false when the loop ends with it.
    auto leave = [&](std::uint64_t value) {
        const std::uint32_t dst = frames_.back().dst;
        const bool native = frames_.back().native;
        const scalar result = frames_.back().site->result;
        pop_frame();
        if (native) return false;
        enter();
        r[dst] = result.is_float() || !result.has_value() ? value : extend(value, result);
        return true;
    };
    enter();

    for (;;) {
        const insn& i = *ip++;
        switch (i.op) {
            case SEGMENT:
                if (steps_ + i.a > max_steps) {
                    save();
                    throw fault{"out of steps"};
                }
                steps_ += i.a;
                executed_[i.c]++;
                break;
            case MOVE_REG: r[i.a] = r[i.b]; break;
            case CONSTANT: r[i.a] = (std::uint64_t{i.c} << 32) | i.b; break;
            case NORM: r[i.a] = extend_word(r[i.b], i.x); break;
            case FRAME: r[i.a] = (fp + i.c) & mask; break;
            case FRAME_SUM: r[i.a] = (fp + i.c + r[i.b]) & mask; break;

#define X(NAME, WIDTH, TYPE)                                                                                 \
    case NAME##_##WIDTH##_RR: r[i.a] = narrowed<TYPE>(NAME(r[i.b], r[i.c])); break;                          \
    case NAME##_##WIDTH##_RI: r[i.a] = narrowed<TYPE>(NAME(r[i.b], bits_of(constant_of(i.c)))); break;
                RUN_WRAPPING(X)
#undef X
            case AND_RR: r[i.a] = r[i.b] & r[i.c]; break;
            case AND_RI: r[i.a] = r[i.b] & bits_of(constant_of(i.c)); break;
            case OR_RR: r[i.a] = r[i.b] | r[i.c]; break;
            case OR_RI: r[i.a] = r[i.b] | bits_of(constant_of(i.c)); break;
            case XOR_RR: r[i.a] = r[i.b] ^ r[i.c]; break;
            case XOR_RI: r[i.a] = r[i.b] ^ bits_of(constant_of(i.c)); break;
            case SHIFT_CHECK:
                if (r[i.b] >= i.x) {
                    save();
                    throw fault{"shift count " + std::to_string(as_signed(r[i.b])) + " outside the type"};
                }
                break;
            case SHRS_RR: r[i.a] = bits_of(as_signed(r[i.b]) >> (r[i.c] & 63)); break;
            case SHRS_RI: r[i.a] = bits_of(as_signed(r[i.b]) >> (i.c & 63)); break;
            case SHRU_RR: r[i.a] = r[i.b] >> (r[i.c] & 63); break;
            case SHRU_RI: r[i.a] = r[i.b] >> (i.c & 63); break;
            case DIVS:
            case DIVU:
            case MODS:
            case MODU: {
                const std::uint64_t a = r[i.b], b = r[i.c];
                if (b == 0) {
                    save();
                    throw fault{"division by zero"};
                }
                if (i.op == DIVS)
                    r[i.a] = extend_word(divide(as_signed(a), as_signed(b)), i.x);
                else if (i.op == MODS)
                    r[i.a] = remainder(as_signed(a), as_signed(b));
                else
                    r[i.a] = i.op == DIVU ? a / b : a % b;
                break;
            }
            case NEG: r[i.a] = extend_word(0 - r[i.b], i.x); break;
            case NOT: r[i.a] = extend_word(~r[i.b], i.x); break;
            case ABS_INT: r[i.a] = extend_word(as_signed(r[i.b]) < 0 ? 0 - r[i.b] : r[i.b], i.x); break;
            case SCALE_DOWN: r[i.a] = extend_word(divide(as_signed(r[i.b]), constant_of(i.c)), i.x); break;

#define X(NAME, OP, TYPE)                                                                                    \
    case SET_##NAME##_RR: r[i.a] = static_cast<TYPE>(r[i.b]) OP static_cast<TYPE>(r[i.c]); break;            \
    case SET_##NAME##_RI: r[i.a] = static_cast<TYPE>(r[i.b]) OP static_cast<TYPE>(constant_of(i.c)); break;  \
    case BR_##NAME##_RR:                                                                                     \
        if (static_cast<TYPE>(r[i.a]) OP static_cast<TYPE>(r[i.b])) ip = code + i.c;                         \
        break;                                                                                               \
    case BR_##NAME##_RI:                                                                                     \
        if (static_cast<TYPE>(r[i.a]) OP static_cast<TYPE>(constant_of(i.b))) ip = code + i.c;               \
        break;
                RUN_COMPARISONS(X)
#undef X
            case JUMP: ip = code + i.c; break;
            case JUMP_ZERO:
                if (r[i.a] == 0) ip = code + i.c;
                break;
            case JUMP_NONZERO:
                if (r[i.a] != 0) ip = code + i.c;
                break;
            case SWITCH_JUMP: ip = code + switch_target(fn->switches[i.c], r[i.a]); break;

            case FADD: r[i.a] = image_of(as_float(r[i.b]) + as_float(r[i.c])); break;
            case FSUB: r[i.a] = image_of(as_float(r[i.b]) - as_float(r[i.c])); break;
            case FMUL: r[i.a] = image_of(as_float(r[i.b]) * as_float(r[i.c])); break;
            case FDIV: {
                // Division by zero has its result in IEEE arithmetic.
                const float a = as_float(r[i.b]), b = as_float(r[i.c]);
                r[i.a] = image_of(b != 0.0f                            ? a / b
                                  : a == 0.0f || std::isnan(a)         ? NAN
                                  : std::signbit(a) != std::signbit(b) ? -INFINITY
                                                                       : INFINITY);
                break;
            }
            case FNEG: r[i.a] = r[i.b] ^ 0x80000000u; break;
            case FABS: r[i.a] = r[i.b] & 0x7fffffffu; break;
            case FSQRT: r[i.a] = image_of(std::sqrt(as_float(r[i.b]))); break;
            case FRECIP: {
                const float b = as_float(r[i.b]);
                r[i.a] = image_of(b != 0.0f ? 1.0f / b : std::copysign(INFINITY, b));
                break;
            }
            case FCOMPARE: r[i.a] = (outcome(as_float(r[i.b]), as_float(r[i.c])) & i.x) != 0; break;
            case FJUMP:
                if ((outcome(as_float(r[i.a]), as_float(r[i.b])) & i.x) != 0) ip = code + i.c;
                break;
            case INT_TO_FLT: r[i.a] = image_of(integer_to_float(r[i.b], (i.x & 0x100) != 0)); break;
            case FLT_TO_INT:
                r[i.a] = float_to_integer(as_float(r[i.b]), i.x & 0xff, (i.x & 0x100) != 0);
                break;
            case INT_TO_BOOL: r[i.a] = r[i.b] != 0; break;
            case FLT_TO_BOOL: r[i.a] = as_float(r[i.b]) != 0.0f; break;

#define LOADS(KIND, UNITS, GET, TYPE)                                                                        \
    case LD_##KIND##_A: r[i.a] = narrowed<TYPE>(mem.GET(i.c)); break;                                        \
    case LD_##KIND##_F: r[i.a] = narrowed<TYPE>(mem.GET(fp + i.c)); break;                                   \
    case LD_##KIND##_P: {                                                                                    \
        const address at = (static_cast<address>(r[i.b]) + i.c) & mask;                                      \
        if (!mem.readable(at, UNITS)) [[unlikely]] {                                                         \
            save();                                                                                          \
            mem.access_fault(at, UNITS, false);                                                              \
        }                                                                                                    \
        r[i.a] = narrowed<TYPE>(mem.GET(at));                                                                \
        break;                                                                                               \
    }
                LOADS(S16, 1, get16, std::int16_t)
                LOADS(U16, 1, get16, std::uint16_t)
                LOADS(S32, 2, get32, std::int32_t)
                LOADS(U32, 2, get32, std::uint32_t)
                LOADS(W64, 4, get64, std::uint64_t)
#undef LOADS
            case LD_ANY_P:
                save();
                r[i.a] = mem.load(static_cast<address>(r[i.b]) + i.c, i.x & 0xff, (i.x & 0x100) != 0);
                break;

#define STORES(BITS, UNITS, PUT)                                                                             \
    case ST_##BITS##_A: mem.PUT(i.c, r[i.a]); break;                                                         \
    case ST_##BITS##_F: mem.PUT(fp + i.c, r[i.a]); break;                                                    \
    case ST_##BITS##_P: {                                                                                    \
        const address at = (static_cast<address>(r[i.b]) + i.c) & mask;                                      \
        if (!mem.writable(at, UNITS)) [[unlikely]] {                                                         \
            save();                                                                                          \
            mem.access_fault(at, UNITS, true);                                                               \
        }                                                                                                    \
        mem.PUT(at, r[i.a]);                                                                                 \
        break;                                                                                               \
    }
                STORES(16, 1, put16)
                STORES(32, 2, put32)
                STORES(64, 4, put64)
#undef STORES
            case ST_ANY_P:
                save();
                mem.store(static_cast<address>(r[i.b]) + i.c, i.x & 0xff, r[i.a]);
                break;
            case LD_FIELD:
                save();
                r[i.a] = mem.load_field(static_cast<address>(r[i.b]), fn->fields[i.c]);
                break;
            case ST_FIELD:
                save();
                mem.store_field(static_cast<address>(r[i.b]), fn->fields[i.c], r[i.a]);
                break;
            case COPY:
                save();
                mem.copy(static_cast<address>(r[i.a]), static_cast<address>(r[i.b]), i.c);
                break;
            case COPY_REG: {
                save();
                const std::uint64_t units = r[i.c];
                if (units > mask) throw fault{"a copy of more units than memory has"};
                if (units * 2 > max_steps - steps_) throw fault{"out of steps"};
                steps_ += units * 2;
                copied_units_ += units;
                mem.copy(static_cast<address>(r[i.a]), static_cast<address>(r[i.b]),
                         static_cast<std::uint32_t>(units));
                break;
            }

            case ARG: arguments_[i.a] = r[i.b]; break;
            case ARG_CONST: arguments_[i.a] = (std::uint64_t{i.c} << 32) | i.b; break;
            case CALL_DIRECT: {
                save();
                const call_site& site = fn->sites[i.c];
                push_frame(site.callee, &site, i.a, false);
                enter();
                break;
            }
            case CALL_POINTER: {
                save();
                const call_site& site = fn->sites[i.c];
                const global_place* target = program.function_at(static_cast<address>(r[i.b]));
                if (target == nullptr) throw fault{"call of no function"};
                if (target->kind == global_place::FUNCTION) {
                    push_frame(target->function, &site, i.a, false);
                    enter();
                } else if (target->kind == global_place::LIBRARY) {
                    const std::uint64_t value = call_library(site, *target->library);
                    enter();
                    r[i.a] = value;
                } else {
                    throw fault{"call of " + *target->name + ", which is not there"};
                }
                break;
            }
            case CALL_LIBRARY: {
                save();
                const call_site& site = fn->sites[i.c];
                if (site.library->what == special::SETJMP) {
                    set_jump(site, i.a, ip);
                    r[i.a] = 0;
                    break;
                }
                const std::uint64_t value = call_library(site, *site.library);
                enter();
                r[i.a] = value;
                break;
            }
            case CALL_INTRINSIC: {
                save();
                const call_site& site = fn->sites[i.c];
                r[i.a] = site.builtin->run(arguments_.data(), site.args.data(), site.result);
                break;
            }
            case RET:
                if (!leave(0)) return 0;
                break;
            case RET_VALUE: {
                const std::uint64_t value = r[i.a];
                if (!leave(value)) return value;
                break;
            }
            case RET_COPY: {
                save();
                const frame& f = frames_.back();
                if (!f.native && f.site->result_units != 0) {
                    const frame& caller = frames_[frames_.size() - 2];
                    mem.copy(caller.fp + f.site->result_offset, static_cast<address>(r[i.a]),
                             std::min(i.c, f.site->result_units));
                }
                if (!leave(0)) return 0;
                break;
            }
            case ASSERT_TRUE:
                if (r[i.a] == 0) {
                    save();
                    throw fault{"violated assertion"};
                }
                break;
            case FAULT: save(); throw fault{fn->texts[i.c]};
            case TRACE: trace(i.x, static_cast<address>(r[i.b]) + i.c, r[i.a]); break;
            case TRACE_MEM: {
                save();
                const address at = static_cast<address>(r[i.b]) + i.c;
                trace(i.x, at, mem.load(at, i.x & 0x7f, false));
                break;
            }
            case CHECK_INIT:
                if (has_value_[frames_.back().base + i.b] == 0) {
                    save();
                    throw fault{"local read before anything was stored in it: " + fn->texts[i.c]};
                }
                break;
            case MARK_INIT: has_value_[frames_.back().base + i.b] = 1; break;
            case SCOPE_BEGIN: begin_scope(*fn, i.c, fp, frames_.back().base); break;
            case SCOPE_END: end_scope(*fn, i.c, fp); break;
            case CLEANUP_END:
                end_cleanup();
                enter();
                break;
            default: __builtin_unreachable();
        }
    }
}

} // namespace run
