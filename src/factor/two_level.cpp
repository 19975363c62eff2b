#include "factor/factor_run.h"
#include "factor/team.h"

/* The two-level region: domains are factored by one thread each, without locks; the supernodes above them are claimed one at a time by
   whoever is free, updated by what is finished so far, and handed back when something is still missing.

   lists->status, one word a supernode: for one above the domains 0 free, -1 claimed, 1 finished. The words of the domains' supernodes are
   not needed for that: the word of a domain's first supernode keeps the domain's progress, its last finished supernode. */

namespace
{

struct top_state {
    int64_t done_count, scan_head;                /* under factor_lock */
    int64_t total, domains, first_top, algorithm; /* algorithm 2: updates strictly in list order */
};

int64_t domain_first(const supernodal_structure &s, int64_t domain)
{
    return s.domain_table[2 * domain - 2];
}
int64_t domain_last(const supernodal_structure &s, int64_t domain)
{
    return s.domain_table[2 * domain - 1];
}

template <typename value_t, factor_kind kind, mirror sym>
void factor_domain(factor_run<value_t> *run, thread_space<value_t> *space, int64_t domain)
{
    const supernodal_structure &s = *run->s;
    const int64_t first = domain_first(s, domain), last = domain_last(s, domain);
    if (last >= first) process_range<value_t, kind, sym>(run, space, first, last, &run->in->lists->status[first - 1], false);
}

/* First free supernode from `from` on, claimed; 0 when there is none. Call it under factor_lock. */
int64_t claim_from(const work_lists &lists, int64_t from, int64_t supernodes)
{
    for (int64_t number = from; number <= supernodes; ++number) {
        if (lists.status[number - 1] != 0) continue;
        lists.status[number - 1] = -1;
        return number;
    }
    return 0;
}

/* Claim the first free supernode of the top. */
int64_t claim_next(top_state *top, const work_lists &lists, int64_t supernodes)
{
    int64_t claimed = 0;
#pragma omp critical(factor_lock)
    {
        if (top->done_count < top->total) {
            while (top->scan_head <= supernodes && lists.status[top->scan_head - 1] == 1) ++top->scan_head;
            claimed = claim_from(lists, top->scan_head, supernodes);
        }
    }
    return claimed;
}

/* Free a claimed supernode; without progress claim the next free one behind it instead (returned, else 0). */
int64_t hand_back(const work_lists &lists, int64_t number, bool progress, int64_t supernodes)
{
    int64_t claimed = 0;
#pragma omp critical(factor_lock)
    {
        lists.status[number - 1] = 0;
        if (!progress) claimed = claim_from(lists, number + 1, supernodes);
    }
    return claimed;
}

/* Is the source at the cursor of list j finished? The cursor moves on if so: for a top source inside the lock. */
bool take_if_ready(const supernodal_structure &s, const work_lists &lists, const top_state &top, int64_t j, int64_t *cursor)
{
    const int64_t source = lists.list_source[*cursor - 1];
    if (j <= top.domains) {
        std::atomic_ref<int64_t> progress(lists.status[domain_first(s, j) - 1]);
        if (progress.load(std::memory_order_acquire) < source) return false;
        ++*cursor;
        return true;
    }
    bool ready = false;
#pragma omp critical(factor_lock)
    {
        ready = lists.status[source - 1] == 1;
        if (ready) ++*cursor;
    }
    return ready;
}

struct update_outcome {
    bool complete, progress;
};

/* Apply to a claimed supernode what is ready. */
template <typename value_t, factor_kind kind, mirror sym>
update_outcome apply_ready(factor_run<value_t> *run, thread_space<value_t> *space, target_block<value_t> *target, const top_state &top)
{
    const work_lists &lists = *run->in->lists;
    update_outcome outcome = {true, false};
    for (int64_t j = 1; j <= top.domains + 1; ++j) {
        const int64_t list = (target->number - top.first_top) * (top.domains + 1) + j;
        int64_t *cursor = lists.cursor + (list - 1);
        bool waiting = false;
        while (*cursor < lists.list_start[list] && !waiting) {
            if (failed(run)) return {false, false};
            const int64_t at = *cursor;
            if (take_if_ready(*run->s, lists, top, j, cursor)) {
                apply_update<value_t, kind, sym>(run, space, target, lists.list_source[at - 1], lists.list_rows[at - 1]);
                outcome.progress = true;
            } else {
                outcome.complete = false;
                waiting = true;
            }
        }
        if (waiting && top.algorithm == 2) break;
    }
    flush_updates<value_t, kind, sym>(run, space, target);
    return outcome;
}

template <typename value_t, factor_kind kind, mirror sym>
void finish_top(factor_run<value_t> *run, thread_space<value_t> *space, target_block<value_t> *target)
{
    factor_supernode<value_t, kind, sym>(run, space, target);
    merge_counts(run, space);
}

template <typename value_t, factor_kind kind, mirror sym>
void factor_top(factor_run<value_t> *run, thread_space<value_t> *space, top_state *top)
{
    const work_lists &lists = *run->in->lists;
    const int64_t supernodes = run->s->supernodes;
    idle_wait wait;
    for (int64_t number = claim_next(top, lists, supernodes); number != 0 && !failed(run);) {
        target_block<value_t> target;
        if (!open_target(run, number, block_use::update, &target)) return;
        const update_outcome outcome = apply_ready<value_t, kind, sym>(run, space, &target, *top);
        if (outcome.complete && !failed(run)) finish_top<value_t, kind, sym>(run, space, &target);
        close_target(run, &target, block_use::update);
        if (failed(run)) return;
        if (outcome.complete) {
#pragma omp critical(factor_lock)
            {
                lists.status[number - 1] = 1;
                ++top->done_count;
            }
            report_block(run, space, target.rows * target.columns, false);
        }
        if (outcome.complete || outcome.progress)
            wait.reset();
        else
            wait.pause();
        number = outcome.complete ? 0 : hand_back(lists, number, outcome.progress, supernodes);
        if (number == 0) number = claim_next(top, lists, supernodes);
    }
}

} // namespace

