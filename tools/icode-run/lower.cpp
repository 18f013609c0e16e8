// Lowering of a program's bodies to the runner's code.
//
// The walk over a tree recurses: the caller runs it on a stack that is sized by the deepest tree.

#include <algorithm>
#include <cstring>
#include <map>

#include "OPT5/opcodes.h"
#include "OPT5/types.h"
#include "tools/icode-run/code.h"
#include "tools/icode-run/memory.h"

using model::symbol;
using model::tree;

KIND kind_of(TYPE* type) {
    if (type == nullptr) throw lowering_error("a value has no type");
    if (type->is_fltpt()) {
        if (type->size() != 32)
            throw lowering_error("floating type of " + std::to_string(type->size()) + " bits");
        return KIND::F32;
    }
    if (!type->is_integral() && !type->is_ptr() && !type->is_ref())
        throw lowering_error("type " + type->printstr() + " has no scalar value");
    const bool with_sign = type->is_signed();
    switch (type->size()) {
        case 16: return with_sign ? KIND::I16 : KIND::U16;
        case 32: return with_sign ? KIND::I32 : KIND::U32;
        case 64: return with_sign ? KIND::I64 : KIND::U64;
        default:
            throw lowering_error("type " + type->printstr() + " of " + std::to_string(type->size()) +
                                 " bits");
    }
}

namespace {

bool is_scalar(TYPE* type) {
    return type->is_integral() || type->is_fltpt() || type->is_ptr() || type->is_ref();
}

std::uint32_t units(TYPE* type) { return static_cast<std::uint32_t>(type->storage_size()); }

std::uint32_t align_units(unsigned bits) { return std::max(1u, bits / 16); }

[[noreturn]] void no_meaning(const tree* t) {
    throw lowering_error(std::string("operator ") +
                         (if_node_info[t->op].name != nullptr ? if_node_info[t->op].name : "?") +
                         " has no meaning when a program runs");
}

// The operands of a left-nested list, in order.
std::vector<const tree*> list_items(const tree* list, int separator) {
    std::vector<const tree*> items;
    for (; list != nullptr && list->op == separator; list = list->left) items.push_back(list->right);
    if (list != nullptr) items.push_back(list);
    std::reverse(items.begin(), items.end());
    return items;
}

// Outcomes of a floating comparison: 1 equal, 2 less, 4 greater, 8 unordered; 0 for other operators.
int float_outcomes(int code) {
    switch (code) {
        case op::FEQ:
        case op::EQ: return 1;
        case op::FNEQ: return 6;
        case op::FLE:
        case op::LE:
        case op::ULE: return 3;
        case op::FLT:
        case op::LT:
        case op::ULT: return 2;
        case op::FGE:
        case op::GE:
        case op::UGE: return 5;
        case op::FGT:
        case op::GT:
        case op::UGT: return 4;
        case op::FEQN: return 9;
        case op::FNEQN:
        case op::NEQ: return 14;
        case op::FLEN: return 11;
        case op::FLTN: return 10;
        case op::FGEN: return 13;
        case op::FGTN: return 12;
        case op::FORD: return 7;
        case op::FUNO: return 8;
        default: return 0;
    }
}

struct text_table {
    std::map<std::string, std::uint32_t> by_text; // address of each anonymous array of characters
};

class function_lowering {
  public:
    function_lowering(const model::function& source, memory& space, bool check, lowered_program& program,
                      text_table& texts)
        : source_(source), space_(space), check_(check), program_(program), texts_(texts),
          out_(program.functions[static_cast<std::size_t>(program.function_of.at(source.sym))]) {}

    void run() {
        out_.name = source_.sym->name;
        out_.has_body = true;
        place_symbols();
        for (std::size_t i = 0; i < source_.body.size(); i++) item(source_.body[i], i);
        emit({CODE::FELLOFF});
        for (const auto& [at, label] : jumps_) out_.code[at].imm = label_at(label);
        for (std::size_t t = 0; t < out_.switches.size(); t++) {
            switch_table& table = out_.switches[t];
            for (auto& entry : table.cases) entry.second = static_cast<std::uint32_t>(label_at(entry.second));
            if (table.otherwise >= 0) table.otherwise = label_at(static_cast<unsigned>(table.otherwise));
            std::stable_sort(table.cases.begin(), table.cases.end(),
                             [](const auto& a, const auto& b) { return a.first < b.first; });
        }
        out_.registers = highest_ + 1;
    }

  private:
    // Where an lvalue is.
    struct place {
        bool in_register = false;
        std::uint32_t reg = 0; // the register, or the base address
        std::int64_t offset = 0;
        KIND kind = KIND::I16;
        bool is_volatile = false;
        int field = -1; // bit-field of the function, or -1
    };

    const model::function& source_;
    memory& space_;
    bool check_;
    lowered_program& program_;
    text_table& texts_;
    lowered_function& out_;

    std::unordered_map<const symbol*, std::uint32_t> registers_;     // address-free scalars
    std::unordered_map<const symbol*, std::uint32_t> memory_locals_; // by place among the locals
    std::unordered_map<const tree*, std::uint32_t> result_locals_;   // of calls that return structures
    std::unordered_map<unsigned, std::uint32_t> labels_;
    std::vector<std::pair<std::size_t, std::uint32_t>> jumps_;
    std::uint32_t next_ = 1, highest_ = 0, first_temporary_ = 1;
    std::uint32_t line_ = 0;
    std::uint32_t next_own_label_ = 0x80000000u;
    int uncounted_ = 0;

    // --- Registers and instructions.

    std::uint32_t new_register() {
        const std::uint32_t reg = next_++;
        highest_ = std::max(highest_, reg);
        return reg;
    }

    std::size_t emit(instruction in) {
        if (uncounted_ > 0) in.count = COUNT::NONE;
        out_.code.push_back(in);
        out_.lines.push_back(line_);
        return out_.code.size() - 1;
    }

    static instruction make(CODE code, KIND kind, COUNT count, std::uint32_t dst, std::uint32_t a,
                            std::uint32_t b) {
        instruction in{code};
        in.kind = kind;
        in.count = count;
        in.dst = dst;
        in.a = a;
        in.b = b;
        return in;
    }

    static instruction make_imm(CODE code, KIND kind, COUNT count, std::uint32_t dst, std::uint32_t a,
                                std::int64_t imm) {
        instruction in{code};
        in.kind = kind;
        in.count = count;
        in.dst = dst;
        in.a = a;
        in.imm = imm;
        in.has_imm = true;
        return in;
    }

    std::int64_t label_at(unsigned label) const {
        const auto found = labels_.find(label);
        if (found == labels_.end())
            throw lowering_error("function " + out_.name + " jumps to label " + std::to_string(label) +
                                 ", which is not there");
        return found->second;
    }

