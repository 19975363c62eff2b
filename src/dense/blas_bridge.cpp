/* The one door to the BLAS library, which is always kept to one thread. */
#include <omp.h>

#include <atomic>

#include "dense/frame.h"

extern "C" {
void openblas_set_num_threads(int count);
void sgemm_(const char *, const char *, const int64_t *, const int64_t *, const int64_t *, const float *, const float *, const int64_t *,
            const float *, const int64_t *, const float *, float *, const int64_t *);
void dgemm_(const char *, const char *, const int64_t *, const int64_t *, const int64_t *, const double *, const double *, const int64_t *,
            const double *, const int64_t *, const double *, double *, const int64_t *);
void cgemm_(const char *, const char *, const int64_t *, const int64_t *, const int64_t *, const void *, const void *, const int64_t *,
            const void *, const int64_t *, const void *, void *, const int64_t *);
void zgemm_(const char *, const char *, const int64_t *, const int64_t *, const int64_t *, const void *, const void *, const int64_t *,
            const void *, const int64_t *, const void *, void *, const int64_t *);
}

/* The library brings kernels for units that the families do not use. Its wider ones (AVX-512) win from products of about 64 cubed on; with
   the AVX2 family on both sides our own kernels are level with it (dense_bench), and the families below it are left for it from 32 cubed
   on. */
constexpr int64_t wide_crossover = int64_t{64} * 64 * 64;
constexpr int64_t narrow_crossover = int64_t{32} * 32 * 32;
constexpr uint64_t cpu_feature_avx512 = uint64_t{1} << 27;

/* Smallest m * n * k for the library; 0 means never. Settled once. */
static int64_t crossover()
{
    static std::atomic<int64_t> settled{-1}; /* racing threads store the same value */
    int64_t value = settled.load(std::memory_order_relaxed);
    if (value >= 0) return value;
    const int32_t branch = service_cbwr_branch(1);
    const uint64_t word = service_cpu_feature_word();
    value = 0;
    if (branch == 1 || branch == 2) {
        if ((word & cpu_feature_avx512) != 0)
            value = wide_crossover;
        else if (dense_table<double>() != dense_family_table<double>(5))
            value = narrow_crossover;
    }
    settled.store(value, std::memory_order_relaxed);
    return value;
}

bool blas_takes_product(int64_t m, int64_t n, int64_t k)
{
    const int64_t least = crossover();
    return least > 0 && m * n >= least / k;
}

/* Once, before the first call: the library then sets up its tables for one thread. Others wait, since it must not run meanwhile. */
static void settle_library()
{
    static std::atomic<int32_t> state{0}; /* 0 untouched, 1 being set, 2 ready */
    if (state.load(std::memory_order_acquire) == 2) return;
    int32_t untouched = 0;
    if (state.compare_exchange_strong(untouched, 1, std::memory_order_acq_rel)) {
        openblas_set_num_threads(1);
        state.store(2, std::memory_order_release);
    }
    while (state.load(std::memory_order_acquire) != 2) {
#pragma omp taskyield
    }
}

template <typename value_t>
void blas_gemm(char transa, char transb, int64_t m, int64_t n, int64_t k, value_t alpha, const value_t *a, int64_t lda, const value_t *b,
               int64_t ldb, value_t beta, value_t *c, int64_t ldc)
{
    /* The library takes its count from the caller's OpenMP setting at each call, and setting its own count changes the caller's. */
    const int callers_count = omp_get_max_threads();
    settle_library();
    omp_set_num_threads(1);
    if constexpr (sizeof(value_t) == sizeof(real_of<value_t>)) {
        if constexpr (sizeof(value_t) == sizeof(double))
            dgemm_(&transa, &transb, &m, &n, &k, &alpha, a, &lda, b, &ldb, &beta, c, &ldc);
        else
            sgemm_(&transa, &transb, &m, &n, &k, &alpha, a, &lda, b, &ldb, &beta, c, &ldc);
    } else {
        if constexpr (sizeof(value_t) == 2 * sizeof(double))
            zgemm_(&transa, &transb, &m, &n, &k, &alpha, a, &lda, b, &ldb, &beta, c, &ldc);
        else
            cgemm_(&transa, &transb, &m, &n, &k, &alpha, a, &lda, b, &ldb, &beta, c, &ldc);
    }
    omp_set_num_threads(callers_count);
}

#define INSTANTIATE(V) template decltype(blas_gemm<V>) blas_gemm<V>;
INSTANTIATE(double)
INSTANTIATE(float)
INSTANTIATE(std::complex<double>)
INSTANTIATE(std::complex<float>)
