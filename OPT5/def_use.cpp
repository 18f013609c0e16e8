#include "def_use.h"

#include <vector>

#include "aliasing.h"
#include "bblk.h"
#include "bbutils.h"
#include "copy.h"
#include "debug.h"
#include "dump.h"
#include "fileopt.h"
#include "files.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "optypes.h"
#include "symbol.h"
#include "types.h"

using namespace op;

NODE* name_behind_address(const NODE* indirection) {
    if (indirection->op != UMULT || indirection->left->op != UAND) return nullptr;
    NODE* name = indirection->left->left;
    if (name->op != NAME || !name->type->is_scalar() || !indirection->type->is_scalar()) return nullptr;
    const bool alike = name->type->is_volatile() == indirection->type->is_volatile() &&
                       name->type->is_ptr() == indirection->type->is_ptr() &&
                       same_representation(name->type, indirection->type);
    return alike ? name : nullptr;
}

bool is_immutable_parameter(const SYMTAB* symbol) {
    return symbol->level == 1 && symbol->def_count == -1 && symbol->type->is_const() &&
           !symbol->otype->is_volatile() && (symbol->flags & SF_ADDRESS_TAKEN) == 0;
}

namespace {

constexpr std::int16_t MANY = 0x7fff;
constexpr std::uint16_t MANY_USES = 0xfffe;

void reset(SYMTAB* list) {
    for (SYMTAB* symbol = list; symbol != nullptr; symbol = symbol->next) {
        symbol->flags &= static_cast<std::uint8_t>(~SF_ADDRESS_TAKEN);
        symbol->def_count = is_automatic(symbol) ? 0 : -1;
        symbol->use_count = 0;
        symbol->sole_def = nullptr;
    }
}

void add_use(SYMTAB* symbol) {
    if (symbol->level != 0 && symbol->use_count < MANY_USES) symbol->use_count++;
}

void mark_function(SYMTAB* symbol) {
    if (symbol->level == 0 && symbol->otype->is_func()) make_FUNINFO(symbol)->flags |= FUN_is_referenced;
}

void add_def(SYMTAB* symbol, NODE* assignment) {
    if (symbol->def_count < 0 || symbol->def_count == MANY) return;
    symbol->def_count++;
    symbol->sole_def = symbol->def_count == 1 ? assignment : nullptr;
}

void give_up(SYMTAB* symbol) {
    symbol->def_count = -1;
    symbol->sole_def = nullptr;
}

// The count walk over one statement.
class COUNTER {
  public:
    void run(NODE* statement) {
        pending_.push(statement);
        while (!pending_.empty()) visit(pending_.pop());
    }
    void run_prolog(NODE* prolog) {
        for (; prolog->op == PCOMMA; prolog = prolog->left)
            add_def(prolog->right->left->symbol(), prolog->right);
        add_def(prolog->left->symbol(), prolog);
    }

  private:
    void push(NODE* node) {
        if (node != nullptr) pending_.push(node);
    }
    void visit(NODE* node);
    void visit_name(NODE* node);
    void visit_address(NODE* place);
    void visit_target(NODE* place, NODE* assignment);
    void visit_chain(NODE* assignment);

