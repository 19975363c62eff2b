#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "factor/block_ldlt.h"
#include "service/service.h"
#include "small_problem.h"

/* The blocked kernels against the plain unblocked elimination, which is written here in the published form: L without the exchanges of
   later pivots, D with its off-diagonal entries below the diagonal. */

namespace
{

using small_problem_steps::z;

template <typename value_t>
double size_one(const value_t &x)
{
    return std::fabs(std::real(x)) + std::fabs(std::imag(x));
}

template <typename value_t, mirror sym>
value_t image(const value_t &x)
{
    if constexpr (sym == mirror::hermitian)
        return conjugate(x);
    else
        return x;
}

template <typename value_t>
struct oracle_result {
    std::vector<int64_t> pivots;
    pivot_counts counts = {};
};

/* Exchange rows and columns one < other of the triangle from column k on. */
template <typename value_t, mirror sym>
void oracle_exchange(int64_t n, value_t *a, int64_t one, int64_t other)
{
    for (int64_t i = other + 1; i < n; ++i) std::swap(a[i + one * n], a[i + other * n]);
    for (int64_t i = one + 1; i < other; ++i) {
        const value_t t = image<value_t, sym>(a[i + one * n]);
        a[i + one * n] = image<value_t, sym>(a[other + i * n]);
        a[other + i * n] = t;
    }
    a[other + one * n] = image<value_t, sym>(a[other + one * n]);
    std::swap(a[one + one * n], a[other + other * n]);
}

template <typename value_t, mirror sym>
oracle_result<value_t> oracle_bunch_kaufman(int64_t n, value_t *a, double epsilon)
{
    const double alpha = 0.6403882032022076;
    oracle_result<value_t> out;
    out.pivots.assign(z(n), 0);
    double amax = 0;
    for (int64_t j = 0; j < n; ++j)
        for (int64_t i = j; i < n; ++i) amax = std::max(amax, size_one(a[i + j * n]));
    const double replacement = epsilon == 0 ? 1e-8 : epsilon;
    const double tau = epsilon == 0 ? 0 : amax <= epsilon ? amax * epsilon : epsilon;
    for (int64_t k = 0, step = 1; k < n; k += step) {
        step = 1;
        int64_t kp = k, r = k;
        const double absakk = size_one(a[k + k * n]);
        double colmax = 0;
        for (int64_t i = k + 1; i < n; ++i)
            if (size_one(a[i + k * n]) > colmax) {
                colmax = size_one(a[i + k * n]);
                r = i;
            }
        if (std::max(absakk, colmax) <= tau) {
            ++out.counts.perturbed;
            a[k + k * n] = value_t(static_cast<real_part_t<value_t>>(std::real(a[k + k * n]) >= 0 ? replacement : -replacement));
        } else if (absakk < alpha * colmax) {
            double rowmax = 0;
            for (int64_t j = k; j < r; ++j) rowmax = std::max(rowmax, size_one(a[r + j * n]));
            for (int64_t i = r + 1; i < n; ++i) rowmax = std::max(rowmax, size_one(a[i + r * n]));
            if (absakk < alpha * colmax * (colmax / rowmax)) {
                kp = r;
                step = size_one(a[r + r * n]) >= alpha * rowmax ? 1 : 2;
            }
        }
        const int64_t kk = k + step - 1;
        if (kp != kk) {
            oracle_exchange<value_t, sym>(n, a, kk, kp);
            if (step == 2) std::swap(a[k + 1 + k * n], a[kp + k * n]);
        }
        if (step == 1) {
            const value_t r1 = value_t(1) / a[k + k * n];
            ++(std::real(k + 1 < n ? r1 : a[k + k * n]) >= 0 ? out.counts.positive : out.counts.negative);
            for (int64_t j = k + 1; j < n; ++j)
                for (int64_t i = j; i < n; ++i) a[i + j * n] -= a[i + k * n] * r1 * image<value_t, sym>(a[j + k * n]);
            for (int64_t i = k + 1; i < n; ++i) a[i + k * n] *= r1;
            out.pivots[z(k)] = kp + 1;
            continue;
        }
        const value_t d21 = a[k + 1 + k * n], d11 = a[k + 1 + (k + 1) * n] / d21, d22 = a[k + k * n] / image<value_t, sym>(d21);
        const value_t t = value_t(1) / (d11 * d22 - value_t(1));
        for (int64_t j = k + 2; j < n; ++j) {
            const value_t wk = t / image<value_t, sym>(d21) * (d11 * a[j + k * n] - a[j + (k + 1) * n]);
            const value_t wk1 = t / d21 * (d22 * a[j + (k + 1) * n] - a[j + k * n]);
            for (int64_t i = j; i < n; ++i)
                a[i + j * n] -= a[i + k * n] * image<value_t, sym>(wk) + a[i + (k + 1) * n] * image<value_t, sym>(wk1);
            a[j + k * n] = wk;
            a[j + (k + 1) * n] = wk1;
        }
        if (std::real(t) <= 0)
            ++out.counts.positive, ++out.counts.negative;
        else if (std::real(a[k + k * n]) <= 0 || std::real(a[k + 1 + (k + 1) * n]) <= 0)
            out.counts.negative += 2;
        else
            out.counts.positive += 2;
        out.pivots[z(k)] = out.pivots[z(k + 1)] = -(kp + 1);
    }
    return out;
}

template <typename value_t, mirror sym>
oracle_result<value_t> oracle_diagonal(int64_t n, value_t *a, double epsilon)
{
    oracle_result<value_t> out;
    for (int64_t j = 0; j < n; ++j) {
        int64_t at = j;
        for (int64_t i = j; i < n; ++i)
            if (std::abs(a[at + at * n]) <= std::abs(a[i + i * n])) at = i;
        if (at != j) oracle_exchange<value_t, sym>(n, a, j, at);
        if (at != j)
            for (int64_t c = 0; c < j; ++c) std::swap(a[j + c * n], a[at + c * n]);
        out.pivots.push_back(at + 1);
        value_t &d = a[j + j * n];
        if (std::abs(d) <= epsilon) {
            ++out.counts.perturbed;
            const double e = epsilon == 0 ? 1e-8 : epsilon;
            d = value_t(static_cast<real_part_t<value_t>>(std::real(d) >= 0 ? e : -e));
        }
        ++(std::real(d) <= 0 ? out.counts.negative : out.counts.positive);
        for (int64_t i = j + 1; i < n; ++i) a[i + j * n] /= d;
        for (int64_t c = j + 1; c < n; ++c)
            for (int64_t i = c; i < n; ++i) a[i + c * n] -= a[i + j * n] * d * image<value_t, sym>(a[c + j * n]);
    }
    return out;
}

/* The pinned layout from the published one: exchanges on earlier columns, D(k, k+1) above the diagonal. */
template <typename value_t, mirror sym>
void to_block_layout(int64_t n, value_t *a, const std::vector<int64_t> &pivots)
{
    for (int64_t k = 0; k < n; ++k) {
        const bool pair = pivots[z(k)] < 0;
        const int64_t one = pair ? k + 1 : k, other = std::abs(pivots[z(k)]) - 1;
        for (int64_t c = 0; c < k; ++c) std::swap(a[one + c * n], a[other + c * n]);
        if (!pair) continue;
        a[k + (k + 1) * n] = image<value_t, sym>(a[k + 1 + k * n]);
        a[k + 1 + k * n] = value_t(0);
        ++k;
    }
}

enum block_kind { random_block, graded_block, saddle_block, singular_block, tiny_block, zero_block, block_kinds };

/* Lower triangle, leading dimension n. */
template <typename value_t, mirror sym>
std::vector<value_t> make_block(int64_t n, int kind, unsigned seed)
{
    using real_t = real_part_t<value_t>;
    std::mt19937 engine(seed);
    std::vector<value_t> a(z(n * n), value_t(0));
    for (int64_t j = 0; j < n; ++j)
        for (int64_t i = j; i < n; ++i) {
            value_t x = small_problem_steps::random_value<value_t>(engine);
            if (kind == graded_block) x *= static_cast<real_t>(std::pow(10.0, -0.05 * static_cast<double>(i + j)));
            if (kind == saddle_block && j >= (2 * n + 2) / 3) x = value_t(0);
            if (kind == singular_block && i >= n / 2 && j < n / 2) x = i == j + n / 2 ? value_t(1) : value_t(0);
            if (kind == singular_block && j >= n / 2) x = value_t(0);
            if (kind == tiny_block) x *= static_cast<real_t>(1e-20);
            if (kind == zero_block) x = value_t(0);
            if (i == j && sym == mirror::hermitian) x = value_t(std::real(x));
            a[z(i + j * n)] = x;
        }
    return a;
}

template <typename value_t, mirror sym>
void compare(int64_t n, int kind, double epsilon, bool diagonal_pivoting)
{
    const int64_t lda = n + 3;
    const value_t poison(std::numeric_limits<real_part_t<value_t>>::quiet_NaN());
    auto expected = make_block<value_t, sym>(n, kind, static_cast<unsigned>(n + 1));
    std::vector<value_t> a(z(lda * n), poison);
    for (int64_t j = 0; j < n; ++j)
        for (int64_t i = j; i < n; ++i) a[z(i + j * lda)] = expected[z(i + j * n)];
    const auto oracle = diagonal_pivoting ? oracle_diagonal<value_t, sym>(n, expected.data(), epsilon)
                                          : oracle_bunch_kaufman<value_t, sym>(n, expected.data(), epsilon);
    if (!diagonal_pivoting) to_block_layout<value_t, sym>(n, expected.data(), oracle.pivots);
    std::vector<int64_t> pivots(z(n), -99);
    pivot_counts counts = {};
    const int64_t info = diagonal_pivoting
                             ? block_ldlt_diagonal<value_t, sym>(n, a.data(), lda, pivots.data(), &counts, epsilon, nullptr, false, nullptr)
                             : block_ldlt_bunch_kaufman<value_t, sym>(n, a.data(), lda, pivots.data(), &counts, epsilon, nullptr);
    ASSERT_EQ(info, 0);
    EXPECT_EQ(counts.perturbed, oracle.counts.perturbed) << n << " kind " << kind;
    EXPECT_EQ(counts.positive, oracle.counts.positive) << n << " kind " << kind;
    EXPECT_EQ(counts.negative, oracle.counts.negative) << n << " kind " << kind;
    ASSERT_EQ(pivots, oracle.pivots) << n << " kind " << kind;
    if (n > 49) return; /* entries of ill-conditioned blocks differ by rounding; the pivots above do not */
    double worst = 0, scale = 1;
    for (int64_t j = 0; j < n; ++j)
        for (int64_t i = j; i < n; ++i) scale = std::max(scale, static_cast<double>(std::abs(expected[z(i + j * n)])));
    for (int64_t j = 0; j < n; ++j) {
        const bool pair = pivots[z(j)] < 0 && j > 0 && pivots[z(j - 1)] == pivots[z(j)] && a[z(j + (j - 1) * lda)] == value_t(0);
        for (int64_t i = pair ? j - 1 : j; i < n; ++i) {
            const double e = std::abs(a[z(i + j * lda)] - expected[z(i + j * n)]);
            worst = std::isnan(e) ? 1e300 : std::max(worst, e);
        }
        for (int64_t i = n; i < lda; ++i) EXPECT_TRUE(std::isnan(std::real(a[z(i + j * lda)])));
    }
    EXPECT_LE(worst, scale * static_cast<double>(n) * 1e4 * static_cast<double>(std::numeric_limits<real_part_t<value_t>>::epsilon()))
        << n << " kind " << kind;
}

template <typename value_t, mirror sym>
void compare_all(std::initializer_list<int> kinds)
{
    for (const int64_t n : {1, 2, 3, 7, 24, 25, 26, 49, 130, 200})
        for (const int kind : kinds)
            for (const double epsilon : {0.0, 1e-8})
                for (const bool diagonal_pivoting : {false, true}) {
                    /* without a usable diagonal the growth of diagonal pivoting hides every comparison */
                    if (diagonal_pivoting && (kind == saddle_block || kind == singular_block || n > 26)) continue;
                    compare<value_t, sym>(n, kind, epsilon, diagonal_pivoting);
                }
}

/* A blocked form that chooses other pivots, counts otherwise or misplaces an exchange. */
TEST(block_ldlt, takes_the_pivots_of_the_unblocked_elimination)
{
    compare_all<double, mirror::hermitian>({random_block, graded_block, saddle_block, singular_block, tiny_block, zero_block});
    compare_all<std::complex<double>, mirror::hermitian>({random_block, graded_block, saddle_block, tiny_block, zero_block});
    compare_all<std::complex<double>, mirror::symmetric>({random_block, graded_block, saddle_block, tiny_block, zero_block});
    compare_all<float, mirror::hermitian>({tiny_block, zero_block});
}

/* The epsilon rules at their edges. */
TEST(block_ldlt, replaces_small_pivots_as_told)
{
    int64_t pivots[2];
    pivot_counts counts = {};
    double zero[4] = {0, 0, 0, 0};
    EXPECT_EQ((block_ldlt_bunch_kaufman<double, mirror::hermitian>(2, zero, 2, pivots, &counts, 0, nullptr)), 0);
    EXPECT_EQ(counts.perturbed, 2); /* epsilon 0: only zero columns, by plus 1e-8 */
    EXPECT_EQ(zero[0], 1e-8);
    double small[4] = {-1e-12, 0, 0, 1};
    counts = {};
    block_ldlt_bunch_kaufman<double, mirror::hermitian>(2, small, 2, pivots, &counts, 1e-10, nullptr);
    EXPECT_EQ(counts.perturbed, 1);
    EXPECT_EQ(small[0], -1e-10);
    double uniform[4] = {1e-12, 0, 0, 2e-12}; /* no entry above epsilon: the test value shrinks with the block */
    counts = {};
    block_ldlt_bunch_kaufman<double, mirror::hermitian>(2, uniform, 2, pivots, &counts, 1e-10, nullptr);
    EXPECT_EQ(counts.perturbed, 0);
    double equal[9] = {2, 0, 0, 0, -2, 0, 0, 0, 2}; /* of equal diagonal entries the last is taken */
    int64_t order[3];
    counts = {};
    block_ldlt_diagonal<double, mirror::hermitian>(3, equal, 3, order, &counts, 1e-10, nullptr, false, nullptr);
    EXPECT_EQ(order[0], 3);
    EXPECT_EQ(counts.negative, 1);
    EXPECT_EQ((block_ldlt_diagonal<double, mirror::hermitian>(-1, equal, 3, order, &counts, 0, nullptr, false, nullptr)), -2);
    EXPECT_EQ((block_ldlt_bunch_kaufman<double, mirror::hermitian>(3, equal, 2, order, &counts, 0, nullptr)), -4);
}

double seen_aux = 0;
int64_t record_and_double(const double *aux, double *pivot, const double *)
{
    seen_aux = *aux;
    *pivot *= 2;
    return 1;
}

/* The hook not consulted, its value dropped, or its change not counted. */
TEST(block_ldlt, asks_the_hook_for_every_diagonal_pivot)
{
    pivot_callback *before = service_set_pivot_hook(record_and_double);
    double a[1] = {3}, diagonal[1] = {7};
    int64_t pivots[1];
    pivot_counts counts = {};
    block_ldlt_diagonal<double, mirror::hermitian>(1, a, 1, pivots, &counts, 1e-10, diagonal, true, nullptr);
    EXPECT_EQ(a[0], 6);
    EXPECT_EQ(seen_aux, 7);
    EXPECT_EQ(counts.perturbed, 1);
    service_set_pivot_hook(pivot_default); /* with epsilon 0 it leaves a pivot of minus zero, counted as negative */
    double zero[1] = {0};
    counts = {};
    block_ldlt_diagonal<double, mirror::hermitian>(1, zero, 1, pivots, &counts, 0, diagonal, true, nullptr);
    EXPECT_TRUE(zero[0] == 0 && std::signbit(zero[0]));
    EXPECT_EQ(counts.negative, 1);
    service_set_pivot_hook(before);
}

} // namespace
