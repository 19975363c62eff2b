/* Parts of a graph and the vertices between them, from the k-way partitioner. */
#define WKL_METIS_WIDTH 64
#include "analysis/ordering.h"

#include "wkl_metis_internal.h" /* last: it defines short macros */

namespace
{
struct partition_call {
    int64_t n, parts, *xadj, *adj, *part;
    int64_t code;
};

void partition_under_guard(void *argument)
{
    partition_call *call = static_cast<partition_call *>(argument);
    idx_t constraints = 1, cut = 0;
    call->code = METIS_PartGraphKway(&call->n, &constraints, call->xadj, call->adj, nullptr, nullptr, nullptr, &call->parts, nullptr,
                                     nullptr, nullptr, &cut, call->part);
}

bool touches_other_part(int64_t v, const int64_t *xadj, const int64_t *adj, const int64_t *part, const int64_t *without)
{
    for (int64_t p = xadj[v]; p < xadj[v + 1]; ++p) {
        const int64_t u = adj[p];
        if (part[u] != part[v] && (without == nullptr || without[u] == 0)) return true;
    }
    return false;
}

/* A random order, the same every time (Fisher and Yates; multiplier of Knuth's MMIX generator). */
void shuffle(int64_t n, int64_t *order)
{
    uint64_t state = 4321;
    for (int64_t k = 0; k < n; ++k) order[k] = k;
    for (int64_t k = n - 1; k > 0; --k) {
        state = state * 6364136223846793005u + 1442695040888963407u;
        const int64_t other = static_cast<int64_t>((state >> 33) % static_cast<uint64_t>(k + 1));
        const int64_t held = order[k];
        order[k] = order[other];
        order[other] = held;
    }
}

/* Append the vertices with the given flag, part by part, from place on. starts null, or [parts]. */
int64_t append_by_part(int64_t n, int64_t parts, const int64_t *part, const int64_t *flags, int64_t flag, int64_t place, int64_t *starts,
                       int64_t *order)
{
    for (int64_t d = 0; d < parts; ++d) {
        if (starts != nullptr) starts[d] = place;
        for (int64_t v = 0; v < n; ++v) {
            if (part[v] == d && flags[v] == flag) order[place++] = v;
        }
    }
    return place;
}
} // namespace

int64_t interface_decomposition(int64_t n, int64_t nproc, int64_t *xadj, int64_t *adj, int64_t *order, int64_t *part_start, int64_t *part,
                                int64_t *on_interface)
{
    partition_call call = {n, nproc, xadj, adj, part, METIS_OK};
    const int64_t error = wkl_metis_guard(nullptr, 1, partition_under_guard, &call);
    if (error != 0 || call.code != METIS_OK) return -2;
    for (int64_t v = 0; v < n; ++v) on_interface[v] = touches_other_part(v, xadj, adj, part, nullptr) ? 1 : 0;
    shuffle(n, order);
    for (int64_t k = 0; k < n; ++k) { /* one side of a cut edge is enough */
        const int64_t v = order[k];
        if (on_interface[v] != 0 && !touches_other_part(v, xadj, adj, part, on_interface)) on_interface[v] = 0;
    }
    part_start[nproc] = append_by_part(n, nproc, part, on_interface, 0, 0, part_start, order);
    append_by_part(n, nproc, part, on_interface, 1, part_start[nproc], nullptr, order);
    return 0;
}
