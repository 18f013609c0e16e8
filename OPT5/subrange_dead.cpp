// Liveness of parts. Each object that is stored to has its bits cut where an access to it begins or ends; the
// pieces between the cuts are the elements of bit vectors. A read makes the pieces that it touches live, a
// store to a known place ends the life of those that it covers, and what may read all memory (a call, a read
// through a pointer) makes the pieces of all objects live that others can reach. Behind a return the objects
// of the function are dead, whoever may have their addresses.
//
//   s.a = 1; s.b = 2; s = t      the first two go
//   a[0] = 1; f(); a[0] = 2      stays where f may read a
//
// The sets hold all pieces for every block. Where that would be too much, everything counts as live between
// blocks.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

#include "accesses.h"
#include "bblk.h"
#include "bbutils.h"
#include "copyprop.h"
#include "dead_assigns.h"
#include "debug.h"
#include "dump.h"
#include "fileopt.h"
#include "files.h"
#include "node.h"
#include "object_parts.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "optypes.h"
#include "simp.h"
#include "subrange.h"
#include "symbol.h"
#include "types.h"

using namespace op;

namespace {

constexpr std::size_t MOST_WORDS = std::size_t{1} << 21; // of one set for each block
constexpr int MOST_ROUNDS = 3;

using WORD = std::uint64_t;

// The pieces of the objects that the function stores to, numbered.
class PIECES {
  public:
    explicit PIECES(const PRIVATE_SYMBOLS& symbols);

    struct RANGE {
        std::size_t first, last; // pieces [first, last)
        bool is_all;             // exactly the pieces of these bits
    };
    // Of an access to a named object; empty for an object that nothing is stored to.
    RANGE of(const ACCESS& access) const;
    std::size_t words() const { return (count_ + 63) / 64; }
    // Of objects that others can reach; of those that end with the function.
    const std::vector<WORD>& exposed() const { return exposed_; }
    const std::vector<WORD>& lasting() const { return lasting_; }

  private:
    struct OBJECT {
        std::vector<std::int64_t> cuts; // in order
        std::size_t first = 0;          // piece
        bool is_stored = false;
    };
    bool is_register(const SYMTAB* symbol) const {
        return symbol->type->is_scalar() && symbols_.number_of(symbol) >= 0;
    }
    void collect(std::vector<SYMTAB*>& order);

    const PRIVATE_SYMBOLS& symbols_;
    std::unordered_map<const SYMTAB*, OBJECT> objects_;
    std::size_t count_ = 0;
    std::vector<WORD> exposed_, lasting_;
};

void set_range(WORD* words, std::size_t first, std::size_t last, bool value) {
    while (first < last) {
        const std::size_t in_word = first % 64;
        const std::size_t bits = std::min<std::size_t>(64 - in_word, last - first);
        const WORD mask = (bits == 64 ? ~WORD{0} : (WORD{1} << bits) - 1) << in_word;
        if (value) {
            words[first / 64] |= mask;
        } else {
            words[first / 64] &= ~mask;
        }
        first += bits;
    }
}

bool any_in_range(const WORD* words, std::size_t first, std::size_t last) {
    while (first < last) {
        const std::size_t in_word = first % 64;
        const std::size_t bits = std::min<std::size_t>(64 - in_word, last - first);
        const WORD mask = (bits == 64 ? ~WORD{0} : (WORD{1} << bits) - 1) << in_word;
        if ((words[first / 64] & mask) != 0) return true;
        first += bits;
    }
    return false;
}

void PIECES::collect(std::vector<SYMTAB*>& order) {
    std::vector<ACCESS> accesses;
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next) {
            accesses.clear();
            list_part_accesses(cell->first, accesses);
            for (const ACCESS& access : accesses) {
                if (access.name == nullptr || is_register(access.name->symbol())) continue;
                SYMTAB* symbol = access.name->symbol();
                const auto [entry, is_new] = objects_.try_emplace(symbol);
                OBJECT& object = entry->second;
                if (is_new) {
                    order.push_back(symbol);
                    object.cuts = {0, static_cast<std::int64_t>(symbol->size)};
                }
                if (access.kind == ACC_TAKEN || access.place == nullptr) continue;
                const PART part = part_of_place(access.place);
                if (part.object != nullptr && part.is_exact) {
                    object.cuts.push_back(part.offset);
                    object.cuts.push_back(part.end());
                }
                if (access.assignment == cell->first && access.kind != ACC_READ) object.is_stored = true;
            }
        }
    }
}

