// A scope's variables stand behind those of the scopes around it; scopes side by side begin at the same
// offset. The union has a structure for each scope, with the scope's variables at their offsets:
//
//     { int a[20]; { int b[8]; } { int c[9]; } }      union { struct { a at 0 } s1; struct { b at 20 } s2;
//     { int d[30]; }                                          struct { c at 20 } s3; struct { d at 0 } s4; }
//
// What lives as long as all the others has nothing to share: the union stands for the scopes inside the
// innermost one that encloses all that take part.
//
// The step comes early: the notes are those of the source, and what later steps move between blocks they move
// as accesses to one object.

#include "stack_sharing.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "accesses.h"
#include "bblk.h"
#include "bbutils.h"
#include "debug.h"
#include "fileopt.h"
#include "files.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "simp.h"
#include "symbol.h"
#include "types.h"

namespace {

constexpr int TEMP_KIND = 'S';
constexpr std::uint64_t UNIT = 16; // bits

// Smaller variables stay: scalars whose address is taken may get back to registers, and small arrays and
// structures may be taken apart, when the calls that want their addresses are gone.
constexpr std::uint64_t MIN_VARIABLE = 8 * UNIT;
// A union keeps later steps from telling its members apart. Saving less than this, or less than a quarter of
// the room, is not worth that.
constexpr std::uint64_t MIN_SAVED = 16 * UNIT;
constexpr std::uint64_t MIN_SAVED_PART = 4;

bool may_share(const SYMTAB* symbol) {
    TYPE* type = symbol->otype;
    return symbol->sclass == SC_AUTO && symbol->level >= 2 && (type->is_array() || type->is_csu()) &&
           symbol->size >= MIN_VARIABLE && symbol->pragmas == nullptr && symbol->init == nullptr &&
           (symbol->cqual & CQ_REGISTER) == 0 && !type->is_volatile() && !type->is_const() &&
           symbol->align <= static_cast<std::int32_t>(type->align());
}

} // namespace

// --- Notes.

void init_stack_sharing() { currfuninfo->stack_sharing = {}; }

void begin_stack_sharing_scope(int level) {
    STACK_SHARING& notes = currfuninfo->stack_sharing;
    while (notes.open >= 0 && notes.scopes[static_cast<std::size_t>(notes.open)].level >= level)
        end_stack_sharing_scope();
    notes.scopes.push_back({level, notes.open, {}});
    notes.open = static_cast<int>(notes.scopes.size()) - 1;
}

void end_stack_sharing_scope() {
    STACK_SHARING& notes = currfuninfo->stack_sharing;
    if (notes.open >= 0) notes.open = notes.scopes[static_cast<std::size_t>(notes.open)].parent;
}

void add_stack_sharing_variable(SYMTAB* symbol) {
    STACK_SHARING& notes = currfuninfo->stack_sharing;
    if (notes.open < 0 || !may_share(symbol)) return;
    notes.scopes[static_cast<std::size_t>(notes.open)].variables.push_back(symbol);
}

void delete_stack_sharing_variable(SYMTAB* symbol) {
    for (STACK_SHARING::SCOPE& scope : currfuninfo->stack_sharing.scopes) {
        const auto place = std::find(scope.variables.begin(), scope.variables.end(), symbol);
        if (place != scope.variables.end()) scope.variables.erase(place);
    }
}

namespace {

// --- Layout.

class SHARER {
  public:
    void run();

  private:
    struct SCOPE {
        std::vector<SYMTAB*> variables;
        std::vector<std::uint64_t> offsets; // of the variables; bits
        std::uint64_t end = 0;              // behind the variables
        int inner = 0;                      // scopes directly inside with something to place
        bool is_used = false;               // has variables, or one inside has
    };
    struct MOVED {
        TYPE* structure = nullptr;
        fkMDATA* part = nullptr;   // the structure, a member of the union
        fkMDATA* member = nullptr; // the variable, a member of the structure
    };

    static std::uint64_t aligned(std::uint64_t offset, const SYMTAB* symbol) {
        const std::uint64_t align = std::max<std::uint64_t>(symbol->otype->align(), UNIT);
        return (offset + align - 1) / align * align;
    }
    bool find_variables();
    int innermost_common_scope() const;
    bool place_variables();
    void make_types();
    void rewrite();
    void unlink();

    const std::vector<STACK_SHARING::SCOPE>& noted_ = currfuninfo->stack_sharing.scopes;
    std::vector<SCOPE> scopes_; // beside the noted ones
    std::uint64_t size_ = 0;    // of the union
    SYMTAB* shared_ = nullptr;
    std::vector<MOVED> moved_; // by serial
};

// Whether there are variables in two places at least.
bool SHARER::find_variables() {
    const PRIVATE_SYMBOLS symbols;
    if (!symbols.flow_is_known()) return false;
    std::vector<char> is_named(currfuninfo->next_serial);
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next)
            walk_tree(cell->first, [&](const NODE* node) {
                if (node->op == op::NAME && node->symbol()->level > 0) is_named[node->symbol()->serial] = 1;
            });
    scopes_.resize(noted_.size());
    int places = 0;
    for (std::size_t i = noted_.size(); i > 0; i--) {
        SCOPE& scope = scopes_[i - 1];
        for (SYMTAB* symbol : noted_[i - 1].variables)
            if (may_share(symbol) && symbols.number_of(symbol) < 0 && is_named[symbol->serial] != 0)
                scope.variables.push_back(symbol);
        if (!scope.variables.empty()) places++;
        scope.is_used = !scope.variables.empty() || scope.inner > 0;
        if (scope.is_used && noted_[i - 1].parent >= 0)
            scopes_[static_cast<std::size_t>(noted_[i - 1].parent)].inner++;
    }
    return places >= 2;
}

