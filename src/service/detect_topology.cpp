#include "service/thread_record.h"

#include <bit>
#include <omp.h>

#include "platform/platform.h"
#include "service/processor.h"

static constexpr int32_t processor_limit = 8192;
static constexpr int32_t package_limit = 4096;
static constexpr int32_t mask_bits = 64;

/* How an initial APIC identifier splits into fields: thread of the core, core of the package, package. */
struct identifier_layout {
    uint32_t core_mask;
    uint32_t package_mask;
};

static int32_t field_width(uint32_t values)
{
    return values < 2 ? 0 : static_cast<int32_t>(std::bit_width(values - 1));
}

/* Cores in a package with logical processors. Processors that describe their caches elsewhere leave leaf 4 empty; theirs is the extended
   leaf that tells the threads of a core. */
static uint32_t cores_in_package(uint32_t logical)
{
    if (service_cpuid(0, 0).eax >= 4) {
        const uint32_t eax = service_cpuid(4, 0).eax;
        if ((eax & 0x1f) != 0) return (eax >> 26) + 1;
    }
    constexpr uint32_t topology_extensions = uint32_t{1} << 22;
    if (service_cpuid(0x80000000, 0).eax >= 0x8000001e && (service_cpuid(0x80000001, 0).ecx & topology_extensions) != 0) {
        const uint32_t threads = (service_cpuid(0x8000001e, 0).ebx >> 8 & 0xff) + 1;
        if (threads <= logical) return logical / threads;
    }
    return 1;
}

static identifier_layout read_layout()
{
    uint32_t logical = 1, cores = 1;
    constexpr uint32_t hyperthreading_bit = uint32_t{1} << 28;
    if (service_cpu_is_reference_vendor() != 0 && (service_cpuid(1, 0).edx & hyperthreading_bit) != 0) {
        logical = service_cpuid(1, 0).ebx >> 16 & 0xff;
        cores = cores_in_package(logical);
    }
    const int32_t thread_bits = field_width(logical / cores);
    const int32_t core_bits = field_width(cores);
    const int32_t package_bits = field_width(logical);
    return {((uint32_t{1} << core_bits) - 1) << thread_bits, ~((uint32_t{1} << package_bits) - 1)};
}

/* The three lists of one pass over the processors, entry i for the i-th processor visited. Identifiers are 8 bits wide. */
struct visit_lists {
    uint8_t *core;    /* core field */
    uint8_t *package; /* package field */
    uint8_t *pair;    /* distinct values of core | package, filled afterwards */
};

/* Run on each processor of the system mask in turn and take its identifier. Returns the number of processors visited. */
static int32_t visit_processors(uint64_t system_mask, int32_t limit, const identifier_layout *layout, const visit_lists *lists)
{
    int32_t visited = 0;
    uint64_t first_mask = 0;
    for (int32_t i = 0; i < mask_bits && uint64_t{1} << i <= system_mask && visited < limit; ++i) {
        const uint64_t before = platform_pin_thread(uint64_t{1} << i);
        if (before == 0) continue;
        if (first_mask == 0) first_mask = before;
        platform_yield();
        const uint32_t identifier = service_cpuid(1, 0).ebx >> 24;
        lists->core[visited] = static_cast<uint8_t>(identifier & layout->core_mask);
        lists->package[visited] = static_cast<uint8_t>(identifier & layout->package_mask);
        ++visited;
    }
    if (first_mask != 0) {
        (void)platform_pin_thread(first_mask);
        platform_yield();
    }
    return visited;
}

/* Gather the distinct values of value(i), i in 0 .. count - 1, in list. Returns how many there are, at most limit. */
template <typename function>
static int32_t gather_distinct(int32_t count, int32_t limit, uint8_t *list, const function &value)
{
    int32_t found = 0;
    for (int32_t i = 0; i < count; ++i) {
        const auto v = static_cast<uint8_t>(value(i));
        int32_t j = 0;
        while (j < found && list[j] != v) ++j;
        if (j == found && found < limit) list[found++] = v;
    }
    return found;
}

static void store_topology(int32_t visited, int32_t cores, int32_t packages)
{
    if (packages < 1) packages = cores;
    if (packages < 1) return; /* no processor could be visited */
    thread_record &record = service_threads;
    service_lock();
    if (record.topology_done.load() == 0) {
        record.package_count.store(packages);
        record.cores_per_package.store(cores / packages);
        record.hyperthreading.store(cores != visited ? 1 : 0);
        record.physical_cores.store(cores);
        record.logical_processors.store(visited);
        record.topology_done.store(1, std::memory_order_release);
    }
    service_unlock();
}

void service_detect_topology()
{
    if (service_threads.topology_done.load(std::memory_order_acquire) == 1) return;
    uint64_t process_mask = 0, system_mask = 0;
    if (!platform_affinity(&process_mask, &system_mask) || process_mask != system_mask) return;
    int32_t limit = omp_get_num_procs();
    if (limit > processor_limit) limit = processor_limit;
    if (limit < 1) return;
    const identifier_layout layout = read_layout();
    const auto bytes = static_cast<uint64_t>(limit);
    visit_lists lists = {};
    lists.core = static_cast<uint8_t *>(service_alloc_direct(bytes, 64));
    if (lists.core != nullptr) lists.package = static_cast<uint8_t *>(service_alloc_direct(bytes, 64));
    if (lists.package != nullptr) lists.pair = static_cast<uint8_t *>(service_alloc_direct(bytes, 64));
    if (lists.pair != nullptr) {
        const int32_t visited = visit_processors(system_mask, limit, &layout, &lists);
        const int32_t cores = gather_distinct(visited, limit, lists.pair, [&](int32_t i) { return lists.core[i] | lists.package[i]; });
        const int32_t packages = gather_distinct(visited, package_limit, lists.pair, [&](int32_t i) { return lists.package[i]; });
        store_topology(visited, cores, packages);
    }
    service_free_direct(lists.pair);
    service_free_direct(lists.package);
    service_free_direct(lists.core);
}
