/* Dense operations on blocks. Two doors:
   - the frame (wkl_blas_..., wkl_lapack_...): the published operations, which decide on threads, partition the result and may hand large
     blocks to the BLAS library;
   - the serial kernels (kernel_...): the hot loops of the sparse factorization and of the solves, without thread decisions, service calls
     or allocation.
   Everything is a template over value_t (double, float, std::complex<double>, std::complex<float>) and instantiated in this room.
   Blocks are column-major, entry (i, j), counted from 0, at a[i + j * lda]; sizes are in entries. Sizes below 1 mean that nothing is done.
   With a reproducibility branch set, the bits of every result depend on the branch and the operands alone. */
#pragma once

#include <complex>
#include <cstdint>

/* Whether the transpose of a mirrored operand also conjugates. For the real types the two are the same. */
enum class mirror : int32_t { symmetric, hermitian };

/* Which part of the result an update touches: the whole q by k block, or its lower trapezoid (entries with i >= j; the others are neither
   read nor written). */
enum class update_shape : int32_t { full, lower };

template <typename value_t>
struct real_type_of {
    using type = value_t;
};
template <typename real_t>
struct real_type_of<std::complex<real_t>> {
    using type = real_t;
};
template <typename value_t>
using real_of = typename real_type_of<value_t>::type;

/* ======================================= the frame ======================================= */
/* Letters are compared without their case. No argument is checked. The outcome is that of the published routine of the same name; work
   memory that cannot be had is reported once through service_check_null and a way that needs none is taken. */

/* c = alpha * op(a) * op(b) + beta * c, c m by n. beta 0: c is not read. */
template <typename value_t>
void wkl_blas_gemm(char transa, char transb, int64_t m, int64_t n, int64_t k, value_t alpha, const value_t *a, int64_t lda,
                   const value_t *b, int64_t ldb, value_t beta, value_t *c, int64_t ldc);
/* The layer below: decides on threads and partitions. */
template <typename value_t>
void wkl_blas_gemm_host(char transa, char transb, int64_t m, int64_t n, int64_t k, value_t alpha, const value_t *a, int64_t lda,
                        const value_t *b, int64_t ldb, value_t beta, value_t *c, int64_t ldc);

/* b = alpha * inverse(op(a)) * b (side L) or alpha * b * inverse(op(a)) (side R); b m by n, a triangular. */
template <typename value_t>
void wkl_blas_trsm(char side, char uplo, char transa, char diag, int64_t m, int64_t n, value_t alpha, const value_t *a, int64_t lda,
                   value_t *b, int64_t ldb);
template <typename value_t>
void wkl_blas_trsm_host(char side, char uplo, char transa, char diag, int64_t m, int64_t n, value_t alpha, const value_t *a, int64_t lda,
                        value_t *b, int64_t ldb);

/* y = alpha * op(a) * x + beta * y; increments are positive. */
template <typename value_t>
void wkl_blas_gemv(char trans, int64_t m, int64_t n, value_t alpha, const value_t *a, int64_t lda, const value_t *x, int64_t incx,
                   value_t beta, value_t *y, int64_t incy);

/* One triangle of c = alpha * op(a) * op(a)' + beta * c, c n by n; only that triangle is read or written. ' conjugates for
   mirror::hermitian. trans N: a is n by k; otherwise k by n. */
template <typename value_t, mirror kind>
void wkl_blas_syrk(char uplo, char trans, int64_t n, int64_t k, value_t alpha, const value_t *a, int64_t lda, value_t beta, value_t *c,
                   int64_t ldc);

/* One triangle of a = a + alpha * x * x' . */
template <typename value_t, mirror kind>
void wkl_blas_syr(char uplo, int64_t n, value_t alpha, const value_t *x, int64_t incx, value_t *a, int64_t lda);

/* Sum of x(i) * y(i), without conjugation. */
template <typename value_t>
value_t wkl_blas_dot(int64_t n, const value_t *x, int64_t incx, const value_t *y, int64_t incy);

