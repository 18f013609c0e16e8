#include "debug.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "files.h"
#include "instrument.h"
#include "option_obj.h"
#include "symbol.h"
#include "types.h"

// --- The store of switches: one sorted array of pairs, grown in steps of 100.

namespace {

struct ASSOC {
    char* key;
    int value;
};

ASSOC* assoc_array = nullptr;
int assoc_top = 0;  // pairs in use
int assoc_size = 0; // pairs that the array holds

constexpr int GROWTH = 100;
constexpr int MAX_KEY = 512; // bound of a key's text, its zero included

int compare_keys(const void* a, const void* b) {
    return std::strcmp(static_cast<const ASSOC*>(a)->key, static_cast<const ASSOC*>(b)->key);
}

ASSOC* find_switch(const char* key) {
    ASSOC probe{const_cast<char*>(key), 0};
    if (assoc_top == 0) return nullptr;
    return static_cast<ASSOC*>(
        std::bsearch(&probe, assoc_array, static_cast<std::size_t>(assoc_top), sizeof(ASSOC), compare_keys));
}

void set_switch(const char* key, int value) {
    if (ASSOC* present = find_switch(key)) {
        present->value = value;
        return;
    }
    if (assoc_top == assoc_size) {
        assoc_size += GROWTH;
        assoc_array = static_cast<ASSOC*>(
            std::realloc(assoc_array, static_cast<std::size_t>(assoc_size) * sizeof(ASSOC)));
        if (assoc_array == nullptr) abort_optimizer("ERROR - OUT OF MEMORY");
    }
    assoc_array[assoc_top++] = {strdup(key), value};
    std::qsort(assoc_array, static_cast<std::size_t>(assoc_top), sizeof(ASSOC), compare_keys);
}

int look_up(const char* prefix, const char* name) {
    char key[MAX_KEY];
    std::snprintf(key, sizeof key, "%s:%s", prefix, name);
    const ASSOC* found = find_switch(key);
    return found == nullptr ? 0 : found->value;
}

} // namespace

int pass_debug(const char* name) { return look_up("debug", name); }
int pass_enable(const char* name) { return look_up("enable", name); }
int pass_disable(const char* name) { return look_up("disable", name) != 0 ? 1 : 0; }

void process_debug_option(const char* prefix, const char* text) {
    char* copy = strdup(text);
    char* rest = copy;
    while (char* item = strsep(&rest, ",")) {
        if (*item == '\0') continue;
        int value = 1;
        if (char* equals = std::strchr(item, '=')) {
            value = static_cast<int>(std::strtol(equals + 1, nullptr, 0));
            *equals = '\0';
        }
        char key[MAX_KEY];
        std::snprintf(key, sizeof key, "%s:%s", prefix, item);
        set_switch(key, value);
    }
    std::free(copy);
}

const char** register_option::options = nullptr;
int register_option::num = 0;

register_option::register_option(const char* key) {
    for (int i = 0; i < num; i++)
        if (std::strcmp(options[i], key) == 0) {
            key_ = options[i];
            return;
        }
    options =
        static_cast<const char**>(std::realloc(options, static_cast<std::size_t>(num + 1) * sizeof(char*)));
    key_ = options[num++] = strdup(key);
}

register_option::operator int() const {
    const ASSOC* found = find_switch(key_);
    return found == nullptr ? 0 : found->value;
}

register_option::operator bool() const { return static_cast<int>(*this) != 0; }

register_option& register_option::operator=(int value) {
    set_switch(key_, value);
    return *this;
}

bool register_option::is_registered(const char* key) {
    for (int i = 0; i < num; i++)
        if (std::strcmp(options[i], key) == 0) return true;
    return false;
}

// --- Global flags.

int alias_vars, inline_single, cache_sys_funinfo, code_is_reentrant, dump_ocg_in_GDL, dwim_aliases,
    dwim_loops, far_externs, kr_flag, memory_is_big_endian, memory_model, pointer_args_are_disjoint,
    strict_fp, mini_mult, apply_symbolic_methods, pass_args_in_regs, program_mode, source_interlist,
    unsigned_index_wraps, unsigned_ok_for_RPTB, volit_vars, max_unrolled_loop_size,
    old_const_pointer_behavior, chars_alias_other_types, loop_increments_are_not_zero, use_g2;
int remove_hooks_when_inlining, inhibit_clustering, decode_mangle_scheme;
char aux_cmd_flag[10];
int default_o3_auto_inline = 20;

void reset_global_flags() {
    alias_vars = 0;
    inline_single = 0;
    cache_sys_funinfo = 2;
    code_is_reentrant = 1;
    dump_ocg_in_GDL = 0;
    dwim_aliases = 0;
    dwim_loops = 0;
    far_externs = 0;
    kr_flag = 0;
    memory_is_big_endian = 0;
    memory_model = 0;
    pointer_args_are_disjoint = 0;
    strict_fp = 1;
    mini_mult = 0;
    apply_symbolic_methods = 0;
    pass_args_in_regs = 0;
    program_mode = -1;
    source_interlist = 0;
    unsigned_index_wraps = 1;
    unsigned_ok_for_RPTB = 0;
    volit_vars = 0;
    max_unrolled_loop_size = 195;
    old_const_pointer_behavior = 0;
    chars_alias_other_types = 1;
    loop_increments_are_not_zero = 0;
    use_g2 = 0;
    GO_FOR_INSTRUMENTATION = false;
    std::memset(aux_cmd_flag, 0, sizeof aux_cmd_flag);
}

