#include "ls.h"

#include "fileopt.h"
#include "files.h"
#include "pool.h"
#include "symbol.h"

LS* LS::open(FUNINFO* function) {
    auto* scope = new (function->pool.allocate(sizeof(LS))) LS;
    LS* outer = function->open_scope;
    scope->parent = outer;
    if (outer == nullptr) {
        function->scopes = scope;
    } else {
        scope->level = outer->level + 1;
        scope->sibling = outer->children;
        outer->children = scope;
    }
    scope->sequence = function->scope_count++;
    if (scope->level > function->scope_depth) function->scope_depth = scope->level;
    if (scope->level == 2 && function->body_scope == nullptr) function->body_scope = scope;
    function->open_scope = scope;
    return scope;
}

bool LS::close(FUNINFO* function) {
    if (function->open_scope == nullptr) return false;
    function->open_scope = function->open_scope->parent;
    return true;
}

LS* LS::level_2_scope(const FUNINFO* function) { return function->body_scope; }

void LS::add_symbol(SYMTAB* symbol) {
    symbols = mk_symlist(symbol, symbols);
    symbol->scope = this;
}

namespace {

// The scope behind this one in a walk that visits a scope before its children; null at the end.
template <class SCOPE> SCOPE* next_in_tree(SCOPE* scope) {
    if (scope->children != nullptr) return scope->children;
    while (scope != nullptr && scope->sibling == nullptr) scope = scope->parent;
    return scope != nullptr ? scope->sibling : nullptr;
}

} // namespace

LS* LS::copy_scope_tree(const LS* root, const std::unordered_map<const SYMTAB*, SYMTAB*>& symbols,
                        std::unordered_map<const LS*, LS*>& scopes) {
    if (root == nullptr) return nullptr;
    const auto copy_one = [&](const LS* scope) {
        auto* copy = new (current_pool().allocate(sizeof(LS))) LS;
        scopes.emplace(scope, copy);
        copy->level = scope->level;
        SYMLIST** place = &copy->symbols;
        for (const SYMLIST* cell = scope->symbols; cell != nullptr; cell = cell->next) {
            const auto symbol = symbols.find(cell->sym);
            if (symbol == symbols.end()) continue;
            symbol->second->scope = copy;
            *place = mk_symlist(symbol->second, nullptr);
            place = &(*place)->next;
        }
        return copy;
    };
    LS* copied_root = copy_one(root);
    for (const LS* scope = root; scope != nullptr; scope = next_in_tree(scope)) {
        LS* parent = scopes.at(scope);
        LS** place = &parent->children;
        for (const LS* child = scope->children; child != nullptr; child = child->sibling) {
            *place = copy_one(child);
            (*place)->parent = parent;
            place = &(*place)->sibling;
        }
    }
    return copied_root;
}

void LS::offset_scope(unsigned delta, int new_owner) {
    OPTASSERT(delta != 0);
    LS* const outside = parent;
    LS* const behind = sibling;
    parent = sibling = nullptr; // the walk stays inside
    for (LS* scope = this; scope != nullptr; scope = next_in_tree(scope)) {
        scope->sequence = currfuninfo->scope_count++;
        scope->level += static_cast<int>(delta);
        scope->owner = new_owner;
        if (scope->level > currfuninfo->scope_depth) currfuninfo->scope_depth = scope->level;
    }
    parent = outside;
    sibling = behind;
}

void LS::splice_scope(LS* scope, int new_owner) {
    scope->offset_scope(static_cast<unsigned>(level + 1 - scope->level), new_owner);
    scope->parent = this;
    scope->sibling = children;
    children = scope;
}

void LS::validate(LS* root) {
    for (LS* scope = root; scope != nullptr; scope = next_in_tree(scope)) {
        OPTASSERT(scope->level == (scope->parent != nullptr ? scope->parent->level + 1 : 0));
        for (SYMLIST* cell = scope->symbols; cell != nullptr; cell = cell->next)
            OPTASSERT(cell->sym->scope == scope);
    }
}

void LS::print(LS* root) {
    if (print_debug == 0) return;
    for (LS* scope = root; scope != nullptr; scope = next_in_tree(scope)) {
        dprintf("scope at level %d:", scope->level);
        for (SYMLIST* cell = scope->symbols; cell != nullptr; cell = cell->next)
            dprintf(" %s", cell->sym->name);
        dprintf("\n");
    }
}
