/* Choice of the kernel family, once per process, and the entries of the serial kernels. */
#include <atomic>

#include "dense/kernel_table.h"
#include "service/service.h"

#define FAMILY_TABLES(name)                                                                                                                \
    namespace name                                                                                                                         \
    {                                                                                                                                      \
    extern const kernel_table<double> table_d;                                                                                             \
    extern const kernel_table<float> table_s;                                                                                              \
    extern const kernel_table<std::complex<double>> table_z;                                                                               \
    extern const kernel_table<std::complex<float>> table_c;                                                                                \
    template <typename value_t>                                                                                                            \
    static const kernel_table<value_t> *table_of()                                                                                         \
    {                                                                                                                                      \
        if constexpr (sizeof(real_of<value_t>) == sizeof(value_t)) {                                                                       \
            if constexpr (sizeof(value_t) == sizeof(double))                                                                               \
                return &table_d;                                                                                                           \
            else                                                                                                                           \
                return &table_s;                                                                                                           \
        } else if constexpr (sizeof(real_of<value_t>) == sizeof(double))                                                                   \
            return &table_z;                                                                                                               \
        else                                                                                                                               \
            return &table_c;                                                                                                               \
    }                                                                                                                                      \
    }
FAMILY_TABLES(dense_sse2)
FAMILY_TABLES(dense_sse3)
FAMILY_TABLES(dense_ssse3)
FAMILY_TABLES(dense_sse4_2)
FAMILY_TABLES(dense_avx)
FAMILY_TABLES(dense_avx2)

template <typename value_t>
const kernel_table<value_t> *dense_family_table(int32_t type)
{
    switch (type) {
    case 0:
        return dense_sse2::table_of<value_t>();
    case 1:
        return dense_sse3::table_of<value_t>();
    case 2:
        return dense_ssse3::table_of<value_t>();
    case 3:
        return dense_sse4_2::table_of<value_t>();
    case 4:
        return dense_avx::table_of<value_t>();
    case 5:
        return dense_avx2::table_of<value_t>();
    default:
        service_cpu_unsupported(type);
    }
}

/* The family behind a processor type. Without a pinned branch, type 0 on another vendor's processor stands for "not looked at": there the
   feature word decides. Types 0 to 2 share one reproducible body when a branch is named. */
static int32_t family_of_type(int32_t type)
{
    const int32_t branch = service_cbwr_branch(1);
    if (type == 0 && (branch == 1 || branch == 2) && service_cpu_is_reference_vendor() == 0) {
        constexpr uint64_t avx2_level = cpu_feature_avx | cpu_feature_fma | cpu_feature_avx2;
        const uint64_t word = service_cpu_feature_word();
        if ((word & avx2_level) == avx2_level) return 5;
        return (word & cpu_feature_avx) != 0 ? 4 : 0;
    }
    if (type >= 0 && type <= 2 && branch != 1) return 0;
    return type;
}

template <typename value_t>
static std::atomic<const kernel_table<value_t> *> chosen_table{nullptr}; /* set on first use; racing threads store the same value */

template <typename value_t>
const kernel_table<value_t> *dense_table()
{
    const kernel_table<value_t> *table = chosen_table<value_t>.load(std::memory_order_acquire);
    if (table == nullptr) {
        table = dense_family_table<value_t>(family_of_type(service_cpu_type()));
        chosen_table<value_t>.store(table, std::memory_order_release);
    }
    return table;
}

int64_t dense_work_size()
{
    return kernel_work_bytes;
}

template <typename value_t>
void kernel_gemm(char transa, char transb, int64_t m, int64_t n, int64_t k, value_t alpha, const value_t *a, int64_t lda, const value_t *b,
                 int64_t ldb, value_t beta, value_t *c, int64_t ldc, void *work)
{
    dense_table<value_t>()->gemm(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc, work);
}

template <typename value_t>
void kernel_trsm(char side, char uplo, char transa, char diag, int64_t m, int64_t n, value_t alpha, const value_t *a, int64_t lda,
                 value_t *b, int64_t ldb, void *work)
{
    dense_table<value_t>()->trsm(side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb, work);
}

template <typename value_t, mirror kind>
void kernel_update(update_shape shape, int64_t q, int64_t k, int64_t segment_count, const update_segment<value_t> *segments, value_t *c,
                   int64_t ldc, void *work)
{
    dense_table<value_t>()->update(kind, shape, q, k, segment_count, segments, nullptr, nullptr, c, ldc, work);
}

template <typename value_t, mirror kind>
void kernel_update_scatter(update_shape shape, int64_t q, int64_t k, int64_t segment_count, const update_segment<value_t> *segments,
                           const int64_t *row_position, const int64_t *column_position, value_t *c, int64_t ldc, void *work)
{
    dense_table<value_t>()->update(kind, shape, q, k, segment_count, segments, row_position, column_position, c, ldc, work);
}

template <typename value_t, mirror kind>
void kernel_update_span(int64_t q, int64_t k, int64_t segment_count, const update_segment<value_t> *segments, const update_span &span,
                        value_t *c, void *work)
{
    dense_table<value_t>()->update_span(kind, q, k, segment_count, segments, span, c, work);
}

template <typename value_t>
int64_t kernel_potrf(int64_t n, value_t *a, int64_t lda, void *work)
{
    return dense_table<value_t>()->potrf_panel(n, n, a, lda, work);
}

