/* How a thread waits that finds nothing to do: a short spin, then it gives its time slice away, so that more threads than cores still
   get on. */
#pragma once

#include <cstdint>

#include "platform/platform.h"

struct idle_wait {
    int64_t rounds = 0;
    void reset()
    {
        rounds = 0;
    }
    void pause()
    {
        constexpr int64_t spin_rounds = 64, spins = 32;
        if (++rounds > spin_rounds) {
            platform_yield();
            return;
        }
        for (int64_t i = 0; i < spins; ++i) {
#if defined(__x86_64__) || defined(_M_X64)
            __builtin_ia32_pause();
#endif
        }
    }
};
