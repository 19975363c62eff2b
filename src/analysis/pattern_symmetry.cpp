#include "analysis/ordering.h"

/* Rows come in ascending order, so the lower entries of row j must be met as the transposes of upper entries, one after the other:
   next[j-1] is the first of row j that was not. Linear time; a row whose columns do not rise counts as unsymmetric. */
bool pattern_is_symmetric(int64_t neqns, const int64_t *ia, const int64_t *ja, int64_t *next)
{
    for (int64_t i = 0; i < neqns; ++i) next[i] = ia[i];
    for (int64_t i = 1; i <= neqns; ++i) {
        int64_t p = next[i - 1]; /* every lower entry of the row has been met */
        if (p < ia[i] && ja[p - 1] < i) return false;
        if (p < ia[i] && ja[p - 1] == i) ++p;
        for (int64_t above = i; p < ia[i]; ++p) {
            const int64_t j = ja[p - 1];
            if (j <= above || next[j - 1] >= ia[j] || ja[next[j - 1] - 1] != i) return false;
            ++next[j - 1];
            above = j;
        }
    }
    return true;
}
