/* The kernels, as templates for the tables of csr_bodies.h. This text is compiled with the flags of several processor families, so all of
   it has internal linkage and it uses nothing of the standard library. `arithmetic` is the includer's: a record with the members value,
   fused, multiply, conjugate. */
#pragma once

#include "spblas/csr_bodies.h"

namespace
{

/* t * v + y, with one rounding where the family asks for it. Only real bodies are ever fused. */
template <typename arithmetic, typename value_t>
inline value_t multiply_add(value_t t, value_t v, value_t y)
{
    if constexpr (arithmetic::fused)
        return __builtin_fma(t, v, y);
    else
        return arithmetic::multiply(t, v) + y;
}

template <typename arithmetic, bool conjugated, typename value_t>
inline value_t entry_value(value_t v)
{
    if constexpr (conjugated)
        return arithmetic::conjugate(v);
    else
        return v;
}

/* Does the entry in column c of row i belong to the strict part of this side? */
template <int side>
inline bool off_diagonal(int64_t c, int64_t i)
{
    if constexpr (side == side_lower)
        return c < i;
    else if constexpr (side == side_upper)
        return c > i;
    else
        return side == side_all;
}

template <typename arithmetic, typename value_t>
inline void scale_vector(int64_t length, value_t beta, value_t *__restrict y)
{
    if (beta == value_t(0)) {
        for (int64_t i = 0; i < length; ++i) y[i] = value_t(0);
    } else {
        for (int64_t i = 0; i < length; ++i) y[i] = arithmetic::multiply(beta, y[i]);
    }
}

/* Rows that follow each other in storage begin where the one before ends: a load of the pointer between the stores to y costs up to a third
   of the time of short rows. */
struct row_walk {
    const int64_t *pntrb, *pntre;
    int64_t base, end; /* position behind the current row */
    bool adjacent;
};

inline row_walk walk_from(int64_t r1, int64_t r2, const int64_t *pntrb, const int64_t *pntre)
{
    return {pntrb, pntre, pntrb[0], r1 <= r2 ? pntrb[r1 - 1] - pntrb[0] : 0, pntre == pntrb + 1};
}

/* Go on to row i: the position of its first entry. */
inline int64_t enter_row(row_walk *rows, int64_t i)
{
    const int64_t p = rows->adjacent ? rows->end : rows->pntrb[i - 1] - rows->base;
    rows->end = rows->pntre[i - 1] - rows->base;
    return p;
}

/* Does the entry in column c of row i belong to the side, its diagonal included where that is stored? */
template <int side, int diagonal>
inline bool on_side(int64_t c, int64_t i)
{
    return off_diagonal<side>(c, i) || (side != side_all && diagonal == diagonal_stored && c == i);
}

/* y[i] = alpha * (row i of the side) * x + beta * y[i]. One accumulator a row, in stored order. */
template <typename arithmetic, typename value_t, int side, int diagonal, bool conjugated>
void gather_rows(int64_t r1, int64_t r2, value_t alpha, const value_t *a, const int64_t *ja, const int64_t *pntrb, const int64_t *pntre,
                 const value_t *x, value_t *__restrict y, value_t beta)
{
    row_walk rows = walk_from(r1, r2, pntrb, pntre);
    const bool kept = beta != value_t(0);
    for (int64_t i = r1; i <= r2; ++i) {
        int64_t p = enter_row(&rows, i);
        value_t acc = diagonal == diagonal_unit ? x[i - 1] : value_t(0);
        for (; p < rows.end; ++p) {
            const int64_t c = ja[p];
            if (on_side<side, diagonal>(c, i)) acc = acc + arithmetic::multiply(entry_value<arithmetic, conjugated>(a[p]), x[c - 1]);
        }
        y[i - 1] = multiply_add<arithmetic>(acc, alpha, kept ? arithmetic::multiply(beta, y[i - 1]) : value_t(0));
    }
}

/* y[c] += alpha * x[i] * v for the entries of the side. */
template <typename arithmetic, typename value_t, int side, int diagonal, bool conjugated>
void scatter_rows(int64_t r1, int64_t r2, value_t alpha, const value_t *a, const int64_t *ja, const int64_t *pntrb, const int64_t *pntre,
                  const value_t *x, value_t *__restrict y, value_t)
{
    row_walk rows = walk_from(r1, r2, pntrb, pntre);
    for (int64_t i = r1; i <= r2; ++i) {
        int64_t p = enter_row(&rows, i);
        const value_t t = arithmetic::multiply(x[i - 1], alpha);
        if constexpr (diagonal == diagonal_unit) y[i - 1] = y[i - 1] + t;
        for (; p < rows.end; ++p) {
            const int64_t c = ja[p];
            if (on_side<side, diagonal>(c, i)) y[c - 1] = multiply_add<arithmetic>(t, entry_value<arithmetic, conjugated>(a[p]), y[c - 1]);
        }
    }
}

/* ---- the mirrored bodies: each stored entry acts twice, as it stands for row i, and mirrored for row c ---- */

/* Ask for the entries that stand 1 kB ahead: rows leave the hardware's own prefetching behind (a third of the time on 3D grids). The
   address may lie past the end, which a prefetch does not mind. Once for a short row or each four entries of a long one: asking for some
   lines of a long row only costs a third of the speed, since it misleads the hardware. */
template <typename value_t>
inline void prefetch_ahead(const value_t *a, const int64_t *ja, int64_t p)
{
    __builtin_prefetch(reinterpret_cast<const void *>(reinterpret_cast<uintptr_t>(a + p) + 1024));
    __builtin_prefetch(reinterpret_cast<const void *>(reinterpret_cast<uintptr_t>(ja + p) + 1024));
}

constexpr int64_t long_row = 12;       /* entries from which walking by fours pays (3D grids: 4 to 14 entries, elasticity: 40) */
constexpr int64_t started_ahead = 128; /* entries of a result that are started at once */

/* What the rows of one call have in common. */
template <typename value_t>
struct mirrored_call {
    int64_t r1, r2, started; /* entries r1..started of y are scaled; read for the upper side only */
    value_t alpha, beta;
    const value_t *a;
    const int64_t *ja, *pntrb, *pntre;
    const value_t *x;
    value_t *y;
    csr_outside<value_t> *outside;
};

/* A place in row i, and the row's sum up to there. */
template <typename value_t>
struct row_place {
    int64_t i, p;
    value_t acc;
};

/* Columns that lie next to each other, and where the first of them stands in x and in a result. */
template <typename value_t>
struct column_span {
    int64_t first, count;
    const value_t *x;
    value_t *y;
};

/* Scale y up to and somewhat beyond entry c, and ask for the entries of the next time: waiting for them costs 5 to 10 % on 3D grids. */
template <typename arithmetic, typename value_t>
void start_up_to(mirrored_call<value_t> *s, int64_t c)
{
    const int64_t last = s->r2 - c < started_ahead ? s->r2 : c + started_ahead;
    scale_vector<arithmetic>(last - s->started, s->beta, s->y + s->started);
    s->started = last;
    constexpr int64_t line = 64 / int64_t{sizeof(value_t)};
    const uintptr_t next = reinterpret_cast<uintptr_t>(s->y + last);
    for (int64_t e = 0; e < started_ahead; e += line) {
        __builtin_prefetch(reinterpret_cast<const void *>(next + static_cast<uintptr_t>(e) * sizeof(value_t)), 1);
    }
}

/* Let the private vector reach column c, and somewhat further. */
template <int side, typename value_t>
inline void reach_outside(csr_outside<value_t> *outside, int64_t c)
{
    int64_t from = outside->last + 1, to = outside->first - 1; /* the entries to set to zero */
    if constexpr (side == side_lower) {
        from = c - outside->room_first < started_ahead ? outside->room_first : c - started_ahead;
        outside->first = from;
    } else {
        to = outside->room_last - c < started_ahead ? outside->room_last : c + started_ahead;
        outside->last = to;
    }
    for (int64_t e = from; e <= to; ++e) outside->value[e - outside->room_first] = value_t(0);
}

/* Both actions of value v in row i; x and y are those of its column. */
template <typename arithmetic, int conjugation, typename value_t>
inline void act_twice(value_t v, value_t t, const value_t *x, value_t *__restrict y, value_t *acc)
{
    *y = multiply_add<arithmetic>(t, entry_value<arithmetic, (conjugation & conjugate_mirror) != 0>(v), *y);
    *acc = *acc + arithmetic::multiply(*x, entry_value<arithmetic, (conjugation & conjugate_entry) != 0>(v));
}

/* Four entries at a time from place.p on, as long as all four columns are in the span. */
template <typename arithmetic, int conjugation, typename value_t>
inline row_place<value_t> add_fours(const value_t *a, const int64_t *ja, row_place<value_t> place, int64_t end, value_t t,
                                    const column_span<value_t> &span)
{
    const value_t *const x = span.x;
    value_t *const __restrict y = span.y;
    const uint64_t count = static_cast<uint64_t>(span.count);
    const auto column = [&](int64_t p) { return static_cast<uint64_t>(ja[p] - span.first); };
    const auto add = [&](uint64_t c) { act_twice<arithmetic, conjugation>(a[place.p++], t, x + c, y + c, &place.acc); };
    while (end - place.p >= 4) {
        const uint64_t c1 = column(place.p), c2 = column(place.p + 1), c3 = column(place.p + 2), c4 = column(place.p + 3);
        if (c1 >= count || c2 >= count || c3 >= count || c4 >= count) break;
        prefetch_ahead(a, ja, place.p);
        add(c1);
        add(c2);
        add(c3);
        add(c4);
    }
    return place;
}

/* The entries from place.p up to `end` or to the first one whose column is not in the span. */
template <typename arithmetic, int conjugation, typename value_t>
inline row_place<value_t> add_run(const value_t *a, const int64_t *ja, row_place<value_t> place, int64_t end, value_t t,
                                  const column_span<value_t> &span)
{
    place = add_fours<arithmetic, conjugation>(a, ja, place, end, t, span);
    for (; place.p < end; ++place.p) {
        const int64_t c = ja[place.p] - span.first;
        if (static_cast<uint64_t>(c) >= static_cast<uint64_t>(span.count)) break;
        act_twice<arithmetic, conjugation>(a[place.p], t, span.x + c, span.y + c, &place.acc);
    }
    return place;
}

template <typename arithmetic, int diagonal, int conjugation, typename value_t>
inline void add_diagonal(value_t v, value_t x, value_t *acc)
{
    if constexpr (diagonal == diagonal_stored) {
        *acc = *acc + arithmetic::multiply(entry_value<arithmetic, (conjugation & conjugate_entry) != 0>(v), x);
    }
}

template <int diagonal, typename arithmetic, typename value_t>
inline value_t row_factor(value_t x, value_t alpha)
{
    const value_t t = arithmetic::multiply(x, alpha);
    return diagonal == diagonal_skew ? -t : t;
}

/* The rest of a row, whatever may come: entries of any side, in any order, within and outside the rows. Did it reach outside? */
template <typename arithmetic, typename value_t, int side, int diagonal, int conjugation>
inline bool finish_row(mirrored_call<value_t> *s, row_place<value_t> place)
{
    constexpr bool upper = side == side_upper;
    bool reached = false;
    csr_outside<value_t> *const outside = s->outside;
    const int64_t i = place.i, end = s->pntre[i - 1] - s->pntrb[0], own = upper ? i + 1 : s->r1;
    const value_t t = row_factor<diagonal, arithmetic>(s->x[i - 1], s->alpha);
    while (place.p < end) {
        const int64_t count = upper ? s->started - i : i - own;
        place = add_run<arithmetic, conjugation>(s->a, s->ja, place, end, t,
                                                 column_span<value_t>{own, count, s->x + (own - 1), s->y + (own - 1)});
        if (place.p == end) break;
        const int64_t c = s->ja[place.p];
        if (!off_diagonal<side>(c, i)) {
            if (c == i) add_diagonal<arithmetic, diagonal, conjugation>(s->a[place.p], s->x[i - 1], &place.acc);
            ++place.p;
        } else if (upper && c <= s->r2) {
            start_up_to<arithmetic>(s, c);
        } else {
            reached = true;
            if (c < outside->first || c > outside->last) reach_outside<side>(outside, c);
            const int64_t first = outside->first;
            place = add_run<arithmetic, conjugation>(
                s->a, s->ja, place, end, t,
                column_span<value_t>{first, outside->last - first + 1, s->x + (first - 1), outside->value + (first - outside->room_first)});
        }
    }
    const bool kept = upper || s->beta != value_t(0);
    const value_t before = !kept ? value_t(0) : upper ? s->y[i - 1] : arithmetic::multiply(s->beta, s->y[i - 1]);
    s->y[i - 1] = multiply_add<arithmetic>(place.acc, s->alpha, before);
    return reached;
}

/* The rest of a row and the rows behind it that reach outside as well, which come in a row where blocks of rows meet. Returns the row
   behind them. */
template <typename arithmetic, typename value_t, int side, int diagonal, int conjugation>
[[gnu::noinline]] int64_t finish_rows(mirrored_call<value_t> *s, row_place<value_t> place)
{
    while (finish_row<arithmetic, value_t, side, diagonal, conjugation>(s, place)) {
        const int64_t i = ++place.i;
        if (i > s->r2 || (side == side_upper && i > s->started)) return i;
        place = {i, s->pntrb[i - 1] - s->pntrb[0], diagonal == diagonal_unit ? s->x[i - 1] : value_t(0)};
    }
    return place.i + 1;
}

/* Rows from i to `last` that have n entries each, all of the side and within the rows, the diagonal being the last (lower) or the first one
   (upper), as grids have them: straight code for a whole row, since the jumps of a loop cost more than the work. For adjacent rows with a
   beta of 0 (lower). Returns the first row that is different. */
template <typename arithmetic, typename value_t, int side, int conjugation, int n>
[[gnu::noinline]] int64_t short_rows(const mirrored_call<value_t> *s, int64_t i, int64_t last)
{
    constexpr bool upper = side == side_upper;
    constexpr int diagonal_at = upper ? 0 : n - 1;
    const int64_t *const ja = s->ja, *const pntre = s->pntre;
    const value_t *const a = s->a, alpha = s->alpha;
    /* Columns count from `first`, the column behind the diagonal (upper) or the first row, and are in the side below `count`. */
    int64_t first = upper ? i + 1 : s->r1, p = s->pntrb[i - 1] - s->pntrb[0], end = s->pntrb[i - 1] + n;
    uint64_t count = static_cast<uint64_t>(upper ? s->started - i : i - s->r1);
    const value_t *x = s->x + (first - 1);
    value_t *__restrict y = s->y + (first - 1);
    for (; i <= last && pntre[i - 1] == end; ++i, p += n, end += n) {
        uint64_t c[n];
        for (int e = 0; e < n; ++e) c[e] = static_cast<uint64_t>(ja[p + e] - first);
        for (int e = 0; e < n; ++e) {
            if (e == diagonal_at ? c[e] != (upper ? ~uint64_t{0} : count) : c[e] >= count) return i;
        }
        prefetch_ahead(a, ja, p);
        const value_t own = upper ? x[-1] : x[count], t = row_factor<diagonal_stored, arithmetic>(own, alpha);
        value_t *const own_y = upper ? y - 1 : y + count;
        const value_t before = upper ? *own_y : value_t(0);
        value_t acc = value_t(0);
        for (int e = 0; e < n; ++e) {
            if (e == diagonal_at)
                add_diagonal<arithmetic, diagonal_stored, conjugation>(a[p + e], own, &acc);
            else
                act_twice<arithmetic, conjugation>(a[p + e], t, x + c[e], y + c[e], &acc);
        }
        *own_y = multiply_add<arithmetic>(acc, alpha, before);
        first += upper;
        x += upper;
        y += upper;
        count = upper ? count - 1 : count + 1;
    }
    return i;
}

/* short_rows for the lengths that common grids have in one triangle: 3 (2D, 5 points), 4 (3D, 7 points), 5 (2D, 9 points). Returns i for
   other lengths. */
template <typename arithmetic, typename value_t, int side, int conjugation>
inline int64_t short_rows_of(int64_t length, const mirrored_call<value_t> *s, int64_t i, int64_t last)
{
    if (length == 3) return short_rows<arithmetic, value_t, side, conjugation, 3>(s, i, last);
    if (length == 4) return short_rows<arithmetic, value_t, side, conjugation, 4>(s, i, last);
    if (length == 5) return short_rows<arithmetic, value_t, side, conjugation, 5>(s, i, last);
    return i;
}

/* The rows from i to `last`, up to the first entry that is neither the diagonal nor one of the side in a row at hand: its place, or a row
   behind `last`. Nearly all rows end within. Short rows are paid for by the instruction, so that nothing else is known here, there is no
   call, and the usual rows, adjacent and with a beta of 0, have a body of their own. A lower row is the first to reach its entry of y;
   upper rows reach ahead, so that theirs is started before. */
template <typename arithmetic, typename value_t, int side, int diagonal, int conjugation, bool usual>
row_place<value_t> mirrored_sweep(const mirrored_call<value_t> *s, int64_t i, int64_t last)
{
    constexpr bool upper = side == side_upper;
    const int64_t *const ja = s->ja, *const pntrb = s->pntrb, *const pntre = s->pntre;
    const int64_t base = pntrb[0], r1 = s->r1, started = s->started;
    const value_t *const a = s->a, *const x = s->x, alpha = s->alpha, beta = s->beta;
    value_t *const __restrict y = s->y;
    int64_t p = pntrb[i - 1] - base;
    for (; i <= last; ++i) {
        if constexpr (usual && arithmetic::real && diagonal == diagonal_stored) {
            const int64_t next = short_rows_of<arithmetic, value_t, side, conjugation>(pntre[i - 1] - base - p, s, i, last);
            if (next > last) return {next, p, value_t(0)};
            if (next > i) p = pntrb[next - 1] - base;
            i = next;
        }
        if (!usual) p = pntrb[i - 1] - base;
        const int64_t end = pntre[i - 1] - base, first = upper ? i + 1 : r1, count = upper ? started - i : i - r1;
        const value_t t = row_factor<diagonal, arithmetic>(x[i - 1], alpha);
        value_t acc = diagonal == diagonal_unit ? x[i - 1] : value_t(0);
        const value_t before = upper ? y[i - 1] : !usual && beta != value_t(0) ? arithmetic::multiply(beta, y[i - 1]) : value_t(0);
        if (end - p < long_row)
            prefetch_ahead(a, ja, p);
        else {
            if (upper && ja[p] == i) add_diagonal<arithmetic, diagonal, conjugation>(a[p++], x[i - 1], &acc);
            const column_span<value_t> span = {first, count, x + (first - 1), y + (first - 1)};
            const row_place<value_t> place = add_fours<arithmetic, conjugation>(a, ja, row_place<value_t>{i, p, acc}, end, t, span);
            p = place.p;
            acc = place.acc;
        }
        for (; p < end; ++p) {
            const int64_t c = ja[p];
            if (static_cast<uint64_t>(c - first) < static_cast<uint64_t>(count))
                act_twice<arithmetic, conjugation>(a[p], t, x + (c - 1), y + (c - 1), &acc);
            else if (c == i)
                add_diagonal<arithmetic, diagonal, conjugation>(a[p], x[i - 1], &acc);
            else
                return {i, p, acc};
        }
        y[i - 1] = multiply_add<arithmetic>(acc, alpha, before);
    }
    return {i, p, value_t(0)};
}

template <typename arithmetic, typename value_t, int side, int diagonal, int conjugation>
void mirrored_rows(int64_t r1, int64_t r2, value_t alpha, const value_t *a, const int64_t *ja, const int64_t *pntrb, const int64_t *pntre,
                   const value_t *x, value_t *y, value_t beta, csr_outside<value_t> *outside)
{
    constexpr bool upper = side == side_upper;
    constexpr auto usual_sweep = mirrored_sweep<arithmetic, value_t, side, diagonal, conjugation, true>;
    constexpr auto sweep = mirrored_sweep<arithmetic, value_t, side, diagonal, conjugation, false>;
    const bool usual = pntre == pntrb + 1 && (upper || beta == value_t(0));
    mirrored_call<value_t> s = {r1, r2, r1 - 1, alpha, beta, a, ja, pntrb, pntre, x, y, outside};
    for (int64_t i = r1; i <= r2;) {
        if (upper && i > s.started) start_up_to<arithmetic>(&s, i);
        const int64_t last = upper ? s.started : r2;
        const row_place<value_t> place = (usual ? usual_sweep : sweep)(&s, i, last);
        i = place.i > last ? place.i : finish_rows<arithmetic, value_t, side, diagonal, conjugation>(&s, place);
    }
}

template <typename value_t>
void add_vector(int64_t length, const value_t *v, value_t *__restrict y)
{
    for (int64_t e = 0; e < length; ++e) y[e] = y[e] + v[e];
}

/* The table of one value type. For real values all conjugations are one body. */
template <typename arithmetic>
constexpr csr_bodies<typename arithmetic::value> body_table()
{
    using value_t = typename arithmetic::value;
    constexpr bool conj = !arithmetic::real;
    constexpr int here = conj ? conjugate_entry : conjugate_none, there = conj ? conjugate_mirror : conjugate_none;
#define WKL_ROW_BODIES(kernel, side, unit)                                                                                                 \
    {                                                                                                                                      \
        {kernel<arithmetic, value_t, side, diagonal_stored, false>, kernel<arithmetic, value_t, side, diagonal_stored, conj>},             \
            {kernel<arithmetic, value_t, side, unit, false>, kernel<arithmetic, value_t, side, unit, conj>},                               \
    }
#define WKL_MIRROR_BODIES(side, diagonal)                                                                                                  \
    {                                                                                                                                      \
        mirrored_rows<arithmetic, value_t, side, diagonal, conjugate_none>, mirrored_rows<arithmetic, value_t, side, diagonal, here>,      \
            mirrored_rows<arithmetic, value_t, side, diagonal, there>, mirrored_rows<arithmetic, value_t, side, diagonal, here | there>,   \
    }
    return {
        {WKL_ROW_BODIES(gather_rows, side_lower, diagonal_unit), WKL_ROW_BODIES(gather_rows, side_upper, diagonal_unit),
         WKL_ROW_BODIES(gather_rows, side_all, diagonal_stored), WKL_ROW_BODIES(gather_rows, side_diagonal, diagonal_unit)},
        {WKL_ROW_BODIES(scatter_rows, side_lower, diagonal_unit), WKL_ROW_BODIES(scatter_rows, side_upper, diagonal_unit),
         WKL_ROW_BODIES(scatter_rows, side_all, diagonal_stored)},
        {{WKL_MIRROR_BODIES(side_lower, diagonal_stored), WKL_MIRROR_BODIES(side_lower, diagonal_unit),
          WKL_MIRROR_BODIES(side_lower, diagonal_skew)},
         {WKL_MIRROR_BODIES(side_upper, diagonal_stored), WKL_MIRROR_BODIES(side_upper, diagonal_unit),
          WKL_MIRROR_BODIES(side_upper, diagonal_skew)}},
        scale_vector<arithmetic, value_t>,
        add_vector<value_t>,
    };
#undef WKL_ROW_BODIES
#undef WKL_MIRROR_BODIES
}

} // namespace
