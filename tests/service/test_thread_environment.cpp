/* Thread counts as the environment, the runtime, the processors and a launcher decide them together. */
#include <gtest/gtest.h>

#include "run_probe.h"

using settings = std::vector<std::string>;

struct thread_case {
    const char *fault; /* what would go wrong */
    settings environment;
    std::vector<std::pair<const char *, const char *>> expected;
};

static const char one_thread_a_core[] = "PROBE_1=0,00020000,0,10000000"; /* 2 logical processors in the package */
static const char two_cores[] = "PROBE_4=04000121,0,0,0";                /* and 2 cores */

static settings eight_cores(settings more)
{
    more.insert(more.end(), {"PROBE_1=0,00080000,0,10000000", "PROBE_4=1c000121,0,0,0", "PROBE_MASKS=ff,ff", "PROBE_APIC=0,1,2,3,4,5,6,7"});
    return more;
}

static settings on_two_cores(settings more)
{
    more.insert(more.end(), {one_thread_a_core, two_cores});
    return more;
}

static void check(const std::vector<thread_case> &cases, const char *command)
{
    for (const thread_case &c : cases) {
        const probe_result result = run_probe(PROBE_FAKE, c.environment, command);
        EXPECT_EQ(result.status, 0) << c.fault;
        for (const auto &[key, value] : c.expected) EXPECT_EQ(value_of(result.output, key), value) << c.fault << ": " << key;
    }
}

TEST(thread_environment, counts)
{
    check(
        {
            {"a word must count as 1", on_two_cores({"WKL_NUM_THREADS=abc"}), {{"all", "1"}, {"d4", "1"}}},
            {"a number with a tail must count as 1", on_two_cores({"WKL_NUM_THREADS=2x", "WKL_DYNAMIC=false"}), {{"all", "1"}}},
            {"0 must be ignored", on_two_cores({"WKL_NUM_THREADS=0", "OMP_NUM_THREADS=2"}), {{"all", "2"}}},
            {"256 characters are absent",
             on_two_cores({"WKL_NUM_THREADS=" + std::string(255, '0') + "1", "OMP_NUM_THREADS=2"}),
             {{"all", "2"}}},
            {"255 characters are taken",
             on_two_cores({"WKL_NUM_THREADS=" + std::string(254, '0') + "1", "OMP_NUM_THREADS=2"}),
             {{"all", "1"}}},
            {"no cap at cores", on_two_cores({"WKL_NUM_THREADS=4"}), {{"all", "2"}, {"solver", "2"}, {"dynamic", "1"}}},
            {"cap with dynamic off", on_two_cores({"WKL_NUM_THREADS=4", "WKL_DYNAMIC=false"}), {{"all", "4"}, {"dynamic", "0"}}},
            {"overflow", on_two_cores({"WKL_NUM_THREADS=99999999999", "WKL_DYNAMIC=FALSE"}), {{"all", "2147483647"}}},
            {"quotes around the word", on_two_cores({"WKL_DYNAMIC=  \"FALSE' x"}), {{"dynamic", "0"}}},
            {"FALSEHOOD is no keyword", on_two_cores({"WKL_DYNAMIC=FALSEHOOD"}), {{"dynamic", "1"}}},
            {"a restricted process must not be capped",
             on_two_cores({"WKL_NUM_THREADS=9", "PROBE_MASKS=1,3"}),
             {{"all", "9"}, {"packages", "-1"}, {"per_package", "-1"}, {"physical", "1"}}},
        },
        "threads");
}

TEST(thread_environment, domains)
{
    const settings free_counts = {"WKL_DYNAMIC=false", "OMP_NUM_THREADS=2"};
    const auto with = [&](const std::string &list, settings more = {}) {
        more.insert(more.end(), free_counts.begin(), free_counts.end());
        more.push_back("WKL_DOMAIN_NUM_THREADS=" + list);
        return more;
    };
    check(
        {
            {"plain list", with("WKL_BLAS=3, WKL_SOLVARA=5"), {{"d1", "3"}, {"d2", "2"}, {"d4", "5"}, {"all", "2"}, {"other", "2"}}},
            {"long names", with("WKL_DOMAIN_FFT=3;WKL_DOMAIN_VML=4:WKL_DOMAIN_BLAS=6"), {{"d1", "6"}, {"d2", "3"}, {"d3", "4"}}},
            {"the first entry stands", with("WKL_BLAS=3 WKL_BLAS=4"), {{"d1", "3"}}},
            {"general count and WKL_ALL", with("WKL_ALL=5", {"WKL_NUM_THREADS=3"}), {{"all", "3"}, {"d1", "3"}}},
            {"WKL_ALL alone", with("WKL_DOMAIN_ALL=5"), {{"all", "5"}, {"d1", "5"}, {"other", "5"}}},
            {"an unknown key is skipped", with("WKL_BLA=9,wkl_blas=9,WKL_FFT=3"), {{"d1", "2"}, {"d2", "3"}}},
            {"blanks around the sign", with("  WKL_BLAS  = =  3"), {{"d1", "3"}}},
            {"an empty key ends the list", with("WKL_FFT=3 =4 WKL_BLAS=5"), {{"d2", "3"}, {"d1", "2"}}},
            {"a quoted key has no value, and what follows ends the list", with("\"WKL_BLAS\"=4 WKL_FFT=3"), {{"d1", "1"}, {"d2", "2"}}},
            {"0 leaves the entry open for the next", with("WKL_BLAS=0,WKL_BLAS=4"), {{"d1", "4"}}},
        },
        "threads");
}

