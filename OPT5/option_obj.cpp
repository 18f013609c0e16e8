#include "option_obj.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "files.h"
#include "version.h"

namespace {

enum FORM { FLAG, NUMBER, NUMBER_OPT, TEXT, LIST, CHOICE, CHOICE_OPT };

struct OPTION_ROW {
    int number;
    const char* name;
    FORM form;
    const char* help;
};

struct VALUE_ROW {
    int option;
    int id;
    const char* word;
};

const OPTION_ROW option_rows[] = {
#define OPTION(number, name, form, help) {number, name, form, help},
#define VALUE(number, id, word)
#include "option_table.def"
#undef OPTION
#undef VALUE
};

const VALUE_ROW value_rows[] = {
#define OPTION(number, name, form, help)
#define VALUE(number, id, word) {number, id, word},
#include "option_table.def"
#undef OPTION
#undef VALUE
};

const OPTION_ROW* find_row(std::string_view name) {
    for (const OPTION_ROW& row : option_rows)
        if (row.name == name) return &row;
    return nullptr;
}

const OPTION_ROW* find_row(int number) {
    for (const OPTION_ROW& row : option_rows)
        if (row.number == number) return &row;
    return nullptr;
}

bool is_choice(const OPTION_ROW& row) { return row.form == CHOICE || row.form == CHOICE_OPT; }

// The word that a CHOICE_OPT has when none is given.
const char* first_value(int option) {
    for (const VALUE_ROW& row : value_rows)
        if (row.option == option) return row.word;
    return "";
}

const VALUE_ROW* find_value(int option, std::string_view word) {
    for (const VALUE_ROW& row : value_rows)
        if (row.option == option && row.word == word) return &row;
    return nullptr;
}

// Ends the run because of an option word; `source` tells where the word stands.
[[noreturn]] void bad_option(const std::string& what, int source) {
    if (source == 0)
        std::fprintf(stderr, "opt5: %s\n", what.c_str());
    else
        std::fprintf(stderr, "opt5: %s, in option set %d of %s\n", what.c_str(), source - 1, i_file_name);
    std::exit(1);
}

// Numbers are counts, sizes and levels: from 0 to what an int holds, in any base of C.
bool is_number(const std::string& text) {
    char* end = nullptr;
    errno = 0;
    const long value = std::strtol(text.c_str(), &end, 0);
    return !text.empty() && *end == '\0' && errno == 0 && value >= 0 && value <= INT_MAX;
}

} // namespace

const char* option_obj::executable_name = "opt5";
const char* (*option_obj::next_arg)() = nullptr;

option_obj::option_obj(bool) {}

void option_obj::process_option(const char* word, int source) {
    std::string text = word;
    if (source == 0 && text == "-help") {
        print_help(stdout);
        std::exit(0);
    }
    if (source == 0 && text == "-version") {
        print_banner(stdout);
        std::exit(0);
    }
    // -O0 to -O4 stand for --opt_level.
    if (text.size() == 2 && text[0] == 'O' && text[1] >= '0' && text[1] <= '4')
        text = "-opt_level=" + text.substr(1);
    const std::string shown = "-" + text;
    if (text.empty() || text[0] != '-') bad_option("unknown option \"" + shown + "\"", source);

    const std::size_t equals = text.find('=');
    const OPTION_ROW* row =
        find_row(std::string_view(text).substr(1, equals == std::string::npos ? equals : equals - 1));
    if (row == nullptr) bad_option("unknown option \"" + shown + "\"", source);
    const std::string name = std::string("--") + row->name;
    bool has_value = equals != std::string::npos;
    std::string value = has_value ? text.substr(equals + 1) : "";
    if (!has_value && row->form != FLAG && row->form != NUMBER_OPT && row->form != CHOICE_OPT) {
        const char* next = source == 0 && next_arg != nullptr ? next_arg() : nullptr;
        if (next == nullptr) bad_option("option \"" + name + "\" needs a value", source);
        value = next;
        has_value = true;
    }
    switch (row->form) {
        case FLAG:
            if (has_value) bad_option("option \"" + name + "\" takes no value", source);
            break;
        case NUMBER_OPT:
            if (!has_value) value = "1";
            [[fallthrough]];
        case NUMBER:
            if (!is_number(value))
                bad_option("bad value \"" + value + "\" of option \"" + name + "\"", source);
            break;
        case CHOICE_OPT:
            if (!has_value) value = first_value(row->number);
            [[fallthrough]];
        case CHOICE:
            if (find_value(row->number, value) == nullptr)
                bad_option("bad value \"" + value + "\" of option \"" + name + "\"", source);
            break;
        case TEXT:
        case LIST: break;
    }
    set(row->number, value);
}

