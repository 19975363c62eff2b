/* The frame: thread decisions at their edges, the published operations with a team, memory that fails, many callers. */
#include <omp.h>

#include <cstdlib>

#include "dense/frame.h"
#include "dense_reference.h"

/* A team of four even on fewer cores, before any service looks. */
static const int environment_set =
    setenv("WKL_NUM_THREADS", "4", 1) + setenv("WKL_DYNAMIC", "FALSE", 1) + setenv("WKL_DISABLE_FAST_MM", "1", 1);

/* Catches: thresholds moved by one. */
TEST(dense_decisions, small_products_stay_serial)
{
    ASSERT_EQ(environment_set, 0);
    EXPECT_TRUE(gemm_is_tiny(16, 16, 16));
    EXPECT_FALSE(gemm_is_tiny(17, 16, 16));
    EXPECT_FALSE(gemm_is_tiny(16, 16, 17));
    EXPECT_TRUE(gemm_is_tiny(100, 100, 4));
    EXPECT_FALSE(gemm_is_tiny(101, 100, 4));
    EXPECT_FALSE(gemm_is_tiny(100, 100, 5));
    EXPECT_FALSE(gemm_decide(7, 1, 4000, 4000, 4000).threaded);
    EXPECT_TRUE(gemm_decide(0, 2, 18, 18, 18).threaded);
    EXPECT_FALSE(gemm_decide(7, 2, 18, 18, 18).threaded); /* 9 * 18 * 18 >> 9 is 5, below 36 */
    EXPECT_TRUE(gemm_decide(7, 2, 18, 18, 513).threaded); /* depth alone */
    EXPECT_FALSE(gemm_decide(7, 8, 1000, 3, 1000).threaded) << "no column for every group";
    EXPECT_EQ(gemm_decide(7, 16, 16000, 100, 100).columns, 1);
    EXPECT_EQ(gemm_decide(7, 16, 100, 16000, 100).columns, 16);
    EXPECT_EQ(gemm_decide(7, 16, 1000, 1000, 100).columns, 8);
    EXPECT_FALSE(gemm_decide(7, 16, 48, 3, 3000).threaded); /* m / T below 4 and n / T 0 */
}

TEST(dense_decisions, solves_split_by_type_and_side)
{
    EXPECT_EQ(trsm_chunk(5, true, 16, 16, 2), 0);
    EXPECT_EQ(trsm_chunk(0, true, 17, 16, 2), 8);
    EXPECT_EQ(trsm_chunk(5, true, 512, 31, 2), 15);
    EXPECT_EQ(trsm_chunk(5, true, 513, 31, 2), 12) << "a multiple of four from 513 on";
    EXPECT_EQ(trsm_chunk(5, false, 31, 512, 2), 12);
    EXPECT_EQ(trsm_chunk(3, true, 100, 31, 2), 16) << "rounded up";
    EXPECT_EQ(trsm_chunk(4, true, 63, 127, 2), 0);
    EXPECT_EQ(trsm_chunk(4, true, 64, 127, 2), 64);
    EXPECT_EQ(trsm_chunk(1, true, 513, 14, 2), 0);
    EXPECT_EQ(trsm_chunk(5, false, 6, 2000, 4), 1) << "never an empty chunk";
}

template <typename value_t>
class dense_frame : public ::testing::Test
{
};
TYPED_TEST_SUITE(dense_frame, value_types);

static bool memory_fails = false;
static void *(*plain_allocate)(uint64_t size) = nullptr;
static void *failing_allocate(uint64_t size)
{
    return memory_fails ? nullptr : plain_allocate(size);
}

/* Catches: parts that overlap or leave rows out, beta applied twice, a partition that needs memory it does not have. */
TYPED_TEST(dense_frame, team_multiply_agrees_with_loops_with_and_without_memory)
{
    using value_t = TypeParam;
    if (plain_allocate == nullptr) {
        plain_allocate = service_system.allocate;
        service_system.allocate = failing_allocate;
    }
    for (const auto &[m, n, k] : {std::array<int64_t, 3>{150, 90, 70}, {40, 333, 60}, {700, 5, 64}}) {
        for (const char ta : {'N', 'C'}) {
            for (const value_t beta : {value_t(0), value_t(1), value_t(2)}) {
                const block<value_t> a = ta == 'N' ? block<value_t>(m, k, 1, 31) : block<value_t>(k, m, 1, 31);
                const block<value_t> b(n, k, 2, 32);
                block<value_t> product = product_of(ta, a, 'T', b, m, n, k);
                for (const bool fails : {false, true}) {
                    block<value_t> c(m, n, 1, 33);
                    if (beta == value_t(0)) std::fill(c.value.begin(), c.value.end(), value_from<value_t>(std::nan(""), 0));
                    block<value_t> expected = c;
                    for (int64_t j = 0; j < n; ++j)
                        for (int64_t i = 0; i < m; ++i) expected(i, j) = (beta == value_t(0) ? value_t(0) : beta * c(i, j)) - product(i, j);
                    testing::internal::CaptureStdout();
                    memory_fails = fails;
                    wkl_blas_gemm(ta, 't', m, n, k, value_t(-1), a.data(), a.ld, b.data(), b.ld, beta, c.data(), c.ld);
                    memory_fails = false;
                    const std::string printed = testing::internal::GetCapturedStdout();
                    if (fails)
                        EXPECT_NE(printed.find("gemm"), std::string::npos) << printed;
                    else
                        EXPECT_EQ(printed, "");
                    expect_close(c, expected, 8 * epsilon_of<value_t>() * static_cast<double>(k), "team");
                }
            }
        }
    }
    block<value_t> c(200, 200, 0, 34);
    block<value_t> twice = c;
    for (auto &x : twice.value) x *= value_t(2);
    const block<value_t> nan(200, 200, 200, 35);
    wkl_blas_gemm<value_t>('N', 'N', 200, 200, 200, 0, nan.data() + 200, 400, nan.data() + 200, 400, 2, c.data(), 200);
    EXPECT_EQ(c.value, twice.value) << "alpha 0 scales and reads no operand";
}

