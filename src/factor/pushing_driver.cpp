#include "factor/factor_run.h"
#include "factor/update_program.h"

#include <complex>

#include "service/service.h"

/* One thread, in core, along a program of pushes. */

namespace
{

/* Place where the kernel has to come back to report. */
template <typename value_t>
int64_t next_stop(const factor_run<value_t> &run, bool watched, bool each_block, int64_t at)
{
    const int64_t all = run.total_entries, step = each_block ? 1 : (all + report_steps - 1) / report_steps;
    return !watched || all - at < step ? all : at + step;
}

} // namespace

template <typename value_t>
void pushing_driver(factor_run<value_t> *run, void *work)
{
    const factor_input<value_t> &in = *run->in;
    const bool each_block = in.single_thread != 1 && in.lists->two_level == 0; /* as that region does */
    const bool watched = service_progress_watched() || in.message_flag != 0;
    thread_space<value_t> space;
    bind_thread_space(run, 1, work, &space);
    assemble_all(run);
    pushing_run<value_t> push = {in.program + 1, in.store->lnz, 0, 0, 0};
    while (push.at < run->total_entries && !failed(run)) {
        const int64_t from = push.at;
        push.end = next_stop(*run, watched, each_block, from);
        const int64_t broken = kernel_factor_pushing(&push, work);
        if (broken != 0) {
            run->failed_column = broken;
            fail(run, -1);
        } else if (watched)
            report_block(run, &space, push.at - from, each_block);
    }
    space.positive = push.columns;
    merge_counts(run, &space);
    if (!failed(run)) report_percent(run, 100);
}

#define INSTANTIATE(V) template void pushing_driver<V>(factor_run<V> *, void *);
FOR_EACH_VALUE(INSTANTIATE)
