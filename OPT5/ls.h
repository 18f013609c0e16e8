// The scope tree of a function: which symbol is declared in which block of the source.
//
// The root is the file's scope, its child the function's with the parameters, below it the body's with the
// outermost locals (level 2), and one more level for each nested block. Scopes live in the function's pool.

#ifndef OPT5_LS_H
#define OPT5_LS_H

#include <cstdint>
#include <cstdio>
#include <unordered_map>

class NODE;
class SYMTAB;
struct FUNINFO;
struct SYMLIST;

class LS {
  public:
    LS* parent = nullptr;
    LS* children = nullptr; // newest first
    LS* sibling = nullptr;
    SYMLIST* symbols = nullptr; // newest first
    int level = 0;              // 0 file, 1 parameters, 2 and up locals
    std::uint32_t sequence = 0; // the function's running number of scopes
    int owner = 0; // the number of the call that brought the scope here; 0 for the function's own

    // Opens a scope inside the function's open scope, which becomes the open one.
    static LS* open(FUNINFO* function);
    // Closes the open scope. False when none is open.
    static bool close(FUNINFO* function);
    // The scope of the function's outermost locals; null before it is opened.
    static LS* level_2_scope(const FUNINFO* function);

    // A copy of the tree from `root` on, in the current function's pool; null for null. `symbols` tells what
    // became of the symbols; what it does not hold stays behind. Enters each scope and its copy in `scopes`.
    // The symbols of the copy get their scopes. Linear.
    static LS* copy_scope_tree(const LS* root, const std::unordered_map<const SYMTAB*, SYMTAB*>& symbols,
                               std::unordered_map<const LS*, LS*>& scopes);

    // Gives this scope and all inside it new sequence numbers of the current function, levels deeper by
    // `delta`, which must not be 0, and the owner.
    void offset_scope(unsigned delta, int new_owner);
    // Hangs the scope, which has no parent, under this one, with levels to match.
    void splice_scope(LS* scope, int new_owner);

    // Makes scopes of the arrays that are stored with the callee's statements, under the scope of the call, whose
    // place is in the current function; see integrate_stmts.h.
    static void integrate_integrable_scopes(FUNINFO* callee, NODE* call);

    // Enters the symbol in this scope and makes it the symbol's.
    void add_symbol(SYMTAB* symbol);

    // Ends the run if the tree is inconsistent: levels that do not count up, symbols of another scope.
    static void validate(LS* root);
    // One line per scope, with its symbols, to the debug file.
    static void print(LS* root);
};

#endif
