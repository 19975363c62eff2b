/* Depth-first augmenting paths with lookahead (Pothen and Fan 1990) over the entries of a matrix that a test lets pass. */
#pragma once

#include "analysis/matching.h"

struct depth_search {
    int64_t *ahead;   /* [n] next entry of a row to be tried for a free column; within one limit it only moves on */
    int64_t *next;    /* [n] next entry of a row to go down by */
    int64_t *row;     /* [n] the path: its rows */
    int64_t *edge;    /* [n] and the entry by which each row goes on */
    int64_t *visited; /* [n] last pass that met the column */
};

inline depth_search make_depth_search(int64_t n, int64_t *work)
{
    const depth_search search = {work, work + n, work + 2 * n, work + 3 * n, work + 4 * n};
    for (int64_t j = 0; j < n; ++j) search.visited[j] = 0;
    return search;
}

/* An augmenting path from the free row root over entries with may_use(row, entry), past columns that this pass has not met. */
template <typename test_t>
bool augment_from(const cost_rows &rows, row_matching *matching, const test_t &may_use, int64_t pass, int64_t root,
                  const depth_search &search)
{
    int64_t depth = 0;
    search.row[0] = root;
    search.next[root - 1] = rows.start[root - 1];
    while (depth >= 0) {
        const int64_t i = search.row[depth];
        int64_t *ahead = &search.ahead[i - 1];
        while (*ahead < rows.start[i] && (!may_use(i, *ahead) || matching->column_row[rows.column[*ahead - 1] - 1] != 0)) ++*ahead;
        if (*ahead < rows.start[i]) {
            search.edge[depth] = *ahead;
            for (int64_t k = depth; k >= 0; --k) match_entry(rows, matching, search.row[k], search.edge[k]);
            return true;
        }
        int64_t *next = &search.next[i - 1];
        while (*next < rows.start[i] && (!may_use(i, *next) || search.visited[rows.column[*next - 1] - 1] == pass)) ++*next;
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

/* One pass over the free rows. Returns how many were matched. */
template <typename test_t>
int64_t augment_free_rows(const cost_rows &rows, row_matching *matching, const test_t &may_use, int64_t pass, const depth_search &search)
{
    int64_t found = 0;
    for (int64_t i = 1; i <= rows.n; ++i)
        if (matching->row_edge[i - 1] == 0 && augment_from(rows, matching, may_use, pass, i, search)) ++found;
    matching->count += found;
    return found;
}
