// Symbols that have become one form a class. Two classes can be joined if nothing is stored in one of them
// while the other holds a value that will be read, apart from copies among their members, which store what is
// there already. A class has one list of what happens to its members, without the copies among them, and one
// row of bits that tells at which blocks' ends it is live.
//
// Operands are evaluated in any order. A store inside a statement therefore stands in the way of all else
// that the statement does with the other class.

#include "merge_symbols.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <set>
#include <vector>

#include "accesses.h"
#include "bblk.h"
#include "bbutils.h"
#include "branch_prediction.h"
#include "copyprop.h"
#include "erase.h"
#include "fileopt.h"
#include "files.h"
#include "liveness.h"
#include "node.h"
#include "opcodes.h"
#include "optypes.h"
#include "symbol.h"
#include "types.h"

namespace {

// Events that may be looked at or moved in one function. Copies behind them stay.
constexpr std::size_t MAX_STEPS = 50'000'000;
// Words that the rows of the function may have; symbols for which there is no room are not merged.
constexpr std::size_t MAX_WORDS = std::size_t{1} << 22;

constexpr int NONE = -1;

class MERGER {
  public:
    explicit MERGER(const PRIVATE_SYMBOLS& symbols) : symbols_(symbols), liveness_(symbols) {}
    void run();

  private:
    struct COPY {
        BBLK* block;
        LIST* cell;
        int to, from; // symbols
    };
    // An access to a symbol. Numbers of accesses and statements grow through the function.
    struct EVENT {
        int at;
        int statement;
        int block; // DFN
        int other; // of a copy: the other symbol; else NONE
        bool reads, stores;
        bool ends;     // the value before it is gone
        bool embedded; // a store by an assignment that is part of the statement
    };
    struct STATEMENT {
        int number;
    };
    struct BLOCK {
        int number;
    };
    struct EARLIER {
        using is_transparent = void;
        bool operator()(const EVENT& a, const EVENT& b) const { return a.at < b.at; }
        bool operator()(const EVENT& a, STATEMENT b) const { return a.statement < b.number; }
        bool operator()(const EVENT& a, BLOCK b) const { return a.block < b.number; }
    };
    using EVENTS = std::set<EVENT, EARLIER>;
    struct CLASS {
        EVENTS events;
        std::vector<std::uint64_t> live_out; // by DFN; empty: nowhere
        bool is_too_much = false;            // no room for the row
        SYMTAB* kept = nullptr;
    };

    bool can_be_merged(const SYMTAB* symbol) const;
    bool is_whole(const NODE* name) const;
    bool is_copy(const NODE* statement, int& to, int& from) const;
    void find_copies();
    void list_events();
    void list_events(NODE* statement, int block);
    void find_live_ends();

    bool takes_part(int symbol) const { return joined_[static_cast<std::size_t>(symbol)] != NONE; }
    int find(int symbol);
    CLASS& class_of(int symbol) { return classes_[static_cast<std::size_t>(find(symbol))]; }
    bool is_inside(const EVENT& event, int a, int b);
    bool is_live_behind(const CLASS& other, const EVENT& store);
    bool store_disturbs(const CLASS& other, const EVENT& store);
    bool stores_disturb_in(int block, EVENTS::const_iterator event, int a, int b);
    bool stores_disturb(int a, int b);
    SYMTAB* symbol_to_keep(SYMTAB* a, SYMTAB* b) const;
    void try_to_join(int a, int b);
    void drop_copies_between(int a, int b);
    void join(int a, int b);
    std::vector<const COPY*> by_frequency() const;
    bool rename(NODE* tree);
    bool rewrite();
    SYMTAB* drop_symbols(SYMTAB*& list);

