/* Settings of the out-of-core mode: environment, configuration file, and which of them wins. */
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "../solver/output_capture.h"
#include "ooc/ooc.h"

namespace
{

struct configuration : testing::Test {
    std::filesystem::path folder;
    char path[1000];
    ooc_state state = {};
    std::string printed;

    static constexpr const char *names[] = {"CFG_PATH", "CFG_FILE_NAME", "PATH", "MAX_CORE_SIZE", "MAX_SWAP_SIZE", "KEEP_FILE"};
    static std::string variable(const std::string &name)
    {
        return "WKL_SOLVARA_OOC_" + name;
    }
    configuration()
    {
        char name[] = "/tmp/ooc_cfg_XXXXXX";
        folder = mkdtemp(name);
        forget();
    }
    ~configuration() override
    {
        forget();
        std::filesystem::remove_all(folder);
    }
    static void forget()
    {
        for (const char *name : names) unsetenv(variable(name).c_str());
    }
    static void set(const char *name, const std::string &value)
    {
        setenv(variable(name).c_str(), value.c_str(), 1);
    }
    /* Configure with this text in the file solvara_ooc.cfg of the folder. */
    void with_file(const std::string &text)
    {
        std::ofstream(folder / "solvara_ooc.cfg") << text;
        set("CFG_PATH", folder);
        run();
    }
    void run()
    {
        output_capture capture;
        EXPECT_EQ(ooc_configure(path, &state, 1), 0);
        printed = capture.text();
    }
    void expect(const char *wanted_path, int64_t core, int64_t swap, int64_t keep)
    {
        EXPECT_STREQ(path, wanted_path);
        EXPECT_EQ(state.max_core_size, core);
        EXPECT_EQ(state.max_swap_size, swap);
        EXPECT_EQ(state.files_open, keep);
    }
};

} // namespace

TEST_F(configuration, defaults_and_a_missing_file)
{
    set("CFG_PATH", folder);
    run();
    expect("ooc_temp", 2000, 0, 1);
    EXPECT_EQ(printed,
              "ooc_cfg_path       got by Env=" + folder.string() + "\nThe file " + folder.string() + "/solvara_ooc.cfg was not opened\n");
}

TEST_F(configuration, environment_wins_and_shuts_the_file_out)
{
    set("PATH", "/somewhere/part one");
    set("MAX_CORE_SIZE", "123");
    set("MAX_SWAP_SIZE", "45");
    set("KEEP_FILE", "0");
    set("CFG_FILE_NAME", "absent.cfg");
    run();
    expect("/somewhere/part one", 123, 45, 0);
    EXPECT_EQ(printed, "ooc_cfg_file_name  got by Env=absent.cfg\nooc_path           got by Env=/somewhere/part one\n"
                       "ooc_max_core_size  got by Env=123\nooc_max_swap_size got by Env=45\nooc_keep_file      got by Env=0\n");
}

TEST_F(configuration, keys_comments_blanks_and_repetitions)
{
    with_file("# a comment\n"
              "\n\n"
              "WKL_Solvara_OOC_Max_Core_Size = 10\n"
              "wkl_solvara_ooc_path = /tmp/my  files/part # comment\n"
              "wkl_solvara_ooc_max_core_size\t= 77 # the last one counts\n"
              "wkl_solvara_ooc_keep_file 0\n"
              "wkl_solvara_ooc_max_swap_size = 5\n"
              "unknown = 3\n"
              "wkl_solvara_ooc_keep_file=0");
    expect("/tmp/my files/part", 77, 0, 0);
    with_file("wkl_solvara_ooc_path=a=b\r\nwkl_solvara_ooc_keep_file = \nwkl_solvara_ooc_max_core_size = #9\n");
    expect("a b", 2000, 0, 1);
    set("MAX_SWAP_SIZE", "9"); /* shuts out the core size of the file */
    with_file("wkl_solvara_ooc_path = file\nwkl_solvara_ooc_max_core_size = 7\nwkl_solvara_ooc_keep_file = 0\n");
    expect("file", 2000, 9, 0);
}

TEST_F(configuration, numbers_that_do_not_parse)
{
    with_file("wkl_solvara_ooc_max_core_size = many\n");
    EXPECT_EQ(state.max_core_size, 0); /* the parser's number starts at 0 in a file */
    with_file("wkl_solvara_ooc_max_core_size = 31x\nwkl_solvara_ooc_keep_file = no\n");
    EXPECT_EQ(state.max_core_size, 31);
    EXPECT_EQ(state.files_open, 31); /* and keeps the last one */
    set("MAX_CORE_SIZE", "lots");
    with_file("wkl_solvara_ooc_max_core_size = 5\n");
    EXPECT_EQ(state.max_core_size, 2000);
}

TEST_F(configuration, long_lines_and_values_are_cut_without_harm)
{
    with_file("wkl_solvara_ooc_path = " + std::string(20000, 'p') + "\n" + std::string(50000, 'k') +
              " = 1\nwkl_solvara_ooc_max_core_size=3");
    EXPECT_EQ(std::string(path), std::string(999, 'p'));
    EXPECT_EQ(state.max_core_size, 3);
    set("PATH", std::string(1500, 'e')); /* does not fit: as if it were absent */
    with_file("wkl_solvara_ooc_path = short\n");
    EXPECT_STREQ(path, "short");
}
