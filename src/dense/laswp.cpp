/* Row exchanges. Not a matter of the processor: bound by memory. */
#include "dense/dense.h"

template <typename value_t>
void kernel_laswp(int64_t n, value_t *a, int64_t lda, int64_t first, int64_t last, const int64_t *pivots, int64_t step)
{
    for (int64_t j = 0; j < n; ++j) {
        value_t *column = a + j * lda;
        for (int64_t s = 0; s <= last - first; ++s) {
            const int64_t i = step < 0 ? last - s : first + s;
            const int64_t other = pivots[i - 1];
            if (other == i) continue;
            const value_t t = column[i - 1];
            column[i - 1] = column[other - 1];
            column[other - 1] = t;
        }
    }
}

template <typename value_t>
void wkl_lapack_laswp(int64_t n, value_t *a, int64_t lda, int64_t first, int64_t last, const int64_t *pivots, int64_t step)
{
    kernel_laswp(n, a, lda, first, last, pivots, step);
}

#define INSTANTIATE(V)                                                                                                                     \
    template decltype(kernel_laswp<V>) kernel_laswp<V>;                                                                                    \
    template decltype(wkl_lapack_laswp<V>) wkl_lapack_laswp<V>;
INSTANTIATE(double)
INSTANTIATE(float)
INSTANTIATE(std::complex<double>)
INSTANTIATE(std::complex<float>)
