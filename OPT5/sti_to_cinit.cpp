// Two things have to be certain: that the code runs once, ahead of everything else that can tell the
// difference, and that the value has its place among the records of the initialiser.
//
// The first: `main` must not be called or have its address taken in this file, and no other function of the
// file may be entered before it: none is visible outside or has its address taken, none is a constructor. A
// static of `main` itself needs less, since nobody else can name it. For the initialising function of a C++
// file the language says that what it stores first may be there from the start. Statements are gone through
// from the first one on, as long as one follows the other without a choice.
//
// The second: the records are laid out by their offsets. A value takes the place of the records that it
// covers; of an integer that it covers in part, what is left becomes units of its own; a bit-field goes into
// its unit. Text and addresses are not cut: then the assignment stays.

#include "sti_to_cinit.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "accesses.h"
#include "bblk.h"
#include "bbutils.h"
#include "clusters.h"
#include "copy.h"
#include "copyprop.h"
#include "debug.h"
#include "dump.h"
#include "erase.h"
#include "fileopt.h"
#include "files.h"
#include "initialiser.h"
#include "node.h"
#include "object_parts.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "optypes.h"
#include "pool.h"
#include "pragma.h"
#include "symbol.h"
#include "types.h"
#include "xint.h"

using namespace op;

namespace {

constexpr std::int64_t UNIT_BITS = 16;
constexpr std::string_view INITIALISER_PREFIX = "__sti__";

// While it lives, new trees belong to the run and not to the function.
class OUTSIDE_OF_FUNCTION {
  public:
    OUTSIDE_OF_FUNCTION() : function_(currfunc) { currfunc = nullptr; }
    ~OUTSIDE_OF_FUNCTION() { currfunc = function_; }
    OUTSIDE_OF_FUNCTION(const OUTSIDE_OF_FUNCTION&) = delete;
    OUTSIDE_OF_FUNCTION& operator=(const OUTSIDE_OF_FUNCTION&) = delete;

  private:
    decltype(currfunc) const function_;
};

// --- The records of one object.

class RECORDS {
  public:
    explicit RECORDS(SYMTAB* symbol);
    // Puts the constant there; false, and no change of what the records say, where that cannot be.
    bool put(const PART& part, const NODE* constant, TYPE* type);
    // Gives the records to the symbol.
    void write_back();

  private:
    struct RECORD {
        std::int64_t size;
        NODE* tree;
    };
    using MAP = std::map<std::int64_t, RECORD>; // by offset
    MAP::iterator first_behind(std::int64_t offset);
    bool cut(MAP::iterator at);
    bool cut_at(std::int64_t offset);
    bool put_bit_field(const PART& part, const NODE* constant);
    void add_unit(std::int64_t offset, std::uint64_t bits);