    void define_label(unsigned label) {
        if (!labels_.emplace(label, static_cast<std::uint32_t>(out_.code.size())).second)
            throw lowering_error("function " + out_.name + " has label " + std::to_string(label) + " twice");
    }

    void jump(CODE code, COUNT count, std::uint32_t a, unsigned label) {
        instruction in{code};
        in.count = count;
        in.a = a;
        jumps_.emplace_back(emit(in), label);
    }

    // --- Symbols.

    // Finds the locals that live in memory: address taken, volatile, no scalars, or seen as another type.
    void place_symbols() {
        std::vector<const symbol*> order;
        for (const model::body_item& it : source_.body)
            if (it.what == model::body_item::kind::symbol) order.push_back(it.sym);
        std::unordered_map<const symbol*, bool> in_memory;
        for (const symbol* s : order)
            in_memory[s] = !is_scalar(s->type) || s->type->is_volatile() || s->sclass == SC_VARARG;
        out_.is_vararg = source_.sym->type->is_func() && source_.sym->type->func().vararg;
        std::vector<const tree*> result_calls, pending;
        for (const model::body_item& it : source_.body) {
            if (it.expr == nullptr) continue;
            pending.push_back(it.expr);
            while (!pending.empty()) {
                const tree* t = pending.back();
                pending.pop_back();
                if (t->op == op::UAND) {
                    const tree* base = t->left;
                    while (base->op == op::STDOT) base = base->left;
                    if (base->op == op::NAME && in_memory.count(base->sym) != 0) in_memory[base->sym] = true;
                }
                if (t->op == op::NAME && t->type != nullptr) {
                    const auto found = in_memory.find(t->sym);
                    if (found != in_memory.end() && !found->second &&
                        (!is_scalar(t->type) || t->type->is_volatile() ||
                         units(t->type) != units(t->sym->type)))
                        found->second = true;
                }
                if ((t->op == op::CALL || t->op == op::UCALL) && t->type != nullptr && t->type->is_csu())
                    result_calls.push_back(t);
                if (t->left != nullptr) pending.push_back(t->left);
                if (t->right != nullptr) pending.push_back(t->right);
            }
        }
        const auto add_local = [&](const std::string& name, std::uint32_t size, std::uint32_t align) {
            out_.locals.push_back({out_.name + ":" + name, size, align, new_register()});
            return static_cast<std::uint32_t>(out_.locals.size() - 1);
        };
        for (const symbol* s : order) {
            if (in_memory[s])
                memory_locals_[s] =
                    add_local(s->name, std::max(units(s->type), (s->size + 15) / 16), align_units(s->align));
            else
                registers_[s] = new_register();
        }
        for (const tree* call : result_calls)
            result_locals_[call] = add_local("result", units(call->type), align_units(call->type->align()));
        for (const symbol* s : source_.params) {
            parameter p;
            p.in_register = registers_.count(s) != 0;
            p.place = p.in_register ? registers_[s] : memory_locals_[s];
            if (is_scalar(s->type))
                p.kind = kind_of(s->type);
            else
                p.units = units(s->type);
            out_.params.push_back(p);
        }
        TYPE* result = source_.sym->type->is_func() ? source_.sym->type->func().return_type : nullptr;
        out_.returns_struct = result != nullptr && result->is_csu();
        first_temporary_ = next_;
    }

    // --- Statements.

    void item(const model::body_item& it, std::size_t) {
        if (it.has_psn) line_ = it.psn.line;
        next_ = first_temporary_;
        switch (it.what) {
            case model::body_item::kind::label: define_label(it.number); break;
            case model::body_item::kind::expr:
                if (is_prolog(it.expr))
                    prolog(it.expr);
                else
                    statement(it.expr);
                break;
            default: break;
        }
    }

    bool is_parameter_receipt(const tree* t) const {
        if (t->op != op::ASG && t->op != op::STASG && t->op != op::ARASG) return false;
        if (t->left->op != op::NAME) return false;
        const tree* from = t->right;
        if (from->op == op::SCONV) from = from->left;
        return from->op == op::NAME && from->sym == t->left->sym;
    }

    bool prolog_seen_ = false;

    bool is_prolog(const tree* t) {
        if (prolog_seen_ || source_.params.empty()) return false;
        prolog_seen_ = true;
        if (t->op == op::PCOMMA) return true;
        return is_parameter_receipt(t) && t->left->sym == source_.params.front();
    }

    // The call has stored the parameters; what is left is the conversion of those that arrive in another
    // type.
    void prolog(const tree* list) {
        for (const tree* t : list_items(list, op::PCOMMA)) {
            if (!is_parameter_receipt(t)) no_meaning(list);
            if (t->right->op != op::SCONV) continue;
            for (std::size_t i = 0; i < source_.params.size(); i++)
                if (source_.params[i] == t->left->sym) out_.params[i].kind = kind_of(t->left->type);
        }
    }

    void statement(const tree* t) {
        switch (t->op) {
            case op::BRANCH: jump(CODE::JUMP, COUNT::BRANCH, 0, static_cast<unsigned>(t->left->value)); break;
            case op::CBRANCH: branch_if(t->left, false, static_cast<unsigned>(t->right->value)); break;
            case op::RETURN:
                if (t->right == nullptr) {
                    emit({CODE::RETVOID});
                } else if (t->right->type->is_csu()) {
                    const std::uint32_t from = aggregate(t->right);
                    emit(make_imm(CODE::RETSTRUCT, KIND::U16, COUNT::NONE, 0, from, units(t->right->type)));
                } else {
                    const TYPE* f = source_.sym->type;
                    TYPE* wanted = f->is_func() ? f->func().return_type : nullptr;
                    std::uint32_t v = value(t->right);
                    if (wanted != nullptr && is_scalar(wanted) && kind_of(wanted) != kind_of(t->right->type))
                        v = converted(v, kind_of(t->right->type), kind_of(wanted), COUNT::NONE);
                    emit(make(CODE::RET, kind_of(t->right->type), COUNT::NONE, 0, v, 0));
                }
                break;
            case op::URETURN: emit({CODE::RETVOID}); break;
            case op::SWITCH: lower_switch(t); break;
            case op::PCOMMA:
                for (const tree* part : list_items(t, op::PCOMMA)) effect(part);
                break;
            default: effect(t); break;
        }
    }

