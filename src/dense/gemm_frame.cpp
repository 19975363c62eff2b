/* The multiply: outer layer, host layer with its thread decision, and the partitions of the result over a team. */
#include <omp.h>

#include "dense/frame.h"

/* A product below so many multiplications runs from the stack: taking workspace would cost more than it saves. */
constexpr int64_t work_products = int64_t{24} * 24 * 24;

frame_work frame_work_take(bool wanted)
{
    return {wanted ? service_alloc(static_cast<uint64_t>(kernel_work_bytes), 64) : nullptr};
}

void frame_work_return(frame_work work)
{
    if (work.space != nullptr) service_free(work.space);
}

template <typename value_t>
void gemm_serial(char transa, char transb, int64_t m, int64_t n, int64_t k, value_t alpha, const value_t *a, int64_t lda, const value_t *b,
                 int64_t ldb, value_t beta, value_t *c, int64_t ldc)
{
    if (k > 0 && blas_takes_product(m, n, k)) {
        blas_gemm(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
        return;
    }
    const frame_work work = frame_work_take(k > 0 && m * n >= work_products / k);
    dense_table<value_t>()->gemm(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc, work.space);
    frame_work_return(work);
}

/* One product, as the partitions see it. */
template <typename value_t>
struct gemm_call {
    char transa, transb;
    int64_t m, n, k;
    value_t alpha;
    const value_t *a;
    int64_t lda;
    const value_t *b;
    int64_t ldb;
    value_t beta;
    value_t *c;
    int64_t ldc;
    void *copies; /* packed panels, kernel_work_bytes for each thread; null in the copy-free partitions */
};

/* Rows and columns of the result that one thread takes. */
template <typename value_t>
static void multiply_part(const gemm_call<value_t> &x, frame_range rows, frame_range columns, int64_t thread)
{
    if (rows.first >= rows.last || columns.first >= columns.last) return;
    const value_t *a = x.a + (frame_letter(x.transa) == 'N' ? rows.first : rows.first * x.lda);
    const value_t *b = x.b + (frame_letter(x.transb) == 'N' ? columns.first * x.ldb : columns.first);
    char *copies = static_cast<char *>(x.copies);
    if (copies != nullptr) copies += thread * kernel_work_bytes;
    const int64_t m = rows.last - rows.first;
    const int64_t n = columns.last - columns.first;
    value_t *c = x.c + rows.first + columns.first * x.ldc;
    if (x.k > 0 && blas_takes_product(x.m, x.n, x.k)) {
        blas_gemm(x.transa, x.transb, m, n, x.k, x.alpha, a, x.lda, b, x.ldb, x.beta, c, x.ldc);
    } else {
        dense_table<value_t>()->gemm(x.transa, x.transb, m, n, x.k, x.alpha, a, x.lda, b, x.ldb, x.beta, c, x.ldc, copies);
    }
}

/* Parts begin at multiples of a register tile of the widest family. */
constexpr int64_t row_unit = 24;
constexpr int64_t column_unit = 4;

template <typename value_t>
static void wkl_blas_gemm_1d_row(const gemm_call<value_t> &x, int64_t team, int64_t thread)
{
    multiply_part(x, frame_part(x.m, team, thread, row_unit), {0, x.n}, thread);
}

template <typename value_t>
static void wkl_blas_gemm_1d_col(const gemm_call<value_t> &x, int64_t team, int64_t thread)
{
    multiply_part(x, {0, x.m}, frame_part(x.n, team, thread, column_unit), thread);
}

/* One dimension, with packed panels. */
template <typename value_t>
static void wkl_blas_gemm_1d_with_copy_0(const gemm_call<value_t> &x, int64_t team, int64_t thread, bool by_rows)
{
    if (by_rows)
        wkl_blas_gemm_1d_row(x, team, thread);
    else
        wkl_blas_gemm_1d_col(x, team, thread);
}

/* A grid of row and column groups, with packed panels. */
template <typename value_t>
static void wkl_blas_gemm_2d_xgemm_p(const gemm_call<value_t> &x, int64_t row_groups, int64_t column_groups, int64_t thread)
{
    if (thread >= row_groups * column_groups) return;
    multiply_part(x, frame_part(x.m, row_groups, thread % row_groups, row_unit),
                  frame_part(x.n, column_groups, thread / row_groups, column_unit), thread);
}

template <typename value_t>
static void run_team(gemm_call<value_t> *call, int64_t threads, int64_t column_groups)
{
#pragma omp parallel num_threads(static_cast <int>(threads))
    {
        const int64_t team = omp_get_num_threads();
        const int64_t thread = omp_get_thread_num();
#pragma omp single
        if (team > 1) {
            call->copies = service_alloc(static_cast<uint64_t>(team * kernel_work_bytes), 64);
            if (service_check_null(call->copies, "gemm") != 0) call->copies = nullptr;
        }
        const gemm_call<value_t> &x = *call;
        const int64_t row_groups = team / column_groups;
        if (team == 1)
            gemm_serial(x.transa, x.transb, x.m, x.n, x.k, x.alpha, x.a, x.lda, x.b, x.ldb, x.beta, x.c, x.ldc);
        else if (x.copies == nullptr) {
            if (x.n < x.m)
                wkl_blas_gemm_1d_row(x, team, thread);
            else
                wkl_blas_gemm_1d_col(x, team, thread);
        } else if (row_groups * column_groups == team && row_groups > 1 && column_groups > 1) {
            wkl_blas_gemm_2d_xgemm_p(x, row_groups, column_groups, thread);
        } else {
            wkl_blas_gemm_1d_with_copy_0(x, team, thread, column_groups == 1 || (column_groups != team && x.n < x.m));
        }
    }
    if (call->copies != nullptr) service_free(call->copies);
}

/* c = beta * c by the team, columns apart. */
template <typename value_t>
static void scale_by_team(int64_t m, int64_t n, value_t beta, value_t *c, int64_t ldc, int64_t threads)
{
    const kernel_table<value_t> *table = dense_table<value_t>();
#pragma omp parallel for schedule(static) num_threads(static_cast <int>(threads))
    for (int64_t j = 0; j < n; ++j) { table->gemm('N', 'N', m, 1, 0, value_t(0), nullptr, 1, nullptr, 1, beta, c + j * ldc, ldc, nullptr); }
}

template <typename value_t>
void wkl_blas_gemm_host(char transa, char transb, int64_t m, int64_t n, int64_t k, value_t alpha, const value_t *a, int64_t lda,
                        const value_t *b, int64_t ldb, value_t beta, value_t *c, int64_t ldc)
{
    if (m < 1 || n < 1) return;
    if (gemm_is_tiny(m, n, k)) {
        dense_table<value_t>()->gemm(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc, nullptr);
        return;
    }
    const int64_t threads = service_domain_max_threads(domain_blas);
    const int32_t processor = gemm_processor_class();
    const bool at_once = processor == 1 && (k < 5 || m / 2 < 3);
    if (!at_once && threads < 2 && processor == 4 && (omp_in_parallel() != 0 || service_cbwr_branch(1) != 1)) {
        constexpr int64_t strip = 128;
        const int64_t row_step = frame_letter(transa) == 'N' ? 1 : lda;
        for (int64_t i = 0; i < m; i += strip) {
            gemm_serial(transa, transb, m - i < strip ? m - i : strip, n, k, alpha, a + i * row_step, lda, b, ldb, beta, c + i, ldc);
        }
        return;
    }
    const gemm_layout layout = at_once ? gemm_layout{false, 1} : gemm_decide(processor, threads, m, n, k);
    if (!layout.threaded) {
        gemm_serial(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
        return;
    }
    const bool no_product = alpha == value_t(0);
    const bool scale_first = processor != 0 && processor != 6;
    if (no_product || (scale_first && beta != value_t(1))) {
        if (beta != value_t(1)) scale_by_team(m, n, beta, c, ldc, threads);
        if (no_product) return;
        beta = value_t(1);
    }
    gemm_call<value_t> call = {transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc, nullptr};
    run_team(&call, threads, layout.columns);
}

template <typename value_t>
void wkl_blas_gemm(char transa, char transb, int64_t m, int64_t n, int64_t k, value_t alpha, const value_t *a, int64_t lda,
                   const value_t *b, int64_t ldb, value_t beta, value_t *c, int64_t ldc)
{
    if (m < 1 || n < 1) return;
    wkl_blas_gemm_host(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}

#define INSTANTIATE(V)                                                                                                                     \
    template decltype(gemm_serial<V>) gemm_serial<V>;                                                                                      \
    template decltype(wkl_blas_gemm_host<V>) wkl_blas_gemm_host<V>;                                                                        \
    template decltype(wkl_blas_gemm<V>) wkl_blas_gemm<V>;
INSTANTIATE(double)
INSTANTIATE(float)
INSTANTIATE(std::complex<double>)
INSTANTIATE(std::complex<float>)
