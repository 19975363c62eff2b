/* Rank-k update of a triangle: columns in blocks, each a rectangle beside the diagonal and a square on it, of which one triangle is kept.
 */
#include "dense/frame.h"

constexpr int64_t syrk_columns = 64;
/* Multiplications from which a team pays. */
constexpr int64_t team_products = int64_t{1} << 20;

/* One triangle of c = alpha * op(a) * op(a)' + beta * c; sizes, letters and operands of one call. */
template <typename value_t>
struct syrk_call {
    bool lower, transposed;
    char first, second; /* letters of the two factors */
    int64_t n, k;
    value_t alpha;
    const value_t *a;
    int64_t lda;
    value_t beta;
    value_t *c;
    int64_t ldc;
};

template <typename value_t>
static void update_block(const syrk_call<value_t> &x, int64_t j, void *work)
{
    const kernel_table<value_t> *table = dense_table<value_t>();
    const int64_t count = x.n - j < syrk_columns ? x.n - j : syrk_columns;
    const int64_t step = x.transposed ? x.lda : 1;
    const value_t *right = x.a + j * step;
    const int64_t first = x.lower ? j + count : 0;
    const int64_t rows = x.lower ? x.n - first : j;
    table->gemm(x.first, x.second, rows, count, x.k, x.alpha, x.a + first * step, x.lda, right, x.lda, x.beta, x.c + first + j * x.ldc,
                x.ldc, work);
    /* the square: its kept triangle goes through a copy */
    value_t square[syrk_columns * syrk_columns];
    for (int64_t s = 0; s < count; ++s) {
        for (int64_t r = x.lower ? s : 0; r < (x.lower ? count : s + 1); ++r) square[r + s * syrk_columns] = x.c[j + r + (j + s) * x.ldc];
        for (int64_t r = x.lower ? 0 : s + 1; r < (x.lower ? s : count); ++r) square[r + s * syrk_columns] = value_t(0);
    }
    table->gemm(x.first, x.second, count, count, x.k, x.alpha, right, x.lda, right, x.lda, x.beta, square, syrk_columns, work);
    for (int64_t s = 0; s < count; ++s) {
        for (int64_t r = x.lower ? s : 0; r < (x.lower ? count : s + 1); ++r) x.c[j + r + (j + s) * x.ldc] = square[r + s * syrk_columns];
    }
}

template <typename value_t, mirror kind>
void wkl_blas_syrk(char uplo, char trans, int64_t n, int64_t k, value_t alpha, const value_t *a, int64_t lda, value_t beta, value_t *c,
                   int64_t ldc)
{
    if (n < 1) return;
    const bool transposed = frame_letter(trans) != 'N';
    const char other = kind == mirror::hermitian ? 'C' : 'T';
    const syrk_call<value_t> call = {
        frame_letter(uplo) == 'L', transposed, transposed ? other : 'N', transposed ? 'N' : other, n, k, alpha, a, lda, beta, c, ldc};
    const int64_t blocks = (n + syrk_columns - 1) / syrk_columns;
    int64_t team = k > 0 && n * n >= team_products / k ? service_domain_max_threads(domain_blas) : 1;
    if (team > blocks) team = blocks;
#pragma omp parallel num_threads(static_cast <int>(team)) if (team > 1)
    {
        const frame_work work = frame_work_take(k > 16 && n > 16);
#pragma omp for schedule(dynamic, 1)
        for (int64_t p = 0; p < blocks; ++p) update_block(call, (call.lower ? p : blocks - 1 - p) * syrk_columns, work.space);
        frame_work_return(work);
    }
}

#define INSTANTIATE(V)                                                                                                                     \
    template decltype(wkl_blas_syrk<V, mirror::symmetric>) wkl_blas_syrk<V, mirror::symmetric>;                                            \
    template decltype(wkl_blas_syrk<V, mirror::hermitian>) wkl_blas_syrk<V, mirror::hermitian>;
INSTANTIATE(double)
INSTANTIATE(float)
INSTANTIATE(std::complex<double>)
INSTANTIATE(std::complex<float>)