    void lower_switch(const tree* t) {
        const std::uint32_t selector = value(t->left);
        const KIND kind = kind_of(t->left->type);
        switch_table table;
        for (const tree* c : list_items(t->right, op::COMMA)) {
            if (c->op == op::DEFAULT)
                table.otherwise = c->left->value;
            else if (c->op == op::CASE)
                table.cases.emplace_back(normalise(kind, static_cast<std::uint64_t>(c->left->value)),
                                         static_cast<std::uint32_t>(c->right->value));
            else
                no_meaning(c);
        }
        out_.switches.push_back(std::move(table));
        emit(make_imm(CODE::SWITCH, kind, COUNT::BRANCH, 0, selector,
                      static_cast<std::int64_t>(out_.switches.size() - 1)));
    }

    // Jumps to the label if the condition is (not) zero: `if_nonzero` tells which.
    void branch_if(const tree* t, bool if_nonzero, unsigned label) {
        const std::uint32_t mark = next_;
        switch (t->op) {
            case op::EXCLAIM: branch_if(t->left, !if_nonzero, label); return;
            case op::ANDAND:
            case op::OROR: {
                const bool both = (t->op == op::ANDAND) == if_nonzero;
                if (both) { // jump only if both say so
                    const unsigned past = next_own_label_++;
                    branch_if(t->left, !if_nonzero, past);
                    branch_if(t->right, if_nonzero, label);
                    define_label(past);
                } else {
                    branch_if(t->left, if_nonzero, label);
                    branch_if(t->right, if_nonzero, label);
                }
                return;
            }
            case op::ICON:
                if ((t->value != 0) == if_nonzero) jump(CODE::JUMP, COUNT::BRANCH, 0, label);
                return;
            case op::COMMAOP:
                effect(t->left);
                branch_if(t->right, if_nonzero, label);
                return;
            default: break;
        }
        const std::uint32_t cond = truth(t);
        jump(if_nonzero ? CODE::JNONZERO : CODE::JZERO, COUNT::BRANCH, cond, label);
        next_ = mark;
    }

    // A register that is zero exactly when the value is: a float's minus zero is zero.
    std::uint32_t truth(const tree* t) {
        const std::uint32_t v = value(t);
        if (kind_of(t->type) != KIND::F32) return v;
        const std::uint32_t dst = new_register();
        emit(make(CODE::NONZERO, KIND::F32, COUNT::NONE, dst, v, 0));
        return dst;
    }

    // --- Places.

    int add_field(const fkMDATA* m, KIND kind) {
        bit_field f;
        f.first = 0;
        f.shift = static_cast<unsigned>(m->offset % 16);
        f.width = m->width;
        f.units = (f.shift + f.width + 15) / 16;
        f.kind = kind;
        out_.fields.push_back(f);
        return static_cast<int>(out_.fields.size() - 1);
    }

    place lvalue(const tree* t) {
        place p;
        p.is_volatile = t->type != nullptr && t->type->is_volatile();
        switch (t->op) {
            case op::NAME: {
                const auto reg = registers_.find(t->sym);
                if (reg != registers_.end()) {
                    p.in_register = true;
                    p.reg = reg->second;
                    p.kind = kind_of(t->sym->type);
                    return p;
                }
                p.is_volatile = p.is_volatile || t->sym->type->is_volatile();
                const auto local = memory_locals_.find(t->sym);
                if (local != memory_locals_.end()) {
                    p.reg = out_.locals[local->second].address_register;
                } else {
                    const auto global = program_.address_of.find(t->sym);
                    if (global == program_.address_of.end())
                        throw lowering_error("function " + out_.name + " names " + t->sym->name +
                                             ", which has no place");
                    p.offset = global->second;
                }
                break;
            }
            case op::UMULT: {
                // A constant offset becomes part of the access; the addition still counts.
                p.reg = value(t->left);
                break;
            }
            case op::STDOT:
            case op::STREF: {
                const fkMDATA* m = t->right->member;
                if (t->op == op::STDOT) {
                    p = lvalue_or_aggregate(t->left);
                    p.is_volatile = p.is_volatile || t->type->is_volatile() || m->type->is_volatile();
                } else {
                    p.reg = value(t->left);
                    if (t->left->type->is_ptr() && t->left->type->type_pointed_to()->is_volatile())
                        p.is_volatile = true;
                }
                const std::int64_t offset = m->offset / 16;
                if (offset != 0 && (t->op == op::STREF || p.reg >= first_temporary_)) {
                    const std::uint32_t dst = new_register();
                    emit(make_imm(CODE::ADDI, KIND::U16, COUNT::ADDRESS, dst, p.reg, p.offset + offset));
                    p.reg = dst;
                    p.offset = 0;
                } else {
                    p.offset += offset;
                }
                if (m->bit_field || m->width != 0) p.field = add_field(m, kind_of(m->type));
                break;
            }
            case op::SCON: p.offset = text(t); break;
            case op::COMMAOP: effect(t->left); return lvalue(t->right);
            case op::EXPRSTUB:
            default: p.reg = aggregate(t); break;
        }
        if (is_scalar(t->type)) p.kind = kind_of(t->type);
        return p;
    }

    place lvalue_or_aggregate(const tree* t) {
        switch (t->op) {
            case op::NAME:
            case op::UMULT:
            case op::STDOT:
            case op::STREF:
            case op::COMMAOP: return lvalue(t);
            default: {
                place p;
                p.reg = aggregate(t);
                return p;
            }
        }
    }

    std::uint32_t address(const place& p) {
        if (p.in_register) throw lowering_error("the address of a register is asked for in " + out_.name);
        if (p.offset == 0) return p.reg;
        const std::uint32_t dst = new_register();
        emit(make_imm(CODE::ADDI, KIND::U16, COUNT::NONE, dst, p.reg, p.offset));
        return dst;
    }

    std::uint32_t load(const place& p, std::uint32_t want) {
        if (p.in_register) {
            if (check_) emit(make(CODE::CHECK, p.kind, COUNT::NONE, 0, p.reg, 0));
            return p.reg;
        }
        const std::uint32_t dst = want != 0 ? want : new_register();
        instruction in =
            make_imm(p.field >= 0 ? CODE::LOADF : CODE::LOAD, p.kind, COUNT::LOAD, dst, p.reg, p.offset);
        if (p.field >= 0) {
            in.a = address(p);
            in.imm = p.field;
            // Shift and mask, as code without bit-fields would have to.
            const bit_field& f = out_.fields[static_cast<std::size_t>(p.field)];
            if (f.shift != 0 || is_signed(f.kind)) count_only(COUNT::ARITHMETIC);
            count_only(COUNT::ARITHMETIC);
        }
        in.is_volatile = p.is_volatile;
        emit(in);
        return dst;
    }

    // Counts an operator that other instructions carry out.
    void count_only(COUNT count) {
        instruction in{CODE::MOVE};
        in.count = count;
        emit(in); // register 0 to register 0
    }

