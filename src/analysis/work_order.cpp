/* The order in which the single-level factorization hands supernodes to its threads, and the tasks in which it does so: small subtrees,
   each as a whole, and above them single supernodes, or those together that were one before they were cut. A thread that takes a supernode
   waits until the last of its descendants is done, so neighbours in the order should not depend on each other. The order is the one in
   which as many processors as there are threads would start the tasks: among those ready, the one with the longest path to the root (list
   scheduling by critical path, Hu 1961). */
#include "service/service.h"

#include "analysis/symbolic.h"

struct schedule {
    const supernodal_structure *s;
    double *cost, *path; /* path: cost from the start of a task to the end of the root; a task goes by the number of its root */
    int64_t *first;      /* first supernode of a task */
    int64_t *next;       /* next supernode of the same task, 0 at its end */
    int64_t *waiting;    /* children tasks that are not done */
    int64_t *children;   /* children of a supernode */
    int64_t *task;       /* by supernode */
    int64_t *heap;       /* ready tasks, longest path first */
    int64_t ready;
};

static void push_ready(schedule *plan, int64_t task)
{
    int64_t hole = plan->ready++;
    while (hole > 0) {
        const int64_t above = (hole - 1) / 2;
        if (plan->path[plan->heap[above] - 1] >= plan->path[task - 1]) break;
        plan->heap[hole] = plan->heap[above];
        hole = above;
    }
    plan->heap[hole] = task;
}

static int64_t pop_ready(schedule *plan)
{
    const int64_t task = plan->heap[0], moved = plan->heap[--plan->ready];
    int64_t hole = 0;
    for (;;) {
        int64_t below = 2 * hole + 1;
        if (below >= plan->ready) break;
        if (below + 1 < plan->ready && plan->path[plan->heap[below + 1] - 1] > plan->path[plan->heap[below] - 1]) ++below;
        if (plan->path[plan->heap[below] - 1] <= plan->path[moved - 1]) break;
        plan->heap[hole] = plan->heap[below];
        hole = below;
    }
    plan->heap[hole] = moved;
    return task;
}

/* Cut the tree into tasks: subtrees of at most limit cost, and single supernodes or spans above them. */
static void cut_tasks(schedule *plan, double *subtree, int64_t processors)
{
    const int64_t count = plan->s->supernodes, *sparent = plan->s->sparent;
    int64_t *task = plan->task, columns = 0; /* of the task of the supernode before */
    double total = 0;
    for (int64_t s = 1; s <= count; ++s) {
        subtree[s - 1] = plan->cost[s - 1];
        plan->waiting[s - 1] = plan->children[s - 1] = plan->first[s - 1] = 0;
    }
    for (int64_t s = 1; s <= count; ++s) {
        const int64_t up = sparent[s - 1];
        total += plan->cost[s - 1];
        if (up == 0) continue;
        subtree[up - 1] += subtree[s - 1];
        ++plan->children[up - 1];
    }
    const double limit = total / static_cast<double>(16 * processors);
    for (int64_t s = count; s >= 1; --s) {
        const int64_t up = sparent[s - 1];
        const bool inside = up != 0 && subtree[up - 1] <= limit;
        columns += supernode_columns(*plan->s, s);
        /* the root of a small subtree does not join: its subtree is a task of its own */
        const bool spanned = subtree[s - 1] > limit && up != 0 && continues_in_next(*plan->s, s) && columns <= parallel_span_columns;
        task[s - 1] = inside || spanned ? task[up - 1] : s;
        if (spanned) plan->path[task[s - 1] - 1] += plan->cost[s - 1];
        if (!inside && !spanned) {
            columns = supernode_columns(*plan->s, s);
            plan->path[s - 1] = plan->cost[s - 1] + (up != 0 ? plan->path[task[up - 1] - 1] : 0);
            if (up != 0) ++plan->waiting[task[up - 1] - 1];
        }
        plan->next[s - 1] = plan->first[task[s - 1] - 1]; /* descending, so each task's list ascends */
        plan->first[task[s - 1] - 1] = s;
    }
    /* up to here the path of a task began with its root; now it takes in the rest of its subtree */
    for (int64_t s = 1; s <= count; ++s)
        if (task[s - 1] == s && subtree[s - 1] <= limit) plan->path[s - 1] += subtree[s - 1] - plan->cost[s - 1];
}

