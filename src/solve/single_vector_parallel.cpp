/* One right-hand side on several threads: the leaf domains side by side, then the separators level by level. Updates from a node to rows
   past its own go to a private vector of the thread; after each level the private vectors are added to x in thread order, and nodes are
   dealt to threads in turn, so that the bits depend on the thread count alone. The backward sweep needs no private vectors, since a node
   only reads rows past its own. */
#include "solve/solve_internal.h"

#include <atomic>

/* Nodes of one level: pairs of domain_table, node k of the level is pair at[k]. */
struct level_nodes {
    int64_t count;
    int64_t at[32];
};

/* Level 0 holds the leaf pairs; level v the separators 2^v domains wide, in the binary tree rooted at pair 2 * domains, where the
   children of x at a level of w nodes are x - domains / (2 w) and x - 1. Returns the number of levels, domains at most 32. */
static int64_t list_levels(int64_t domains, level_nodes *levels)
{
    int64_t level_count = 1;
    for (int64_t d = domains; d > 1; d /= 2) ++level_count;
    levels[level_count - 1] = {1, {2 * domains}};
    for (int64_t v = level_count - 1; v > 1; --v) {
        const level_nodes &upper = levels[v];
        levels[v - 1].count = 2 * upper.count;
        for (int64_t k = 0; k < upper.count; ++k) {
            levels[v - 1].at[2 * k] = upper.at[k] - domains / (2 * upper.count);
            levels[v - 1].at[2 * k + 1] = upper.at[k] - 1;
        }
    }
    levels[0].count = domains;
    for (int64_t k = 0; k < domains; ++k) levels[0].at[k] = k + 1;
    return level_count;
}

template <typename value_t>
static void forward_level(const sweep<value_t> *w, const level_nodes &level, int64_t threads, int64_t top_row, value_t *x, value_t *beyond,
                          std::atomic<bool> *complete)
{
    const supernodal_structure &s = *w->structure;
    const int64_t n = s.neqns, team = level.count < threads ? level.count : threads;
#pragma omp parallel for num_threads(static_cast <int>(team)) schedule(static, 1)
    for (int64_t t = 0; t < team; ++t) {
        value_t *const own = beyond + t * n;
        for (int64_t i = top_row - 1; i < n; ++i) own[i] = value_t(0);
        for (int64_t k = t; k < level.count; k += team) {
            const int64_t first = s.domain_table[2 * level.at[k] - 2], last = s.domain_table[2 * level.at[k] - 1];
            if (first > last) continue;
            const int64_t last_row = s.xsuper[last] - 1;
            if (!complete->load(std::memory_order_relaxed)) continue;
            if (!forward_supernodes(w, first, last, x, last_row, own)) complete->store(false, std::memory_order_relaxed);
        }
    }
    for (int64_t t = 0; t < team; ++t) {
        const value_t *const own = beyond + t * n;
        for (int64_t i = top_row - 1; i < n; ++i) x[i] += own[i];
    }
}

template <typename value_t>
static void backward_level(const sweep<value_t> *w, const level_nodes &level, int64_t threads, value_t *x, std::atomic<bool> *complete)
{
    const supernodal_structure &s = *w->structure;
    const int64_t team = level.count < threads ? level.count : threads;
#pragma omp parallel for num_threads(static_cast <int>(team)) schedule(dynamic, 1)
    for (int64_t k = level.count - 1; k >= 0; --k) {
        const int64_t first = s.domain_table[2 * level.at[k] - 2], last = s.domain_table[2 * level.at[k] - 1];
        const int64_t stop = first > w->window.backward_last_supernode ? first : w->window.backward_last_supernode;
        if (!complete->load(std::memory_order_relaxed)) continue;
        if (!backward_supernodes(w, stop, last, x)) complete->store(false, std::memory_order_relaxed);
    }
}

template <typename value_t>
bool solve_single_parallel(const sweep<value_t> *w, int64_t threads, value_t *x, value_t *beyond)
{
    const supernodal_structure &s = *w->structure;
    level_nodes levels[6];
    const int64_t level_count = list_levels(s.domains, levels);
    const int64_t top_first = s.domain_table[2 * s.domains];
    const int64_t top_row = top_first <= s.supernodes ? s.xsuper[top_first - 1] : s.neqns + 1;
    std::atomic<bool> complete = true;
    if (w->forward)
        for (int64_t v = 0; v < level_count; ++v) forward_level(w, levels[v], threads, top_row, x, beyond, &complete);
    if (w->diagonal || w->backward)
        for (int64_t v = level_count - 1; v >= 0; --v) backward_level(w, levels[v], threads, x, &complete);
    return complete.load();
}

#define INSTANTIATE(V) template bool solve_single_parallel<V>(const sweep<V> *, int64_t, V *, V *);
INSTANTIATE(double)
INSTANTIATE(float)
INSTANTIATE(std::complex<double>)
INSTANTIATE(std::complex<float>)