/* Catches: bits that depend on the team; a wrong block boundary; the other triangle touched. */
TYPED_TEST(dense_frame, cholesky_of_both_triangles_with_any_team)
{
    using value_t = TypeParam;
    const int64_t n = 330;
    for (const char uplo : {'L', 'U'}) {
        block<value_t> a(n, n, 1, 36);
        for (int64_t j = 0; j < n; ++j) {
            for (int64_t i = 0; i < n; ++i)
                if (uplo == 'L' ? i < j : i > j) a(i, j) = value_from<value_t>(std::nan(""), 0);
            a(j, j) = value_t(static_cast<real_of<value_t>>(n));
        }
        block<value_t> alone = a, team = a;
        int64_t info = -1;
#pragma omp parallel num_threads(2)
#pragma omp single
        {
            wkl_lapack_potrf(uplo, n, alone.data(), alone.ld, &info);
        }
        ASSERT_EQ(info, 0);
        wkl_lapack_potrf(uplo, n, team.data(), team.ld, &info);
        ASSERT_EQ(info, 0);
        for (int64_t j = 0; j < n; ++j) {
            for (int64_t i = 0; i < n; ++i) {
                if (uplo == 'L' ? i < j : i > j) {
                    ASSERT_TRUE(std::isnan(std::abs(team(i, j))));
                    team(i, j) = alone(i, j) = 0;
                } else {
                    ASSERT_EQ(team(i, j), alone(i, j)) << i << "," << j;
                }
            }
        }
        const block<value_t> back = uplo == 'L' ? product_of('N', team, 'C', team, n, n, n) : product_of('C', team, 'N', team, n, n, n);
        for (int64_t j = 0; j < n; ++j) {
            for (int64_t i = 0; i < n; ++i) {
                if (uplo == 'L' ? i >= j : i <= j) {
                    ASSERT_LE(std::abs(back(i, j) - a(i, j)), 20 * epsilon_of<value_t>() * static_cast<double>(n));
                }
            }
        }
        a(200, 200) = value_from<value_t>(std::nan(""), 0);
        wkl_lapack_potrf(uplo, n, a.data(), a.ld, &info);
        EXPECT_EQ(info, 201);
    }
}