    SYMTAB* symbol_;
    bool is_readable_ = true;
    MAP records_;
};

RECORDS::RECORDS(SYMTAB* symbol) : symbol_(symbol) {
    if (symbol->init == nullptr) return;
    std::int64_t offset = 0;
    const EXPR_LIST* cell = symbol->init;
    do {
        NODE* tree = cell->tree;
        if (tree->op == ENDINIT) return;
        if (tree->op == SKIP) {
            offset += tree->u.lval.to_signed();
        } else if (tree->type != nullptr && tree->type->size() > 0) {
            const auto bits = static_cast<std::int64_t>(initialiser_bits(tree));
            records_.emplace(offset, RECORD{bits, tree});
            offset += bits;
        } else {
            is_readable_ = false;
        }
        cell = cell->next;
    } while (cell != symbol->init);
}

// The first record that ends behind the offset.
RECORDS::MAP::iterator RECORDS::first_behind(std::int64_t offset) {
    auto at = records_.upper_bound(offset);
    if (at == records_.begin()) return at;
    const auto before = std::prev(at);
    return before->first + before->second.size > offset ? before : at;
}

void RECORDS::add_unit(std::int64_t offset, std::uint64_t bits) {
    const OUTSIDE_OF_FUNCTION outside;
    NODE* unit = mk_ICON(INT65::from_unsigned(bits & 0xffff), tp->int_type(IK_UINT));
    records_[offset] = {UNIT_BITS, unit};
}

// Makes units of an integer.
bool RECORDS::cut(MAP::iterator at) {
    const auto [offset, record] = *at;
    if (record.tree->op != ICON || record.size > 64 || record.size % UNIT_BITS != 0 ||
        memory_is_big_endian != 0 || tp->int_type(IK_UINT)->size() != UNIT_BITS)
        return false;
    records_.erase(at);
    const std::uint64_t bits = record.tree->u.lval.bits();
    for (std::int64_t done = 0; done < record.size; done += UNIT_BITS) add_unit(offset + done, bits >> done);
    return true;
}

// Sees to it that no record lies on both sides of the offset.
bool RECORDS::cut_at(std::int64_t offset) {
    const auto at = first_behind(offset);
    return at == records_.end() || at->first >= offset || cut(at);
}

bool RECORDS::put_bit_field(const PART& part, const NODE* constant) {
    const std::int64_t start = part.offset / UNIT_BITS * UNIT_BITS;
    if (constant->op != ICON || part.end() > start + UNIT_BITS) return false;
    if (!cut_at(start) || !cut_at(start + UNIT_BITS)) return false;
    const auto at = first_behind(start);
    std::uint64_t bits = 0;
    if (at != records_.end() && at->first < start + UNIT_BITS) {
        if (at->second.tree->op != ICON || at->first != start) return false;
        bits = at->second.tree->u.lval.bits();
    }
    const std::uint64_t mask = ((std::uint64_t{1} << part.size) - 1) << (part.offset - start);
    add_unit(start, (bits & ~mask) | (constant->u.lval.bits() << (part.offset - start) & mask));
    return true;
}

bool RECORDS::put(const PART& part, const NODE* constant, TYPE* type) {
    if (!is_readable_) return false;
    if (part.is_bit_field) return put_bit_field(part, constant);
    if (part.offset % UNIT_BITS != 0 || part.size % UNIT_BITS != 0) return false;
    if (!cut_at(part.offset) || !cut_at(part.end())) return false;
    records_.erase(records_.lower_bound(part.offset), records_.lower_bound(part.end()));
    const OUTSIDE_OF_FUNCTION outside;
    NODE* tree = copy_tree(const_cast<NODE*>(constant), false);
    walk_tree(tree, [](NODE* node) {
        if (node->op == FCON) node->text = nullptr; // made anew when it is asked for
        if (node->op == SCON) node->text = current_pool().copy_text({node->text, node->text_length});
    });
    tree->type = type;
    scan_initialiser(tree);
    records_[part.offset] = {part.size, tree};
    return true;
}

void RECORDS::write_back() {
    const OUTSIDE_OF_FUNCTION outside;
    EXPR_LIST* first = nullptr;
    const auto append = [&first](NODE* tree) { append_to_initialiser(first, tree); };
    std::int64_t offset = 0;
    for (const auto& [start, record] : records_) {
        if (start > offset) {
            NODE* skip = new_node(SKIP, tp->int_type(IK_INT));
            skip->u.lval = INT65::from_signed(start - offset);
            append(skip);
        }
        append(record.tree);
        offset = start + record.size;
    }
    append(new_node(ENDINIT, tp->int_type(IK_INT)));
    symbol_->init = first;
    symbol_->auto_inits = nullptr;
    symbol_->auto_init_count = 0;
}

// --- What runs first.

bool is_initialising_function(const FUNINFO* function) {
    return TEST_FLAG(function, FUN_is_cpp) && function->symbol != nullptr &&
           std::string_view(function->symbol->name).starts_with(INITIALISER_PREFIX);
}

bool is_called_here(const FUNINFO* function) {
    for (const FUNINFO* caller : fileinfo.defined)
        for (const CALL_EDGE* edge = caller->callees; edge != nullptr; edge = edge->next)
            if (edge->callee == function) return true;
    return false;
}

// Whether a function of this file may run before `main`, or at any time.
bool something_may_run_before_main() {
    for (const FUNINFO* function : fileinfo.defined)
        if (TEST_FLAG(function, FUN_is_interrupt) || is_initialising_function(function) ||
            symbol_has_pragma(function->symbol, PRAG_FUNC_IS_CTOR_DTOR))
            return true;
    return false;
}

bool has_ways_in_besides_main() {
    if (fileinfo.is_built && whole_file_mode != 0) return false;
    for (const FUNINFO* function : fileinfo.defined)
        if (function != currfuninfo &&
            (function->symbol->sclass != SC_STATIC || TEST_FLAG(function, FUN_is_anonymous)))
            return true;
    return false;
}

class START {
  public:
    explicit START(bool is_main) : is_main_(is_main), has_ways_in_(is_main && has_ways_in_besides_main()) {
        for (const SYMTAB* symbol = global_symbols; symbol != nullptr; symbol = symbol->next)
            if (symbol->init != nullptr) note_addresses(symbol->init);
    }
    void run();

