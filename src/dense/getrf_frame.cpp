/* Blocked LU factorization with row exchanges; the frame's solve and multiply bring the threads. */
#include "dense/frame.h"

/* Columns of a panel: the block size that the published query routine answers for this factorization. */
constexpr int64_t getrf_panel = 64;

template <typename value_t>
void wkl_lapack_getrf_ib(int64_t m, int64_t n, value_t *a, int64_t lda, int64_t *pivots, int64_t *info)
{
    int64_t perturbed = 0;
    const frame_work work = frame_work_take(m > 16 && n > 16);
    *info = dense_table<value_t>()->getrf(m, n, a, lda, pivots, real_of<value_t>(-1), &perturbed, work.space);
    frame_work_return(work);
}

template <typename value_t>
void wkl_lapack_getrf(int64_t m, int64_t n, value_t *a, int64_t lda, int64_t *pivots, int64_t *info)
{
    const int64_t least = m < n ? m : n;
    *info = 0;
    if (least < 1) return;
    if (least <= getrf_panel) {
        wkl_lapack_getrf_ib(m, n, a, lda, pivots, info);
        return;
    }
    for (int64_t j = 0; j < least; j += getrf_panel) {
        const int64_t count = least - j < getrf_panel ? least - j : getrf_panel;
        const int64_t right = n - j - count;
        const int64_t below = m - j - count;
        value_t *block = a + j + j * lda;
        value_t *beside = block + count * lda;
        int64_t failed = 0;
        wkl_lapack_getrf_ib(m - j, count, block, lda, pivots + j, &failed);
        if (failed != 0 && *info == 0) *info = j + failed;
        for (int64_t i = j; i < j + count; ++i) pivots[i] += j;
        wkl_lapack_laswp(j, a, lda, j + 1, j + count, pivots, 1);
        wkl_lapack_laswp(right, a + (j + count) * lda, lda, j + 1, j + count, pivots, 1);
        wkl_blas_trsm('L', 'L', 'N', 'U', count, right, value_t(1), block, lda, beside, lda);
        wkl_blas_gemm('N', 'N', below, right, count, value_t(-1), block + count, lda, beside, lda, value_t(1), beside + count, lda);
    }
}

#define INSTANTIATE(V)                                                                                                                     \
    template decltype(wkl_lapack_getrf<V>) wkl_lapack_getrf<V>;                                                                            \
    template decltype(wkl_lapack_getrf_ib<V>) wkl_lapack_getrf_ib<V>;
INSTANTIATE(double)
INSTANTIATE(float)
INSTANTIATE(std::complex<double>)
INSTANTIATE(std::complex<float>)
