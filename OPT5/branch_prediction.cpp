// Static branch prediction.
//
//   1. Each block is summed up once (BLOCK_SUMMARY): what the heuristics ask about a successor.
//   2. Cold blocks: those with a point that is never executed or an end of the program, those from which
//      every way leads to one, and those to which only such blocks lead.
//   3. Edge probabilities, block by block: from knowledge where there is some, else from the heuristics.
//   4. Frequencies (block_frequency.cpp).

#include "branch_prediction.h"

#include <algorithm>
#include <cstdint>

#include "accesses.h"
#include "bblk.h"
#include "bbutils.h"
#include "block_frequency.h"
#include "dominator.h"
#include "fileopt.h"
#include "files.h"
#include "natural_loops.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "symbol.h"
#include "types.h"

using namespace op;

namespace {

// How often each heuristic is right, as Ball and Larus measured it.
constexpr double LOOP_BRANCH = 0.88; // a loop turns once more
constexpr double LOOP_EXIT = 0.80;   // a way out of the middle of a loop is not taken
constexpr double LOOP_HEADER = 0.75; // a loop is entered
constexpr double POINTER = 0.60;     // a pointer is not null, two pointers differ
constexpr double OPCODE = 0.84;      // a number is neither negative nor the constant it is compared with
constexpr double GUARD = 0.62;       // what is tested is used behind the test
constexpr double CALL_AVOIDED = 0.78;
constexpr double STORE_AVOIDED = 0.55;
constexpr double RETURN_AVOIDED = 0.72;

struct BLOCK_SUMMARY {
    bool calls = false;
    bool stores = false;
    bool returns = false;
    bool is_marked = false;           // never executed, as the program says
    bool ends_program = false;        // calls a function that does not return
    std::vector<std::uint32_t> reads; // serials of the private symbols read before they are written, sorted
};

double combine(double a, double b) { return a * b / (a * b + (1 - a) * (1 - b)); }

bool is_zero(const NODE* node) { return node->op == ICON && node->u.lval.is_zero(); }

class PREDICTOR {
  public:
    PREDICTOR(const NATURAL_LOOPS& loops, std::vector<std::size_t>& first_edge,
              std::vector<double>& probability, std::vector<bool>& is_cold);
    void run();

  private:
    void sum_up();
    void note(const NODE* node, BLOCK_SUMMARY& summary) const;
    void note_reads(const BBLK* bb, BLOCK_SUMMARY& summary);
    void find_cold();
    void find_never_counted();
    void spread_cold();
    void predict(const BBLK* bb);
    bool use_labels(NODE* transfer);
    bool use_edges(const BBLK* bb);
    bool share_out();
    void use_heuristics(const BBLK* bb, const NODE* transfer);
    double chance_of_true(const BBLK* bb, const NODE* condition, const BBLK* if_true, const BBLK* if_false);
    double chance_of_condition(const NODE* condition) const;
    double evidence_for(const BBLK* bb, const BBLK* to, const BBLK* other, const NODE* condition);
    bool guards(const NODE* condition, const BBLK* to) const;
    const BLOCK_SUMMARY& summary(const BBLK* bb) const { return summaries_[bb->uon()]; }
    double& of(const BBLK* target) { return weights_[position_[target->uon()]]; }

