/* Sweeps through a Cholesky factor of narrow supernodes, for one vector. What a supernode costs beside its products decides here: most
   have one column, others go column by column, as the row list serves them all. Plain loops: a choice by the number of rows, or columns
   taken together, or asking for what comes next, cost more than they bring. */
#pragma once

#include "dense/family/columns.h"

namespace WKL_FAMILY
{
namespace
{

/* From so many columns on the panel kernels are faster. */
constexpr int64_t sweep_wide_columns = 16;

template <typename value_t>
DENSE_INLINE void forward_rows(int64_t count, const value_t *entry, const int64_t *row, const value_t own, value_t *x)
{
    for (int64_t i = 0; i < count; ++i) {
        value_t *const to = x + (row[i] - 1);
        *to = less_product(*to, entry[i], own);
    }
}

/* One column: its entries below the diagonal, and the rows that they meet. */
template <typename value_t>
DENSE_INLINE void forward_column(int64_t below, const value_t *diagonal, const int64_t *row, value_t *own_entry, value_t *x)
{
    const value_t own = times(*own_entry, inverse_of(diagonal, false));
    *own_entry = own;
    forward_rows(below, diagonal + 1, row, own, x);
}

/* From the far rows to the near, which are found last. Two sums, so that an addition need not wait for the one before. */
template <typename value_t>
DENSE_INLINE void backward_column(int64_t below, const value_t *diagonal, const int64_t *row, value_t *own_entry, const value_t *x)
{
    const value_t *const entry = diagonal + 1;
    value_t own = *own_entry, other = value_t(0);
    int64_t i = below - 1;
    for (; i > 0; i -= 2) {
        own = less_product(own, turned(entry[i], true), x[row[i] - 1]);
        other = less_product(other, turned(entry[i - 1], true), x[row[i - 1] - 1]);
    }
    if (i == 0) own = less_product(own, turned(entry[0], true), x[row[0] - 1]);
    *own_entry = times(own + other, inverse_of(diagonal, true));
}

/* Apart, since their registers would be missed in the loops. */
template <typename value_t>
__attribute__((noinline)) void forward_wide(int64_t w, int64_t rows, const value_t *block, const int64_t *row, value_t *own, value_t *x)
{
    solve_lower(false, w, block, rows, own);
    panel_forward(rows - w, w, block + w, rows, own, row + (w - 1), x);
}

template <typename value_t>
__attribute__((noinline)) void backward_wide(int64_t w, int64_t rows, const value_t *block, const int64_t *row, value_t *own, value_t *x)
{
    panel_backward(mirror::hermitian, rows - w, w, block + w, rows, row + (w - 1), x, own);
    solve_lower_transposed(mirror::hermitian, false, w, block, rows, own);
}

/* As above, of a supernode with rows past the limit. */
template <typename value_t>
__attribute__((noinline)) void forward_apart(int64_t w, int64_t rows, const value_t *block, const int64_t *row, value_t *own, value_t *x,
                                             const narrow_factor<value_t> &f)
{
    int64_t near = rows - 1; /* of the rows after the first one */
    while (near >= w && row[near - 1] > f.row_limit) --near;
    if (w >= sweep_wide_columns) {
        const int64_t below = near - (w - 1);
        solve_lower(false, w, block, rows, own);
        panel_forward(below, w, block + w, rows, own, row + (w - 1), x);
        panel_forward(rows - w - below, w, block + w + below, rows, own, row + near, f.beyond);
        return;
    }
    for (int64_t below = rows - 1, c = 0; c < w; ++c, --below, --near, ++row, block += rows + 1) {
        forward_column(near, block, row, own + c, x);
        forward_rows(below - near, block + 1 + near, row + near, own[c], f.beyond);
    }
}

template <typename value_t>
void narrow_forward(const narrow_factor<value_t> *f, int64_t first, int64_t last, value_t *x)
{
    const int64_t *const first_column = f->first_column, *const list_start = f->list_start, *const column_start = f->column_start;
    const int64_t *const list = f->list;
    const value_t *const lnz = f->lnz;
    int64_t start = list_start[first - 1], column = first_column[first - 1] - 1;
    for (int64_t number = first; number <= last; ++number) {
        const int64_t rows = list_start[number] - start, end = first_column[number] - 1;
        const int64_t *row = list + start; /* after its own first one */
        const value_t *block = lnz + (column_start[column] - 1);
        start += rows;
        if (list[start - 2] > f->row_limit) {
            forward_apart(end - column, rows, block, row, x + column, x, *f);
            column = end;
            continue;
        }
        if (end - column >= sweep_wide_columns) {
            forward_wide(end - column, rows, block, row, x + column, x);
            column = end;
            continue;
        }
        for (int64_t below = rows - 1; column < end; ++column, --below, ++row, block += rows + 1)
            forward_column(below, block, row, x + column, x);
    }
}

template <typename value_t>
void narrow_backward(const narrow_factor<value_t> *f, int64_t first, int64_t last, value_t *x)
{
    const int64_t *const first_column = f->first_column, *const list_start = f->list_start, *const column_start = f->column_start;
    const int64_t *const list = f->list;
    const value_t *const lnz = f->lnz;
    int64_t next = list_start[last], end = first_column[last] - 1;
    for (int64_t number = last; number >= first; --number) {
        const int64_t start = list_start[number - 1], rows = next - start, column = first_column[number - 1] - 1, w = end - column;
        const value_t *block = lnz + (column_start[column] - 1);
        next = start;
        end = column;
        if (w >= sweep_wide_columns) {
            backward_wide(w, rows, block, list + start, x + column, x);
            continue;
        }
        for (int64_t c = w - 1; c >= 0; --c) backward_column(rows - c - 1, block + c * (rows + 1), list + start + c, x + column + c, x);
    }
}

} // namespace
} // namespace WKL_FAMILY