/* LU with row exchanges, a m by n. pivots[min(m, n)] out: 1-based row exchanged with. info out: 0, or k > 0 when pivot k is exactly 0
   (the first such; the factorization is completed). */
template <typename value_t>
void wkl_lapack_getrf(int64_t m, int64_t n, value_t *a, int64_t lda, int64_t *pivots, int64_t *info);
/* The inner panel of getrf. */
template <typename value_t>
void wkl_lapack_getrf_ib(int64_t m, int64_t n, value_t *a, int64_t lda, int64_t *pivots, int64_t *info);

/* Cholesky factor of a symmetric (Hermitian) positive definite a in its triangle uplo; the other triangle is neither read nor written.
   info out: 0, or k > 0 when pivot k is not positive or not a number; columns before k are then factored. */
template <typename value_t>
void wkl_lapack_potrf(char uplo, int64_t n, value_t *a, int64_t lda, int64_t *info);

/* Row exchanges first..last (1-based, in that order; backwards when step is negative) of pivots on the n columns of a. Entries of pivots
   are 1-based rows. */
template <typename value_t>
void wkl_lapack_laswp(int64_t n, value_t *a, int64_t lda, int64_t first, int64_t last, const int64_t *pivots, int64_t step);

/* ======================================= serial kernels ======================================= */
/* `work` of a kernel: dense_work_size() bytes, 64-byte aligned, private to the calling thread; contents are of no meaning between calls.
   Null is allowed everywhere: then blocks are packed strip by strip on the stack, with the same bits and less speed for large operands. */
int64_t dense_work_size();

/* c = alpha * op(a) * op(b) + beta * c, as wkl_blas_gemm. */
template <typename value_t>
void kernel_gemm(char transa, char transb, int64_t m, int64_t n, int64_t k, value_t alpha, const value_t *a, int64_t lda, const value_t *b,
                 int64_t ldb, value_t beta, value_t *c, int64_t ldc, void *work);

/* b = alpha * inverse(op(a)) * b or alpha * b * inverse(op(a)), as wkl_blas_trsm. */
template <typename value_t>
void kernel_trsm(char side, char uplo, char transa, char diag, int64_t m, int64_t n, value_t alpha, const value_t *a, int64_t lda,
                 value_t *b, int64_t ldb, void *work);

/* One source of an update: w is q by depth, v is k by depth (rows of the source that meet the k columns of the result). */
template <typename value_t>
struct update_segment {
    const value_t *w;
    int64_t ldw;
    const value_t *v;
    int64_t ldv;
    int64_t depth;
};

/* c -= sum over the segments of w * v', c q by k, in one pass over c; q >= k for the lower shape. ' conjugates for mirror::hermitian.
   Cholesky: v is w itself (its first k rows). Scaled sources (L D L', both sides of LU): v is the scaled panel or the other factor; only
   its first k rows are needed. */
template <typename value_t, mirror kind>
void kernel_update(update_shape shape, int64_t q, int64_t k, int64_t segment_count, const update_segment<value_t> *segments, value_t *c,
                   int64_t ldc, void *work);

/* The same with scattered rows and columns: entry (i, j) of the product goes to c[row_position[i] + column_position[j] * ldc]. Positions
   count from 0 and ascend strictly. For the lower shape the entries with i >= j are those that count, as above. Cheap for tiny operands;
   takes large ones in blocks, with no product buffer. */
template <typename value_t, mirror kind>
void kernel_update_scatter(update_shape shape, int64_t q, int64_t k, int64_t segment_count, const update_segment<value_t> *segments,
                           const int64_t *row_position, const int64_t *column_position, value_t *c, int64_t ldc, void *work);

/* Columns of a result that lie in several blocks: entry (i, j) of the product goes to c[column_start[j] + row_position[i]], or to
   c[column_start[j] + i] when row_position is null. Entries with i < first_row[j] are neither read nor written. row_position and first_row
   ascend; starts may be negative. */
struct update_span {
    const int64_t *row_position; /* [q] */
    const int64_t *column_start; /* [k] */
    const int64_t *first_row;    /* [k] */
};

