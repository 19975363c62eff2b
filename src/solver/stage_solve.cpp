/* The solving steps of the numeric stage: the direct solve with refinement, and the iteration with the factors at hand. */
#include <cmath>
#include <complex>

#include "service/service.h"
#include "solver/numeric_run.h"

namespace
{
constexpr double shortest_duration = 1.000000013351432e-10; /* seconds; a solve below it cannot be compared with anything */
constexpr double iteration_share = 0.44999998807907104;     /* of a factorization's time that the iteration may take */
constexpr int64_t budget_cap = 100, least_ooc_budget = 10;

template <typename value_t>
solve_input<value_t> solve_view(numeric_run<value_t> *run)
{
    const solver_call *call = run->call;
    const solver_state *s = call->state;
    const control_block *control = s->control;
    const factor_record *record = numeric_record(call);
    solve_input<value_t> input{};
    input.matrix_type = record->matrix_type;
    input.symmetric = control->symmetric_structure;
    input.pivoting = record->pivoting;
    input.nb = call->nb;
    input.threads = control->nproc;
    input.entries_per_thread = solve_entries_per_thread;
    input.reproducible_units = control->reproducible_units;
    input.iparam25_copy = control->iparam25_copy;
    input.solve_step_code = control->solve_step_code;
    input.transpose_mode = control->transpose_mode;
    input.overwrite_rhs = control->overwrite_rhs;
    input.matching = control->matching;
    input.scaling_on = control->scaling_on;
    input.window_first = call->ooc->solve_window_first;
    input.window_count = call->ooc->solve_window_count;
    input.scale_row = numeric_scale(call, 0);
    input.scale_col = numeric_scale(call, call->neqns);
    input.row_order = stage_row_order(s, array_matching_order) == nullptr ? nullptr : numeric_row_order(call);
    input.structure = &run->structure;
    input.store = &run->store;
    input.b = static_cast<value_t *>(call->b);
    input.x = static_cast<value_t *>(call->x);
    input.work = static_cast<value_t *>(get_from_c_structure(array_update_buffer, s));
    input.work_entries = s->solve_work_a / control->element_words;
    return input;
}

template <typename value_t>
residual_matrix<value_t> matrix_view(const numeric_run<value_t> *run)
{
    const solver_call *call = run->call;
    const control_block *control = call->control;
    return {control->matrix_type,
            call->neqns,
            control->symmetric_structure,
            control->transpose_mode,
            call->work_ia,
            call->work_ja,
            static_cast<const value_t *>(call->work_a),
            control->reproducible_units};
}

void choose_window(const solver_call *call)
{
    const int64_t first = iparam_at(call->iparam, iparam_partial_solve), count = iparam_at(call->iparam, iparam_partial_window);
    const bool both = first != 0 && count != 0;
    call->ooc->solve_window_first = both ? first : 0;
    call->ooc->solve_window_count = both ? count : 0;
}

/* Iterations that cost less than a new factorization, from the time of one solve. */
template <typename value_t>
void set_budget(numeric_run<value_t> *run, double duration)
{
    control_block *control = run->call->control;
    const int64_t mode = control->cg_mode;
    double budget = 0.0;
    if (duration > shortest_duration) {
        const double weight = 3.0 * std::abs(static_cast<double>(mode));
        budget = weight * control->times.time_numfct / duration * iteration_share + 1.0;
        if (budget < 2.0) budget = 2.0;
        if (budget > budget_cap) budget = budget_cap;
    }
    run->budget = static_cast<int64_t>(budget);
    control->cgs_max_iterations = run->budget;
    control->cgs_check_iteration = static_cast<int64_t>(static_cast<double>(run->budget) * 0.5 + 1.0);
}

/* The bounds of an iteration that is about to run: files make a solve dear, and no factorization may follow a negative mode. */
template <typename value_t>
void bound_iteration(numeric_run<value_t> *run)
{
    control_block *control = run->call->control;
    if (run->call->ooc->core_mode == core_out && run->budget > 0 && run->budget < least_ooc_budget) run->budget = least_ooc_budget;
    if (control->cg_mode < 0) run->budget = budget_cap_no_factor;
    control->cgs_max_iterations = run->budget;
    control->cgs_check_iteration = static_cast<int64_t>(static_cast<double>(run->budget) * 0.5 + 1.0);
}

template <typename value_t>
hybrid_result iterate(numeric_run<value_t> *run, const solve_input<value_t> *solve, int64_t overwrite)
{
    const control_block *control = run->call->control;
    const residual_matrix<value_t> matrix = matrix_view(run);
    const hybrid_request request{control->cg_mode,
                                 control->times.cgs_tolerance,
                                 static_cast<double>(control->cgs_divergence_bound),
                                 control->cgs_max_iterations,
                                 control->cgs_check_iteration,
                                 overwrite};
    hybrid_result result{};
    auto *work = static_cast<value_t *>(get_from_c_structure(array_solve_work, run->call->state));
    hybrid_iteration(solve, &matrix, &request, work, control->hybrid_work_words, &result);
    return result;
}

/* Preconditioned iteration behind a first solve into x. The result of a failure is in iparam(20), the consequence in internal_code. */
template <typename value_t>
int64_t try_iteration(numeric_run<value_t> *run)
{
    solver_call *call = run->call;
    control_block *control = call->control;
    int64_t &published = iparam_at(call->iparam, iparam_hybrid_result);
    const int64_t overwrite = control->overwrite_rhs;
    control->overwrite_rhs = 0;
    solve_input<value_t> solve = solve_view(run);
    solve.window_first = solve.window_count = 0;
    control->overwrite_rhs = overwrite;
    const double start = service_seconds();
    control->internal_code = solution_step(&solve);
    if (numeric_failed(call)) return -1;
    set_budget(run, service_seconds() - start);
    bound_iteration(run);
    if (run->budget < 1) {
        if (!call->factored) published = -5;
        return -1;
    }
    const hybrid_result result = iterate(run, &solve, overwrite);
    published = result.status == 0 ? result.iterations : result.status - 10 * result.iterations;
    if (result.solve_error == code_memory || result.status == -4)
        control->internal_code = code_memory;
    else if (result.solve_error != 0)
        control->internal_code = code_hybrid;
    return result.status;
}
} // namespace

