#include "tests/simp/campaign.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <new>

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "OPT5/bbutils.h"
#include "OPT5/copy.h"
#include "OPT5/erase.h"
#include "OPT5/node.h"
#include "OPT5/opcodes.h"
#include "OPT5/tree_check.h"
#include "OPT5/types.h"

using namespace op;

namespace prove {

// --- Children.

std::string run_in_child(const std::function<std::string()>& work, unsigned seconds, bool& died) {
    int ends[2];
    died = true;
    if (pipe(ends) != 0) return "no pipe: " + std::string(std::strerror(errno));
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child < 0) return "no process: " + std::string(std::strerror(errno));
    if (child == 0) {
        close(ends[0]);
        signal(SIGALRM, SIG_DFL);
        alarm(seconds);
        const std::string text = work();
        for (std::size_t done = 0; done < text.size();) {
            const ssize_t n = write(ends[1], text.data() + done, text.size() - done);
            if (n <= 0) break;
            done += static_cast<std::size_t>(n);
        }
        _exit(0);
    }
    close(ends[1]);
    std::string text;
    char buffer[4096];
    ssize_t n;
    while ((n = read(ends[0], buffer, sizeof buffer)) > 0 || (n < 0 && errno == EINTR))
        if (n > 0) text.append(buffer, static_cast<std::size_t>(n));
    close(ends[0]);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
        died = false;
        return text;
    }
    if (WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM) return "it does not come to an end\n";
    if (WIFSIGNALED(status)) return "it ends by " + std::string(strsignal(WTERMSIG(status))) + "\n";
    return "it ends the process with status " + std::to_string(WEXITSTATUS(status)) + "\n";
}

// --- Shrinking.

namespace {

// Where a subtree hangs, and whether it may be any value of its type.
struct SLOT {
    NODE** place;
    bool is_root;
};

bool holds_any_value(const NODE* parent, bool right) {
    switch (parent->op) {
        case COLON: return true;
        case UAND:
        case COMMA: return parent->op == COMMA;
        case STDOT:
        case STREF: return parent->op == STREF && !right;
        case PMCONV:
        case PVCONV: return !right;
        case PLUSPLUS:
        case MINMIN: return false;
        case CALL: return right;
        case UCALL: return false;
        default: return right || !(side_effects[parent->op] == SE_ASSIGNS);
    }
}

std::vector<SLOT> slots_of(NODE*& root) {
    std::vector<SLOT> slots{{&root, true}};
    walk_tree(root, [&slots](NODE* n) {
        const auto add = [&](NODE*& operand, bool right) {
            if (operand == nullptr || operand->op == COLON || operand->op == COMMA || operand->op == FIELD)
                return;
            if (holds_any_value(n, right)) slots.push_back({&operand, false});
        };
        add(n->left, false);
        add(n->right, true);
    });
    return slots;
}

// Values below a node that could stand in its place.
std::vector<NODE*> parts_of(NODE* node) {
    std::vector<NODE*> parts;
    std::vector<NODE*> lists{node};
    while (!lists.empty()) {
        NODE* n = lists.back();
        lists.pop_back();
        for (NODE* operand : {n->left, n->right}) {
            if (operand == nullptr || operand->op == FIELD) continue;
            if (operand->op == COLON || operand->op == COMMA)
                lists.push_back(operand);
            else if (rep_of(operand->type).is_scalar())
                parts.push_back(operand);
        }
    }
    return parts;
}

// Smaller is simpler: nodes first, then the constants' bits.
std::uint64_t weight_of(NODE* tree) {
    std::uint64_t weight = 0;
    walk_tree(tree, [&weight](NODE* n) {
        weight += std::uint64_t{1} << 20;
        if (n->op != ICON) return;
        std::uint64_t v = n->u.lval.bits();
        if (n->type->is_signed() && static_cast<std::int64_t>(v) < 0) {
            v = ~v;
            weight += 1;
        }
        while (v != 0) {
            weight += 1 + 2 * (v & 1);
            v >>= 1;
        }
    });
    return weight;
}

bool well_formed(NODE* tree) {
    return !any_node(tree, [](NODE* n) { return n->type == nullptr || !node_fault(n).empty(); });
}

NODE* fitted(NODE* part, TYPE* type, bool keep_type) {
    if (!keep_type || rep_of(part->type) == rep_of(type)) return part;
    return maketree(type->is_ptr() ? PCONV : SCONV, part, nullptr, type, nullptr);
}

// The candidates that stand for the node in the slot, made from copies; null where there is no such one.
NODE* candidate(NODE* node, bool is_root, unsigned number) {
    if (!rep_of(node->type).is_scalar() && !is_root) return nullptr;
    const std::vector<NODE*> parts = parts_of(node);
    if (number < parts.size()) return fitted(copy_tree(parts[number], false), node->type, !is_root);
    number -= static_cast<unsigned>(parts.size());
    if (!node->type->is_integral()) return nullptr;
    if (node->op != ICON) return number < 2 ? mk_ICON(INT65::from_signed(number), node->type) : nullptr;
    const INT65 value = node->u.lval;
    switch (number) {
        case 0: return mk_ICON(INT65::from_signed(0), node->type);
        case 1: return mk_ICON(INT65::from_signed(1), node->type);
        case 2: return mk_ICON(INT65::from_signed(2), node->type);
        case 3: return mk_ICON(-value, node->type);
        case 4: return mk_ICON(value / INT65::from_signed(2), node->type);
        case 5: return mk_ICON(value & INT65::from_signed(0xff), node->type);
        case 6: return mk_ICON(value - INT65::from_signed(1), node->type);
        case 7: return mk_ICON(value & (value - INT65::from_signed(1)), node->type);
        default: return nullptr;
    }
}

} // namespace

