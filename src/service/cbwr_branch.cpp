#include <atomic>
#include <cstring>

#include "platform/platform.h"
#include "service/processor.h"

/* Text that no keyword equals, for a value too long to be one. */
static constexpr char no_keyword[] = "";
static constexpr char prefix[] = "BRANCH=";

static std::atomic<int32_t> branch_word{branch_unset};
static std::atomic<int32_t> branch_state{-1}; /* 1 once WKL_CBWR has been read */

static int32_t code_of_keyword(const char *keyword)
{
    static const char *const keywords[] = {"AUTO", "COMPATIBLE", "SSE2", "SSE3", "SSSE3", "SSE4_1", "SSE4_2", "AVX", "AVX2", "AVX512_MIC"};
    int32_t code = branch_auto;
    for (const char *known : keywords) {
        if (std::strcmp(keyword, known) == 0) return code;
        ++code;
    }
    return branch_auto;
}

/* Highest code that the hardware allows. */
static int32_t allowed_code()
{
    if (service_cpu_is_reference_vendor() == 0) return branch_auto;
    switch (service_detected_type()) {
    case 0:
        return branch_sse2;
    case 1:
        return branch_sse3;
    case 2:
        return has_feature(service_cpu_feature_word(), feature_sse4_1) ? branch_sse4_1 : branch_ssse3;
    case 3:
        return branch_sse4_2;
    case 4:
        return branch_avx;
    default:
        return branch_avx2;
    }
}

/* Code that WKL_CBWR asks for, lowered to automatic when the hardware cannot keep the promise. */
static int32_t read_branch()
{
    char value[128];
    const int64_t length = platform_environment("WKL_CBWR", value, sizeof value);
    if (length <= 0) return branch_unset;
    const char *keyword = length < int64_t{sizeof value} ? value : no_keyword;
    if (std::strncmp(keyword, prefix, sizeof prefix - 1) == 0) keyword += sizeof prefix - 1;
    const int32_t code = code_of_keyword(keyword);
    return code != branch_auto && code > allowed_code() ? int32_t{branch_auto} : code;
}

static int32_t reported_code()
{
    const int32_t code = branch_word.load(std::memory_order_relaxed) & 0x3f;
    return code == branch_unset ? int32_t{branch_none} : code;
}

int32_t service_cbwr_branch_locked()
{
    if (branch_word.load(std::memory_order_relaxed) == branch_unset && branch_state.load(std::memory_order_relaxed) == -1) {
        branch_word.store(read_branch(), std::memory_order_relaxed);
        branch_state.store(1, std::memory_order_release);
    }
    return reported_code();
}

int32_t service_cbwr_branch(int32_t mode)
{
    if (mode == -1) return branch_word.load(std::memory_order_relaxed);
    if (mode != 1) return -2;
    if (branch_state.load(std::memory_order_acquire) == 1) return reported_code();
    service_lock();
    const int32_t code = service_cbwr_branch_locked();
    service_unlock();
    return code;
}
