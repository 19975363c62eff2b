/* The test host: a program that uses the services once, in an environment that the test chose, and prints what it sees. */
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "platform/platform.h"
#include "service/message_numbers.h"
#include "service/processor.h"
#include "service/thread_record.h"

static void show_threads()
{
    std::printf("all=%d", service_max_threads());
    for (int d = domain_blas; d <= domain_solver; ++d) std::printf(" d%d=%d", d, service_domain_max_threads(d));
    int64_t count = 0;
    solver_thread_count(&count);
    std::printf(" solver=%lld other=%d dynamic=%d", static_cast<long long>(count), service_domain_max_threads(77), service_dynamic());
    std::printf(" packages=%d per_package=%d physical=%lld logical=%d ht=%d", service_package_count(), service_cores_per_package(),
                static_cast<long long>(solver_physical_cores()), service_threads.logical_processors.load(),
                service_threads.hyperthreading.load());
}

static void show_in_region()
{
    int inside[2] = {0, 0};
#pragma omp parallel num_threads(2)
#pragma omp single
    {
        inside[0] = service_max_threads();
        inside[1] = service_domain_max_threads(domain_solver);
    }
    std::printf("all=%d d4=%d", inside[0], inside[1]);
}

/* A caller's own count for its thread, and the launcher's hint. */
static void show_overrides()
{
    service_threads.launcher_hint.store(0);
    std::printf("hinted=%d", service_max_threads());
    const int32_t slot = platform_thread_slot_create();
    platform_thread_slot_set(slot, 7);
    service_threads.thread_local_slot.store(slot);
    std::printf(" own=%d", service_domain_max_threads(domain_blas));
}

static void show_processor()
{
    const int32_t early = service_cbwr_branch(-1);
    std::printf("type=%d branch=%d early=%d stored=%d bad=%d", service_cpu_type(), service_cbwr_branch(1), early, service_cbwr_branch(-1),
                service_cbwr_branch(5));
    std::printf(" ma=%x again=%x family10h=%d vsmp=%d active=%d", service_cpu_ma(), service_cpu_ma(), service_cpu_is_amd_family_10h(),
                service_vsmp(), solver_cbwr_active() ? 1 : 0);
    std::printf(" word=%llx", static_cast<unsigned long long>(service_cpu_feature_word()));
    for (int level = 0; level <= 4; ++level) std::printf(" c%d=%llx", level, static_cast<unsigned long long>(service_cache_size(level)));
}

static void show_memory()
{
    void *block = service_alloc(1000, 64);
    service_memory held;
    service_memory_statistics(&held);
    service_free(block);
    std::printf("pooled=%lld direct=%lld", static_cast<long long>(held.pooled_blocks), static_cast<long long>(held.direct_blocks));
}

static void show_messages()
{
    service_print_message(0, message_parameter, 2, 3, "WKL_DCSRSYMV");
    service_print_message(0, message_report_times, 0);
    service_print_message(0, message_report_statistics, 0);
    service_print_message(0, message_wide(message_error_nb), 2, int64_t{0}, int64_t{33});
    std::printf("[%s]\n", service_message_text(message_condition, 2, 4, "F"));
}

/* Everything for the first time, from many threads at once: all must see what a single thread sees. */
static void show_rush()
{
    constexpr int threads = 8;
    std::atomic<int> ready{0}, differing{0};
    std::vector<std::thread> crew;
    for (int t = 0; t < threads; ++t) {
        crew.emplace_back([&] {
            ++ready;
            while (ready.load() < threads) {}
            const auto see = [] {
                std::vector<int64_t> seen = {service_cpu_type(),
                                             service_cbwr_branch(1),
                                             service_cpu_ma(),
                                             service_vsmp(),
                                             service_cpu_is_amd_family_10h(),
                                             service_cache_size(0),
                                             service_dynamic(),
                                             static_cast<int64_t>(service_cpu_feature_word())};
                void *block = service_alloc(1000, 64);
                seen.push_back(block != nullptr ? 1 : 0);
                service_free(block);
                const std::string text = service_message_text(message_condition, 2, 5, "F");
                seen.push_back(text == "Norvi WKL INTERNAL ERROR: Condition 5 detected in function F." ? 1 : 0);
                return seen;
            };
            if (see() != see() || see().back() != 1 || service_max_threads() < 1) ++differing;
        });
    }
    for (std::thread &member : crew) member.join();
    std::printf("differing=%d", differing.load());
}

int main(int argc, char **argv)
{
    const std::string command = argc > 1 ? argv[1] : "";
    const int number = argc > 2 ? std::atoi(argv[2]) : 0;
    if (command == "threads") show_threads();
    if (command == "region") show_in_region();
    if (command == "overrides") show_overrides();
    if (command == "processor") show_processor();
    if (command == "memory") show_memory();
    if (command == "rush") show_rush();
    if (command == "messages") show_messages();
    if (command == "path") service_print_message(0, message_ooc_env_path, 1, std::string(static_cast<std::size_t>(number), 'x').c_str());
    if (command == "unsupported") service_cpu_unsupported(number);
    return 0;
}
