#include "profile.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "bblk.h"
#include "fileopt.h"
#include "files.h"
#include "flow_plan.h"
#include "node.h"
#include "option_obj.h"

namespace {

constexpr int COUNTING_OPTION = 61, PROFILE_OPTION = 62;
constexpr std::string_view HEADING = "flow-counts 1";
constexpr std::uint32_t LARGEST = NO_PROFILE - 1; // of a count in the trees

// The lines of a text, and the words of a line.
class SCANNER {
  public:
    explicit SCANNER(std::string_view text) : rest_(text) {}

    bool next_line() {
        if (rest_.empty()) return false;
        line_ = cut(rest_, '\n');
        number_++;
        return true;
    }
    int line_number() const { return number_; }
    std::string_view line() const { return line_; } // what is left of it
    std::string_view word() {
        while (line_.starts_with(' ')) line_.remove_prefix(1);
        return cut(line_, ' ');
    }
    // The next word as a number of that base; false if it is none, or does not fit.
    template <class T> bool number(T& value, int base) {
        const std::string_view text = word();
        const char* end = text.data() + text.size();
        const auto [stop, fault] = std::from_chars(text.data(), end, value, base);
        return fault == std::errc() && stop == end && !text.empty();
    }

  private:
    static std::string_view cut(std::string_view& text, char at) {
        const std::size_t length = std::min(text.find(at), text.size());
        const std::string_view part = text.substr(0, length);
        text.remove_prefix(std::min(length + 1, text.size()));
        return part;
    }

    std::string_view rest_, line_;
    int number_ = 0;
};

std::uint64_t sum_of(std::uint64_t a, std::uint64_t b) { return a > UINT64_MAX - b ? UINT64_MAX : a + b; }

std::unique_ptr<PROFILE> profile;
const char* profile_name = "";

bool read_whole(const char* name, std::string& text) {
    std::FILE* stream = std::fopen(name, "rb");
    if (stream == nullptr) return false;
    char buffer[1 << 16];
    std::size_t taken = 0;
    errno = 0;
    while ((taken = std::fread(buffer, 1, sizeof buffer, stream)) > 0) text.append(buffer, taken);
    const int reason = std::ferror(stream) != 0 ? errno : 0;
    std::fclose(stream);
    errno = reason;
    return reason == 0;
}

} // namespace

bool PROFILE::add(std::string_view text, std::string& error) {
    SCANNER scanner(text);
    const auto fault = [&](const char* what) {
        error = "line " + std::to_string(scanner.line_number()) + ": " + what;
        return false;
    };
    bool is_headed = false;
    bool has_line = scanner.next_line();
    while (has_line) {
        if (scanner.line() == HEADING) {
            is_headed = true;
            has_line = scanner.next_line();
            continue;
        }
        if (!is_headed) return fault("this is no profile");
        std::uint32_t checksum = 0, size = 0;
        if (scanner.word() != "function" || !scanner.number(checksum, 16) || !scanner.number(size, 10))
            return fault("expected \"function CHECKSUM COUNTERS NAME\"");
        const std::string name(scanner.line());
        if (name.empty()) return fault("a function without a name");
        std::vector<std::uint64_t> counts;
        while ((has_line = scanner.next_line()) && counts.size() < size) {
            std::uint64_t count = 0;
            while (!scanner.line().empty()) {
                if (!scanner.number(count, 10)) return fault("expected counts");
                counts.push_back(count);
            }
        }
        if (counts.size() != size) return fault("a function has other counts than it says");
        std::vector<COUNTS>& known = functions_[name];
        const auto same = std::find_if(known.begin(), known.end(), [&](const COUNTS& other) {
            return other.checksum == checksum && other.counts.size() == size;
        });
        if (same == known.end()) {
            known.push_back({checksum, std::move(counts)});
        } else {
            std::transform(counts.begin(), counts.end(), same->counts.begin(), same->counts.begin(), sum_of);
        }
    }
    if (!is_headed) return fault("this is no profile");
    return true;
}

