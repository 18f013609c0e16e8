// Function records and the call graph.

#ifndef OPT5_FILEOPT_H
#define OPT5_FILEOPT_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include "if_client.h"
#include "pool.h"
#include "snmap.h"
#include "spmap.h"
#include "stack_sharing.h"

class BBLK;
class BITVEC;
class Dominator;
class LS;
class NODE;
class SYMTAB;
class TYPE;
struct CALLSITE;
struct FUNINFO;
struct LBL;
struct LIST;
struct LOOP;
struct PRAGMA;
struct PSN;

// Flags of a FUNINFO.
enum FUN_FLAGS : std::uint32_t {
    FUN_calls_anonymous = 1u << 0, // makes an indirect call
    FUN_cannot_suppress = 1u << 1, // the out-of-line body must be kept
    FUN_is_unsuppressed = 1u << 2, // was marked for suppression and taken back
    FUN_never_returns = 1u << 3,
    FUN_calls_OUTSIDE = 1u << 4, // may call code outside this file
    FUN_cannot_inline = 1u << 5,
    FUN_is_suppressed = 1u << 6, // all sites inlined: no out-of-line body is emitted
    FUN_no_global_asg = 1u << 7,
    FUN_no_global_use = 1u << 8,
    FUN_is_referenced = 1u << 9, // retained by its symbol's retention state
    FUN_calls_SYSTEM = 1u << 10, // calls a library function not defined here
    FUN_is_processed = 1u << 11, // the pipeline has finished with it
    FUN_is_anonymous = 1u << 12, // its address is taken
    FUN_is_interrupt = 1u << 13,
    FUN_follows_call = 1u << 14, // sits on a back edge of the ordered graph
    FUN_value_needed = 1u << 15, // some call uses the result
    FUN_no_byref_asg = 1u << 16,
    FUN_is_pure_fun = 1u << 17,
    FUN_cannot_beta = 1u << 18, // its parameters must not be specialised
    FUN_no_RPT_loop = 1u << 19,
    FUN_is_inlined = 1u << 21, // an integrable definition exists
    FUN_no_ind_asg = 1u << 22,
    FUN_no_ind_use = 1u << 23,
    FUN_is_cg_root = 1u << 24, // called from the anonymous root
    FUN_is_called = 1u << 26,
    FUN_is_extern = 1u << 27,
    FUN_is_SYSTEM = 1u << 28, // library function known by name
    FUN_has_1_BB = 1u << 29,
    FUN_is_main = 1u << 30,
    FUN_is_cpp = 1u << 31
};

// Bits of FILEINFO::flags.
enum FILE_FLAGS : std::uint8_t {
    FILE_has_main = 1,
    FILE_has_entry = 2,      // an entry function
    FILE_has_extern = 4,     // an external function
    FILE_calls_may_leave = 8 // a call that may leave the file
};

// One direct callee of a function.
struct CALL_EDGE {
    FUNINFO* callee;
    unsigned ncalls; // never 0
    CALL_EDGE* next;
    bool is_certain; // one of the calls is made whenever the caller's block with it is entered
};

struct FUNLIST {
    FUNINFO* fun;
    FUNLIST* next;
};

// Everything known of one function that the file defines or mentions. Records live to the end of the run;
// a function's body lives in its pool until erase_all.
struct FUNINFO {
    SYMTAB* symbol = nullptr; // null for a record known only by name
    CALL_EDGE* callees = nullptr;
    std::vector<SYMTAB*> fl_statics; // function-local statics of this function
    CALL_EDGE* dfs_cursor = nullptr;
    std::shared_ptr<const BITVEC>
        reachable;                  // transitive callees by cg_number, the same object in all functions
                                    // of a cycle; null before detect_recursion and in a huge file
    std::int32_t cycle = -1;        // functions that can reach one another bear one number; -1: not known
    bool shares_cycle = false;      // another function, or the library, is on that cycle
    std::uint32_t address_uses = 0; // places where the address is taken
    bool is_synonym = false;        // a call of this function amounts to a call of another one:
    FUNINFO* synonym_of = nullptr;  // of this one; null where the file does not have it
    FUNINFO* last_caller = nullptr; // whose edge to this function is `last_edge`
    CALL_EDGE* last_edge = nullptr;
    TYPE* return_type = nullptr;
    std::vector<EHT_ENTRY> eht;
    PSN* psn = nullptr;     // of the definition
    PSN* end_psn = nullptr; // of the end of function record
    PSN* args_psn = nullptr;
    PSN* locals_psn = nullptr;
    std::uint32_t flags = 0;     // FUN_FLAGS
    std::int32_t size = 0;       // body size in units of scan_for_funinfo
    std::int32_t cg_number = -1; // position in the ordered call graph
    std::uint16_t nCallers = 0;
    std::int16_t nArgs = 0;                  // common to all calls; -1 when unknown
    std::uint32_t profile_state = 0;         // 0 none, 1 being built, 2 profiled
    std::uint32_t entry_count = 0xffffffffu; // profiled entries; all ones: unknown
    std::uint32_t unique_call_index = 0;     // call sites numbered so far
    std::vector<bool>
        inlined_sites; // by unique_call_index: the site is to be integrated; false behind its end
    std::uint16_t remaining_sites = 0; // call sites of this function that are not to be integrated
    std::uint32_t est_size = 0, est_bbs = 0, est_syms = 0, est_loops = 0, est_calls = 0; // see inliner.h
    std::int32_t pressure = 0;                                                           // register pressure
    std::uint32_t density = 0;        // executed units, over all blocks
    std::vector<CALLSITE*> callsites; // of the calls in this function; see inliner.h
    std::string name;                 // without prefix
    const char* source_file = "NO_PSN_FILE";

