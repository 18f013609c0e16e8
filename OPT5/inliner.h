// Which calls are integrated: policies over the call sites of the file.

#ifndef OPT5_INLINER_H
#define OPT5_INLINER_H

#include <cstdint>
#include <string>

class NODE;
struct FUNINFO;
struct PSN;

// One call of a function, as it stands when the policy decides. Lives to the end of the run.
struct CALLSITE {
    FUNINFO* caller;
    FUNINFO* callee;          // null when it cannot be told
    std::int32_t index;       // the call's unique_call_index
    const PSN* psn;           // null: no position
    std::int16_t loop_height; // 0 outside of loops, else the height of the loop tree under the block's loop
    std::uint16_t loop_level; // nesting of the block's loop
    std::int8_t nargs, nconstargs;
    std::int32_t pressure; // of the block
    float fold_ratio;      // nodes of the callee before, over after folding for this site
    double frequency;      // of the block for one entry into the caller; -1.0 at first, 0.0 when not known
    bool postdominates;    // the block post-dominates the entry
    bool args_match;       // the arguments are what the callee's parameters are
    float temperature;     // priority
    NODE* args;            // private copy of the arguments; null without

    // "call from CALLER (FILE LINE) to CALLEE" for reports.
    std::string description() const;
};

// Decides for every call site of the file whether it is to be integrated; see the policies.
void auto_inline_call_sites();

#endif
