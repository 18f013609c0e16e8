// Which private symbols of the current function are live where its blocks begin and end.
//
// A symbol is live where its value may still be read. The sets are bit vectors with one bit for each symbol
// that some block may read before it writes it: no other is live between two blocks.

#ifndef OPT5_LIVENESS_H
#define OPT5_LIVENESS_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "accesses.h"

class BBLK;
class SYMTAB;

class LIVENESS {
  public:
    // For the current function, whose edges must be right; DFNs are renumbered. The symbols must be the
    // function's and outlive this. Without known flow every private symbol counts as live everywhere.
    explicit LIVENESS(const PRIVATE_SYMBOLS& symbols);

    // Whether the private symbol of that number is live there.
    bool is_live_in(const BBLK* bb, int number) const { return is_live(live_in_, bb, number); }
    bool is_live_out(const BBLK* bb, int number) const { return is_live(live_out_, bb, number); }

    // Calls `visit` with the number of every symbol that is live there, once. The flow must be known.
    template <class VISIT> void for_each_live_in(const BBLK* bb, VISIT visit) const {
        for_each(live_in_, bb, visit);
    }
    template <class VISIT> void for_each_live_out(const BBLK* bb, VISIT visit) const {
        for_each(live_out_, bb, visit);
    }

  private:
    using ROWS = std::vector<std::uint64_t>; // one row of `words_` words a block, by DFN

    std::size_t row(const BBLK* bb) const;
    bool is_live(const ROWS& rows, const BBLK* bb, int number) const;
    template <class VISIT> void for_each(const ROWS& rows, const BBLK* bb, VISIT visit) const {
        const std::uint64_t* words = rows.data() + row(bb);
        for (std::size_t i = 0; i < words_; i++)
            for (std::uint64_t rest = words[i]; rest != 0; rest &= rest - 1)
                visit(symbol_of_bit_[i * 64 + static_cast<std::size_t>(__builtin_ctzll(rest))]);
    }
    void number_bits();
    void collect();
    void solve();
    bool update(const BBLK* bb);

    const PRIVATE_SYMBOLS& symbols_;
    std::size_t words_ = 0;
    std::vector<int> bit_of_symbol_; // -1: never live between blocks
    std::vector<int> symbol_of_bit_;
    ROWS live_in_, live_out_;
    ROWS reads_, writes_; // read before written there; certainly written there
};

#endif
