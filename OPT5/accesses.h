// Which locals, parameters and temporaries a statement reads and writes, and which of them only the flow of
// the function itself can touch.

#ifndef OPT5_ACCESSES_H
#define OPT5_ACCESSES_H

#include <cstdint>
#include <vector>

class NODE;
class SYMTAB;

enum ACCESS_KIND : std::uint8_t {
    ACC_READ,       // of the object or of a part
    ACC_WRITE,      // of the whole object
    ACC_PART_WRITE, // of a member: neither reads the object nor ends its value
    ACC_TAKEN,      // its address, a volatile access, or an operator that may do anything with it
    // Only from list_part_accesses.
    ACC_FAR_READ,  // through a pointer that no name gives; `name` is null
    ACC_FAR_WRITE, // the same
    ACC_ANY        // a call, or another operator that may read and write all memory; `name` is null
};

struct ACCESS {
    NODE* name;
    NODE* assignment; // of a write, and of the read that a compound assignment makes of its left side
    ACCESS_KIND kind;
    bool conditional;      // may be left out: stands in a part that is evaluated only under a condition
    NODE* place = nullptr; // the place read or written, from list_part_accesses; of ACC_ANY the operator
};

// Appends the statement's accesses to symbols of the function in the order in which they happen. A
// transfer's labels are none; the argument prolog writes its parameters and reads nothing. Linear.
void list_accesses(NODE* statement, std::vector<ACCESS>& accesses);

// The same for memory at large: accesses to globals are listed, and so are those through pointers and what
// calls may do. A place behind an address that is followed at once, `*(&a + i)`, is a part of the object.
void list_part_accesses(NODE* statement, std::vector<ACCESS>& accesses);

// The NAME of the object in which the place lies through members and addresses followed at once, null where
// a pointer's value leads to it. Indices may be anything that stays inside of the object.
NODE* name_of_part(NODE* place);

// The symbol's NAME of a place that lies in a named object at a fixed offset: the NAME itself or members of
// it. Null for other places.
NODE* name_of_place(NODE* place);

// Numbers the private symbols of the current function: locals, parameters and temporaries, neither volatile
// nor of static storage, whose address is not taken and which the exception table does not name. Every access
// to one is a NAME of it. Valid until a pass takes an address or makes a symbol. Linear to build.
class PRIVATE_SYMBOLS {
  public:
    // With `parts`, an address that is followed at once, `*(&a + i)`, does not count as taken.
    explicit PRIVATE_SYMBOLS(bool parts = false);

    int count() const { return static_cast<int>(symbols_.size()); }
    SYMTAB* symbol(int number) const { return symbols_[static_cast<std::size_t>(number)]; }
    // 0 to count() - 1; -1 for a symbol that is not private.
    int number_of(const SYMTAB* symbol) const;
    // Whether control moves along the edges only: no setjmp is called, and nothing is caught here.
    bool flow_is_known() const { return flow_is_known_; }

  private:
    void consider(SYMTAB* list);
    void scan(NODE* tree, std::vector<ACCESS>& accesses);
    void exclude(NODE* tree);
    void compact();

    std::vector<SYMTAB*> symbols_;
    std::vector<int> numbers_; // by serial
    bool flow_is_known_ = true;
    bool parts_;
    bool setjmp_is_declared_;
};

#endif
