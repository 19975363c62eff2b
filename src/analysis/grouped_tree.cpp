/* Elimination tree and column counts by groups of equal columns: both follow from the graph of the groups, in which an entry of a row
   counts for all columns of the row's group. */
#include "analysis/symbolic.h"

namespace
{
/* The groups in their new order, counted from 1. */
struct group_order {
    int64_t *perm, *invp; /* [count] place -> group and back */
    int64_t *column;      /* [count + 1] new number of the first column at each place */
};

/* at_column[n]: the place of the group that a new column belongs to. */
void list_groups(int64_t neqns, const column_groups *groups, const int64_t *perm, int64_t *at_column, int64_t *starts,
                 const group_order &order)
{
    for (int64_t j = 0; j < neqns; ++j) starts[j] = 0;
    for (int64_t g = 1; g <= groups->count; ++g) starts[groups->first[g - 1] - 1] = g;
    int64_t place = 0;
    for (int64_t k = 1; k <= neqns; ++k) {
        const int64_t g = starts[perm[k - 1] - 1];
        if (g != 0) {
            order.perm[place] = g;
            order.column[place] = k;
            order.invp[g - 1] = ++place;
        }
        at_column[k - 1] = place;
    }
    order.column[place] = neqns + 1;
}

/* The leaf domains in places of groups. */
void translate_domains(int64_t neqns, int64_t domains, const int64_t *table, const int64_t *at_column, int64_t *group_table)
{
    for (int64_t d = 1; d <= domains; ++d) {
        int64_t first, last;
        const bool filled = domain_pair(table, d, neqns, &first, &last);
        group_table[2 * d - 2] = filled ? at_column[first - 1] : 2;
        group_table[2 * d - 1] = filled ? at_column[last - 1] : 1;
    }
}
} // namespace

int64_t grouped_tree(const control_block *control, const ordering_arrays *arrays, const column_groups *groups)
{
    const int64_t neqns = control->neqns, count = groups->count;
    int64_t *twin = arrays->work, *group_table = arrays->work + neqns;
    int64_t *group_parent = arrays->parent, *group_count = arrays->colcnt;
    const group_order order = {arrays->scratch_a, arrays->scratch_b, arrays->xsuper};
    list_groups(neqns, groups, arrays->perm, twin, arrays->snode, order);
    translate_domains(neqns, control->domains, arrays->domain_table, twin, group_table);
    elimination_tree(count, control->nproc, control->domains, group_table, groups->xadj, groups->adj, order.perm, order.invp, group_parent,
                     arrays->snode);
    column_counts(count, groups->xadj, groups->adj, order.perm, order.invp, group_parent, group_count, arrays->lists, nullptr,
                  groups->weight);

    /* from the last group on: a group's columns never stand before its place, so nothing is overwritten that is still read */
    int64_t total = 0;
    for (int64_t place = count; place >= 1; --place) {
        const int64_t first = order.column[place - 1], end = order.column[place], up = group_parent[place - 1];
        const int64_t entries = group_count[place - 1];
        for (int64_t j = first; j < end; ++j) {
            arrays->parent[j - 1] = j + 1 < end ? j + 1 : up == 0 ? 0 : order.column[up - 1];
            arrays->colcnt[j - 1] = entries - (j - first);
            total += entries - (j - first);
            twin[j - 1] = j > first ? 1 : 0;
        }
    }
    return total;
}
