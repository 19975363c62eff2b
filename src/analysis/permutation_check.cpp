/* Checks a permutation that came from a caller. */
#include "analysis/ordering.h"

int64_t check_permutation(int64_t neqns, const int64_t *perm, int64_t *invp, int64_t *out_of_range, int64_t *first_position)
{
    *out_of_range = 0;
    *first_position = 0;
    bool repeated = false;
    for (int64_t i = 0; i < neqns; ++i) invp[i] = 0;
    for (int64_t k = 1; k <= neqns; ++k) {
        const int64_t column = perm[k - 1];
        if (column < 1 || column > neqns) {
            if (*out_of_range == 0) *first_position = k;
            ++*out_of_range;
        } else if (invp[column - 1] != 0) {
            repeated = true;
        } else {
            invp[column - 1] = k;
        }
    }
    if (*out_of_range > 0) return 1;
    return repeated ? 2 : 0;
}
