// Copying a whole body: flow graph, symbols, scopes and exception table.

#ifndef OPT5_COPY_CFG_H
#define OPT5_COPY_CFG_H

#include <cstdint>
#include <unordered_map>
#include <vector>

#include "if_client.h"

class BBLK;
class LS;
class SYMTAB;
struct FUNINFO;

// A body that belongs to a function but does not stand in its lists.
struct CFG_COPY {
    BBLK* first = nullptr;    // blocks linked by `next` and `prev`, the first one's `prev` is the last
    BBLK* last = nullptr;     // the copy of the exit block
    SYMTAB* params = nullptr; // in order
    SYMTAB* locals = nullptr; // in order
    SYMTAB* temps = nullptr;  // newest first
    LS* scopes = nullptr;     // root of the copied tree
    std::vector<EHT_ENTRY> eht;
    std::unordered_map<const SYMTAB*, SYMTAB*> symbols; // what became of each local symbol; never walked
};

// A copy of the local symbol for the current function, with a serial number and pragmas of its own. What passes
// have noted in it, its scope, its initialiser and its place on a list are left behind.
SYMTAB* copy_symbol(const SYMTAB* symbol);

// Copies the body of `from` into the pool of `to`, whose block ids, symbol serials, temporaries and labels it
// counts on with; the lists of `to` stay as they are. Statements, positions, frequencies, call sites and the
// mark of the argument prolog come along; names of symbols of `from` become names of their copies. Both may
// be the same function. Edges of the copy are right. Linear.
CFG_COPY copy_cfg(const FUNINFO* from, FUNINFO* to);

#endif
