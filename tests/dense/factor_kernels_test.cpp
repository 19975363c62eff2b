/* Small factorizations and the steps with one vector, every family that the machine can run. */
#include "dense_reference.h"

template <typename value_t>
class dense_factors : public ::testing::Test
{
};
TYPED_TEST_SUITE(dense_factors, value_types);

template <typename value_t>
static block<value_t> positive_block(int64_t m, int64_t n, uint64_t seed)
{
    block<value_t> a(m, n, 3, seed);
    for (int64_t j = 0; j < n; ++j) {
        a(j, j) = value_from<value_t>(static_cast<double>(n) + 2, 0);
        for (int64_t i = 0; i < j; ++i) a(i, j) = value_from<value_t>(std::nan(""), 0);
    }
    return a;
}

/* Catches: entries above the diagonal in use, lost block boundaries, a Hermitian product without conjugation. */
TYPED_TEST(dense_factors, cholesky_panel_reproduces_the_matrix)
{
    using value_t = TypeParam;
    workspace work;
    for (const int32_t type : runnable_families()) {
        for (const auto &[m, n] : {std::array<int64_t, 2>{1, 1}, {9, 3}, {80, 8}, {30, 30}, {100, 65}, {190, 150}}) {
            const block<value_t> a = positive_block<value_t>(m, n, 21);
            block<value_t> l = a;
            ASSERT_EQ(dense_family_table<value_t>(type)->potrf_panel(m, n, l.data(), l.ld, n % 2 == 0 ? work.p : nullptr), 0);
            block<value_t> product = a;
            for (int64_t j = 0; j < n; ++j) {
                for (int64_t i = 0; i < m; ++i) {
                    if (i < j) {
                        ASSERT_TRUE(std::isnan(std::abs(l(i, j))));
                        product(i, j) = l(i, j) = 0;
                        continue;
                    }
                    value_t sum = 0;
                    for (int64_t k = 0; k <= j; ++k) sum += l(i, k) * conjugated(l(j, k), true);
                    product(i, j) = sum;
                }
            }
            block<value_t> wanted = a;
            for (int64_t j = 0; j < n; ++j)
                for (int64_t i = 0; i < j; ++i) wanted(i, j) = 0;
            expect_close(product, wanted, 8 * epsilon_of<value_t>() * static_cast<double>(n + 2), "type " + std::to_string(type));
        }
    }
}

/* Catches: a NaN or a non-positive pivot that passes, and an index that is not that of the pivot. */
TYPED_TEST(dense_factors, cholesky_names_the_bad_pivot)
{
    using value_t = TypeParam;
    for (const int32_t type : runnable_families()) {
        for (const int64_t bad : {1, 8, 9, 40, 100}) {
            for (const double pivot : {0.0, -1.0, std::nan("")}) {
                block<value_t> a = positive_block<value_t>(100, 100, 22);
                a(bad - 1, bad - 1) = value_from<value_t>(pivot, 0);
                ASSERT_EQ(dense_family_table<value_t>(type)->potrf_panel(100, 100, a.data(), a.ld, nullptr), bad) << type << " " << pivot;
            }
        }
    }
}

/* Catches: exchanges applied to a part of the columns only, pivots counted from the wrong row, a perturbation that is not counted. */
TYPED_TEST(dense_factors, lu_reproduces_the_exchanged_matrix)
{
    using value_t = TypeParam;
    workspace work;
    for (const int32_t type : runnable_families()) {
        for (const auto &[m, n] : {std::array<int64_t, 2>{1, 1}, {7, 3}, {5, 30}, {65, 65}, {150, 90}, {20, 70}}) {
            const block<value_t> a(m, n, 2, 23);
            block<value_t> lu = a;
            const int64_t least = std::min(m, n);
            std::vector<int64_t> pivots(static_cast<size_t>(least));
            int64_t perturbed = 5;
            ASSERT_EQ(dense_family_table<value_t>(type)->getrf(m, n, lu.data(), lu.ld, pivots.data(), 0, &perturbed, work.p), 0);
            ASSERT_EQ(perturbed, 5);
            block<value_t> product = a;
            for (int64_t j = 0; j < n; ++j) {
                for (int64_t i = 0; i < m; ++i) {
                    value_t sum = i <= j ? lu(i, j) : value_t(0);
                    for (int64_t l = 0; l < std::min({i, j + 1, least}); ++l) sum += lu(i, l) * lu(l, j);
                    product(i, j) = sum;
                    if (i > j && j < least) { ASSERT_LE(std::abs(lu(i, j)), 1.5); /* exchanged for size */ }
                }
            }
            for (int64_t i = least; i-- > 0;)
                for (int64_t j = 0; j < n; ++j) std::swap(product(i, j), product(pivots[static_cast<size_t>(i)] - 1, j));
            expect_close(product, a, 20 * epsilon_of<value_t>() * static_cast<double>(least + 2), "type " + std::to_string(type));
        }
    }
}

