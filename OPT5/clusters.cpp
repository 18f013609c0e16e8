// A function that uses three statics needs three addresses; when they are members of one structure it needs
// one, and the others are small distances from it.
//
//     static int a; static int b;             static struct { int a; int b; } $O$cluster0;
//     a = b + 1;                              $O$cluster0.a = $O$cluster0.b + 1;
//
// 1. Candidates: statics that nothing but trees can name and nothing ties to a place. Constants and variables
//    do not mix, and neither do large objects that start as zero and objects with an initialiser, which would
//    cost the zeros a place in the initial values.
// 2. For each function that is compiled: the candidates that it names, with those of the calls that are
//    integrated into it, in order of first use. Each is paired with the few that follow it.
// 3. The pairs, those of most functions first, make groups grow together up to a size that a short distance
//    reaches. Two groups that meet in n functions save n addresses.
// 4. A group that saves enough becomes a cluster: a static with a member for each of its symbols.
//
// The statics keep their names in the bodies up to the step behind the last one that moves accesses between
// functions, since a whole object is easier to follow than a member. Until the end of the run their
// initialisers and those of other objects name them, too. What takes a value from an initialiser into a body
// has to ask which of the two names the function uses.

#include "clusters.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "bblk.h"
#include "bbutils.h"
#include "debug.h"
#include "fileopt.h"
#include "files.h"
#include "initialiser.h"
#include "node.h"
#include "opcodes.h"
#include "optypes.h"
#include "pool.h"
#include "pragma.h"
#include "simp.h"
#include "symbol.h"
#include "types.h"

using namespace op;

namespace {

constexpr char CLUSTER_NAME[] = "$O$cluster";
constexpr std::uint64_t UNIT_BITS = 16;
constexpr std::uint64_t MAX_SIZE = 64 * UNIT_BITS;   // of a cluster
constexpr std::uint64_t LARGE_ZEROS = 4 * UNIT_BITS; // a larger object keeps away from initial values
constexpr std::size_t PAIRS_OF_USE = 8;              // later candidates that one is paired with
constexpr std::size_t MAX_INTEGRATED = 100;          // bodies looked at for one function
constexpr int MIN_SAVED = 2;                         // addresses that a cluster must save

struct MEMBER {
    SYMTAB* symbol;
    SYMTAB* cluster;
    fkMDATA* place;
};

struct CLUSTERS {
    std::vector<SYMTAB*> symbols;
    std::vector<MEMBER> members;                          // cluster by cluster
    std::unordered_map<const SYMTAB*, std::size_t> at;    // index in `members`; never walked
    std::unordered_map<const SYMTAB*, std::size_t> first; // of a cluster's members; never walked
    std::unordered_set<const FUNINFO*> expanded;          // functions; never walked
    bool were_collected = false;
};

CLUSTERS& clusters() {
    static CLUSTERS all;
    return all;
}

const MEMBER* member_of(const SYMTAB* symbol) {
    if (symbol->level != 0 || symbol->sclass != SC_STATIC) return nullptr;
    const auto found = clusters().at.find(symbol);
    return found == clusters().at.end() ? nullptr : &clusters().members[found->second];
}

// --- Which statics may move.

template <class VISIT> void for_each_entry(const EXPR_LIST* init, VISIT visit) {
    if (init == nullptr) return;
    const EXPR_LIST* cell = init;
    do {
        if (cell->tree->op == ENDINIT) return;
        visit(cell->tree);
        cell = cell->next;
    } while (cell != init);
}

bool initialiser_fits(const SYMTAB* symbol) {
    std::uint64_t bits = 0;
    bool is_readable = true;
    for_each_entry(symbol->init, [&](const NODE* tree) {
        if (tree->op == SKIP ? tree->u.lval.is_negative() : tree->type == nullptr) {
            is_readable = false;
        } else {
            bits += initialiser_bits(tree);
        }
    });
    return is_readable && bits <= symbol->size;
}

// Pragmas that say nothing of where the object lies or who else knows it.
bool has_free_place(const SYMTAB* symbol) {
    for (const PRAGMA* pragma = symbol->pragmas; pragma != nullptr; pragma = pragma->next)
        if (pragma->kind != PRAG_SCOPING_FUNC && pragma->kind != PRAG_SRC_LANGUAGE &&
            pragma->kind != PRAG_TRANSLATION_UNIT_ID)
            return false;
    return true;
}

bool is_candidate(const SYMTAB* symbol) {
    TYPE* type = symbol->otype;
    if (symbol->sclass != SC_STATIC || type->is_func() || !type->is_complete()) return false;
    if (symbol->retention != I_SYMTAB::DEFAULT_C || (symbol->cqual & CQ_REGISTER) != 0) return false;
    if (symbol->size == 0 || symbol->size > MAX_SIZE || symbol->size != type->size()) return false;
    if ((type->qual_kind(true) & ~QUAL_CONST) != 0 || has_volatile_part(type) || sym_is_FAR(symbol))
        return false;
    // What nothing modifies is a number soon.
    if (symbol->type->is_const() != type->is_const()) return false;
    return has_free_place(symbol) && initialiser_fits(symbol) && !fileinfo.asm_names.contains(symbol->name) &&
           !std::string_view(symbol->name).starts_with(CLUSTER_NAME);
}

enum KIND : int { CONSTANT, VARIABLE, ZEROS };

KIND kind_of(const SYMTAB* symbol) {
    if (symbol->otype->is_const()) return CONSTANT;
    return symbol->init == nullptr && symbol->size > LARGE_ZEROS ? ZEROS : VARIABLE;
}

// --- Collection.

class COLLECTOR {
  public:
    void run();

