#include "factor/factor_run.h"

#include <complex>
#include <cstring>
#include <type_traits>

namespace
{

template <typename value_t>
value_t conjugated(const value_t &x)
{
    if constexpr (std::is_floating_point_v<value_t>)
        return x;
    else
        return value_t(x.real(), -x.imag());
}

template <typename value_t>
value_t scaled(const value_t &x, double row_factor, double column_factor)
{
    using real_t = real_of<value_t>;
    if constexpr (std::is_floating_point_v<value_t>)
        return static_cast<real_t>(row_factor * static_cast<double>(x) * column_factor);
    else
        return value_t(static_cast<real_t>(row_factor * static_cast<double>(x.real()) * column_factor),
                       static_cast<real_t>(row_factor * static_cast<double>(x.imag()) * column_factor));
}

/* One side of the position map. base is the index of the block's first entry in lnz or unz. */
struct side_map {
    const int64_t *start, *dest, *src, *col;
    int64_t base;
};

/* The given row and column of an entry in factor column c: on the lnz side c is the column and map_col the row, swapped for transposed
   images and on the unz side. */
template <typename value_t, bool with_scaling>
void place_side(const factor_run<value_t> *run, const side_map &side, const target_block<value_t> *target, bool upper, value_t *block)
{
    const factor_input<value_t> &in = *run->in;
    const bool conjugate = run->hermitian;
    /* Entries are asked for some columns ahead, which are short: without that a refactorization of memplus takes a sixth longer. */
    constexpr int64_t places_ahead = 24;
    const int64_t last = side.start[run->s->neqns] - 2;
    for (int64_t c = target->first; c < target->first + target->columns; ++c) {
        const int64_t given = run->s->perm[c - 1];
        const int64_t given_row = in.row_order == nullptr ? given : in.row_order[given - 1];
        for (int64_t p = side.start[c - 1] - 1; p < side.start[c] - 1; ++p) {
            const int64_t dest = side.dest[p], ahead = p + places_ahead < last ? p + places_ahead : last;
            __builtin_prefetch(&in.a[side.src[ahead] - 1]);
            if constexpr (with_scaling) __builtin_prefetch(&(upper ? in.scale_col : in.scale_row)[side.col[ahead] - 1]);
            const bool image = dest < 1;
            value_t x = in.a[side.src[p] - 1];
            if constexpr (with_scaling) {
                const bool c_is_row = upper || image;
                x = c_is_row ? scaled(x, in.scale_row[given_row - 1], in.scale_col[side.col[p] - 1])
                             : scaled(x, in.scale_row[side.col[p] - 1], in.scale_col[given - 1]);
            }
            block[(image ? -dest : dest) - side.base] = image && conjugate ? conjugated(x) : x;
        }
    }
}

/* Keep the unscaled diagonal for the pivot hook. */
template <typename value_t>
void keep_diagonal(const factor_run<value_t> *run, const target_block<value_t> *target)
{
    const factor_input<value_t> &in = *run->in;
    value_t *kept = in.store->diagonal_unscaled;
    for (int64_t c = target->first; c < target->first + target->columns; ++c) {
        const int64_t diagonal = run->s->xlnz[c - 1] + (c - target->first);
        kept[c - 1] = value_t(0);
        for (int64_t p = in.map->start_l[c - 1] - 1; p < in.map->start_l[c] - 1; ++p)
            if (in.map->dest_l[p] == diagonal) kept[c - 1] = in.a[in.map->src_l[p] - 1];
    }
}

template <typename value_t>
void fill_side(const factor_run<value_t> *run, const side_map &side, const target_block<value_t> *target, bool upper, int64_t rows,
               value_t *block)
{
    if (rows < 1) return;
    std::memset(static_cast<void *>(block), 0, static_cast<size_t>(rows * target->columns) * sizeof(value_t));
    if (run->in->scaling_on != 0)
        place_side<value_t, true>(run, side, target, upper, block);
    else
        place_side<value_t, false>(run, side, target, upper, block);
}

} // namespace

template <typename value_t>
void assemble_supernode(const factor_run<value_t> *run, const target_block<value_t> *target)
{
    const position_map &map = *run->in->map;
    const supernodal_structure &s = *run->s;
    const side_map lower = {map.start_l, map.dest_l, map.src_l, map.col_l, s.xlnz[target->first - 1]};
    fill_side(run, lower, target, false, target->rows, target->lower);
    if (target->upper != nullptr) {
        const side_map upper = {map.start_u, map.dest_u, map.src_u, map.col_u, s.xunz[target->first - 1]};
        fill_side(run, upper, target, true, target->rows - target->columns, target->upper);
    }
    if (run->in->callback_on != 0 && run->in->store->diagonal_unscaled != nullptr) keep_diagonal(run, target);
}

#define INSTANTIATE(V) template void assemble_supernode<V>(const factor_run<V> *, const target_block<V> *);
FOR_EACH_VALUE(INSTANTIATE)
