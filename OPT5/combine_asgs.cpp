// Joining assignments to one place of memory.
//
// Statements of a block have times, counted from 1. For each symbol, and for accesses through pointers as a
// whole, the time of the last read and write is kept; so whether anything between two assignments touched
// their place is one comparison. The last assignment to each place is found by a hash of the place.

#include <cstdint>
#include <unordered_map>
#include <vector>

#include "aliasing.h"
#include "bblk.h"
#include "bbutils.h"
#include "congruent.h"
#include "copy.h"
#include "copyprop.h"
#include "debug.h"
#include "dump.h"
#include "erase.h"
#include "fileopt.h"
#include "files.h"
#include "fold.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "optypes.h"
#include "simp.h"
#include "symbol.h"
#include "types.h"

using namespace op;

namespace {

// Places and values beyond these sizes, in nodes, stay as they are: what moves is looked at again.
constexpr int MAX_PLACE = 24;
constexpr int MAX_VALUE = 100;

constexpr int TEMP_KIND = 0x54;

bool is_compound_by_constant(int op) {
    constexpr std::uint32_t COMBINABLE = 0x149080; // by number: += -= *= &= |= ^= as the table has them
    static_assert(((COMBINABLE >> PLUSASG) & 1) != 0 && ((COMBINABLE >> MULTASG) & 1) != 0 &&
                  ((COMBINABLE >> ANDBASG) & 1) != 0 && ((COMBINABLE >> ORBASG) & 1) != 0 &&
                  ((COMBINABLE >> XORBASG) & 1) != 0);
    return op == MINUSASG || (op < 32 && ((COMBINABLE >> op) & 1) != 0);
}

bool has_at_most(NODE* tree, int limit) {
    int count = 0;
    return !any_node(tree, [&](NODE*) { return ++count > limit; });
}

bool acts_like_call(const NODE* node) {
    switch (node->op) {
        case COMMAOP:
        case PCOMMA:
        case PPRAGMA:
        case NASSERT:
        case ASSERT:
        case ARASG: return false;
        default: return side_effects[node->op] == SE_ANY;
    }
}

class COMBINER {
  public:
    void run();

  private:
    using TIME = std::uint32_t;

    struct TIMES {
        TIME accessed = 0, written = 0;
    };
    // What may still be joined with an assignment behind it.
    struct PENDING {
        LIST* cell;
        TIME time;
        SYMTAB* object; // null: reached through a pointer
    };

    void run_block(BBLK* bb);
    void note_accesses(NODE* statement);
    void note(SYMTAB* symbol, bool is_write);

    bool is_candidate(NODE* statement) const;
    bool is_untouched(const PENDING& first);
    bool moves_freely(NODE* value, TIME since);
    bool touches(NODE* value, NODE* place, const SYMTAB* object);
    bool join(PENDING& first, LIST* second);
    bool join_constants(NODE* first, NODE* second);
    bool join_values(LIST* first, LIST* second, TIME since);

    TIMES& times(SYMTAB* symbol) {
        const std::uint32_t number = numbers_.of(symbol);
        if (number >= times_.size()) times_.resize(number + 1);
        return times_[number];
    }