    // The body, alive from reading to "output function".
    POOL pool;
    BBLK* bb_list = nullptr; // first block; its `prev` is the last, the exit block
    std::int32_t bb_count = 0;
    std::vector<BBLK*> blocks;  // by id
    LIST* statements = nullptr; // while reading: statement list, last statement first
    SYMTAB* params = nullptr;   // in order
    SYMTAB* locals = nullptr;   // in order
    SYMTAB* temps = nullptr;    // newest first
    SYMTAB* params_tail = nullptr;
    SYMTAB* locals_tail = nullptr;
    LS* scopes = nullptr;          // root of the function's scope tree
    LS* open_scope = nullptr;      // while reading: the innermost open scope
    LS* body_scope = nullptr;      // of the outermost locals
    std::uint32_t scope_count = 0; // scopes so far
    int scope_depth = 0;           // the deepest level
    STACK_SHARING stack_sharing;   // until the step of that name
    LBL* labels = nullptr;
    std::int32_t next_label = -1; // internal labels count down
    std::int32_t next_temp = 0;
    std::uint32_t next_serial = 0; // symbols of the function so far
    bool flow_is_stale = true;     // cached flow information is no longer valid
    bool dfn_is_valid = false;
    std::shared_ptr<Dominator> dominators; // null until compute_dominators
    bool has_no_calls = true;              // kept only by functions without calls
    bool names_register_symbol = false;    // a NAME of a symbol with bit 4 of `cqual` was read
    std::uint32_t fields_seen = 0;         // FIELD nodes of bit-fields
    bool is_defined = false;               // its body has been read
    bool is_nonconforming = false;         // a library name with another meaning
    bool is_listed = false;                // among the undefined callees of the file
    bool is_left_out = false;              // off the list of functions to compile, as it is suppressed
    SNMAP snmap;                           // values of symbols, while a propagation is under way
    SPMAP spmap;                           // pointees of pointers that are assigned once
    std::vector<PRAGMA*> owned_pragmas;    // of the body's statements and symbols; freed by erase_all

    // The integrable definition: a private copy of the body, with a pool, blocks, symbols, scopes and an
    // exception table of its own. Null where there is none. See copy_cfg.h.
    std::unique_ptr<FUNINFO> integrable_cfg;

    FUNINFO() = default;
    ~FUNINFO(); // frees the pragmas that it owns; all else belongs to the pool
    FUNINFO(const FUNINFO&) = delete;
    FUNINFO& operator=(const FUNINFO&) = delete;

    // The integrable definition as statements, in order, while the file is being read: symbols with numbers
    // from 0, parameters first; the tree of scopes by their numbers. See integrate_stmts.h.
    SYMTAB* integrable_symbols = nullptr;
    LIST* integrable_body = nullptr; // null where there is none
    std::vector<EHT_ENTRY> integrable_eht;
    std::vector<int> scope_parent, scope_level, scope_open, scope_close;
    std::uint32_t integrated_calls = 0; // of this function, in statement form

    std::vector<BBLK*>& serial_objects(BBLK*) { return blocks; }
};

inline bool TEST_FLAG(const FUNINFO* f, std::uint32_t mask) { return (f->flags & mask) != 0; }

// Whether no code is to be written for the function, as all its calls are integrated.
inline bool is_suppressed(const FUNINFO* f) {
    return (f->flags & (FUN_is_suppressed | FUN_cannot_suppress)) == FUN_is_suppressed;
}