PIECES::PIECES(const PRIVATE_SYMBOLS& symbols) : symbols_(symbols) {
    std::vector<SYMTAB*> order;
    collect(order);
    for (SYMTAB* symbol : order) {
        OBJECT& object = objects_.at(symbol);
        if (!object.is_stored || symbol->size == 0 || has_volatile_part(symbol->otype)) {
            objects_.erase(symbol);
            continue;
        }
        std::sort(object.cuts.begin(), object.cuts.end());
        object.cuts.erase(std::unique(object.cuts.begin(), object.cuts.end()), object.cuts.end());
        object.first = count_;
        count_ += object.cuts.size() - 1;
    }
    exposed_.assign(words(), 0);
    lasting_.assign(words(), 0);
    for (SYMTAB* symbol : order) {
        const auto found = objects_.find(symbol);
        if (found == objects_.end()) continue;
        const OBJECT& object = found->second;
        const std::size_t last = object.first + object.cuts.size() - 1;
        if (symbols_.number_of(symbol) < 0) set_range(exposed_.data(), object.first, last, true);
        if (!is_automatic(symbol)) set_range(lasting_.data(), object.first, last, true);
    }
}

PIECES::RANGE PIECES::of(const ACCESS& access) const {
    const auto found = objects_.find(access.name->symbol());
    if (found == objects_.end()) return {0, 0, false};
    const OBJECT& object = found->second;
    const RANGE whole{object.first, object.first + object.cuts.size() - 1, false};
    if (access.kind == ACC_TAKEN || access.place == nullptr) return whole;
    const PART part = part_of_place(access.place);
    if (part.object == nullptr || !part.is_exact) return whole;
    const auto piece_at = [&object](std::int64_t offset) {
        const auto cut = std::lower_bound(object.cuts.begin(), object.cuts.end(), offset);
        return object.first + static_cast<std::size_t>(cut - object.cuts.begin());
    };
    return {piece_at(part.offset), piece_at(part.end()), true};
}

class PART_LIVENESS {
  public:
    explicit PART_LIVENESS(const PIECES& pieces);
    // Whether a statement has gone.
    bool remove_dead();

  private:
    std::size_t row(const BBLK* bb) const { return static_cast<std::size_t>(bb->dfn) * words_; }
    void list(NODE* statement) {
        accesses_.clear();
        list_part_accesses(statement, accesses_);
    }
    void go_back_over(WORD* live);
    void start_at_end(const BBLK* bb, WORD* live) const;
    void go_back_over_block(const BBLK* bb, WORD* live);
    void solve();
    bool is_dead_store(NODE* statement, const WORD* live) const;
    bool remove_dead(BBLK* bb);

    const PIECES& pieces_;
    const std::size_t words_;
    bool knows_blocks_;
    std::vector<WORD> live_in_;
    std::vector<ACCESS> accesses_;
    std::vector<LIST*> cells_;
};

PART_LIVENESS::PART_LIVENESS(const PIECES& pieces) : pieces_(pieces), words_(pieces.words()) {
    renumber_bblocks();
    knows_blocks_ = words_ * (static_cast<std::size_t>(currfuninfo->bb_count) + 1) <= MOST_WORDS;
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        if (bb->is_kept) knows_blocks_ = false; // it is entered without an edge
    if (knows_blocks_) solve();
}

// The accesses in `accesses_`, from the last to the first.
void PART_LIVENESS::go_back_over(WORD* live) {
    for (auto access = accesses_.rbegin(); access != accesses_.rend(); ++access) {
        switch (access->kind) {
            case ACC_ANY:
            case ACC_FAR_READ:
                for (std::size_t i = 0; i < words_; i++) live[i] |= pieces_.exposed()[i];
                break;
            case ACC_FAR_WRITE: break;
            default: {
                const PIECES::RANGE range = pieces_.of(*access);
                if (access->kind == ACC_READ || access->kind == ACC_TAKEN) {
                    set_range(live, range.first, range.last, true);
                } else if (range.is_all && !access->conditional) {
                    set_range(live, range.first, range.last, false);
                }
                break;
            }
        }
    }
}