    SYMBOL_NUMBERS numbers_;
    std::vector<TIMES> times_;
    TIMES indirect_; // accesses through pointers to objects that are not known
    TIMES memory_;   // all accesses that a pointer could have made
    TIME last_call_ = 0;
    TIME now_ = 0;
    std::unordered_map<std::uint64_t, PENDING> pending_; // by hash of the place; never walked
    bool changed_ = false;
};

std::uint64_t hash_of_place(NODE* place) {
    std::uint64_t hash = 0;
    walk_tree(place, [&hash](NODE* node) {
        std::uint64_t word = static_cast<std::uint64_t>(node->op);
        if (node->op == NAME) word += reinterpret_cast<std::uintptr_t>(node->symbol());
        if (node->op == ICON) word += node->u.lval.bits() << 8;
        if (node->op == FIELD) word += static_cast<std::uint64_t>(node->mdata->offset) << 8;
        hash = (hash ^ word) * 0x9e3779b97f4a7c15u;
        hash ^= hash >> 29;
    });
    return hash;
}

// Whether finding the place reads nothing that a store could change, variables that have no address apart.
bool is_found_without_memory(NODE* place) {
    NODE* node = place;
    while (node->op == STDOT) node = node->left;
    if (node->op == NAME) return true;
    if (node->op != UMULT && node->op != STREF) return false;
    return !any_node(node->left, [](const NODE* part) {
        switch (part->op) {
            case UMULT:
            case STREF: return true;
            case NAME: return is_in_reach_of_pointers(part->symbol()) && part->type->is_scalar();
            default: return side_effects[part->op] != SE_NONE || part->op == ICALL || part->op == UICALL;
        }
    });
}

bool COMBINER::is_candidate(NODE* statement) const {
    if (statement->op != ASG && op_of_opASG[statement->op] == ILLOP) return false;
    NODE* place = statement->left;
    if (!place->type->is_scalar() || is_bit_field(place) || tree_is_arg_prolog(statement)) return false;
    if (place->op == NAME && is_automatic(place->symbol())) return false;
    if (!has_at_most(place, MAX_PLACE)) return false;
    return !tree_has_side_effects(place) && !tree_has_side_effects(statement->right) &&
           is_found_without_memory(place);
}

void COMBINER::note(SYMTAB* symbol, bool is_write) {
    TIMES& own = times(symbol);
    own.accessed = now_;
    if (is_write) own.written = now_;
    if (!is_in_reach_of_pointers(symbol)) return;
    memory_.accessed = now_;
    if (is_write) memory_.written = now_;
}

void COMBINER::note_accesses(NODE* statement) {
    walk_tree(statement, [this](NODE* node) {
        if (opcode_is_ASG(node->op) || node->op == ARGREF) {
            if (SYMTAB* object = object_of_place(node->left); object != nullptr) {
                note(object, true);
            } else {
                NODE* place = node->left;
                while (place->op == STDOT) place = place->left;
                const bool is_access = place->op == UMULT || place->op == STREF;
                const POINTEE at = is_access ? place_of_pointer(place->left) : POINTEE{};
                if (at.object != nullptr) {
                    note(at.object, true);
                } else {
                    indirect_.accessed = indirect_.written = now_;
                    memory_ = indirect_;
                }
            }
        }
        switch (node->op) {
            case NAME: note(node->symbol(), false); break;
            case UMULT:
            case STREF:
                if (place_of_pointer(node->left).object == nullptr)
                    indirect_.accessed = memory_.accessed = now_;
                break;
            case ICALL:
            case UICALL: indirect_.accessed = memory_.accessed = now_; break;
            default:
                if (!acts_like_call(node)) break;
                last_call_ = now_;
                indirect_ = memory_ = {now_, now_};
        }
    });
}

// Whether nothing behind the assignment has accessed its place, or changed what leads there.
bool COMBINER::is_untouched(const PENDING& first) {
    NODE* place = first.cell->first->left;
    if (first.object == nullptr) {
        if (memory_.accessed > first.time) return false;
    } else {
        if (times(first.object).accessed > first.time) return false;
        if (is_in_reach_of_pointers(first.object) && indirect_.accessed > first.time) return false;
    }
    return !any_node(place, [&](const NODE* node) {
        return node->op == NAME && node->symbol() != first.object &&
               times(node->symbol()).written > first.time;
    });
}

// Whether the value is now what it was at that time.
bool COMBINER::moves_freely(NODE* value, TIME since) {
    return !any_node(value, [&](const NODE* node) {
        switch (node->op) {
            case NAME: {
                SYMTAB* symbol = node->symbol();
                return times(symbol).written > since ||
                       (is_in_reach_of_pointers(symbol) && indirect_.written > since);
            }
            case UMULT:
            case STREF: return memory_.written > since;
            case ICALL:
            case UICALL: return true;
            default: return false;
        }
    });
}

// Whether the value reads the place in another way than by itself.
bool COMBINER::touches(NODE* value, NODE* place, const SYMTAB* object) {
    NODE_STACK pending;
    pending.push(value);
    while (!pending.empty())
        for (NODE* node = pending.pop(); node != nullptr; node = node->left) {
            if (node->op == place->op && trees_are_congruent(node, place)) break;
            if (node->op == UAND && node->left->op == NAME) break;
            switch (node->op) {
                case NAME:
                    if (object == nullptr ? is_in_reach_of_pointers(node->symbol())
                                          : node->symbol() == object)
                        return true;
                    break;
                case UMULT:
                case STREF: {
                    const SYMTAB* other = place_of_pointer(node->left).object;
                    if (object == nullptr || other == object) return true;
                    if (other == nullptr && is_in_reach_of_pointers(object)) return true;
                    break;
                }
                case ICALL:
                case UICALL: return true;
                default: break;
            }
            if (node->right != nullptr) pending.push(node->right);
        }
    return false;
}

// x += a; x += b
bool COMBINER::join_constants(NODE* first, NODE* second) {
    if (first->op != second->op || !is_compound_by_constant(first->op)) return false;
    if (first->right->op != ICON || second->right->op != ICON) return false;
    TYPE* type = first->left->type;
    if (!is_int_or_ptr(type) || type->is_bool() || type->is_marked_bool()) return false;
    if (!first->right->type->is_integral() || !second->right->type->is_integral()) return false;
    TYPE* operand = type->is_ptr() ? first->right->type : type;
    if (type->is_ptr() && !same_representation(operand, second->right->type)) return false;
    // Taking away twice is taking away the sum.
    const int op = first->op == MINUSASG ? int{PLUS} : int{op_of_opASG[first->op]};
    NODE* a = coerce_to_type(copy_node(first->right, false), operand);
    NODE* b = coerce_to_type(second->right, operand);
    second->right = simp_node(maketree(op, a, b, operand, nullptr), nullptr);
    return true;
}

// Puts `value` in place of every read of the place in the tree; returns the new tree.
NODE* substitute_place(NODE* tree, NODE* place, NODE* value) {
    std::vector<NODE**> pending{&tree};
    while (!pending.empty()) {
        NODE** at = pending.back();
        pending.pop_back();
        NODE* node = *at;
        if (node->op == place->op && trees_are_congruent(node, place)) {
            NODE* copy = coerce_to_type(copy_tree(value, false), node->type);
            erase_tree(node);
            *at = copy;
            continue;
        }
        if (node->op == UAND && node->left->op == NAME) continue;
        if (node->right != nullptr) pending.push_back(&node->right);
        if (node->left != nullptr) pending.push_back(&node->left);
    }
    return tree;
}

int count_lvalues_in_tree(NODE* tree, NODE* place) {
    int count = 0;
    NODE_STACK pending;
    pending.push(tree);
    while (!pending.empty())
        for (NODE* node = pending.pop(); node != nullptr; node = node->left) {
            if (node->op == place->op && trees_are_congruent(node, place)) {
                count++;
                break;
            }
            if (node->op == UAND && node->left->op == NAME) break;
            if (node->right != nullptr) pending.push(node->right);
        }
    return count;
}

// The second assignment, a plain one by now, gets the value of the first where it reads the place.
bool COMBINER::join_values(LIST* first, LIST* second, TIME since) {
    NODE* place = second->first->left;
    const int reads = count_lvalues_in_tree(second->first->right, place);
    NODE* source = first->first;
    if (reads > 0 && source->op != ASG) return false;
    if (reads > 0) {
        if (!has_at_most(source->right, MAX_VALUE)) return false;
        if (reads == 1 && !moves_freely(source->right, since)) return false;
        NODE* value = coerce_to_type(source->right, source->left->type);
        source->right = value;
        if (reads > 1) {
            SYMTAB* temp = sym_temp(TEMP_KIND, -1, place->type, nullptr);
            erase_tree(source->left);
            source->left = mk_NAME(temp);
            source->type = source->otype = temp->type;
            value = source->left;
        }
        second->first->right = substitute_place(second->first->right, place, value);
        if (reads > 1) return true; // the first statement stays, for the temporary
    }
    erase_tree(first->first);
    first->first = nullptr;
    return true;
}

bool COMBINER::join(PENDING& first, LIST* second) {
    NODE* a = first.cell->first;
    if (!trees_are_congruent(a->left, second->first->left) || a->left->type != second->first->left->type)
        return false;
    if (!is_untouched(first) || touches(second->first->right, a->left, first.object)) return false;
    const std::string text_a = print_debug != 0 ? tree_to_text(a) : "";
    const std::string text_b = print_debug != 0 ? tree_to_text(second->first) : "";
    if (join_constants(a, second->first)) {
        erase_tree(a);
        first.cell->first = nullptr;
    } else {
        if (second->first->op != ASG) {
            if (a->op != ASG || !has_at_most(a->right, MAX_VALUE)) return false;
            NODE* plain = copy_tree(second->first, false);
            if (opASG_to_ASG(plain)->op != ASG) {
                erase_tree(plain);
                return false;
            }
            std::swap(second->first, plain);
            if (!join_values(first.cell, second, first.time)) {
                std::swap(second->first, plain);
                erase_tree(plain);
                return false;
            }
            erase_tree(plain);
        } else if (!join_values(first.cell, second, first.time)) {
            return false;
        }
    }
    bool settled = false;
    second->first = tidy_statement(second->first, settled);
    if (print_debug != 0) {
        dprintf("\n\tCombining the assignments %s\n", text_a.c_str());
        dprintf("\t......................and %s\n", text_b.c_str());
        dprintf("\t...................to get %s\n",
                second->first != nullptr ? tree_to_text(second->first).c_str() : "");
    }
    changed_ = true;
    return true;
}

void COMBINER::run_block(BBLK* bb) {
    if (!pending_.empty()) pending_ = {}; // clearing costs as much as the largest block so far
    changed_ = false;
    for (LIST* cell = bb->statements; cell != nullptr; cell = cell->next) {
        now_++;
        NODE* statement = cell->first;
        if (is_candidate(statement)) {
            const std::uint64_t hash = hash_of_place(statement->left);
            const auto found = pending_.find(hash);
            if (found != pending_.end()) {
                const bool joined = join(found->second, cell);
                pending_.erase(found);
                if (joined && cell->first == nullptr) continue;
            }
            statement = cell->first;
            if (is_candidate(statement))
                pending_.insert_or_assign(hash_of_place(statement->left),
                                          PENDING{cell, now_, object_of_place(statement->left)});
        }
        note_accesses(statement);
    }
    if (changed_) bb->statements = tidy_statement_list(bb->statements);
}

void COMBINER::run() {
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) run_block(bb);
}

} // namespace

void combine_asgs_to_memory() {
    dprintf("\n\n\t\t\t---------- ENTERING 'combine_asgs_to_memory' -------\n");
    currfuninfo->spmap.clear(); // passes in between may have given a pointer another definition
    init_aliasing_info();
    COMBINER().run();
}
