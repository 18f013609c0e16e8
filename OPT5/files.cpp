// Opening and closing the run's files, and every way the run can end.
//
// The output is written beside its final name and renamed when it is complete, so that a run that fails on
// its input leaves behind what was there before, and the input may be the output. Links are followed first.
// A target that is no regular file is written directly; it must be able to seek, as the header comes last.

#include "files.h"

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <unordered_set>

#include <sys/stat.h>
#include <unistd.h>

#include "DIAG/diag.h"
#include "debug.h"
#include "fileopt.h"
#include "if_file.h"
#include "option_obj.h"
#include "profile.h"
#include "read.h"
#include "symbol.h"
#include "types.h"
#include "version.h"
#include "write.h"

I_FILE* i_file = nullptr;
I_FILE* o_file = nullptr;
char i_file_name[2048];
char o_file_name[2048];
char bug_file_name[2048];
std::FILE* fdebug = nullptr;
std::FILE* finfo = nullptr;
int print_debug = 0;
int write_opt_info = 0;

option_obj* cmdline_options = nullptr;
std::vector<option_obj*> all_option_sets;
option_obj* file_options = nullptr;
std::vector<OPTION_SET> icode_optionlist;

TYPE_PKG* tp = nullptr;
SYMTAB* currfunc = nullptr;
FUNINFO* currfuninfo = nullptr;
std::vector<SYMTAB*> functions;
SYMTAB* global_symbols = nullptr;
int user_error_count = 0;
bool do_MDF_vectorization = false;

