#include "factor/factor_run.h"

#include <complex>
#include <cstdio>

#include "platform/platform.h"
#include "service/message_numbers.h"
#include "service/service.h"

namespace
{

constexpr char stage_text[] = "Solvara: factorization phase";
constexpr int32_t stage_length = static_cast<int32_t>(sizeof(stage_text) - 1);

bool wants_to_stop(int64_t percent)
{
    const int64_t thread = 0;
    return service_progress(&thread, &percent, stage_text, stage_length) != 0;
}

/* The percent line: rewritten in place on a terminal, elsewhere in steps of ten. */
void print_percent(int64_t percent, int64_t previous)
{
    if (platform_is_terminal(1)) {
        std::fputs("\r", stdout);
        std::fputs(service_message_text(message_factorization_percent, 1, percent), stdout);
        if (percent == 100) std::fputs("\n", stdout);
        std::fflush(stdout);
    } else if (percent == 0 || percent / 10 > previous / 10) {
        service_print_message(0, message_factorization_percent, 1, percent);
    }
}

} // namespace

template <typename value_t>
void report_percent(factor_run<value_t> *run, int64_t percent)
{
    if (wants_to_stop(percent)) {
        run->stopped = 1;
        fail(run, -1);
    }
    if (run->in->message_flag != 0) print_percent(percent, run->last_percent);
    run->last_percent = percent;
}

template <typename value_t>
void publish_blocks(factor_run<value_t> *run, thread_space<value_t> *space, bool always)
{
    int64_t done = run->done.load(std::memory_order_relaxed) + space->done;
    if (run->in->nproc == 1) /* an addition under a lock is a tenth of a factorization of a hundred rows */
        run->done.store(done, std::memory_order_relaxed);
    else
        done = run->done.fetch_add(space->done, std::memory_order_relaxed) + space->done;
    space->done = 0;
    if (space->id != 1) return;
    int64_t percent = static_cast<int64_t>(static_cast<double>(done - 1) / static_cast<double>(run->total_entries) * 100);
    if (percent > 99) percent = 99;
    const bool rose = percent > run->last_percent;
    if (!rose && !always) return;
    if (wants_to_stop(percent)) {
        run->stopped = 1;
        fail(run, -1);
    }
    if (!rose) return;
    if (run->in->message_flag != 0) print_percent(percent, run->last_percent);
    run->last_percent = percent;
}

#define INSTANTIATE(V)                                                                                                                     \
    template void report_percent<V>(factor_run<V> *, int64_t);                                                                             \
    template void publish_blocks<V>(factor_run<V> *, thread_space<V> *, bool);
FOR_EACH_VALUE(INSTANTIATE)