/* kernel_update into the blocks of a span: what is packed of w serves all of them. */
template <typename value_t, mirror kind>
void kernel_update_span(int64_t q, int64_t k, int64_t segment_count, const update_segment<value_t> *segments, const update_span &span,
                        value_t *c, void *work);

/* One source into contiguous rows and columns. */
template <typename value_t, mirror kind>
inline void kernel_syrk_lower(int64_t q, int64_t k, int64_t depth, const value_t *w, int64_t ldw, const value_t *v, int64_t ldv, value_t *c,
                              int64_t ldc, void *work)
{
    const update_segment<value_t> segment = {w, ldw, v, ldv, depth};
    kernel_update<value_t, kind>(update_shape::lower, q, k, 1, &segment, c, ldc, work);
}

/* Cholesky factor of the lower triangle (Hermitian for the complex types). Returns 0, or k > 0 when pivot k is not positive or not a
 * number. */
template <typename value_t>
int64_t kernel_potrf(int64_t n, value_t *a, int64_t lda, void *work);

/* Cholesky factor of a supernode: the n by n lower triangle at the head of a, then the rows n..m-1 below it times the inverse of its
   conjugated transpose. Returns as kernel_potrf; the rows below are then undefined. */
template <typename value_t>
int64_t kernel_potrf_panel(int64_t m, int64_t n, value_t *a, int64_t lda, void *work);

/* Cholesky factorization of supernodes one after the other, each of which subtracts its products from the blocks behind it. */
template <typename value_t>
struct pushing_run {
    const int32_t *word; /* of the next supernode, which move on: columns w; rows under them q; for k = 1..q, for i = k..q: place in lnz,
                            from 0, of the entry in the row of i and the column of k */
    value_t *lnz;
    int64_t at, end; /* place of the next block, which moves on; those from `end` on are not begun */
    int64_t columns; /* finished; added to */
};
/* Returns 0, or the number of the column, counted by run->columns, whose pivot is not positive or not a number: the run then stands before
   its supernode. */
template <typename value_t>
int64_t kernel_factor_pushing(pushing_run<value_t> *run, void *work);

/* LU of an m by n block, row exchanges inside it, pivots[min(m, n)] as wkl_lapack_getrf. A pivot whose magnitude is at most epsilon, after
   the best row was exchanged in, is replaced by that magnitude with its own sign (direction for complex values, + for 0) and counted in
   *perturbed, which is added to. A negative epsilon replaces nothing. Returns 0, or k > 0 when pivot k stayed exactly 0 (the first such).
 */
template <typename value_t>
int64_t kernel_getrf(int64_t m, int64_t n, value_t *a, int64_t lda, int64_t *pivots, real_of<value_t> epsilon, int64_t *perturbed,
                     void *work);

/* Row exchanges, as wkl_lapack_laswp. */
template <typename value_t>
void kernel_laswp(int64_t n, value_t *a, int64_t lda, int64_t first, int64_t last, const int64_t *pivots, int64_t step);

/* ---- one vector; memory-bound, so each panel is read once ---- */

/* Solve l * x = b in place with the lower triangle l (n by n); unit: the diagonal is taken as 1 and not read. */
template <typename value_t>
void kernel_solve_lower(bool unit, int64_t n, const value_t *l, int64_t ld, value_t *x);

/* Solve l' * x = b in place; ' conjugates for mirror::hermitian. */
template <typename value_t, mirror kind>
void kernel_solve_lower_transposed(bool unit, int64_t n, const value_t *l, int64_t ld, value_t *x);

/* Forward step through a panel of q rows and w columns: vector[row[i] - 1] -= sum over j of panel(i, j) * x[j]. row holds 1-based ascending
   numbers. */
template <typename value_t>
void kernel_panel_forward(int64_t q, int64_t w, const value_t *panel, int64_t ld, const value_t *x, const int64_t *row, value_t *vector);

