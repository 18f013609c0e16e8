// Propagation along the flow.
//
// Every variable has a generation, which each assignment renews, and at most one assignment in force: the
// tree of its value, with the generation of the variable that the tree names. For what memory holds there is
// one more generation, which every store through a pointer and every call renews. An assignment is still in
// force at a use if all these are what they were. So neither an assignment nor a use looks at others.
//
// Blocks are taken in layout order. One with a single predecessor that has just been done goes on with what
// is in force there; any other starts with nothing.

#include <cstdint>
#include <cstdio>
#include <unordered_set>
#include <vector>

#include "accesses.h"
#include "aliasing.h"
#include "bblk.h"
#include "bbutils.h"
#include "congruent.h"
#include "copy.h"
#include "copyprop.h"
#include "dead_assigns.h"
#include "debug.h"
#include "def_use.h"
#include "dump.h"
#include "erase.h"
#include "fileopt.h"
#include "files.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "optypes.h"
#include "seq_trees.h"
#include "simp.h"
#include "symbol.h"
#include "target_bif.h"
#include "types.h"

using namespace op;

namespace {

constexpr char TEMP_LETTERS[] = {75, 81};

class COPY_PROPAGATION {
  public:
    // One walk over the function. Returns whether anything was replaced.
    bool run();
    // Whether a branch has only one way left since.
    bool settled() const { return settled_; }

  private:
    enum KIND : std::uint8_t {
        UNKNOWN,
        NOT_TRACKED,
        PRIVATE, // only its name leads to it
        MEMORY   // pointers and other functions may reach it
    };
    // A variable, and the assignment in force.
    struct VARIABLE {
        KIND kind = UNKNOWN;
        std::uint32_t generation = 0;
        NODE* value = nullptr;    // a tree of its own; null: none
        std::uint32_t block = 0;  // the extended block in which it was assigned
        std::uint32_t memory = 0; // the generation of memory
        SYMTAB* source = nullptr; // the variable that `value` names, if any
        std::uint32_t source_generation = 0;
    };
    enum ACT : std::uint8_t {
        READ,      // evaluate the tree
        FIND,      // evaluate what leads to the place
        ACT_ON,    // do what the operator does once its operands are evaluated
        BEGIN_ARM, // what follows is done under a condition
        END_ARM
    };
    struct WORK {
        NODE** place;
        ACT act;
    };

    VARIABLE& variable(SYMTAB* symbol);
    KIND kind_of(SYMTAB* symbol) const;

    void start_extended_block() { block_++; }
    void run_block(BBLK* bb);
    void run_statement(LIST* cell);
    void drop_temporaries();

    // The walk.
    void push(NODE*& place, ACT act) { work_.push_back({&place, act}); }
    void push_arm(NODE*& place);
    void cp_tree_LR(NODE* node);
    void cp_tree_RL(NODE*& place);
    void read(NODE*& place);
    void act_on(NODE* node);
    void end_arm();
    void find(NODE*& place);

    // What happens.
    void assign(SYMTAB* symbol);
    void put_in_force(SYMTAB* symbol, NODE* value);
    void assign_to_place(NODE* place);
    void call(NODE* node);
    void forget_assignments_through(NODE* pointer);

    // What is known.
    SYMTAB* source_of(NODE* value) const;
    bool can_be_propagated(SYMTAB* symbol, NODE* value);
    NODE* value_in_force(SYMTAB* symbol);
    NODE* lookup_ASG(NODE* use);
    NODE* lookup_global_ASG(NODE* use);
    bool replace(NODE*& place);
    bool cp_indirect_RL(NODE*& place);
    void cp_opASG_RL(NODE* node);

