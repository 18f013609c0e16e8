// Fields are counted from the least significant bit of their container, and bit n of a container of several
// units lies in unit n / 16 of it.

#include "expand_bitfields.h"

#include <algorithm>
#include <cstdint>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "bblk.h"
#include "bbutils.h"
#include "copy.h"
#include "debug.h"
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
#include "types.h"

using namespace op;

namespace {

constexpr int TEMP_KIND = 'B';

// Where a field lies; without a type it has no container.
struct CONTAINER {
    TYPE* type = nullptr; // unsigned
    std::int64_t offset = 0;
    int shift = 0, width = 0;
    bool is_signed = false;

    int size() const { return static_cast<int>(type->size()); }
};

struct RANGE {
    std::int64_t begin, end; // bits
};

// The containers of a structure's bit-fields, by number of the member less one.
std::vector<CONTAINER> containers_of(TYPE* csu) {
    const std::vector<fkMDATA*>& members = csu->csu().members;
    std::vector<RANGE> others; // members that are no bit-fields; of a union all members overlap
    for (const fkMDATA* member : members)
        if (!member->bit_field && !csu->is_union())
            others.push_back(
                {member->offset, member->offset + static_cast<std::int64_t>(
                                                      std::max<std::uint64_t>(member->type->size(), 1))});
    std::sort(others.begin(), others.end(), [](const RANGE& a, const RANGE& b) { return a.begin < b.begin; });
    const auto is_free = [&others](std::int64_t begin, std::int64_t end) {
        auto next = std::lower_bound(others.begin(), others.end(), end,
                                     [](const RANGE& range, std::int64_t at) { return range.begin < at; });
        return next == others.begin() || (--next)->end <= begin;
    };
    constexpr IKIND kinds[] = {IK_UINT, IK_ULONG, IK_ULLONG};
    const auto fits = [&](const fkMDATA& member, TYPE* type) {
        const std::int64_t begin = tp->get_container_offset_for_field(type, member.offset, member.width);
        const auto end = begin + static_cast<std::int64_t>(type->size());
        return begin >= 0 && end <= static_cast<std::int64_t>(csu->size()) && type->align() <= csu->align() &&
               is_free(begin, end);
    };
    std::vector<CONTAINER> containers(members.size());
    std::set<std::pair<std::int64_t, int>> in_use; // offset and kind
    for (std::size_t i = 0; i < members.size(); i++) {
        const fkMDATA& member = *members[i];
        TYPE* declared = member.type->normalized();
        if (!member.bit_field || member.width == 0 || !declared->is_integral() || declared->is_volatile() ||
            member.width > declared->size() || (declared->is_bool() && member.width != 1))
            continue;
        for (const IKIND kind : kinds) {
            if (!fits(member, tp->int_type(kind))) continue;
            CONTAINER& container = containers[i];
            container.type = tp->int_type(kind);
            container.offset =
                tp->get_container_offset_for_field(container.type, member.offset, member.width);
            container.width = static_cast<int>(member.width);
            container.is_signed = declared->is_signed();
            in_use.insert({container.offset, kind});
            break;
        }
    }
    for (std::size_t i = 0; i < members.size(); i++) {
        CONTAINER& container = containers[i];
        if (container.type == nullptr) continue;
        for (const IKIND kind : kinds) {
            TYPE* type = tp->int_type(kind);
            const std::int64_t begin =
                tp->get_container_offset_for_field(type, members[i]->offset, members[i]->width);
            if (begin < 0 || in_use.count({begin, kind}) == 0) continue;
            container.type = type;
            container.offset = begin;
        }
        container.shift = static_cast<int>(members[i]->offset - container.offset);
    }
    return containers;
}

// The member of an integer at that place of whatever structure. Its name tells all about it, so one made
// earlier, perhaps by a run that wrote this file, serves again.
fkMDATA* member_at(const CONTAINER& container, TYPE** csu) {
    const std::string name =
        "$O$bits" + std::to_string(container.size()) + "_" + std::to_string(container.offset);
    TYPE* view = tp->find_named_type(name.c_str());
    if (view == nullptr) {
        const auto size = static_cast<std::uint64_t>(container.offset) + container.type->size();
        view = tp->mk_struct(name.c_str(), {size, container.type->align()});
        fkMDATA member;
        member.name = "bits";
        member.type = container.type;
        member.offset = container.offset;
        tp->add_member(view, member);
        tp->open_csu(view)->is_complete = true;
        tp->type_frozen(view);
    }
    *csu = view->get_csu();
    fkMDATA* member = *csu != nullptr ? (*csu)->member(1) : nullptr;
    const bool is_right = member != nullptr && member->offset == container.offset &&
                          member->type->true_type() == container.type->true_type() && !member->bit_field;
    return is_right ? member : nullptr;
}

NODE* icon(std::int64_t value, TYPE* type) {
    return mk_ICON(truncate_to_type(INT65::from_signed(value), type), type);
}

NODE* shifted(int op, NODE* value, int count) {
    if (count == 0) return value;
    return maketree(op, value, icon(count, tp->int_type(IK_INT)), value->type, nullptr);
}

// Ones in that many low bits.
std::int64_t ones(int bits) {
    return bits >= 64 ? -1 : static_cast<std::int64_t>((std::uint64_t{1} << bits) - 1);
}

// The field's value, as one of `type`, out of its container's.
NODE* extracted(NODE* value, const CONTAINER& field, TYPE* type) {
    if (field.is_signed) {
        value = coerce_to_type(value, tp->mk_signed(field.type));
        value = shifted(SLL, value, field.size() - field.shift - field.width);
        value = shifted(SRL, value, field.size() - field.width);
    } else {
        value = shifted(SRL, coerce_to_type(value, field.type), field.shift);
        if (field.shift + field.width < field.size())
            value = maketree(ANDB, value, icon(ones(field.width), field.type), field.type, nullptr);
    }
    return coerce_to_type(value, type);
}

// The value as the field holds it, at the place in its container where the field lies; zeros elsewhere.
NODE* inserted(NODE* value, const CONTAINER& field) {
    value = coerce_to_type(value, field.type);
    if (field.shift + field.width < field.size())
        value = maketree(ANDB, value, icon(ones(field.width), field.type), field.type, nullptr);
    return shifted(SLL, value, field.shift);
}

// The type in which a bit-field is computed with: `int` where that holds all its values.
TYPE* promoted_field_type(const CONTAINER& field, TYPE* type) {
    TYPE* plain_int = tp->int_type(IK_INT);
    const int width = static_cast<int>(plain_int->size());
    if (type->is_bool() || field.width < width || (field.width == width && field.is_signed)) return plain_int;
    return promoted_type(type);
}

class EXPANDER {
  public:
    bool run(LIST* cell);

