/* What a request costs on each route of the memory manager. A hit in the pool takes no lock: its time must stay the same when a second
   thread does likewise on a second core. */
#include <benchmark/benchmark.h>
#include <cstdlib>

#include "service/service.h"

static void pool_hit(benchmark::State &state)
{
    const auto size = static_cast<uint64_t>(state.range(0));
    for (auto _ : state) {
        void *block = service_alloc(size, 128);
        benchmark::DoNotOptimize(block);
        service_free(block);
    }
}
BENCHMARK(pool_hit)->Arg(1 << 10)->Arg(1 << 22)->Threads(1)->Threads(2)->UseRealTime();

/* The hit that has to look at all five entries. */
static void pool_hit_on_last_entry(benchmark::State &state)
{
    void *held[4];
    for (int i = 0; i < 4; ++i) held[i] = service_alloc(static_cast<uint64_t>(1000 * (i + 1)), 64);
    for (auto _ : state) {
        void *block = service_alloc(100000, 64);
        benchmark::DoNotOptimize(block);
        service_free(block);
    }
    for (void *block : held) service_free(block);
}
BENCHMARK(pool_hit_on_last_entry)->Threads(1)->Threads(2)->UseRealTime();

static void direct_route(benchmark::State &state)
{
    const auto size = static_cast<uint64_t>(state.range(0));
    for (auto _ : state) {
        void *block = service_alloc_direct(size, 128);
        benchmark::DoNotOptimize(block);
        service_free_direct(block);
    }
}
BENCHMARK(direct_route)->Arg(1 << 10)->Arg(1 << 22)->Threads(1)->Threads(2)->UseRealTime();

static void system_allocator(benchmark::State &state)
{
    const auto size = static_cast<std::size_t>(state.range(0));
    for (auto _ : state) {
        void *block = std::malloc(size);
        benchmark::DoNotOptimize(block);
        std::free(block);
    }
}
BENCHMARK(system_allocator)->Arg(1 << 10)->Arg(1 << 22)->Threads(1)->Threads(2)->UseRealTime();

BENCHMARK_MAIN();
