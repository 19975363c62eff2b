#include "service/memory_pool.h"

static constexpr std::memory_order relaxed = std::memory_order_relaxed;
static constexpr int32_t no_entry = -1;

/* Entries of a pool as a request for need bytes sees them. */
struct pool_search {
    int32_t fitting; /* free, of exactly need bytes, else the smallest that holds more; no_entry when there is none */
    int32_t smaller; /* first free one that holds less */
};

static pool_search search_pool(const thread_pool *pool, uint64_t need)
{
    pool_search found = {no_entry, no_entry};
    uint64_t best = UINT64_MAX;
    const int32_t count = pool->count.load(relaxed);
    for (int32_t i = 0; i < count; ++i) {
        const pool_entry &entry = pool->entry[i];
        if (entry.in_use.load(std::memory_order_acquire) != 0) continue;
        const uint64_t capacity = entry.capacity.load(relaxed);
        if (capacity == need) return {i, no_entry};
        if (capacity > need) {
            if (capacity < best) {
                best = capacity;
                found.fitting = i;
            }
        } else if (found.smaller == no_entry) {
            found.smaller = i;
        }
    }
    return found;
}

/* Give an entry a raw block of need bytes in place of the one it has, if any. After a failure its raw address is null, and taking it hands
   out null: the place is lost for good, since no pointer leads back to it. */
static void refill_entry(pool_entry *entry, uint64_t need)
{
    char *old = entry->raw.load(relaxed);
    /* No other thread may take a block for ours that the system gives it at this address from now on. */
    entry->user.store(nullptr, relaxed);
    entry->raw.store(nullptr, std::memory_order_release);
    if (old != nullptr) service_system.release(old);
    entry->raw.store(static_cast<char *>(service_system.allocate(need)), relaxed);
    entry->capacity.store(need, relaxed);
}

static char *take_entry(pool_entry *entry, uint64_t size, uint64_t alignment)
{
    char *raw = entry->raw.load(relaxed);
    char *user = raw + ((0 - reinterpret_cast<uint64_t>(raw)) & (alignment - 1)); /* alignment is a power of two */
    entry->in_use.store(1, relaxed);
    entry->requested.store(size, relaxed);
    entry->user.store(user, relaxed);
    return user;
}

void *service_alloc(uint64_t size, int32_t alignment)
{
    if (size == 0) return nullptr;
    if (service_pool_disabled() || size > pool_block_limit) return service_alloc_direct(size, alignment);
    thread_pool *pool = service_thread_pool();
    if (pool == nullptr) return service_alloc_direct(size, alignment);
    const uint64_t a = used_alignment(alignment);
    const uint64_t need = size + a;
    const pool_search found = search_pool(pool, need);
    if (found.fitting != no_entry) return take_entry(&pool->entry[found.fitting], size, a);
    const int32_t count = pool->count.load(relaxed);
    if (count < pool_entries) {
        pool_entry *entry = &pool->entry[count];
        refill_entry(entry, need);
        char *user = take_entry(entry, size, a);
        pool->count.store(count + 1, std::memory_order_release);
        return user;
    }
    if (found.smaller == no_entry) return service_alloc_direct(size, alignment);
    refill_entry(&pool->entry[found.smaller], need);
    return take_entry(&pool->entry[found.smaller], size, a);
}

/* Mark the block free in pool. False when it is not there. */
static bool give_back(thread_pool *pool, const char *pointer)
{
    const int32_t count = pool->count.load(std::memory_order_acquire);
    for (int32_t i = 0; i < count; ++i) {
        pool_entry &entry = pool->entry[i];
        if (entry.user.load(relaxed) == pointer && entry.raw.load(relaxed) != nullptr) {
            entry.in_use.store(0, std::memory_order_release);
            return true;
        }
    }
    return false;
}

void service_free(void *pointer)
{
    if (pointer == nullptr) return;
    const auto *block = static_cast<const char *>(pointer);
    if (!service_pool_disabled()) {
        thread_pool *own = service_thread_pool();
        if (own != nullptr && give_back(own, block)) return;
        service_lock();
        bool found = false;
        for (int32_t place = service_pool_count(); place > 0 && !found; --place) found = give_back(service_pool_at(place), block);
        service_unlock();
        if (found) return;
    }
    service_free_direct(pointer);
}

void service_memory_statistics(service_memory *out)
{
    *out = {};
    service_direct_statistics(out);
    const int32_t pools = service_pool_count();
    for (int32_t place = 1; place <= pools; ++place) {
        const thread_pool *pool = service_pool_at(place);
        const int32_t count = pool->count.load(std::memory_order_acquire);
        for (int32_t i = 0; i < count; ++i) {
            const pool_entry &entry = pool->entry[i];
            if (entry.raw.load(relaxed) == nullptr) continue;
            out->cached_bytes += static_cast<int64_t>(entry.capacity.load(relaxed));
            if (entry.in_use.load(relaxed) == 0) continue;
            out->pooled_bytes += static_cast<int64_t>(entry.requested.load(relaxed));
            ++out->pooled_blocks;
        }
    }
}
