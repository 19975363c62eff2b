/* Recursive dissection over the partitioner's node bisection, for the index width that WKL_METIS_WIDTH names; included by one source file
   per width. Everything here has internal linkage, as both widths use the same names.

   Tasks. A node of the recursion bisects its graph, numbers the separator behind both halves, and leaves the halves to two tasks as long
   as the thread budget asks for it; below that a task works its subtree alone. Tasks share order and domain_table and write disjoint
   ranges and pairs. The random numbers of a bisection start from its position in the recursion, so the result depends neither on timing
   nor on the number of threads.

   Memory. Graphs and workspaces come from the partitioner's allocator and belong to one arena; a failure jumps out of the guard of its
   task, the other tasks see the error word and stop, and closing the arena releases everything. */
#include <cstddef>
#include <cstdint>
#include <limits>

#include <omp.h>

#include "analysis/minimum_degree.h"
#include "analysis/nested_dissection.h"
#include "service/service.h"

#include "wkl_metis_internal.h" /* last: it defines short macros */

namespace
{
constexpr idx_t leaf_size = 200;        /* a half of up to this many vertices is ordered by minimum degree */
constexpr idx_t task_size = 2000;       /* a smaller graph is no task of its own */
constexpr int64_t tasks_per_thread = 8; /* more tasks than threads, since halves differ in weight by up to a fifth */
constexpr int64_t depth_limit = 200;    /* of a recursion whose separators fail to split: what is left becomes a leaf */
constexpr idx_t halo_limit = 3;         /* a leaf of n vertices sees up to halo_limit * n + 64 vertices around it */

/* What the tasks of one ordering share. */
struct dissection_job {
    wkl_metis_arena arena;
    int64_t threads;
    bool compressed;
    idx_t separators;           /* bisections tried at each node */
    idx_t n;                    /* of the graph below: the given one, or what pruning or compression left */
    const idx_t *xadj, *adj;    /* from 0 */
    const idx_t *vertex_weight; /* or null for ones */
    idx_t *order;               /* [n] vertex -> place */
    idx_t *separator;           /* [n] at the first place of a separator how many vertices it has, 0 elsewhere */
    idx_t *local;               /* [threads * n] zero between leaves: numbers of the vertices in the leaf graph of a thread */
    int64_t *domain_table;      /* pairs counted from 0 */
    int64_t error;
};

/* One node of the recursion: the places last - vertices .. last - 1, width domains from pair on, its separator in pair slot + 1. */
struct dissection_node {
    dissection_job *job;
    graph_t *graph;
    idx_t last;
    int64_t pair, width, slot, depth, level;
    uint64_t seed;
};

bool job_failed(dissection_job *job)
{
    return __atomic_load_n(&job->error, __ATOMIC_RELAXED) != 0;
}

void fail_job(dissection_job *job, int64_t error)
{
    if (error != 0) __atomic_store_n(&job->error, error, __ATOMIC_RELAXED);
}

void record_pair(dissection_job *job, int64_t pair, int64_t first, int64_t last)
{
    job->domain_table[2 * pair] = first;
    job->domain_table[2 * pair + 1] = last;
}

ctrl_t *make_control(const dissection_job *job, graph_t *graph)
{
    ctrl_t *ctrl = SetupCtrl(METIS_OP_OMETIS, nullptr, 1, 3, nullptr, nullptr);
    if (ctrl == nullptr) wkl_metis_leave();
    ctrl->nseps = job->separators;
    ctrl->compress = job->compressed ? 1 : 0;
    AllocateWorkSpace(ctrl, graph);
    return ctrl;
}

} // namespace

#include "analysis/node_bisection_body.h"
#include "analysis/separator_order_body.h"