    const PRIVATE_SYMBOLS& symbols_;
    const LIVENESS liveness_;
    std::vector<COPY> copies_;
    std::vector<int> joined_; // by symbol: another one of its class, or itself; NONE: takes no part
    std::vector<CLASS> classes_;
    std::size_t steps_ = 0;
    bool any_ = false;
    int now_ = 0, statement_ = 0;
    std::vector<ACCESS> accesses_;
};

// --- Candidates.

// A parameter in memory would keep the other there as well.
bool MERGER::can_be_merged(const SYMTAB* symbol) const {
    return symbol->sclass != SC_PARM && symbol->pragmas == nullptr && (symbol->cqual & CQ_REGISTER) == 0;
}

// Whether the name stands for the symbol as it was declared.
bool MERGER::is_whole(const NODE* name) const {
    TYPE* declared = name->symbol()->type;
    return name->type->stqs() == declared->stqs() ||
           (declared->is_scalar() && same_representation(name->type, declared));
}

bool MERGER::is_copy(const NODE* statement, int& to, int& from) const {
    if (statement->op != op::ASG && statement->op != op::STASG) return false;
    const NODE *left = statement->left, *right = statement->right;
    if (left->op != op::NAME || right->op != op::NAME) return false;
    to = symbols_.number_of(left->symbol());
    from = symbols_.number_of(right->symbol());
    if (to < 0 || from < 0 || to == from || !is_whole(left) || !is_whole(right)) return false;
    const SYMTAB *a = left->symbol(), *b = right->symbol();
    return can_be_merged(a) && can_be_merged(b) && a->type->stqs() == b->type->stqs() &&
           ((a->type->qual_kind() ^ b->type->qual_kind()) & ~unsigned{QUAL_CONST}) == 0;
}

void MERGER::find_copies() {
    joined_.assign(static_cast<std::size_t>(symbols_.count()), NONE);
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        for (LIST* cell = bb->statements; cell != nullptr; cell = cell->next) {
            COPY copy{bb, cell, NONE, NONE};
            if (!is_copy(cell->first, copy.to, copy.from)) continue;
            for (int symbol : {copy.to, copy.from}) joined_[static_cast<std::size_t>(symbol)] = symbol;
            copies_.push_back(copy);
        }
}

void MERGER::list_events(NODE* statement, int block) {
    int to = NONE, from = NONE;
    const bool copies = is_copy(statement, to, from);
    statement_++;
    accesses_.clear();
    list_accesses(statement, accesses_);
    const bool receives = tree_is_arg_prolog(statement);
    for (const ACCESS& access : accesses_) {
        const int symbol = symbols_.number_of(access.name->symbol());
        if (symbol < 0 || !takes_part(symbol)) continue;
        EVENT event{++now_, statement_, block, NONE, access.kind == ACC_READ, false, false, false};
        event.stores = !event.reads;
        event.ends = access.kind == ACC_WRITE && !access.conditional;
        event.embedded = event.stores && access.assignment != statement && !receives;
        if (copies) event.other = symbol == to ? from : to;
        EVENTS& events = classes_[static_cast<std::size_t>(symbol)].events;
        events.insert(events.end(), event);
    }
}

void MERGER::list_events() {
    classes_.resize(joined_.size());
    for (std::size_t i = 0; i < classes_.size(); i++) classes_[i].kept = symbols_.symbol(static_cast<int>(i));
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next)
            list_events(cell->first, bb->dfn);
}

// The rows are filled a word for all symbols at a time, which is kinder to the machine's caches.
void MERGER::find_live_ends() {
    const std::size_t words = static_cast<std::size_t>(currfuninfo->bb_count) / 64 + 1;
    std::size_t room = MAX_WORDS / words;
    std::vector<std::uint64_t> columns(classes_.size());
    std::vector<int> live;
    const auto flush = [&](std::size_t word) {
        for (int symbol : live) {
            const auto i = static_cast<std::size_t>(symbol);
            CLASS& of_symbol = classes_[i];
            if (of_symbol.live_out.empty() && room > 0) {
                room--;
                of_symbol.live_out.assign(words, 0);
            }
            of_symbol.is_too_much = of_symbol.live_out.empty();
            if (!of_symbol.is_too_much) of_symbol.live_out[word] = columns[i];
            columns[i] = 0;
        }
        live.clear();
    };
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        liveness_.for_each_live_out(bb, [&](int symbol) {
            std::uint64_t& column = columns[static_cast<std::size_t>(symbol)];
            if (column == 0 && takes_part(symbol)) live.push_back(symbol);
            column |= std::uint64_t{1} << (bb->dfn % 64);
        });
        if (bb->dfn % 64 == 63 || bb->is_exit()) flush(static_cast<std::size_t>(bb->dfn / 64));
    }
}

// --- Whether classes can be joined.

int MERGER::find(int symbol) {
    while (joined_[static_cast<std::size_t>(symbol)] != symbol) {
        int& next = joined_[static_cast<std::size_t>(symbol)];
        next = joined_[static_cast<std::size_t>(next)];
        symbol = next;
    }
    return symbol;
}

