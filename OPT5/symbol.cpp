#include "symbol.h"

#include <cctype>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "bad_input.h"
#include "debug.h"
#include "fileopt.h"
#include "files.h"
#include "if_file.h"
#include "ls.h"
#include "opt_expr.h"
#include "pool.h"
#include "pragma.h"
#include "types.h"

SYMTAB* errno_symbol;

namespace {

// Globals that other files may see, by interned name; a definition stands before a declaration.
std::unordered_map<const char*, SYMTAB*>& external_symbols() {
    static std::unordered_map<const char*, SYMTAB*> map;
    return map;
}

// Rank of a global among those of its name; 0: not an external. A static is none: in a file that was merged
// from several, a declaration of its name can be another file's.
int definition_rank(const SYMTAB* symbol) {
    switch (symbol->sclass) {
        case SC_EXTDEF: return 2;
        case SC_EXTERN: return 1;
        default: return 0;
    }
}

// The level of the option set that the symbol names.
int level_of(SYMTAB* symbol) {
    SYMTAB* saved = currfunc;
    currfunc = symbol;
    const int level = opt_level();
    currfunc = saved;
    return level;
}

std::uint16_t flags_of_global(SYMTAB* symbol, std::uint16_t cqual) {
    if (!symbol->otype->is_const() && level_of(symbol) < 3)
        cqual |= (cqual & CQ_REGISTER) != 0 ? CQ_WRITTEN | CQ_REFERENCED : CQ_VISIBLE;
    if (symbol->retention == I_SYMTAB::ALWAYS) cqual |= CQ_VISIBLE;
    return cqual;
}

// The type in which the optimizer sees a symbol of that declared type: no typedefs, no enums.
TYPE* working_type(TYPE* declared) {
    TYPE* type = declared->normalized();
    if (!type->is_enum()) return type;
    const unsigned qualifiers = type->qual_kind();
    type = type->underlying_type()->normalized();
    return qualifiers != 0 ? tp->mk_qual(type, static_cast<unsigned char>(qualifiers)) : type;
}

} // namespace

void* SYMTAB::operator new(std::size_t size) { return current_pool().allocate(size); }

int SYMTAB::sym_prag_num() const {
    int count = 0;
    for (const PRAGMA* pragma = pragmas; pragma != nullptr; pragma = pragma->next) count++;
    return count;
}

void init_symbols() {
    global_symbols = nullptr;
    errno_symbol = nullptr;
    external_symbols().clear();
}

SYMTAB* mk_symbol(const SYMBOL_RECORD& record) {
    if (record.type == nullptr) bad_input(record.psn, "symbol %s has no type", record.name);
    if (record.option_set >= all_option_sets.size() || all_option_sets[record.option_set] == nullptr)
        bad_input(record.psn, "symbol %s names option set %u, which the file does not have", record.name,
                  record.option_set);
    // A global does not come from the pool of the function in work.
    SYMTAB* const function = currfunc;
    if (record.level == 0) currfunc = nullptr;
    auto* symbol = new SYMTAB;
    symbol->psn = mk_psn(record.psn);
    currfunc = function;
    symbol->name = intern_text(record.name);
    symbol->size = record.size;
    symbol->value = static_cast<std::int32_t>(record.value);
    symbol->sclass = symbol->class_as_read = static_cast<std::uint8_t>(record.sclass);
    symbol->otype = record.type;
    symbol->type = working_type(record.type);
    symbol->cpp_type = record.cpp_type;
    symbol->align = static_cast<std::int32_t>(record.align);
    symbol->location = record.location;
    symbol->option_set = record.option_set;
    symbol->retention = record.retention;
    symbol->level = record.level;
    symbol->flags = SF_SET_AT_CREATION;
    if (record.sclass != SC_REGISTER && record.sclass != SC_REGPARM && record.sclass != 22)
        symbol->flags |= SF_REGISTER_CANDIDATE;
    symbol->cqual = static_cast<std::uint16_t>(record.cqual & CQ_FILE_BITS);
    TYPE* otype = symbol->otype;
    const unsigned size = symbol->size;
    OPTASSERT(otype->is_func() || size == otype->size());
    if (record.level == 0) symbol->cqual = flags_of_global(symbol, symbol->cqual);
    if (currfunc != nullptr && currfuninfo != nullptr) symbol->serial = currfuninfo->next_serial++;
    return symbol;
}