template <typename value_t>
int64_t kernel_potrf_panel(int64_t m, int64_t n, value_t *a, int64_t lda, void *work)
{
    return dense_table<value_t>()->potrf_panel(m, n, a, lda, work);
}

template <typename value_t>
int64_t kernel_factor_pushing(pushing_run<value_t> *run, void *work)
{
    return dense_table<value_t>()->factor_pushing(run, work);
}

template <typename value_t>
int64_t kernel_getrf(int64_t m, int64_t n, value_t *a, int64_t lda, int64_t *pivots, real_of<value_t> epsilon, int64_t *perturbed,
                     void *work)
{
    return dense_table<value_t>()->getrf(m, n, a, lda, pivots, epsilon, perturbed, work);
}

template <typename value_t>
void kernel_solve_lower(bool unit, int64_t n, const value_t *l, int64_t ld, value_t *x)
{
    dense_table<value_t>()->solve_lower(unit, n, l, ld, x);
}

template <typename value_t, mirror kind>
void kernel_solve_lower_transposed(bool unit, int64_t n, const value_t *l, int64_t ld, value_t *x)
{
    dense_table<value_t>()->solve_lower_transposed(kind, unit, n, l, ld, x);
}

template <typename value_t>
void kernel_panel_forward(int64_t q, int64_t w, const value_t *panel, int64_t ld, const value_t *x, const int64_t *row, value_t *vector)
{
    dense_table<value_t>()->panel_forward(q, w, panel, ld, x, row, vector);
}

template <typename value_t, mirror kind>
void kernel_panel_backward(int64_t q, int64_t w, const value_t *panel, int64_t ld, const int64_t *row, const value_t *vector, value_t *x)
{
    dense_table<value_t>()->panel_backward(kind, q, w, panel, ld, row, vector, x);
}

template <typename value_t>
int64_t kernel_columns_forward(const column_run<value_t> *run, int64_t number, int64_t last)
{
    return dense_table<value_t>()->columns_forward(run, number, last);
}

template <typename value_t>
int64_t kernel_columns_backward(const column_run<value_t> *run, int64_t number, int64_t first)
{
    return dense_table<value_t>()->columns_backward(run, number, first);
}

template <typename value_t>
void kernel_narrow_forward(const narrow_factor<value_t> *f, int64_t first, int64_t last, value_t *x)
{
    dense_table<value_t>()->narrow_forward(f, first, last, x);
}

template <typename value_t>
void kernel_narrow_backward(const narrow_factor<value_t> *f, int64_t first, int64_t last, value_t *x)
{
    dense_table<value_t>()->narrow_backward(f, first, last, x);
}

template <typename value_t>
void kernel_interleaved_forward(const interleaved_block<value_t> *block)
{
    dense_table<value_t>()->interleaved_forward(block);
}

template <typename value_t>
void kernel_interleaved_backward(const interleaved_block<value_t> *block)
{
    dense_table<value_t>()->interleaved_backward(block);
}

#define INSTANTIATE_MIRROR(V, kind)                                                                                                        \
    template decltype(kernel_update<V, kind>) kernel_update<V, kind>;                                                                      \
    template decltype(kernel_update_scatter<V, kind>) kernel_update_scatter<V, kind>;                                                      \
    template decltype(kernel_update_span<V, kind>) kernel_update_span<V, kind>;                                                            \
    template decltype(kernel_solve_lower_transposed<V, kind>) kernel_solve_lower_transposed<V, kind>;                                      \
    template decltype(kernel_panel_backward<V, kind>) kernel_panel_backward<V, kind>;
#define INSTANTIATE(V)                                                                                                                     \
    template decltype(dense_family_table<V>) dense_family_table<V>;                                                                        \
    template decltype(dense_table<V>) dense_table<V>;                                                                                      \
    template decltype(kernel_gemm<V>) kernel_gemm<V>;                                                                                      \
    template decltype(kernel_trsm<V>) kernel_trsm<V>;                                                                                      \
    template decltype(kernel_potrf<V>) kernel_potrf<V>;                                                                                    \
    template decltype(kernel_potrf_panel<V>) kernel_potrf_panel<V>;                                                                        \
    template decltype(kernel_factor_pushing<V>) kernel_factor_pushing<V>;                                                                  \
    template decltype(kernel_getrf<V>) kernel_getrf<V>;                                                                                    \
    template decltype(kernel_solve_lower<V>) kernel_solve_lower<V>;                                                                        \
    template decltype(kernel_panel_forward<V>) kernel_panel_forward<V>;                                                                    \
    template decltype(kernel_columns_forward<V>) kernel_columns_forward<V>;                                                                \
    template decltype(kernel_columns_backward<V>) kernel_columns_backward<V>;                                                              \
    template decltype(kernel_narrow_forward<V>) kernel_narrow_forward<V>;                                                                  \
    template decltype(kernel_narrow_backward<V>) kernel_narrow_backward<V>;                                                                \
    template decltype(kernel_interleaved_forward<V>) kernel_interleaved_forward<V>;                                                        \
    template decltype(kernel_interleaved_backward<V>) kernel_interleaved_backward<V>;                                                      \
    INSTANTIATE_MIRROR(V, mirror::symmetric)                                                                                               \
    INSTANTIATE_MIRROR(V, mirror::hermitian)
INSTANTIATE(double)
INSTANTIATE(float)
INSTANTIATE(std::complex<double>)
INSTANTIATE(std::complex<float>)
