#include "accesses.h"

#include <algorithm>
#include <cstring>

#include "bblk.h"
#include "bbutils.h"
#include "fileopt.h"
#include "files.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "optypes.h"
#include "symbol.h"
#include "types.h"

using namespace op;

namespace {

bool is_local(const NODE* name) { return name->symbol()->level > 0; }

// The pointer that the address is reckoned from; null where it is the start itself.
NODE* base_of_address(NODE* address) {
    switch (address->op) {
        case PLUS:
            if (address->left->type->is_ptr()) return address->left;
            return address->right->type->is_ptr() ? address->right : nullptr;
        case MINUS:
        case PCONV: return address->left->type->is_ptr() ? address->left : nullptr;
        default: return nullptr;
    }
}

// The place from whose address the pointer's value is reckoned; null where that is no constant address.
NODE* place_at_address(NODE* pointer) {
    while (NODE* base = base_of_address(pointer)) pointer = base;
    return pointer->op == UAND ? pointer->left : nullptr;
}

// Whether the members that the place takes belong to something that is a place itself.
bool is_place(const NODE* place) {
    while (place->op == STDOT) place = place->left;
    return place->op == NAME || place->op == UMULT || place->op == STREF;
}

// The place that an operator which takes a part of a value applies to.
NODE* place_under_parts(NODE* place) {
    for (;;) {
        switch (place->op) {
            case STDOT:
            case STFIELD:
            case VFIELD:
            case REAL:
            case IMAG:
            case SIMDHI:
            case SIMDLO: place = place->left; break;
            default: return place;
        }
    }
}

// The NAME that the place is or takes a part of, by whatever operator; null where there is none.
NODE* name_under_place(NODE* place) {
    place = place_under_parts(place);
    return place->op == NAME ? place : nullptr;
}

// A function's name stands for no storage.
bool is_object(const NODE* name) { return !name->symbol()->otype->is_func(); }

// The place_is_volatile of a place that name_of_part answers to.
bool part_is_volatile(const NODE* place) {
    for (;;) {
        if (node_is_volatile_access(place)) return true;
        switch (place->op) {
            case STREF:
            case STDOT:
                if (node_is_volatile_access(place->right)) return true;
                if (place->op == STDOT) {
                    place = place->left;
                    break;
                }
                [[fallthrough]];
            case UMULT:
                place = place_at_address(place->left);
                if (place == nullptr) return false;
                break;
            default: return false;
        }
    }
}

bool may_do_anything(const NODE* node) {
    switch (node->op) {
        case COMMAOP:
        case RETURN:
        case URETURN:
        case PPRAGMA:
        case NASSERT:
        case ASSERT: return false;
        case ASM: return !is_comment(node);
        default: return side_effects[node->op] != SE_NONE;
    }
}

class LISTER {
  public:
    LISTER(std::vector<ACCESS>& accesses, bool parts) : accesses_(accesses), parts_(parts) {}

    void run(NODE* statement) {
        if (tree_is_arg_prolog(statement)) return list_prolog(statement);
        push(statement, false);
        while (!pending_.empty()) {
            const ITEM item = pending_.back();
            pending_.pop_back();
            if (item.is_access) {
                accesses_.push_back(item.access);
            } else {
                visit(item.access.name, item.access.conditional);
            }
        }
    }

  private:
    // A tree to visit, in the access's `name`, or an access whose turn comes behind what is on top.
    struct ITEM {
        ACCESS access;
        bool is_access;
    };

