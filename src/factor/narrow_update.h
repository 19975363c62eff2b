/* Updates of so few products that the general way costs more before its first multiplication. They go straight through the relative map,
   and a source's columns whose factors are all zero are passed over: on circuits, whose pattern is made symmetric, those are many. */
#pragma once

#include "factor/factor_run.h"
#include "factor/value_helpers.h"

/* Most products of such an update. Found on grids of 900 to 90,000 unknowns. */
inline constexpr int64_t tiny_products = 128;

/* What a source in core has to give to one target. */
template <typename value_t>
struct narrow_source {
    int64_t rows, columns; /* q rows from the target's first one on, k of them columns of the target */
    int64_t width, ld, ldu;
    const int64_t *list;          /* [q] */
    const value_t *block;         /* first entry of the source */
    const value_t *lower, *upper; /* row 0 of q, of L and (LU) of U */
};

/* Small enough? D of a wider LDL^T source may hold 2x2 pivots, which are not handled here. */
template <factor_kind kind>
inline bool is_tiny(int64_t q, int64_t k, int64_t width)
{
    return q * k * width <= tiny_products && (kind != factor_kind::ldlt || width == 1);
}

template <typename value_t>
inline void bind_narrow_source(const factor_run<value_t> &run, int64_t first, int64_t ld, narrow_source<value_t> *from)
{
    const factor_store<value_t> &store = *run.in->store;
    from->ld = ld;
    from->ldu = ld - from->width;
    from->block = store.lnz + (run.s->xlnz[first - 1] - 1);
    from->lower = from->block + (ld - from->rows);
    if (run.two_sides) from->upper = store.unz + (run.s->xunz[first - 1] - 1) + (from->ldu - from->rows);
}

/* Entries from row `row` on of a column of the target: minus the products of the source's rows with `factor`. */
template <int64_t width, typename value_t, typename place_type>
inline void subtract_rows(int64_t row, int64_t q, const value_t *w, int64_t ld, const value_t *factor, const place_type &place,
                          value_t *column)
{
    bool zero = true;
    for (int64_t c = 0; c < width; ++c) zero = zero && factor[c] == value_t(0);
    if (zero) return;
    for (int64_t i = row; i < q; ++i) {
        value_t &entry = column[place(i)];
        value_t rest = entry - product(w[i], factor[0]);
        for (int64_t c = 1; c < width; ++c) rest -= product(w[c * ld + i], factor[c]);
        entry = rest;
    }
}

/* Columns c .. c + width - 1 of the source. place(i) is the offset of its row i in the target. */
template <int64_t width, factor_kind kind, mirror sym, typename value_t, typename place_type>
inline void subtract_columns(const narrow_source<value_t> &from, const target_block<value_t> &target, const place_type &place, int64_t c)
{
    const int64_t q = from.rows, k = from.columns, ld = from.ld, ldu = from.ldu, columns = target.columns;
    const value_t *w = from.lower + c * ld;
    value_t factor[width];
    for (int64_t j = 0; j < k; ++j) {
        const int64_t at = place(j);
        value_t *const lower = target.lower + at * target.rows;
        if constexpr (kind == factor_kind::lu) {
            const value_t *u = from.upper + c * ldu;
            for (int64_t a = 0; a < width; ++a) factor[a] = u[a * ldu + j];
            subtract_rows<width>(0, q, w, ld, factor, place, lower);
            if (q == k) continue;
            for (int64_t a = 0; a < width; ++a) factor[a] = w[a * ld + j];
            const auto right = [&](int64_t i) { return place(i) - columns; };
            subtract_rows<width>(k, q, u, ldu, factor, right, target.upper + at * (target.rows - columns));
        } else {
            for (int64_t a = 0; a < width; ++a)
                factor[a] = mirrored<sym>(kind == factor_kind::ldlt ? product(w[a * ld + j], *from.block) : w[a * ld + j]);
            subtract_rows<width>(j, q, w, ld, factor, place, lower);
        }
    }
}

template <factor_kind kind, mirror sym, typename value_t, typename place_type>
inline void subtract_source(const narrow_source<value_t> &from, const target_block<value_t> &target, const place_type &place)
{
    int64_t c = 0;
    if constexpr (kind != factor_kind::ldlt) {
        for (; c + 4 <= from.width; c += 4) subtract_columns<4, kind, sym>(from, target, place, c);
        if (c + 2 <= from.width) {
            subtract_columns<2, kind, sym>(from, target, place, c);
            c += 2;
        }
    }
    if (c < from.width) subtract_columns<1, kind, sym>(from, target, place, c);
}

/* Apply a source for which is_tiny() holds. The thread's map holds the target's rows. */
template <typename value_t, factor_kind kind, mirror sym>
inline void apply_narrow(const narrow_source<value_t> &from, const int64_t *relative, const target_block<value_t> &target)
{
    const int64_t *const list = from.list;
    if (from.columns == 1) {
        subtract_source<kind, sym>(from, target, [=](int64_t i) { return relative[list[i] - 1]; });
        return;
    }
    int64_t at[tiny_products];
    for (int64_t i = 0; i < from.rows; ++i) at[i] = relative[list[i] - 1];
    subtract_source<kind, sym>(from, target, [&](int64_t i) { return at[i]; });
}
