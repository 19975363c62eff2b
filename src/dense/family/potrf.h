/* Cholesky factorization of the lower triangle: single columns for very few, register tiles in place up to a cache-sized square, recursive
   halves above. */
#pragma once

#include "dense/family/vector_ops.h"

namespace WKL_FAMILY
{
namespace
{

/* Up to so many columns the plain column form is used; above them tile steps in place, up to a square that the first level cache holds;
   above that recursive halves. */
constexpr int64_t potrf_columns = 8;
constexpr int64_t potrf_tile_columns = 64;

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

/* Columns of a tile step, and the small triangle that it solves with: conj(l(j, s)) at [j * c + s], s < j, and the reciprocal diagonal. */
template <typename value_t>
struct tile_triangle {
    static constexpr int c = static_cast<int>(tile_columns / parts<value_t>);
    real_of<value_t> corner[c * c * parts<value_t>];
    real_of<value_t> inverse[c * parts<value_t>];
};

/* Factor the square on top of a tile (value column j at x + j * step, its rows contiguous); count columns are in use. Fills the triangle
   for the rows below. Returns 0 or the column, from 1, whose pivot is not positive. */
template <typename value_t>
int64_t factor_tile(int64_t count, real_of<value_t> *x, int64_t step, tile_triangle<value_t> *p)
{
    using real_t = real_of<value_t>;
    constexpr int64_t width = parts<value_t>;
    constexpr int64_t c = tile_triangle<value_t>::c;
    for (int64_t j = 0; j < c * c * width; ++j) p->corner[j] = 0;
    for (int64_t j = 0; j < c * width; ++j) p->inverse[j] = 0;
    for (int64_t j = 0; j < count; ++j) {
        real_t *column = x + j * step;
        const real_t pivot = column[j * width];
        if (!(pivot > 0)) return j + 1; /* a NaN fails the test as well */
        real_t root;
        if constexpr (sizeof(real_t) == sizeof(double))
            root = __builtin_sqrt(pivot);
        else
            root = __builtin_sqrtf(pivot);
        const real_t inverse = 1 / root;
        p->inverse[j * width] = inverse;
        column[j * width] = root;
        if constexpr (is_complex<value_t>) column[j * width + 1] = 0;
        for (int64_t i = j + 1; i < count; ++i) {
            real_t *l = column + i * width;
            real_t *kept = p->corner + (i * c + j) * width;
            kept[0] = l[0] *= inverse;
            if constexpr (is_complex<value_t>) kept[1] = -(l[1] *= inverse);
        }
        for (int64_t s = j + 1; s < count; ++s) {
            const real_t *f = p->corner + (s * c + j) * width;
            for (int64_t i = s; i < count; ++i) {
                const real_t *l = column + i * width;
                real_t *y = x + s * step + i * width;
                y[0] = madd(-l[0], f[0], y[0]);
                if constexpr (is_complex<value_t>) {
                    y[0] = madd(l[1], f[1], y[0]);
                    y[1] = madd(-l[0], f[1], madd(-l[1], f[0], y[1]));
                }
            }
        }
    }
    return 0;
}

/* One strip of mv vectors against the columns s..s+count-1: rows i.. minus their product with the columns before s, then the triangle. With
   `on_top` the strip begins at row s and its square is factored first; only its entries on and below the diagonal are written. */
template <typename value_t, int mv>
int64_t factor_strip(int64_t i, int64_t s, int64_t count, int64_t tail, bool on_top, value_t *a, int64_t lda, tile_triangle<value_t> *p)
{
    using real_t = real_of<value_t>;
    constexpr int64_t width = parts<value_t>;
    constexpr int c = tile_triangle<value_t>::c;
    constexpr int64_t step = mv * lanes<real_t> < tile_columns ? tile_columns : mv * lanes<real_t>; /* holds the square as well */
    alignas(vector_bytes) real_t value[c * step];
    vec<real_t> sum[tile_columns][mv];
    if (count == c) {
        const tile_operands<real_t> operands = {as_real(a + i), lda * width, as_real(a + s), lda * width, s};
        tile_product<real_t, mv, static_cast<int>(tile_columns), true>(operands, tail, sum);
    } else {
        /* the last columns: their rows end before the tile does */
        real_t columns[potrf_tile_columns * tile_columns];
        for (int64_t l = 0; l < s; ++l) {
            for (int64_t r = 0; r < tile_columns; ++r) columns[l * tile_columns + r] = r < count * width ? as_real(a + s + l * lda)[r] : 0;
        }
        const tile_operands<real_t> operands = {as_real(a + i), lda * width, columns, tile_columns, s};
        tile_product<real_t, mv, static_cast<int>(tile_columns), true>(operands, tail, sum);
    }
    for (int j = 0; j < count; ++j) {
        real_t *column = as_real(a + i + (s + j) * lda);
        DENSE_UNROLL
        for (int v = 0; v < mv; ++v) {
            vec<real_t> y = sum[j * width][v];
            if constexpr (is_complex<value_t>) y = y - swap_pairs(sum[2 * j + 1][v]) * broadcast_pair<real_t>(-1, 1);
            const vec<real_t> x = v == mv - 1 ? load_part(column + v * lanes<real_t>, tail) : load(column + v * lanes<real_t>);
            store(value + j * step + v * lanes<real_t>, x - y);
        }
    }
    if (on_top) {
        const int64_t failed = factor_tile(count, value, step, p);
        if (failed != 0) return failed;
    }
    const int64_t rows = ((mv - 1) * lanes<real_t> + tail) / width;
    const int64_t head = on_top ? count : 0; /* rows of the square: done, and above the diagonal not ours */
    for (int j = 0; j < count; ++j) {
        real_t *column = as_real(a + i + (s + j) * lda);
        DENSE_UNROLL
        for (int v = 0; v < mv; ++v) {
            real_t *place = value + j * step + v * lanes<real_t>;
            vec<real_t> y = load(place);
            for (int l = 0; l < j; ++l)
                y = y - times_value<value_t>(load(value + l * step + v * lanes<real_t>), p->corner + (j * c + l) * width);
            y = times_value<value_t>(y, p->inverse + j * width);
            const int64_t first = v * lanes<real_t>;
            if (first >= head * width) {
                store(place, y);
                if (v == mv - 1)
                    store_part(column + first, y, tail);
                else
                    store(column + first, y);
                continue;
            }
            alignas(vector_bytes) real_t lane[lanes<real_t>];
            store(lane, y);
            for (int64_t r = 0; r < lanes<real_t> && first + r < rows * width; ++r) {
                if (first + r >= head * width) place[r] = lane[r];
                if (first + r >= j * width) column[first + r] = place[r];
            }
        }
    }
    return 0;
}

/* Factor n <= potrf_tile_columns columns of m rows by tile steps, all operands in place. */
template <typename value_t>
int64_t factor_tiles(int64_t m, int64_t n, value_t *a, int64_t lda)
{
    using real_t = real_of<value_t>;
    constexpr int64_t width = parts<value_t>;
    constexpr int64_t c = tile_triangle<value_t>::c;
    constexpr int64_t strip = tile_rows<real_t> / width;
    tile_triangle<value_t> p;
    for (int64_t s = 0; s < n; s += c) {
        const int64_t columns = n - s < c ? n - s : c;
        for (int64_t i = s; i < m; i += strip) {
            const int64_t reals = (m - i < strip ? m - i : strip) * width;
            const int64_t vectors = (reals + lanes<real_t> - 1) / lanes<real_t>;
            const int64_t tail = reals - (vectors - 1) * lanes<real_t>;
            int64_t failed = 0;
            if (vectors == 1)
                failed = factor_strip<value_t, 1>(i, s, columns, tail, i == s, a, lda, &p);
            else if (vectors == 2)
                failed = factor_strip<value_t, 2>(i, s, columns, tail, i == s, a, lda, &p);
            else
                failed = factor_strip<value_t, static_cast<int>(tile_vectors)>(i, s, columns, tail, i == s, a, lda, &p);
            if (failed != 0) return s + failed;
        }
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
    if (n <= potrf_tile_columns) return factor_tiles(n, n, a, lda);
    constexpr int64_t block = triangle_block<value_t>;
    const int64_t unit = n > 2 * block ? block : tile_columns;
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
    /* Rows that are worth packing for the strip-wise solve start here; up to it the whole panel goes by tile steps in place. */
    constexpr int64_t short_rows = 96;
    if (n <= potrf_columns && m <= short_rows) return factor_columns(m, n, a, lda);
    if (n <= potrf_tile_columns && m <= short_rows) return factor_tiles(m, n, a, lda);
    const int64_t failed = factor_square(n, a, lda, work);
    if (failed == 0 && m > n) solve_rows(m - n, n, a, lda, a + n, lda, work);
    return failed;
}

} // namespace
} // namespace WKL_FAMILY
