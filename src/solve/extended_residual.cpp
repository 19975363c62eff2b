/* Residuals in 80-bit arithmetic: with working-precision residuals refinement stops at the condition number times the rounding unit, with
   these it reaches the rounding unit itself while the condition allows any digits (Wilkinson, Rounding Errors in Algebraic Processes).
   Sequential, rows in ascending order. */
#include "solve/solve_internal.h"

template <typename wide_t, typename value_t>
static inline wide_t widened(const value_t &v)
{
    if constexpr (is_complex_value<value_t>)
        return wide_t(v.real(), v.imag());
    else
        return wide_t(v);
}

/* sum += a * x, conjugating a when asked. Each product of two 53-bit numbers is rounded once to 64 bits. */
template <typename wide_t, typename value_t>
static inline void add_product(wide_t *sum, const value_t &a, bool conjugate, const wide_t &x)
{
    if constexpr (is_complex_value<value_t>) {
        const long double re = a.real(), im = conjugate ? -static_cast<long double>(a.imag()) : static_cast<long double>(a.imag());
        *sum += wide_t(re * x.real() - im * x.imag(), re * x.imag() + im * x.real());
    } else {
        *sum += static_cast<long double>(a) * x;
    }
}

/* sums = op(A) x for one column. */
template <typename value_t>
static void extended_product(const residual_matrix<value_t> *matrix, const extended_of<value_t> *x, extended_of<value_t> *sums)
{
    using wide_t = extended_of<value_t>;
    const bool mirrored = matrix->symmetric == 1, transposed = matrix->transpose_mode != 0;
    const bool hermitian = matrix->matrix_type == 4 || matrix->matrix_type == -4;
    const bool conjugate_all = matrix->transpose_mode == 2;
    for (int64_t i = 0; i < matrix->n; ++i) sums[i] = wide_t(0);
    for (int64_t i = 1; i <= matrix->n; ++i) {
        for (int64_t p = matrix->ia[i - 1]; p < matrix->ia[i]; ++p) {
            const int64_t j = matrix->ja[p - 1];
            const value_t a = matrix->a[p - 1];
            if (mirrored && j < i) continue;
            const bool row_wise = !transposed || mirrored, column_wise = transposed || (mirrored && j != i);
            /* op(A) as read by rows is A, or conj(A) for the conjugate transpose of symmetric and the transpose of Hermitian types */
            if (row_wise) add_product(&sums[i - 1], a, mirrored && (hermitian ? matrix->transpose_mode == 1 : conjugate_all), x[j - 1]);
            if (column_wise && mirrored && j != i)
                add_product(&sums[j - 1], a, hermitian ? matrix->transpose_mode != 1 : conjugate_all, x[i - 1]);
            if (column_wise && !mirrored) add_product(&sums[j - 1], a, conjugate_all, x[i - 1]);
        }
    }
}

template <typename value_t>
double extended_residual(const residual_matrix<value_t> *matrix, int64_t nb, const value_t *rhs, const extended_of<value_t> *x,
                         extended_of<value_t> *sums, value_t *residual)
{
    using wide_t = extended_of<value_t>;
    using real_t = real_of<value_t>;
    const int64_t n = matrix->n;
    for (int64_t k = 0; k < nb; ++k) {
        extended_product(matrix, x + k * n, sums);
        for (int64_t i = 0; i < n; ++i) {
            const wide_t r = widened<wide_t>(rhs[k * n + i]) - sums[i];
            if constexpr (is_complex_value<value_t>)
                residual[k * n + i] = value_t(static_cast<real_t>(r.real()), static_cast<real_t>(r.imag()));
            else
                residual[k * n + i] = static_cast<real_t>(r);
        }
    }
    return sum_of_moduli(n * nb, residual);
}

#define INSTANTIATE(V)                                                                                                                     \
    template double extended_residual<V>(const residual_matrix<V> *, int64_t, const V *, const extended_of<V> *, extended_of<V> *, V *);
INSTANTIATE(double)
INSTANTIATE(float)
INSTANTIATE(std::complex<double>)
INSTANTIATE(std::complex<float>)
