/* Sweeps with several vectors that are interleaved by rows: a register tile of a few rows of the panel (or columns, in the backward step)
   by a few vector registers of right-hand sides. Every entry of the panel is broadcast, the rows of the vectors are loaded and stored
   whole, so that scattered rows cost nothing extra and supernodes of one column run at the speed of the stores.

   A complex entry is broadcast as two reals: with e = sum of re * x and o = sum of im * x the product is e + swap(o) * (-1, 1), and with
   the signs exchanged that of the conjugated entry. */
#pragma once

#include "dense/family/trsm.h"

namespace WKL_FAMILY
{
namespace
{

/* Largest tile: three entries by four registers for real values, for complex ones by two, as each has two sums. */
constexpr int interleaved_entries = 3;
template <typename value_t>
constexpr int interleaved_vectors = is_complex<value_t> ? 2 : 4;

/* Rows and columns of a panel that are worked on together: rows of the vectors stay in the first-level cache for all columns, and the
   columns' own rows while a block of rows passes. */
constexpr int64_t interleaved_row_block = 48;
constexpr int64_t interleaved_column_block = 32;

/* Where rows of the vectors are: row i (from 0) of a panel is row list[i] of `base`, or row i when there is no list. Strides in reals. */
template <typename real_t>
struct row_view {
    real_t *base;
    const int64_t *list;
    int64_t stride;
};
template <bool listed, typename real_t>
DENSE_INLINE real_t *row_of(const row_view<real_t> &view, int64_t i)
{
    return view.base + (listed ? view.list[i] : i) * view.stride;
}

/* Complex values: sums of one tile, see above. */
template <typename value_t, int entries, int vectors>
struct interleaved_tile {
    using real_t = real_of<value_t>;
    vec<real_t> e[entries][vectors];
    vec<real_t> o[entries][vectors];
};

template <typename value_t, int entries, int vectors>
DENSE_INLINE void clear_tile(interleaved_tile<value_t, entries, vectors> *tile)
{
    const vec<real_of<value_t>> zero = broadcast(real_of<value_t>{0});
    DENSE_UNROLL
    for (int i = 0; i < entries; ++i) {
        DENSE_UNROLL
        for (int v = 0; v < vectors; ++v) tile->e[i][v] = tile->o[i][v] = zero;
    }
}

/* tile(i, .) += entry i * x; the entries stand `step` reals apart. */
template <typename value_t, int entries, int vectors>
DENSE_INLINE void add_to_tile(const real_of<value_t> *entry, int64_t step, const real_of<value_t> *x,
                              interleaved_tile<value_t, entries, vectors> *tile)
{
    using real_t = real_of<value_t>;
    vec<real_t> row[vectors];
    DENSE_UNROLL
    for (int v = 0; v < vectors; ++v) row[v] = load(x + v * lanes<real_t>);
    DENSE_UNROLL
    for (int i = 0; i < entries; ++i) {
        const vec<real_t> re = broadcast(entry[i * step]), im = broadcast(entry[i * step + 1]);
        DENSE_UNROLL
        for (int v = 0; v < vectors; ++v) {
            tile->e[i][v] = madd(row[v], re, tile->e[i][v]);
            tile->o[i][v] = madd(row[v], im, tile->o[i][v]);
        }
    }
}

/* y -= row i of the tile. */
template <typename value_t, int entries, int vectors>
DENSE_INLINE void subtract_tile_row(const interleaved_tile<value_t, entries, vectors> &tile, int i, vec<real_of<value_t>> sign,
                                    real_of<value_t> *y)
{
    using real_t = real_of<value_t>;
    DENSE_UNROLL
    for (int v = 0; v < vectors; ++v) {
        const vec<real_t> sum = madd(swap_pairs(tile.o[i][v]), sign, tile.e[i][v]);
        store(y + v * lanes<real_t>, load(y + v * lanes<real_t>) - sum);
    }
}

/* Real values: the tile is the rows themselves, entry i of it that at row[i]. One register of x at a time, so that with the entries all fit
   in sixteen registers. */
template <typename real_t, int entries, int vectors>
DENSE_INLINE void load_tile(real_t *const *row, vec<real_t> (&tile)[entries][vectors])
{
    DENSE_UNROLL
    for (int i = 0; i < entries; ++i) {
        DENSE_UNROLL
        for (int v = 0; v < vectors; ++v) tile[i][v] = load(row[i] + v * lanes<real_t>);
    }
}
template <typename real_t, int entries, int vectors>
DENSE_INLINE void store_tile(const vec<real_t> (&tile)[entries][vectors], real_t *const *row)
{
    DENSE_UNROLL
    for (int i = 0; i < entries; ++i) {
        DENSE_UNROLL
        for (int v = 0; v < vectors; ++v) store(row[i] + v * lanes<real_t>, tile[i][v]);
    }
}
template <typename real_t, int entries, int vectors>
DENSE_INLINE void subtract_from_tile(const real_t *entry, int64_t step, const real_t *x, vec<real_t> (&tile)[entries][vectors])
{
    vec<real_t> factor[entries];
    DENSE_UNROLL
    for (int i = 0; i < entries; ++i) factor[i] = broadcast(entry[i * step]);
    DENSE_UNROLL
    for (int v = 0; v < vectors; ++v) {
        const vec<real_t> row = load(x + v * lanes<real_t>);
        DENSE_UNROLL
        for (int i = 0; i < entries; ++i) tile[i][v] = nmadd(row, factor[i], tile[i][v]);
    }
}

/* Operands of an update: a panel (entry (i, j) at panel[(i + j * ld) * parts]), and the registers a row of the vectors takes. */
template <typename value_t>
struct interleaved_panel {
    const real_of<value_t> *panel;
    int64_t ld;
    int64_t reals; /* of a row of the vectors, a multiple of lanes */
    int64_t stride;
    vec<real_of<value_t>> sign;
};

/* rows i .. i + entries - 1 of y -= panel rows * x, on `vectors` registers from real `at` of a row on. */
template <typename value_t, bool listed, int entries, int vectors>
DENSE_INLINE void rows_tile(const interleaved_panel<value_t> &p, int64_t i, int64_t depth, const real_of<value_t> *x,
                            const row_view<real_of<value_t>> &y, int64_t at)
{
    constexpr int64_t width = parts<value_t>;
    const real_of<value_t> *entry = p.panel + i * width;
    x += at;
    if constexpr (is_complex<value_t>) {
        interleaved_tile<value_t, entries, vectors> tile;
        clear_tile(&tile);
        for (int64_t j = 0; j < depth; ++j, entry += p.ld * width, x += p.stride) add_to_tile(entry, width, x, &tile);
        DENSE_UNROLL
        for (int r = 0; r < entries; ++r) subtract_tile_row(tile, r, p.sign, row_of<listed>(y, i + r) + at);
    } else {
        vec<value_t> tile[entries][vectors];
        value_t *row[entries];
        for (int r = 0; r < entries; ++r) row[r] = row_of<listed>(y, i + r) + at;
        load_tile(row, tile);
        for (int64_t j = 0; j < depth; ++j, entry += p.ld, x += p.stride) subtract_from_tile(entry, 1, x, tile);
        store_tile(tile, row);
    }
}

/* rows j .. j + entries - 1 of x -= (panel columns)' * y over rows first .. last - 1. */
template <typename value_t, bool listed, int entries, int vectors>
DENSE_INLINE void columns_tile(const interleaved_panel<value_t> &p, int64_t j, int64_t first, int64_t last,
                               const row_view<real_of<value_t>> &y, real_of<value_t> *x, int64_t at)
{
    constexpr int64_t width = parts<value_t>;
    const real_of<value_t> *entry = p.panel + (first + j * p.ld) * width;
    x += j * p.stride + at;
    if constexpr (is_complex<value_t>) {
        interleaved_tile<value_t, entries, vectors> tile;
        clear_tile(&tile);
        for (int64_t i = first; i < last; ++i, entry += width) add_to_tile(entry, p.ld * width, row_of<listed>(y, i) + at, &tile);
        DENSE_UNROLL
        for (int r = 0; r < entries; ++r) subtract_tile_row(tile, r, p.sign, x + r * p.stride);
    } else {
        vec<value_t> tile[entries][vectors];
        value_t *row[entries];
        for (int r = 0; r < entries; ++r) row[r] = x + r * p.stride;
        load_tile(row, tile);
        for (int64_t i = first; i < last; ++i, ++entry) subtract_from_tile(entry, p.ld, row_of<listed>(y, i) + at, tile);
        store_tile(tile, row);
    }
}

template <int count>
struct register_count {
    static constexpr int value = count;
};

/* Run tile(at, vectors) over all registers of a row, at most so many at a time (up to 8). */
template <typename value_t, int most = interleaved_vectors<value_t>, typename tile_t>
DENSE_INLINE void over_registers(int64_t reals, const tile_t &tile)
{
    constexpr int64_t lane = lanes<real_of<value_t>>;
    int64_t at = 0;
    for (; at + most * lane <= reals; at += most * lane) tile(at, register_count<most>{});
    if constexpr (most > 4) {
        if (at + 4 * lane <= reals) {
            tile(at, register_count<4>{});
            at += 4 * lane;
        }
    }
    if (at + 2 * lane <= reals) {
        tile(at, register_count<2>{});
        at += 2 * lane;
    }
    if (at < reals) tile(at, register_count<1>{});
}

/* Ask for the lines of two columns of a block that comes next. */
template <typename real_t>
DENSE_INLINE void prefetch_columns(const real_t *from, int64_t reals, int64_t column)
{
    constexpr int64_t line = 64 / static_cast<int64_t>(sizeof(real_t));
    for (int64_t i = 0; i < reals; i += line) {
        __builtin_prefetch(from + i);
        __builtin_prefetch(from + column + i);
    }
}

/* y -= panel * x; panel q by depth. */
template <typename value_t, bool listed>
void update_rows(const interleaved_panel<value_t> &whole, int64_t q, int64_t depth, const real_of<value_t> *x,
                 const row_view<real_of<value_t>> &y)
{
    constexpr int64_t width = parts<value_t>;
    for (int64_t top = 0; top < q; top += interleaved_row_block) {
        const int64_t end = q - top < interleaved_row_block ? q : top + interleaved_row_block;
        for (int64_t left = 0; left < depth; left += interleaved_column_block) {
            const int64_t columns = depth - left < interleaved_column_block ? depth - left : interleaved_column_block;
            interleaved_panel<value_t> p = whole;
            p.panel += left * p.ld * width;
            const real_of<value_t> *const from = x + left * p.stride;
            const bool turns = left + columns == depth; /* the next block is the first of the rows below */
            const int64_t next_rows = !turns ? end - top : q - end < interleaved_row_block ? q - end : interleaved_row_block;
            const real_of<value_t> *next = turns ? whole.panel + end * width : p.panel + (top + columns * p.ld) * width;
            int64_t i = top;
            for (; i + interleaved_entries <= end; i += interleaved_entries) {
                prefetch_columns(next, next_rows * width, p.ld * width);
                next += 2 * p.ld * width;
                over_registers<value_t>(p.reals, [&](int64_t at, auto vectors) {
                    rows_tile<value_t, listed, interleaved_entries, vectors.value>(p, i, columns, from, y, at);
                });
            }
            for (; i < end; ++i)
                over_registers<value_t>(
                    p.reals, [&](int64_t at, auto vectors) { rows_tile<value_t, listed, 1, vectors.value>(p, i, columns, from, y, at); });
        }
    }
}

/* x -= panel' * y; panel q by columns. */
template <typename value_t, bool listed>
void update_columns(const interleaved_panel<value_t> &p, int64_t q, int64_t columns, const row_view<real_of<value_t>> &y,
                    real_of<value_t> *x)
{
    constexpr int64_t width = parts<value_t>;
    for (int64_t top = 0; top < q; top += interleaved_row_block) {
        const int64_t end = q - top < interleaved_row_block ? q : top + interleaved_row_block;
        int64_t j = 0;
        for (; j + interleaved_entries <= columns; j += interleaved_entries) {
            const real_of<value_t> *const next = p.panel + (top + (j + interleaved_entries) * p.ld) * width;
            if (j + 2 * interleaved_entries <= columns) {
                prefetch_columns(next, (end - top) * width, p.ld * width);
                prefetch_columns(next + 2 * p.ld * width, (end - top) * width, 0);
            }
            over_registers<value_t>(p.reals, [&](int64_t at, auto vectors) {
                columns_tile<value_t, listed, interleaved_entries, vectors.value>(p, j, top, end, y, x, at);
            });
        }
        for (; j < columns; ++j)
            over_registers<value_t>(
                p.reals, [&](int64_t at, auto vectors) { columns_tile<value_t, listed, 1, vectors.value>(p, j, top, end, y, x, at); });
    }
}

/* y -= f * x, or y *= f, for one row of the vectors; f as its reals. */
template <typename value_t, bool scale>
DENSE_INLINE void combine_rows(int64_t reals, const real_of<value_t> *f, const real_of<value_t> *x, real_of<value_t> *y)
{
    using real_t = real_of<value_t>;
    const vec<real_t> even = broadcast(scale ? f[0] : -f[0]);
    vec<real_t> odd = even;
    if constexpr (is_complex<value_t>) odd = scale ? broadcast_pair<real_t>(-f[1], f[1]) : broadcast_pair<real_t>(f[1], -f[1]);
    for (int64_t k = 0; k < reals; k += lanes<real_t>) {
        const vec<real_t> v = load(x + k);
        vec<real_t> sum = scale ? v * even : madd(v, even, load(y + k));
        if constexpr (is_complex<value_t>) sum = madd(swap_pairs(v), odd, sum);
        store(y + k, sum);
    }
}

/* How a triangle is walked. Lower forward and upper backward find unknowns row by row; the transposed ones column by column. */
struct triangle_walk {
    bool by_rows;
    bool ascending;
    bool unit;
    bool conjugate;
};

/* The unknowns first .. first + count - 1 of the triangle t, which do not depend on others any more. */
template <typename value_t>
void solve_interleaved_block(const triangle_walk &walk, const interleaved_panel<value_t> &t, int64_t first, int64_t count,
                             real_of<value_t> *x)
{
    using real_t = real_of<value_t>;
    constexpr int64_t width = parts<value_t>;
    for (int64_t done = 0; done < count; done += interleaved_entries) {
        const int64_t few = count - done < interleaved_entries ? count - done : interleaved_entries;
        const int64_t start = walk.ascending ? first + done : first + count - done - few;
        const int64_t known = walk.ascending ? first : start + few;
        interleaved_panel<value_t> p = t;
        if (walk.by_rows) {
            p.panel += (start + known * t.ld) * width;
            update_rows<value_t, false>(p, few, done, x + known * t.stride, {x + start * t.stride, nullptr, t.stride});
        } else {
            p.panel += (known + start * t.ld) * width;
            update_columns<value_t, false>(p, done, few, {x + known * t.stride, nullptr, t.stride}, x + start * t.stride);
        }
        for (int64_t k = 0; k < few; ++k) {
            const int64_t j = walk.ascending ? start + k : start + few - 1 - k;
            real_t *const found = x + j * t.stride;
            real_t f[2];
            if (!walk.unit) {
                reciprocal<value_t>(t.panel + (j + j * t.ld) * width, walk.conjugate, f);
                combine_rows<value_t, true>(t.reals, f, found, found);
            }
            for (int64_t r = k + 1; r < few; ++r) {
                const int64_t i = walk.ascending ? start + r : start + few - 1 - r;
                const real_t *const entry = t.panel + (walk.by_rows ? i + j * t.ld : j + i * t.ld) * width;
                f[0] = entry[0];
                if constexpr (is_complex<value_t>) f[1] = walk.conjugate ? -entry[1] : entry[1];
                combine_rows<value_t, false>(t.reals, f, found, x + i * t.stride);
            }
        }
    }
}

/* All unknowns of a triangle, block by block, so that the panel of each block passes once. */
template <typename value_t>
void solve_interleaved(const triangle_walk &walk, const interleaved_panel<value_t> &t, int64_t n, real_of<value_t> *x)
{
    constexpr int64_t width = parts<value_t>;
    constexpr int64_t block = 2 * interleaved_column_block;
    for (int64_t done = 0; done < n; done += block) {
        const int64_t count = n - done < block ? n - done : block;
        const int64_t start = walk.ascending ? done : n - done - count;
        interleaved_panel<value_t> p = t;
        if (!walk.by_rows && done > 0) { /* the unknowns found so far */
            const int64_t known = walk.ascending ? 0 : start + count;
            p.panel += (known + start * t.ld) * width;
            update_columns<value_t, false>(p, done, count, {x + known * t.stride, nullptr, t.stride}, x + start * t.stride);
        }
        solve_interleaved_block(walk, t, start, count, x);
        const int64_t rest = n - done - count;
        if (walk.by_rows && rest > 0) { /* those still to be found */
            const int64_t open = walk.ascending ? start + count : 0;
            p.panel = t.panel + (open + start * t.ld) * width;
            update_rows<value_t, false>(p, rest, count, x + start * t.stride, {x + open * t.stride, nullptr, t.stride});
        }
    }
}

template <typename value_t>
DENSE_INLINE interleaved_panel<value_t> panel_view(const interleaved_block<value_t> &b, const value_t *panel, int64_t ld, bool conjugate)
{
    using real_t = real_of<value_t>;
    const real_t s = conjugate ? 1 : -1;
    return {as_real(panel), ld, b.width * parts<value_t>, b.stride * parts<value_t>, broadcast_pair<real_t>(s, -s)};
}

/* Supernodes of one column, real values: the own row stays in registers while the rows below pass, and no tile is set up for them. */
constexpr int column_vectors = 8;

template <typename real_t, int vectors>
DENSE_INLINE void column_forward(const interleaved_block<real_t> &b, real_t factor, int64_t at)
{
    vec<real_t> own[vectors];
    DENSE_UNROLL
    for (int v = 0; v < vectors; ++v) {
        own[v] = load(b.own + at + v * lanes<real_t>) * broadcast(factor);
        store(b.own + at + v * lanes<real_t>, own[v]);
    }
    const auto update = [&](int64_t from, int64_t end, real_t *base) {
        for (int64_t i = from; i < end; ++i) {
            real_t *const y = base + b.row[i] * b.stride + at;
            const vec<real_t> entry = broadcast(b.panel[i]);
            DENSE_UNROLL
            for (int v = 0; v < vectors; ++v) store(y + v * lanes<real_t>, nmadd(own[v], entry, load(y + v * lanes<real_t>)));
        }
    };
    update(0, b.near, b.vectors);
    update(b.near, b.below, b.beyond);
}

/* The first row below is the one found last. */
template <typename real_t, int vectors>
DENSE_INLINE void column_backward(const interleaved_block<real_t> &b, real_t factor, int64_t at)
{
    vec<real_t> own[vectors];
    DENSE_UNROLL
    for (int v = 0; v < vectors; ++v) own[v] = load(b.own + at + v * lanes<real_t>);
    for (int64_t i = b.below - 1; i >= 0; --i) {
        const real_t *const y = b.vectors + b.row[i] * b.stride + at;
        const vec<real_t> entry = broadcast(b.panel[i]);
        DENSE_UNROLL
        for (int v = 0; v < vectors; ++v) own[v] = nmadd(load(y + v * lanes<real_t>), entry, own[v]);
    }
    DENSE_UNROLL
    for (int v = 0; v < vectors; ++v) store(b.own + at + v * lanes<real_t>, own[v] * broadcast(factor));
}

template <bool forward, typename real_t>
void interleaved_column(const interleaved_block<real_t> &b)
{
    const real_t factor = b.triangle == block_triangle::lower_unit ? real_t{1} : real_t{1} / b.diagonal[0];
    over_registers<real_t, column_vectors>(b.width, [&](int64_t at, auto vectors) {
        if constexpr (forward)
            column_forward<real_t, vectors.value>(b, factor, at);
        else
            column_backward<real_t, vectors.value>(b, factor, at);
    });
}

template <typename value_t>
void interleaved_forward(const interleaved_block<value_t> *b)
{
    if constexpr (!is_complex<value_t>) {
        if (b->columns == 1) return interleaved_column<true>(*b);
    }
    const bool upper = b->triangle == block_triangle::upper;
    const interleaved_panel<value_t> t = panel_view(*b, b->diagonal, b->diagonal_ld, false);
    solve_interleaved<value_t>({!upper, true, b->triangle == block_triangle::lower_unit, false}, t, b->columns, as_real(b->own));
    interleaved_panel<value_t> p = panel_view(*b, b->panel, b->panel_ld, false);
    update_rows<value_t, true>(p, b->near, b->columns, as_real(b->own), {as_real(b->vectors), b->row, p.stride});
    if (b->near == b->below) return;
    p.panel += b->near * parts<value_t>;
    update_rows<value_t, true>(p, b->below - b->near, b->columns, as_real(b->own), {as_real(b->beyond), b->row + b->near, p.stride});
}

template <typename value_t>
void interleaved_backward(const interleaved_block<value_t> *b)
{
    if constexpr (!is_complex<value_t>) {
        if (b->columns == 1) return interleaved_column<false>(*b);
    }
    const bool upper = b->triangle == block_triangle::upper, conjugate = b->kind == mirror::hermitian;
    const interleaved_panel<value_t> p = panel_view(*b, b->panel, b->panel_ld, conjugate);
    update_columns<value_t, true>(p, b->below, b->columns, {as_real(b->vectors), b->row, p.stride}, as_real(b->own));
    const interleaved_panel<value_t> t = panel_view(*b, b->diagonal, b->diagonal_ld, conjugate);
    solve_interleaved<value_t>({upper, false, b->triangle == block_triangle::lower_unit, conjugate}, t, b->columns, as_real(b->own));
}

} // namespace
} // namespace WKL_FAMILY
