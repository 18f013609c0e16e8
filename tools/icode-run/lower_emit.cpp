// Code, registers and items of the function being lowered.

#include "tools/icode-run/lowering.h"

#include <utility>

#include "OPT5/opcodes.h"

namespace run {

std::uint32_t lowering::emit(opcode op, std::uint32_t a, std::uint32_t b, std::uint32_t c, std::uint16_t x) {
    out_->code.push_back({op, x, a, b, c});
    return static_cast<std::uint32_t>(out_->code.size() - 1);
}

// A segment is entered at its SEGMENT instruction and left at its end, so that one counter tells how often
// every operator in it has run.
void lowering::count(op_class c, std::uint64_t n) {
    if (n == 0 || silent_ != 0) return;
    if (segment_pc_ == NONE) segment_pc_ = emit(SEGMENT);
    segment_counts_[c] += n;
}

void lowering::close_segment() {
    if (segment_pc_ == NONE) return;
    std::uint64_t total = 0;
    for (std::uint64_t n : segment_counts_) total += n;
    out_->code[segment_pc_].a = static_cast<std::uint32_t>(total);
    out_->code[segment_pc_].c = static_cast<std::uint32_t>(program_.segments.size());
    program_.segments.push_back(segment_counts_);
    segment_counts_ = {};
    segment_pc_ = NONE;
}

std::uint32_t lowering::new_label() {
    label_pc_.push_back(NONE);
    return static_cast<std::uint32_t>(label_pc_.size() - 1);
}

void lowering::label_here(std::uint32_t label) {
    close_segment();
    label_pc_[label] = barrier_ = static_cast<std::uint32_t>(out_->code.size());
}

std::uint32_t lowering::new_temp() {
    if (free_temps_.empty()) return next_temp_++;
    const std::uint32_t reg = free_temps_.back();
    free_temps_.pop_back();
    return reg;
}

void lowering::free_temp(std::uint32_t reg) { free_temps_.push_back(reg); }

void lowering::push(item i) {
    const auto index = static_cast<std::uint32_t>(items_.size());
    if (i.reg != NONE && !is_temp(i.reg) && !i.local) {
        i.previous = std::exchange(pending_[i.reg], index);
        pending_items_.push_back(index);
    }
    items_.push_back(i);
}

lowering::item lowering::pop() {
    item i = items_.back();
    items_.pop_back();
    if (!pending_items_.empty() && pending_items_.back() == items_.size()) pending_items_.pop_back();
    if (i.reg != NONE && !is_temp(i.reg) && !i.local) pending_[i.reg] = i.previous;
    i.previous = NONE;
    return i;
}

void lowering::release(const item& i) {
    if (is_temp(i.reg) && !i.borrowed) free_temp(i.reg);
}

void lowering::settle_item(item& i) {
    const std::uint32_t temp = new_temp();
    emit(MOVE_REG, temp, i.reg);
    i.reg = temp;
    i.previous = NONE;
}

void lowering::settle(std::uint32_t local_reg) {
    for (std::uint32_t index = std::exchange(pending_[local_reg], NONE); index != NONE;) {
        const std::uint32_t next = items_[index].previous;
        settle_item(items_[index]);
        index = next;
    }
}

void lowering::settle_all() {
    for (std::uint32_t index : pending_items_) {
        item& i = items_[index];
        if (is_temp(i.reg)) continue;
        pending_[i.reg] = NONE;
        settle_item(i);
    }
    pending_items_.clear();
}

lowering::item lowering::temp_item(std::uint32_t reg, const scalar& rep) {
    item i;
    i.kind = item_kind::REGISTER;
    i.reg = reg;
    i.rep = rep;
    i.made_at = static_cast<std::uint32_t>(out_->code.size() - 1);
    return i;
}

lowering::item lowering::constant_item(std::uint64_t bits, const scalar& rep) {
    item i;
    i.kind = item_kind::CONSTANT;
    i.value = static_cast<std::int64_t>(bits);
    i.rep = rep;
    i.plain = true;
    return i;
}

std::uint32_t lowering::in_register(item& i) {
    if (i.kind == item_kind::REGISTER) return i.reg;
    const auto low = static_cast<std::uint32_t>(i.value);
    const auto bits = static_cast<std::uint64_t>(i.value);
    const std::uint32_t reg = is_temp(i.reg) && !i.borrowed ? i.reg : new_temp();
    switch (i.kind) {
        case item_kind::NOTHING: emit(CONSTANT, reg); break;
        case item_kind::CONSTANT: emit(CONSTANT, reg, low, static_cast<std::uint32_t>(bits >> 32)); break;
        case item_kind::FRAME: emit(FRAME, reg, 0, low); break;
        default:
            // The sum of an address and a number, cut to the width of addresses.
            if (pointer_rep().bits == 16) {
                emit(ADD_U16_RI, reg, i.reg, low);
            } else {
                emit(ADD_W64_RI, reg, i.reg, low);
                emit(NORM, reg, reg, 0, width_word(pointer_rep().bits, false));
            }
            break;
    }
    i.kind = item_kind::REGISTER;
    i.reg = reg;
    i.value = 0;
    i.borrowed = false;
    i.made_at = static_cast<std::uint32_t>(out_->code.size() - 1);
    return reg;
}

// The register to which an access adds `offset`.
std::uint32_t lowering::pointer_register(item& i, std::uint32_t& offset) {
    if (i.kind == item_kind::SUM) {
        offset = static_cast<std::uint32_t>(i.value);
        return i.reg;
    }
    offset = 0;
    return in_register(i);
}

// Stores the value into a local that lives in a register.
void lowering::set_local(std::uint32_t local, item& from) {
    const std::uint32_t reg = locals_[local].reg;
    settle(reg);
    const auto last = static_cast<std::uint32_t>(out_->code.size() - 1);
    if (from.kind == item_kind::REGISTER && is_temp(from.reg) && from.made_at == last && last >= barrier_ &&
        out_->code[last].a == from.reg) {
        out_->code[last].a = reg;
    } else if (from.kind == item_kind::REGISTER) {
        if (from.reg != reg) emit(MOVE_REG, reg, from.reg);
    } else if (from.kind == item_kind::CONSTANT || from.kind == item_kind::NOTHING) {
        const auto bits = static_cast<std::uint64_t>(from.value);
        emit(CONSTANT, reg, static_cast<std::uint32_t>(bits), static_cast<std::uint32_t>(bits >> 32));
    } else {
        in_register(from);
        out_->code.back().a = reg;
    }
    if (options_.check) emit(MARK_INIT, 0, reg);
}

void lowering::read_check(std::uint32_t local) {
    if (!options_.check) return;
    emit(CHECK_INIT, 0, locals_[local].reg, text(locals_[local].symbol->name));
}

std::uint32_t lowering::text(const std::string& words) {
    auto [entry, is_new] = texts_.try_emplace(words, static_cast<std::uint32_t>(out_->texts.size()));
    if (is_new) out_->texts.push_back(words);
    return entry->second;
}

void lowering::no_meaning(const tree* t) const { bad(t, "has no meaning when a program runs"); }

void lowering::bad(const tree* t, const std::string& what) const {
    const char* name = nullptr;
    if (t != nullptr && t->op >= 0 && t->op < IF_NODE_INFO_SIZE) name = if_node_info[t->op].name;
    std::string where = "function " + source_.sym->name;
    if (!out_->lines.empty()) where += ", line " + std::to_string(out_->lines.back().line);
    throw bad_program(where + ": " + (name != nullptr ? std::string(name) + " " : "") + what);
}

} // namespace run
