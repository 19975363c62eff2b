/* Every kernel family that the machine can run, against plain loops. */
#include "dense_reference.h"

template <typename value_t>
class dense_kernels : public ::testing::Test
{
};
TYPED_TEST_SUITE(dense_kernels, value_types);

/* Catches: wrong tails of tiles, wrong packing of a transposition, reading c at beta 0, touching slack, depth cuts. */
TYPED_TEST(dense_kernels, multiply_agrees_with_loops)
{
    using value_t = TypeParam;
    workspace work;
    const int64_t shapes[][3] = {{1, 1, 1},   {2, 3, 1},   {5, 4, 7},     {12, 4, 16},  {13, 5, 17},
                                 {25, 9, 33}, {31, 66, 3}, {70, 11, 300}, {7, 40, 520}, {110, 30, 0}};
    const value_t factors[] = {value_from<value_t>(0, 0), value_from<value_t>(1, 0), value_from<value_t>(-1, 0),
                               value_from<value_t>(0.5, -0.75)};
    for (const int32_t type : runnable_families()) {
        const kernel_table<value_t> *table = dense_family_table<value_t>(type);
        int64_t turn = 0;
        for (const auto &s : shapes) {
            for (const char ta : {'N', 'T', 'c'}) {
                for (const char tb : {'n', 'T', 'C'}) {
                    const value_t alpha = factors[++turn % 4];
                    const value_t beta = factors[turn / 4 % 4];
                    const int64_t m = s[0], n = s[1], k = s[2];
                    const char la = static_cast<char>(std::toupper(ta)), lb = static_cast<char>(std::toupper(tb));
                    const block<value_t> a = la == 'N' ? block<value_t>(m, k, 3, 1) : block<value_t>(k, m, 2, 1);
                    const block<value_t> b = lb == 'N' ? block<value_t>(k, n, 1, 2) : block<value_t>(n, k, 5, 2);
                    block<value_t> c(m, n, 2, 3);
                    if (beta == value_t(0)) std::fill(c.value.begin(), c.value.end(), value_from<value_t>(std::nan(""), 0));
                    block<value_t> expected = c;
                    const block<value_t> product = product_of(la, a, lb, b, m, n, k);
                    for (int64_t j = 0; j < n; ++j)
                        for (int64_t i = 0; i < m; ++i)
                            expected(i, j) = alpha * product(i, j) + (beta == value_t(0) ? value_t(0) : beta * c(i, j));
                    void *space = turn % 2 == 0 ? work.p : nullptr;
                    table->gemm(ta, tb, m, n, k, alpha, a.data(), a.ld, b.data(), b.ld, beta, c.data(), c.ld, space);
                    expect_close(c, expected, 8 * epsilon_of<value_t>() * static_cast<double>(k + 2),
                                 "type " + std::to_string(type) + " m " + std::to_string(m) + " n " + std::to_string(n) + " k " +
                                     std::to_string(k) + ta + tb);
                }
            }
        }
    }
}

/* Catches: bits that depend on the workspace or on how a result was cut into calls. */
TYPED_TEST(dense_kernels, bits_do_not_depend_on_splits)
{
    using value_t = TypeParam;
    workspace work;
    const int64_t m = 61, n = 23, k = 270;
    const block<value_t> a(m, k, 1, 4), b(n, k, 2, 5);
    for (const int32_t type : runnable_families()) {
        const kernel_table<value_t> *table = dense_family_table<value_t>(type);
        for (const int64_t depth : {5L, 16L, 40L, 270L}) {
            const block<value_t> start(m, n, 0, 6);
            block<value_t> whole = start, parts = start, scattered = start;
            table->gemm('N', 'C', m, n, depth, value_t(-1), a.data(), a.ld, b.data(), b.ld, value_t(1), whole.data(), m, work.p);
            std::vector<int64_t> position(static_cast<size_t>(m));
            for (int64_t i = 0; i < m; ++i) position[static_cast<size_t>(i)] = i;
            for (int64_t i = 0; i < m; i += 7) {
                const int64_t rows = std::min<int64_t>(7, m - i);
                for (int64_t j = 0; j < n; j += 3) {
                    table->gemm('N', 'C', rows, std::min<int64_t>(3, n - j), depth, value_t(-1), &a(i, 0), a.ld, &b(j, 0), b.ld, value_t(1),
                                &parts(i, j), m, i % 2 == 0 ? work.p : nullptr);
                }
            }
            const update_segment<value_t> segment = {a.data(), a.ld, b.data(), b.ld, depth};
            table->update(mirror::hermitian, update_shape::full, m, n, 1, &segment, position.data(), position.data(), scattered.data(), m,
                          nullptr);
            ASSERT_EQ(whole.value, parts.value) << type << " " << depth;
            ASSERT_EQ(whole.value, scattered.value) << type << " " << depth;
        }
    }
}