NODE* shrink(NODE* tree, const std::function<bool(NODE*)>& fails) {
    int attempts = 1500;
    for (bool changed = true; changed;) {
        changed = false;
        for (std::size_t at = 0; at < slots_of(tree).size() && attempts > 0; at++) {
            for (unsigned number = 0;;) {
                NODE* trial = copy_tree(tree, false);
                const std::vector<SLOT> slots = slots_of(trial);
                if (at >= slots.size()) {
                    erase_tree(trial);
                    break;
                }
                NODE* smaller = candidate(*slots[at].place, slots[at].is_root, number);
                if (smaller == nullptr) {
                    erase_tree(trial);
                    break;
                }
                erase_tree(*slots[at].place);
                *slots[at].place = smaller;
                if (weight_of(trial) < weight_of(tree) && well_formed(trial) && attempts-- > 0 &&
                    fails(trial)) {
                    erase_tree(tree);
                    tree = trial;
                    changed = true;
                    number = 0;
                } else {
                    erase_tree(trial);
                    number++;
                }
            }
        }
    }
    return tree;
}

// --- Campaigns.

namespace {

struct FAILED {
    std::uint64_t seed;
    unsigned subject;
    bool died;
};

// Written by the child while it works: where it is, and what it has seen.
struct SHARED {
    static constexpr unsigned MOST = 200;
    std::uint64_t seed;
    unsigned subject;
    unsigned count;
    FAILED failed[MOST];
    COUNTS counts[32];
};

// From the seed and subject in `shared` on.
void work(const PALETTE& palette, const CAMPAIGN& campaign, std::uint64_t end, SHARED& shared) {
    PROVER prover(palette);
    unsigned from = shared.subject;
    for (std::uint64_t seed = shared.seed; seed < end; seed++) {
        NODE* tree = GENERATOR(palette, seed).tree();
        for (unsigned i = from; i < campaign.subjects.size(); i++) {
            shared.seed = seed;
            shared.subject = i;
            alarm(campaign.seconds_per_tree);
            if (!prover.check(campaign.subjects[i], tree, seed, campaign.trial, shared.counts[i]).empty() &&
                shared.count < SHARED::MOST)
                shared.failed[shared.count++] = {seed, i, false};
        }
        from = 0;
        erase_tree(tree);
    }
}

// What makes two smallest trees the same fault to a reader: operators and widths, not the names and numbers.
std::string shape_of(NODE* tree) {
    std::string shape;
    walk_tree(tree, [&shape](NODE* n) {
        const REP rep = rep_of(n->type);
        const char kind = rep.is_float() ? 'f' : rep.kind == REP::POINTER ? 'p' : rep.is_signed ? 's' : 'u';
        shape += name_of(n) + (kind + std::to_string(rep.bits)) + " ";
    });
    return shape;
}

std::string indented(const std::string& text) {
    std::string result;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        result += "    " + text.substr(at, end - at) + "\n";
        at = end + 1;
    }
    return result;
}

