/* Let every allocation of a run fail in turn. */
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdlib>

#include "service/service.h"

/* Requests to the system allocator that are still granted; below 0 all are. A request that fails is counted. */
struct allocation_failure {
    static inline std::atomic<int64_t> granted{-1}, failures{0};
    service_system_allocator before = service_system;

    /* Request number k (from 0) fails, and when all_after is set every later one as well. */
    explicit allocation_failure(int64_t k, bool all_after = false)
    {
        granted = k;
        failures = 0;
        repeats = all_after;
        service_system.allocate = [](uint64_t size) -> void * { return refused() ? nullptr : std::malloc(size); };
        service_system.resize = [](void *block, uint64_t size) -> void * { return refused() ? nullptr : std::realloc(block, size); };
    }
    ~allocation_failure()
    {
        service_system = before;
    }
    allocation_failure(const allocation_failure &) = delete;
    allocation_failure &operator=(const allocation_failure &) = delete;

    static bool fired()
    {
        return failures > 0;
    }
    /* Grant everything from here on. */
    static void disarm()
    {
        granted = -1;
        repeats = false;
    }

  private:
    static inline bool repeats = false;

    static bool refused()
    {
        const int64_t left = granted--;
        if (left > 0 || (left < 0 && !(repeats && failures > 0))) return false;
        ++failures;
        return true;
    }
};

/* Run body(k) with request k failing, for k from 0 until a run asks for no k-th block before it disarms. Returns the number of runs with a
   failure. */
template <typename body_t>
int64_t for_every_failing_allocation(const body_t &body)
{
    for (int64_t k = 0;; ++k) {
        bool fired = false;
        {
            allocation_failure failure(k);
            body(k);
            fired = allocation_failure::fired();
        }
        if (!fired) return k;
    }
}
