#include "register_pressure.h"

#include <algorithm>
#include <cstddef>

#include "accesses.h"
#include "bblk.h"
#include "fileopt.h"
#include "files.h"
#include "natural_loops.h"
#include "node.h"
#include "symbol.h"
#include "types.h"

REGISTER_PRESSURE::REGISTER_PRESSURE() {
    const PRIVATE_SYMBOLS symbols;
    const LIVENESS liveness(symbols);
    pressure_.assign(currfuninfo->blocks.size(), 0);
    live_here_.assign(static_cast<std::size_t>(symbols.count()), nullptr);
    for (int i = 0; i < symbols.count(); i++) is_scalar_.push_back(symbols.symbol(i)->type->is_scalar());
    const auto all = static_cast<int>(std::count(is_scalar_.begin(), is_scalar_.end(), true));
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        const int pressure = symbols.flow_is_known() ? measure(bb, symbols, liveness) : all;
        pressure_[bb->uon()] = pressure;
        maximum_ = std::max(maximum_, pressure);
    }
}

int REGISTER_PRESSURE::of(const BBLK* bb) const { return pressure_[bb->uon()]; }

// Goes through the block from its end: a read makes its symbol live, a write ends that.
int REGISTER_PRESSURE::measure(const BBLK* bb, const PRIVATE_SYMBOLS& symbols, const LIVENESS& liveness) {
    int live = 0;
    liveness.for_each_live_out(bb, [&](int number) {
        if (!is_counted(number)) return;
        live_here_[static_cast<std::size_t>(number)] = bb;
        live++;
    });
    std::vector<ACCESS> accesses;
    for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next)
        list_accesses(cell->first, accesses);
    int most = live;
    for (auto access = accesses.rbegin(); access != accesses.rend(); ++access) {
        const int number = symbols.number_of(access->name->symbol());
        if (number < 0 || !is_counted(number)) continue;
        const BBLK*& where = live_here_[static_cast<std::size_t>(number)];
        if (access->kind == ACC_READ && where != bb) {
            where = bb;
            most = std::max(most, ++live);
        } else if (access->kind == ACC_WRITE && !access->conditional && where == bb) {
            where = nullptr;
            live--;
        }
    }
    return most;
}

int register_pressure_for_loop(const REGISTER_PRESSURE& pressure, const NATURAL_LOOPS& loops) {
    if (loops.loops().empty()) return pressure.maximum();
    int most = 0;
    for (const NATURAL_LOOP& loop : loops.loops())
        for (const BBLK* bb : loop.contents) most = std::max(most, pressure.of(bb));
    return most;
}
