/* Products with the caller's matrix for residuals. */
#include "solve/solve_internal.h"

#include "spblas/spblas.h"

template <typename value_t>
static csr_form form_of(const residual_matrix<value_t> *matrix)
{
    csr_form form = {csr_structure::general, csr_triangle::upper, csr_diagonal::stored, csr_operation::none};
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

template <typename value_t>
double sum_of_moduli(int64_t count, const value_t *v)
{
    double sum = 0;
    for (int64_t i = 0; i < count; ++i) {
        if constexpr (is_complex_value<value_t>)
            sum += std::abs(static_cast<double>(v[i].real())) + std::abs(static_cast<double>(v[i].imag()));
        else
            sum += std::abs(static_cast<double>(v[i]));
    }
    return sum;
}

#define INSTANTIATE(V)                                                                                                                     \
    template void multiply_matrix<V>(const residual_matrix<V> *, int64_t, const V *, V *);                                                 \
    template double sum_of_moduli<V>(int64_t, const V *);
INSTANTIATE(double)
INSTANTIATE(float)
INSTANTIATE(std::complex<double>)
INSTANTIATE(std::complex<float>)