  private:
    struct FUNCTION {
        std::vector<int> used; // candidates in order of first use
        std::vector<FUNINFO*> integrated;
    };
    struct GROUP {
        std::uint64_t size;
        std::vector<int> members; // of a leader; empty for others
        int leader;
    };

    void find_candidates();
    void scan_functions();
    void scan(NODE* tree, FUNCTION& into);
    void add_integrated();
    bool may_pair(int a, int b) const;
    int leader_of(int candidate);
    void form_groups();
    void count_savings();
    void make_cluster(const GROUP& group, int saved);
    const char* fresh_name();

    std::vector<SYMTAB*> candidates_;                      // in file order
    std::vector<bool> is_out_;                             // candidates that have to stay alone
    std::unordered_map<const SYMTAB*, int> number_;        // never walked
    std::unordered_map<const FUNINFO*, FUNCTION> scanned_; // never walked
    std::vector<std::vector<int>> uses_;                   // of each function that is compiled
    std::vector<GROUP> groups_;                            // one for each candidate
    std::vector<int> saved_;                               // addresses, by leader
    unsigned next_name_ = 0;
};

void COLLECTOR::find_candidates() {
    for (SYMTAB* symbol = global_symbols; symbol != nullptr; symbol = symbol->next)
        if (is_candidate(symbol)) candidates_.push_back(symbol);
    std::reverse(candidates_.begin(), candidates_.end()); // the list has the newest first
    is_out_.assign(candidates_.size(), false);
    for (std::size_t i = 0; i < candidates_.size(); i++) number_.emplace(candidates_[i], static_cast<int>(i));
    // An initialiser may hold a static's address and nothing else of it.
    for (const SYMTAB* symbol = global_symbols; symbol != nullptr; symbol = symbol->next)
        for_each_entry(symbol->init, [this](NODE* tree) {
            if (tree->op == NAME)
                if (const auto found = number_.find(tree->symbol()); found != number_.end())
                    is_out_[static_cast<std::size_t>(found->second)] = true;
        });
}

void COLLECTOR::scan(NODE* tree, FUNCTION& into) {
    walk_tree(tree, [&](NODE* node) {
        if (node->op == NAME) {
            const SYMTAB* symbol = node->symbol();
            if (symbol->level != 0 || symbol->sclass != SC_STATIC) return;
            const auto found = number_.find(symbol);
            if (found == number_.end()) return;
            if (node->type->size() != symbol->size) is_out_[static_cast<std::size_t>(found->second)] = true;
            into.used.push_back(found->second);
        } else if (node->op == CALL || node->op == UCALL) {
            const FUNINFO* owner = node->call_owner;
            if (owner == nullptr || node->unique_call_index >= owner->inlined_sites.size() ||
                !owner->inlined_sites[node->unique_call_index])
                return;
            if (FUNINFO* callee = find_FUNINFO_for_call(node)) into.integrated.push_back(callee);
        }
    });
}

void COLLECTOR::scan_functions() {
    for (const SYMTAB* symbol : functions) {
        FUNINFO* function = find_FUNINFO(const_cast<SYMTAB*>(symbol));
        if (function == nullptr) continue;
        FUNCTION& into = scanned_[function];
        for (const BBLK* bb = function->bb_list; bb != nullptr; bb = bb->next)
            for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next)
                scan(cell->first, into);
        for (const EHT_ENTRY& entry : function->eht)
            if (entry.tree != nullptr) scan(static_cast<NODE*>(entry.tree), into);
    }
}

