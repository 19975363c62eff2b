#include "wkldriver.h"

#include "service/service.h"
#include "solver/solver.h"

/* Shell of the solver: registers the library's own hooks, then forwards all arguments as they came. */
void solvara_driver(void **handle, const int64_t *max_fac_store, const int64_t *matrix_number, const int64_t *matrix_type,
                    const int64_t *ido, const int64_t *neqns, const void *a, const int64_t *ia, const int64_t *ja, int64_t *perm,
                    const int64_t *nb, int64_t *iparam, const int64_t *msglvl, void *b, void *x, int64_t *error)
{
    service_set_xerbla_hook(service_xerbla_default);
    service_set_progress_hook(progress_default);
    service_set_pivot_hook(pivot_default);
    solver_entry(handle, max_fac_store, matrix_number, matrix_type, ido, neqns, a, ia, ja, perm, nb, iparam, msglvl, b, x, error);
}
