#include "service/processor.h"

#include <atomic>

static std::atomic<uint64_t> stored_word{0};

/* Four leaves as the word is built from them; zero where the processor has no such leaf. */
struct feature_leaves {
    cpuid_words leaf_1, leaf_7, leaf_80000001;
    uint64_t control; /* extended control register, 0 when the system has not enabled it */
};

static feature_leaves read_leaves(uint32_t last_leaf)
{
    feature_leaves leaves{};
    leaves.leaf_1 = service_cpuid(1, 0);
    if (last_leaf >= 7) leaves.leaf_7 = service_cpuid(7, 0);
    if (service_cpuid(0x80000000, 0).eax >= 0x80000001) leaves.leaf_80000001 = service_cpuid(0x80000001, 0);
    constexpr uint32_t osxsave = uint32_t{1} << 27;
    if ((leaves.leaf_1.ecx & osxsave) != 0) leaves.control = service_extended_control();
    return leaves;
}

static uint64_t flag(bool set, feature_bit bit)
{
    return static_cast<uint64_t>(set ? 1 : 0) << bit;
}

static bool has_bit(uint32_t word, int bit)
{
    return (word >> bit & 1) != 0;
}

/* Bits that need the system to save the wider registers are marked by one of the three states of the control register. */
static uint64_t build_word(const feature_leaves *leaves)
{
    const uint32_t edx = leaves->leaf_1.edx, ecx = leaves->leaf_1.ecx, ebx = leaves->leaf_7.ebx;
    const bool saves_avx = (leaves->control & 0x06) == 0x06;
    const bool saves_avx512 = (leaves->control & 0xe0) == 0xe0;
    const bool saves_bounds = (leaves->control & 0x18) == 0x18;
    uint64_t word = uint64_t{1} << feature_filled;
    word |= flag(has_bit(edx, 0), feature_fpu) | flag(has_bit(edx, 15), feature_cmov) | flag(has_bit(edx, 23), feature_mmx);
    if (has_bit(edx, 24)) {
        word |= flag(true, feature_fxsr) | flag(has_bit(edx, 25), feature_sse) | flag(has_bit(edx, 26), feature_sse2);
        word |= flag(has_bit(ecx, 0), feature_sse3) | flag(has_bit(ecx, 9), feature_ssse3) | flag(has_bit(ecx, 19), feature_sse4_1);
        word |= flag(has_bit(ecx, 20), feature_sse4_2) | flag(has_bit(ecx, 22), feature_movbe) | flag(has_bit(ecx, 23), feature_popcnt);
        word |= flag(has_bit(ecx, 1), feature_pclmulqdq) | flag(has_bit(ecx, 25), feature_aes) | flag(has_bit(ebx, 29), feature_sha);
    }
    word |= flag(has_bit(ecx, 29) && saves_avx, feature_f16c) | flag(has_bit(ecx, 28) && saves_avx, feature_avx);
    word |= flag(has_bit(ecx, 30), feature_rdrand) | flag(has_bit(ecx, 12) && saves_avx, feature_fma);
    word |= flag(has_bit(ebx, 3) && has_bit(ebx, 8), feature_bmi) | flag(has_bit(leaves->leaf_80000001.ecx, 5), feature_lzcnt);
    word |= flag(has_bit(ebx, 4), feature_hle) | flag(has_bit(ebx, 11), feature_rtm) | flag(has_bit(ebx, 5) && saves_avx, feature_avx2);
    word |= flag(has_bit(ebx, 16) && saves_avx512, feature_avx512f) | flag(has_bit(ebx, 19), feature_adx);
    word |= flag(has_bit(ebx, 18), feature_rdseed) | flag(has_bit(ebx, 27) && saves_avx512, feature_avx512er);
    word |= flag(has_bit(ebx, 26) && saves_avx512, feature_avx512pf) | flag(has_bit(ebx, 28) && saves_avx512, feature_avx512cd);
    word |= flag(has_bit(ebx, 14) && saves_bounds, feature_mpx);
    const uint32_t model = (leaves->leaf_1.eax >> 16 & 0xf) * 16 + (leaves->leaf_1.eax >> 4 & 0xf);
    word |= flag(model == 0x1c || model == 0x26 || model == 0x27, feature_model);
    return word;
}

uint64_t service_cpu_feature_word()
{
    uint64_t word = stored_word.load(std::memory_order_relaxed);
    if (word != 0) return word;
    const uint32_t last_leaf = service_cpuid(0, 0).eax;
    word = uint64_t{1} << feature_filled;
    if (last_leaf >= 1) {
        const feature_leaves leaves = read_leaves(last_leaf);
        word = build_word(&leaves);
    }
    stored_word.store(word, std::memory_order_relaxed); /* racing threads store the same value */
    return word;
}
