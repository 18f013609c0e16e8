// A structure is a candidate if its type has only simple members, each a leaf of the tree of its members. One
// walk over the function finds out what each candidate is used for, a second one rewrites. A leaf is known by
// its distance from the start of the structure: no two leaves of a structure share that.
//
// An assignment of whole structures, or of structures within them, becomes one assignment for each leaf. What
// leads to an object in memory is evaluated once, ahead of them.

#include "explode_structs.h"

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "accesses.h"
#include "bblk.h"
#include "bbutils.h"
#include "congruent.h"
#include "copy.h"
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
#include "simp.h"
#include "symbol.h"
#include "types.h"

using namespace op;

namespace {

constexpr std::size_t MAX_LEAVES = 16;
constexpr int MAX_NESTING = 8;

// One step from a structure to a member.
struct STEP {
    fkMDATA* member;
    TYPE* csu;
};

struct LEAF {
    std::vector<STEP> path; // from the outermost structure
    std::int64_t offset;    // bits from its start
    TYPE* type;
    SYMTAB* variable = nullptr;
};

struct CANDIDATE {
    SYMTAB* symbol = nullptr; // null: it stays
    std::vector<LEAF> leaves;
    bool is_used = false;
    bool is_assigned = false; // apart from the receipt of a parameter
};

// Where in a structure an access lies.
struct PART {
    int candidate; // -1: in none
    std::int64_t offset;
    int depth; // members gone down
};

bool collect_leaves(TYPE* type, std::vector<STEP>& path, std::int64_t offset, std::vector<LEAF>& leaves) {
    TYPE* csu = type->get_csu();
    if (csu == nullptr || type->is_union() || type->is_volatile() || !csu->is_complete() ||
        !csu->csu().bases.empty() || path.size() >= MAX_NESTING)
        return false;
    for (unsigned number = 1; fkMDATA* member = csu->member(number); number++) {
        if (member->type->is_volatile()) return false;
        if (member->bit_field && (member->width == 0 || *member->name == '\0')) continue; // padding
        path.push_back({member, csu});
        TYPE* of_member = member->type->normalized();
        if (of_member->is_scalar()) {
            if (leaves.size() == MAX_LEAVES) return false;
            leaves.push_back({path, offset + member->offset, of_member});
        } else if (!collect_leaves(of_member, path, offset + member->offset, leaves)) {
            return false;
        }
        path.pop_back();
    }
    return !leaves.empty();
}

// Whether a compound assignment by the operator gives a bit-field the same value as an assignment of the
// operation in the field's declared type.
bool op_suits_bit_field(int assignment_op) {
    switch (assignment_op) {
        case ASG:
        case PLUSASG:
        case MINUSASG:
        case MULTASG:
        case ANDBASG:
        case ORBASG:
        case XORBASG: return true;
        default: return false;
    }
}

// The value, of the member's declared type, as it reads back from the bit-field. Consumes the value.
NODE* cut_to_bit_field(NODE* value, const fkMDATA* member, TYPE* type) {
    const int width = type_width(type);
    const int unused = width - static_cast<int>(member->width);
    if (type->is_bool() || unused <= 0) return value;
    if (type->is_unsigned()) {
        NODE* mask = mk_ICON(type_mask(type) >> unused, type);
        return simp_node(maketree(ANDB, value, mask, type, nullptr), nullptr);
    }
    for (const int shift : {SLL, SRL}) {
        NODE* count = mk_ICON(INT65::from_signed(unused), tp->int_type(IK_INT));
        value = simp_node(maketree(shift, value, count, type, nullptr), nullptr);
    }
    return value;
}

class EXPLOSION {
  public:
    void run();

  private:
    void consider(SYMTAB* list);
    int candidate_of(const SYMTAB* symbol) const;
    PART part_of(const NODE* place) const;
    const LEAF* leaf_at(const PART& part) const;
    bool is_access_of_leaf(const NODE* place) const;

    // Finding out what stands in the way.
    void keep(const PART& part);
    void look_at(NODE* statement);
    void look_at_target(const NODE* assignment, bool is_root);
    void look_at_operands(NODE* tree);
    bool look_at_copy(NODE* assignment);
    void settle();

    // Rewriting.
    void make_variables(CANDIDATE& candidate);
    void cut_assigned_value(NODE* assignment);
    NODE* replace_leaves(NODE* tree);
    NODE* member_of(NODE* object, const LEAF& leaf, int depth) const;
    LIST** copy_members(LIST** place);
    LIST** append(LIST** place, NODE* statement, const PSN* psn);
    void receive_parameters();

