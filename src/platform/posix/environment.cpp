#include "platform/platform.h"

#include <cstdlib>
#include <cstring>

int64_t platform_environment(const char *name, char *buffer, int64_t size)
{
    buffer[0] = '\0';
    const char *value = std::getenv(name);
    if (value == nullptr) return -1;
    const auto length = static_cast<int64_t>(std::strlen(value));
    if (length < size) std::memcpy(buffer, value, static_cast<std::size_t>(length) + 1);
    return length;
}
