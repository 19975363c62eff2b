#include "spblas/spblas.h"

#include <complex>

namespace
{

bool letter_is(const char *text, const char *letter)
{
    return lsame(text, letter, 1, 1);
}

bool decode_operation(const char *transa, csr_operation *operation)
{
    if (letter_is(transa, "N"))
        *operation = csr_operation::none;
    else if (letter_is(transa, "T"))
        *operation = csr_operation::transpose;
    else if (letter_is(transa, "C"))
        *operation = csr_operation::conjugate_transpose;
    else
        return false;
    return true;
}

bool decode_structure(const char *letter, csr_structure *structure)
{
    if (letter_is(letter, "G"))
        *structure = csr_structure::general;
    else if (letter_is(letter, "S") || letter_is(letter, "H"))
        *structure = csr_structure::symmetric;
    else if (letter_is(letter, "A"))
        *structure = csr_structure::antisymmetric;
    else if (letter_is(letter, "T"))
        *structure = csr_structure::triangular;
    else if (letter_is(letter, "D"))
        *structure = csr_structure::diagonal;
    else
        return false;
    return true;
}

} // namespace

template <typename value_t>
int64_t csr_multiply(const char *transa, const char *descriptor, int64_t m, int64_t k, value_t alpha, const value_t *a, const int64_t *ja,
                     const int64_t *pntrb, const int64_t *pntre, const value_t *x, value_t beta, value_t *y)
{
    csr_form form = {};
    if (!decode_operation(transa, &form.operation)) return 1;
    if (!decode_structure(descriptor, &form.structure) || letter_is(descriptor + 3, "C")) return 2;
    form.triangle = letter_is(descriptor + 1, "L") ? csr_triangle::lower : csr_triangle::upper;
    form.diagonal = letter_is(descriptor + 2, "N") ? csr_diagonal::stored : csr_diagonal::unit;
    csr_product(form, m, k, alpha, a, ja, pntrb, pntre, x, beta, y);
    return 0;
}

#define WKL_INSTANTIATE(V)                                                                                                                 \
    template int64_t csr_multiply<V>(const char *, const char *, int64_t, int64_t, V, const V *, const int64_t *, const int64_t *,         \
                                     const int64_t *, const V *, V, V *);
WKL_INSTANTIATE(float)
WKL_INSTANTIATE(double)
WKL_INSTANTIATE(std::complex<float>)
WKL_INSTANTIATE(std::complex<double>)
