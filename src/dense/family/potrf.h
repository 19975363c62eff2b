/* Cholesky factorization of the lower triangle: columns one after the other for a few columns, recursive halves above. */
#pragma once

#include "dense/family/vector_ops.h"

namespace WKL_FAMILY
{
namespace
{

/* Up to so many columns the plain column form is used. */
constexpr int64_t potrf_columns = 8;

/* Factor n columns of m rows, left-looking: column j takes the products of the columns before it over all its rows. */
template <typename value_t>
int64_t factor_columns(int64_t m, int64_t n, value_t *a, int64_t lda)
{
    using real_t = real_of<value_t>;
    constexpr int64_t width = parts<value_t>;
    for (int64_t j = 0; j < n; ++j) {
        value_t *column = a + j + j * lda;
        real_t f[8];
        int64_t l = 0;
        for (; l + 4 <= j; l += 4) {
            for (int64_t c = 0; c < 4; ++c) {
                const real_t *x = as_real(a + j + (l + c) * lda);
                f[c * width] = -x[0];
                if constexpr (is_complex<value_t>) f[c * width + 1] = x[1];
            }
            add_multiples<value_t, 4>(m - j, f, a + j + l * lda, lda, column);
        }
        for (; l < j; ++l) {
            const real_t *x = as_real(a + j + l * lda);
            f[0] = -x[0];
            if constexpr (is_complex<value_t>) f[1] = x[1];
            add_multiples<value_t, 1>(m - j, f, a + j + l * lda, lda, column);
        }
        real_t *pivot = as_real(column);
        if (!(pivot[0] > 0)) return j + 1; /* a NaN fails the test as well */
        if constexpr (sizeof(real_t) == sizeof(double))
            pivot[0] = __builtin_sqrt(pivot[0]);
        else
            pivot[0] = __builtin_sqrtf(pivot[0]);
        f[0] = 1 / pivot[0];
        if constexpr (is_complex<value_t>) f[1] = pivot[1] = 0;
        multiply_values(m - j - 1, f, column + 1);
    }
    return 0;
}

/* Rows below a factored n by n triangle: b = b * inverse of its conjugated transpose. */
template <typename value_t>
void solve_rows(int64_t m, int64_t n, const value_t *l, int64_t ld, value_t *b, int64_t ldb, void *work)
{
    solve_triangle(triangle_case{false, true, 'C', false}, m, n, l, ld, b, ldb, work);
}

template <typename value_t>
int64_t factor_square(int64_t n, value_t *a, int64_t lda, void *work)
{
    if (n <= potrf_columns) return factor_columns(n, n, a, lda);
    constexpr int64_t block = triangle_block<value_t>;
    const int64_t unit = n > 2 * block ? block : potrf_columns;
    const int64_t head = (n / 2 + unit - 1) / unit * unit;
    const int64_t rest = n - head;
    int64_t failed = factor_square(head, a, lda, work);
    if (failed != 0) return failed;
    value_t *below = a + head;
    value_t *corner = a + head + head * lda;
    solve_rows(rest, head, a, lda, below, lda, work);
    const update_segment<value_t> segment = {below, lda, below, lda, head};
    update(mirror::hermitian, update_shape::lower, rest, rest, 1, &segment, nullptr, nullptr, corner, lda, work);
    failed = factor_square(rest, corner, lda, work);
    return failed == 0 ? 0 : head + failed;
}

template <typename value_t>
int64_t potrf_panel(int64_t m, int64_t n, value_t *a, int64_t lda, void *work)
{
    /* Few columns: one pass over whole columns costs less than packing; 64 rows of 8 columns stay in the first level cache. */
    constexpr int64_t short_rows = 64;
    if (n <= potrf_columns && m <= short_rows) return factor_columns(m, n, a, lda);
    const int64_t failed = factor_square(n, a, lda, work);
    if (failed == 0 && m > n) solve_rows(m - n, n, a, lda, a + n, lda, work);
    return failed;
}

} // namespace
} // namespace WKL_FAMILY
