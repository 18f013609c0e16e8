#include "tools/icode-run/memory.h"

#include <algorithm>
#include <bit>

namespace run {

static_assert(std::endian::native == std::endian::little, "wide values are stored low unit first");

namespace {

constexpr std::uint32_t NULL_GUARD = 16;  // units at the bottom that belong to no object
constexpr std::uint32_t SLACK = 8;        // units behind the end, so that a check may look past it
constexpr std::uint32_t HEAP_ALIGN = 2;   // units
constexpr std::uint32_t KEPT_BACK = 4096; // freed units that are not used again yet
constexpr unsigned MAX_ADDRESS_BITS = 22; // provided even when pointers are wider

std::uint32_t align_up(std::uint32_t value, std::uint32_t align) {
    return (value + align - 1) / align * align;
}

} // namespace

memory::memory(unsigned pointer_bits) {
    const unsigned bits = std::clamp(pointer_bits, 8u, MAX_ADDRESS_BITS);
    size_ = 1u << bits;
    mask_ = size_ - 1;
    units_.resize(size_ + SLACK);
    state_.resize(size_ + SLACK);
    bottom_ = NULL_GUARD;
    top_ = size_;
}

address memory::place_static(std::uint32_t units, std::uint32_t align, const std::string& name,
                             std::uint8_t state) {
    const std::uint64_t at = align_up(bottom_ + 1, std::max(align, 1u));
    if (at + units + 1 > top_) throw fault{"out of memory: no room for '" + name + "'"};
    std::memset(&state_[at], state, units);
    statics_.push_back({static_cast<address>(at), units, name});
    bottom_ = static_cast<address>(at) + units;
    return static_cast<address>(at);
}

address memory::place_function() {
    if (top_ <= bottom_ + 2) throw fault{"out of memory: no room for the address of a function"};
    return --top_;
}

void memory::seal() {
    stack_base_ = std::min(align_up(bottom_ + 1, 16), top_);
    stack_limit_ = top_;
    if (top_ > stack_base_) add_free(stack_base_, top_ - stack_base_);
}

void memory::initialise(address at, std::uint64_t bit, unsigned bits, std::uint64_t value) {
    for (unsigned done = 0; done < bits;) {
        const std::uint64_t position = bit + done;
        const unsigned inside = position % 16;
        const unsigned n = std::min(bits - done, 16 - inside);
        const unsigned field = ((1u << n) - 1) << inside;
        std::uint16_t& unit = units_[at + position / 16];
        unit = static_cast<std::uint16_t>((unit & ~field) | (((value >> done) << inside) & field));
        done += n;
    }
}

std::uint64_t memory::load(address at, unsigned bits, bool is_signed) const {
    at &= mask_;
    const unsigned n = (bits + 15) / 16;
    if (!readable(at, n)) access_fault(at, n, false);
    std::uint64_t value = 0;
    for (unsigned i = 0; i < n; i++) value |= static_cast<std::uint64_t>(units_[at + i]) << 16 * i;
    return extend(value, bits, is_signed);
}

void memory::store(address at, unsigned bits, std::uint64_t value) {
    at &= mask_;
    const unsigned n = (bits + 15) / 16;
    if (!writable(at, n)) access_fault(at, n, true);
    for (unsigned i = 0; i < n; i++) put16(at + i, value >> 16 * i);
}

std::uint64_t memory::load_field(address base, const bit_field& field) const {
    const address at = (base + field.unit) & mask_;
    const unsigned n = (field.first_bit + field.bits + 15u) / 16;
    if (!readable(at, n)) access_fault(at, n, false);
    std::uint64_t value = static_cast<std::uint64_t>(units_[at]) >> field.first_bit;
    for (unsigned i = 1; i < n; i++)
        value |= static_cast<std::uint64_t>(units_[at + i]) << (16 * i - field.first_bit);
    return extend(value, field.bits, field.is_signed);
}

void memory::store_field(address base, const bit_field& field, std::uint64_t value) {
    const address at = (base + field.unit) & mask_;
    const unsigned n = (field.first_bit + field.bits + 15u) / 16;
    if (!writable(at, n)) access_fault(at, n, true);
    initialise(at, field.first_bit, field.bits, value);
    for (unsigned i = 0; i < n; i++) state_[at + i] |= UNIT_READ;
}

std::uint16_t memory::byte(address at) const {
    at &= mask_;
    if (!readable(at, 1)) access_fault(at, 1, false);
    return units_[at];
}

void memory::set_byte(address at, std::uint16_t value) {
    at &= mask_;
    if (!writable(at, 1)) access_fault(at, 1, true);
    put16(at, value);
}

void memory::copy(address to, address from, std::uint32_t units) {
    if (units == 0) return;
    to &= mask_;
    from &= mask_;
    for (std::uint32_t i = 0; i < units; i++) {
        if (from + i >= size_ || state_[from + i] == 0) access_fault(from + i, 1, false);
        if (to + i >= size_ || (state_[to + i] & UNIT_WRITE) == 0) access_fault(to + i, 1, true);
    }
    std::memmove(&units_[to], &units_[from], units * sizeof units_[0]);
    const bool among_locals = to >= stack_base_ && from >= stack_base_;
    if (among_locals) std::memmove(&state_[to], &state_[from], units);
    for (std::uint32_t i = 0; i < units; i++)
        state_[to + i] |= among_locals ? UNIT_WRITE : UNIT_WRITE | UNIT_READ;
}

std::string memory::text(address at) const {
    std::string result;
    for (;; at++) {
        const std::uint16_t unit = byte(at);
        if (unit == 0) return result;
        result.push_back(static_cast<char>(unit));
    }
}

void memory::put_text(address at, const std::string& characters) {
    for (char c : characters) set_byte(at++, static_cast<unsigned char>(c));
    set_byte(at, 0);
}

void memory::add_free(address at, std::uint32_t units) {
    auto next = free_.lower_bound(at);
    if (next != free_.end() && at + units == next->first) {
        units += next->second;
        remove_free(next->first);
    }
    auto behind = free_.lower_bound(at);
    if (behind != free_.begin()) {
        auto before = std::prev(behind);
        if (before->first + before->second == at) {
            at = before->first;
            units += before->second;
            remove_free(before->first);
        }
    }
    free_[at] = units;
    free_by_size_.insert({units, at});
    if (at == stack_base_) stack_limit_ = at + units;
}

void memory::remove_free(address at) {
    auto found = free_.find(at);
    free_by_size_.erase({found->second, at});
    if (at == stack_base_) stack_limit_ = stack_base_;
    free_.erase(found);
}

void memory::retire() {
    const address oldest = retired_.front();
    retired_.pop_front();
    auto block = blocks_.find(oldest);
    retired_units_ -= block->second.extent;
    const std::uint32_t extent = block->second.extent;
    blocks_.erase(block);
    // The extent ends with the block's gap; it begins at the block.
    add_free(oldest, extent);
}

address memory::allocate(std::uint32_t units, address stack_top) {
    if (units >= size_) return 0;
    // The gap lies behind the block.
    const std::uint32_t extent = align_up(std::max(units, 1u) + 1, HEAP_ALIGN);
    for (;;) {
        // The smallest extent that does. What it gives is taken from its upper end, away from the stack.
        for (auto it = free_by_size_.lower_bound({extent, 0}); it != free_by_size_.end(); ++it) {
            const auto [have, from] = *it;
            address at = from + have - extent;
            at -= at % HEAP_ALIGN;
            if (at < from || (from == stack_base_ && at <= stack_top)) continue;
            const std::uint32_t taken = from + have - at;
            remove_free(from);
            if (at > from) add_free(from, at - from);
            blocks_[at] = {units, taken, next_block_++, true};
            std::memset(&state_[at], UNIT_READ | UNIT_WRITE, units);
            return at;
        }
        if (retired_.empty()) return 0;
        retire();
    }
}

void memory::free_block(address at) {
    const std::uint32_t units = block_units(at);
    heap_block& block = blocks_[at];
    block.live = false;
    release(at, units);
    retired_.push_back(at);
    retired_units_ += block.extent;
    while (retired_units_ > KEPT_BACK) retire();
}

std::uint32_t memory::block_units(address at) const {
    auto found = blocks_.find(at);
    if (found == blocks_.end()) throw fault{"a pointer that malloc did not give is freed or resized"};
    if (!found->second.live) throw fault{"a pointer that was freed already is freed or resized"};
    return found->second.units;
}

std::string memory::name_of(address at) const {
    auto object = std::upper_bound(statics_.begin(), statics_.end(), at,
                                   [](address a, const static_object& o) { return a < o.at; });
    if (object != statics_.begin() && at - std::prev(object)->at < std::prev(object)->units)
        return std::prev(object)->name + "+" + std::to_string(at - std::prev(object)->at);
    auto block = blocks_.upper_bound(at);
    if (block != blocks_.begin()) {
        --block;
        if (at - block->first < block->second.units)
            return "heap#" + std::to_string(block->second.number) + "+" + std::to_string(at - block->first);
    }
    return "";
}

void memory::access_fault(address at, unsigned n, bool store) const {
    at &= mask_;
    const std::uint8_t wanted = store ? UNIT_WRITE : UNIT_READ;
    unsigned i = 0;
    while (i + 1 < n && (state_[at + i] & wanted) != 0) i++;
    const address unit = (at + i) & mask_;
    const std::string name = name_of(unit);
    if (state_[unit] == UNIT_READ) throw fault{"store to constant " + name};
    if (state_[unit] == UNIT_WRITE) throw fault{"local read before anything was stored in it"};
    throw fault{std::string(store ? "store" : "read") + " outside any object: address " +
                std::to_string(unit) + (name.empty() ? "" : " (in " + name + ", whose life has ended)")};
}

} // namespace run