// The file-wide anchor of the call graph.
struct FILEINFO {
    std::vector<FUNINFO*> defined;   // defined functions
    std::vector<FUNINFO*> ordered;   // call-graph order, the root first; empty until built
    FUNINFO* root = nullptr;         // the anonymous root, " ? "
    std::uint8_t flags = 0;          // FILE_FLAGS
    std::vector<FUNINFO*> anonymous; // functions whose address is taken
    std::vector<FUNINFO*> undefined_SYSTEM, undefined_OUTSIDE; // callees without a body here
    std::vector<FUNINFO*> synonyms;                            // those with a `synonym_of`
    std::unordered_set<const char*> asm_names; // words of assembly texts, interned; never walked
    std::size_t definition_count = 0;          // integrable definitions in memory
    std::size_t released = 0;           // functions of the ordered list that nobody will integrate any more
    std::uint32_t indirect_callers = 0; // functions with FUN_calls_anonymous
    bool is_cpp = false;                // the file is in C++
    bool is_built = false;              // the ordered list stands, empty or not
    bool globals_are_analyzed = false;  // analyze_global_symbols has run
    bool recursion_is_known = false;    // detect_recursion has run
    bool callees_are_reported = false;  // the undefined callees stand in the information file
    bool summary_is_open = false, summary_is_closed = false; // its section on the whole file
};
extern FILEINFO fileinfo;
extern int no_outside_callers, no_outside_writers, whole_file_mode;

void init_proc_integration();          // empties the record map
POOL& record_pool();                   // where the records' call edges live
void init_fileopts();                  // modes, anonymous root
FUNINFO* make_FUNINFO(SYMTAB* symbol); // finds or makes
FUNINFO* make_FUNINFO(const char* name);
FUNINFO* find_FUNINFO(SYMTAB* symbol); // null when there is none
FUNINFO* find_FUNINFO(const char* name);
FUNINFO* find_FUNINFO_for_call(NODE* call); // null when the callee cannot be told
bool function_is_defined(const FUNINFO* function);
bool is_system_function(const char* name);
// Collects what the body says: effects, size, call edges. To be called once its flow graph stands.
void preprocess_fundef(FUNINFO* function);
// One tree of a body, for preprocess_fundef. `stmt_level` tells that the value is discarded, `in_prolog` that
// the tree receives parameters.
void scan_for_funinfo(NODE* tree, bool stmt_level, FUNINFO* function, bool in_prolog);
// One tree of an exception table: direct callees keep their bodies.
void scan_for_calls_and_uses(NODE* tree);
// One tree of an initialiser: functions and globals that it names.
void scan_initialiser(NODE* tree);
// Remembers the names in an assembly text: the globals that bear them may be used there in any way.
void note_names_in_assembly(const char* text);
// Marks these globals.
void mark_names_in_assembly();
// Gives every global the marks CQ_REFERENCED, CQ_WRITTEN and CQ_ADDRESS_TAKEN that the bodies of the ordered
// functions and all initialisers ask for, in place of those it has.
void derive_marks_of_globals();
// Adds the marks of one function's body. Nothing is taken back.
void add_marks_of_body(FUNINFO* function);
// Adds or counts a call edge. `is_certain` tells that the call is not left out when its statement is reached.
void add_call_edge(FUNINFO* caller, FUNINFO* callee, bool value_is_discarded, bool is_certain = true);
// Whether the linker may put another definition in the place of this one.
bool symbol_is_preemptible(const SYMTAB* symbol);
bool symbol_is_protected(const SYMTAB* symbol); // the linker takes this one inside its own module
// The function, or the whole file where null is given, is written in C++.
void note_file_is_cpp(FUNINFO* function);
// Takes from the caller's effects what the callee (null: an unknown function) does not promise.
void merge_callee_effects(FUNINFO* caller, const FUNINFO* callee);
// Closes and orders the call graph, once; effects are propagated; the marks of globals are those of the code
// that is left. Linear in functions and edges.
void set_up_and_build_call_graph();
// All that is found out about the whole file, in the order of the steps 3 to 8; what has run does not run
// again.
void analyze_call_graph();
// Opens and closes the information file's section on the whole file; each does nothing but once.
void open_file_summary();
void close_file_summary();
// A sentence "FILE, line N: text." about a function or a global to the information file, where there is one;
// `psn` may be null.
void info_sentence(const PSN* psn, const char* format, ...) __attribute__((format(printf, 2, 3)));
// Writes the record to the debug file.
void dump_FUNINFO(const FUNINFO* function, const char* heading);
// The end of a run: decides the retention of every global and writes the initialisers.
void closing_run_over_globals();
// Step 7: lists the ordered functions in the debug file, and draws the graph if the driver's option asks.
void dump_call_graph_debug();
// Step 10: orders `functions` by the call graph and drops the ones that need no code.
void set_call_graph_order();
// What C++ makes of a function.
bool fun_is_cpp_constructor(const FUNINFO* function);
bool fun_is_cpp_destructor(const FUNINFO* function);
bool fun_is_cpp_static_initializer(const FUNINFO* function);
bool fun_is_cpp_op_new(const FUNINFO* function);

#endif
