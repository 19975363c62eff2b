#include "platform/platform.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

static_assert(sizeof(off_t) == sizeof(int64_t), "files may pass 4 GB");

static int32_t open_with(const char *path, int flags, platform_file *file)
{
    int descriptor;
    do {
        descriptor = open(path, O_RDWR | O_NOFOLLOW | O_CLOEXEC | flags, S_IRUSR | S_IWUSR);
    } while (descriptor < 0 && errno == EINTR);
    *file = descriptor;
    return descriptor < 0 ? errno : 0;
}

int32_t platform_file_create(const char *path, platform_file *file)
{
    return open_with(path, O_CREAT | O_EXCL, file);
}

int32_t platform_file_open(const char *path, platform_file *file)
{
    return open_with(path, 0, file);
}

static void set_direct(int descriptor, bool direct)
{
    const int flags = fcntl(descriptor, F_GETFL);
    if (flags >= 0) (void)fcntl(descriptor, F_SETFL, direct ? flags | O_DIRECT : flags & ~O_DIRECT);
}

/* After a failure: true when it was an interruption, or, once, a range that direct transfers do not take and that now goes the ordinary
   way. */
static bool may_repeat(int descriptor, bool *ordinary)
{
    if (errno == EINTR) return true;
    if (errno != EINVAL || *ordinary) return false;
    *ordinary = true;
    set_direct(descriptor, false);
    return true;
}

int32_t platform_file_read(platform_file file, int64_t offset, void *buffer, int64_t length)
{
    auto *place = static_cast<char *>(buffer);
    bool ordinary = false;
    while (length > 0) {
        const ssize_t got = pread(static_cast<int>(file), place, static_cast<std::size_t>(length), offset);
        if (got == 0) return EIO; /* the file ends inside the range */
        if (got < 0 && may_repeat(static_cast<int>(file), &ordinary)) continue;
        if (got < 0) return errno;
        place += got;
        offset += got;
        length -= got;
    }
    return 0;
}

int32_t platform_file_write(platform_file file, int64_t offset, const void *buffer, int64_t length)
{
    const auto *place = static_cast<const char *>(buffer);
    bool ordinary = false;
    while (length > 0) {
        const ssize_t put = pwrite(static_cast<int>(file), place, static_cast<std::size_t>(length), offset);
        if (put < 0 && may_repeat(static_cast<int>(file), &ordinary)) continue;
        if (put < 0) return errno;
        place += put;
        offset += put;
        length -= put;
    }
    return 0;
}

void platform_file_go_direct(platform_file file)
{
    set_direct(static_cast<int>(file), true);
}

int32_t platform_file_duplicate(platform_file file, platform_file *other)
{
    const int descriptor = fcntl(static_cast<int>(file), F_DUPFD_CLOEXEC, 0);
    *other = descriptor;
    return descriptor < 0 ? errno : 0;
}

int32_t platform_file_size(platform_file file, int64_t *size)
{
    struct stat status;
    if (fstat(static_cast<int>(file), &status) != 0) return errno;
    *size = status.st_size;
    return 0;
}

int32_t platform_file_close(platform_file file)
{
    return close(static_cast<int>(file)) == 0 ? 0 : errno;
}

int32_t platform_file_remove(const char *path)
{
    return unlink(path) == 0 ? 0 : errno;
}

void platform_error_text(int32_t error, char *buffer, int64_t size)
{
    char words[128];
    const char *text = strerror_r(error, words, sizeof words); /* may return a text of its own in place of the buffer */
    (void)std::snprintf(buffer, static_cast<std::size_t>(size), "%s", text);
}