template <typename value_t>
numeric_step hybrid_step(numeric_run<value_t> *run)
{
    solver_call *call = run->call;
    control_block *control = call->control;
    if (!open_store(run, ooc_purpose::solve)) return numeric_step::end;
    const double start = service_seconds();
    const int64_t status = try_iteration(run);
    close_store(run, ooc_purpose::solve);
    control->times.time_stamp = service_seconds();
    control->times.time_cgs = control->times.time_stamp - start;
    call->flags.cgs = 1;
    if (numeric_failed(call) || status == 0) return numeric_step::end;
    control->refactor_pending = 1;
    if (!call->factored && control->cg_mode > 0 && run->ido_internal < 30) return numeric_step::decide;
    control->internal_code = code_hybrid;
    return numeric_step::end;
}

namespace
{
template <typename value_t>
void refine(numeric_run<value_t> *run, const solve_input<value_t> *solve, double sum_rhs, value_t *work)
{
    solver_call *call = run->call;
    control_block *control = call->control;
    const residual_matrix<value_t> matrix = matrix_view(run);
    refinement_result result{};
    control->internal_code = refine_solution(solve, &matrix, iparam_at(call->iparam, iparam_refinement_request), sum_rhs, work, &result);
    control->refinement_done = result.steps;
    if (result.automatic_limit != 0) iparam_at(call->iparam, iparam_hybrid_result) = -34;
}

template <typename value_t>
void solve_and_refine(numeric_run<value_t> *run)
{
    solver_call *call = run->call;
    control_block *control = call->control;
    const bool refines = refinement_due(call) && control->solve_step_saved == 0 && call->refinement_planned && call->nb > 0;
    auto *work = static_cast<value_t *>(get_from_c_structure(array_solve_work, call->state));
    choose_window(call);
    const solve_input<value_t> solve = solve_view(run);
    double sum_rhs = 0.0;
    if (refines) {
        const int64_t count = call->neqns * call->nb;
        sum_rhs = sum_of_moduli(count, solve.b);
        for (int64_t i = 0; control->overwrite_rhs == 1 && i < count; ++i) work[i] = solve.b[i];
    }
    const double start = refines ? service_seconds() : control->times.time_stamp;
    control->internal_code = solution_step(&solve);
    if (call->ooc->stage_error != 0) return;
    iparam_at(call->iparam, iparam_hybrid_result) = 0;
    control->times.time_stamp = service_seconds();
    control->times.time_solve = control->times.time_stamp - start;
    call->flags.solve = 1;
    if (control->internal_code != code_none) return;
    set_budget(run, control->times.time_solve);
    if (!refines) return;
    refine(run, &solve, sum_rhs, work);
    control->times.time_stamp = service_seconds();
}
} // namespace

template <typename value_t>
numeric_step direct_step(numeric_run<value_t> *run)
{
    if (!open_store(run, ooc_purpose::solve)) return numeric_step::end;
    solve_and_refine(run);
    close_store(run, ooc_purpose::solve);
    return numeric_step::end;
}

#define INSTANTIATE(V)                                                                                                                     \
    template numeric_step hybrid_step<V>(numeric_run<V> *);                                                                                \
    template numeric_step direct_step<V>(numeric_run<V> *);
INSTANTIATE(double)
INSTANTIATE(float)
INSTANTIATE(std::complex<double>)
INSTANTIATE(std::complex<float>)
