/* The multiply and the supernode update, on top of the blocked product. */
#pragma once

#include "dense/family/product.h"

namespace WKL_FAMILY
{
namespace
{

constexpr char upper_case(char letter)
{
    return static_cast<char>(letter & ~0x20);
}

template <typename value_t>
DENSE_INLINE bool is_zero(const value_t &x)
{
    const real_of<value_t> *p = as_real(&x);
    if constexpr (is_complex<value_t>)
        return p[0] == 0 && p[1] == 0;
    else
        return p[0] == 0;
}

template <typename value_t>
DENSE_INLINE bool is_one(const value_t &x)
{
    const real_of<value_t> *p = as_real(&x);
    if constexpr (is_complex<value_t>)
        return p[0] == 1 && p[1] == 0;
    else
        return p[0] == 1;
}

/* x *= factor, on n values; factor 0 stores zeros, whatever x was. */
template <typename value_t>
void scale_values(int64_t n, value_t factor, value_t *x)
{
    using real_t = real_of<value_t>;
    const real_t *f = as_real(&factor);
    real_t *p = as_real(x);
    if (is_zero(factor)) {
        for (int64_t i = 0; i < n * parts<value_t>; ++i) p[i] = 0;
    } else if constexpr (is_complex<value_t>) {
        for (int64_t i = 0; i < n; ++i) {
            const real_t re = p[2 * i] * f[0] - p[2 * i + 1] * f[1];
            p[2 * i + 1] = p[2 * i] * f[1] + p[2 * i + 1] * f[0];
            p[2 * i] = re;
        }
    } else {
        for (int64_t i = 0; i < n; ++i) p[i] *= f[0];
    }
}

template <typename value_t>
void gemm(char transa, char transb, int64_t m, int64_t n, int64_t k, value_t alpha, const value_t *a, int64_t lda, const value_t *b,
          int64_t ldb, value_t beta, value_t *c, int64_t ldc, void *work)
{
    if (m < 1 || n < 1) return;
    const bool nothing = k < 1 || is_zero(alpha);
    if ((nothing || !is_zero(beta)) && !is_one(beta)) {
        for (int64_t j = 0; j < n; ++j) scale_values(m, beta, c + j * ldc);
    }
    if (nothing) return;
    const char ta = upper_case(transa);
    const char tb = upper_case(transb);
    tile_target<value_t> t = {};
    t.c = c;
    t.ldc = ldc;
    t.mode = is_zero(beta) ? write_mode::store : write_mode::add;
    set_signs(&t, ta == 'C', tb == 'C', as_real(&alpha));
    product_pair<value_t> pair = {};
    pair.depth = k;
    pair.a = ta == 'N' ? factor_view<value_t>{a, 1, lda} : factor_view<value_t>{a, lda, 1};
    pair.b = tb == 'N' ? factor_view<value_t>{b, ldb, 1} : factor_view<value_t>{b, 1, ldb};
    product(t, m, n, 1, &pair, work);
}

/* c -= a * b' for one pair of views. */
template <typename value_t>
void subtract_product(int64_t m, int64_t n, const product_pair<value_t> &pair, bool conjugate_a, bool conjugate_b, value_t *c, int64_t ldc,
                      void *work)
{
    const real_of<value_t> minus_one[2] = {-1, 0};
    tile_target<value_t> t = {};
    t.c = c;
    t.ldc = ldc;
    t.mode = write_mode::add;
    set_signs(&t, conjugate_a, conjugate_b, minus_one);
    product(t, m, n, 1, &pair, work);
}

/* Subtract the products of all segments from a target, whose signs are still to be set. */
template <typename value_t>
void subtract_segments(tile_target<value_t> *t, mirror kind, int64_t q, int64_t k, int64_t segment_count,
                       const update_segment<value_t> *segments, void *work)
{
    constexpr int64_t at_once = 16; /* segments per pass over c */
    product_pair<value_t> pair[at_once];
    const real_of<value_t> minus_one[2] = {-1, 0};
    t->mode = t->row_position != nullptr ? write_mode::scatter : write_mode::add;
    set_signs(t, false, kind == mirror::hermitian, minus_one);
    for (int64_t first = 0; first < segment_count; first += at_once) {
        const int64_t count = segment_count - first < at_once ? segment_count - first : at_once;
        for (int64_t s = 0; s < count; ++s) {
            const update_segment<value_t> &segment = segments[first + s];
            pair[s].a = {segment.w, 1, segment.ldw};
            pair[s].b = {segment.v, 1, segment.ldv};
            pair[s].depth = segment.depth;
        }
        product(*t, q, k, count, pair, work);
    }
}

template <typename value_t>
void update(mirror kind, update_shape shape, int64_t q, int64_t k, int64_t segment_count, const update_segment<value_t> *segments,
            const int64_t *row_position, const int64_t *column_position, value_t *c, int64_t ldc, void *work)
{
    tile_target<value_t> t = {};
    t.c = c;
    t.ldc = ldc;
    t.row_position = row_position;
    t.column_position = column_position;
    t.lower = shape == update_shape::lower;
    subtract_segments(&t, kind, q, k, segment_count, segments, work);
}

template <typename value_t>
void update_blocks(mirror kind, int64_t q, int64_t k, int64_t segment_count, const update_segment<value_t> *segments,
                   const update_span &span, value_t *c, void *work)
{
    tile_target<value_t> t = {};
    t.c = c;
    t.row_position = span.row_position;
    t.column_start = span.column_start;
    t.first_row = span.first_row;
    t.lower = true;
    subtract_segments(&t, kind, q, k, segment_count, segments, work);
}

} // namespace
} // namespace WKL_FAMILY
