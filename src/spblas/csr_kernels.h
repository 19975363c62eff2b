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

/* The sweeps below exist twice. With `adjacent` rows, each beginning where the one before ends, the position is carried from row to row
   instead of being loaded: a load between the stores to y costs up to a third of the time of short rows. */

/* y[i] = alpha * (row i of the side) * x + beta * y[i]. One accumulator a row, in stored order. */
template <typename arithmetic, typename value_t, int side, int diagonal, bool conjugated, bool adjacent>
void gather_sweep(int64_t r1, int64_t r2, value_t alpha, const value_t *a, const int64_t *ja, const int64_t *pntrb, const int64_t *pntre,
                  const value_t *x, value_t *__restrict y, value_t beta)
{
    const int64_t base = pntrb[0];
    int64_t p = r1 <= r2 ? pntrb[r1 - 1] - base : 0;
    for (int64_t i = r1; i <= r2; ++i) {
        if constexpr (!adjacent) p = pntrb[i - 1] - base;
        const int64_t end = pntre[i - 1] - base;
        value_t acc = value_t(0);
        if constexpr (diagonal == diagonal_unit) acc = x[i - 1];
        for (; p < end; ++p) {
            const int64_t c = ja[p];
            if (off_diagonal<side>(c, i) || (side != side_all && diagonal == diagonal_stored && c == i)) {
                acc = acc + arithmetic::multiply(entry_value<arithmetic, conjugated>(a[p]), x[c - 1]);
            }
        }
        const value_t kept = beta == value_t(0) ? value_t(0) : arithmetic::multiply(beta, y[i - 1]);
        y[i - 1] = multiply_add<arithmetic>(acc, alpha, kept);
    }
}

/* y[c] += alpha * x[i] * v for the entries of the side. */
template <typename arithmetic, typename value_t, int side, int diagonal, bool conjugated, bool adjacent>
void scatter_sweep(int64_t r1, int64_t r2, int64_t origin, value_t alpha, const value_t *a, const int64_t *ja, const int64_t *pntrb,
                   const int64_t *pntre, const value_t *x, value_t *__restrict y)
{
    const int64_t base = pntrb[0];
    int64_t p = r1 <= r2 ? pntrb[r1 - 1] - base : 0;
    for (int64_t i = r1; i <= r2; ++i) {
        if constexpr (!adjacent) p = pntrb[i - 1] - base;
        const int64_t end = pntre[i - 1] - base;
        const value_t t = arithmetic::multiply(x[i - 1], alpha);
        if constexpr (diagonal == diagonal_unit) y[i - origin] = y[i - origin] + t;
        for (; p < end; ++p) {
            const int64_t c = ja[p];
            if (off_diagonal<side>(c, i) || (side != side_all && diagonal == diagonal_stored && c == i)) {
                y[c - origin] = multiply_add<arithmetic>(t, entry_value<arithmetic, conjugated>(a[p]), y[c - origin]);
            }
        }
    }
}

/* Ask for the entries that stand 128 places ahead: short rows leave the hardware's own prefetching behind (5 % on 3D grids). The address
   may lie past the end, which a prefetch does not mind. */
template <typename value_t>
inline void prefetch_ahead(const value_t *a, const int64_t *ja, int64_t p)
{
    const uintptr_t ahead = static_cast<uintptr_t>(p) + 128;
    __builtin_prefetch(reinterpret_cast<const void *>(reinterpret_cast<uintptr_t>(a) + ahead * sizeof(value_t)));
    __builtin_prefetch(reinterpret_cast<const void *>(reinterpret_cast<uintptr_t>(ja) + ahead * sizeof(int64_t)));
}

