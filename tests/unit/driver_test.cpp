// Switches, options and the table of steps.

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "OPT5/debug.h"
#include "OPT5/files.h"
#include "OPT5/option_obj.h"
#include "OPT5/pass.h"
#include "OPT5/steps.h"

namespace {

// The file's option set, filled with those words.
class options_in_force {
  public:
    explicit options_in_force(std::initializer_list<const char*> words) : options_(true) {
        for (const char* word : words) options_.process_option(word, 0);
        file_options = &options_;
        all_option_sets = {&options_};
        reset_global_flags();
        inhibit_clustering = 0;
        set_global_flags(&options_);
    }
    ~options_in_force() {
        file_options = nullptr;
        all_option_sets.clear();
    }

  private:
    option_obj options_;
};

TEST(Switches, LaterItemsWinAndValuesKeepTheirBase) {
    process_debug_option("debug", "t_a,t_b=3,t_a=0,t_hex=0x10,t_neg=-2");
    EXPECT_EQ(pass_debug("t_a"), 0);
    EXPECT_EQ(pass_debug("t_b"), 3);
    EXPECT_EQ(pass_debug("t_hex"), 16);
    EXPECT_EQ(pass_debug("t_neg"), -2);
    EXPECT_EQ(pass_debug("t_never_set"), 0);
    EXPECT_EQ(pass_enable("t_b"), 0) << "prefixes are apart";
}

TEST(Switches, OnlyDisableIsReducedToATruthValue) {
    process_debug_option("disable", "t_d=7");
    process_debug_option("enable", "t_e=7");
    EXPECT_EQ(pass_disable("t_d"), 1);
    EXPECT_EQ(pass_enable("t_e"), 7);
    EXPECT_EQ(pass_disable("t_other"), 0);
}

// The store grows in steps of 100; look-ups must survive a step.
TEST(Switches, FindTheFirstBehindTheHundredth) {
    for (int i = 0; i < 250; i++)
        process_debug_option("debug", ("t_many" + std::to_string(i) + "=" + std::to_string(i + 1)).c_str());
    for (int i = 0; i < 250; i++) EXPECT_EQ(pass_debug(("t_many" + std::to_string(i)).c_str()), i + 1);
}

TEST(Switches, RegisteredObjectsShareTheirKey) {
    register_option first("enable:t_reg"), second("enable:t_reg");
    EXPECT_TRUE(register_option::is_registered("enable:t_reg"));
    EXPECT_FALSE(static_cast<bool>(second));
    first = 5;
    EXPECT_EQ(static_cast<int>(second), 5);
    EXPECT_EQ(pass_enable("t_reg"), 5);
}

TEST(Options, LevelsAndGoalsFollowTheirWords) {
    const struct {
        const char* word;
        int level;
    } levels[] = {{"-opt_level=0", 0}, {"-opt_level=off", 0}, {"-opt_level=1", 1}, {"-opt_level=2", 2},
                  {"-opt_level=3", 3}, {"-opt_level=4", 4},   {"O0", 0},           {"O3", 3}};
    for (const auto& row : levels) {
        options_in_force options({row.word});
        EXPECT_EQ(opt_level(), row.level) << row.word;
    }
    for (int goal = 0; goal <= 5; goal++) {
        options_in_force options({("-size_speed_goal=" + std::to_string(goal)).c_str()});
        EXPECT_EQ(size_speed_goal(), goal);
    }
    options_in_force options({});
    EXPECT_EQ(opt_level(), 1);
    EXPECT_EQ(size_speed_goal(), 4);
    EXPECT_EQ(auto_inline(), 0);
}

TEST(Options, InliningDependsOnTheLevelUnlessItIsGiven) {
    {
        options_in_force options({"O2"});
        EXPECT_EQ(auto_inline(), 20);
    }
    {
        options_in_force options({"O3"});
        EXPECT_EQ(auto_inline(), default_o3_auto_inline);
    }
    {
        options_in_force options({"O3", "-auto_inline=7"});
        EXPECT_EQ(auto_inline(), 7);
    }
}

TEST(Options, FlagsForceOthers) {
    {
        options_in_force options({"-optimistic_aliases", "-aliased_variables"});
        EXPECT_EQ(alias_vars, 0);
        EXPECT_EQ(chars_alias_other_types, 0);
        EXPECT_EQ(pointer_args_are_disjoint, 1);
        EXPECT_EQ(loop_increments_are_not_zero, 1);
    }
    {
        options_in_force options({"O0"});
        EXPECT_EQ(alias_vars, 1) << "at level 0 every local may be aliased";
        EXPECT_EQ(inhibit_clustering, 1);
    }
    options_in_force options(
        {"-fp_mode=relaxed", "-endian=big", "-program_mode=3", "-library_functions_unknown"});
    EXPECT_EQ(strict_fp, 0);
    EXPECT_EQ(memory_is_big_endian, 1);
    EXPECT_EQ(program_mode, 3);
    EXPECT_EQ(cache_sys_funinfo, 0);
}

TEST(Options, RepeatedListsAddUpAndOthersAreReplaced) {
    options_in_force options({"-debug=t_l1", "O1", "-debug=t_l2=9", "O2"});
    EXPECT_EQ(pass_debug("t_l1"), 1);
    EXPECT_EQ(pass_debug("t_l2"), 9);
    EXPECT_EQ(opt_level(), 2);
}

TEST(Steps, StandUnderTheirNumbers) {
    std::set<std::string> names;
    for (int id = 0; id < STEP_COUNT; id++) {
        EXPECT_EQ(step_table[id].id, id);
        names.insert(step_table[id].name);
        EXPECT_EQ(step_table[id].barrier, id >= 3 && id <= 10) << id;
    }
    EXPECT_EQ(names.size(), static_cast<std::size_t>(STEP_COUNT - 1)) << "one name stands twice, SSA_deadasg";
}

// docs/steps.md is made from the table: UPDATE_DOCS=1 driver_test writes it anew.
TEST(Steps, AreDocumentedAsTheyStand) {
    constexpr char MARK[] = "<!-- table -->\n";
    const std::string path = std::string(SOURCE_DIR) + "/docs/steps.md";
    std::stringstream text;
    text << std::ifstream(path).rdbuf();
    const std::size_t at = text.str().find(MARK);
    ASSERT_NE(at, std::string::npos);
    char* buffer = nullptr;
    std::size_t size = 0;
    std::FILE* stream = open_memstream(&buffer, &size);
    document_steps(stream);
    std::fclose(stream);
    const std::string table(buffer, size);
    std::free(buffer);
    const std::string wanted = text.str().substr(0, at) + MARK + table;
    if (std::getenv("UPDATE_DOCS") != nullptr) std::ofstream(path) << wanted;
    std::stringstream again;
    again << std::ifstream(path).rdbuf();
    EXPECT_EQ(again.str(), wanted);
}

} // namespace
