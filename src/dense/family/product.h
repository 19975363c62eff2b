/* Blocked products: c += alpha * sum of op(a) * op(b)' over several operand pairs with the same rows and columns, contiguous or scattered,
   whole or lower.

   The depths of all pairs form one long depth, cut at multiples of depth_block. For each cut the right operand is laid out in tiles
   (depth by tile_columns), then rows in strips (depth by tile_rows), and each strip meets every column tile while it lies in the first
   level cache. An operand that already has its tile direction contiguous and a small depth is used where it lies. */
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
    real_t *b;
    int64_t a_strips; /* strips of depth_block that fit into a */
    int64_t b_tiles;  /* column tiles of depth_block that fit into b */
};

template <typename real_t>
constexpr int64_t strip_reals = tile_rows<real_t> *depth_block;
template <typename real_t>
constexpr int64_t tile_reals = tile_columns *depth_block;

/* Strips of the a part of the workspace: 8 * 24 KB stay in a 512 KB second level cache next to the column tiles in use. */
constexpr int64_t work_strips = 8;

template <typename real_t>
DENSE_INLINE pack_buffer<real_t> split_work(void *work)
{
    real_t *base = static_cast<real_t *>(work);
    constexpr int64_t total = kernel_work_bytes / static_cast<int64_t>(sizeof(real_t));
    constexpr int64_t a_reals = work_strips * strip_reals<real_t>;
    return {base, base + a_reals, work_strips, (total - a_reals) / tile_reals<real_t>};
}

/* Lay out `count` values from row i on, depths l..l+depth-1, with `capacity` reals per depth; the rest of each depth is 0. */
template <typename value_t>
void pack_rows(const factor_view<value_t> &f, int64_t i, int64_t count, int64_t l, int64_t depth, int64_t capacity, real_of<value_t> *out)
{
    using real_t = real_of<value_t>;
    constexpr int64_t width = parts<value_t>;
    const int64_t reals = count * width;
    const value_t *source = f.x + i * f.i_step + l * f.l_step;
    if (f.i_step == 1 && reals == tile_rows<real_t> && capacity == reals) {
        for (int64_t d = 0; d < depth; ++d) {
            const real_t *x = as_real(source + d * f.l_step);
            for (int64_t v = 0; v < tile_vectors; ++v) store(out + v * lanes<real_t>, load(x + v * lanes<real_t>));
            out += capacity;
        }
    } else if (f.i_step == 1) {
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

/* The same over the pairs: depths l..l+depth-1 of the long depth. Side a or b by member pointer. */
template <typename value_t>
void pack_pairs(const product_pair<value_t> *pair, factor_view<value_t> product_pair<value_t>::*side, int64_t i, int64_t count, int64_t l,
                int64_t depth, int64_t capacity, real_of<value_t> *out)
{
    while (l >= pair->depth) {
        l -= pair->depth;
        ++pair;
    }
    while (depth > 0) {
        const int64_t part = depth < pair->depth - l ? depth : pair->depth - l;
        pack_rows(pair->*side, i, count, l, part, capacity, out);
        out += part * capacity;
        depth -= part;
        l = 0;
        ++pair;
    }
}

/* Where the tiles of one side lie for one cut of the depth: packed (tiles one after the other) or in place. */
template <typename real_t>
struct side_tiles {
    const real_t *x;
    int64_t depth_step; /* reals between depths */
    int64_t value_step; /* reals between neighbouring values of the packed direction: tile distance / values of a tile */
};

/* All tiles of rows i..i+rows-1 (first row of `a`) against columns j..j+columns-1 (first column of `b`). */
template <typename value_t>
DENSE_INLINE void run_tiles(const tile_target<value_t> &t, const side_tiles<real_of<value_t>> &a, const side_tiles<real_of<value_t>> &b,
                            int64_t depth, int64_t i, int64_t rows, int64_t j, int64_t columns)
{
    using real_t = real_of<value_t>;
    constexpr int64_t width = parts<value_t>;
    constexpr int64_t strip = tile_rows<real_t> / width;
    constexpr int64_t column_tile = tile_columns / width;
    constexpr int64_t values = lanes<real_t> / width;
    for (int64_t r = 0; r < rows; r += strip) {
        const int64_t strip_count = rows - r < strip ? rows - r : strip;
        tile_operands<real_t> x = {nullptr, a.depth_step, nullptr, b.depth_step, depth};
        for (int64_t s = 0; s < columns; s += column_tile) {
            const int64_t column_count = columns - s < column_tile ? columns - s : column_tile;
            int64_t shift = 0;
            if (t.lower && j + s > i + r) {
                shift = (j + s - i - r) / values * values;
                if (shift >= strip_count) break;
            }
            const int64_t count = strip_count - shift;
            const int64_t vectors = (count + values - 1) / values;
            const int64_t tail = (count - (vectors - 1) * values) * width;
            x.a = a.x + r * a.value_step + shift * width;
            x.b = b.x + s * b.value_step;
            tiles<value_t>.body[tail != lanes<real_t>][vectors - 1][column_count - 1](t, x, i + r + shift, j + s, tail);
        }
    }
}

/* Above this depth, strips that are contiguous in place are packed all the same: each of their columns lies on a page of its own.
   Measured with m 2000, n 8 .. 128. */
constexpr int64_t direct_depth = 16;
/* Up to so many columns, in-place strips are not read often enough for packing to pay. */
constexpr int64_t direct_columns = 8;

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
            side_tiles<real_t> b = {as_real(pair->b.x + j + l * pair->b.l_step), pair->b.l_step * width, width};
            if (!direct_b) {
                if (columns > buffer.b_tiles * column_tile) columns = buffer.b_tiles * column_tile;
                for (int64_t s = 0; s < columns; s += column_tile) {
                    const int64_t count = columns - s < column_tile ? columns - s : column_tile;
                    pack_pairs(pair, &product_pair<value_t>::b, j + s, count, l, depth, tile_columns, buffer.b + s * width * depth);
                }
                b = {buffer.b, tile_columns, depth * width};
            }
            const int64_t top = t.lower ? j / strip * strip : 0; /* rows above the diagonal have nothing to do */
            if (direct_a) {
                const side_tiles<real_t> a = {as_real(pair->a.x + top + l * pair->a.l_step), pair->a.l_step * width, width};
                run_tiles(t, a, b, depth, top, m - top, j, columns);
            } else {
                const int64_t block = buffer.a_strips * strip;
                for (int64_t i = top; i < m; i += block) {
                    const int64_t rows = m - i < block ? m - i : block;
                    for (int64_t r = 0; r < rows; r += strip) {
                        const int64_t count = rows - r < strip ? rows - r : strip;
                        pack_pairs(pair, &product_pair<value_t>::a, i + r, count, l, depth, tile_rows<real_t>,
                                   buffer.a + r * width * depth);
                    }
                    run_tiles(t, {buffer.a, tile_rows<real_t>, depth * width}, b, depth, i, rows, j, columns);
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
    product_blocks(t, m, n, pair_count, pair, depth, pack_buffer<real_t>{a, b, 1, stack_tiles});
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
        const side_tiles<real_t> a = {as_real(pair->a.x), pair->a.l_step * width, width};
        const side_tiles<real_t> b = {as_real(pair->b.x), pair->b.l_step * width, width};
        run_tiles(t, a, b, depth, 0, m, 0, n);
    } else if (work == nullptr) {
        product_on_stack(t, m, n, pair_count, pair, depth);
    } else {
        product_blocks(t, m, n, pair_count, pair, depth, split_work<real_t>(work));
    }
}

} // namespace
} // namespace WKL_FAMILY
