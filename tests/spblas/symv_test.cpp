/* The exported symmetric product: checks, threads, bits. */
#include "spblas_test.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>

namespace
{

using matrix = csr_matrix<double>;
using vector = std::vector<double>;

/* With a reproducible branch asked for (CTest runs this file that way too) no processor may fuse. */
double last_sum(double t, double v, double y)
{
    static const bool fused = getenv("WKL_CBWR") == nullptr && service_cpu_type() == 5;
    return fused ? std::fma(t, v, y) : t * v + y;
}

/* Rows r1..r2 into a zeroed y whose first entry is `origin`. */
void plain_rows(bool upper, const matrix &s, int64_t r1, int64_t r2, int64_t origin, const vector &x, double *y)
{
    for (int64_t i = r1; i <= r2; ++i) {
        double acc = 0.0;
        const double t = x[static_cast<size_t>(i - 1)] * 1.0;
        for (int64_t p = s.ia[static_cast<size_t>(i - 1)] - s.ia[0]; p < s.ia[static_cast<size_t>(i)] - s.ia[0]; ++p) {
            const int64_t c = s.ja[static_cast<size_t>(p)];
            const double v = s.a[static_cast<size_t>(p)];
            if (upper ? c < i : c > i) continue;
            if (c != i) y[c - origin] = last_sum(t, v, y[c - origin]);
            acc = acc + x[static_cast<size_t>(c - 1)] * v;
        }
        y[i - origin] = last_sum(acc, 1.0, y[i - origin]);
    }
}

/* What a team of p threads must give, bit for bit. */
vector expected_product(bool upper, const matrix &s, const vector &x, int64_t p)
{
    const int64_t m = s.m, c = m / p;
    vector y(static_cast<size_t>(m), 0.0);
    if (!upper && c == 0) p = 1; /* vectors of size zero: the serial fall-back */
    const auto first = [&](int64_t t) { return t * c + 1; };
    const auto last = [&](int64_t t) { return t == p - 1 ? m : (t + 1) * c; };
    const int64_t owner = upper ? 0 : p - 1;
    plain_rows(upper, s, first(owner), last(owner), 1, x, y.data());
    for (int64_t t = 0; t < p; ++t) { /* each entry receives the vectors in ascending order */
        if (t == owner) continue;
        const int64_t origin = upper ? first(t) : 1;
        vector part(static_cast<size_t>(upper ? m - origin + 1 : last(t)), 0.0);
        plain_rows(upper, s, first(t), last(t), origin, x, part.data());
        for (size_t e = 0; e < part.size(); ++e) {
            const size_t to = static_cast<size_t>(origin - 1) + e;
            y[to] = y[to] + part[e];
        }
    }
    return y;
}

vector product(const char *uplo, const matrix &s, const vector &x)
{
    vector y(static_cast<size_t>(s.m), std::nan(""));
    symv_dispatch(uplo, &s.m, s.a.data(), s.ia.data(), s.ja.data(), x.data(), y.data(), 1);
    return y;
}

/* The values that a product of this triangle must not read. */
matrix poisoned(matrix s, bool upper)
{
    for (int64_t i = 1; i <= s.m; ++i) {
        for (int64_t p = s.ia[static_cast<size_t>(i - 1)] - s.ia[0]; p < s.ia[static_cast<size_t>(i)] - s.ia[0]; ++p) {
            const int64_t c = s.ja[static_cast<size_t>(p)];
            if (upper ? c < i : c > i) s.a[static_cast<size_t>(p)] = std::nan("");
        }
    }
    return s;
}

bool same_bits(const vector &a, const vector &b)
{
    return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(double)) == 0);
}

std::string report_of(const char *uplo, int64_t m, int64_t *result)
{
    testing::internal::CaptureStdout();
    *result = symv_check(uplo, &m, nullptr, nullptr, nullptr, nullptr, nullptr, 0);
    fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

} // namespace

