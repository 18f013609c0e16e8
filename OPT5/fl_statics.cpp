#include "fl_statics.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "accesses.h"
#include "bblk.h"
#include "bbutils.h"
#include "debug.h"
#include "fileopt.h"
#include "files.h"
#include "ls.h"
#include "node.h"
#include "opcodes.h"
#include "optypes.h"
#include "pragma.h"
#include "symbol.h"
#include "types.h"

using namespace op;

namespace {

constexpr std::size_t AT_ONCE = 64; // statics looked at in one go, one bit each

// What the search knows of the file.
struct FILE_STATE {
    std::unordered_set<const SYMTAB*> in_initialisers;        // only asked
    std::unordered_map<const SYMTAB*, int> naming_count;      // functions that name the static
    std::unordered_map<const FUNINFO*, bool> may_return_here; // see may_come_back
    std::unordered_set<const SYMTAB*> safe;
};

FILE_STATE& state() {
    static FILE_STATE file;
    return file;
}

void note_file() {
    FILE_STATE& file = state();
    file = {};
    for (const SYMTAB* symbol = global_symbols; symbol != nullptr; symbol = symbol->next) {
        const EXPR_LIST* cell = symbol->init;
        while (cell != nullptr) {
            walk_tree(cell->tree, [&file](const NODE* node) {
                if (node->op == NAME) file.in_initialisers.insert(node->symbol());
            });
            cell = cell->next != symbol->init ? cell->next : nullptr;
        }
    }
    for (const FUNINFO* function : fileinfo.defined)
        for (const SYMTAB* symbol : function->fl_statics) file.naming_count[symbol]++;
}

// Whether the function does nothing but run and return: the library's functions that know no function of the
// program.
bool stays_in_library(const FUNINFO* function) {
    constexpr std::uint32_t no_globals = FUN_no_global_asg | FUN_no_global_use;
    return TEST_FLAG(function, FUN_is_SYSTEM) && !function->is_defined &&
           (function->flags & no_globals) == no_globals;
}

// Whether a call of `callee` may lead to another activation of the current function, as far as the calls that
// have been read tell.
bool may_come_back(const FUNINFO* callee) {
    if (stays_in_library(callee)) return false;
    auto& known = state().may_return_here;
    std::vector<const FUNINFO*> pending{callee};
    std::unordered_set<const FUNINFO*> seen{callee};
    if (const auto found = known.find(callee); found != known.end()) return found->second;
    bool comes_back = false;
    constexpr std::size_t enough = 200; // functions to look at; a call that leads to more may lead anywhere
    while (!pending.empty() && !comes_back) {
        const FUNINFO* function = pending.back();
        pending.pop_back();
        if (stays_in_library(function)) continue;
        comes_back = function == currfuninfo || function == fileinfo.root || !function->is_defined ||
                     seen.size() > enough || TEST_FLAG(function, FUN_calls_OUTSIDE | FUN_calls_anonymous);
        for (const CALL_EDGE* edge = function->callees; edge != nullptr && !comes_back; edge = edge->next)
            if (seen.insert(edge->callee).second) pending.push_back(edge->callee);
    }
    return known[callee] = comes_back;
}

bool is_placed(const SYMTAB* symbol) {
    for (const PRAGMA* pragma = symbol->pragmas; pragma != nullptr; pragma = pragma->next)
        if (pragma->kind != PRAG_SCOPING_FUNC && !pragma_is_ignorable(pragma->kind)) return true;
    return false;
}

bool may_be_automatic(const SYMTAB* symbol) {
    return symbol->sclass == SC_STATIC && symbol->level == 0 && symbol->retention == I_SYMTAB::DEFAULT_C &&
           (symbol->cqual & CQ_REGISTER) == 0 && !is_placed(symbol) && !symbol->otype->is_const() &&
           !symbol->otype->is_volatile() && !has_volatile_part(symbol->otype) &&
           symbol->otype->qual_kind(true) == 0 && state().naming_count[symbol] == 1 &&
           !state().in_initialisers.contains(symbol) && !fileinfo.asm_names.contains(symbol->name);
}

// Which of up to 64 statics have been written, on every way and in this activation, before each read.
class WRITTEN_FIRST {
  public:
    explicit WRITTEN_FIRST(std::vector<SYMTAB*> candidates);
    // The bits of the candidates that pass.
    std::uint64_t solve();

