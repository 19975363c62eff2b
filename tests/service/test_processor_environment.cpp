/* Processor type, reproducibility branch and what follows from them, on machines of every level and of three vendors. */
#include <gtest/gtest.h>

#include "run_probe.h"

using settings = std::vector<std::string>;

struct processor_case {
    const char *fault;
    settings environment;
    std::vector<std::pair<const char *, const char *>> expected;
};

/* Leaf 1 and leaf 7 words of a machine of each type. */
static const char fxsr_sse_sse2[] = "07000000";

static settings machine(int type, const settings &more)
{
    static const char *const ecx[] = {"0",      "1",        "201",
                                      "180201", "18180201", "1a9a3203"}; /* type 2 without SSE4.1, type 4 without AVX2 level */
    settings all = {std::string("PROBE_1=0,0,").append(ecx[type]).append(",").append(fxsr_sse_sse2)};
    if (type == 5) all.insert(all.end(), {"PROBE_7=0,128,0,0", "PROBE_80000000=80000001,0,0,0", "PROBE_80000001=0,0,20,0"});
    all.insert(all.end(), more.begin(), more.end()); /* of two settings of one name the later holds */
    return all;
}

static void check(const std::vector<processor_case> &cases)
{
    for (const processor_case &c : cases) {
        const probe_result result = run_probe(PROBE_FAKE, c.environment, "processor");
        EXPECT_EQ(result.status, 0) << c.fault;
        for (const auto &[key, value] : c.expected) EXPECT_EQ(value_of(result.output, key), value) << c.fault << ": " << key;
    }
}

TEST(processor_environment, detection)
{
    check({
        {"type 0", machine(0, {}), {{"type", "0"}, {"branch", "1"}, {"early", "0"}, {"stored", "0"}, {"bad", "-2"}, {"active", "0"}}},
        {"type 3", machine(3, {}), {{"type", "3"}, {"ma", "40"}, {"again", "40"}}},
        {"type 4", machine(4, {}), {{"type", "4"}, {"ma", "80"}}},
        {"type 5", machine(5, {}), {{"type", "5"}, {"ma", "0"}}},
        {"AVX that the system does not save must not count", machine(5, {"PROBE_XCR0=3"}), {{"type", "3"}}},
        {"AVX2 level without LZCNT is type 4", machine(5, {"PROBE_80000000=80000000,0,0,0"}), {{"type", "4"}}},
        {"AVX2 leaf beyond the last one must not be read", machine(5, {"PROBE_0=6,0,0,0"}), {{"type", "4"}}},
        {"another vendor is type 0 and keeps its bits",
         machine(5, {"PROBE_VENDOR=OtherVendor."}),
         {{"type", "0"}, {"ma", "0"}, {"word", "9d77f1"}}},
        {"no leaves at all", {"PROBE_0=0,0,0,0", "PROBE_VENDOR=OtherVendor."}, {{"type", "0"}, {"word", "1"}}},
    });
}

TEST(processor_environment, feature_word_takes_each_bit_from_its_place)
{
    const char *all_ones = "ffffffff,ffffffff,ffffffff,ffffffff";
    const auto word = [&](settings more) {
        more.insert(more.end(), {"PROBE_0=d,0,0,0", "PROBE_80000000=80000001,0,0,0", "PROBE_80000001=0,0,20,0"});
        return value_of(run_probe(PROBE_FAKE, more, "processor").output, "word");
    };
    const std::string seven = std::string("PROBE_7=") + all_ones;
    EXPECT_EQ(word({"PROBE_1=000106c0,0,ffffffff,ffffffff", seven, "PROBE_XCR0=ff"}), "1fb8ffffff") << "everything on, model 0x1c";
    EXPECT_EQ(word({"PROBE_1=0,0,ffffffff,ffffffff", seven, "PROBE_XCR0=e0"}), "f387a7fff")
        << "no AVX state, no bounds state: AVX-512 stays";
    EXPECT_EQ(word({"PROBE_1=0,0,ffffffff,ffffffff", seven, "PROBE_XCR0=67"}), "830ffffff") << "one bit short of the AVX-512 state";
    EXPECT_EQ(word({"PROBE_1=0,0,ffffffff,feffffff", seven, "PROBE_XCR0=7"}), "30ff800f") << "without FXSR bits 4 to 14 and 35 stay clear";
    EXPECT_EQ(word({"PROBE_1=0,0,f7ffffff,ffffffff", seven, "PROBE_XCR0=7"}), "8307a7fff") << "OSXSAVE off";
}

