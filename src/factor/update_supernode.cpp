#include "factor/factor_run.h"
#include "factor/value_helpers.h"

#include <complex>
#include <type_traits>

/* c -= (rows of the source) * (rows of the source that meet the target's columns)', straight into the target's block: in place where the
   rows form one run of the target, through offsets where they are scattered. */

namespace
{

/* Where the remaining rows of a source fall in the target. */
struct update_place {
    int64_t rows;    /* q */
    int64_t columns; /* k: the rows among them that are columns of the target */
    bool scattered;
    int64_t offset; /* of the first row, when they are one run */
};

template <typename value_t>
void map_rows(thread_space<value_t> *space, target_block<value_t> *target)
{
    if (target->mapped) return;
    for (int64_t i = 0; i < target->rows; ++i) space->relative[target->row_list[i] - 1] = i;
    target->mapped = true;
}

template <typename value_t>
update_place locate(thread_space<value_t> *space, target_block<value_t> *target, const int64_t *list, int64_t q)
{
    if (q == target->rows) return {q, target->columns, false, 0};
    const int64_t last = target->first + target->columns - 1;
    int64_t k = 0;
    while (k < q && list[k] <= last) ++k;
    map_rows(space, target);
    const int64_t offset = space->relative[list[0] - 1], span = space->relative[list[q - 1] - 1] - offset;
    if (q > span) return {q, k, false, offset};
    for (int64_t i = 0; i < q; ++i) space->row_position[i] = space->relative[list[i] - 1];
    return {q, k, true, offset};
}

/* True when the row lists of the two sources past the target's first column are equal, given that they have the same length there: the
   earlier source has all columns up to the later one and no row outside of its list. */
bool same_tail(const supernodal_structure &s, int64_t one, int64_t other)
{
    const int64_t early = one < other ? one : other, late = one < other ? other : one;
    const int64_t first_late = s.xsuper[late - 1], distance = first_late - s.xsuper[early - 1];
    const int64_t rows_early = supernode_rows(s, early), rows_late = supernode_rows(s, late);
    return rows_early - rows_late == distance && supernode_row_list(s, early)[distance] == first_late;
}

/* v = (first k rows of the source) * D. 2x2 pivots keep their off-diagonal entry above the diagonal. */
template <typename value_t, mirror sym>
void scale_rows(const value_t *block, int64_t ld, int64_t width, const int64_t *pivots, const value_t *w, int64_t k, value_t *v)
{
    for (int64_t c = 0; c < width; ++c) {
        if (pivots[c] >= 0) {
            const value_t d = block[c + c * ld];
            for (int64_t i = 0; i < k; ++i) v[i + c * k] = product(w[i + c * ld], d);
            continue;
        }
        const value_t d1 = block[c + c * ld], d2 = block[c + 1 + (c + 1) * ld], above = block[c + (c + 1) * ld];
        const value_t below = mirrored<sym>(above);
        for (int64_t i = 0; i < k; ++i) {
            const value_t x = w[i + c * ld], y = w[i + (c + 1) * ld];
            v[i + c * k] = product(x, d1) + product(y, below);
            v[i + (c + 1) * k] = product(x, above) + product(y, d2);
        }
        ++c;
    }
}

/* One side of the target. shift: offset of the first row of this side's block in the row list of the target. */
template <typename value_t, mirror sym>
void update_side(thread_space<value_t> *space, update_shape shape, const update_place &place, int64_t skip, int64_t shift, int64_t count,
                 const update_segment<value_t> *segments, value_t *block, int64_t ld)
{
    const int64_t q = place.rows - skip, k = place.columns;
    if (!place.scattered) {
        kernel_update<value_t, sym>(shape, q, k, count, segments, block + (place.offset + skip - shift) + place.offset * ld, ld,
                                    space->work);
        return;
    }
    const int64_t *column_position = space->row_position, *row_position = space->row_position;
    if (shift > 0) { /* the space past the last row position is free: q + the rest fit since no row is listed twice */
        int64_t *shifted = space->row_position + k;
        for (int64_t i = 0; i < q; ++i) shifted[i] -= shift;
        row_position = shifted;
    }
    for (int64_t i = 0; i < count; ++i)
        kernel_update_scatter<value_t, sym>(shape, q, k, segments[i].depth, segments[i].w, segments[i].ldw, segments[i].v, segments[i].ldv,
                                            row_position, column_position, block, ld, space->work);
}

/* The blocks of one source as an update reads them: the remaining rows of L and, for LU, of U. */
template <typename value_t, factor_kind kind>
struct source_rows {
    const value_t *block, *w, *u;
    int64_t ld, ldu, width;
};

template <typename value_t, factor_kind kind>
bool open_source(factor_run<value_t> *run, int64_t source, int64_t q, source_rows<value_t, kind> *rows)
{
    const supernodal_structure &s = *run->s;
    const factor_store<value_t> &store = *run->in->store;
    rows->width = supernode_columns(s, source);
    rows->ld = supernode_rows(s, source);
    rows->ldu = rows->ld - rows->width;
    rows->block = acquire_block(store, s, factor_side::lower, source, block_use::read);
    if (rows->block == nullptr) {
        fail(run, -1);
        return false;
    }
    rows->w = rows->block + (rows->ld - q);
    if constexpr (kind == factor_kind::lu) {
        const value_t *u = acquire_block(store, s, factor_side::upper, source, block_use::read);
        if (u == nullptr) {
            release_block(store, factor_side::lower, source, block_use::read);
            fail(run, -1);
            return false;
        }
        rows->u = u + (rows->ldu - q);
    }
    return true;
}

/* Sources begin..end-1 of the group in one pass. */
template <typename value_t, factor_kind kind, mirror sym>
void apply_sources(factor_run<value_t> *run, thread_space<value_t> *space, target_block<value_t> *target, const update_place &place,
                   int64_t begin, int64_t end)
{
    const factor_store<value_t> &store = *run->in->store;
    const int64_t q = place.rows, k = place.columns;
    update_segment<value_t> lower[group_limit], upper[group_limit];
    int64_t opened = begin, used = 0;
    for (; opened < end; ++opened) {
        const int64_t source = space->group_source[opened], at = opened - begin;
        source_rows<value_t, kind> rows;
        if (!open_source<value_t, kind>(run, source, q, &rows)) break;
        lower[at] = {rows.w, rows.ld, rows.w, rows.ld, rows.width};
        if constexpr (kind == factor_kind::ldlt) {
            value_t *v = space->buffer + used;
            used += k * rows.width;
            scale_rows<value_t, sym>(rows.block, rows.ld, rows.width, store.pivots + (run->s->xsuper[source - 1] - 1), rows.w, k, v);
            lower[at].v = v;
            lower[at].ldv = k;
        }
        if constexpr (kind == factor_kind::lu) {
            lower[at].v = rows.u;
            lower[at].ldv = rows.ldu;
            upper[at] = {rows.u + k, rows.ldu, rows.w, rows.ld, rows.width};
        }
    }
    if (opened == end) {
        constexpr update_shape shape = kind == factor_kind::lu ? update_shape::full : update_shape::lower;
        update_side<value_t, sym>(space, shape, place, 0, 0, end - begin, lower, target->lower, target->rows);
        if constexpr (kind == factor_kind::lu)
            if (q > k)
                update_side<value_t, sym>(space, shape, place, k, target->columns, end - begin, upper, target->upper,
                                          target->rows - target->columns);
    }
    if (store.pager == nullptr) return;
    for (int64_t i = begin; i < opened; ++i) {
        release_block(store, factor_side::lower, space->group_source[i], block_use::read);
        if constexpr (kind == factor_kind::lu) release_block(store, factor_side::upper, space->group_source[i], block_use::read);
    }
}

} // namespace

