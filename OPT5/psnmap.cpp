#include "psnmap.h"

#include <cstddef>
#include <functional>
#include <set>
#include <tuple>
#include <unordered_map>
#include <vector>

#include "files.h"
#include "psn.h"
#include "symbol.h"

namespace {

struct SAME_PSN {
    bool operator()(const PSN& a, const PSN& b) const {
        return a.file == b.file && a.line == b.line && a.column == b.column;
    }
};

struct PSN_HASH {
    std::size_t operator()(const PSN& psn) const {
        const std::size_t h = std::hash<const void*>{}(psn.file);
        return (h * 31 + psn.line) * 0x9e3779b9u + psn.column;
    }
};

unsigned line_of(const SYMTAB* symbol) { return symbol->psn != nullptr ? symbol->psn->line : 0; }

// Symbols of one line follow in the order of the file, which stays the same from run to run.
struct BY_LINE {
    bool operator()(const SYMTAB* a, const SYMTAB* b) const {
        return std::make_tuple(line_of(a), a->index) < std::make_tuple(line_of(b), b->index);
    }
};

struct PSN_MAP {
    std::unordered_map<PSN, SYMTAB*, PSN_HASH, SAME_PSN> functions;
    std::vector<const std::pair<const PSN, SYMTAB*>*> in_order;
    std::set<SYMTAB*, BY_LINE> references;
};

PSN_MAP& map() {
    static PSN_MAP positions;
    return positions;
}

const char* file_of(const PSN& psn) { return psn.file != nullptr ? psn.file : "NO_FILE"; }

} // namespace

void psnref_add(SYMTAB* function) { map().references.insert(function); }

void psnmap_add(const PSN* psn, SYMTAB* function) {
    if (psn == nullptr) return;
    const auto [entry, is_new] = map().functions.emplace(*psn, function);
    if (is_new) map().in_order.push_back(&*entry);
}

SYMTAB* psn_search(const PSN* psn) {
    const auto entry = psn != nullptr ? map().functions.find(*psn) : map().functions.end();
    return entry != map().functions.end() ? entry->second : nullptr;
}

bool psn_is_within_psn_range(const PSN* psn, const PSN* low, const PSN* high) {
    OPTASSERT(psn != nullptr && low != nullptr && high != nullptr);
    const auto place = [](const PSN* p) { return std::make_tuple(p->line, p->column); };
    return place(low) <= place(psn) && place(psn) <= place(high);
}

void dump_psnrefs(std::FILE* stream) {
    if (map().references.empty()) return;
    std::fprintf(stream, " Inlined function references:\n");
    for (const SYMTAB* symbol : map().references)
        std::fprintf(stream, "\t%s (%s,%ld)\n", symbol->name,
                     symbol->psn != nullptr ? file_of(*symbol->psn) : "NO_FILE",
                     static_cast<long>(line_of(symbol)));
}

void dump_psnmap(std::FILE* stream) {
    for (const auto* entry : map().in_order)
        std::fprintf(stream, "%p:  PSN (%s,%ld,%ld)  -->  %s\n", static_cast<const void*>(&entry->first),
                     file_of(entry->first), static_cast<long>(entry->first.line),
                     static_cast<long>(entry->first.column), entry->second->name);
}

void clear_psnmap() { map() = {}; }