    NODE_STACK pending_;
    std::vector<NODE*> chain_;
};

void COUNTER::visit_name(NODE* node) {
    SYMTAB* symbol = node->symbol();
    add_use(symbol);
    mark_function(symbol);
    if (node->type->is_ptr() && (node->type->qual_kind() & QUAL_RESTRICT) != 0 &&
        (symbol->otype->qual_kind() & QUAL_RESTRICT) == 0)
        node->type = tp->remove_known_qual(node->type, QUAL_RESTRICT);
}

void COUNTER::visit_address(NODE* place) {
    while (place->op == STDOT) place = place->left;
    if (place->op == UMULT || place->op == STREF) {
        push(place->left);
    } else if (place->op == NAME) {
        SYMTAB* symbol = place->symbol();
        mark_function(symbol);
        add_use(symbol);
        if (symbol->level != 0) symbol->flags |= SF_ADDRESS_TAKEN;
        give_up(symbol);
    } else {
        push(place);
    }
}

void COUNTER::visit_target(NODE* place, NODE* assignment) {
    if (place->op == NAME) {
        add_def(place->symbol(), assignment);
        return;
    }
    if (const NODE* name = name_behind_address(place); name != nullptr) {
        add_def(name->symbol(), nullptr);
        return;
    }
    while (place->op == STDOT) place = place->left;
    if (place->op == NAME) {
        // A part of the object: its other parts keep their values.
        add_use(place->symbol());
        give_up(place->symbol());
    } else {
        push(place);
    }
}

// a = b = ... = e: each target gets the value of the innermost assignment that has the same type.
void COUNTER::visit_chain(NODE* assignment) {
    chain_.clear();
    for (NODE* node = assignment; node->op == ASG; node = node->right) chain_.push_back(node);
    push(chain_.back()->right);
    NODE* innermost = chain_.back();
    for (std::size_t i = chain_.size(); i-- > 0;) {
        NODE* node = chain_[i];
        const NODE* source = node->right;
        if (source->op == ASG &&
            (is_bit_field(source->left) || !tp->compatible_types(node->left->type, source->left->type, true)))
            innermost = node;
        visit_target(node->left, innermost);
    }
}

void COUNTER::visit(NODE* node) {
    switch (node->op) {
        case NAME: visit_name(node); return;
        case ASG: visit_chain(node); return;
        case UAND: visit_address(node->left); return;
        case ARGREF:
            visit_target(node->left, nullptr);
            if (node->left->op == NAME) add_use(node->left->symbol());
            return;
        case CALL:
        case UCALL:
            if (get_callee_for_call(node) == nullptr) push(node->left);
            push(node->right);
            return;
        case RETURN: push(node->right); return; // the left operand names the function
        case URETURN:
        case BRANCH: return;
        case IF: push(node->left); return;
        case UMULT:
            if (NODE* name = name_behind_address(node); name != nullptr) {
                visit_name(name);
                return;
            }
            break;
        default: break;
    }
    if (opcode_is_ASG(node->op)) {
        visit_target(node->left, node);
        push(node->right);
        return;
    }
    push(node->right);
    push(node->left);
}

// What the exception tables name can be read or written where no tree shows it.
void count_exception_tables() {
    for (const EHT_ENTRY& entry : currfuninfo->eht)
        if (entry.tree != nullptr)
            walk_tree(static_cast<NODE*>(entry.tree), [](NODE* node) {
                if (node->op != NAME) return;
                add_use(node->symbol());
                give_up(node->symbol());
            });
}

} // namespace

void count_defs_and_uses() {
    for (SYMTAB* list : {currfuninfo->params, currfuninfo->locals, currfuninfo->temps}) reset(list);
    COUNTER counter;
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        for (LIST* cell = bb->statements; cell != nullptr; cell = cell->next) {
            if (tree_is_arg_prolog(cell->first)) {
                counter.run_prolog(cell->first);
            } else {
                counter.run(cell->first);
            }
        }
    count_exception_tables();
}

bool has_one_value(const NODE* tree) {
    bool is_converted = false, is_sum = false;
    for (;;) {
        switch (tree->op) {
            case ICON:
            case FCON: return !is_sum;
            case SCON: return tree->type->is_ptr();
            case NAME: return !is_converted && !is_sum && is_immutable_parameter(tree->symbol());
            case UAND: {
                const NODE* place = tree->left;
                while (place->op == STDOT) place = place->left;
                return place->op == NAME && !sym_is_FAR(place->symbol());
            }
            case SCONV:
            case PCONV:
            case ISP2CHAR:
            case IDENTITY: is_converted = true; break;
            case PLUS:
                if (tree->right->op != ICON || !tree->type->is_ptr()) return false;
                is_sum = true;
                break;
            default: return false;
        }
        tree = tree->left;
    }
}

