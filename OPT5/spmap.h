// What the pointers of a function are known to point to.

#ifndef OPT5_SPMAP_H
#define OPT5_SPMAP_H

#include <cstdint>
#include <cstdio>
#include <unordered_map>
#include <vector>

class NODE;
class SYMTAB;

// The place that a pointer's value lies in: an object, and where in it.
struct POINTEE {
    SYMTAB* object = nullptr; // null: not known
    std::int64_t offset = 0;  // address units; only where `is_precise`
    bool is_precise = false;
};

// A map from a pointer that is assigned once to what it points to, as the last run of find_single_assignments
// found it. It stays with the function; a pass that gives a pointer another definition clears it.
class SPMAP {
  public:
    bool is_bound(const SYMTAB* pointer) const { return map_.contains(pointer); }
    // The pointee; one without an object where the pointer is not bound.
    POINTEE pointee(const SYMTAB* pointer) const;
    // Binds the pointer to the object in which the address lies; false, and no entry, if that is not known.
    bool set_pointee(SYMTAB* pointer, NODE* address);
    void clear();

    // Entries in the order in which they were made.
    void print(std::FILE* stream) const;

  private:
    std::unordered_map<const SYMTAB*, POINTEE> map_; // never walked
    std::vector<const SYMTAB*> order_;
};

#endif