namespace {

bool is_level_0(const option_obj* options) {
    const long value = options->getnumarg(46, 0);
    return options->is_present(46) && (value == 33 || value == 38);
}

void switches(const option_obj* options, int number, const char* prefix) {
    for (int i = 0; i < options->argcount(number); i++)
        process_debug_option(prefix, options->getstrarg(number, i));
}

} // namespace

void set_global_flags(option_obj* options) {
    int last = 0;
    for (const auto& [number, word] : options->export_option_pairs()) {
        if (number == last) continue; // a repeated option was taken with all its words
        last = number;
        const long value = options->getnumarg(number, 0);
        switch (number) {
            case 1:
                if (value == 2) {
                    TYPE_PKG::abi = 1;
                    decode_mangle_scheme = 1;
                }
                break;
            case 3: alias_vars = 1; break;
            case 6: memory_is_big_endian = 1; break;
            case 8: program_mode = static_cast<int>(value); break;
            case 11: switches(options, number, "debug"); break;
            case 14: switches(options, number, "disable"); break;
            case 16: dump_ocg_in_GDL = static_cast<int>(value); break;
            case 18: dwim_loops = 1; break;
            case 19: switches(options, number, "enable"); break;
            case 20: memory_is_big_endian = value == 8 ? 1 : 0; break;
            case 21: far_externs = 1; break;
            case 23:
                if (value == 14) strict_fp = 1;
                if (value == 13) strict_fp = 0;
                break;
            case 33: kr_flag = 1; break;
            case 36: max_unrolled_loop_size = static_cast<int>(value); break;
            case 39:
                dwim_aliases = 1;
                dwim_loops = 1;
                break;
            case 41: code_is_reentrant = 0; break;
            case 46:
                if (value < 33 || value > 38) {
                    std::fprintf(stderr, "--opt_level given invalid value: %ld\n", value);
                    abort_optimizer();
                }
                break;
            case 48: source_interlist = 1; break;
            case 49: pass_args_in_regs = 1; break;
            case 51: remove_hooks_when_inlining = 1; break;
            case 56: inline_single = 1; break;
            case 57:
                if (value < 43 || value > 48) {
                    std::fprintf(stderr, "--size_speed_goal given invalid value:  %ld\n", value);
                    abort_optimizer();
                }
                break;
            case 58: cache_sys_funinfo = 1; break;
            case 59: cache_sys_funinfo = 2; break;
            case 60: cache_sys_funinfo = 0; break;
            case 61: GO_FOR_INSTRUMENTATION = true; break;
            case 63: unsigned_ok_for_RPTB = 1; break;
            case 65: old_const_pointer_behavior = 1; break;
            case 66: use_g2 = 1; break;
            case 67: use_g2 = 0; break;
            case 70: volit_vars = 1; break;
            default: break;
        }
    }
    if (!file_options->is_present(50)) std::memset(aux_cmd_flag, 0, sizeof aux_cmd_flag);
    if (dwim_aliases) {
        alias_vars = 0;
        chars_alias_other_types = 0;
        pointer_args_are_disjoint = 1;
    }
    if (pass_debug("noinstrument") != 0) GO_FOR_INSTRUMENTATION = false;
    if (dwim_loops) loop_increments_are_not_zero = 1;
    if (is_level_0(options)) alias_vars = 1;
    for (const option_obj* set : all_option_sets)
        if (is_level_0(set)) {
            inhibit_clustering = 1;
            break;
        }
}

void restore_global_flags() {
    if (!print_debug) return;
    std::fprintf(fdebug, "[Restoring options");
    std::fprintf(fdebug, " --> -o%d -i%d", opt_level(), auto_inline());
    std::fprintf(fdebug, " --opt_for_speed=%d", size_speed_goal());
    std::fprintf(fdebug, "]\n");
}

// --- Accessors. A function may carry an option set of its own.

namespace {

const option_obj* options_in_force() {
    if (currfunc != nullptr && currfunc->option_set < all_option_sets.size())
        return all_option_sets[currfunc->option_set];
    return file_options;
}

// The value of a named-value option, or -1 when it is absent.
long value_in_force(int number) {
    const option_obj* options = options_in_force();
    return options != nullptr && options->is_present(number) ? options->getnumarg(number, 0) : -1;
}

bool is_in_force(int number) {
    const option_obj* options = options_in_force();
    return options != nullptr && options->is_present(number);
}

} // namespace

int opt_level() {
    switch (value_in_force(46)) {
        case 33:
        case 38: return 0;
        case 35: return 2;
        case 36: return 3;
        case 37: return 4;
        default: return 1;
    }
}

int size_speed_goal() {
    switch (value_in_force(57)) {
        case 43: return 5;
        case 44: return 0;
        case 45: return 3;
        case 46: return 2;
        case 48: return 1;
        default: return 4;
    }
}

int auto_inline() {
    if (is_in_force(4)) return static_cast<int>(value_in_force(4));
    switch (value_in_force(46)) {
        case 35: return 20;
        case 36:
        case 37: return default_o3_auto_inline;
        default: return 0;
    }
}

bool auto_inline_is_given() { return is_in_force(4); }
bool inlining_is_forbidden() { return is_in_force(34); }
bool inlining_keeps_size() { return is_in_force(35); }
bool fp_add_is_associative() { return value_in_force(24) != 15; }
bool saturating_add_is_associative() { return value_in_force(53) == 40; }
int interrupt_threshold() {
    return is_in_force(30) && is_in_force(31) ? static_cast<int>(value_in_force(31)) : 0;
}
bool use_llvm() { return is_in_force(68); }
bool arm_neon() { return false; }
