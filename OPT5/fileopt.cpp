// Function records: finding and making them, and what is known from a function's name.

#include "fileopt.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string_view>
#include <unordered_map>

#include "debug.h"
#include "files.h"
#include "inliner.h"
#include "node.h"
#include "opcodes.h"
#include "pragma.h"
#include "symbol.h"
#include "types.h"

FILEINFO fileinfo;
int no_outside_callers, no_outside_writers, whole_file_mode;

FUNINFO::~FUNINFO() {
    for (PRAGMA* pragma : owned_pragmas) delete pragma;
}

namespace {

struct RECORDS {
    std::unordered_map<SYMTAB*, FUNINFO*> by_symbol;   // only for look-ups
    std::unordered_map<std::string, FUNINFO*> by_name; // functions that other files may name
    std::vector<FUNINFO*> all;
    POOL pool;
};

RECORDS& records() {
    static auto* table = new RECORDS; // lives to the very end of the run
    return *table;
}

// --- What a name says.

// The C library, and the run-time support of exceptions; sorted.
constexpr std::string_view SYSTEM_FUNCTIONS[] = {"__cxa_allocate_exception",
                                                 "__cxa_begin_catch",
                                                 "__cxa_end_catch",
                                                 "__cxa_rethrow",
                                                 "__cxa_throw",
                                                 "_sqrt",
                                                 "abort",
                                                 "abs",
                                                 "acos",
                                                 "asctime",
                                                 "asin",
                                                 "atan",
                                                 "atan2",
                                                 "atexit",
                                                 "atof",
                                                 "atoi",
                                                 "atol",
                                                 "bsearch",
                                                 "calloc",
                                                 "ceil",
                                                 "clearerr",
                                                 "clock",
                                                 "cos",
                                                 "cosh",
                                                 "ctime",
                                                 "difftime",
                                                 "div",
                                                 "exit",
                                                 "exp",
                                                 "fabs",
                                                 "fclose",
                                                 "feof",
                                                 "ferror",
                                                 "fflush",
                                                 "fgetc",
                                                 "fgetpos",
                                                 "fgets",
                                                 "floor",
                                                 "fmod",
                                                 "fopen",
                                                 "fprintf",
                                                 "fputc",
                                                 "fputs",
                                                 "fread",
                                                 "free",
                                                 "freopen",
                                                 "frexp",
                                                 "fscanf",
                                                 "fseek",
                                                 "fsetpos",
                                                 "ftell",
                                                 "fwrite",
                                                 "getc",
                                                 "getchar",
                                                 "getenv",
                                                 "gets",
                                                 "gmtime",
                                                 "isalnum",
                                                 "isalpha",
                                                 "iscntrl",
                                                 "isdigit",
                                                 "isgraph",
                                                 "islower",
                                                 "isprint",
                                                 "ispunct",
                                                 "isspace",
                                                 "isupper",
                                                 "isxdigit",
                                                 "labs",
                                                 "ldexp",
                                                 "ldiv",
                                                 "localeconv",
                                                 "localtime",
                                                 "log",
                                                 "log10",
                                                 "longjmp",
                                                 "malloc",
                                                 "mblen",
                                                 "mbstowcs",
                                                 "mbtowc",
                                                 "memchr",
                                                 "memcmp",
                                                 "memcpy",
                                                 "memmove",
                                                 "memset",
                                                 "mktime",
                                                 "modf",
                                                 "perror",
                                                 "pow",
                                                 "printf",
                                                 "putc",
                                                 "putchar",
                                                 "puts",
                                                 "qsort",
                                                 "raise",
                                                 "rand",
                                                 "realloc",
                                                 "remove",
                                                 "rename",
                                                 "rewind",
                                                 "scanf",
                                                 "setbuf",
                                                 "setjmp",
                                                 "setlocale",
                                                 "setvbuf",
                                                 "signal",
                                                 "sin",
                                                 "sinh",
                                                 "sprintf",
                                                 "sqrt",
                                                 "srand",
                                                 "sscanf",
                                                 "strcat",
                                                 "strchr",
                                                 "strcmp",
                                                 "strcoll",
                                                 "strcpy",
                                                 "strcspn",
                                                 "strerror",
                                                 "strftime",
                                                 "strlen",
                                                 "strncat",
                                                 "strncmp",
                                                 "strncpy",
                                                 "strpbrk",
                                                 "strrchr",
                                                 "strspn",
                                                 "strstr",
                                                 "strtod",
                                                 "strtok",
                                                 "strtol",
                                                 "strtoul",
                                                 "strxfrm",
                                                 "system",
                                                 "tan",
                                                 "tanh",
                                                 "time",
                                                 "tmpfile",
                                                 "tmpnam",
                                                 "tolower",
                                                 "toupper",
                                                 "ungetc",
                                                 "vfprintf",
                                                 "vprintf",
                                                 "vsprintf",
                                                 "wcstombs",
                                                 "wctomb"};
static_assert(std::size(SYSTEM_FUNCTIONS) == 147);
static_assert(std::is_sorted(std::begin(SYSTEM_FUNCTIONS), std::end(SYSTEM_FUNCTIONS)));

// These may run the program's own functions, or are not plain calls. `exit` and `raise` belong here because
// they run what `atexit` and `signal` have registered.
constexpr std::string_view MAY_USE_GLOBALS[] = {
    "longjmp", "setjmp",  "signal", "bsearch", "qsort",  "__cxa_throw", "__cxa_rethrow", "__cxa_begin_catch",
    "fopen",   "freopen", "fclose", "fread",   "fwrite", "fseek",       "rename",        "exit",
    "raise"};
constexpr std::string_view READS_MEMORY[] = {"strcmp", "strlen", "ferror", "feof",   "ftell",
                                             "getenv", "mblen",  "printf", "fprintf"};
constexpr std::string_view WRITES_MEMORY[] = {"memset"};
constexpr std::string_view PURE[] = {"abs",     "atan",    "ceil",    "cos",     "fabs",     "floor",
                                     "isalnum", "isalpha", "iscntrl", "isdigit", "isgraph",  "islower",
                                     "isprint", "ispunct", "isspace", "isupper", "isxdigit", "labs",
                                     "sin",     "tan",     "tolower", "toupper", "_sqrt"};
constexpr std::string_view NO_MEMORY[] = {"acos", "asin", "atan2", "cosh",   "div", "exp",  "fmod", "ldexp",
                                          "ldiv", "log",  "log10", "malloc", "pow", "sinh", "sqrt", "tanh"};
constexpr std::string_view NO_RETURN[] = {"exit", "abort", "longjmp", "__cxa_throw", "__cxa_rethrow"};

template <std::size_t N> bool is_one_of(std::string_view name, const std::string_view (&names)[N]) {
    return std::find(std::begin(names), std::end(names), name) != std::end(names);
}

std::uint32_t system_function_flags(std::string_view name) {
    constexpr std::uint32_t no_globals = FUN_no_global_asg | FUN_no_global_use;
    constexpr std::uint32_t no_memory = FUN_no_ind_use | FUN_no_ind_asg | FUN_no_byref_asg | no_globals;
    std::uint32_t flags = FUN_is_SYSTEM;
    if (!is_one_of(name, MAY_USE_GLOBALS)) flags |= no_globals;
    if (is_one_of(name, READS_MEMORY)) flags |= FUN_no_byref_asg | FUN_no_ind_asg | no_globals;
    if (is_one_of(name, WRITES_MEMORY)) flags |= FUN_no_ind_use | no_globals;
    if (is_one_of(name, PURE)) flags |= no_memory | FUN_is_pure_fun;
    if (is_one_of(name, NO_MEMORY)) flags |= no_memory;
    if (is_one_of(name, NO_RETURN)) flags |= FUN_never_returns;
    return flags;
}

constexpr std::string_view STATIC_INITIALIZER = "__sti__";

void init_FUNINFO_flags(FUNINFO* function, const char* name, bool is_system) {
    const std::string_view text = name;
    if (text == "main") function->flags |= FUN_is_main;
    if (text == "_system_pre_init" || text == "_system_post_cinit" || text == "__mpu_init")
        function->flags |= FUN_is_cg_root;
    if (cache_sys_funinfo != 0 && !function->is_nonconforming && (is_system || is_system_function(name)))
        function->flags |= system_function_flags(text);
}

// The code that C++ runs before main is called by nobody here.
void note_language(FUNINFO* function) {
    function->flags |= FUN_is_cpp;
    if (function->symbol != nullptr &&
        std::string_view(function->symbol->name).starts_with(STATIC_INITIALIZER))
        function->flags |= FUN_is_cg_root;
}

FUNINFO* new_record(const char* name, SYMTAB* symbol, bool is_system) {
    auto* function = new FUNINFO;
    function->name = skip_name_prefix(name);
    function->symbol = symbol;
    records().all.push_back(function);
    // A static of the file hides the library's function of the same name.
    if (symbol == nullptr || symbol->sclass != SC_STATIC) {
        init_FUNINFO_flags(function, name, is_system);
    } else if (std::strcmp(name, "main") == 0) {
        function->flags |= FUN_is_main;
    }
    if (fileinfo.is_cpp) note_language(function);
    return function;
}

} // namespace