SYMTAB* mk_library_symbol(const char* name) {
    FUNC_BODY body;
    body.return_type = tp->int_type(IK_INT);
    body.proto = false;
    SYMBOL_RECORD record;
    record.name = name;
    record.sclass = SC_EXTERN;
    record.type = tp->mk_func(body);
    record.align = 16;
    SYMTAB* symbol = mk_symbol(record);
    sym_def(symbol);
    return symbol;
}

namespace {

void append(SYMTAB* symbol, SYMTAB*& head, SYMTAB*& tail) {
    (tail != nullptr ? tail->next : head) = symbol;
    tail = symbol;
}

void def_global(SYMTAB* symbol) {
    symbol->next = global_symbols;
    global_symbols = symbol;
    if (o_file != nullptr) o_file->if_enter_global(symbol);
    if (const int rank = definition_rank(symbol); rank > 0) {
        SYMTAB*& known = external_symbols()[symbol->name];
        if (known == nullptr || rank > definition_rank(known)) known = symbol;
    }
    if (errno_symbol == nullptr && symbol->type->is_int()) {
        const std::string_view name = skip_name_prefix(symbol->name);
        if (name == "errno" || name == "_Errno") errno_symbol = symbol;
    }
}

} // namespace

void sym_def(SYMTAB* symbol) {
    symbol->next = nullptr;
    if (symbol->level == 0) {
        def_global(symbol);
    } else if (symbol->level == 1) {
        append(symbol, currfuninfo->params, currfuninfo->params_tail);
    } else {
        append(symbol, currfuninfo->locals, currfuninfo->locals_tail);
    }
}

namespace {

// The type without the qualifiers of its element, past arrays.
TYPE* without_qualifiers(TYPE* type) {
    TYPE* element = type;
    while (element->is_array()) element = element->elem_type();
    if (!element->is_qualified()) return type;
    return type->is_array() ? tp->replace_array_elem(type, element->stqs()) : element->stqs();
}

} // namespace

namespace {

SYMTAB* new_temp(const char* name, TYPE* type, LS* ls) {
    if (type->is_enum()) type = tp->int_type(IK_INT);
    type = without_qualifiers(type);
    auto* symbol = new SYMTAB;
    symbol->name = intern_text(name);
    symbol->type = symbol->otype = type;
    symbol->size = static_cast<std::uint32_t>(type->size());
    symbol->align = static_cast<std::int32_t>(type->align());
    symbol->sclass = symbol->class_as_read = SC_AUTO;
    symbol->level = 2;
    symbol->flags = SF_SET_AT_CREATION | SF_REGISTER_CANDIDATE;
    symbol->option_set = currfunc->option_set;
    symbol->serial = symbol->index = currfuninfo->next_serial++;
    symbol->next = currfuninfo->temps;
    currfuninfo->temps = symbol;
    if (ls == nullptr) ls = LS::level_2_scope(currfuninfo);
    if (ls != nullptr) ls->add_symbol(symbol);
    return symbol;
}

} // namespace

SYMTAB* sym_temp(int kind, int number, TYPE* type, LS* ls) {
    if (number < 0) number = currfuninfo->next_temp++;
    char name[16];
    std::snprintf(name, sizeof name, "%s$%c%ld", "$O", kind, static_cast<long>(number));
    return new_temp(name, type, ls);
}

SYMTAB* sym_member_temp(const SYMTAB* object, const char* member, TYPE* type) {
    const std::string name = std::string("$O") + "$CSU$" + object->name + "$" + member;
    return new_temp(name.c_str(), type, object->scope);
}

SYMTAB* unlink_symbol(SYMTAB* symbol, SYMTAB* list) {
    for (SYMTAB** place = &list; *place != nullptr; place = &(*place)->next) {
        if (*place != symbol) continue;
        *place = symbol->next;
        symbol->next = nullptr;
        break;
    }
    return list;
}

SYMTAB* find_external_symbol(const char* name) {
    auto found = external_symbols().find(intern_text(name));
    return found != external_symbols().end() ? found->second : nullptr;
}

