/* Matching and scaling. Optimality is checked by its own certificate: scale factors that bound every entry by 1 and make the matched ones 1
   prove that no other matching has a larger product. */
#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>
#include <numeric>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "analysis/analysis.h"

using words = std::vector<int64_t>;

static size_t at(int64_t number)
{
    return static_cast<size_t>(number - 1);
}

template <typename value_t>
struct sparse {
    int64_t n, type;
    words ia{1}, ja;
    std::vector<value_t> a;
};

template <typename value_t>
static double size_of(const value_t &x)
{
    double size = 0; /* in double: abs of a single-precision complex value is rounded to single */
    if constexpr (std::is_floating_point_v<value_t>)
        size = std::fabs(static_cast<double>(x));
    else if (!std::isnan(x.real()) && !std::isnan(x.imag()))
        size = std::hypot(static_cast<double>(x.real()), static_cast<double>(x.imag()));
    return std::isnan(size) ? 0 : size;
}

template <typename value_t>
static value_t value_of(double size, double angle)
{
    if constexpr (std::is_floating_point_v<value_t>)
        return static_cast<value_t>(angle < 3 ? size : -size);
    else
        return static_cast<value_t>(std::polar(size, angle));
}

/* density: chance of an entry; planted: a whole permutation is there, so that the structure is not singular. */
template <typename value_t>
static sparse<value_t> random_matrix(int64_t n, int64_t type, double density, bool planted, double decades, uint32_t seed)
{
    std::mt19937_64 random(seed);
    std::uniform_real_distribution<double> unit(0, 1);
    words permutation(static_cast<size_t>(n));
    std::iota(permutation.begin(), permutation.end(), 1);
    std::shuffle(permutation.begin(), permutation.end(), random);
    const bool upper = type < 0 || type == 6;
    if (upper) /* pairs, so that the plan survives in one triangle */
        for (size_t k = 0; k < permutation.size(); ++k) permutation[k] = std::min<int64_t>(n, static_cast<int64_t>(k ^ 1) + 1);
    sparse<value_t> m{n, type, {1}, {}, {}};
    for (int64_t i = 1; i <= n; ++i) {
        for (int64_t j = upper ? i : 1; j <= n; ++j) {
            if (unit(random) >= density && !(planted && permutation[at(i)] == j)) continue;
            m.ja.push_back(j);
            m.a.push_back(value_of<value_t>(std::pow(10.0, decades * (unit(random) - 0.5)), 6 * unit(random)));
        }
        m.ia.push_back(static_cast<int64_t>(m.ja.size()) + 1);
    }
    return m;
}

struct outcome {
    int64_t matched;
    words order;
    std::vector<double> row, col;
};

template <typename value_t>
static outcome run(const sparse<value_t> &m, int64_t method)
{
    const size_t n = static_cast<size_t>(m.n);
    outcome o{0, words(n, -5), std::vector<double>(n, NAN), std::vector<double>(n, NAN)};
    words work(static_cast<size_t>(matching_work_words(m.n, m.ia[n] - 1, m.type)), 0x7ff8dead00000001);
    o.matched = matching_step<value_t>(m.type, method, m.n, m.ia.data(), m.ja.data(), m.a.data(), o.order.data(), o.row.data(),
                                       o.col.data(), work.data());
    words sorted = o.order, all(n);
    std::iota(all.begin(), all.end(), 1);
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(sorted, all) << "not a permutation";
    for (size_t i = 0; i < n; ++i) { EXPECT_TRUE(std::isfinite(o.row[i]) && o.row[i] > 0 && std::isfinite(o.col[i]) && o.col[i] > 0); }
    return o;
}

/* All entries, both triangles for symmetric types. */
template <typename value_t>
static std::vector<std::vector<double>> dense(const sparse<value_t> &m)
{
    std::vector<std::vector<double>> d(static_cast<size_t>(m.n), std::vector<double>(static_cast<size_t>(m.n), 0));
    for (int64_t i = 1; i <= m.n; ++i) {
        for (int64_t p = m.ia[at(i)]; p < m.ia[at(i + 1)]; ++p) {
            d[at(i)][at(m.ja[at(p)])] = size_of(m.a[at(p)]);
            if (m.type < 0 || m.type == 6) d[at(m.ja[at(p)])][at(i)] = size_of(m.a[at(p)]);
        }
    }
    return d;
}

