/* Symmetric adjacency of the stored pattern, in time linear in its entries. */
#include <omp.h>

#include "analysis/ordering.h"

namespace
{
/* Threads are worth their start from this many rows on. */
constexpr int64_t parallel_rows = 4096;

/* Starts from counts: xadj[i] holds the length of list i (i from 1) on entry, its end plus one on return, and xadj[0] is 1. */
void lengths_to_starts(int64_t neqns, int64_t *xadj)
{
    xadj[0] = 1;
    for (int64_t i = 1; i <= neqns; ++i) xadj[i] += xadj[i - 1];
}

/* Both triangles are stored: the rows without their diagonal, wherever it stands. */
void copy_rows(int64_t neqns, int threads, const int64_t *ia, const int64_t *ja, int64_t *xadj, int64_t *adj)
{
#pragma omp parallel for schedule(static) num_threads(threads)
    for (int64_t i = 1; i <= neqns; ++i) {
        int64_t length = 0;
        for (int64_t p = ia[i - 1]; p < ia[i]; ++p) length += ja[p - 1] != i ? 1 : 0;
        xadj[i] = length;
    }
    lengths_to_starts(neqns, xadj);
#pragma omp parallel for schedule(static) num_threads(threads)
    for (int64_t i = 1; i <= neqns; ++i) {
        int64_t q = xadj[i - 1];
        for (int64_t p = ia[i - 1]; p < ia[i]; ++p) {
            if (ja[p - 1] != i) adj[q++ - 1] = ja[p - 1];
        }
    }
}

/* Add what rows first..last send to each list: their own length, and one for each column they meet. */
void count_triangle(int64_t first, int64_t last, const int64_t *ia, const int64_t *ja, int64_t *count)
{
    for (int64_t i = first; i <= last; ++i) {
        if (ia[i] <= ia[i - 1]) continue; /* no entry at all: only an unchecked matrix has such a row */
        count[i - 1] += ia[i] - ia[i - 1] - 1;
        for (int64_t p = ia[i - 1] + 1; p < ia[i]; ++p) ++count[ja[p - 1] - 1];
    }
}

/* Fill from rows first..last; next[i-1] is the place where list i goes on, and moves. */
void fill_triangle(int64_t first, int64_t last, const int64_t *ia, const int64_t *ja, int64_t *next, int64_t *adj)
{
    for (int64_t i = first; i <= last; ++i) {
        int64_t own = next[i - 1];
        for (int64_t p = ia[i - 1] + 1; p < ia[i]; ++p) {
            const int64_t j = ja[p - 1];
            adj[own++ - 1] = j;
            adj[next[j - 1]++ - 1] = i;
        }
        next[i - 1] = own;
    }
}

/* One worker. The fill moves each start to the start of the next list, so the starts shift down by one afterwards. */
void fill_with_one_worker(int64_t neqns, const int64_t *ia, const int64_t *ja, int64_t *xadj, int64_t *adj)
{
    for (int64_t i = 0; i <= neqns; ++i) xadj[i] = 0;
    count_triangle(1, neqns, ia, ja, xadj + 1);
    lengths_to_starts(neqns, xadj);
    fill_triangle(1, neqns, ia, ja, xadj, adj);
    for (int64_t i = neqns; i > 0; --i) xadj[i] = xadj[i - 1];
    xadj[0] = 1;
}

/* Two workers with private places in every list: rows 1..r-1 and r..n. Rows shorten towards the end, hence the share below one half. The
   lists come out in the same order as with one worker, since a list gets the entries of lower rows first either way. */
void fill_with_two_workers(int64_t neqns, const int64_t *ia, const int64_t *ja, int64_t *xadj, int64_t *adj, int64_t *counts)
{
    int64_t r = static_cast<int64_t>(static_cast<float>(neqns) * 0.48F);
    if (r < 1) r = 1;
    if (r > neqns) r = neqns;
    for (int64_t i = 0; i <= neqns; ++i) xadj[i] = counts[i] = 0;
#pragma omp parallel sections num_threads(2)
    {
#pragma omp section
        count_triangle(1, r - 1, ia, ja, counts);
#pragma omp section
        count_triangle(r, neqns, ia, ja, xadj + 1);
    }
    int64_t start = 1;
    for (int64_t i = 1; i <= neqns; ++i) { /* counts[i-1]: start for worker one; xadj[i]: start for worker two, then the list's end */
        const int64_t from_one = counts[i - 1], from_two = xadj[i];
        counts[i - 1] = start;
        xadj[i] = start + from_one;
        start += from_one + from_two;
    }
    xadj[0] = 1;
#pragma omp parallel sections num_threads(2)
    {
#pragma omp section
        fill_triangle(1, r - 1, ia, ja, counts, adj);
#pragma omp section
        fill_triangle(r, neqns, ia, ja, xadj + 1, adj);
    }
}
} // namespace

void symmetrise_pattern(int64_t neqns, int64_t nproc, int64_t sequential, const int64_t *ia, const int64_t *ja, int64_t *xadj, int64_t *adj,
                        int64_t triangle, int64_t *counts)
{
    const bool small = neqns < parallel_rows;
    if (triangle != 1)
        copy_rows(neqns, small || nproc < 1 ? 1 : static_cast<int>(nproc), ia, ja, xadj, adj);
    else if (sequential != 0 || small)
        fill_with_one_worker(neqns, ia, ja, xadj, adj);
    else
        fill_with_two_workers(neqns, ia, ja, xadj, adj, counts);
}
