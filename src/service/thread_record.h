/* The process-wide thread record. Private to this folder, and open to its tests. Fields are written under the service lock and read
   without it; -1 is "not known" or "not set". */
#pragma once

#include <atomic>
#include <cstdint>

#include "service/service.h"

struct thread_record {
    std::atomic<int32_t> thread_local_slot;     /* slot of platform_thread_slot_create; a positive value there overrides all else */
    std::atomic<int32_t> general_threads;       /* WKL_NUM_THREADS, or WKL_ALL among the domains */
    std::atomic<int32_t> env_pending;           /* 1 until the environment has been read */
    std::atomic<int32_t> physical_cores;        /* distinct cores that the detection found */
    std::atomic<int32_t> launcher_hint;         /* -1 applies the launcher rule, 0 forces one thread */
    std::atomic<int32_t> launcher_processes;    /* W_MPI_NUMBER_OF_MPI_PROCESSES_PER_NODE */
    std::atomic<int32_t> omp_env_threads;       /* OMP_NUM_THREADS */
    std::atomic<int32_t> launcher_thread_level; /* W_MPI_THREAD_LEVEL, 0 to 3 */
    std::atomic<int32_t> logical_processors;    /* processors that the detection visited */
    std::atomic<int32_t> package_count;         /* distinct packages */
    std::atomic<int32_t> cores_per_package;     /* physical_cores / package_count */
    std::atomic<int32_t> hyperthreading;        /* 1 when there are more logical processors than cores */
    std::atomic<int32_t> domain[domain_solver]; /* WKL_DOMAIN_NUM_THREADS: entry d - 1 belongs to domain d */
    std::atomic<int32_t> dynamic;               /* WKL_DYNAMIC: 0 or 1 once read */
    std::atomic<int32_t> topology_done;         /* 1 after a detection that succeeded */
};
extern thread_record service_threads;

/* Fill the record from the environment. The caller holds the service lock. */
void service_read_thread_env(thread_record *record);

/* Count cores and packages in one pass over the processors, pinning the calling thread to each in turn; the thread's own mask is put back.
   Leaves everything as it is when it was done before, when the process may not use every processor, or without memory. */
void service_detect_topology();
