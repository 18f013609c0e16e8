// The target's memory: units of 16 bits, with the state of every unit beside it.

#ifndef ICODE_RUN_MEMORY_H
#define ICODE_RUN_MEMORY_H

#include <cstdint>
#include <cstring>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tools/icode-run/code.h"

namespace run {

// A fault of the program that runs: what happened, without the place.
struct fault {
    std::string what;
};

// State of one unit. A unit outside any living object has none of the bits.
enum unit_state : std::uint8_t {
    UNIT_READ = 1,  // may be read: part of an object, and stored to where that is checked
    UNIT_WRITE = 2, // may be stored to: part of an object that is not const
};

// An address space from the bottom up: null guard, globals, strings, stack; and from the top down: addresses
// of functions, heap. Between any two objects lies at least one unit that belongs to none, so that an access
// which runs over an end is seen.
class memory {
  public:
    // `pointer_bits` decides how far addresses reach; no more than `max_units` are provided.
    explicit memory(unsigned pointer_bits);

    std::uint32_t mask() const { return mask_; } // of an address

    // --- Before the program starts.

    // Room for a static object; throws fault "out of memory" when there is none left.
    address place_static(std::uint32_t units, std::uint32_t align, const std::string& name,
                         std::uint8_t state);
    // A part of the object that was placed last goes by a name of its own; parts come in order of address.
    void name_part(address at, std::uint32_t units, const std::string& name) {
        statics_.push_back({at, units, name});
    }
    // An address that stands for a function and can not be read or stored to.
    address place_function();
    // Fixes the bounds of stack and heap.
    void seal();
    // Stores into a static object whatever its state.
    void initialise(address at, std::uint64_t bit, unsigned bits, std::uint64_t value);

    // --- Access. An address may be any 32-bit number; n counts units, from 1 to 5.
    bool readable(address at, unsigned n) const { return all(at, n, UNIT_READ); }
    bool writable(address at, unsigned n) const { return all(at, n, UNIT_WRITE); }

    std::uint64_t get16(address at) const { return units_[at]; }
    std::uint64_t get32(address at) const { return get<std::uint32_t>(at); }
    std::uint64_t get64(address at) const { return get<std::uint64_t>(at); }
    void put16(address at, std::uint64_t value) { put<std::uint16_t>(at, value); }
    void put32(address at, std::uint64_t value) { put<std::uint32_t>(at, value); }
    void put64(address at, std::uint64_t value) { put<std::uint64_t>(at, value); }

    // Checked access for everything that is not hot; both throw.
    std::uint64_t load(address at, unsigned bits, bool is_signed) const;
    void store(address at, unsigned bits, std::uint64_t value);
    std::uint64_t load_field(address base, const bit_field& field) const;
    void store_field(address base, const bit_field& field, std::uint64_t value);
    std::uint16_t byte(address at) const; // one unit
    void set_byte(address at, std::uint16_t value);
    // Copies as if through a buffer. From one local to another, units without a value stay without one.
    void copy(address to, address from, std::uint32_t units);
    // The characters up to a zero unit, each cut to 8 bits.
    std::string text(address at) const;
    // Stores the characters and a zero.
    void put_text(address at, const std::string& characters);

    // --- Stack. Frames lie in ascending addresses.
    address stack_base() const { return stack_base_; }
    address stack_limit() const { return stack_limit_; }
    std::uint8_t* state(address at) { return &state_[at]; }
    void release(address at, std::uint32_t units) { std::memset(&state_[at], 0, units); }

    // --- Heap. 0 when there is no room above `stack_top`.
    address allocate(std::uint32_t units, address stack_top);
    // Ends the block's life; throws when there is no block that begins there.
    void free_block(address at);
    // Units of the living block that begins there; throws when there is none.
    std::uint32_t block_units(address at) const;

    // "name+offset" of a static object or heap block that holds the unit; empty when none does.
    std::string name_of(address at) const;
    [[noreturn]] void access_fault(address at, unsigned n, bool store) const;

  private:
    struct static_object {
        address at;
        std::uint32_t units;
        std::string name;
    };
    struct heap_block {
        std::uint32_t units;
        std::uint32_t extent; // what it takes of the heap, gap included
        std::uint32_t number; // in order of allocation, from 1
        bool live;
    };

    bool all(address at, unsigned n, std::uint8_t bit) const {
        const std::uint8_t* s = &state_[at & mask_];
        switch (n) {
            case 1: return (s[0] & bit) != 0;
            case 2: return (s[0] & s[1] & bit) != 0;
            case 4: return (s[0] & s[1] & s[2] & s[3] & bit) != 0;
            default:
                for (unsigned i = 0; i < n; i++)
                    if ((s[i] & bit) == 0) return false;
                return true;
        }
    }
    template <class T> std::uint64_t get(address at) const {
        T value;
        std::memcpy(&value, &units_[at], sizeof value);
        return value;
    }
    template <class T> void put(address at, std::uint64_t value) {
        const T image = static_cast<T>(value);
        std::memcpy(&units_[at], &image, sizeof image);
        for (unsigned i = 0; i < sizeof(T) / 2; i++) state_[at + i] |= UNIT_READ;
    }
    void add_free(address at, std::uint32_t units);
    void remove_free(address at);
    void retire();

    std::vector<std::uint16_t> units_;
    std::vector<std::uint8_t> state_;
    std::uint32_t mask_;
    std::uint32_t size_;
    address bottom_;
    address top_;
    address stack_base_ = 0;
    address stack_limit_ = 0;
    std::vector<static_object> statics_; // ascending
    std::map<address, heap_block> blocks_;
    std::map<address, std::uint32_t> free_; // free extents by address
    std::set<std::pair<std::uint32_t, address>> free_by_size_;
    std::deque<address> retired_; // freed, but not to be used again yet
    std::uint32_t retired_units_ = 0;
    std::uint32_t next_block_ = 1;
};

} // namespace run

#endif