void note_file_is_cpp(FUNINFO* function) {
    if (function != nullptr) {
        note_language(function);
        return;
    }
    fileinfo.is_cpp = true;
    for (FUNINFO* known : records().all) note_language(known);
}

namespace {

// What SYM_VISIBILITY says, as a word or as the number that object files use; null without the pragma.
const char* visibility(const SYMTAB* symbol) {
    for (const PRAGMA* pragma = symbol->pragmas; pragma != nullptr; pragma = pragma->next)
        if (pragma->kind == PRAG_SYM_VISIBILITY) return pragma->args.empty() ? "" : pragma->args[0].c_str();
    return nullptr;
}

template <std::size_t N> bool says(const char* visibility, const std::string_view (&words)[N]) {
    return visibility != nullptr && is_one_of(visibility, words);
}

constexpr std::string_view NOT_PREEMPTIBLE[] = {"internal", "hidden", "protected", "1", "2", "3"};
constexpr std::string_view PROTECTED[] = {"protected", "3"};

// How the name of a C++ allocation function begins.
constexpr std::string_view OPERATOR_NEW[] = {"_Znw", "_Zna", "__nw__", "__nwa__"};

bool is_of_kind(const FUNINFO* function, std::string_view kind) {
    if (function == nullptr || function->symbol == nullptr) return false;
    for (const PRAGMA* pragma = function->symbol->pragmas; pragma != nullptr; pragma = pragma->next)
        if (pragma->kind == PRAG_FUNC_IS_CTOR_DTOR) return !pragma->args.empty() && pragma->args[0] == kind;
    return false;
}

} // namespace