    const NATURAL_LOOPS& loops_;
    Dominator& dominators_;
    const PRIVATE_SYMBOLS private_;
    std::vector<std::size_t>& first_edge_;
    std::vector<double>& probability_;
    std::vector<bool>& is_cold_;
    std::vector<BLOCK_SUMMARY> summaries_; // by block id
    std::vector<const BBLK*> written_in_;  // by number of the private symbol: where it was written last
    std::vector<const BBLK*> read_in_;
    std::vector<ACCESS> accesses_;
    std::vector<double> weights_;       // of the successors of the block in work, in edge list order
    std::vector<std::size_t> position_; // by block id: place in `weights_` of a successor
};

PREDICTOR::PREDICTOR(const NATURAL_LOOPS& loops, std::vector<std::size_t>& first_edge,
                     std::vector<double>& probability, std::vector<bool>& is_cold)
    : loops_(loops), dominators_(compute_dominators(false)), first_edge_(first_edge),
      probability_(probability), is_cold_(is_cold), summaries_(currfuninfo->blocks.size()),
      written_in_(static_cast<std::size_t>(private_.count())),
      read_in_(static_cast<std::size_t>(private_.count())), position_(currfuninfo->blocks.size()) {}

// --- What a block does.

void PREDICTOR::note(const NODE* node, BLOCK_SUMMARY& summary) const {
    if (opcode_is_ASG(node->op)) {
        const NODE* name = name_of_place(node->left);
        if (name == nullptr || private_.number_of(name->symbol()) < 0) summary.stores = true;
        return;
    }
    switch (node->op) {
        case CALL:
        case UCALL: {
            summary.calls = true;
            const FUNINFO* callee = find_FUNINFO_for_call(const_cast<NODE*>(node));
            if (callee != nullptr && TEST_FLAG(callee, FUN_never_returns)) summary.ends_program = true;
            break;
        }
        case MEMCPY: summary.stores = true; break;
        case NASSERT:
            if (is_zero(node->left)) summary.is_marked = true;
            break;
        default: break;
    }
}

void PREDICTOR::note_reads(const BBLK* bb, BLOCK_SUMMARY& summary) {
    for (const ACCESS& access : accesses_) {
        const int number = private_.number_of(access.name->symbol());
        if (number < 0) continue;
        if (access.kind == ACC_WRITE) {
            if (!access.conditional) written_in_[number] = bb;
        } else if (access.kind == ACC_READ && written_in_[number] != bb && read_in_[number] != bb) {
            read_in_[number] = bb;
            summary.reads.push_back(access.name->symbol()->serial);
        }
    }
}

void PREDICTOR::sum_up() {
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        BLOCK_SUMMARY& summary = summaries_[bb->uon()];
        for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next) {
            walk_tree(cell->first, [&](const NODE* node) { note(node, summary); });
            accesses_.clear();
            list_accesses(cell->first, accesses_);
            note_reads(bb, summary);
            if (cell->next == nullptr) {
                const BBLK* exit = currfuninfo->bb_list->prev;
                const int op = cell->first->op;
                summary.returns =
                    bb == exit || op == RETURN || (op == BRANCH && cell->first->left->label->bb == exit);
            }
        }
        if (is_never_executed(bb)) summary.is_marked = true;
        std::sort(summary.reads.begin(), summary.reads.end());
    }
}

// --- Cold blocks.

// From the blocks that are cold already, backwards and then forwards.
void PREDICTOR::spread_cold() {
    std::vector<int> warm(currfuninfo->blocks.size()); // edges from (then to) blocks that are not cold
    std::vector<const BBLK*> pending;
    const auto spread = [&](EDGE* BBLK::*onward, EDGE* BBLK::*back) {
        for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
            warm[bb->uon()] = edge_length(bb->*back);
            if (is_cold_[bb->uon()]) pending.push_back(bb);
        }
        while (!pending.empty()) {
            const BBLK* bb = pending.back();
            pending.pop_back();
            for (const EDGE* edge = bb->*onward; edge != nullptr; edge = edge->next) {
                const unsigned other = edge->bb->uon();
                if (--warm[other] > 0 || is_cold_[other] || edge->bb->is_kept) continue;
                is_cold_[other] = true;
                pending.push_back(edge->bb);
            }
        }
    };
    spread(&BBLK::predecessors, &BBLK::successors);
    spread(&BBLK::successors, &BBLK::predecessors);
}

void PREDICTOR::find_cold() {
    const BBLK* first = currfuninfo->bb_list;
    const auto mark = [&](bool with_ends) {
        for (const BBLK* bb = first; bb != nullptr; bb = bb->next)
            is_cold_[bb->uon()] = summary(bb).is_marked || (with_ends && summary(bb).ends_program);
        spread_cold();
    };
    mark(true);
    // A function that always ends the program does so in the ordinary course of things.
    if (is_cold_[first->uon()]) mark(false);
    if (is_cold_[first->uon()]) is_cold_.assign(is_cold_.size(), false);
    find_never_counted();
}

// The blocks that a profile has never seen entered. Of a function that was never called it says nothing.
void PREDICTOR::find_never_counted() {
    if (currfuninfo->entry_count == 0) return;
    enum : std::uint8_t { NOT_REFERRED_TO, NEVER, PERHAPS };
    std::vector<std::uint8_t> entered(currfuninfo->blocks.size(), NOT_REFERRED_TO);
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        if (bb->is_kept || bb->is_exit()) entered[bb->uon()] = PERHAPS;
        for_each_labelref(last_statement(bb), [&](const NODE* label) {
            std::uint8_t& to = entered[label->label->bb->uon()];
            to = std::max<std::uint8_t>(to, label->edge_profile == 0 ? NEVER : PERHAPS);
        });
    }
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        if (entered[bb->uon()] == NEVER) is_cold_[bb->uon()] = true;
}

