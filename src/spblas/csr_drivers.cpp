/* The drivers by name, each one form of the product. */
#include "spblas/spblas.h"

namespace
{

using enum csr_structure;
using enum csr_triangle;
using enum csr_diagonal;
using enum csr_operation;

constexpr csr_form form_ng = {general, lower, stored, none}, form_tg = {general, lower, stored, transpose};
constexpr csr_form form_nal = {antisymmetric, lower, stored, none}, form_nau = {antisymmetric, upper, stored, none};
constexpr csr_form form_nsln = {symmetric, lower, stored, none}, form_nsun = {symmetric, upper, stored, none};
constexpr csr_form form_nslu = {symmetric, lower, unit, none}, form_nsuu = {symmetric, upper, unit, none};
constexpr csr_form form_ntln = {triangular, lower, stored, none}, form_ntlu = {triangular, lower, unit, none};
constexpr csr_form form_ntun = {triangular, upper, stored, none}, form_ntuu = {triangular, upper, unit, none};

} // namespace

#define WKL_DRIVER(name, form)                                                                                                             \
    void name(const int64_t *m, const int64_t *k, const double *alpha, const double *a, const int64_t *ja, const int64_t *pntrb,           \
              const int64_t *pntre, const double *x, double *y, const double *beta)                                                        \
    {                                                                                                                                      \
        csr_product<double>(form, *m, *k, *alpha, a, ja, pntrb, pntre, x, *beta, y);                                                       \
    }
WKL_DRIVER(wkl_spblas_dcsr1ng__f__mvout_omp, form_ng)
WKL_DRIVER(wkl_spblas_dcsr1tg__f__mvout_omp, form_tg)
WKL_DRIVER(wkl_spblas_dcsr1nal_f__mvout_omp, form_nal)
WKL_DRIVER(wkl_spblas_dcsr1nau_f__mvout_omp, form_nau)
WKL_DRIVER(wkl_spblas_dcsr1nslnf__mvout_omp, form_nsln)
WKL_DRIVER(wkl_spblas_dcsr1nsunf__mvout_omp, form_nsun)
WKL_DRIVER(wkl_spblas_dcsr1nsluf__mvout_omp, form_nslu)
WKL_DRIVER(wkl_spblas_dcsr1nsuuf__mvout_omp, form_nsuu)
WKL_DRIVER(wkl_spblas_dcsr1ntlnf__mvout_omp, form_ntln)
WKL_DRIVER(wkl_spblas_dcsr1ntluf__mvout_omp, form_ntlu)
WKL_DRIVER(wkl_spblas_dcsr1ntunf__mvout_omp, form_ntun)
WKL_DRIVER(wkl_spblas_dcsr1ntuuf__mvout_omp, form_ntuu)
