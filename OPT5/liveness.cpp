#include "liveness.h"

#include "bblk.h"
#include "fileopt.h"
#include "files.h"
#include "node.h"

LIVENESS::LIVENESS(const PRIVATE_SYMBOLS& symbols) : symbols_(symbols) {
    renumber_bblocks();
    bit_of_symbol_.assign(static_cast<std::size_t>(symbols.count()), -1);
    number_bits();
    words_ = (symbol_of_bit_.size() + 63) / 64;
    const std::size_t size = (static_cast<std::size_t>(currfuninfo->bb_count) + 1) * words_;
    live_in_.assign(size, 0);
    live_out_.assign(size, 0);
    if (words_ == 0 || !symbols.flow_is_known()) return;
    reads_.assign(size, 0);
    writes_.assign(size, 0);
    collect();
    live_in_ = reads_;
    solve();
}

std::size_t LIVENESS::row(const BBLK* bb) const { return static_cast<std::size_t>(bb->dfn) * words_; }

bool LIVENESS::is_live(const ROWS& rows, const BBLK* bb, int number) const {
    if (!symbols_.flow_is_known()) return true;
    const int bit = bit_of_symbol_[static_cast<std::size_t>(number)];
    return bit >= 0 && (rows[row(bb) + static_cast<std::size_t>(bit / 64)] >> (bit % 64) & 1) != 0;
}

namespace {

// Calls `visit` with the private symbol of each access in the block, in order.
template <class VISIT>
void for_each_private_access(const BBLK* bb, const PRIVATE_SYMBOLS& symbols, std::vector<ACCESS>& accesses,
                             VISIT visit) {
    accesses.clear();
    for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next)
        list_accesses(cell->first, accesses);
    for (const ACCESS& access : accesses)
        if (const int number = symbols.number_of(access.name->symbol()); number >= 0) visit(access, number);
}

bool ends_the_value(const ACCESS& access) { return access.kind == ACC_WRITE && !access.conditional; }

} // namespace

// A bit for each symbol that some block may read before it has written it.
void LIVENESS::number_bits() {
    std::vector<std::int32_t> written_in(bit_of_symbol_.size(), 0);
    std::vector<ACCESS> accesses;
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        for_each_private_access(bb, symbols_, accesses, [&](const ACCESS& access, int number) {
            const auto i = static_cast<std::size_t>(number);
            if (ends_the_value(access)) written_in[i] = bb->dfn;
            if (access.kind != ACC_READ || written_in[i] == bb->dfn || bit_of_symbol_[i] >= 0) return;
            bit_of_symbol_[i] = static_cast<int>(symbol_of_bit_.size());
            symbol_of_bit_.push_back(number);
        });
    }
}

void LIVENESS::collect() {
    std::vector<ACCESS> accesses;
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        for_each_private_access(bb, symbols_, accesses, [&](const ACCESS& access, int number) {
            const int bit = bit_of_symbol_[static_cast<std::size_t>(number)];
            if (bit < 0) return;
            const std::size_t word = row(bb) + static_cast<std::size_t>(bit / 64);
            const std::uint64_t mask = std::uint64_t{1} << (bit % 64);
            if (ends_the_value(access)) {
                writes_[word] |= mask;
            } else if (access.kind == ACC_READ && (writes_[word] & mask) == 0) {
                reads_[word] |= mask;
            }
        });
    }
}

// Takes what is live in the block's successors as live at its end; true if more is live at its start now.
bool LIVENESS::update(const BBLK* bb) {
    const std::size_t at = row(bb);
    for (const EDGE* edge = bb->successors; edge != nullptr; edge = edge->next) {
        const std::size_t from = row(edge->bb);
        for (std::size_t i = 0; i < words_; i++) live_out_[at + i] |= live_in_[from + i];
    }
    std::uint64_t more = 0;
    for (std::size_t i = 0; i < words_; i++) {
        const std::uint64_t live = reads_[at + i] | (live_out_[at + i] & ~writes_[at + i]);
        more |= live & ~live_in_[at + i];
        live_in_[at + i] = live;
    }
    return more != 0;
}

// Sweeps over the blocks, of which a sweep takes those whose successors have changed.
void LIVENESS::solve() {
    std::vector<BBLK*> order; // a block behind those that it leads to, as far as there is no loop
    clear_visited();
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        append_post_order(bb, &BBLK::successors, order);
    for (BBLK* bb : order) bb->visited = 1;
    for (bool again = true; again;) {
        again = false;
        for (BBLK* bb : order) {
            if (bb->visited == 0) continue;
            bb->visited = 0;
            if (!update(bb)) continue;
            for (const EDGE* edge = bb->predecessors; edge != nullptr; edge = edge->next) {
                edge->bb->visited = 1;
                again = true;
            }
        }
    }
}
