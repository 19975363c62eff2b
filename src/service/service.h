/* Services below the solver: hooks, threads and environment, processor detection, memory, messages. Every service initialises itself on
   first use; all may be called from any thread, also inside a parallel region. Nothing here prints on its own account but the
   message routines and the two fatal exits of the processor detection. */
#pragma once

#include <cstdint>

/* ---- the one global lock: a spin lock on one word, never held across a call that can print or block; not recursive ---- */
void service_lock();
void service_unlock();

/* ---- hooks and the argument error route ----
   Three process-wide slots, empty at load and never reset; callers may register at the same time. */
using xerbla_callback = void(const char *name, const int64_t *info, int32_t length);
using progress_callback = int64_t(const int64_t *thread, const int64_t *percent, const char *stage, int32_t length);
using pivot_callback = int64_t(const double *aux, double *pivot, const double *threshold);

void service_set_xerbla_hook(xerbla_callback *callback);          /* the first registration wins */
void service_set_progress_hook(progress_callback *callback);      /* the first registration wins */
pivot_callback *service_set_pivot_hook(pivot_callback *callback); /* always overwrites; returns the previous one, or pivot_default */

/* Report a faulty argument or a lack of memory through the hook, or by service_xerbla_default when there is none; the caller returns
   afterwards. in name of the routine, of length characters; info the argument's position, or 1000 lack of workspace, 1001 optional
   arguments that do not go together, 1089 no work memory, 1212 coprocessor, 0 and below minus the number of a condition. */
void service_xerbla(const char *name, const int64_t *info, int32_t length);

/* The same, printed: a line end, then the message for the low 32 bits of info; the name is cut to 20 characters. */
void service_xerbla_default(const char *name, const int64_t *info, int32_t length);

/* Guard for fresh work memory: 0, or 1 after reporting info 1089 for a null pointer. in name closed by an end mark */
int64_t service_check_null(const void *pointer, const char *name);

/* Tell the progress of a factorization. in thread 0; percent 0 to 100; stage of length characters. Returns what the hook returns, 0 without
   one; anything else asks the run to stop. */
int64_t service_progress(const int64_t *thread, const int64_t *percent, const char *stage, int32_t length);
bool service_progress_watched(); /* by a hook that is not the library's own */
inline constexpr char service_factorization_stage[] = "Solvara: factorization phase";
inline constexpr int32_t service_factorization_stage_length = 28;

/* Let the hook, or pivot_default without one, look at a pivot. inout pivot; in threshold. Returns 1 when the pivot was changed, else 0. */
int64_t service_pivot(const double *aux, double *pivot, const double *threshold);

int64_t progress_default(const int64_t *thread, const int64_t *percent, const char *stage, int32_t length); /* 0 */

/* With t = *threshold: a pivot above t or below -t stays. Any other, a NaN too, becomes t when it is above 0 and -t otherwise. */
int64_t pivot_default(const double *aux, double *pivot, const double *threshold);

/* ---- threads; domains: 0 all, 1 BLAS, 2 FFT, 3 VML, 4 solver ----
   The environment is read and the processors are counted once, on the first query of the process. */
enum thread_domain : int32_t { domain_all = 0, domain_blas = 1, domain_fft = 2, domain_vml = 3, domain_solver = 4 };

/* How many threads a routine may open, at least 1: the domain's count from the environment, else the general one, else the runtime's
   maximum. With dynamic threading on: 1 inside a parallel region, and never more than there are cores. An unknown domain acts as 0. */
int32_t service_domain_max_threads(int32_t domain);
int32_t service_max_threads(); /* the same for domain 0 */

int32_t service_dynamic();           /* 1 when a routine may use fewer threads than asked, else 0 */
int32_t service_package_count();     /* -1 when it could not be found out, as in a process held to some of the processors */
int32_t service_cores_per_package(); /* likewise */
void solver_thread_count(int64_t *out);
int64_t solver_dynamic_flag();
int64_t solver_physical_cores(); /* packages times cores of a package; 1 when neither is known */
bool solver_cbwr_active();       /* a reproducibility branch is set */

/* ---- processor; all answers are settled on first use and stay for the process ---- */
/* Type code that dispatch entries choose their body by: 0 SSE2, 1 SSE3, 2 SSSE3, 3 SSE4.2, 4 AVX, 5 AVX2; -4 for a branch that pins no
   type. WKL_DEBUG_CPU_TYPE forces it, WKL_CBWR pins it, and otherwise the processor decides, where one of another vendor than the
   reference counts as 0. Prints and ends the process on a reference processor without SSE2. */
int32_t service_cpu_type();

/* Reproducibility branch. Mode 1: 1 when none is set, 2 automatic, 3 compatible, 4 SSE2, 5 SSE3, 6 SSSE3, 7 SSE4.1, 8 SSE4.2, 9 AVX,
   10 AVX2. Mode -1: the stored word, 0 when none is set or the environment has not been read yet. Any other mode: -2. */
int32_t service_cbwr_branch(int32_t mode);

int32_t service_cpu_ma();                  /* machine-architecture code that some kernels are tuned by, 0 for no special one */
int32_t service_cpu_is_reference_vendor(); /* 1 or 0 */
int32_t service_cpu_is_amd_family_10h();   /* 1 or 0; 0 while a branch pins the type */
uint64_t service_cpu_feature_word();       /* one bit a feature, of whatever processor runs; bit 0 is always set */
int32_t service_vsmp();                    /* number in WKL_VSMP, or 0 */

/* Bytes of the data cache of this level, 0 for the last level's; 0 when unknown. Fixed values while a reproducibility branch is set. */
int64_t service_cache_size(int32_t level);

/* For dispatch entries without a body for this type: message 1213 and the end of the process with status 1. */
[[noreturn]] void service_cpu_unsupported(int32_t type);

/* Feature word bits that kernels may test. */
inline constexpr uint64_t cpu_feature_avx = uint64_t{1} << 16;
inline constexpr uint64_t cpu_feature_fma = uint64_t{1} << 18;
inline constexpr uint64_t cpu_feature_avx2 = uint64_t{1} << 23;

/* ---- memory ----
   Null means exhausted; nothing is printed. Sizes in bytes. An alignment that is a power of two from 64 up stands as it is, any other
   becomes 64. A pooled block must go back through service_free; a direct one may go back through either. */

/* For the short-lived buffers of kernels: from the calling thread's cache of at most five blocks, without a lock when one fits. A size
   above 128 MiB, a full cache and a thread beyond the 1024th take the direct route. Null for size 0. */
void *service_alloc(uint64_t size, int32_t alignment);

/* Any block, of any thread; a pooled one goes back to the thread that took it. Null is accepted. */
void service_free(void *pointer);

/* For arrays that live long: from the system, with a header ahead of the block. */
void *service_alloc_direct(uint64_t size, int32_t alignment);
void service_free_direct(void *pointer);

/* A direct block of count * element_size bytes, all zero; null when that product is below 1 or overflows. */
void *service_calloc(int64_t count, int64_t element_size, int32_t alignment);

/* Change the size of a direct block, which may move; its contents stay up to the smaller size, its alignment may not. Null leaves the old
   block as it was. A null pointer with a size above 0 gives a new block, aligned to 64. New size 0 keeps the block's header. */
void *service_realloc(void *pointer, uint64_t new_size);

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
