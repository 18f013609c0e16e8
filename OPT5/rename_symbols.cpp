// A web holds the stores whose values come together in one read, and all their reads. Symbols are taken one
// by one. In a block a read belongs to the store ahead of it; where nothing is stored ahead of it, to what
// arrives at the block. What arrives there is one with what each predecessor hands on: the last thing stored
// in it, or what arrives at the predecessor in turn. The search goes back from the reads, so that it sees
// only blocks in which the symbol is live.
//
// Values that nobody reads or nobody has stored keep the symbol: any name will do for them, and they gain
// nothing by one more.

#include "rename_symbols.h"

#include <cstddef>
#include <vector>

#include "accesses.h"
#include "bblk.h"
#include "bbutils.h"
#include "fileopt.h"
#include "files.h"
#include "node.h"
#include "symbol.h"
#include "types.h"

namespace {

constexpr int TEMP_KIND = 'R';
// Edges that may be gone along in one function. Hundreds of symbols may be live all through the largest
// functions; the symbols behind them stay as they are.
constexpr int MAX_STEPS = 20'000'000;

// The web of the value that a symbol has when the function begins; other webs count up from it.
constexpr int ARRIVED = 0;
constexpr int NONE = -1;

class WEBS {
  public:
    explicit WEBS(const PRIVATE_SYMBOLS& symbols) : symbols_(symbols) {}
    void run();

  private:
    struct REFERENCE {
        NODE* name;
        const BBLK* block;
        bool begins; // a store that ends the value before it
        bool reads;
        int web; // NONE: what arrives at the block; of the argument prolog ARRIVED from the start
    };
    // What is known of the symbol in work in one block, if `symbol` is its number.
    struct PLACE {
        int symbol = NONE;
        int arriving = NONE;
        int leaving = NONE; // the last web that begins in the block
    };

    bool can_be_renamed(const SYMTAB* symbol) const;
    void collect();
    void collect(const BBLK* bb, NODE* statement);
    int new_web();
    int find(int web);
    void join(int a, int b);
    PLACE& place(const BBLK* bb);
    void number_webs(std::vector<REFERENCE>& references);
    void go_back(const BBLK* bb);
    void rename(std::vector<REFERENCE>& references);

    const PRIVATE_SYMBOLS& symbols_;
    std::vector<std::vector<REFERENCE>> references_; // by symbol, in layout order
    std::vector<int> beginnings_;                    // by symbol: references that begin a value
    std::vector<PLACE> places_;                      // by DFN
    int symbol_ = NONE;                              // the one in work
    std::vector<int> joined_;                        // by web: a web that it is one with, or itself
    std::vector<char> seen_;                         // by web: whether it has stores, and reads
    std::vector<SYMTAB*> made_;                      // by web: the symbol that it gets; null: keeps its own
    std::vector<const BBLK*> pending_;
    std::vector<ACCESS> accesses_;
    int steps_ = 0;
};

// An aggregate would take its frame space twice; what the source says of one symbol holds for all its values.
bool WEBS::can_be_renamed(const SYMTAB* symbol) const {
    return symbol->type->is_scalar() && symbol->pragmas == nullptr && (symbol->cqual & CQ_REGISTER) == 0;
}

// --- References.

void WEBS::collect(const BBLK* bb, NODE* statement) {
    const bool receives = tree_is_arg_prolog(statement);
    accesses_.clear();
    list_accesses(statement, accesses_);
    const NODE* last = nullptr;
    for (const ACCESS& access : accesses_) {
        const int symbol = symbols_.number_of(access.name->symbol());
        if (symbol < 0) continue;
        // A compound assignment reads, then writes by the same name: it continues the value.
        if (access.name == last) continue;
        last = access.name;
        const bool begins = access.kind == ACC_WRITE && !access.conditional;
        references_[static_cast<std::size_t>(symbol)].push_back(
            {access.name, bb, begins, access.kind == ACC_READ, receives ? ARRIVED : NONE});
        if (begins) beginnings_[static_cast<std::size_t>(symbol)]++;
    }
}

void WEBS::collect() {
    references_.resize(static_cast<std::size_t>(symbols_.count()));
    beginnings_.resize(references_.size());
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next) collect(bb, cell->first);
}

// --- Webs of one symbol.

int WEBS::new_web() {
    joined_.push_back(static_cast<int>(joined_.size()));
    return joined_.back();
}

