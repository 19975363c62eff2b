/* The lists that tell the parallel factorization who updates whom; their layout stands at work_lists in state/structure.h. All of it is
   linear in the number of updates, but for the heap of work_order.cpp. */
#include "analysis/symbolic.h"
#include "service/claim_memory.h"

int64_t first_top_supernode(const supernodal_structure *s)
{
    return first_above_domains(s->supernodes, s->domains, s->domain_table);
}

/* A walk over the targets of one supernode: its rows behind its own columns, in runs of one target. */
struct target_walk {
    const int64_t *row, *end;
    int64_t target, run, left; /* left: rows from the first one inside the target to the end of the list */
};

static bool next_target(const supernodal_structure &s, target_walk *walk)
{
    if (walk->row == walk->end) return false;
    walk->target = s.snode[*walk->row - 1];
    walk->left = walk->end - walk->row;
    walk->run = rows_in_target(walk->row, walk->end, s.xsuper[walk->target]);
    walk->row += walk->run;
    return true;
}

/* Starts at the first row that lies in supernode lowest or above. */
static target_walk open_target_walk(const supernodal_structure &s, int64_t number, int64_t lowest)
{
    const int64_t *list = supernode_row_list(s, number);
    const int64_t *row = list + supernode_columns(s, number), *end = list + supernode_rows(s, number);
    const int64_t column = s.xsuper[lowest - 1];
    int64_t count = end - row;
    if (count > 0 && *row >= column) count = 0; /* always so for the targets of a single level */
    while (count > 0) {                         /* rows ascend */
        const int64_t half = count / 2;
        if (row[half] < column) {
            row += half + 1;
            count -= half + 1;
        } else {
            count = half;
        }
    }
    return {row, end, 0, 0, 0};
}

void work_list_sizes(control_block *control, const supernodal_structure *s)
{
    control->subgraphs = s->domains;
    if (control->two_level == 0) {
        control->parallel_list_size = control->task_count; /* all updates, as symbolic_step counted them */
        control->task_bound = 0;
        return;
    }
    const int64_t lowest = first_top_supernode(s);
    int64_t updates = 0;
    for (int64_t number = 1; number <= s->supernodes; ++number) {
        target_walk walk = open_target_walk(*s, number, lowest);
        while (next_target(*s, &walk)) ++updates;
    }
    control->task_count = updates;
    control->parallel_list_size = 0;
    control->task_bound = s->supernodes - lowest + 1;
}

/* Target lists. */
static void build_single_level(const supernodal_structure &s, int threads, work_list_arrays *a)
{
    a->list_start[0] = 1;
    for (int64_t number = 1; number <= s.supernodes; ++number)
        a->list_start[number] = a->list_start[number - 1] + a->update_count[number - 1];
    const int64_t bytes = (a->list_start[s.supernodes] - 1) * static_cast<int64_t>(sizeof(int64_t));
    service_claim_memory(a->list_source, bytes, threads);
    service_claim_memory(a->list_rows, bytes, threads);
#pragma omp parallel for schedule(dynamic, 256) num_threads(threads) if (threads > 1)
    for (int64_t number = 1; number <= s.supernodes; ++number) {
        target_walk walk = open_target_walk(s, number, 1);
        for (int64_t p = a->list_start[number - 1] - 1; next_target(s, &walk); ++p) {
            a->list_source[p] = walk.target;
            a->list_rows[p] = walk.left;
        }
    }
}

/* Room for each target's descendants in the ready list. */
static void size_ready_list(const supernodal_structure &s, work_list_arrays *a)
{
    for (int64_t number = 0; number <= s.supernodes; ++number) a->ready_start[number] = 0;
    for (int64_t p = 0; p < a->list_start[s.supernodes] - 1; ++p) ++a->ready_start[a->list_source[p]];
    a->ready_start[0] = 1;
    for (int64_t number = 1; number <= s.supernodes; ++number) a->ready_start[number] += a->ready_start[number - 1];
}

/* Source lists of each top supernode, one for each domain and one for the top. The sources come in ascending order, so each list ascends.
   While the lists fill, list_start[l] is the next free place of list l; that is where list l + 1 starts in the end. */
static void build_two_level(const supernodal_structure &s, work_list_arrays *a)
{
    const int64_t top = first_top_supernode(&s), width = s.domains + 1, lists = width * (s.supernodes - top + 1);
    for (int64_t number = 0; number <= s.supernodes; ++number) a->ready_start[number] = 1;
    for (int64_t l = 0; l <= lists; ++l) a->list_start[l] = 0;
    int64_t first, last;
    for (int pass = 1; pass <= 2; ++pass) {
        domain_walk domains = open_domain_walk(s.supernodes, s.domains, s.domain_table);
        while (next_range(&domains, &first, &last)) {
            const int64_t part = domains.step < width ? domains.step : width;
            for (int64_t number = first; number <= last; ++number) {
                target_walk walk = open_target_walk(s, number, top);
                while (next_target(s, &walk)) {
                    int64_t *next = &a->list_start[(walk.target - top) * width + part];
                    if (pass == 2) {
                        a->list_source[*next - 1] = number;
                        a->list_rows[*next - 1] = walk.left;
                    }
                    ++*next;
                }
            }
        }
        if (pass == 2) break;
        for (int64_t l = 1, start = 1; l <= lists; ++l) {
            const int64_t count = a->list_start[l];
            a->list_start[l] = start;
            start += count;
        }
    }
    a->list_start[0] = 1;
}

void update_costs(const supernodal_structure *s, const work_list_arrays *lists, double *cost)
{
    /* Operations that would take as long as what an update and a supernode cost before their arithmetic begins: rough figures (0.2 and 0.6
       microseconds at 5 Gflop/s), so that tiny supernodes do not count as free. */
    const double per_update = 1000, per_supernode = 3000;
    for (int64_t number = 1; number <= s->supernodes; ++number) cost[number - 1] = 0;
    for (int64_t number = 1; number <= s->supernodes; ++number) {
        const double columns = static_cast<double>(supernode_columns(*s, number)), rows = static_cast<double>(supernode_rows(*s, number));
        cost[number - 1] += per_supernode + columns * columns * (rows - columns * 2 / 3);
        const int64_t last = lists->list_start[number] - 1;
        for (int64_t p = lists->list_start[number - 1]; p <= last; ++p) {
            const int64_t left = lists->list_rows[p - 1], run = p < last ? left - lists->list_rows[p] : left;
            cost[lists->list_source[p - 1] - 1] += per_update + 2 * columns * static_cast<double>(run) * static_cast<double>(left);
        }
    }
}

void build_work_lists(const control_block *control, const supernodal_structure *s, work_list_arrays *arrays)
{
    if (control->two_level != 0) {
        build_two_level(*s, arrays);
        return;
    }
    const int threads = symbolic_threads(s->neqns, control->nproc);
    build_single_level(*s, threads, arrays);
    /* both only read the target lists */
#pragma omp parallel sections num_threads(2) if (threads > 1)
    {
#pragma omp section
        size_ready_list(*s, arrays);
#pragma omp section
        fill_work_order(s, control->nproc, arrays);
    }
}
