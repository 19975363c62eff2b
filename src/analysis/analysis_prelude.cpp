#include "analysis/symbolic.h"

int64_t analysis_prelude(control_block *control, const ordering_arrays *arrays, const column_groups *groups)
{
    const int64_t neqns = control->neqns;
    int64_t *table = arrays->domain_table;
    if (groups != nullptr && groups->count > 0) {
        control->l_entries = grouped_tree(control, arrays, groups);
    } else {
        mark_twins(neqns, control->nproc, arrays->xadj, arrays->adj, arrays->perm, arrays->work);
        elimination_tree(neqns, control->nproc, control->domains, table, arrays->xadj, arrays->adj, arrays->perm, arrays->invp,
                         arrays->parent, arrays->scratch_a, arrays->work);
        control->l_entries = column_counts(neqns, arrays->xadj, arrays->adj, arrays->perm, arrays->invp, arrays->parent, arrays->colcnt,
                                           arrays->lists, arrays->work);
    }
    control->supernodes =
        supernode_partition(neqns, arrays->parent, arrays->colcnt, control->panel_columns, arrays->snode, arrays->xsuper,
                            &control->lindx_size, &control->largest_supernode, arrays->pairs == nullptr ? nullptr : arrays->pairs->tied);
    translate_table(neqns, control->supernodes, control->domains, arrays->snode, table);
    if (domains_are_independent(control->supernodes, control->domains, table, arrays->xsuper, arrays->snode, arrays->parent)) return 0;
    control->domains = 1;
    table[0] = 1;
    table[1] = neqns - 1;
    translate_table(neqns, control->supernodes, 1, arrays->snode, table);
    return 0;
}
