/* Blocked products: c += alpha * sum of op(a) * op(b)' over several operand pairs with the same rows and columns, contiguous or scattered,
   whole or lower.

   The depths of all pairs form one long depth, cut at multiples of depth_block. For each cut the right operand is laid out in tiles
   (depth by tile_columns), then one block after the other of a few strips of rows (depth by tile_rows). The strips of a block meet a group
   of column tiles, both in the second level cache, a strip in the first; then the next group. An operand that already has its tile
   direction contiguous and a small depth is used where it lies. */
#pragma once

#include "dense/family/tile.h"

namespace WKL_FAMILY
{
namespace
{

/* One factor of a product as a view: entry (i, l), i row (or column) of the result, l depth. conjugate: for the complex types. */
template <typename value_t>
struct factor_view {
    const value_t *x;
    int64_t i_step;
    int64_t l_step;
};

template <typename value_t>
struct product_pair {
    factor_view<value_t> a;
    factor_view<value_t> b;
    int64_t depth;
};

/* Depth over which a tile stays in registers; the unit of rounding order, so it must not depend on sizes or workspace. A strip of
   depth_block is 24 KB at most. */
constexpr int64_t depth_block = 256;

/* A buffer for packed operands, in reals. */
template <typename real_t>
struct pack_buffer {
    real_t *a;
    int64_t a_strips; /* strips of depth_block that fit into a */
    real_t *b;
    int64_t b_tiles; /* column tiles of depth_block that fit into b */
};

template <typename real_t>
constexpr int64_t strip_reals = tile_rows<real_t> *depth_block;
template <typename real_t>
constexpr int64_t tile_reals = tile_columns *depth_block;

/* Strips of a block: their rows are laid out together, since each depth lies on a page of its own, and asked for together, so that lines
   are taken whole. */
constexpr int64_t block_strips = 4;

/* Column tiles that are laid out at once: the 512 columns of a wide target, for which the rows are then laid out once. They come from the
   third level cache. */
constexpr int64_t work_tiles = 128;
/* Those that the strips of a block meet in turn: 128 KB, which with a block (96 KB) leaves room in a second level cache of 512 KB, even
   when another thread of the core takes half of it. */
constexpr int64_t group_tiles = 16;

template <typename real_t>
DENSE_INLINE pack_buffer<real_t> split_work(void *work)
{
    real_t *base = static_cast<real_t *>(work);
    constexpr int64_t total = kernel_work_bytes / static_cast<int64_t>(sizeof(real_t));
    static_assert(block_strips * strip_reals<real_t> + work_tiles * tile_reals<real_t> <= total);
    return {base, block_strips, base + block_strips * strip_reals<real_t>, work_tiles};
}

/* Lay out `count` values from row i on, depths l..l+depth-1, with `capacity` reals per depth; the rest of each depth is 0. */
template <typename value_t>
void pack_rows(const factor_view<value_t> &f, int64_t i, int64_t count, int64_t l, int64_t depth, int64_t capacity, real_of<value_t> *out)
{
    using real_t = real_of<value_t>;
    constexpr int64_t width = parts<value_t>;
    const int64_t reals = count * width;
    const value_t *source = f.x + i * f.i_step + l * f.l_step;
    if (f.i_step == 1) {
        for (int64_t d = 0; d < depth; ++d) {
            const real_t *x = as_real(source + d * f.l_step);
            for (int64_t r = 0; r < reals; ++r) out[r] = x[r];
            for (int64_t r = reals; r < capacity; ++r) out[r] = 0;
            out += capacity;
        }
    } else {
        for (int64_t r = 0; r < count; ++r) {
            const value_t *x = source + r * f.i_step;
            for (int64_t d = 0; d < depth; ++d) {
                const real_t *entry = as_real(x + d * f.l_step);
                for (int64_t p = 0; p < width; ++p) out[d * capacity + r * width + p] = entry[p];
            }
        }
        for (int64_t r = reals; r < capacity; ++r) {
            for (int64_t d = 0; d < depth; ++d) out[d * capacity + r] = 0;
        }
    }
}

/* Where the tiles of one side lie for one cut of the depth: packed (one block of `tile_step` reals each) or in place (tile_step 0). */
template <typename real_t>
struct side_tiles {
    const real_t *x;
    int64_t depth_step; /* reals between depths */
    int64_t tile_step;
};

/* Strip s of `rows` rows: all full but the last, and where that would hold a single vector, it shares with the one before: a tile of one
   vector waits for its own sums. */
template <typename value_t>
DENSE_INLINE void strip_bounds(int64_t rows, int64_t s, int64_t *first, int64_t *count)
{
    constexpr int64_t values = lanes<real_of<value_t>> / parts<value_t>;
    constexpr int64_t strip = tile_vectors * values;
    *first = s * strip;
    const int64_t rest = rows - *first;
    *count = rest < strip ? rest : strip;
    if constexpr (tile_vectors > 2) {
        if (rest > strip && rest <= strip + values) *count = strip - values;
        if (rest <= values && s > 0) {
            *first -= values;
            *count += values;
        }
    }
}

/* Rows of the left operand that are packed next, asked for bit by bit while tiles are computed: fetched all at once they would make the
   packing wait for memory. */
template <typename value_t>
struct rows_ahead {
    const product_pair<value_t> *pair;
    int64_t i, l;       /* first row; next depth, within the pair */
    int64_t reals;      /* of a depth */
    int64_t depth;      /* not yet asked for */
    int64_t depth_step; /* at a time */
};

template <typename value_t>
DENSE_INLINE void ask_ahead(rows_ahead<value_t> *next)
{
    using real_t = real_of<value_t>;
    constexpr int64_t line = 64 / static_cast<int64_t>(sizeof(real_t));
    for (int64_t d = next->depth < next->depth_step ? next->depth : next->depth_step; d > 0; --d) {
        while (next->l >= next->pair->depth) {
            next->l -= next->pair->depth;
            ++next->pair;
        }
        const real_t *x = as_real(next->pair->a.x + next->i + next->l * next->pair->a.l_step);
        for (int64_t r = 0; r < next->reals; r += line) __builtin_prefetch(x + r, 0, 2);
        ++next->l;
        --next->depth;
    }
}

/* One tile: strip `s` of rows i.. (its first row at strip_a) against `count` columns from j on. False when all of it lies above the
   diagonal of a lower result. */
template <typename value_t>
DENSE_INLINE bool run_tile(const tile_target<value_t> &t, tile_operands<real_of<value_t>> x, int64_t i, int64_t strip_count, int64_t j,
                           int64_t column_count)
{
    using real_t = real_of<value_t>;
    constexpr int64_t width = parts<value_t>;
    constexpr int64_t values = lanes<real_t> / width;
    int64_t shift = 0; /* vectors above the diagonal have nothing to do */
    const int64_t top = first_row_of(t, j);
    if (top > i) {
        shift = (top - i) / values * values;
        if (shift >= strip_count) return false;
    }
    const int64_t count = strip_count - shift;
    const int64_t vectors = (count + values - 1) / values;
    const int64_t tail = (count - (vectors - 1) * values) * width;
    x.a += shift * width;
    tiles<value_t>.body[tail != lanes<real_t>][vectors - 1][column_count - 1](t, x, i + shift, j, tail);
    return true;
}

/* The parts of depths l..l+depth-1 of the long depth: visit(pair, first depth in the pair, count, depths before). */
template <typename value_t, typename visit_t>
DENSE_INLINE void each_part(const product_pair<value_t> *pair, int64_t l, int64_t depth, const visit_t &visit)
{
    for (; l >= pair->depth; ++pair) l -= pair->depth;
    for (int64_t done = 0; done < depth; ++pair) {
        const int64_t part = depth - done < pair->depth - l ? depth - done : pair->depth - l;
        visit(*pair, l, part, done);
        done += part;
        l = 0;
    }
}

/* Full strips side by side, their rows contiguous in memory: each depth is visited once for all of them. */
template <typename value_t, int64_t count>
void pack_strips(const value_t *x, int64_t l_step, int64_t depth, real_of<value_t> *out)
{
    using real_t = real_of<value_t>;
    for (int64_t d = 0; d < depth; ++d, x += l_step, out += tile_rows<real_t>) {
        const real_t *from = as_real(x);
        DENSE_UNROLL
        for (int64_t s = 0; s < count; ++s) {
            DENSE_UNROLL
            for (int64_t v = 0; v < tile_rows<real_t>; v += lanes<real_t>)
                store(out + s * strip_reals<real_t> + v, load(from + s * tile_rows<real_t> + v));
        }
    }
}

/* Rows i..i+rows-1 of depths l..l+depth-1 in strips, strip_reals apart. */
template <typename value_t>
DENSE_INLINE void pack_block(const product_pair<value_t> *pair, int64_t l, int64_t depth, int64_t i, int64_t rows, real_of<value_t> *out)
{
    using real_t = real_of<value_t>;
    constexpr int64_t strip = tile_rows<real_t> / parts<value_t>;
    each_part(pair, l, depth, [&](const product_pair<value_t> &p, int64_t from, int64_t count, int64_t before) {
        const value_t *x = p.a.x + i + from * p.a.l_step;
        real_t *to = out + before * tile_rows<real_t>;
        if (p.a.i_step == 1 && rows == block_strips * strip) return pack_strips<value_t, block_strips>(x, p.a.l_step, count, to);
        for (int64_t s = 0; s * strip < rows; ++s, to += strip_reals<real_t>) {
            int64_t first = 0, strip_count = 0;
            strip_bounds<value_t>(rows, s, &first, &strip_count);
            if (p.a.i_step == 1 && strip_count == strip)
                pack_strips<value_t, 1>(x + first, p.a.l_step, count, to);
            else
                pack_rows(p.a, i + first, strip_count, from, count, tile_rows<real_t>, to);
        }
    });
}

/* Rows i..i+rows-1, in strips laid out at `a`, against columns j..j+columns-1 (first column of `b`) over `depth`. */
template <typename value_t>
DENSE_INLINE void run_packed(const tile_target<value_t> &t, const real_of<value_t> *a, const side_tiles<real_of<value_t>> &b, int64_t depth,
                             int64_t i, int64_t rows, int64_t j, int64_t columns, rows_ahead<value_t> *next)
{
    using real_t = real_of<value_t>;
    constexpr int64_t strip = tile_rows<real_t> / parts<value_t>;
    constexpr int64_t column_tile = tile_columns / parts<value_t>;
    constexpr int64_t group = group_tiles * column_tile;
    const int64_t tile_step = b.tile_step > 0 ? b.tile_step : tile_columns;
    for (int64_t g = 0; g < columns; g += group) {
        const int64_t end = columns - g < group ? columns : g + group;
        for (int64_t s = 0; s * strip < rows; ++s) {
            int64_t first = 0, strip_count = 0;
            strip_bounds<value_t>(rows, s, &first, &strip_count);
            tile_operands<real_t> x = {a + s * strip_reals<real_t>, tile_rows<real_t>, b.x + g / column_tile * tile_step, b.depth_step,
                                       depth};
            for (int64_t c = g; c < end; c += column_tile, x.b += tile_step) {
                ask_ahead(next);
                const int64_t column_count = end - c < column_tile ? end - c : column_tile;
                if (!run_tile(t, x, i + first, strip_count, j + c, column_count)) break;
            }
        }
    }
}

/* Both operands in place, rows in blocks, from row `top` on: each column tile meets a block of rows, which is one run of the result. a, b:
   row 0 and column j. */
template <typename value_t>
DENSE_INLINE void run_direct(const tile_target<value_t> &t, const side_tiles<real_of<value_t>> &a, const side_tiles<real_of<value_t>> &b,
                             int64_t depth, int64_t top, int64_t m, int64_t j, int64_t columns)
{
    using real_t = real_of<value_t>;
    constexpr int64_t width = parts<value_t>;
    constexpr int64_t strip = tile_rows<real_t> / width;
    constexpr int64_t column_tile = tile_columns / width;
    const int64_t tile_step = b.tile_step > 0 ? b.tile_step : tile_columns;
    constexpr int64_t block = block_strips * strip;
    for (int64_t i = top; i < m; i += block) {
        const int64_t rows = m - i < block ? m - i : block;
        const real_t *tile_b = b.x;
        for (int64_t c = 0; c < columns; c += column_tile) {
            const int64_t column_count = columns - c < column_tile ? columns - c : column_tile;
            for (int64_t s = 0; s * strip < rows; ++s) {
                int64_t first = 0;
                int64_t strip_count = 0;
                strip_bounds<value_t>(rows, s, &first, &strip_count);
                run_tile(t, {a.x + (i + first) * width, a.depth_step, tile_b, b.depth_step, depth}, i + first, strip_count, j + c,
                         column_count);
            }
            tile_b += tile_step;
        }
    }
}

/* Depths that are asked for before they are read: each lies on a page of its own. */
constexpr int64_t depths_ahead = 8;

/* Full column tiles side by side, their values contiguous in memory: each depth is visited once for all of them. */
template <typename value_t, int64_t count>
void pack_tiles(const value_t *x, int64_t l_step, int64_t depth, int64_t tile_step, real_of<value_t> *out)
{
    using real_t = real_of<value_t>;
    for (int64_t d = 0; d < depth; ++d, x += l_step, out += tile_columns) {
        const real_t *from = as_real(x), *later = as_real(x + depths_ahead * l_step);
        __builtin_prefetch(later);
        if constexpr (count > 1) __builtin_prefetch(later + count * tile_columns - 1);
        DENSE_UNROLL
        for (int64_t g = 0; g < count; ++g) __builtin_memcpy(out + g * tile_step, from + g * tile_columns, tile_columns * sizeof(real_t));
    }
}

/* Column tiles of the right operand. */
template <typename value_t>
void pack_columns(const product_pair<value_t> *pair, int64_t j, int64_t columns, int64_t l, int64_t depth, real_of<value_t> *out)
{
    using real_t = real_of<value_t>;
    constexpr int64_t column_tile = tile_columns / parts<value_t>;
    constexpr int64_t group = 128 / static_cast<int64_t>(tile_columns * sizeof(real_t)); /* tiles that fill two lines */
    const int64_t step = tile_columns * depth;
    each_part(pair, l, depth, [&](const product_pair<value_t> &p, int64_t first, int64_t part, int64_t before) {
        real_t *to = out + before * tile_columns;
        const value_t *from = p.b.x + first * p.b.l_step;
        int64_t c = 0;
        for (; p.b.i_step == 1 && c + group * column_tile <= columns; c += group * column_tile, to += group * step)
            pack_tiles<value_t, group>(from + j + c, p.b.l_step, part, step, to);
        for (; p.b.i_step == 1 && c + column_tile <= columns; c += column_tile, to += step)
            pack_tiles<value_t, 1>(from + j + c, p.b.l_step, part, step, to);
        for (; c < columns; c += column_tile, to += step)
            pack_rows(p.b, j + c, columns - c < column_tile ? columns - c : column_tile, first, part, tile_columns, to);
    });
}

/* Above this depth, strips that are contiguous in place are packed all the same: each of their columns lies on a page of its own.
   Measured with m 2000, n 8 .. 128. */
constexpr int64_t direct_depth = 16;
/* Up to so many columns, in-place strips are not read often enough for packing to pay. */
constexpr int64_t direct_columns = 8;

/* A part of `count` that leaves equal parts, none above `room`; a multiple of `unit`, as room is. */
DENSE_INLINE int64_t even_part(int64_t count, int64_t room, int64_t unit)
{
    const int64_t pieces = (count + room - 1) / room;
    return (count + pieces * unit - 1) / (pieces * unit) * unit;
}

template <typename value_t>
void product_blocks(const tile_target<value_t> &target, int64_t m, int64_t n, int64_t pair_count, const product_pair<value_t> *pair,
                    int64_t total_depth, const pack_buffer<real_of<value_t>> &buffer)
{
    using real_t = real_of<value_t>;
    constexpr int64_t width = parts<value_t>;
    constexpr int64_t strip = tile_rows<real_t> / width;
    constexpr int64_t column_tile = tile_columns / width;
    const bool direct_a = pair_count == 1 && pair->a.i_step == 1 && (pair->depth <= direct_depth || n * width <= direct_columns);
    const bool direct_b = pair_count == 1 && pair->b.i_step == 1 && pair->depth <= direct_depth;
    for (int64_t j = 0; j < n;) {
        int64_t columns = n - j;
        tile_target<value_t> t = target;
        for (int64_t l = 0; l < total_depth; l += depth_block) {
            const int64_t depth = total_depth - l < depth_block ? total_depth - l : depth_block;
            side_tiles<real_t> b = {as_real(pair->b.x + j + l * pair->b.l_step), pair->b.l_step * width, 0};
            if (!direct_b) {
                const int64_t room = buffer.b_tiles * depth_block / depth * column_tile;
                if (columns > room) columns = even_part(columns, room, column_tile);
                pack_columns(pair, j, columns, l, depth, buffer.b);
                b = {buffer.b, tile_columns, tile_columns * depth};
            }
            const int64_t top = first_row_of(t, j) / strip * strip; /* rows above have nothing to do */
            if (direct_a) {
                const side_tiles<real_t> a = {as_real(pair->a.x + l * pair->a.l_step), pair->a.l_step * width, 0};
                run_direct(t, a, b, depth, top, m, j, columns);
            } else {
                const int64_t block = buffer.a_strips * strip;
                for (int64_t i = top; i < m; i += block) {
                    const int64_t rows = m - i < block ? m - i : block;
                    const int64_t after = m - i - rows < rows ? m - i - rows : rows;
                    const int64_t met = t.lower && t.first_row == nullptr && i + rows - j < columns ? i + rows - j : columns;
                    const int64_t tiles_now = (met + column_tile - 1) / column_tile * ((rows + strip - 1) / strip);
                    rows_ahead<value_t> next = {pair, i + rows, l, after * width, 0, depth / tiles_now + 1};
                    if (pair->a.i_step == 1 && after > 0) next.depth = depth;
                    pack_block(pair, l, depth, i, rows, buffer.a);
                    run_packed(t, buffer.a, b, depth, i, rows, j, columns, &next);
                }
            }
            if (t.mode == write_mode::store) t.mode = write_mode::add;
        }
        j += columns;
    }
}

/* Without workspace: one strip and eight column tiles at a time, on the stack. */
template <typename value_t>
__attribute__((noinline)) void product_on_stack(const tile_target<value_t> &t, int64_t m, int64_t n, int64_t pair_count,
                                                const product_pair<value_t> *pair, int64_t depth)
{
    using real_t = real_of<value_t>;
    constexpr int64_t stack_tiles = 8;
    alignas(64) real_t a[strip_reals<real_t>];
    alignas(64) real_t b[stack_tiles * tile_reals<real_t>];
    product_blocks(t, m, n, pair_count, pair, depth, pack_buffer<real_t>{a, 1, b, stack_tiles});
}

template <typename value_t>
void product(const tile_target<value_t> &t, int64_t m, int64_t n, int64_t pair_count, const product_pair<value_t> *pair, void *work)
{
    using real_t = real_of<value_t>;
    int64_t depth = 0;
    for (int64_t s = 0; s < pair_count; ++s) depth += pair[s].depth;
    if (m < 1 || n < 1 || depth < 1) return;
    if (pair_count == 1 && depth <= direct_depth && pair->a.i_step == 1 && pair->b.i_step == 1) {
        constexpr int64_t width = parts<value_t>;
        const side_tiles<real_t> a = {as_real(pair->a.x), pair->a.l_step * width, 0};
        const side_tiles<real_t> b = {as_real(pair->b.x), pair->b.l_step * width, 0};
        run_direct(t, a, b, depth, 0, m, 0, n);
    } else if (work == nullptr) {
        product_on_stack(t, m, n, pair_count, pair, depth);
    } else {
        product_blocks(t, m, n, pair_count, pair, depth, split_work<real_t>(work));
    }
}

} // namespace
} // namespace WKL_FAMILY
