// Lowering of expressions: which operands a node needs, in which order, and what happens in between.

#include <cassert>

#include "OPT5/opcodes.h"
#include "OPT5/types.h"
#include "tools/icode-run/lowering.h"

using namespace op;

namespace run {

namespace {

bool is_aggregate(const model::tree* t) { return scalar_of(t->type).is_aggregate(); }

// The function that a call names directly, under any casts of its address; null when it goes by a pointer.
const model::symbol* called_symbol(const model::tree* callee) {
    while (callee != nullptr && (callee->op == PCONV || callee->op == EPVAL)) callee = callee->left;
    if (callee != nullptr && callee->op == UAND) callee = callee->left;
    if (callee == nullptr || callee->op != NAME || callee->sym == nullptr) return nullptr;
    return callee->sym->type != nullptr && callee->sym->type->is_func() ? callee->sym : nullptr;
}

} // namespace

bool lowering::is_compound(int op) {
    switch (op) {
        case PLUSASG:
        case MINUSASG:
        case MULTASG:
        case ANDBASG:
        case ORBASG:
        case XORBASG:
        case DIVASG:
        case MODASG:
        case SLLASG:
        case SRLASG: return true;
        default: return false;
    }
}

bool lowering::is_comparison(int op) { return (op >= EQ && op <= UGT) || (op >= FEQ && op <= FUNO); }

// True for operators whose value is 0 or 1.
bool lowering::gives_truth(const tree* t) {
    return is_comparison(t->op) || t->op == EXCLAIM || t->op == ANDAND || t->op == OROR;
}

void lowering::lower_tree(act what, const tree* t, std::uint32_t label, bool flag) {
    assert(tasks_.empty());
    tasks_.push_back({what, flag, t, label, 0});
    while (!tasks_.empty()) {
        const task next = tasks_.back();
        tasks_.pop_back();
        perform(next);
    }
}

void lowering::perform(const task& k) {
    switch (k.what) {
        case act::VALUE: value(k.t); break;
        case act::EFFECT: effect(k.t); break;
        case act::PLACE: place(k.t); break;
        case act::CONDITION: condition(k.t, k.n, k.flag); break;
        case act::LOAD_PLACE: do_load(k.t); break;
        case act::ADDRESS_OF: do_address(k.t); break;
        case act::MEMBER: do_member(k.t); break;
        case act::INDIRECT: do_indirect(k.t); break;
        case act::UNARY: do_unary(k.t); break;
        case act::BINARY: do_binary(k.t); break;
        case act::BOOLEAN_OF: do_boolean(k.t); break;
        case act::ASSIGN: do_assign(k.t, k.flag); break;
        case act::COPY_AGGREGATE: do_copy(k.t, k.flag); break;
        case act::COMPOUND: do_compound(k.t, k.flag); break;
        case act::STEP_BY: do_step(k.t, k.flag); break;
        case act::CALL_WITH: do_call(k.t, k.n); break;
        case act::INTRINSIC_WITH: do_intrinsic(k.t, k.n); break;
        case act::MEMCPY_WITH: do_memcpy(k.t); break;
        case act::PROMISE: do_promise(); break;
        case act::TEST: do_test(k.n, k.flag); break;
        case act::TEST_COMPARE: do_test_compare(k.t, k.n, k.flag); break;
        case act::TRUTH: {
            item v = pop();
            if (!gives_truth(k.t)) count(COMPARE_OP);
            const std::uint32_t from = in_register(v);
            emit(v.rep.is_float() ? FLT_TO_BOOL : INT_TO_BOOL, k.m, from);
            release(v);
            break;
        }
        case act::DECIDED: {
            const std::uint32_t end = new_label();
            close_segment();
            emit(JUMP, 0, 0, end);
            label_here(k.n);
            emit(CONSTANT, k.m, k.flag ? 1 : 0);
            label_here(end);
            break;
        }
        case act::ARM: {
            item arm = pop();
            const scalar wanted = scalar_of(k.t->type);
            if (wanted.has_value() && arm.rep.has_value()) arm = converted(arm, wanted, false);
            if (arm.plain && wanted.has_value()) count(MOVE_OP);
            const std::uint32_t from = in_register(arm);
            emit(MOVE_REG, k.m, from);
            release(arm);
            break;
        }
        case act::JUMP_TO:
            count(BRANCH_OP);
            close_segment();
            emit(JUMP, 0, 0, k.n);
            break;
        case act::LABEL_HERE: label_here(k.n); break;
        case act::PUSH_RESULT: {
            item made = temp_item(k.m, scalar_of(k.t->type));
            made.truth = gives_truth(k.t);
            push(made);
            break;
        }
        case act::DROP: release(pop()); break;
    }
}

void lowering::name_value(const tree* t) {
    if (t->sym == nullptr) bad(t, "without a symbol");
    if (t->sym->type != nullptr && t->sym->type->is_func() && t->sym->level == 0) {
        push(constant_item(image_.function_address(image_.place_of(t->sym)), pointer_rep()));
        return;
    }
    place(t);
    do_load(t);
}

void lowering::name_place(const tree* t) {
    if (t->sym == nullptr) bad(t, "without a symbol");
    const model::symbol* symbol = t->sym;
    item p;
    p.is_place = true;
    p.rep = scalar_of(t->type);
    p.is_volatile = (t->type != nullptr && t->type->is_volatile()) || symbol->type->is_volatile();
    const std::uint32_t units = units_of(symbol->type);
    if (auto found = local_of_.find(symbol); found != local_of_.end()) {
        const local_info& local = locals_[found->second];
        if (local.in_register) {
            p.kind = item_kind::REGISTER;
            p.local = true;
            p.reg = local.reg;
            p.local_index = found->second;
        } else {
            p.kind = item_kind::FRAME;
            p.value = local.offset;
            p.begin = local.offset;
            p.end = p.begin + units;
            p.checked = options_.check;
        }
    } else {
        if (symbol->level != 0) bad(t, "of a local of another function, '" + symbol->name + "'");
        const global_place& global = image_.place_of(symbol);
        if (global.kind == global_place::UNDEFINED) {
            emit(run::FAULT, 0, 0, text("use of " + symbol->name + ", which is not there"));
        } else if (global.kind != global_place::OBJECT) {
            p.value = image_.function_address(global);
        } else {
            p.value = global.at;
            p.begin = global.at;
            p.end = p.begin + global.units;
        }
        p.kind = item_kind::CONSTANT;
        // A store to a const object is a fault.
        if (symbol->type->is_const()) p.checked = true;
    }
    push(p);
}

void lowering::value(const tree* t) {
    if (t == nullptr) bad(nullptr, "has an operator without an operand");
    const scalar rep = scalar_of(t->type);
    switch (t->op) {
        case ICON:
        case LCON:
            if (rep.is_float())
                push(constant_item(image_of(static_cast<float>(t->value)), rep));
            else
                push(constant_item(rep.has_value() ? extend(static_cast<std::uint64_t>(t->value), rep) : 0,
                                   rep));
            return;
        case FCON:
            if (rep.is_float())
                push(constant_item(image_of(t->fcon()), rep));
            else
                no_meaning(t);
            return;
        case SCON: push(constant_item(image_.text_address(t->text), rep)); return;
        case NAME: name_value(t); return;
        case UAND:
        case ARGREF:
            if (t->left != nullptr && t->left->op == NAME && t->left->sym != nullptr &&
                t->left->sym->level == 0 && t->left->sym->type->is_func()) {
                name_value(t->left);
                return;
            }
            tasks_.push_back({act::ADDRESS_OF, false, t});
            tasks_.push_back({act::PLACE, false, t->left});
            return;
        case UMULT:
        case STDOT:
        case STREF:
            tasks_.push_back({act::LOAD_PLACE, false, t});
            tasks_.push_back({act::PLACE, false, t});
            return;
        case EPVAL:
        case DDNODE:
        case STARG: tasks_.push_back({act::VALUE, false, t->left}); return;
        case UMINUS:
        case NOTB:
        case op::ABS:
        case SQRT:
        case SQR:
        case RECIP:
        case TOIEEE:
        case FRIEEE:
        case SCONV:
        case PCONV:
        case ACONV:
        case PMCONV:
        case PVCONV:
            tasks_.push_back({act::UNARY, false, t});
            tasks_.push_back({act::VALUE, false, t->left});
            return;
        case EXCLAIM:
            tasks_.push_back({act::BOOLEAN_OF, false, t});
            tasks_.push_back({act::VALUE, false, t->left});
            return;
        case ANDAND:
        case OROR: {
            settle_all();
            const std::uint32_t reg = new_temp();
            const std::uint32_t decided = new_label();
            tasks_.push_back({act::PUSH_RESULT, false, t, 0, reg});
            tasks_.push_back({act::DECIDED, t->op == OROR, t, decided, reg});
            tasks_.push_back({act::TRUTH, false, t->right, 0, reg});
            tasks_.push_back({act::VALUE, false, t->right});
            tasks_.push_back({act::CONDITION, t->op == OROR, t->left, decided});
            return;
        }
        case QUEST: {
            const tree* arms = t->right;
            if (arms == nullptr || arms->op != COLON) bad(t, "without its two arms");
            settle_all();
            if (!rep.has_value() && !rep.is_aggregate()) { // void
                effect(t);
                push(item{});
                return;
            }
            const std::uint32_t reg = new_temp();
            const std::uint32_t other = new_label(), end = new_label();
            tasks_.push_back({act::PUSH_RESULT, false, t, 0, reg});
            tasks_.push_back({act::LABEL_HERE, false, t, end});
            tasks_.push_back({act::ARM, false, t, 0, reg});
            tasks_.push_back({act::VALUE, false, arms->right});
            tasks_.push_back({act::LABEL_HERE, false, t, other});
            tasks_.push_back({act::JUMP_TO, false, t, end});
            tasks_.push_back({act::ARM, false, t, 0, reg});
            tasks_.push_back({act::VALUE, false, arms->left});
            tasks_.push_back({act::CONDITION, false, t->left, other});
            return;
        }
        case COMMAOP:
        case PCOMMA:
            tasks_.push_back({act::VALUE, false, t->right});
            tasks_.push_back({act::EFFECT, false, t->left});
            return;
        case ASG:
            if (is_aggregate(t->left != nullptr ? t->left : t)) break;
            tasks_.push_back({act::ASSIGN, true, t});
            tasks_.push_back({act::PLACE, false, t->left});
            tasks_.push_back({act::VALUE, false, t->right});
            return;
        case STASG:
        case ARASG: break;
        case PLUSPLUS:
        case MINMIN:
            tasks_.push_back({act::STEP_BY, true, t});
            tasks_.push_back({act::PLACE, false, t->left});
            tasks_.push_back({act::VALUE, false, t->right});
            return;
        case op::CALL:
        case UCALL: push_call(t, false); return;
        case ICALL:
        case UICALL:
        case MCALL:
        case UMCALL: push_call(t, true); return;
        case MEMCPY: {
            const tree* outer = t->left;
            const tree* inner = outer != nullptr && outer->op == COMMA ? outer->left : nullptr;
            if (inner == nullptr || inner->op != COMMA) bad(t, "without its three operands");
            tasks_.push_back({act::MEMCPY_WITH, false, t});
            tasks_.push_back({act::VALUE, false, outer->right});
            tasks_.push_back({act::VALUE, false, inner->right});
            tasks_.push_back({act::VALUE, false, inner->left});
            return;
        }
        case NASSERT:
        case ASSERT:
            silent_++; // until do_promise
            tasks_.push_back({act::PROMISE, false, t});
            tasks_.push_back({act::VALUE, false, t->left});
            return;
        case op::BRANCH:
        case CBRANCH:
        case SWITCH:
        case RETURN:
        case URETURN:
        case LABEL:
        case COMMA:
        case COLON:
        case CASE:
        case DEFAULT:
        case FIELD:
        case SKIP:
        case ENDINIT: bad(t, "stands inside an expression");
        default:
            if (is_compound(t->op)) {
                tasks_.push_back({act::COMPOUND, true, t});
                tasks_.push_back({act::PLACE, false, t->left});
                tasks_.push_back({act::VALUE, false, t->right});
                return;
            }
            if (is_comparison(t->op) || t->op == PLUS || t->op == MINUS || t->op == MULT || t->op == DIV ||
                t->op == MOD || t->op == ANDB || t->op == ORB || t->op == XORB || t->op == SLL ||
                t->op == SRL) {
                tasks_.push_back({act::BINARY, false, t});
                tasks_.push_back({act::VALUE, false, t->right});
                tasks_.push_back({act::VALUE, false, t->left});
                return;
            }
            no_meaning(t);
    }
    // Assignment of a structure or an array.
    tasks_.push_back({act::COPY_AGGREGATE, true, t});
    tasks_.push_back({act::PLACE, false, t->left});
    tasks_.push_back({act::VALUE, false, t->right});
}

void lowering::effect(const tree* t) {
    if (t == nullptr) return;
    switch (t->op) {
        case COMMAOP:
        case PCOMMA:
            tasks_.push_back({act::EFFECT, false, t->right});
            tasks_.push_back({act::EFFECT, false, t->left});
            return;
        case EPVAL:
        case DDNODE: tasks_.push_back({act::EFFECT, false, t->left}); return;
        case op::NOP: return;
        case ANDAND:
        case OROR: {
            settle_all();
            const std::uint32_t end = new_label();
            tasks_.push_back({act::LABEL_HERE, false, t, end});
            tasks_.push_back({act::EFFECT, false, t->right});
            tasks_.push_back({act::CONDITION, t->op == OROR, t->left, end});
            return;
        }
        case QUEST: {
            const tree* arms = t->right;
            if (arms == nullptr || arms->op != COLON) bad(t, "without its two arms");
            settle_all();
            const std::uint32_t other = new_label(), end = new_label();
            tasks_.push_back({act::LABEL_HERE, false, t, end});
            tasks_.push_back({act::EFFECT, false, arms->right});
            tasks_.push_back({act::LABEL_HERE, false, t, other});
            tasks_.push_back({act::JUMP_TO, false, t, end});
            tasks_.push_back({act::EFFECT, false, arms->left});
            tasks_.push_back({act::CONDITION, false, t->left, other});
            return;
        }
        case NAME: // only a volatile object is read for the sake of reading
            if (t->sym != nullptr && (t->sym->type == nullptr || !t->sym->type->is_volatile()) &&
                (t->type == nullptr || !t->type->is_volatile()))
                return;
            break;
        default: break;
    }
    tasks_.push_back({act::DROP, false, t});
    const std::size_t before = tasks_.size();
    value(t);
    // The node's own task, pushed first, need not leave its value.
    if (tasks_.size() > before) {
        task& own = tasks_[before];
        if (own.t == t && (own.what == act::ASSIGN || own.what == act::COMPOUND || own.what == act::STEP_BY ||
                           own.what == act::COPY_AGGREGATE))
            own.flag = false;
    }
}

void lowering::place(const tree* t) {
    if (t == nullptr) bad(nullptr, "has an operator without an operand");
    switch (t->op) {
        case NAME: name_place(t); return;
        case UMULT:
            tasks_.push_back({act::INDIRECT, false, t});
            tasks_.push_back({act::VALUE, false, t->left});
            return;
        case STDOT:
        case STREF:
            if (t->right == nullptr || t->right->op != FIELD || t->right->member == nullptr)
                bad(t, "without a member");
            tasks_.push_back({act::MEMBER, false, t});
            if (t->op == STREF)
                tasks_.push_back({act::VALUE, false, t->left});
            else
                tasks_.push_back({act::PLACE, false, t->left});
            return;
        case EPVAL:
        case DDNODE: tasks_.push_back({act::PLACE, false, t->left}); return;
        default:
            // The value of a structure or array is its address.
            if (!is_aggregate(t)) bad(t, "is no place in memory");
            tasks_.push_back({act::INDIRECT, false, t});
            tasks_.push_back({act::VALUE, false, t});
            return;
    }
}

void lowering::condition(const tree* t, std::uint32_t label, bool flag) {
    if (t == nullptr) bad(nullptr, "has a condition without a tree");
    switch (t->op) {
        case EPVAL:
        case DDNODE: tasks_.push_back({act::CONDITION, flag, t->left, label}); return;
        case EXCLAIM: tasks_.push_back({act::CONDITION, !flag, t->left, label}); return;
        case COMMAOP:
            tasks_.push_back({act::CONDITION, flag, t->right, label});
            tasks_.push_back({act::EFFECT, false, t->left});
            return;
        case ANDAND:
        case OROR: short_circuit(t, label, flag); return;
        default: break;
    }
    if (is_comparison(t->op)) {
        tasks_.push_back({act::TEST_COMPARE, flag, t, label});
        tasks_.push_back({act::VALUE, false, t->right});
        tasks_.push_back({act::VALUE, false, t->left});
        return;
    }
    tasks_.push_back({act::TEST, flag, t, label});
    tasks_.push_back({act::VALUE, false, t});
}

// ANDAND jumps when false as soon as an operand is, OROR jumps when true as soon as one is; the other senses
// jump past the second operand instead.
void lowering::short_circuit(const tree* t, std::uint32_t label, bool flag) {
    settle_all();
    const bool early = t->op == OROR; // the truth that decides at once
    if (flag == early) {
        tasks_.push_back({act::CONDITION, flag, t->right, label});
        tasks_.push_back({act::CONDITION, flag, t->left, label});
        return;
    }
    const std::uint32_t past = new_label();
    tasks_.push_back({act::LABEL_HERE, false, t, past});
    tasks_.push_back({act::CONDITION, flag, t->right, label});
    tasks_.push_back({act::CONDITION, early, t->left, past});
}

// The arguments of a list, in order.
void lowering::push_arguments(const tree* list, std::vector<const tree*>& flat) {
    std::vector<const tree*> stack;
    if (list != nullptr) stack.push_back(list);
    while (!stack.empty()) {
        const tree* t = stack.back();
        stack.pop_back();
        if (t == nullptr) bad(nullptr, "has a call with an argument missing");
        if (t->op == COMMA) {
            stack.push_back(t->right);
            stack.push_back(t->left);
        } else {
            flat.push_back(t);
        }
    }
}

void lowering::push_call(const tree* t, bool intrinsic_call) {
    std::vector<const tree*> arguments;
    const tree* list = nullptr;
    if (intrinsic_call)
        list = t->op == ICALL || t->op == MCALL ? t->left : nullptr;
    else if (t->op == op::CALL)
        list = t->right;
    push_arguments(list, arguments);
    const auto n = static_cast<std::uint32_t>(arguments.size());
    tasks_.push_back({intrinsic_call ? act::INTRINSIC_WITH : act::CALL_WITH, false, t, n});
    for (auto argument = arguments.rbegin(); argument != arguments.rend(); ++argument)
        tasks_.push_back({act::VALUE, false, *argument});
    if (!intrinsic_call && called_symbol(t->left) == nullptr) tasks_.push_back({act::VALUE, false, t->left});
}

void lowering::do_call(const tree* t, std::uint32_t arguments) {
    std::vector<const tree*> trees;
    push_arguments(t->op == op::CALL ? t->right : nullptr, trees);
    std::vector<item> values(arguments);
    for (std::uint32_t i = arguments; i-- > 0;) values[i] = pop();
    item pointer;
    const model::symbol* callee = called_symbol(t->left);
    if (callee == nullptr) pointer = pop();
    if (callee != nullptr && image_.place_of(callee).kind == global_place::UNDEFINED) {
        const intrinsic* builtin = find_intrinsic_function(callee->name);
        if (builtin != nullptr && builtin->arguments == arguments) {
            finish_intrinsic(t, *builtin, values, trees);
            return;
        }
    }

    call_site site;
    site.result = scalar_of(t->type);
    site.region = t->eht_index;
    set_up_arguments(values, site, trees);
    if (site.result.is_aggregate()) {
        const std::uint32_t align = align_of(t->type);
        site.result_offset = (results_begin_ + results_used_ + align - 1) / align * align;
        site.result_units = units_of(t->type);
        results_used_ += site.result_units + align + 1;
    }
    count(CALL_OP);
    close_segment();
    const auto number = static_cast<std::uint32_t>(out_->sites.size());
    const std::uint32_t reg = new_temp();
    if (callee == nullptr) {
        emit(CALL_POINTER, reg, in_register(pointer), number);
        release(pointer);
    } else {
        const global_place& place = image_.place_of(callee);
        if (place.kind == global_place::FUNCTION) {
            site.callee = place.function;
            emit(CALL_DIRECT, reg, 0, number);
        } else if (place.kind == global_place::LIBRARY) {
            site.library = place.library;
            emit(CALL_LIBRARY, reg, 0, number);
        } else {
            emit(run::FAULT, 0, 0, text("call of " + callee->name + ", which is not there"));
        }
    }
    out_->sites.push_back(std::move(site));
    const call_site& made = out_->sites.back();
    if (made.result.is_aggregate()) {
        free_temp(reg);
        item result;
        result.kind = item_kind::FRAME;
        result.value = made.result_offset;
        result.rep = made.result;
        push(result);
    } else if (made.result.has_value()) {
        push(temp_item(reg, made.result));
    } else {
        free_temp(reg);
        push(item{});
    }
}

void lowering::do_intrinsic(const tree* t, std::uint32_t arguments) {
    std::vector<const tree*> trees;
    push_arguments(t->op == ICALL || t->op == MCALL ? t->left : nullptr, trees);
    std::vector<item> values(arguments);
    for (std::uint32_t i = arguments; i-- > 0;) values[i] = pop();
    if (t->text == EH_SWITCH) {
        push_eh_switch(t);
        return;
    }
    const intrinsic* builtin = find_intrinsic(t->text);
    if (builtin == nullptr || arguments < builtin->arguments)
        bad(t, builtin == nullptr ? "of '" + std::string(t->text) + "' has no meaning when a program runs"
                                  : "of '" + std::string(t->text) + "' with too few arguments");
    finish_intrinsic(t, *builtin, values, trees);
}

void lowering::finish_intrinsic(const tree* t, const intrinsic& builtin, std::vector<item>& values,
                                const std::vector<const tree*>& trees) {
    call_site site;
    site.result = scalar_of(t->type);
    site.builtin = &builtin;
    set_up_arguments(values, site, trees);
    count(ARITHMETIC_OP);
    const std::uint32_t reg = new_temp();
    emit(CALL_INTRINSIC, reg, 0, static_cast<std::uint32_t>(out_->sites.size()));
    out_->sites.push_back(std::move(site));
    if (const scalar& result = out_->sites.back().result; result.has_value()) {
        push(temp_item(reg, result));
    } else {
        free_temp(reg);
        push(item{});
    }
}

void lowering::set_up_arguments(std::vector<item>& args, call_site& site,
                                const std::vector<const tree*>& trees) {
    for (std::uint32_t i = 0; i < args.size(); i++) {
        TYPE* type = trees[i]->type;
        argument_info info;
        info.rep = args[i].rep;
        if (type != nullptr && info.rep.is_aggregate()) {
            info.units = units_of(type);
            info.align = align_of(type);
        } else if (type != nullptr && info.rep.has_value()) {
            info.units = std::max(units_of(type), (info.rep.bits + 15u) / 16);
            info.align = align_of(type);
        }
        site.args.push_back(info);
        if (args[i].kind == item_kind::CONSTANT) {
            const auto bits = static_cast<std::uint64_t>(args[i].value);
            emit(ARG_CONST, i, static_cast<std::uint32_t>(bits), static_cast<std::uint32_t>(bits >> 32));
        } else {
            emit(ARG, i, in_register(args[i]));
        }
        release(args[i]);
    }
    program_.most_arguments = std::max(program_.most_arguments, static_cast<std::uint32_t>(args.size()));
}

} // namespace run