TEST(processor_environment, branch)
{
    check({
        {"prefix is optional", machine(5, {"WKL_CBWR=BRANCH=AVX"}), {{"branch", "9"}, {"type", "4"}, {"active", "1"}}},
        {"plain keyword", machine(5, {"WKL_CBWR=AVX"}), {{"branch", "9"}, {"type", "4"}, {"ma", "80"}}},
        {"AVX2", machine(5, {"WKL_CBWR=AVX2"}), {{"branch", "10"}, {"type", "5"}}},
        {"AVX2 on type 4 falls to automatic", machine(4, {"WKL_CBWR=AVX2"}), {{"branch", "2"}, {"type", "4"}}},
        {"AVX512_MIC is above every machine", machine(5, {"WKL_CBWR=AVX512_MIC"}), {{"branch", "2"}, {"type", "5"}}},
        {"SSE4_1 without the bit", machine(2, {"WKL_CBWR=SSE4_1"}), {{"branch", "2"}, {"type", "2"}}},
        {"SSE4_1 with the bit", {"WKL_CBWR=SSE4_1", "PROBE_1=0,0,80201,07000000"}, {{"branch", "7"}, {"type", "2"}, {"ma", "21"}}},
        {"SSSE3 pins the lower code", machine(5, {"WKL_CBWR=SSSE3"}), {{"branch", "6"}, {"type", "2"}, {"ma", "20"}}},
        {"SSE3", machine(5, {"WKL_CBWR=SSE3"}), {{"branch", "5"}, {"type", "1"}}},
        {"SSE2", machine(5, {"WKL_CBWR=SSE2"}), {{"branch", "4"}, {"type", "0"}}},
        {"COMPATIBLE passes everywhere", machine(0, {"WKL_CBWR=COMPATIBLE"}), {{"branch", "3"}, {"type", "0"}, {"ma", "0"}}},
        {"lower case is no keyword", machine(3, {"WKL_CBWR=auto"}), {{"branch", "2"}}},
        {"a tail is no keyword", machine(5, {"WKL_CBWR=BRANCH=AVXX"}), {{"branch", "2"}, {"type", "5"}}},
        {"too long a value is no keyword", machine(5, {"WKL_CBWR=AVX" + std::string(200, ' ')}), {{"branch", "2"}}},
        {"an empty value is absent", machine(5, {"WKL_CBWR="}), {{"branch", "1"}}},
        {"another vendor: COMPATIBLE falls as well",
         machine(5, {"WKL_CBWR=COMPATIBLE", "PROBE_VENDOR=OtherVendor."}),
         {{"branch", "2"}, {"type", "0"}}},
    });
}

TEST(processor_environment, debug_type_wins)
{
    check({
        {"0", machine(5, {"WKL_DEBUG_CPU_TYPE=0"}), {{"type", "0"}}},
        {"6 is out of range", machine(3, {"WKL_DEBUG_CPU_TYPE=6"}), {{"type", "3"}}},
        {"00 is not 0", machine(3, {"WKL_DEBUG_CPU_TYPE=00"}), {{"type", "3"}}},
        {"a tail is ignored", machine(5, {"WKL_DEBUG_CPU_TYPE=3x"}), {{"type", "3"}}},
        {"beyond the machine and the branch", machine(1, {"WKL_DEBUG_CPU_TYPE=5", "WKL_CBWR=SSE2"}), {{"type", "5"}, {"branch", "4"}}},
        {"another vendor", machine(5, {"WKL_DEBUG_CPU_TYPE=4", "PROBE_VENDOR=OtherVendor."}), {{"type", "4"}}},
    });
}

TEST(processor_environment, tuning_codes)
{
    const char *aes_type_3 = "PROBE_1=0,0,2180201,07000000";
    const char *family_10h = "PROBE_1=00100f00,0,0,07000000";
    check({
        {"debug code", machine(3, {"WKL_DEBUG_CPU_MA=66"}), {{"ma", "42"}}},
        {"debug code that is neither", machine(3, {"WKL_DEBUG_CPU_MA=65"}), {{"ma", "40"}}},
        {"AES machine", {aes_type_3}, {{"ma", "42"}}},
        {"AES machine with a branch set", {aes_type_3, "WKL_CBWR=AUTO"}, {{"ma", "40"}}},
        {"family 10h", {family_10h, "PROBE_VENDOR=AuthenticAMD", "WKL_VSMP=3"}, {{"family10h", "1"}, {"vsmp", "3"}}},
        {"family 10h of another vendor", {family_10h, "PROBE_VENDOR=OtherVendor."}, {{"family10h", "0"}, {"vsmp", "0"}}},
        {"family 10h on a later family", {"PROBE_1=00a00f00,0,0,07000000", "PROBE_VENDOR=AuthenticAMD"}, {{"family10h", "0"}}},
        {"no caches told", machine(3, {}), {{"c0", "0"}, {"c1", "0"}}},
        {"caches of leaf 4, the instruction cache left out",
         machine(3, {"PROBE_4=21,01c0003f,3f,0", "PROBE_4_1=22,0,0,0", "PROBE_4_2=43,01c0003f,3ff,0", "PROBE_4_3=63,03c0003f,7fff,0"}),
         {{"c1", "8000"}, {"c2", "80000"}, {"c3", "2000000"}, {"c0", "2000000"}, {"c4", "0"}}},
        {"a branch must fix the sizes",
         machine(3, {"WKL_CBWR=SSE4_2"}),
         {{"c1", "8000"}, {"c2", "40000"}, {"c3", "400000"}, {"c0", "400000"}}},
        {"lower branches have two levels", machine(3, {"WKL_CBWR=SSSE3"}), {{"c0", "40000"}, {"c3", "0"}}},
        {"automatic on type 3", machine(3, {"WKL_CBWR=AUTO"}), {{"c0", "400000"}}},
    });
}

TEST(processor_environment, unusable_processors_end_the_process)
{
    const probe_result bare = run_probe(PROBE_FAKE, {"PROBE_1=0,0,0,0"}, "processor");
    EXPECT_EQ(bare.status, 1);
    EXPECT_EQ(bare.output,
              "Norvi WKL FATAL ERROR: This system does not meet the minimum requirements for use of the Norvi(R) Wide Kernel Library.\n"
              "The processor must support the Norvi(R) Streaming SIMD 2 Extensions (Norvi(R) SSE2) instructions.\n");
    const probe_result refused = run_probe(PROBE_FAKE, {}, "unsupported 6");
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.output, "Norvi WKL ERROR: CPU 6 is not supported.\n");
}
