// What a pass knows of the values of symbols.

#ifndef OPT5_SNMAP_H
#define OPT5_SNMAP_H

#include <cstddef>
#include <cstdio>
#include <memory>
#include <unordered_map>
#include <vector>

class NODE;
class SYMTAB;

// A map from a symbol to the tree of its value. The trees belong to the map; they come from the pool of the
// function whose symbols these are, so the map must be cleared before the function ends. There is no table
// until the first value is set, and none after clear().
class SNMAP {
  public:
    // The symbol's value, null when there is none. With `copy` the caller gets a tree of its own.
    NODE* value(const SYMTAB* symbol, bool copy) const;
    // Takes the tree; a value that the symbol has already is erased.
    void set_value(SYMTAB* symbol, NODE* tree);
    void remove(const SYMTAB* symbol);
    void clear();
    std::size_t count() const { return table_ != nullptr ? table_->index.size() : 0; }

    // Entries in the order in which they were made.
    void print(std::FILE* stream) const;

  private:
    struct ENTRY {
        SYMTAB* symbol; // null: removed
        NODE* tree;
    };
    struct TABLE {
        std::vector<ENTRY> entries;
        std::unordered_map<const SYMTAB*, std::size_t> index; // never walked
    };
    ENTRY* find(const SYMTAB* symbol) const;

    std::unique_ptr<TABLE> table_;
};

#endif