// Whether the event is of a copy among the members of the two classes.
bool MERGER::is_inside(const EVENT& event, int a, int b) {
    if (event.other == NONE) return false;
    const int other = find(event.other);
    return other == a || other == b;
}

// Whether the class is live behind the store.
bool MERGER::is_live_behind(const CLASS& other, const EVENT& store) {
    for (auto event = other.events.upper_bound(store);
         event != other.events.end() && event->block == store.block; ++event) {
        steps_++;
        if (event->reads) return true;
        if (event->ends) return false;
    }
    return !other.live_out.empty() &&
           (other.live_out[static_cast<std::size_t>(store.block / 64)] >> (store.block % 64) & 1) != 0;
}

bool MERGER::store_disturbs(const CLASS& other, const EVENT& store) {
    if (store.embedded) {
        const auto event = other.events.lower_bound(STATEMENT{store.statement});
        if (event != other.events.end() && event->statement == store.statement) return true;
    }
    return is_live_behind(other, store);
}

// Whether one of the stores to `a` from the event on, as far as they are in that block, disturbs `b`.
bool MERGER::stores_disturb_in(int block, EVENTS::const_iterator event, int a, int b) {
    const EVENTS& events = classes_[static_cast<std::size_t>(a)].events;
    const CLASS& other = classes_[static_cast<std::size_t>(b)];
    for (; event != events.end() && (block == NONE || event->block == block); ++event) {
        steps_++;
        if (event->stores && !is_inside(*event, a, b) && store_disturbs(other, *event)) return true;
    }
    return false;
}

// The same for all stores. Where `b` has less of everything, only the blocks count in which it is met or
// live at the end.
bool MERGER::stores_disturb(int a, int b) {
    const EVENTS& events = classes_[static_cast<std::size_t>(a)].events;
    const CLASS& other = classes_[static_cast<std::size_t>(b)];
    if (events.size() <= other.events.size()) return stores_disturb_in(NONE, events.begin(), a, b);
    const auto first_in = [&](int block) { return events.lower_bound(BLOCK{block}); };
    int block = NONE;
    for (const EVENT& event : other.events) {
        steps_++;
        if (event.block == block) continue;
        block = event.block;
        if (stores_disturb_in(block, first_in(block), a, b)) return true;
    }
    steps_ += other.live_out.size();
    for (std::size_t i = 0; i < other.live_out.size(); i++)
        for (std::uint64_t rest = other.live_out[i]; rest != 0; rest &= rest - 1) {
            steps_++;
            block = static_cast<int>(i) * 64 + __builtin_ctzll(rest);
            if (stores_disturb_in(block, first_in(block), a, b)) return true;
        }
    return false;
}

// Null: neither can stand for both.
SYMTAB* MERGER::symbol_to_keep(SYMTAB* a, SYMTAB* b) const {
    const auto rank = [](const SYMTAB* symbol) {
        return (symbol->level == 1 ? 4 : 0) + (symbol->otype->is_const() ? 0 : 2) +
               (is_internal_symbol(symbol) ? 0 : 1);
    };
    if (a->level == 1 && b->level == 1) return nullptr;
    SYMTAB* kept = rank(a) > rank(b) || (rank(a) == rank(b) && a->serial < b->serial) ? a : b;
    const SYMTAB* dropped = kept == a ? b : a;
    return kept->otype->is_const() && !dropped->otype->is_const() ? nullptr : kept;
}

// Takes the copies between the two classes out of the lists.
void MERGER::drop_copies_between(int a, int b) {
    EVENTS &events = classes_[static_cast<std::size_t>(a)].events,
           &others = classes_[static_cast<std::size_t>(b)].events;
    for (auto event = others.begin(); event != others.end();) {
        if (event->other == NONE || find(event->other) != a) {
            ++event;
            continue;
        }
        events.erase(events.lower_bound(STATEMENT{event->statement}));
        event = others.erase(event);
    }
}

// Joins `b` to `a`, which has more events.
void MERGER::join(int a, int b) {
    drop_copies_between(a, b);
    CLASS& into = classes_[static_cast<std::size_t>(a)];
    CLASS& from = classes_[static_cast<std::size_t>(b)];
    steps_ += from.events.size() + from.live_out.size();
    joined_[static_cast<std::size_t>(b)] = a;
    into.events.merge(from.events);
    if (into.live_out.empty()) into.live_out.swap(from.live_out);
    for (std::size_t i = 0; i < from.live_out.size(); i++) into.live_out[i] |= from.live_out[i];
    from.live_out = {};
}

