/* Checks of a call against the handle, and the copies of its parameters that the memory plan reads. */
#include "solver/control.h"
#include "state/matrix_types.h"

namespace
{
bool has_numeric_form(int64_t matrix_type)
{
    for (const matrix_type_row &row : matrix_type_rows) {
        if (row.code == matrix_type) return true;
    }
    return false;
}

/* Schemes that do not work together with files. */
int64_t check_core_mode(solver_call *call)
{
    const int64_t core_mode = iparam_at(call->iparam, iparam_core_mode);
    if (iparam_at(call->iparam, iparam_scheme) == 1 && core_mode > 0) return code_two_level_ooc;
    if (call->analyses) {
        if (core_mode == 1 || core_mode == 2) call->control->sequential_analysis = 0;
        return code_none;
    }
    return call->control->sequential_analysis == 1 && core_mode > 0 ? code_sequential_ooc : code_none;
}

/* Values and vectors that the stages of this call will read. */
int64_t check_arrays(const solver_call *call)
{
    const control_block *control = call->control;
    const bool factors = call->last_digit >= phase_factorization && call->first_digit <= phase_factorization;
    const bool matches = call->analyses && control->matching > 0;
    const bool solves = call->last_digit >= phase_solve;
    const bool residuals = solves && (iparam_at(call->iparam, iparam_refinement_request) != 0 || control->cg_mode != 0 ||
                                      control->refactor_pending != 0 || iparam_at(call->iparam, iparam_perturbed_pivots) > 0 ||
                                      call->state->factor_table[call->matrix_number - 1].perturbed_pivots > 0);
    if (call->a == nullptr && (factors || matches || residuals)) return code_empty_arrays;
    if (solves && call->nb > 0 && (call->b == nullptr || call->x == nullptr)) return code_empty_arrays;
    return code_none;
}

int64_t check_call(solver_call *call)
{
    const bool numeric = call->last_digit > phase_analysis;
    int64_t code = apply_parameters(call);
    if (code == code_none && numeric && !has_numeric_form(call->matrix_type)) code = code_matrix_type;
    const int64_t core_code = check_core_mode(call);
    if (core_code != code_none) code = core_code;
    return code == code_none ? check_arrays(call) : code;
}

/* Parameters as the memory plan reads them. */
void publish_parameters(const solver_call *call)
{
    const control_block *control = call->control;
    solver_state *state = call->state;
    state->ordering_slack = control->ordering_slack;
    state->scaling_on = control->scaling_on;
    state->neqns = control->neqns;
    state->adjacency_size = control->adjacency_size;
    state->matrix_type = control->matrix_type;
    state->pivoting = control->pivoting;
    state->preprocessing = control->preprocessing;
    state->nproc = control->nproc;
    state->two_level = control->two_level;
    state->reproducible_units = control->reproducible_units;
    state->element_words = control->element_words;
    state->symmetric_structure = control->symmetric_structure;
    state->sequential_analysis = control->sequential_analysis;
    state->perm_mode = control->perm_mode;
    state->nnz_a = control->nnz_a;
    state->core_mode = call->ooc->core_mode;
    state->nb = call->nb;
    state->refinement_steps = iparam_at(call->iparam, iparam_refinement_request);
}
} // namespace

bool check_parameters(solver_call *call)
{
    const int64_t code = check_call(call);
    if (code != code_none) return refuse(call, code);
    call->ooc->element_bytes = call->element_words * call->real_bytes;
    call->ooc->ido_current = call->ido_internal;
    call->ooc->refinement_request = iparam_at(call->iparam, iparam_refinement_request);
    state_select(call->state, call->ido == ido_analyse ? 1 : call->matrix_number);
    publish_parameters(call);
    return true;
}
