/* Minimum degree that keeps the interface between the threads' parts for the end. */
#include "analysis/minimum_degree.h"
#include "analysis/ordering.h"
#include "service/service.h"

namespace
{
void shift_numbers(int64_t neqns, int64_t *xadj, int64_t *adj, int64_t by)
{
    const int64_t entries = xadj[neqns] - (by < 0 ? 1 : 0);
    for (int64_t p = 0; p < entries; ++p) adj[p] += by;
    for (int64_t i = 0; i <= neqns; ++i) xadj[i] += by;
}

/* The interface vertices get their places in the decomposition, from 1; the others 0. part and on_interface are work. */
int64_t find_interface(int64_t neqns, int64_t nproc, int64_t *xadj, int64_t *adj, int64_t *order, int64_t *part, int64_t *on_interface,
                       int64_t *held, int64_t *held_count, int64_t *peak_kb)
{
    const int64_t bytes = 8 * (nproc + 1);
    *held_count = 0;
    for (int64_t v = 0; v < neqns; ++v) held[v] = 0;
    if (nproc < 2 || neqns < 2 * nproc || xadj[neqns] == 1) return 0;
    int64_t *part_start = static_cast<int64_t *>(service_alloc_direct(static_cast<uint64_t>(bytes), 64));
    if (part_start == nullptr) return -2;
    *peak_kb += bytes;
    shift_numbers(neqns, xadj, adj, -1);
    const int64_t error = interface_decomposition(neqns, nproc, xadj, adj, order, part_start, part, on_interface);
    shift_numbers(neqns, xadj, adj, 1);
    if (error == 0) {
        for (int64_t k = part_start[nproc]; k < neqns; ++k) held[order[k]] = k + 1;
        *held_count = neqns - part_start[nproc];
    }
    service_free_direct(part_start);
    return error;
}
} // namespace

int64_t constrained_order(int64_t neqns, int64_t nproc, int64_t *xadj, int64_t *adj, int64_t *perm, int64_t *invp, int64_t mode_one,
                          int64_t delta, int64_t integer_limit, int64_t *lists, int64_t *work, int64_t *held_count, int64_t *peak_kb)
{
    int64_t *order = work + (xadj[neqns] - 1), *held = order + neqns;
    const int64_t error = find_interface(neqns, nproc, xadj, adj, order, perm, invp, held, held_count, peak_kb);
    if (error != 0) return error;
    for (int64_t p = 0; p < xadj[neqns] - 1; ++p) work[p] = adj[p];
    degree_state<int64_t> s = degree_state_in_lists(neqns, xadj, work, invp, perm, lists, integer_limit);
    s.held = *held_count > 0 ? held : nullptr;
    start_degrees(&s, static_cast<const int64_t *>(nullptr));
    eliminate_all(&s, delta);
    if (*held_count > 0 && mode_one == 1) {
        release_held(&s, held);
        *held_count = 0;
        eliminate_all(&s, delta);
    }
    number_vertices(&s, invp);
    for (int64_t v = 0; v < neqns; ++v) {
        if (invp[v] == 0) invp[v] = held[v]; /* its place in the decomposition: the last ones */
    }
    invert_permutation(neqns, invp, perm);
    return 0;
}
