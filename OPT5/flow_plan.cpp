#include "flow_plan.h"

#include <cstring>

#include "bblk.h"
#include "bbutils.h"
#include "fileopt.h"
#include "files.h"
#include "node.h"
#include "opcodes.h"
#include "psn.h"
#include "symbol.h"

using namespace op;

namespace {

// FNV-1a.
constexpr std::uint32_t HASH_START = 2166136261u, HASH_FACTOR = 16777619u;

bool makes_call(const BBLK* bb) {
    for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next)
        if (any_node(cell->first, [](const NODE* node) { return node->op == CALL || node->op == UCALL; }))
            return true;
    return false;
}

// By DFN: the blocks that the exception table enters.
std::vector<bool> blocks_entered_by_table() {
    std::vector<bool> entered(static_cast<std::size_t>(currfuninfo->bb_count) + 1);
    for (const EHT_ENTRY& entry : currfuninfo->eht)
        walk_tree(static_cast<NODE*>(entry.tree), [&](const NODE* node) {
            if (node->op == LABEL && node->label != nullptr && node->label->bb != nullptr)
                entered[static_cast<std::size_t>(node->label->bb->dfn)] = true;
        });
    return entered;
}

} // namespace

void FLOW_PLAN::add(std::uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8)
        checksum_ = (checksum_ ^ (value >> shift & 0xff)) * HASH_FACTOR;
}

FLOW_PLAN::FLOW_PLAN() : checksum_(HASH_START) {
    const std::vector<bool> entered = blocks_entered_by_table();
    blocks_.resize(static_cast<std::size_t>(currfuninfo->bb_count) + 1);
    for (const BBLK* bb = currfuninfo->bb_list; !bb->is_exit(); bb = bb->next) {
        BLOCK_COUNTERS& counters = blocks_[static_cast<std::size_t>(bb->dfn)];
        counters.start = count_++;
        counters.first_edge = edges_.size();
        const EDGE* first = bb->successors;
        const bool is_fork = first != nullptr && first->next != nullptr;
        if (first != nullptr && !is_fork && !first->bb->is_exit() && makes_call(bb)) counters.end = count_++;
        const int transfer = last_statement(bb)->op;
        add(static_cast<std::uint32_t>(transfer));
        add(counters.end == NONE ? 0 : 1);
        for (const EDGE* edge = first; edge != nullptr; edge = edge->next) {
            const BBLK* to = edge->bb;
            const bool is_joined = to->is_exit() || to->predecessors->next != nullptr ||
                                   entered[static_cast<std::size_t>(to->dfn)];
            edges_.push_back(is_fork && is_joined ? count_++ : NONE);
            add(static_cast<std::uint32_t>(to->dfn));
        }
    }
    add(count_);
}

std::uint32_t FLOW_PLAN::start(const BBLK* bb) const {
    return blocks_[static_cast<std::size_t>(bb->dfn)].start;
}

std::uint32_t FLOW_PLAN::end(const BBLK* bb) const { return blocks_[static_cast<std::size_t>(bb->dfn)].end; }

std::uint32_t FLOW_PLAN::edge(const BBLK* bb, std::size_t successor) const {
    return edges_[blocks_[static_cast<std::size_t>(bb->dfn)].first_edge + successor];
}

std::uint32_t FLOW_PLAN::counter_of_edge(const BBLK* from, std::size_t successor) const {
    if (from->successors->next == nullptr) return end(from) != NONE ? end(from) : start(from);
    if (const std::uint32_t own = edge(from, successor); own != NONE) return own;
    const EDGE* to = from->successors;
    for (; successor > 0; successor--) to = to->next;
    return start(to->bb);
}

std::string flow_name(const FUNINFO* function) {
    const SYMTAB* symbol = function->symbol;
    if (symbol->sclass != SC_STATIC) return symbol->name;
    const char* slash = std::strrchr(function->source_file, '/');
    return std::string(slash != nullptr ? slash + 1 : function->source_file) + ":" + symbol->name;
}
