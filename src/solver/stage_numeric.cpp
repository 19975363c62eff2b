/* Stage 5: factorization, direct solve with refinement, and the hybrid iteration with the factors at hand, in the order that the call and
   what earlier calls learnt ask for. */
#include <complex>

#include "factor/factor.h"
#include "service/service.h"
#include "solve/solve.h"
#include "solver/control.h"
#include "solver/stage_arrays.h"

namespace
{
enum class step { hybrid, decide, factor, direct, end };

constexpr double shortest_duration = 1.000000013351432e-10; /* seconds; a solve below it cannot be compared with anything */
constexpr double iteration_share = 0.44999998807907104;     /* of a factorization's time that the iteration may take */
constexpr int64_t budget_cap = 100, budget_cap_no_factor = 150, budget_after_factor = 4, least_budget = 5, least_ooc_budget = 10;

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

int64_t *words(const solver_state *state, int64_t number)
{
    return static_cast<int64_t *>(get_from_c_structure(number, state));
}

work_lists lists_view(const solver_state *s, const supernodal_structure *structure)
{
    work_lists lists{};
    const control_block *control = s->control;
    lists.work_order = words(s, array_work_order);
    if (control->sequential_analysis != 0) return lists;
    lists.two_level = control->two_level;
    lists.first_top = structure->supernodes - control->task_bound + 1;
    lists.list_start = words(s, array_list_start);
    lists.list_source = words(s, array_list_source);
    lists.list_rows = words(s, array_list_rows);
    lists.ready_start = words(s, array_list_count);
    lists.ready_source = words(s, array_ready_source);
    lists.ready_rows = words(s, array_ready_rows);
    lists.status = words(s, array_status);
    lists.cursor = words(s, array_cursor);
    return lists;
}

template <typename value_t>
void open_run(solver_call *call, int64_t ido_internal, numeric_run<value_t> *run)
{
    const solver_state *s = call->state;
    const int64_t cg_mode = call->control->cg_mode;
    run->call = call;
    run->ido_internal = ido_internal;
    run->want_hybrid = cg_mode != 0 && call->nb > 0;
    if (cg_mode < 0) call->control->cgs_max_iterations = budget_cap_no_factor;
    run->budget = call->control->cgs_max_iterations;
    run->structure = state_structure(s);
    run->map = stage_position_map(s);
    run->lists = lists_view(s, &run->structure);
    run->store.lnz = static_cast<value_t *>(s->factor_current_l->data);
    run->store.unz = static_cast<value_t *>(s->factor_current_u->data);
    run->store.pivots = words(s, array_pivots) + (call->matrix_number - 1) * call->neqns;
    run->store.diagonal = static_cast<value_t *>(s->scale_current_row->data);
    run->store.diagonal_unscaled = static_cast<value_t *>(s->scale_current_col->data);
    run->files = stage_ooc_request(call, &run->structure);
}

factor_record *record_of(const solver_call *call)
{
    return &call->state->factor_table[call->matrix_number - 1];
}

/* Row order that the stored factorization was made with. */
int64_t *row_order_slice(const solver_call *call)
{
    int64_t *orders = words(call->state, array_row_order);
    return orders == nullptr ? nullptr : orders + (call->matrix_number - 1) * call->neqns;
}

const double *scale_factors(const solver_call *call, int64_t offset)
{
    if (call->control->scaling_on == 0) return nullptr;
    return static_cast<const double *>(get_from_c_structure(array_scale, call->state)) + offset;
}

/* Reach the factors through files while core_mode says so. False after a fault, which is in stage_error or internal_code. */
template <typename value_t>
bool open_store(numeric_run<value_t> *run, ooc_purpose purpose)
{
    const solver_call *call = run->call;
    run->store.pager = nullptr;
    if (call->ooc->core_mode != core_out) return true;
    run->store.pager = ooc_open(&run->files, purpose, run->store.lnz, call->state->ooc_buffer_u, run->store.unz, call->state->ooc_buffer_v);
    if (run->store.pager == nullptr && call->ooc->stage_error == code_memory) {
        call->ooc->stage_error = 0;
        call->control->internal_code = code_memory;
    }
    return run->store.pager != nullptr;
}

template <typename value_t>
void close_store(numeric_run<value_t> *run, ooc_purpose purpose)
{
    if (run->store.pager == nullptr) return;
    const int64_t fault = ooc_close(&run->files, purpose);
    if (fault != 0 && run->call->ooc->stage_error == 0) run->call->ooc->stage_error = fault;
    run->store.pager = nullptr;
}

bool failed(const solver_call *call)
{
    return call->ooc->stage_error != 0 || call->control->internal_code != code_none;
}

/* ---- factorization ---- */

template <typename value_t>
factor_input<value_t> factor_view(numeric_run<value_t> *run)
{
    const solver_call *call = run->call;
    const solver_state *s = call->state;
    const control_block *control = s->control;
    factor_input<value_t> input{};
    input.matrix_type = control->matrix_type;
    input.nproc = run->store.pager == nullptr ? control->nproc : ooc_factor_threads(&run->files);
    input.single_thread = control->sequential_analysis;
    input.pivoting = control->pivoting;
    input.perturbation_exponent = control->perturbation_exponent;
    input.callback_on = control->callback_on;
    input.message_flag = control->message_flag;
    input.scaling_on = control->scaling_on;
    input.nnz_a = s->nnz_a;
    input.a = static_cast<const value_t *>(call->work_a);
    input.scale_row = scale_factors(call, 0);
    input.scale_col = scale_factors(call, call->neqns);
    input.row_order = stage_row_order(s, array_matching_order);
    input.structure = &run->structure;
    input.map = &run->map;
    input.lists = &run->lists;
    input.store = &run->store;
    input.thread_rows = words(s, array_thread_rows);
    input.update_buffer = static_cast<value_t *>(get_from_c_structure(array_update_buffer, s));
    input.buffer_entries = control->blocks_scratch;
    input.entries_per_thread = factor_entries_per_thread;
    return input;
}

/* What later solves must know of this factorization. */
void record_factorization(const solver_call *call, const factor_result &result)
{
    control_block *control = call->control;
    control->perturbed_pivots = result.perturbed;
    control->positive_pivots = result.positive;
    control->negative_pivots = result.negative;
    control->failed_row = result.failed_row;
    factor_record *record = record_of(call);
    record->valid = result.error == 0 && call->ooc->stage_error == 0 ? 1 : 0;
    record->matrix_type = control->matrix_type;
    record->pivoting = control->pivoting;
    record->perturbed_pivots = result.perturbed;
    const int64_t *order = stage_row_order(call->state, array_matching_order);
    int64_t *kept = row_order_slice(call);
    for (int64_t i = 0; order != nullptr && i < call->neqns; ++i) kept[i] = order[i];
}

template <typename value_t>
void factor_values(numeric_run<value_t> *run)
{
    solver_call *call = run->call;
    control_block *control = call->control;
    control->perturbed_pivots = control->positive_pivots = control->negative_pivots = control->failed_row = 0;
    iparam_at(call->iparam, iparam_hybrid_result) = 0;
    record_of(call)->valid = 0;
    const double start = service_seconds();
    if (!open_store(run, ooc_purpose::factorize)) return;
    const factor_input<value_t> input = factor_view(run);
    factor_result result{};
    numeric_dispatch(&input, &result);
    close_store(run, ooc_purpose::factorize);
    record_factorization(call, result);
    control->internal_code = result.error == code_memory || result.failed_row == 0 ? result.error : result.failed_row;
    control->times.time_numfct = service_seconds() - start;
    control->times.time_stamp = service_seconds();
    control->times.time_a_to_lu = 0.0; /* the factorization places the values itself */
    call->flags.a_to_lu = call->flags.numfct = 1;
    call->factored = true;
}

/* A refined solve without the iteration needs array 43, which the driver plans before a run of its own. */
template <typename value_t>
step factor_step(numeric_run<value_t> *run)
{
    solver_call *call = run->call;
    control_block *control = call->control;
    factor_values(run);
    if (failed(call)) return step::end;
    control->refactor_pending = control->refinement_done = 0;
    run->budget = control->cgs_max_iterations = budget_after_factor;
    if (run->ido_internal == ido_analyse_factor || run->ido_internal == ido_factor) return step::end;
    if (run->want_hybrid) return step::hybrid;
    return refinement_due(call) && !call->refinement_planned ? step::end : step::direct;
}

/* ---- solves ---- */

template <typename value_t>
solve_input<value_t> solve_view(numeric_run<value_t> *run)
{
    const solver_call *call = run->call;
    const solver_state *s = call->state;
    const control_block *control = s->control;
    const factor_record *record = record_of(call);
    solve_input<value_t> input{};
    input.matrix_type = record->matrix_type;
    input.symmetric = control->symmetric_structure;
    input.pivoting = record->pivoting;
    input.nb = call->nb;
    input.threads = control->nproc;
    input.reproducible_units = control->reproducible_units;
    input.iparam25_copy = control->iparam25_copy;
    input.solve_step_code = control->solve_step_code;
    input.transpose_mode = control->transpose_mode;
    input.overwrite_rhs = control->overwrite_rhs;
    input.matching = control->matching;
    input.scaling_on = control->scaling_on;
    input.window_first = call->ooc->solve_window_first;
    input.window_count = call->ooc->solve_window_count;
    input.scale_row = scale_factors(call, 0);
    input.scale_col = scale_factors(call, call->neqns);
    input.row_order = stage_row_order(s, array_matching_order) == nullptr ? nullptr : row_order_slice(call);
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
            static_cast<const value_t *>(call->work_a)};
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
        const double weight = static_cast<double>(3 * (mode < 0 ? -mode : mode));
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
    if (failed(call)) return -1;
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

template <typename value_t>
step hybrid_step(numeric_run<value_t> *run)
{
    solver_call *call = run->call;
    control_block *control = call->control;
    if (!open_store(run, ooc_purpose::solve)) return step::end;
    const double start = service_seconds();
    const int64_t status = try_iteration(run);
    close_store(run, ooc_purpose::solve);
    control->times.time_stamp = service_seconds();
    control->times.time_cgs = control->times.time_stamp - start;
    call->flags.cgs = 1;
    if (failed(call) || status == 0) return step::end;
    control->refactor_pending = 1;
    if (!call->factored && control->cg_mode > 0 && run->ido_internal < 30) return step::decide;
    control->internal_code = code_hybrid;
    return step::end;
}

/* A new factorization, or the old factors once more? */
template <typename value_t>
step decide_step(numeric_run<value_t> *run)
{
    const solver_call *call = run->call;
    const control_block *control = call->control;
    const bool spent = control->cg_mode >= 0 && run->budget < least_budget;
    const bool invalid = record_of(call)->valid == 0;
    if (invalid || spent || iparam_at(call->iparam, iparam_hybrid_result) < 0 || control->refactor_pending == 1) return step::factor;
    if (run->ido_internal == ido_analyse_factor || run->ido_internal == ido_factor) return step::end;
    return run->want_hybrid ? step::hybrid : step::direct;
}

/* ---- direct solve and refinement ---- */

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
    const double start = service_seconds();
    control->internal_code = solution_step(&solve);
    if (call->ooc->stage_error != 0) return;
    iparam_at(call->iparam, iparam_hybrid_result) = 0;
    control->times.time_stamp = service_seconds();
    control->times.time_solve = control->times.time_stamp - start;
    call->flags.solve = 1;
    if (control->internal_code != code_none) return;
    set_budget(run, control->times.time_solve);
    if (refines) refine(run, &solve, sum_rhs, work);
}

