/* Size of the team of a parallel region. */
#pragma once

#include "factor/factor.h"

template <typename value_t>
inline int team_threads(const factor_input<value_t> &in)
{
    int64_t threads = in.nproc;
    if (in.entries_per_thread > 0 && in.structure->nnz_l / in.entries_per_thread < threads)
        threads = in.structure->nnz_l / in.entries_per_thread;
    return static_cast<int>(threads < 1 ? 1 : threads);
}
