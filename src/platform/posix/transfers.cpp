#include "platform/platform.h"

#include <aio.h>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <new>

static_assert(sizeof(aiocb) <= sizeof(platform_transfer::request) && alignof(aiocb) <= 16, "the system's request must fit the record");

/* The system's helper threads allocate, and the thread sanitizer, which does not know them, fails on that: no background under it. */
#if defined(__has_feature)
static constexpr bool has_background = !__has_feature(thread_sanitizer);
#else
static constexpr bool has_background = true;
#endif

/* The system makes up to 20 helper threads, some of them with stacks as large as those of the process's own threads: address space that
   nobody planned. Four serve all ways to a pair of files. Without effect where the process has used such transfers before. */
static void limit_helpers()
{
#if defined(__GLIBC__)
    static std::atomic<bool> limited{false};
    if (limited.exchange(true)) return;
    aioinit limits{};
    limits.aio_threads = 4;
    limits.aio_num = 64;
    aio_init(&limits);
#endif
}

static aiocb *request_of(platform_transfer *transfer)
{
    return std::launder(reinterpret_cast<aiocb *>(transfer->request));
}

bool platform_transfer_begin(platform_transfer *transfer, bool writes, platform_file file, int64_t offset, void *memory, int64_t length)
{
    limit_helpers();
    transfer->file = file;
    transfer->offset = offset;
    transfer->length = length;
    transfer->memory = static_cast<unsigned char *>(memory);
    transfer->writes = writes;
    aiocb *request = new (transfer->request) aiocb();
    request->aio_fildes = static_cast<int>(file);
    request->aio_offset = offset;
    request->aio_buf = memory;
    request->aio_nbytes = static_cast<std::size_t>(length);
    request->aio_sigevent.sigev_notify = SIGEV_NONE;
    return has_background && (writes ? aio_write(request) : aio_read(request)) == 0;
}

bool platform_transfer_ended(const platform_transfer *transfer)
{
    return aio_error(request_of(const_cast<platform_transfer *>(transfer))) != EINPROGRESS;
}

/* What the system left undone, a refusal included, is done here: the plain functions tell whether it can be done at all. */
int32_t platform_transfer_wait(platform_transfer *transfer)
{
    aiocb *request = request_of(transfer);
    const aiocb *const list[] = {request};
    while (aio_error(request) == EINPROGRESS) (void)aio_suspend(list, 1, nullptr);
    const ssize_t moved = aio_return(request);
    const int64_t done = moved < 0 ? 0 : moved;
    const int64_t offset = transfer->offset + done, rest = transfer->length - done;
    if (transfer->writes) return platform_file_write(transfer->file, offset, transfer->memory + done, rest);
    return platform_file_read(transfer->file, offset, transfer->memory + done, rest);
}