namespace {

int remembered_argc = 0;
char** remembered_argv = nullptr;
int argument_cursor = 0;

// The name that the output is written under until it is complete; empty when there is nothing to remove. An
// array, as signal handlers and exit handlers read it.
char temporary_name[PATH_MAX + 32];
// What the temporary replaces in the end: the output file's name with its links resolved.
char output_target[PATH_MAX];

void remove_temporary() {
    if (temporary_name[0] != '\0') unlink(temporary_name);
    temporary_name[0] = '\0';
}

// `name` with everything from the last dot of its last component on replaced by `extension`.
std::string with_extension(const char* name, const char* extension) {
    std::string text = name;
    const std::size_t slash = text.rfind('/');
    const std::size_t dot = text.rfind('.');
    if (dot != std::string::npos && (slash == std::string::npos || dot > slash + 1) && dot != 0)
        text.resize(dot);
    return text + extension;
}

bool same_file(const char* a, const char* b) {
    struct stat x, y;
    return stat(a, &x) == 0 && stat(b, &y) == 0 && x.st_dev == y.st_dev && x.st_ino == y.st_ino;
}

void set_name(char (&buffer)[2048], const char* name) {
    if (std::strlen(name) >= sizeof buffer) {
        std::fprintf(stderr, "opt5: file name too long: %.64s...\n", name);
        std::exit(1);
    }
    std::strcpy(buffer, name);
}

// --- Signals.

void handle_signal(int signal) {
    // Some signals end the process without the callback.
    remove_temporary();
    const char* function = "<unknown>";
    if (plausible_pointer(currfunc) && plausible_pointer(currfunc->name)) function = currfunc->name;
    common_signal_handler(signal, remembered_argv != nullptr ? remembered_argv[0] : nullptr,
                          "while processing function %s file %s", function, i_file_name);
}

void end_logs(int signal) {
    std::fflush(nullptr);
    if (print_debug && fdebug != nullptr) {
        std::fprintf(fdebug, "\n>>>> Optimizer terminated by signal: %s.\n", signal_name(signal));
        std::fclose(fdebug);
        fdebug = nullptr;
    }
    if (write_opt_info && finfo != nullptr) {
        std::fprintf(finfo, "\n>>>> Optimizer terminated by signal: %s.\n", signal_name(signal));
        std::fclose(finfo);
        finfo = nullptr;
    }
}

// --- Parts of open_files.

// Walks the command line; returns the count of positional words.
int read_command_line() {
    int positional = 0;
    for (argument_cursor = 1; argument_cursor < remembered_argc;) {
        const char* word = remembered_argv[argument_cursor++];
        if (word[0] == '-') {
            cmdline_options->process_option(word + 1, 0);
            continue;
        }
        if (positional == 0)
            set_name(i_file_name, word);
        else if (positional == 1)
            set_name(o_file_name, word);
        else if (positional > 2)
            std::fprintf(stderr, "\n>>>> OPTIMIZER ERROR: Unexpected options: %s %s %s\n", i_file_name,
                         o_file_name, word);
        positional++;
    }
    return positional;
}

void replay(option_obj* options, const option_obj* source) {
    for (const auto& [number, word] : source->export_option_pairs())
        options->process_option(word.c_str() + 1, 0);
}

void build_option_sets() {
    if (icode_optionlist.empty()) {
        all_option_sets.push_back(new option_obj(true));
        replay(all_option_sets[0], cmdline_options);
        return;
    }
    constexpr std::size_t MAX_SETS = 0x1fc00000;
    if (icode_optionlist.size() > MAX_SETS) throw std::bad_array_new_length();
    all_option_sets.resize(icode_optionlist.size(), nullptr);
    for (const OPTION_SET& set : icode_optionlist) {
        if (set.number >= all_option_sets.size() || all_option_sets[set.number] != nullptr) {
            std::fprintf(stderr, "opt5: %s: option set %u is out of place\n", i_file_name, set.number);
            std::exit(1);
        }
        auto* options = new option_obj(true);
        all_option_sets[set.number] = options;
        if (!cmdline_options->is_present(10))
            for (const std::string& word : set.words)
                options->process_option(word.empty() ? "" : word.c_str() + 1,
                                        static_cast<int>(set.number) + 1);
        replay(options, cmdline_options);
    }
}

void open_info_file() {
    const long level = file_options->is_present(46) ? file_options->getnumarg(46, 0) : 0;
    if (level != 36 && level != 37 && !file_options->is_present(50)) {
        file_options->clear(27);
        return;
    }
    if (file_options->getnumarg(27, 0) == 0) return;
    char name[500];
    const char* given = file_options->getstrarg(45, 0);
    std::snprintf(name, sizeof name, "%s",
                  given != nullptr ? given : with_extension(i_file_name, ".nfo").c_str());
    finfo = std::fopen(name, "w");
    if (finfo == nullptr) {
        std::fprintf(stderr, "\n>> Cannot Open Info File, %s : %s, Aborting\n", name, std::strerror(errno));
        std::exit(1);
    }
    write_opt_info = static_cast<int>(file_options->getnumarg(27, 0));
    option_obj::print_banner(finfo);
    std::fprintf(finfo, "Build Number %s\n", OPTIMIZER_VERSION);
}

// A stream that writes into the target itself, or null with errno set.
std::FILE* open_in_place() {
    std::FILE* stream = std::fopen(o_file_name, "wb");
    if (stream == nullptr || std::fseek(stream, 0, SEEK_CUR) == 0) return stream;
    const int reason = errno;
    std::fclose(stream);
    errno = reason;
    return nullptr;
}

// Opens a new file in the folder of `output_target`, with `mode` as its permissions, and sees to it that no
// way of ending leaves it behind. Null with errno set on failure.
std::FILE* open_temporary(mode_t mode) {
    const std::string target = output_target;
    const std::size_t slash = target.rfind('/');
    char name[sizeof temporary_name];
    std::snprintf(name, sizeof name, "%s.opt5-XXXXXX",
                  slash == std::string::npos ? "" : target.substr(0, slash + 1).c_str());
    const int descriptor = mkstemp(name);
    if (descriptor < 0) return nullptr;
    std::strcpy(temporary_name, name);
    std::atexit(remove_temporary);
    if (fchmod(descriptor, mode) != 0) return nullptr;
    return fdopen(descriptor, "wb");
}

std::FILE* open_output() {
    struct stat status;
    if (stat(o_file_name, &status) == 0) {
        if (!S_ISREG(status.st_mode)) return open_in_place();
        // What cannot be overwritten must not be replaced either.
        if (access(o_file_name, W_OK) != 0) return nullptr;
        // A deleted file that still has a descriptor's name has no folder to put another into.
        if (realpath(o_file_name, output_target) == nullptr) return open_in_place();
        return open_temporary(status.st_mode & 07777);
    }
    std::strcpy(output_target, o_file_name);
    const mode_t mask = umask(0);
    umask(mask);
    return open_temporary(0666 & ~mask);
}

} // namespace