    const PRIVATE_SYMBOLS private_symbols_;
    std::vector<CANDIDATE> candidates_;
    std::vector<int> numbers_; // of candidates, by serial; -1: none
};

// --- Candidates.

void EXPLOSION::consider(SYMTAB* list) {
    for (SYMTAB* symbol = list; symbol != nullptr; symbol = symbol->next) {
        if (symbol->type->get_csu() == nullptr || symbol->init != nullptr) continue;
        if (private_symbols_.number_of(symbol) < 0 || symbol->serial >= numbers_.size()) continue;
        CANDIDATE candidate;
        std::vector<STEP> path;
        if (!collect_leaves(symbol->type, path, 0, candidate.leaves)) continue;
        candidate.symbol = symbol;
        numbers_[symbol->serial] = static_cast<int>(candidates_.size());
        candidates_.push_back(std::move(candidate));
    }
}

int EXPLOSION::candidate_of(const SYMTAB* symbol) const {
    const int number = symbol->serial < numbers_.size() && symbol->level > 0 ? numbers_[symbol->serial] : -1;
    return number >= 0 && candidates_[static_cast<std::size_t>(number)].symbol == symbol ? number : -1;
}

PART EXPLOSION::part_of(const NODE* place) const {
    PART part{-1, 0, 0};
    for (; place->op == STDOT; place = place->left) {
        part.offset += place->right->mdata->offset;
        part.depth++;
    }
    if (place->op == NAME) part.candidate = candidate_of(place->symbol());
    return part;
}

const LEAF* EXPLOSION::leaf_at(const PART& part) const {
    if (part.candidate < 0) return nullptr;
    for (const LEAF& leaf : candidates_[static_cast<std::size_t>(part.candidate)].leaves)
        if (leaf.offset == part.offset) return &leaf;
    return nullptr;
}

// By the member itself: an integer around bit-fields may begin where one of them does.
bool EXPLOSION::is_access_of_leaf(const NODE* place) const {
    const LEAF* leaf = place->op == STDOT ? leaf_at(part_of(place)) : nullptr;
    return leaf != nullptr && place->right->mdata == leaf->path.back().member && place->type->is_scalar() &&
           !place->type->is_volatile() && place->type->true_type() == leaf->type->true_type();
}

// --- What stands in the way.

void EXPLOSION::keep(const PART& part) {
    if (part.candidate >= 0) candidates_[static_cast<std::size_t>(part.candidate)].symbol = nullptr;
}

// A bit-field's variable is assigned what the field would hold, so the operator must be one that can be
// written as an assignment.
void EXPLOSION::look_at_target(const NODE* assignment, bool is_root) {
    const PART target = part_of(assignment->left);
    if (target.candidate < 0) return;
    candidates_[static_cast<std::size_t>(target.candidate)].is_assigned = true;
    if (!is_bit_field(assignment->left) || op_suits_bit_field(assignment->op)) return;
    const bool steps = assignment->op == PLUSPLUS || assignment->op == MINMIN;
    if (!steps || !is_root) keep(target);
}

// Any other use of a structure than that of one of its leaves keeps it.
void EXPLOSION::look_at_operands(NODE* tree) {
    NODE_STACK pending;
    pending.push(tree);
    while (!pending.empty()) {
        for (NODE* node = pending.pop(); node != nullptr; node = node->left) {
            if (opcode_is_ASG(node->op)) look_at_target(node, node == tree);
            if (node->op == NAME || node->op == STDOT) {
                const PART part = part_of(node);
                if (part.candidate >= 0) {
                    if (!is_access_of_leaf(node)) keep(part);
                    candidates_[static_cast<std::size_t>(part.candidate)].is_used = true;
                    break;
                }
            }
            if (node->right != nullptr) pending.push(node->right);
        }
    }
}

// Whether the object can be read or written member by member.
bool is_object(NODE* place) {
    if (place_is_volatile(place)) return false;
    while (place->op == STDOT) place = place->left;
    return place->op == NAME || place->op == UMULT || place->op == STREF;
}

// An assignment of structures as a statement; false if it can't be done member by member.
bool EXPLOSION::look_at_copy(NODE* assignment) {
    NODE* const sides[] = {assignment->left, assignment->right};
    const PART parts[] = {part_of(sides[0]), part_of(sides[1])};
    if (parts[0].candidate < 0 && parts[1].candidate < 0) return false;
    if (!is_object(sides[0]) || !is_object(sides[1]) ||
        sides[0]->type->true_type() != sides[1]->type->true_type())
        return false;
    for (int i = 0; i < 2; i++) {
        if (parts[i].candidate < 0) {
            if (NODE** pointer = pointer_of_place(sides[i])) look_at_operands(*pointer);
            continue;
        }
        CANDIDATE& candidate = candidates_[static_cast<std::size_t>(parts[i].candidate)];
        candidate.is_used = true;
        if (i == 0) candidate.is_assigned = true;
    }
    return true;
}

void EXPLOSION::look_at(NODE* statement) {
    if (tree_is_arg_prolog(statement)) return;
    if (statement->op != STASG || !look_at_copy(statement)) look_at_operands(statement);
}

// A parameter that is only read is in memory already, and may stay there. A copy of two structures of which
// only one is replaced is right in any case.
void EXPLOSION::settle() {
    for (CANDIDATE& candidate : candidates_) {
        if (candidate.symbol == nullptr) continue;
        if (!candidate.is_used || (candidate.symbol->level == 1 && !candidate.is_assigned))
            candidate.symbol = nullptr;
    }
}

// --- Rewriting.

void EXPLOSION::make_variables(CANDIDATE& candidate) {
    std::string names;
    for (LEAF& leaf : candidate.leaves) {
        std::string member;
        for (const STEP& step : leaf.path)
            member += (member.empty() ? "" : "$") + std::string(step.member->name);
        leaf.variable = sym_member_temp(candidate.symbol, member.c_str(), leaf.type);
        if (print_debug != 0) names += (names.empty() ? "" : ", ") + std::string(leaf.variable->name);
    }
    dprintf("Exploding %s\tinto %s.\n", candidate.symbol->name, names.c_str());
}

// Makes an assignment to a bit-field one of the value that the field would hold.
void EXPLOSION::cut_assigned_value(NODE* assignment) {
    NODE* place = assignment->left;
    if (!is_bit_field(place) || part_of(place).candidate < 0) return;
    if (assignment->op == PLUSPLUS) assignment->op = PLUSASG;
    if (assignment->op == MINMIN) assignment->op = MINUSASG;
    if (assignment->op != ASG) opASG_to_ASG(assignment);
    TYPE* type = place->type->true_type();
    assignment->right = cut_to_bit_field(coerce_to_type(assignment->right, type), place->right->mdata, type);
}

NODE* EXPLOSION::replace_leaves(NODE* tree) {
    bool changed = false;
    // Leaves go from the top: what is inside an access of one is no access by itself.
    const auto replaced = [&](NODE* node) -> NODE* {
        if (node->op != STDOT) return nullptr;
        const PART part = part_of(node);
        const LEAF* leaf = leaf_at(part);
        if (leaf == nullptr) return nullptr;
        NODE* name = mk_NAME(leaf->variable);
        if (print_debug != 0)
            dprintf("Replacing %s with the simple variable '%s' in %s.\n", tree_to_text(node).c_str(),
                    leaf->variable->name, currfunc->name);
        erase_tree(node);
        changed = true;
        return name;
    };
    if (NODE* whole = replaced(tree)) return whole;
    NODE_STACK pending;
    pending.push(tree);
    while (!pending.empty()) {
        for (NODE* node = pending.pop(); node != nullptr; node = node->left) {
            if (opcode_is_ASG(node->op)) cut_assigned_value(node);
            for (NODE** operand : {&node->left, &node->right})
                if (*operand != nullptr)
                    if (NODE* name = replaced(*operand)) *operand = name;
            if (node->right != nullptr) pending.push(node->right);
        }
    }
    return changed ? simp_tree(tree, nullptr) : tree;
}

// The leaf as a member of the object, which lies `depth` members down in the outermost structure. Consumes
// the object.
NODE* EXPLOSION::member_of(NODE* object, const LEAF& leaf, int depth) const {
    for (std::size_t i = static_cast<std::size_t>(depth); i < leaf.path.size(); i++) {
        TYPE* type = leaf.path[i].member->type->normalized();
        object = maketree(STDOT, object, mk_FIELD(leaf.path[i].member, leaf.path[i].csu), type, nullptr);
    }
    return object;
}

LIST** EXPLOSION::append(LIST** place, NODE* statement, const PSN* psn) {
    *place = mkelist(statement, *place, psn);
    return &(*place)->next;
}

// The copy in the cell at `place`, of which one side or both are replaced, member by member. Returns the
// place behind.
LIST** EXPLOSION::copy_members(LIST** place) {
    LIST* cell = *place;
    NODE* sides[] = {cell->first->left, cell->first->right};
    PART parts[] = {part_of(sides[0]), part_of(sides[1])};
    LIST* const behind = cell->next;
    *place = behind;
    for (int i = 0; i < 2; i++) {
        NODE** pointer = parts[i].candidate < 0 ? pointer_of_place(sides[i]) : nullptr;
        if (pointer == nullptr) continue;
        *pointer = replace_leaves(*pointer);
        if ((*pointer)->op == NAME && private_symbols_.number_of((*pointer)->symbol()) >= 0) continue;
        SYMTAB* temporary = sym_temp('S', -1, (*pointer)->type, nullptr);
        TYPE* type = (*pointer)->type;
        place = append(place, simp_tree(mk_ASG(mk_NAME(temporary), *pointer), nullptr), cell->psn);
        *pointer = mk_NAME(temporary);
        (*pointer)->type = type;
    }
    // Both sides have the same type, so either one's leaves tell the way to them.
    const int guide = parts[0].candidate >= 0 ? 0 : 1;
    const CANDIDATE& candidate = candidates_[static_cast<std::size_t>(parts[guide].candidate)];
    const std::int64_t first = parts[guide].offset;
    const std::int64_t end = first + static_cast<std::int64_t>(sides[guide]->type->size());
    for (const LEAF& leaf : candidate.leaves) {
        if (leaf.offset < first || leaf.offset >= end) continue;
        NODE* members[2];
        for (int i = 0; i < 2; i++) {
            const PART part{parts[i].candidate, parts[i].offset + leaf.offset - first, 0};
            const LEAF* own = leaf_at(part);
            members[i] = own != nullptr ? mk_NAME(own->variable)
                                        : member_of(copy_tree(sides[i], false), leaf, parts[guide].depth);
        }
        NODE* copy = simp_tree(mk_ASG(members[0], members[1]), nullptr);
        if (opcode_is_ASG(copy->op)) {
            place = append(place, copy, cell->psn);
        } else {
            erase_tree(copy); // of a member to itself
        }
    }
    erase_tree(cell->first);
    return place;
}

void EXPLOSION::receive_parameters() {
    LIST* prolog = currfuninfo->bb_list->statements;
    LIST** place = &prolog->next;
    for (CANDIDATE& candidate : candidates_) {
        if (candidate.symbol == nullptr || candidate.symbol->level != 1) continue;
        for (const LEAF& leaf : candidate.leaves)
            place =
                append(place, mk_ASG(mk_NAME(leaf.variable), member_of(mk_NAME(candidate.symbol), leaf, 0)),
                       prolog->psn);
    }
}

void EXPLOSION::run() {
    if (!private_symbols_.flow_is_known()) return;
    numbers_.assign(currfuninfo->next_serial, -1);
    consider(currfuninfo->locals);
    consider(currfuninfo->temps);
    // What a parameter holds is told by the argument prolog alone.
    if (tree_is_arg_prolog(currfuninfo->bb_list->statements->first)) consider(currfuninfo->params);
    if (candidates_.empty()) return;
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next) look_at(cell->first);
    settle();
    bool any = false;
    for (CANDIDATE& candidate : candidates_) {
        if (candidate.symbol == nullptr) continue;
        make_variables(candidate);
        any = true;
    }
    if (!any) return;
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        for (LIST** place = &bb->statements; *place != nullptr;) {
            LIST* cell = *place;
            const bool is_copy =
                cell->first->op == STASG && !tree_is_arg_prolog(cell->first) &&
                (part_of(cell->first->left).candidate >= 0 || part_of(cell->first->right).candidate >= 0);
            if (is_copy) {
                place = copy_members(place);
                continue;
            }
            if (!tree_is_arg_prolog(cell->first)) cell->first = replace_leaves(cell->first);
            place = &cell->next;
        }
    }
    receive_parameters();
}

} // namespace

void explode_auto_struct_vars() {
    dprintf("\n\n\t\t\t-------- ENTERING 'explode_auto_struct_vars' -------\n");
    EXPLOSION().run();
}

bool is_struct_explosion_parm_assignment(NODE* statement, NODE* prolog) {
    if (statement->op != ASG || statement->left->op != NAME || !tree_is_arg_prolog(prolog)) return false;
    if (std::strstr(statement->left->symbol()->name, "$CSU$") == nullptr) return false;
    const NODE* source = name_of_place(statement->right);
    return source != nullptr && source->symbol()->level == 1;
}