    // Stores; returns the register with the value that the lvalue now has.
    std::uint32_t store(const place& p, std::uint32_t v) {
        if (p.in_register) {
            if (v != p.reg) emit(make(CODE::MOVE, p.kind, COUNT::MOVE, p.reg, v, 0));
            if (check_) emit(make(CODE::DEFINE, p.kind, COUNT::NONE, 0, p.reg, 0));
            return p.reg;
        }
        if (p.field >= 0) {
            const bit_field& f = out_.fields[static_cast<std::size_t>(p.field)];
            count_only(COUNT::LOAD);
            if (f.shift != 0) count_only(COUNT::ARITHMETIC);
            count_only(COUNT::ARITHMETIC);
            count_only(COUNT::ARITHMETIC);
            const std::uint32_t at = address(p);
            const std::uint32_t dst = new_register();
            instruction in = make(CODE::STOREF, p.kind, COUNT::STORE, dst, at, v);
            in.imm = p.field;
            in.is_volatile = p.is_volatile;
            emit(in);
            return dst;
        }
        instruction in = make(CODE::STORE, p.kind, COUNT::STORE, 0, p.reg, v);
        in.imm = p.offset;
        in.is_volatile = p.is_volatile;
        emit(in);
        return v;
    }

    std::uint32_t text(const tree* t) {
        std::string bytes(t->text);
        const auto known = texts_.by_text.find(bytes);
        if (known != texts_.by_text.end()) return known->second;
        const auto size = static_cast<std::uint32_t>(bytes.size());
        const std::uint32_t at =
            space_.add_static("text#" + std::to_string(texts_.by_text.size()), size, 1, false);
        for (std::uint32_t i = 0; i < size; i++) *space_.at(at + i) = static_cast<unsigned char>(bytes[i]);
        space_.set_const(at);
        texts_.by_text.emplace(std::move(bytes), at);
        return at;
    }

    // --- Values.

    std::uint32_t constant(std::int64_t number, std::uint32_t want, COUNT count = COUNT::NONE) {
        if (number == 0 && want == 0) return 0;
        const std::uint32_t dst = want != 0 ? want : new_register();
        instruction in{CODE::CONST};
        in.count = count;
        in.dst = dst;
        in.imm = number;
        emit(in);
        return dst;
    }

    static std::int64_t constant_value(const tree* t) {
        if (t->op == op::FCON) return from_float(t->fcon());
        const KIND kind = kind_of(t->type);
        if (kind == KIND::F32) return from_float(static_cast<float>(t->value));
        return normalise(kind, static_cast<std::uint64_t>(t->value));
    }

    std::uint32_t converted(std::uint32_t v, KIND from, KIND to, COUNT count, std::uint32_t want = 0) {
        if (from == to) return v;
        const std::uint32_t dst = want != 0 ? want : new_register();
        instruction in = make(CODE::CONV, to, count, dst, v, 0);
        in.kind2 = from;
        emit(in);
        return dst;
    }

    // The class that a conversion counts to: one that changes no bits is free.
    static COUNT conversion_count(KIND from, KIND to) {
        if (from == KIND::F32 || to == KIND::F32) return COUNT::CONVERT;
        return units_of(from) == units_of(to) ? COUNT::NONE : COUNT::CONVERT;
    }

    // The address of a structure or array value.
    std::uint32_t aggregate(const tree* t) {
        switch (t->op) {
            case op::NAME:
            case op::UMULT:
            case op::STDOT:
            case op::STREF:
            case op::SCON: return address(lvalue(t));
            case op::CALL:
            case op::UCALL: {
                call(t, 0);
                return out_.locals[result_locals_.at(t)].address_register;
            }
            case op::STASG:
            case op::ARASG: return structure_assignment(t);
            case op::COMMAOP: effect(t->left); return aggregate(t->right);
            case op::SCONV:
            case op::ACONV:
            case op::STARG: return aggregate(t->left);
            case op::QUEST: {
                const std::uint32_t dst = new_register();
                const unsigned otherwise = next_own_label_++, end = next_own_label_++;
                branch_if(t->left, false, otherwise);
                emit(make(CODE::MOVE, KIND::U16, COUNT::NONE, dst, aggregate(t->right->left), 0));
                jump(CODE::JUMP, COUNT::BRANCH, 0, end);
                define_label(otherwise);
                emit(make(CODE::MOVE, KIND::U16, COUNT::NONE, dst, aggregate(t->right->right), 0));
                define_label(end);
                return dst;
            }
            default: no_meaning(t);
        }
    }

    std::uint32_t structure_assignment(const tree* t) {
        const std::uint32_t from = aggregate(t->right);
        const place to = lvalue(t->left);
        const std::uint32_t at = address(to);
        instruction in = make_imm(CODE::COPY, KIND::U16, COUNT::NONE, 0, at, units(t->left->type));
        in.b = from;
        in.is_volatile = to.is_volatile || (t->right->type != nullptr && t->right->type->is_volatile());
        emit(in);
        return at;
    }

    void effect(const tree* t) {
        const std::uint32_t mark = next_;
        switch (t->op) {
            case op::COMMAOP:
                effect(t->left);
                effect(t->right);
                break;
            case op::PLUSPLUS:
            case op::MINMIN: compound(t, t->op == op::PLUSPLUS ? op::PLUS : op::MINUS, 0); break;
            case op::NAME:
                // Only a volatile object is read for the sake of reading.
                if (is_scalar(t->type) && lvalue_is_volatile(t)) value(t);
                break;
            case op::ANDAND:
            case op::OROR: {
                const unsigned end = next_own_label_++;
                branch_if(t->left, t->op == op::OROR, end);
                effect(t->right);
                define_label(end);
                break;
            }
            case op::QUEST: {
                const unsigned otherwise = next_own_label_++, end = next_own_label_++;
                branch_if(t->left, false, otherwise);
                effect(t->right->left);
                jump(CODE::JUMP, COUNT::BRANCH, 0, end);
                define_label(otherwise);
                effect(t->right->right);
                define_label(end);
                break;
            }
            case op::STASG:
            case op::ARASG: structure_assignment(t); break;
            case op::CALL:
            case op::UCALL: call(t, 0); break;
            case op::NOP: break;
            case op::ICON:
            case op::LCON:
            case op::FCON:
            case op::SCON: break;
            default:
                if (t->type != nullptr && (t->type->is_csu() || t->type->is_array()))
                    aggregate(t);
                else
                    value(t);
                break;
        }
        next_ = mark;
    }

