#include <cmath>

#include "analysis/matching.h"

struct depth_search {
    int64_t *ahead;   /* [n] next entry of a row to be tried for a free column; within one limit it only moves on */
    int64_t *next;    /* [n] next entry of a row to go down by */
    int64_t *row;     /* [n] the path: its rows */
    int64_t *edge;    /* [n] and the entry by which each row goes on */
    int64_t *visited; /* [n] last pass that met the column */
};

/* An augmenting path from the free row root over entries of at most limit cost, past columns that this pass has not met. */
static bool augment_from(const cost_rows &rows, row_matching *matching, double limit, int64_t pass, int64_t root,
                         const depth_search &search)
{
    int64_t depth = 0;
    search.row[0] = root;
    search.next[root - 1] = rows.start[root - 1];
    while (depth >= 0) {
        const int64_t i = search.row[depth];
        int64_t *ahead = &search.ahead[i - 1];
        while (*ahead < rows.start[i] && (rows.cost[*ahead - 1] > limit || matching->column_row[rows.column[*ahead - 1] - 1] != 0))
            ++*ahead;
        if (*ahead < rows.start[i]) {
            search.edge[depth] = *ahead;
            for (int64_t k = depth; k >= 0; --k) match_entry(rows, matching, search.row[k], search.edge[k]);
            return true;
        }
        int64_t *next = &search.next[i - 1];
        while (*next < rows.start[i] && (rows.cost[*next - 1] > limit || search.visited[rows.column[*next - 1] - 1] == pass)) ++*next;
        if (*next == rows.start[i]) {
            --depth;
            continue;
        }
        const int64_t j = rows.column[*next - 1], down = matching->column_row[j - 1];
        search.edge[depth] = (*next)++;
        search.visited[j - 1] = pass;
        search.row[++depth] = down;
        search.next[down - 1] = rows.start[down - 1];
    }
    return false;
}

void threshold_matching(const cost_rows &rows, row_matching *matching, int64_t *work)
{
    const int64_t n = rows.n, steps = 16; /* the last step takes every entry */
    const depth_search search = {work, work + n, work + 2 * n, work + 3 * n, work + 4 * n};
    for (int64_t i = 0; i < n; ++i) matching->row_edge[i] = matching->column_row[i] = search.visited[i] = 0;
    matching->count = 0;
    int64_t pass = 0;
    for (int64_t step = 0; step <= steps && matching->count < n; ++step) {
        const double limit = step < steps ? 1e-6 + static_cast<double>(step) * 2.302585092994046 : HUGE_VAL;
        for (int64_t i = 0; i < n; ++i) search.ahead[i] = rows.start[i];
        for (int64_t found = 1; found > 0 && matching->count < n;) {
            found = 0;
            ++pass;
            for (int64_t i = 1; i <= n; ++i)
                if (matching->row_edge[i - 1] == 0 && augment_from(rows, matching, limit, pass, i, search)) ++found;
            matching->count += found;
        }
    }
}
