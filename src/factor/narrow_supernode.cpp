#include "factor/narrow_update.h"

#include <complex>

/* A supernode of few columns, in core: on two-dimensional grids and circuits these are most of all supernodes, and what is done around an
   update then takes longer than the update. So the lists are walked and the small sources applied here, in one place. */

namespace
{

/* Apply the sources that wait for the target, and hang each on its next list. */
template <typename value_t, factor_kind kind, mirror sym>
void apply_sources(factor_run<value_t> *run, thread_space<value_t> *space, const source_lists &lists, target_block<value_t> *target,
                   int64_t last)
{
    const supernodal_structure &s = *run->s;
    const int64_t last_column = target->first + target->columns - 1;
    int64_t source = lists.head[target->first - 1];
    if (source == 0) return;
    for (int64_t i = 0; i < target->rows; ++i) space->relative[target->row_list[i] - 1] = i;
    target->mapped = true;
    for (int64_t following = 0; source != 0; source = following) {
        following = lists.next[source - 1];
        const int64_t first = s.xsuper[source - 1], end = s.xlindx[source] - 1;
        int64_t &remaining = lists.head[first - 1];
        const int64_t q = remaining, *list = s.lindx + (end - q);
        int64_t k = 1;
        while (k < q && list[k] <= last_column) ++k;
        narrow_source<value_t> from;
        from.width = s.xsuper[source] - first;
        if (is_tiny<kind>(q, k, from.width)) {
            from.rows = q;
            from.columns = k;
            from.list = list;
            bind_narrow_source(*run, first, end + 1 - s.xlindx[source - 1], &from);
            apply_narrow<value_t, kind, sym>(from, space->relative, *target);
        } else {
            apply_update<value_t, kind, sym>(run, space, target, source, q);
        }
        remaining = q - k;
        if (q > k) link_source(s, lists, source, list[k], last);
    }
    flush_updates<value_t, kind, sym>(run, space, target);
}

} // namespace

template <typename value_t, factor_kind kind, mirror sym>
void process_narrow(factor_run<value_t> *run, thread_space<value_t> *space, const source_lists &lists, int64_t number, int64_t last)
{
    target_block<value_t> target;
    if (!open_target(run, number, block_use::create, &target)) return;
    assemble_supernode(run, &target);
    apply_sources<value_t, kind, sym>(run, space, lists, &target, last);
    if (!failed(run)) factor_supernode<value_t, kind, sym>(run, space, &target);
    lists.head[target.first - 1] = target.rows - target.columns;
    if (target.rows > target.columns) link_source(*run->s, lists, number, target.row_list[target.columns], last);
}

#define INSTANTIATE(V, kind, sym)                                                                                                          \
    template void process_narrow<V, kind, sym>(factor_run<V> *, thread_space<V> *, const source_lists &, int64_t, int64_t);
FOR_EACH_MEMBER(INSTANTIATE)
