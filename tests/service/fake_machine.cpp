/* A machine made of environment variables, linked into the test host in place of the real one:
     PROBE_VENDOR          vendor text, 12 characters
     PROBE_<leaf>[_<sub>]  "eax,ebx,ecx,edx" in hexadecimal, zeros when absent; leaf 0 has its vendor from above
     PROBE_XCR0            extended control register, hexadecimal
     PROBE_MASKS           "process,system" affinity masks, hexadecimal; equal and two processors when absent
     PROBE_APIC            identifiers of the processors, hexadecimal, separated by commas */
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <omp.h>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "service/processor.h"

static uint64_t pinned_to = 0;

static std::vector<uint64_t> numbers_of(const std::string &name, std::vector<uint64_t> absent)
{
    const char *text = std::getenv(name.c_str());
    if (text == nullptr) return absent;
    std::vector<uint64_t> numbers;
    for (char *end = nullptr; *text != '\0'; text = *end == ',' ? end + 1 : end) numbers.push_back(std::strtoull(text, &end, 16));
    return numbers;
}

static std::vector<uint64_t> masks()
{
    return numbers_of("PROBE_MASKS", {3, 3});
}

cpuid_words service_cpuid(uint32_t leaf, uint32_t subleaf)
{
    char name[40];
    std::snprintf(name, sizeof name, subleaf == 0 ? "PROBE_%x" : "PROBE_%x_%u", leaf, subleaf);
    const std::vector<uint64_t> values = numbers_of(name, {0, 0, 0, 0});
    cpuid_words words = {static_cast<uint32_t>(values.at(0)), static_cast<uint32_t>(values.at(1)), static_cast<uint32_t>(values.at(2)),
                         static_cast<uint32_t>(values.at(3))};
    if (leaf == 0) {
        if (std::getenv(name) == nullptr) words.eax = 13;
        const char *vendor = std::getenv("PROBE_VENDOR");
        if (vendor == nullptr) vendor = "ReferenceCpu";
        std::memcpy(&words.ebx, vendor, 4);
        std::memcpy(&words.edx, vendor + 4, 4);
        std::memcpy(&words.ecx, vendor + 8, 4);
    }
    if (leaf == 1 && pinned_to != 0) {
        const std::vector<uint64_t> identifiers = numbers_of("PROBE_APIC", {0, 1});
        words.ebx = (words.ebx & 0xffffff) | static_cast<uint32_t>(identifiers.at(static_cast<std::size_t>(__builtin_ctzll(pinned_to))))
                                                 << 24;
    }
    return words;
}

uint64_t service_extended_control()
{
    return numbers_of("PROBE_XCR0", {7})[0];
}

bool platform_affinity(uint64_t *process_mask, uint64_t *system_mask)
{
    *process_mask = masks()[0];
    *system_mask = masks()[1];
    return true;
}

uint64_t platform_pin_thread(uint64_t mask)
{
    if ((mask & masks()[1]) == 0) return 0;
    const uint64_t before = pinned_to != 0 ? pinned_to : masks()[0];
    pinned_to = mask == masks()[0] ? 0 : mask;
    return before;
}

extern "C" int omp_get_num_procs()
{
    return __builtin_popcountll(masks()[1]);
}