const char* next_arg() {
    return argument_cursor < remembered_argc ? remembered_argv[argument_cursor++] : nullptr;
}

void open_files(int argc, char** argv) {
    cmdline_options = new option_obj(true);
    if (argc > 0) option_obj::executable_name = argv[0];
    option_obj::next_arg = next_arg;
    remembered_argc = argc;
    remembered_argv = argv;
    install_common_handlers(handle_signal, end_logs);
    const int positional = read_command_line();

    std::FILE* stream = std::fopen(i_file_name, "rb");
    if (stream == nullptr) {
        std::fprintf(stderr, "\n>> Cannot Open Input icode File, %s : %s, Aborting\n", i_file_name,
                     std::strerror(errno));
        std::exit(1);
    }
    errno = 0;
    i_file = I_FILE::if_open(stream, &opt_client, i_file_name);
    if (i_file == nullptr) {
        std::fclose(stream);
        std::fprintf(stderr, "\n>> Error when opening input icode file : %s: %s, Aborting\n", i_file_name,
                     errno != 0 ? std::strerror(errno) : "not an icode file that this version reads");
        std::exit(1);
    }

    build_option_sets();
    if (all_option_sets[0] == nullptr) all_option_sets[0] = new option_obj(true);
    file_options = all_option_sets[0];
    if (file_options->is_present(17)) {
        option_obj::dump(file_options, 0);
        std::exit(0);
    }
    reset_global_flags();
    set_global_flags(file_options);

    tp = new TYPE_PKG;
    tp->init_type_pkg();
    i_file->if_type_init(tp);

    if (file_options->is_present(50)) {
        if (file_options->getnumarg(27, 0) == 0) file_options->set(27, "1");
        const long goal = file_options->is_present(57) ? file_options->getnumarg(57, 0) : 0;
        if (goal == 44 || goal == 45 || goal == 46 || goal == 48)
            std::fprintf(stderr, "\n\t*** Optimizing code size, not speed ***\n\n");
    }

    switch (positional) {
        case 1: set_name(o_file_name, with_extension(i_file_name, ".opt").c_str()); break;
        case 2: break;
        case 0:
            std::fprintf(stderr, "Usage: %s [-options] filename\n", option_obj::executable_name);
            std::exit(1);
        default: std::fprintf(stderr, "\n>>>> OPTIMIZER ERROR: Garbage on command line\n\n"); std::exit(1);
    }

    open_info_file();
    if (file_options->is_present(50)) {
        open_debug_file(1, nullptr);
        print_debug = static_cast<int>(file_options->getnumarg(50, 0));
    }
    do_MDF_vectorization =
        pass_debug("SIMD") != 0 || (file_options->is_present(69) && file_options->getnumarg(69, 0) == 50);
    init_proc_integration();
    load_profile();

    stream = open_output();
    if (stream == nullptr) {
        std::fprintf(stderr, "\n>> Cannot Open Output icode File, %s : %s, Aborting\n", o_file_name,
                     std::strerror(errno));
        std::exit(1);
    }
    o_file = I_FILE::if_create(stream, tp, i_file->producer(), o_file_name);
    for (const OPTION_SET& set : icode_optionlist) o_file->if_enter_option_set(set.number, set.words);

    if (volit_vars) {
        constexpr char WARNING[] = "\n>>>> Warning: All non-auto lvalues are considered VOLATILE.\n\n";
        if (fdebug != nullptr) std::fputs(WARNING, fdebug);
        std::fputs(WARNING, stderr);
    }
    emit_cmd_line_text();
}

void emit_cmd_line_text() {
    if (remembered_argc == 0) return;
    std::string text = ";\t";
    for (int i = 0; i < remembered_argc; i++) {
        if (i > 0) text += ' ';
        text += remembered_argv[i];
    }
    remembered_argc = 0;
    std::snprintf(bug_file_name, sizeof bug_file_name, "%s", text.c_str());
    wrasmr(REC_COMMENT, bug_file_name, nullptr);
    if (!print_debug) return;
    for (const OPTION_SET& set : icode_optionlist) {
        std::fprintf(fdebug, "Option set %d%s:\n", static_cast<int>(set.number),
                     set.number == 0 ? " (file-level options)" : "");
        for (const std::string& word : set.words) std::fprintf(fdebug, "\t%s\n", word.c_str());
    }
}

