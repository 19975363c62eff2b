/* The row-range kernels behind the sparse products, one table of bodies for each processor family. Inside this room only. */
#pragma once

#include <cstdint>

/* Work on rows r1..r2 (1-based, none when r2 < r1). The storage is that of spblas.h; y starts at entry `origin`, so that column c stands at
   y[c - origin], and in the mirrored bodies x does too; the others have all of x.
   Bodies that write into foreign rows first scale `scale_length` entries of y by beta (0 stores zeros, whatever was there) and then add;
   the others scale each of their rows as they store it and do not read origin and scale_length. */
template <typename value_t>
using csr_row_body = void(int64_t r1, int64_t r2, int64_t origin, int64_t scale_length, value_t alpha, const value_t *a, const int64_t *ja,
                          const int64_t *pntrb, const int64_t *pntre, const value_t *x, value_t *y, value_t beta);

/* Add `count` vectors to y[length], the one of table[0] first, one addition at a time; vector s is read from entry offset + s * step. */
template <typename value_t>
using csr_reduce_body = void(int64_t length, int64_t count, const value_t *const *table, int64_t offset, int64_t step, value_t *y);

enum : int { side_lower = 0, side_upper = 1, side_all = 2, side_diagonal = 3 };
enum : int { diagonal_stored = 0, diagonal_unit = 1, diagonal_skew = 2 }; /* skew: no diagonal, and the mirror image is negative */
enum : int { conjugate_none = 0, conjugate_entry = 1, conjugate_mirror = 2, conjugate_both = 3 };

template <typename value_t>
struct csr_bodies {
    csr_row_body<value_t> *gather[4][2][2];   /* [side][diagonal][conjugated] y[i] from x[c] */
    csr_row_body<value_t> *scatter[3][2][2];  /* [side][diagonal][conjugated] y[c] from x[i] */
    csr_row_body<value_t> *mirrored[2][3][4]; /* [side][diagonal][conjugate_...] both at once, for one stored triangle */
    csr_reduce_body<value_t> *reduce;
};

/* One table for each level of instructions, all from csr_bodies_family.cpp. */
extern const csr_bodies<double> csr_bodies_sse2, csr_bodies_sse3, csr_bodies_ssse3, csr_bodies_sse42, csr_bodies_avx, csr_bodies_avx2;

/* The table for this process: by service_cpu_type() for double, the plain one for the other types. */
template <typename value_t>
const csr_bodies<value_t> &csr_bodies_chosen();
template <>
const csr_bodies<double> &csr_bodies_chosen<double>();