bool symbol_is_preemptible(const SYMTAB* symbol) {
    const char* said = visibility(symbol);
    return symbol->sclass != SC_STATIC && said != nullptr && !says(said, NOT_PREEMPTIBLE);
}

bool symbol_is_protected(const SYMTAB* symbol) { return says(visibility(symbol), PROTECTED); }

bool fun_is_cpp_constructor(const FUNINFO* function) { return is_of_kind(function, "1"); }
bool fun_is_cpp_destructor(const FUNINFO* function) { return is_of_kind(function, "2"); }

bool fun_is_cpp_static_initializer(const FUNINFO* function) {
    return TEST_FLAG(function, FUN_is_cpp) && function->symbol != nullptr &&
           std::string_view(function->symbol->name).starts_with(STATIC_INITIALIZER);
}

bool fun_is_cpp_op_new(const FUNINFO* function) {
    if (function->symbol == nullptr) return false;
    const std::string_view name = function->symbol->name;
    return std::any_of(std::begin(OPERATOR_NEW), std::end(OPERATOR_NEW),
                       [name](std::string_view prefix) { return name.starts_with(prefix); });
}

bool is_system_function(const char* name) {
    return std::binary_search(std::begin(SYSTEM_FUNCTIONS), std::end(SYSTEM_FUNCTIONS),
                              std::string_view(name));
}

void init_proc_integration() {
    records().by_symbol.clear();
    records().by_name.clear();
    for (FUNINFO* function : records().all) delete function;
    records().all.clear();
    records().pool.release_all();
}

POOL& record_pool() { return records().pool; }

void init_fileopts() {
    fileinfo = FILEINFO{};
    no_outside_callers = no_outside_writers = whole_file_mode = 0;
    if (opt_level() >= 3) {
        switch (program_mode) {
            case 0: break;
            case 1: no_outside_callers = whole_file_mode = 1; break;
            case 3: no_outside_writers = 1; break;
            default: no_outside_callers = no_outside_writers = whole_file_mode = 1; break;
        }
    }
    fileinfo.root = new_record(" ? ", nullptr, false);
    currfuninfo = fileinfo.root;
    inliner = make_inliner(pass_debug("inline_policy"));
}

FUNINFO* find_FUNINFO(SYMTAB* symbol) {
    auto found = records().by_symbol.find(symbol);
    return found != records().by_symbol.end() ? found->second : nullptr;
}

FUNINFO* make_FUNINFO(SYMTAB* symbol) {
    FUNINFO*& entry = records().by_symbol[symbol];
    if (entry != nullptr) return entry;
    if (symbol->sclass == SC_STATIC) return entry = new_record(symbol->name, symbol, false);
    // A declaration and the definition of one external name share a record, as does a name met before.
    FUNINFO*& named = records().by_name[symbol->name];
    if (named == nullptr) {
        named = new_record(symbol->name, symbol, false);
    } else if (named->symbol == nullptr || symbol->sclass == SC_EXTDEF) {
        named->symbol = symbol;
    }
    return entry = named;
}

