/* The catalogue, the two format passes and the module of translated texts. */
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>

#include "platform/platform.h"
#include "run_probe.h"
#include "service/message_catalogue.h"
#include "service/service.h"

static std::string printed(int32_t number, int32_t count, auto... arguments)
{
    testing::internal::CaptureStdout();
    service_print_message(0, number, count, arguments...);
    (void)std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

TEST(catalogue, rows_stand_in_order_with_their_levels)
{
    for (int32_t n = 0; n < message_count; ++n) ASSERT_EQ(message_catalogue.row[n].number, n);
    const auto level = [](int32_t n) { return message_catalogue.row[n].level; };
    const int32_t edges[][3] = {{0, 0, 1},       {1, 3, 4},       {4, 5, 2},       {6, 760, 4},     {761, 761, 2},
                                {762, 1057, 4},  {1058, 1062, 1}, {1063, 1063, 4}, {1064, 1083, 1}, {1084, 1089, 4},
                                {1090, 1090, 1}, {1091, 1237, 4}, {1238, 1242, 1}, {1243, 1398, 4}, {1399, 1403, 1}};
    for (const auto &[first, last, wanted] : edges) {
        EXPECT_EQ(level(first), wanted) << first;
        EXPECT_EQ(level(last), wanted) << last;
    }
}

/* A twin that differs in more than the width of its counts would print another text for a 64-bit caller. */
TEST(catalogue, twins_differ_in_the_width_of_integers_only)
{
    for (int32_t n = message_narrow_first; n <= message_narrow_last; ++n) {
        std::string wide = message_catalogue.row[message_wide(n)].text;
        for (std::size_t at; (at = wide.find("%lli")) != std::string::npos;) wide.replace(at, 4, "%d");
        std::string narrow = message_catalogue.row[n].text;
        for (std::size_t at; (at = narrow.find("%i")) != std::string::npos;) narrow.replace(at, 2, "%d");
        EXPECT_EQ(wide, narrow);
        EXPECT_FALSE(narrow.empty()) << n;
    }
    EXPECT_LE(message_wide(message_narrow_last), 1398);
}

TEST(printing, texts_and_line_ends)
{
    EXPECT_EQ(printed(message_line_end, 0), "\n");
    EXPECT_EQ(printed(message_parameter, 2, 3, "WKL_DCSRSYMV"), "Norvi WKL ERROR: Parameter 3 was incorrect on entry to WKL_DCSRSYMV.\n");
    EXPECT_EQ(printed(message_wide(message_error_row_pointers), 3, int64_t{1} << 40, int64_t{-2}, int64_t{3}),
              "*** Input check: i=1099511627776, ia(i)=-2, ia(i+1)=3 are incompatible\n");
    EXPECT_EQ(printed(message_ooc_write_mb, 1, 12.5), "      write to files :     12.500 Mb\n");
    EXPECT_EQ(printed(500, 0), "\n") << "a row of another domain";
    EXPECT_EQ(printed(message_count, 0), "\n") << "no row";
    EXPECT_STREQ(service_message_text(message_line_end, 0), "");
    EXPECT_STREQ(service_message_text(message_workspace, 1, "F"),
                 "Norvi WKL INTERNAL ERROR: Insufficient workspace available in function F.");
}

/* Names from the environment and from files reach the second pass: nothing in them may read or write memory. */
TEST(printing, second_pass_reads_no_arguments)
{
    EXPECT_EQ(printed(message_report_density, 1, 50.0), "             number of non-zeros in A (%): 50.000000\n");
    EXPECT_EQ(printed(message_ooc_factorization_step_percent, 0), "Factorization step (100 (%)):\n");
    EXPECT_EQ(printed(message_ooc_env_path, 1, "%n%s%d 50%% %"), "ooc_path           got by Env=%n%s%d 50% %\n");
    EXPECT_EQ(printed(message_parameter, 0), "Norvi WKL ERROR: Parameter %d was incorrect on entry to %s.\n");
    EXPECT_EQ(printed(message_parameter, 1, 4), "Norvi WKL ERROR: Parameter 4 was incorrect on entry to %s.\n");
    EXPECT_EQ(printed(message_report_times, 3, 1, 2, 3), "Times:\n");
}

TEST(printing, overflow_stops_at_514_characters)
{
    const std::size_t lead = std::strlen("ooc_path           got by Env=");
    const probe_result fits = run_probe(PROBE_REAL, {}, "path " + std::to_string(513 - lead));
    EXPECT_EQ(fits.status, 0);
    EXPECT_EQ(fits.output.size(), 514u);
    for (const std::size_t length : {std::size_t{514}, std::size_t{100000}}) {
        const probe_result over = run_probe(PROBE_REAL, {}, "path " + std::to_string(length - lead));
        EXPECT_EQ(over.status, 8);
        EXPECT_EQ(over.output, "\nWKL INTERNAL ERROR: message buffer overflow.\n       Message N " + std::to_string(message_ooc_env_path) +
                                   "   Lenght: " + std::to_string(length - 1) + "   Buffer size: 512\n");
    }
    const std::string name(600, 'y');
    EXPECT_EQ(std::strlen(service_message_text(message_ooc_env_path, 1, name.c_str())), 513u);
}

static int64_t expanded(std::string *out, const char *text, int32_t count, ...)
{
    char buffer[64];
    va_list arguments;
    va_start(arguments, count);
    const int64_t length = expand_message({text, static_cast<int64_t>(std::strlen(text))}, count, arguments, buffer, sizeof buffer);
    va_end(arguments);
    *out = buffer;
    return length;
}

TEST(expansion, directives)
{
    std::string out;
    EXPECT_EQ(expanded(&out, "%5d|%-4lli|%c|%.2e|%s", 5, 7, int64_t{8}, 'x', 0.5, static_cast<const char *>(nullptr)), 28);
    EXPECT_EQ(out, "    7|8   |x|5.00e-01|(null)");
    (void)expanded(&out, "%n%*d%q%9999d%", 5, 1, 2, 3, 4, 5);
    EXPECT_EQ(out, "%n%*d%q%9999d%") << "directives that write memory or are not understood stay";
    (void)expanded(&out, "%d %% %d %% %d", 2, 1, 2);
    EXPECT_EQ(out, "1 % 2 % %d");
    EXPECT_EQ(expanded(&out, "%s", 1, std::string(900, 'z').c_str()), 900);
    EXPECT_EQ(out, std::string(63, 'z')) << "cut, and closed";
}

struct message_module : testing::Test {
    std::filesystem::path folder;
    void SetUp() override
    {
        char name[] = "/tmp/wkl_messages_XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        folder = name;
    }
    void TearDown() override
    {
        std::filesystem::remove_all(folder);
    }

    /* Make a module for a locale number out of gencat lines. */
    void write_module(const std::string &locale, const std::string &lines)
    {
        std::filesystem::create_directory(folder / locale);
        std::ofstream(folder / "texts") << "$set 1\n" << lines;
        const std::string command = "gencat " + (folder / locale / platform_message_module).string() + " " + (folder / "texts").string();
        ASSERT_EQ(std::system(command.c_str()), 0);
    }
};

TEST_F(message_module, translations_serve_where_they_are_whole)
{
    const auto row = [](int32_t number, const char *text) { return std::to_string(number) + " " + text + "\n"; };
    write_module("1031", row(message_parameter, "Parameter %d von %s ist falsch.\\r\\n") + row(message_condition, "Unfug %s %s\\r\\n") +
                             row(message_report_times, "Zeiten: 100 %%, 100 %d\\r\\n") + row(message_report_statistics, "ohne Ende"));
    const std::string german = "Parameter 3 von WKL_DCSRSYMV ist falsch.\nZeiten: 100 %, 100 %d\nStatistics:\n"
                               "*** Input check: nb_new 0 ido 33 are incompatible\n"
                               "[Norvi WKL INTERNAL ERROR: Condition 4 detected in function F.]\n";
    const std::string english = "Norvi WKL ERROR: Parameter 3 was incorrect on entry to WKL_DCSRSYMV.\nTimes:\nStatistics:\n"
                                "*** Input check: nb_new 0 ido 33 are incompatible\n"
                                "[Norvi WKL INTERNAL ERROR: Condition 4 detected in function F.]\n";
    EXPECT_EQ(run_probe(PROBE_REAL, {"LC_ALL=de_DE.UTF-8"}, "messages", folder).output, german);
    EXPECT_EQ(run_probe(PROBE_REAL, {"LANG=de_DE"}, "messages", folder).output, german);
    EXPECT_EQ(run_probe(PROBE_REAL, {"LC_ALL=fr_FR.UTF-8"}, "messages", folder).output, english) << "no module of this locale";
    std::filesystem::create_directory(folder / "1033");
    std::ofstream(folder / "1033" / platform_message_module) << "not a catalogue";
    EXPECT_EQ(run_probe(PROBE_REAL, {}, "messages", folder).output, english) << "a file that is no module is passed over in silence";
}