  private:
    enum OUTCOME { GO_ON, MOVED, STOP };
    void note_addresses(const EXPR_LIST* init);
    bool is_known_here_only(const SYMTAB* symbol) const;
    bool is_convertible(SYMTAB* symbol) const;
    bool move(NODE* statement);
    OUTCOME visit(NODE* statement);

    const bool is_main_, has_ways_in_;
    std::unordered_set<const SYMTAB*> in_initialisers_; // objects whose addresses are data
    std::unordered_set<const SYMTAB*> touched_;
    std::unordered_map<SYMTAB*, RECORDS> records_;
    std::vector<SYMTAB*> changed_;
    std::vector<ACCESS> accesses_;
};

void START::note_addresses(const EXPR_LIST* init) {
    const EXPR_LIST* cell = init;
    do {
        walk_tree(cell->tree, [this](const NODE* node) {
            if (node->op == NAME) in_initialisers_.insert(node->symbol());
        });
        cell = cell->next;
    } while (cell != init);
}

// Statics that came with an inlined function keep the name of that.
bool is_static_of_main(const SYMTAB* symbol) {
    for (const PRAGMA* pragma = symbol->pragmas; pragma != nullptr; pragma = pragma->next)
        if (pragma->kind == PRAG_SCOPING_FUNC) return !pragma->args.empty() && pragma->args[0] == "main";
    return false;
}

// Whether nothing that runs before this function can tell what the object holds.
bool START::is_known_here_only(const SYMTAB* symbol) const {
    if (!is_main_) return true; // the language says so
    if (fileinfo.is_built && whole_file_mode != 0 && no_outside_writers != 0) return true;
    if (symbol->sclass != SC_STATIC || in_initialisers_.contains(symbol)) return false;
    return !has_ways_in_ || is_static_of_main(symbol);
}

bool START::is_convertible(SYMTAB* symbol) const {
    if (symbol->level != 0 || (symbol->sclass != SC_STATIC && symbol->sclass != SC_EXTDEF)) return false;
    if ((symbol->cqual & CQ_REGISTER) != 0 || touched_.contains(symbol)) return false;
    constexpr unsigned no = QUAL_CONST | QUAL_VOLATILE | QUAL_IOPORT;
    if ((symbol->otype->qual_kind() & no) != 0 || symbol->otype->is_volatile() || symbol->otype->is_const())
        return false;
    return !symbol_has_pragma(symbol, PRAG_NORVANE_WEAK) && !symbol_has_pragma(symbol, PRAG_DATA_SECTION) &&
           is_known_here_only(symbol);
}

// The static in which the part lies, also where that is a member of a cluster.
SYMTAB* object_at(const PART& part) {
    SYMTAB* member = static_in_cluster(part.object, part.offset);
    return member != nullptr ? member : part.object;
}

// Whether the value can stand in an initialiser.
bool is_record(const NODE* value) {
    switch (value->op) {
        case ICON:
        case FCON: return true;
        case SCON: return value->type->is_ptr();
        case PLUS:
        case MINUS:
            if (value->right->op != ICON) return false;
            value = value->left;
            break;
        default: break;
    }
    if (value->op != UAND) return false;
    const NODE* object = value->left;
    if (is_member_of_cluster(object)) object = object->left;
    return object->op == NAME && object->symbol()->level == 0 && !sym_is_FAR(object->symbol());
}

// Moves the assignment, which is no volatile access, to the initialiser, if that can be.
bool START::move(NODE* statement) {
    const NODE* value = statement->right;
    TYPE* type = statement->left->type->normalized();
    if (!is_record(value) || !same_representation(value->type->normalized(), type)) return false;
    const PART part = part_of_place(statement->left);
    // The initialiser of a static that has become a member is its cluster's.
    if (part.object == nullptr || !part.is_exact || cluster_of(part.object) != nullptr) return false;
    if (touched_.contains(part.object) || !is_convertible(object_at(part))) return false;
    RECORDS& records = records_.try_emplace(part.object, part.object).first->second;
    if (!records.put(part, value, type->true_type())) return false;
    if (print_debug != 0)
        dprintf("\n\tInitialiser of %s: %s\n", part.object->name, tree_to_text(statement).c_str());
    changed_.push_back(part.object);
    return true;
}

START::OUTCOME START::visit(NODE* statement) {
    if (tree_is_arg_prolog(statement)) return GO_ON;
    if (any_node(statement, [](const NODE* node) { return node_is_volatile_access(node); })) return STOP;
    if (statement->op == ASG && move(statement)) return MOVED;
    accesses_.clear();
    list_part_accesses(statement, accesses_);
    for (const ACCESS& access : accesses_) {
        if (access.name == nullptr) return STOP;
        if (access.name->symbol()->level > 0) continue;
        const PART part = access.place != nullptr ? part_of_place(access.place) : PART{};
        touched_.insert(part.is_exact ? object_at(part) : access.name->symbol());
    }
    return opcode_is_transfer(statement->op) && statement->op != BRANCH ? STOP : GO_ON;
}

void START::run() {
    bool is_over = false;
    for (BBLK* bb = currfuninfo->bb_list; !is_over;) {
        bool changed = false;
        for (LIST* cell = bb->statements; cell != nullptr && !is_over; cell = cell->next) {
            const OUTCOME outcome = visit(cell->first);
            is_over = outcome == STOP;
            if (outcome != MOVED) continue;
            cell->first = erase_tree(cell->first);
            changed = true;
        }
        if (changed) bb->statements = tidy_statement_list(bb->statements);
        // A block with one predecessor is entered once, as that is; the way never comes back.
        const EDGE* next = bb->successors;
        if (next == nullptr || next->next != nullptr || next->bb->predecessors == nullptr ||
            next->bb->predecessors->next != nullptr || next->bb->is_kept)
            break;
        bb = next->bb;
    }
    for (SYMTAB* symbol : changed_) {
        const auto found = records_.find(symbol);
        if (found == records_.end()) continue; // done already
        found->second.write_back();
        records_.erase(found);
    }
}

} // namespace

void convert_sti_to_cinit() {
    dprintf("\n\n\t\t\t---------- ENTERING 'convert_sti_to_cinit' ----------\n");
    const bool is_main = TEST_FLAG(currfuninfo, FUN_is_main) && !TEST_FLAG(currfuninfo, FUN_is_cpp);
    if (!is_main && !is_initialising_function(currfuninfo)) return;
    if (is_called_here(currfuninfo)) return;
    if (is_main && (TEST_FLAG(currfuninfo, FUN_is_anonymous) || something_may_run_before_main())) return;
    START(is_main).run();
}