template <typename value_t, factor_kind kind, mirror sym>
void flush_updates(factor_run<value_t> *run, thread_space<value_t> *space, target_block<value_t> *target)
{
    const int64_t count = space->group_count, q = space->group_rows;
    if (count == 0) return;
    space->group_count = 0;
    const supernodal_structure &s = *run->s;
    const int64_t leader = space->group_source[0];
    const update_place place = locate(space, target, supernode_row_list(s, leader) + (supernode_rows(s, leader) - q), q);
    bool one_column = true;
    for (int64_t i = 0; i < count; ++i) one_column = one_column && supernode_columns(s, space->group_source[i]) == 1;
    if (place.scattered && !one_column && q * place.columns > space->buffer_entries) {
        fail(run, -2);
        return;
    }
    if constexpr (kind != factor_kind::ldlt) {
        apply_sources<value_t, kind, sym>(run, space, target, place, 0, count);
    } else {
        /* the scaled rows of the sources must fit the buffer together */
        for (int64_t begin = 0, end = 0; begin < count && !failed(run); begin = end) {
            int64_t used = 0;
            for (; end < count; ++end) {
                used += place.columns * supernode_columns(s, space->group_source[end]);
                if (used > space->buffer_entries) break;
            }
            if (end == begin)
                fail(run, -2);
            else
                apply_sources<value_t, kind, sym>(run, space, target, place, begin, end);
        }
    }
}

