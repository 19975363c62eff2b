/* Node bisection of one graph by several attempts; included by nested_dissection_body.h only, in its unnamed namespace's place.

   The scheme is that of the partitioner's own driver (Karypis and Kumar 1998, "A fast and high quality multilevel scheme for partitioning
   irregular graphs"): a large graph is coarsened by a few levels, the small graph that is left is bisected several times from the start,
   and the best result is carried back and refined. It is driven from here for two reasons: the tries, and the attempts where more than one
   separator is asked for, work on copies that share the arrays of the graph, so they can run side by side at the top of the recursion,
   where there are no two halves yet; and each of them starts its random numbers anew, so that running them in turn gives the same. */

#include "analysis/coarsening_body.h"

namespace
{
constexpr idx_t try_size = 5000;   /* from this size on: coarsen first, and several tries */
constexpr idx_t coarse_levels = 4; /* of coarsening before the tries */
constexpr int64_t tries_most = 5;  /* on the coarse graph */
/* Where coarsening was in random order the graph is spread over the memory and its refinement is most of the time: two tries less take 15
   to 20 % of the time away from a 5-point grid of 1000^2 and from a saddle point system, for 2 to 3 % more entries of L. */
constexpr int64_t tries_random = 3;
constexpr idx_t first_cuts = 7; /* initial separators of a small graph */
constexpr idx_t try_cuts = 4;   /* the same for each of several tries */
constexpr int64_t attempts_most = 2;

/* One separator of a graph. */
struct bisection_attempt {
    dissection_job *job;
    graph_t *graph;  /* gets the partition */
    graph_t *coarse; /* what the tries work on */
    uint64_t seed;
    int64_t tries;
    idx_t *where[tries_most]; /* partitions of coarse */
    idx_t cut[tries_most];    /* weights of their separators */
};

struct bisection_try {
    bisection_attempt *attempt;
    int64_t number;
};

uint64_t mixed_seed(uint64_t seed, uint64_t number)
{
    const uint64_t z = (seed + number + 1) * 0xD1342543DE82EF95u;
    return z ^ (z >> 32);
}

/* A graph with the same arrays and a partition of its own. */
graph_t *share_graph(const graph_t *graph)
{
    graph_t *copy = CreateGraph();
    copy->nvtxs = graph->nvtxs;
    copy->nedges = graph->nedges;
    copy->ncon = graph->ncon;
    copy->xadj = graph->xadj;
    copy->vwgt = graph->vwgt;
    copy->adjncy = graph->adjncy;
    copy->adjwgt = graph->adjwgt;
    copy->free_xadj = copy->free_vwgt = copy->free_adjncy = copy->free_adjwgt = 0;
    SetupGraph_tvwgt(copy);
    return copy;
}

/* ---- the steps of an attempt ---- */

void coarsen_attempt(ctrl_t *ctrl, bisection_attempt *a)
{
    wkl_metis_gk_randinit(a->seed);
    bool in_order = false;
    a->coarse = coarsen_graph(ctrl, a->graph, coarse_levels, a->graph->nvtxs / 30 > 100 ? a->graph->nvtxs / 30 : 100, &in_order);
    a->tries = in_order ? tries_most : tries_random;
}

void run_try(ctrl_t *ctrl, bisection_attempt *a, int64_t number)
{
    wkl_metis_gk_randinit(mixed_seed(a->seed, static_cast<uint64_t>(number)));
    graph_t *copy = share_graph(a->coarse);
    MlevelNodeBisectionL1(ctrl, copy, try_cuts);
    a->cut[number] = copy->mincut;
    a->where[number] = copy->where;
    copy->where = nullptr;
    FreeGraph(&copy);
}

/* Takes the first of the best tries back to the graph. */
void finish_attempt(ctrl_t *ctrl, bisection_attempt *a)
{
    int64_t best = 0;
    for (int64_t t = 1; t < a->tries; ++t) {
        if (a->cut[t] < a->cut[best]) best = t;
    }
    a->coarse->where = a->where[best];
    for (int64_t t = 0; t < a->tries; ++t) {
        if (t != best) wkl_metis_free(a->where[t]);
    }
    wkl_metis_gk_randinit(mixed_seed(a->seed, tries_most));
    Refine2WayNode(ctrl, a->graph, a->coarse);
}

void bisect_small(ctrl_t *ctrl, bisection_attempt *a)
{
    wkl_metis_gk_randinit(a->seed);
    MlevelNodeBisectionL1(ctrl, a->graph, first_cuts);
}

/* ---- attempts of a graph ---- */

int64_t attempts_for(const dissection_job *job, const graph_t *graph)
{
    return graph->nvtxs < (job->compressed ? 1000 : 2000) ? 1 : job->separators;
}

/* The last attempt works on the graph itself, the others on copies. */
void open_attempts(dissection_job *job, graph_t *graph, uint64_t seed, int64_t count, bisection_attempt *attempts)
{
    for (int64_t k = 0; k < count; ++k)
        attempts[k] = {job, k + 1 < count ? share_graph(graph) : graph, nullptr, mixed_seed(seed, static_cast<uint64_t>(100 * k)), 0, {},
                       {}};
}

/* The partition of the best attempt becomes that of the graph. */
void close_attempts(ctrl_t *ctrl, graph_t *graph, int64_t count, bisection_attempt *attempts)
{
    for (int64_t k = 0; k + 1 < count; ++k) {
        if (attempts[k].graph->mincut < graph->mincut) {
            for (idx_t v = 0; v < graph->nvtxs; ++v) graph->where[v] = attempts[k].graph->where[v];
            Compute2WayNodePartitionParams(ctrl, graph);
        }
        FreeGraph(&attempts[k].graph);
    }
}

/* By the calling thread alone, under its guard. */
void bisect_alone(ctrl_t *ctrl, dissection_job *job, graph_t *graph, uint64_t seed)
{
    bisection_attempt attempts[attempts_most];
    const int64_t count = attempts_for(job, graph);
    open_attempts(job, graph, seed, count, attempts);
    for (bisection_attempt *a = attempts; a < attempts + count; ++a) {
        if (graph->nvtxs < try_size) {
            bisect_small(ctrl, a);
            continue;
        }
        coarsen_attempt(ctrl, a);
        for (int64_t t = 0; t < a->tries; ++t) run_try(ctrl, a, t);
        finish_attempt(ctrl, a);
    }
    close_attempts(ctrl, graph, count, attempts);
}

/* ---- the same in tasks: each step under a guard of its own ---- */

template <void (*step)(ctrl_t *, bisection_attempt *)>
void attempt_under_guard(void *argument)
{
    bisection_attempt *a = static_cast<bisection_attempt *>(argument);
    ctrl_t *ctrl = make_control(a->job, a->graph);
    step(ctrl, a);
    FreeCtrl(&ctrl);
}

void try_under_guard(void *argument)
{
    const bisection_try *one = static_cast<const bisection_try *>(argument);
    ctrl_t *ctrl = make_control(one->attempt->job, one->attempt->coarse);
    run_try(ctrl, one->attempt, one->number);
    FreeCtrl(&ctrl);
}

void guarded(dissection_job *job, void (*work)(void *), void *argument)
{
    if (!job_failed(job)) fail_job(job, wkl_metis_guard(&job->arena, 1, work, argument)); /* the steps seed the random numbers */
}

void attempt_in_tasks(bisection_attempt *a)
{
    dissection_job *job = a->job;
    if (a->graph->nvtxs < try_size) {
        guarded(job, attempt_under_guard<bisect_small>, a);
        return;
    }
    guarded(job, attempt_under_guard<coarsen_attempt>, a);
    if (job_failed(job)) return;
    for (int64_t t = 0; t < a->tries; ++t) {
#pragma omp task
        {
            bisection_try one = {a, t};
            guarded(job, try_under_guard, &one);
        }
    }
#pragma omp taskwait
    guarded(job, attempt_under_guard<finish_attempt>, a);
}

struct attempts_call {
    dissection_job *job;
    graph_t *graph;
    uint64_t seed;
    int64_t count;
    bisection_attempt attempts[attempts_most];
};

void open_under_guard(void *argument)
{
    attempts_call *call = static_cast<attempts_call *>(argument);
    open_attempts(call->job, call->graph, call->seed, call->count, call->attempts);
}

void close_under_guard(void *argument)
{
    attempts_call *call = static_cast<attempts_call *>(argument);
    ctrl_t *ctrl = make_control(call->job, call->graph);
    close_attempts(ctrl, call->graph, call->count, call->attempts);
    FreeCtrl(&ctrl);
}

/* By all threads of the region that have nothing else to do. */
void bisect_in_tasks(dissection_job *job, graph_t *graph, uint64_t seed)
{
    attempts_call call = {job, graph, seed, attempts_for(job, graph), {}};
    guarded(job, open_under_guard, &call);
    if (job_failed(job)) return;
    for (int64_t k = 0; k < call.count; ++k) {
        bisection_attempt *a = call.attempts + k;
#pragma omp task
        attempt_in_tasks(a);
    }
#pragma omp taskwait
    guarded(job, close_under_guard, &call);
}
} // namespace
