// Policies of inlining: estimates against what the accepted sites add up to, the tests of the old policies
// against their definitions, and what must hold of every decision of every policy.

#include "OPT5/inliner.h"

#include <algorithm>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <tuple>

#include "OPT5/bbutils.h"
#include "OPT5/call_sites.h"
#include "OPT5/in_function.h"
#include "OPT5/inliner_report.h"
#include "OPT5/inliner_selection.h"
#include "OPT5/pragma.h"
#include "ir_fixture.h"

using namespace op;

namespace {

class INLINING_TEST : public IR_TEST {
  protected:
    void SetUp() override {
        IR_TEST::SetUp();
        before_ = file_options;
        file_options = &options_;
        all_option_sets = {file_options};
        set_level("3");
        no_outside_callers = no_outside_writers = whole_file_mode = 1;
        inliner = make_inliner(0);
    }
    void TearDown() override {
        IR_TEST::TearDown();
        file_options = before_;
        all_option_sets = {file_options};
        inline_single = 0;
        process_debug_option("debug", "inline_n=0");
    }
    void set_level(const char* level) { options_.set(46, level); }
    void set_option(int number, const char* value) { options_.set(number, value); }

    // A function without a body, at a place in the order.
    FUNINFO* record(int position, int sclass = SC_STATIC) {
        FUNINFO* f = make_FUNINFO(function(("f" + std::to_string(position)).c_str(), sclass));
        f->cg_number = position;
        return f;
    }
    static CALLSITE site(FUNINFO* caller, FUNINFO* callee) {
        CALLSITE result{};
        result.caller = caller;
        result.callee = callee;
        result.fold_ratio = 1.0f;
        result.args_match = true;
        result.fate = SITE_FATE::NOT_CHOSEN;
        result.index = static_cast<std::int32_t>(++caller->unique_call_index);
        caller->inlined_sites.resize(caller->unique_call_index + 1);
        return result;
    }

    // A body that calls the others; more statements make it larger.
    void body(SYMTAB* symbol, const std::vector<SYMTAB*>& callees, int statements = 0) {
        begin(symbol);
        for (int i = 0; i < statements; i++) stmt(asg(x, tree(PLUS, int_type, name(x), name(y))));
        for (SYMTAB* callee : callees) stmt(asg(y, tree(PLUS, int_type, name(y), call(callee))));
        stmt(ret(tree(PLUS, int_type, name(x), name(y))));
        end();
        leave();
    }

  private:
    option_obj options_{true};
    option_obj* before_ = nullptr;
};

// --- Estimates.

using ESTIMATES = std::tuple<std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t,
                             std::int32_t, std::uint16_t>;

ESTIMATES estimates_of(const FUNINFO* f) {
    return {f->est_size,  f->est_bbs,  f->est_syms,       f->est_loops,
            f->est_calls, f->pressure, f->remaining_sites};
}

// What the estimates must be once these sites are accepted in this order, by adding up the ways that lead
// from each function to each growth.
class MODEL {
  public:
    explicit MODEL(const std::vector<FUNINFO*>& functions) {
        for (const FUNINFO* f : functions) {
            estimates_.push_back(estimates_of(f));
            keeps_.push_back(TEST_FLAG(f, FUN_cannot_suppress));
        }
    }
    void accept(const CALLSITE& site) {
        const auto caller = static_cast<std::size_t>(site.caller->cg_number);
        const auto callee = static_cast<std::size_t>(site.callee->cg_number);
        const auto [size, blocks, symbols, loops, calls, pressure, remaining] = estimates_[callee];
        const std::int64_t cost = std::max(0, static_cast<int>(size) - 2 - 2 * site.nargs);
        std::vector<std::int64_t> ways(estimates_.size(), 0);
        for (std::size_t f = caller + 1; f-- != 0;) {
            ways[f] = f == caller ? 1 : 0;
            for (const CALLSITE* old : accepted_)
                if (old->caller->cg_number == static_cast<int>(f))
                    ways[f] += ways[static_cast<std::size_t>(old->callee->cg_number)];
        }
        for (std::size_t f = 0; f < ways.size(); f++) {
            auto& [fs, fb, fy, fl, fc, fp, fr] = estimates_[f];
            fs += static_cast<std::uint32_t>(ways[f] * cost);
            fb += static_cast<std::uint32_t>(ways[f] * blocks);
            fy += static_cast<std::uint32_t>(ways[f] * symbols);
            fl += static_cast<std::uint32_t>(ways[f] * loops);
            fc += static_cast<std::uint32_t>(ways[f] * (std::int64_t{calls} - 1));
        }
        accepted_.push_back(&site);
        auto& [es, eb, ey, el, ec, ep, er] = estimates_[callee];
        if (--er == 0 && !keeps_[callee]) es = eb = ey = el = 0;
        for (std::size_t f = estimates_.size(); f-- != 0;)
            for (const CALLSITE* old : accepted_)
                if (old->caller->cg_number == static_cast<int>(f)) {
                    const int of_callee =
                        std::get<5>(estimates_[static_cast<std::size_t>(old->callee->cg_number)]);
                    std::get<5>(estimates_[f]) =
                        std::max(std::get<5>(estimates_[f]), old->pressure + of_callee);
                }
    }
    const ESTIMATES& of(const FUNINFO* f) const { return estimates_[static_cast<std::size_t>(f->cg_number)]; }

