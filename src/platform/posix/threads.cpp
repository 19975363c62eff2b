#include "platform/platform.h"

#include <pthread.h>
#include <sched.h>

static_assert(sizeof(pthread_t) <= sizeof(uint64_t), "a thread handle must fit the identifier");
static_assert(sizeof(void *) >= sizeof(int64_t), "a thread-local value must fit a pointer");

/* The handle of the thread library and not the kernel's number: it needs no system call, and it comes back soon after a thread ends, so
   that the next thread inherits what hangs on it. */
uint64_t platform_thread_id()
{
    return static_cast<uint64_t>(pthread_self());
}

int32_t platform_thread_slot_create()
{
    pthread_key_t key;
    return pthread_key_create(&key, nullptr) == 0 ? static_cast<int32_t>(key) : -1;
}

int64_t platform_thread_slot_get(int32_t slot)
{
    return reinterpret_cast<int64_t>(pthread_getspecific(static_cast<pthread_key_t>(slot)));
}

void platform_thread_slot_set(int32_t slot, int64_t value)
{
    /* Fails only without memory; the value then reads 0, which every caller must expect of a new thread anyway. */
    (void)pthread_setspecific(static_cast<pthread_key_t>(slot), reinterpret_cast<void *>(value));
}

void platform_yield()
{
    (void)sched_yield();
}
