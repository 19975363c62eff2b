#include "bisect.h"

#include "wkl_metis_internal.h"

namespace
{
/* All that the guarded part works on: plain pointers, since a failure skips its frames. */
struct job {
    idx_t n;
    idx_t *start, *target, *marks, *other;
    idx_t options[METIS_NOPTIONS];
    int result;
};

struct owned_job {
    std::vector<idx_t> start, target, marks, other;
    job raw;

    owned_job(const plain_graph &graph, int64_t seed)
        : start(graph.start.begin(), graph.start.end()), target(graph.target.begin(), graph.target.end()), marks(graph.start.size(), -1),
          other(graph.start.size(), -1)
    {
        raw.n = static_cast<idx_t>(graph.start.size() - 1);
        raw.start = start.data();
        raw.target = target.data();
        raw.marks = marks.data();
        raw.other = other.data();
        raw.result = METIS_OK;
        METIS_SetDefaultOptions(raw.options);
        raw.options[METIS_OPTION_SEED] = static_cast<idx_t>(seed);
    }
    vertex_marks taken() const
    {
        return vertex_marks(marks.begin(), marks.end() - 1);
    }
};

int64_t run(wkl_metis_arena *arena, const plain_graph &graph, int64_t seed, void (*work)(void *), vertex_marks &marks)
{
    owned_job owned(graph, seed);
    const int64_t code = wkl_metis_guard(arena, 1, work, &owned.raw);
    marks = owned.taken();
    return owned.raw.result == METIS_OK ? code : owned.raw.result;
}

void bisect_work(void *argument)
{
    job *work = static_cast<job *>(argument);
    ctrl_t *ctrl = SetupCtrl(METIS_OP_OMETIS, work->options, 1, 3, nullptr, nullptr);
    graph_t *graph = SetupGraph(ctrl, work->n, 1, work->start, work->target, nullptr, nullptr, nullptr);
    AllocateWorkSpace(ctrl, graph);
    MlevelNodeBisectionMultiple(ctrl, graph);
    for (idx_t i = 0; i < work->n; ++i) work->marks[i] = graph->where[i];
    FreeGraph(&graph);
    FreeCtrl(&ctrl);
}

void order_work(void *argument)
{
    job *work = static_cast<job *>(argument);
    work->result = METIS_NodeND(&work->n, work->start, work->target, nullptr, work->options, work->other, work->marks);
}

void kway_work(void *argument)
{
    job *work = static_cast<job *>(argument);
    idx_t one = 1, parts = 5, cut = 0;
    work->result = METIS_PartGraphKway(&work->n, &one, work->start, work->target, nullptr, nullptr, nullptr, &parts, nullptr, nullptr,
                                       work->options, &cut, work->marks);
}

int64_t bisect(wkl_metis_arena *arena, const plain_graph &graph, int64_t seed, vertex_marks &marks)
{
    return run(arena, graph, seed, bisect_work, marks);
}

int64_t order(wkl_metis_arena *arena, const plain_graph &graph, int64_t seed, vertex_marks &marks)
{
    return run(arena, graph, seed, order_work, marks);
}

int64_t kway(wkl_metis_arena *arena, const plain_graph &graph, int64_t seed, vertex_marks &marks)
{
    return run(arena, graph, seed, kway_work, marks);
}

struct half_job {
    job *whole;
    graph_t *graph; /* made by the splitting thread */
    idx_t mark;
};

void split_work(void *argument)
{
    half_job *halves = static_cast<half_job *>(argument);
    job *work = halves[0].whole;
    ctrl_t *ctrl = SetupCtrl(METIS_OP_OMETIS, work->options, 1, 3, nullptr, nullptr);
    graph_t *graph = SetupGraph(ctrl, work->n, 1, work->start, work->target, nullptr, nullptr, nullptr);
    SetupGraph_label(graph); /* so that the vertices of the halves know their numbers here */
    AllocateWorkSpace(ctrl, graph);
    MlevelNodeBisectionMultiple(ctrl, graph);
    for (idx_t i = 0; i < work->n; ++i) work->marks[i] = 6;
    SplitGraphOrder(ctrl, graph, &halves[0].graph, &halves[1].graph);
    FreeGraph(&graph);
    FreeCtrl(&ctrl);
}

void half_work(void *argument)
{
    half_job *half = static_cast<half_job *>(argument);
    ctrl_t *ctrl = SetupCtrl(METIS_OP_OMETIS, half->whole->options, 1, 3, nullptr, nullptr);
    AllocateWorkSpace(ctrl, half->graph);
    MlevelNodeBisectionMultiple(ctrl, half->graph);
    for (idx_t i = 0; i < half->graph->nvtxs; ++i) half->whole->marks[half->graph->label[i]] = half->mark + half->graph->where[i];
    FreeGraph(&half->graph);
    FreeCtrl(&ctrl);
}

int64_t dissect(const plain_graph &graph, bool parallel, vertex_marks &marks)
{
    owned_job owned(graph, 7);
    half_job halves[2] = {{&owned.raw, nullptr, 0}, {&owned.raw, nullptr, 3}};
    int64_t code[2] = {0, 0};
    wkl_metis_arena arena;
    wkl_metis_arena_open(&arena);
    int64_t first = wkl_metis_guard(&arena, 1, split_work, halves);
    if (first == 0) {
#pragma omp parallel sections num_threads(2) if (parallel)
        {
#pragma omp section
            code[0] = wkl_metis_guard(&arena, 2, half_work, &halves[0]);
#pragma omp section
            code[1] = wkl_metis_guard(&arena, 3, half_work, &halves[1]);
        }
    }
    wkl_metis_arena_close(&arena);
    marks = owned.taken();
    return first != 0 ? first : code[0] != 0 ? code[0] : code[1];
}
} // namespace

#if WKL_METIS_WIDTH == 64
const metis_jobs metis_jobs_64 = {bisect, order, kway, dissect};
#else
const metis_jobs metis_jobs_32 = {bisect, order, kway, dissect};
#endif