  private:
    struct EVENT {
        std::uint64_t reads, writes;
        bool forgets; // a call that may have run this function again
    };
    void note(const ACCESS& access, std::vector<EVENT>& events);
    std::uint64_t run(const BBLK* bb, std::uint64_t written);

    std::unordered_map<const SYMTAB*, std::uint64_t> bits_;
    std::vector<std::vector<EVENT>> events_; // of each block, by id
    std::uint64_t unsafe_ = 0;
};

WRITTEN_FIRST::WRITTEN_FIRST(std::vector<SYMTAB*> candidates) : events_(currfuninfo->blocks.size()) {
    for (std::size_t i = 0; i < candidates.size(); i++) bits_[candidates[i]] = std::uint64_t{1} << i;
    std::vector<ACCESS> accesses;
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next) {
            accesses.clear();
            list_part_accesses(cell->first, accesses);
            for (const ACCESS& access : accesses) note(access, events_[bb->id]);
        }
}

void WRITTEN_FIRST::note(const ACCESS& access, std::vector<EVENT>& events) {
    if (access.kind == ACC_ANY) {
        NODE* place = access.place;
        const bool is_call = place != nullptr && (place->op == CALL || place->op == UCALL);
        SYMTAB* callee = is_call ? get_callee_for_call(place) : nullptr;
        const bool is_harmless = place != nullptr && (place->op == MCALL || place->op == MEMCPY);
        if (!is_harmless && (callee == nullptr || may_come_back(make_FUNINFO(callee))))
            events.push_back({0, 0, true});
        return;
    }
    if (access.name == nullptr) return;
    const auto found = bits_.find(access.name->symbol());
    if (found == bits_.end()) return;
    switch (access.kind) {
        case ACC_READ: events.push_back({found->second, 0, false}); break;
        case ACC_WRITE:
            if (!access.conditional) events.push_back({0, found->second, false});
            break;
        case ACC_PART_WRITE: break;
        default: unsafe_ |= found->second; break;
    }
}

// What has been written at the end of the block; notes reads of anything else.
std::uint64_t WRITTEN_FIRST::run(const BBLK* bb, std::uint64_t written) {
    for (const EVENT& event : events_[bb->id]) {
        if (event.forgets) written = 0;
        unsafe_ |= event.reads & ~written;
        written |= event.writes;
    }
    return written;
}

// Starts with everything written everywhere but at the entry, and takes back what some way to a block does
// not write, until nothing changes: each block loses a bit at most once.
std::uint64_t WRITTEN_FIRST::solve() {
    const std::uint64_t all = ~std::uint64_t{0};
    std::vector<std::uint64_t> in(currfuninfo->blocks.size(), all);
    const BBLK* entry = currfuninfo->bb_list;
    in[entry->id] = 0;
    std::vector<const BBLK*> pending;
    const std::uint64_t unsafe = unsafe_;
    for (const BBLK* bb = entry; bb != nullptr; bb = bb->next) pending.push_back(bb);
    std::reverse(pending.begin(), pending.end());
    while (!pending.empty()) {
        const BBLK* bb = pending.back();
        pending.pop_back();
        const std::uint64_t out = run(bb, in[bb->id]);
        for (const EDGE* edge = bb->successors; edge != nullptr; edge = edge->next) {
            if ((in[edge->bb->id] & ~out) == 0) continue;
            in[edge->bb->id] &= out;
            pending.push_back(edge->bb);
        }
    }
    unsafe_ = unsafe;
    for (const BBLK* bb = entry; bb != nullptr; bb = bb->next) run(bb, in[bb->id]);
    return ~unsafe_;
}