// The uses of each function as it will be when calls have been integrated.
void COLLECTOR::add_integrated() {
    std::vector<int> used_by(candidates_.size(), -1); // number of the last function that uses it
    for (const SYMTAB* symbol : functions) {
        FUNINFO* function = find_FUNINFO(const_cast<SYMTAB*>(symbol));
        if (function == nullptr || function->cg_number < 0 || TEST_FLAG(function, FUN_is_suppressed))
            continue;
        const int number = static_cast<int>(uses_.size());
        std::vector<int>& uses = uses_.emplace_back();
        std::vector<const FUNINFO*> bodies{function};
        std::unordered_set<const FUNINFO*> seen{function};
        for (std::size_t i = 0; i < bodies.size() && i < MAX_INTEGRATED; i++) {
            const FUNCTION& body = scanned_[bodies[i]];
            for (const int candidate : body.used) {
                const auto at = static_cast<std::size_t>(candidate);
                if (is_out_[at] || used_by[at] == number) continue;
                used_by[at] = number;
                uses.push_back(candidate);
            }
            for (const FUNINFO* callee : body.integrated)
                if (seen.insert(callee).second) bodies.push_back(callee);
        }
    }
}

bool COLLECTOR::may_pair(int a, int b) const {
    const SYMTAB* x = candidates_[static_cast<std::size_t>(a)];
    const SYMTAB* y = candidates_[static_cast<std::size_t>(b)];
    return kind_of(x) == kind_of(y) && x->option_set == y->option_set;
}

int COLLECTOR::leader_of(int candidate) {
    int leader = candidate;
    while (groups_[static_cast<std::size_t>(leader)].leader != leader)
        leader = groups_[static_cast<std::size_t>(leader)].leader;
    while (candidate != leader)
        candidate = std::exchange(groups_[static_cast<std::size_t>(candidate)].leader, leader);
    return leader;
}