    const PRIVATE_SYMBOLS private_symbols_;
    std::unordered_set<const SYMTAB*> in_exception_table_; // never walked
    SYMBOL_NUMBERS numbers_;
    std::vector<VARIABLE> variables_;
    std::uint32_t block_ = 1;
    std::uint32_t memory_ = 1;
    std::vector<WORK> work_;
    std::vector<SYMTAB*> assigned_;       // in this block, by assignments that came into force
    std::vector<std::size_t> arm_starts_; // their number at the start of each open arm
    bool settled_ = false;
};

// --- Variables.

COPY_PROPAGATION::KIND COPY_PROPAGATION::kind_of(SYMTAB* symbol) const {
    if (!symbol->type->is_scalar() || symbol->otype->is_volatile() || volit_vars != 0) return NOT_TRACKED;
    if (private_symbols_.number_of(symbol) >= 0) return PRIVATE;
    if (in_exception_table_.contains(symbol)) return NOT_TRACKED;
    switch (symbol->sclass) {
        case SC_EXTDEF:
        case SC_STATIC:
        case SC_EXTERN: return MEMORY;
        default: return (symbol->flags & SF_ADDRESS_TAKEN) != 0 ? MEMORY : NOT_TRACKED;
    }
}

COPY_PROPAGATION::VARIABLE& COPY_PROPAGATION::variable(SYMTAB* symbol) {
    const std::uint32_t number = numbers_.of(symbol);
    if (number >= variables_.size()) variables_.resize(number + 1);
    VARIABLE& v = variables_[number];
    if (v.kind == UNKNOWN) v.kind = kind_of(symbol);
    return v;
}

void COPY_PROPAGATION::assign(SYMTAB* symbol) {
    VARIABLE& v = variable(symbol);
    v.generation++;
    if (v.value != nullptr) v.value = erase_tree(v.value);
}

void COPY_PROPAGATION::put_in_force(SYMTAB* symbol, NODE* value) {
    if (!can_be_propagated(symbol, value)) return;
    SYMTAB* source = source_of(value);
    const std::uint32_t source_generation = source != nullptr ? variable(source).generation : 0;
    VARIABLE& v = variable(symbol);
    if (v.value != nullptr) erase_tree(v.value);
    v.value = copy_tree(value, false);
    v.block = block_;
    v.memory = memory_;
    v.source = source;
    v.source_generation = source_generation;
    assigned_.push_back(symbol);
}

// The variable whose value the tree has; null for other trees.
SYMTAB* COPY_PROPAGATION::source_of(NODE* value) const {
    while ((value->op == SCONV || value->op == PCONV || value->op == ISP2CHAR) &&
           value->type->size() == value->left->type->size() && is_int_or_ptr(value->type) &&
           is_int_or_ptr(value->left->type) && !value->type->is_bool() && !value->type->is_marked_bool())
        value = value->left;
    return value->op == NAME ? value->symbol() : nullptr;
}

// Whether the value may stand for the variable: reading it must cost no more.
bool COPY_PROPAGATION::can_be_propagated(SYMTAB* symbol, NODE* value) {
    if (variable(symbol).kind == NOT_TRACKED) return false;
    SYMTAB* source = source_of(value);
    if (source == nullptr) return has_one_value(value);
    if (source == symbol || variable(source).kind != PRIVATE) return false;
    TYPE* type = symbol->type;
    if (type->is_bool() || type->is_marked_bool()) return type->true_type() == value->type->true_type();
    if (is_int_or_ptr(type)) return is_int_or_ptr(value->type) && type->size() == value->type->size();
    return same_representation(type, value->type);
}

NODE* COPY_PROPAGATION::value_in_force(SYMTAB* symbol) {
    const VARIABLE& v = variable(symbol);
    if (v.value == nullptr || v.block != block_) return nullptr;
    if (v.kind == MEMORY && v.memory != memory_) return nullptr;
    NODE* value = v.value;
    if (v.source != nullptr) {
        const std::uint32_t generation = v.source_generation; // `v` may move
        if (variable(v.source).generation != generation) return nullptr;
    }
    return value;
}

// --- Replacing.

void report(const char* routine, NODE* before, NODE* after) {
    if (print_debug == 0) return;
    dprintf("\n\t========== (%ld) '%s' is replacing this:\n\t\t%s\n", replacement_count, routine,
            tree_to_text(before).c_str());
    dprintf("\n\t========== with the following substitute:\n\t\t%s\n", tree_to_text(after).c_str());
    dprintf("\n\t=========================================\n");
}

bool may_be_replaced(const NODE* use) { return use->type->is_scalar() && !node_is_volatile_access(use); }

// The value that the use reads, as a new tree; null where it is not known.
NODE* COPY_PROPAGATION::lookup_ASG(NODE* use) {
    SYMTAB* symbol = use->symbol();
    NODE* value = value_in_force(symbol);
    if (value == nullptr || trees_are_congruent(value, use)) return nullptr;
    NODE* substitute = value_for_use(use, symbol, value);
    replacement_count++;
    report("lookup_ASG", use, substitute);
    return substitute;
}

// The same for a variable that has one value in the whole function.
NODE* COPY_PROPAGATION::lookup_global_ASG(NODE* use) {
    SYMTAB* symbol = use->symbol();
    if (symbol->def_count != 1 || symbol->sole_def == nullptr || in_exception_table_.contains(symbol))
        return nullptr;
    NODE* value = currfuninfo->snmap.value(symbol, false);
    if (value == nullptr || symbol->otype->is_volatile()) return nullptr;
    NODE* substitute = value_for_use(use, symbol, value);
    replacement_count++;
    if (print_debug != 0) {
        dprintf("\n\t============== (%ld) %s\n\t\t%s\n", replacement_count,
                "'lookup_global_ASG' is replacing this:", tree_to_text(use).c_str());
        dprintf("\n\t============== with the following substitute:\n\t\t%s\n",
                tree_to_text(substitute).c_str());
        dprintf("\n\t=============================================\n");
    }
    return substitute;
}

bool COPY_PROPAGATION::replace(NODE*& place) {
    if (!may_be_replaced(place)) return false;
    NODE* substitute = lookup_ASG(place);
    if (substitute == nullptr) substitute = lookup_global_ASG(place);
    if (substitute == nullptr) return false;
    erase_node(place);
    place = substitute;
    return true;
}

// *p and p->m where p holds an address: what stands at the address.
bool COPY_PROPAGATION::cp_indirect_RL(NODE*& place) {
    NODE* node = place;
    NODE* pointer = node->left;
    if (pointer->op != NAME || !may_be_replaced(pointer)) return false;
    const NODE* value = value_in_force(pointer->symbol());
    if (value == nullptr || value->op == NAME) return false; // a mere copy is a matter of the pointer alone
    NODE* const before = print_debug != 0 ? copy_tree(node, false) : nullptr;
    node->left = value_for_use(pointer, pointer->symbol(), value_in_force(pointer->symbol()));
    erase_node(pointer);
    place = simp_node(node, nullptr);
    replacement_count++;
    if (before != nullptr) {
        report("cp_indirect_RL", before, place);
        erase_tree(before);
    }
    return true;
}

// x += e where the value of x is known: x = value + e.
void COPY_PROPAGATION::cp_opASG_RL(NODE* node) {
    switch (node->op) {
        case PLUSASG:
        case MINUSASG:
        case MULTASG:
        case ANDBASG:
        case ORBASG:
        case XORBASG:
        case DIVASG:
        case MODASG:
        case SLLASG:
        case SRLASG: break;
        case PLUSPLUS:
        case MINMIN: return; // gives the old value as well
        default: {
            constexpr char text[] = "\n\n!!! COMPILER (OPTIMIZER) ERROR IN 'cp_opASG_RL' !!!\n\n";
            std::fputs(text, stderr);
            if (print_debug != 0) dprintf("%s", text);
            abort_optimizer();
        }
    }
    NODE* target = node->left;
    if (target->op != NAME || !may_be_replaced(target)) return;
    const SYMTAB* symbol = target->symbol();
    if (value_in_force(target->symbol()) == nullptr || opASG_to_ASG(node)->op != ASG) return;
    NODE** old = &node->right;
    while ((*old)->op != NAME || (*old)->symbol() != symbol) old = &(*old)->left;
    replace(*old);
}

// --- What assignments and calls change.

void COPY_PROPAGATION::forget_assignments_through(NODE* pointer) {
    const POINTEE at = place_of_pointer(pointer);
    if (at.object != nullptr) {
        assign(at.object);
    } else {
        memory_++;
    }
}

void COPY_PROPAGATION::assign_to_place(NODE* place) {
    if (SYMTAB* object = object_of_place(place); object != nullptr) {
        assign(object);
        return;
    }
    while (place->op == STDOT) place = place->left;
    if (place->op == UMULT || place->op == STREF) {
        forget_assignments_through(place->left);
    } else {
        memory_++;
    }
}

void COPY_PROPAGATION::call(NODE* node) {
    constexpr std::uint32_t NO_STORE = FUN_no_global_asg | FUN_no_ind_asg | FUN_no_byref_asg;
    if (!private_symbols_.flow_is_known()) {
        // Control may come back here from elsewhere.
        start_extended_block();
        return;
    }
    if (errno_symbol != nullptr) assign(errno_symbol);
    // Until the call graph stands a record promises more than its body keeps.
    const FUNINFO* callee = fileinfo.is_built ? find_FUNINFO_for_call(node) : nullptr;
    if (callee == nullptr || (callee->flags & NO_STORE) != NO_STORE) memory_++;
}

// --- The walk over a statement, in order of evaluation.

void COPY_PROPAGATION::push_arm(NODE*& place) {
    push(place, END_ARM);
    push(place, READ);
    push(place, BEGIN_ARM);
}

// The operands are read from left to right.
void COPY_PROPAGATION::cp_tree_LR(NODE* node) {
    if (node->right != nullptr) push(node->right, READ);
    if (node->left != nullptr) push(node->left, READ);
}

// The right side is read, then what leads to the left one, then the assignment is done.
void COPY_PROPAGATION::cp_tree_RL(NODE*& place) {
    push(place, ACT_ON);
    push(place->left, FIND);
    push(place->right, READ);
}

void COPY_PROPAGATION::read(NODE*& place) {
    NODE* node = place;
    switch (node->op) {
        case NAME: replace(place); return;
        case UMULT:
        case STREF:
            if (cp_indirect_RL(place) && place->op == NAME) {
                replace(place);
                return;
            }
            cp_tree_LR(place);
            return;
        case UAND: push(node->left, FIND); return;
        case ARGREF:
            push(place, ACT_ON);
            push(node->left, FIND);
            return;
        case ANDAND:
        case OROR:
            push_arm(node->right);
            push(node->left, READ);
            return;
        case QUEST:
            push_arm(node->right->right);
            push_arm(node->right->left);
            push(node->left, READ);
            return;
        case IF:
        case SWITCH: push(node->left, READ); return;
        case RETURN: push(node->right, READ); return;
        case BRANCH:
        case URETURN:
        case LABEL:
        case LABELDEF:
        case PPRAGMA: return;
        default: break;
    }
    if (opcode_is_ASG(node->op)) {
        cp_tree_RL(place);
        return;
    }
    if (side_effects[node->op] == SE_ANY) push(place, ACT_ON);
    cp_tree_LR(node);
}

// A place is not read itself; a pointer that leads to it is.
void COPY_PROPAGATION::find(NODE*& place) {
    NODE** at = &place;
    while ((*at)->op == STDOT) at = &(*at)->left;
    switch ((*at)->op) {
        case NAME: return;
        case UMULT:
        case STREF:
            if (!node_is_volatile_access(*at) && cp_indirect_RL(*at)) return;
            push((*at)->left, READ);
            return;
        default: cp_tree_LR(*at);
    }
}

void COPY_PROPAGATION::act_on(NODE* node) {
    switch (node->op) {
        case ASG:
            assign_to_place(node->left);
            if (node->left->op == NAME) {
                NODE* value = node->right;
                // a = b = e: what b has now, or b itself.
                if (value->op == ASG && value->left->op == NAME &&
                    tp->compatible_types(node->left->type, value->left->type, true)) {
                    NODE* known = value_in_force(value->left->symbol());
                    value = known != nullptr ? known : value->left;
                }
                put_in_force(node->left->symbol(), value);
            }
            return;
        case STASG:
        case ARASG: assign_to_place(node->left); return;
        case ARGREF:
            assign_to_place(node->left);
            memory_++;
            return;
        case CALL:
        case UCALL: call(node); return;
        case UMCALL:
            if (is_ICALL_callee(node, EH_SWITCH)) {
                start_extended_block(); // a caught exception comes from elsewhere
                return;
            }
            memory_++;
            return;
        case MCALL:
        case MEMCPY: memory_++; return;
        case COMMAOP:
        case PCOMMA:
        case NASSERT:
        case ASSERT: return;
        case ASM:
            if (!is_comment(node)) start_extended_block();
            return;
        default: break;
    }
    if (!opcode_is_ASG(node->op)) {
        start_extended_block(); // an operator that can do anything
        return;
    }
    cp_opASG_RL(node);
    if (node->op == ASG) {
        act_on(node);
    } else {
        assign_to_place(node->left);
    }
}

// What was assigned under the condition may not have been.
void COPY_PROPAGATION::end_arm() {
    while (assigned_.size() > arm_starts_.back()) {
        assign(assigned_.back());
        assigned_.pop_back();
    }
    arm_starts_.pop_back();
}

void COPY_PROPAGATION::run_statement(LIST* cell) {
    const long before = replacement_count;
    push(cell->first, READ);
    while (!work_.empty()) {
        const WORK work = work_.back();
        work_.pop_back();
        switch (work.act) {
            case READ: read(*work.place); break;
            case FIND: find(*work.place); break;
            case ACT_ON: act_on(*work.place); break;
            case BEGIN_ARM: arm_starts_.push_back(assigned_.size()); break;
            case END_ARM: end_arm();
        }
    }
    if (replacement_count != before) cell->first = tidy_statement(cell->first, settled_);
    // Simplified, the right side may be simple enough.
    const NODE* statement = cell->first;
    if (statement != nullptr && statement->op == ASG && statement->left->op == NAME)
        put_in_force(statement->left->symbol(), statement->right);
}

// --- Blocks.

// Temporaries of two kinds serve within one block: at its end their values are forgotten.
void COPY_PROPAGATION::drop_temporaries() {
    for (SYMTAB* symbol : assigned_)
        if (is_optimizer_temp(symbol->name, TEMP_LETTERS[0], TEMP_LETTERS[1])) assign(symbol);
    assigned_.clear();
}

void COPY_PROPAGATION::run_block(BBLK* bb) {
    const long before = replacement_count;
    bool has_comma = false;
    for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next)
        if (cell->first->op == COMMAOP) has_comma = true;
    if (has_comma) bb->statements = promote_toplevel_COMMAOPs_in_list(bb->statements);
    for (LIST* cell = bb->statements; cell != nullptr; cell = cell->next) {
        if (tree_is_arg_prolog(cell->first)) {
            NODE* prolog = cell->first;
            for (; prolog->op == PCOMMA; prolog = prolog->left) assign(prolog->right->left->symbol());
            assign(prolog->left->symbol());
        } else {
            run_statement(cell);
        }
    }
    drop_temporaries();
    if (replacement_count != before) bb->statements = tidy_statement_list(bb->statements);
}

