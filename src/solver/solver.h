/* Solver: everything between the exported shell and the numeric rooms: parameters, phases, checks, memory, stages, reports. */
#pragma once

#include <cstdint>

/* One call of the solver. The arguments are those of the exported entry (include/wkldriver.h documents each); all go by address and stay
   the caller's. Answers the two queries, applies defaults, settles threads and precision, takes the diagonal shortcut, and runs the
   phases of ido on what handle holds. The result code is stored in *error. */
void solver_entry(void **handle, const int64_t *max_fac_store, const int64_t *matrix_number, const int64_t *matrix_type, const int64_t *ido,
                  const int64_t *neqns, const void *a, const int64_t *ia, const int64_t *ja, int64_t *perm, const int64_t *nb,
                  int64_t *iparam, const int64_t *msglvl, void *b, void *x, int64_t *error);
