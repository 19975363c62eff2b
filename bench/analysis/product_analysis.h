/* One whole analysis call of the product (ido 11) through its shared library, and the memory that it takes. */
#pragma once

#include <cstdint>
#include <vector>

struct bench_input {
    int64_t n, type; /* type 2: the upper triangle with the diagonal first; 11: all entries */
    std::vector<int64_t> ia, ja;
};

/* ido 11 on a new handle, which is released behind it. Seconds of ido 11 alone, not a number on an error. No matching, since only the
   pattern counts here; two threads and more take the parallel ordering. `kilobytes`, when not null, gets iparam(15). */
double product_analysis(const bench_input &in, int threads, double *kilobytes);

/* In a process of its own, so before the caller's first parallel region. In kilobytes, negative where the system does not tell. */
struct analysis_memory {
    double reported; /* iparam(15) of ido 11 */
    double peak;     /* resident, above what the process held before the call */
};
analysis_memory product_memory(const bench_input &in, int threads);
