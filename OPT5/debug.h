// Debug switches and global flags.

#ifndef OPT5_DEBUG_H
#define OPT5_DEBUG_H

class option_obj;

// --- Debug switches: named integers, 0 unless set on the command line or by an option set.

int pass_debug(const char* name);
int pass_enable(const char* name);
int pass_disable(const char* name); // reduced to 0 or 1
// Sets every item of the comma-separated text: "name" (1) or "name=value" (any base).
void process_debug_option(const char* prefix, const char* text);

// A switch declared at file level, with its full key ("enable:fusion").
class register_option {
  public:
    explicit register_option(const char* key);
    operator int() const;
    operator bool() const;
    register_option& operator=(int value);
    static bool is_registered(const char* key);
    static const char** options;
    static int num;

  private:
    const char* key_;
};

// --- Global flags: defaults, overwritten from the file's option set.

extern int alias_vars, inline_single, cache_sys_funinfo, code_is_reentrant, dump_ocg_in_GDL, dwim_aliases,
    dwim_loops, far_externs, kr_flag, memory_is_big_endian, memory_model, pointer_args_are_disjoint,
    strict_fp, mini_mult, apply_symbolic_methods, pass_args_in_regs, program_mode, source_interlist,
    unsigned_index_wraps, unsigned_ok_for_RPTB, volit_vars, max_unrolled_loop_size,
    old_const_pointer_behavior, chars_alias_other_types, loop_increments_are_not_zero, use_g2;
extern int remove_hooks_when_inlining, inhibit_clustering, decode_mangle_scheme;
extern char aux_cmd_flag[10];
extern int default_o3_auto_inline;

void reset_global_flags();
void set_global_flags(option_obj* options);
void restore_global_flags();

// --- Settings of the option set in force: that of currfunc, or the file's. Ask at the moment of use.

int opt_level();              // 0 to 4
int size_speed_goal();        // 0 to 5: the weight of speed; 4 is the default
int auto_inline();            // largest size of a function that is inlined unasked; 0 for none
bool auto_inline_is_given();  // by an option of its own, not by the level
bool inlining_is_forbidden(); // but for functions that are always inlined
bool inlining_keeps_size();   // the goal does not change what inlining may add to the size
bool fp_add_is_associative();
bool saturating_add_is_associative();
int interrupt_threshold();
bool use_llvm();
bool arm_neon();

#endif
