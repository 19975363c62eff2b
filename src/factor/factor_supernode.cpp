#include "factor/factor_run.h"
#include "factor/value_helpers.h"

/* The diagonal block of a supernode and the panels beside it. */

namespace
{

/* Record the pivot at local column k (0-based) of the target as the failing one; of several, the first column is kept. */
template <typename value_t>
void fail_at(factor_run<value_t> *run, const target_block<value_t> *target, int64_t k)
{
#pragma omp critical(stats_lock)
    {
        const int64_t column = target->first + k;
        if (run->failed_column == 0 || column < run->failed_column) run->failed_column = column;
    }
    fail(run, -1);
}

/* The diagonal after elimination, for a host that watches the pivots. */
template <typename value_t, factor_kind kind>
void keep_pivots(const factor_run<value_t> *run, const target_block<value_t> *target)
{
    value_t *kept = run->in->store->diagonal;
    if (kept == nullptr) return;
    for (int64_t c = 0; c < target->columns; ++c) {
        const value_t d = target->lower[c + c * target->rows];
        kept[target->first + c - 1] = kind == factor_kind::cholesky ? product(d, d) : d;
    }
}

template <typename value_t>
void factor_cholesky(factor_run<value_t> *run, thread_space<value_t> *space, target_block<value_t> *target)
{
    const int64_t info = kernel_potrf_panel(target->rows, target->columns, target->lower, target->rows, space->work);
    if (info > 0)
        fail_at(run, target, info - 1);
    else
        space->positive += target->columns;
}

} // namespace

template <typename value_t, factor_kind kind, mirror sym>
void factor_supernode(factor_run<value_t> *run, thread_space<value_t> *space, target_block<value_t> *target)
{
    if constexpr (kind == factor_kind::cholesky) factor_cholesky(run, space, target);
    if (run->in->callback_on != 0) keep_pivots<value_t, kind>(run, target);
}

#define INSTANTIATE(V, kind, sym) template void factor_supernode<V, kind, sym>(factor_run<V> *, thread_space<V> *, target_block<V> *);
FOR_EACH_MEMBER(INSTANTIATE)
