/* The bodies of each processor family that this machine can run: all but the last give the same bits, the last one fuses the sums into y.
 */
#include "spblas_test.h"

#include "spblas/csr_bodies.h"

#include <gtest/gtest.h>

namespace
{

struct family {
    const char *name;
    const csr_bodies<double> *bodies;
    bool runs;
};

std::vector<family> families()
{
    return {{"sse2", &csr_bodies_sse2, true},
            {"sse3", &csr_bodies_sse3, __builtin_cpu_supports("sse3") != 0},
            {"ssse3", &csr_bodies_ssse3, __builtin_cpu_supports("ssse3") != 0},
            {"sse4.2", &csr_bodies_sse42, __builtin_cpu_supports("sse4.2") != 0},
            {"avx", &csr_bodies_avx, __builtin_cpu_supports("avx") != 0},
            {"avx2", &csr_bodies_avx2, __builtin_cpu_supports("avx2") != 0 && __builtin_cpu_supports("fma") != 0}};
}

std::vector<double> run(csr_row_body<double> *body, const csr_matrix<double> &s, const std::vector<double> &x, double beta)
{
    std::vector<double> y = random_vector<double>(s.k, 3);
    body(1, s.m, 0.7, s.a.data(), s.ja.data(), s.ia.data(), s.ia.data() + 1, x.data(), y.data(), beta);
    return y;
}

/* The middle third of the rows, so that some entries go outside: y and behind it what was reached there. */
std::vector<double> run(csr_mirror_body<double> *body, const csr_matrix<double> &s, const std::vector<double> &x, double beta, bool upper)
{
    const int64_t r1 = s.m / 3 + 1, r2 = 2 * s.m / 3;
    std::vector<double> y = random_vector<double>(s.m, 3), outside(static_cast<size_t>(s.m), 0.0);
    csr_outside<double> reach = {upper ? outside.data() + r2 : outside.data(), upper ? r2 + 1 : 1, upper ? s.m : r1 - 1,
                                 upper ? r2 + 1 : r1, upper ? r2 : r1 - 1};
    body(r1, r2, 0.7, s.a.data(), s.ja.data(), s.ia.data(), s.ia.data() + 1, x.data(), y.data(), beta, &reach);
    y.insert(y.end(), outside.begin(), outside.end());
    return y;
}

} // namespace

TEST(csr_families, agree_in_their_bits_up_to_avx_and_within_rounding_after)
{
    const csr_matrix<double> s = random_matrix<double>(777, 777, 1, 1);
    const std::vector<double> x = random_vector<double>(777, 2);
    for (const family &f : families()) {
        if (!f.runs) continue;
        for (const double beta : {0.0, 0.3}) {
            const auto compare = [&](auto *body, auto *plain, auto... upper) {
                const std::vector<double> y = run(body, s, x, beta, upper...), expected = run(plain, s, x, beta, upper...);
                if (f.bodies != &csr_bodies_avx2) {
                    ASSERT_EQ(y, expected) << f.name;
                    return;
                }
                EXPECT_TRUE(beta == 0.0 || y != expected) << "nothing is fused"; /* a first sum onto zero is the product itself */
                for (size_t i = 0; i < y.size(); ++i) ASSERT_NEAR(y[i], expected[i], 1e-14);
            };
            for (int diagonal = 0; diagonal < 2; ++diagonal) {
                for (int side = 0; side < 3; ++side) {
                    compare(f.bodies->gather[side][diagonal][0], csr_bodies_sse2.gather[side][diagonal][0]);
                    compare(f.bodies->scatter[side][diagonal][0], csr_bodies_sse2.scatter[side][diagonal][0]);
                }
            }
            for (int diagonal = 0; diagonal < 3; ++diagonal) {
                for (int side = 0; side < 2; ++side)
                    compare(f.bodies->mirrored[side][diagonal][0], csr_bodies_sse2.mirrored[side][diagonal][0], side == side_upper);
            }
        }
    }
}