// The scope whose inner ones are to share; -1 where no two of them stand side by side.
int SHARER::innermost_common_scope() const {
    std::size_t i = 0; // the function's outermost
    while (i < scopes_.size() && !(scopes_[i].is_used && scopes_[i].inner != 1)) i++;
    return i < scopes_.size() && scopes_[i].inner > 1 ? static_cast<int>(i) : -1;
}

// Gives the variables inside the common scope their offsets, and takes the others off. Whether it is worth
// while.
bool SHARER::place_variables() {
    const int common = innermost_common_scope();
    if (common < 0) return false;
    std::uint64_t sum = 0;
    std::vector<char> is_inside(scopes_.size());
    for (std::size_t i = 0; i < scopes_.size(); i++) {
        SCOPE& scope = scopes_[i];
        const int parent = noted_[i].parent;
        is_inside[i] = parent == common || (parent >= 0 && is_inside[static_cast<std::size_t>(parent)] != 0);
        if (is_inside[i] == 0) {
            scope.variables.clear();
            continue;
        }
        scope.end = parent == common ? 0 : scopes_[static_cast<std::size_t>(parent)].end;
        for (const SYMTAB* symbol : scope.variables) {
            scope.offsets.push_back(aligned(scope.end, symbol));
            scope.end = scope.offsets.back() + symbol->size;
            sum += symbol->size;
        }
        size_ = std::max(size_, scope.end);
    }
    const std::uint64_t saved = sum > size_ ? sum - size_ : 0;
    return saved >= MIN_SAVED && saved >= sum / MIN_SAVED_PART;
}

// --- Rewriting.

fkMDATA* add_member(TYPE* csu, const char* name, TYPE* type, std::uint64_t offset) {
    fkMDATA member;
    member.name = name;
    member.type = type;
    member.offset = static_cast<std::int64_t>(offset);
    return tp->add_member(csu, member);
}

std::uint64_t rounded(std::uint64_t size, unsigned align) { return (size + align - 1) / align * align; }

void SHARER::make_types() {
    unsigned align = UNIT;
    for (const SCOPE& scope : scopes_)
        for (const SYMTAB* symbol : scope.variables) align = std::max(align, symbol->otype->align());
    size_ = rounded(size_, align);
    TYPE* shared = tp->mk_union("", {size_, align});
    tp->open_csu(shared)->is_complete = true;
    moved_.resize(currfuninfo->next_serial);
    int count = 0;
    for (const SCOPE& scope : scopes_) {
        if (scope.variables.empty()) continue;
        TYPE* structure = tp->mk_struct("", {rounded(scope.end, align), align});
        tp->open_csu(structure)->is_complete = true;
        for (std::size_t i = 0; i < scope.variables.size(); i++) {
            SYMTAB* symbol = scope.variables[i];
            moved_[symbol->serial].member =
                add_member(structure, symbol->name, symbol->otype, scope.offsets[i]);
        }
        tp->type_frozen(structure);
        fkMDATA* part = add_member(shared, ("s" + std::to_string(++count)).c_str(), structure, 0);
        for (const SYMTAB* symbol : scope.variables) {
            moved_[symbol->serial].structure = structure;
            moved_[symbol->serial].part = part;
        }
    }
    tp->type_frozen(shared);
    shared_ = sym_temp(TEMP_KIND, -1, shared, nullptr);
}

void SHARER::rewrite() {
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        for (LIST* cell = bb->statements; cell != nullptr; cell = cell->next) {
            bool changed = false;
            walk_tree(cell->first, [&](NODE* node) {
                if (node->op != op::NAME || node->symbol()->serial >= moved_.size()) return;
                const MOVED& moved = moved_[node->symbol()->serial];
                if (node->symbol()->level == 0 || moved.member == nullptr) return;
                NODE* part = maketree(op::STDOT, mk_NAME(shared_), mk_FIELD(moved.part, shared_->type),
                                      moved.structure, nullptr);
                node->op = op::STDOT;
                node->u.rval = nullptr;
                node->left = part;
                node->right = mk_FIELD(moved.member, moved.structure);
                changed = true;
            });
            if (changed) cell->first = simp_tree(cell->first, bb->loop);
        }
}

// Takes the variables that have moved off the list of locals.
void SHARER::unlink() {
    SYMTAB* last = nullptr;
    for (SYMTAB** place = &currfuninfo->locals; *place != nullptr;) {
        SYMTAB* symbol = *place;
        if (symbol->serial < moved_.size() && moved_[symbol->serial].member != nullptr) {
            dprintf("%s shares its room as a member of %s.\n", symbol->name, shared_->name);
            *place = symbol->next;
            continue;
        }
        last = symbol;
        place = &symbol->next;
    }
    currfuninfo->locals_tail = last;
}

void SHARER::run() {
    if (!find_variables() || !place_variables()) return;
    make_types();
    rewrite();
    unlink();
    init_stack_sharing();
}

} // namespace

void build_stack_sharing_type() {
    dprintf("\n\n\t\t\t-------- ENTERING 'build_stack_sharing_type' -------\n");
    if (opt_level() > 0 && currfuninfo->stack_sharing.scopes.size() > 1) SHARER().run();
}
