/* A host of the solver for benchmarks: one matrix in the form of its type, right-hand sides of ones, calls by ido. */
#pragma once

#include <ctime>
#include <string>

#include "generators.h"
#include "service/thread_record.h"
#include "solver/control.h"
#include "solver/solver.h"

struct bench_host {
    std::string name;
    int64_t type = 0;
    market_matrix matrix; /* as passed */
    void *handle[64] = {};
    int64_t iparam[iparam_count] = {};
    int64_t error = 0;
    std::vector<int64_t> perm;
    std::vector<double> b, x;

    /* generated: as the generators return it. */
    bench_host(const char *label, int64_t matrix_type, const market_matrix &generated)
        : name(label), type(matrix_type), matrix(matrix_type % 2 == 0 ? market_transpose(generated) : market_expand(generated)),
          perm(static_cast<size_t>(matrix.rows))
    {
        iparam_defaults(iparam, type);
    }
    bench_host(const bench_host &) = delete;
    bench_host &operator=(const bench_host &) = delete;
    ~bench_host()
    {
        call(-1, 1);
    }

    int64_t &parameter(iparam_position position)
    {
        return iparam_at(iparam, position);
    }
    bool is_complex() const
    {
        return matrix.field == market_field::complex;
    }
    int64_t call(int64_t ido, int64_t nb)
    {
        const int64_t one = 1, silent = 0;
        const size_t entries = static_cast<size_t>(matrix.rows * nb) * (is_complex() ? 2 : 1);
        if (b.size() != entries) {
            b.assign(entries, 1.0);
            x.assign(entries, 0.0);
        }
        solver_entry(handle, &one, &one, &type, &ido, &matrix.rows, matrix.value.data(), matrix.ia.data(), matrix.ja.data(), perm.data(),
                     &nb, iparam, &silent, b.data(), x.data(), &error);
        return error;
    }
};

inline void use_threads(int32_t threads)
{
    service_max_threads();
    service_threads.domain[domain_solver - 1] = threads;
}

inline double processor_seconds()
{
    timespec t = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}
