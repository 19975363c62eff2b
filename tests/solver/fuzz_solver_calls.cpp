/* Any bytes become a sequence of calls on one handle, which ends with ido -1: no crash, no leak, no false success. */
#include "hostile_calls.h"

extern "C" const char *__asan_default_options()
{
    return "allocator_may_return_null=1";
}

static void require(bool condition, const char *text)
{
    if (condition) return;
    std::fprintf(stderr, "%s\n", text);
    std::abort();
}

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    require(std::freopen("/dev/null", "w", stdout) != nullptr, "no /dev/null");
    service_system.allocate = [](uint64_t size) -> void * { return size > (1 << 28) ? nullptr : std::malloc(size); };
    service_system.resize = [](void *block, uint64_t size) -> void * { return size > (1 << 28) ? nullptr : std::realloc(block, size); };
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const service_memory before = memory_in_use();
    session s;
    byte_source bytes{data, size};
    const char *fault = hostile_calls(&s, &bytes);
    require(fault == nullptr, fault);
    require(s.call(-1) == 0, "ido -1 fails");
    require(memory_in_use().direct_blocks == before.direct_blocks, "blocks that nobody gave back");
    return 0;
}
