// How many registers the current function would like to have at once.

#ifndef OPT5_REGISTER_PRESSURE_H
#define OPT5_REGISTER_PRESSURE_H

#include <vector>

#include "liveness.h"

class BBLK;
class NATURAL_LOOPS;

// The pressure of a block is the largest number of private scalars that are live at one point of it. Where
// the flow is not known, all of them are live everywhere. Linear beside LIVENESS; edges must be right, and
// DFNs are renumbered. A snapshot.
class REGISTER_PRESSURE {
  public:
    REGISTER_PRESSURE();

    int of(const BBLK* bb) const;
    int maximum() const { return maximum_; }

  private:
    int measure(const BBLK* bb, const PRIVATE_SYMBOLS& symbols, const LIVENESS& liveness);
    bool is_counted(int symbol) const { return is_scalar_[static_cast<std::size_t>(symbol)]; }

    std::vector<int> pressure_;          // by block id
    std::vector<bool> is_scalar_;        // by number of the private symbol
    std::vector<const BBLK*> live_here_; // by number of the private symbol: the block where it is live now
    int maximum_ = 0;
};

// The largest pressure of a block of the outermost loops; of any block where there is no loop.
int register_pressure_for_loop(const REGISTER_PRESSURE& pressure, const NATURAL_LOOPS& loops);

#endif
