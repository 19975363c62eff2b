#include "analysis/symbolic.h"

static int64_t larger(int64_t a, int64_t b)
{
    return a > b ? a : b;
}

void block_bounds(control_block *control, ooc_state *ooc, const supernodal_structure *s, const int64_t *xadj)
{
    int64_t l = 0, u = 0, widest = 0, entries = 0;
    for (int64_t number = 1; number <= s->supernodes; ++number) {
        const int64_t columns = supernode_columns(*s, number), rows = supernode_rows(*s, number);
        int64_t matrix_entries = columns;
        for (int64_t j = s->xsuper[number - 1]; j < s->xsuper[number]; ++j) {
            const int64_t given = s->perm[j - 1];
            matrix_entries += xadj[given] - xadj[given - 1];
        }
        l = larger(l, rows * columns);
        u = larger(u, (rows - columns) * columns);
        widest = larger(widest, columns);
        entries = larger(entries, matrix_entries);
    }
    /* nnz_u is never 0, so the last block of an empty U still counts one entry where its columns start at the beginning */
    if (s->supernodes > 0) u = larger(u, s->nnz_u + 1 - s->xunz[s->xsuper[s->supernodes - 1] - 1]);
    ooc->factor_block_l = l;
    ooc->factor_block_u = u;
    ooc->factor_block_v = widest;
    control->column_count_bound = entries;
}