    bool lvalue_is_volatile(const tree* t) const {
        return (t->type != nullptr && t->type->is_volatile()) ||
               (t->op == op::NAME && t->sym->type->is_volatile());
    }

    std::uint32_t binary(const tree* t, CODE code, COUNT count, std::uint32_t want) {
        const KIND kind = kind_of(t->type);
        const std::uint32_t mark = next_;
        const std::uint32_t a = value(t->left);
        if (kind != KIND::F32 && (t->right->op == op::ICON || t->right->op == op::LCON)) {
            next_ = mark;
            const std::uint32_t dst = want != 0 ? want : new_register();
            emit(make_imm(code, kind, count, dst, a, constant_value(t->right)));
            return dst;
        }
        const std::uint32_t b = value(t->right);
        next_ = mark;
        const std::uint32_t dst = want != 0 ? want : new_register();
        emit(make(code, kind, count, dst, a, b));
        return dst;
    }

    std::uint32_t comparison(const tree* t, std::uint32_t want) {
        const std::uint32_t mark = next_;
        const KIND kind = kind_of(t->left->type);
        const std::uint32_t a = value(t->left);
        if (kind == KIND::F32 || kind_of(t->right->type) == KIND::F32) {
            const std::uint32_t b = value(t->right);
            next_ = mark;
            const std::uint32_t dst = want != 0 ? want : new_register();
            instruction in = make(CODE::FCMP, KIND::F32, COUNT::COMPARE, dst, a, b);
            in.imm = float_outcomes(t->op);
            emit(in);
            return dst;
        }
        CODE code = CODE::EQ;
        bool is_unsigned = !is_signed(kind);
        switch (t->op) {
            case op::EQ:
            case op::FEQ: code = CODE::EQ; break;
            case op::NEQ:
            case op::FNEQN: code = CODE::NE; break;
            case op::ULE: is_unsigned = true; [[fallthrough]];
            case op::LE: code = CODE::LE; break;
            case op::ULT: is_unsigned = true; [[fallthrough]];
            case op::LT: code = CODE::LT; break;
            case op::UGE: is_unsigned = true; [[fallthrough]];
            case op::GE: code = CODE::GE; break;
            case op::UGT: is_unsigned = true; [[fallthrough]];
            case op::GT: code = CODE::GT; break;
            default: no_meaning(t);
        }
        // The plain forms compare as signed, the U forms as unsigned, whatever the operands' types say.
        if (t->op == op::LE || t->op == op::LT || t->op == op::GE || t->op == op::GT) is_unsigned = false;
        KIND as = kind;
        switch (units_of(kind)) {
            case 1: as = is_unsigned ? KIND::U16 : KIND::I16; break;
            case 2: as = is_unsigned ? KIND::U32 : KIND::I32; break;
            default: as = is_unsigned ? KIND::U64 : KIND::I64; break;
        }
        if (t->right->op == op::ICON || t->right->op == op::LCON) {
            const std::int64_t number = constant_value(t->right);
            next_ = mark;
            const std::uint32_t dst = want != 0 ? want : new_register();
            emit(make_imm(code, as, COUNT::COMPARE, dst, a,
                          normalise(as, static_cast<std::uint64_t>(number))));
            return dst;
        }
        const std::uint32_t b = value(t->right);
        next_ = mark;
        const std::uint32_t dst = want != 0 ? want : new_register();
        emit(make(code, as, COUNT::COMPARE, dst, a, b));
        return dst;
    }

    static CODE code_of(int plain) {
        switch (plain) {
            case op::PLUS: return CODE::ADD;
            case op::MINUS: return CODE::SUB;
            case op::MULT: return CODE::MUL;
            case op::DIV: return CODE::DIV;
            case op::MOD: return CODE::MOD;
            case op::ANDB: return CODE::AND;
            case op::ORB: return CODE::OR;
            case op::XORB: return CODE::XOR;
            case op::SLL: return CODE::SHL;
            default: return CODE::SHR;
        }
    }

    static int plain_of(int compound) {
        switch (compound) {
            case op::PLUSASG: return op::PLUS;
            case op::MINUSASG: return op::MINUS;
            case op::MULTASG: return op::MULT;
            case op::DIVASG: return op::DIV;
            case op::MODASG: return op::MOD;
            case op::ANDBASG: return op::ANDB;
            case op::ORBASG: return op::ORB;
            case op::XORBASG: return op::XORB;
            case op::SLLASG: return op::SLL;
            case op::SRLASG: return op::SRL;
            default: return 0;
        }
    }

    // The type in which `l op= r` computes: by the usual arithmetic conversions.
    static KIND computation(KIND left, KIND right, int plain) {
        const auto promoted = [](KIND k) { return k; };
        if (plain == op::SLL || plain == op::SRL) return left;
        if (left == KIND::F32 || right == KIND::F32) return KIND::F32;
        left = promoted(left);
        right = promoted(right);
        const unsigned wide = std::max(units_of(left), units_of(right));
        bool is_unsigned = false;
        for (KIND k : {left, right})
            if (units_of(k) == wide && !is_signed(k)) is_unsigned = true;
        if (wide == 1) return is_unsigned ? KIND::U16 : KIND::I16;
        if (wide == 2) return is_unsigned ? KIND::U32 : KIND::I32;
        return is_unsigned ? KIND::U64 : KIND::I64;
    }

    // l op= r, ++ and --. The right side comes first, the address of the left once. For ++ and -- the result
    // is the old value, and `want` 0 with no reader asks for none.
    std::uint32_t compound(const tree* t, int plain, std::uint32_t want, bool old_value = false) {
        const KIND left_kind = kind_of(t->left->type);
        const bool by_constant =
            t->right->op == op::ICON || t->right->op == op::LCON || t->right->op == op::FCON;
        std::uint32_t r = by_constant ? 0 : value(t->right);
        const place p = lvalue(t->left);
        std::uint32_t l = load(p, 0);
        std::uint32_t old = l;
        if (old_value && p.in_register) {
            old = want != 0 ? want : new_register();
            emit(make(CODE::MOVE, left_kind, COUNT::MOVE, old, l, 0));
        }
        const bool is_pointer = t->left->type->is_ptr();
        const KIND right_kind = kind_of(t->right->type);
        // The parser's characters promote to int though they are as wide.
        const KIND promoted_left =
            t->left->type->is_uchar() || t->left->type->is_bool() ? KIND::I16 : left_kind;
        const KIND kind = is_pointer ? left_kind : computation(promoted_left, right_kind, plain);
        l = converted(l, left_kind, kind, conversion_count(left_kind, kind));
        const std::uint32_t direct = p.in_register && kind == left_kind ? p.reg : new_register();
        const COUNT count = is_pointer ? COUNT::ADDRESS : COUNT::ARITHMETIC;
        const bool shift = plain == op::SLL || plain == op::SRL;
        if (by_constant && kind != KIND::F32) {
            std::int64_t number = constant_value(t->right);
            if (!shift) number = convert(right_kind, kind, number);
            emit(make_imm(code_of(plain), kind, count, direct, l, number));
        } else {
            if (by_constant)
                r = constant(convert(right_kind, kind, constant_value(t->right)), 0);
            else if (!shift && right_kind != kind)
                r = converted(r, right_kind, kind, conversion_count(right_kind, kind));
            emit(make(code_of(plain), kind, count, direct, l, r));
        }
        const std::uint32_t result =
            converted(direct, kind, left_kind, conversion_count(kind, left_kind), p.in_register ? p.reg : 0);
        const std::uint32_t stored = store(p, result);
        return old_value ? old : stored;
    }

