/* What the two pivoting kernels share: a panel of columns is eliminated left-looking, with the columns of L * D in w beside it, and the
   trailing triangle is updated once a panel. All indices count from 0. */
#pragma once

#include "factor/block_ldlt.h"
#include "factor/value_helpers.h"

/* Entries of w on the stack: 24 columns for the widest blocks that the analysis makes (192). */
inline constexpr int64_t panel_entries = 2 * block_columns_limit;
inline constexpr int64_t panel_columns_most = 24;

template <typename value_t>
struct ldlt_panel {
    int64_t n, lda;
    value_t *a;
    value_t *w;    /* n by columns, leading dimension n */
    int64_t begin; /* first column of the panel */
    void *work;
};

inline int64_t panel_width(int64_t n)
{
    const int64_t fits = panel_entries / n;
    return fits < panel_columns_most ? fits : panel_columns_most;
}

/* Column `column` of the matrix as it stands after the eliminations of the panel so far, rows k..n-1, into column `to` of w. The matrix
   itself is up to date only as of the panel's begin. */
template <typename value_t, mirror sym>
void updated_column(const ldlt_panel<value_t> &p, int64_t column, int64_t k, int64_t to)
{
    value_t *x = p.w + to * p.n;
    for (int64_t i = k; i < column; ++i) x[i] = mirrored<sym>(p.a[column + i * p.lda]);
    for (int64_t i = column; i < p.n; ++i) x[i] = p.a[i + column * p.lda];
    const update_segment<value_t> segment = {p.a + k + p.begin * p.lda, p.lda, p.w + column, p.n, k - p.begin};
    if (segment.depth > 0) kernel_update<value_t, sym>(update_shape::full, p.n - k, 1, 1, &segment, x + k, p.n, p.work);
}

/* Exchange rows and columns one < other: in the columns of L before `done`, in w before column `w_columns`, and in the part of the lower
   triangle not yet eliminated, where column `one` itself will come from w and is not written. */
template <typename value_t, mirror sym>
void exchange(const ldlt_panel<value_t> &p, int64_t one, int64_t other, int64_t done, int64_t w_columns)
{
    value_t *a = p.a;
    const int64_t lda = p.lda;
    a[other + other * lda] = a[one + one * lda];
    for (int64_t i = one + 1; i < other; ++i) a[other + i * lda] = mirrored<sym>(a[i + one * lda]);
    for (int64_t i = other + 1; i < p.n; ++i) a[i + other * lda] = a[i + one * lda];
    for (int64_t j = 0; j < done; ++j) swap_values(&a[one + j * lda], &a[other + j * lda]);
    for (int64_t j = 0; j < w_columns; ++j) swap_values(&p.w[one + j * p.n], &p.w[other + j * p.n]);
}

/* The trailing triangle from column k on, after the panel begin..k-1. */
template <typename value_t, mirror sym>
void update_trailing(const ldlt_panel<value_t> &p, int64_t k)
{
    const update_segment<value_t> segment = {p.a + k + p.begin * p.lda, p.lda, p.w + k, p.n, k - p.begin};
    kernel_update<value_t, sym>(update_shape::lower, p.n - k, p.n - k, 1, &segment, p.a + k + k * p.lda, p.lda, p.work);
}

template <mirror sym, typename value_t>
void make_diagonal_real(value_t *x)
{
    if constexpr (sym == mirror::hermitian) *x = value_t(real_part(*x));
}
