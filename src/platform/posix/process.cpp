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

/* Tell the system something about the whole pages of some memory. */
[[maybe_unused]] static void advise(void *memory, uint64_t bytes, uint64_t page, int advice)
{
    const uint64_t before = (page - reinterpret_cast<uintptr_t>(memory) % page) % page;
    if (bytes < before + page) return;
    (void)madvise(static_cast<char *>(memory) + before, (bytes - before) / page * page, advice);
}

void platform_prefer_large_pages([[maybe_unused]] void *memory, [[maybe_unused]] uint64_t bytes)
{
#if defined(MADV_HUGEPAGE)
    advise(memory, bytes, uint64_t{1} << 21, MADV_HUGEPAGE);
#endif
}

void platform_claim_pages([[maybe_unused]] void *memory, [[maybe_unused]] uint64_t bytes)
{
#if defined(MADV_POPULATE_WRITE)
    advise(memory, bytes, 4096, MADV_POPULATE_WRITE);
#endif
}
