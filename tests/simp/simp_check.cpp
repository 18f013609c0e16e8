// simp_check: proves the simplifier by trial on generated trees.
//
//   simp_check [--trees N] [--first S] [--subject NAMES] [--rounds N] [--exhaustive N] [--reports N] [--short
//   FILE] simp_check --seed S [--subject NAMES]     one tree, with what each subject makes of it
//
// --seconds N is what one tree may take (10). --exhaustive N tries one in N of the small trees of one 16-bit
// variable on all values; 0: none. --short appends each failure to FILE as one line. Ends with status 1 when
// something is wrong, 2 for bad arguments.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "OPT5/copy.h"
#include "OPT5/dump.h"
#include "OPT5/erase.h"
#include "OPT5/node.h"
#include "tests/simp/campaign.h"
#include "tests/simp/subjects.h"

using namespace prove;

namespace {

[[noreturn]] void usage(const char* word) {
    std::fprintf(stderr,
                 "simp_check: bad argument '%s'\n"
                 "usage: simp_check [--trees N] [--first S] [--seed S] [--subject NAME,...] [--rounds N] "
                 "[--exhaustive N] [--reports N] [--seconds N] [--short FILE]\n",
                 word);
    std::exit(2);
}

std::uint64_t number(const char* text) {
    char* end = nullptr;
    const std::uint64_t value = std::strtoull(text, &end, 10);
    if (*text < '0' || *text > '9' || *end != '\0') usage(text);
    return value;
}

void show(const PALETTE& palette, const CAMPAIGN& campaign) {
    NODE* tree = GENERATOR(palette, campaign.first).tree();
    std::printf("tree        %s\ntyped       %s\n", tree_to_text(tree).c_str(), typed_text(tree).c_str());
    for (const SUBJECT& subject : campaign.subjects) {
        if (subject.apply == nullptr || (subject.accepts != nullptr && !subject.accepts(tree))) continue;
        bool died = false;
        const std::string text = run_in_child(
            [&] {
                NODE* result = subject.apply(copy_tree(tree, false), 0xff);
                return result != nullptr ? tree_to_text(result) + "\n            " + typed_text(result)
                                         : std::string("nothing");
            },
            campaign.seconds_per_tree, died);
        std::printf("%s\n            %s\n", subject.name, text.c_str());
    }
    erase_tree(tree);
}

} // namespace

int main(int argc, char** argv) {
    CAMPAIGN campaign;
    campaign.trees = 100000;
    campaign.subjects = all_subjects();
    const char* short_file = nullptr;
    bool single = false;
    for (int i = 1; i < argc; i += 2) {
        const std::string word = argv[i];
        if (i + 1 >= argc) usage(argv[i]);
        const char* value = argv[i + 1];
        if (word == "--trees") {
            campaign.trees = number(value);
        } else if (word == "--first") {
            campaign.first = number(value);
        } else if (word == "--seed") {
            campaign.first = number(value);
            campaign.trees = 1;
            single = true;
        } else if (word == "--subject") {
            campaign.subjects = subjects_named(value);
        } else if (word == "--rounds") {
            campaign.trial.rounds = static_cast<int>(number(value));
        } else if (word == "--exhaustive") {
            campaign.trial.exhaustive_every = static_cast<unsigned>(number(value));
        } else if (word == "--reports") {
            campaign.max_reports = static_cast<unsigned>(number(value));
        } else if (word == "--seconds") {
            campaign.seconds_per_tree = static_cast<unsigned>(number(value));
        } else if (word == "--short") {
            short_file = value;
        } else {
            usage(argv[i]);
        }
    }
    const PALETTE palette;
    if (single) show(palette, campaign);
    const RESULT result = run_campaign(palette, campaign);
    for (const std::string& report : result.reports) std::printf("%s\n", report.c_str());
    if (short_file != nullptr && !result.short_reports.empty()) {
        std::FILE* file = std::fopen(short_file, "a");
        if (file == nullptr) {
            std::perror(short_file);
            return 2;
        }
        for (const std::string& line : result.short_reports) std::fprintf(file, "%s\n", line.c_str());
        std::fclose(file);
    }
    std::printf("%-20s %10s %10s %12s %12s %10s\n", "subject", "trees", "changed", "runs", "faulty",
                "exhaustive");
    for (std::size_t i = 0; i < campaign.subjects.size(); i++) {
        const COUNTS& c = result.counts[i];
        std::printf("%-20s %10llu %10llu %12llu %12llu %10llu\n", campaign.subjects[i].name,
                    static_cast<unsigned long long>(c.trees), static_cast<unsigned long long>(c.changed),
                    static_cast<unsigned long long>(c.runs), static_cast<unsigned long long>(c.faulty),
                    static_cast<unsigned long long>(c.exhaustive));
    }
    std::printf("%llu failures\n", static_cast<unsigned long long>(result.failures));
    return result.failures != 0 ? 1 : 0;
}