const PROFILE::COUNTS* PROFILE::find(const std::string& name, std::uint32_t checksum,
                                     std::size_t size) const {
    const auto function = functions_.find(name);
    if (function == functions_.end()) return nullptr;
    for (const COUNTS& counts : function->second)
        if (counts.checksum == checksum && counts.counts.size() == size) return &counts;
    return nullptr;
}

void load_profile() {
    profile.reset();
    if (!file_options->is_present(PROFILE_OPTION)) return;
    if (file_options->is_present(COUNTING_OPTION)) {
        std::fprintf(stderr, "opt5: --count_flow and --flow_profile exclude each other\n");
        std::exit(1);
    }
    profile_name = file_options->getstrarg(PROFILE_OPTION, 0);
    std::string text, error;
    if (!read_whole(profile_name, text)) {
        std::fprintf(stderr, "opt5: cannot read the profile %s: %s\n", profile_name, std::strerror(errno));
        std::exit(1);
    }
    profile = std::make_unique<PROFILE>();
    if (!profile->add(text, error)) {
        std::fprintf(stderr, "opt5: %s: %s\n", profile_name, error.c_str());
        std::exit(1);
    }
}

namespace {

std::uint32_t in_tree(std::uint64_t count) {
    return static_cast<std::uint32_t>(std::min<std::uint64_t>(count, LARGEST));
}

// Several references of one transfer to a block share the count of the edge, as nothing tells them apart.
void apply_to_transfer(const BBLK* bb, const FLOW_PLAN& plan, const std::vector<std::uint64_t>& counts,
                       std::vector<std::uint64_t>& edge_count, std::vector<std::uint32_t>& references) {
    NODE* transfer = last_statement(bb);
    std::size_t position = 0;
    for (const EDGE* edge = bb->successors; edge != nullptr; edge = edge->next, position++) {
        const auto to = static_cast<std::size_t>(edge->bb->dfn);
        edge_count[to] = counts[plan.counter_of_edge(bb, position)];
        references[to] = 0;
    }
    for_each_labelref(
        transfer, [&](const NODE* label) { references[static_cast<std::size_t>(label->label->bb->dfn)]++; });
    for_each_labelref(transfer, [&](NODE* label) {
        const auto to = static_cast<std::size_t>(label->label->bb->dfn);
        const std::uint64_t share =
            edge_count[to] / references[to] + (edge_count[to] % references[to] != 0 ? 1 : 0);
        label->edge_profile = in_tree(share);
        edge_count[to] -= share;
        references[to]--;
    });
}

} // namespace

void apply_counts(const FLOW_PLAN& plan, const std::vector<std::uint64_t>& counts) {
    currfuninfo->profile_state = 2;
    currfuninfo->entry_count = in_tree(counts[plan.start(currfuninfo->bb_list)]);
    const auto blocks = static_cast<std::size_t>(currfuninfo->bb_count) + 1;
    std::vector<std::uint64_t> edge_count(blocks);
    std::vector<std::uint32_t> references(blocks);
    for (BBLK* bb = currfuninfo->bb_list; !bb->is_exit(); bb = bb->next) {
        bb->count = static_cast<std::int32_t>(std::min<std::uint64_t>(counts[plan.start(bb)], INT_MAX));
        apply_to_transfer(bb, plan, counts, edge_count, references);
    }
}

void apply_profile() {
    if (profile == nullptr) return;
    const std::string name = flow_name(currfuninfo);
    const FLOW_PLAN plan;
    const PROFILE::COUNTS* found = profile->find(name, plan.checksum(), plan.counters());
    if (found == nullptr) {
        std::fprintf(stderr, "opt5: %s: %s %s\n", profile_name,
                     profile->knows(name) ? "the counts are of another version of the function"
                                          : "there are no counts of the function",
                     name.c_str());
        return;
    }
    apply_counts(plan, found->counts);
}
