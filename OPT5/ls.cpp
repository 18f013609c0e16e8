#include "ls.h"

#include "fileopt.h"
#include "files.h"
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
LS* next_in_tree(LS* scope) {
    if (scope->children != nullptr) return scope->children;
    while (scope != nullptr && scope->sibling == nullptr) scope = scope->parent;
    return scope != nullptr ? scope->sibling : nullptr;
}

} // namespace

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
