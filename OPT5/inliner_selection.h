// Trying call sites one after the other, within limits.
//
// Each function has estimates of what it will be once the sites accepted so far are integrated: size, blocks,
// symbols, loops, calls, register pressure. To accept a site changes those of the caller, and of all
// functions that have accepted the caller in their turn. A site is tried by making the changes; if they break
// a limit, they are undone.

#ifndef OPT5_INLINER_SELECTION_H
#define OPT5_INLINER_SELECTION_H

#include <cstdint>
#include <functional>
#include <map>
#include <vector>

struct CALLSITE;
struct FUNINFO;

// 0: no limit.
struct SELECTION_LIMITS {
    std::int64_t time = 0;    // for the sum of the squares of all sizes
    std::int64_t size = 0;    // for the sum of all sizes
    std::uint32_t loops = 0;  // for the caller
    std::uint32_t blocks = 0; // for the caller
};

constexpr std::uint32_t INLINE_BLOCKS_LIMIT = 700;
constexpr std::uint32_t INLINE_LOOPS_LIMIT = 500;
// No function grows beyond this and twice its body, whatever asks for it: copies of copies grow
// exponentially.
constexpr std::uint32_t LARGEST_CALLER = 250000;

class SITE_SELECTION {
  public:
    // For these functions, whose estimates are those of their bodies. They must have their places in the
    // call graph's order.
    explicit SITE_SELECTION(const std::vector<FUNINFO*>& functions);

    // Accepts the sites, in order, that pass the test and break no limit. The test (none: all pass) is asked
    // with the caller as the current function. Returns how many were accepted. Linear in the sites, and in
    // the functions that have accepted a caller when it changes.
    int select(const std::vector<CALLSITE*>& sites, const std::function<bool(const CALLSITE&)>& test,
               const char* prefix, const SELECTION_LIMITS& limits);

    // The sum of the squares of the estimated sizes: big functions weigh in as they grow.
    std::int64_t time_sum() const { return time_; }
    // The sum of the estimated sizes.
    std::int64_t size_sum() const { return size_; }

    // What size and time count as: sums stay far from the ends of their type.
    static std::int64_t time_of(std::uint32_t size);
    static constexpr std::uint32_t LARGEST_SIZE = 1u << 23;

  private:
    struct ESTIMATES {
        std::uint32_t size, blocks, symbols, loops, calls;
        std::int32_t pressure;
        std::uint16_t remaining_sites;
    };
    struct SAVED {
        FUNINFO* function;
        ESTIMATES estimates;
    };
    // What one copy of the callee adds to its caller.
    struct GROWTH {
        std::int64_t size, blocks, symbols, loops, calls;
    };
    // A function that a change comes to, by as many ways as there will be copies in it.
    struct ARRIVAL {
        std::int64_t copies = 0;
        int depth = 0;
        std::int32_t pressure = 0;
    };

    void try_site(CALLSITE& site);
    void cascade(FUNINFO* from, const GROWTH& growth);
    void change(FUNINFO* function, const GROWTH& growth, std::int64_t copies, std::int32_t pressure);
    void set_size(FUNINFO* function, std::uint32_t size);
    void save(FUNINFO* function);
    void undo();
    bool breaks_a_limit(const FUNINFO* caller, const SELECTION_LIMITS& limits) const;
    void report_candidate(const CALLSITE& site, const char* prefix) const;
    void report_rejection(const FUNINFO* caller, const SELECTION_LIMITS& limits) const;
    void report_acceptance(const CALLSITE& site, const SELECTION_LIMITS& limits) const;
    void accept(CALLSITE& site);

    std::int64_t time_ = 0, size_ = 0;
    int accepted_ = 0;
    bool explodes_ = false; // the site in work makes some function grow beyond LARGEST_CALLER
    std::vector<std::vector<CALLSITE*>> accepted_of_; // by the position of the callee
    std::vector<SAVED> saved_;                        // before the site in work, latest last
    std::map<int, ARRIVAL, std::greater<>> arrivals_; // by position: callees ahead of their callers
    std::vector<FUNINFO*> by_position_;
};

// Prints to the debug file, or to standard output where there is none, if `inline_commentary` is set.
void comment_on_inlining(const char* format, ...) __attribute__((format(printf, 1, 2)));

#endif
