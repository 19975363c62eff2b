#include "service/processor.h"

#include <cpuid.h>

cpuid_words service_cpuid(uint32_t leaf, uint32_t subleaf)
{
    cpuid_words words{};
    __cpuid_count(leaf, subleaf, words.eax, words.ebx, words.ecx, words.edx);
    return words;
}

uint64_t service_extended_control()
{
    uint32_t low = 0, high = 0;
    __asm__ volatile("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
    return uint64_t{high} << 32 | low;
}
