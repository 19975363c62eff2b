/* LU factorization with row exchanges: recursive halves of the columns (Toledo, 1997), plain columns at the bottom. */
#pragma once

#include "dense/family/potrf.h"

namespace WKL_FAMILY
{
namespace
{

constexpr int64_t getrf_columns = 8;

template <typename value_t>
DENSE_INLINE void exchange_rows(int64_t n, value_t *x, value_t *y, int64_t ld)
{
    for (int64_t j = 0; j < n; ++j) {
        const value_t t = x[j * ld];
        x[j * ld] = y[j * ld];
        y[j * ld] = t;
    }
}

/* The magnitude by which rows are compared: |re| + |im| for complex values. */
template <typename value_t>
DENSE_INLINE real_of<value_t> size_of_value(const value_t *x)
{
    const real_of<value_t> *p = as_real(x);
    if constexpr (is_complex<value_t>)
        return (p[0] < 0 ? -p[0] : p[0]) + (p[1] < 0 ? -p[1] : p[1]);
    else
        return p[0] < 0 ? -p[0] : p[0];
}

/* Replace a pivot of magnitude at most epsilon by that magnitude, with its sign or direction. True when it was replaced. */
template <typename value_t>
bool replace_small_pivot(value_t *pivot, real_of<value_t> epsilon)
{
    using real_t = real_of<value_t>;
    real_t *p = as_real(pivot);
    if (epsilon < 0) return false;
    if constexpr (is_complex<value_t>) {
        const real_t size = size_of_value(pivot);
        if (!(size <= 2 * epsilon)) return false; /* |re| + |im| is at most sqrt(2) times the magnitude */
        const real_t magnitude = static_cast<real_t>(__builtin_hypot(static_cast<double>(p[0]), static_cast<double>(p[1])));
        if (!(magnitude <= epsilon)) return false;
        const real_t re = magnitude > 0 ? p[0] / magnitude : 1;
        const real_t im = magnitude > 0 ? p[1] / magnitude : 0;
        p[0] = re * epsilon;
        p[1] = im * epsilon;
    } else {
        if (!(size_of_value(pivot) <= epsilon)) return false; /* a NaN stays */
        p[0] = p[0] < 0 ? -epsilon : epsilon;
    }
    return true;
}

/* x /= pivot on n values: by the reciprocal where that is finite. */
template <typename value_t>
void divide_column(int64_t n, const value_t *pivot, value_t *x)
{
    using real_t = real_of<value_t>;
    constexpr real_t safe = sizeof(real_t) == sizeof(double) ? static_cast<real_t>(0x1p-1021) : static_cast<real_t>(0x1p-125);
    real_t factor[2] = {};
    if (size_of_value(pivot) >= safe) {
        reciprocal<value_t>(as_real(pivot), false, factor);
        multiply_values(n, factor, x);
        return;
    }
    /* both sides times 2^100 first: the reciprocal of the pivot alone would overflow */
    const real_t up[2] = {static_cast<real_t>(0x1p100), 0};
    real_t big[2] = {as_real(pivot)[0] * up[0], 0};
    if constexpr (is_complex<value_t>) big[1] = as_real(pivot)[1] * up[0];
    reciprocal<value_t>(big, false, factor);
    multiply_values(n, factor, x);
    multiply_values(n, up, x);
}

/* k = min(m, n) <= getrf_columns columns of m rows, right-looking. */
template <typename value_t>
int64_t eliminate_columns(int64_t m, int64_t k, value_t *a, int64_t lda, int64_t *pivots, real_of<value_t> epsilon, int64_t *perturbed)
{
    using real_t = real_of<value_t>;
    int64_t failed = 0;
    for (int64_t j = 0; j < k; ++j) {
        value_t *column = a + j * lda;
        int64_t best = j;
        real_t size = size_of_value(column + j);
        for (int64_t i = j + 1; i < m; ++i) {
            const real_t other = size_of_value(column + i);
            if (other > size) {
                size = other;
                best = i;
            }
        }
        pivots[j] = best + 1;
        if (best != j) exchange_rows(k, a + j, a + best, lda);
        if (replace_small_pivot(column + j, epsilon)) ++*perturbed;
        if (is_zero(column[j])) {
            if (failed == 0) failed = j + 1;
        } else {
            divide_column(m - j - 1, column + j, column + j + 1);
        }
        for (int64_t c = j + 1; c < k; ++c) {
            const real_t *x = as_real(a + j + c * lda);
            real_t f[2] = {-x[0], 0};
            if constexpr (is_complex<value_t>) f[1] = -x[1];
            add_multiple(m - j - 1, f, column + j + 1, a + j + 1 + c * lda);
        }
    }
    return failed;
}

template <typename value_t>
void exchange_by_pivots(int64_t n, value_t *a, int64_t lda, int64_t first, int64_t last, const int64_t *pivots)
{
    for (int64_t j = 0; j < n; ++j) {
        value_t *column = a + j * lda;
        for (int64_t i = first; i < last; ++i) {
            const int64_t other = pivots[i] - 1;
            if (other != i) exchange_rows(1, column + i, column + other, lda);
        }
    }
}

/* columns to the right of k factored ones: exchanges, then the unit triangle */
template <typename value_t>
void bring_up_columns(int64_t k, int64_t n, const value_t *a, value_t *right, int64_t lda, const int64_t *pivots, void *work)
{
    exchange_by_pivots(n, right, lda, 0, k, pivots);
    solve_triangle(triangle_case{true, true, 'N', true}, k, n, a, lda, right, lda, work);
}

template <typename value_t>
int64_t getrf(int64_t m, int64_t n, value_t *a, int64_t lda, int64_t *pivots, real_of<value_t> epsilon, int64_t *perturbed, void *work)
{
    const int64_t least = m < n ? m : n;
    if (least < 1) return 0;
    if (least <= getrf_columns) {
        const int64_t failed = eliminate_columns(m, least, a, lda, pivots, epsilon, perturbed);
        if (n > least) bring_up_columns(least, n - least, a, a + least * lda, lda, pivots, work);
        return failed;
    }
    const int64_t head = (least / 2 + getrf_columns - 1) / getrf_columns * getrf_columns;
    value_t *right = a + head * lda;
    int64_t failed = getrf(m, head, a, lda, pivots, epsilon, perturbed, work);
    bring_up_columns(head, n - head, a, right, lda, pivots, work);
    subtract_product(m - head, n - head, {{a + head, 1, lda}, {right, lda, 1}, head}, false, false, right + head, lda, work);
    const int64_t later = getrf(m - head, n - head, right + head, lda, pivots + head, epsilon, perturbed, work);
    if (failed == 0 && later != 0) failed = head + later;
    for (int64_t i = head; i < least; ++i) pivots[i] += head;
    exchange_by_pivots(head, a, lda, head, least, pivots);
    return failed;
}

} // namespace
} // namespace WKL_FAMILY
