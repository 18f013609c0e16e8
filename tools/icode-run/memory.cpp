#include "tools/icode-run/memory.h"

#include <algorithm>
#include <cstring>

memory::memory(std::uint32_t units, bool check)
    : units_(units, 0), owner_(units, 0), initialised_(check ? units : 0, 0), objects_(1), stack_(units),
      check_(check) {}

std::uint32_t memory::new_object(const std::string& name, std::uint32_t base, std::uint32_t units) {
    std::uint32_t id = 0;
    if (!free_objects_.empty()) {
        id = free_objects_.back();
        free_objects_.pop_back();
    } else {
        id = static_cast<std::uint32_t>(objects_.size());
        objects_.emplace_back();
    }
    objects_[id] = {name, base, units, false, false, false};
    std::fill_n(owner_.begin() + base, units, id);
    if (check_) std::fill_n(initialised_.begin() + base, units, std::uint8_t{1});
    return id;
}

std::uint32_t memory::add_static(const std::string& name, std::uint32_t units, std::uint32_t align,
                                 bool is_function) {
    if (units == 0) units = 1;
    align = std::max(align, 1u);
    const std::uint32_t base = (bottom_ + align - 1) / align * align;
    if (base + units + 1 > stack_ || base + units < base)
        throw program_fault("out of memory for static objects");
    const std::uint32_t id = new_object(name, base, units);
    objects_[id].is_function = is_function;
    bottom_ = base + units + 1;
    heap_end_ = bottom_;
    return base;
}

std::uint32_t memory::push_local(const std::string* name, std::uint32_t units, std::uint32_t align) {
    if (units == 0) units = 1;
    align = std::max(align, 1u);
    if (stack_ < heap_end_ + units + align + 1) throw program_fault("out of stack");
    const std::uint32_t base = (stack_ - units - 1) / align * align;
    if (base <= heap_end_) throw program_fault("out of stack");
    const std::uint32_t id = new_object(*name, base, units);
    objects_[id].is_local = true;
    if (check_) std::fill_n(initialised_.begin() + base, units, std::uint8_t{0});
    stack_objects_.push_back(id);
    stack_ = base;
    return base;
}

void memory::reserve_stack(std::uint32_t units) {
    if (stack_ < heap_end_ + units + 1) throw program_fault("out of stack");
    stack_ -= units;
}

void memory::release(mark to) {
    while (stack_objects_.size() > to.objects) {
        const std::uint32_t id = stack_objects_.back();
        stack_objects_.pop_back();
        std::fill_n(owner_.begin() + objects_[id].base, objects_[id].units, 0u);
        free_objects_.push_back(id);
    }
    stack_ = to.top;
}

// First fit. A block is followed by a unit of nobody.
std::uint32_t memory::allocate(std::uint32_t units) {
    const std::uint32_t wanted = (std::max(units, 1u) + 1 + 1) & ~1u; // blocks start even: longs are aligned
    std::uint32_t base = 0;
    for (auto gap = gaps_.begin(); gap != gaps_.end(); ++gap)
        if (gap->units >= wanted) {
            base = gap->base;
            gap->base += wanted;
            gap->units -= wanted;
            if (gap->units == 0) gaps_.erase(gap);
            break;
        }
    if (base == 0) {
        const std::uint32_t start = (heap_end_ + 1) & ~1u;
        if (start + wanted + 64 > stack_ || start + wanted < start) return 0;
        base = start;
        heap_end_ = start + wanted;
    }
    new_object("heap#" + std::to_string(next_block_++), base, std::max(units, 1u));
    return base;
}

std::uint32_t memory::block_size(std::uint32_t address) const {
    const memory_object* object = object_at(address);
    if (object == nullptr || object->base != address || object->is_local || address < bottom_)
        throw program_fault("a pointer that malloc did not give is freed or resized");
    return object->units;
}

void memory::release_block(std::uint32_t address) {
    const std::uint32_t units = block_size(address);
    const std::uint32_t id = owner_[address];
    std::fill_n(owner_.begin() + address, units, 0u);
    free_objects_.push_back(id);
    heap_gap gap{address, (units + 1 + 1) & ~1u};
    auto next = std::lower_bound(gaps_.begin(), gaps_.end(), gap,
                                 [](const heap_gap& a, const heap_gap& b) { return a.base < b.base; });
    if (next != gaps_.end() && gap.base + gap.units == next->base) {
        gap.units += next->units;
        next = gaps_.erase(next);
    }
    if (next != gaps_.begin() && (next - 1)->base + (next - 1)->units == gap.base)
        (next - 1)->units += gap.units;
    else
        gaps_.insert(next, gap);
}

void memory::copy(std::uint32_t to, std::uint32_t from, std::uint32_t units) {
    if (units == 0) return;
    // Whole objects can hold parts that were never stored to: copying them is no read, and counts as a store.
    const bool tracked = check_;
    check_ = false;
    try {
        check(from, units, false);
        check(to, units, true);
    } catch (...) {
        check_ = tracked;
        throw;
    }
    check_ = tracked;
    std::memmove(&units_[to], &units_[from], units * sizeof(std::uint16_t));
    if (check_) std::fill_n(initialised_.begin() + to, units, std::uint8_t{1});
}

void memory::check_initialised(std::uint32_t address, std::uint32_t units, bool store) {
    for (std::uint32_t i = 0; i < units; i++) {
        if (store)
            initialised_[address + i] = 1;
        else if (initialised_[address + i] == 0)
            throw program_fault("local read before anything was stored in it: " + describe(address + i));
    }
}

std::string memory::describe(std::uint32_t address) const {
    const memory_object* object = object_at(address);
    if (object == nullptr) return "address " + std::to_string(address);
    return object->name + "+" + std::to_string(address - object->base);
}

void memory::bad_access(std::uint32_t address, bool store) const {
    const memory_object* object = object_at(address);
    if (object != nullptr && (object->is_const || object->is_function))
        throw program_fault(std::string(store ? "store to " : "read of ") +
                            (object->is_function ? "function " : "constant ") + describe(address));
    throw program_fault(std::string(store ? "store" : "read") + " outside any object: address " +
                        std::to_string(address) + (object != nullptr ? " (" + describe(address) + ")" : ""));
}
