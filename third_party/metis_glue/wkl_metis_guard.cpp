/* Guard, memory, errors and random numbers of the graph partitioner; the contract stands in wkl_metis_guard.h. */
#include "wkl_metis_guard.h"

#include <csetjmp>
#include <cstdarg>
#include <cstring>

#include "service/service.h"

namespace
{
/* Stands before every block of the partitioner; 64 bytes, so that the block itself starts on a cache line. */
struct alignas(64) block_head {
    block_head *newer;
    block_head *older;
    wkl_metis_arena *arena;
};

struct guard_frame {
    std::jmp_buf back;
    wkl_metis_arena *arena;
    guard_frame *outer;
    uint64_t outer_random;
};

/* Per thread: the innermost guard, and the state of the random numbers. */
thread_local guard_frame *innermost = nullptr;
thread_local uint64_t random_state = 0;

void lock_arena(wkl_metis_arena *arena)
{
    while (__atomic_exchange_n(&arena->lock, 1, __ATOMIC_ACQUIRE) != 0) {
        while (__atomic_load_n(&arena->lock, __ATOMIC_RELAXED) != 0) __builtin_ia32_pause();
    }
}

void unlock_arena(wkl_metis_arena *arena)
{
    __atomic_store_n(&arena->lock, 0, __ATOMIC_RELEASE);
}

void link_block(wkl_metis_arena *arena, block_head *block)
{
    block->newer = nullptr;
    block->arena = arena;
    lock_arena(arena);
    block->older = static_cast<block_head *>(arena->first);
    if (block->older != nullptr) block->older->newer = block;
    arena->first = block;
    ++arena->block_count;
    unlock_arena(arena);
}

void unlink_block(block_head *block)
{
    wkl_metis_arena *arena = block->arena;
    lock_arena(arena);
    if (block->newer != nullptr)
        block->newer->older = block->older;
    else
        arena->first = block->older;
    if (block->older != nullptr) block->older->newer = block->newer;
    --arena->block_count;
    unlock_arena(arena);
}

/* Bytes with head; false when the sum does not fit. A request of nothing still gets a block of its own. */
bool with_head(size_t size, uint64_t *bytes)
{
    if (size > SIZE_MAX / 2) return false;
    *bytes = (size == 0 ? 1 : size) + sizeof(block_head);
    return true;
}

/* SplitMix64 (Steele, Lea, Flood, "Fast splittable pseudorandom number generators", OOPSLA 2014): one word of state, any seed will do. */
uint64_t next_random()
{
    random_state += 0x9E3779B97F4A7C15u;
    uint64_t z = random_state;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
    return z ^ (z >> 31);
}
} // namespace

void wkl_metis_arena_open(wkl_metis_arena *arena)
{
    arena->first = nullptr;
    arena->block_count = 0;
    arena->lock = 0;
}

void wkl_metis_arena_close(wkl_metis_arena *arena)
{
    block_head *block = static_cast<block_head *>(arena->first);
    while (block != nullptr) {
        block_head *older = block->older;
        service_free_direct(block);
        block = older;
    }
    wkl_metis_arena_open(arena);
}

int64_t wkl_metis_guard(wkl_metis_arena *arena, uint64_t seed, void (*work)(void *argument), void *argument)
{
    wkl_metis_arena own;
    wkl_metis_arena_open(&own);
    guard_frame frame;
    frame.arena = arena != nullptr ? arena : &own;
    frame.outer = innermost;
    frame.outer_random = random_state;
    random_state = seed;
    innermost = &frame;
    int64_t code = -2;
    if (setjmp(frame.back) == 0) {
        work(argument);
        code = 0;
    } else {
        code = -2; /* written anew: a local changed since setjmp has no certain value here */
    }
    innermost = frame.outer;
    random_state = frame.outer_random;
    wkl_metis_arena_close(&own);
    return code;
}

/* Back to the innermost guard. Without one there is nothing to return to: that is a fault of the caller, and the trap shows the place. */
void wkl_metis_leave(void)
{
    if (innermost == nullptr) __builtin_trap();
    std::longjmp(innermost->back, 1);
}

void *wkl_metis_malloc(size_t size)
{
    uint64_t bytes = 0;
    if (innermost == nullptr || !with_head(size, &bytes)) wkl_metis_leave();
    block_head *block = static_cast<block_head *>(service_alloc_direct(bytes, 64));
    if (block == nullptr) wkl_metis_leave();
    link_block(innermost->arena, block);
    return block + 1;
}

void *wkl_metis_calloc(size_t count, size_t size)
{
    size_t total = 0;
    if (__builtin_mul_overflow(count, size, &total)) wkl_metis_leave();
    void *pointer = wkl_metis_malloc(total);
    std::memset(pointer, 0, total);
    return pointer;
}

void *wkl_metis_realloc(void *pointer, size_t size)
{
    uint64_t bytes = 0;
    if (pointer == nullptr) return wkl_metis_malloc(size);
    if (!with_head(size, &bytes)) wkl_metis_leave();
    block_head *block = static_cast<block_head *>(pointer) - 1;
    wkl_metis_arena *arena = block->arena;
    unlink_block(block); /* the block may move, and its neighbours in the list with other threads must not see that */
    block_head *moved = static_cast<block_head *>(service_realloc(block, bytes));
    link_block(arena, moved != nullptr ? moved : block);
    if (moved == nullptr) wkl_metis_leave();
    return moved + 1;
}

void wkl_metis_free(void *pointer)
{
    if (pointer == nullptr) return;
    block_head *block = static_cast<block_head *>(pointer) - 1;
    unlink_block(block);
    service_free_direct(block);
}

void *wkl_metis_gk_malloc(size_t size, char *)
{
    return wkl_metis_malloc(size);
}

void *wkl_metis_gk_realloc(void *pointer, size_t size, char *)
{
    return wkl_metis_realloc(pointer, size);
}

/* Frees what each argument points at and stores null there; a null argument ends the list. */
void wkl_metis_gk_free(void **pointer, ...)
{
    va_list more;
    va_start(more, pointer);
    for (void **place = pointer; place != nullptr; place = va_arg(more, void **)) {
        wkl_metis_free(*place);
        *place = nullptr;
    }
    va_end(more);
}

ptrdiff_t *wkl_metis_gk_idxsmalloc(size_t count, ptrdiff_t value, char *)
{
    size_t total = 0;
    if (__builtin_mul_overflow(count, sizeof(ptrdiff_t), &total)) wkl_metis_leave();
    ptrdiff_t *list = static_cast<ptrdiff_t *>(wkl_metis_malloc(total));
    for (size_t i = 0; i < count; ++i) list[i] = value;
    return list;
}

void wkl_metis_gk_errexit(int, char *, ...)
{
    wkl_metis_leave();
}

void wkl_metis_errexit(char *, ...)
{
    wkl_metis_leave();
}

void wkl_metis_gk_randinit(uint64_t seed)
{
    random_state = seed;
}

uint32_t wkl_metis_gk_randint32(void)
{
    return static_cast<uint32_t>(next_random() >> 33);
}

/* Non-negative as a signed number too: the partitioner takes remainders of it in its signed index type. */
uint64_t wkl_metis_gk_randint64(void)
{
    return next_random() >> 1;
}

int wkl_metis_gk_log2(int value)
{
    int power = 0;
    for (; value > 1; value >>= 1) ++power;
    return power;
}

/* The partitioner reads its clock for statistics only, which nobody asks for. */
double wkl_metis_gk_cpu_seconds(void)
{
    return 0.0;
}