    void push(NODE* tree, bool conditional) {
        if (tree != nullptr) pending_.push_back({{tree, nullptr, ACC_READ, conditional}, false});
    }
    bool is_listed(const NODE* name) const { return is_local(name) || (parts_ && is_object(name)); }
    void push_access(NODE* name, NODE* place, NODE* assignment, ACCESS_KIND kind, bool conditional) {
        if (is_listed(name)) pending_.push_back({{name, assignment, kind, conditional, place}, true});
    }
    void emit(NODE* name, NODE* place, ACCESS_KIND kind, bool conditional) {
        if (is_listed(name)) accesses_.push_back({name, nullptr, kind, conditional, place});
    }
    void push_memory(NODE* place, NODE* assignment, ACCESS_KIND kind, bool conditional) {
        if (parts_) pending_.push_back({{nullptr, assignment, kind, conditional, place}, true});
    }
    void push_operands(NODE* node, bool conditional) {
        push(node->right, conditional);
        push(node->left, conditional);
    }
    void list_prolog(NODE* statement) {
        const std::size_t first = accesses_.size();
        for (NODE* node = statement; node != nullptr;) {
            NODE* received = node->op == PCOMMA ? node->right : node;
            accesses_.push_back({received->left, received, ACC_WRITE, false, received->left});
            node = node->op == PCOMMA ? node->left : nullptr;
        }
        std::reverse(accesses_.begin() + static_cast<std::ptrdiff_t>(first), accesses_.end());
    }
    // The object in a way that reads and writes do not describe.
    void visit_taken(NODE* place, bool conditional) {
        if (NODE* name = name_under_place(place)) {
            emit(name, place, ACC_TAKEN, conditional);
        } else if (parts_) {
            if (NODE* object = name_of_part(place_under_parts(place)))
                push_access(object, place, nullptr, ACC_TAKEN, conditional);
            push_operands_of_place(place, conditional);
        } else {
            push(place, conditional);
        }
    }
    // What is read on the way to the place.
    void push_operands_of_place(NODE* place, bool conditional) {
        for (;;) {
            if (place->op == STDOT) {
                place = place->left;
                continue;
            }
            if (place->op != UMULT && place->op != STREF) {
                if (place->op != NAME) push_operands(place, conditional);
                return;
            }
            NODE* address = place->left;
            while (NODE* base = base_of_address(address)) {
                if (address->right != nullptr)
                    push(base == address->left ? address->right : address->left, conditional);
                address = base;
            }
            if (address->op != UAND) return push(address, conditional);
            place = address->left;
        }
    }
    // A read of memory, or of a named object's part.
    void visit_read_of_place(NODE* place, bool conditional) {
        NODE* name = name_of_part(place);
        if (name == nullptr) {
            push_memory(place, nullptr, ACC_FAR_READ, conditional);
        } else {
            push_access(name, place, nullptr, part_is_volatile(place) ? ACC_TAKEN : ACC_READ, conditional);
        }
        push_operands_of_place(place, conditional);
    }
    void visit_assignment_to_part(NODE* node, bool conditional) {
        NODE* place = node->left;
        NODE* name = node->op == ARASG ? nullptr : name_of_part(place);
        const bool is_plain = node->op == ASG || node->op == STASG;
        if (name == nullptr) {
            if (NODE* object = name_of_part(place_under_parts(place))) {
                push_access(object, place, nullptr, ACC_TAKEN, conditional);
            } else {
                push_memory(place, node, ACC_FAR_WRITE, conditional);
                if (!is_plain) push_memory(place, node, ACC_FAR_READ, conditional);
            }
        } else if (part_is_volatile(place)) {
            push_access(name, place, nullptr, ACC_TAKEN, conditional);
        } else {
            push_access(name, place, node, place == name ? ACC_WRITE : ACC_PART_WRITE, conditional);
            if (!is_plain) push_access(name, place, node, ACC_READ, conditional);
        }
        push_operands_of_place(place, conditional);
        push(node->right, conditional);
    }
    void visit_assignment(NODE* node, bool conditional) {
        if (parts_) return visit_assignment_to_part(node, conditional);
        NODE* name = node->op == ARASG ? nullptr : name_of_place(node->left);
        if (name == nullptr) {
            if (name_under_place(node->left) != nullptr) {
                push_access(name_under_place(node->left), nullptr, nullptr, ACC_TAKEN, conditional);
            } else {
                push(node->left, conditional);
            }
        } else if (place_is_volatile(node->left)) {
            push_access(name, nullptr, nullptr, ACC_TAKEN, conditional);
        } else {
            push_access(name, nullptr, node, node->left == name ? ACC_WRITE : ACC_PART_WRITE, conditional);
            if (node->op != ASG && node->op != STASG) push_access(name, nullptr, node, ACC_READ, conditional);
        }
        push(node->right, conditional);
    }
    void visit(NODE* node, bool conditional) {
        switch (node->op) {
            case NAME:
                emit(node, node, node_is_volatile_access(node) ? ACC_TAKEN : ACC_READ, conditional);
                return;
            case UMULT:
            case STREF:
                if (parts_) return visit_read_of_place(node, conditional);
                push_operands(node, conditional);
                return;
            case STDOT:
                if (parts_ && is_place(node)) return visit_read_of_place(node, conditional);
                if (NODE* name = name_of_place(node)) {
                    emit(name, node, place_is_volatile(node) ? ACC_TAKEN : ACC_READ, conditional);
                } else {
                    push(node->left, conditional);
                }
                return;
            case UAND:
            case ARGREF: visit_taken(node->left, conditional); return;
            case BRANCH:
            case LABEL:
            case LABELDEF: return;
            case IF:
            case SWITCH: push(node->left, conditional); return;
            case ANDAND:
            case OROR:
                push(node->right, true);
                push(node->left, conditional);
                return;
            case QUEST:
                push(node->right->right, true);
                push(node->right->left, true);
                push(node->left, conditional);
                return;
            default:
                if (opcode_is_ASG(node->op)) return visit_assignment(node, conditional);
                if (parts_ && may_do_anything(node)) push_memory(node, nullptr, ACC_ANY, conditional);
                if (node->op == ICALL) push_memory(node, nullptr, ACC_FAR_READ, conditional);
                push_operands(node, conditional);
                return;
        }
    }

