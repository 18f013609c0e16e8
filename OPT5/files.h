// The run's files, its process-wide state and the ways it can end.

#ifndef OPT5_FILES_H
#define OPT5_FILES_H

#include <cstdio>
#include <string>
#include <vector>

class I_FILE;
class SYMTAB;
class TYPE_PKG;
class option_obj;
struct FUNINFO;
struct OPTION_SET;

extern I_FILE* i_file;
extern I_FILE* o_file;
extern char i_file_name[2048];
extern char o_file_name[2048];
extern char bug_file_name[2048];
extern std::FILE* fdebug; // null until opened
extern std::FILE* finfo;  // null until opened
extern int print_debug;
extern int write_opt_info;

extern option_obj* cmdline_options;
extern std::vector<option_obj*> all_option_sets; // by set number; never empty once files are open
extern option_obj* file_options;
extern std::vector<OPTION_SET> icode_optionlist;

extern TYPE_PKG* tp;
extern SYMTAB* currfunc;
extern FUNINFO* currfuninfo;
extern std::vector<SYMTAB*> functions; // to process, in processing order
extern SYMTAB* global_symbols;         // head of the list of globals
extern int user_error_count;
extern bool do_MDF_vectorization; // vectorisation is asked for

void open_files(int argc, char** argv);
void close_files();
void open_debug_file(int fatal, const char* suffix);
const char* next_arg();
void emit_cmd_line_text();

// End the run as an internal error: no partial output survives, status 1.
[[noreturn]] void abort_optimizer();
[[noreturn]] void abort_optimizer(const char* text);
[[noreturn]] void optassert(const char* expression, const char* file, int line);

#define OPTASSERT(expression)                                                                                \
    do {                                                                                                     \
        if (!(expression)) optassert(#expression, __FILE__, __LINE__);                                       \
    } while (false)

// Debug printer: nothing unless print_debug; writes to fdebug and flushes. A failure of either is an
// internal error.
void dprintf(const char* format, ...) __attribute__((format(printf, 1, 2)));

#endif
