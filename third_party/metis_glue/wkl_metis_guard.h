/* Calling the graph partitioner from a library: every call into it runs under a guard, and every block it takes belongs to an arena.

   The partitioner knows one way to report exhausted memory or an inner error: it leaves the process. Here that exit is a jump back to
   the innermost guard of the calling thread, which returns a code. What was allocated on the way is not lost: each block carries its
   arena, and closing the arena releases all that is left.

   Ownership and threads. One arena serves one whole ordering, however many threads work on it: blocks are kept in one list under a
   short spin lock, so a graph split by one thread can be ordered and freed by another. Each thread or OpenMP section that calls the
   partitioner opens its own guard, on the same arena. A failing guard does not release the blocks of the arena, as other sections may
   still be reading theirs: it returns the code, the sections come together, and the owner closes the arena after the last of them.
   A guard without an arena (null) uses a private one and releases all blocks when it returns, on success as well as on failure.

       wkl_metis_arena arena;
       wkl_metis_arena_open(&arena);
       code = wkl_metis_guard(&arena, seed, work, &arguments);      // from as many threads as wanted
       wkl_metis_arena_close(&arena);                               // alone; every graph and control record is gone now

   The jump skips the frames between the failing call and the guard. They must own nothing that needs a clean-up of its own (no service
   allocation that only a local points at, no lock held), and no OpenMP construct may be opened inside a guard and left by a failure:
   open the guard inside the section, not around the region. Guards nest; the innermost one catches.

   Random numbers belong to the guard: seeded by the argument, and seeded again wherever the partitioner sets its own seed. The result
   of a call depends on graph, options and seed alone, not on what other threads do. */
#ifndef WKL_METIS_GUARD_H
#define WKL_METIS_GUARD_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The blocks of one ordering. Owned by the caller, opened before use; its fields are private to the glue. */
typedef struct wkl_metis_arena {
    void *first;         /* newest block of the list, null when empty */
    int64_t block_count; /* blocks in the list */
    int32_t lock;        /* 0 free, 1 taken */
} wkl_metis_arena;

void wkl_metis_arena_open(wkl_metis_arena *arena);

/* Release every block that is left. No guard of this arena may be running. The arena is empty afterwards and can be used again. */
void wkl_metis_arena_close(wkl_metis_arena *arena);

/* Call work(argument) under a guard.
   in  arena     where the blocks belong, or null for a private arena that is gone on return
       seed      start of the random numbers of this call
   Returns 0, or -2 when memory ran out or the partitioner found an inner error: work was then left in the middle. */
int64_t wkl_metis_guard(wkl_metis_arena *arena, uint64_t seed, void (*work)(void *argument), void *argument);

/* Used by the partitioner in place of its own. Allocation needs a guard; wkl_metis_free does not and takes blocks of any thread. */
void *wkl_metis_malloc(size_t size);
void *wkl_metis_calloc(size_t count, size_t size);
void *wkl_metis_realloc(void *pointer, size_t size);
void wkl_metis_free(void *pointer);
__attribute__((noreturn)) void wkl_metis_leave(void);
void *wkl_metis_gk_malloc(size_t size, char *what);
void *wkl_metis_gk_realloc(void *pointer, size_t size, char *what);
void wkl_metis_gk_free(void **pointer, ...);
ptrdiff_t *wkl_metis_gk_idxsmalloc(size_t count, ptrdiff_t value, char *what);
__attribute__((noreturn)) void wkl_metis_gk_errexit(int signum, char *format, ...);
__attribute__((noreturn)) void wkl_metis_errexit(char *format, ...);
void wkl_metis_gk_randinit(uint64_t seed);
uint32_t wkl_metis_gk_randint32(void);
uint64_t wkl_metis_gk_randint64(void);
int wkl_metis_gk_log2(int value);
double wkl_metis_gk_cpu_seconds(void);

#ifdef __cplusplus
}
#endif
#endif