// The first line of a check's answer: what sort of failure it is.
std::string sort_of(const std::string& answer) {
    return answer.substr(0, std::min(answer.find('\n'), answer.find(':')));
}

} // namespace

RESULT run_campaign(const PALETTE& palette, const CAMPAIGN& campaign) {
    void* memory = mmap(nullptr, sizeof(SHARED), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    RESULT result;
    if (memory == MAP_FAILED) {
        result.failures = 1;
        result.reports.emplace_back("no shared memory");
        return result;
    }
    auto& shared = *new (memory) SHARED{};
    shared.seed = campaign.first;
    std::vector<FAILED> deaths;
    const std::uint64_t end = campaign.first + campaign.trees;
    constexpr std::uint64_t CHUNK = 20000; // what one child does: its memory goes with it
    while (shared.seed < end && deaths.size() < 60) {
        const std::uint64_t stop = std::min(end, shared.seed + CHUNK);
        bool died = false;
        run_in_child([&] { return work(palette, campaign, stop, shared), std::string(); },
                     campaign.seconds_per_tree, died);
        if (!died) {
            shared.seed = stop;
            shared.subject = 0;
            continue;
        }
        deaths.push_back({shared.seed, shared.subject, true});
        shared.subject++;
        if (shared.subject >= campaign.subjects.size()) {
            shared.subject = 0;
            shared.seed++;
        }
    }
    result.counts.assign(shared.counts, shared.counts + campaign.subjects.size());
    std::vector<FAILED> failed(shared.failed, shared.failed + shared.count);
    failed.insert(failed.end(), deaths.begin(), deaths.end());
    result.failures = failed.size();
    munmap(memory, sizeof(SHARED));

    std::sort(failed.begin(), failed.end(), [](const FAILED& a, const FAILED& b) { return a.seed < b.seed; });
    std::vector<std::string> seen;
    for (const FAILED& f : failed) {
        if (result.reports.size() >= campaign.max_reports) break;
        const SUBJECT& subject = campaign.subjects[f.subject];
        const auto answer = [&](NODE* tree) {
            bool died = false;
            std::string text = run_in_child(
                [&] {
                    COUNTS counts;
                    return PROVER(palette).check(subject, tree, f.seed, campaign.trial, counts);
                },
                campaign.seconds_per_tree, died);
            if (died) text += "tree        " + typed_text(tree) + "\n";
            return text;
        };
        NODE* tree = GENERATOR(palette, f.seed).tree();
        const std::string first = answer(tree);
        std::string smallest;
        if (campaign.shrink) {
            const std::string sort = sort_of(first);
            tree = shrink(tree, [&](NODE* t) { return sort_of(answer(t)) == sort; });
            smallest = answer(tree);
        }
        const std::string one_line = std::string(subject.name) + ": " +
                                     sort_of(campaign.shrink ? smallest : first) + ": " + typed_text(tree);
        const std::string key = subject.name + sort_of(campaign.shrink ? smallest : first) + shape_of(tree);
        erase_tree(tree);
        if (std::find(seen.begin(), seen.end(), key) != seen.end()) continue;
        seen.push_back(key);
        result.short_reports.push_back(one_line);
        std::string report = std::string(subject.name) + " fails: simp_check --subject " + subject.name +
                             " --seed " + std::to_string(f.seed) + "\n" + indented(first);
        if (campaign.shrink) report += "  the smallest such tree:\n" + indented(smallest);
        result.reports.push_back(report);
    }
    return result;
}

} // namespace prove