TYPED_TEST(dense_factors, lu_replaces_small_pivots_and_reports_zero_ones)
{
    using value_t = TypeParam;
    using real_t = real_of<value_t>;
    const kernel_table<value_t> *table = dense_family_table<value_t>(runnable_families().back());
    block<value_t> a(3, 3, 0, 24);
    for (auto &x : a.value) x = 0;
    a(0, 0) = 2;
    a(1, 1) = value_t(static_cast<real_t>(-1e-6));
    block<value_t> b = a;
    std::vector<int64_t> pivots(3);
    int64_t perturbed = 0;
    EXPECT_EQ(table->getrf(3, 3, a.data(), 3, pivots.data(), real_t(1e-3F), &perturbed, nullptr), 0);
    EXPECT_EQ(perturbed, 2);
    EXPECT_EQ(a(1, 1), value_t(-real_t(1e-3F)));
    EXPECT_EQ(a(2, 2), value_t(real_t(1e-3F)));
    EXPECT_EQ(table->getrf(3, 3, b.data(), 3, pivots.data(), -1, &perturbed, nullptr), 3);
    EXPECT_EQ(perturbed, 2);
    block<value_t> tiny(2, 1, 0, 25); /* the reciprocal of the pivot overflows, the quotient does not */
    tiny(0, 0) = value_t(std::numeric_limits<real_t>::denorm_min() * 64);
    tiny(1, 0) = value_t(std::numeric_limits<real_t>::denorm_min() * 32);
    EXPECT_EQ(table->getrf(2, 1, tiny.data(), 2, pivots.data(), 0, &perturbed, nullptr), 0);
    EXPECT_EQ(tiny(1, 0), value_t(real_t(0.5)));
    block<value_t> nan(1, 1, 0, 26);
    nan(0, 0) = value_t(std::numeric_limits<real_t>::quiet_NaN());
    EXPECT_EQ(table->getrf(1, 1, nan.data(), 1, pivots.data(), real_t(1e-3F), &perturbed, nullptr), 0);
    EXPECT_TRUE(std::isnan(std::abs(nan(0, 0)))) << "a NaN may not be passed off as a small pivot";
}

/* Catches: tails of vectors, rows that are runs or not, the conjugation of the backward step. */
TYPED_TEST(dense_factors, single_vector_steps_agree_with_loops)
{
    using value_t = TypeParam;
    for (const int32_t type : runnable_families()) {
        const kernel_table<value_t> *table = dense_family_table<value_t>(type);
        for (const auto &[q, w] : {std::array<int64_t, 2>{0, 3}, {1, 1}, {6, 5}, {33, 14}, {2500, 6}}) {
            for (const int64_t gap : {0, 1}) {
                for (const bool unit : {false, true}) {
                    block<value_t> panel(w + q, w, 1, 27);
                    for (int64_t j = 0; j < w; ++j) {
                        for (int64_t i = 0; i < j; ++i) panel(i, j) = value_from<value_t>(std::nan(""), 0);
                        panel(j, j) = unit ? value_from<value_t>(std::nan(""), 0) : value_from<value_t>(2, 0.5);
                    }
                    std::vector<int64_t> row;
                    for (int64_t i = 0; i < q; ++i) row.push_back(1 + i + gap * (i / 3) * 2);
                    const int64_t length = q > 0 ? row.back() : 1;
                    block<value_t> x(w, 1, 0, 28), vector(length, 1, 0, 29);
                    block<value_t> x0 = x, vector0 = vector;
                    const double bound = 60 * epsilon_of<value_t>() * static_cast<double>(q + w);
                    table->solve_lower(unit, w, panel.data(), panel.ld, x.data());
                    table->panel_forward(q, w, panel.data() + w, panel.ld, x.data(), row.data(), vector.data());
                    for (int64_t j = 0; j < w; ++j) {
                        if (!unit) x0(j, 0) /= panel(j, j);
                        for (int64_t i = j + 1; i < w; ++i) x0(i, 0) -= panel(i, j) * x0(j, 0);
                        for (int64_t i = 0; i < q; ++i) vector0(row[static_cast<size_t>(i)] - 1, 0) -= panel(w + i, j) * x0(j, 0);
                    }
                    expect_close(x, x0, bound, "forward");
                    expect_close(vector, vector0, bound, "forward panel");
                    for (const mirror kind : {mirror::symmetric, mirror::hermitian}) {
                        const bool c = kind == mirror::hermitian;
                        block<value_t> y(w, 1, 0, 30), y0 = y;
                        table->panel_backward(kind, q, w, panel.data() + w, panel.ld, row.data(), vector.data(), y.data());
                        table->solve_lower_transposed(kind, unit, w, panel.data(), panel.ld, y.data());
                        for (int64_t j = w - 1; j >= 0; --j) {
                            for (int64_t i = 0; i < q; ++i)
                                y0(j, 0) -= conjugated(panel(w + i, j), c) * vector(row[static_cast<size_t>(i)] - 1, 0);
                            for (int64_t i = j + 1; i < w; ++i) y0(j, 0) -= conjugated(panel(i, j), c) * y0(i, 0);
                            if (!unit) y0(j, 0) /= conjugated(panel(j, j), c);
                        }
                        double largest = 1; /* the triangle magnifies */
                        for (const value_t &entry : y0.value) largest = std::max(largest, static_cast<double>(std::abs(entry)));
                        expect_close(y, y0, bound * largest, "backward");
                    }
                }
            }
        }
    }
}

