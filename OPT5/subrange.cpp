// The state on a path is a set of facts: these bits of this object hold that value. A fact is one of
//
//   s.a = 5          a constant
//   s.a = x          a private variable, as long as x is not assigned
//   s.a = x + y      the value of the store; when it is asked for: t = x + y; s.a = t
//   y = s.a + 1      the value of the read; when it is asked for: t = s.a; y = t + 1
//
// Facts of one object don't overlap: a store ends those that share bits with it, and so does a read as
// another type. What ends many facts at a time costs no search: a store at an unknown place in an object
// gives the object a new version, a store through a pointer or a call does so for all memory that others can
// reach, and a fact counts only under the versions that it was noted with. Leaving a path takes the changes
// back from a log.
//
// Scalars in registers are not objects here; the propagators follow those.

#include "subrange.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <unordered_map>
#include <utility>
#include <vector>

#include "accesses.h"
#include "aliasing.h"
#include "bblk.h"
#include "bbutils.h"
#include "block_effects.h"
#include "congruent.h"
#include "copy.h"
#include "copyprop.h"
#include "debug.h"
#include "dump.h"
#include "erase.h"
#include "extended_blocks.h"
#include "fileopt.h"
#include "files.h"
#include "insertions.h"
#include "node.h"
#include "object_parts.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "optypes.h"
#include "simp.h"
#include "spmap.h"
#include "symbol.h"
#include "types.h"

using namespace op;

namespace {

constexpr int TEMP_KIND = 'R';
constexpr std::size_t MOST_FACTS_TO_COPY = 16; // from one object to another, at a structure assignment

struct FACT {
    enum KIND : std::uint8_t { CONSTANT, VARIABLE, OCCURRENCE };
    KIND kind = CONSTANT;
    bool is_bit_field = false;
    std::int64_t size = 0; // bits
    TYPE* type = nullptr;  // read or stored
    NODE* constant = nullptr;
    int number = 0;   // VARIABLE: of the symbol; OCCURRENCE: among those
    long version = 0; // VARIABLE: of its value
    long object = 0;  // version of the object
    long memory = 0;  // version of memory, for objects that others can reach
};

class SUBRANGE_CSE {
  public:
    explicit SUBRANGE_CSE(const PRIVATE_SYMBOLS& symbols)
        : symbols_(symbols), variables_(static_cast<std::size_t>(symbols.count()), 0) {}
    void run();

  private:
    using FACTS = std::map<std::int64_t, FACT>; // by offset
    struct OBJECT {
        SYMTAB* symbol;
        bool is_private;
        long version = 0;
        FACTS facts;
    };
    // A store or a read whose value can be kept in a temporary ahead of its statement.
    struct OCCURRENCE {
        NODE* node; // the read, or the assignment; null when it has its temporary
        LIST* cell;
        TYPE* type;
        SYMTAB* temp; // null until one is needed
    };
    // What undoes a change.
    struct CHANGE {
        enum KIND : std::uint8_t { FACT_GONE, FACT_NEW, OBJECT_VERSION, VARIABLE, MEMORY } kind;
        OBJECT* object;
        std::int64_t index;
        long version;
        FACT fact;
    };

    void visit_block(BBLK* bb);
    void visit_statement(LIST* cell);
    bool expand_compound(LIST* cell);
    void apply(const ACCESS& access, LIST* cell);
    void apply_read(const ACCESS& access, const PART& part, LIST* cell);
    void end_root_assignment(LIST* cell);
    bool stores_what_is_there(NODE* assignment, const PART& part);

    bool is_variable(const SYMTAB* symbol) const {
        return symbol->type->is_scalar() && symbols_.number_of(symbol) >= 0;
    }
    OBJECT& object_of(SYMTAB* symbol);
    const FACT* find_fact(const PART& part);
    void kill(OBJECT& object, std::int64_t offset, std::int64_t end);
    void kill_part(const PART& part);
    void note_fact(const PART& part, FACT fact);
    void note_store(const PART& part, NODE* assignment, LIST* cell, bool is_root);
    void copy_facts(const PART& from, const PART& to);
    void assign_variable(int number);
    void set_object_version(OBJECT& object);
    void clobber_memory();
    void undo(std::size_t mark);

    bool fact_fits(const FACT& fact, const PART& part, TYPE* type) const;
    NODE* value_of(const FACT& fact, TYPE* type);
    SYMTAB* temp_of(int occurrence);
    void note_changed(LIST* cell, BBLK* bb);
    void finish();

