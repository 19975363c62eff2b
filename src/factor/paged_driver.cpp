#include <algorithm>

#include "factor/factor_run.h"
#include "factor/paged_batches.h"

/* The driver for factors in files. It reads as little as it can: small subtrees, whose blocks stay in the windows, go to one thread each;
   above them as many supernodes as most of the windows hold are assembled together, a batch, so that a source is read once for all of
   them. All threads work on one batch: on its members, or on the sources that come in.

   Members that were one supernode before they were cut for their width are updated together. The order in which a supernode receives its
   sources does not depend on where batches end: those of the subtrees, those above them, each ascending. The numbering need not be a
   postorder: all that counts is that children come before parents. */

namespace
{

constexpr int64_t member_limit = 256, source_limit = 2048;
/* Of the windows: members of a batch get 25/32, a little less than the pager admits since pages leave gaps; a group of sources a 20th. */
constexpr int64_t planned_share = 32, planned_part = 25, group_share = 20;

struct source_group {
    int64_t count, number[source_limit];
};

/* Members that what stands before them updates together: a span, or one alone. */
template <typename value_t>
struct batch_unit {
    target_block<value_t> target;
    int64_t first, count; /* of its members */
    int64_t applied;      /* members before it that it has received; this and the next under member_lock */
    bool taken;           /* a thread works on it, or it is factored */
};

template <typename value_t>
struct batch_state {
    const supernodal_structure *s;
    int64_t *status; /* [supernodes] minus the first supernode of a subtree at its root, 0 inside a subtree, above 0 above the subtrees */
    int64_t *waits;  /* [supernodes] of a finished one: the supernode above the subtrees that it updates next; 0: none */
    int64_t group_bytes;
    int64_t last, count; /* members */
    target_block<value_t> member[member_limit];
    span_block<value_t> block[member_limit];
    int64_t units;
    batch_unit<value_t> unit[member_limit];
    int64_t pass, cursor; /* of the search for sources */
    source_group group[2];
    source_group *current, *following;
    int64_t factored; /* members; under member_lock */
};

/* Cut the tree. limit: entries of a subtree. next: links the supernodes of a subtree, ascending; a supernode's word is free once it is
   done. size and root are scratch of supernodes words. */
void cut_tree(const supernodal_structure &s, bool two_sides, int64_t limit, int64_t *size, int64_t *root, int64_t *status, int64_t *next)
{
    for (int64_t i = 1; i <= s.supernodes; ++i) size[i - 1] = next[i - 1] = 0;
    for (int64_t i = 1; i <= s.supernodes; ++i) {
        size[i - 1] += block_entries(s, i, two_sides);
        status[i - 1] = size[i - 1] > limit ? 1 : 0;
        if (s.sparent[i - 1] != 0) size[s.sparent[i - 1] - 1] += size[i - 1];
    }
    for (int64_t i = s.supernodes; i >= 1; --i) {
        if (size[i - 1] > limit) continue;
        const int64_t up = s.sparent[i - 1];
        root[i - 1] = up != 0 && size[up - 1] <= limit ? root[up - 1] : i;
        int64_t &first = status[root[i - 1] - 1];
        next[i - 1] = -first;
        first = -i;
    }
}

/* Rows of a source at or behind `row`. */
int64_t rows_from(const supernodal_structure &s, int64_t source, int64_t row)
{
    const int64_t *list = supernode_row_list(s, source), *end = list + supernode_rows(s, source);
    return end - std::lower_bound(list, end, row);
}

/* The supernode that owns the first row of a source at or behind `row`; 0: none. */
int64_t next_target(const supernodal_structure &s, int64_t source, int64_t row)
{
    const int64_t remaining = rows_from(s, source, row);
    return remaining == 0 ? 0 : s.snode[supernode_row_list(s, source)[supernode_rows(s, source) - remaining] - 1];
}

/* Apply source to a member or a unit, if it has rows there. */
template <typename value_t, factor_kind kind, mirror sym>
void update_target(factor_run<value_t> *run, thread_space<value_t> *space, target_block<value_t> *target, int64_t source)
{
    const supernodal_structure &s = *run->s;
    const int64_t remaining = rows_from(s, source, target->first);
    if (remaining == 0) return;
    const int64_t row = supernode_row_list(s, source)[supernode_rows(s, source) - remaining];
    if (row < target->first + target->columns) apply_update<value_t, kind, sym>(run, space, target, source, remaining);
}

/* Divide the members of a batch into units. */
template <typename value_t>
void make_units(const factor_run<value_t> *run, const thread_space<value_t> &space, batch_state<value_t> *batch)
{
    const target_block<value_t> *member = batch->member;
    batch->units = 0;
    for (int64_t i = 0, end = 0; i < batch->count; i = end) {
        for (end = i + 1; end < batch->count && member[end].number == member[end - 1].number + 1;) ++end;
        end = i + span_count_from(run, space, member[i].number, member[end - 1].number);
        batch_unit<value_t> *unit = &batch->unit[batch->units++];
        *unit = {member[i], i, end - i, 0, false};
        if (unit->count == 1) continue;
        int64_t columns = 0;
        for (int64_t k = i; k < end; columns += member[k++].columns)
            batch->block[k] = {columns, member[k].columns, member[k].rows, member[k].lower, member[k].upper};
        unit->target.columns = columns;
        unit->target.spanned = unit->count;
        unit->target.span = batch->block + i;
    }
}

/* Hold the supernodes from `first` on, as far as planned and as many as the windows admit. One thread, while no source is held. */
template <typename value_t>
void open_batch(factor_run<value_t> *run, const thread_space<value_t> &space, batch_state<value_t> *batch, int64_t first)
{
    const block_pager *pager = run->in->store->pager;
    pager->mark(pager->context);
    batch->count = 0;
    batch->last = first;
    for (int64_t i = first; i <= run->s->supernodes && batch->count < member_limit && !failed(run); ++i) {
        if (batch->status[i - 1] <= 0) continue;
        if (i > first && batch->status[i - 1] == supernode_begins_batch) break;
        const auto admitted = [&](factor_side side) { return pager->admits(pager->context, side, i); };
        if (i > first && !(admitted(factor_side::lower) && (!run->two_sides || admitted(factor_side::upper)))) break;
        if (!open_target(run, i, block_use::create, &batch->member[batch->count])) break;
        ++batch->count;
        batch->last = i;
    }
    make_units(run, space, batch);
    batch->factored = 0;
    batch->pass = 0;
    batch->cursor = 1;
    batch->following = &batch->group[0];
    batch->following->count = 0;
}

/* The sources that come next, ascending: first of the subtrees, then those above them. */
template <typename value_t>
void find_sources(const factor_run<value_t> *run, batch_state<value_t> *batch, source_group *group)
{
    const supernodal_structure &s = *batch->s;
    int64_t bytes = 0;
    group->count = 0;
    for (; batch->pass < 2; ++batch->pass, batch->cursor = 1) {
        for (; batch->cursor <= batch->last; ++batch->cursor) {
            const int64_t i = batch->cursor, target = batch->waits[i - 1];
            if (target == 0 || target > batch->last || (batch->status[i - 1] > 0) != (batch->pass == 1)) continue;
            if (group->count == source_limit || bytes >= batch->group_bytes) return;
            bytes += block_entries(s, i, run->two_sides) * static_cast<int64_t>(sizeof(value_t));
            group->number[group->count++] = i;
        }
    }
}

/* Go on to the next sources, and pass each on to what it updates behind the batch. */
template <typename value_t>
void advance_sources(const factor_run<value_t> *run, batch_state<value_t> *batch)
{
    const block_pager *pager = run->in->store->pager;
    pager->mark(pager->context);
    batch->current = batch->following;
    batch->following = batch->current == &batch->group[0] ? &batch->group[1] : &batch->group[0];
    for (int64_t i = 0; i < batch->current->count; ++i) {
        const int64_t source = batch->current->number[i];
        batch->waits[source - 1] = next_target(*batch->s, source, batch->s->xsuper[batch->last]);
    }
    find_sources(run, batch, batch->following);
}

template <typename value_t>
void expect_sources(const factor_run<value_t> *run, const source_group &group)
{
    const factor_store<value_t> &store = *run->in->store;
    expect_blocks(store, factor_side::lower, group.count, group.number);
    if (run->two_sides) expect_blocks(store, factor_side::upper, group.count, group.number);
}

/* All of the current sources, in order, to one unit. */
template <typename value_t, factor_kind kind, mirror sym>
void apply_group(factor_run<value_t> *run, thread_space<value_t> *space, const source_group &group, target_block<value_t> *target)
{
    target->mapped = false; /* the thread's map has served another unit */
    for (int64_t i = 0; i < group.count && !failed(run); ++i) update_target<value_t, kind, sym>(run, space, target, group.number[i]);
    if (!failed(run)) flush_updates<value_t, kind, sym>(run, space, target);
}

/* All sources, a group that fits the windows at a time, to all units. The next group is read meanwhile: one thread asks for it first, and
   whoever finds no unit left sees to it that it arrives. */
template <typename value_t, factor_kind kind, mirror sym>
void apply_sources(factor_run<value_t> *run, thread_space<value_t> *space, batch_state<value_t> *batch)
{
    const block_pager *pager = run->in->store->pager;
    for (;;) {
#pragma omp single
        {
            advance_sources(run, batch);
            expect_sources(run, *batch->current); /* those that there was no place for before */
        }
        const source_group &group = *batch->current, &following = *batch->following;
        if (group.count == 0) return;
#pragma omp for schedule(dynamic, 1)
        for (int64_t k = -1; k < batch->units + following.count; ++k) {
            if (k < 0) {
                expect_sources(run, following);
            } else if (k < batch->units) {
                apply_group<value_t, kind, sym>(run, space, group, &batch->unit[k].target);
            } else {
                const int64_t source = following.number[k - batch->units];
                pager->settle(pager->context, factor_side::lower, source);
                if (run->two_sides) pager->settle(pager->context, factor_side::upper, source);
            }
        }
    }
}

/* A member that is done may be written; it is still read for the members behind it. */
template <typename value_t>
void finish_member(factor_run<value_t> *run, thread_space<value_t> *space, batch_state<value_t> *batch, const target_block<value_t> &member)
{
    batch->waits[member.number - 1] = next_target(*batch->s, member.number, batch->s->xsuper[batch->last]);
    close_target(run, &member, block_use::create);
    if (!failed(run)) report_block(run, space, member.rows * member.columns, false);
#pragma omp critical(member_lock)
    ++batch->factored;
}

/* The first unit that can receive members or be factored, taken for the caller; -1: none at the moment. from .. to - 1: the members that it
   can receive; to is its own first one when it can be factored then. */
template <typename value_t>
int64_t take_unit(batch_state<value_t> *batch, int64_t *from, int64_t *to, bool *finished)
{
    int64_t found = -1;
#pragma omp critical(member_lock)
    {
        *finished = batch->factored == batch->count;
        for (int64_t u = 0; u < batch->units && found < 0; ++u) {
            batch_unit<value_t> *unit = &batch->unit[u];
            *from = unit->applied;
            *to = std::min(batch->factored, unit->first);
            if (unit->taken || (*from == *to && *to < unit->first)) continue;
            unit->taken = true;
            found = u;
        }
    }
    return found;
}

/* Factor the members of a unit that has received all before it. */
template <typename value_t, factor_kind kind, mirror sym>
void factor_unit(factor_run<value_t> *run, thread_space<value_t> *space, batch_state<value_t> *batch, const batch_unit<value_t> &unit)
{
    for (int64_t i = unit.first; i < unit.first + unit.count; ++i) {
        target_block<value_t> *member = &batch->member[i];
        for (int64_t j = unit.first; j < i && !failed(run); ++j)
            apply_update<value_t, kind, sym>(run, space, member, batch->member[j].number, member->rows);
        if (!failed(run)) flush_updates<value_t, kind, sym>(run, space, member);
        if (!failed(run)) factor_supernode<value_t, kind, sym>(run, space, member);
        finish_member(run, space, batch, *member);
    }
}

/* Each unit receives the earlier members in order, as they are finished, and is factored then. The first ones go first: the others wait for
   them. */
template <typename value_t, factor_kind kind, mirror sym>
void factor_members(factor_run<value_t> *run, thread_space<value_t> *space, batch_state<value_t> *batch)
{
    idle_wait wait;
    int64_t from = 0, to = 0;
    for (bool finished = false;;) {
        const int64_t u = take_unit(batch, &from, &to, &finished);
        if (finished) break;
        if (u < 0) {
            wait.pause();
            continue;
        }
        wait.reset();
        batch_unit<value_t> *unit = &batch->unit[u];
        unit->target.mapped = false; /* the thread's map has served another unit */
        for (int64_t i = from; i < to && !failed(run); ++i)
            update_target<value_t, kind, sym>(run, space, &unit->target, batch->member[i].number);
        if (!failed(run)) flush_updates<value_t, kind, sym>(run, space, &unit->target);
        if (to == unit->first) {
            factor_unit<value_t, kind, sym>(run, space, batch, *unit);
            continue;
        }
#pragma omp critical(member_lock)
        {
            unit->applied = to;
            unit->taken = false;
        }
    }
#pragma omp barrier
}

template <typename value_t, factor_kind kind, mirror sym>
void process_batch(factor_run<value_t> *run, thread_space<value_t> *space, batch_state<value_t> *batch)
{
#pragma omp single
    {
        find_sources(run, batch, batch->following);
        expect_sources(run, *batch->following);
    }
#pragma omp for schedule(dynamic, 1)
    for (int64_t i = 0; i < batch->count; ++i) assemble_supernode(run, &batch->member[i]);
    apply_sources<value_t, kind, sym>(run, space, batch);
    factor_members<value_t, kind, sym>(run, space, batch);
}

/* One subtree, with the private lists of its supernodes; what is left of their rows stays in head. */
template <typename value_t, factor_kind kind, mirror sym>
void factor_subtree(factor_run<value_t> *run, thread_space<value_t> *space, const source_lists &lists, int64_t first, int64_t last)
{
    const supernodal_structure &s = *run->s;
    for (int64_t number = first, following = 0; number != 0 && !failed(run); number = following) {
        following = lists.next[number - 1];
        process_with_lists<value_t, kind, sym>(run, space, lists, number, last);
        report_block(run, space, supernode_rows(s, number) * supernode_columns(s, number), false);
    }
}

} // namespace