TEST(symv_check_of, reports_the_first_bad_argument_only)
{
    int64_t result = -1;
    EXPECT_EQ(report_of("X", -1, &result), "\nNorvi WKL ERROR: Parameter 1 was incorrect on entry to WKL_DCSRSYMV.\n");
    EXPECT_EQ(result, 1);
    EXPECT_EQ(report_of("u", -1, &result), "\nNorvi WKL ERROR: Parameter 2 was incorrect on entry to WKL_DCSRSYMV.\n");
    EXPECT_EQ(result, 1);
    for (const char *good : {"L", "l", "Upper", "u"}) {
        EXPECT_EQ(report_of(good, 0, &result), "");
        EXPECT_EQ(result, 0);
    }
    EXPECT_FALSE(lsame("[", "{", 1, 1) || lsame("\xcc", "L", 1, 1)); /* they differ by the case bit alone, or by the highest one */
}

TEST(symv, gives_the_bits_of_a_model_for_every_team_size_and_base)
{
    for (const int threads : {1, 2, 3, 8}) {
        use_threads(threads);
        for (const int64_t m : {0, 1, 2, 5, 7, 199, 1000, 1001, 1003, 4097}) {
            for (const int64_t base : {0, 1, 5}) {
                const matrix s = random_matrix<double>(m, m, base, static_cast<uint64_t>(m + base));
                const vector x = random_vector<double>(m, 7);
                for (const bool upper : {false, true}) {
                    ASSERT_TRUE(same_bits(product(upper ? "Up" : "l", poisoned(s, upper), x), expected_product(upper, s, x, threads)))
                        << upper << " " << m << " " << threads;
                }
            }
        }
    }
}

TEST(symv, caps_the_team_while_threads_are_dynamic)
{
    struct capped {
        int threads;
        int64_t m;
        int64_t team;
    };
    for (const capped &c : {capped{2, 199, 1}, {2, 200, 2}, {16, 350, 3}, {16, 20000, 8}}) {
        use_dynamic_threads(c.threads);
        const matrix s = random_matrix<double>(c.m, c.m, 1, 3);
        const vector x = random_vector<double>(c.m, 4);
        EXPECT_TRUE(same_bits(product("L", s, x), expected_product(false, s, x, c.team))) << c.m;
        EXPECT_TRUE(same_bits(product("U", s, x), expected_product(true, s, x, c.team))) << c.m;
    }
}

TEST(symv, runs_with_the_team_it_is_granted_for_each_of_two_callers_at_once)
{
    use_threads(4);
    const matrix s = random_matrix<double>(900, 900, 1, 11);
    const vector x = random_vector<double>(900, 12);
    for (const int levels : {1, 2}) {
        omp_set_max_active_levels(levels);
        const vector expected = expected_product(true, s, x, levels == 1 ? 1 : 4);
        std::atomic<int> wrong{0};
#pragma omp parallel num_threads(2)
        {
            use_threads(4);
            if (!same_bits(product("U", s, x), expected)) ++wrong;
        }
        EXPECT_EQ(wrong, 0) << levels;
    }
    omp_set_max_active_levels(1);
}

TEST(symv, falls_back_to_one_thread_without_a_word_when_a_vector_is_not_to_be_had)
{
    static std::atomic<int> left{0}; /* allocations that still succeed */
    const auto original = service_system.allocate;
    const matrix s = random_matrix<double>(2000, 2000, 1, 31);
    const vector x = random_vector<double>(2000, 32);
    for (const bool upper : {false, true}) {
        for (const int allowed : {0, 1, 2}) {
            use_threads(4);
            left = allowed;
            service_system.allocate = [](uint64_t size) -> void * { return left-- > 0 ? malloc(size) : nullptr; };
            testing::internal::CaptureStdout();
            const vector y = product(upper ? "U" : "L", s, x);
            service_system.allocate = original;
            EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
            EXPECT_TRUE(same_bits(y, expected_product(upper, s, x, 1))) << upper << allowed;
        }
    }
}
