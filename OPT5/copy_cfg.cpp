// Copying goes by tables of the source: blocks by their ids, symbols and scopes by their addresses. The
// source is only read. What a tree refers to and does not own is shared if it outlives both functions (types,
// globals, interned texts) and copied if it lives in the pool of the source.

#include "copy_cfg.h"

#include <utility>

#include "bblk.h"
#include "bbutils.h"
#include "copy.h"
#include "fileopt.h"
#include "files.h"
#include "in_function.h"
#include "initialiser.h"
#include "ls.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "pool.h"
#include "pragma.h"
#include "symbol.h"

using namespace op;

namespace {

class COPIER {
  public:
    COPIER(const FUNINFO* from, FUNINFO* to) : from_(from), to_(to) {}
    CFG_COPY run();

  private:
    SYMTAB* enter_copy(const SYMTAB* symbol);
    SYMTAB* copy_symbols(const SYMTAB* list);
    void copy_scopes();
    void copy_initialisers(const SYMTAB* list);
    void copy_blocks();
    void copy_edges();
    void copy_table();
    EDGE* copy_edges(const EDGE* list);
    NODE* copy_expression(NODE* tree);
    void adopt(NODE* node);

    const FUNINFO* from_;
    FUNINFO* to_;
    bool same_pool_ = from_ == to_;
    CFG_COPY copy_;
    std::unordered_map<const LS*, LS*> scopes_;
    std::vector<BBLK*> blocks_; // by the id of the original
};

PRAGMA* copy_pragmas(const PRAGMA* chain) {
    PRAGMA* head = nullptr;
    for (PRAGMA** place = &head; chain != nullptr; chain = chain->next, place = &(*place)->next) {
        *place = new PRAGMA(*chain);
        (*place)->next = nullptr;
        currfuninfo->owned_pragmas.push_back(*place);
    }
    return head;
}

} // namespace

SYMTAB* copy_symbol(const SYMTAB* symbol) {
    auto* copy = new SYMTAB;
    copy->name = symbol->name;
    copy->size = symbol->size;
    copy->value = symbol->value;
    copy->sclass = symbol->sclass;
    copy->class_as_read = symbol->class_as_read;
    copy->cqual = symbol->cqual;
    copy->type = symbol->type;
    copy->otype = symbol->otype;
    copy->cpp_type = symbol->cpp_type;
    copy->align = symbol->align;
    copy->psn = mk_psn(symbol->psn);
    copy->pragmas = copy_pragmas(symbol->pragmas);
    copy->level = symbol->level;
    copy->retention = symbol->retention;
    copy->location = symbol->location;
    copy->option_set = symbol->option_set;
    copy->flags = symbol->flags;
    copy->serial = copy->index = currfuninfo->next_serial++;
    return copy;
}

