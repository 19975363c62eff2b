#include "service/service.h"
#include "spblas/spblas.h"

namespace
{

int lower_case(char letter)
{
    const int code = static_cast<unsigned char>(letter);
    return code >= 'A' && code <= 'Z' ? code + ('a' - 'A') : code;
}

} // namespace

bool lsame(const char *a, const char *b, int32_t, int32_t)
{
    return lower_case(*a) == lower_case(*b);
}

int64_t symv_check(const char *uplo, const int64_t *m, const double *, const int64_t *, const int64_t *, const double *, double *, int32_t)
{
    int64_t info = 0;
    if (!lsame(uplo, "L", 1, 1) && !lsame(uplo, "U", 1, 1))
        info = 1;
    else if (*m < 0)
        info = 2;
    if (info == 0) return 0;
    service_xerbla("WKL_DCSRSYMV", &info, 12);
    return 1;
}

void symv_dispatch(const char *uplo, const int64_t *m, const double *a, const int64_t *ia, const int64_t *ja, const double *x, double *y,
                   int32_t)
{
    const double alpha = 1.0, beta = 0.0;
    csr_driver *driver = lsame(uplo, "L", 1, 1) ? wkl_spblas_dcsr1nslnf__mvout_omp : wkl_spblas_dcsr1nsunf__mvout_omp;
    driver(m, m, &alpha, a, ja, ia, ia + 1, x, y, &beta);
}
