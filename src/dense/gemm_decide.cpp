/* Threads or not, for the multiply: the class of the processor and the thresholds that keep small products away from thread start-up. */
#include "dense/frame.h"

bool gemm_is_tiny(int64_t m, int64_t n, int64_t k)
{
    if (m < 17 && n < 17 && k < 17) return true;
    return (m >= 17 || n >= 17) && k < 5 && m < 101 && n < 101;
}

int32_t gemm_processor_class()
{
    if (service_cpu_type() == 5) return 7;
    constexpr int64_t large_cache = 0x300000;
    const int32_t branch = service_cbwr_branch(1);
    switch (service_cpu_ma()) {
    case 0x21:
        return service_cache_size(2) <= large_cache ? 4 : 2;
    case 0x20:
        return 1;
    case 0x40:
    case 0x42:
        return 3;
    case 0x80:
        return 5;
    case 0:
        if (service_cpu_is_amd_family_10h() != 0) return 6;
        if (service_cpu_is_reference_vendor() == 0 && (service_cpu_feature_word() & cpu_feature_avx) != 0 && (branch == 1 || branch == 2))
            return 8;
        return 0;
    default:
        return 0;
    }
}

/* Whether a block of h rows and w columns per thread, t column groups, is worth a team. */
static bool worth_threads(int64_t t, int64_t h, int64_t w, int64_t k)
{
    int64_t area = 0;
    int64_t volume = 0;
    int64_t surface = 0;
    if (__builtin_mul_overflow(h, w, &area) || __builtin_mul_overflow(area, k, &volume)) return true;
    if (__builtin_mul_overflow(h + w, k, &surface) || __builtin_add_overflow(surface, area, &surface)) return true;
    return 36 / t < volume >> 9 || 48 / t < surface >> 7 || 512 / t < k;
}

gemm_layout gemm_decide(int32_t processor_class, int64_t threads, int64_t m, int64_t n, int64_t k)
{
    if (threads < 2) return {false, 1};
    int64_t t = threads / 2;
    int64_t h = m / 2;
    int64_t w = n / t;
    if (processor_class == 0 || processor_class == 6) return {true, t};
    bool threaded = worth_threads(t, h, w, k);
    if (threads < 9) return {threaded && w >= 1, t};
    if (m / threads >= n && n <= 100) {
        t = 1;
        h = m / threads;
        w = n;
        threaded = worth_threads(t, h, w, k) && !(h < 9 && n < 4) && (h + n) * k >= 225;
    } else if (m <= n / threads) {
        h = m;
        t = threads;
        w = n / threads;
    }
    if (m / threads < 4 && n / threads == 0) threaded = false;
    if (t > 1 && w < 2 && m < 301 && k * h < 2450) threaded = false;
    return {threaded, t};
}