void open_debug_file(int fatal, const char* suffix) {
    if (fdebug != nullptr && suffix == nullptr) return;
    constexpr std::size_t MAX_STEM = 250;
    std::string name = with_extension(i_file_name, "");
    if (suffix != nullptr) {
        // The name of a function may hold anything, but the file stays in the input's folder.
        std::string part = suffix;
        for (char& c : part)
            if (c == '/') c = '_';
        name += "." + part;
    }
    if (name.size() > MAX_STEM) name.resize(MAX_STEM);
    name += ".odb";
    std::snprintf(bug_file_name, sizeof bug_file_name, "%s", name.c_str());
    if (fdebug != nullptr) std::fprintf(fdebug, ">>>> SWITCHING LOG TO %s\n", bug_file_name);
    // A function comes back to its log behind every barrier.
    static std::unordered_set<std::string> opened;
    std::FILE* stream = std::fopen(bug_file_name, opened.insert(bug_file_name).second ? "w" : "a");
    if (stream == nullptr) {
        std::fprintf(stderr, "\n>> Cannot Open Debug File, %s : %s, Aborting\n", bug_file_name,
                     std::strerror(errno));
        if (fatal) std::exit(1);
        stream = stderr;
    }
    fdebug = stream;
}

void close_files() {
    if (i_file != nullptr) I_FILE::if_close(i_file, false);
    i_file = nullptr;
    errno = 0;
    bool complete = o_file == nullptr || I_FILE::if_close(o_file, false) == 0;
    o_file = nullptr;
    if (complete && temporary_name[0] != '\0') {
        complete = std::rename(temporary_name, output_target) == 0;
        if (complete) temporary_name[0] = '\0';
    }
    if (!complete) {
        std::fprintf(stderr, "opt5: cannot write %s: %s\n", o_file_name,
                     errno != 0 ? std::strerror(errno) : "write error");
        std::exit(1);
    }
    if (print_debug) {
        std::fprintf(fdebug, "\n== END OF DEBUG OUTPUT==\n");
        std::fclose(fdebug);
        fdebug = nullptr;
    }
    if (write_opt_info) {
        std::fprintf(finfo, "\n== END OF INFO OUTPUT==\n");
        std::fclose(finfo);
        finfo = nullptr;
    }
}

// --- Internal errors.

void abort_optimizer() { abort_optimizer(nullptr); }

void abort_optimizer(const char* text) {
    const bool output_is_input = same_file(i_file_name, o_file_name);
    if (i_file != nullptr) I_FILE::if_close(i_file, true);
    if (o_file != nullptr) I_FILE::if_close(o_file, true);
    i_file = o_file = nullptr;
    remove_temporary();
    struct stat status;
    if (!output_is_input && stat(o_file_name, &status) == 0 && S_ISREG(status.st_mode))
        std::remove(o_file_name);

    if (print_debug && fdebug != nullptr) {
        std::fprintf(fdebug, "\n>>>> Optimizer terminated abnormally\n");
        if (text != nullptr) std::fprintf(fdebug, "\n>>>> %s.\n", text);
        std::fclose(fdebug);
        fdebug = nullptr;
    }
    std::fprintf(stderr, "\n>>>> Optimizer terminated abnormally.\n");
    if (currfunc != nullptr) {
        std::fprintf(stderr, ">>>>    in function %s()\n", currfunc->name);
        if (currfuninfo != nullptr && currfuninfo->source_file != nullptr)
            std::fprintf(stderr, ">>>>    in file \"%s\"\n", currfuninfo->source_file);
    }
    if (text != nullptr) std::fprintf(stderr, "\n>>>> %s.\n", text);
    std::fprintf(stderr, "%s", support_message_text());
    if (pass_debug("abort")) std::abort();
    std::exit(1);
}

void optassert(const char*, const char*, int) { abort_optimizer(); }

void dprintf(const char* format, ...) {
    if (!print_debug) return;
    va_list args;
    va_start(args, format);
    const int n = std::vfprintf(fdebug, format, args);
    va_end(args);
    OPTASSERT(n >= 0 && std::fflush(fdebug) == 0);
}
