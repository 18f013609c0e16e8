#include "instrument.h"

#include <string>
#include <utility>
#include <vector>

#include "bblk.h"
#include "bbutils.h"
#include "buildcfg.h"
#include "debug.h"
#include "fileopt.h"
#include "files.h"
#include "flow_plan.h"
#include "node.h"
#include "opcodes.h"
#include "read.h"
#include "simp.h"
#include "symbol.h"
#include "types.h"

using namespace op;

bool GO_FOR_INSTRUMENTATION;

namespace {

constexpr char EXIT_ROUTINE[] = "__flow_counts_exit";
constexpr std::uint32_t HEADER = 2; // checksum and number of counters stand ahead of the counters

struct COUNTED_FUNCTION {
    std::string name; // in the profile
    SYMTAB* counts;
    std::uint32_t checksum, counters;
};

std::vector<COUNTED_FUNCTION> counted;

TYPE* counter_type() { return tp->int_type(IK_ULONG); }

// A static of the file that the linker keeps.
SYMTAB* mk_kept_static(const std::string& name, TYPE* type) {
    SYMBOL_RECORD record;
    record.name = name.c_str();
    record.type = type;
    record.size = static_cast<unsigned>(type->size());
    record.sclass = SC_STATIC;
    record.align = type->align();
    record.retention = I_SYMTAB::ALWAYS;
    SYMTAB* symbol = mk_symbol(record);
    sym_def(symbol);
    return symbol;
}

class INSTRUMENTER {
  public:
    void run();

  private:
    NODE* step_of(std::uint32_t counter) const;
    void count_start(BBLK* bb) const;
    void count_end(BBLK* bb) const;
    void count_edges(BBLK* bb);

    const FLOW_PLAN plan_;
    SYMTAB* counts_ = nullptr;
    std::vector<BBLK*> on_edge_; // by DFN: the new block on the edge from the block in work
};

// counts[HEADER + counter] += 1, in the form that the front end gives it.
NODE* INSTRUMENTER::step_of(std::uint32_t counter) const {
    TYPE* type = counter_type();
    TYPE* pointer = tp->mk_ptr(type);
    const std::uint64_t units = std::uint64_t{HEADER + counter} * (type->size() / 16);
    NODE* array = maketree(UAND, mk_NAME(counts_), nullptr, pointer, nullptr);
    NODE* offset = mk_ICON(INT65::from_unsigned(units), tp->int_type(units < 0x8000 ? IK_INT : IK_LONG));
    NODE* place = maketree(UMULT, maketree(PLUS, array, offset, pointer, nullptr), nullptr, type, nullptr);
    NODE* one = mk_ICON(INT65::from_signed(1), type);
    return simp_tree(maketree(PLUSASG, place, one, type, nullptr), nullptr);
}

void INSTRUMENTER::count_start(BBLK* bb) const {
    LIST** place = &bb->statements;
    const PSN* psn = (*place)->psn;
    if (tree_is_arg_prolog((*place)->first)) place = &(*place)->next;
    *place = mkelist(step_of(plan_.start(bb)), *place, psn);
}

void INSTRUMENTER::count_end(BBLK* bb) const {
    LIST** place = &bb->statements;
    while ((*place)->next != nullptr) place = &(*place)->next;
    *place = mkelist(step_of(plan_.end(bb)), *place, (*place)->psn);
}

// The new blocks stand in front of the next one. Edges are the caller's.
void INSTRUMENTER::count_edges(BBLK* bb) {
    LIST* last = last_cell(bb);
    std::vector<BBLK*> targets;
    std::size_t position = 0;
    for (const EDGE* edge = bb->successors; edge != nullptr; edge = edge->next, position++) {
        const std::uint32_t counter = plan_.edge(bb, position);
        if (counter == FLOW_PLAN::NONE) continue;
        LIST* statements = mkelist(mk_BRANCH(edge->bb, nullptr), nullptr, last->psn);
        BBLK* made = insert_new_bb(bb->dfn, bb, mkelist(step_of(counter), statements, last->psn));
        on_edge_[static_cast<std::size_t>(edge->bb->dfn)] = made;
        targets.push_back(edge->bb);
    }
    if (targets.empty()) return;
    for_each_labelref(last->first, [&](NODE* reference) {
        const int dfn = reference->label->bb->dfn;
        BBLK* made = on_edge_[static_cast<std::size_t>(dfn)];
        if (made != nullptr) reference->label = label_of(made);
    });
    for (const BBLK* target : targets) on_edge_[static_cast<std::size_t>(target->dfn)] = nullptr;
}

void INSTRUMENTER::run() {
    const std::string name = flow_name(currfuninfo);
    counts_ = mk_kept_static(std::string("$O$counts$") + currfunc->name,
                             tp->mk_array(counter_type(), HEADER + plan_.counters()));
    counted.push_back({name, counts_, plan_.checksum(), plan_.counters()});
    on_edge_.resize(static_cast<std::size_t>(currfuninfo->bb_count) + 1);
    BBLK* next = nullptr;
    for (BBLK* bb = currfuninfo->bb_list; !bb->is_exit(); bb = next) {
        next = bb->next;
        count_start(bb);
        if (plan_.end(bb) != FLOW_PLAN::NONE) count_end(bb);
        count_edges(bb);
    }
    currfuninfo->profile_state = 1;
}

void give_initialiser(SYMTAB* symbol, INIT_TREES&& trees) {
    trees.push_back(maketree(ENDINIT, nullptr, nullptr, tp->int_type(IK_INT), nullptr));
    opt_client.cl_symbol_init(symbol, std::move(trees));
}

NODE* library_function(const char* name) {
    SYMTAB* symbol = make_FUNINFO(name)->symbol;
    return maketree(UAND, mk_NAME(symbol), nullptr, tp->mk_ptr(symbol->otype), nullptr);
}

} // namespace

