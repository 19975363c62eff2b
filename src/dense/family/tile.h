/* The register tile: mv vectors of rows by nr columns (counted in reals) of a product a * b', accumulated over the depth and then added
   to, stored in or scattered into the result.

   A complex product runs through the same real tile: the pairs of a row are two lanes, the pairs of a column of the right operand two
   columns, and e = column 2j, o = column 2j + 1 of the tile hold (ar br, ai br) and (ar bi, ai bi), so that the complex column is
       e * (1, sa) + swap(o) * (-sa sb, sb)        sa, sb = -1 for a conjugated operand.
   Each entry is the sum over the depth in ascending order, from 0, whatever the tile: splitting the result changes no bits. */
#pragma once

#include "dense/family/vector.h"

namespace WKL_FAMILY
{
namespace
{

/* Largest tile. Three vectors by four columns and their operands fill sixteen registers where a fused multiply-add needs no room for the
   product; without it, two by four do. */
#if defined(__FMA__)
constexpr int64_t tile_vectors = 3;
#else
constexpr int64_t tile_vectors = 2;
#endif
constexpr int64_t tile_columns = 4;
template <typename real_t>
constexpr int64_t tile_rows = tile_vectors *lanes<real_t>;

enum class write_mode : int32_t { add, store, scatter };

/* Where products go, and their factors. Set once per operation. */
template <typename value_t>
struct tile_target {
    value_t *c;
    int64_t ldc;
    const int64_t *row_position; /* write_mode::scatter: positions of all rows and columns of the result */
    const int64_t *column_position;
    write_mode mode;
    const int64_t *column_start; /* where columns begin that do not lie ldc apart; else null */
    const int64_t *first_row;    /* of a lower result: the first row that counts in each column; null: the column's own number */
    bool lower;                  /* only entries with row >= column count, the others are left alone; not with write_mode::store */
    bool turned;                 /* complex alpha with an imaginary part: the product is turned by alpha itself */
    vec<real_of<value_t>> s1;    /* real types: alpha; complex types: the signs of e and of swap(o), times the real alpha */
    vec<real_of<value_t>> s2;
    real_of<value_t> alpha[2];
};

/* First row that counts in column j. */
template <typename value_t>
DENSE_INLINE int64_t first_row_of(const tile_target<value_t> &t, int64_t j)
{
    return t.first_row != nullptr ? t.first_row[j] : t.lower ? j : 0;
}

template <typename value_t>
DENSE_INLINE value_t *column_of(const tile_target<value_t> &t, int64_t j)
{
    if (t.column_start != nullptr) return t.c + t.column_start[j];
    return t.c + (t.mode == write_mode::scatter ? t.column_position[j] : j) * t.ldc;
}

/* One operand pair of a tile: a has tile rows contiguous and a_step reals between depths, b likewise. */
template <typename real_t>
struct tile_operands {
    const real_t *a;
    int64_t a_step;
    const real_t *b;
    int64_t b_step;
    int64_t depth;
};

template <typename value_t>
DENSE_INLINE void set_signs(tile_target<value_t> *t, bool conjugate_a, bool conjugate_b, const real_of<value_t> *factor)
{
    using real_t = real_of<value_t>;
    t->turned = false;
    if constexpr (is_complex<value_t>) {
        t->turned = factor[1] != 0;
        t->alpha[0] = factor[0];
        t->alpha[1] = factor[1];
        const real_t scale = t->turned ? 1 : factor[0];
        const real_t sa = conjugate_a ? -1 : 1;
        const real_t sb = conjugate_b ? -1 : 1;
        t->s1 = broadcast_pair<real_t>(scale, sa * scale);
        t->s2 = broadcast_pair<real_t>(-sa * sb * scale, sb * scale);
    } else {
        (void)conjugate_a;
        (void)conjugate_b;
        t->s1 = broadcast(factor[0]);
        t->s2 = t->s1;
    }
}

/* sum = a * b' */
template <typename real_t, int mv, int nr, bool masked>
DENSE_INLINE void tile_product(const tile_operands<real_t> &x, int64_t tail, vec<real_t> (&sum)[nr][mv])
{
    const vec<real_t> zero = broadcast(real_t{0});
    DENSE_UNROLL
    for (int j = 0; j < nr; ++j) {
        DENSE_UNROLL
        for (int v = 0; v < mv; ++v) sum[j][v] = zero;
    }
    const real_t *a = x.a;
    const real_t *b = x.b;
    for (int64_t l = x.depth; l > 0; --l) {
        vec<real_t> row[mv];
        DENSE_UNROLL
        for (int v = 0; v < mv; ++v) {
            if (masked && v == mv - 1)
                row[v] = load_part(a + v * lanes<real_t>, tail);
            else
                row[v] = load(a + v * lanes<real_t>);
        }
        DENSE_UNROLL
        for (int j = 0; j < nr; ++j) {
            const vec<real_t> column = broadcast(b[j]);
            DENSE_UNROLL
            for (int v = 0; v < mv; ++v) sum[j][v] = madd(row[v], column, sum[j][v]);
        }
        a += x.a_step;
        b += x.b_step;
    }
}

/* The finished vector v of value column j. */
template <typename value_t, int mv, int nr>
DENSE_INLINE vec<real_of<value_t>> tile_value(const tile_target<value_t> &t, const vec<real_of<value_t>> (&sum)[nr][mv], int j, int v)
{
    using real_t = real_of<value_t>;
    if constexpr (!is_complex<value_t>)
        return t.s1 * sum[j][v];
    else {
        vec<real_t> x = sum[2 * j][v] * t.s1 + swap_pairs(sum[2 * j + 1][v]) * t.s2;
        if (t.turned) { x = x * broadcast(t.alpha[0]) + swap_pairs(x) * broadcast_pair<real_t>(-t.alpha[1], t.alpha[1]); }
        return x;
    }
}

template <typename value_t>
DENSE_INLINE void scatter_lanes(vec<real_of<value_t>> x, int64_t first, int64_t count, const int64_t *position, value_t *column)
{
    using real_t = real_of<value_t>;
    alignas(vector_bytes) real_t lane[lanes<real_t>];
    store(lane, x);
    for (int64_t i = first; i < count; ++i) {
        real_t *entry = as_real(column + position[i]);
        for (int64_t p = 0; p < parts<value_t>; ++p) entry[p] += lane[i * parts<value_t> + p];
    }
}

/* Where a tile goes: the columns from their row 0 on, and its first and last row there. */
template <typename value_t, int nr>
struct tile_place {
    value_t *column[nr / static_cast<int>(parts<value_t>)];
    int64_t first_row;
    int64_t last_row;
};

/* Below this depth the result's lines are needed before a prefetch could bring them. */
constexpr int64_t prefetch_depth = 8;

/* The place of `rows` rows of values from i on and of the columns from j on; asks for its lines where the product gives them time. */
template <typename value_t, int nr>
DENSE_INLINE tile_place<value_t, nr> find_place(const tile_target<value_t> &t, int64_t i, int64_t rows, int64_t j, int64_t depth)
{
    const bool scattered = t.mode == write_mode::scatter;
    tile_place<value_t, nr> place;
    place.first_row = scattered ? t.row_position[i] : i;
    place.last_row = scattered ? t.row_position[i + rows - 1] : i + rows - 1;
    DENSE_UNROLL
    for (int l = 0; l < nr / static_cast<int>(parts<value_t>); ++l) place.column[l] = column_of(t, j + l);
    if (depth > prefetch_depth) {
        /* most rows of a tile lie in two or three runs */
        const int64_t middle_row = scattered ? t.row_position[i + (rows - 1) / 2] : place.last_row;
        DENSE_UNROLL
        for (value_t *column : place.column) {
            __builtin_prefetch(column + place.first_row, 1);
            if (middle_row != place.last_row) __builtin_prefetch(column + middle_row, 1);
            __builtin_prefetch(column + place.last_row, 1);
        }
    }
    return place;
}

/* Add or store a finished tile whose rows are one run, none above the diagonal. */
template <typename value_t, int mv, int nr, bool masked, bool add>
DENSE_INLINE void write_tile(const tile_target<value_t> &t, const vec<real_of<value_t>> (&sum)[nr][mv], int64_t tail,
                             const tile_place<value_t, nr> &place)
{
    using real_t = real_of<value_t>;
    DENSE_UNROLL
    for (int l = 0; l < nr / static_cast<int>(parts<value_t>); ++l) {
        DENSE_UNROLL
        for (int v = 0; v < mv; ++v) {
            real_t *p = as_real(place.column[l] + place.first_row) + v * lanes<real_t>;
            const vec<real_t> y = tile_value<value_t, mv, nr>(t, sum, l, v);
            if (masked && v == mv - 1)
                store_part(p, add ? load_part(p, tail) + y : y, tail);
            else
                store(p, add ? load(p) + y : y);
        }
    }
}

/* Add a finished tile whose entries need looking at: rows in several runs, or a diagonal that crosses it. Rows of values from i on, columns
   from j on. Entries above the diagonal are left alone. */
template <typename value_t, int mv, int nr, bool masked>
DENSE_INLINE void place_tile(const tile_target<value_t> &t, const vec<real_of<value_t>> (&sum)[nr][mv], int64_t tail, int64_t i, int64_t j,
                             bool crossed, const tile_place<value_t, nr> &place)
{
    using real_t = real_of<value_t>;
    constexpr int64_t values = lanes<real_t> / parts<value_t>; /* values in a vector */
    const bool scattered = t.mode == write_mode::scatter;
    DENSE_UNROLL
    for (int v = 0; v < mv; ++v) {
        const bool part = masked && v == mv - 1;
        const int64_t count = part ? tail / parts<value_t> : values;
        const int64_t row = i + v * values;
        const int64_t *position = scattered ? t.row_position + row : nullptr;
        const int64_t start = scattered ? position[0] : row;
        const bool run = !scattered || position[count - 1] - start == count - 1;
        DENSE_UNROLL
        for (int l = 0; l < nr / static_cast<int>(parts<value_t>); ++l) {
            const vec<real_t> y = tile_value<value_t, mv, nr>(t, sum, l, v);
            const int64_t above = crossed && first_row_of(t, j + l) > row ? first_row_of(t, j + l) - row : 0;
            if (!run)
                scatter_lanes<value_t>(y, above, count, position, place.column[l]);
            else {
                real_t *p = as_real(place.column[l] + start);
                if (part || above > 0) {
                    if (above < count) add_range(p, y, above * parts<value_t>, count * parts<value_t>);
                } else
                    store(p, load(p) + y);
            }
        }
    }
}

/* A finished tile, to its place. */
template <typename value_t, int mv, int nr, bool masked>
DENSE_INLINE void finish_tile(const tile_target<value_t> &t, const vec<real_of<value_t>> (&sum)[nr][mv], int64_t tail, int64_t i, int64_t j,
                              const tile_place<value_t, nr> &place)
{
    constexpr int columns = nr / static_cast<int>(parts<value_t>);
    const int64_t rows = ((mv - 1) * lanes<real_of<value_t>> + (masked ? tail : lanes<real_of<value_t>>)) / parts<value_t>;
    const bool crossed = t.lower && i < first_row_of(t, j + columns - 1);
    if (crossed || place.last_row - place.first_row != rows - 1)
        place_tile<value_t, mv, nr, masked>(t, sum, tail, i, j, crossed, place);
    else if (t.mode != write_mode::store)
        write_tile<value_t, mv, nr, masked, true>(t, sum, tail, place);
    else
        write_tile<value_t, mv, nr, masked, false>(t, sum, tail, place);
}

/* One tile: rows of values from i on, columns of values from j on; tail: lanes of the last vector (masked only). */
template <typename value_t, int mv, int nr, bool masked>
void tile_run(const tile_target<value_t> &t, const tile_operands<real_of<value_t>> &x, int64_t i, int64_t j, int64_t tail)
{
    using real_t = real_of<value_t>;
    const int64_t rows = ((mv - 1) * lanes<real_t> + (masked ? tail : lanes<real_t>)) / parts<value_t>;
    const tile_place<value_t, nr> place = find_place<value_t, nr>(t, i, rows, j, x.depth);
    vec<real_t> sum[nr][mv];
    tile_product<real_t, mv, nr, masked>(x, tail, sum);
    finish_tile<value_t, mv, nr, masked>(t, sum, tail, i, j, place);
}

template <typename value_t>
using tile_body = void(const tile_target<value_t> &, const tile_operands<real_of<value_t>> &, int64_t, int64_t, int64_t);

/* All tiles: [masked][vectors - 1][value columns - 1]. */
template <typename value_t>
struct tile_bodies {
    static constexpr int64_t columns = tile_columns / parts<value_t>;
    tile_body<value_t> *body[2][tile_vectors][columns];
};

template <typename value_t, int mv>
DENSE_INLINE constexpr void fill_bodies(tile_bodies<value_t> *t)
{
    constexpr int step = static_cast<int>(parts<value_t>);
    t->body[0][mv - 1][0] = tile_run<value_t, mv, step, false>;
    t->body[1][mv - 1][0] = tile_run<value_t, mv, step, true>;
    t->body[0][mv - 1][1] = tile_run<value_t, mv, 2 * step, false>;
    t->body[1][mv - 1][1] = tile_run<value_t, mv, 2 * step, true>;
    if constexpr (!is_complex<value_t>) {
        t->body[0][mv - 1][2] = tile_run<value_t, mv, 3, false>;
        t->body[1][mv - 1][2] = tile_run<value_t, mv, 3, true>;
        t->body[0][mv - 1][3] = tile_run<value_t, mv, 4, false>;
        t->body[1][mv - 1][3] = tile_run<value_t, mv, 4, true>;
    }
    if constexpr (mv > 1) fill_bodies<value_t, mv - 1>(t);
}

template <typename value_t>
constexpr tile_bodies<value_t> make_bodies()
{
    tile_bodies<value_t> t = {};
    fill_bodies<value_t, static_cast<int>(tile_vectors)>(&t);
    return t;
}
template <typename value_t>
constexpr tile_bodies<value_t> tiles = make_bodies<value_t>();

} // namespace
} // namespace WKL_FAMILY
