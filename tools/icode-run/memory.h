// The memory of the program that runs: units of 16 bits, objects with bounds and lifetimes.

#ifndef TOOLS_ICODE_RUN_MEMORY_H
#define TOOLS_ICODE_RUN_MEMORY_H

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/icode-run/values.h"

// A fault of the program that runs.
struct program_fault : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// An object in memory; the name is stable against a different layout, for traces.
struct memory_object {
    std::string name;
    std::uint32_t base = 0;
    std::uint32_t units = 0;
    bool is_function = false;
    bool is_const = false;
    bool is_local = false;
};

// Globals and functions stand at the bottom, the heap grows up behind them, the stack down from the top. A
// unit that belongs to nobody stands between neighbours, so that one step too far is seen. Address 0 is
// never mapped.
class memory {
  public:
    // `units`: size of the address space. With `check`, locals are tracked until they are first stored to.
    memory(std::uint32_t units, bool check);

    std::uint32_t add_static(const std::string& name, std::uint32_t units, std::uint32_t align,
                             bool is_function);
    void set_const(std::uint32_t address) { objects_[owner_[address]].is_const = true; }

    // The stack: locals are entered in order and leave all at once, down to a mark.
    struct mark {
        std::uint32_t top;
        std::uint32_t objects;
    };
    mark stack_mark() const { return {stack_, static_cast<std::uint32_t>(stack_objects_.size())}; }
    std::uint32_t push_local(const std::string* name, std::uint32_t units, std::uint32_t align);
    void reserve_stack(std::uint32_t units);
    void release(mark to);

    // The heap. 0 when there is no room; freeing what is no block of the heap is a fault.
    std::uint32_t allocate(std::uint32_t units);
    void release_block(std::uint32_t address);
    std::uint32_t block_size(std::uint32_t address) const;

    // Units as they stand; the caller has checked the place.
    std::uint16_t* at(std::uint32_t address) { return &units_[address]; }

    // One object must hold all units of the access and be alive.
    void check(std::uint32_t address, std::uint32_t units, bool store) {
        if (address + units > owner_.size() || address + units < address) bad_access(address, store);
        const std::uint32_t owner = owner_[address];
        if (owner == 0 || owner_[address + units - 1] != owner) bad_access(address, store);
        if (store ? objects_[owner].is_const || objects_[owner].is_function : objects_[owner].is_function)
            bad_access(address, store);
        if (check_) check_initialised(address, units, store);
    }

    std::int64_t load(KIND kind, std::uint32_t address) {
        const unsigned units = units_of(kind);
        check(address, units, false);
        return peek(kind, address);
    }
    void store(KIND kind, std::uint32_t address, std::int64_t value) {
        const unsigned units = units_of(kind);
        check(address, units, true);
        poke(units, address, value);
    }
    std::int64_t peek(KIND kind, std::uint32_t address) const {
        std::uint64_t bits = 0;
        for (unsigned i = 0; i < units_of(kind); i++)
            bits |= static_cast<std::uint64_t>(units_[address + i]) << (16 * i);
        return normalise(kind, bits);
    }
    void poke(unsigned units, std::uint32_t address, std::int64_t value) {
        for (unsigned i = 0; i < units; i++)
            units_[address + i] = static_cast<std::uint16_t>(static_cast<std::uint64_t>(value) >> (16 * i));
    }
    void copy(std::uint32_t to, std::uint32_t from, std::uint32_t units);

    // "name+offset" of an address, for traces.
    std::string describe(std::uint32_t address) const;
    // The function whose address it is, by its place among the functions, or -1.
    const memory_object* object_at(std::uint32_t address) const {
        return address < owner_.size() && owner_[address] != 0 ? &objects_[owner_[address]] : nullptr;
    }

  private:
    [[noreturn]] void bad_access(std::uint32_t address, bool store) const;
    void check_initialised(std::uint32_t address, std::uint32_t units, bool store);
    std::uint32_t new_object(const std::string& name, std::uint32_t base, std::uint32_t units);

    std::vector<std::uint16_t> units_;
    std::vector<std::uint32_t> owner_;      // object of each unit, 0 for none
    std::vector<std::uint8_t> initialised_; // with check_ only
    std::vector<memory_object> objects_;    // entry 0 is nobody
    std::vector<std::uint32_t> free_objects_;
    std::vector<std::uint32_t> stack_objects_;
    std::uint32_t bottom_ = 16; // first unit above the static objects
    std::uint32_t stack_ = 0;   // lowest unit of the stack
    std::uint32_t heap_end_ = 0;
    bool check_ = false;
    unsigned next_block_ = 1;

    struct heap_gap {
        std::uint32_t base, units;
    };
    std::vector<heap_gap> gaps_; // free parts of the heap, by address
};

#endif