  private:
    std::vector<ESTIMATES> estimates_;
    std::vector<bool> keeps_;
    std::vector<const CALLSITE*> accepted_;
};

TEST_F(INLINING_TEST, EstimatesFollowWhatIsAcceptedAndForgetWhatIsNot) {
    std::mt19937 random(5);
    int rejected = 0, accepted = 0;
    for (int round = 0; round < 30; round++) {
        const int count = 2 + static_cast<int>(random() % (round < 25 ? 12 : 200));
        std::vector<FUNINFO*> all;
        for (int i = 0; i < count; i++) {
            FUNINFO* f = make_FUNINFO(
                function(("r" + std::to_string(round) + "_" + std::to_string(i)).c_str(), SC_STATIC));
            f->cg_number = i;
            f->size = static_cast<int>(random() % 40);
            f->est_size = static_cast<std::uint32_t>(f->size);
            f->est_bbs = random() % 5;
            f->est_syms = random() % 4;
            f->est_loops = random() % 3;
            f->pressure = static_cast<int>(random() % 10);
            if (random() % 3 == 0) f->flags |= FUN_cannot_suppress;
            all.push_back(f);
        }
        std::vector<std::unique_ptr<CALLSITE>> sites;
        for (int i = 0; i < 3 * count; i++) {
            const auto from = static_cast<int>(random() % static_cast<unsigned>(count - 1));
            const int to =
                from + 1 + static_cast<int>(random() % static_cast<unsigned>(std::min(6, count - from - 1)));
            sites.push_back(std::make_unique<CALLSITE>(
                site(all[static_cast<std::size_t>(from)], all[static_cast<std::size_t>(to)])));
            sites.back()->pressure = static_cast<int>(random() % 6);
            sites.back()->nargs = static_cast<std::int8_t>(random() % 4);
            sites.back()->caller->est_calls++;
            sites.back()->callee->remaining_sites++;
        }
        std::shuffle(sites.begin(), sites.end(), random);
        SITE_SELECTION selection(all);
        MODEL model(all);
        const std::int64_t time = selection.time_sum(), size = selection.size_sum();
        for (const auto& tried : sites) {
            const SELECTION_LIMITS limits{time + static_cast<std::int64_t>(random() % 4000),
                                          size + static_cast<std::int64_t>(random() % 200),
                                          1 + static_cast<std::uint32_t>(random() % 20),
                                          1 + static_cast<std::uint32_t>(random() % 60)};
            const bool taken = selection.select({tried.get()}, nullptr, "", limits) == 1;
            EXPECT_EQ(taken, tried->fate == SITE_FATE::INLINED);
            EXPECT_EQ(taken, tried->caller->inlined_sites[static_cast<std::size_t>(tried->index)]);
            if (taken) model.accept(*tried);
            (taken ? accepted : rejected)++;
            std::int64_t time_now = 0, size_now = 0;
            for (const FUNINFO* f : all) {
                ASSERT_EQ(estimates_of(f), model.of(f)) << f->name << (taken ? " accepted" : " rejected");
                time_now += SITE_SELECTION::time_of(f->est_size);
                size_now += f->est_size;
            }
            EXPECT_EQ(selection.time_sum(), time_now);
            EXPECT_EQ(selection.size_sum(), size_now);
            if (taken) {
                EXPECT_LE(time_now, limits.time);
                EXPECT_LE(size_now, limits.size);
                EXPECT_LE(tried->caller->est_loops, limits.loops);
                EXPECT_LE(tried->caller->est_bbs, limits.blocks);
            }
        }
        for (const FUNINFO* f : all) {
            const bool gone = TEST_FLAG(f, FUN_is_suppressed);
            const bool called =
                std::any_of(sites.begin(), sites.end(), [&](const auto& s) { return s->callee == f; });
            EXPECT_EQ(gone, called && f->remaining_sites == 0 && !TEST_FLAG(f, FUN_cannot_suppress));
        }
    }
    EXPECT_GT(accepted, 100);
    EXPECT_GT(rejected, 100);
}

TEST_F(INLINING_TEST, SelectionEndsWithTheNumberAskedFor) {
    FUNINFO *a = record(0), *b = record(1);
    a->est_size = b->est_size = 100;
    b->size = 100;
    std::vector<CALLSITE> sites;
    for (int i = 0; i < 4; i++) sites.push_back(site(a, b));
    b->remaining_sites = 4;
    SITE_SELECTION selection({a, b});
    process_debug_option("debug", "inline_n=3");
    // The limit would allow none.
    EXPECT_EQ(selection.select({&sites[0], &sites[1], &sites[2], &sites[3]}, nullptr, "", {1, 1, 1, 1}), 3);
    EXPECT_EQ(sites[3].fate, SITE_FATE::NOT_CHOSEN);
}

// --- The tests of the old policies.

std::int64_t total_by_definition(const FUNINFO* f, std::int64_t times) {
    if (TEST_FLAG(f, FUN_follows_call | FUN_cannot_inline) || f->size == 0) return 0;
    std::int64_t total = f->size;
    for (const CALL_EDGE* edge = f->callees; edge != nullptr; edge = edge->next)
        if (edge->callee != f) total += total_by_definition(edge->callee, edge->ncalls);
    return total * times;
}

bool static_by_definition(const FUNINFO* f) {
    if (!symbol_has_pragma(f->symbol, PRAG_INLINE)) return false;
    if (TEST_FLAG(f, FUN_follows_call | FUN_cannot_inline) || f->size == 0) return true;
    std::int64_t total = f->size;
    for (const CALL_EDGE* edge = f->callees; edge != nullptr; edge = edge->next)
        total += total_by_definition(edge->callee, edge->ncalls);
    return total * f->nCallers < (size_speed_goal() >= 2 ? 2000 : 500);
}

bool auto_by_definition(const FUNINFO* f) {
    const bool single_use =
        inline_single != 0 && f->remaining_sites == 1 && !TEST_FLAG(f, FUN_cannot_suppress);
    if (auto_inline() == 0 || f->size == 0) return single_use;
    if (symbol_has_pragma(f->symbol, PRAG_FUNC_ALWAYS_INLINE)) return true;
    std::int64_t s = f->size, edges = 0;
    for (const CALL_EDGE* edge = f->callees; edge != nullptr; edge = edge->next, edges++)
        if (TEST_FLAG(edge->callee, FUN_is_inlined)) s += edge->callee->size;
    if (s < 21 && edges <= 1) return true;
    const bool is_called_from_elsewhere = TEST_FLAG(f, FUN_is_cg_root | FUN_follows_call | FUN_is_anonymous);
    if (s <= 99 && (opt_level() > 2 || symbol_has_pragma(f->symbol, PRAG_INLINE)) &&
        (f->symbol->sclass == SC_STATIC || no_outside_callers != 0) && f->nCallers == 1 &&
        !is_called_from_elsewhere && !TEST_FLAG(f, FUN_cannot_suppress))
        return true;
    if (s * (is_called_from_elsewhere ? f->nCallers : f->nCallers - 1) <= auto_inline()) return true;
    return single_use;
}

TEST_F(INLINING_TEST, OldPolicyTestsFollowTheirDefinitions) {
    std::mt19937 random(17);
    int wanted[2] = {0, 0}, unwanted[2] = {0, 0};
    for (int round = 0; round < 120; round++) {
        set_level(random() % 2 == 0 ? "2" : "3");
        set_option(4, random() % 3 == 0 ? "0" : random() % 2 == 0 ? "20" : "60");
        set_option(57, random() % 2 == 0 ? "0" : "4");
        inline_single = random() % 2;
        no_outside_callers = static_cast<int>(random() % 2);
        fileinfo.ordered = {fileinfo.root};
        fileinfo.root->cg_number = 0;
        const int count = 3 + static_cast<int>(random() % 8);
        for (int i = 1; i <= count; i++) {
            FUNINFO* f =
                make_FUNINFO(function(("q" + std::to_string(round) + "_" + std::to_string(i)).c_str(),
                                      random() % 2 == 0 ? SC_STATIC : SC_EXTDEF));
            f->cg_number = i;
            f->size = random() % 8 == 0 ? 0 : static_cast<int>(random() % (random() % 3 == 0 ? 200 : 30));
            f->est_size = static_cast<std::uint32_t>(f->size);
            f->nCallers = f->remaining_sites = static_cast<std::uint16_t>(1 + random() % 3);
            for (const std::uint32_t flag : {FUN_follows_call, FUN_cannot_inline, FUN_is_cg_root,
                                             FUN_is_anonymous, FUN_cannot_suppress, FUN_is_inlined})
                if (random() % 5 == 0) f->flags |= flag;
            if (random() % 2 == 0) pragma(f->symbol, PRAG_INLINE);
            if (random() % 10 == 0) pragma(f->symbol, PRAG_FUNC_ALWAYS_INLINE);
            fileinfo.ordered.push_back(f);
        }
        for (std::size_t i = 1; i < fileinfo.ordered.size(); i++)
            for (std::size_t j = 1; j < fileinfo.ordered.size(); j++) {
                FUNINFO* callee = fileinfo.ordered[j];
                if (random() % 4 != 0 || (j < i && !TEST_FLAG(callee, FUN_follows_call))) continue;
                const std::uint16_t callers = callee->nCallers;
                for (unsigned n = 1 + random() % 2; n != 0; n--)
                    add_call_edge(fileinfo.ordered[i], callee, true);
                callee->nCallers = callers;
            }
        std::vector<FUNINFO*> all(fileinfo.ordered.begin() + 1, fileinfo.ordered.end());
        for (FUNINFO* callee : all) {
            CALLSITE tried = site(all.front(), callee);
            if (callee == all.front()) continue;
            SITE_SELECTION selection(all);
            INLINING inlining{all, {&tried}, selection};
            OLD_INLINER policy;
            policy.further_setup(inlining);
            EXPECT_EQ(policy.static_limit, 0);
            const bool asked = policy.static_inlining_predicate(tried);
            EXPECT_EQ(asked, static_by_definition(callee));
            const bool worth = auto_by_definition(callee);
            policy.auto_inlining_passes(inlining);
            EXPECT_EQ(tried.fate == SITE_FATE::INLINED, worth) << callee->size << " " << callee->nCallers;
            (asked ? wanted : unwanted)[0]++;
            (worth ? wanted : unwanted)[1]++;
        }
        fileinfo.ordered.clear();
    }
    for (const int i : {0, 1}) {
        EXPECT_GT(wanted[i], 50);
        EXPECT_GT(unwanted[i], 50);
    }
}

TEST_F(INLINING_TEST, RevisedPolicySetsItsLimitFromTheSquaresOfSizes) {
    FUNINFO *a = record(0), *b = record(1);
    a->est_size = 30;
    b->est_size = 10;
    SITE_SELECTION selection({a, b});
    INLINING inlining{{a, b}, {}, selection};
    REVISED_OLD_INLINER policy;
    policy.further_setup(inlining);
    EXPECT_EQ(policy.static_limit, 7 * (900 + 100));
    process_debug_option("debug", "inline_static_limit=150");
    policy.further_setup(inlining);
    EXPECT_EQ(policy.static_limit, 1500);
    process_debug_option("debug", "inline_static_limit=0");
}

// --- Decisions on whole files.

class DECISIONS : public INLINING_TEST, public ::testing::WithParamInterface<int> {
  protected:
    // Functions of all kinds, of which each calls some others, back and to itself as well.
    void random_file(std::mt19937& random, int count) {
        std::vector<SYMTAB*> all;
        for (int i = 0; i < count; i++) {
            SYMTAB* symbol = function(i == 0 ? "main" : ("g" + std::to_string(i)).c_str(),
                                      i == 0 || random() % 4 == 0 ? SC_EXTDEF : SC_STATIC);
            if (i != 0 && random() % 3 == 0) pragma(symbol, PRAG_INLINE);
            if (i != 0 && random() % 12 == 0) pragma(symbol, PRAG_FUNC_ALWAYS_INLINE);
            if (i != 0 && random() % 12 == 0) pragma(symbol, PRAG_FUNC_CANNOT_INLINE);
            all.push_back(symbol);
        }
        for (std::size_t i = 0; i < all.size(); i++) {
            std::vector<SYMTAB*> callees;
            for (unsigned n = random() % 4; n != 0; n--) {
                const bool ahead = random() % 10 != 0 && i + 1 < all.size();
                callees.push_back(ahead ? all[i + 1 + random() % (all.size() - i - 1)]
                                        : all[random() % all.size()]);
            }
            body(all[i], callees, static_cast<int>(random() % 12));
            if (random() % 15 == 0) scan_initialiser(address(all[i]));
        }
    }
    std::vector<FUNINFO*> compiled() {
        std::vector<FUNINFO*> result;
        for (FUNINFO* f : fileinfo.ordered)
            if (f != fileinfo.root) result.push_back(f);
        return result;
    }
    std::string decisions() {
        std::string text;
        for (const FUNINFO* f : compiled()) {
            text += f->name + (TEST_FLAG(f, FUN_is_suppressed) ? "-" : "+") +
                    (TEST_FLAG(f, FUN_is_inlined) ? "i " : " ");
            for (const CALLSITE* site : f->callsites) text += sentence_about(*site) + "\n";
        }
        return text;
    }
    // Whether every decision can be carried out, and nothing is missed that is suppressed.
    void check() {
        std::set<const FUNINFO*> needed;
        for (FUNINFO* caller : compiled()) {
            std::set<std::uint32_t> numbers;
            for (BBLK* bb = caller->bb_list; bb != nullptr; bb = bb->next)
                for (LIST* cell = bb->statements; cell != nullptr; cell = cell->next)
                    walk_tree(cell->first, [&](NODE* node) {
                        if (node->op != CALL && node->op != UCALL) return;
                        EXPECT_EQ(node->call_owner, caller);
                        EXPECT_TRUE(numbers.insert(node->unique_call_index).second);
                        FUNINFO* callee = find_FUNINFO_for_call(node);
                        ASSERT_LT(node->unique_call_index, caller->inlined_sites.size());
                        if (!caller->inlined_sites[node->unique_call_index]) {
                            needed.insert(callee);
                            return;
                        }
                        EXPECT_LT(caller->cg_number, callee->cg_number);
                        EXPECT_FALSE(TEST_FLAG(callee, FUN_cannot_inline));
                        EXPECT_NE(callee->integrable_cfg, nullptr);
                        EXPECT_TRUE(TEST_FLAG(callee, FUN_is_inlined));
                    });
            EXPECT_EQ(numbers.size(), caller->callsites.size());
        }
        for (const FUNINFO* f : compiled()) {
            if (!TEST_FLAG(f, FUN_is_suppressed)) continue;
            EXPECT_EQ(needed.count(f), 0u) << f->name;
            EXPECT_FALSE(TEST_FLAG(f, FUN_is_anonymous | FUN_is_main));
            EXPECT_TRUE(f->symbol->sclass == SC_STATIC || no_outside_callers != 0);
        }
    }
};

TEST_P(DECISIONS, CanBeCarriedOutAndDoNotDependOnTheRun) {
    std::mt19937 random(static_cast<unsigned>(GetParam()));
    int suppressed = 0;
    for (int round = 0; round < 12; round++) {
        TearDown();
        SetUp();
        inliner = make_inliner(GetParam());
        set_level(round % 4 == 3 ? "2" : "3");
        if (round % 3 == 0) no_outside_callers = 0;
        random_file(random, 3 + static_cast<int>(random() % (round == 0 ? 200 : 30)));
        auto_inline_call_sites();
        check();
        const std::string first = decisions();
        for (const FUNINFO* f : compiled()) suppressed += TEST_FLAG(f, FUN_is_suppressed) ? 1 : 0;
        auto_inline_call_sites();
        check();
        EXPECT_EQ(decisions(), first);
    }
    EXPECT_GT(suppressed, 5);
}

// A chain in which each function calls the next one twice: all copies would be too many to make.
TEST_P(DECISIONS, StayWithinBoundsWhereCopiesDouble) {
    inliner = make_inliner(GetParam());
    std::vector<SYMTAB*> chain;
    for (int i = 0; i < 60; i++) {
        chain.push_back(
            function(i == 0 ? "main" : ("c" + std::to_string(i)).c_str(), i == 0 ? SC_EXTDEF : SC_STATIC));
        if (i != 0) pragma(chain.back(), PRAG_FUNC_ALWAYS_INLINE);
    }
    for (std::size_t i = 0; i + 1 < chain.size(); i++) body(chain[i], {chain[i + 1], chain[i + 1]});
    body(chain.back(), {});
    auto_inline_call_sites();
    check();
    for (const FUNINFO* f : compiled()) EXPECT_LE(f->est_size, LARGEST_CALLER);
    EXPECT_TRUE(TEST_FLAG(find_FUNINFO(chain.back()), FUN_is_suppressed));
}

INSTANTIATE_TEST_SUITE_P(Policies, DECISIONS, ::testing::Range(1, NUMBER_OF_INLINERS + 1));

TEST_F(INLINING_TEST, WithoutLevelOnlyWhatTheSourceAsksFor) {
    set_level("0");
    SYMTAB *plain = function("plain", SC_STATIC), *asked = function("asked", SC_STATIC),
           *always = function("always", SC_STATIC);
    pragma(asked, PRAG_INLINE);
    pragma(always, PRAG_FUNC_ALWAYS_INLINE);
    for (SYMTAB* callee : {plain, asked, always}) body(callee, {});
    SYMTAB* main = function("main");
    body(main, {plain, asked, always});
    auto_inline_call_sites();
    EXPECT_EQ(find_FUNINFO(main)->inlined_sites, (std::vector<bool>{false, false, true, true}));
    set_option(34, "");
    auto_inline_call_sites();
    EXPECT_EQ(find_FUNINFO(main)->inlined_sites, (std::vector<bool>{false, false, false, true}));
}

TEST_F(INLINING_TEST, SynonymKeepsItsCallAndWhatItCalls) {
    SYMTAB *target = function("target", SC_STATIC), *synonym = function("synonym", SC_STATIC),
           *main = function("main");
    pragma(target, PRAG_INLINE);
    pragma(synonym, PRAG_FUNC_SYNONYM, "target");
    body(target, {});
    body(synonym, {target});
    body(main, {synonym, target});
    auto_inline_call_sites();
    EXPECT_EQ(find_FUNINFO(synonym)->inlined_sites, (std::vector<bool>{false, false}));
    EXPECT_FALSE(TEST_FLAG(find_FUNINFO(target), FUN_is_suppressed));
}

// --- Benefits.

TEST_F(INLINING_TEST, BenefitsWeighLoopsFoldingAndPressure) {
    FUNINFO *a = record(0), *b = record(1);
    b->remaining_sites = 2;
    CALLSITE tried = site(a, b);
    const NEW_INLINER by_points;
    const INLINER_5 by_weight;
    EXPECT_EQ(by_points.site_benefit(tried), -1 + 5);
    EXPECT_EQ(by_weight.site_benefit(tried), 2);
    tried.loop_height = 1;
    tried.loop_level = 2;
    tried.postdominates = true;
    tried.fold_ratio = 1.5f;
    EXPECT_EQ(by_points.site_benefit(tried), 10 + 7);
    EXPECT_EQ(by_weight.site_benefit(tried), (2 + 2) * 64);
    tried.pressure = 10;
    b->pressure = 6;
    EXPECT_EQ(by_weight.site_benefit(tried), (2 + 2 - 4) * 64);
    b->remaining_sites = 1;
    set_option(57, "0");
    EXPECT_EQ(by_points.site_benefit(tried), 10 + 7 + 10);
    a->entry_count = 100;
    tried.frequency = 0.125;
    EXPECT_EQ(by_points.site_benefit(tried), 10 + 7 + 10 + 12);
    b->pressure = 0;
    EXPECT_EQ(by_weight.site_benefit(tried), (2 + 2) * 12.5);
}

} // namespace
