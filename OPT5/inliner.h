// Which calls are integrated: policies over the call sites of the file.
//
// A site is accepted by setting its bit in the caller's `inlined_sites`; the callee then gets its integrable
// definition. Bodies stay as they are. What a policy may not do is the same for all: a site is only accepted
// if the caller stands ahead of the callee in the call graph's order, so that integration comes to an end.

#ifndef OPT5_INLINER_H
#define OPT5_INLINER_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class NODE;
class SITE_SELECTION;
struct FUNINFO;
struct PSN;

// What becomes of a call site, and why.
enum class SITE_FATE : std::uint8_t {
    INLINED,
    NOT_CHOSEN, // a candidate that the policy's tests pass over
    GROWTH,     // the caller, or the program, would grow beyond a limit
    NOT_WANTED, // a candidate that the policy drops ahead of its tests
    UNKNOWN_CALLEE,
    NOT_DEFINED,
    RECURSIVE,
    VARARGS,
    CANNOT_INLINE,
    NEVER_RETURNS,
    NO_BODY,
    ARGUMENTS,
    FORBIDDEN, // by the option
    LEVEL,
    TOO_LARGE, // for a function that is not declared inline
    SYNONYM,
};

// One call of a function, as it stands when the policy decides. Lives to the end of the run, or until the
// policy decides again.
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
    double frequency;      // of the block for one entry into the caller; 0.0 when not known
    bool postdominates;    // the block post-dominates the entry
    bool args_match;       // the arguments are what the callee's parameters are
    float temperature;     // priority
    NODE* args;            // private copy of the arguments while a policy that reads it decides; else null
    SITE_FATE fate;

    // "call from CALLER (FILE LINE) to CALLEE" for reports.
    std::string description() const;
};

// The functions and sites that one decision is about.
struct INLINING {
    std::vector<FUNINFO*> functions; // of the ordered list, without the root
    std::vector<CALLSITE*> sites;    // candidates, in the order in which they are tried
    SITE_SELECTION& selection;
};

// A policy. Limits are in units of time: the sum of the squares of the functions' estimated sizes.
class INLINER {
  public:
    std::int64_t static_limit = 0; // for functions declared inline; 0 for none
    std::int64_t auto_limit = 0;   // for other functions

    virtual ~INLINER() = default;
    // Whether a candidate is tried ahead of those that nobody has asked for.
    virtual bool static_inlining_predicate(const CALLSITE& site) const;
    // Sets the limits, and orders the sites; may drop some.
    virtual void further_setup(INLINING& inlining) = 0;
    // Tries what static_inlining_predicate does not ask for.
    virtual void auto_inlining_passes(INLINING& inlining) = 0;
    // Collects the call sites of the current function, and its estimates.
    virtual void collect_pass_1_info() = 0;
    // Whether integration stops where copies stand in copies too deep.
    virtual bool warn_inline_recursion_limit() const = 0;
    virtual double site_benefit(const CALLSITE& site) const;
};

// Goes by the size of functions alone.
class OLD_INLINER : public INLINER {
  public:
    bool static_inlining_predicate(const CALLSITE& site) const override;
    void further_setup(INLINING& inlining) override;
    void auto_inlining_passes(INLINING& inlining) override;
    void collect_pass_1_info() override;
    bool warn_inline_recursion_limit() const override { return true; }

  private:
    std::int64_t total_inlined_size(const FUNINFO* function, std::int64_t times) const;

    std::vector<std::int64_t> totals_; // of one call, by position in the ordered list
};

// The same, but what is declared inline is inlined within limits.
class REVISED_OLD_INLINER : public OLD_INLINER {
  public:
    bool static_inlining_predicate(const CALLSITE& site) const override;
    void further_setup(INLINING& inlining) override;
};

// Weighs what a site gains against what it costs.
class NEW_INLINER : public INLINER {
  public:
    void further_setup(INLINING& inlining) override;
    void auto_inlining_passes(INLINING& inlining) override;
    void collect_pass_1_info() override;
    bool warn_inline_recursion_limit() const override { return false; }
    double site_benefit(const CALLSITE& site) const override;
};

// Tries the sites in which most time is spent first.
class NEWER_INLINER : public INLINER {
  public:
    void further_setup(INLINING& inlining) override;
    void auto_inlining_passes(INLINING& inlining) override;
    void collect_pass_1_info() override;
    bool warn_inline_recursion_limit() const override { return false; }
    double site_benefit(const CALLSITE& site) const override;
};

// As NEW_INLINER, with gains weighed by how often the site runs.
class INLINER_5 : public INLINER {
  public:
    void further_setup(INLINING& inlining) override;
    void auto_inlining_passes(INLINING& inlining) override;
    void collect_pass_1_info() override;
    bool warn_inline_recursion_limit() const override { return false; }
    double site_benefit(const CALLSITE& site) const override;
};

// The policy in force; made by init_fileopts.
extern std::unique_ptr<INLINER> inliner;

constexpr int NUMBER_OF_INLINERS = 5;
// One of the policies, from 1 in the order above. Any other number gives the one that is in force by default.
std::unique_ptr<INLINER> make_inliner(int number);

// Decides for every call site of the file whether it is to be integrated. May run again: everything is then
// decided anew. Near linear in the bodies and the call sites.
void auto_inline_call_sites();

// --- What policies and reports share.

// Functions that the source asks to be inlined, and those that are in any case.
bool is_declared_inline(const FUNINFO* function);
bool is_always_inlined(const FUNINFO* function);

// Growth of the caller by one more copy of the callee, in units of size.
double site_cost(const CALLSITE& site);

#endif