  private:
    bool find_container(const NODE* place, CONTAINER& field);
    NODE* rewrite(NODE* node);
    NODE* read(NODE* place);
    NODE* write(NODE* assignment);
    NODE* new_value(NODE* assignment, const CONTAINER& field, NODE* old, NODE* operand);
    NODE* in_container(NODE* place, const CONTAINER& field);
    NODE* kept(NODE* value, std::vector<NODE*>& ahead);
    void settle_address(NODE* place, std::vector<NODE*>& ahead);

    std::unordered_map<const TYPE*, std::vector<CONTAINER>> containers_;
    std::uint32_t written_ = 0;    // stamp of bit-fields that an assignment writes
    std::uint32_t for_effect_ = 0; // stamp of trees whose value nobody uses
    bool changed_ = false;
};

bool EXPANDER::find_container(const NODE* place, CONTAINER& field) {
    if (!is_bit_field(place) || place_is_volatile(place) || !place->type->is_integral()) return false;
    TYPE* csu = place->right->csu()->get_csu();
    if (csu == nullptr) return false;
    auto known = containers_.find(csu);
    if (known == containers_.end()) known = containers_.emplace(csu, containers_of(csu)).first;
    const std::size_t number = place->right->mdata->number;
    if (number == 0 || number > known->second.size()) return false;
    field = known->second[number - 1];
    TYPE* view;
    return field.type != nullptr && member_at(field, &view) != nullptr;
}

// The place of the container, from that of the field. Consumes the place.
NODE* EXPANDER::in_container(NODE* place, const CONTAINER& field) {
    TYPE* view;
    fkMDATA* member = member_at(field, &view);
    auto* access = new NODE(FIELD, field.type);
    access->mk_field(1, member, view);
    NODE* container = maketree(place->op, place->left, access, field.type, place->ls);
    erase_tree(place->right);
    erase_node(place);
    return container;
}

NODE* EXPANDER::read(NODE* place) {
    CONTAINER field;
    if (!find_container(place, field)) return place;
    changed_ = true;
    TYPE* type = place->type->normalized();
    return extracted(in_container(place, field), field, type);
}

// The value in a form that can be copied and is not changed by what comes behind.
NODE* EXPANDER::kept(NODE* value, std::vector<NODE*>& ahead) {
    if (value->op == ICON || value->op == FCON) return value;
    SYMTAB* temporary = sym_temp(TEMP_KIND, -1, value->type->normalized(), nullptr);
    ahead.push_back(mk_ASG(mk_NAME(temporary), value));
    return mk_NAME(temporary);
}

// Whether the address can be evaluated several times for little more than once.
bool is_cheap_address(NODE* pointer) {
    if (pointer->op == PLUS && pointer->right->op == ICON) pointer = pointer->left;
    while (pointer->op == PCONV || pointer->op == ISP2CHAR) pointer = pointer->left;
    if (pointer->op == NAME) return !node_is_volatile_access(pointer);
    if (pointer->op != UAND) return false;
    const NODE* place = pointer->left;
    while (place->op == STDOT) place = place->left;
    return place->op == NAME;
}

// Makes sure that the place can be copied.
void EXPANDER::settle_address(NODE* place, std::vector<NODE*>& ahead) {
    while (place->op == STDOT) place = place->left;
    if (place->op == NAME) return;
    if (!is_cheap_address(place->left)) {
        TYPE* type = place->left->type;
        place->left = kept(place->left, ahead);
        place->left->type = type;
    }
}

bool has_known_base(const NODE* place) {
    while (place->op == STDOT) place = place->left;
    return place->op == NAME || place->op == STREF || place->op == UMULT;
}

// What the assignment stores, from the old value (null for a plain one) and its operand. Consumes both.
NODE* EXPANDER::new_value(NODE* assignment, const CONTAINER& field, NODE* old, NODE* operand) {
    TYPE* type = assignment->left->type->normalized();
    if (assignment->op == ASG) return coerce_to_type(operand, type);
    if (assignment->op == PLUSPLUS || assignment->op == MINMIN) {
        TYPE* computed = type->is_bool() ? tp->int_type(IK_INT) : type;
        return coerce_to_type(maketree(assignment->op == PLUSPLUS ? PLUS : MINUS,
                                       coerce_to_type(old, computed), coerce_to_type(operand, computed),
                                       computed, nullptr),
                              type);
    }
    const int op = op_of_opASG[assignment->op];
    TYPE* computed = promoted_field_type(field, type);
    if (op != SLL && op != SRL) {
        computed = combined_type(computed, promoted_type(operand->type));
        operand = coerce_to_type(operand, computed);
    }
    return coerce_to_type(maketree(op, coerce_to_type(old, computed), operand, computed, nullptr), type);
}

NODE* EXPANDER::write(NODE* assignment) {
    NODE* place = assignment->left;
    const bool is_step = assignment->op == PLUSPLUS || assignment->op == MINMIN;
    CONTAINER field;
    if ((assignment->op != ASG && !is_step && op_of_opASG[assignment->op] == ILLOP) ||
        !find_container(place, field) || !has_known_base(place))
        return assignment;
    changed_ = true;
    TYPE* type = place->type->normalized();
    const bool is_wanted = assignment->stamp != for_effect_;

    // The operand comes first, then the address, then the old contents.
    std::vector<NODE*> ahead;
    NODE* operand = assignment->right;
    if (tree_has_side_effects(operand) || tree_has_side_effects(place)) operand = kept(operand, ahead);
    settle_address(place, ahead);

    NODE* old = nullptr;
    if (assignment->op != ASG) {
        old = extracted(in_container(copy_tree(place, false), field), field, type);
        if (is_step && is_wanted) old = kept(old, ahead);
    }
    NODE* result = is_step && is_wanted ? copy_tree(old, false) : nullptr;
    NODE* value = new_value(assignment, field, old, operand);
    if (is_wanted && !is_step) {
        value = kept(value, ahead);
        CONTAINER low = field;
        low.shift = 0;
        result = copy_tree(value, false);
        if (!type->is_bool()) result = extracted(result, low, type);
    }
    NODE* stored = inserted(value, field);
    if (field.width < field.size()) {
        const auto mask = static_cast<std::uint64_t>(ones(field.width)) << field.shift;
        NODE* rest = maketree(ANDB, in_container(copy_tree(place, false), field),
                              icon(static_cast<std::int64_t>(~mask), field.type), field.type, nullptr);
        stored = maketree(ORB, rest, stored, field.type, nullptr);
    }
    NODE* tree = mk_ASG(in_container(place, field), stored);
    if (result != nullptr) tree = mk_COMMAOP(tree, coerce_to_type(result, assignment->type->normalized()));
    for (auto effect = ahead.rbegin(); effect != ahead.rend(); ++effect) tree = mk_COMMAOP(*effect, tree);
    erase_node(assignment);
    return tree;
}

NODE* EXPANDER::rewrite(NODE* node) {
    if (opcode_is_ASG(node->op) && is_bit_field(node->left)) return write(node);
    return is_bit_field(node) && node->stamp != written_ ? read(node) : node;
}

// Expands the statement's bit-fields; false if it has none to expand.
bool EXPANDER::run(LIST* cell) {
    if (tree_is_arg_prolog(cell->first) || !any_node(cell->first, is_bit_field)) return false;
    written_ = fresh_stamp();
    for_effect_ = fresh_stamp();
    cell->first->stamp = for_effect_;
    walk_tree(cell->first, [this](NODE* node) {
        if (opcode_is_ASG(node->op) && is_bit_field(node->left)) node->left->stamp = written_;
        // A comma whose value is not used passes that on; it is met ahead of its operands.
        if (node->op != COMMAOP) return;
        node->left->stamp = for_effect_;
        if (node->stamp == for_effect_) node->right->stamp = for_effect_;
    });
    changed_ = false;
    NODE* tree = rewrite_tree(cell->first, [this](NODE* node) { return rewrite(node); });
    cell->first = changed_ ? simp_tree(tree, nullptr) : tree;
    return changed_;
}

} // namespace

void expand_bitfields() {
    dprintf("\n\n\t\t\t---------- ENTERING 'expand_bitfields' ----------\n");
    EXPANDER expander;
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        bool changed = false;
        for (LIST* cell = bb->statements; cell != nullptr; cell = cell->next) {
            if (!expander.run(cell)) continue;
            if (print_debug != 0) dprintf("Expanded to %s\n", tree_to_text(cell->first).c_str());
            changed = true;
        }
        if (changed) bb->statements = promote_toplevel_COMMAOPs_in_list(bb->statements);
    }
}
