// Numbers for values: two trees that get the same number have the same value.
//
// A number belongs to a value, not to a place in the program. What a variable or memory holds at the point
// that has been reached is the state; stores change it, and scopes take it back. The work on one function is
// a walk over paths along which every block has one predecessor.

#ifndef OPT5_LOCAL_VALUES_H
#define OPT5_LOCAL_VALUES_H

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

class NODE;
class PRIVATE_SYMBOLS;
class SYMTAB;
class TYPE;

class LOCAL_VALUES {
  public:
    // What a store may change.
    struct REGION {
        enum KIND { PRIVATE, OBJECT, ANY } kind;
        int number;     // PRIVATE: of the symbol
        SYMTAB* object; // OBJECT: one that has a name, of whatever level
    };

    explicit LOCAL_VALUES(const PRIVATE_SYMBOLS& symbols);

    int fresh();
    // Of a leaf other than a variable's contents: constants, texts, functions.
    int of_leaf(const NODE* leaf);
    // Of a pure operator over values or places. `payload` tells operators of one number apart; may be null.
    int of_operator(int op, TYPE* type, int left, int right, const void* payload);
    // Of what the place, itself numbered, holds now; `type` is the type read.
    int of_contents(int place, TYPE* type, const REGION& region);
    int of_variable(int number) { return slot(number); }
    // Whether the value is the same in every run: for which no temporary is worth while.
    bool is_constant(int value) const { return constant_[static_cast<std::size_t>(value)] != 0; }

    // The object in which the place lies, as far as its shape tells.
    REGION region_of(NODE* place) const;

    // The state.
    void set_variable(int number, int value) { set_slot(number, value); }
    void store(const REGION& region);
    // Makes `value` what the place holds behind a store to it.
    void set_contents(int place, TYPE* type, const REGION& region, int value);
    void clobber_memory();

    // The occurrence that computes the value on the way here; -1 for none.
    int leader(int value) const { return leaders_[static_cast<std::size_t>(value)]; }
    void set_leader(int value, int occurrence);

    // Scopes: closing one takes back what has happened since it was opened. Where the part is one that
    // control may or may not have gone through, what it stores is unknown afterwards.
    struct MARK {
        std::size_t slots, leaders;
    };
    MARK open_scope() const { return {slot_log_.size(), leader_log_.size()}; }
    void close_scope(const MARK& mark);
    void close_conditional(const MARK& mark);

  private:
    struct KEY {
        int op;
        int left, right, version;
        const void* type;
        const void* payload;
        bool operator==(const KEY&) const = default;
    };
    struct HASH {
        std::size_t operator()(const KEY& key) const;
    };
    struct CHANGE {
        int index, before;
    };

    int number_of(const KEY& key, bool is_constant);
    int any_slot() const;
    int indirect_slot() const { return any_slot() + 1; }
    int object_slot(SYMTAB* object);
    int slot(int index);
    void set_slot(int index, int value);
    KEY contents_key(int place, TYPE* type, const REGION& region);

    const PRIVATE_SYMBOLS& symbols_;
    std::unordered_map<KEY, int, HASH> numbers_;
    std::vector<char> constant_;
    std::vector<int> leaders_;
    // What each private symbol holds; the state of all memory, which every store there changes; of memory
    // reached through pointers; of each object with a name. -1: not asked for on this path yet.
    std::vector<int> slots_;
    std::unordered_map<const SYMTAB*, int> object_slots_;
    std::vector<CHANGE> slot_log_, leader_log_;
};

#endif
