/* Private to the numeric stage: one run of it, and the steps that its files share. */
#pragma once

#include "factor/factor.h"
#include "solve/solve.h"
#include "solver/stage_arrays.h"

enum class numeric_step { hybrid, decide, factor, direct, end };

constexpr int64_t budget_cap_no_factor = 150; /* iterations where no factorization may follow */

/* One run of the stage: the views that the rooms below take, and what the steps share. */
template <typename value_t>
struct numeric_run {
    solver_call *call;
    int64_t ido_internal;
    bool want_hybrid;
    int64_t budget;
    supernodal_structure structure;
    position_map map;
    work_lists lists;
    factor_store<value_t> store;
    ooc_request files;
};

/* The parts of the handle that several steps read: the record of the stored factorization, the row order that it was made with (null when
   the type has none), the scale factors from `offset` on (null without scaling). */
factor_record *numeric_record(const solver_call *call);
int64_t *numeric_row_order(const solver_call *call);
const double *numeric_scale(const solver_call *call, int64_t offset);

/* Reach the factors through files while core_mode says so. False after a fault, which is in stage_error or internal_code. */
template <typename value_t>
bool open_store(numeric_run<value_t> *run, ooc_purpose purpose);
template <typename value_t>
void close_store(numeric_run<value_t> *run, ooc_purpose purpose);
bool numeric_failed(const solver_call *call);

/* Solve into x and improve it by the iteration with the factors at hand. */
template <typename value_t>
numeric_step hybrid_step(numeric_run<value_t> *run);

/* The direct solve, with the refinement that is due. */
template <typename value_t>
numeric_step direct_step(numeric_run<value_t> *run);
