// Priorities in the manner of Chow and Hennessy: a variable's weight is the number of its accesses, each as
// often as its block runs, divided by the number of blocks in which it is live. Taken in that order, each
// gets a register if no block of its life is full. Values inside a block are left to the code generator,
// which orders the block's instructions and so knows best how many of them live at a time.
//
// The class is advice: a variable without it may get a register all the same, and one with it may lose it. A
// file that is read again shows such variables as the source's own `register` variables, which every step
// takes for locals like others; they are only no candidates for a register again (SF_REGISTER_CANDIDATE).

#include "allocate_regs.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "accesses.h"
#include "bblk.h"
#include "branch_prediction.h"
#include "debug.h"
#include "fileopt.h"
#include "files.h"
#include "liveness.h"
#include "node.h"
#include "symbol.h"
#include "types.h"

namespace {

enum REG_KIND { DATA, ADDRESS, FLOAT, REG_KINDS };

struct REG_DEF {
    unsigned width; // bits
    int count;
};
REG_DEF reg_defs[REG_KINDS];

constexpr unsigned WIDEST = 64; // bits of a variable
// Variables that compete for registers in one function: those with the best priorities.
constexpr std::size_t MAX_COMPETITORS = 1000;

class ALLOCATOR {
  public:
    explicit ALLOCATOR(const PRIVATE_SYMBOLS& symbols) : symbols_(symbols), liveness_(symbols) {}
    void run();

  private:
    struct COMPETITOR {
        SYMTAB* symbol;
        bool is_given; // has its register from elsewhere
        double priority;
        std::vector<std::uint64_t> life; // by DFN
    };

    void weigh();
    void measure_lives();
    void line_up();
    void find_lives();
    bool fits(const COMPETITOR& competitor) const;
    void occupy(const COMPETITOR& competitor);
    static void give_register(SYMTAB* symbol);

    const PRIVATE_SYMBOLS& symbols_;
    const LIVENESS liveness_;
    std::vector<double> weights_; // by symbol
    std::vector<int> extents_;    // by symbol: the number of blocks at whose start it is live
    std::vector<COMPETITOR> competitors_;
    std::vector<int> occupied_[REG_KINDS]; // by DFN
};

REG_KIND kind_of(const SYMTAB* symbol) {
    return symbol->type->is_fltpt() ? FLOAT : symbol->type->is_ptr() ? ADDRESS : DATA;
}

int registers_for(const SYMTAB* symbol) {
    const unsigned width = reg_defs[kind_of(symbol)].width;
    return static_cast<int>((symbol->size + width - 1) / width);
}

bool is_given_a_register(const SYMTAB* symbol) {
    return symbol->sclass == SC_REGISTER || symbol->sclass == SC_REGPARM;
}

bool may_have_register(const SYMTAB* symbol) {
    return symbol->sclass == SC_AUTO && symbol->type->is_scalar() && symbol->size <= WIDEST &&
           symbol->pragmas == nullptr && (symbol->cqual & CQ_REGISTER) == 0;
}

template <class VISIT> void for_each_bit(const std::vector<std::uint64_t>& words, VISIT visit) {
    for (std::size_t i = 0; i < words.size(); i++)
        for (std::uint64_t rest = words[i]; rest != 0; rest &= rest - 1)
            visit(i * 64 + static_cast<std::size_t>(__builtin_ctzll(rest)));
}

void ALLOCATOR::weigh() {
    const BRANCH_PREDICTION prediction;
    weights_.assign(static_cast<std::size_t>(symbols_.count()), 0);
    std::vector<ACCESS> accesses;
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        const double frequency = prediction.frequency(bb);
        accesses.clear();
        for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next)
            list_accesses(cell->first, accesses);
        for (const ACCESS& access : accesses)
            if (const int number = symbols_.number_of(access.name->symbol()); number >= 0)
                weights_[static_cast<std::size_t>(number)] += frequency;
    }
}

