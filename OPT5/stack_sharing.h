// Frame space shared by variables of blocks of the source that never live together.
//
// While a function is read, its blocks and their variables are noted. The step then gives the variables of
// disjoint blocks room in one local of a union type.

#ifndef OPT5_STACK_SHARING_H
#define OPT5_STACK_SHARING_H

#include <vector>

class SYMTAB;

// What is noted of one function. Belongs to its FUNINFO.
struct STACK_SHARING {
    struct SCOPE {
        int level;                      // as symbols of the scope have it
        int parent;                     // place in `scopes`, ahead of this one; -1 for the outermost
        std::vector<SYMTAB*> variables; // those of some size, in order of declaration
    };
    std::vector<SCOPE> scopes; // in order of opening
    int open = -1;             // the innermost scope that is open
};

// Forgets what is noted of the current function.
void init_stack_sharing();
// Opens a scope of that level inside the open one of the current function; scopes of that level and deeper
// ones that are open still are closed.
void begin_stack_sharing_scope(int level);
// Closes the innermost open scope; nothing happens when none is open.
void end_stack_sharing_scope();
// Notes a variable of the innermost open scope. One that is too small to matter, or that has to stay a symbol
// of its own, is not noted; nor is any when no scope is open.
void add_stack_sharing_variable(SYMTAB* symbol);
// Takes the variable back, wherever it was noted.
void delete_stack_sharing_variable(SYMTAB* symbol);

// Moves variables of disjoint blocks of the current function to members of one new local, a union with a
// structure for each block, where that saves a worthwhile amount of the frame. Only arrays, structures and
// unions that are in memory anyway move. Nothing at level 0, and in a function whose flow is not known.
// Names of the variables become member accesses; blocks and edges stay. Linear.
void build_stack_sharing_type();

#endif