/* Catches: writes above the diagonal, rows taken for runs that are none, segments dropped or counted twice. */
TYPED_TEST(dense_kernels, updates_meet_only_their_entries)
{
    using value_t = TypeParam;
    workspace work;
    for (const int32_t type : runnable_families()) {
        const kernel_table<value_t> *table = dense_family_table<value_t>(type);
        for (const auto &[q, k, w] : {std::array<int64_t, 3>{1, 1, 1}, {5, 2, 2}, {20, 20, 3}, {37, 9, 17}, {60, 33, 40}, {30, 20, 300}}) {
            for (const mirror kind : {mirror::symmetric, mirror::hermitian}) {
                for (int64_t form = 0; form < 3; ++form) { /* full, lower, span of two blocks */
                    const update_shape shape = form == 1 ? update_shape::lower : update_shape::full;
                    for (int64_t gap = 0; gap < 3; ++gap) { /* 0: contiguous; 1: a gap now and then; 2: no two rows together */
                        const block<value_t> w1(q, w, 1, 7), v1(k, w, 0, 8), w2(q, 3, 4, 9), v2(k, 3, 1, 10);
                        std::vector<int64_t> position;
                        for (int64_t i = 0; i < q; ++i) position.push_back(gap == 0 ? i : gap == 1 ? i + 2 * (i / 6) : 2 * i + 1);
                        const int64_t rows = position.back() + 1;
                        block<value_t> c(rows, position[static_cast<size_t>(k - 1)] + 1, 2, 11);
                        block<value_t> expected = c;
                        const std::vector<update_segment<value_t>> segments = {{w1.data(), w1.ld, v1.data(), v1.ld, w},
                                                                               {w2.data(), w2.ld, v2.data(), v2.ld, 3}};
                        std::vector<int64_t> start, top;
                        for (int64_t j = 0; j < k; ++j) {
                            start.push_back(position[static_cast<size_t>(j)] * c.ld);
                            top.push_back(form == 0 ? 0 : form == 1 ? j : j < k / 2 ? 1 : k / 2 + 2);
                            for (int64_t i = top.back(); i < q; ++i) {
                                value_t sum = 0;
                                for (int64_t l = 0; l < w; ++l) sum += w1(i, l) * conjugated(v1(j, l), kind == mirror::hermitian);
                                for (int64_t l = 0; l < 3; ++l) sum += w2(i, l) * conjugated(v2(j, l), kind == mirror::hermitian);
                                expected(position[static_cast<size_t>(i)], position[static_cast<size_t>(j)]) -= sum;
                            }
                        }
                        void *space = gap == 1 ? nullptr : work.p;
                        const int64_t *rows_at = gap == 0 ? nullptr : position.data();
                        if (form == 2)
                            table->update_span(kind, q, k, 2, segments.data(), {rows_at, start.data(), top.data()}, c.data(), space);
                        else
                            table->update(kind, shape, q, k, 2, segments.data(), rows_at, rows_at, c.data(), c.ld, space);
                        for (int64_t j = 0; j < k; ++j) { /* untouched means the same bits */
                            const int64_t column = position[static_cast<size_t>(j)], above = std::min(top[static_cast<size_t>(j)], q);
                            for (int64_t i = 0; above > 0 && i <= position[static_cast<size_t>(above - 1)]; ++i)
                                ASSERT_EQ(c(i, column), expected(i, column)) << "above the first row";
                        }
                        expect_close(c, expected, 8 * epsilon_of<value_t>() * static_cast<double>(w + 5),
                                     "type " + std::to_string(type) + " q " + std::to_string(q));
                    }
                }
            }
        }
    }
}

/* Catches: a wrong direction, triangle, conjugation or block boundary of the solves; a unit diagonal that is read. */
TYPED_TEST(dense_kernels, triangular_solves_invert_products)
{
    using value_t = TypeParam;
    workspace work;
    for (const int32_t type : runnable_families()) {
        const kernel_table<value_t> *table = dense_family_table<value_t>(type);
        for (const auto &[m, n] : {std::array<int64_t, 2>{1, 1}, {3, 14}, {14, 3}, {33, 40}, {132, 20}, {20, 132}}) {
            for (int64_t which = 0; which < 24; ++which) {
                const char side = which & 1 ? 'L' : 'r', uplo = which & 2 ? 'L' : 'u', diag = which & 4 ? 'U' : 'n',
                           trans = "NtC"[which / 8];
                const int64_t d = side == 'L' ? m : n;
                block<value_t> a(d, d, 2, 12);
                for (int64_t j = 0; j < d; ++j) {
                    for (int64_t i = 0; i < d; ++i) {
                        const bool kept = uplo == 'L' ? i > j : i < j;
                        if (i == j)
                            a(i, j) = diag == 'U' ? value_from<value_t>(std::nan(""), 0) : a(i, j) + value_from<value_t>(2, 2);
                        else if (kept)
                            a(i, j) *= static_cast<real_of<value_t>>(0.3 / std::sqrt(static_cast<double>(d)));
                        else
                            a(i, j) = value_from<value_t>(std::nan(""), 0);
                    }
                }
                block<value_t> full = a; /* what op sees */
                for (int64_t j = 0; j < d; ++j) {
                    for (int64_t i = 0; i < d; ++i) {
                        if (i == j && diag == 'U')
                            full(i, j) = 1;
                        else if (i != j && (uplo == 'L') != (i > j))
                            full(i, j) = 0;
                    }
                }
                const char op = static_cast<char>(std::toupper(trans));
                const value_t alpha = value_from<value_t>(0.5, 0.25);
                const block<value_t> x(m, n, 1, 13);
                block<value_t> b = x;
                const block<value_t> product = side == 'L' ? product_of(op, full, 'N', x, m, n, d) : product_of('N', x, op, full, m, n, d);
                for (int64_t j = 0; j < n; ++j)
                    for (int64_t i = 0; i < m; ++i) b(i, j) = product(i, j) / alpha;
                table->trsm(side, uplo, trans, diag, m, n, alpha, a.data(), a.ld, b.data(), b.ld, which % 2 ? work.p : nullptr);
                expect_close(b, x, 200 * epsilon_of<value_t>() * static_cast<double>(d),
                             "type " + std::to_string(type) + " case " + std::to_string(which));
            }
        }
    }
}
