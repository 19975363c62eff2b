#include <cstdlib>

#include "factor/factor_run.h"
#include "factor/team.h"

/* The single-level region. The threads take tasks in work order: a supernode, those that were one before they were cut for their width, or
   a small subtree. A supernode applies what stands in its ready list until it has received all it expects; those that were one receive
   together what comes from outside. Nothing from outside updates a whole subtree, so that it is factored as by the serial driver, without
   locks. What is finished is appended to the ready list of each target. Tasks are handed out in order and a target comes after its
   descendants, so whoever waits waits for a supernode that a running thread holds. The order of the updates depends on arrival, and so do
   the last bits. lists->status holds the write positions. */

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

/* Does a source that waits for a block of the target meet none before? q: its rows from that block on. */
template <typename value_t>
bool meets_first(const supernodal_structure &s, const target_block<value_t> &target, int64_t source, int64_t q)
{
    const int64_t rows = supernode_rows(s, source);
    return q == rows - supernode_columns(s, source) || supernode_row_list(s, source)[rows - q - 1] < target.first;
}

/* The same for a span: what comes from outside stands on the lists of all blocks that it meets and is applied once. */
template <typename value_t, factor_kind kind, mirror sym>
void receive_from_outside(factor_run<value_t> *run, thread_space<value_t> *space, target_block<value_t> *span)
{
    const work_lists &lists = *run->in->lists;
    int64_t read[span_limit], written[span_limit], missing = 0;
    for (int64_t i = 0; i < span->spanned; ++i) {
        const int64_t *start = lists.ready_start + (span->number + i - 1);
        read[i] = start[0];
        missing += start[1] - start[0] - i; /* the blocks before are sources from inside */
    }
    idle_wait wait;
    while (missing > 0) {
#pragma omp critical(ready_lock)
        for (int64_t i = 0; i < span->spanned; ++i) written[i] = lists.status[span->number + i - 1];
        const int64_t before = missing;
        for (int64_t i = 0; i < span->spanned; ++i)
            for (; read[i] < written[i]; ++read[i], --missing) {
                if (failed(run)) return;
                const int64_t source = lists.ready_source[read[i] - 1], rows = lists.ready_rows[read[i] - 1];
                if (meets_first(*run->s, *span, source, rows)) apply_update<value_t, kind, sym>(run, space, span, source, rows);
            }
        flush_updates<value_t, kind, sym>(run, space, span);
        if (failed(run)) return;
        if (missing == before)
            wait.pause();
        else
            wait.reset();
    }
}

/* Wide supernodes that were one before they were cut. Each is handed on as soon as it is done. */
template <typename value_t, factor_kind kind, mirror sym>
void process_span(factor_run<value_t> *run, thread_space<value_t> *space, int64_t number, int64_t count)
{
    span_block<value_t> block[span_limit];
    target_block<value_t> span, target;
    if (!open_span(run, number, count, block, &span)) return;
    receive_from_outside<value_t, kind, sym>(run, space, &span);
    for (int64_t i = 0; i < count && !failed(run); ++i) {
        if (!open_target(run, number + i, block_use::update, &target)) return;
        for (int64_t j = 0; j < i; ++j) apply_update<value_t, kind, sym>(run, space, &target, number + j, target.rows);
        flush_updates<value_t, kind, sym>(run, space, &target);
        if (!failed(run)) factor_supernode<value_t, kind, sym>(run, space, &target);
        if (failed(run)) return;
        publish(run, number + i, number + i);
        report_block(run, space, target.rows * target.columns, true);
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
    process_range<value_t, kind, sym>(run, space, first, last, nullptr, true);
    if (!failed(run)) publish(run, first, last);
}

bool is_span(const supernodal_structure &s, int64_t first, int64_t last)
{
    while (first < last && continues_in_next(s, first)) ++first;
    return first == last;
}

template <typename value_t, factor_kind kind, mirror sym>
void process_task(factor_run<value_t> *run, thread_space<value_t> *space, int64_t first, int64_t last)
{
    if (!is_span(*run->s, first, last)) return process_subtree<value_t, kind, sym>(run, space, first, last);
    for (int64_t number = first, count = 0; number <= last && !failed(run); number += count) {
        count = span_count_from(run, *space, number, last);
        if (count > 1)
            process_span<value_t, kind, sym>(run, space, number, count);
        else
            process_supernode<value_t, kind, sym>(run, space, number);
    }
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
        enter_region(run, &threads, work, &space);
#pragma omp for schedule(dynamic, 1)
        for (int64_t task = 0; task < lists.tasks; ++task) {
            const int64_t first = std::abs(lists.work_order[lists.task_start[task]]);
            const int64_t count = lists.task_start[task + 1] - lists.task_start[task];
            if (!failed(run)) process_task<value_t, kind, sym>(run, &space, first, first + count - 1);
        }
        merge_counts(run, &space);
        if (space.id == 1 && !failed(run)) report_percent(run, 100);
    }
}

#define INSTANTIATE(V, kind, sym) template void single_level_region<V, kind, sym>(factor_run<V> *, void *);
FOR_EACH_MEMBER(INSTANTIATE)
