#include "service/service.h"

#include <atomic>

#include "platform/platform.h"

static std::atomic<uint32_t> lock_word{0};

/* Holders keep the lock for a microsecond at most; one that lost its processor is given time to come back. */
static constexpr int spins_before_yield = 1000;

void service_lock()
{
    int spins = 0;
    uint32_t expected = 0;
    while (!lock_word.compare_exchange_weak(expected, 1, std::memory_order_acquire, std::memory_order_relaxed)) {
        expected = 0;
        if (++spins < spins_before_yield) {
            __builtin_ia32_pause();
        } else {
            platform_yield();
            spins = 0;
        }
    }
}

void service_unlock()
{
    lock_word.store(0, std::memory_order_release);
}