namespace {

// --- Symbols that keep one value.

// Whether the bits of the value are the bits of the symbol: a conversion of something that is no constant
// costs.
bool arrives_unchanged(const SYMTAB* symbol, const NODE* value) {
    if (value->op != NAME) return true;
    return symbol->type->is_ptr() == value->type->is_ptr() && same_representation(symbol->type, value->type);
}

void set_immutable(SYMTAB* parameter, bool immutable) {
    if (parameter->type->is_const() == immutable) return;
    parameter->type = immutable ? tp->mk_qual(parameter->type, QUAL_CONST)
                                : tp->remove_known_qual(parameter->type, QUAL_CONST);
}

void classify_parameter(SYMTAB* symbol) {
    const bool is_arrival = symbol->def_count == 1 && symbol->sole_def != nullptr &&
                            symbol->sole_def->op == ASG && tree_is_arg_prolog(symbol->sole_def) &&
                            !symbol->otype->is_volatile();
    if (is_arrival) {
        if (print_debug != 0 && !symbol->type->is_const())
            dprintf("\n\tArgument variable is not re-assigned: %s\n", symbol->name);
        give_up(symbol);
    }
    if (symbol->type->is_scalar()) set_immutable(symbol, is_arrival);
}

// False when the symbol leaves its list.
bool classify_local(SYMTAB* symbol) {
    if (symbol->def_count == 0) {
        if (symbol->use_count == 0) {
            if (print_debug != 0) dprintf("\tNo references in the function for '%s'\n", symbol->name);
            return false;
        }
        if (print_debug != 0 && symbol->sclass == SC_AUTO && !is_internal_symbol(symbol))
            dprintf("\n\tVariable is used but never assigned: %s\n", symbol->name);
        return true;
    }
    if ((symbol->flags & SF_ADDRESS_TAKEN) != 0) give_up(symbol);
    const NODE* definition = symbol->sole_def;
    if (symbol->def_count != 1 || definition == nullptr || definition->op != ASG ||
        definition->right->op == IDENTITY)
        return true;
    NODE* value = definition->right;
    const bool is_restrict = (symbol->otype->qual_kind() & QUAL_RESTRICT) != 0;
    if (symbol->type->is_ptr() && !is_restrict && !currfuninfo->spmap.is_bound(symbol))
        currfuninfo->spmap.set_pointee(symbol, value);
    if (symbol->type->is_scalar() && !symbol->otype->is_volatile() && has_one_value(value) &&
        arrives_unchanged(symbol, value)) {
        if (print_debug != 0)
            dprintf("\n\tGlobally constant assignment: %s = %s\n", symbol->name, tree_to_text(value).c_str());
        currfuninfo->snmap.set_value(symbol, copy_tree(value, false));
    } else {
        symbol->sole_def = nullptr;
        symbol->def_count = 2;
    }
    return true;
}

// Classifies the symbols of a list and returns the list of those that stay, the last one first.
SYMTAB* classify_list(SYMTAB* list) {
    SYMTAB* kept = nullptr;
    for (SYMTAB *symbol = list, *next; symbol != nullptr; symbol = next) {
        next = symbol->next;
        if (!classify_local(symbol)) {
            symbol->next = nullptr;
            continue;
        }
        symbol->next = kept;
        kept = symbol;
    }
    return kept;
}

const register_option keep_reversed("disable:fcprevsymtab");

} // namespace

void find_single_assignments() {
    currfuninfo->spmap.clear(); // a pass may have given a pointer another definition
    count_defs_and_uses();
    mark_aliased_vector_and_complex_symbols(false, true);
    for (SYMTAB* symbol = currfuninfo->params; symbol != nullptr; symbol = symbol->next)
        classify_parameter(symbol);
    SYMTAB* locals = classify_list(currfuninfo->locals);
    SYMTAB* temps = classify_list(currfuninfo->temps);
    const bool reversed = static_cast<bool>(keep_reversed);
    currfuninfo->locals = reversed ? locals : revsymtab(locals);
    currfuninfo->temps = reversed ? temps : revsymtab(temps);
    SYMTAB* tail = currfuninfo->locals;
    while (tail != nullptr && tail->next != nullptr) tail = tail->next;
    currfuninfo->locals_tail = tail;
}
