/* Sweeps through the supernodes of a small Cholesky factor, for one vector. What a supernode costs beside its products decides here:
   columns of few rows stand without a loop, and a supernode of some columns goes column by column, as its row list serves them all. */
#pragma once

#include "dense/family/columns.h"
#include "dense/family/short_rows.h"

namespace WKL_FAMILY
{
namespace
{

/* From so many columns on the panel kernels are faster. */
constexpr int64_t sweep_wide_columns = 8;

/* One column: its entries below the diagonal, and the rows that they meet. */
template <typename value_t>
DENSE_INLINE void forward_rows(int64_t begin, int64_t end, const value_t *entry, const int64_t *row, const value_t &factor,
                               const value_t &own, value_t *x)
{
    for (int64_t i = begin; i < end; ++i) {
        value_t *const to = x + (row[i] - 1);
        *to = less_product(*to, times(entry[i], factor), own);
    }
}

template <typename value_t>
DENSE_INLINE void forward_column(int64_t below, const value_t *diagonal, const int64_t *row, value_t *own_entry, value_t *x)
{
    const value_t *const entry = diagonal + 1;
    const value_t factor = inverse_of(diagonal, false), own = *own_entry;
    *own_entry = times(own, factor);
    if constexpr (!is_complex<value_t>)
        if (below <= short_rows)
            return with_short_rows(below, [=](auto rows) {
                DENSE_UNROLL
                for (int64_t i = 0; i < rows.value; ++i) x[row[i] - 1] = madd(-entry[i] * factor, own, x[row[i] - 1]);
            });
    forward_rows(0, below, entry, row, factor, own, x);
}

/* The first row is the one found last: its product with the reciprocal of the diagonal is formed before. */
template <typename value_t>
DENSE_INLINE void backward_column(int64_t below, const value_t *diagonal, const int64_t *row, value_t *own_entry, const value_t *x)
{
    const value_t *const entry = diagonal + 1;
    const value_t factor = inverse_of(diagonal, true);
    value_t own = *own_entry, other = value_t(0);
    int64_t i = below - 1;
    for (; i > 1; i -= 2) {
        own = less_product(own, turned(entry[i], true), x[row[i] - 1]);
        other = less_product(other, turned(entry[i - 1], true), x[row[i - 1] - 1]);
    }
    if (i == 1) other = less_product(other, turned(entry[1], true), x[row[1] - 1]);
    own = times(own + other, factor);
    if (below > 0) own = less_product(own, times(turned(entry[0], true), factor), x[row[0] - 1]);
    *own_entry = own;
}

template <typename value_t>
void narrow_forward(const narrow_factor<value_t> *f, int64_t first, int64_t last, value_t *x)
{
    for (int64_t number = first; number <= last; ++number) {
        const int64_t w = f->first_column[number] - f->first_column[number - 1], start = f->list_start[number - 1];
        const int64_t rows = f->list_start[number] - start, *const row = f->list + start;
        const int64_t column = f->first_column[number - 1] - 1;
        const value_t *const block = f->lnz + (f->column_start[column] - 1);
        value_t *const own = x + column;
        if (w < sweep_wide_columns) {
            for (int64_t c = 0; c < w; ++c) forward_column(rows - c - 1, block + c * (rows + 1), row + c, own + c, x);
        } else {
            solve_lower(false, w, block, rows, own);
            panel_forward(rows - w, w, block + w, rows, own, row + (w - 1), x);
        }
    }
}

template <typename value_t>
void narrow_backward(const narrow_factor<value_t> *f, int64_t first, int64_t last, value_t *x)
{
    for (int64_t number = last; number >= first; --number) {
        const int64_t w = f->first_column[number] - f->first_column[number - 1], start = f->list_start[number - 1];
        const int64_t rows = f->list_start[number] - start, *const row = f->list + start;
        const int64_t column = f->first_column[number - 1] - 1;
        const value_t *const block = f->lnz + (f->column_start[column] - 1);
        value_t *const own = x + column;
        if (w < sweep_wide_columns) {
            for (int64_t c = w - 1; c >= 0; --c) backward_column(rows - c - 1, block + c * (rows + 1), row + c, own + c, x);
        } else {
            panel_backward(mirror::hermitian, rows - w, w, block + w, rows, row + (w - 1), x, own);
            solve_lower_transposed(mirror::hermitian, false, w, block, rows, own);
        }
    }
}

} // namespace
} // namespace WKL_FAMILY
