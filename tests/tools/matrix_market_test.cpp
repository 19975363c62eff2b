#include "matrix_market.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <zlib.h>

static market_matrix parsed(const std::string &text)
{
    market_matrix a;
    std::string error;
    EXPECT_TRUE(parse_matrix_market(text.data(), text.size(), &a, &error)) << error;
    return a;
}

static std::string error_of(const std::string &text)
{
    market_matrix a;
    std::string error;
    EXPECT_FALSE(parse_matrix_market(text.data(), text.size(), &a, &error)) << text;
    return error;
}

static const std::string real_general = "%%MatrixMarket matrix coordinate real general\n";

TEST(matrix_market_reader, sums_duplicates_and_orders_rows)
{
    const market_matrix a = parsed(real_general + "% c\n\n2 3 5\n2 3 4\n1 3 1\n1 1 2\n1 3 .5D+01\n2 1 +1e-3\n");
    EXPECT_EQ(a.ia, (std::vector<int64_t>{1, 3, 5}));
    EXPECT_EQ(a.ja, (std::vector<int64_t>{1, 3, 1, 3}));
    EXPECT_EQ(a.value, (std::vector<double>{2, 6, 1e-3, 4}));
    EXPECT_EQ(a.file_entries, 5);
}

TEST(matrix_market_reader, takes_upper_case_words_carriage_returns_and_a_missing_last_line_end)
{
    const market_matrix a = parsed("%%MatrixMarket MATRIX Coordinate Pattern Symmetric\r\n2 2 2\r\n1 1\r\n2 1");
    EXPECT_EQ(a.value, (std::vector<double>{1, 1}));
    EXPECT_EQ(a.symmetry, market_symmetry::symmetric);
}

TEST(matrix_market_reader, expands_each_symmetry_with_its_own_sign)
{
    const market_matrix skew = market_expand(parsed("%%MatrixMarket matrix coordinate real skew-symmetric\n3 3 2\n2 1 1\n3 2 -4\n"));
    EXPECT_EQ(skew.ja, (std::vector<int64_t>{2, 1, 3, 2}));
    EXPECT_EQ(skew.value, (std::vector<double>{-1, 1, 4, -4}));
    const market_matrix hermitian = market_expand(parsed("%%MatrixMarket matrix coordinate complex hermitian\n2 2 2\n1 1 5 9\n2 1 2 3\n"));
    EXPECT_EQ(hermitian.value, (std::vector<double>{5, 0, 2, -3, 2, 3}));
    const market_matrix symmetric = market_expand(parsed("%%MatrixMarket matrix coordinate complex symmetric\n2 2 1\n2 1 2 3\n"));
    EXPECT_EQ(symmetric.value, (std::vector<double>{2, 3, 2, 3}));
}

TEST(matrix_market_reader, other_triangle_is_the_mirror_image)
{
    for (const char *kind : {"real symmetric", "real skew-symmetric"}) {
        const market_matrix a = parsed(std::string("%%MatrixMarket matrix coordinate ") + kind + "\n3 3 3\n2 1 1\n3 2 -4\n3 1 2\n");
        const market_matrix b = market_transpose(a);
        const double sign = a.symmetry == market_symmetry::symmetric ? 1.0 : -1.0;
        EXPECT_EQ(b.ja, (std::vector<int64_t>{2, 3, 3}));
        EXPECT_EQ(b.value, (std::vector<double>{sign * 1, sign * 2, sign * -4}));
    }
}

TEST(matrix_market_reader, arrays_run_down_the_columns)
{
    const market_matrix general = parsed("%%MatrixMarket matrix array real general\n2 2\n1\n0\n3\n4\n");
    EXPECT_EQ(general.ja, (std::vector<int64_t>{1, 2, 2}));
    EXPECT_EQ(general.value, (std::vector<double>{1, 3, 4}));
    EXPECT_EQ(general.file_entries, 4);
    const market_matrix skew = parsed("%%MatrixMarket matrix array integer skew-symmetric\n3 3\n1\n2\n3\n");
    EXPECT_EQ(skew.ia, (std::vector<int64_t>{1, 1, 2, 4}));
    EXPECT_EQ(skew.value, (std::vector<double>{1, 2, 3}));
}