    std::uint32_t value(const tree* t, std::uint32_t want = 0) {
        switch (t->op) {
            case op::ICON:
            case op::LCON:
            case op::FCON: return constant(constant_value(t), want);
            case op::SCON: return constant(text(t), want);
            case op::NAME:
                if (t->sym->type->is_func()) return constant(function_address(t->sym), want);
                [[fallthrough]];
            case op::UMULT:
            case op::STDOT:
            case op::STREF:
                if (!is_scalar(t->type)) return aggregate(t);
                return load(lvalue(t), want);
            case op::UAND: {
                if (t->left->op == op::NAME && t->left->sym->type->is_func())
                    return constant(function_address(t->left->sym), want);
                return address(lvalue(t->left));
            }
            case op::PLUS:
                return binary(t, CODE::ADD, t->type->is_ptr() ? COUNT::ADDRESS : COUNT::ARITHMETIC, want);
            case op::MINUS:
                return binary(t, CODE::SUB, t->type->is_ptr() ? COUNT::ADDRESS : COUNT::ARITHMETIC, want);
            case op::MULT:
            case op::DIV:
            case op::MOD:
            case op::ANDB:
            case op::ORB:
            case op::XORB:
            case op::SLL:
            case op::SRL: return binary(t, code_of(t->op), COUNT::ARITHMETIC, want);
            case op::UMINUS: return unary(t, CODE::NEG, want);
            case op::NOTB: return unary(t, CODE::NOT, want);
            case op::ABS: return unary(t, CODE::ABS, want);
            case op::SQRT: return unary(t, CODE::SQRT, want);
            case op::RECIP: return unary(t, CODE::RECIP, want);
            case op::SQR: {
                const std::uint32_t v = value(t->left);
                const std::uint32_t dst = want != 0 ? want : new_register();
                emit(make(CODE::MUL, kind_of(t->type), COUNT::ARITHMETIC, dst, v, v));
                return dst;
            }
            case op::PMCONV:
            case op::PVCONV: {
                const std::int64_t scale = t->right->value / 16;
                const KIND kind = kind_of(t->type);
                const std::uint32_t v = value(t->left);
                if (scale == 1) return converted(v, kind_of(t->left->type), kind, COUNT::NONE, want);
                const std::uint32_t dst = want != 0 ? want : new_register();
                const bool multiply = t->op == op::PMCONV;
                emit(make_imm(multiply ? CODE::MUL : CODE::DIV, kind,
                              multiply ? COUNT::ADDRESS : COUNT::ARITHMETIC, dst, v, scale));
                return dst;
            }
            case op::SCONV:
            case op::PCONV:
            case op::ACONV:
            case op::ISP2CHAR: {
                if (t->type->is_void()) {
                    effect(t->left);
                    return 0;
                }
                if (t->left->type != nullptr && t->left->type->is_array()) return aggregate(t->left);
                if (t->left->op == op::NAME && t->left->sym->type->is_func()) return value(t->left, want);
                const KIND from = kind_of(t->left->type), to = kind_of(t->type);
                const std::uint32_t v = value(t->left);
                if (t->type->is_bool() && !t->left->type->is_bool()) {
                    // A truth value is 0 or 1; what is one already converts for nothing.
                    const std::uint32_t dst = want != 0 ? want : new_register();
                    emit(make(CODE::NONZERO, from, gives_truth(t->left) ? COUNT::NONE : COUNT::COMPARE, dst,
                              v, 0));
                    return dst;
                }
                return converted(v, from, to, conversion_count(from, to), want);
            }
            case op::EQ:
            case op::NEQ:
            case op::LE:
            case op::LT:
            case op::GE:
            case op::GT:
            case op::ULE:
            case op::ULT:
            case op::UGE:
            case op::UGT:
            case op::FEQ:
            case op::FNEQ:
            case op::FLE:
            case op::FLT:
            case op::FGE:
            case op::FGT:
            case op::FEQN:
            case op::FNEQN:
            case op::FLEN:
            case op::FLTN:
            case op::FGEN:
            case op::FGTN:
            case op::FORD:
            case op::FUNO: return comparison(t, want);
            case op::EXCLAIM: {
                const std::uint32_t v = value(t->left);
                const std::uint32_t dst = want != 0 ? want : new_register();
                emit(make(CODE::ISZERO, kind_of(t->left->type), COUNT::COMPARE, dst, v, 0));
                return dst;
            }
            case op::ANDAND:
            case op::OROR: {
                const std::uint32_t dst = new_register();
                const unsigned decided = next_own_label_++, end = next_own_label_++;
                const bool is_or = t->op == op::OROR;
                branch_if(t->left, is_or, decided);
                const std::uint32_t v = value(t->right);
                emit(make(CODE::NONZERO, kind_of(t->right->type),
                          gives_truth(t->right) ? COUNT::NONE : COUNT::COMPARE, dst, v, 0));
                jump(CODE::JUMP, COUNT::NONE, 0, end);
                define_label(decided);
                constant(is_or ? 1 : 0, dst);
                define_label(end);
                return dst;
            }
            case op::QUEST: {
                if (t->type->is_void()) {
                    effect(t);
                    return 0;
                }
                if (!is_scalar(t->type)) return aggregate(t);
                const std::uint32_t dst = new_register();
                const unsigned otherwise = next_own_label_++, end = next_own_label_++;
                branch_if(t->left, false, otherwise);
                into(t->right->left, dst, kind_of(t->type));
                jump(CODE::JUMP, COUNT::BRANCH, 0, end);
                define_label(otherwise);
                into(t->right->right, dst, kind_of(t->type));
                define_label(end);
                return dst;
            }
            case op::ASG: return assignment(t);
            case op::STASG:
            case op::ARASG: return structure_assignment(t);
            case op::PLUSASG:
            case op::MINUSASG:
            case op::MULTASG:
            case op::DIVASG:
            case op::MODASG:
            case op::ANDBASG:
            case op::ORBASG:
            case op::XORBASG:
            case op::SLLASG:
            case op::SRLASG: return compound(t, plain_of(t->op), want);
            case op::PLUSPLUS: return compound(t, op::PLUS, want, true);
            case op::MINMIN: return compound(t, op::MINUS, want, true);
            case op::COMMAOP:
                effect(t->left);
                return t->right->type != nullptr && t->right->type->is_void() ? (effect(t->right), 0)
                                                                              : value(t->right, want);
            case op::CALL:
            case op::UCALL:
                if (t->type->is_csu()) return aggregate(t);
                return call(t, want);
            case op::ICALL:
            case op::UICALL:
            case op::MCALL:
            case op::UMCALL: return intrinsic(t, want);
            case op::NASSERT:
            case op::ASSERT: {
                // A promise costs nothing.
                uncounted_++;
                const std::uint32_t v = truth(t->left);
                emit(make(CODE::NASSERT, KIND::I16, COUNT::NONE, 0, v, 0));
                uncounted_--;
                return 0;
            }
            case op::MEMCPY: {
                const std::vector<const tree*> parts = list_items(t->left, op::COMMA);
                if (parts.size() != 3) no_meaning(t);
                const std::uint32_t to = value(parts[0]), from = value(parts[1]);
                instruction in = make(CODE::COPY, KIND::U16, COUNT::NONE, 0, to, from);
                if (parts[2]->op == op::ICON) {
                    in.has_imm = true;
                    in.imm = parts[2]->value;
                } else {
                    in.dst = value(parts[2]);
                }
                emit(in);
                return to;
            }
            case op::IDENTITY:
            case op::EPVAL: return value(t->left, want);
            case op::VREG:
            default: no_meaning(t);
        }
    }

