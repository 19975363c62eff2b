/* Runs of supernodes of one column, for one vector. On two-dimensional grids and circuits they are nearly all supernodes, with a handful of
   rows each, and a column waits for the one before: the time is the chain from one entry of x to the next. Everything that does not
   depend on that entry (the reciprocal of the diagonal, its product with the column) is therefore kept out of the chain. */
#pragma once

#include "dense/family/sweep.h"

namespace WKL_FAMILY
{
namespace
{

/* a * b, as one value. */
template <typename value_t>
DENSE_INLINE value_t times(const value_t &a, const value_t &b)
{
    if constexpr (is_complex<value_t>) {
        value_t c;
        value_product<value_t>(as_real(&a), as_real(&b), as_real(&c));
        return c;
    } else {
        return a * b;
    }
}

template <typename value_t>
DENSE_INLINE value_t inverse_of(const value_t *d, bool conjugate)
{
    value_t f;
    reciprocal<value_t>(as_real(d), conjugate, as_real(&f));
    return f;
}

/* c - a * b */
template <typename value_t>
DENSE_INLINE value_t less_product(value_t c, const value_t &a, const value_t &b)
{
    subtract_value(&a, false, &b, &c);
    return c;
}

template <typename value_t>
DENSE_INLINE value_t turned(const value_t &a, bool conjugate)
{
    value_t c = a;
    if constexpr (is_complex<value_t>) {
        if (conjugate) as_real(&c)[1] = -as_real(&c)[1];
    } else {
        (void)conjugate;
    }
    return c;
}

/* The factors and the row lists pass in one direction, a few lines for each column: what is so many bytes ahead is asked for, across the
   pages at which the hardware stops. */
constexpr int64_t run_ahead = 2048;
template <typename value_t>
DENSE_INLINE void prefetch_run(const value_t *column, const int64_t *row, int64_t bytes)
{
    prefetch_at(reinterpret_cast<const unsigned char *>(column), bytes);
    prefetch_at(reinterpret_cast<const unsigned char *>(row), bytes);
}

template <typename value_t, bool divides>
DENSE_INLINE int64_t run_forward(const column_run<value_t> &run, int64_t number, int64_t last)
{
    value_t *const x = run.x;
    for (int64_t j = run.first_column[number - 1]; number <= last; ++number, ++j) {
        const int64_t start = run.list_start[number - 1], below = run.list_start[number] - start - 1;
        const int64_t *const row = run.list + start;
        if (run.first_column[number] != j + 1 || (below > 0 && row[below - 1] > run.row_limit)) break;
        const value_t *const column = run.panel + (run.panel_start[j - 1] + run.panel_skip - 1);
        prefetch_run(column, row, run_ahead);
        const value_t own = x[j - 1];
        value_t factor = value_t(1);
        if constexpr (divides) {
            factor = inverse_of(run.diagonal + (run.diagonal_start[j - 1] - 1), false);
            x[j - 1] = times(own, factor);
        }
        for (int64_t i = 0; i < below; ++i) {
            value_t *const to = x + (row[i] - 1);
            *to = less_product(*to, divides ? times(column[i], factor) : column[i], own);
        }
    }
    return number;
}

template <typename value_t, bool before, bool after>
DENSE_INLINE int64_t run_backward(const column_run<value_t> &run, int64_t number, int64_t first)
{
    value_t *const x = run.x;
    const bool conjugate = run.kind == mirror::hermitian;
    for (int64_t j = run.first_column[number - 1]; number >= first; --number, --j) {
        const int64_t start = run.list_start[number - 1], below = run.list_start[number] - start - 1;
        const int64_t *const row = run.list + start;
        if (run.first_column[number - 1] != j) break;
        const value_t *const column = run.panel + (run.panel_start[j - 1] + run.panel_skip - 1);
        prefetch_run(column, row, -run_ahead);
        value_t factor = value_t(1);
        if constexpr (before || after) factor = inverse_of(run.diagonal + (run.diagonal_start[j - 1] - 1), conjugate && after);
        value_t own = before ? times(x[j - 1], factor) : x[j - 1], other = value_t(0);
        int64_t i = below - 1;
        for (; i > 1; i -= 2) {
            own = less_product(own, turned(column[i], conjugate), x[row[i] - 1]);
            other = less_product(other, turned(column[i - 1], conjugate), x[row[i - 1] - 1]);
        }
        if (i == 1) other = less_product(other, turned(column[1], conjugate), x[row[1] - 1]);
        own += other;
        if constexpr (after) own = times(own, factor);
        if (below > 0) { /* the first row is the one found last */
            const value_t near = turned(column[0], conjugate);
            own = less_product(own, after ? times(near, factor) : near, x[row[0] - 1]);
        }
        x[j - 1] = own;
    }
    return number;
}

template <typename value_t>
int64_t columns_forward(const column_run<value_t> *run, int64_t number, int64_t last)
{
    return run->before ? run_forward<value_t, true>(*run, number, last) : run_forward<value_t, false>(*run, number, last);
}

template <typename value_t>
int64_t columns_backward(const column_run<value_t> *run, int64_t number, int64_t first)
{
    if (run->before) return run_backward<value_t, true, false>(*run, number, first);
    return run->after ? run_backward<value_t, false, true>(*run, number, first) : run_backward<value_t, false, false>(*run, number, first);
}

} // namespace
} // namespace WKL_FAMILY