    std::vector<ACCESS>& accesses_;
    const bool parts_;
    // Empty between two runs, of which there is one for each statement of each analysis: the memory stays.
    static inline std::vector<ITEM> pending_;
};

bool may_be_private(const SYMTAB* symbol) {
    if (symbol->class_as_read == SC_VARARG) return false; // the further arguments are read from its address
    switch (symbol->sclass) {
        case SC_AUTO:
        case SC_REGISTER:
        case SC_PARM:
        case SC_REGPARM: break;
        default: return false;
    }
    return symbol->level > 0 && !symbol->type->is_volatile() && !has_volatile_part(symbol->otype);
}

} // namespace

void list_accesses(NODE* statement, std::vector<ACCESS>& accesses) { LISTER(accesses, false).run(statement); }

void list_part_accesses(NODE* statement, std::vector<ACCESS>& accesses) {
    LISTER(accesses, true).run(statement);
}

NODE* name_of_part(NODE* place) {
    for (;;) {
        switch (place->op) {
            case NAME: return place;
            case STDOT: place = place->left; break;
            case UMULT:
            case STREF:
                place = place_at_address(place->left);
                if (place == nullptr) return nullptr;
                break;
            default: return nullptr;
        }
    }
}

NODE* name_of_place(NODE* place) {
    while (place->op == STDOT) place = place->left;
    return place->op == NAME ? place : nullptr;
}

namespace {

bool is_setjmp(NODE* node) {
    if (node->op != CALL && node->op != UCALL) return false;
    const SYMTAB* callee = get_callee_for_call(node);
    return callee != nullptr && std::strcmp(skip_name_prefix(callee->name), "setjmp") == 0;
}

// Most programs have none, and need not be searched for calls of it.
bool setjmp_is_declared() {
    return find_external_symbol("setjmp") != nullptr || find_external_symbol("_setjmp") != nullptr ||
           find_external_symbol(".setjmp") != nullptr;
}

} // namespace

PRIVATE_SYMBOLS::PRIVATE_SYMBOLS(bool parts) : parts_(parts), setjmp_is_declared_(setjmp_is_declared()) {
    numbers_.assign(currfuninfo->next_serial, -1);
    consider(currfuninfo->params);
    consider(currfuninfo->locals);
    consider(currfuninfo->temps);
    std::vector<ACCESS> accesses;
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next)
            scan(cell->first, accesses);
    if (!currfuninfo->eht.empty()) flow_is_known_ = false;
    for (const EHT_ENTRY& entry : currfuninfo->eht) exclude(static_cast<NODE*>(entry.tree));
    compact();
}

void PRIVATE_SYMBOLS::consider(SYMTAB* list) {
    for (SYMTAB* symbol = list; symbol != nullptr; symbol = symbol->next) {
        if (!may_be_private(symbol) || symbol->serial >= numbers_.size()) continue;
        numbers_[symbol->serial] = count();
        symbols_.push_back(symbol);
    }
}

void PRIVATE_SYMBOLS::scan(NODE* tree, std::vector<ACCESS>& accesses) {
    if (setjmp_is_declared_ && flow_is_known_ && any_node(tree, is_setjmp)) flow_is_known_ = false;
    accesses.clear();
    LISTER(accesses, parts_).run(tree);
    for (const ACCESS& access : accesses) {
        if (access.kind != ACC_TAKEN) continue;
        const int number = number_of(access.name->symbol());
        if (number >= 0) symbols_[static_cast<std::size_t>(number)] = nullptr;
    }
}

void PRIVATE_SYMBOLS::exclude(NODE* tree) {
    walk_tree(tree, [this](NODE* node) {
        if (node->op != NAME) return;
        const int number = number_of(node->symbol());
        if (number >= 0) symbols_[static_cast<std::size_t>(number)] = nullptr;
    });
}

// Closes the gaps that excluded symbols have left.
void PRIVATE_SYMBOLS::compact() {
    for (int& number : numbers_)
        if (number >= 0 && symbol(number) == nullptr) number = -1;
    std::size_t kept = 0;
    for (SYMTAB* symbol : symbols_) {
        if (symbol == nullptr) continue;
        numbers_[symbol->serial] = static_cast<int>(kept);
        symbols_[kept++] = symbol;
    }
    symbols_.resize(kept);
}

int PRIVATE_SYMBOLS::number_of(const SYMTAB* symbol) const {
    if (symbol->serial >= numbers_.size()) return -1;
    const int number = numbers_[symbol->serial];
    return number >= 0 && symbols_[static_cast<std::size_t>(number)] == symbol ? number : -1;
}