namespace
{
/* ---- leaves ---- */

/* The graph of a leaf with the vertices around it, which come behind its own and keep only their edges to the leaf; numbered from 1. */
struct leaf_graph {
    idx_t own, count;
    idx_t *xadj, *adj, *weight, *held;
};

idx_t *leaf_words(ctrl_t *ctrl, idx_t count)
{
    return iwspacemalloc(ctrl, count > 0 ? count : 1);
}

leaf_graph build_leaf_graph(dissection_job *job, ctrl_t *ctrl, const graph_t *graph, idx_t *local)
{
    const idx_t own = graph->nvtxs, limit = own + halo_limit * own + 64;
    idx_t entries = 0;
    for (idx_t i = 0; i < own; ++i) {
        const idx_t v = graph->label[i];
        entries += job->xadj[v + 1] - job->xadj[v];
        local[v] = i + 1;
    }
    leaf_graph leaf = {own, own, nullptr, nullptr, nullptr, nullptr};
    idx_t *global = leaf_words(ctrl, limit);
    leaf.xadj = leaf_words(ctrl, limit + 2);
    leaf.adj = leaf_words(ctrl, 2 * entries);
    idx_t *halo_length = leaf_words(ctrl, limit + 1);
    idx_t at = 0;
    for (idx_t i = 0; i < own; ++i) {
        const idx_t v = graph->label[i];
        leaf.xadj[i] = at + 1;
        for (idx_t p = job->xadj[v]; p < job->xadj[v + 1]; ++p) {
            const idx_t u = job->adj[p];
            if (local[u] == 0) {
                if (leaf.count == limit) continue;
                global[leaf.count] = u;
                halo_length[leaf.count] = 0;
                local[u] = ++leaf.count;
            }
            if (local[u] > own) ++halo_length[local[u] - 1];
            leaf.adj[at++] = local[u];
        }
    }
    leaf.xadj[own] = at + 1;
    for (idx_t h = own; h < leaf.count; ++h) leaf.xadj[h + 1] = leaf.xadj[h] + halo_length[h];
    for (idx_t h = own; h < leaf.count; ++h) halo_length[h] = leaf.xadj[h];
    for (idx_t i = 0; i < own; ++i) {
        for (idx_t p = leaf.xadj[i]; p < leaf.xadj[i + 1]; ++p) {
            const idx_t u = leaf.adj[p - 1];
            if (u > own) leaf.adj[halo_length[u - 1]++ - 1] = i + 1;
        }
    }
    leaf.weight = leaf_words(ctrl, leaf.count);
    leaf.held = leaf_words(ctrl, leaf.count);
    for (idx_t i = 0; i < leaf.count; ++i) {
        const idx_t v = i < own ? graph->label[i] : global[i];
        leaf.weight[i] = job->vertex_weight != nullptr ? job->vertex_weight[v] : 1;
        leaf.held[i] = i < own ? 0 : 1;
        local[v] = 0;
    }
    return leaf;
}

/* Number the vertices of a leaf up to place last - 1 by minimum degree, the vertices around it counted in the degrees. */
void order_leaf(dissection_job *job, ctrl_t *ctrl, const graph_t *graph, idx_t last)
{
    if (graph->nvtxs < 1) return;
    wspacepush(ctrl);
    leaf_graph leaf =
        build_leaf_graph(job, ctrl, graph, job->local + static_cast<size_t>(omp_get_thread_num()) * static_cast<size_t>(job->n));
    const idx_t n = leaf.count;
    idx_t total = 1;
    for (idx_t i = 0; i < n && total < 8 * n + 64; ++i) total += leaf.weight[i];
    degree_state<idx_t> s{};
    s.n = n;
    s.xadj = leaf.xadj;
    s.adj = leaf.adj;
    s.held = leaf.held;
    s.head_size = total > n ? total : n + 1;
    s.tag_limit = std::numeric_limits<idx_t>::max();
    s.head = leaf_words(ctrl, s.head_size);
    s.next = leaf_words(ctrl, n);
    s.prev = leaf_words(ctrl, n);
    s.weight = leaf_words(ctrl, n);
    s.marker = leaf_words(ctrl, n);
    s.chain = leaf_words(ctrl, n);
    s.place = leaf_words(ctrl, n);
    start_degrees(&s, leaf.weight);
    eliminate_all(&s, idx_t{0});
    number_vertices(&s, s.next);
    const idx_t first = last - leaf.own;
    for (idx_t i = 0; i < leaf.own; ++i) job->order[graph->label[i]] = first + s.next[i] - 1;
    wspacepop(ctrl);
}

/* ---- one node ---- */

/* A graph without edges needs no separator: the vertices go to both sides in turn. */
void halve_without_edges(ctrl_t *ctrl, graph_t *graph)
{
    Allocate2WayNodePartitionMemory(ctrl, graph);
    for (idx_t i = 0; i < graph->nvtxs; ++i) graph->where[i] = i & 1;
    Compute2WayNodePartitionParams(ctrl, graph);
}

/* Number the separator of a bisected node behind both halves and record it; the halves replace the graph, which is freed. */
void split_node(dissection_node *node, ctrl_t *ctrl, graph_t **lower, graph_t **upper)
{
    dissection_job *job = node->job;
    graph_t *graph = node->graph;
    if (node->width == 1 && graph->nvtxs > 0) {
        record_pair(job, node->pair, node->last - graph->nvtxs, node->last - 1);
        node->width = 0;
    } else {
        node->width /= 2;
    }
    const idx_t end = node->last;
    for (idx_t i = 0; i < graph->nbnd; ++i) job->order[graph->label[graph->bndind[i]]] = --node->last;
    if (node->last < end) job->separator[node->last] = end - node->last;
    if (node->slot > 0 && node->width > 0) record_pair(job, node->slot + 1, node->last, end - 1);
    SplitGraphOrder(ctrl, graph, lower, upper);
    FreeGraph(&node->graph);
}

uint64_t child_seed(uint64_t seed, uint64_t side)
{
    uint64_t z = (2 * seed + side) * 0x9E3779B97F4A7C15u;
    return z ^ (z >> 29);
}

/* The half that holds the higher (side 1) or the lower numbers. */
dissection_node make_child(const dissection_node *node, graph_t *graph, idx_t last, int64_t side)
{
    dissection_node child = *node;
    child.graph = graph;
    child.last = last;
    child.pair = node->pair + side * node->width;
    child.slot = node->width < 2 ? -1 : node->slot + (side == 1 ? node->width : 1);
    child.depth = 2 * node->depth;
    child.level = node->level + 1;
    child.seed = child_seed(node->seed, static_cast<uint64_t>(side));
    return child;
}

/* Too small to be cut, or not worth it; stuck is what a separator left as large as it was. */
bool is_leaf(const dissection_node *node, idx_t parent_size)
{
    const idx_t n = node->graph->nvtxs;
    return n <= leaf_size || n == parent_size || node->level > depth_limit || (node->graph->nedges == 0 && node->width == 0);
}

/* A leaf covers one domain. When more domains were meant for it, it stands in the place of their separator. */
void finish_leaf(dissection_node *node, ctrl_t *ctrl)
{
    const int64_t pair = node->width == 1 ? node->pair : node->slot + 1;
    if (node->width > 0) record_pair(node->job, pair, node->last - node->graph->nvtxs, node->last - 1);
    order_leaf(node->job, ctrl, node->graph, node->last);
    FreeGraph(&node->graph);
}

/* A subtree without further tasks. */
void dissect_alone(dissection_node node, ctrl_t *ctrl)
{
    if (job_failed(node.job)) return;
    graph_t *lower = nullptr, *upper = nullptr;
    const idx_t size = node.graph->nvtxs;
    if (node.graph->nedges == 0)
        halve_without_edges(ctrl, node.graph);
    else
        bisect_alone(ctrl, node.job, node.graph, node.seed);
    split_node(&node, ctrl, &lower, &upper);
    const idx_t upper_size = upper->nvtxs;
    for (int64_t side = 1; side >= 0; --side) {
        dissection_node child = make_child(&node, side == 1 ? upper : lower, side == 1 ? node.last : node.last - upper_size, side);
        if (is_leaf(&child, size))
            finish_leaf(&child, ctrl);
        else
            dissect_alone(child, ctrl);
    }
}

/* ---- tasks ---- */

struct split_call {
    dissection_node *node;
    graph_t *lower, *upper;
    bool bisected;
};

void split_under_guard(void *argument)
{
    split_call *call = static_cast<split_call *>(argument);
    dissection_node *node = call->node;
    ctrl_t *ctrl = make_control(node->job, node->graph);
    if (node->graph->nedges == 0)
        halve_without_edges(ctrl, node->graph);
    else if (!call->bisected)
        bisect_alone(ctrl, node->job, node->graph, node->seed);
    split_node(call->node, ctrl, &call->lower, &call->upper);
    FreeCtrl(&ctrl);
}

void dissect_under_guard(void *argument)
{
    const dissection_node *node = static_cast<const dissection_node *>(argument);
    ctrl_t *ctrl = make_control(node->job, node->graph);
    dissect_alone(*node, ctrl);
    FreeCtrl(&ctrl);
}

void leaf_under_guard(void *argument)
{
    dissection_node *node = static_cast<dissection_node *>(argument);
    ctrl_t *ctrl = make_control(node->job, node->graph);
    finish_leaf(node, ctrl);
    FreeCtrl(&ctrl);
}

/* A node and all below it, in tasks of the current parallel region while the budget lasts. */
void dissect_in_tasks(dissection_node node)
{
    dissection_job *job = node.job;
    if (job_failed(job)) return;
    if (node.depth >= tasks_per_thread * job->threads || job->threads < 2 || node.graph->nvtxs < task_size) {
        fail_job(job, wkl_metis_guard(&job->arena, node.seed, dissect_under_guard, &node));
        return;
    }
    const idx_t size = node.graph->nvtxs;
    const bool with_tasks = node.depth < job->threads && node.graph->nedges > 0; /* fewer nodes than threads at this depth */
    if (with_tasks) bisect_in_tasks(job, node.graph, node.seed);
    split_call call = {&node, nullptr, nullptr, with_tasks};
    if (job_failed(job)) return;
    fail_job(job, wkl_metis_guard(&job->arena, node.seed, split_under_guard, &call));
    if (job_failed(job)) return;
    const idx_t upper_size = call.upper->nvtxs;
    for (int64_t side = 1; side >= 0; --side) {
        dissection_node child =
            make_child(&node, side == 1 ? call.upper : call.lower, side == 1 ? node.last : node.last - upper_size, side);
        if (is_leaf(&child, size)) {
            fail_job(job, wkl_metis_guard(&job->arena, child.seed, leaf_under_guard, &child));
        } else {
#pragma omp task firstprivate(child)
            dissect_in_tasks(child);
        }
    }
}

/* ---- the whole ordering ---- */

/* What stands between the given vertices and those of the graph that is dissected. */
struct reduced_graph {
    dissection_job *job;
    const dissection_request *request;
    idx_t *xadj, *adj; /* the given graph, from 0 */
    graph_t *graph;
    idx_t *pruned_map;          /* [n] kept vertices, then the pruned ones in their order; null: nothing was pruned */
    idx_t *group_start, *group; /* members of each compressed vertex; null: not compressed */
};

/* Prune, else compress, else take the graph as it is. */
void reduce_under_guard(void *argument)
{
    reduced_graph *r = static_cast<reduced_graph *>(argument);
    const idx_t n = static_cast<idx_t>(r->request->neqns);
    ctrl_t *ctrl = SetupCtrl(METIS_OP_OMETIS, nullptr, 1, 3, nullptr, nullptr);
    if (ctrl == nullptr) wkl_metis_leave();
    idx_t *weight = nullptr;
    if (r->request->weight != nullptr) {
        weight = static_cast<idx_t *>(wkl_metis_malloc(static_cast<size_t>(n) * sizeof(idx_t)));
        for (idx_t v = 0; v < n; ++v) weight[v] = static_cast<idx_t>(r->request->weight[v]);
    }
    if (r->request->dense_rows) {
        r->pruned_map = static_cast<idx_t *>(wkl_metis_malloc(static_cast<size_t>(n) * sizeof(idx_t)));
        r->graph = PruneGraph(ctrl, n, r->xadj, r->adj, weight, r->pruned_map, 20.0F);
        if (r->graph == nullptr) r->pruned_map = nullptr;
    }
    if (r->graph == nullptr) {
        r->group_start = static_cast<idx_t *>(wkl_metis_malloc((static_cast<size_t>(n) + 1) * sizeof(idx_t)));
        r->group = static_cast<idx_t *>(wkl_metis_malloc(static_cast<size_t>(n) * sizeof(idx_t)));
        r->graph = CompressGraph(ctrl, n, r->xadj, r->adj, weight, r->group_start, r->group);
        if (r->graph == nullptr) r->group_start = nullptr;
    }
    if (r->graph == nullptr) {
        r->graph = SetupGraph(ctrl, n, 1, r->xadj, r->adj, weight, nullptr, nullptr);
    } else {
        r->graph->free_xadj = r->graph->free_adjncy = r->graph->free_vwgt = 0; /* the leaves look at them until the end */
    }
    if (weight != nullptr || r->group_start != nullptr) r->job->vertex_weight = r->graph->vwgt;
    FreeCtrl(&ctrl);
    r->job->compressed = r->group_start != nullptr || r->request->columns > r->request->neqns;
    if (r->job->compressed && 2 * static_cast<int64_t>(r->graph->nvtxs) < r->request->columns) r->job->separators = 2;
    r->job->n = r->graph->nvtxs;
    r->job->xadj = r->graph->xadj;
    r->job->adj = r->graph->adjncy;
}

/* Pruned vertices go to the end, and belong to the uppermost separator. */
void place_pruned(const reduced_graph *r)
{
    const dissection_request *request = r->request;
    const int64_t n = request->neqns, kept = r->job->n;
    for (int64_t i = 0; i < kept; ++i) request->order[r->pruned_map[i]] = r->job->order[i];
    for (int64_t i = kept; i < n; ++i) request->order[r->pruned_map[i]] = i;
    if (request->domains > 1) request->domain_table[2 * (request->domains + 1) + 1] = n - 1;
}

/* From compressed places to given ones; first[k] is the first place of what stands at compressed place k. */
void expand_compressed(const reduced_graph *r, idx_t *first)
{
    const dissection_request *request = r->request;
    const idx_t n = r->job->n;
    for (idx_t v = 0; v < n; ++v) first[r->job->order[v] + 1] = r->group_start[v + 1] - r->group_start[v];
    first[0] = 0;
    for (idx_t k = 0; k < n; ++k) first[k + 1] += first[k];
    for (idx_t v = 0; v < n; ++v) {
        int64_t place = first[r->job->order[v]];
        for (idx_t p = r->group_start[v]; p < r->group_start[v + 1]; ++p) request->order[r->group[p]] = place++;
    }
    for (int64_t k = 0; k < 2 * request->domains; ++k) {
        int64_t *pair = request->domain_table + 2 * k;
        if (pair[0] < 0) continue; /* no range */
        pair[0] = first[pair[0]];
        pair[1] = static_cast<int64_t>(first[pair[1] + 1]) - 1;
    }
}

/* Dissect the reduced graph; order[n] and local[threads * n] are there. */
void run_tasks(dissection_job *job, reduced_graph *r)
{
    const dissection_request *request = r->request;
    dissection_node root = {job, r->graph, job->n, 0, request->domains, request->domains, 1, 0, 0x5DEECE66Du};
    const int threads = job->n < task_size ? 1 : static_cast<int>(job->threads);
    if (job->n < 2 && request->domains < 2) {
        fail_job(job, wkl_metis_guard(&job->arena, root.seed, leaf_under_guard, &root));
        return;
    }
#pragma omp parallel num_threads(threads)
#pragma omp single
    dissect_in_tasks(root);
}

/* The separators are ordered when all places are known. Returns 0 or -2. */
int64_t finish_separators(dissection_job *job)
{
    idx_t largest = 1;
    for (idx_t k = 0; k < job->n; ++k) largest = job->separator[k] > largest ? job->separator[k] : largest;
    auto *entry = static_cast<separator_vertex *>(service_alloc_direct(static_cast<uint64_t>(largest) * sizeof(separator_vertex), 64));
    if (entry == nullptr) return -2;
    order_separators(job->n, job->xadj, job->adj, job->separator, job->order, job->local, entry);
    service_free_direct(entry);
    return 0;
}

/* Words of the narrow form are copies; the wide form works in the given arrays. */
int64_t dissect_reduced(const dissection_request *request, idx_t *xadj, idx_t *adj)
{
    dissection_job job{};
    wkl_metis_arena_open(&job.arena);
    job.threads = request->threads < 1 ? 1 : request->threads;
    job.separators = 1;
    job.domain_table = request->domain_table;
    reduced_graph r = {&job, request, xadj, adj, nullptr, nullptr, nullptr, nullptr};
    fail_job(&job, wkl_metis_guard(&job.arena, 1, reduce_under_guard, &r));
    if (job.error == 0) {
        const uint64_t words = static_cast<uint64_t>(job.n) + 1;
        job.order = static_cast<idx_t *>(service_alloc_direct(words * sizeof(idx_t), 64));
        job.local = static_cast<idx_t *>(service_calloc(static_cast<int64_t>(words) * job.threads, sizeof(idx_t), 64));
        job.separator = static_cast<idx_t *>(service_calloc(static_cast<int64_t>(words), sizeof(idx_t), 64));
        if (job.order == nullptr || job.local == nullptr || job.separator == nullptr) fail_job(&job, -2);
    }
    if (job.error == 0) run_tasks(&job, &r);
    if (job.error == 0) fail_job(&job, finish_separators(&job));
    if (job.error == 0) {
        if (r.pruned_map != nullptr)
            place_pruned(&r);
        else if (r.group_start != nullptr)
            expand_compressed(&r, job.local);
        else
            for (int64_t v = 0; v < request->neqns; ++v) request->order[v] = job.order[v];
    }
    if (job.order != nullptr) service_free_direct(job.order);
    if (job.local != nullptr) service_free_direct(job.local);
    if (job.separator != nullptr) service_free_direct(job.separator);
    wkl_metis_arena_close(&job.arena);
    return job.error;
}

#if WKL_METIS_WIDTH == 64
/* The given arrays themselves, shifted to numbers from 0 for the time of the work. */
int64_t dissect(const dissection_request *request)
{
    const int64_t n = request->neqns, entries = request->xadj[n] - 1;
    const int threads = static_cast<int>(request->threads < 1 ? 1 : request->threads);
#pragma omp parallel for schedule(static) num_threads(threads)
    for (int64_t p = 0; p < entries; ++p) --request->adj[p];
    for (int64_t i = 0; i <= n; ++i) --request->xadj[i];
    const int64_t error = dissect_reduced(request, request->xadj, request->adj);
    for (int64_t i = 0; i <= n; ++i) ++request->xadj[i];
#pragma omp parallel for schedule(static) num_threads(threads)
    for (int64_t p = 0; p < entries; ++p) ++request->adj[p];
    return error;
}
#else
/* Narrow copies from 0. */
int64_t dissect(const dissection_request *request)
{
    const int64_t n = request->neqns, entries = request->xadj[n] - 1;
    const int threads = static_cast<int>(request->threads < 1 ? 1 : request->threads);
    idx_t *xadj = static_cast<idx_t *>(service_alloc_direct(static_cast<uint64_t>(n + 1 + entries) * sizeof(idx_t), 64));
    if (xadj == nullptr) return -2;
    idx_t *adj = xadj + n + 1;
    for (int64_t i = 0; i <= n; ++i) xadj[i] = static_cast<idx_t>(request->xadj[i] - 1);
#pragma omp parallel for schedule(static) num_threads(threads)
    for (int64_t p = 0; p < entries; ++p) adj[p] = static_cast<idx_t>(request->adj[p] - 1);
    const int64_t error = dissect_reduced(request, xadj, adj);
    service_free_direct(xadj);
    return error;
}
#endif
} // namespace