SYMTAB* get_sym_def_for_decl(SYMTAB* symbol) {
    if (symbol == nullptr || symbol->sclass != SC_EXTERN || symbol->level != 0) return symbol;
    auto found = external_symbols().find(symbol->name);
    if (found == external_symbols().end() || found->second->otype->is_func() != symbol->otype->is_func())
        return symbol;
    return found->second;
}

bool symbol_has_pragma(const SYMTAB* symbol, int kind) {
    const PRAGMA* pragma = symbol->pragmas;
    while (pragma != nullptr && pragma->kind != kind) pragma = pragma->next;
    return pragma != nullptr;
}

PRAGMA* remove_pragma(int kind, PRAGMA* chain) {
    for (PRAGMA** place = &chain; *place != nullptr;) {
        if ((*place)->kind == kind) {
            *place = (*place)->next;
        } else {
            place = &(*place)->next;
        }
    }
    return chain;
}

// --- Interning across functions.

namespace {

struct INTERNED_SYM {
    std::uint32_t index;
    std::string name;
    std::string type;
    SYMTAB* symbol;
    FUNINFO* function;

    bool operator==(const INTERNED_SYM& other) const {
        return index == other.index && name == other.name && type == other.type;
    }
};

struct INTERNED_HASH {
    std::size_t operator()(const INTERNED_SYM& key) const {
        std::uint64_t h = key.index + std::uint64_t{0x9e3779b9};
        for (const std::string* text : {&key.name, &key.type}) {
            std::uint64_t t = 0;
            for (unsigned char c : *text) t ^= c + std::uint64_t{0x9e3779b9} + (t << 6) + (t >> 2);
            h ^= t + std::uint64_t{0x9e3779b9} + (h << 6) + (h >> 2);
        }
        return h;
    }
};

struct INTERNED_SYMBOLS {
    std::unordered_set<INTERNED_SYM, INTERNED_HASH> set;
    std::vector<const INTERNED_SYM*> in_order;
};

INTERNED_SYMBOLS& interned() {
    static INTERNED_SYMBOLS symbols;
    return symbols;
}

INTERNED_SYM key_of(SYMTAB* symbol, FUNINFO* function) {
    return {symbol->index, symbol->name, symbol->type->printstr(), symbol, function};
}

} // namespace

SYMTAB* intern_symbol(SYMTAB* symbol, FUNINFO* function) {
    if (symbol->level == 0) return symbol;
    auto [entry, is_new] = interned().set.insert(key_of(symbol, function));
    if (is_new) interned().in_order.push_back(&*entry);
    return entry->symbol;
}

SYMTAB* find_interned_symbol(SYMTAB* symbol) {
    if (symbol->level == 0) return symbol;
    auto entry = interned().set.find(key_of(symbol, nullptr));
    return entry != interned().set.end() ? entry->symbol : nullptr;
}

void map_over_interned_symbols(void (*visit)(SYMTAB*)) {
    for (const INTERNED_SYM* entry : interned().in_order) visit(entry->symbol);
}

void interned_stats() {
    if (print_debug == 0) return;
    const auto& set = interned().set;
    int homeless = 0;
    for (const INTERNED_SYM* entry : interned().in_order) homeless += entry->function == nullptr ? 1 : 0;
    dprintf("\n%u interned symbols;  load factor %.2f, max load factor %.2f, %d with NULL funinfo",
            static_cast<unsigned>(set.size()), static_cast<double>(set.load_factor()),
            static_cast<double>(set.max_load_factor()), homeless);
}

// --- Names.

bool name_has_prefix(const char* name) { return *name == '_' || *name == '.'; }

const char* skip_name_prefix(const char* name) { return name_has_prefix(name) ? name + 1 : name; }

bool is_internal_name(const char* name) { return std::strncmp(name, "$O", 2) == 0; }

bool is_internal_symbol(const SYMTAB* symbol) { return is_internal_name(symbol->name); }

bool is_optimizer_temp(const char* name, char c1, char c2) {
    if (std::strncmp(name, "$O$", 3) != 0 || (name[3] != c1 && name[3] != c2) || name[3] == '\0')
        return false;
    for (name += 4; *name != '\0'; name++)
        if (std::isdigit(static_cast<unsigned char>(*name)) == 0) return false;
    return true;
}

