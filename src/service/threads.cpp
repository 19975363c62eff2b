#include "service/thread_record.h"

#include <omp.h>

#include "platform/platform.h"

thread_record service_threads = {
    .thread_local_slot{-1},
    .general_threads{-1},
    .env_pending{1},
    .physical_cores{-1},
    .launcher_hint{-1},
    .launcher_processes{-1},
    .omp_env_threads{-1},
    .launcher_thread_level{-1},
    .logical_processors{1},
    .package_count{-1},
    .cores_per_package{-1},
    .hyperthreading{-1},
    .domain{-1, -1, -1, -1},
    .dynamic{-1},
    .topology_done{0},
};

/* Every query opens with this: read the environment once, and then look at the processors once. */
static void settle_record()
{
    thread_record &record = service_threads;
    if (record.env_pending.load(std::memory_order_acquire) == 0) return;
    service_lock();
    const bool first = record.env_pending.load(std::memory_order_relaxed) != 0;
    if (first) {
        service_read_thread_env(&record);
        record.env_pending.store(0, std::memory_order_release);
    }
    service_unlock();
    if (first && record.topology_done.load(std::memory_order_acquire) == 0) service_detect_topology();
}

/* The caps that dynamic threading puts on count. explicit_count: somebody asked for this count. */
static int32_t capped_count(int32_t count, bool explicit_count)
{
    const thread_record &record = service_threads;
    const int32_t cores = record.physical_cores.load(std::memory_order_relaxed);
    if (static_cast<uint32_t>(cores) < static_cast<uint32_t>(count)) count = cores; /* cores not known, -1, lower nothing */
    const int32_t hint = record.launcher_hint.load(std::memory_order_relaxed);
    if (hint == 0) return 1;
    const int32_t processes = record.launcher_processes.load(std::memory_order_relaxed);
    if (hint == -1 && processes != -1 && !explicit_count && record.omp_env_threads.load(std::memory_order_relaxed) < 1) {
        /* Several processes of one program share the node: each takes its part, if its threads may run beside each other at all. */
        if (record.launcher_thread_level.load(std::memory_order_relaxed) < 1) return 1;
        const int32_t share = cores / processes;
        return share < 1 ? 1 : share;
    }
    return count;
}

int32_t service_domain_max_threads(int32_t domain)
{
    const thread_record &record = service_threads;
    const int32_t slot = record.thread_local_slot.load(std::memory_order_relaxed);
    if (slot != -1) {
        const int64_t own = platform_thread_slot_get(slot);
        if (own > 0) return own > INT32_MAX ? INT32_MAX : static_cast<int32_t>(own);
    }
    settle_record();
    const bool dynamic = record.dynamic.load(std::memory_order_relaxed) != 0;
    if (dynamic && omp_in_parallel() != 0) return 1;
    int32_t count = -1;
    if (domain >= domain_blas && domain <= domain_solver) count = record.domain[domain - 1].load(std::memory_order_relaxed);
    if (count < 1) count = record.general_threads.load(std::memory_order_relaxed);
    const bool explicit_count = count >= 1;
    if (!explicit_count) count = omp_get_max_threads();
    return dynamic ? capped_count(count, explicit_count) : count;
}

int32_t service_max_threads()
{
    return service_domain_max_threads(domain_all);
}

int32_t service_dynamic()
{
    settle_record();
    return service_threads.dynamic.load(std::memory_order_relaxed);
}

int32_t service_package_count()
{
    settle_record();
    return service_threads.package_count.load(std::memory_order_relaxed);
}

int32_t service_cores_per_package()
{
    settle_record();
    return service_threads.cores_per_package.load(std::memory_order_relaxed);
}

void solver_thread_count(int64_t *out)
{
    *out = service_domain_max_threads(domain_solver);
}

int64_t solver_dynamic_flag()
{
    return service_dynamic();
}

int64_t solver_physical_cores()
{
    return int64_t{service_cores_per_package()} * service_package_count();
}

bool solver_cbwr_active()
{
    return service_cbwr_branch(1) > 1;
}
