/* Triangular solves with many right-hand sides. All sides, triangles and transpositions become one problem: with vectors i (rows of b for
   side R, columns for side L) and unknowns j in the order in which they are found,
       x(i, j) = (b(i, j) - sum over l < j of x(i, l) * t(j, l)) / t(j, j),   t a view of op(a), possibly counted backwards.
   A triangle of triangle_block unknowns is packed once; then each strip of vectors is loaded, solved by the register tile (product with the
   unknowns already found, then the small triangle on the diagonal) and stored. Blocks before it are subtracted by the product. */
#pragma once

#include "dense/family/gemm.h"

namespace WKL_FAMILY
{
namespace
{

/* Unknowns per packed triangle: 64 KB, on the stack. The panel of a supernode of 128 columns goes in one block; blocks of 64, which the
   first level cache held, were 8 to 20 % slower. */
template <typename value_t>
constexpr int64_t triangle_block = 128 / parts<value_t>;

/* Packed triangle of n unknowns in tiles of c = tile_columns / parts unknowns. Tile s holds, for each l < s * c, the reals t(s*c .., l);
   `corner` its c by c square, t(j, l) at [(s * c + j) * c + l], strictly below the diagonal; `inverse` the reciprocals (1 for a unit
   diagonal). Rows that complete the last tile are 0. */
template <typename value_t>
struct packed_triangle {
    static constexpr int64_t columns = tile_columns / parts<value_t>;
    alignas(64) real_of<value_t> panel[triangle_block<value_t> * triangle_block<value_t> * parts<value_t> / 2];
    real_of<value_t> corner[triangle_block<value_t> * tile_columns];
    real_of<value_t> inverse[triangle_block<value_t> * parts<value_t>];
    int64_t n;
};

/* The triangle as a view. */
template <typename value_t>
struct triangle_view {
    const value_t *t;
    int64_t j_step;
    int64_t l_step;
    bool conjugate;
    bool unit;
};

/* out = 1 / x, conjugated on demand; the complex form divides by the larger part first (Smith), so that it neither over- nor underflows
 * early. */
template <typename value_t>
DENSE_INLINE void reciprocal(const real_of<value_t> *x, bool conjugate, real_of<value_t> *out)
{
    using real_t = real_of<value_t>;
    if constexpr (!is_complex<value_t>) {
        (void)conjugate;
        out[0] = real_t{1} / x[0];
    } else {
        const real_t re = x[0];
        const real_t im = conjugate ? -x[1] : x[1];
        if (__builtin_fabs(static_cast<double>(re)) >= __builtin_fabs(static_cast<double>(im))) {
            const real_t r = im / re;
            const real_t d = real_t{1} / (re + im * r);
            out[0] = d;
            out[1] = -r * d;
        } else {
            const real_t r = re / im;
            const real_t d = real_t{1} / (re * r + im);
            out[0] = r * d;
            out[1] = -d;
        }
    }
}

template <typename value_t>
DENSE_INLINE void copy_value(const value_t *from, bool conjugate, real_of<value_t> *to)
{
    const real_of<value_t> *x = as_real(from);
    to[0] = x[0];
    if constexpr (is_complex<value_t>)
        to[1] = conjugate ? -x[1] : x[1];
    else
        (void)conjugate;
}

template <typename value_t>
void pack_triangle(const triangle_view<value_t> &view, int64_t n, packed_triangle<value_t> *p)
{
    using real_t = real_of<value_t>;
    constexpr int64_t width = parts<value_t>;
    constexpr int64_t c = packed_triangle<value_t>::columns;
    real_t *out = p->panel;
    p->n = n;
    for (int64_t s = 0; s < n; s += c) {
        const int64_t count = n - s < c ? n - s : c;
        for (int64_t j = 0; j < c * c * width; ++j) p->corner[s * c * width + j] = 0;
        for (int64_t j = 0; j < c * width; ++j) p->inverse[s * width + j] = 0;
        for (int64_t j = 0; j < count; ++j) {
            const value_t *row = view.t + (s + j) * view.j_step;
            for (int64_t l = 0; l < s; ++l) copy_value(row + l * view.l_step, view.conjugate, out + l * tile_columns + j * width);
            for (int64_t l = 0; l < j; ++l) copy_value(row + (s + l) * view.l_step, view.conjugate, p->corner + ((s + j) * c + l) * width);
            if (view.unit)
                p->inverse[(s + j) * width] = 1;
            else
                reciprocal<value_t>(as_real(row + (s + j) * view.l_step), view.conjugate, p->inverse + (s + j) * width);
        }
        for (int64_t j = count * width; j < tile_columns; ++j) {
            for (int64_t l = 0; l < s; ++l) out[l * tile_columns + j] = 0;
        }
        out += s * tile_columns;
    }
}

/* x * f for a vector of values and one value. */
template <typename value_t>
DENSE_INLINE vec<real_of<value_t>> times_value(vec<real_of<value_t>> x, const real_of<value_t> *f)
{
    using real_t = real_of<value_t>;
    if constexpr (is_complex<value_t>)
        return madd(swap_pairs(x), broadcast_pair<real_t>(-f[1], f[1]), x * broadcast(f[0]));
    else
        return x * broadcast(f[0]);
}

/* Unknowns s.. of one strip of mv vectors: strip holds tile_rows reals per unknown. */
template <typename value_t, int mv>
DENSE_INLINE void solve_tile(const packed_triangle<value_t> &p, const real_of<value_t> *panel, int64_t s, real_of<value_t> *strip)
{
    using real_t = real_of<value_t>;
    constexpr int c = static_cast<int>(packed_triangle<value_t>::columns);
    constexpr int64_t width = parts<value_t>;
    const tile_operands<real_t> operands = {strip, tile_rows<real_t>, panel, tile_columns, s};
    vec<real_t> sum[tile_columns][mv];
    tile_product<real_t, mv, static_cast<int>(tile_columns), false>(operands, 0, sum);
    vec<real_t> x[c][mv];
    DENSE_UNROLL
    for (int j = 0; j < c; ++j) {
        real_t *column = strip + (s + j) * tile_rows<real_t>;
        DENSE_UNROLL
        for (int v = 0; v < mv; ++v) {
            vec<real_t> y = sum[j * width][v];
            if constexpr (is_complex<value_t>) y = y + swap_pairs(sum[2 * j + 1][v]) * broadcast_pair<real_t>(-1, 1);
            y = load(column + v * lanes<real_t>) - y;
            DENSE_UNROLL
            for (int l = 0; l < j; ++l) y = y - times_value<value_t>(x[l][v], p.corner + ((s + j) * c + l) * width);
            y = times_value<value_t>(y, p.inverse + (s + j) * width);
            x[j][v] = y;
            store(column + v * lanes<real_t>, y);
        }
    }
}

template <typename value_t>
void solve_strip(const packed_triangle<value_t> &p, int64_t vectors, real_of<value_t> *strip)
{
    constexpr int64_t c = packed_triangle<value_t>::columns;
    const real_of<value_t> *panel = p.panel;
    for (int64_t s = 0; s < p.n; s += c) {
        if (vectors == 1)
            solve_tile<value_t, 1>(p, panel, s, strip);
        else if (vectors == 2 || tile_vectors == 2)
            solve_tile<value_t, 2>(p, panel, s, strip);
        else
            solve_tile<value_t, static_cast<int>(tile_vectors)>(p, panel, s, strip);
        panel += s * tile_columns;
    }
}

/* One packed block of n unknowns for m vectors; x(i, j) at x[i * i_step + j * j_step]. */
template <typename value_t>
__attribute__((noinline)) void solve_block(const triangle_view<value_t> &view, int64_t m, int64_t n, value_t *x, int64_t i_step,
                                           int64_t j_step)
{
    using real_t = real_of<value_t>;
    constexpr int64_t width = parts<value_t>;
    constexpr int64_t strip_values = tile_rows<real_t> / width;
    packed_triangle<value_t> p;
    alignas(64) real_t strip[triangle_block<value_t> * tile_rows<real_t>];
    pack_triangle(view, n, &p);
    const int64_t padded =
        (n + packed_triangle<value_t>::columns - 1) / packed_triangle<value_t>::columns * packed_triangle<value_t>::columns;
    for (int64_t j = n * tile_rows<real_t>; j < padded * tile_rows<real_t>; ++j) strip[j] = 0;
    for (int64_t i = 0; i < m; i += strip_values) {
        const int64_t count = m - i < strip_values ? m - i : strip_values;
        const int64_t vectors = (count * width + lanes<real_t> - 1) / lanes<real_t>;
        const int64_t tail = count * width - (vectors - 1) * lanes<real_t>;
        value_t *first = x + i * i_step;
        if (i_step == 1) {
            for (int64_t j = 0; j < n; ++j) {
                const real_t *from = as_real(first + j * j_step);
                real_t *to = strip + j * tile_rows<real_t>;
                /* of the next strip */
                __builtin_prefetch(from + tile_rows<real_t> + tile_rows<real_t> / 2, 1);
                __builtin_prefetch(from + 2 * tile_rows<real_t> - 1, 1);
                for (int64_t v = 0; v < vectors - 1; ++v) store(to + v * lanes<real_t>, load(from + v * lanes<real_t>));
                store(to + (vectors - 1) * lanes<real_t>, load_part(from + (vectors - 1) * lanes<real_t>, tail));
            }
        } else {
            for (int64_t r = 0; r < strip_values; ++r) {
                for (int64_t j = 0; j < n; ++j) {
                    for (int64_t q = 0; q < width; ++q) {
                        real_t *to = strip + j * tile_rows<real_t> + r * width + q;
                        *to = r < count ? as_real(first + r * i_step + j * j_step)[q] : 0;
                    }
                }
            }
        }
        solve_strip(p, vectors, strip);
        if (i_step == 1) {
            for (int64_t j = 0; j < n; ++j) {
                const real_t *from = strip + j * tile_rows<real_t>;
                real_t *to = as_real(first + j * j_step);
                for (int64_t v = 0; v < vectors - 1; ++v) store(to + v * lanes<real_t>, load(from + v * lanes<real_t>));
                store_part(to + (vectors - 1) * lanes<real_t>, load(from + (vectors - 1) * lanes<real_t>), tail);
            }
        } else {
            for (int64_t r = 0; r < count; ++r) {
                for (int64_t j = 0; j < n; ++j) {
                    for (int64_t q = 0; q < width; ++q) {
                        as_real(first + r * i_step + j * j_step)[q] = strip[j * tile_rows<real_t> + r * width + q];
                    }
                }
            }
        }
    }
}

struct triangle_case {
    bool left;
    bool lower;
    char transa; /* upper case */
    bool unit;
};

template <typename value_t>
void solve_triangle(const triangle_case &which, int64_t m, int64_t n, const value_t *a, int64_t lda, value_t *b, int64_t ldb, void *work)
{
    if (m < 1 || n < 1) return;
    const bool left = which.left;
    const int64_t unknowns = left ? m : n;
    const int64_t vectors = left ? n : m;
    /* t(j, l) = op(a)(j, l) for side L and op(a)(l, j) for side R; found in ascending order when its lower part is stored */
    const bool rows_first = left != (which.transa != 'N'); /* j counts rows of a */
    const bool ascending = which.lower == rows_first;
    triangle_view<value_t> view = {a, rows_first ? 1 : lda, rows_first ? lda : 1, which.transa == 'C', which.unit};
    const int64_t i_step = left ? ldb : 1;
    int64_t j_step = left ? 1 : ldb;
    value_t *x = b;
    if (!ascending) {
        view.t += (unknowns - 1) * (view.j_step + view.l_step);
        view.j_step = -view.j_step;
        view.l_step = -view.l_step;
        x += (unknowns - 1) * j_step;
        j_step = -j_step;
    }
    for (int64_t s = 0; s < unknowns; s += triangle_block<value_t>) {
        const int64_t count = unknowns - s < triangle_block<value_t> ? unknowns - s : triangle_block<value_t>;
        const factor_view<value_t> found = {x, i_step, j_step};
        if (s > 0 && left) {
            /* the rows of the result are unknowns: taken in the order of memory */
            const int64_t first = ascending ? s : s + count - 1;
            const factor_view<value_t> rows = {view.t + first * view.j_step, ascending ? view.j_step : -view.j_step, view.l_step};
            subtract_product(count, vectors, {rows, found, s}, view.conjugate, false, x + first * j_step, ldb, work);
        } else if (s > 0) {
            const factor_view<value_t> columns = {view.t + s * view.j_step, view.j_step, view.l_step};
            subtract_product(vectors, count, {found, columns, s}, false, view.conjugate, x + s * j_step, j_step, work);
        }
        triangle_view<value_t> block = view;
        block.t += s * (view.j_step + view.l_step);
        solve_block(block, vectors, count, x + s * j_step, i_step, j_step);
    }
}

template <typename value_t>
void trsm(char side, char uplo, char transa, char diag, int64_t m, int64_t n, value_t alpha, const value_t *a, int64_t lda, value_t *b,
          int64_t ldb, void *work)
{
    if (m < 1 || n < 1) return;
    if (!is_one(alpha)) {
        for (int64_t j = 0; j < n; ++j) scale_values(m, alpha, b + j * ldb);
        if (is_zero(alpha)) return;
    }
    const triangle_case which = {upper_case(side) == 'L', upper_case(uplo) == 'L', upper_case(transa), upper_case(diag) == 'U'};
    solve_triangle(which, m, n, a, lda, b, ldb, work);
}

} // namespace
} // namespace WKL_FAMILY
