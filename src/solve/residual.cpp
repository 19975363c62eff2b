/* Products with the caller's matrix for residuals. */
#include <cmath>

#include "solve/solve_internal.h"

#include "spblas/spblas.h"

template <typename value_t>
static csr_form form_of(const residual_matrix<value_t> *matrix)
{
    csr_form form = {csr_structure::general, csr_triangle::upper, csr_diagonal::stored, csr_operation::none, matrix->one_order != 0};
    if (matrix->symmetric == 1) {
        const bool hermitian = matrix->matrix_type == 4 || matrix->matrix_type == -4;
        form.structure = hermitian ? csr_structure::hermitian : csr_structure::symmetric;
    }
    if (matrix->transpose_mode == 1) form.operation = csr_operation::transpose;
    if (matrix->transpose_mode == 2) form.operation = csr_operation::conjugate_transpose;
    return form;
}

template <typename value_t>
void multiply_matrix(const residual_matrix<value_t> *matrix, int64_t nb, const value_t *x, value_t *y)
{
    const csr_form form = form_of(matrix);
    const int64_t n = matrix->n;
    for (int64_t k = 0; k < nb; ++k)
        csr_product(form, n, n, value_t(1), matrix->a, matrix->ja, matrix->ia, matrix->ia + 1, x + k * n, value_t(0), y + k * n);
}

/* Sum of the absolute values of the real components. */
template <typename value_t>
static inline double modulus(const value_t &v)
{
    if constexpr (is_complex_value<value_t>)
        return std::abs(static_cast<double>(v.real())) + std::abs(static_cast<double>(v.imag()));
    else
        return std::abs(static_cast<double>(v));
}

/* Sum of the moduli of entry(0), entry(1), .., each asked for once. Four sums, so that an addition need not wait for the one before. */
template <typename value_t, typename entry_type>
static inline double sum_over(int64_t count, const entry_type &entry)
{
    double sum[4] = {};
    int64_t i = 0;
    for (; i + 4 <= count; i += 4)
        for (int64_t k = 0; k < 4; ++k) sum[k] += modulus(entry(i + k));
    for (; i < count; ++i) sum[0] += modulus(entry(i));
    return (sum[0] + sum[1]) + (sum[2] + sum[3]);
}

template <typename value_t>
double sum_of_moduli(int64_t count, const value_t *v)
{
    return sum_over<value_t>(count, [=](int64_t i) { return v[i]; });
}

template <typename value_t>
double add_vector(int64_t count, const value_t *v, value_t *to)
{
    return sum_over<value_t>(count, [=](int64_t i) {
        to[i] += v[i];
        return v[i];
    });
}

/* Rows of a matrix of so few entries are not worth a call of the product with its team. */
static constexpr int64_t few_entries = 32768;

template <typename value_t>
double plain_residual(const residual_matrix<value_t> *matrix, int64_t nb, const value_t *rhs, const value_t *x, value_t *scratch,
                      value_t *residual)
{
    const int64_t n = matrix->n, *const ia = matrix->ia, *const ja = matrix->ja;
    const value_t *const a = matrix->a;
    if (matrix->symmetric == 1 || matrix->transpose_mode != 0 || ia[n] > few_entries) {
        multiply_matrix(matrix, nb, x, scratch);
        return sum_over<value_t>(n * nb, [=](int64_t i) { return residual[i] = rhs[i] - scratch[i]; });
    }
    double sum = 0;
    for (int64_t k = 0; k < nb; ++k) {
        const value_t *const column = x + k * n;
        const int64_t *at = ja + (ia[0] - 1);
        const value_t *entry = a + (ia[0] - 1);
        for (int64_t i = 0; i < n; ++i) {
            value_t row = value_t(0);
            const int64_t *const end = ja + (ia[i + 1] - 1);
            for (; at + 1 < end; at += 2, entry += 2) row += product(entry[0], column[at[0] - 1]) + product(entry[1], column[at[1] - 1]);
            if (at < end) row += product(*entry++, column[*at++ - 1]);
            residual[k * n + i] = rhs[k * n + i] - row;
            sum += modulus(residual[k * n + i]);
        }
    }
    return sum;
}

#define INSTANTIATE(V)                                                                                                                     \
    template void multiply_matrix<V>(const residual_matrix<V> *, int64_t, const V *, V *);                                                 \
    template double sum_of_moduli<V>(int64_t, const V *);                                                                                  \
    template double add_vector<V>(int64_t, const V *, V *);                                                                                \
    template double plain_residual<V>(const residual_matrix<V> *, int64_t, const V *, const V *, V *, V *);
INSTANTIATE(double)
INSTANTIATE(float)
INSTANTIATE(std::complex<double>)
INSTANTIATE(std::complex<float>)
