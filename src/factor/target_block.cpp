#include "factor/factor_run.h"

#include <complex>

template <typename value_t>
bool open_target(factor_run<value_t> *run, int64_t number, block_use use, target_block<value_t> *target)
{
    const supernodal_structure &s = *run->s;
    const factor_store<value_t> &store = *run->in->store;
    target->number = number;
    target->first = s.xsuper[number - 1];
    target->columns = supernode_columns(s, number);
    target->rows = supernode_rows(s, number);
    target->row_list = supernode_row_list(s, number);
    target->upper = nullptr;
    target->mapped = target->front = false;
    target->spanned = 0;
    target->span = nullptr;
    target->lower = acquire_block(store, s, factor_side::lower, number, use);
    if (target->lower == nullptr) {
        fail(run, -1);
        return false;
    }
    if (!run->two_sides || target->rows == target->columns) return true;
    target->upper = acquire_block(store, s, factor_side::upper, number, use);
    if (target->upper != nullptr) return true;
    release_block(store, factor_side::lower, number, use);
    fail(run, -1);
    return false;
}

template <typename value_t>
void close_target(const factor_run<value_t> *run, const target_block<value_t> *target, block_use use)
{
    const factor_store<value_t> &store = *run->in->store;
    if (target->upper != nullptr) release_block(store, factor_side::upper, target->number, use);
    release_block(store, factor_side::lower, target->number, use);
}

template <typename value_t>
int64_t span_count_from(const factor_run<value_t> *run, const thread_space<value_t> &space, int64_t number, int64_t last)
{
    const supernodal_structure &s = *run->s;
    constexpr int64_t widest_source = 192; /* as the analysis makes them; its scaled rows must fit */
    const int64_t room = space.buffer_entries / widest_source;
    if ((run->in->store->pager != nullptr && !space.batched) || run->most_pending == 1) return 1;
    int64_t most = run->in->single_thread == 1 ? span_columns : parallel_span_columns;
    if (room < most) most = room;
    int64_t columns = supernode_columns(s, number), count = 1;
    for (int64_t next = number + 1; next <= last && count < span_limit; ++next, ++count) {
        columns += supernode_columns(s, next);
        if (!continues_in_next(s, next - 1) || columns > most) break;
    }
    return count;
}

template <typename value_t>
bool open_span(factor_run<value_t> *run, int64_t number, int64_t count, span_block<value_t> *block, target_block<value_t> *target)
{
    int64_t before = 0;
    for (int64_t i = 0; i < count; ++i) {
        target_block<value_t> one;
        if (!open_target(run, number + i, block_use::create, &one)) return false;
        assemble_supernode(run, &one);
        block[i] = {before, one.columns, one.rows, one.lower, one.upper};
        if (i == 0) *target = one;
        before += one.columns;
    }
    target->columns = before;
    target->spanned = count;
    target->span = block;
    return true;
}

template <typename value_t>
void bind_thread_space(const factor_run<value_t> *run, int64_t id, void *work, thread_space<value_t> *space)
{
    const factor_input<value_t> &in = *run->in;
    const int64_t n = run->s->neqns;
    space->id = id;
    space->relative = in.thread_rows + run->s->supernodes + (2 * id - 1) * n;
    space->row_position = space->relative + n;
    space->buffer = in.update_buffer + (id - 1) * in.buffer_entries;
    space->buffer_entries = in.buffer_entries;
    space->work = work == nullptr ? nullptr : static_cast<char *>(work) + (id - 1) * dense_work_size();
    space->done = space->perturbed = space->positive = space->negative = 0;
    space->batched = false;
    space->chainless_from = space->chainless_to = 0;
    space->pending_count = 0; /* the table behind it needs no zeros: 5 KB, a hundredth of the instructions for a hundred rows */
}

template <typename value_t>
void enter_region(const factor_run<value_t> *run, int64_t *threads, void *work, thread_space<value_t> *space)
{
    int64_t id = 0;
#pragma omp critical(thread_id_lock)
    id = ++*threads;
    bind_thread_space(run, id, work, space);
}

template <typename value_t>
void merge_counts(factor_run<value_t> *run, thread_space<value_t> *space)
{
#pragma omp critical(stats_lock)
    {
        run->perturbed += space->perturbed;
        run->positive += space->positive;
        run->negative += space->negative;
    }
    space->perturbed = space->positive = space->negative = 0;
}

#define INSTANTIATE(V)                                                                                                                     \
    template bool open_target<V>(factor_run<V> *, int64_t, block_use, target_block<V> *);                                                  \
    template void close_target<V>(const factor_run<V> *, const target_block<V> *, block_use);                                              \
    template int64_t span_count_from<V>(const factor_run<V> *, const thread_space<V> &, int64_t, int64_t);                                 \
    template bool open_span<V>(factor_run<V> *, int64_t, int64_t, span_block<V> *, target_block<V> *);                                     \
    template void bind_thread_space<V>(const factor_run<V> *, int64_t, void *, thread_space<V> *);                                         \
    template void enter_region<V>(const factor_run<V> *, int64_t *, void *, thread_space<V> *);                                            \
    template void merge_counts<V>(factor_run<V> *, thread_space<V> *);
FOR_EACH_VALUE(INSTANTIATE)