void COLLECTOR::form_groups() {
    struct PAIR {
        int a, b, count;
    };
    std::vector<PAIR> pairs;
    std::unordered_map<std::uint64_t, std::size_t> index; // in `pairs`; never walked
    for (const std::vector<int>& uses : uses_)
        for (std::size_t i = 0; i < uses.size(); i++) {
            std::size_t found = 0;
            for (std::size_t j = i + 1; j < uses.size() && j <= i + 2 * PAIRS_OF_USE && found < PAIRS_OF_USE;
                 j++) {
                if (!may_pair(uses[i], uses[j])) continue;
                found++;
                const auto [a, b] = std::minmax(uses[i], uses[j]);
                const std::uint64_t key = static_cast<std::uint64_t>(a) << 32 | static_cast<std::uint32_t>(b);
                const auto [entry, is_new] = index.emplace(key, pairs.size());
                if (is_new) pairs.push_back({a, b, 0});
                pairs[entry->second].count++;
            }
        }
    std::sort(pairs.begin(), pairs.end(), [](const PAIR& x, const PAIR& y) {
        if (x.count != y.count) return x.count > y.count;
        return x.a != y.a ? x.a < y.a : x.b < y.b;
    });
    for (std::size_t i = 0; i < candidates_.size(); i++) {
        const std::uint64_t align = static_cast<std::uint64_t>(candidates_[i]->align);
        const int number = static_cast<int>(i);
        groups_.push_back({(candidates_[i]->size + align - 1) / align * align, {number}, number});
    }
    for (const PAIR& pair : pairs) {
        const int a = leader_of(pair.a), b = leader_of(pair.b);
        GROUP& into = groups_[static_cast<std::size_t>(std::min(a, b))];
        GROUP& from = groups_[static_cast<std::size_t>(std::max(a, b))];
        if (a == b || into.size + from.size > MAX_SIZE) continue;
        into.size += from.size;
        into.members.insert(into.members.end(), from.members.begin(), from.members.end());
        from.members.clear();
        from.leader = into.leader;
    }
}

void COLLECTOR::count_savings() {
    saved_.assign(candidates_.size(), 0);
    std::vector<int> named_by(candidates_.size(), -1); // by leader: the last function that uses the group
    for (std::size_t i = 0; i < uses_.size(); i++)
        for (const int candidate : uses_[i]) {
            const auto leader = static_cast<std::size_t>(leader_of(candidate));
            if (named_by[leader] == static_cast<int>(i)) saved_[leader]++;
            named_by[leader] = static_cast<int>(i);
        }
}

NODE* skip_of(std::uint64_t bits) {
    auto* node = new NODE(SKIP, tp->int_type(IK_INT));
    node->mk_skip(static_cast<int>(bits));
    return node;
}

// The initialisers one behind the other; null where no member has one.
EXPR_LIST* merged_initialiser(const std::vector<MEMBER>& members) {
    EXPR_LIST* list = nullptr;
    const auto append = [&list](NODE* tree) { append_to_initialiser(list, tree); };
    std::uint64_t written = 0; // bits that the trees so far account for
    for (const MEMBER& member : members) {
        std::uint64_t at = static_cast<std::uint64_t>(member.place->offset);
        for_each_entry(member.symbol->init, [&](NODE* tree) {
            if (tree->op != SKIP) {
                if (at > written) append(skip_of(at - written));
                append(tree);
                written = at + initialiser_bits(tree);
            }
            at += initialiser_bits(tree);
        });
    }
    if (list != nullptr) append(new NODE(ENDINIT, tp->int_type(IK_INT)));
    return list;
}

// A name that no cluster has: an earlier run may have made some.
const char* COLLECTOR::fresh_name() {
    for (;;) {
        const char* name = intern_text(CLUSTER_NAME + std::to_string(next_name_++));
        if (tp->find_named_type(name) == nullptr) return name;
    }
}

void report(const SYMTAB* cluster, const std::vector<MEMBER>& members, int saved) {
    std::string names;
    for (const MEMBER& member : members) (names += names.empty() ? "" : ", ") += member.symbol->name;
    dprintf("\nCluster %s: %s; %d addresses fewer\n", cluster->name, names.c_str(), saved);
    info_sentence(cluster->psn,
                  "the statics %s are used together and lie together as %s, which saves %d addresses",
                  names.c_str(), cluster->name, saved);
}

// The name, behind that of the function whose static it is.
std::string full_name(const SYMTAB* symbol) {
    for (const PRAGMA* pragma = symbol->pragmas; pragma != nullptr; pragma = pragma->next)
        if (pragma->kind == PRAG_SCOPING_FUNC && !pragma->args.empty())
            return pragma->args[0] + ":" + symbol->name;
    return symbol->name;
}

