#include <cmath>
#include <cstring>

#include "service/service.h"
#include "solver/control.h"
#include "state/matrix_types.h"

namespace
{
int64_t magnitude(int64_t value)
{
    if (value == INT64_MIN) return INT64_MAX;
    return value < 0 ? -value : value;
}

void count_call(void **handle, int64_t *call_count)
{
    std::memcpy(call_count, &handle[slot_call_count], sizeof *call_count);
    ++*call_count;
    std::memcpy(&handle[slot_call_count], call_count, sizeof *call_count);
}

/* Open the call: count it, start its clock. */
void begin_call(solver_call *call)
{
    int64_t call_count = 0;
    count_call(call->handle, &call_count);
    call->flags = run_flags{};
    phase_times &times = call->control->times;
    if (call_count == 1) {
        times.time_fulladj = times.time_reorder = times.time_symbfct = times.time_parlist = times.time_a_to_lu = 0.0;
        times.time_numfct = times.time_solve = times.time_cgs = 0.0;
    }
    times.time_malloc = 0.0;
    times.time_total = times.time_stamp = service_seconds();
    if (call->analyses) {
        int64_t &threads = iparam_at(call->iparam, iparam_threads);
        if (threads < 1) threads = 1;
        call->control->nproc = threads;
        call->control->sequential_analysis = threads == 1 ? 1 : 0;
    }
}

/* iparam(4) holds the mode of the hybrid iteration in its last digit, with the sign, and the digits of the tolerance ahead of it. */
void decode_hybrid(int64_t *iparam, control_block *control)
{
    const int64_t request = iparam_at(iparam, iparam_hybrid);
    control->cg_mode = request;
    if (iparam_at(iparam, iparam_use_defaults) == 1) {
        control->diagonal_scaled = control->solve_step_level = 0;
        control->cg_mode = request % 10;
        const int64_t digits = magnitude(request / 10);
        if (digits != 0) control->times.cgs_tolerance = std::exp(-2.302585092994046 * static_cast<double>(digits));
    }
    control->perm_mode = iparam_at(iparam, iparam_perm_mode);
    control->perturbation_exponent = iparam_at(iparam, iparam_perturbation_exponent);
    control->iparam25_copy = iparam_at(iparam, iparam_solve_scheme);
}

int64_t check_step(solver_call *call)
{
    const bool single_step = call->ido >= ido_solve_forward && call->ido <= ido_solve_backward;
    call->control->solve_step_code = single_step ? call->ido - ido_solve_forward + 1 : 0;
    call->control->solve_step_saved = call->control->solve_step_code;
    return single_step || (call->ido >= ido_release_all && call->ido <= ido_solve) ? code_none : code_ido;
}

int64_t check_store(const solver_call *call)
{
    if (call->stored_max_fac_store >= 1 && call->max_fac_store > call->stored_max_fac_store) return code_max_fac_store;
    if (call->matrix_number > call->max_fac_store) return code_matrix_number_above;
    if (call->matrix_number < 1 && call->ido_internal > ido_analyse) return code_matrix_number_below;
    return code_none;
}

/* Can factors laid out for one type take the values of the other? */
bool same_layout(int64_t stored, int64_t matrix_type)
{
    return element_words_of(stored) == element_words_of(matrix_type) && stored % 2 == 0 && matrix_type % 2 == 0;
}

int64_t check_type(const solver_call *call)
{
    const int64_t size = magnitude(call->matrix_type);
    if (!((size >= 1 && size <= 6) || size == 11 || call->matrix_type == 13)) return code_matrix_type;
    const int64_t stored = call->stored_matrix_type;
    if (stored == 0 || stored == call->matrix_type || stored == -call->matrix_type) return code_none;
    if (size / 2 != magnitude(stored) / 2) return code_matrix_type_changed;
    return call->analyses || same_layout(stored, call->matrix_type) ? code_none : code_matrix_type_changed;
}

int64_t check_sizes(const solver_call *call)
{
    if (call->stored_neqns >= 1 && call->neqns != call->stored_neqns) return code_neqns_changed;
    if (call->neqns < 1) return code_neqns;
    if (call->nnz < call->neqns) return code_entry_count;
    if (!call->analyses && call->stored_nnz >= 1 && call->nnz != call->stored_nnz) return code_entry_count; /* the map has the old size */
    if (call->nb < 1 && call->ido_internal >= ido_solve) return code_nb;
    return code_none;
}

int64_t check_iparam(int64_t *iparam)
{
    if (iparam_at(iparam, iparam_overwrite_rhs) >= 2) return code_overwrite_rhs;
    const int64_t preprocessing = iparam_at(iparam, iparam_preprocessing);
    return preprocessing >= 4 || preprocessing < 0 ? code_preprocessing : code_none;
}

int64_t check_arguments(solver_call *call)
{
    int64_t code = check_step(call);
    if (code == code_none) code = check_store(call);
    if (code == code_none) code = check_type(call);
    if (code == code_none) code = check_sizes(call);
    if (code == code_none) code = check_iparam(call->iparam);
    if (code == code_none && iparam_at(call->iparam, iparam_matrix_checker) != 0) {
        code = check_matrix(call->matrix_type, call->neqns, call->work_ia, call->work_ja, call->iparam);
    }
    return code;
}

/* A change of sign asks for a larger update buffer: pivot blocks of two by two need room for the scaled panel as well. */
void raise_growth(int64_t matrix_type, control_block *control)
{
    if (control->matrix_type == matrix_type || matrix_type >= 0) return;
    const int64_t wanted = matrix_type == -2 || matrix_type == -4 ? 4 : 0;
    if (control->growth_denominator < 1 || control->growth_denominator >= wanted) return;
    control->growth_numerator = control->growth_numerator * wanted / control->growth_denominator;
    control->growth_denominator = wanted;
}

/* 1 plain transpose, 2 conjugate transpose. Where a type equals its own transpose of one kind the wish falls away. */
int64_t decode_transpose(int64_t request, int64_t matrix_type)
{
    const int64_t size = magnitude(matrix_type);
    int64_t mode = request;
    if (size % 2 == 0 && !(mode == 2 && size == 4) && !(mode == 1 && size == 6)) mode = 0;
    if (mode == 1) return size == 4 || matrix_type == 3 || matrix_type == 6 || matrix_type == 13 ? 2 : 1;
    return mode == 2 ? 1 : 0;
}

/* Is there a chain of stages for this ido, and has what it builds on been done? */
bool has_stages(const solver_call *call)
{
    if (call->analyses) return true;
    if (call->state->analysed == 0) return false;
    if (call->ido_internal == ido_factor || call->ido_internal == ido_factor_solve) return true;
    return call->ido_internal == ido_solve && call->state->factor_table[call->matrix_number - 1].valid != 0;
}

void store_arguments(solver_call *call)
{
    control_block *control = call->control;
    raise_growth(call->matrix_type, control);
    control->max_fac_store = call->max_fac_store;
    control->neqns = call->neqns;
    control->neqns_plus_one = call->neqns + 1;
    control->nnz_a = call->nnz;
    control->matrix_type = call->matrix_type;
    call->state->nb = call->nb;
    control->transpose_mode = decode_transpose(iparam_at(call->iparam, iparam_transpose), call->matrix_type);
    control->element_words = call->element_words;
    control->overwrite_rhs = iparam_at(call->iparam, iparam_overwrite_rhs) == 1 ? 1 : 0;
    control->message_flag = call->msglvl != 0 ? 1 : 0;
    control->pivoting = iparam_at(call->iparam, iparam_pivoting);
}

/* What an analysis decides for all later calls on the handle. */
void settle_scheme(solver_call *call)
{
    control_block *control = call->control;
    int64_t *iparam = call->iparam;
    const bool out_of_core = iparam_at(iparam, iparam_core_mode) != 0;
    int64_t &preprocessing = iparam_at(iparam, iparam_preprocessing);

    int64_t two_level = control->nproc == 1 || out_of_core ? 0 : iparam_at(iparam, iparam_scheme);
    if (preprocessing != 2 && preprocessing != 3) two_level = 0;
    const int64_t units = iparam_at(iparam, iparam_reproducible_units);
    control->reproducible_units = out_of_core || units < 0 ? 0 : units;
    if (control->reproducible_units != 0) {
        if (preprocessing != 3) preprocessing = 2;
        two_level = 2;
        control->sequential_analysis = 0;
    }
    control->two_level = two_level;
    control->preprocessing = preprocessing;
    control->panel_columns = choose_panel_columns(call->matrix_type, control->nproc, call->neqns, two_level, control->reproducible_units,
                                                  iparam_at(iparam, iparam_core_mode));
}

void settle_structure(const solver_call *call)
{
    control_block *control = call->control;
    const bool symmetric = call->matrix_type % 2 == 0 || call->matrix_type < 0;
    control->symmetric_structure = symmetric ? 1 : 0;
    const int64_t off_diagonal = call->nnz - call->neqns;
    control->offdiag_count = symmetric ? off_diagonal : off_diagonal / 2;
    control->adjacency_size = call->matrix_type < 11 ? 2 * control->offdiag_count : call->neqns + 2 * call->nnz;
}
} // namespace

int64_t element_words_of(int64_t matrix_type)
{
    for (const matrix_type_row &row : matrix_type_rows) {
        if (row.code == matrix_type) return row.element_words;
    }
    return 1;
}

int64_t apply_parameters(solver_call *call)
{
    begin_call(call);
    decode_hybrid(call->iparam, call->control);
    const int64_t code = check_arguments(call);
    if (code != code_none) return code;
    iparam_at(call->iparam, iparam_matrix_checker) = 0;
    if (!has_stages(call)) return code_wrong_step;
    store_arguments(call);
    if (call->analyses) {
        settle_structure(call);
        settle_scheme(call);
    }
    return code_none;
}