/* Each stored entry acts twice: as it stands for row i, and mirrored for row c. */
template <typename arithmetic, typename value_t, int side, int diagonal, int conjugation, bool adjacent>
void mirrored_sweep(int64_t r1, int64_t r2, int64_t origin, value_t alpha, const value_t *a, const int64_t *ja, const int64_t *pntrb,
                    const int64_t *pntre, const value_t *x, value_t *__restrict y)
{
    constexpr bool conjugate_here = (conjugation & conjugate_entry) != 0;
    constexpr bool conjugate_there = (conjugation & conjugate_mirror) != 0;
    const int64_t base = pntrb[0];
    int64_t p = r1 <= r2 ? pntrb[r1 - 1] - base : 0;
    for (int64_t i = r1 - origin; i <= r2 - origin; ++i) { /* i and c count from `origin` */
        if constexpr (!adjacent) p = pntrb[i + origin - 1] - base;
        prefetch_ahead(a, ja, p);
        const int64_t end = pntre[i + origin - 1] - base;
        const value_t scaled = arithmetic::multiply(x[i], alpha);
        const value_t t = diagonal == diagonal_skew ? -scaled : scaled;
        value_t acc = value_t(0);
        if constexpr (diagonal == diagonal_unit) acc = x[i];
        for (; p < end; ++p) {
            const int64_t c = ja[p] - origin;
            const value_t v = a[p];
            if (off_diagonal<side>(c, i)) {
                y[c] = multiply_add<arithmetic>(t, entry_value<arithmetic, conjugate_there>(v), y[c]);
                acc = acc + arithmetic::multiply(x[c], entry_value<arithmetic, conjugate_here>(v));
            } else if (diagonal == diagonal_stored && c == i) {
                acc = acc + arithmetic::multiply(entry_value<arithmetic, conjugate_here>(v), x[c]);
            }
        }
        y[i] = multiply_add<arithmetic>(acc, alpha, y[i]);
    }
}

/* ---- the bodies: choose a sweep by the layout of the row pointers ---- */

template <typename arithmetic, typename value_t, int side, int diagonal, bool conjugated>
void gather_rows(int64_t r1, int64_t r2, int64_t, int64_t, value_t alpha, const value_t *a, const int64_t *ja, const int64_t *pntrb,
                 const int64_t *pntre, const value_t *x, value_t *y, value_t beta)
{
    constexpr auto adjacent_sweep = gather_sweep<arithmetic, value_t, side, diagonal, conjugated, true>;
    constexpr auto sweep = gather_sweep<arithmetic, value_t, side, diagonal, conjugated, false>;
    (pntre == pntrb + 1 ? adjacent_sweep : sweep)(r1, r2, alpha, a, ja, pntrb, pntre, x, y, beta);
}

template <typename arithmetic, typename value_t, int side, int diagonal, bool conjugated>
void scatter_rows(int64_t r1, int64_t r2, int64_t origin, int64_t scale_length, value_t alpha, const value_t *a, const int64_t *ja,
                  const int64_t *pntrb, const int64_t *pntre, const value_t *x, value_t *y, value_t beta)
{
    constexpr auto adjacent_sweep = scatter_sweep<arithmetic, value_t, side, diagonal, conjugated, true>;
    constexpr auto sweep = scatter_sweep<arithmetic, value_t, side, diagonal, conjugated, false>;
    scale_vector<arithmetic>(scale_length, beta, y);
    (pntre == pntrb + 1 ? adjacent_sweep : sweep)(r1, r2, origin, alpha, a, ja, pntrb, pntre, x, y);
}

template <typename arithmetic, typename value_t, int side, int diagonal, int conjugation>
void mirrored_rows(int64_t r1, int64_t r2, int64_t origin, int64_t scale_length, value_t alpha, const value_t *a, const int64_t *ja,
                   const int64_t *pntrb, const int64_t *pntre, const value_t *x, value_t *y, value_t beta)
{
    constexpr auto adjacent_sweep = mirrored_sweep<arithmetic, value_t, side, diagonal, conjugation, true>;
    constexpr auto sweep = mirrored_sweep<arithmetic, value_t, side, diagonal, conjugation, false>;
    scale_vector<arithmetic>(scale_length, beta, y);
    (pntre == pntrb + 1 ? adjacent_sweep : sweep)(r1, r2, origin, alpha, a, ja, pntrb, pntre, x, y);
}

/* Vector by vector over pieces that stay in the first-level cache: the same additions in the same order as entry by entry. */
template <typename value_t>
void reduce_vectors(int64_t length, int64_t count, const value_t *const *table, int64_t offset, int64_t step, value_t *__restrict y)
{
    constexpr int64_t piece = 1024;
    for (int64_t first = 0; first < length; first += piece) {
        const int64_t last = length - first < piece ? length : first + piece;
        for (int64_t s = 0; s < count; ++s) {
            const value_t *v = table[s] + offset + s * step;
            for (int64_t e = first; e < last; ++e) y[e] = y[e] + v[e];
        }
    }
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
        reduce_vectors<value_t>,
    };
#undef WKL_ROW_BODIES
#undef WKL_MIRROR_BODIES
}

} // namespace
