/* Inside of the frame: thread decisions, serial bodies, and what the threaded layers share. Only this room (and its tests) sees it. */
#pragma once

#include "dense/kernel_table.h"
#include "service/service.h"

/* Processor class of the threaded multiply, and the team's layout over the result: `columns` groups of columns, team / columns groups of
 * rows. */
struct gemm_layout {
    bool threaded;
    int64_t columns;
};
int32_t gemm_processor_class();
bool gemm_is_tiny(int64_t m, int64_t n, int64_t k);
gemm_layout gemm_decide(int32_t processor_class, int64_t threads, int64_t m, int64_t n, int64_t k);

/* Chunk of the split dimension per thread; 0 when the solve stays serial. */
int64_t trsm_chunk(int32_t type, bool left, int64_t m, int64_t n, int64_t threads);

/* Workspace of one thread while it is inside a frame routine: null when memory is short, which only costs speed. */
struct frame_work {
    void *space;
};
frame_work frame_work_take(bool wanted);
void frame_work_return(frame_work work);

/* Serial bodies: own kernels, or the BLAS library where it is faster and bits are not promised. */
template <typename value_t>
void gemm_serial(char transa, char transb, int64_t m, int64_t n, int64_t k, value_t alpha, const value_t *a, int64_t lda, const value_t *b,
                 int64_t ldb, value_t beta, value_t *c, int64_t ldc);

/* Whether the library may take a product of this size. */
bool blas_takes_product(int64_t m, int64_t n, int64_t k);
template <typename value_t>
void blas_gemm(char transa, char transb, int64_t m, int64_t n, int64_t k, value_t alpha, const value_t *a, int64_t lda, const value_t *b,
               int64_t ldb, value_t beta, value_t *c, int64_t ldc);

/* First and past-the-last element of part p of n elements in `count` parts, sizes multiples of `unit` but for the last. */
struct frame_range {
    int64_t first;
    int64_t last;
};
inline frame_range frame_part(int64_t n, int64_t count, int64_t p, int64_t unit)
{
    const int64_t units = (n + unit - 1) / unit;
    const int64_t first = units * p / count * unit;
    const int64_t last = units * (p + 1) / count * unit;
    return {first < n ? first : n, last < n ? last : n};
}

constexpr char frame_letter(char letter)
{
    return static_cast<char>(letter & ~0x20);
}

template <typename value_t>
inline value_t conjugate_of(value_t x)
{
    if constexpr (sizeof(value_t) != sizeof(real_of<value_t>))
        return std::conj(x);
    else
        return x;
}