int WEBS::find(int web) {
    while (joined_[static_cast<std::size_t>(web)] != web) {
        int& next = joined_[static_cast<std::size_t>(web)];
        next = joined_[static_cast<std::size_t>(next)];
        web = next;
    }
    return web;
}

// The older web counts.
void WEBS::join(int a, int b) {
    a = find(a);
    b = find(b);
    if (a < b) {
        joined_[static_cast<std::size_t>(b)] = a;
    } else {
        joined_[static_cast<std::size_t>(a)] = b;
    }
}

WEBS::PLACE& WEBS::place(const BBLK* bb) {
    PLACE& result = places_[static_cast<std::size_t>(bb->dfn)];
    if (result.symbol != symbol_) result = {symbol_, NONE, NONE};
    return result;
}

// Gives what arrives at the block a web, with all that it is one with.
void WEBS::go_back(const BBLK* bb) {
    if (place(bb).arriving != NONE) return;
    place(bb).arriving = new_web();
    pending_.push_back(bb);
    while (!pending_.empty()) {
        bb = pending_.back();
        pending_.pop_back();
        const int web = place(bb).arriving;
        if (bb->predecessors == nullptr) join(web, ARRIVED); // the first block, or one never reached
        for (const EDGE* edge = bb->predecessors; edge != nullptr; edge = edge->next) {
            steps_++;
            PLACE& before = place(edge->bb);
            if (before.leaving != NONE) {
                join(web, before.leaving);
            } else if (before.arriving != NONE) {
                join(web, before.arriving);
            } else {
                before.arriving = web;
                pending_.push_back(edge->bb);
            }
        }
    }
}

void WEBS::number_webs(std::vector<REFERENCE>& references) {
    joined_.clear();
    new_web();
    const BBLK* block = nullptr;
    int web = NONE;
    for (REFERENCE& reference : references) {
        if (reference.block != block) web = NONE;
        block = reference.block;
        if (reference.begins) {
            web = reference.web == ARRIVED ? ARRIVED : new_web();
            place(block).leaving = web;
        }
        reference.web = web;
    }
    for (const REFERENCE& reference : references)
        if (reference.web == NONE && reference.reads) go_back(reference.block);
}

void WEBS::rename(std::vector<REFERENCE>& references) {
    constexpr char STORED = 1, READ = 2;
    SYMTAB* const symbol = symbols_.symbol(symbol_);
    seen_.assign(joined_.size(), 0);
    if (symbol->level == 1) seen_[ARRIVED] = STORED;
    for (REFERENCE& reference : references) {
        if (reference.web == NONE) reference.web = place(reference.block).arriving;
        if (reference.web == NONE) continue; // adds to a value that nobody reads
        reference.web = find(reference.web);
        seen_[static_cast<std::size_t>(reference.web)] |= reference.reads ? READ : STORED;
    }
    made_.assign(joined_.size(), nullptr);
    int keeper = symbol->level == 1 && (seen_[ARRIVED] & READ) != 0 ? ARRIVED : NONE;
    for (const REFERENCE& reference : references) {
        const int web = reference.web;
        if (web == NONE || seen_[static_cast<std::size_t>(web)] != (STORED | READ)) continue;
        if (keeper == NONE) keeper = web; // the one that stands first
        if (web == keeper) continue;
        SYMTAB*& other = made_[static_cast<std::size_t>(web)];
        if (other == nullptr) {
            other = sym_temp(TEMP_KIND, -1, symbol->type, nullptr);
            dprintf("Renaming a value of %s to %s.\n", symbol->name, other->name);
        }
        if (reference.name->type == symbol->type) reference.name->type = other->type;
        reference.name->mk_name(other);
    }
}

void WEBS::run() {
    collect();
    places_.resize(static_cast<std::size_t>(currfuninfo->bb_count) + 1);
    for (symbol_ = 0; symbol_ < symbols_.count() && steps_ < MAX_STEPS; symbol_++) {
        const auto i = static_cast<std::size_t>(symbol_);
        if (beginnings_[i] < 2 || !can_be_renamed(symbols_.symbol(symbol_))) continue;
        number_webs(references_[i]);
        rename(references_[i]);
    }
}

} // namespace

void rename_symbols() {
    dprintf("\n\n\t\t\t---------- ENTERING 'rename_symbols' ----------\n");
    const PRIVATE_SYMBOLS symbols;
    if (!symbols.flow_is_known()) return;
    renumber_bblocks();
    WEBS(symbols).run();
}