/* Entries bounded by 1, and equal to 1 where matched. */
template <typename value_t>
static void expect_certificate(const sparse<value_t> &m, const outcome &o, bool tight)
{
    const double slack = 1e-10;
    const auto d = dense(m);
    for (int64_t i = 1; i <= m.n; ++i)
        for (int64_t j = 1; j <= m.n; ++j) ASSERT_LE(o.row[at(i)] * d[at(i)][at(j)] * o.col[at(j)], 1 + slack) << i << " " << j;
    for (int64_t j = 1; tight && j <= m.n; ++j)
        ASSERT_NEAR(o.row[at(o.order[at(j)])] * d[at(o.order[at(j)])][at(j)] * o.col[at(j)], 1, slack) << j;
}

/* Rows that can be matched at most, by plain augmenting paths. */
static bool augment(const std::vector<std::vector<double>> &d, size_t i, double limit, std::vector<int> &seen, std::vector<int> &owner)
{
    for (size_t j = 0; j < d.size(); ++j) {
        if (!(d[i][j] > 0) || d[i][j] < limit || seen[j]) continue;
        seen[j] = 1;
        if (owner[j] >= 0 && !augment(d, static_cast<size_t>(owner[j]), limit, seen, owner)) continue;
        owner[j] = static_cast<int>(i);
        return true;
    }
    return false;
}

static int64_t cardinality(const std::vector<std::vector<double>> &d, double limit)
{
    int64_t count = 0;
    std::vector<int> owner(d.size(), -1);
    for (size_t i = 0; i < d.size(); ++i) {
        std::vector<int> seen(d.size(), 0);
        count += augment(d, i, limit, seen, owner);
    }
    return count;
}

template <typename value_t>
class matching_of : public testing::Test
{
};
using value_types = testing::Types<double, float, std::complex<double>, std::complex<float>>;
TYPED_TEST_SUITE(matching_of, value_types);

TYPED_TEST(matching_of, has_the_largest_product_of_all_permutations)
{
    for (uint32_t seed = 1; seed <= 60; ++seed) {
        const int64_t n = 1 + seed % 6;
        const auto m = random_matrix<TypeParam>(n, 11, 0.5, true, 8, seed);
        const outcome o = run(m, 1);
        ASSERT_EQ(o.matched, n);
        const auto d = dense(m);
        words p(static_cast<size_t>(n));
        std::iota(p.begin(), p.end(), 1);
        double best = 0, ours = 1;
        do {
            double product = 1;
            for (int64_t j = 1; j <= n; ++j) product *= d[at(p[at(j)])][at(j)];
            best = std::max(best, product);
        } while (std::next_permutation(p.begin(), p.end()));
        for (int64_t j = 1; j <= n; ++j) ours *= d[at(o.order[at(j)])][at(j)];
        EXPECT_NEAR(ours / best, 1, 1e-10);
        expect_certificate(m, o, true);
    }
    for (uint32_t seed = 1; seed <= 12; ++seed) { /* too many permutations to try: the certificate alone */
        const auto m = random_matrix<TypeParam>(250, 13, seed % 3 == 0 ? 0.3 : 0.008, true, seed % 4 == 1 ? 0 : 10, seed);
        const outcome o = run(m, 1);
        ASSERT_EQ(o.matched, m.n);
        expect_certificate(m, o, true);
    }
}

TYPED_TEST(matching_of, symmetric_matrices_get_one_scaling_for_rows_and_columns)
{
    for (const int64_t type : {-2, -4, 6}) {
        for (uint32_t seed = 1; seed <= 6; ++seed) {
            auto m = random_matrix<TypeParam>(120, type, 0.02, true, 12, seed);
            for (int64_t i = 1; i <= 60; ++i) /* a zero diagonal block: explicit zeros are no entries */
                if (m.ja[at(m.ia[at(i)])] == i) m.a[at(m.ia[at(i)])] = TypeParam(0);
            for (const int64_t method : {1, 2}) {
                const outcome o = run(m, method);
                ASSERT_EQ(o.matched, m.n);
                EXPECT_EQ(o.row, o.col);
                expect_certificate(m, o, method == 1);
            }
        }
    }
}

