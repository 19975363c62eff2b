#include <atomic>

#include "service/processor.h"

static constexpr int32_t level_limit = 4;

struct cache_table {
    int32_t levels;             /* 0 when nothing is known */
    int64_t bytes[level_limit]; /* data or unified cache of level l at bytes[l - 1] */
};

/* Leaf that lists the caches: leaf 4, or its twin among the extended leaves on processors that leave leaf 4 empty. */
static uint32_t cache_leaf()
{
    if (service_cpuid(0, 0).eax >= 4 && (service_cpuid(4, 0).eax & 0x1f) != 0) return 4;
    return service_cpuid(0x80000000, 0).eax >= 0x8000001d ? 0x8000001d : 0;
}

static cache_table measured_caches()
{
    cache_table table{};
    const uint32_t leaf = cache_leaf();
    if (leaf == 0) return table;
    constexpr uint32_t instruction_cache = 2;
    for (uint32_t i = 0; i < 2 * level_limit; ++i) {
        const cpuid_words words = service_cpuid(leaf, i);
        const uint32_t kind = words.eax & 0x1f;
        const auto level = static_cast<int32_t>(words.eax >> 5 & 7);
        if (kind == 0) break;
        if (kind == instruction_cache || level < 1 || level > level_limit) continue;
        const int64_t ways = (words.ebx >> 22) + 1, partitions = (words.ebx >> 12 & 0x3ff) + 1, line = (words.ebx & 0xfff) + 1;
        table.bytes[level - 1] = ways * partitions * line * (int64_t{words.ecx} + 1);
        if (level > table.levels) table.levels = level;
    }
    return table;
}

/* With a reproducibility branch set, sizes must not vary between machines: tuning, and so the bits, would follow them. */
static cache_table fixed_caches(int32_t branch)
{
    const bool three = branch >= branch_sse4_2 || (branch == branch_auto && service_cpu_type() >= 3);
    return {three ? 3 : 2, {0x8000, 0x40000, three ? 0x400000 : 0, 0}};
}

static std::atomic<int32_t> known_levels{-1};
static std::atomic<int64_t> known_bytes[level_limit];

int64_t service_cache_size(int32_t level)
{
    int32_t levels = known_levels.load(std::memory_order_acquire);
    if (levels < 0) {
        const int32_t branch = service_cbwr_branch(1);
        const cache_table table = branch == branch_none ? measured_caches() : fixed_caches(branch);
        for (int32_t l = 0; l < level_limit; ++l) known_bytes[l].store(table.bytes[l], std::memory_order_relaxed);
        levels = table.levels;
        known_levels.store(levels, std::memory_order_release); /* racing threads store the same table */
    }
    if (level == 0) level = levels;
    return level >= 1 && level <= levels ? known_bytes[level - 1].load(std::memory_order_relaxed) : 0;
}
