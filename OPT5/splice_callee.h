// One call replaced by a copy of its callee.

#ifndef OPT5_SPLICE_CALLEE_H
#define OPT5_SPLICE_CALLEE_H

#include <cstdint>
#include <vector>

#include "copy_cfg.h"

class BLOCK_BUILDER;
class LS;
class NODE;
class SYMTAB;
struct FUNINFO;
struct LIST;
struct PSN;

// Brings callees into the current function and remembers which copied block came with which call.
class CALLEE_SPLICER {
  public:
    CALLEE_SPLICER();
    // Whether the call passes what the callee's integrable definition expects.
    static bool can_bind(const NODE* call, const FUNINFO* callee);
    // Splices a copy of the callee's integrable definition in where the builder stands: arguments are bound,
    // control passes through the copy and comes out in a new block, which the builder goes on with. What the
    // callee returns is stored in `target`; null: it is dropped. Consumes the call, whose arguments must hold
    // no call that is to be integrated itself. `block` is the one of the call. Linear in what is copied.
    void integrate(BLOCK_BUILDER& builder, NODE* call, FUNINFO* callee, SYMTAB* target, const BBLK* block);
    // The scope in which the block's calls stand.
    LS* scope_of(const BBLK* block) const;

  private:
    // What came with one call.
    struct INSTANCE {
        LS* scope = nullptr; // of the outermost locals
        int notes = -1;      // its outermost scope among the notes for stack sharing; -1: not noted
    };
    int instance_of(const BBLK* block) const;
    void merge_symbols(CFG_COPY& copy);
    void merge_scopes(CFG_COPY& copy, const NODE* call, INSTANCE& instance, const BBLK* block);
    void merge_notes(const FUNINFO* definition, const CFG_COPY& copy, INSTANCE& instance, const BBLK* block);
    unsigned merge_table(CFG_COPY& copy, unsigned region);
    void adjust_calls(NODE* tree);
    void adjust_block(BBLK* bb);
    void replace_return(LIST* cell);
    void bind_arguments(BLOCK_BUILDER& builder, NODE* call, CFG_COPY& copy);

    std::vector<INSTANCE> instances_; // the first one is the function itself
    std::vector<int> instance_of_;    // by block id
    // Of the call in work.
    const NODE* call_ = nullptr;
    SYMTAB* callee_ = nullptr;
    SYMTAB* target_ = nullptr;
    BBLK* behind_ = nullptr; // where control comes out
    unsigned region_ = 0;    // of exceptions
    unsigned offset_ = 0;    // of the callee's table in the caller's
};

#endif
