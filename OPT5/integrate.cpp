#include "integrate.h"

#include <memory>
#include <utility>

#include "bblk.h"
#include "copy_cfg.h"
#include "fileopt.h"
#include "ls.h"
#include "symbol.h"

// --- The integrable definition.

void make_integrable_cfg(FUNINFO* function) {
    if (function->integrable_cfg != nullptr || function->bb_list == nullptr) return;
    sym_split(function);
    auto definition = std::make_unique<FUNINFO>();
    definition->symbol = function->symbol;
    definition->return_type = function->return_type;
    definition->name = function->name;
    definition->flags = function->flags;
    CFG_COPY copy = copy_cfg(function, definition.get());
    definition->bb_list = copy.first;
    definition->bb_count = function->bb_count;
    definition->params = copy.params;
    definition->locals = copy.locals;
    definition->temps = copy.temps;
    definition->scopes = copy.scopes;
    definition->body_scope = copy.scopes != nullptr && copy.scopes->children != nullptr
                                 ? copy.scopes->children->children
                                 : nullptr;
    definition->eht = std::move(copy.eht);
    function->integrable_cfg = std::move(definition);
    function->flags |= FUN_is_inlined;
}
