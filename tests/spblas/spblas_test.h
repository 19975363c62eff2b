/* What the tests of the sparse products share: random matrices and control over threads. */
#pragma once

#include <array>
#include <complex>
#include <cstdlib>
#include <cstring>
#include <omp.h>
#include <random>
#include <vector>

#include "service/service.h"
#include "service/thread_record.h"
#include "spblas/spblas.h"

/* Threads come from the OpenMP runtime's count, so that a test can choose it; no memory pool, so that failures can be injected. */
inline const int spblas_environment = setenv("WKL_DYNAMIC", "false", 1) + setenv("WKL_DISABLE_FAST_MM", "1", 1);

/* Run with this many threads, dynamic threading off. */
inline void use_threads(int count)
{
    service_max_threads(); /* reads the environment */
    service_threads.dynamic.store(0);
    omp_set_num_threads(count);
}

/* Run with this many threads and dynamic threading on, as on a machine with that many cores. */
inline void use_dynamic_threads(int count)
{
    use_threads(count);
    service_threads.physical_cores.store(count);
    service_threads.dynamic.store(1);
}

template <typename value_t>
struct csr_matrix {
    int64_t m, k;
    std::vector<int64_t> ia, ja; /* ia with the base asked for */
    std::vector<value_t> a;
};

template <typename value_t>
value_t random_value(std::mt19937_64 *random)
{
    std::uniform_real_distribution<double> number(-1.0, 1.0);
    if constexpr (std::is_floating_point_v<value_t>)
        return static_cast<value_t>(number(*random));
    else
        return value_t(random_value<typename value_t::value_type>(random), random_value<typename value_t::value_type>(random));
}

template <typename value_t>
std::vector<value_t> random_vector(int64_t n, uint64_t seed)
{
    std::mt19937_64 random(seed);
    std::vector<value_t> x(static_cast<size_t>(n));
    for (value_t &v : x) v = random_value<value_t>(&random);
    return x;
}

/* Runs of five rows of each kind: 0 to 8 entries in any order, on both sides of the diagonal, with repeated columns; or as grids have them,
   ascending, the diagonal and 2, 3, 4 or 19 entries before it or behind it. */
template <typename value_t>
csr_matrix<value_t> random_matrix(int64_t m, int64_t k, int64_t base, uint64_t seed)
{
    std::mt19937_64 random(seed);
    csr_matrix<value_t> s = {m, k, {base}, {}, {}};
    const auto add = [&](int64_t c) {
        if (c < 1 || c > k) return;
        s.ja.push_back(c);
        s.a.push_back(random_value<value_t>(&random));
    };
    for (int64_t i = 1; i <= m; ++i) {
        const int64_t kind = i / 5 % 10, beside = std::array<int64_t, 4>{2, 3, 4, 19}[static_cast<size_t>(kind % 4)];
        for (uint64_t count = k > 0 && kind > 7 ? random() % 9 : 0; count > 0; --count) {
            const bool on_diagonal = random() % 6 == 0;
            add(on_diagonal ? i : 1 + static_cast<int64_t>(random() % static_cast<uint64_t>(k)));
        }
        for (int64_t d = beside; kind < 4 && d >= 0; --d) add(i - d * (d + 1) / 2);
        for (int64_t d = 0; kind >= 4 && kind < 8 && d <= beside; ++d) add(i + d * (d + 1) / 2);
        s.ia.push_back(base + static_cast<int64_t>(s.ja.size()));
    }
    return s;
}