    static bool gives_truth(const tree* t) {
        switch (t->op) {
            case op::EXCLAIM:
            case op::ANDAND:
            case op::OROR: return true;
            default: return float_outcomes(t->op) != 0;
        }
    }

    std::uint32_t unary(const tree* t, CODE code, std::uint32_t want) {
        const std::uint32_t v = value(t->left);
        const std::uint32_t dst = want != 0 ? want : new_register();
        emit(make(code, kind_of(t->type), COUNT::ARITHMETIC, dst, v, 0));
        return dst;
    }

    // Evaluates into a register; a plain register or constant costs a move.
    void into(const tree* t, std::uint32_t dst, KIND kind) {
        const bool is_constant = t->op == op::ICON || t->op == op::LCON || t->op == op::FCON;
        if (is_constant) {
            constant(convert(kind_of(t->type), kind, constant_value(t)), dst, COUNT::MOVE);
            return;
        }
        const KIND from = kind_of(t->type);
        std::uint32_t v = value(t, from == kind ? dst : 0);
        if (from != kind) v = converted(v, from, kind, COUNT::NONE);
        if (v != dst) emit(make(CODE::MOVE, kind, is_plain(t) ? COUNT::MOVE : COUNT::NONE, dst, v, 0));
    }

    bool is_plain(const tree* t) const {
        // A value that is in a register, or an address constant, before the assignment.
        if (t->op == op::NAME) return registers_.count(t->sym) != 0;
        if (t->op == op::UAND || t->op == op::SCON) return true;
        if (t->op == op::SCONV || t->op == op::PCONV || t->op == op::ACONV)
            return kind_of(t->type) != KIND::F32 && t->left->type != nullptr && is_scalar(t->left->type) &&
                   conversion_count(kind_of(t->left->type), kind_of(t->type)) == COUNT::NONE &&
                   is_plain(t->left);
        return t->op == op::ASG || t->op == op::COMMAOP;
    }

    std::uint32_t assignment(const tree* t) {
        if (t->left->op == op::NAME) {
            const auto reg = registers_.find(t->left->sym);
            if (reg != registers_.end()) {
                into(t->right, reg->second, kind_of(t->left->sym->type));
                if (check_) emit(make(CODE::DEFINE, KIND::I16, COUNT::NONE, 0, reg->second, 0));
                return reg->second;
            }
        }
        if (!is_scalar(t->left->type)) return structure_assignment(t);
        std::uint32_t v = value(t->right);
        const place p = lvalue(t->left);
        const KIND from = kind_of(t->right->type), to = kind_of(t->left->type);
        if (from != to) v = converted(v, from, to, COUNT::NONE);
        return store(p, v);
    }

    // --- Calls.

    std::int64_t function_address(const symbol* s) {
        const auto found = program_.address_of.find(s);
        if (found == program_.address_of.end())
            throw lowering_error("function " + s->name + " has no address");
        return found->second;
    }

    void arguments(const tree* list, call_site& site) {
        for (const tree* arg : list_items(list, op::COMMA)) {
            call_argument a{};
            if (arg->op == op::STARG || (arg->type != nullptr && arg->type->is_csu())) {
                const tree* from = arg->op == op::STARG ? arg->left : arg;
                a.reg = aggregate(from);
                a.units = units(from->type);
                a.align = align_units(from->type->align());
                a.kind = KIND::U16;
            } else {
                a.reg = value(arg);
                a.kind = kind_of(arg->type);
                a.align = align_units(arg->type->align());
            }
            site.args.push_back(a);
        }
    }

    std::uint32_t call(const tree* t, std::uint32_t want) {
        call_site site;
        const tree* callee = t->left;
        while (callee->op == op::PCONV) callee = callee->left;
        std::uint32_t function = 0;
        if (callee->op == op::UAND && callee->left->op == op::NAME && callee->left->sym->type->is_func()) {
            const symbol* s = callee->left->sym;
            site.name = s->name;
            const auto found = program_.function_of.find(s);
            if (found != program_.function_of.end() &&
                program_.functions[static_cast<std::size_t>(found->second)].has_body)
                site.direct = found->second;
            else
                site.builtin = find_builtin(s->name);
            if (site.direct < 0 && site.builtin < 0) function = constant(function_address(s), 0);
        } else {
            function = value(callee);
            if (function < first_temporary_) {
                // The arguments may change the variable that holds the function.
                const std::uint32_t copy = new_register();
                emit(make(CODE::MOVE, KIND::U16, COUNT::NONE, copy, function, 0));
                function = copy;
            }
        }
        if (t->op == op::CALL) arguments(t->right, site);
        std::uint32_t dst = 0;
        if (t->type->is_csu()) {
            site.result_units = units(t->type);
            site.result_local = result_locals_.at(t);
        } else if (!t->type->is_void()) {
            site.has_result = true;
            site.result = kind_of(t->type);
            dst = want != 0 ? want : new_register();
        }
        out_.calls.push_back(std::move(site));
        emit(make_imm(CODE::CALL, KIND::I16, COUNT::CALL, dst, function,
                      static_cast<std::int64_t>(out_.calls.size() - 1)));
        return dst;
    }

