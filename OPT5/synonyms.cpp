#include "synonyms.h"

#include <cstdio>
#include <cstring>
#include <vector>

#include "bbutils.h"
#include "debug.h"
#include "fileopt.h"
#include "files.h"
#include "node.h"
#include "opcodes.h"
#include "pragma.h"
#include "symbol.h"
#include "types.h"

using namespace op;

namespace {

constexpr int MAX_STATEMENTS = 3; // argument prolog, call, return
constexpr std::uint16_t NO_SYNONYM =
    0x1060;                             // bits of `cqual`: interrupts and functions of another kind of call
constexpr std::size_t MAX_CHAIN = 1000; // synonyms of synonyms
constexpr std::size_t EMPTY_TABLE = 2;  // entries of an exception table without a region

void join(FUNINFO* function, FUNINFO* target) {
    function->is_synonym = true;
    function->synonym_of = target;
    fileinfo.synonyms.push_back(function);
}

const PRAGMA* pragma_of(const SYMTAB* symbol, int kind) {
    const PRAGMA* pragma = symbol->pragmas;
    while (pragma != nullptr && pragma->kind != kind) pragma = pragma->next;
    return pragma;
}

// The call that the body consists of, null for another body. `prolog` is the statement that receives the
// parameters, null without one.
NODE* call_of_body(const FUNINFO* function, NODE*& prolog) {
    std::vector<NODE*> statements; // last first
    for (const LIST* cell = function->statements; cell != nullptr; cell = cell->next) {
        statements.push_back(cell->first);
        if (statements.size() > MAX_STATEMENTS) return nullptr;
    }
    prolog = nullptr;
    if (!statements.empty() && tree_is_arg_prolog(statements.back())) {
        prolog = statements.back();
        statements.pop_back();
    }
    NODE* call = nullptr;
    if (statements.size() == 1) {
        if (statements[0]->op == RETURN) {
            call = statements[0]->right;
        } else if (function->return_type->is_void()) {
            call = statements[0]; // the end of the function returns
        }
    } else if (statements.size() == 2 && statements[0]->op == URETURN && function->return_type->is_void()) {
        call = statements[1];
    }
    return call != nullptr && (call->op == CALL || call->op == UCALL) ? call : nullptr;
}

// Whether the call passes each parameter, and the prolog receives each one.
bool passes_parameters_on(const FUNINFO* function, const NODE* call, const NODE* prolog) {
    std::vector<const SYMTAB*> parameters;
    for (const SYMTAB* symbol = function->params; symbol != nullptr; symbol = symbol->next) {
        if (symbol->otype->is_volatile()) return false;
        parameters.push_back(symbol);
    }
    std::size_t left = parameters.size();
    const NODE* list = call->op == CALL ? call->right : nullptr;
    while (list != nullptr && left > 0) {
        const bool is_last = list->op != COMMA;
        const NODE* argument = is_last ? list : list->right;
        const SYMTAB* parameter = parameters[--left];
        if (argument->op != NAME || argument->symbol() != parameter ||
            !tp->compatible_types(argument->type, parameter->otype, true))
            return false;
        list = is_last ? nullptr : list->left;
    }
    if (list != nullptr || left != 0) return false;
    if (prolog == nullptr) return parameters.empty();
    std::size_t received = parameters.size();
    const NODE* part = prolog;
    for (; part->op == PCOMMA; part = part->left)
        if (received == 0 || part->right->left->symbol() != parameters[--received]) return false;
    return received == 1 && part->left->symbol() == parameters[0];
}

bool pragmas_allow(const SYMTAB* symbol) {
    for (const PRAGMA* pragma = symbol->pragmas; pragma != nullptr; pragma = pragma->next)
        if (!pragma_is_ignorable(pragma->kind)) return false;
    return !symbol_is_preemptible(symbol);
}

bool groups_agree(const SYMTAB* a, const SYMTAB* b) {
    const PRAGMA *one = pragma_of(a, PRAG_COMDAT_GROUP), *other = pragma_of(b, PRAG_COMDAT_GROUP);
    if (one == nullptr || other == nullptr) return one == other;
    return one->args == other->args;
}

// Whether the chain of synonyms from the target comes back to the function.
bool leads_back(const FUNINFO* function, const FUNINFO* target) {
    for (std::size_t steps = 0; target != nullptr; target = target->synonym_of)
        if (target == function || ++steps > MAX_CHAIN) return true;
    return false;
}

bool may_stand_for(const FUNINFO* function, const SYMTAB* callee) {
    const SYMTAB* symbol = function->symbol;
    if (callee->level != 0 || (callee->sclass != SC_EXTDEF && callee->sclass != SC_STATIC)) return false;
    if (!tp->compatible_types(symbol->otype, callee->otype, true)) return false;
    if (symbol->otype->func().vararg || callee->otype->func().vararg || !callee->otype->func().proto)
        return false;
    if (((symbol->cqual | callee->cqual) & NO_SYNONYM) != 0 || TEST_FLAG(function, FUN_is_main)) return false;
    if (symbol_is_protected(symbol) && callee->sclass == SC_STATIC) return false;
    return pragmas_allow(symbol) && pragmas_allow(callee) && groups_agree(symbol, callee);
}

} // namespace

void check_for_synonym_function_in_pass_1() {
    FUNINFO* function = currfuninfo;
    SYMTAB* symbol = currfunc;
    if (const PRAGMA* given = pragma_of(symbol, PRAG_FUNC_SYNONYM)) {
        SYMTAB* target = given->args.empty() ? nullptr : find_external_symbol(given->args[0].c_str());
        const bool is_function = target != nullptr && target != symbol && target->otype->is_func();
        FUNINFO* of = is_function ? make_FUNINFO(target) : nullptr;
        join(function, of != nullptr && !leads_back(function, of) ? of : nullptr);
        return;
    }
    if (function->eht.size() > EMPTY_TABLE) return;
    NODE* prolog = nullptr;
    NODE* call = call_of_body(function, prolog);
    if (call == nullptr) return;
    SYMTAB* callee = get_callee_for_call(call);
    if (callee == nullptr || callee == symbol || !may_stand_for(function, callee)) return;
    if (!tp->compatible_types(call->type, function->return_type, true)) return;
    FUNINFO* target = make_FUNINFO(callee);
    if (leads_back(function, target) || !passes_parameters_on(function, call, prolog)) return;
    auto* made = new PRAGMA;
    made->kind = PRAG_FUNC_SYNONYM;
    made->args.emplace_back(callee->name);
    made->next = symbol->pragmas;
    symbol->pragmas = made;
    join(function, target);
    dprintf("Making %s a function synonym of %s\n", symbol->name, callee->name);
    if (finfo != nullptr)
        std::fprintf(finfo, "Making %s a function synonym of %s\n", symbol->name, callee->name);
    info_sentence(function->psn, "%s() does nothing but call %s()", symbol->name, callee->name);
}

bool is_synonym_function(const FUNINFO* function) { return function->is_synonym; }