void COLLECTOR::make_cluster(const GROUP& group, int saved) {
    std::vector<MEMBER> members;
    for (const int number : group.members)
        members.push_back({candidates_[static_cast<std::size_t>(number)], nullptr, nullptr});
    // The strictest alignment first leaves the fewest gaps; else the file's order, which `group` has lost.
    std::sort(members.begin(), members.end(), [this](const MEMBER& a, const MEMBER& b) {
        if (a.symbol->align != b.symbol->align) return a.symbol->align > b.symbol->align;
        return number_.at(a.symbol) < number_.at(b.symbol);
    });
    const auto align = static_cast<std::uint64_t>(members.front().symbol->align);
    std::vector<fkMDATA> places;
    std::unordered_set<std::string> names;
    std::uint64_t size = 0;
    for (const MEMBER& member : members) {
        fkMDATA& place = places.emplace_back();
        const std::string own_name = full_name(member.symbol);
        std::string name = own_name;
        while (!names.insert(name).second) name = own_name + "$" + std::to_string(names.size());
        place.name = intern_text(name);
        place.type = member.symbol->otype;
        const auto own = static_cast<std::uint64_t>(member.symbol->align);
        size = (size + own - 1) / own * own;
        place.offset = static_cast<std::int64_t>(size);
        size += member.symbol->size;
    }
    size = (size + align - 1) / align * align;

    const char* name = fresh_name();
    TYPE* type = tp->mk_struct(name, {size, static_cast<unsigned>(align)});
    for (std::size_t i = 0; i < places.size(); i++) members[i].place = tp->add_member(type, places[i]);
    tp->open_csu(type)->is_complete = true;
    tp->type_frozen(type);
    const SYMTAB* first = members.front().symbol;
    SYMBOL_RECORD record;
    record.name = name;
    record.size = static_cast<unsigned>(size);
    record.sclass = SC_STATIC;
    record.type = first->otype->is_const() ? tp->mk_qual(type, QUAL_CONST) : type;
    record.align = static_cast<unsigned>(align);
    record.option_set = first->option_set;
    record.psn = first->psn;
    SYMTAB* cluster = mk_symbol(record);
    cluster->cqual |= CQ_VISIBLE;
    sym_def(cluster);
    cluster->init = merged_initialiser(members);

    clusters().symbols.push_back(cluster);
    clusters().first.emplace(cluster, clusters().members.size());
    for (MEMBER& member : members) {
        member.cluster = cluster;
        clusters().at.emplace(member.symbol, clusters().members.size());
        clusters().members.push_back(member);
    }
    report(cluster, members, saved);
}

void COLLECTOR::run() {
    find_candidates();
    if (candidates_.size() < 2) return;
    scan_functions();
    add_integrated();
    form_groups();
    count_savings();
    for (std::size_t i = 0; i < groups_.size(); i++)
        if (groups_[i].members.size() > 1 && saved_[i] >= MIN_SAVED) make_cluster(groups_[i], saved_[i]);
}

// --- References.

// Makes a member of a cluster of the NAME; false if it is none.
bool expand_name(NODE* node) {
    const MEMBER* member = member_of(node->symbol());
    if (member == nullptr) return false;
    node->op = STDOT;
    node->u.rval = nullptr;
    node->left = mk_NAME(member->cluster);
    node->right = mk_FIELD(member->place, member->cluster->type->get_csu());
    return true;
}

bool expand_tree(NODE* tree) {
    bool changed = false;
    walk_tree(tree, [&](NODE* node) {
        if (node->op == NAME) changed |= expand_name(node);
    });
    return changed;
}

NODE* moved_by(NODE* address, std::int64_t bits) {
    if (bits == 0) return address;
    const INT65 units = INT65::from_signed(bits / static_cast<std::int64_t>(UNIT_BITS));
    return maketree(PLUS, address, mk_ICON(units, tp->int_type(IK_INT)), address->type, nullptr);
}