void option_obj::set(int number, const std::string& value) {
    const OPTION_ROW* row = find_row(number);
    if (row != nullptr && row->form == LIST)
        for (VALUE& present : values_)
            if (present.number == number) {
                present.args.push_back(value);
                return;
            }
    // The last word wins, and counts as the latest to arrive.
    clear(number);
    values_.push_back({number, {value}});
}

void option_obj::clear(int number) {
    std::erase_if(values_, [number](const VALUE& value) { return value.number == number; });
}

const option_obj::VALUE* option_obj::find(int number) const {
    for (const VALUE& value : values_)
        if (value.number == number) return &value;
    return nullptr;
}

bool option_obj::is_present(int number) const { return find(number) != nullptr; }

int option_obj::argcount(int number) const {
    const VALUE* value = find(number);
    return value == nullptr ? 0 : static_cast<int>(value->args.size());
}

const char* option_obj::getstrarg(int number, int index) const {
    const VALUE* value = find(number);
    return value == nullptr || index >= static_cast<int>(value->args.size()) ? nullptr
                                                                             : value->args[index].c_str();
}

long option_obj::getnumarg(int number, int index) const {
    const char* text = getstrarg(number, index);
    if (text == nullptr) return 0;
    const OPTION_ROW* row = find_row(number);
    if (row != nullptr && is_choice(*row)) {
        const VALUE_ROW* value = find_value(number, text);
        return value == nullptr ? 0 : value->id;
    }
    return std::strtol(text, nullptr, 0);
}

std::vector<std::pair<int, std::string>> option_obj::export_option_pairs() const {
    std::vector<std::pair<int, std::string>> pairs;
    for (const VALUE& value : values_) {
        const OPTION_ROW* row = find_row(value.number);
        for (const std::string& arg : value.args)
            pairs.emplace_back(value.number,
                               std::string("--") + row->name + (row->form == FLAG ? "" : "=" + arg));
    }
    return pairs;
}

void option_obj::dump(const option_obj* options, int) {
    for (const auto& [number, word] : options->export_option_pairs())
        std::printf("%2d  %s\n", number, word.c_str());
}

void option_obj::print_banner(std::FILE* stream) {
    std::fprintf(stream, "%s %s\n", OPTIMIZER_TITLE, OPTIMIZER_VERSION);
}

void option_obj::print_help(std::FILE* stream) {
    std::fprintf(
        stream,
        "Usage: opt5 [-options] input [output]\n\nThe default output is the input's stem with \".opt\".\n"
        "A value follows as \"=VALUE\" or as the next word; -O0 to -O4 stand for --opt_level.\n\n");
    for (const OPTION_ROW& row : option_rows) {
        std::string left = std::string("--") + row.name;
        switch (row.form) {
            case FLAG: break;
            case NUMBER: left += "=N"; break;
            case NUMBER_OPT: left += "[=N]"; break;
            case TEXT: left += "=TEXT"; break;
            case LIST: left += "=NAME,.."; break;
            case CHOICE:
            case CHOICE_OPT: {
                left += row.form == CHOICE ? "=" : "[=";
                const char* bar = "";
                for (const VALUE_ROW& value : value_rows)
                    if (value.option == row.number) {
                        left += bar;
                        left += value.word;
                        bar = "|";
                    }
                if (row.form == CHOICE_OPT) left += "]";
                break;
            }
        }
        std::fprintf(stream, "  %-32s %2d  %s\n", left.c_str(), row.number, row.help);
    }
    std::fprintf(stream, "  %-32s     print this table and end\n", "--help");
    std::fprintf(stream, "  %-32s     print the version and end\n", "--version");
    std::fprintf(
        stream,
        "\nAn option of a step that is not built yet (docs/steps.md) is accepted and changes nothing.\n");
}
