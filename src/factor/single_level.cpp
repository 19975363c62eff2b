#include <cstdlib>

#include "factor/factor_run.h"
#include "factor/team.h"

/* The single-level region. The threads take tasks in work order. A task of one supernode applies what stands in its ready list until it has
   received all it expects. A task of several is a whole subtree: nothing from outside updates it, so that it is factored as by the serial
   driver, without locks. What is finished is appended to the ready list of each target outside of the task. Tasks are handed out in order
   and a target comes after its descendants, so whoever waits waits for a supernode that a running thread holds. The order of the updates
   depends on arrival, and so do the last bits. lists->status holds the write positions. */

namespace
{

/* Append the supernodes first .. last to the lists of their targets behind last; targets ascend. */
template <typename value_t>
void publish(factor_run<value_t> *run, int64_t first, int64_t last)
{
    const work_lists &lists = *run->in->lists;
#pragma omp critical(ready_lock)
    {
        for (int64_t number = first; number <= last; ++number)
            for (int64_t p = lists.list_start[number] - 1; p >= lists.list_start[number - 1] && lists.list_source[p - 1] > last; --p) {
                const int64_t at = lists.status[lists.list_source[p - 1] - 1]++;
                lists.ready_source[at - 1] = number;
                lists.ready_rows[at - 1] = lists.list_rows[p - 1];
            }
    }
}

/* Apply updates as they arrive. Returns early when the run has failed. */
template <typename value_t, factor_kind kind, mirror sym>
void receive_updates(factor_run<value_t> *run, thread_space<value_t> *space, target_block<value_t> *target)
{
    const work_lists &lists = *run->in->lists;
    const int64_t number = target->number, end = lists.ready_start[number];
    idle_wait wait;
    for (int64_t read = lists.ready_start[number - 1]; read < end;) {
        int64_t written = 0;
#pragma omp critical(ready_lock)
        written = lists.status[number - 1];
        if (failed(run)) return;
        if (written == read) {
            wait.pause();
            continue;
        }
        wait.reset();
        for (; read < written && !failed(run); ++read)
            apply_update<value_t, kind, sym>(run, space, target, lists.ready_source[read - 1], lists.ready_rows[read - 1]);
        flush_updates<value_t, kind, sym>(run, space, target);
    }
}

template <typename value_t, factor_kind kind, mirror sym>
void process_supernode(factor_run<value_t> *run, thread_space<value_t> *space, int64_t number)
{
    target_block<value_t> target;
    if (!open_target(run, number, block_use::create, &target)) return;
    assemble_supernode(run, &target);
    receive_updates<value_t, kind, sym>(run, space, &target);
    if (!failed(run)) factor_supernode<value_t, kind, sym>(run, space, &target);
    close_target(run, &target, block_use::create);
    if (failed(run)) return;
    publish(run, number, number);
    report_block(run, space, target.rows * target.columns, true);
}

template <typename value_t, factor_kind kind, mirror sym>
void process_subtree(factor_run<value_t> *run, thread_space<value_t> *space, int64_t first, int64_t last)
{
    const supernodal_structure &s = *run->s;
    const source_lists lists = {run->in->thread_rows + s.supernodes, run->in->thread_rows};
    for (int64_t c = s.xsuper[first - 1]; c < s.xsuper[last]; ++c) lists.head[c - 1] = 0;
    for (int64_t number = first, end = 0; number <= last && !failed(run); number = end + 1) {
        end = process_front<value_t, kind, sym>(run, space, lists, number, last);
        if (failed(run)) return;
        for (; number <= end; ++number) report_block(run, space, supernode_rows(s, number) * supernode_columns(s, number), true);
    }
    publish(run, first, last);
}

} // namespace

template <typename value_t, factor_kind kind, mirror sym>
void single_level_region(factor_run<value_t> *run, void *work)
{
    const work_lists &lists = *run->in->lists;
    const int64_t supernodes = run->s->supernodes;
    for (int64_t i = 0; i < supernodes; ++i) lists.status[i] = lists.ready_start[i];
    int64_t threads = 0;
#pragma omp parallel num_threads(team_threads(*run->in))
    {
        thread_space<value_t> space;
        int64_t id = 0;
#pragma omp critical(thread_id_lock)
        id = ++threads;
        bind_thread_space(run, id, work, &space);
#pragma omp for schedule(dynamic, 1)
        for (int64_t task = 0; task < lists.tasks; ++task) {
            const int64_t first = std::abs(lists.work_order[lists.task_start[task]]);
            const int64_t count = lists.task_start[task + 1] - lists.task_start[task];
            if (failed(run)) continue;
            if (count == 1)
                process_supernode<value_t, kind, sym>(run, &space, first);
            else
                process_subtree<value_t, kind, sym>(run, &space, first, first + count - 1);
        }
        merge_counts(run, &space);
        if (id == 1 && !failed(run)) report_percent(run, 100);
    }
}

#define INSTANTIATE(V, kind, sym) template void single_level_region<V, kind, sym>(factor_run<V> *, void *);
FOR_EACH_MEMBER(INSTANTIATE)
