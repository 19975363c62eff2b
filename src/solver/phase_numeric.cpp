/* Numeric phases: core decision, memory, then the runs of stage 5 that the call needs. */
#include <cstring>
#include <initializer_list>

#include "ooc/ooc.h"
#include "service/message_numbers.h"
#include "service/service.h"
#include "solver/control.h"
#include "solver/stage_arrays.h"

namespace
{
constexpr int64_t kilobytes_a_megabyte = 1024;

/* Structurally symmetric types are factored as unsymmetric ones; the exit puts the caller's code back. */
void enter_numeric_type(solver_call *call)
{
    control_block *control = call->control;
    if (call->matrix_type != 1 && call->matrix_type != 3) return;
    control->matrix_type = call->state->matrix_type = call->matrix_type + 10;
    control->perturbation_exponent = 13;
    control->matching = 0;
    control->scaling_on = call->state->scaling_on = 0;
}

bool factors(const solver_call *call)
{
    return call->ido_internal != ido_solve;
}

/* The two diagonal stores of this matrix number. */
bool make_diagonal_stores(solver_call *call)
{
    if (!factors(call)) return true;
    solver_state *state = call->state;
    const int64_t words = ((call->neqns + 1) * call->element_words * call->real_bytes + 7) / 8;
    for (array_block *block : {state->scale_current_row, state->scale_current_col}) {
        if (block->data != nullptr) continue;
        block->data = service_calloc(words, 8, 128);
        if (block->data == nullptr) return out_of_memory(call, memory_factors, 8 * words);
        block->count = words;
        state->memory_current += 8 * words;
        if (state->memory_current > state->memory_peak) state->memory_peak = state->memory_current;
    }
    return true;
}

/* The configured file name, which the handle keeps in slot 64 from its first use on. */
void configure_files(solver_call *call)
{
    auto *block = static_cast<char *>(call->handle[slot_ooc_file]);
    int64_t stored = 0;
    if (block != nullptr) std::memcpy(&stored, block, sizeof stored);
    ooc_configure(call->state->ooc_file_name, call->ooc, call->msglvl);
    call->state->ooc_file_name[ooc_file_block_bytes - 8] = '\0';
    if (block == nullptr) return;
    if (stored == 1) {
        std::memcpy(call->state->ooc_file_name, block + 8, ooc_file_block_bytes - 8);
        return;
    }
    stored = 1;
    std::memcpy(block, &stored, sizeof stored);
    std::strncpy(block + 8, call->state->ooc_file_name, ooc_file_block_bytes - 9);
}

bool refuse_ooc_memory(solver_call *call)
{
    call->ooc->stage_error = error_ooc_memory;
    call->error = call->internal_code = error_ooc_memory;
    return false;
}

void announce_core_mode(const solver_call *call, int64_t wanted, int64_t mode)
{
    if (call->msglvl == 0) return;
    const int32_t asked = mode == core_out ? message_ooc_asked : message_in_core_asked;
    const int32_t chosen = mode == core_out ? message_ooc_does_not_fit : message_in_core_fits;
    service_print_message(0, wanted == 1 ? chosen : asked, 0);
}

/* Compare the estimates with what the configuration allows. */
bool decide_core_mode(solver_call *call)
{
    ooc_state *ooc = call->ooc;
    if (ooc->core_mode != core_undecided) return true;
    const int64_t wanted = iparam_at(call->iparam, iparam_core_mode);
    if (wanted != 0) configure_files(call);
    int64_t mode = wanted == 0 ? int64_t{core_in} : int64_t{core_out};
    if (wanted == 1) {
        const int64_t allowed_kb = (ooc->max_core_size + ooc->max_swap_size) * kilobytes_a_megabyte;
        if (ooc->incore_estimate + 1 < allowed_kb) mode = core_in;
        if (mode == core_in) ooc->core_mode_result = -1;
    }
    if (mode == core_out && ooc->ooc_min_kb + ooc->ooc_solve_kb > ooc->max_core_size * kilobytes_a_megabyte) {
        if (call->msglvl != 0) {
            service_print_message(0, message_error_ooc_minimum, 2, (ooc->ooc_min_kb + ooc->ooc_solve_kb) / kilobytes_a_megabyte,
                                  static_cast<int32_t>(ooc->max_core_size));
        }
        return refuse_ooc_memory(call);
    }
    announce_core_mode(call, wanted, mode);
    ooc->core_mode = call->state->core_mode = mode;
    if (mode == core_out) ooc->core_mode_result = core_out;
    return true;
}

/* Bytes of all arrays beside the windows, up to a refined solve. */
int64_t bytes_beside_windows(solver_call *call)
{
    solver_state *state = call->state;
    state->ooc_buffer_l = state->ooc_buffer_u = state->ooc_buffer_v = 0;
    state->memory_count_only = state->memory_current;
    release_update_lists(1, state);
    solve_sizes(state, ido_solve, call->nb);
    for (const memory_stage stage : {memory_ooc_arrays, memory_factors, memory_numeric_work, memory_refinement_work}) {
        memory_plan(stage, 1, state);
    }
    return state->memory_count_only;
}

/* The file layer's arrays, once for an analysis, in place of those that are not needed any more. The update lists go when they have been
   written to the files that are kept. */
bool prepare_files(solver_call *call)
{
    solver_state *state = call->state;
    state->core_mode = call->ooc->core_mode;
    if (state->core_mode != core_out || state->ooc_prepared != 0) return true;
    release_core_lists(0, state);
    memory_plan(memory_ooc_tree, 0, state);
    if (state->memory_error_stage != 0) return plan_failed(call);
    const supernodal_structure structure = state_structure(state);
    const ooc_request request = stage_ooc_request(call, &structure);
    ooc_buffer_sizes(&request, bytes_beside_windows(call), &state->ooc_buffer_l, &state->ooc_buffer_u, &state->ooc_buffer_v);
    stage_controller(call, stage_ooc, call->ido_internal);
    if (call->ooc->stage_error != 0) {
        call->error = call->ooc->stage_error;
        return false;
    }
    if (call->control->internal_code == code_memory) return out_of_memory(call, memory_ooc_tree, 0);
    state->ooc_prepared = 1;
    release_update_lists(0, state);
    memory_plan(memory_ooc_arrays, 0, state);
    return state->memory_error_stage == 0 || plan_failed(call);
}

void exchange_windows(array_block *one, array_block *other)
{
    const array_block kept = *one;
    *one = *other;
    *other = kept;
}

/* Out of core one pair of windows serves all matrix numbers. */
void take_windows(solver_state *state)
{
    for (int64_t i = 0; i < state->max_fac_store; ++i) {
        if (state->factor_table_l[i]->data == nullptr || state->factor_current_l->data != nullptr) continue;
        exchange_windows(state->factor_table_l[i], state->factor_current_l);
        exchange_windows(state->factor_table_u[i], state->factor_current_u);
    }
}

/* Factors once for each matrix number; workspaces on every call. */
bool plan_numeric(solver_call *call)
{
    solver_state *state = call->state;
    control_block *control = call->control;
    if ((call->ido_internal == ido_factor || call->ido_internal == ido_factor_solve) && control->cg_mode == 0) {
        control->refactor_pending = 1;
    }
    if (state->core_mode == core_out) take_windows(state);
    if (state->factor_current_l->data == nullptr || state->factor_current_u->data == nullptr ||
        state->factor_current_perm->data == nullptr) {
        memory_plan(memory_factors, 0, state);
        if (state->memory_error_stage != 0) return plan_failed(call);
    }
    solve_sizes(state, call->ido_internal, call->nb);
    memory_plan(memory_numeric_work, 0, state);
    return state->memory_error_stage == 0 || plan_failed(call);
}

void publish_pivots(const solver_call *call)
{
    const control_block *control = call->control;
    iparam_at(call->iparam, iparam_perturbed_pivots) = control->perturbed_pivots;
    iparam_at(call->iparam, iparam_positive_pivots) = control->positive_pivots;
    iparam_at(call->iparam, iparam_negative_pivots) = control->negative_pivots;
}

/* Turn the outcome of a run into the public one. */
bool stage_succeeded(solver_call *call)
{
    const int64_t code = call->control->internal_code;
    if (call->ooc->stage_error != 0) {
        call->error = call->ooc->stage_error;
        call->internal_code = code;
        return false;
    }
    if (code == code_memory) return out_of_memory(call, memory_refinement_work, 0);
    if (code == code_none) return true;
    call->error = error_factorization;
    call->internal_code = code;
    return false;
}

bool run_direct(solver_call *call)
{
    stage_controller(call, stage_numeric, call->ido_internal);
    publish_pivots(call);
    const control_block *control = call->control;
    if (control->internal_code != code_memory) {
        iparam_at(call->iparam, iparam_refinement_done) = control->refinement_done;
        iparam_at(call->iparam, iparam_core_mode_result) = call->ooc->core_mode_result;
    }
    if (stage_succeeded(call)) return true;
    if (call->error == error_factorization) {
        iparam_at(call->iparam, iparam_failing_row) = control->failed_row;
        if (call->internal_code > 0) call->internal_code = -1;
    }
    return false;
}

/* A solve alone: the caller's count of perturbed pivots overrides the stored one, and a refined solve is left to the run behind. */
bool run_solve(solver_call *call)
{
    control_block *control = call->control;
    int64_t &perturbed = iparam_at(call->iparam, iparam_perturbed_pivots);
    if (perturbed > 0)
        control->perturbed_pivots = perturbed;
    else if (perturbed + control->perturbed_pivots == 0)
        perturbed = control->perturbed_pivots = 0;
    return !refinement_due(call) || control->cg_mode != 0 ? run_direct(call) : true;
}

bool needs_refinement(const solver_call *call)
{
    return call->last_digit >= phase_solve && call->control->cg_mode == 0 && refinement_due(call);
}

bool run_refined_solve(solver_call *call)
{
    memory_plan(memory_refinement_work, 0, call->state);
    if (call->state->memory_error_stage != 0) return plan_failed(call);
    call->refinement_planned = true;
    stage_controller(call, stage_numeric, ido_solve);
    iparam_at(call->iparam, iparam_refinement_done) = call->control->refinement_done;
    return stage_succeeded(call);
}
} // namespace

bool refinement_due(const solver_call *call)
{
    const int64_t window = iparam_at(call->iparam, iparam_partial_solve);
    const bool hides = window >= 1 && window <= 3 && iparam_at(call->iparam, iparam_partial_window) >= 1;
    return !hides && (call->control->perturbed_pivots > 0 || iparam_at(call->iparam, iparam_refinement_request) != 0);
}

bool run_numeric(solver_call *call)
{
    if (call->last_digit < phase_factorization) return true;
    enter_numeric_type(call);
    if (!factors(call)) call->control->perturbed_pivots = call->state->factor_table[call->matrix_number - 1].perturbed_pivots;
    if (!make_diagonal_stores(call) || !decide_core_mode(call) || !prepare_files(call) || !plan_numeric(call)) return false;
    if (!(factors(call) ? run_direct(call) : run_solve(call))) return false;
    if (needs_refinement(call) && !run_refined_solve(call)) return false;
    call->control->solve_extra_kb = kilobytes(call->state->memory_current) - call->control->current_analysis_kb + 1;
    return true;
}
