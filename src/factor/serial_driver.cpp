#include "factor/factor_run.h"

#include <complex>

template <typename value_t, factor_kind kind, mirror sym>
void process_with_lists(factor_run<value_t> *run, thread_space<value_t> *space, const source_lists &lists, int64_t number, int64_t last,
                        bool assembled)
{
    const supernodal_structure &s = *run->s;
    if (!assembled && supernode_columns(s, number) <= narrow_columns && run->in->store->pager == nullptr)
        return process_narrow<value_t, kind, sym>(run, space, lists, number, last);
    const block_use use = assembled ? block_use::update : block_use::create;
    target_block<value_t> target;
    if (!open_target(run, number, use, &target)) return;
    if (!assembled) assemble_supernode(run, &target);
    const int64_t end_column = s.xsuper[number];
    for (int64_t source = lists.head[target.first - 1], following = 0; source != 0 && !failed(run); source = following) {
        following = lists.next[source - 1];
        apply_update<value_t, kind, sym>(run, space, &target, source, lists.head[s.xsuper[source - 1] - 1]);
        hang_on_next(s, lists, source, end_column, last);
    }
    flush_updates<value_t, kind, sym>(run, space, &target);
    if (!failed(run)) factor_supernode<value_t, kind, sym>(run, space, &target);
    lists.head[target.first - 1] = target.rows - target.columns;
    if (target.rows > target.columns) link_source(s, lists, number, target.row_list[target.columns], last);
    close_target(run, &target, use);
}

template <typename value_t, factor_kind kind, mirror sym>
void serial_driver(factor_run<value_t> *run, void *work)
{
    thread_space<value_t> space;
    bind_thread_space(run, 1, work, &space);
    process_range<value_t, kind, sym>(run, &space, 1, run->s->supernodes, nullptr, false);
    merge_counts(run, &space);
    if (!failed(run)) report_percent(run, 100);
}

#define INSTANTIATE(V, kind, sym)                                                                                                          \
    template void process_with_lists<V, kind, sym>(factor_run<V> *, thread_space<V> *, const source_lists &, int64_t, int64_t, bool);      \
    template void serial_driver<V, kind, sym>(factor_run<V> *, void *);
FOR_EACH_MEMBER(INSTANTIATE)