void ALLOCATOR::measure_lives() {
    extents_.assign(weights_.size(), 0);
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        liveness_.for_each_live_in(bb, [&](int number) { extents_[static_cast<std::size_t>(number)]++; });
}

// Gives registers to what lives inside one block, and collects the others, the best first.
void ALLOCATOR::line_up() {
    for (int number = 0; number < symbols_.count(); number++) {
        SYMTAB* symbol = symbols_.symbol(number);
        const int extent = extents_[static_cast<std::size_t>(number)];
        const double weight = weights_[static_cast<std::size_t>(number)];
        const bool is_given = is_given_a_register(symbol);
        if (weight <= 0 || (!is_given && !may_have_register(symbol))) continue;
        if (extent > 0) {
            competitors_.push_back({symbol, is_given, weight / extent, {}});
        } else if (!is_given) {
            give_register(symbol);
        }
    }
    std::stable_sort(competitors_.begin(), competitors_.end(), [](const auto& a, const auto& b) {
        return a.is_given != b.is_given ? a.is_given : a.priority > b.priority;
    });
    if (competitors_.size() > MAX_COMPETITORS)
        competitors_.erase(competitors_.begin() + MAX_COMPETITORS, competitors_.end());
}

void ALLOCATOR::find_lives() {
    const std::size_t blocks = static_cast<std::size_t>(currfuninfo->bb_count) + 1;
    std::vector<COMPETITOR*> of_symbol(weights_.size());
    for (COMPETITOR& competitor : competitors_) {
        competitor.life.assign((blocks + 63) / 64, 0);
        of_symbol[static_cast<std::size_t>(symbols_.number_of(competitor.symbol))] = &competitor;
    }
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        const auto note = [&](int number) {
            COMPETITOR* competitor = of_symbol[static_cast<std::size_t>(number)];
            if (competitor == nullptr) return;
            competitor->life[static_cast<std::size_t>(bb->dfn / 64)] |= std::uint64_t{1} << (bb->dfn % 64);
        };
        liveness_.for_each_live_in(bb, note);
        liveness_.for_each_live_out(bb, note);
    }
    for (std::vector<int>& occupied : occupied_) occupied.assign(blocks, 0);
}

bool ALLOCATOR::fits(const COMPETITOR& competitor) const {
    const REG_KIND kind = kind_of(competitor.symbol);
    const int room = reg_defs[kind].count - registers_for(competitor.symbol);
    bool result = true;
    for_each_bit(competitor.life, [&](std::size_t dfn) { result = result && occupied_[kind][dfn] <= room; });
    return result;
}

void ALLOCATOR::occupy(const COMPETITOR& competitor) {
    std::vector<int>& occupied = occupied_[kind_of(competitor.symbol)];
    const int count = registers_for(competitor.symbol);
    for_each_bit(competitor.life, [&](std::size_t dfn) { occupied[dfn] += count; });
}

void ALLOCATOR::give_register(SYMTAB* symbol) {
    dprintf("A register for %s.\n", symbol->name);
    symbol->sclass = SC_REGISTER;
    symbol->flags &= static_cast<std::uint8_t>(~SF_REGISTER_CANDIDATE);
}

void ALLOCATOR::run() {
    weigh();
    measure_lives();
    line_up();
    find_lives();
    for (const COMPETITOR& competitor : competitors_) {
        if (!competitor.is_given && !fits(competitor)) continue;
        occupy(competitor);
        if (!competitor.is_given) give_register(competitor.symbol);
    }
}

} // namespace

// Calls leave the half of each kind that the called function has to save.
void init_reg_defs() {
    const int count = currfuninfo->has_no_calls ? 8 : 4;
    for (REG_DEF& def : reg_defs) def = {32, count};
}

void allocate_regs() {
    if (opt_level() == 0) return;
    dprintf("\n\n\t\t\t---------- ENTERING 'allocate_regs' ----------\n");
    const PRIVATE_SYMBOLS symbols;
    if (symbols.flow_is_known()) ALLOCATOR(symbols).run();
}
