/* The row-range kernels behind the sparse products, one table of bodies for each processor family. Inside this room only. */
#pragma once

#include <cstdint>

/* Work on rows r1..r2 (1-based, none when r2 < r1) with the storage of spblas.h. Bodies that compute the entries of their own rows scale
   each by beta as they store it; those that add to the entries of other rows do not read beta. */
template <typename value_t>
using csr_row_body = void(int64_t r1, int64_t r2, value_t alpha, const value_t *a, const int64_t *ja, const int64_t *pntrb,
                          const int64_t *pntre, const value_t *x, value_t *y, value_t beta);

/* The sums that rows r1..r2 of a stored triangle send to the rows before r1 (lower) or behind r2 (upper). */
template <typename value_t>
struct csr_outside {
    value_t *value;                /* column c stands at value[c - room_first] */
    int64_t room_first, room_last; /* columns that there is room for: all up to r1 - 1, or all from r2 + 1 on */
    int64_t first, last;           /* columns that were reached, none when last < first; only their entries hold anything. They stand next
                                      to the rows: last is r1 - 1, or first is r2 + 1. */
};

/* Work on rows r1..r2 of a stored triangle: entries r1..r2 of y are scaled by beta as they are first reached and added to, what belongs to
   other rows is added to `outside`, whose reach grows as needed, over zeros. */
template <typename value_t>
using csr_mirror_body = void(int64_t r1, int64_t r2, value_t alpha, const value_t *a, const int64_t *ja, const int64_t *pntrb,
                             const int64_t *pntre, const value_t *x, value_t *y, value_t beta, csr_outside<value_t> *outside);

/* y[length] *= beta; 0 stores zeros, whatever was there. */
template <typename value_t>
using csr_scale_body = void(int64_t length, value_t beta, value_t *y);

/* y[length] += v */
template <typename value_t>
using csr_add_body = void(int64_t length, const value_t *v, value_t *y);

enum : int { side_lower = 0, side_upper = 1, side_all = 2, side_diagonal = 3 };
enum : int { diagonal_stored = 0, diagonal_unit = 1, diagonal_skew = 2 }; /* skew: no diagonal, and the mirror image is negative */
enum : int { conjugate_none = 0, conjugate_entry = 1, conjugate_mirror = 2, conjugate_both = 3 };

template <typename value_t>
struct csr_bodies {
    csr_row_body<value_t> *gather[4][2][2];      /* [side][diagonal][conjugated] y[i] from x[c] */
    csr_row_body<value_t> *scatter[3][2][2];     /* [side][diagonal][conjugated] y[c] from x[i] */
    csr_mirror_body<value_t> *mirrored[2][3][4]; /* [side][diagonal][conjugate_...] both at once, for one stored triangle */
    csr_scale_body<value_t> *scale;
    csr_add_body<value_t> *add;
};

/* One table for each level of instructions, all from csr_bodies_family.cpp. */
extern const csr_bodies<double> csr_bodies_sse2, csr_bodies_sse3, csr_bodies_ssse3, csr_bodies_sse42, csr_bodies_avx, csr_bodies_avx2;

/* The table for this process: by service_cpu_type() for double, the plain one for the other types. */
template <typename value_t>
const csr_bodies<value_t> &csr_bodies_chosen();
template <>
const csr_bodies<double> &csr_bodies_chosen<double>();
