/* Drives the nested dissection: choice of the index width and of pruning, table of domains, permutations. */
#include "analysis/nested_dissection.h"
#include "analysis/ordering.h"

namespace
{
/* The narrow partitioner takes half the memory and less time; sums of a few lists must still fit. */
constexpr int64_t narrow_rows = int64_t{1} << 28;
constexpr int64_t narrow_entries = int64_t{1} << 30;

bool has_dense_row(int64_t neqns, const int64_t *xadj)
{
    int64_t longest = 1;
    for (int64_t i = 0; i < neqns; ++i) {
        if (xadj[i + 1] - xadj[i] > longest) longest = xadj[i + 1] - xadj[i];
    }
    return longest >= neqns / 8;
}

/* Give the pairs without a range an empty one behind what came before, and go over to numbers from 1. */
void complete_table(int64_t neqns, int64_t domains, int64_t *domain_table)
{
    int64_t largest = -1;
    for (int64_t k = 0; k < 2 * domains; ++k) {
        int64_t *pair = domain_table + 2 * k;
        if (pair[0] < 0) {
            pair[0] = largest + 1;
            pair[1] = largest;
        }
        if (pair[1] > largest) largest = pair[1];
        const int64_t shift = pair[0] >= neqns ? 0 : 1; /* an empty pair behind the last column moves down by one */
        pair[0] += shift;
        pair[1] += shift;
    }
}
} // namespace

int64_t nested_dissection_driver(int64_t neqns, int64_t threads, int64_t *xadj, int64_t *adj, const int64_t *weight, int64_t *perm,
                                 int64_t *invp, int64_t *domains, int64_t *domain_table)
{
    int64_t width = 1;
    while (width < *domains) width *= 2;
    for (int64_t w = 0; w < 4 * width; ++w) domain_table[w] = -1;
    const dissection_request request = {neqns, threads, xadj, adj, weight, has_dense_row(neqns, xadj), width, invp, domain_table};
    const bool narrow = neqns < narrow_rows && xadj[neqns] < narrow_entries;
    const int64_t error = narrow ? dissect_narrow(&request) : dissect_wide(&request);
    if (error != 0) return error;
    complete_table(neqns, width, domain_table);
    *domains = width;
    for (int64_t v = 0; v < neqns; ++v) {
        ++invp[v];
        perm[invp[v] - 1] = v + 1;
    }
    return 0;
}
