/* Which of the sources that wait for a target are applied in one product. The rows of a source from the target on all stand in the list of
   its parent as well, so a source may ride along with its parent, or with a group that its parent has joined, as if it had the rows of the
   group's leader: the missing ones are zeros. That costs multiplications with zeros and a copy, and saves a pass over scattered entries of
   the target, which for a narrow source takes far longer than its arithmetic. */
#pragma once

#include "factor/factor_run.h"

struct update_group {
    int64_t leader;        /* its place among the pending sources; -1: the rows of the target itself */
    int64_t rows, columns; /* q and k of an update */
    int64_t first, last;   /* members, chained by pending_update::next; -1 none */
};
inline constexpr int64_t group_count_limit = pending_limit + 1;

/* Cost of a product with the group's rows, in multiplications with one entry of the target. Measured on saddle point, circuit and grid
   matrices, double precision: a scattered entry takes 2.8 cycles, one in place 0.9, a multiplication 1/7, a copied entry 2. */
struct update_costs {
    double scattered, in_place, copied, call;
};
template <typename value_t>
constexpr update_costs costs_of()
{
    constexpr double words = sizeof(value_t) == sizeof(real_of<value_t>) ? 1 : 2;
    constexpr double products = words * words * static_cast<double>(sizeof(real_of<value_t>)) / 8;
    return {18 * words / products, 6 * words / products, 14 * words / products, 500 / products};
}

/* Entries of the buffer that a column takes which rides with a group of q rows and k columns. */
template <factor_kind kind>
int64_t packed_entries(int64_t q, int64_t k)
{
    return kind == factor_kind::lu ? 2 * q : kind == factor_kind::ldlt ? q + k : q;
}

/* Entries of the target that an update meets. */
template <factor_kind kind>
double update_entries(int64_t rows, int64_t columns)
{
    const double q = static_cast<double>(rows), k = static_cast<double>(columns);
    return kind == factor_kind::lu ? (2 * q - k) * k : q * k - k * (k - 1) / 2;
}

/* Divide the pending sources of a target into groups; returns their number. The sources are sorted. The thread's map must hold the target
   where a source has fewer rows than that. A source whose product with scattered rows would not fit the buffer is a failure: -2. */
template <typename value_t, factor_kind kind>
int64_t make_groups(factor_run<value_t> *run, thread_space<value_t> *space, const target_block<value_t> &target, update_group *group);
