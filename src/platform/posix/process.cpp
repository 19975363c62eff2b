#include "platform/platform.h"

#include <cstdint>
#include <ctime>
#include <sys/mman.h>
#include <unistd.h>
#if defined(__GLIBC__)
#include <malloc.h>
#endif

double platform_seconds()
{
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

void platform_terminate(int status)
{
    _exit(status);
}

bool platform_is_terminal(int descriptor)
{
    return isatty(descriptor) == 1;
}

int64_t platform_process_id()
{
    return getpid();
}

void platform_trim_memory()
{
#if defined(__GLIBC__)
    (void)malloc_trim(0);
#endif
}

void platform_prefer_large_pages(void *memory, uint64_t bytes)
{
#if defined(MADV_HUGEPAGE)
    constexpr uint64_t page = uint64_t{1} << 21;
    const uint64_t before = (page - reinterpret_cast<uintptr_t>(memory) % page) % page;
    if (bytes < before + page) return;
    (void)madvise(static_cast<char *>(memory) + before, (bytes - before) / page * page, MADV_HUGEPAGE);
#else
    (void)memory;
    (void)bytes;
#endif
}

void platform_claim_pages(void *memory, uint64_t bytes)
{
#if defined(MADV_POPULATE_WRITE)
    constexpr uint64_t page = 4096;
    const uint64_t before = (page - reinterpret_cast<uintptr_t>(memory) % page) % page;
    if (bytes < before + page) return;
    (void)madvise(static_cast<char *>(memory) + before, (bytes - before) / page * page, MADV_POPULATE_WRITE);
#else
    (void)memory;
    (void)bytes;
#endif
}
