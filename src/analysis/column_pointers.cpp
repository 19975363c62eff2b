#include "analysis/symbolic.h"

static constexpr int64_t position_limit = 2305843009213693949; /* 2^61 - 3 */

int64_t column_pointers(int64_t neqns, int64_t supernodes, int64_t domains, const int64_t *domain_table, const int64_t *xsuper,
                        const int64_t *colcnt, int64_t *xlnz, int64_t *xunz)
{
    const int64_t limit = position_limit - neqns;
    int64_t l = 1, u = 1, first, last;
    domain_walk walk = open_domain_walk(supernodes, domains, domain_table);
    while (next_range(&walk, &first, &last)) {
        for (int64_t s = first; s <= last; ++s) {
            const int64_t l_step = colcnt[xsuper[s - 1] - 1], u_step = colcnt[xsuper[s] - 2] - 1;
            for (int64_t j = xsuper[s - 1]; j < xsuper[s]; ++j) {
                xlnz[j - 1] = l;
                xunz[j - 1] = u;
                if (limit - l < l_step || limit - u < u_step) return -20;
                l += l_step;
                u += u_step;
            }
        }
    }
    xlnz[neqns] = l;
    xunz[neqns] = u;
    return 0;
}