template <typename value_t>
step direct_step(numeric_run<value_t> *run)
{
    if (!open_store(run, ooc_purpose::solve)) return step::end;
    solve_and_refine(run);
    close_store(run, ooc_purpose::solve);
    return step::end;
}

template <typename value_t>
step first_step(const numeric_run<value_t> *run)
{
    if (run->ido_internal < 30) return step::decide;
    if (run->call->control->refactor_pending == 1) return step::factor;
    return run->want_hybrid ? step::hybrid : step::direct;
}
} // namespace

template <typename value_t>
void stage_numeric_work(solver_call *call, int64_t ido_internal)
{
    numeric_run<value_t> run{};
    open_run(call, ido_internal, &run);
    for (step next = first_step(&run); next != step::end;) {
        switch (next) {
        case step::hybrid:
            next = hybrid_step(&run);
            break;
        case step::decide:
            next = decide_step(&run);
            break;
        case step::factor:
            next = factor_step(&run);
            break;
        case step::direct:
            next = direct_step(&run);
            break;
        case step::end:
            break;
        }
    }
}

ooc_request stage_ooc_request(const solver_call *call, const supernodal_structure *structure)
{
    const solver_state *s = call->state;
    const array_block *tables = s->array[array_ooc_tree];
    ooc_request request = {s->ooc,
                           s->transfer,
                           s->ooc_file_name,
                           structure,
                           call->matrix_number,
                           s->symmetric_structure,
                           call->ooc->element_bytes,
                           s->nproc,
                           s->control->message_flag,
                           static_cast<int64_t *>(tables->data),
                           tables->count,
                           {s->ooc_buffer_u, s->ooc_buffer_v},
                           {}};
    const position_map map = stage_position_map(s);
    const auto add = [&request](ooc_file_number number, const int64_t *data, int64_t count) { request.index[number - 1] = {data, count}; };
    add(ooc_file_lindx, structure->lindx, s->lindx_size);
    add(ooc_file_map_src_l, map.src_l, map.length_l);
    add(ooc_file_map_src_u, map.src_u, map.length_u);
    add(ooc_file_map_dest_l, map.dest_l, map.length_l);
    add(ooc_file_map_dest_u, map.dest_u, map.length_u);
    add(ooc_file_map_col_l, map.col_l, map.length_l);
    add(ooc_file_map_col_u, map.col_u, map.length_u);
    add(ooc_file_list_source, words(s, array_list_source), s->task_count);
    add(ooc_file_list_rows, words(s, array_list_rows), s->task_count);
    return request;
}

int64_t stage_prepare_ooc(solver_call *call)
{
    const supernodal_structure structure = state_structure(call->state);
    const ooc_request request = stage_ooc_request(call, &structure);
    return ooc_prepare(&request);
}

#define INSTANTIATE(V) template void stage_numeric_work<V>(solver_call *, int64_t);
INSTANTIATE(double)
INSTANTIATE(float)
INSTANTIATE(std::complex<double>)
INSTANTIATE(std::complex<float>)
