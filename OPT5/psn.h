// Source positions and interned text.

#ifndef OPT5_PSN_H
#define OPT5_PSN_H

#include <string_view>

// A position in the source program. A null PSN* means "no position"; a PSN whose file is null is a
// position in an unnamed file and is written as "NO_FILE".
struct PSN {
    const char* file; // interned (see intern_text), or null
    unsigned line;    // from 1; 0 when unknown
    unsigned column;  // from 1; 0 when unknown
};

// Returns the one copy of `text` that lives to the end of the run. Equal texts give equal pointers, so
// interned texts may be compared by pointer.
const char* intern_text(std::string_view text);

#endif
