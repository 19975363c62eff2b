#include <atomic>
#include <cstdlib>

#include "service/processor.h"

static constexpr char family_10h_vendor[] = "AuthenticAMD";

static std::atomic<int32_t> family_10h_result{-1};
static std::atomic<int32_t> architecture_code{-1};
static std::atomic<int32_t> vsmp_value{0};
static std::atomic<int32_t> vsmp_read{0};

static bool detection_decides(int32_t branch)
{
    return branch == branch_none || branch == branch_auto;
}

/* Decimal value of an environment variable, 0 when it is absent. */
static int32_t environment_number(const char *name)
{
    char value[32];
    return service_environment(name, value, sizeof value) == 0 ? 0 : static_cast<int32_t>(std::strtol(value, nullptr, 10));
}

int32_t service_cpu_is_amd_family_10h()
{
    if (!detection_decides(service_cbwr_branch(1))) return 0;
    int32_t result = family_10h_result.load(std::memory_order_relaxed);
    if (result == -1) {
        const uint32_t eax = service_cpuid(1, 0).eax;
        result = service_cpu_vendor_is(family_10h_vendor) && (eax >> 8 & 0xf) == 0xf && (eax >> 20 & 0xff) == 1 ? 1 : 0;
        family_10h_result.store(result, std::memory_order_relaxed);
    }
    return result;
}

/* Code for each processor type; what it means is the kernels' affair. */
static int32_t code_of_type(int32_t type, int32_t branch)
{
    constexpr uint32_t aes_bit = uint32_t{1} << 25;
    const int32_t wanted = environment_number("WKL_DEBUG_CPU_MA");
    switch (type) {
    case 2: {
        const bool sse4_1 = detection_decides(branch) ? has_feature(service_cpu_feature_word(), feature_sse4_1) : branch >= branch_sse4_1;
        return sse4_1 ? 0x21 : 0x20;
    }
    case 3:
        if (wanted == 0x40 || wanted == 0x42) return wanted;
        return branch == branch_none && (service_cpuid(1, 0).ecx & aes_bit) != 0 ? 0x42 : 0x40;
    case 4:
        return 0x80;
    default:
        return 0;
    }
}

int32_t service_cpu_ma()
{
    const int32_t branch = service_cbwr_branch(1);
    if (branch == branch_compatible) return 0;
    if (detection_decides(branch) && service_cpu_is_reference_vendor() == 0) return 0;
    int32_t code = architecture_code.load(std::memory_order_relaxed);
    if (code == -1) {
        code = code_of_type(service_cpu_type(), branch);
        architecture_code.store(code, std::memory_order_relaxed);
    }
    return code;
}

int32_t service_vsmp()
{
    if (vsmp_read.load(std::memory_order_acquire) == 0) {
        vsmp_value.store(environment_number("WKL_VSMP"), std::memory_order_relaxed);
        vsmp_read.store(1, std::memory_order_release);
    }
    return vsmp_value.load(std::memory_order_relaxed);
}