/* Catches: a triangle written on the wrong side, increments ignored, exchanges left out of a panel, chunks of a solve lost. */
TYPED_TEST(dense_frame, remaining_operations_agree_with_loops)
{
    using value_t = TypeParam;
    const double eps = epsilon_of<value_t>();
    const int64_t n = 170, k = 90;
    for (const char uplo : {'L', 'U'}) {
        for (const char trans : {'N', 'T'}) {
            const block<value_t> a = trans == 'N' ? block<value_t>(n, k, 1, 41) : block<value_t>(k, n, 1, 41);
            const block<value_t> c0(n, n, 2, 42);
            block<value_t> c = c0, expected = c0;
            const block<value_t> p = trans == 'N' ? product_of('N', a, 'C', a, n, n, k) : product_of('C', a, 'N', a, n, n, k);
            wkl_blas_syrk<value_t, mirror::hermitian>(uplo, trans, n, k, value_t(2), a.data(), a.ld, value_t(-1), c.data(), c.ld);
            for (int64_t j = 0; j < n; ++j)
                for (int64_t i = 0; i < n; ++i)
                    if (uplo == 'L' ? i >= j : i <= j) expected(i, j) = value_t(2) * p(i, j) - c0(i, j);
            expect_close(c, expected, 40 * eps * static_cast<double>(k), "syrk");
        }
        const block<value_t> x(3 * n, 1, 0, 43);
        block<value_t> a(n, n, 1, 44), expected = a;
        wkl_blas_syr<value_t, mirror::hermitian>(uplo, n, value_t(-2), x.data(), 3, a.data(), a.ld);
        for (int64_t j = 0; j < n; ++j)
            for (int64_t i = uplo == 'L' ? j : 0; i < (uplo == 'L' ? n : j + 1); ++i)
                expected(i, j) -= value_t(2) * x(3 * i, 0) * conjugated(x(3 * j, 0), true);
        expect_close(a, expected, 20 * eps, "syr");
    }
    const block<value_t> a(600, 400, 3, 45);
    for (const char trans : {'N', 'T', 'C'}) {
        const int64_t rows = trans == 'N' ? 600 : 400, depth = trans == 'N' ? 400 : 600;
        for (const int64_t inc : {1, 2}) {
            const block<value_t> x(depth * inc, 1, 0, 46);
            block<value_t> y(rows * inc, 1, 0, 47), expected = y;
            wkl_blas_gemv(trans, 600, 400, value_t(2), a.data(), a.ld, x.data(), inc, value_t(-1), y.data(), inc);
            for (int64_t i = 0; i < rows; ++i) {
                value_t sum = 0;
                for (int64_t l = 0; l < depth; ++l) sum += taken(a, trans, i, l) * x(l * inc, 0);
                expected(i * inc, 0) = value_t(2) * sum - block<value_t>(rows * inc, 1, 0, 47)(i * inc, 0);
            }
            expect_close(y, expected, 40 * eps * static_cast<double>(depth), "gemv");
        }
    }
    const block<value_t> u(200000, 1, 0, 48), v(200000, 1, 0, 49);
    for (const int64_t inc : {1, 3}) {
        std::complex<double> sum = 0;
        const int64_t count = 200000 / inc;
        for (int64_t i = 0; i < count; ++i) sum += std::complex<double>(u(i * inc, 0)) * std::complex<double>(v(i * inc, 0));
        EXPECT_LE(std::abs(std::complex<double>(wkl_blas_dot(count, u.data(), inc, v.data(), inc)) - sum), 30000 * eps);
    }
    block<value_t> lu(200, 150, 1, 50), whole = lu;
    std::vector<int64_t> pivots(150);
    int64_t info = -1;
    wkl_lapack_getrf(200, 150, lu.data(), lu.ld, pivots.data(), &info);
    ASSERT_EQ(info, 0);
    block<value_t> l = lu, r(150, 150, 0, 51);
    for (int64_t j = 0; j < 150; ++j) {
        for (int64_t i = 0; i < 150; ++i) r(i, j) = i <= j ? lu(i, j) : value_t(0);
        for (int64_t i = 0; i <= j; ++i) l(i, j) = i == j ? value_t(1) : value_t(0);
    }
    block<value_t> back = whole;
    const block<value_t> product = product_of('N', l, 'N', r, 200, 150, 150);
    for (int64_t j = 0; j < 150; ++j)
        for (int64_t i = 0; i < 200; ++i) back(i, j) = product(i, j);
    wkl_lapack_laswp(150, back.data(), back.ld, 1, 150, pivots.data(), -1);
    expect_close(back, whole, 3000 * eps, "getrf");
    block<value_t> t(200, 200, 1, 52), b0(200, 77, 1, 53);
    for (int64_t j = 0; j < 200; ++j)
        for (int64_t i = 0; i < 200; ++i) t(i, j) = i == j ? value_t(2) : i > j ? t(i, j) * value_t(real_of<value_t>(0.01F)) : value_t(0);
    block<value_t> b = b0, again = b0;
    wkl_blas_trsm('l', 'l', 'n', 'n', 200, 77, value_t(1), t.data(), t.ld, b.data(), b.ld);
    const block<value_t> tb = product_of('N', t, 'N', b, 200, 77, 200);
    for (int64_t j = 0; j < 77; ++j)
        for (int64_t i = 0; i < 200; ++i) again(i, j) = tb(i, j);
    expect_close(again, b0, 1000 * eps, "trsm");
}

/* Catches: a library that ends the process or hangs with many callers, and one that changes the caller's thread count. */
TYPED_TEST(dense_frame, sixty_four_callers_at_once)
{
    using value_t = TypeParam;
    const int64_t n = 96;
    const block<value_t> a(n, n, 0, 61), b(n, n, 0, 62);
    const block<value_t> product = product_of('N', a, 'N', b, n, n, n);
    int64_t wrong = 0;
    omp_set_num_threads(3);
#pragma omp parallel num_threads(64) reduction(+ : wrong)
    for (int64_t turn = 0; turn < 10; ++turn) {
        block<value_t> c(n, n, 0, 63), d = c;
        wkl_blas_gemm('N', 'N', n, n, n, value_t(1), a.data(), n, b.data(), n, value_t(0), c.data(), n);
        blas_gemm('N', 'N', n, n, n, value_t(1), a.data(), n, b.data(), n, value_t(0), d.data(), n);
        for (int64_t j = 0; j < n; ++j) {
            for (int64_t i = 0; i < n; ++i) {
                if (!(std::abs(c(i, j) - product(i, j)) < 2000 * epsilon_of<value_t>())) ++wrong;
                if (!(std::abs(d(i, j) - product(i, j)) < 2000 * epsilon_of<value_t>())) ++wrong;
            }
        }
    }
    EXPECT_EQ(wrong, 0);
    block<value_t> d(n, n, 0, 64);
    blas_gemm('N', 'N', n, n, n, value_t(1), a.data(), n, b.data(), n, value_t(0), d.data(), n);
    EXPECT_EQ(omp_get_max_threads(), 3);
}
