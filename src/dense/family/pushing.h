/* Cholesky factorization of narrow supernodes: each is factored and then subtracts its products from all entries that they belong to. The
   entries are listed, so that nothing is looked up, and the products of a short column stand without a loop: on small grids most columns
   have a handful of rows, and loops of so few steps take longer than what they do. */
#pragma once

#include "dense/family/potrf.h"

namespace WKL_FAMILY
{
namespace
{

/* Rows under a real column whose work stands without a loop. */
constexpr int64_t short_rows = 8;
template <int64_t rows>
struct row_count {
    static constexpr int64_t value = rows;
};

/* Call step with the number of rows, 0 to short_rows, as a constant. */
template <typename step_type>
DENSE_INLINE void with_short_rows(int64_t rows, const step_type &step)
{
    switch (rows) {
    case 0:
        return step(row_count<0>());
    case 1:
        return step(row_count<1>());
    case 2:
        return step(row_count<2>());
    case 3:
        return step(row_count<3>());
    case 4:
        return step(row_count<4>());
    case 5:
        return step(row_count<5>());
    case 6:
        return step(row_count<6>());
    case 7:
        return step(row_count<7>());
    default:
        return step(row_count<short_rows>());
    }
}

/* A real column whose pivot has the given inverse square root. */
template <int64_t q, typename value_t>
DENSE_INLINE void push_short(value_t *column, value_t inverse, value_t *lnz, const int32_t *place)
{
    value_t l[q + 1];
    DENSE_UNROLL
    for (int64_t i = 0; i < q; ++i) column[i] = l[i] = column[i] * inverse;
    DENSE_UNROLL
    for (int64_t k = 0; k < q; ++k) {
        DENSE_UNROLL
        for (int64_t i = k; i < q; ++i) {
            value_t *const to = lnz + *place++;
            *to = madd(-l[i], l[k], *to);
        }
    }
}

/* Products of the rows under some columns of a supernode with each other. l: the first of the rows. Places that follow each other, as in
   the separators, are taken by vectors. */
template <int columns, typename value_t>
DENSE_INLINE void push_columns(int64_t q, const value_t *l, int64_t ld, value_t *lnz, const int32_t *place)
{
    constexpr int64_t width = parts<value_t>, worth_vectors = 4;
    for (int64_t k = 0; k < q; place += q - k, ++k) {
        real_of<value_t> factor[columns * width];
        for (int64_t c = 0; c < columns; ++c) {
            const real_of<value_t> *const f = as_real(l + c * ld + k);
            factor[c * width] = -f[0];
            if constexpr (is_complex<value_t>) factor[c * width + 1] = f[1];
        }
        if (q - k >= worth_vectors && place[q - 1 - k] - place[0] == q - 1 - k) {
            add_multiples<value_t, columns>(q - k, factor, l + k, ld, lnz + place[0]);
            continue;
        }
        for (int64_t i = k; i < q; ++i) {
            value_t *const to = lnz + place[i - k];
            value_t entry = *to;
            for (int64_t c = 0; c < columns; ++c) subtract_value(l + c * ld + k, true, l + c * ld + i, &entry);
            *to = entry;
        }
    }
}

template <typename value_t>
void push_panel(int64_t q, int64_t w, const value_t *l, int64_t ld, value_t *lnz, const int32_t *place)
{
    int64_t c = 0;
    for (; c + 4 <= w; c += 4) push_columns<4>(q, l + c * ld, ld, lnz, place);
    if (c + 2 <= w) {
        push_columns<2>(q, l + c * ld, ld, lnz, place);
        c += 2;
    }
    if (c < w) push_columns<1>(q, l + c * ld, ld, lnz, place);
}

/* One column and its products; false: its pivot is not positive, or not a number. */
template <typename value_t>
DENSE_INLINE bool push_single(int64_t q, value_t *column, value_t *lnz, const int32_t *place)
{
    using real_t = real_of<value_t>;
    real_t *const pivot = as_real(column);
    if (!(pivot[0] > 0)) return false;
    real_t root;
    if constexpr (sizeof(real_t) == sizeof(double))
        root = __builtin_sqrt(pivot[0]);
    else
        root = __builtin_sqrtf(pivot[0]);
    pivot[0] = root;
    real_t inverse[2] = {1 / root, 0}; /* normal, since no root is as small or as large as its square may be */
    if constexpr (is_complex<value_t>)
        pivot[1] = 0;
    else if (q <= short_rows) {
        with_short_rows(q, [=](auto rows) { push_short<rows.value>(column + 1, inverse[0], lnz, place); });
        return true;
    }
    multiply_values(q, inverse, column + 1);
    push_columns<1>(q, column + 1, q + 1, lnz, place);
    return true;
}

template <typename value_t>
int64_t factor_pushing(pushing_run<value_t> *run, void *work)
{
    const int32_t *word = run->word;
    value_t *const lnz = run->lnz;
    int64_t at = run->at, columns = run->columns, failed = 0;
    while (at < run->end) {
        const int64_t w = word[0], q = word[1];
        const int32_t *const place = word + 2;
        value_t *const block = lnz + at;
        if (w == 1) {
            failed = push_single(q, block, lnz, place) ? 0 : 1;
        } else {
            failed = potrf_panel(w + q, w, block, w + q, work);
            if (failed == 0) push_panel(q, w, block + w, w + q, lnz, place);
        }
        if (failed != 0) break;
        word = place + q * (q + 1) / 2;
        at += w * (w + q);
        columns += w;
    }
    run->word = word;
    run->at = at;
    run->columns = columns;
    return failed == 0 ? 0 : columns + failed;
}

} // namespace
} // namespace WKL_FAMILY