void instrument_function() {
    INSTRUMENTER().run();
    rebuildcfg();
    renumber_bblocks();
}

void finish_instrumentation() {
    if (counted.empty()) return;
    // Whatever is called at the end of the program reads the counts.
    fileinfo.flags |= FILE_calls_may_leave;
    TYPE* pointer = tp->mk_ptr(tp->void_type());
    INIT_TREES table;
    for (const COUNTED_FUNCTION& function : counted) {
        INIT_TREES header;
        for (const std::uint32_t value : {function.checksum, function.counters})
            header.push_back(mk_ICON(INT65::from_unsigned(value), counter_type()));
        give_initialiser(function.counts, std::move(header));
        NODE* name = maketree(SCON, nullptr, nullptr, pointer, nullptr);
        name->mk_scon(function.name.c_str(), static_cast<unsigned>(function.name.size() + 1));
        table.push_back(name);
        table.push_back(maketree(UAND, mk_NAME(function.counts), nullptr, pointer, nullptr));
    }
    table.push_back(mk_ICON(INT65::from_signed(0), pointer));
    SYMTAB* symbol =
        mk_kept_static("$O$flow_counts", tp->mk_array(pointer, static_cast<unsigned>(table.size())));
    give_initialiser(symbol, std::move(table));
}

void add_instrumentation_exit_routine_to_atexit() {
    static bool is_added = false; // the step may run again
    if (!GO_FOR_INSTRUMENTATION || currfuninfo->profile_state != 1 || is_added ||
        !TEST_FLAG(currfuninfo, FUN_is_main))
        return;
    is_added = true;
    NODE* call = maketree(CALL, library_function("atexit"), library_function(EXIT_ROUTINE),
                          tp->int_type(IK_INT), nullptr);
    currfuninfo->has_no_calls = false;
    LIST** place = &currfuninfo->bb_list->statements;
    const PSN* psn = (*place)->psn;
    if (tree_is_arg_prolog((*place)->first)) place = &(*place)->next;
    *place = mkelist(call, *place, psn);
    currfuninfo->flow_is_stale = true;
}
