/* The command-line host, run as a user would run it. */
#include "matrix_market.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace
{

struct outcome {
    int status;
    std::string output;
};

outcome run(const std::string &arguments)
{
    FILE *pipe = popen((std::string(WKL_SOLVARA_HOST) + " " + arguments + " 2>&1").c_str(), "r");
    outcome result = {};
    std::array<char, 4096> buffer;
    for (size_t got; (got = fread(buffer.data(), 1, buffer.size(), pipe)) > 0;) result.output.append(buffer.data(), got);
    result.status = pclose(pipe);
    return result;
}

struct solvara_host : testing::Test {
    std::string folder = std::filesystem::temp_directory_path() / ("wkl_solvara_" + std::to_string(getpid()));
    void SetUp() override
    {
        std::filesystem::create_directories(folder);
    }
    void TearDown() override
    {
        std::filesystem::remove_all(folder);
    }
    std::string write(const std::string &name, const std::string &text)
    {
        std::ofstream(folder + "/" + name) << text;
        return folder + "/" + name;
    }
    std::vector<double> product(const std::string &arguments, int64_t n)
    {
        const std::string path = folder + "/y.mtx";
        const outcome result = run("multiply " + arguments + " -o " + path);
        EXPECT_EQ(result.status, 0) << result.output;
        std::vector<double> y;
        std::string error;
        bool is_complex = false;
        EXPECT_TRUE(read_market_vector(path, n, &y, &is_complex, &error)) << error;
        return y;
    }
};

} // namespace

TEST_F(solvara_host, info_tells_size_bandwidth_and_diagonal_faults)
{
    const std::string a = write("a.mtx", "%%MatrixMarket matrix coordinate real symmetric\n4 4 4\n1 1 0\n2 2 -3\n4 1 2\n4 4 1\n");
    const outcome result = run("info " + a);
    EXPECT_EQ(result.status, 0);
    for (const char *line : {"4 x 4", "entries          5\n", "lower 3, upper 3", "1 missing, 1 zero, 1 negative", "symmetric", "real"}) {
        EXPECT_NE(result.output.find(line), std::string::npos) << line << "\n" << result.output;
    }
}

TEST_F(solvara_host, multiplies_every_kind_of_matrix_and_its_transpose)
{
    const std::string x = write("x.mtx", "%%MatrixMarket matrix array real general\n2 1\n2\n3\n");
    const std::string xc = write("xc.mtx", "%%MatrixMarket matrix array complex general\n2 1\n2 1\n3 0\n");
    const std::string head = "%%MatrixMarket matrix coordinate ";
    const std::string symmetric = write("s.mtx", head + "real symmetric\n2 2 3\n1 1 1\n2 1 10\n2 2 100\n");
    const std::string skew = write("k.mtx", head + "real skew-symmetric\n2 2 1\n2 1 10\n");
    const std::string wide = write("w.mtx", head + "integer general\n2 3 3\n1 1 1\n1 3 10\n2 2 100\n");
    const std::string hermitian = write("h.mtx", head + "complex hermitian\n2 2 2\n1 1 1 0\n2 1 0 10\n");
    using values = std::vector<double>;
    EXPECT_EQ(product(symmetric + " -x " + x, 2), (values{32, 320}));
    EXPECT_EQ(product(skew + " -x " + x, 2), (values{-30, 20}));
    EXPECT_EQ(product(skew + " --transpose -x " + x, 2), (values{30, -20}));
    EXPECT_EQ(product(wide, 2), (values{11, 100}));
    EXPECT_EQ(product(wide + " --transpose -x " + x, 3), (values{2, 300, 20}));
    EXPECT_EQ(product(hermitian + " -x " + x, 2), (values{2, -30, 0, 20}));
    EXPECT_EQ(product(hermitian + " --transpose -x " + x, 2), (values{2, 30, 0, -20}));
    EXPECT_EQ(product(hermitian + " -x " + xc, 2), (values{2, 1 - 30, -10, 20}));
}

TEST_F(solvara_host, bad_input_gives_a_message_with_the_line_and_status_1)
{
    const std::string a = write("a.mtx", "%%MatrixMarket matrix coordinate real general\n2 2 1\n1 x 3\n");
    for (const char *command : {"info ", "multiply "}) {
        const outcome result = run(command + a);
        EXPECT_NE(result.status, 0);
        EXPECT_NE(result.output.find("a.mtx: line 3: "), std::string::npos) << result.output;
    }
    const std::string b = write("b.mtx", "%%MatrixMarket matrix coordinate real general\n2 2 1\n1 1 3\n");
    EXPECT_NE(run("multiply " + b + " -x " + a).status, 0);
    EXPECT_NE(run("multiply " + b + " -o " + folder + "/none/y.mtx").status, 0);
    EXPECT_NE(run("").status, 0);
}

TEST_F(solvara_host, solve_repeats_with_larger_perturbations_unless_the_caller_chose_them)
{
    const std::string a = std::string(WKL_TEST_DATA) + "/plskz362.mtx";
    const outcome repeated = run("solve -q " + a), chosen = run("solve -q -e 13 " + a);
    EXPECT_EQ(repeated.status, 0) << repeated.output;
    EXPECT_NE(repeated.output.find("factoring again"), std::string::npos) << repeated.output;
    EXPECT_NE(chosen.status, 0) << chosen.output;
    EXPECT_EQ(chosen.output.find("factoring again"), std::string::npos) << chosen.output;
}

TEST_F(solvara_host, row_sums_of_a_real_matrix_agree_with_a_plain_loop)
{
    const std::string path = std::string(WKL_SHARED_MATRICES) + "/bcsstk13.mtx.gz";
    if (!std::filesystem::exists(path)) GTEST_SKIP() << "no real matrices here";
    market_matrix a;
    std::string error;
    ASSERT_TRUE(read_matrix_market(path, &a, &error)) << error;
    const std::vector<double> y = product(path, a.rows);
    a = market_expand(a);
    for (size_t i = 0; i < y.size(); ++i) {
        double sum = 0.0, size = 0.0;
        for (size_t k = static_cast<size_t>(a.ia[i] - 1); k < static_cast<size_t>(a.ia[i + 1] - 1); ++k) {
            sum += a.value[k];
            size += std::abs(a.value[k]);
        }
        ASSERT_NEAR(y[i], sum, 1e-14 * size) << i;
    }
}