bool COPY_PROPAGATION::run() {
    const long before = replacement_count;
    for (const EHT_ENTRY& entry : currfuninfo->eht)
        walk_tree(static_cast<NODE*>(entry.tree), [this](NODE* node) {
            if (node->op == NAME) in_exception_table_.insert(node->symbol());
        });
    const BBLK* done = nullptr;
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        const EDGE* from = bb->predecessors;
        if (from == nullptr || from->next != nullptr || from->bb != done) start_extended_block();
        run_block(bb);
        done = bb;
    }
    for (VARIABLE& v : variables_) erase_tree(v.value);
    return replacement_count != before;
}

// Calls that have become direct ones may be of intrinsics.
void subst_ICALLs_in_tree(NODE*& statement) {
    if (any_node(statement, [](NODE* node) { return get_callee_for_call(node) != nullptr; }))
        statement = fix_BIF_types(statement);
}

void prepare() {
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        for (LIST* cell = bb->statements; cell != nullptr; cell = cell->next)
            subst_ICALLs_in_tree(cell->first);
    currfuninfo->snmap.clear();
    find_single_assignments();
    if (print_debug == 0) return;
    dprintf("\n\t============== Globally constant assignments:\n");
    currfuninfo->snmap.print(fdebug);
    dprintf("\n\t============================================\n");
}

} // namespace

void copyprop(int limit) {
    if (opt_level() == 0) return;
    dprintf("\n\n\t\t\t---------- ENTERING 'copyprop' -----------------\n");
    sym_split(currfuninfo);
    for (int round = 0; round < limit; round++) {
        prepare();
        COPY_PROPAGATION propagation;
        if (!propagation.run()) break;
        if (propagation.settled()) repair_flow();
    }
    currfuninfo->snmap.clear();
    elim_dead_assigns(opt_level() > 1, true);
}
