#include "service/processor.h"

#include <cstring>

/* The vendor whose processors the kernels were tuned for; the build chooses it. */
static constexpr char reference_vendor[] = WKL_REFERENCE_VENDOR;

bool service_cpu_vendor_is(const char *vendor)
{
    const cpuid_words words = service_cpuid(0, 0);
    char text[13];
    std::memcpy(text, &words.ebx, 4);
    std::memcpy(text + 4, &words.edx, 4);
    std::memcpy(text + 8, &words.ecx, 4);
    text[12] = '\0';
    return std::strcmp(text, vendor) == 0;
}

int32_t service_cpu_is_reference_vendor()
{
    return service_cpu_vendor_is(reference_vendor) ? 1 : 0;
}