TEST(thread_environment, launcher)
{
    const char *two = "W_MPI_NUMBER_OF_MPI_PROCESSES_PER_NODE=2";
    check(
        {
            {"no thread level", eight_cores({two}), {{"all", "1"}}},
            {"cores are shared", eight_cores({two, "W_MPI_THREAD_LEVEL=1"}), {{"all", "4"}}},
            {"more processes than cores",
             eight_cores({"W_MPI_NUMBER_OF_MPI_PROCESSES_PER_NODE=99", "W_MPI_THREAD_LEVEL=3"}),
             {{"all", "1"}}},
            {"OMP_NUM_THREADS disarms", eight_cores({two, "OMP_NUM_THREADS=6"}), {{"all", "6"}}},
            {"an explicit count disarms", eight_cores({two, "WKL_NUM_THREADS=5"}), {{"all", "5"}}},
            {"dynamic off disarms", eight_cores({two, "WKL_DYNAMIC=false", "WKL_NUM_THREADS=77"}), {{"all", "77"}}},
        },
        "threads");
}

TEST(thread_environment, inside_a_region)
{
    check(
        {
            {"dynamic on must stay serial inside", {"WKL_NUM_THREADS=3"}, {{"all", "1"}, {"d4", "1"}}},
            {"dynamic off answers the plain value", {"WKL_NUM_THREADS=3", "WKL_DYNAMIC=FALSE"}, {{"all", "3"}, {"d4", "3"}}},
        },
        "region");
    check({{"hint and the thread's own value", on_two_cores({"WKL_NUM_THREADS=2"}), {{"hinted", "1"}, {"own", "7"}}}}, "overrides");
}

TEST(thread_environment, topology)
{
    check(
        {
            {"plain cores", eight_cores({}), {{"packages", "1"}, {"per_package", "8"}, {"physical", "8"}, {"logical", "8"}, {"ht", "0"}}},
            {"two threads a core must count once",
             {"PROBE_1=0,00080000,0,10000000", "PROBE_4=0c000121,0,0,0", "PROBE_MASKS=ff,ff", "PROBE_APIC=0,1,2,3,4,5,6,7"},
             {{"packages", "1"}, {"per_package", "4"}, {"ht", "1"}, {"logical", "8"}}},
            {"two packages",
             {"PROBE_1=0,00040000,0,10000000", "PROBE_4=04000121,0,0,0", "PROBE_MASKS=ff,ff", "PROBE_APIC=0,1,2,3,4,5,6,7"},
             {{"packages", "2"}, {"per_package", "2"}, {"physical", "4"}, {"ht", "1"}}},
            {"no hyper-threading bit: each processor is a package",
             {"PROBE_1=0,00080000,0,0", "PROBE_4=0c000121,0,0,0"},
             {{"packages", "2"}, {"per_package", "1"}, {"ht", "0"}}},
            {"another vendor's fields are not read", eight_cores({"PROBE_VENDOR=OtherVendor."}), {{"packages", "8"}, {"per_package", "1"}}},
            {"caches told by the extended leaf only, one thread a core",
             {"PROBE_1=0,00020000,0,10000000", "PROBE_80000000=8000001e,0,0,0", "PROBE_80000001=0,0,400000,0",
              "PROBE_8000001e=0,00000000,0,0"},
             {{"packages", "1"}, {"per_package", "2"}}},
            {"a gap among the processors",
             {one_thread_a_core, two_cores, "PROBE_MASKS=5,5", "PROBE_APIC=0,0,1"},
             {{"per_package", "2"}, {"logical", "2"}}},
        },
        "threads");
}

/* A race in one of the first-use guards shows here under the thread sanitizer, or as an answer that changes. */
TEST(thread_environment, first_use_by_many_threads)
{
    const probe_result result = run_probe(PROBE_REAL, {"WKL_CBWR=AUTO", "WKL_VSMP=2", "WKL_NUM_THREADS=2"}, "rush");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(value_of(result.output, "differing"), "0");
}

/* The machine at hand, with nothing faked: the cap is never above what the system offers. */
TEST(thread_environment, real_machine)
{
    const probe_result result = run_probe(PROBE_REAL, {"WKL_NUM_THREADS=100000"}, "threads");
    ASSERT_EQ(result.status, 0);
    const auto number = [&](const char *key) { return std::stoi(value_of(result.output, key)); };
    if (number("packages") == -1) return;
    EXPECT_EQ(number("all"), number("packages") * number("per_package"));
    EXPECT_LE(number("all"), number("logical"));
}