namespace {

SYMTAB* COPIER::enter_copy(const SYMTAB* symbol) {
    SYMTAB* copy = ::copy_symbol(symbol);
    copy_.symbols.emplace(symbol, copy);
    return copy;
}

SYMTAB* COPIER::copy_symbols(const SYMTAB* list) {
    SYMTAB* head = nullptr;
    for (SYMTAB** place = &head; list != nullptr; list = list->next, place = &(*place)->next)
        *place = enter_copy(list);
    return head;
}

void COPIER::copy_scopes() { copy_.scopes = LS::copy_scope_tree(from_->scopes, copy_.symbols, scopes_); }

void COPIER::copy_initialisers(const SYMTAB* list) {
    for (; list != nullptr; list = list->next) {
        const EXPR_LIST* first = list->init;
        if (first == nullptr) continue;
        SYMTAB* copy = copy_.symbols.at(list);
        const EXPR_LIST* cell = first;
        do {
            append_to_initialiser(copy->init, copy_expression(cell->tree));
            cell = cell->next;
        } while (cell != first);
    }
}

// Makes the copy of a node refer to what belongs to the target.
void COPIER::adopt(NODE* node) {
    if (node->ls != nullptr) {
        const auto scope = scopes_.find(node->ls);
        node->ls = scope != scopes_.end() ? scope->second : nullptr;
    }
    switch (node->op) {
        case NAME:
            if (node->symbol()->level > 0) {
                const auto symbol = copy_.symbols.find(node->symbol());
                OPTASSERT(symbol != copy_.symbols.end());
                node->u.rval = symbol->second;
            }
            break;
        case LABEL:
            if (node->label != nullptr && node->label->bb != nullptr) {
                node->label = label_of(blocks_[node->label->bb->id]);
                node->label->refs++;
            }
            break;
        case SCON:
            if (!same_pool_) node->text = current_pool().copy_text({node->text, node->text_length});
            break;
        case FCON:
        case ASM:
            if (!same_pool_ && node->text != nullptr) node->text = current_pool().copy_text(node->text);
            break;
        default: break;
    }
}

NODE* COPIER::copy_expression(NODE* tree) {
    NODE* copy = copy_tree(tree, false);
    walk_tree(copy, [this](NODE* node) { adopt(node); });
    return copy;
}

void COPIER::copy_blocks() {
    blocks_.resize(from_->blocks.size());
    BBLK* previous = nullptr;
    for (const BBLK* bb = from_->bb_list; bb != nullptr; bb = bb->next) {
        BBLK* copy = mkbblock(nullptr, nullptr, to_);
        blocks_[bb->id] = copy;
        copy->is_kept = bb->is_kept;
        copy->dFreqIn = bb->dFreqIn;
        copy->count = bb->count;
        copy->dfn = bb->dfn;
        copy->prev = previous;
        (previous != nullptr ? previous->next : copy_.first) = copy;
        if (previous != nullptr) previous->layout_next = copy;
        previous = copy;
    }
    if (copy_.first != nullptr) copy_.first->prev = previous;
    copy_.last = previous;
    for (const BBLK* bb = from_->bb_list; bb != nullptr; bb = bb->next) {
        BBLK* copy = blocks_[bb->id];
        LIST** place = &copy->statements;
        for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next) {
            *place = mkelist(copy_expression(cell->first), nullptr, cell->psn);
            (*place)->number1 = cell->number1;
            (*place)->number2 = cell->number2;
            if ((*place)->psn != nullptr) {
                if (copy->first_psn == nullptr) copy->first_psn = (*place)->psn;
                copy->last_psn = (*place)->psn;
            }
            place = &(*place)->next;
        }
    }
}

EDGE* COPIER::copy_edges(const EDGE* list) {
    EDGE* head = nullptr;
    for (EDGE** place = &head; list != nullptr; list = list->next, place = &(*place)->next) {
        *place = mkedge(blocks_[list->bb->id], nullptr);
        (*place)->freq = list->freq;
    }
    return head;
}

void COPIER::copy_edges() {
    for (const BBLK* bb = from_->bb_list; bb != nullptr; bb = bb->next) {
        BBLK* copy = blocks_[bb->id];
        copy->successors = copy_edges(bb->successors);
        copy->predecessors = copy_edges(bb->predecessors);
    }
}

void COPIER::copy_table() {
    copy_.eht = from_->eht;
    for (EHT_ENTRY& entry : copy_.eht)
        if (entry.tree != nullptr) entry.tree = copy_expression(static_cast<NODE*>(entry.tree));
}

CFG_COPY COPIER::run() {
    const IN_FUNCTION current(to_);
    copy_.params = copy_symbols(from_->params);
    copy_.locals = copy_symbols(from_->locals);
    copy_.temps = copy_symbols(from_->temps);
    copy_scopes();
    for (const SYMTAB* list : {from_->params, from_->locals, from_->temps}) copy_initialisers(list);
    copy_blocks();
    copy_edges();
    copy_table();
    return std::move(copy_);
}

} // namespace

CFG_COPY copy_cfg(const FUNINFO* from, FUNINFO* to) { return COPIER(from, to).run(); }