/* Backward step: x[j] -= sum over i of panel(i, j) * vector[row[i] - 1]; the panel is conjugated for mirror::hermitian. */
template <typename value_t, mirror kind>
void kernel_panel_backward(int64_t q, int64_t w, const value_t *panel, int64_t ld, const int64_t *row, const value_t *vector, value_t *x);

/* Supernodes of one column: supernode s has the column first_column[s - 1], and the rows list[list_start[s - 1] - 1 ..], its own first. All
   numbers count from 1. */
template <typename value_t>
struct column_run {
    const int64_t *first_column, *list_start, *list;
    const int64_t *diagonal_start; /* by column: the diagonal entry is diagonal[diagonal_start[j - 1] - 1] */
    const value_t *diagonal;
    const int64_t *panel_start; /* by column: entries for the rows after the own from panel[panel_start[j - 1] - 1 + panel_skip] on */
    const value_t *panel;
    int64_t panel_skip;
    bool before, after; /* divide by the diagonal before, or after the panel; not both */
    mirror kind;        /* backward: panel, and a diagonal taken after it, are conjugated for mirror::hermitian */
    int64_t row_limit;  /* forward: supernodes that reach beyond this row end the run */
    value_t *x;         /* entry j at x[j - 1] */
};

/* Forward and backward steps of the supernodes from `number` on, up to last or down to first, as far as they have one column. Returns the
   first that is not done. */
template <typename value_t>
int64_t kernel_columns_forward(const column_run<value_t> *run, int64_t number, int64_t last);
template <typename value_t>
int64_t kernel_columns_backward(const column_run<value_t> *run, int64_t number, int64_t first);

/* A Cholesky factor of narrow supernodes. */
template <typename value_t>
struct narrow_factor {
    const int64_t *first_column, *list_start, *list; /* as above */
    const int64_t *column_start; /* lnz[column_start[j - 1] - 1] is row 1 of the block that holds column j, in that column */
    const value_t *lnz;
    int64_t row_limit; /* forward: rows past this one, at least the last of the supernodes, belong to beyond instead of x */
    value_t *beyond;
};
/* Steps of the supernodes first..last forward with L, and of last..first backward with its conjugated transpose. */
template <typename value_t>
void kernel_narrow_forward(const narrow_factor<value_t> *f, int64_t first, int64_t last, value_t *x);
template <typename value_t>
void kernel_narrow_backward(const narrow_factor<value_t> *f, int64_t first, int64_t last, value_t *x);

/* ---- several vectors, interleaved: entry i of vector k at x[i * stride + k] ---- */

/* Entries that a row of interleaved vectors is a multiple of; the filling takes part in the arithmetic and means nothing. */
template <typename value_t>
inline constexpr int64_t interleaved_lanes = 32 / static_cast<int64_t>(sizeof(value_t));

/* What is read of a diagonal block; the upper triangle has its diagonal. */
enum class block_triangle : int32_t { lower, lower_unit, upper };

/* One supernode and its vectors. */
template <typename value_t>
struct interleaved_block {
    block_triangle triangle;
    mirror kind; /* backward: lower triangle and panel are transposed, and conjugated for mirror::hermitian */
    int64_t columns, below;
    const value_t *diagonal; /* columns by columns */
    int64_t diagonal_ld;
    const value_t *panel; /* below by columns */
    int64_t panel_ld;
    const int64_t *row; /* [below] */
    int64_t width;      /* entries of a row that are worked on; multiple of interleaved_lanes, as stride */
    int64_t stride;
    value_t *own;     /* [columns * stride] */
    value_t *vectors; /* row i of the panel belongs to the row of vectors at vectors + row[i] * stride */
    int64_t near;     /* forward: the rows from this one on, from 0, belong to the same rows of beyond instead */
    value_t *beyond;
};

/* own = inverse(l) own, for an upper triangle inverse(u') own; then vectors -= panel * own. */
template <typename value_t>
void kernel_interleaved_forward(const interleaved_block<value_t> *block);

/* own -= panel' * vectors; then own = inverse(l') own, for an upper triangle inverse(u) own. */
template <typename value_t>
void kernel_interleaved_backward(const interleaved_block<value_t> *block);
