/* Threaded wrappers of the operations bound by memory: matrix times vector, inner product, rank-1 update of a triangle. */
#include "dense/frame.h"

/* Entries of the matrix from which a team pays: 1 MB of doubles takes some 50 microseconds to read, ten times the start of a region. */
constexpr int64_t team_entries = int64_t{1} << 17;

static int64_t team_for(int64_t entries, int64_t parts)
{
    if (entries < team_entries) return 1;
    const int64_t threads = service_domain_max_threads(domain_blas);
    return threads < parts ? threads : parts;
}

template <typename value_t>
void wkl_blas_gemv(char trans, int64_t m, int64_t n, value_t alpha, const value_t *a, int64_t lda, const value_t *x, int64_t incx,
                   value_t beta, value_t *y, int64_t incy)
{
    if (m < 1 || n < 1) return;
    const kernel_table<value_t> *table = dense_table<value_t>();
    const bool by_rows = frame_letter(trans) == 'N';
    const int64_t split = by_rows ? m : n;
    const int64_t team = team_for(m * n, split / 8);
    if (team < 2) {
        table->gemv(trans, m, n, alpha, a, lda, x, incx, beta, y, incy);
        return;
    }
#pragma omp parallel for schedule(static, 1) num_threads(static_cast <int>(team))
    for (int64_t p = 0; p < team; ++p) {
        const frame_range part = frame_part(split, team, p, 8);
        const int64_t count = part.last - part.first;
        if (by_rows)
            table->gemv(trans, count, n, alpha, a + part.first, lda, x, incx, beta, y + part.first * incy, incy);
        else
            table->gemv(trans, m, count, alpha, a + part.first * lda, lda, x, incx, beta, y + part.first * incy, incy);
    }
}

/* The sum is cut in the same pieces whatever the team, so that its bits do not depend on the threads. */
constexpr int64_t dot_pieces = 64;
constexpr int64_t dot_gather = 256;

template <typename value_t>
static value_t dot_piece(int64_t n, const value_t *x, int64_t incx, const value_t *y, int64_t incy)
{
    const kernel_table<value_t> *table = dense_table<value_t>();
    if (incx == 1 && incy == 1) return table->dot(n, x, y);
    value_t u[dot_gather];
    value_t v[dot_gather];
    value_t sum = 0;
    for (int64_t i = 0; i < n; i += dot_gather) {
        const int64_t count = n - i < dot_gather ? n - i : dot_gather;
        for (int64_t r = 0; r < count; ++r) {
            u[r] = x[(i + r) * incx];
            v[r] = y[(i + r) * incy];
        }
        sum += table->dot(count, u, v);
    }
    return sum;
}

template <typename value_t>
value_t wkl_blas_dot(int64_t n, const value_t *x, int64_t incx, const value_t *y, int64_t incy)
{
    if (n < 1) return value_t(0);
    if (n < team_entries) return dot_piece(n, x, incx, y, incy);
    value_t sum[dot_pieces];
    const int64_t team = team_for(n, dot_pieces);
#pragma omp parallel for schedule(static) num_threads(static_cast <int>(team))
    for (int64_t p = 0; p < dot_pieces; ++p) {
        const frame_range part = frame_part(n, dot_pieces, p, 8);
        sum[p] = dot_piece(part.last - part.first, x + part.first * incx, incx, y + part.first * incy, incy);
    }
    value_t total = sum[0];
    for (int64_t p = 1; p < dot_pieces; ++p) total += sum[p];
    return total;
}

template <typename value_t>
static value_t product_of(value_t x, value_t y)
{
    if constexpr (sizeof(value_t) != sizeof(real_of<value_t>)) {
        return value_t(x.real() * y.real() - x.imag() * y.imag(), x.real() * y.imag() + x.imag() * y.real());
    } else {
        return x * y;
    }
}

template <typename value_t, mirror kind>
void wkl_blas_syr(char uplo, int64_t n, value_t alpha, const value_t *x, int64_t incx, value_t *a, int64_t lda)
{
    if (n < 1 || alpha == value_t(0)) return;
    const kernel_table<value_t> *table = dense_table<value_t>();
    const bool lower = frame_letter(uplo) == 'L';
    const int64_t team = team_for(n * n / 2, n);
#pragma omp parallel for schedule(static, 16) num_threads(static_cast <int>(team)) if (team > 1)
    for (int64_t j = 0; j < n; ++j) {
        const value_t xj = kind == mirror::hermitian ? conjugate_of(x[j * incx]) : x[j * incx];
        const value_t factor = product_of(alpha, xj);
        const int64_t first = lower ? j : 0;
        const int64_t count = lower ? n - j : j + 1;
        if (incx == 1)
            table->axpy(count, factor, x + first, a + first + j * lda);
        else {
            for (int64_t i = first; i < first + count; ++i) table->axpy(1, factor, x + i * incx, a + i + j * lda);
        }
    }
}

#define INSTANTIATE(V)                                                                                                                     \
    template decltype(wkl_blas_gemv<V>) wkl_blas_gemv<V>;                                                                                  \
    template decltype(wkl_blas_dot<V>) wkl_blas_dot<V>;                                                                                    \
    template decltype(wkl_blas_syr<V, mirror::symmetric>) wkl_blas_syr<V, mirror::symmetric>;                                              \
    template decltype(wkl_blas_syr<V, mirror::hermitian>) wkl_blas_syr<V, mirror::hermitian>;
INSTANTIATE(double)
INSTANTIATE(float)
INSTANTIATE(std::complex<double>)
INSTANTIATE(std::complex<float>)