    std::uint32_t intrinsic(const tree* t, std::uint32_t want) {
        call_site site;
        site.name = std::string(t->text);
        site.builtin = find_builtin(site.name);
        if (site.builtin < 0)
            throw lowering_error("intrinsic " + site.name + " has no meaning when a program runs");
        if (t->op == op::ICALL || t->op == op::MCALL) arguments(t->left, site);
        std::uint32_t dst = 0;
        if (!t->type->is_void()) {
            site.has_result = true;
            site.result = kind_of(t->type);
            dst = want != 0 ? want : new_register();
        }
        out_.calls.push_back(std::move(site));
        emit(make_imm(CODE::INTRINSIC, KIND::I16, COUNT::ARITHMETIC, dst, 0,
                      static_cast<std::int64_t>(out_.calls.size() - 1)));
        return dst;
    }
};

// Stores one initialiser: its trees in ascending order of address.
void store_initialiser(const symbol* s, memory& space, lowered_program& program, text_table& texts) {
    const std::uint32_t base = program.address_of.at(s);
    const std::uint32_t size = space.object_at(base)->units;
    std::uint64_t at = 0; // bits
    const auto text_address = [&](const tree* t) {
        std::string bytes(t->text);
        const auto known = texts.by_text.find(bytes);
        if (known != texts.by_text.end()) return known->second;
        const auto n = static_cast<std::uint32_t>(bytes.size());
        const std::uint32_t place =
            space.add_static("text#" + std::to_string(texts.by_text.size()), n, 1, false);
        for (std::uint32_t i = 0; i < n; i++) *space.at(place + i) = static_cast<unsigned char>(bytes[i]);
        space.set_const(place);
        texts.by_text.emplace(std::move(bytes), place);
        return place;
    };
    for (const tree* t : s->init) {
        if (t->op == op::ENDINIT) break;
        if (t->op == op::SKIP) {
            at += static_cast<std::uint64_t>(t->value);
            continue;
        }
        const std::uint64_t bits =
            t->op == op::SCON && t->type->is_array() ? t->text.size() * 16 : t->type->size();
        if (at % 16 != 0 || (at + bits) / 16 > size)
            throw lowering_error("the initialiser of " + s->name + " does not fit");
        const auto place = static_cast<std::uint32_t>(base + at / 16);
        at += bits;
        if (t->op == op::SCON && t->type->is_array()) {
            for (std::size_t i = 0; i < t->text.size(); i++)
                *space.at(place + static_cast<std::uint32_t>(i)) = static_cast<unsigned char>(t->text[i]);
            continue;
        }
        std::int64_t offset = 0;
        const tree* core = t;
        while (core->op == op::PCONV || core->op == op::SCONV || core->op == op::PLUS ||
               core->op == op::MINUS) {
            if (core->op == op::PLUS || core->op == op::MINUS) {
                if (core->right->op != op::ICON) no_meaning(core);
                offset += core->op == op::PLUS ? core->right->value : -core->right->value;
            }
            core = core->left;
        }
        std::int64_t number = 0;
        if (core->op == op::FCON) {
            number = from_float(core->fcon());
        } else if (core->op == op::ICON || core->op == op::LCON) {
            const KIND kind = kind_of(t->type);
            number = kind == KIND::F32 ? from_float(static_cast<float>(core->value)) : core->value;
        } else if (core->op == op::SCON) {
            number = text_address(core);
        } else if (core->op == op::UAND) {
            // The address of a name, or of a member of it.
            const tree* l = core->left;
            for (; l->op == op::STDOT; l = l->left) offset += l->right->member->offset / 16;
            if (l->op != op::NAME) no_meaning(core);
            number = program.address_of.at(l->sym);
        } else {
            no_meaning(core);
        }
        space.poke(static_cast<unsigned>(bits / 16), place, number + offset);
    }
}

} // namespace

void lower_program(const model::program& source, memory& space, bool check, lowered_program& out) {
    // A symbol that is only declared stands for the definition of that name.
    std::unordered_map<std::string, const symbol*> definitions;
    for (const symbol* s : source.globals)
        if (s->sclass == SC_EXTDEF || s->sclass == SC_STATIC)
            if (s->pragma(PRAG_SCOPING_FUNC) == nullptr) definitions.emplace(s->name, s);

    std::unordered_map<const symbol*, const model::function*> bodies;
    for (const model::function& f : source.functions) bodies[f.sym] = &f;
    for (const symbol* s : source.globals) {
        if (!s->type->is_func()) continue;
        const auto index = static_cast<std::int32_t>(out.functions.size());
        out.functions.emplace_back();
        out.functions.back().name = s->name;
        out.functions.back().has_body = bodies.count(s) != 0;
        out.function_of[s] = index;
        const std::uint32_t at = space.add_static(s->name, 1, 1, true);
        out.address_of[s] = at;
        out.function_at[at] = index;
    }
    for (const symbol* s : source.globals) {
        if (s->type->is_func()) continue;
        const auto definition = definitions.find(s->name);
        if (s->sclass == SC_EXTERN && definition != definitions.end()) continue;
        const std::uint32_t size = std::max(units(s->type), (s->size + 15) / 16);
        const PRAGMA* scope = s->pragma(PRAG_SCOPING_FUNC);
        const std::string name =
            scope != nullptr && !scope->args.empty() ? scope->args[0] + ":" + s->name : s->name;
        out.address_of[s] = space.add_static(name, size, align_units(s->align), false);
    }
    for (const symbol* s : source.globals) {
        const auto definition = definitions.find(s->name);
        if (s->sclass != SC_EXTERN || definition == definitions.end()) continue;
        if (s->type->is_func()) {
            const auto body = out.function_of.find(definition->second);
            if (body != out.function_of.end()) {
                out.function_of[s] = body->second;
                out.address_of[s] = out.address_of[definition->second];
            }
        } else {
            out.address_of[s] = out.address_of.at(definition->second);
        }
    }
    text_table texts;
    for (const symbol* s : source.globals)
        if (!s->init.empty()) store_initialiser(s, space, out, texts);
    for (const symbol* s : source.globals)
        if (!s->type->is_func() && s->type->is_const() && !s->type->is_volatile() && s->sclass != SC_EXTERN)
            space.set_const(out.address_of.at(s));
    for (const model::function& f : source.functions) function_lowering(f, space, check, out, texts).run();
}
