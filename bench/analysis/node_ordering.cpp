#include "node_ordering.h"

#ifdef WKL_BENCH_METIS
#include <cstddef>
#include <vector>

#include <metis.h>

bool packaged_node_ordering(int64_t n, const int64_t *start, const int64_t *neighbour, int64_t *perm, int64_t *invp)
{
    std::vector<idx_t> xadj(start, start + n + 1), adj(neighbour, neighbour + start[n]);
    std::vector<idx_t> p(static_cast<size_t>(n)), q(static_cast<size_t>(n));
    idx_t vertices = static_cast<idx_t>(n);
    if (METIS_NodeND(&vertices, xadj.data(), adj.data(), nullptr, nullptr, p.data(), q.data()) != METIS_OK) return false;
    for (size_t i = 0; i < p.size(); ++i) {
        perm[i] = p[i];
        invp[i] = q[i];
    }
    return true;
}
#else
bool packaged_node_ordering(int64_t, const int64_t *, const int64_t *, int64_t *, int64_t *)
{
    return false;
}
#endif
