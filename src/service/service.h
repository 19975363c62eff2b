/* Services below the solver: hooks, threads and environment, processor detection, memory, messages. Every service initialises itself on
   first use; all may be called from any thread, also inside a parallel region. Nothing here prints on its own account but the
   message routines and the two fatal exits of the processor detection. */
#pragma once

#include <cstdint>

/* ---- the one global lock: a spin lock on one word, never held across a call that can print or block ---- */
void service_lock();
void service_unlock();

/* ---- hooks and the argument error route ---- */
using xerbla_callback = void(const char *name, const int64_t *info, int32_t length);
using progress_callback = int64_t(const int64_t *thread, const int64_t *percent, const char *stage, int32_t length);
using pivot_callback = int64_t(const double *aux, double *pivot, const double *threshold);

void service_set_xerbla_hook(xerbla_callback *callback);          /* the first registration wins */
void service_set_progress_hook(progress_callback *callback);      /* the first registration wins */
pivot_callback *service_set_pivot_hook(pivot_callback *callback); /* always overwrites; returns the previous one, or pivot_default */

void service_xerbla(const char *name, const int64_t *info, int32_t length);
void service_xerbla_default(const char *name, const int64_t *info, int32_t length);

/* Text of the progress hook's calls during a factorization, and its length. */
inline constexpr char service_factorization_stage[] = "Solvara: factorization phase";
inline constexpr int32_t service_factorization_stage_length = 28;

int64_t service_check_null(const void *pointer, const char *name); /* 0, or 1 after reporting info 1089 */
int64_t service_progress(const int64_t *thread, const int64_t *percent, const char *stage, int32_t length);
int64_t service_pivot(const double *aux, double *pivot, const double *threshold);
int64_t progress_default(const int64_t *thread, const int64_t *percent, const char *stage, int32_t length);
int64_t pivot_default(const double *aux, double *pivot, const double *threshold);

/* ---- threads; domains: 0 all, 1 BLAS, 2 FFT, 3 VML, 4 solver ---- */
enum thread_domain : int32_t { domain_all = 0, domain_blas = 1, domain_fft = 2, domain_vml = 3, domain_solver = 4 };
int32_t service_max_threads();
int32_t service_domain_max_threads(int32_t domain);
int32_t service_dynamic();
int32_t service_package_count();
int32_t service_cores_per_package();
void solver_thread_count(int64_t *out);
int64_t solver_dynamic_flag();
int64_t solver_physical_cores();
bool solver_cbwr_active();

/* ---- processor ---- */
int32_t service_cpu_type();                /* 0 SSE2, 1 SSE3, 2 SSSE3, 3 SSE4.2, 4 AVX, 5 AVX2 */
int32_t service_cbwr_branch(int32_t mode); /* mode 1: branch code, 1 when no branch is set */
int32_t service_cpu_ma();
int32_t service_cpu_is_reference_vendor();
int32_t service_cpu_is_amd_family_10h();
uint64_t service_cpu_feature_word();
int32_t service_vsmp();
int64_t service_cache_size(int32_t level);               /* bytes of the data cache of this level, 0 for the last level's; 0 when unknown */
[[noreturn]] void service_cpu_unsupported(int32_t type); /* message 1213 and the end of the process, for dispatch entries */

/* Feature word bits that kernels may test. */
inline constexpr uint64_t cpu_feature_avx = uint64_t{1} << 16;
inline constexpr uint64_t cpu_feature_fma = uint64_t{1} << 18;
inline constexpr uint64_t cpu_feature_avx2 = uint64_t{1} << 23;

/* ---- memory: every block is at least 64-byte aligned; null means exhausted, nothing is printed ---- */
void *service_alloc(uint64_t size, int32_t alignment); /* pooled for the calling thread, falling back to direct */
void service_free(void *pointer);                      /* any block; null is accepted */
void *service_alloc_direct(uint64_t size, int32_t alignment);
void service_free_direct(void *pointer);                                      /* direct blocks only */
void *service_calloc(int64_t count, int64_t element_size, int32_t alignment); /* direct, zero-filled */
void *service_realloc(void *pointer, uint64_t new_size);                      /* direct blocks only */

/* The system allocator behind both routes; a test may replace the three pointers. */
struct service_system_allocator {
    void *(*allocate)(uint64_t size);
    void *(*resize)(void *pointer, uint64_t size);
    void (*release)(void *pointer);
};
extern service_system_allocator service_system;

/* What is handed out at the moment, for tests of leaks. Exact while no other thread allocates or frees. */
struct service_memory {
    int64_t direct_bytes; /* obtained from the system for direct blocks, headers included */
    int64_t direct_blocks;
    int64_t pooled_bytes; /* asked for in the pooled blocks that are in use, of all threads */
    int64_t pooled_blocks;
    int64_t cached_bytes; /* held by the pools, in use or not; never returned to the system */
};
void service_memory_statistics(service_memory *out);

/* ---- messages; the numbers stand in service/message_numbers.h ----
   Arguments follow the directives of the text: int32_t for %d and %i, int64_t for %ld and %lli, double for %f, const char * for %s. Only
   argument_count directives read arguments; further ones print as they stand. */

/* Print a message and a line end on standard output, in one piece, and flush all streams; message 0 is a bare line end, not flushed. The
   expanded text counts as a format once more: a doubled per cent sign prints once. in reserved 0; number; argument_count, the true number
   of arguments. Returns 0. A text of more than 513 characters ends the process with status 8. */
int32_t service_print_message(int32_t reserved, int32_t number, int32_t argument_count, ...);

/* The expanded text, cut to 513 characters; empty for message 0. It stands until the calling thread's next call. */
const char *service_message_text(int32_t number, int32_t argument_count, ...);

void service_flush_output(); /* write out what standard output still holds */

/* ---- environment and time ---- */
/* Value of an environment variable, read afresh. in name; size bytes at buffer. Returns its length, or 0 with an empty buffer when the
   variable is absent, empty, or does not fit with its end mark. */
int64_t service_environment(const char *name, char *buffer, int64_t size);
double service_seconds(); /* monotonic, from an arbitrary start */