/* Catches: a place or a row list that is off by one within a supernode, a supernode lost where a run stops, steps without conjugation, rows
   on the wrong side of a limit. */
TYPED_TEST(dense_factors, narrow_supernodes_solve_their_system)
{
    using value_t = TypeParam;
    const std::vector<int64_t> first = {1, 2, 3, 5, 21, 26, 27, 36};
    const int64_t n = 35, supernodes = 7, near = 4, limit = 20;
    const block<value_t> a = positive_block<value_t>(n, n, 41), b(n, 1, 0, 42);
    std::vector<int64_t> list_start = {1}, list, column_start;
    std::vector<value_t> values;
    std::vector<int32_t> program;
    for (size_t s = 0; s < supernodes; ++s) {
        for (int64_t i = first[s]; i <= n; ++i) list.push_back(i);
        list_start.push_back(static_cast<int64_t>(list.size()) + 1);
        for (int64_t c = first[s]; c < first[s + 1]; ++c) {
            column_start.push_back(static_cast<int64_t>(values.size()) + 1);
            for (int64_t i = first[s]; i <= n; ++i) values.push_back(a(i - 1, c - 1));
        }
    }
    for (size_t s = 0; s < supernodes; ++s) {
        program.push_back(static_cast<int32_t>(first[s + 1] - first[s]));
        program.push_back(static_cast<int32_t>(n + 1 - first[s + 1]));
        for (size_t t = s + 1; t < supernodes; ++t)
            for (int64_t k = first[t]; k < first[t + 1]; ++k)
                for (int64_t i = k; i <= n; ++i)
                    program.push_back(static_cast<int32_t>(column_start[static_cast<size_t>(k - 1)] - 1 + i - first[t]));
    }
    for (const int32_t type : runnable_families()) {
        const kernel_table<value_t> *table = dense_family_table<value_t>(type);
        std::vector<value_t> lnz = values;
        const auto entries = static_cast<int64_t>(lnz.size());
        pushing_run<value_t> run = {program.data(), lnz.data(), 0, entries / 2, 0};
        ASSERT_EQ(table->factor_pushing(&run, nullptr), 0);
        run.end = entries;
        ASSERT_EQ(table->factor_pushing(&run, nullptr), 0);
        ASSERT_EQ(run.columns, n);
        block<value_t> x = b, product = b;
        std::vector<value_t> beyond(n, value_t(0));
        narrow_factor<value_t> factor = {first.data(), list_start.data(), list.data(), column_start.data(), lnz.data(),
                                         limit,        beyond.data()};
        table->narrow_forward(&factor, 1, near, x.data());
        for (int64_t i = limit; i < n; ++i) {
            EXPECT_EQ(x(i, 0), b(i, 0));
            x(i, 0) += beyond[static_cast<size_t>(i)];
        }
        factor.row_limit = n;
        table->narrow_forward(&factor, near + 1, supernodes, x.data());
        table->narrow_backward(&factor, 1, supernodes, x.data());
        for (int64_t i = 0; i < n; ++i) {
            product(i, 0) = 0;
            for (int64_t j = 0; j < n; ++j) product(i, 0) += (i < j ? conjugated(a(j, i), true) : a(i, j)) * x(j, 0);
        }
        expect_close(product, b, 60 * epsilon_of<value_t>(), "type " + std::to_string(type));
    }
}