void PART_LIVENESS::start_at_end(const BBLK* bb, WORD* live) const {
    if (bb->successors == nullptr || (bb->successors->next == nullptr && bb->successors->bb->is_exit() &&
                                      last_statement(bb)->op == RETURN)) {
        std::copy(pieces_.lasting().begin(), pieces_.lasting().end(), live);
        return;
    }
    if (!knows_blocks_) {
        std::fill(live, live + words_, ~WORD{0});
        return;
    }
    std::fill(live, live + words_, WORD{0});
    for (const EDGE* edge = bb->successors; edge != nullptr; edge = edge->next) {
        const WORD* in = &live_in_[row(edge->bb)];
        for (std::size_t i = 0; i < words_; i++) live[i] |= in[i];
    }
}

void PART_LIVENESS::solve() {
    // A block's effect on each piece: made live there, or ended before anything reads it.
    const std::size_t rows = (static_cast<std::size_t>(currfuninfo->bb_count) + 1) * words_;
    live_in_.assign(rows, 0);
    std::vector<WORD> made(rows, 0), kept(rows, 0), live(words_);
    std::vector<BBLK*> order;
    clear_visited();
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        // From nothing live: what the block makes. From everything live: what it lets through.
        go_back_over_block(bb, &made[row(bb)]);
        WORD* through = &kept[row(bb)];
        std::fill(through, through + words_, ~WORD{0});
        go_back_over_block(bb, through);
        append_post_order(bb, &BBLK::successors, order);
    }
    for (bool changed = true; changed;) {
        changed = false;
        for (const BBLK* bb : order) {
            start_at_end(bb, live.data());
            WORD* in = &live_in_[row(bb)];
            for (std::size_t i = 0; i < words_; i++) {
                const WORD now = made[row(bb) + i] | (live[i] & kept[row(bb) + i]);
                if (now == in[i]) continue;
                in[i] = now;
                changed = true;
            }
        }
    }
}

void PART_LIVENESS::go_back_over_block(const BBLK* bb, WORD* live) {
    cells_.clear();
    for (LIST* cell = bb->statements; cell != nullptr; cell = cell->next) cells_.push_back(cell);
    for (auto cell = cells_.rbegin(); cell != cells_.rend(); ++cell) {
        list((*cell)->first);
        go_back_over(live);
    }
}

// Whether the statement, whose accesses are listed, is a store to pieces that are all dead behind it.
bool PART_LIVENESS::is_dead_store(NODE* statement, const WORD* live) const {
    if (!opcode_is_ASG(statement->op) || tree_is_arg_prolog(statement)) return false;
    for (auto access = accesses_.rbegin(); access != accesses_.rend(); ++access) {
        if (access->assignment != statement || access->kind == ACC_READ) continue;
        if (access->kind != ACC_WRITE && access->kind != ACC_PART_WRITE) return false;
        const PIECES::RANGE range = pieces_.of(*access);
        return range.first < range.last && !any_in_range(live, range.first, range.last) &&
               !tree_has_side_effects(statement->left);
    }
    return false;
}

bool PART_LIVENESS::remove_dead(BBLK* bb) {
    std::vector<WORD> live(words_);
    start_at_end(bb, live.data());
    cells_.clear();
    for (LIST* cell = bb->statements; cell != nullptr; cell = cell->next) cells_.push_back(cell);
    bool changed = false;
    for (auto at = cells_.rbegin(); at != cells_.rend(); ++at) {
        LIST* cell = *at;
        list(cell->first);
        while (is_dead_store(cell->first, live.data())) {
            changed = true;
            if (print_debug != 0)
                dprintf("\n\tNothing reads this part again: %s\n", tree_to_text(cell->first).c_str());
            cell->first = effects_of_assignment(cell->first);
            if (cell->first == nullptr) break;
            cell->first = simp_tree(cell->first, bb->loop);
            list(cell->first);
        }
        if (cell->first != nullptr) go_back_over(live.data());
    }
    if (changed) bb->statements = tidy_statement_list(bb->statements);
    return changed;
}

bool PART_LIVENESS::remove_dead() {
    bool changed = false;
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        if (remove_dead(bb)) changed = true;
    return changed;
}

} // namespace

void elim_dead_subrange_assigns() {
    dprintf("\n\n\t\t\t---------- ENTERING 'elim_dead_subrange_assigns' ----------\n");
    for (int round = 0; round < MOST_ROUNDS; round++) {
        const PRIVATE_SYMBOLS symbols(true);
        if (!symbols.flow_is_known()) return;
        const PIECES pieces(symbols);
        if (pieces.words() == 0 || !PART_LIVENESS(pieces).remove_dead()) return;
    }
}
