/* Coarsening of mesh-like graphs by a matching in the order of the vertices; included by node_bisection_body.h only, in its unnamed
   namespace's place.

   Each vertex in turn is joined with the neighbour that it shares the heaviest edge with (Karypis and Kumar 1998, there in random order).
   Numbers that are close mostly belong to vertices that are close: a walk in their order stays in the cache, where a random one waits for
   memory, and the coarse graphs of a mesh stay regular, so that their separators are smaller. It leaves hardly a vertex alone there. Where
   it leaves more, the graph is no mesh or its numbers mean nothing, and the random order of the partitioner does better. */

namespace
{
constexpr idx_t unmatched = -1;
constexpr idx_t alone_share = 200; /* at most one vertex in that many may be left alone */
constexpr idx_t least_degree = 5;  /* on average: a 5-point grid of 1000^2 got 7 % more entries of L from the order of its vertices */

/* The neighbour that v can be joined with over the heaviest edge, or v itself. */
idx_t heaviest_neighbour(const graph_t *graph, idx_t v, idx_t weight_limit, const idx_t *match)
{
    idx_t best = v, heaviest = -1;
    for (idx_t p = graph->xadj[v]; p < graph->xadj[v + 1]; ++p) {
        const idx_t u = graph->adjncy[p];
        if (graph->adjwgt[p] <= heaviest || match[u] != unmatched || graph->vwgt[v] + graph->vwgt[u] > weight_limit) continue;
        heaviest = graph->adjwgt[p];
        best = u;
    }
    return best;
}

/* match[n] out. False, and match is of no use, when too many vertices are left alone. */
bool match_in_order(const graph_t *graph, idx_t weight_limit, idx_t *match)
{
    idx_t spare = graph->nvtxs / alone_share;
    for (idx_t v = 0; v < graph->nvtxs; ++v) match[v] = unmatched;
    for (idx_t v = 0; v < graph->nvtxs; ++v) {
        if (match[v] != unmatched) continue;
        const idx_t u = heaviest_neighbour(graph, v, weight_limit, match);
        if (u == v && --spare < 0) return false;
        match[v] = u;
        match[u] = v;
    }
    return true;
}

/* One level, or null when the graph is none for this. */
graph_t *coarsen_in_order(ctrl_t *ctrl, graph_t *graph)
{
    graph_t *coarse = nullptr;
    if (graph->nedges < least_degree * graph->nvtxs) return nullptr;
    wspacepush(ctrl);
    idx_t *match = iwspacemalloc(ctrl, graph->nvtxs), count = 0;
    if (match_in_order(graph, ctrl->maxvwgt[0], match)) {
        if (graph->cmap == nullptr) graph->cmap = static_cast<idx_t *>(wkl_metis_malloc(static_cast<size_t>(graph->nvtxs) * sizeof(idx_t)));
        for (idx_t v = 0; v < graph->nvtxs; ++v) graph->cmap[v] = match[v] < v ? graph->cmap[match[v]] : count++;
        CreateCoarseGraph(ctrl, graph, count, match);
        coarse = graph->coarser;
    }
    wspacepop(ctrl);
    return coarse;
}

/* At most levels times, until the graph has no more than size vertices. In order as long as that does, then as the partitioner does.
   in_order: whether the first level could be made in order. */
graph_t *coarsen_graph(ctrl_t *ctrl, graph_t *graph, idx_t levels, idx_t size, bool *in_order)
{
    ctrl->CoarsenTo = size;
    ctrl->maxvwgt[0] = static_cast<idx_t>(1.5 * static_cast<double>(graph->tvwgt[0]) / static_cast<double>(size));
    *in_order = false;
    for (; levels > 0 && graph->nvtxs > size && graph->nedges >= graph->nvtxs / 2; --levels) {
        graph_t *coarse = coarsen_in_order(ctrl, graph);
        if (coarse == nullptr) return CoarsenGraphNlevels(ctrl, graph, levels);
        *in_order = true;
        graph = coarse;
    }
    return graph;
}
} // namespace
