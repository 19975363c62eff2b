#include <atomic>
#include <cstdlib>
#include <cstring>

#include "platform/platform.h"
#include "service/message_numbers.h"
#include "service/processor.h"

static constexpr int32_t no_override = -6;
static constexpr uint64_t avx2_level_mask = 0x9c2000; /* PCLMULQDQ, FMA, BMI1 with BMI2, LZCNT, AVX2 */

static std::atomic<int32_t> resolved_type{-1};

[[noreturn]] static void stop_without_sse2()
{
    service_print_message(0, message_requirements, 0);
    service_print_message(0, message_sse2_required, 0);
    platform_terminate(1);
}

void service_cpu_unsupported(int32_t type)
{
    service_print_message(0, message_cpu_unsupported, 1, type);
    platform_terminate(1);
}

int32_t service_detected_type()
{
    if (service_cpu_is_reference_vendor() == 0) return 0;
    const uint64_t word = service_cpu_feature_word();
    if (has_feature(word, feature_avx)) return (word & avx2_level_mask) == avx2_level_mask ? 5 : 4;
    if (has_feature(word, feature_sse4_2)) return 3;
    if (has_feature(word, feature_ssse3)) return 2;
    if (has_feature(word, feature_sse3)) return 1;
    if (has_feature(word, feature_sse2)) return 0;
    stop_without_sse2();
}

/* The type that WKL_DEBUG_CPU_TYPE forces, or no_override. */
static int32_t debug_type()
{
    char value[32];
    if (service_environment("WKL_DEBUG_CPU_TYPE", value, sizeof value) == 0) return no_override;
    const long type = std::strtol(value, nullptr, 10);
    if (type == 0 && std::strcmp(value, "0") != 0) return no_override;
    return type >= 0 && type <= 5 ? static_cast<int32_t>(type) : no_override;
}

/* Type that a reproducibility branch pins. */
static int32_t type_of_branch(int32_t branch)
{
    switch (branch) {
    case branch_compatible:
    case branch_sse2:
        return 0;
    case branch_sse3:
        return 1;
    case branch_ssse3:
    case branch_sse4_1:
        return 2;
    case branch_sse4_2:
        return 3;
    case branch_avx:
        return 4;
    case branch_avx2:
        return 5;
    case branch_avx512_mic:
        return 6;
    default:
        return -4;
    }
}

int32_t service_cpu_type()
{
    int32_t type = resolved_type.load(std::memory_order_acquire);
    if (type >= 0) return type;
    service_lock();
    type = resolved_type.load(std::memory_order_relaxed);
    if (type < 0) {
        const int32_t branch = service_cbwr_branch_locked();
        const int32_t detected = service_detected_type();
        const int32_t forced = debug_type();
        if (forced != no_override) {
            type = forced;
        } else if (branch == branch_none || branch == branch_auto) {
            type = detected;
        } else {
            type = type_of_branch(branch);
        }
        resolved_type.store(type, std::memory_order_release);
    }
    service_unlock();
    return type;
}