bool is_automatic(const SYMTAB* symbol) {
    switch (symbol->sclass) {
        case SC_AUTO:
        case SC_REGISTER:
        case SC_PARM:
        case SC_REGPARM:
        case SC_VARARG: return symbol->level > 0;
        default: return false;
    }
}

bool is_immutable(const SYMTAB* symbol) {
    return (symbol->otype->is_const() || symbol->type->is_const()) && !symbol->otype->is_volatile();
}

bool sym_is_FAR(const SYMTAB* symbol) {
    if ((symbol->otype->qual_kind(true) & QUAL_FAR) != 0) return true;
    return far_externs != 0 && !symbol->otype->is_func() &&
           (symbol->sclass == SC_EXTERN || symbol->sclass == SC_EXTDEF);
}

void sym_split(FUNINFO* function) {
    enum KIND { PARAMETER, LOCAL, TEMPORARY };
    const auto kind_of = [](const SYMTAB* symbol) {
        return symbol->level == 1 ? PARAMETER : is_internal_symbol(symbol) ? TEMPORARY : LOCAL;
    };
    SYMTAB** heads[] = {&function->params, &function->locals, &function->temps};
    SYMTAB* kept[] = {nullptr, nullptr, nullptr};
    SYMTAB* tails[] = {nullptr, nullptr, nullptr};
    std::vector<SYMTAB*> strays;
    for (int list : {PARAMETER, LOCAL, TEMPORARY})
        for (SYMTAB *symbol = *heads[list], *next; symbol != nullptr; symbol = next) {
            next = symbol->next;
            symbol->next = nullptr;
            if (kind_of(symbol) == list) {
                append(symbol, kept[list], tails[list]);
            } else {
                strays.push_back(symbol);
            }
        }
    for (SYMTAB* symbol : strays) append(symbol, kept[kind_of(symbol)], tails[kind_of(symbol)]);
    for (int list : {PARAMETER, LOCAL, TEMPORARY}) *heads[list] = kept[list];
    function->params_tail = tails[PARAMETER];
    function->locals_tail = tails[LOCAL];
}

std::uint32_t SYMBOL_NUMBERS::last_stamp_;

// --- List cells.

namespace {

template <class CELL> CELL* new_cell() { return static_cast<CELL*>(current_pool().allocate(sizeof(CELL))); }

template <class CELL> CELL* reversed(CELL* list) {
    CELL* result = nullptr;
    while (list != nullptr) {
        CELL* next = list->next;
        list->next = result;
        result = list;
        list = next;
    }
    return result;
}

} // namespace

SYMLIST* mk_symlist(SYMTAB* sym, SYMLIST* next) {
    auto* cell = new_cell<SYMLIST>();
    *cell = {sym, next};
    return cell;
}

SYMALIST* mk_symalist(SYMTAB* sym, NODE* tree, SYMALIST* next) {
    auto* cell = new_cell<SYMALIST>();
    *cell = {sym, tree, next};
    return cell;
}

SYMPAIRLIST* mk_symplist(SYMTAB* from, SYMTAB* to, SYMPAIRLIST* next) {
    auto* cell = new_cell<SYMPAIRLIST>();
    *cell = {from, to, next};
    return cell;
}

SYMLIST* find_sym_in_symlist(const SYMTAB* sym, SYMLIST* list) {
    while (list != nullptr && list->sym != sym) list = list->next;
    return list;
}

SYMPAIRLIST* find_sym_in_sympairlist(const SYMTAB* sym, SYMPAIRLIST* list) {
    while (list != nullptr && list->from != sym) list = list->next;
    return list;
}

bool symbol_in_list(const SYMTAB* sym, const SYMTAB* list) {
    while (list != nullptr && list != sym) list = list->next;
    return list != nullptr;
}

SYMLIST* remove_sym_from_symlist(const SYMTAB* sym, SYMLIST* list) {
    for (SYMLIST** place = &list; *place != nullptr; place = &(*place)->next) {
        if ((*place)->sym != sym) continue;
        *place = (*place)->next;
        break;
    }
    return list;
}

SYMLIST* revsymlist(SYMLIST* list) { return reversed(list); }
SYMALIST* revsymalist(SYMALIST* list) { return reversed(list); }
SYMTAB* revsymtab(SYMTAB* list) { return reversed(list); }