/* Two zeros paired, a zero left without its good neighbour, or a good diagonal entry bound to another column: fill or a lost pivot. */
TYPED_TEST(matching_of, cycles_are_cut_at_good_diagonal_entries)
{
    const double g = 0.5, z = 1e-3;
    struct cycle {
        std::vector<double> diagonal;
        words expected; /* for columns 1, 2, ... matched in a ring */
    };
    const cycle cases[] = {{{z}, {1}},
                           {{g, g}, {1, 2}},
                           {{z, g}, {2, 2}},
                           {{0, z}, {2, 1}},
                           {{0, z, 0}, {3, 1, 1}},
                           {{0, 0, g, z}, {2, 1, 3, 3}},
                           {{g, 0, z, z, g, 0}, {1, 1, 4, 3, 5, 5}},
                           {{z, 2 * z, z, z}, {4, 3, 2, 1}}};
    for (const cycle &c : cases) {
        const int64_t n = static_cast<int64_t>(c.diagonal.size());
        sparse<TypeParam> m{n, -2, {1}, {}, {}};
        words match;
        for (int64_t i = 1; i <= n; ++i) {
            m.ja.push_back(i);
            m.a.push_back(value_of<TypeParam>(4 * c.diagonal[at(i)], 2));
            m.ia.push_back(i + 1);
            match.push_back(i % n + 1);
        }
        const std::vector<double> scale(static_cast<size_t>(n), 0.5);
        words work(static_cast<size_t>(3 * n), 0x7ff8dead00000001);
        suggest_pivots<TypeParam>(n, m.ia.data(), m.ja.data(), m.a.data(), scale.data(), match.data(), work.data());
        EXPECT_EQ(match, c.expected) << n;
    }
}

TYPED_TEST(matching_of, singular_structure_gives_the_structural_rank_and_a_whole_permutation)
{
    for (uint32_t seed = 1; seed <= 30; ++seed) {
        const int64_t n = seed % 5 == 0 ? 1 : 60;
        const auto m = random_matrix<TypeParam>(n, seed % 2 == 0 ? 11 : -2, 0.004 * seed / 2, false, 6, seed);
        for (const int64_t method : {1, 2}) {
            const outcome o = run(m, method);
            ASSERT_EQ(o.matched, cardinality(dense(m), 0)) << seed << " " << method;
            expect_certificate(m, o, o.matched == n && method == 1);
        }
    }
}

TYPED_TEST(matching_of, alternative_method_has_a_smallest_diagonal_near_the_best)
{
    for (uint32_t seed = 1; seed <= 20; ++seed) {
        const auto m = random_matrix<TypeParam>(40, 11, 0.08, true, 12, seed);
        const outcome o = run(m, 2);
        ASSERT_EQ(o.matched, m.n);
        expect_certificate(m, o, false);
        auto d = dense(m);
        double ours = 1;
        for (int64_t i = 1; i <= m.n; ++i)
            for (int64_t j = 1; j <= m.n; ++j) d[at(i)][at(j)] *= o.row[at(i)] * o.col[at(j)];
        for (int64_t j = 1; j <= m.n; ++j) ours = std::min(ours, d[at(o.order[at(j)])][at(j)]);
        EXPECT_LT(cardinality(d, ours * 10.001), m.n); /* no matching has all its entries ten times as large */
    }
}

TYPED_TEST(matching_of, survives_values_that_are_not_finite_or_at_the_end_of_the_range)
{
    using real_t = decltype(std::abs(TypeParam()));
    const real_t huge = std::numeric_limits<real_t>::max(), tiny = std::numeric_limits<real_t>::denorm_min();
    const real_t odd[] = {huge, tiny, std::numeric_limits<real_t>::infinity(), std::numeric_limits<real_t>::quiet_NaN(), 0, 1};
    for (uint32_t seed = 1; seed <= 40; ++seed) {
        auto m = random_matrix<TypeParam>(30, seed % 2 == 0 ? 11 : 6, 0.2, true, 4, seed);
        std::mt19937_64 random(seed);
        for (TypeParam &x : m.a)
            if (random() % 3 == 0) x = TypeParam(odd[random() % 6]);
        for (const int64_t method : {1, 2}) EXPECT_EQ(run(m, method).matched, cardinality(dense(m), 0));
    }
    sparse<TypeParam> graded{3, 11, {1, 3, 5, 7}, {1, 2, 2, 3, 1, 3}, {}}; /* logarithms must not run out where products would */
    for (const real_t x : {huge, real_t(1), tiny, real_t(1), huge, tiny}) graded.a.push_back(TypeParam(x));
    const outcome o = run(graded, 1);
    EXPECT_EQ(o.matched, 3);
    if constexpr (!std::is_floating_point_v<TypeParam>) { /* the magnitude of both parts, though its square passes the range */
        sparse<TypeParam> two{
            2, 13, {1, 3, 5}, {1, 2, 1, 2}, {TypeParam(huge, huge), TypeParam(huge, 0), TypeParam(huge, 0), TypeParam(3, 4)}};
        two.a[0] /= real_t(4), two.a[1] /= real_t(4), two.a[2] /= real_t(4);
        const outcome pair = run(two, 1);
        EXPECT_EQ(pair.order, (words{2, 1}));
        two.a = {TypeParam(3, 4), TypeParam(5, 0), TypeParam(5, 0), TypeParam(4, 4)}; /* 5 * 5.7 against 25 */
        EXPECT_EQ(run(two, 1).order, (words{1, 2}));
    }
}
