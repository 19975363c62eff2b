/* Adjacency of B + B' for an unsymmetric pattern with permuted rows. The transpose is made by counting, and a row and its transposed row
   are united with a marker per thread: nothing is sorted. */
#include <omp.h>

#include "analysis/ordering.h"

namespace
{
struct permuted_pattern {
    int64_t neqns;
    const int64_t *ia, *ja, *row_order;
};

int64_t given_row(const permuted_pattern *b, int64_t i)
{
    return b->row_order != nullptr ? b->row_order[i - 1] : i;
}

/* Lists of the transpose: row numbers of B by column, ascending. start[n + 1], rows[nnz]. */
void transpose(const permuted_pattern *b, int64_t *start, int64_t *rows)
{
    const int64_t n = b->neqns, entries = b->ia[n] - 1;
    for (int64_t j = 0; j <= n; ++j) start[j] = 0;
    for (int64_t p = 0; p < entries; ++p) ++start[b->ja[p]];
    start[0] = 1;
    for (int64_t j = 1; j <= n; ++j) start[j] += start[j - 1];
    for (int64_t i = 1; i <= n; ++i) {
        const int64_t row = given_row(b, i);
        for (int64_t p = b->ia[row - 1]; p < b->ia[row]; ++p) rows[start[b->ja[p - 1] - 1]++ - 1] = i;
    }
    for (int64_t j = n; j > 0; --j) start[j] = start[j - 1];
    start[0] = 1;
}

/* Row i of B and of its transpose, each neighbour once; marker holds the row it was last met in. list null: only count. */
int64_t unite_row(const permuted_pattern *b, const int64_t *start, const int64_t *rows, int64_t i, int64_t *marker, int64_t stamp,
                  int64_t *list)
{
    const int64_t row = given_row(b, i);
    int64_t length = 0;
    marker[i - 1] = stamp;
    for (int64_t p = b->ia[row - 1]; p < b->ia[row]; ++p) {
        const int64_t j = b->ja[p - 1];
        if (marker[j - 1] == stamp) continue;
        marker[j - 1] = stamp;
        if (list != nullptr) list[length] = j;
        ++length;
    }
    for (int64_t p = start[i - 1]; p < start[i]; ++p) {
        const int64_t j = rows[p - 1];
        if (marker[j - 1] == stamp) continue;
        marker[j - 1] = stamp;
        if (list != nullptr) list[length] = j;
        ++length;
    }
    return length;
}

/* Two passes over the rows: the lengths, then the lists. Stamps of the second pass lie above those of the first. */
void unite(const permuted_pattern *b, int threads, const int64_t *start, const int64_t *rows, int64_t *markers, int64_t *xadj, int64_t *adj)
{
    const int64_t n = b->neqns;
#pragma omp parallel num_threads(threads)
    {
        int64_t *marker = markers + n * omp_get_thread_num();
        for (int64_t j = 0; j < n; ++j) marker[j] = 0;
#pragma omp for schedule(static)
        for (int64_t i = 1; i <= n; ++i) xadj[i] = unite_row(b, start, rows, i, marker, i, nullptr);
#pragma omp single
        {
            xadj[0] = 1;
            for (int64_t i = 1; i <= n; ++i) xadj[i] += xadj[i - 1];
        }
#pragma omp for schedule(static)
        for (int64_t i = 1; i <= n; ++i) unite_row(b, start, rows, i, marker, n + i, adj + (xadj[i - 1] - 1));
    }
}
} // namespace

void symmetrise_unsymmetric(int64_t neqns, int64_t nproc, const int64_t *ia, const int64_t *ja, const int64_t *row_order, int64_t *xadj,
                            int64_t *adj, int64_t *work, int64_t work_words)
{
    const permuted_pattern b = {neqns, ia, ja, row_order};
    const int64_t entries = ia[neqns] - 1;
    int64_t *start = work, *rows = start + neqns + 1, *markers = rows + entries;
    int64_t threads = neqns < 1 ? 1 : (work_words - (neqns + 1) - entries) / neqns;
    if (threads > nproc) threads = nproc;
    if (threads < 1) threads = 1;
    transpose(&b, start, rows);
    unite(&b, static_cast<int>(threads), start, rows, markers, xadj, adj);
}