FUNINFO* make_FUNINFO(const char* name) {
    if (FUNINFO* known = find_FUNINFO(name)) {
        if (known->symbol == nullptr) make_FUNINFO(mk_library_symbol(name));
        return known;
    }
    SYMTAB* symbol = find_external_symbol(name);
    if (symbol == nullptr || !symbol->otype->is_func()) symbol = mk_library_symbol(name);
    return make_FUNINFO(symbol);
}

FUNINFO* find_FUNINFO(const char* name) {
    auto found = records().by_name.find(name);
    if (found != records().by_name.end()) return found->second;
    if (!is_system_function(name)) return nullptr;
    return records().by_name[name] = new_record(name, nullptr, true);
}

namespace {

// The function that a pointer constant of the file names for good.
SYMTAB* function_of_constant_pointer(const SYMTAB* pointer) {
    if (pointer->level != 0 || !is_immutable(pointer)) return nullptr;
    const NODE* value = pointer->init != nullptr ? pointer->init->tree : nullptr;
    if (value == nullptr || value->op != op::UAND || value->left->op != op::NAME) return nullptr;
    SYMTAB* symbol = value->left->symbol();
    return symbol->otype->is_func() ? symbol : nullptr;
}

FUNINFO* library_function_of_ABS(const NODE* operand) {
    TYPE* type = operand->type;
    if (type->is_fltpt()) return make_FUNINFO("fabs");
    if (type->is_long() || type->is_ulong()) return make_FUNINFO("labs");
    return type->is_integer() ? make_FUNINFO("abs") : nullptr;
}

} // namespace

FUNINFO* find_FUNINFO_for_call(NODE* call) {
    switch (call->op) {
        case op::CALL:
        case op::UCALL: {
            const NODE* function = call->left;
            if (function->op == op::UAND && function->left->op == op::NAME) {
                SYMTAB* symbol = function->left->symbol();
                return symbol->otype->is_func() && symbol->level == 0 ? make_FUNINFO(symbol) : nullptr;
            }
            if (function->op == op::NAME)
                if (SYMTAB* symbol = function_of_constant_pointer(function->symbol()))
                    return make_FUNINFO(symbol);
            return nullptr;
        }
        case op::ABS: return library_function_of_ABS(call->left);
        case op::SQRT: return make_FUNINFO("_sqrt");
        case op::MEMCPY: return make_FUNINFO("memcpy");
        default: return nullptr;
    }
}

bool function_is_defined(const FUNINFO* function) {
    if (function == fileinfo.root) return false;
    if (const SYMTAB* symbol = function->symbol)
        return function->is_defined && (symbol->sclass == SC_EXTDEF || symbol->sclass == SC_STATIC);
    [[maybe_unused]] const FUNINFO* f = function;
    if (!(TEST_FLAG(f, FUN_is_SYSTEM) || (cache_sys_funinfo == 0 && is_system_function(f->name.c_str()))))
        optassert("TEST_FLAG(f, FUN_is_SYSTEM) || (!cache_sys_funinfo && is_system_function(f->name))",
                  __FILE__, __LINE__);
    return false;
}

void dump_FUNINFO(const FUNINFO* function, const char* heading) {
    if (print_debug == 0) return;
    static constexpr const char* NAMES[32] = {
        "calls_anonymous", "cannot_suppress", "is_unsuppressed", "never_returns", "calls_OUTSIDE",
        "cannot_inline",   "is_suppressed",   "no_global_asg",   "no_global_use", "is_referenced",
        "calls_SYSTEM",    "is_processed",    "is_anonymous",    "is_interrupt",  "follows_call",
        "value_needed",    "no_byref_asg",    "is_pure_fun",     "cannot_beta",   "no_RPT_loop",
        nullptr,           "is_inlined",      "no_ind_asg",      "no_ind_use",    "is_cg_root",
        nullptr,           "is_called",       "is_extern",       "is_SYSTEM",     "has_1_BB",
        "is_main",         "is_cpp"};
    if (heading != nullptr) dprintf("%s", heading);
    dprintf("\n%s: size %d, callers %u, call-graph position %d\n", function->name.c_str(), function->size,
            function->nCallers, function->cg_number);
    for (int bit = 0; bit < 32; bit++)
        if (NAMES[bit] != nullptr && (function->flags >> bit & 1) != 0) dprintf("\tFUN_%s\n", NAMES[bit]);
    for (const CALL_EDGE* edge = function->callees; edge != nullptr; edge = edge->next)
        dprintf("\tcalls %s: %u\n", edge->callee->name.c_str(), edge->ncalls);
}
