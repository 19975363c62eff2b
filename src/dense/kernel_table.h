/* The bodies of one processor family, as one table of pointers for each value type. Only this room sees it. */
#pragma once

#include "dense/dense.h"

/* Arguments as the kernel_ functions of dense.h. The mirror kind travels as a value here: it only sets signs once per call. */
template <typename value_t>
struct kernel_table {
    void (*gemm)(char transa, char transb, int64_t m, int64_t n, int64_t k, value_t alpha, const value_t *a, int64_t lda, const value_t *b,
                 int64_t ldb, value_t beta, value_t *c, int64_t ldc, void *work);
    void (*trsm)(char side, char uplo, char transa, char diag, int64_t m, int64_t n, value_t alpha, const value_t *a, int64_t lda,
                 value_t *b, int64_t ldb, void *work);
    void (*update)(mirror kind, update_shape shape, int64_t q, int64_t k, int64_t segment_count, const update_segment<value_t> *segments,
                   const int64_t *row_position, const int64_t *column_position, value_t *c, int64_t ldc, void *work);
    void (*update_span)(mirror kind, int64_t q, int64_t k, int64_t segment_count, const update_segment<value_t> *segments,
                        const update_span &span, value_t *c, void *work);
    int64_t (*potrf_panel)(int64_t m, int64_t n, value_t *a, int64_t lda, void *work);
    int64_t (*factor_pushing)(pushing_run<value_t> *run, void *work);
    int64_t (*getrf)(int64_t m, int64_t n, value_t *a, int64_t lda, int64_t *pivots, real_of<value_t> epsilon, int64_t *perturbed,
                     void *work);
    void (*gemv)(char trans, int64_t m, int64_t n, value_t alpha, const value_t *a, int64_t lda, const value_t *x, int64_t incx,
                 value_t beta, value_t *y, int64_t incy);
    value_t (*dot)(int64_t n, const value_t *x, const value_t *y);
    void (*axpy)(int64_t n, value_t alpha, const value_t *x, value_t *y);
    void (*solve_lower)(bool unit, int64_t n, const value_t *l, int64_t ld, value_t *x);
    void (*solve_lower_transposed)(mirror kind, bool unit, int64_t n, const value_t *l, int64_t ld, value_t *x);
    void (*panel_forward)(int64_t q, int64_t w, const value_t *panel, int64_t ld, const value_t *x, const int64_t *row, value_t *vector);
    void (*panel_backward)(mirror kind, int64_t q, int64_t w, const value_t *panel, int64_t ld, const int64_t *row, const value_t *vector,
                           value_t *x);
    int64_t (*columns_forward)(const column_run<value_t> *run, int64_t number, int64_t last);
    int64_t (*columns_backward)(const column_run<value_t> *run, int64_t number, int64_t first);
    void (*narrow_forward)(const narrow_factor<value_t> *f, int64_t first, int64_t last, value_t *x);
    void (*narrow_backward)(const narrow_factor<value_t> *f, int64_t first, int64_t last, value_t *x);
    void (*interleaved_forward)(const interleaved_block<value_t> *block);
    void (*interleaved_backward)(const interleaved_block<value_t> *block);
};

/* Bytes that the blocked kernels of every family use of `work`. */
inline constexpr int64_t kernel_work_bytes = int64_t{9} << 17;

/* The table of the family that runs here: chosen once, by processor type, reproducibility branch and feature word. */
template <typename value_t>
const kernel_table<value_t> *dense_table();

/* The table of one family, 0 SSE2 .. 5 AVX2; for the choice above and for tests. */
template <typename value_t>
const kernel_table<value_t> *dense_family_table(int32_t type);
