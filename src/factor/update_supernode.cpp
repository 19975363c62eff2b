#include "factor/narrow_update.h"
#include "factor/update_groups.h"

#include <complex>

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

/* v = (first k rows of w) * D of the source's block. 2x2 pivots keep their off-diagonal entry above the diagonal. */
template <typename value_t, mirror sym>
void scale_rows(const value_t *block, int64_t ld, int64_t width, const int64_t *pivots, const value_t *w, int64_t ldw, int64_t k,
                value_t *v, int64_t ldv)
{
    for (int64_t c = 0; c < width; ++c) {
        if (pivots[c] >= 0) {
            const value_t d = block[c + c * ld];
            for (int64_t i = 0; i < k; ++i) v[i + c * ldv] = product(w[i + c * ldw], d);
            continue;
        }
        const value_t d1 = block[c + c * ld], d2 = block[c + 1 + (c + 1) * ld], above = block[c + (c + 1) * ld];
        const value_t below = mirrored<sym>(above);
        for (int64_t i = 0; i < k; ++i) {
            const value_t x = w[i + c * ldw], y = w[i + (c + 1) * ldw];
            v[i + c * ldv] = product(x, d1) + product(y, below);
            v[i + (c + 1) * ldv] = product(x, above) + product(y, d2);
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
    int64_t *row_position = space->row_position + skip;
    for (int64_t i = 0; shift > 0 && i < q; ++i) row_position[i] -= shift;
    kernel_update_scatter<value_t, sym>(shape, q, k, count, segments, row_position, space->row_position, block, ld, space->work);
    for (int64_t i = 0; shift > 0 && i < q; ++i) row_position[i] += shift;
}

/* Segments of one pass over the target. */
constexpr int64_t segment_limit = 16;

/* One side of a span. For LU only the rows count that the block of a column has: of the square on the lower side, below it on the upper. */
template <typename value_t, factor_kind kind, mirror sym>
void update_span_side(thread_space<value_t> *space, const target_block<value_t> &target, const update_place &place, bool upper,
                      int64_t count, const update_segment<value_t> *segments)
{
    int64_t start[span_columns], first_row[span_columns];
    const span_block<value_t> *block = target.span;
    int64_t first = 0; /* column of the source, the first one in the block */
    const auto position = [&](int64_t i) { return place.scattered ? space->row_position[i] : place.offset + i; };
    for (int64_t j = 0; j < place.columns; ++j) {
        const int64_t p = position(j);
        while (p >= block->before + block->columns) {
            ++block;
            first = j;
        }
        const int64_t head = block->before + (upper ? block->columns : 0); /* rows of the span above the block */
        const value_t *values = upper ? block->upper : block->lower, *base = upper ? target.upper : target.lower;
        start[j] = (p - block->before) * (block->rows + block->before - head) - head + (place.scattered ? 0 : place.offset);
        start[j] += values == nullptr ? 0 : values - base; /* nothing is right of the last square */
        first_row[j] = kind == factor_kind::lu ? first : j;
    }
    for (int64_t j = place.columns - 1, next = place.columns; kind == factor_kind::lu && upper && j >= 0; --j) {
        const int64_t own = first_row[j];
        first_row[j] = next;
        if (own == j) next = j;
    }
    const update_span span = {place.scattered ? space->row_position : nullptr, start, first_row};
    kernel_update_span<value_t, sym>(place.rows, place.columns, count, segments, span, upper ? target.upper : target.lower, space->work);
}

/* Sources at a place: both sides for LU. upper is only read there. */
template <typename value_t, factor_kind kind, mirror sym>
void update_sides(thread_space<value_t> *space, const target_block<value_t> &target, const update_place &place, int64_t count,
                  const update_segment<value_t> *lower, const update_segment<value_t> *upper)
{
    constexpr update_shape shape = kind == factor_kind::lu ? update_shape::full : update_shape::lower;
    if (target.spanned > 0) {
        update_span_side<value_t, kind, sym>(space, target, place, false, count, lower);
        if constexpr (kind == factor_kind::lu) {
            update_segment<value_t> whole[segment_limit];
            for (int64_t i = 0; i < count; ++i) {
                whole[i] = upper[i];
                whole[i].w -= place.columns; /* rows of later blocks of the span stand right of earlier ones */
            }
            update_span_side<value_t, kind, sym>(space, target, place, true, count, whole);
        }
        return;
    }
    update_side<value_t, sym>(space, shape, place, 0, 0, count, lower, target.lower, target.rows);
    if constexpr (kind == factor_kind::lu)
        if (place.rows > place.columns)
            update_side<value_t, sym>(space, shape, place, place.columns, target.columns, count, upper, target.upper,
                                      target.rows - target.columns);
}

/* The blocks of one source as an update reads them: the remaining rows of L and, for LU, of U. */
template <typename value_t, factor_kind kind>
struct source_rows {
    const value_t *block, *w, *u;
    int64_t ld, ldu, width;
};

/* wait: bring the blocks in, which whoever holds others must not ask for; otherwise false when they are not there. */
template <typename value_t, factor_kind kind>
bool open_source(factor_run<value_t> *run, int64_t source, int64_t q, bool wait, source_rows<value_t, kind> *rows)
{
    const supernodal_structure &s = *run->s;
    const factor_store<value_t> &store = *run->in->store;
    const auto open = [&](factor_side side) -> const value_t * {
        if (wait || store.pager == nullptr) return acquire_block(store, s, side, source, block_use::read);
        return hold_block(store, side, source);
    };
    rows->width = supernode_columns(s, source);
    rows->ld = supernode_rows(s, source);
    rows->ldu = rows->ld - rows->width;
    rows->block = open(factor_side::lower);
    if (rows->block == nullptr) return false;
    rows->w = rows->block + (rows->ld - q);
    if constexpr (kind == factor_kind::lu) {
        const value_t *u = open(factor_side::upper);
        if (u == nullptr) {
            release_block(store, factor_side::lower, source, block_use::read);
            return false;
        }
        rows->u = u + (rows->ldu - q);
    }
    return true;
}

template <typename value_t, factor_kind kind>
void close_source(const factor_store<value_t> &store, int64_t source)
{
    if (store.pager == nullptr) return;
    release_block(store, factor_side::lower, source, block_use::read);
    if constexpr (kind == factor_kind::lu) release_block(store, factor_side::upper, source, block_use::read);
}

/* Columns of a source into a panel with the q rows of the group: from row i of the list to row relative[list[i] - 1], 0 elsewhere. */
template <typename value_t>
void spread_rows(const int64_t *list, int64_t rows, const int64_t *relative, const value_t *from, int64_t ld, int64_t columns, int64_t q,
                 value_t *to, int64_t ldto)
{
    for (int64_t c = 0; c < columns; ++c, from += ld, to += ldto) {
        if (rows == q) {
            for (int64_t i = 0; i < q; ++i) to[i] = from[i];
            continue;
        }
        for (int64_t i = 0; i < q; ++i) to[i] = value_t(0);
        for (int64_t i = 0; i < rows; ++i) to[relative[list[i] - 1]] = from[i];
    }
}

/* Sources gathered for one pass over a target: those that have all rows of the place are read where they lie and stay open, the others are
   copied side by side. Scaled rows and copies stand in the thread's buffer. */
template <typename value_t>
struct update_pass {
    int64_t segments, used, opened;                                     /* used: entries of the buffer */
    update_segment<value_t> lower[segment_limit], upper[segment_limit]; /* upper: LU */
    int64_t source[segment_limit];                                      /* those that are open */
};

template <typename value_t, factor_kind kind, mirror sym>
void run_pass(factor_run<value_t> *run, thread_space<value_t> *space, const target_block<value_t> &target, const update_place &place,
              update_pass<value_t> *pass)
{
    if (pass->segments > 0 && !failed(run))
        update_sides<value_t, kind, sym>(space, target, place, pass->segments, pass->lower, pass->upper);
    for (int64_t i = 0; i < pass->opened; ++i) close_source<value_t, kind>(*run->in->store, pass->source[i]);
    pass->segments = pass->used = pass->opened = 0;
}

/* A source with all rows of the place. */
template <typename value_t, factor_kind kind, mirror sym>
void add_in_place(factor_run<value_t> *run, thread_space<value_t> *space, const update_place &place, int64_t source,
                  const source_rows<value_t, kind> &rows, update_pass<value_t> *pass)
{
    pass->source[pass->opened++] = source;
    update_segment<value_t> *lower = &pass->lower[pass->segments];
    *lower = {rows.w, rows.ld, rows.w, rows.ld, rows.width};
    if constexpr (kind == factor_kind::ldlt) {
        value_t *v = space->buffer + pass->used;
        const int64_t *pivots = run->in->store->pivots + (run->s->xsuper[source - 1] - 1);
        scale_rows<value_t, sym>(rows.block, rows.ld, rows.width, pivots, rows.w, rows.ld, place.columns, v, place.columns);
        lower->v = v;
        lower->ldv = place.columns;
        pass->used += place.columns * rows.width;
    }
    if constexpr (kind == factor_kind::lu) {
        lower->v = rows.u;
        lower->ldv = rows.ldu;
        pass->upper[pass->segments] = {rows.u + place.columns, rows.ldu, rows.w, rows.ld, rows.width};
    }
    ++pass->segments;
}

/* A source with some of the rows, as if it had them all. In the buffer a column has its rows and, behind them, those of the other factor;
   copies that follow one another are one segment. */
template <typename value_t, factor_kind kind, mirror sym>
void add_copied(factor_run<value_t> *run, thread_space<value_t> *space, const update_place &place, const pending_update &one,
                const source_rows<value_t, kind> &rows, update_pass<value_t> *pass)
{
    const supernodal_structure &s = *run->s;
    const int64_t q = place.rows, k = place.columns, ld = packed_entries<kind>(q, k);
    const int64_t *list = supernode_row_list(s, one.source) + (supernode_rows(s, one.source) - one.rows);
    value_t *w = space->buffer + pass->used, *other = kind == factor_kind::cholesky ? w : w + q;
    spread_rows(list, one.rows, space->relative, rows.w, rows.ld, rows.width, q, w, ld);
    if constexpr (kind == factor_kind::ldlt) {
        const int64_t *pivots = run->in->store->pivots + (s.xsuper[one.source - 1] - 1);
        scale_rows<value_t, sym>(rows.block, rows.ld, rows.width, pivots, w, ld, k, other, ld);
    }
    if constexpr (kind == factor_kind::lu) spread_rows(list, one.rows, space->relative, rows.u, rows.ldu, rows.width, q, other, ld);
    close_source<value_t, kind>(*run->in->store, one.source);
    pass->used += rows.width * ld;

    update_segment<value_t> *last = pass->segments == 0 ? nullptr : &pass->lower[pass->segments - 1];
    if (last != nullptr && last->ldw == ld && last->w + last->depth * ld == w) {
        last->depth += rows.width;
        if constexpr (kind == factor_kind::lu) pass->upper[pass->segments - 1].depth = last->depth;
        return;
    }
    pass->lower[pass->segments] = {w, ld, other, ld, rows.width};
    if constexpr (kind == factor_kind::lu) pass->upper[pass->segments] = {other + k, ld, w, ld, rows.width};
    ++pass->segments;
}

template <typename value_t, factor_kind kind, mirror sym>
void apply_group(factor_run<value_t> *run, thread_space<value_t> *space, target_block<value_t> *target, const update_group &group)
{
    const supernodal_structure &s = *run->s;
    const pending_update *pending = space->pending;
    const int64_t q = group.rows, k = group.columns;
    const int64_t leader = group.leader < 0 ? 0 : pending[group.leader].source;
    const int64_t *list = leader == 0 ? target->row_list : supernode_row_list(s, leader) + (supernode_rows(s, leader) - q);
    const update_place place = locate(space, target, list, q);
    const bool alone = pending[group.first].next < 0;
    const bool renumber = !alone && leader != 0 && q != target->rows; /* offsets in the group's rows instead of the target's */
    for (int64_t i = 0; renumber && i < q; ++i) space->relative[list[i] - 1] = i;

    /* One thread holds only one paged block at a time, whether others are in core or not: the same bits every run. There a copy may save a
       pass. */
    constexpr update_costs cost = costs_of<value_t>();
    const bool single = run->in->store->pager != nullptr && run->in->nproc == 1;
    const double whole_pass = cost.scattered * update_entries<kind>(q, k), copy = cost.copied * static_cast<double>(q);
    const bool copies_save = single && place.scattered && !alone;
    update_pass<value_t> pass;
    pass.segments = pass.used = pass.opened = 0;
    for (int64_t m = group.first; m >= 0 && !failed(run); m = pending[m].next) {
        const int64_t source = pending[m].source, width = supernode_columns(s, source);
        const int64_t copied = width * packed_entries<kind>(q, k), scaled = kind == factor_kind::ldlt ? width * k : 0;
        const bool saves = copies_save && static_cast<double>(width) * copy < whole_pass && copied <= space->buffer_entries;
        const bool in_place = pending[m].rows == q && !saves;
        const int64_t needed = in_place ? scaled : copied;
        if (needed > space->buffer_entries) fail(run, -2);
        if (pass.segments == segment_limit || pass.used + needed > space->buffer_entries || (single && pass.opened > 0))
            run_pass<value_t, kind, sym>(run, space, *target, place, &pass);
        source_rows<value_t, kind> rows;
        bool open = !failed(run) && open_source<value_t, kind>(run, source, pending[m].rows, pass.opened == 0, &rows);
        if (!open && pass.opened > 0) {
            run_pass<value_t, kind, sym>(run, space, *target, place, &pass);
            open = !failed(run) && open_source<value_t, kind>(run, source, pending[m].rows, true, &rows);
        }
        if (!open) {
            fail(run, -1);
            break;
        }
        if (in_place)
            add_in_place<value_t, kind, sym>(run, space, place, source, rows, &pass);
        else
            add_copied<value_t, kind, sym>(run, space, place, pending[m], rows, &pass);
    }
    run_pass<value_t, kind, sym>(run, space, *target, place, &pass);
    for (int64_t i = 0; renumber && i < q; ++i) space->relative[list[i] - 1] = place.scattered ? space->row_position[i] : place.offset + i;
}

} // namespace

template <typename value_t, factor_kind kind, mirror sym>
void flush_updates(factor_run<value_t> *run, thread_space<value_t> *space, target_block<value_t> *target)
{
    if (space->pending_count == 0) return;
    for (int64_t i = 0; i < space->pending_count && !target->mapped; ++i)
        if (space->pending[i].rows != target->rows) map_rows(space, target);
    update_group group[group_count_limit];
    const int64_t groups = make_groups<value_t, kind>(run, space, *target, group);
    space->pending_count = 0;
    for (int64_t g = 0; g < groups && !failed(run); ++g) apply_group<value_t, kind, sym>(run, space, target, group[g]);
}

namespace
{

/* The update of a small source at once. Returns false, with nothing done, when it is not small. */
template <typename value_t, factor_kind kind, mirror sym>
bool apply_tiny(const factor_run<value_t> *run, thread_space<value_t> *space, target_block<value_t> *target, int64_t source, int64_t q)
{
    const supernodal_structure &s = *run->s;
    narrow_source<value_t> from;
    from.rows = q;
    from.width = supernode_columns(s, source);
    if (run->in->store->pager != nullptr || target->spanned > 0 || !is_tiny<kind>(q, 1, from.width)) return false;
    const int64_t ld = supernode_rows(s, source), last = target->first + target->columns - 1;
    from.list = supernode_row_list(s, source) + (ld - q);
    from.columns = 1;
    while (from.columns < q && from.list[from.columns] <= last) ++from.columns;
    if (!is_tiny<kind>(q, from.columns, from.width)) return false;

    map_rows(space, target);
    bind_narrow_source(*run, s.xsuper[source - 1], ld, &from);
    apply_narrow<value_t, kind, sym>(from, space->relative, *target);
    return true;
}

} // namespace

template <typename value_t, factor_kind kind, mirror sym>
void apply_update(factor_run<value_t> *run, thread_space<value_t> *space, target_block<value_t> *target, int64_t source, int64_t remaining)
{
    if (space->pending_count == run->most_pending) flush_updates<value_t, kind, sym>(run, space, target); /* in strict order at once */
    if (apply_tiny<value_t, kind, sym>(run, space, target, source, remaining)) return;
    if (!space->batched) {
        expect_blocks(*run->in->store, factor_side::lower, 1, &source);
        if constexpr (kind == factor_kind::lu) expect_blocks(*run->in->store, factor_side::upper, 1, &source);
    }
    space->pending[space->pending_count++] = {source, remaining, 0, -1, -1};
}

#define INSTANTIATE(V, kind, sym)                                                                                                          \
    template void flush_updates<V, kind, sym>(factor_run<V> *, thread_space<V> *, target_block<V> *);                                      \
    template void apply_update<V, kind, sym>(factor_run<V> *, thread_space<V> *, target_block<V> *, int64_t, int64_t);
FOR_EACH_MEMBER(INSTANTIATE)