SYMTAB* automatic_copy(const SYMTAB* symbol) {
    SYMBOL_RECORD record;
    record.name = symbol->name;
    record.type = symbol->otype;
    record.cpp_type = symbol->cpp_type;
    record.size = symbol->size;
    record.sclass = SC_AUTO;
    record.align = static_cast<unsigned>(symbol->align);
    record.level = 2;
    record.option_set = symbol->option_set;
    record.psn = symbol->psn;
    SYMTAB* local = mk_symbol(record);
    sym_def(local);
    if (LS* scope = LS::level_2_scope(currfuninfo)) scope->add_symbol(local);
    return local;
}

} // namespace

void identify_fl_statics_safe_for_auto() {
    FUNINFO* function = currfuninfo;
    std::vector<SYMTAB*> candidates;
    for (SYMTAB* symbol : function->fl_statics)
        if (may_be_automatic(symbol)) candidates.push_back(symbol);
    if (candidates.empty() || !PRIVATE_SYMBOLS().flow_is_known()) return;
    state().may_return_here.clear();
    bool any = false;
    for (std::size_t first = 0; first < candidates.size(); first += AT_ONCE) {
        const std::size_t end = std::min(candidates.size(), first + AT_ONCE);
        const std::vector<SYMTAB*> some(candidates.begin() + static_cast<std::ptrdiff_t>(first),
                                        candidates.begin() + static_cast<std::ptrdiff_t>(end));
        const std::uint64_t passed = WRITTEN_FIRST(some).solve();
        for (std::size_t i = 0; i < some.size(); i++) {
            if ((passed >> i & 1) == 0) continue;
            state().safe.insert(some[i]);
            if (finfo == nullptr) continue;
            if (!any) std::fputs("    Changing these function-local static variables to 'auto':\n", finfo);
            any = true;
            std::fprintf(finfo, "\t%s:%s\n", function->name.c_str(), some[i]->name);
        }
    }
}

void convert_safe_fl_statics_to_auto(FUNINFO* function) {
    std::unordered_map<const SYMTAB*, SYMTAB*> locals;
    for (SYMTAB* symbol : function->fl_statics) {
        if (!state().safe.contains(symbol)) continue;
        dprintf("Changing this function-local static variable to 'auto': %s\n", symbol->name);
        locals[symbol] = automatic_copy(symbol);
        // Nothing names the static any more, so it needs neither a place nor a value.
        symbol->retention = I_SYMTAB::NEVER;
        symbol->init = nullptr;
        symbol->cqual &= static_cast<std::uint16_t>(~CQ_VISIBLE);
    }
    if (locals.empty()) return;
    std::erase_if(function->fl_statics, [&locals](const SYMTAB* symbol) { return locals.contains(symbol); });
    for (BBLK* bb = function->bb_list; bb != nullptr; bb = bb->next)
        for (LIST* cell = bb->statements; cell != nullptr; cell = cell->next)
            walk_tree(cell->first, [&locals](NODE* node) {
                if (node->op != NAME) return;
                if (const auto found = locals.find(node->symbol()); found != locals.end())
                    node->mk_name(found->second);
            });
}

void change_fl_statics_to_auto() {
    bool any = false;
    for (const FUNINFO* function : fileinfo.defined) any |= !function->fl_statics.empty();
    if (!any) return;
    note_file();
    for (SYMTAB* symbol : functions) {
        currfunc = symbol;
        currfuninfo = find_FUNINFO(symbol);
        identify_fl_statics_safe_for_auto();
        convert_safe_fl_statics_to_auto(currfuninfo);
    }
    currfunc = nullptr;
    currfuninfo = fileinfo.root;
    state() = {};
}
