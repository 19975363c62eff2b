#include "service/service.h"

#include <cstdio>

#include "platform/platform.h"

int64_t service_environment(const char *name, char *buffer, int64_t size)
{
    const int64_t length = platform_environment(name, buffer, size);
    return length < 0 || length >= size ? 0 : length;
}

double service_seconds()
{
    return platform_seconds();
}

void service_flush_output()
{
    (void)std::fflush(stdout);
}