// --- Probabilities.

// Turns the weights, below zero where nothing is known, into probabilities: what is known stays as far as the
// sum allows, the rest is shared by the others. False where nothing at all is known.
bool PREDICTOR::share_out() {
    double known = 0;
    std::size_t unknown = 0;
    for (const double weight : weights_) {
        if (weight < 0) {
            unknown++;
        } else {
            known += weight;
        }
    }
    if (unknown == weights_.size() || (unknown == 0 && known <= 0)) return false;
    const double rest = unknown == 0 ? 0 : std::max(1 - known, NEVER_TAKEN) / static_cast<double>(unknown);
    double sum = 0;
    for (double& weight : weights_) {
        if (weight < 0) weight = rest;
        sum += weight;
    }
    for (double& weight : weights_) weight /= sum;
    return true;
}

// The counts of a profile, where all references have one, or else the probabilities on the references.
bool PREDICTOR::use_labels(NODE* transfer) {
    bool all_counted = true, any_known = false;
    double total = 0;
    for_each_labelref(transfer, [&](const NODE* label) {
        all_counted = all_counted && label->edge_profile != NO_PROFILE;
        total += label->edge_profile;
        any_known = any_known || (label->freq >= 0 && label->freq <= 1);
    });
    const bool counted = all_counted && total > 0;
    if (!counted && !any_known) return false;
    for_each_labelref(transfer, [&](const NODE* label) {
        double share = UNKNOWN_FREQ;
        if (counted) {
            share = std::max(label->edge_profile / total, NEVER_TAKEN);
        } else if (label->freq >= 0 && label->freq <= 1) {
            share = label->freq;
        }
        if (share >= 0) of(label->label->bb) = std::max(of(label->label->bb), 0.0) + share;
    });
    return share_out();
}

bool PREDICTOR::use_edges(const BBLK* bb) {
    std::size_t i = 0;
    for (const EDGE* edge = bb->successors; edge != nullptr; edge = edge->next, i++)
        weights_[i] = edge->freq >= 0 && edge->freq <= 1 ? edge->freq : UNKNOWN_FREQ;
    return share_out();
}

// From the form of the condition alone.
double PREDICTOR::chance_of_condition(const NODE* condition) const {
    bool is_inverted = false;
    for (; condition->op == EXCLAIM; condition = condition->left) is_inverted = !is_inverted;
    const NODE* left = condition->left;
    const NODE* right = condition->right;
    double chance = 0.5;
    switch (condition->op) {
        case EQ:
        case FEQ:
        case NEQ:
            if (left->type->is_ptr() || right->type->is_ptr()) {
                chance = 1 - POINTER;
            } else if (right->op == ICON || left->op == ICON || left->type->is_fltpt()) {
                chance = 1 - OPCODE;
            }
            if (condition->op == NEQ) chance = 1 - chance;
            break;
        case LT:
        case LE:
        case GT:
        case GE: {
            // Comparisons with 0, and with the neighbour that says the same.
            if (right->op != ICON || !right->type->is_signed()) break;
            const bool below = condition->op == LT || condition->op == LE;
            const INT65 neighbour = INT65::from_signed(condition->op == LT || condition->op == GE ? 1 : -1);
            if (right->u.lval.is_zero() || right->u.lval == neighbour) chance = below ? 1 - OPCODE : OPCODE;
            break;
        }
        // A variable by itself is compared with zero.
        case NAME:
        case STDOT:
        case STREF:
        case UMULT:
            if (condition->type->is_ptr()) {
                chance = POINTER;
            } else if (condition->type->is_integral() && !condition->type->is_bool()) {
                chance = OPCODE;
            }
            break;
        default: break;
    }
    return is_inverted ? 1 - chance : chance;
}

// Whether the block reads a variable of the condition.
bool PREDICTOR::guards(const NODE* condition, const BBLK* to) const {
    const std::vector<std::uint32_t>& reads = summary(to).reads;
    return !reads.empty() && any_node(const_cast<NODE*>(condition), [&](const NODE* node) {
        return node->op == NAME && node->symbol()->level != 0 &&
               std::binary_search(reads.begin(), reads.end(), node->symbol()->serial);
    });
}

