// Switches, options and the table of steps.

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <initializer_list>
#include <set>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "DIAG/diag.h"
#include "OPT5/debug.h"
#include "OPT5/files.h"
#include "OPT5/option_obj.h"
#include "OPT5/pass.h"
#include "OPT5/steps.h"
#include "OPT5/symbol.h"

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

// A key is bounded; the same name must still find itself, and one that differs behind the bound is the same.
TEST(Switches, LongNamesAreCut) {
    const std::string name = "t_" + std::string(600, 'n');
    process_debug_option("debug", (name + "=8").c_str());
    EXPECT_EQ(pass_debug(name.c_str()), 8);
    EXPECT_EQ(pass_debug((name + "more").c_str()), 8);
    EXPECT_EQ(pass_debug(name.substr(0, 400).c_str()), 0);
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

// Values that no word of the table can give must not pass as some level.
TEST(OptionsDeathTest, LevelsAndGoalsOutOfRangeEndTheRun) {
    const auto force = [](int number) {
        option_obj options(true);
        options.set(number, "7");
        file_options = &options;
        set_global_flags(&options);
    };
    EXPECT_EXIT(force(46), testing::ExitedWithCode(1), "^--opt_level given invalid value: 0\n");
    EXPECT_EXIT(force(57), testing::ExitedWithCode(1), "^--size_speed_goal given invalid value:  0\n");
}

TEST(Options, EachFlagFollowsItsWordAndTheLatestOfSeveral) {
    const struct {
        std::initializer_list<const char*> words;
        int* flag;
        int value;
    } rows[] = {
        {{}, &program_mode, -1},
        {{}, &max_unrolled_loop_size, 195},
        {{}, &cache_sys_funinfo, 2},
        {{}, &code_is_reentrant, 1},
        {{"-aliased_variables"}, &alias_vars, 1},
        {{"-big_endian"}, &memory_is_big_endian, 1},
        {{"-big_endian", "-endian=little"}, &memory_is_big_endian, 0},
        {{"-endian=little", "-big_endian"}, &memory_is_big_endian, 1},
        {{"-program_mode=2"}, &program_mode, 2},
        {{"-dump_call_graph=dot", "-dump_call_graph"}, &dump_ocg_in_GDL, 1},
        {{"-dump_call_graph=dot"}, &dump_ocg_in_GDL, 2},
        {{"-optimistic_loops"}, &loop_increments_are_not_zero, 1},
        {{"-far_externs"}, &far_externs, 1},
        {{"-fp_mode=relaxed", "-fp_mode=strict"}, &strict_fp, 1},
        {{"-kr_compatible"}, &kr_flag, 1},
        {{"-max_unrolled_size=0x40"}, &max_unrolled_loop_size, 64},
        {{"-not_reentrant"}, &code_is_reentrant, 0},
        {{"-source_interlist"}, &source_interlist, 1},
        {{"-args_in_regs"}, &pass_args_in_regs, 1},
        {{"-inline_single"}, &inline_single, 1},
        {{"-library_functions_unknown", "-library_functions_declared"}, &cache_sys_funinfo, 1},
        {{"-library_functions_declared", "-library_functions_standard"}, &cache_sys_funinfo, 2},
        {{"-unsigned_loop_counters"}, &unsigned_ok_for_RPTB, 1},
        {{"-old_const_pointers"}, &old_const_pointer_behavior, 1},
        {{"-no_g2", "-use_g2"}, &use_g2, 1},
        {{"-use_g2", "-no_g2"}, &use_g2, 0},
        {{"-use_g2", "-no_g2", "-use_g2"}, &use_g2, 1},
        {{"-volatile_variables"}, &volit_vars, 1},
    };
    for (const auto& row : rows) {
        options_in_force options(row.words);
        EXPECT_EQ(*row.flag, row.value) << (row.words.size() == 0 ? "default" : *(row.words.end() - 1));
    }
}

TEST(Options, SettingsWithoutAFlagAreAskedForAtUse) {
    {
        options_in_force options({});
        EXPECT_TRUE(fp_add_is_associative());
        EXPECT_FALSE(saturating_add_is_associative());
        EXPECT_EQ(interrupt_threshold(), 0);
        EXPECT_FALSE(use_llvm());
    }
    {
        options_in_force options(
            {"-fp_reassociation=off", "-sat_reassociation=on", "-interrupt_threshold=12", "-use_llvm"});
        EXPECT_FALSE(fp_add_is_associative());
        EXPECT_TRUE(saturating_add_is_associative());
        EXPECT_EQ(interrupt_threshold(), 0) << "only together with -interruptible";
        EXPECT_TRUE(use_llvm());
    }
    options_in_force options({"-interruptible", "-interrupt_threshold=12"});
    EXPECT_EQ(interrupt_threshold(), 12);
}

TEST(Options, OfTheFunctionInWorkOutrankThoseOfTheFile) {
    options_in_force file({"O1"});
    option_obj of_function(true);
    of_function.process_option("O4", 0);
    of_function.process_option("-size_speed_goal=0", 0);
    all_option_sets.push_back(&of_function);
    SYMTAB function;
    function.option_set = 1;
    currfunc = &function;
    EXPECT_EQ(opt_level(), 4);
    EXPECT_EQ(size_speed_goal(), 0);
    EXPECT_EQ(auto_inline(), default_o3_auto_inline);
    currfunc = nullptr;
    EXPECT_EQ(opt_level(), 1);
    EXPECT_EQ(size_speed_goal(), 4);
}

// The command line is laid over each set of the file as the words that its export gives.
TEST(Options, ExportedWordsMakeTheSameSetAgain) {
    option_obj first(true), second(true);
    for (const char* word : {"O3", "-debug=t_x1,t_x2=4", "-pass_order=1,2 3", "-opt_info", "-debug=t_x3",
                             "-use_g2", "-opt_info_file=a=b.nfo", "-opt_level=off"})
        first.process_option(word, 0);
    for (const auto& [number, word] : first.export_option_pairs()) second.process_option(word.c_str() + 1, 0);
    EXPECT_EQ(second.export_option_pairs(), first.export_option_pairs());
    EXPECT_EQ(second.argcount(11), 2);
    EXPECT_STREQ(second.getstrarg(11, 1), "t_x3");
    EXPECT_STREQ(second.getstrarg(45, 0), "a=b.nfo");
    EXPECT_STREQ(second.getstrarg(47, 0), "1,2 3");
    EXPECT_EQ(second.getnumarg(46, 0), 38);
    EXPECT_EQ(second.getnumarg(27, 0), 1);
    EXPECT_EQ(second.getstrarg(11, 2), nullptr);
}

// State that a signal finds may be corrupt, and its texts of any length.
TEST(Signals, TextIsCutToItsBufferAndDistrustsItsArguments) {
    char buffer[16] = "at ";
    sigstrnappend(buffer, sizeof buffer, "%d%c%%", INT_MIN, '!');
    EXPECT_STREQ(buffer, "at -2147483648!");
    sigstrnappend(buffer, sizeof buffer, "more");
    EXPECT_STREQ(buffer, "at -2147483648!");
    char text[64] = "";
    const char* corrupt = reinterpret_cast<const char*>(std::uintptr_t{100000});
    sigstrnappend(text, sizeof text, "%s, %s", corrupt, "a name");
    EXPECT_STREQ(text, "<unknown>, a name");
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
