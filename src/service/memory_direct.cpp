#include <atomic>
#include <cstdlib>
#include <cstring>

#include "service/memory_pool.h"

service_system_allocator service_system = {std::malloc, std::realloc, std::free};

struct direct_header {
    char *raw;
    uint64_t total;
};
static_assert(sizeof(direct_header) == 16);

static constexpr uint64_t header_size = sizeof(direct_header);
static constexpr uint64_t size_limit = uint64_t{1} << 62; /* beyond any address space; keeps the sums below from wrapping */

static std::atomic<int64_t> direct_bytes{0};
static std::atomic<int64_t> direct_blocks{0};

static void count_block(uint64_t bytes, int64_t blocks)
{
    direct_bytes.fetch_add(static_cast<int64_t>(bytes), std::memory_order_relaxed);
    direct_blocks.fetch_add(blocks, std::memory_order_relaxed);
}

static direct_header read_header(const void *pointer)
{
    direct_header header;
    std::memcpy(&header, static_cast<const char *>(pointer) - header_size, header_size);
    return header;
}

static void write_header(char *pointer, char *raw, uint64_t total)
{
    const direct_header header = {raw, total};
    std::memcpy(pointer - header_size, &header, header_size);
}

void *service_alloc_direct(uint64_t size, int32_t alignment)
{
    (void)service_pool_disabled(); /* reads the switch */
    if (size > size_limit) return nullptr;
    const uint64_t a = used_alignment(alignment);
    const uint64_t total = size + a + header_size;
    auto *raw = static_cast<char *>(service_system.allocate(total));
    if (raw == nullptr) return nullptr;
    const auto end = reinterpret_cast<uint64_t>(raw) + a + header_size;
    char *pointer = raw + (a + header_size - (end & (a - 1)));
    write_header(pointer, raw, total);
    count_block(total, 1);
    return pointer;
}

void service_free_direct(void *pointer)
{
    if (pointer == nullptr) return;
    const direct_header header = read_header(pointer);
    if (header.raw == nullptr) return;
    count_block(0 - header.total, -1);
    service_system.release(header.raw);
}

void *service_calloc(int64_t count, int64_t element_size, int32_t alignment)
{
    int64_t bytes = 0;
    if (__builtin_mul_overflow(count, element_size, &bytes) || bytes < 1) return nullptr;
    void *pointer = service_alloc_direct(static_cast<uint64_t>(bytes), alignment);
    if (pointer != nullptr) std::memset(pointer, 0, static_cast<std::size_t>(bytes));
    return pointer;
}

void *service_realloc(void *pointer, uint64_t new_size)
{
    if (pointer == nullptr) return new_size == 0 ? nullptr : service_alloc_direct(new_size, 64);
    const direct_header header = read_header(pointer);
    if (header.raw == nullptr || new_size > size_limit) return nullptr;
    /* The distance from the raw address is kept, whatever the new address does to the alignment. */
    const auto distance = static_cast<uint64_t>(static_cast<char *>(pointer) - header.raw);
    const uint64_t total = new_size + distance;
    auto *raw = static_cast<char *>(service_system.resize(header.raw, total));
    if (raw == nullptr) return nullptr;
    count_block(total - header.total, 0);
    write_header(raw + distance, raw, total);
    return raw + distance;
}

void service_direct_statistics(service_memory *out)
{
    out->direct_bytes = direct_bytes.load(std::memory_order_relaxed);
    out->direct_blocks = direct_blocks.load(std::memory_order_relaxed);
}
