#include <omp.h>

#include "analysis/symbolic.h"

/* Leaves first: the supernodes without children, negated, then every other one behind its last child. */
static void fill_leaf_queue(int64_t supernodes, const int64_t *sparent, int64_t *queue, int64_t *children)
{
    for (int64_t s = 1; s <= supernodes; ++s) children[s - 1] = 0;
    for (int64_t s = 1; s <= supernodes; ++s)
        if (sparent[s - 1] != 0) ++children[sparent[s - 1] - 1];
    int64_t end = 0;
    for (int64_t s = 1; s <= supernodes; ++s)
        if (children[s - 1] == 0) queue[end++] = -s;
    for (int64_t head = 0; head < end; ++head) {
        const int64_t up = sparent[(queue[head] < 0 ? -queue[head] : queue[head]) - 1];
        if (up != 0 && --children[up - 1] == 0) queue[end++] = up;
    }
}

/* The counts that other rooms size their arrays by. */
static void publish_sizes(control_block *control, const symbolic_arrays *a, int64_t bound)
{
    const int64_t neqns = control->neqns, supernodes = control->supernodes;
    control->nnz_l = a->xlnz[neqns] - 1;
    control->nnz_u = a->xunz[neqns] > 1 ? a->xunz[neqns] - 1 : 1;
    if (control->symmetric_structure == 1) control->nnz_u = 1;

    if (bound == 0) bound = neqns;
    /* room for the product and the scaled panel side by side; the block pivots of the indefinite types need it twice */
    control->growth_denominator = control->matrix_type == 6 || control->matrix_type < 0 ? 4 : 2;
    control->update_size = control->growth_denominator * bound;
    control->growth_numerator = control->update_size;

    control->longest_column = 0;
    for (int64_t s = 1; s <= supernodes; ++s) {
        const int64_t rows = a->xlindx[s] - a->xlindx[s - 1];
        if (rows > control->longest_column) control->longest_column = rows;
    }
}

int64_t symbolic_step(control_block *control, phase_times *times, symbolic_arrays *arrays)
{
    const double start = omp_get_wtime();
    const symbolic_arrays *a = arrays;
    const int64_t neqns = control->neqns, supernodes = control->supernodes;
    if (column_pointers(neqns, supernodes, control->domains, a->domain_table, a->xsuper, a->colcnt, a->xlnz, a->xunz) != 0)
        return control->internal_code = -182;
    a->xlindx[0] = 1;
    for (int64_t s = 1; s <= supernodes; ++s) a->xlindx[s] = a->xlindx[s - 1] + a->colcnt[a->xsuper[s - 1] - 1];

    const int64_t above = a->xsuper[first_above_domains(supernodes, control->domains, a->domain_table) - 1];
    const row_structure_input rows = {neqns,   supernodes, control->nproc, control->domains, a->domain_table, a->xadj, a->adj,
                                      a->perm, a->invp,    a->xsuper,      a->snode,         a->xlindx,       a->work, above};
    row_structure_output lists = {a->lindx, a->sparent, a->update_count, a->separator_tail, 0, 0};
    if (row_structure(&rows, &lists, a->lists) != 0) return control->internal_code = -180;
    control->task_count = lists.updates;

    for (int64_t s = 1; s <= supernodes; ++s) {
        const int64_t last = a->xsuper[s] - 1, columns = a->xsuper[s] - a->xsuper[s - 1];
        for (int64_t j = a->xsuper[s - 1]; j < last; ++j) a->parent[j - 1] = j + 1;
        a->parent[last - 1] = a->sparent[s - 1] == 0 ? 0 : a->lindx[a->xlindx[s - 1] - 1 + columns];
        a->sentinel_a[s - 1] = work_sentinel;
        a->sentinel_b[s - 1] = work_sentinel;
    }
    fill_leaf_queue(supernodes, a->sparent, a->work_order, a->lists);
    publish_sizes(control, a, lists.bound);
    control->internal_code = 0;
    times->time_symbfct += omp_get_wtime() - start;
    return 0;
}
