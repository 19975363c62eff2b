/* Processor detection inside this folder; open to its tests. */
#pragma once

#include <cstdint>

#include "service/service.h"

struct cpuid_words {
    uint32_t eax, ebx, ecx, edx;
};
cpuid_words service_cpuid(uint32_t leaf, uint32_t subleaf);
uint64_t service_extended_control(); /* the extended control register 0; only where leaf 1 tells that the system has enabled it */

/* Bits of the feature word, see service_cpu_feature_word. */
enum feature_bit : int32_t {
    feature_filled = 0,
    feature_fpu = 1,
    feature_cmov = 2,
    feature_mmx = 3,
    feature_fxsr = 4,
    feature_sse = 5,
    feature_sse2 = 6,
    feature_sse3 = 7,
    feature_ssse3 = 8,
    feature_sse4_1 = 9,
    feature_sse4_2 = 10,
    feature_movbe = 11,
    feature_popcnt = 12,
    feature_pclmulqdq = 13,
    feature_aes = 14,
    feature_f16c = 15,
    feature_avx = 16,
    feature_rdrand = 17,
    feature_fma = 18,
    feature_bmi = 19,
    feature_lzcnt = 20,
    feature_hle = 21,
    feature_rtm = 22,
    feature_avx2 = 23,
    feature_avx512f = 27,
    feature_adx = 28,
    feature_rdseed = 29,
    feature_model = 31,
    feature_avx512er = 32,
    feature_avx512pf = 33,
    feature_avx512cd = 34,
    feature_sha = 35,
    feature_mpx = 36
};
inline bool has_feature(uint64_t word, feature_bit bit)
{
    return (word >> bit & 1) != 0;
}

/* Type code of the processor at hand, from its vendor and features; prints and ends the process when it lacks SSE2. */
int32_t service_detected_type();

enum branch_code : int32_t {
    branch_unset = 0, /* reported as 1 */
    branch_none = 1,
    branch_auto = 2,
    branch_compatible = 3,
    branch_sse2 = 4,
    branch_sse3 = 5,
    branch_ssse3 = 6,
    branch_sse4_1 = 7,
    branch_sse4_2 = 8,
    branch_avx = 9,
    branch_avx2 = 10,
    branch_avx512_mic = 11
};
int32_t service_cbwr_branch_locked(); /* service_cbwr_branch(1) for a caller that holds the service lock */

/* Vendor text of CPUID leaf 0 equals vendor, which has 12 characters. */
bool service_cpu_vendor_is(const char *vendor);
