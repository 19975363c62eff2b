/* The pooled route of the memory manager. Private to this folder, and open to its tests.

   A direct block, seen from the pointer p that the caller holds:
     p - 16   raw address that the system allocator returned, 0 for a pointer that is no block of this route
     p - 8    bytes obtained from the system
     p        the caller's bytes, aligned
   A pooled block has no header: it is known by its entry in a thread's pool. */
#pragma once

#include <atomic>
#include <cstdint>

#include "service/service.h"

inline constexpr int32_t pool_entries = 5;
inline constexpr int32_t pool_places = 1024;            /* threads that get a pool */
inline constexpr uint64_t pool_block_limit = 0x8000000; /* larger requests go direct, in bytes */

/* One cached block. Only the owning thread changes an entry, but for in_use, which any thread's free may clear: the clearing store is a
   release and the owner's test an acquire, so that whatever the other thread wrote is over before the block is handed out again. */
struct pool_entry {
    std::atomic<char *> raw;         /* from the system allocator; null after a failed allocation */
    std::atomic<char *> user;        /* given to the caller; null when the entry holds no block */
    std::atomic<uint64_t> requested; /* bytes of the current request */
    std::atomic<uint64_t> capacity;  /* bytes that the raw block holds */
    std::atomic<int64_t> in_use;     /* 1 while handed out */
};

struct thread_pool {
    pool_entry entry[pool_entries];
    std::atomic<int32_t> count; /* entries that were ever filled; later ones are not looked at */
};

/* Pool of the calling thread, made on first need, or null when every place is taken or memory ran out. Pools outlive their threads; a
   thread that gets the identifier of an ended one inherits its pool. */
thread_pool *service_thread_pool();

/* Number of places filled, and the pool in place 1 .. that number. */
int32_t service_pool_count();
thread_pool *service_pool_at(int32_t place);

/* True when the environment switches the pools off; read on first use. */
extern std::atomic<int32_t> service_pool_switch; /* -1 not read yet, 0 pools are on, 1 off */
bool service_read_pool_switch();
inline bool service_pool_disabled()
{
    const int32_t state = service_pool_switch.load(std::memory_order_relaxed);
    return state < 0 ? service_read_pool_switch() : state != 0;
}

/* Alignment as used: a power of two that is at least 64 stands, anything else becomes 64. */
inline uint64_t used_alignment(int32_t alignment)
{
    const bool stands = alignment >= 64 && (alignment & (alignment - 1)) == 0;
    return stands ? static_cast<uint64_t>(alignment) : 64;
}

/* The direct part of service_memory_statistics. */
void service_direct_statistics(service_memory *out);
