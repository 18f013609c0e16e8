// What the blocks of the current function may change, and what a tree reads: whether a value is still the
// same further on. Symbols are told apart by name only; all memory that can be reached by an address is one.

#ifndef OPT5_BLOCK_EFFECTS_H
#define OPT5_BLOCK_EFFECTS_H

#include <vector>

#include "accesses.h"

class BBLK;
class NODE;
class SYMTAB;

// What an evaluation may change.
struct TREE_CHANGES {
    bool memory = false; // a store through a pointer, a call
    bool all = false;    // assembly text, which nobody reads
    std::vector<const SYMTAB*> symbols;
};

// What a value depends on.
struct TREE_READS {
    bool memory = false;
    std::vector<const SYMTAB*> symbols;
};

// Sums the function up, once; valid until a statement changes. Linear.
class BLOCK_EFFECTS {
  public:
    BLOCK_EFFECTS();
    // Of a block that was there when the function was summed up.
    const TREE_CHANGES& of(const BBLK* bb) const;
    TREE_CHANGES changes_of(NODE* statement) const;
    TREE_READS reads_of(NODE* tree) const;
    // Whether control can come to a place that no edge leads to: a second return of setjmp, a handler of
    // exceptions.
    bool has_hidden_edges() const { return !private_.flow_is_known(); }
    // Whether there is a local or a parameter that the function's own flow is not alone with.
    bool has_exposed_locals() const;

  private:
    void note(const NODE* node, TREE_CHANGES& changes) const;
    bool is_memory(const SYMTAB* symbol) const { return private_.number_of(symbol) < 0; }

    const PRIVATE_SYMBOLS private_;
    std::vector<TREE_CHANGES> changes_; // by block
};

// Whether the tree is a call of a function that is known to change no memory that others can see.
bool call_leaves_memory_alone(NODE* call);

// Whether the changes touch what the reads depend on. Takes the symbols that it looks at from the budget;
// once that is used up the answer is yes.
bool bb_modifies_lvalue_in_tree(const TREE_CHANGES& changes, const TREE_READS& reads, int& budget);

#endif