// In an initialiser: the address of the cluster and a distance. A distance that follows is added to it.
NODE* expand_address(NODE* node) {
    if ((node->op == PLUS || node->op == MINUS) && node->right->op == ICON && node->left->op == PLUS &&
        node->left->left->op == UAND && node->left->right->op == ICON) {
        NODE* sum = node->left;
        const std::int64_t more = node->right->u.lval.to_signed();
        const std::int64_t units = sum->right->u.lval.to_signed() + (node->op == PLUS ? more : -more);
        sum->right->u.lval = INT65::from_signed(units);
        sum->type = node->type;
        return sum;
    }
    if (node->op == UAND && node->left->op == NAME) {
        const MEMBER* member = member_of(node->left->symbol());
        if (member == nullptr) return node;
        node->left = mk_NAME(member->cluster);
        return moved_by(node, member->place->offset);
    }
    if (node->op == UAND && is_member_of_cluster(node->left)) {
        const std::int64_t offset = node->left->right->mdata->offset;
        node->left = node->left->left;
        return moved_by(node, offset);
    }
    return node;
}

} // namespace

void collect_clustered_symbols() {
    dprintf("\n\n\t\t\t---------- ENTERING 'collect_clustered_symbols' ----------\n");
    if (clusters().were_collected) return;
    clusters().were_collected = true;
    if (inhibit_clustering != 0 || pass_disable("cliqueclusters")) return;
    set_up_and_build_call_graph();
    COLLECTOR().run();
}

bool cluster_refs_are_expanded() {
    return currfuninfo != nullptr && clusters().expanded.contains(currfuninfo);
}

void expand_cluster_refs() {
    if (clusters().symbols.empty()) return;
    dprintf("\n\n\t\t\t---------- ENTERING 'expand_cluster_refs' ----------\n");
    clusters().expanded.insert(currfuninfo);
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        for (LIST* cell = bb->statements; cell != nullptr; cell = cell->next)
            if (expand_tree(cell->first)) cell->first = simp_tree(cell->first, bb->loop);
    for (EHT_ENTRY& entry : currfuninfo->eht)
        if (entry.tree != nullptr) expand_tree(static_cast<NODE*>(entry.tree));
}

NODE* expand_cluster_refs(NODE* tree) {
    expand_tree(tree);
    return tree;
}

SYMTAB* cluster_of(const SYMTAB* symbol) {
    const MEMBER* member = member_of(symbol);
    return member != nullptr ? member->cluster : nullptr;
}

SYMTAB* static_in_cluster(const SYMTAB* cluster, std::int64_t bits) {
    const auto found = clusters().first.find(cluster);
    if (found == clusters().first.end()) return nullptr;
    // The members stand in order of their places.
    const std::vector<MEMBER>& members = clusters().members;
    auto next = members.begin() + static_cast<std::ptrdiff_t>(found->second);
    while (next != members.end() && next->cluster == cluster && next->place->offset <= bits) ++next;
    return (next - 1)->symbol;
}

bool is_member_of_cluster(const NODE* tree) {
    return tree->op == STDOT && tree->left->op == NAME && clusters().first.contains(tree->left->symbol());
}

void close_clusters() {
    if (clusters().symbols.empty()) return;
    for (const MEMBER& member : clusters().members) {
        member.symbol->init = nullptr;
        member.symbol->location = 0;
        member.symbol->retention = I_SYMTAB::NEVER;
    }
    for (SYMTAB* cluster : clusters().symbols) cluster->cqual |= CQ_VISIBLE;
    for (SYMTAB* symbol = global_symbols; symbol != nullptr; symbol = symbol->next) {
        EXPR_LIST* cell = symbol->init;
        while (cell != nullptr) {
            cell->tree = rewrite_tree(cell->tree, expand_address);
            expand_tree(cell->tree); // members, whose address is taken
            cell = cell->next != symbol->init ? cell->next : nullptr;
        }
    }
}
