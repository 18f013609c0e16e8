// Profiles: the counts of earlier runs of the program, read back.
//
// A profile is a text file that the exit routine of a counting program writes; docs/profiles.md tells the
// format. Files may be joined end to end, and counts of one function are then added up.

#ifndef OPT5_PROFILE_H
#define OPT5_PROFILE_H

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

class FLOW_PLAN;

class PROFILE {
  public:
    struct COUNTS {
        std::uint32_t checksum;
        std::vector<std::uint64_t> counts;
    };

    // Takes the text of a profile in addition to what is there. False for a text of another form: `error`
    // then says what is wrong with which line.
    bool add(std::string_view text, std::string& error);

    // The counts of the function of that name and checksum, null when there are none of that size.
    const COUNTS* find(const std::string& name, std::uint32_t checksum, std::size_t size) const;
    // Whether there are any counts under that name.
    bool knows(const std::string& name) const { return functions_.contains(name); }

  private:
    std::unordered_map<std::string, std::vector<COUNTS>> functions_; // never walked
};

// Reads the profile that the option names, if one does. A file that cannot be read, or that is no profile,
// ends the run with one line and status 1.
void load_profile();

// Gives the current function, to which the plan belongs, the counts of its counters: its entry count and
// state, BBLK::count, and the count of every reference to a label.
void apply_counts(const FLOW_PLAN& plan, const std::vector<std::uint64_t>& counts);

// The same from the profile that was loaded, once buildcfg has made the graph. A function that the profile
// does not know, or knows in another shape, stays without counts; a line on standard error says so. Nothing
// without a profile.
void apply_profile();

#endif