namespace
{

/* Products up to this count are done here at once: the general way costs more before its first multiplication. Found on grids of 900 to
   90,000 unknowns. */
constexpr int64_t tiny_products = 128;

template <typename value_t>
inline void subtract_product(value_t *c, const value_t &x, const value_t &y)
{
    if constexpr (std::is_floating_point_v<value_t>)
        *c -= x * y;
    else
        *c = value_t(c->real() - x.real() * y.real() + x.imag() * y.imag(), c->imag() - x.real() * y.imag() - x.imag() * y.real());
}

/* The update of a small source, straight through the relative map. Returns false, with nothing done, when it is not small. */
template <typename value_t, factor_kind kind, mirror sym>
bool apply_tiny(const factor_run<value_t> *run, thread_space<value_t> *space, target_block<value_t> *target, int64_t source, int64_t q)
{
    const supernodal_structure &s = *run->s;
    const factor_store<value_t> &store = *run->in->store;
    const int64_t width = supernode_columns(s, source);
    if (store.pager != nullptr || q * width > tiny_products || (kind == factor_kind::ldlt && width > 1)) return false;
    const int64_t ld = supernode_rows(s, source), last = target->first + target->columns - 1;
    const int64_t *list = supernode_row_list(s, source) + (ld - q);
    int64_t k = 1;
    while (k < q && list[k] <= last) ++k;
    if (q * k * width > tiny_products) return false;

    map_rows(space, target);
    int64_t at[tiny_products];
    for (int64_t i = 0; i < q; ++i) at[i] = space->relative[list[i] - 1];
    const value_t *block = acquire_block(store, s, factor_side::lower, source, block_use::read), *w = block + (ld - q);
    if constexpr (kind == factor_kind::lu) {
        const int64_t ldu = ld - width, below = target->rows - target->columns;
        const value_t *u = acquire_block(store, s, factor_side::upper, source, block_use::read) + (ldu - q);
        for (int64_t c = 0; c < width; ++c, w += ld, u += ldu)
            for (int64_t j = 0; j < k; ++j) {
                value_t *lower = target->lower + at[j] * target->rows, *upper = target->upper + at[j] * below;
                for (int64_t i = 0; i < q; ++i) subtract_product(&lower[at[i]], w[i], u[j]);
                for (int64_t i = k; i < q; ++i) subtract_product(&upper[at[i] - target->columns], u[i], w[j]);
            }
        return true;
    }
    for (int64_t c = 0; c < width; ++c, w += ld)
        for (int64_t j = 0; j < k; ++j) {
            const value_t v = mirrored<sym>(kind == factor_kind::ldlt ? product(w[j], *block) : w[j]);
            value_t *column = target->lower + at[j] * target->rows;
            for (int64_t i = j; i < q; ++i) subtract_product(&column[at[i]], w[i], v);
        }
    return true;
}

} // namespace

template <typename value_t, factor_kind kind, mirror sym>
void apply_update(factor_run<value_t> *run, thread_space<value_t> *space, target_block<value_t> *target, int64_t source, int64_t remaining)
{
    if (run->group_sources == 1) flush_updates<value_t, kind, sym>(run, space, target); /* in strict order nothing is overtaken */
    if (apply_tiny<value_t, kind, sym>(run, space, target, source, remaining)) return;
    expect_block(*run->in->store, factor_side::lower, source);
    if constexpr (kind == factor_kind::lu) expect_block(*run->in->store, factor_side::upper, source);
    const bool joins = space->group_count > 0 && space->group_count < run->group_sources && space->group_rows == remaining &&
                       same_tail(*run->s, space->group_source[0], source);
    if (!joins) flush_updates<value_t, kind, sym>(run, space, target);
    space->group_source[space->group_count++] = source;
    space->group_rows = remaining;
}

#define INSTANTIATE(V, kind, sym)                                                                                                          \
    template void flush_updates<V, kind, sym>(factor_run<V> *, thread_space<V> *, target_block<V> *);                                      \
    template void apply_update<V, kind, sym>(factor_run<V> *, thread_space<V> *, target_block<V> *, int64_t, int64_t);
FOR_EACH_MEMBER(INSTANTIATE)