void MERGER::try_to_join(int a, int b) {
    a = find(a);
    b = find(b);
    if (a == b) return;
    SYMTAB* kept = symbol_to_keep(class_of(a).kept, class_of(b).kept);
    if (kept == nullptr || class_of(a).is_too_much || class_of(b).is_too_much) return;
    if (stores_disturb(a, b) || stores_disturb(b, a)) return;
    const bool a_is_larger = class_of(a).events.size() >= class_of(b).events.size();
    join(a_is_larger ? a : b, a_is_larger ? b : a);
    class_of(a).kept = kept;
    // What is stored in a parameter from now on is not what has arrived.
    if (kept->level == 1 && !kept->otype->is_const())
        kept->type = tp->remove_known_qual(kept->type, QUAL_CONST);
    any_ = true;
}

// The copies that run most often first: one that is joined may stand in the way of others.
std::vector<const MERGER::COPY*> MERGER::by_frequency() const {
    const BRANCH_PREDICTION prediction;
    std::vector<const COPY*> result;
    result.reserve(copies_.size());
    for (const COPY& copy : copies_) result.push_back(&copy);
    std::stable_sort(result.begin(), result.end(), [&](const COPY* a, const COPY* b) {
        return prediction.frequency(a->block) > prediction.frequency(b->block);
    });
    return result;
}

// --- Rewriting.

// Whether the tree has names of symbols that have another one to stand for them.
bool MERGER::rename(NODE* tree) {
    bool changed = false;
    walk_tree(tree, [&](NODE* node) {
        if (node->op != op::NAME) return;
        SYMTAB* symbol = node->symbol();
        const int number = symbols_.number_of(symbol);
        if (number < 0 || !takes_part(number)) return;
        SYMTAB* kept = class_of(number).kept;
        if (kept == symbol) return;
        if (node->type == symbol->type) node->type = kept->type;
        node->mk_name(kept);
        changed = true;
    });
    return changed;
}

// Renames in all statements but the copies among the members of a class, which go. Whether a branch has only
// one way left.
bool MERGER::rewrite() {
    bool settled = false;
    auto copy = copies_.begin();
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        bool changed = false;
        for (LIST* cell = bb->statements; cell != nullptr; cell = cell->next) {
            const bool is_copy = copy != copies_.end() && copy->cell == cell;
            const bool goes = is_copy && find(copy->to) == find(copy->from);
            if (is_copy) ++copy;
            if (goes) {
                cell->first = erase_tree(cell->first);
            } else if (rename(cell->first)) {
                cell->first = tidy_statement(cell->first, settled);
            } else {
                continue;
            }
            changed = true;
        }
        if (changed) bb->statements = tidy_statement_list(bb->statements);
    }
    return settled;
}

// Takes the symbols that have lost their names off the list; returns its last one.
SYMTAB* MERGER::drop_symbols(SYMTAB*& list) {
    SYMTAB* last = nullptr;
    for (SYMTAB** place = &list; *place != nullptr;) {
        SYMTAB* symbol = *place;
        const int number = symbols_.number_of(symbol);
        if (number >= 0 && takes_part(number) && class_of(number).kept != symbol) {
            dprintf("Merging %s into %s.\n", symbol->name, class_of(number).kept->name);
            *place = symbol->next;
            continue;
        }
        last = symbol;
        place = &symbol->next;
    }
    return last;
}

void MERGER::run() {
    find_copies();
    if (copies_.empty()) return;
    list_events();
    find_live_ends();
    for (const COPY* copy : by_frequency())
        if (steps_ < MAX_STEPS) try_to_join(copy->to, copy->from);
    if (!any_) return;
    const bool settled = rewrite();
    currfuninfo->locals_tail = drop_symbols(currfuninfo->locals);
    drop_symbols(currfuninfo->temps);
    if (settled) repair_flow();
}

} // namespace

void merge_symbols() {
    dprintf("\n\n\t\t\t---------- ENTERING 'merge_symbols' ----------\n");
    const PRIVATE_SYMBOLS symbols;
    if (symbols.flow_is_known()) MERGER(symbols).run();
}
