/* Analysis: domains, matching, then the stages with the memory each needs, and the estimates that the core decision compares. */
#include <complex>

#include "analysis/analysis.h"
#include "service/service.h"
#include "solver/control.h"

namespace
{
int64_t larger(int64_t a, int64_t b)
{
    return a > b ? a : b;
}

/* Out of core, many domains keep the blocks of one small. */
int64_t ordering_threads(const solver_call *call)
{
    return call->control->two_level == 0 && iparam_at(call->iparam, iparam_core_mode) != 0 ? 32 : call->control->nproc;
}

/* Power of two that covers the wanted number of domains and is not above n. */
void choose_domains(solver_call *call)
{
    control_block *control = call->control;
    const int64_t units = control->reproducible_units;
    const int64_t wanted = units > 0 ? units : ordering_threads(call);
    int64_t domains = int64_t{1} << iparam_at(call->iparam, iparam_domain_exponent);
    while (domains < wanted && 2 * domains <= call->neqns) domains *= 2;
    control->domains = domains;
    control->ordering_slack = larger(1024, 4 * domains + 4);
}

int64_t *words(const solver_call *call, int64_t number)
{
    return static_cast<int64_t *>(get_from_c_structure(number, call->state));
}

/* Symmetric types with matching, unless the caller brings an ordering. */
bool pairs_columns(const solver_call *call)
{
    const control_block *control = call->control;
    return control->matching > 0 && call->matrix_type < 10 && control->perm_mode != 1 && control->perm_mode <= 2;
}

template <typename value_t>
int64_t match_rows(solver_call *call, int64_t *work)
{
    const int64_t n = call->neqns, *ia = call->work_ia, *ja = call->work_ja;
    int64_t *match = words(call, array_matching_order);
    const auto *a = static_cast<const value_t *>(call->work_a);
    auto *scale = static_cast<double *>(get_from_c_structure(array_scale, call->state));
    const int64_t matched = matching_step<value_t>(call->matrix_type, call->control->matching, n, ia, ja, a, match, scale, scale + n, work);
    if (matched == n && pairs_columns(call)) suggest_pivots<value_t>(n, ia, ja, a, scale, match, work);
    return matched;
}

int64_t match_rows_by_type(solver_call *call, int64_t *work)
{
    const bool complex_type = call->element_words == 2;
    if (call->real_bytes == 4) return complex_type ? match_rows<std::complex<float>>(call, work) : match_rows<float>(call, work);
    return complex_type ? match_rows<std::complex<double>>(call, work) : match_rows<double>(call, work);
}

/* Row order and scale factors. Without matching only the types that carry a row order get the identity. */
bool run_matching(solver_call *call)
{
    const int64_t type = call->matrix_type;
    const bool unsymmetric = type == 1 || type == 3 || type > 10;
    if (!unsymmetric && call->control->matching < 1) return true;
    memory_plan(memory_matching, 0, call->state);
    if (call->state->memory_error_stage != 0) return plan_failed(call);
    if (type <= 10 && call->control->matching < 1) return true;

    const int64_t work_bytes = 8 * matching_work_words(call->neqns, call->nnz, type);
    auto *work = static_cast<int64_t *>(service_alloc_direct(static_cast<uint64_t>(work_bytes), 128));
    if (work == nullptr) return out_of_memory(call, memory_matching, work_bytes);
    const int64_t matched = match_rows_by_type(call, work);
    service_free_direct(work);
    if (matched == code_memory) return out_of_memory(call, memory_matching, work_bytes);
    if (matched == call->neqns) return true;
    call->error = error_preordering;
    call->internal_code = -matched;
    return false;
}

/* Ordering of the matching's pairs, for the symmetric types. Array 44 keeps it. */
bool compress_matched_pairs(solver_call *call, compressed_order *pairs)
{
    if (!pairs_columns(call)) return true;
    control_block *control = call->control;
    int64_t *order = words(call, array_matching_order);
    const int64_t n = call->neqns, code = compress_pairs(control, call->work_ia, call->work_ja, order, pairs);
    if (code == code_memory) return out_of_memory(call, memory_matching, 0);
    for (int64_t i = 0; i < n; ++i) order[i] = pairs->order[i];
    control->domains = pairs->domains;
    control->ordering_slack = larger(control->ordering_slack, 4 * pairs->domains + 4);
    control->adjacency_size = larger(control->adjacency_size, pairs->xadj[n] - 1);
    call->state->adjacency_size = control->adjacency_size;
    call->pairs = pairs;
    return true;
}

/* Workspace of the ordering for that many threads. The adjacency may hold two entries more a row than the planned size, for rows without a
   diagonal. */
int64_t ordering_work_words(const solver_call *call, int64_t threads)
{
    const control_block *control = call->control;
    const int64_t n = call->neqns, adjacency = control->adjacency_size + 2 * n;
    const bool partitions = control->preprocessing == 2 || control->preprocessing == 3;
    const bool small = (partitions && control->symmetric_structure == 1) || (control->perm_mode == 1 && call->matrix_type < 11);
    const int64_t copy = small ? 0 : adjacency;
    int64_t size = larger(2 * n + 3, partitions ? 5 : threads + control->ordering_slack + adjacency + 3 + n);
    size = larger(size, 2 * n * threads + 2 * n + 1 + threads);
    size = larger(size, 3 * n + 3 + copy);
    size = larger(size, n * (threads + 1) + copy);
    if (control->symmetric_structure != 1) size = larger(size, call->nnz + 2 * n + 1); /* transpose of the pattern */
    return size;
}

int64_t ordering_lists_words(const solver_call *call, int64_t threads)
{
    return (2 * threads + 3) * call->neqns + 5;
}

/* Sized for the domains' threads, taken for those that there are. */
void size_ordering(solver_call *call)
{
    solver_state *state = call->state;
    const int64_t counted = ordering_threads(call), used = call->control->nproc;
    call->control->ordering_work_size = state->ordering_work_size = ordering_work_words(call, counted);
    state->ordering_lists_size = ordering_lists_words(call, counted);
    state->ordering_work_used = ordering_work_words(call, used < counted ? used : counted);
    state->ordering_lists_used = ordering_lists_words(call, used < counted ? used : counted);
    state->ordering_slack = call->control->ordering_slack;
    state->domains = call->control->domains;
}

/* Results of the stages, as the memory plan reads them. */
void publish_results(const solver_call *call)
{
    const control_block *control = call->control;
    solver_state *state = call->state;
    state->adjacency_size = control->adjacency_size;
    state->lindx_size = control->lindx_size;
    state->supernodes = control->supernodes;
    state->domains = control->domains;
    state->two_level = control->two_level;
    state->nnz_l = control->nnz_l;
    state->nnz_u = control->nnz_u;
    state->factor_block_l = call->ooc->factor_block_l;
    state->factor_block_u = call->ooc->factor_block_u;
    state->factor_block_v = call->ooc->factor_block_v;
    state->column_count_bound = control->column_count_bound;
    state->parallel_list_size = control->parallel_list_size;
    state->task_count = control->task_count;
    state->task_bound = control->task_bound;
    state->update_bound_a = control->update_bound_a;
    state->update_bound_b = control->update_bound_b;
}

/* One stage behind the memory it needs. memory_stage is also the name that a failed allocation inside the stage goes by. */
bool run_stage(solver_call *call, int64_t stage, int64_t memory_stage)
{
    stage_controller(call, stage, call->ido_internal);
    publish_results(call);
    call->internal_code = call->control->internal_code;
    if (call->ooc->stage_error != 0) {
        call->error = call->ooc->stage_error;
        return false;
    }
    if (call->internal_code == code_memory) return out_of_memory(call, memory_stage, 0);
    if (call->internal_code == code_none) return true;
    call->error = call->internal_code == code_overflow ? error_overflow : error_reordering;
    return false;
}

bool plan_stage(solver_call *call, int64_t memory_stage)
{
    memory_plan(memory_stage, 0, call->state);
    return call->state->memory_error_stage == 0 || plan_failed(call);
}

/* Stage 1, behind the ordering of the pairs where there are some. */
bool run_ordering(solver_call *call)
{
    compressed_order pairs{};
    if (!compress_matched_pairs(call, &pairs)) return false;
    size_ordering(call);
    const bool done = plan_stage(call, memory_before_reordering) && run_stage(call, stage_ordering, memory_before_reordering);
    call->pairs = nullptr;
    release_compressed_order(&pairs);
    return done;
}

bool stops_after_ordering(const solver_call *call)
{
    return iparam_at(call->iparam, iparam_partial_window) == partial_stop_after_ordering &&
           iparam_at(call->iparam, iparam_partial_solve) >= 1;
}

bool run_stages(solver_call *call)
{
    if (!run_ordering(call)) return false;
    if (stops_after_ordering(call)) {
        call->error = stage_ordering;
        return false;
    }
    if (!plan_stage(call, memory_before_symbolic) || !run_stage(call, stage_symbolic, memory_before_symbolic)) return false;
    if (!plan_stage(call, memory_before_parallel_data) || !run_stage(call, stage_lists, memory_before_parallel_data)) return false;
    iparam_at(call->iparam, iparam_core_mode_result) = call->ooc->core_mode_result;
    if (!plan_stage(call, memory_after_reordering)) return false;
    release_analysis_arrays(call->state);
    return true;
}

/* What the numeric phases will take: in core, and at least out of core. Nothing is allocated. */
void estimate_memory(solver_call *call)
{
    solver_state *state = call->state;
    control_block *control = call->control;
    control->peak_analysis_kb = kilobytes(state->memory_peak);
    control->current_analysis_kb = kilobytes(state->memory_current);
    solve_sizes(state, call->ido_internal, call->nb);

    const int64_t nb = state->nb;
    state->core_mode = core_in;
    state->memory_count_only = 0;
    memory_plan(memory_numeric_work, 1, state);
    memory_plan(memory_factors, 1, state);
    state->nb = 1;
    memory_plan(memory_refinement_work, 1, state);
    state->nb = nb;
    control->solve_extra_kb = kilobytes(state->memory_count_only) + 1;
    call->ooc->incore_estimate = control->solve_extra_kb + control->current_analysis_kb + 1;

    state->core_mode = core_out;
    state->ooc_buffer_l = state->ooc_buffer_u = state->ooc_buffer_v = 0;
    const int64_t diagonal_words = ((call->neqns + 1) * call->element_words * call->real_bytes + 7) / 8; /* two stores */
    state->memory_count_only = state->memory_current + 2 * 8 * diagonal_words;
    release_core_lists(1, state);
    release_update_lists(1, state);
    memory_plan(memory_ooc_tree, 1, state);
    memory_plan(memory_ooc_arrays, 1, state);
    memory_plan(memory_factors, 1, state);
    memory_plan(memory_numeric_work, 1, state);
    call->ooc->ooc_min_kb = kilobytes(state->memory_count_only);
    const int64_t sides = 2 - control->symmetric_structure;
    call->ooc->ooc_solve_kb = kilobytes(2 * state->factor_block_u) * call->ooc->word_bytes +
                              sides * kilobytes(2 * state->factor_block_l) * call->ooc->element_bytes;
    state->core_mode = call->ooc->core_mode;
}
} // namespace

bool run_analysis(solver_call *call)
{
    if (!call->analyses) return true;
    choose_domains(call);
    if (!run_matching(call) || !run_stages(call)) return false;
    estimate_memory(call);
    call->state->analysed = 1;
    call->analysis_done = true;
    return true;
}