/* Catches: a row or column lost at the edge of a tile or of a cache block, a register count without a body, a wrong triangle or sign, the
   unused triangle or a unit diagonal that is read, work on vectors beyond the width. */
TYPED_TEST(dense_factors, interleaved_vectors_agree_with_loops)
{
    using value_t = TypeParam;
    for (const int32_t type : runnable_families())
        for (const auto &sizes : {std::array<int64_t, 2>{0, 3}, {5, 1}, {50, 2}, {100, 70}, {3, 131}})
            for (const auto triangle : {block_triangle::lower, block_triangle::lower_unit, block_triangle::upper})
                for (const bool backward : {false, true}) {
                    const int64_t q = sizes[0], w = sizes[1]; /* rows and columns of the panel */
                    const int64_t width = (q % 2 == 0 ? 7 : 4) * interleaved_lanes<value_t>, stride = width + interleaved_lanes<value_t>;
                    const bool upper = triangle == block_triangle::upper, unit = triangle == block_triangle::lower_unit;
                    const bool conjugate = backward && !upper;
                    block<value_t> t(w, w, 1, 31), panel(q, w, 2, 32), own(stride, w, 0, 33), vectors(stride, 2 * q + 2, 0, 34);
                    const auto scale = value_from<value_t>(1.0 / static_cast<double>(w), 0);
                    const value_t nan = value_from<value_t>(std::nan(""), 0);
                    for (int64_t j = 0; j < w; ++j)
                        for (int64_t i = 0; i < w; ++i)
                            t(i, j) = i == j ? (unit ? nan : value_from<value_t>(2, 0.5)) : (i < j) == upper ? t(i, j) * scale : nan;
                    std::vector<int64_t> row;
                    for (int64_t i = 0; i < q; ++i) row.push_back(2 * i + 1);
                    block<value_t> own0 = own, vectors0 = vectors;
                    const auto through_panel = [&](int64_t k) {
                        for (int64_t j = 0; j < w; ++j)
                            for (int64_t i = 0; i < q; ++i) {
                                value_t &y = vectors0(k, row[static_cast<size_t>(i)]);
                                if (backward)
                                    own0(k, j) -= conjugated(panel(i, j), conjugate) * y;
                                else
                                    y -= panel(i, j) * own0(k, j);
                            }
                    };
                    for (int64_t k = 0; k < width; ++k) {
                        if (backward) through_panel(k);
                        for (int64_t a = 0; a < w; ++a) {
                            const int64_t j = backward ? w - 1 - a : a;
                            if (!unit) own0(k, j) /= conjugated(t(j, j), conjugate);
                            for (int64_t b = a + 1; b < w; ++b) {
                                const int64_t i = backward ? w - 1 - b : b;
                                own0(k, i) -= conjugated(backward == upper ? t(i, j) : t(j, i), conjugate) * own0(k, j);
                            }
                        }
                        if (!backward) through_panel(k);
                    }
                    const interleaved_block<value_t> b = {triangle,
                                                          conjugate ? mirror::hermitian : mirror::symmetric,
                                                          w,
                                                          q,
                                                          t.data(),
                                                          t.ld,
                                                          panel.data(),
                                                          panel.ld,
                                                          row.data(),
                                                          width,
                                                          stride,
                                                          own.data(),
                                                          vectors.data(),
                                                          q / 2,
                                                          vectors.data()};
                    const kernel_table<value_t> *table = dense_family_table<value_t>(type);
                    (backward ? table->interleaved_backward : table->interleaved_forward)(&b);
                    const double bound = 60 * epsilon_of<value_t>() * static_cast<double>(q + w);
                    expect_close(own, own0, bound, "own " + std::to_string(type) + " " + std::to_string(w));
                    expect_close(vectors, vectors0, bound, "vectors " + std::to_string(type) + " " + std::to_string(w));
                }
}
