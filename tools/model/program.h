// A whole intermediate file in memory, as the companion tools see it: types in a package of its own,
// globals with their initialisers, and every function as its list of records in file order.

#ifndef TOOLS_MODEL_PROGRAM_H
#define TOOLS_MODEL_PROGRAM_H

#include <memory>
#include <string>
#include <vector>

#include "OPT5/if_client.h"
#include "OPT5/if_file.h"
#include "OPT5/types.h"
#include "tools/model/tree.h"

namespace model {

// One record of a function's body that a reader of programs cares about.
struct body_item {
    enum class kind {
        symbol, // a parameter or local is declared: `sym`
        end_args,
        end_locals,
        begin_block,
        end_block,
        expr,     // `expr` is evaluated
        label,    // `number`
        assembly, // `text`
        comment,  // `text`
        pragma    // `prag`
    };
    kind what;
    PSN psn{};
    bool has_psn = false;
    tree* expr = nullptr;
    symbol* sym = nullptr;
    const PRAGMA* prag = nullptr;
    unsigned number = 0;
    std::string text;
};

struct function {
    symbol* sym = nullptr;
    PSN psn{};
    bool has_psn = false;
    std::vector<symbol*> params; // symbols of level 1, in order
    std::vector<body_item> body;
    std::vector<EHT_ENTRY> eht;
};

class program {
  public:
    program();
    ~program();
    program(const program&) = delete;
    program& operator=(const program&) = delete;

    // Reads the file of that name. False, with one line in `error`, when it cannot be opened or its header
    // is not that of an intermediate file; faults further in end the run (if_fatal).
    bool read(const std::string& file_name, std::string& error);
    // The same from an open stream, which it closes in every case. `name` stands in messages.
    bool read(std::FILE* stream, const std::string& name, std::string& error);

    pool nodes;
    TYPE_PKG types;
    std::string producer;
    std::vector<OPTION_SET> option_sets;
    std::vector<symbol*> globals;    // in file order
    std::vector<function> functions; // in file order
};

} // namespace model

#endif
