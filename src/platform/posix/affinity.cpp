#include "platform/platform.h"

#include <cstdio>
#include <sched.h>
#include <unistd.h>

static constexpr int mask_bits = 64;

static uint64_t mask_of_set(const cpu_set_t *set)
{
    uint64_t mask = 0;
    for (int i = 0; i < mask_bits; ++i) {
        if (CPU_ISSET(static_cast<std::size_t>(i), set)) mask |= uint64_t{1} << i;
    }
    return mask;
}

/* Processors that are online, from a list such as "0-3,8-11"; 0 when it cannot be read. */
static uint64_t online_mask()
{
    std::FILE *list = std::fopen("/sys/devices/system/cpu/online", "re");
    if (list == nullptr) return 0;
    uint64_t mask = 0;
    int first = 0;
    while (std::fscanf(list, "%d", &first) == 1) {
        int last = first;
        int separator = std::fgetc(list);
        if (separator == '-') {
            if (std::fscanf(list, "%d", &last) != 1) break;
            separator = std::fgetc(list);
        }
        for (int i = first; i >= 0 && i <= last && i < mask_bits; ++i) mask |= uint64_t{1} << i;
        if (separator != ',') break;
    }
    std::fclose(list);
    return mask;
}

bool platform_affinity(uint64_t *process_mask, uint64_t *system_mask)
{
    cpu_set_t set;
    CPU_ZERO(&set);
    if (sched_getaffinity(getpid(), sizeof set, &set) != 0) return false;
    *process_mask = mask_of_set(&set);
    *system_mask = online_mask();
    return *system_mask != 0;
}

uint64_t platform_pin_thread(uint64_t mask)
{
    cpu_set_t before;
    CPU_ZERO(&before);
    if (sched_getaffinity(0, sizeof before, &before) != 0) return 0;
    cpu_set_t wanted;
    CPU_ZERO(&wanted);
    for (int i = 0; i < mask_bits; ++i) {
        if ((mask >> i & 1) != 0) CPU_SET(static_cast<std::size_t>(i), &wanted);
    }
    if (sched_setaffinity(0, sizeof wanted, &wanted) != 0) return 0;
    return mask_of_set(&before);
}