template <typename value_t, factor_kind kind, mirror sym>
void paged_region(factor_run<value_t> *run, void *work)
{
    const supernodal_structure &s = *run->s;
    const block_pager *pager = run->in->store->pager;
    const int64_t supernodes = s.supernodes, team = run->in->nproc;
    const auto entry = static_cast<int64_t>(sizeof(value_t));
    batch_state<value_t> batch = {};
    batch.s = &s;
    batch.status = run->in->lists->status;
    batch.waits = run->in->thread_rows;
    batch.group_bytes = pager->window_bytes / group_share;
    const source_lists lists = {run->in->thread_rows + supernodes, batch.waits};
    const int64_t total = s.nnz_l + (run->two_sides ? s.nnz_u : 0);
    const int64_t limit = std::min(pager->window_bytes / (2 * team) / entry, total / (8 * team));
    thread_space<value_t> scratch;
    bind_thread_space(run, 1, work, &scratch);
    cut_tree(s, run->two_sides, limit, scratch.relative, scratch.row_position, batch.status, lists.next);
    plan_batches(s, run->two_sides, pager->window_bytes / entry / planned_share * planned_part, member_limit, batch.status,
                 scratch.relative, 2 * s.neqns);
    for (int64_t c = 0; c < s.neqns; ++c) lists.head[c] = 0;
    int64_t threads = 0;
#pragma omp parallel num_threads(static_cast <int>(team))
    {
        thread_space<value_t> space;
        enter_region(run, &threads, work, &space);
#pragma omp for schedule(dynamic, 1)
        for (int64_t root = 1; root <= supernodes; ++root)
            if (batch.status[root - 1] < 0 && !failed(run))
                factor_subtree<value_t, kind, sym>(run, &space, lists, -batch.status[root - 1], root);
#pragma omp for
        for (int64_t i = 1; i <= supernodes; ++i) {
            const int64_t remaining = lists.head[s.xsuper[i - 1] - 1];
            batch.waits[i - 1] = remaining == 0 ? 0 : s.snode[supernode_row_list(s, i)[supernode_rows(s, i) - remaining] - 1];
        }
        /* one thread gives the same bits every run: what is applied together must not depend on where groups and batches end */
#pragma omp single
        run->most_pending = team > 1 ? run->most_pending : 1;
        space.batched = true;
        for (int64_t first = 1; first <= supernodes; ++first) {
            if (batch.status[first - 1] <= 0) continue;
#pragma omp single
            open_batch(run, space, &batch, first);
            first = batch.last;
            process_batch<value_t, kind, sym>(run, &space, &batch);
        }
        merge_counts(run, &space);
    }
    if (!failed(run)) report_percent(run, 100);
}

#define INSTANTIATE(V, kind, sym) template void paged_region<V, kind, sym>(factor_run<V> *, void *);
FOR_EACH_MEMBER(INSTANTIATE)
