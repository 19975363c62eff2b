#include "node_ordering.h"

#ifdef WKL_BENCH_METIS
#include <cstddef>
#include <vector>

#include <metis.h>

std::function<bool()> packaged_node_ordering(int64_t n, const int64_t *start, const int64_t *neighbour, int64_t *perm, int64_t *invp)
{
    struct job {
        idx_t n;
        std::vector<idx_t> xadj, adj, perm, invp;
    };
    const size_t rows = static_cast<size_t>(n);
    job graph{static_cast<idx_t>(n),
              {start, start + n + 1},
              {neighbour, neighbour + start[n]},
              std::vector<idx_t>(rows),
              std::vector<idx_t>(rows)};
    return [graph, perm, invp]() mutable {
        if (METIS_NodeND(&graph.n, graph.xadj.data(), graph.adj.data(), nullptr, nullptr, graph.perm.data(), graph.invp.data()) != METIS_OK)
            return false;
        for (size_t i = 0; i < graph.perm.size(); ++i) {
            perm[i] = graph.perm[i];
            invp[i] = graph.invp[i];
        }
        return true;
    };
}
#else
std::function<bool()> packaged_node_ordering(int64_t, const int64_t *, const int64_t *, int64_t *, int64_t *)
{
    return {};
}
#endif