TEST(matrix_market_reader, names_the_line_and_the_fault)
{
    const std::pair<std::string, const char *> cases[] = {
        {"", "line 0: the file is empty"},
        {"hello\n", "line 1: does not begin"},
        {"%%MatrixMarket matrix coordinate real lower\n", "line 1: the symmetry"},
        {"%%MatrixMarket matrix coordinate real hermitian\n", "line 1: a Hermitian"},
        {"%%MatrixMarket matrix array pattern general\n", "line 1: an array"},
        {real_general, "the size line is missing"},
        {real_general + "% c\n2 2\n", "line 3: expected 'rows columns entries'"},
        {real_general + "-1 2 0\n", "line 2: a size is negative"},
        {real_general + "2 2 1\n3 1 1\n", "line 3: row number"},
        {real_general + "2 2 1\n1 0 1\n", "line 3: column number"},
        {real_general + "2 2 1\n1 1\n", "line 3: expected a finite number"},
        {real_general + "2 2 1\n1 1 nan\n", "line 3: expected a finite number"},
        {real_general + "2 2 1\n1 1 1e999\n", "line 3: expected a finite number"},
        {real_general + "2 2 1\n1 1 1.5x\n", "line 3: expected a finite number"},
        {real_general + "2 2 1\n1 1 1 2\n", "line 3: unexpected text"},
        {real_general + "2 2 2\n1 1 1\n", "the file ends after 1 of 2"},
        {real_general + "2 2 1\n1 1 1\n\n2 2 1\n", "line 5: more entries"},
        {"%%MatrixMarket matrix coordinate real symmetric\n2 3 0\n", "line 2: a matrix with symmetry"},
        {"%%MatrixMarket matrix coordinate real symmetric\n2 2 1\n1 2 1\n", "line 3: an entry above"},
        {"%%MatrixMarket matrix coordinate real skew-symmetric\n2 2 1\n1 1 1\n", "line 3: a diagonal entry"},
    };
    for (const auto &[text, expected] : cases) EXPECT_NE(error_of(text).find(expected), std::string::npos) << text << error_of(text);
}

TEST(matrix_market_reader, does_not_believe_a_header)
{
    const std::string huge = "4611686018427387904";
    EXPECT_NE(error_of(real_general + "9 9 " + huge + "\n1 1 1\n").find("1 of " + huge), std::string::npos);
    EXPECT_NE(error_of(real_general + huge + " 9 1\n1 1 1\n").find("far more rows"), std::string::npos);
    EXPECT_NE(error_of("%%MatrixMarket matrix array real general\n" + huge + " " + huge + "\n1\n").find("ends too early"),
              std::string::npos);
    EXPECT_NE(error_of(real_general + "9 9 99999999999999999999\n").find("expected 'rows"), std::string::npos);
    EXPECT_NE(error_of(std::string(1 << 20, 'x')).find("line 1: line too long"), std::string::npos);
}

TEST(matrix_market_reader, reads_gzip_and_tells_damage)
{
    const std::string folder = std::filesystem::temp_directory_path() / "wkl_matrix_market_test";
    std::filesystem::create_directories(folder);
    const std::string path = folder + "/a.mtx.gz";
    std::string text = real_general + "1000 1000 1000\n";
    for (int i = 1; i <= 1000; ++i)
        text += std::to_string(i) + " " + std::to_string(1 + i * 37 % 1000) + " 0." + std::to_string(i * 7919) + "\n";
    gzFile file = gzopen(path.c_str(), "wb");
    gzwrite(file, text.data(), static_cast<unsigned>(text.size()));
    gzclose(file);
    market_matrix a;
    std::string error;
    ASSERT_TRUE(read_matrix_market(path, &a, &error)) << error;
    EXPECT_EQ(a.value, parsed(text).value);
    std::filesystem::resize_file(path, std::filesystem::file_size(path) / 2);
    EXPECT_FALSE(read_matrix_market(path, &a, &error));
    EXPECT_EQ(error.find(path + ": line "), 0u) << error;
    EXPECT_FALSE(read_matrix_market(folder + "/none.mtx", &a, &error));
    std::filesystem::remove_all(folder);
}
