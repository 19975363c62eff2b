#include "wkldriver.h"

#include "service/service.h"
#include "spblas/spblas.h"

/* Shell of the symmetric product. There are no pivots and no progress on this path, so only the argument report is hooked. */
void wkl_dcsrsymv_driver(const char *uplo, const int64_t *m, const double *a, const int64_t *ia, const int64_t *ja, const double *x,
                         double *y, int32_t uplo_len)
{
    service_set_xerbla_hook(service_xerbla_default);
    if (symv_check(uplo, m, a, ia, ja, x, y, uplo_len) != 0) return;
    symv_dispatch(uplo, m, a, ia, ja, x, y, uplo_len);
}
