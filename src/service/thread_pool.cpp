#include <new>

#include "platform/platform.h"
#include "service/memory_pool.h"

static constexpr int32_t slot_missing = -1;

struct thread_place {
    std::atomic<uint64_t> identifier; /* operating-system identifier of the thread */
    std::atomic<thread_pool *> pool;
};

/* Places 1 to pool_places; place 0 stays empty, so that 0 in a thread-local slot means "not known". A place is filled under the service
   lock and never changes afterwards; the count is published last. */
static thread_place places[pool_places + 1];
static std::atomic<int32_t> places_filled{0};
static std::atomic<int32_t> place_slot{slot_missing}; /* holds each thread's place as a shortcut */

std::atomic<int32_t> service_pool_switch{-1};

bool service_read_pool_switch()
{
    char value[17];
    service_lock();
    int32_t state = service_pool_switch.load(std::memory_order_relaxed);
    if (state < 0) {
        state = platform_environment("WKL_DISABLE_FAST_MM", value, sizeof value) > 0 ||
                platform_environment("WKL_MM_DISABLE", value, sizeof value) > 0;
        service_pool_switch.store(state, std::memory_order_relaxed);
    }
    service_unlock();
    return state != 0;
}

int32_t service_pool_count()
{
    return places_filled.load(std::memory_order_acquire);
}

thread_pool *service_pool_at(int32_t place)
{
    return places[place].pool.load(std::memory_order_relaxed);
}

static int32_t slot_of_places()
{
    int32_t slot = place_slot.load(std::memory_order_acquire);
    if (slot != slot_missing) return slot;
    service_lock();
    slot = place_slot.load(std::memory_order_relaxed);
    if (slot == slot_missing) {
        slot = platform_thread_slot_create();
        place_slot.store(slot, std::memory_order_release);
    }
    service_unlock();
    return slot;
}

static bool belongs_to(int32_t place, uint64_t identifier)
{
    return places[place].identifier.load(std::memory_order_relaxed) == identifier;
}

/* Fill the next place for this thread. Returns the place, or 0. */
static int32_t fill_place(uint64_t identifier)
{
    int32_t place = 0;
    if (service_pool_count() == pool_places) return 0; /* the late threads of a crowd do not queue for the lock */
    service_lock();
    const int32_t filled = places_filled.load(std::memory_order_relaxed);
    if (filled < pool_places) {
        void *memory = service_system.allocate(sizeof(thread_pool));
        if (memory != nullptr) {
            place = filled + 1;
            places[place].identifier.store(identifier, std::memory_order_relaxed);
            places[place].pool.store(new (memory) thread_pool{}, std::memory_order_relaxed);
            places_filled.store(place, std::memory_order_release);
        }
    }
    service_unlock();
    return place;
}

thread_pool *service_thread_pool()
{
    const uint64_t identifier = platform_thread_id();
    const int32_t slot = slot_of_places();
    if (slot != slot_missing) {
        const auto known = static_cast<int32_t>(platform_thread_slot_get(slot));
        if (known != 0 && belongs_to(known, identifier)) return service_pool_at(known); /* another's place is stale: search */
    }
    int32_t place = service_pool_count();
    while (place > 0 && !belongs_to(place, identifier)) --place;
    if (place == 0) place = fill_place(identifier);
    if (slot != slot_missing) platform_thread_slot_set(slot, place);
    return place == 0 ? nullptr : service_pool_at(place);
}
