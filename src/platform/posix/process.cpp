#include "platform/platform.h"

#include <ctime>
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
