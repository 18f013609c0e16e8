// Lowering of bodies and statements.

#include "tools/icode-run/lower.h"

#include <algorithm>

#include "OPT5/opcodes.h"
#include "OPT5/types.h"
#include "tools/icode-run/lowering.h"

using namespace op;

namespace run {

namespace {

std::uint32_t align_up(std::uint32_t value, std::uint32_t align) {
    return (value + align - 1) / align * align;
}

const model::tree* without_profile(const model::tree* t) {
    while (t != nullptr && t->op == EPVAL) t = t->left;
    return t;
}

bool is_structure_call(const model::tree* t) {
    return (t->op == op::CALL || t->op == UCALL) && scalar_of(t->type).is_aggregate();
}

} // namespace

lowering::lowering(image& image, const lower_options& options, const model::function& source,
                   program_code& program)
    : image_(image), options_(options), source_(source), program_(program) {}

void lowering::run(function_code& result) {
    out_ = &result;
    result.name = source_.sym->name;
    TYPE* type = source_.sym->type;
    if (type == nullptr || !type->is_func())
        throw bad_program("function " + result.name + " has no function type");
    result_type_ = type->return_type();
    result_ = scalar_of(result_type_);
    result.variadic = type->func().vararg && !source_.params.empty();
    if (source_.has_psn) result.lines.push_back({0, source_.psn.file, source_.psn.line});

    survey();
    place_locals();
    lower_body();
    resolve_labels();
    result.registers = next_temp_;
}

// Looks at the whole body once: locals and whether they need memory, blocks, labels, and how much room the
// structure results of one statement take.
void lowering::survey() {
    scopes_.emplace_back();
    auto declare = [&](const model::symbol* symbol, std::uint32_t scope) {
        auto [entry, is_new] = local_of_.try_emplace(symbol, static_cast<std::uint32_t>(locals_.size()));
        if (!is_new) return;
        if (symbol->type == nullptr) bad(nullptr, "local '" + symbol->name + "' has no type");
        local_info& local = locals_.emplace_back();
        local.symbol = symbol;
        local.scope = scope;
        scopes_[scope].locals.push_back(entry->second);
    };
    for (const model::symbol* parameter : source_.params) declare(parameter, 0);

    std::uint32_t scope = 0;
    std::vector<const tree*> stack;
    for (const model::body_item& item : source_.body) {
        using kind = model::body_item::kind;
        switch (item.what) {
            case kind::symbol: declare(item.sym, scope); break;
            case kind::begin_block: {
                scope_info inner;
                inner.parent = scope;
                inner.depth = scopes_[scope].depth + 1;
                scope = static_cast<std::uint32_t>(scopes_.size());
                scopes_.push_back(inner);
                break;
            }
            case kind::end_block:
                if (scope == 0) bad(nullptr, "ends a block that has not begun");
                scope = scopes_[scope].parent;
                break;
            case kind::label:
                if (!scope_of_.emplace(item.number, scope).second)
                    bad(nullptr, "defines label " + std::to_string(item.number) + " twice");
                labels_.emplace(item.number, new_label());
                break;
            case kind::expr: {
                results_used_ = 0;
                survey_tree(item.expr, stack);
                results_most_ = std::max(results_most_, results_used_);
                break;
            }
            default: break;
        }
    }
    for (const EHT_ENTRY& entry : source_.eht) {
        results_used_ = 0;
        survey_tree(static_cast<const tree*>(entry.tree), stack);
        results_most_ = std::max(results_most_, results_used_);
    }
    results_used_ = 0;
}

void lowering::survey_tree(const tree* root, std::vector<const tree*>& stack) {
    stack.assign(1, root);
    while (!stack.empty()) {
        const tree* t = stack.back();
        stack.pop_back();
        if (t == nullptr) continue;
        if (t->op == UAND || t->op == ARGREF) {
            const tree* inner = t->left;
            while (inner != nullptr && (inner->op == STDOT || inner->op == EPVAL || inner->op == DDNODE))
                inner = inner->left;
            if (inner != nullptr && inner->op == NAME)
                if (auto local = local_of_.find(inner->sym); local != local_of_.end())
                    locals_[local->second].address_taken = true;
        } else if (t->op == NAME && t->sym != nullptr && t->sym->level != 0) {
            // A use as something else than what was declared goes by memory.
            if (auto local = local_of_.find(t->sym); local != local_of_.end()) {
                const scalar declared = scalar_of(t->sym->type), used = scalar_of(t->type);
                if (declared.bits != used.bits || declared.is_float() != used.is_float())
                    locals_[local->second].address_taken = true;
            }
        } else if (is_structure_call(t)) {
            results_used_ += units_of(t->type) + align_of(t->type) + 1;
        }
        stack.push_back(t->right);
        stack.push_back(t->left);
    }
}

// The frame: the objects in memory, the room for structure results, and last, so that further arguments can
// follow it, the last named parameter of a variadic function.
void lowering::place_locals() {
    const auto parameters = static_cast<std::uint32_t>(source_.params.size());
    std::uint32_t next_register = parameters;
    std::uint32_t last_named = NONE;
    for (std::uint32_t i = 0; i < parameters; i++) {
        local_info& local = locals_[local_of_.at(source_.params[i])];
        local.arrival = i;
        if (out_->variadic && i + 1 == parameters) last_named = local_of_.at(source_.params[i]);
        out_->params.push_back(scalar_of(local.symbol->type));
    }

    std::uint32_t end = 0;
    auto place = [&](std::uint32_t index) {
        local_info& local = locals_[index];
        const std::uint32_t units = units_of(local.symbol->type);
        const std::uint32_t align =
            std::max(align_of(local.symbol->type), std::clamp(local.symbol->align / 16, 1u, 1024u));
        out_->frame_align = std::max(out_->frame_align, align);
        if (units > image_.mem.mask())
            throw fault{"out of memory: no room for local '" + local.symbol->name + "'"};
        local.offset = align_up(end == 0 ? 0 : end + 1, align);
        end = local.offset + units;
        if (end > image_.mem.mask()) throw fault{"out of memory: no room for the locals of " + out_->name};
        local.object = static_cast<std::uint32_t>(out_->objects.size());
        out_->objects.push_back({local.offset, units, local.symbol->name});
    };
    for (std::uint32_t index = 0; index < locals_.size(); index++) {
        local_info& local = locals_[index];
        const bool fits = scalar_of(local.symbol->type).has_value() && !local.symbol->type->is_volatile();
        if (fits && !local.address_taken && index != last_named) {
            local.in_register = true;
            local.reg = local.arrival != NONE ? local.arrival : next_register++;
        } else if (index != last_named) {
            place(index);
        }
    }
    if (results_most_ > 0) {
        results_begin_ = end + 1;
        end = results_begin_ + results_most_;
        out_->frame_align = std::max(out_->frame_align, 2u);
        if (end > image_.mem.mask()) throw fault{"out of memory: no room for structures in " + out_->name};
    }
    if (last_named != NONE) place(last_named);
    out_->frame_units = end;

    out_->frame_shadow.assign(end, 0);
    for (const local_info& local : locals_) {
        if (local.object == NONE) continue;
        const frame_object& object = out_->objects[local.object];
        const std::uint8_t state = !options_.check    ? UNIT_READ | UNIT_WRITE
                                   : local.scope == 0 ? UNIT_WRITE
                                                      : 0;
        std::fill_n(out_->frame_shadow.begin() + object.offset, object.units, state);
    }
    std::fill_n(out_->frame_shadow.begin() + results_begin_, results_most_, UNIT_READ | UNIT_WRITE);

    local_of_register_.assign(next_register, NONE);
    for (std::uint32_t index = 0; index < locals_.size(); index++)
        if (locals_[index].in_register) local_of_register_[locals_[index].reg] = index;
    first_temp_ = next_temp_ = next_register;
    pending_.assign(next_register, NONE);
    if (options_.check) {
        for (const scope_info& scope : scopes_) {
            scope_code& code = out_->scopes.emplace_back();
            for (std::uint32_t index : scope.locals) {
                if (locals_[index].in_register)
                    code.registers.push_back(locals_[index].reg);
                else
                    code.objects.push_back(locals_[index].object);
            }
        }
    }
}

void lowering::lower_body() {
    std::uint32_t blocks = 0;
    bool first = true;
    for (const model::body_item& item : source_.body) {
        using kind = model::body_item::kind;
        switch (item.what) {
            case kind::begin_block:
                scope_ = ++blocks;
                if (options_.check) emit(SCOPE_BEGIN, 0, 0, scope_);
                break;
            case kind::end_block:
                if (options_.check) emit(SCOPE_END, 0, 0, scope_);
                scope_ = scopes_[scope_].parent;
                break;
            case kind::label: label_here(labels_.at(item.number)); break;
            case kind::expr: {
                const tree* statement = without_profile(item.expr);
                if (statement == nullptr) bad(nullptr, "has a statement without a tree");
                const auto pc = static_cast<std::uint32_t>(out_->code.size());
                if (item.has_psn && item.psn.line != 0)
                    out_->lines.push_back({pc, item.psn.file, item.psn.line});
                if (first && !source_.params.empty())
                    lower_prolog(statement);
                else
                    lower_statement(statement);
                first = false;
                results_used_ = 0;
                break;
            }
            default: break;
        }
    }
    if (first && !source_.params.empty()) bad(nullptr, "does not receive its parameters");
    close_segment();
    emit(RET);
    lower_regions();
}

void lowering::lower_statement(const tree* statement) {
    switch (statement->op) {
        case op::NOP:
        case op::PPRAGMA: return;
        case op::BRANCH:
            count(BRANCH_OP);
            close_segment();
            jump_to_user_label(user_label(statement->left));
            return;
        case CBRANCH: {
            const std::uint32_t number = user_label(statement->right);
            if (!options_.check || scope_of_label(number) == scope_) {
                lower_tree(act::CONDITION, statement->left, labels_.at(number), false);
            } else {
                const std::uint32_t past = new_label();
                lower_tree(act::CONDITION, statement->left, past, true);
                jump_to_user_label(number);
                label_here(past);
            }
            close_segment();
            return;
        }
        case SWITCH: lower_switch(statement); return;
        case RETURN: lower_return(statement); return;
        case URETURN:
            close_segment();
            emit(RET);
            return;
        default: lower_tree(act::EFFECT, statement);
    }
}

// The first statement receives the parameters: a chain of assignments p = p, in which the right side stands
// for what arrives.
void lowering::lower_prolog(const tree* statement) {
    std::vector<const tree*> chain;
    const tree* rest = statement;
    for (; rest != nullptr && rest->op == PCOMMA; rest = without_profile(rest->left))
        chain.push_back(without_profile(rest->right));
    chain.push_back(rest);
    std::reverse(chain.begin(), chain.end());
    std::vector<bool> received(source_.params.size());
    silent_++; // receiving costs nothing
    for (const tree* assignment : chain) receive(assignment, received);
    silent_--;
    for (std::size_t i = 0; i < received.size(); i++)
        if (!received[i]) bad(nullptr, "does not receive its parameter '" + source_.params[i]->name + "'");
}

void lowering::receive(const tree* assignment, std::vector<bool>& received) {
    if (assignment == nullptr ||
        (assignment->op != ASG && assignment->op != STASG && assignment->op != ARASG))
        bad(assignment, "stands where the parameters are received");
    const tree* to = without_profile(assignment->left);
    const tree* from = without_profile(assignment->right);
    while (from != nullptr && (from->op == SCONV || from->op == PCONV || from->op == ACONV))
        from = from->left;
    if (to == nullptr || from == nullptr || to->op != NAME || from->op != NAME || to->sym != from->sym ||
        !local_of_.contains(to->sym) || locals_[local_of_.at(to->sym)].arrival == NONE)
        bad(assignment, "does not receive a parameter");

    const std::uint32_t index = local_of_.at(to->sym);
    local_info& local = locals_[index];
    received[local.arrival] = true;
    const scalar home = scalar_of(local.symbol->type);
    if (!home.has_value()) {
        item target;
        target.kind = item_kind::FRAME;
        target.value = local.offset;
        const std::uint32_t to_reg = in_register(target);
        emit(COPY, to_reg, local.arrival, units_of(local.symbol->type));
        release(target);
        return;
    }
    const scalar arriving = scalar_of(from->type).has_value() ? scalar_of(from->type) : home;
    out_->params[local.arrival] = arriving;
    item value;
    value.kind = item_kind::REGISTER;
    value.reg = local.arrival;
    value.rep = arriving;
    value = converted(value, home, false);
    if (local.in_register) {
        set_local(index, value);
        release(value);
        return;
    }
    item place;
    place.kind = item_kind::FRAME;
    place.is_place = true;
    place.value = local.offset;
    place.rep = home;
    place.begin = local.offset;
    place.end = place.begin + units_of(local.symbol->type);
    place.is_volatile = local.symbol->type->is_volatile();
    store(place, value);
    release(place);
    release(value);
}

void lowering::lower_switch(const tree* statement) {
    lower_tree(act::VALUE, statement->left);
    item selector = pop();
    const scalar rep = selector.rep;
    if (!rep.has_value() || rep.is_float()) bad(statement, "selects by something else than an integer");
    const std::uint32_t reg = in_register(selector);
    count(BRANCH_OP);
    close_segment();
    const auto number = static_cast<std::uint32_t>(out_->switches.size());
    emit(SWITCH_JUMP, reg, 0, number);
    release(selector);

    // The list is left-nested, so it is met from its end; the earlier of equal cases counts.
    std::vector<std::pair<std::int64_t, std::uint32_t>> cases;
    std::uint32_t otherwise = NONE;
    const std::uint32_t past = new_label();
    // Where a target lies in another block, a stub ends and begins the blocks between.
    auto target = [&](const tree* label) {
        const std::uint32_t to = user_label(label);
        if (!options_.check || scope_of_label(to) == scope_) return labels_.at(to);
        const std::uint32_t stub = new_label();
        label_here(stub);
        jump_to_user_label(to);
        return stub;
    };
    for (const tree* list = without_profile(statement->right); list != nullptr;) {
        const tree* element = list;
        list = nullptr;
        if (element->op == COMMA) {
            list = without_profile(element->left);
            element = without_profile(element->right);
        }
        if (element == nullptr) bad(statement, "has an incomplete list");
        if (element->op == DEFAULT) {
            otherwise = target(element->left);
        } else if (element->op == CASE && element->left != nullptr &&
                   (element->left->op == ICON || element->left->op == LCON)) {
            const std::uint64_t bits = extend(static_cast<std::uint64_t>(element->left->value), rep);
            cases.emplace_back(static_cast<std::int64_t>(bits), target(element->right));
        } else {
            bad(element, "stands in the list of a SWITCH");
        }
    }
    label_here(past);

    switch_table& table = out_->switches.emplace_back();
    table.otherwise = otherwise == NONE ? past : otherwise;
    std::reverse(cases.begin(), cases.end());
    std::stable_sort(cases.begin(), cases.end(), [](auto& a, auto& b) { return a.first < b.first; });
    cases.erase(std::unique(cases.begin(), cases.end(), [](auto& a, auto& b) { return a.first == b.first; }),
                cases.end());
    if (cases.empty()) return;
    const std::uint64_t range =
        static_cast<std::uint64_t>(cases.back().first) - static_cast<std::uint64_t>(cases.front().first);
    if (range < cases.size() * 4 + 8) {
        table.first = cases.front().first;
        table.dense.assign(range + 1, table.otherwise);
        for (const auto& [value, label] : cases)
            table.dense[static_cast<std::uint64_t>(value) - static_cast<std::uint64_t>(table.first)] = label;
    } else {
        table.sorted = std::move(cases);
    }
}

void lowering::lower_return(const tree* statement) {
    if (statement->right == nullptr) {
        close_segment();
        emit(RET);
        return;
    }
    lower_tree(act::VALUE, statement->right);
    item value = pop();
    if (result_.has_value() && value.rep.has_value()) {
        value = converted(value, result_, false);
        const std::uint32_t reg = in_register(value);
        close_segment();
        emit(RET_VALUE, reg);
    } else if (result_.is_aggregate() && value.rep.is_aggregate()) {
        const std::uint32_t reg = in_register(value);
        close_segment();
        emit(RET_COPY, reg, 0, units_of(result_type_));
    } else {
        close_segment();
        emit(RET);
    }
    release(value);
}

std::uint32_t lowering::user_label(const tree* reference) {
    reference = without_profile(reference);
    if (reference == nullptr || reference->op != LABEL) bad(reference, "stands where a label is wanted");
    const auto number = static_cast<std::uint32_t>(reference->value);
    if (!labels_.contains(number))
        bad(nullptr, "jumps to label " + std::to_string(number) + ", which is not there");
    return number;
}

std::uint32_t lowering::scope_of_label(std::uint32_t number) const { return scope_of_.at(number); }

void lowering::jump_to_user_label(std::uint32_t number) {
    if (options_.check) scope_change(scope_, scope_of_label(number));
    emit(JUMP, 0, 0, labels_.at(number));
}

// A jump out of blocks ends their locals, a jump into blocks begins them.
void lowering::scope_change(std::uint32_t from, std::uint32_t to) {
    std::vector<std::uint32_t> entered;
    while (from != to) {
        if (scopes_[from].depth >= scopes_[to].depth) {
            emit(SCOPE_END, 0, 0, from);
            from = scopes_[from].parent;
        } else {
            entered.push_back(to);
            to = scopes_[to].parent;
        }
    }
    for (auto scope = entered.rbegin(); scope != entered.rend(); ++scope) emit(SCOPE_BEGIN, 0, 0, *scope);
}

void lowering::resolve_labels() {
    for (insn& i : out_->code)
        if ((i.op >= BR_EQ_RR && i.op <= JUMP_NONZERO) || i.op == FJUMP) i.c = label_pc_[i.c];
    for (switch_table& table : out_->switches) {
        table.otherwise = label_pc_[table.otherwise];
        for (std::uint32_t& target : table.dense) target = label_pc_[target];
        for (auto& entry : table.sorted) entry.second = label_pc_[entry.second];
    }
}

program_code lower_program(image& image, const lower_options& options) {
    program_code code;
    code.functions.resize(image.program.functions.size());
    for (std::size_t i = 0; i < code.functions.size(); i++)
        lowering(image, options, image.program.functions[i], code).run(code.functions[i]);
    return code;
}

} // namespace run
