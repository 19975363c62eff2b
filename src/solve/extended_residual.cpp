/* Residuals of a solution in 80-bit numbers. With residuals in working precision refinement stops at the condition number times the
   rounding unit; it reaches the rounding unit itself only when the residual is known to about twice the digits (Wilkinson, Rounding Errors
   in Algebraic Processes). So each product and sum keeps its rounding error: Dekker 1971 for products, Ogita, Rump and Oishi 2005 for dot
   products. Sequential, rows in ascending order. */
#include "solve/solve_internal.h"

/* A number of twice the length: sum + rest. */
struct long_sum {
    long double sum, rest;
};

/* v = high + low with 32 bits each. */
static inline void split(long double v, long double *high, long double *low)
{
    constexpr long double splitter = 4294967297.0L; /* 2^32 + 1 */
    const long double t = splitter * v;
    *high = t - (t - v);
    *low = v - *high;
}

/* s -= a * x */
static inline void subtract_product(long_sum *s, long double a, long double x)
{
    long double a_high, a_low, x_high, x_low;
    split(a, &a_high, &a_low);
    split(x, &x_high, &x_low);
    const long double p = a * x;
    const long double error = ((a_high * x_high - p) + a_high * x_low + a_low * x_high) + a_low * x_low;
    const long double sum = s->sum - p, part = sum - s->sum;
    s->rest += ((s->sum - (sum - part)) - (p + part)) - error;
    s->sum = sum;
}

template <typename value_t>
struct extended_sum {
    long_sum re;
};
template <typename real_t>
struct extended_sum<std::complex<real_t>> {
    long_sum re, im;
};

template <typename value_t>
static inline void start_sum(extended_sum<value_t> *s, const value_t &v)
{
    if constexpr (is_complex_value<value_t>)
        *s = {{v.real(), 0}, {v.imag(), 0}};
    else
        *s = {{v, 0}};
}

/* s -= a * x, conjugating a when asked. */
template <typename value_t>
static inline void subtract_entry(extended_sum<value_t> *s, const value_t &a, bool conjugate, const extended_of<value_t> &x)
{
    if constexpr (is_complex_value<value_t>) {
        const long double re = a.real(), im = conjugate ? -a.imag() : a.imag();
        subtract_product(&s->re, re, x.real());
        subtract_product(&s->re, -im, x.imag());
        subtract_product(&s->im, re, x.imag());
        subtract_product(&s->im, im, x.real());
    } else {
        subtract_product(&s->re, a, x);
    }
}

template <typename value_t>
static inline value_t rounded(const extended_sum<value_t> &s)
{
    using real_t = real_of<value_t>;
    if constexpr (is_complex_value<value_t>)
        return value_t(static_cast<real_t>(s.re.sum + s.re.rest), static_cast<real_t>(s.im.sum + s.im.rest));
    else
        return static_cast<real_t>(s.re.sum + s.re.rest);
}

/* sums -= op(A) x for one column. */
template <typename value_t>
static void subtract_matrix_product(const residual_matrix<value_t> *matrix, const extended_of<value_t> *x, extended_sum<value_t> *sums)
{
    const bool mirrored = matrix->symmetric == 1, transposed = matrix->transpose_mode != 0;
    const bool hermitian = matrix->matrix_type == 4 || matrix->matrix_type == -4;
    const bool conjugate_all = matrix->transpose_mode == 2;
    for (int64_t i = 1; i <= matrix->n; ++i) {
        for (int64_t p = matrix->ia[i - 1]; p < matrix->ia[i]; ++p) {
            const int64_t j = matrix->ja[p - 1];
            const value_t a = matrix->a[p - 1];
            if (mirrored && j < i) continue;
            const bool row_wise = !transposed || mirrored, column_wise = transposed || (mirrored && j != i);
            /* op(A) as read by rows is A, or conj(A) for the conjugate transpose of symmetric and the transpose of Hermitian types */
            if (row_wise) subtract_entry(&sums[i - 1], a, mirrored && (hermitian ? matrix->transpose_mode == 1 : conjugate_all), x[j - 1]);
            if (column_wise && mirrored && j != i)
                subtract_entry(&sums[j - 1], a, hermitian ? matrix->transpose_mode != 1 : conjugate_all, x[i - 1]);
            if (column_wise && !mirrored) subtract_entry(&sums[j - 1], a, conjugate_all, x[i - 1]);
        }
    }
}

int64_t extended_scratch_entries(int64_t n)
{
    return 2 * n;
}

template <typename value_t>
double extended_residual(const residual_matrix<value_t> *matrix, int64_t nb, const value_t *rhs, const extended_of<value_t> *x,
                         extended_of<value_t> *scratch, value_t *residual)
{
    const int64_t n = matrix->n;
    static_assert(sizeof(extended_sum<value_t>) == 2 * sizeof(extended_of<value_t>));
    auto *sums = reinterpret_cast<extended_sum<value_t> *>(scratch);
    for (int64_t k = 0; k < nb; ++k) {
        for (int64_t i = 0; i < n; ++i) start_sum(&sums[i], rhs[k * n + i]);
        subtract_matrix_product(matrix, x + k * n, sums);
        for (int64_t i = 0; i < n; ++i) residual[k * n + i] = rounded(sums[i]);
    }
    return sum_of_moduli(n * nb, residual);
}

#define INSTANTIATE(V)                                                                                                                     \
    template double extended_residual<V>(const residual_matrix<V> *, int64_t, const V *, const extended_of<V> *, extended_of<V> *, V *);
INSTANTIATE(double)
INSTANTIATE(float)
INSTANTIATE(std::complex<double>)
INSTANTIATE(std::complex<float>)