/* A task's supernodes follow each other in the order. They are taken at once if their numbers follow each other as well, as in every
   postordering; else each is a task of its own. */
static int64_t list_task(schedule *plan, int64_t task, int64_t place, work_list_arrays *arrays)
{
    int64_t first = plan->first[task - 1], count = 0, *const tasks = arrays->tasks;
    for (int64_t s = first; s != 0; s = plan->next[s - 1]) {
        arrays->work_order[place + count] = plan->children[s - 1] == 0 ? -s : s;
        ++count;
    }
    if (task - first + 1 == count)
        tasks[++tasks[0]] = place;
    else
        for (int64_t k = 0; k < count; ++k) tasks[++tasks[0]] = place + k;
    return place + count;
}

static void run_schedule(schedule *plan, double *clock, int64_t *running, int64_t processors, work_list_arrays *arrays)
{
    const int64_t count = plan->s->supernodes, *sparent = plan->s->sparent;
    plan->ready = 0;
    for (int64_t s = 1; s <= count; ++s)
        if (plan->first[s - 1] != 0 && plan->waiting[s - 1] == 0) push_ready(plan, s);
    int64_t busy = 0, place = 0;
    arrays->tasks[0] = 0;
    const auto start_next = [&](int64_t p) {
        const int64_t task = running[p] = pop_ready(plan);
        const int64_t up = sparent[task - 1];
        clock[p] += plan->path[task - 1] - (up != 0 ? plan->path[plan->task[up - 1] - 1] : 0);
        place = list_task(plan, task, place, arrays);
    };
    for (; busy < processors && plan->ready > 0; ++busy) {
        clock[busy] = 0;
        start_next(busy);
    }
    while (busy > 0) {
        int64_t p = 0;
        for (int64_t q = 1; q < busy; ++q)
            if (clock[q] < clock[p]) p = q;
        /* a finished task makes at most one other ready, so a processor that finds none will not be needed again */
        const int64_t up = sparent[running[p] - 1];
        if (up != 0 && --plan->waiting[plan->task[up - 1] - 1] == 0) push_ready(plan, plan->task[up - 1]);
        if (plan->ready > 0) {
            start_next(p);
        } else {
            --busy;
            clock[p] = clock[busy];
            running[p] = running[busy];
        }
    }
    arrays->tasks[arrays->tasks[0] + 1] = count;
}

static void single_tasks(int64_t supernodes, int64_t *tasks)
{
    tasks[0] = supernodes;
    for (int64_t k = 0; k <= supernodes; ++k) tasks[k + 1] = k;
}

void fill_work_order(const supernodal_structure *s, int64_t nproc, work_list_arrays *arrays)
{
    const int64_t count = s->supernodes, processors = nproc > 1 ? nproc : 1;
    int64_t *block = static_cast<int64_t *>(service_alloc_direct(static_cast<uint64_t>(9 * count + 2 * processors) * sizeof(int64_t), 64));
    if (block == nullptr) return single_tasks(count, arrays->tasks); /* leaves first does as well, only slower */
    double *real = reinterpret_cast<double *>(block + 6 * count + processors);
    schedule plan = {
        s, real, real + count, block, block + count, block + 2 * count, block + 3 * count, block + 4 * count, block + 5 * count, 0};
    update_costs(s, arrays, plan.cost);
    cut_tasks(&plan, real + 2 * count, processors);
    run_schedule(&plan, real + 3 * count, block + 6 * count, processors, arrays);
    service_free_direct(block);
}
