#include "local_values.h"

#include <utility>

#include "accesses.h"
#include "fpsmath.h"
#include "node.h"
#include "opcodes.h"
#include "symbol.h"
#include "types.h"

using namespace op;

namespace {

constexpr int CONTENTS = ILLOP; // the operator of a key that asks for what a place holds

} // namespace

LOCAL_VALUES::LOCAL_VALUES(const PRIVATE_SYMBOLS& symbols) : symbols_(symbols) {
    slots_.assign(static_cast<std::size_t>(indirect_slot()) + 1, -1);
}

std::size_t LOCAL_VALUES::HASH::operator()(const KEY& key) const {
    std::uint64_t hash = static_cast<std::uint64_t>(key.op);
    const auto mix = [&hash](std::uint64_t part) {
        hash = (hash ^ part) * 0x9e3779b97f4a7c15 + (hash >> 29);
    };
    mix(static_cast<std::uint32_t>(key.left));
    mix(static_cast<std::uint32_t>(key.right));
    mix(static_cast<std::uint32_t>(key.version));
    mix(reinterpret_cast<std::uintptr_t>(key.type));
    mix(reinterpret_cast<std::uintptr_t>(key.payload));
    return static_cast<std::size_t>(hash ^ (hash >> 32));
}

// --- Numbers.

int LOCAL_VALUES::fresh() {
    constant_.push_back(0);
    leaders_.push_back(-1);
    return static_cast<int>(constant_.size()) - 1;
}

int LOCAL_VALUES::number_of(const KEY& key, bool is_constant) {
    const auto [entry, is_new] = numbers_.try_emplace(key, 0);
    if (is_new) {
        entry->second = fresh();
        constant_.back() = is_constant ? 1 : 0;
    }
    return entry->second;
}

int LOCAL_VALUES::of_leaf(const NODE* leaf) {
    TYPE* type = leaf->type != nullptr ? leaf->type->normalized() : nullptr;
    switch (leaf->op) {
        case ICON:
            return number_of({ICON, static_cast<int>(leaf->u.lval.low), static_cast<int>(leaf->u.lval.high),
                              leaf->u.lval.is_negative() ? 1 : 0, type, nullptr},
                             true);
        case FCON:
            return number_of({FCON, static_cast<int>(get_ieee_flt_fmt(leaf->fval())), 0, 0, type, nullptr},
                             true);
        case NAME: return number_of({NAME, 0, 0, 0, type, leaf->symbol()}, true);
        default: {
            const int value = fresh();
            if (leaf->op == SCON) constant_.back() = 1;
            return value;
        }
    }
}

int LOCAL_VALUES::of_operator(int op, TYPE* type, int left, int right, const void* payload) {
    if (right >= 0 && left > right && commute_inv[op] != ILLOP) {
        std::swap(left, right);
        op = commute_inv[op];
    }
    const bool constant = is_constant(left) && (right < 0 || is_constant(right));
    return number_of({op, left, right, 0, type != nullptr ? type->normalized() : nullptr, payload}, constant);
}

LOCAL_VALUES::KEY LOCAL_VALUES::contents_key(int place, TYPE* type, const REGION& region) {
    int version = 0, reached = -1;
    switch (region.kind) {
        case REGION::PRIVATE: version = slot(region.number); break;
        case REGION::OBJECT:
            version = slot(object_slot(region.object));
            reached = slot(indirect_slot());
            break;
        case REGION::ANY: version = slot(any_slot()); break;
    }
    return {CONTENTS, place, reached, version, type->normalized(), nullptr};
}

int LOCAL_VALUES::of_contents(int place, TYPE* type, const REGION& region) {
    return number_of(contents_key(place, type, region), false);
}

void LOCAL_VALUES::set_contents(int place, TYPE* type, const REGION& region, int value) {
    numbers_[contents_key(place, type, region)] = value;
}

// --- Places.

namespace {

// The operand of a pointer computation that carries the address; null where the tree is none.
NODE* base_of_address(NODE* address) {
    switch (address->op) {
        case PLUS:
            if (address->left->type->is_ptr()) return address->left;
            return address->right->type->is_ptr() ? address->right : nullptr;
        case MINUS: return address->left->type->is_ptr() ? address->left : nullptr;
        case PCONV: return address->left->type->is_ptr() ? address->left : nullptr;
        default: return nullptr;
    }
}

} // namespace

LOCAL_VALUES::REGION LOCAL_VALUES::region_of(NODE* place) const {
    for (;;) {
        switch (place->op) {
            case STDOT: place = place->left; break;
            case NAME: {
                SYMTAB* symbol = place->symbol();
                const int number = symbols_.number_of(symbol);
                if (number >= 0) return {REGION::PRIVATE, number, symbol};
                return {REGION::OBJECT, -1, symbol};
            }
            case UMULT:
            case STREF: {
                NODE* address = place->left;
                while (NODE* base = base_of_address(address)) address = base;
                if (address->op != UAND) return {REGION::ANY, -1, nullptr};
                place = address->left;
                break;
            }
            default: return {REGION::ANY, -1, nullptr};
        }
    }
}

// --- State.

int LOCAL_VALUES::any_slot() const { return symbols_.count(); }

int LOCAL_VALUES::object_slot(SYMTAB* object) {
    const auto [entry, is_new] = object_slots_.try_emplace(object, static_cast<int>(slots_.size()));
    if (is_new) slots_.push_back(-1);
    return entry->second;
}

int LOCAL_VALUES::slot(int index) {
    const auto i = static_cast<std::size_t>(index);
    if (slots_[i] < 0) {
        const int value = fresh();
        // Back to unknown where this path ends: another one starts from another state.
        slot_log_.push_back({index, -1});
        slots_[i] = value;
    }
    return slots_[i];
}

void LOCAL_VALUES::set_slot(int index, int value) {
    slot_log_.push_back({index, slots_[static_cast<std::size_t>(index)]});
    slots_[static_cast<std::size_t>(index)] = value;
}

void LOCAL_VALUES::store(const REGION& region) {
    switch (region.kind) {
        case REGION::PRIVATE: set_slot(region.number, fresh()); return;
        case REGION::OBJECT:
            set_slot(object_slot(region.object), fresh());
            set_slot(any_slot(), fresh());
            return;
        case REGION::ANY: clobber_memory(); return;
    }
}

void LOCAL_VALUES::clobber_memory() {
    set_slot(any_slot(), fresh());
    set_slot(indirect_slot(), fresh());
}

void LOCAL_VALUES::set_leader(int value, int occurrence) {
    int& leader = leaders_[static_cast<std::size_t>(value)];
    leader_log_.push_back({value, leader});
    leader = occurrence;
}

void LOCAL_VALUES::close_scope(const MARK& mark) {
    for (; slot_log_.size() > mark.slots; slot_log_.pop_back())
        slots_[static_cast<std::size_t>(slot_log_.back().index)] = slot_log_.back().before;
    for (; leader_log_.size() > mark.leaders; leader_log_.pop_back())
        leaders_[static_cast<std::size_t>(leader_log_.back().index)] = leader_log_.back().before;
}

void LOCAL_VALUES::close_conditional(const MARK& mark) {
    std::vector<int> changed;
    for (std::size_t i = mark.slots; i < slot_log_.size(); i++) changed.push_back(slot_log_[i].index);
    close_scope(mark);
    for (int index : changed) set_slot(index, fresh());
}
