#include <cstring>
#include <utility>

#include "analysis/symbolic.h"

/* Columns first..last in ascending order. Climbing stays at numbers from first on when all neighbours below do; a neighbour below lowest
   is not looked at and makes the answer false. */
static bool extend_tree(int64_t first, int64_t last, int64_t lowest, const int64_t *xadj, const int64_t *adj, const int64_t *perm,
                        const int64_t *invp, int64_t *parent, int64_t *ancestor, const int64_t *twin)
{
    for (int64_t j = first; j <= last; ++j) {
        parent[j - 1] = 0;
        if (twin != nullptr && j > first && twin[j - 1] != 0) { /* all that column j reaches ends at column j - 1 by now */
            parent[j - 2] = ancestor[j - 2] = j;
            ancestor[j - 1] = 0;
            continue;
        }
        const int64_t given = perm[j - 1];
        ancestor[j - 1] = j; /* so that a climb from j, which stands for all neighbours behind it, ends at once */
        for (int64_t p = xadj[given - 1]; p < xadj[given]; ++p) {
            int64_t i = invp[adj[p - 1] - 1];
            i = i < j ? i : j;
            if (i < lowest) return false;
            for (;;) {
                const int64_t a = ancestor[i - 1];
                if (a == j) break;
                ancestor[i - 1] = j;
                if (a < 1) {
                    parent[i - 1] = j;
                    break;
                }
                i = a;
            }
        }
        ancestor[j - 1] = 0;
    }
    return true;
}

/* The lists are the same up to where each names the other column, and shifted by one place between these two positions. */
static bool are_twins(int64_t g, int64_t h, const int64_t *xadj, const int64_t *adj)
{
    const int64_t length = xadj[g] - xadj[g - 1], *a = adj + (xadj[g - 1] - 1), *b = adj + (xadj[h - 1] - 1);
    if (xadj[h] - xadj[h - 1] != length) return false;
    int64_t k = 0;
    while (k < length && a[k] == b[k]) ++k;
    if (k == length) return false; /* not neighbours */
    if (b[k] != g) {
        std::swap(a, b);
        std::swap(g, h);
    }
    if (b[k] != g) return false;
    while (k + 1 < length && a[k] == b[k + 1]) ++k;
    return a[k] == h && std::memcmp(a + k + 1, b + k + 1, static_cast<size_t>(length - k - 1) * sizeof(int64_t)) == 0;
}

void mark_twins(int64_t neqns, int64_t nproc, const int64_t *xadj, const int64_t *adj, const int64_t *perm, int64_t *twin)
{
    const auto given = [=](int64_t j) { return perm != nullptr ? perm[j - 1] : j; };
#pragma omp parallel for schedule(static) num_threads(symbolic_threads(neqns, nproc)) if (symbolic_threads(neqns, nproc) > 1)
    for (int64_t j = 1; j <= neqns; ++j) twin[j - 1] = j > 1 && are_twins(given(j - 1), given(j), xadj, adj) ? 1 : 0;
}

void elimination_tree(int64_t neqns, int64_t nproc, int64_t domains, const int64_t *domain_table, const int64_t *xadj, const int64_t *adj,
                      const int64_t *perm, const int64_t *invp, int64_t *parent, int64_t *ancestor, const int64_t *twin)
{
    /* A column's tree links depend only on smaller columns that it reaches, so a table is only trusted as far as it proves right: a domain
       column with a neighbour below its domain sends everything through the plain order. */
    const int64_t usable = nproc > 1 && domains > 1 ? open_domain_walk(neqns, domains, domain_table).domains : 0;
    int32_t independent = usable > 1;
    if (independent != 0) {
        const int threads = static_cast<int>(nproc < usable ? nproc : usable);
#pragma omp parallel for num_threads(threads) schedule(dynamic, 1) reduction(min : independent)
        for (int64_t d = 1; d <= usable; ++d) {
            int64_t first, last;
            if (!domain_pair(domain_table, d, neqns, &first, &last)) continue;
            if (!extend_tree(first, last, first, xadj, adj, perm, invp, parent, ancestor, twin)) independent = 0;
        }
    }
    if (independent == 0) {
        extend_tree(1, neqns, 1, xadj, adj, perm, invp, parent, ancestor, twin);
        return;
    }
    domain_walk walk = open_domain_walk(neqns, domains, domain_table);
    int64_t first, last;
    while (next_range(&walk, &first, &last))
        if (walk.step > domains) extend_tree(first, last, 1, xadj, adj, perm, invp, parent, ancestor, twin);
}

void child_lists(int64_t count, const int64_t *parent, int64_t *first_child, int64_t *sibling)
{
    for (int64_t j = 1; j <= count; ++j) first_child[j - 1] = 0;
    for (int64_t j = count; j >= 1; --j) {
        const int64_t p = parent[j - 1];
        sibling[j - 1] = 0;
        if (p < 1) continue;
        sibling[j - 1] = first_child[p - 1];
        first_child[p - 1] = j;
    }
}