    const PRIVATE_SYMBOLS& symbols_;
    long clock_ = 0;
    long memory_ = 0;
    std::vector<long> variables_; // versions
    std::unordered_map<const SYMTAB*, OBJECT> objects_;
    std::vector<CHANGE> log_;
    std::vector<OCCURRENCE> occurrences_;
    INSERTIONS insertions_;                                // by occurrence: they stand in order of evaluation
    std::unordered_map<const LIST*, BBLK*> block_of_cell_; // of occurrences
    std::vector<std::pair<LIST*, BBLK*>> changed_;
    std::vector<NODE*> garbage_;

    // Of the statement in work.
    BBLK* bb_ = nullptr;
    std::vector<ACCESS> accesses_;
    bool may_go_ahead_ = false; // nothing has happened yet in the statement
    bool changed_here_ = false, leads_here_ = false;
    NODE* last_leader_ = nullptr;
};

bool is_simple(TYPE* type) { return is_int_or_ptr(type->normalized()) || type->is_fltpt(); }

// --- Facts.

SUBRANGE_CSE::OBJECT& SUBRANGE_CSE::object_of(SYMTAB* symbol) {
    const auto [entry, is_new] = objects_.try_emplace(symbol);
    if (is_new) {
        entry->second.symbol = symbol;
        entry->second.is_private = symbols_.number_of(symbol) >= 0;
    }
    return entry->second;
}

const FACT* SUBRANGE_CSE::find_fact(const PART& part) {
    const OBJECT& object = object_of(part.object);
    const auto found = object.facts.find(part.offset);
    if (found == object.facts.end()) return nullptr;
    const FACT& fact = found->second;
    if (fact.size != part.size || fact.is_bit_field != part.is_bit_field) return nullptr;
    if (fact.object != object.version || (!object.is_private && fact.memory != memory_)) return nullptr;
    if (fact.kind == FACT::VARIABLE && fact.version != variables_[static_cast<std::size_t>(fact.number)])
        return nullptr;
    return &fact;
}

void SUBRANGE_CSE::kill(OBJECT& object, std::int64_t offset, std::int64_t end) {
    auto at = object.facts.lower_bound(offset);
    if (at != object.facts.begin()) {
        const auto before = std::prev(at);
        if (before->first + before->second.size > offset) at = before;
    }
    while (at != object.facts.end() && at->first < end) {
        log_.push_back({CHANGE::FACT_GONE, &object, at->first, 0, at->second});
        at = object.facts.erase(at);
    }
}

void SUBRANGE_CSE::kill_part(const PART& part) {
    OBJECT& object = object_of(part.object);
    if (part.is_exact) {
        kill(object, part.offset, part.end());
    } else {
        set_object_version(object);
    }
}

void SUBRANGE_CSE::note_fact(const PART& part, FACT fact) {
    OBJECT& object = object_of(part.object);
    kill(object, part.offset, part.end());
    fact.size = part.size;
    fact.is_bit_field = part.is_bit_field;
    fact.object = object.version;
    fact.memory = memory_;
    object.facts.emplace(part.offset, fact);
    log_.push_back({CHANGE::FACT_NEW, &object, part.offset, 0, {}});
}

// The facts of a structure are those of its copy.
void SUBRANGE_CSE::copy_facts(const PART& from, const PART& to) {
    const OBJECT& source = object_of(from.object);
    std::vector<std::pair<std::int64_t, FACT>> found;
    for (auto at = source.facts.lower_bound(from.offset); at != source.facts.end(); ++at) {
        if (at->first + at->second.size > from.end()) break;
        if (found.size() == MOST_FACTS_TO_COPY) break;
        found.emplace_back(at->first, at->second);
    }
    for (auto& [offset, fact] : found) {
        PART part{from.object, offset, fact.size, true, fact.is_bit_field};
        if (find_fact(part) == nullptr) continue;
        part.object = to.object;
        part.offset += to.offset - from.offset;
        note_fact(part, fact);
    }
}

void SUBRANGE_CSE::assign_variable(int number) {
    long& version = variables_[static_cast<std::size_t>(number)];
    log_.push_back({CHANGE::VARIABLE, nullptr, number, version, {}});
    version = ++clock_;
}

void SUBRANGE_CSE::set_object_version(OBJECT& object) {
    log_.push_back({CHANGE::OBJECT_VERSION, &object, 0, object.version, {}});
    object.version = ++clock_;
}

void SUBRANGE_CSE::clobber_memory() {
    log_.push_back({CHANGE::MEMORY, nullptr, 0, memory_, {}});
    memory_ = ++clock_;
}

void SUBRANGE_CSE::undo(std::size_t mark) {
    for (; log_.size() > mark; log_.pop_back()) {
        CHANGE& change = log_.back();
        switch (change.kind) {
            case CHANGE::FACT_GONE: change.object->facts.emplace(change.index, change.fact); break;
            case CHANGE::FACT_NEW: change.object->facts.erase(change.index); break;
            case CHANGE::OBJECT_VERSION: change.object->version = change.version; break;
            case CHANGE::VARIABLE: variables_[static_cast<std::size_t>(change.index)] = change.version; break;
            case CHANGE::MEMORY: memory_ = change.version; break;
        }
    }
}

// --- Values.

bool SUBRANGE_CSE::fact_fits(const FACT& fact, const PART& part, TYPE* type) const {
    return fact.size == part.size && same_representation(fact.type, type->normalized());
}

// The temporary that keeps the value, made ahead of the statement if there is none yet.
SYMTAB* SUBRANGE_CSE::temp_of(int occurrence) {
    OCCURRENCE& first = occurrences_[static_cast<std::size_t>(occurrence)];
    if (first.temp != nullptr) return first.temp;
    first.temp = sym_temp(TEMP_KIND, -1, first.type, nullptr);
    NODE* node = first.node;
    first.node = nullptr;
    NODE* computed = nullptr;
    if (opcode_is_ASG(node->op)) {
        computed = node->right;
        node->right = coerce_to_type(mk_NAME(first.temp), computed->type);
    } else {
        TYPE* type = node->type;
        computed = new_node(node->op, type);
        *computed = *node;
        NODE* name = coerce_to_type(mk_NAME(first.temp), type);
        *node = *name;
        erase_node(name);
    }
    NODE* assignment = mk_ASG(mk_NAME(first.temp), coerce_to_type(computed, first.type));
    insertions_.add(first.cell, occurrence, assignment);
    note_changed(first.cell, block_of_cell_.at(first.cell));
    return first.temp;
}

NODE* SUBRANGE_CSE::value_of(const FACT& fact, TYPE* type) {
    switch (fact.kind) {
        case FACT::CONSTANT: return coerce_to_type(copy_tree(fact.constant, false), type);
        case FACT::VARIABLE: return coerce_to_type(mk_NAME(symbols_.symbol(fact.number)), type);
        default: return coerce_to_type(mk_NAME(temp_of(fact.number)), type);
    }
}

void SUBRANGE_CSE::note_changed(LIST* cell, BBLK* bb) { changed_.emplace_back(cell, bb); }

// --- One statement.

// s.n += 2, where s.n is known, as s.n = s.n + 2.
bool SUBRANGE_CSE::expand_compound(LIST* cell) {
    NODE* root = cell->first;
    if (!opcode_is_ASG(root->op) || root->op == ASG || root->op == STASG || root->op == ARASG) return false;
    for (const ACCESS& access : accesses_) {
        if (access.assignment == root && access.kind == ACC_READ) {
            const PART part = part_of_place(root->left);
            if (!part.is_exact || part.is_bit_field || is_variable(part.object)) return false;
            const FACT* fact = find_fact(part);
            if (fact == nullptr || !fact_fits(*fact, part, root->left->type)) return false;
            if (fact->kind == FACT::OCCURRENCE &&
                occurrences_[static_cast<std::size_t>(fact->number)].cell == cell)
                return false;
            cell->first = opASG_to_ASG(root);
            return cell->first->op == ASG;
        }
        if (access.kind != ACC_READ && access.kind != ACC_FAR_READ) return false;
    }
    return false;
}

void SUBRANGE_CSE::apply_read(const ACCESS& access, const PART& part, LIST* cell) {
    NODE* place = access.place;
    if (!part.is_exact || access.assignment != nullptr || !is_simple(place->type)) return;
    const FACT* fact = find_fact(part);
    if (fact != nullptr && fact_fits(*fact, part, place->type)) {
        if (fact->kind == FACT::OCCURRENCE) {
            const OCCURRENCE& first = occurrences_[static_cast<std::size_t>(fact->number)];
            if (first.temp == nullptr && first.node == place) return;
        }
        NODE* value = value_of(*fact, place->type);
        if (print_debug != 0)
            dprintf("\n\tA part is known: %s is %s\n", tree_to_text(place).c_str(),
                    tree_to_text(value).c_str());
        if (place->left != nullptr) erase_tree(place->left);
        if (place->right != nullptr) erase_tree(place->right);
        *place = *value;
        erase_node(value);
        changed_here_ = true;
        return;
    }
    if (access.conditional || !may_go_ahead_) return;
    occurrences_.push_back({place, cell, place->type->normalized(), nullptr});
    block_of_cell_[cell] = bb_;
    FACT led;
    led.kind = FACT::OCCURRENCE;
    led.type = place->type->normalized();
    led.number = static_cast<int>(occurrences_.size()) - 1;
    note_fact(part, led);
    leads_here_ = true;
    last_leader_ = place;
}

void SUBRANGE_CSE::apply(const ACCESS& access, LIST* cell) {
    switch (access.kind) {
        case ACC_FAR_READ: return;
        case ACC_ANY:
            if (call_leaves_memory_alone(access.place)) return;
            [[fallthrough]];
        case ACC_FAR_WRITE:
            may_go_ahead_ = false;
            clobber_memory();
            return;
        default: break;
    }
    SYMTAB* symbol = access.name->symbol();
    if (access.kind != ACC_READ) may_go_ahead_ = false;
    if (is_variable(symbol)) {
        if (access.kind != ACC_READ) assign_variable(symbols_.number_of(symbol));
        return;
    }
    if (access.kind == ACC_TAKEN) return set_object_version(object_of(symbol));
    const PART part = part_of_place(access.place);
    if (part.object == nullptr) {
        if (access.kind != ACC_READ) set_object_version(object_of(symbol));
        return;
    }
    if (access.kind == ACC_READ) return apply_read(access, part, cell);
    // The root's store is applied when the whole statement is known.
    if (access.assignment == cell->first) return;
    kill_part(part);
}

// Whether the value is one that can be given again anywhere.
bool is_repeatable_constant(NODE* value) {
    return (value->op == ICON || value->op == FCON || value->op == UAND || value->op == PLUS) &&
           value->type->is_scalar() && expr_is_constant(value);
}

bool SUBRANGE_CSE::stores_what_is_there(NODE* assignment, const PART& part) {
    if (assignment->op != ASG && assignment->op != STASG) return false;
    NODE* value = assignment->right;
    if (name_of_part(value) != nullptr && !is_variable(name_of_part(value)->symbol()) &&
        same_representation(value->type->normalized(), assignment->left->type->normalized()) &&
        same_part(part_of_place(value), part))
        return assignment->op == ASG || !has_volatile_part(assignment->type);
    const FACT* fact = assignment->op == ASG ? find_fact(part) : nullptr;
    if (fact == nullptr) return false;
    TYPE* type = assignment->left->type->normalized();
    if (!same_representation(fact->type, type)) return false;
    if (value->op == NAME) {
        const SYMTAB* symbol = value->symbol();
        if (!same_representation(value->type->normalized(), type)) return false;
        if (fact->kind == FACT::VARIABLE) return symbols_.symbol(fact->number) == symbol;
        return fact->kind == FACT::OCCURRENCE &&
               occurrences_[static_cast<std::size_t>(fact->number)].temp == symbol;
    }
    if (fact->kind != FACT::CONSTANT || !is_repeatable_constant(value)) return false;
    if (part.is_bit_field) {
        if (value->op != ICON) return false;
        NODE* held = constant_in_bit_field(value, static_cast<unsigned>(part.size), type);
        const bool same = held->u.lval == fact->constant->u.lval;
        erase_node(held);
        return same;
    }
    return same_representation(value->type->normalized(), type) &&
           trees_are_congruent(value, fact->constant, 0);
}

// What the part holds behind the assignment, whose store has ended the facts before.
void SUBRANGE_CSE::note_store(const PART& part, NODE* assignment, LIST* cell, bool is_root) {
    TYPE* type = assignment->left->type->normalized();
    NODE* value = assignment->right;
    if (assignment->op == STASG) {
        if (is_root && name_of_part(value) != nullptr) {
            const PART from = part_of_place(value);
            if (from.is_exact && from.size == part.size && from.object != part.object &&
                !is_variable(from.object))
                copy_facts(from, part);
        }
        return;
    }
    if (assignment->op != ASG || !is_simple(type)) return;
    FACT fact;
    fact.type = type;
    if (part.is_bit_field) {
        if (value->op != ICON || part.size > 64) return;
        fact.constant = constant_in_bit_field(value, static_cast<unsigned>(part.size), type);
        garbage_.push_back(fact.constant);
        return note_fact(part, fact);
    }
    if (!same_representation(value->type->normalized(), type)) return;
    if (is_repeatable_constant(value)) {
        fact.constant = copy_tree(value, false);
        garbage_.push_back(fact.constant);
        return note_fact(part, fact);
    }
    if (!is_root) return;
    const int number = value->op == NAME ? symbols_.number_of(value->symbol()) : -1;
    if (number >= 0 && value->symbol()->type->is_scalar()) {
        fact.kind = FACT::VARIABLE;
        fact.number = number;
        fact.version = variables_[static_cast<std::size_t>(number)];
        return note_fact(part, fact);
    }
    occurrences_.push_back({assignment, cell, value->type->normalized(), nullptr});
    block_of_cell_[cell] = bb_;
    fact.kind = FACT::OCCURRENCE;
    fact.number = static_cast<int>(occurrences_.size()) - 1;
    note_fact(part, fact);
}

void SUBRANGE_CSE::end_root_assignment(LIST* cell) {
    NODE* root = cell->first;
    const NODE* name = name_of_part(root->left);
    if (name == nullptr) return;
    if (is_variable(name->symbol())) {
        // x = s.a: from here on x has the value.
        if (root->op != ASG || root->left->op != NAME || last_leader_ == nullptr ||
            root->right != last_leader_)
            return;
        const PART read = part_of_place(root->right);
        TYPE* type = root->right->type->normalized();
        if (read.is_bit_field || !same_representation(type, name->symbol()->type)) return;
        if (find_fact(read) == nullptr) return;
        FACT fact;
        fact.kind = FACT::VARIABLE;
        fact.type = type;
        fact.number = symbols_.number_of(name->symbol());
        fact.version = variables_[static_cast<std::size_t>(fact.number)];
        return note_fact(read, fact);
    }
    bool is_store = false; // not so where it is volatile
    for (const ACCESS& access : accesses_)
        if (access.assignment == root && access.kind != ACC_READ) is_store = true;
    if (!is_store) return;
    const PART part = part_of_place(root->left);
    if (part.is_exact && stores_what_is_there(root, part)) {
        if (print_debug != 0) dprintf("\n\tA part holds that already: %s\n", tree_to_text(root).c_str());
        garbage_.push_back(root);
        cell->first = nullptr;
        changed_here_ = true;
        return;
    }
    kill_part(part);
    if (part.is_exact) note_store(part, root, cell, true);
}

void SUBRANGE_CSE::visit_statement(LIST* cell) {
    if (opcode_is_transfer(cell->first->op) && cell->first->op == BRANCH) return;
    changed_here_ = leads_here_ = false;
    may_go_ahead_ = true;
    last_leader_ = nullptr;
    accesses_.clear();
    list_part_accesses(cell->first, accesses_);
    const bool is_assertion = cell->first->op == NASSERT || cell->first->op == ASSERT;
    if (is_assertion) return; // assigns nothing
    if (expand_compound(cell)) {
        changed_here_ = true;
        accesses_.clear();
        list_part_accesses(cell->first, accesses_);
    }
    const NODE* root = cell->first;
    const bool is_assignment = opcode_is_ASG(root->op) && !tree_is_arg_prolog(cell->first);
    for (const ACCESS& access : accesses_) apply(access, cell);
    if (changed_here_ && !leads_here_ && is_assignment)
        cell->first->right = simp_tree(cell->first->right, bb_->loop);
    if (is_assignment) end_root_assignment(cell);
    if (changed_here_) note_changed(cell, bb_);
}

// --- The function.

void SUBRANGE_CSE::visit_block(BBLK* bb) {
    bb_ = bb;
    for (LIST* cell = bb->statements; cell != nullptr; cell = cell->next) visit_statement(cell);
}

void SUBRANGE_CSE::run() {
    walk_extended_blocks(
        [this](BBLK* bb) {
            const std::size_t mark = log_.size();
            visit_block(bb);
            return mark;
        },
        [this](std::size_t mark) { undo(mark); });
    finish();
}

void SUBRANGE_CSE::finish() {
    bool settled = false;
    std::sort(changed_.begin(), changed_.end(),
              [](const auto& a, const auto& b) { return a.second->id < b.second->id; });
    for (std::size_t i = 0; i < changed_.size();) {
        BBLK* bb = changed_[i].second;
        for (; i < changed_.size() && changed_[i].second == bb; i++) {
            LIST* cell = changed_[i].first;
            if (cell->first != nullptr) cell->first = tidy_statement(cell->first, settled);
        }
        insertions_.put_into(bb);
        bb->statements = tidy_statement_list(bb->statements);
    }
    for (NODE* tree : garbage_) erase_tree(tree);
    if (settled) repair_flow();
}

} // namespace

void reset_alias_info() {
    init_aliasing_info();
    currfuninfo->spmap.clear();
}

void lcse_subrange_assignments() {
    dprintf("\n\n\t\t\t---------- ENTERING 'lcse_subrange_assignments' ----------\n");
    const PRIVATE_SYMBOLS symbols(true);
    if (symbols.flow_is_known()) SUBRANGE_CSE(symbols).run();
}
