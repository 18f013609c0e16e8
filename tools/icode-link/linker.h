// Merging of intermediate files.
//
// All files are read into one package of types, symbols first. External symbols of one name become one: a
// definition stands for the declarations of the other files. Types of one meaning become one. Then the bodies
// and initialisers are copied record by record, file after file; a reference to a symbol that has given way
// is written with the number of the one that stands for it.

#ifndef TOOLS_ICODE_LINK_LINKER_H
#define TOOLS_ICODE_LINK_LINKER_H

#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "OPT5/if_client.h"
#include "OPT5/if_file.h"
#include "OPT5/types.h"
#include "tools/model/tree.h"

namespace linking {

// How strongly a symbol holds its name, from weak to strong. Of two equal ones the first stands; two of the
// strongest are an error.
enum class strength {
    declared, // with a type that leaves something open: no parameters, no number of elements
    declared_in_full,
    replaceable, // defined, but weak, inline or a member of a group
    defined
};

// One file that is merged.
struct input {
    std::string name;
    unsigned number = 0; // from 1, in the order given
    I_FILE* file = nullptr;
    std::unique_ptr<IF_CLIENT> client;
    std::vector<model::symbol*> globals; // in file order
    std::vector<OPTION_SET> option_sets;
    std::unordered_map<unsigned, unsigned> set_numbers; // of the file's sets, to those of the output
};

// Ends the run with status 1 and the line "icode-link: WHAT" on standard error.
[[noreturn]] void fail(const std::string& what);

class linker {
  public:
    linker();
    ~linker();
    linker(const linker&) = delete;
    linker& operator=(const linker&) = delete;

    // Opens a file and reads its types and global symbols. A file that is none ends the run.
    void add(const std::string& name);
    // Settles which symbol stands for each name, the option sets and the types. All files have been added.
    // Two definitions of a name, or types that contradict each other, end the run.
    void resolve();
    // Writes the merged file to `stream`, which it closes; `name` stands in messages. False on a stream
    // error.
    bool write(std::FILE* stream, const std::string& name);

    // --- For the reader of one file.

    model::pool& symbol_pool() { return symbols_; }
    // The symbol that stands for this one: itself unless it has given way.
    model::symbol* standing(model::symbol* symbol) const {
        const auto found = stands_for_.find(symbol);
        return found == stands_for_.end() ? symbol : found->second;
    }
    // The output's number of a file's option set. A set that the file does not have ends the run.
    unsigned option_set(const input& file, unsigned number, const model::symbol* owner) const;
    // The name of a declared array of unknown length is given the type of its definition, in the whole tree.
    void complete_names(model::tree* tree);

  private:
    struct holder {
        model::symbol* symbol;
        const input* file;
        strength hold;
    };

    void enter(model::symbol* symbol, const input& file);
    void give_way(const holder& loser, const holder& winner);
    bool agree(TYPE* a, TYPE* b);
    void merge_option_sets();
    void merge_types();

    TYPE_PKG types_;
    model::pool symbols_;
    std::deque<input> inputs_;
    std::unordered_map<std::string_view, holder> external_;
    std::vector<std::pair<holder, std::string_view>> losers_; // and the name for which they gave way
    std::unordered_map<const model::symbol*, model::symbol*> stands_for_;
    bool has_open_arrays_ = false; // a symbol that gave way is an array of unknown length
    std::vector<OPTION_SET> option_sets_;
};

// Makes the client that reads a file for the linker and, once `begin_copy` was called, writes what it reads.
std::unique_ptr<IF_CLIENT> make_copier(linker& owner, input& file);
// Copies the body of the file, which ends with its level at 0, and keeps initialisers that stand among it.
void copy_body(input& file, I_FILE& to);
// Copies the initialisers; to be called when the bodies of all files have been copied.
void copy_initialisers(input& file);

} // namespace linking

#endif