// What speaks for the edge to `to`, of the two that the block has.
double PREDICTOR::evidence_for(const BBLK* bb, const BBLK* to, const BBLK* other, const NODE* condition) {
    double chance = 0.5;
    const auto take = [&](double evidence) { chance = combine(chance, evidence); };
    const bool leaves = loops_.is_exit(bb, to);
    if (loops_.is_back_edge(bb, to)) {
        take(LOOP_BRANCH);
    } else if (leaves && !loops_.is_exit(bb, other) && !loops_.is_back_edge(bb, other)) {
        // A test in the header is the loop's own, wherever it stands.
        take(1 - (loops_.is_header(bb) ? LOOP_BRANCH : LOOP_EXIT));
    }
    // What happens on both ways, and only later on one, says nothing of them.
    if (dominators_.immediate_post_dominator(bb) == to) return chance;
    const BLOCK_SUMMARY& target = summary(to);
    if (loops_.is_header(to) && !loops_.contains(loops_.innermost(to), bb)) take(LOOP_HEADER);
    if (guards(condition, to)) take(GUARD);
    if (target.calls) take(1 - CALL_AVOIDED);
    if (target.stores) take(1 - STORE_AVOIDED);
    if (target.returns && !leaves) take(1 - RETURN_AVOIDED);
    return chance;
}

double PREDICTOR::chance_of_true(const BBLK* bb, const NODE* condition, const BBLK* if_true,
                                 const BBLK* if_false) {
    double chance = chance_of_condition(condition);
    chance = combine(chance, evidence_for(bb, if_true, if_false, condition));
    return combine(chance, 1 - evidence_for(bb, if_false, if_true, condition));
}

void PREDICTOR::use_heuristics(const BBLK* bb, const NODE* transfer) {
    if (transfer->op == IF && weights_.size() == 2) {
        const BBLK* if_true = transfer->right->left->label->bb;
        const BBLK* if_false = transfer->right->right->label->bb;
        const double chance = chance_of_true(bb, transfer->left, if_true, if_false);
        of(if_true) = chance;
        of(if_false) = 1 - chance;
    } else {
        std::fill(weights_.begin(), weights_.end(), 1.0);
    }
    // A cold edge is not expected where there is another one.
    double warm = 0;
    for (const EDGE* edge = bb->successors; edge != nullptr; edge = edge->next)
        if (!is_cold_[edge->bb->uon()]) warm += of(edge->bb);
    if (warm > 0)
        for (const EDGE* edge = bb->successors; edge != nullptr; edge = edge->next)
            if (is_cold_[edge->bb->uon()]) of(edge->bb) = warm * NEVER_TAKEN;
    share_out();
}

void PREDICTOR::predict(const BBLK* bb) {
    weights_.clear();
    for (const EDGE* edge = bb->successors; edge != nullptr; edge = edge->next) {
        position_[edge->bb->uon()] = weights_.size();
        weights_.push_back(UNKNOWN_FREQ);
    }
    if (weights_.size() == 1) {
        weights_[0] = 1;
    } else if (!weights_.empty()) {
        NODE* transfer = last_statement(bb);
        if (!use_labels(transfer) && !use_edges(bb)) use_heuristics(bb, transfer);
    }
    first_edge_[bb->uon()] = probability_.size();
    probability_.insert(probability_.end(), weights_.begin(), weights_.end());
}

void PREDICTOR::run() {
    sum_up();
    find_cold();
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) predict(bb);
}

} // namespace

BRANCH_PREDICTION::BRANCH_PREDICTION() { build(NATURAL_LOOPS()); }

BRANCH_PREDICTION::BRANCH_PREDICTION(const NATURAL_LOOPS& loops) { build(loops); }

void BRANCH_PREDICTION::build(const NATURAL_LOOPS& loops) {
    const std::size_t count = currfuninfo->blocks.size();
    first_edge_.assign(count, 0);
    is_cold_.assign(count, false);
    PREDICTOR(loops, first_edge_, probability_, is_cold_).run();
    frequency_ = block_frequencies(*this, loops);
}

double BRANCH_PREDICTION::probability(const BBLK* from, std::size_t successor) const {
    return probability_[first_edge_[from->uon()] + successor];
}

double BRANCH_PREDICTION::probability(const BBLK* from, const BBLK* to) const {
    std::size_t i = first_edge_[from->uon()];
    for (const EDGE* edge = from->successors; edge != nullptr; edge = edge->next, i++)
        if (edge->bb == to) return probability_[i];
    return 0;
}

double BRANCH_PREDICTION::frequency(const BBLK* bb) const { return frequency_[bb->uon()]; }

double BRANCH_PREDICTION::frequency(const BBLK* from, const BBLK* to) const {
    return frequency(from) * probability(from, to);
}

bool BRANCH_PREDICTION::is_cold(const BBLK* bb) const { return is_cold_[bb->uon()]; }
