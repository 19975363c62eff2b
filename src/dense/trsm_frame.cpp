/* The triangular solve with many right-hand sides: outer layer, host layer, and the split of the right-hand sides. */
#include <omp.h>

#include "dense/frame.h"

int64_t trsm_chunk(int32_t type, bool left, int64_t m, int64_t n, int64_t threads)
{
    const int64_t split = left ? n : m;
    const int64_t d = left ? m : n; /* the triangle */
    const bool own_partition = type == 3 || (type == 4 && left);
    int64_t c = own_partition ? (split + threads - 1) / threads : split / threads;
    const bool by_fours = !own_partition && type >= 2 && (!left || m >= 513);
    if (by_fours) c = c / 4 * 4;
    const int64_t e1 = (d + 1) * d / 256;
    const int64_t e2 = d * c / 128;
    bool serial = m < 17 && n < 17;
    if (own_partition) {
        if (type == 3 && !left) serial = serial || (e1 <= 1 && e2 < 4) || e1 + e2 <= 10 || split <= 4;
        if (type == 4) serial = serial || (m < 64 && n < 128) || split <= 4;
    } else if (type == 1 && left) {
        serial = serial || (e1 < 1 && e2 < 6) || e1 + e2 <= 6 || (m >= 513 && c <= 7);
    } else if (type == 1) {
        serial = serial || e1 <= 1 || e2 < 4 || e1 + e2 <= 10;
    } else if (type >= 2) {
        if (left)
            serial = serial || (e1 < 1 && e2 < 6) || e1 + e2 <= 6;
        else
            serial = serial || (e1 <= 1 && e2 < 4) || e1 + e2 <= 10;
    }
    if (serial) return 0;
    return c > 0 ? c : 1; /* few right-hand sides on a large triangle: one each, the last thread takes the rest */
}

template <typename value_t>
static void trsm_serial(char side, char uplo, char transa, char diag, int64_t m, int64_t n, value_t alpha, const value_t *a, int64_t lda,
                        value_t *b, int64_t ldb)
{
    const int64_t d = frame_letter(side) == 'L' ? m : n;
    const frame_work work = frame_work_take(d > 64);
    dense_table<value_t>()->trsm(side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb, work.space);
    frame_work_return(work);
}

template <typename value_t>
void wkl_blas_trsm_host(char side, char uplo, char transa, char diag, int64_t m, int64_t n, value_t alpha, const value_t *a, int64_t lda,
                        value_t *b, int64_t ldb)
{
    if (m < 1 || n < 1) return;
    const bool left = frame_letter(side) == 'L';
    const int64_t split = left ? n : m;
    int64_t threads = service_domain_max_threads(domain_blas);
    int64_t c = 0;
    if (threads > split) threads = split;
    if (threads >= 2) c = trsm_chunk(service_cpu_type(), left, m, n, threads);
    if (c == 0) {
        trsm_serial(side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb);
        return;
    }
    const int64_t chunks = (split + c - 1) / c < threads ? (split + c - 1) / c : threads; /* the last one takes what is left */
#pragma omp parallel for schedule(static, 1) num_threads(static_cast <int>(threads))
    for (int64_t p = 0; p < chunks; ++p) {
        const int64_t first = p * c;
        const int64_t count = p == chunks - 1 ? split - first : c;
        if (left)
            trsm_serial(side, uplo, transa, diag, m, count, alpha, a, lda, b + first * ldb, ldb);
        else
            trsm_serial(side, uplo, transa, diag, count, n, alpha, a, lda, b + first, ldb);
    }
}

template <typename value_t>
void wkl_blas_trsm(char side, char uplo, char transa, char diag, int64_t m, int64_t n, value_t alpha, const value_t *a, int64_t lda,
                   value_t *b, int64_t ldb)
{
    if (m < 1 || n < 1) return;
    wkl_blas_trsm_host(side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb);
}

#define INSTANTIATE(V)                                                                                                                     \
    template decltype(wkl_blas_trsm_host<V>) wkl_blas_trsm_host<V>;                                                                        \
    template decltype(wkl_blas_trsm<V>) wkl_blas_trsm<V>;
INSTANTIATE(double)
INSTANTIATE(float)
INSTANTIATE(std::complex<double>)
INSTANTIATE(std::complex<float>)
