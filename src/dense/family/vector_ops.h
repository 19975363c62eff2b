/* Operations on contiguous vectors, shared by the small factorizations and the sweeps. */
#pragma once

#include "dense/family/trsm.h"

namespace WKL_FAMILY
{
namespace
{

/* y += f * x on n values; f as its reals. */
template <typename value_t>
DENSE_INLINE void add_multiple(int64_t n, const real_of<value_t> *f, const value_t *x, value_t *y)
{
    using real_t = real_of<value_t>;
    const int64_t reals = n * parts<value_t>;
    const real_t *p = as_real(x);
    real_t *q = as_real(y);
    const vec<real_t> even = broadcast(f[0]);
    vec<real_t> odd = even;
    if constexpr (is_complex<value_t>) odd = broadcast_pair<real_t>(-f[1], f[1]);
    int64_t i = 0;
    for (; i + lanes<real_t> <= reals; i += lanes<real_t>) {
        const vec<real_t> v = load(p + i);
        vec<real_t> sum = madd(v, even, load(q + i));
        if constexpr (is_complex<value_t>) sum = madd(swap_pairs(v), odd, sum);
        store(q + i, sum);
    }
    if (i < reals) {
        const vec<real_t> v = load_part(p + i, reals - i);
        vec<real_t> sum = madd(v, even, load_part(q + i, reals - i));
        if constexpr (is_complex<value_t>) sum = madd(swap_pairs(v), odd, sum);
        store_part(q + i, sum, reals - i);
    }
}

/* x *= f on n values. */
template <typename value_t>
DENSE_INLINE void multiply_values(int64_t n, const real_of<value_t> *f, value_t *x)
{
    using real_t = real_of<value_t>;
    const int64_t reals = n * parts<value_t>;
    real_t *p = as_real(x);
    int64_t i = 0;
    for (; i + lanes<real_t> <= reals; i += lanes<real_t>) store(p + i, times_value<value_t>(load(p + i), f));
    if (i < reals) store_part(p + i, times_value<value_t>(load_part(p + i, reals - i), f), reals - i);
}

/* Ask for the line `reals` away. The address may lie past the panel, which a prefetch does not mind. */
template <typename real_t>
DENSE_INLINE void prefetch_at(const real_t *from, int64_t reals)
{
    __builtin_prefetch(reinterpret_cast<const void *>(reinterpret_cast<uintptr_t>(from) + static_cast<uintptr_t>(reals) * sizeof(real_t)));
}

/* Columns that follow a group of columns of a panel in a sweep, if any: the streams of a panel's columns are too short for the hardware to
   follow, so the line of the column that comes next in each place is asked for. */
enum class column_order { none, ascending, descending };
template <int columns, column_order next>
constexpr int64_t column_step = next == column_order::ascending ? columns : -columns;

/* Sums over i of x(i, c) * y(i), c < columns; out: the reals of the sums. conjugate: of x. */
template <typename value_t, int columns, column_order next = column_order::none>
DENSE_INLINE void inner_products(bool conjugate, int64_t n, const value_t *x, int64_t ldx, const value_t *y, real_of<value_t> *out)
{
    using real_t = real_of<value_t>;
    const int64_t reals = n * parts<value_t>;
    const real_t *q = as_real(y);
    const vec<real_t> zero = broadcast(real_t{0});
    vec<real_t> same[columns];  /* re re, im im */
    vec<real_t> cross[columns]; /* re im, im re */
    DENSE_UNROLL
    for (int c = 0; c < columns; ++c) same[c] = cross[c] = zero;
    int64_t i = 0;
    for (; i + lanes<real_t> <= reals; i += lanes<real_t>) {
        const vec<real_t> v = load(q + i);
        DENSE_UNROLL
        for (int c = 0; c < columns; ++c) {
            const vec<real_t> u = load(as_real(x + c * ldx) + i);
            if constexpr (next != column_order::none)
                prefetch_at(as_real(x + c * ldx) + i, column_step<columns, next> * ldx * parts<value_t>);
            same[c] = madd(u, v, same[c]);
            if constexpr (is_complex<value_t>) cross[c] = madd(u, swap_pairs(v), cross[c]);
        }
    }
    if (i < reals) {
        const vec<real_t> v = load_part(q + i, reals - i);
        DENSE_UNROLL
        for (int c = 0; c < columns; ++c) {
            const vec<real_t> u = load_part(as_real(x + c * ldx) + i, reals - i);
            same[c] = madd(u, v, same[c]);
            if constexpr (is_complex<value_t>) cross[c] = madd(u, swap_pairs(v), cross[c]);
        }
    }
    DENSE_UNROLL
    for (int c = 0; c < columns; ++c) {
        if constexpr (is_complex<value_t>) {
            /* cross holds re(x) im(y) in the even lanes and im(x) re(y) in the odd ones */
            const real_t rr = sum_lanes<real_t>(same[c], 0, 2);
            const real_t ii = sum_lanes<real_t>(same[c], 1, 2);
            const real_t ri = sum_lanes<real_t>(cross[c], 0, 2);
            const real_t ir = sum_lanes<real_t>(cross[c], 1, 2);
            out[2 * c] = conjugate ? rr + ii : rr - ii;
            out[2 * c + 1] = conjugate ? ri - ir : ri + ir;
        } else {
            out[c] = sum_lanes<real_t>(same[c], 0, 1);
        }
    }
    if constexpr (!is_complex<value_t>) (void)conjugate;
}

/* y += sum over c of f(c) * x(., c): `columns` streams, each read once. f: the reals of the factors. */
template <typename value_t, int columns, column_order next = column_order::none>
DENSE_INLINE void add_multiples(int64_t n, const real_of<value_t> *f, const value_t *x, int64_t ldx, value_t *y)
{
    using real_t = real_of<value_t>;
    const int64_t reals = n * parts<value_t>;
    real_t *q = as_real(y);
    vec<real_t> even[columns];
    vec<real_t> odd[columns];
    DENSE_UNROLL
    for (int c = 0; c < columns; ++c) {
        even[c] = odd[c] = broadcast(f[c * parts<value_t>]);
        if constexpr (is_complex<value_t>) odd[c] = broadcast_pair<real_t>(-f[2 * c + 1], f[2 * c + 1]);
    }
    int64_t i = 0;
    for (; i + lanes<real_t> <= reals; i += lanes<real_t>) {
        vec<real_t> sum = load(q + i);
        DENSE_UNROLL
        for (int c = 0; c < columns; ++c) {
            const vec<real_t> v = load(as_real(x + c * ldx) + i);
            if constexpr (next != column_order::none)
                prefetch_at(as_real(x + c * ldx) + i, column_step<columns, next> * ldx * parts<value_t>);
            sum = madd(v, even[c], sum);
            if constexpr (is_complex<value_t>) sum = madd(swap_pairs(v), odd[c], sum);
        }
        store(q + i, sum);
    }
    if (i < reals) {
        vec<real_t> sum = load_part(q + i, reals - i);
        DENSE_UNROLL
        for (int c = 0; c < columns; ++c) {
            const vec<real_t> v = load_part(as_real(x + c * ldx) + i, reals - i);
            sum = madd(v, even[c], sum);
            if constexpr (is_complex<value_t>) sum = madd(swap_pairs(v), odd[c], sum);
        }
        store_part(q + i, sum, reals - i);
    }
}

/* y -= a * x over all columns of a (m by n), four streams at a time. */
template <typename value_t>
void subtract_columns(int64_t m, int64_t n, const value_t *a, int64_t lda, const value_t *x, value_t *y)
{
    using real_t = real_of<value_t>;
    real_t f[8];
    const real_t *p = as_real(x);
    int64_t j = 0;
    for (; j + 4 <= n; j += 4) {
        for (int64_t c = 0; c < 4 * parts<value_t>; ++c) f[c] = -p[j * parts<value_t> + c];
        add_multiples<value_t, 4, column_order::ascending>(m, f, a + j * lda, lda, y);
    }
    for (; j < n; ++j) {
        for (int64_t c = 0; c < parts<value_t>; ++c) f[c] = -p[j * parts<value_t> + c];
        add_multiples<value_t, 1>(m, f, a + j * lda, lda, y);
    }
}

/* x -= a' * y over all columns of a (m by n), from the last one down, as a backward sweep reads the factors. */
template <typename value_t>
void subtract_products(bool conjugate, int64_t m, int64_t n, const value_t *a, int64_t lda, const value_t *y, value_t *x)
{
    using real_t = real_of<value_t>;
    real_t sum[8];
    real_t *p = as_real(x);
    int64_t j = n;
    for (; j >= 4; j -= 4) {
        inner_products<value_t, 4, column_order::descending>(conjugate, m, a + (j - 4) * lda, lda, y, sum);
        for (int64_t c = 0; c < 4 * parts<value_t>; ++c) p[(j - 4) * parts<value_t> + c] -= sum[c];
    }
    for (; j > 0; --j) {
        inner_products<value_t, 1>(conjugate, m, a + (j - 1) * lda, lda, y, sum);
        for (int64_t c = 0; c < parts<value_t>; ++c) p[(j - 1) * parts<value_t> + c] -= sum[c];
    }
}

} // namespace
} // namespace WKL_FAMILY
