#include "bad_input.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "files.h"
#include "if_file.h"
#include "psn.h"
#include "symbol.h"

void bad_input(const PSN* psn, const char* format, ...) {
    std::fprintf(stderr, "%s: ", i_file_name);
    if (currfunc != nullptr) std::fprintf(stderr, "function %s: ", currfunc->name);
    if (psn != nullptr) std::fprintf(stderr, "line %u: ", psn->line);
    va_list arguments;
    va_start(arguments, format);
    std::vfprintf(stderr, format, arguments);
    va_end(arguments);
    std::fputc('\n', stderr);
    if (o_file != nullptr) {
        I_FILE::if_close(o_file, true);
        o_file = nullptr;
    }
    std::exit(1);
}
