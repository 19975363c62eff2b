#include "analysis/symbolic.h"

int64_t supernode_partition(int64_t neqns, const int64_t *parent, const int64_t *colcnt, int64_t panel_columns, int64_t *snode,
                            int64_t *xsuper, int64_t *lindx_size, int64_t *largest_supernode, const int64_t *tied)
{
    int64_t count = 0, size = 0, longest = 0, width = 0, run = 0;
    for (int64_t j = 1; j <= neqns; ++j) {
        const bool continues = j > 1 && parent[j - 2] == j && colcnt[j - 1] + 1 == colcnt[j - 2];
        run = continues ? run + 1 : 1; /* goes on across a cut by the limit */
        if (run > longest) longest = run;
        const bool first_of_pair = tied != nullptr && j < neqns && tied[j] != 0; /* the column behind it needs a place as well */
        if (continues && width + (first_of_pair ? 1 : 0) < panel_columns) {
            ++width;
        } else {
            xsuper[count++] = j;
            size += colcnt[j - 1];
            width = 1;
        }
        snode[j - 1] = count;
    }
    xsuper[count] = neqns + 1;
    *lindx_size = size;
    *largest_supernode = longest;
    return count;
}
