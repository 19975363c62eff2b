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

/* What the entries of one side are placed with. A given entry has the row factor of its row and the column factor of its column: that of
   factor column c stands in own (for the upper side c is the row), the other one in scale. Transposed images have them the other way
   around. */
template <typename value_t>
struct placing {
    const factor_input<value_t> *in;
    bool conjugate;
    bool upper;
    const double *scale;
    int64_t last; /* place of the side's last entry */
};

/* The entries of one column. images: a transposed image has a destination below 1. */
template <typename value_t, bool images, bool with_scaling, bool ahead>
void place_column(const placing<value_t> &how, const side_map &side, int64_t begin, int64_t end, double own, double own_of_images,
                  value_t *block)
{
    /* Columns are short. Without a look ahead a refactorization of memplus takes a sixth longer. */
    constexpr int64_t places_ahead = 24;
    const value_t *const a = how.in->a;
    const double *const scale = how.scale;
    for (int64_t p = begin; p < end; ++p) {
        int64_t dest = side.dest[p];
        if constexpr (ahead) {
            const int64_t later = p + places_ahead < how.last ? p + places_ahead : how.last;
            __builtin_prefetch(&a[side.src[later] - 1]);
            if constexpr (with_scaling) __builtin_prefetch(&scale[side.col[later] - 1]);
        }
        const bool image = images && dest < 1;
        value_t x = a[side.src[p] - 1];
        if constexpr (with_scaling) {
            const int64_t other = side.col[p] - 1;
            x = image ? scaled(x, own_of_images, how.in->scale_col[other]) : scaled(x, scale[other], own);
        }
        if (image) {
            dest = -dest;
            if (how.conjugate) x = conjugated(x);
        }
        block[dest - side.base] = x;
    }
}

template <typename value_t, bool images, bool with_scaling, bool ahead>
void place_side(const placing<value_t> &how, const side_map &side, const int64_t *perm, int64_t first, int64_t columns, value_t *block)
{
    const factor_input<value_t> &in = *how.in;
    if constexpr (!with_scaling) { /* the columns need not be told apart */
        const int64_t begin = side.start[first - 1] - 1, end = side.start[first + columns - 1] - 1;
        return place_column<value_t, images, false, ahead>(how, side, begin, end, 1, 1, block);
    }
    for (int64_t c = first; c < first + columns; ++c) {
        double own = 1, own_of_images = 1;
        if constexpr (with_scaling) {
            const int64_t given = perm[c - 1];
            const auto own_row = [&] { return in.scale_row[(in.row_order == nullptr ? given : in.row_order[given - 1]) - 1]; };
            own = how.upper ? own_row() : in.scale_col[given - 1];
            if constexpr (images) own_of_images = own_row();
        }
        place_column<value_t, images, with_scaling, ahead>(how, side, side.start[c - 1] - 1, side.start[c] - 1, own, own_of_images, block);
    }
}

/* Keep the unscaled diagonal for the pivot hook. */
template <typename value_t>
void keep_diagonal(const factor_run<value_t> *run, int64_t first, int64_t columns)
{
    const factor_input<value_t> &in = *run->in;
    value_t *kept = in.store->diagonal_unscaled;
    for (int64_t c = first; c < first + columns; ++c) {
        const int64_t diagonal = run->s->xlnz[c - 1] + (c - first);
        kept[c - 1] = value_t(0);
        for (int64_t p = in.map->start_l[c - 1] - 1; p < in.map->start_l[c] - 1; ++p)
            if (in.map->dest_l[p] == diagonal) kept[c - 1] = in.a[in.map->src_l[p] - 1];
    }
}

/* Columns first .. first + columns - 1 of one side, whose entries follow each other from block on. */
template <typename value_t>
void fill_side(const factor_run<value_t> *run, const side_map &side, int64_t first, int64_t columns, bool upper, int64_t entries,
               value_t *block)
{
    if (entries < 1) return;
    std::memset(static_cast<void *>(block), 0, static_cast<size_t>(entries) * sizeof(value_t));
    constexpr int64_t near_entries = 16384;
    const factor_input<value_t> &in = *run->in;
    const bool far = in.nnz_a > near_entries;
    const placing<value_t> how = {&in, run->hermitian, upper, upper ? in.scale_col : in.scale_row, side.start[run->s->neqns] - 2};
    const auto place = [&](auto images, auto with_scaling) {
        constexpr bool image = decltype(images)::value, scale = decltype(with_scaling)::value;
        if (far)
            place_side<value_t, image, scale, true>(how, side, run->s->perm, first, columns, block);
        else
            place_side<value_t, image, scale, false>(how, side, run->s->perm, first, columns, block);
    };
    if (run->two_sides)
        in.scaling_on != 0 ? place(std::false_type{}, std::true_type{}) : place(std::false_type{}, std::false_type{});
    else
        in.scaling_on != 0 ? place(std::true_type{}, std::true_type{}) : place(std::true_type{}, std::false_type{});
}

/* Both sides of some columns that follow each other; lower and upper are the places of their first entries. */
template <typename value_t>
void fill_columns(const factor_run<value_t> *run, int64_t first, int64_t columns, value_t *lower, int64_t lower_entries, value_t *upper,
                  int64_t upper_entries)
{
    const position_map &map = *run->in->map;
    const supernodal_structure &s = *run->s;
    const side_map left = {map.start_l, map.dest_l, map.src_l, map.col_l, s.xlnz[first - 1]};
    fill_side(run, left, first, columns, false, lower_entries, lower);
    if (upper == nullptr || upper_entries < 1) return;
    const side_map right = {map.start_u, map.dest_u, map.src_u, map.col_u, s.xunz[first - 1]};
    fill_side(run, right, first, columns, true, upper_entries, upper);
}

bool keeps_diagonal(int64_t callback_on, const void *kept)
{
    return callback_on != 0 && kept != nullptr;
}

} // namespace

template <typename value_t>
void assemble_supernode(const factor_run<value_t> *run, const target_block<value_t> *target)
{
    const int64_t columns = target->columns, below = target->rows - columns;
    fill_columns(run, target->first, columns, target->lower, target->rows * columns, target->upper, below * columns);
    if (keeps_diagonal(run->in->callback_on, run->in->store->diagonal_unscaled)) keep_diagonal(run, target->first, columns);
}

template <typename value_t>
void assemble_all(const factor_run<value_t> *run)
{
    const supernodal_structure &s = *run->s;
    const factor_store<value_t> &store = *run->in->store;
    fill_columns(run, 1, s.neqns, store.lnz, s.nnz_l, run->two_sides ? store.unz : nullptr, s.nnz_u);
    if (!keeps_diagonal(run->in->callback_on, store.diagonal_unscaled)) return;
    for (int64_t number = 1; number <= s.supernodes; ++number) keep_diagonal(run, s.xsuper[number - 1], supernode_columns(s, number));
}

#define INSTANTIATE(V)                                                                                                                     \
    template void assemble_supernode<V>(const factor_run<V> *, const target_block<V> *);                                                   \
    template void assemble_all<V>(const factor_run<V> *);
FOR_EACH_VALUE(INSTANTIATE)