template <typename value_t, factor_kind kind, mirror sym>
void two_level_region(factor_run<value_t> *run, void *work)
{
    const work_lists &lists = *run->in->lists;
    const supernodal_structure &s = *run->s;
    const int64_t supernodes = s.supernodes;
    top_state top = {0, lists.first_top, supernodes - lists.first_top + 1, s.domains, lists.first_top, lists.two_level};
    for (int64_t i = 0; i < supernodes; ++i) lists.status[i] = 0;
    for (int64_t i = 0; i < top.total * (top.domains + 1); ++i) lists.cursor[i] = lists.list_start[i];
    int64_t threads = 0;
#pragma omp parallel num_threads(team_threads(*run->in))
    {
        thread_space<value_t> space;
        enter_region(run, &threads, work, &space);
#pragma omp for schedule(dynamic, 1)
        for (int64_t number = top.first_top; number <= supernodes; ++number) {
            target_block<value_t> target;
            if (failed(run) || !open_target(run, number, block_use::create, &target)) continue;
            assemble_supernode(run, &target);
            close_target(run, &target, block_use::create);
        }
#pragma omp for schedule(dynamic, 1) nowait
        for (int64_t domain = 1; domain <= top.domains; ++domain)
            if (!failed(run)) factor_domain<value_t, kind, sym>(run, &space, domain);
        merge_counts(run, &space);
        factor_top<value_t, kind, sym>(run, &space, &top);
    }
    if (!failed(run)) report_percent(run, 100);
}

#define INSTANTIATE(V, kind, sym) template void two_level_region<V, kind, sym>(factor_run<V> *, void *);
FOR_EACH_MEMBER(INSTANTIATE)
