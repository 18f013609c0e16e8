// The option object: one set of options, addressed by number.

#ifndef OPT5_OPTION_OBJ_H
#define OPT5_OPTION_OBJ_H

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

class option_obj {
  public:
    static const char* executable_name;
    static const char* (*next_arg)(); // gives the following command-line word, null at the end

    explicit option_obj(bool with_defaults);

    // Processes one word without its first "-": "-opt_level=2", "O2". `source` 0 is the command line.
    // An unknown option or a bad value prints one line that names it and ends the run with status 1.
    void process_option(const char* word, int source);

    bool is_present(int number) const;
    long getnumarg(int number, int index) const;        // number, or the id of a named value
    const char* getstrarg(int number, int index) const; // null when there is none
    int argcount(int number) const;
    void set(int number, const std::string& value); // as if given
    void clear(int number);

    // The options that are present, as (number, text of the word that sets it), in order of arrival.
    std::vector<std::pair<int, std::string>> export_option_pairs() const;

    static void dump(const option_obj* options, int form);
    static void print_banner(std::FILE* stream);
    static void print_help(std::FILE* stream);

  private:
    struct VALUE {
        int number;
        std::vector<std::string> args; // one, or one per word of a repeated option
    };
    const VALUE* find(int number) const;

    std::vector<VALUE> values_; // in order of arrival
};

#endif
