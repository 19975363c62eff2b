/* Stage 5: factorization, direct solve with refinement, and the hybrid iteration with the factors at hand, in the order that the call and
   what earlier calls learnt ask for. */
#include <complex>

#include "service/service.h"
#include "solver/numeric_run.h"

namespace
{
constexpr int64_t budget_after_factor = 4, least_budget = 5;

work_lists lists_view(const solver_state *s, const supernodal_structure *structure)
{
    work_lists lists{};
    const control_block *control = s->control;
    lists.work_order = stage_words(s, array_work_order);
    if (control->sequential_analysis != 0) return lists;
    lists.two_level = control->two_level;
    lists.first_top = structure->supernodes - control->task_bound + 1;
    lists.list_start = stage_words(s, array_list_start);
    lists.list_source = stage_words(s, array_list_source);
    lists.list_rows = stage_words(s, array_list_rows);
    lists.ready_start = stage_words(s, array_list_count);
    lists.ready_source = stage_words(s, array_ready_source);
    lists.ready_rows = stage_words(s, array_ready_rows);
    lists.status = stage_words(s, array_status);
    lists.cursor = stage_words(s, array_cursor);
    if (lists.two_level == 0) {
        lists.tasks = lists.cursor[0];
        lists.task_start = lists.cursor + 1;
    }
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
    run->store.lnz = static_cast<value_t *>(s->factor_current_l->data);
    run->store.unz = static_cast<value_t *>(s->factor_current_u->data);
    run->store.pivots = stage_words(s, array_pivots) + (call->matrix_number - 1) * call->neqns;
    run->store.diagonal = static_cast<value_t *>(s->scale_current_row->data);
    run->store.diagonal_unscaled = static_cast<value_t *>(s->scale_current_col->data);
}
} // namespace

factor_record *numeric_record(const solver_call *call)
{
    return &call->state->factor_table[call->matrix_number - 1];
}

/* Row order that the stored factorization was made with. */
int64_t *numeric_row_order(const solver_call *call)
{
    int64_t *orders = stage_words(call->state, array_row_order);
    return orders == nullptr ? nullptr : orders + (call->matrix_number - 1) * call->neqns;
}

const double *numeric_scale(const solver_call *call, int64_t offset)
{
    if (call->control->scaling_on == 0) return nullptr;
    return static_cast<const double *>(get_from_c_structure(array_scale, call->state)) + offset;
}

template <typename value_t>
bool open_store(numeric_run<value_t> *run, ooc_purpose purpose)
{
    const solver_call *call = run->call;
    run->store.pager = nullptr;
    if (call->ooc->core_mode != core_out) return true;
    run->files = stage_ooc_request(call, &run->structure);
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
    run->call->control->times.time_stamp = service_seconds();
}

bool numeric_failed(const solver_call *call)
{
    return call->ooc->stage_error != 0 || call->control->internal_code != code_none;
}

namespace
{
template <typename value_t>
factor_input<value_t> factor_view(numeric_run<value_t> *run)
{
    const solver_call *call = run->call;
    const solver_state *s = call->state;
    const control_block *control = s->control;
    run->map = stage_position_map(s);
    run->lists = lists_view(s, &run->structure);
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
    input.scale_row = numeric_scale(call, 0);
    input.scale_col = numeric_scale(call, call->neqns);
    input.row_order = stage_row_order(s, array_matching_order);
    input.structure = &run->structure;
    input.map = &run->map;
    input.lists = &run->lists;
    if (control->program_words > 0) input.program = static_cast<const int32_t *>(get_from_c_structure(array_program, s));
    input.store = &run->store;
    input.thread_rows = stage_words(s, array_thread_rows);
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
    factor_record *record = numeric_record(call);
    record->valid = result.error == 0 && call->ooc->stage_error == 0 ? 1 : 0;
    record->matrix_type = control->matrix_type;
    record->pivoting = control->pivoting;
    record->perturbed_pivots = result.perturbed;
    const int64_t *order = stage_row_order(call->state, array_matching_order);
    int64_t *kept = numeric_row_order(call);
    for (int64_t i = 0; order != nullptr && i < call->neqns; ++i) kept[i] = order[i];
}

template <typename value_t>
void factor_values(numeric_run<value_t> *run)
{
    solver_call *call = run->call;
    control_block *control = call->control;
    control->perturbed_pivots = control->positive_pivots = control->negative_pivots = control->failed_row = 0;
    iparam_at(call->iparam, iparam_hybrid_result) = 0;
    numeric_record(call)->valid = 0;
    const double start = control->times.time_stamp;
    if (!open_store(run, ooc_purpose::factorize)) return;
    const factor_input<value_t> input = factor_view(run);
    factor_result result{};
    numeric_dispatch(&input, &result);
    close_store(run, ooc_purpose::factorize);
    record_factorization(call, result);
    control->internal_code = result.error == code_memory || result.failed_row == 0 ? result.error : result.failed_row;
    control->times.time_stamp = service_seconds();
    control->times.time_numfct = control->times.time_stamp - start;
    control->times.time_a_to_lu = 0.0; /* the factorization places the values itself */
    call->flags.a_to_lu = call->flags.numfct = 1;
    call->factored = true;
}

/* A refined solve without the iteration needs array 43, which the driver plans before a run of its own. */
template <typename value_t>
numeric_step factor_step(numeric_run<value_t> *run)
{
    solver_call *call = run->call;
    control_block *control = call->control;
    factor_values(run);
    if (numeric_failed(call)) return numeric_step::end;
    control->refactor_pending = control->refinement_done = 0;
    run->budget = control->cgs_max_iterations = budget_after_factor;
    if (run->ido_internal == ido_analyse_factor || run->ido_internal == ido_factor) return numeric_step::end;
    if (run->want_hybrid) return numeric_step::hybrid;
    return refinement_due(call) && !call->refinement_planned ? numeric_step::end : numeric_step::direct;
}

/* A new factorization, or the old factors once more? */
template <typename value_t>
numeric_step decide_step(numeric_run<value_t> *run)
{
    const solver_call *call = run->call;
    const control_block *control = call->control;
    const bool spent = control->cg_mode >= 0 && run->budget < least_budget;
    const bool invalid = numeric_record(call)->valid == 0;
    if (invalid || spent || iparam_at(call->iparam, iparam_hybrid_result) < 0 || control->refactor_pending == 1)
        return numeric_step::factor;
    if (run->ido_internal == ido_analyse_factor || run->ido_internal == ido_factor) return numeric_step::end;
    return run->want_hybrid ? numeric_step::hybrid : numeric_step::direct;
}

template <typename value_t>
numeric_step first_step(const numeric_run<value_t> *run)
{
    if (run->ido_internal < 30) return numeric_step::decide;
    if (run->call->control->refactor_pending == 1) return numeric_step::factor;
    return run->want_hybrid ? numeric_step::hybrid : numeric_step::direct;
}
} // namespace

template <typename value_t>
void stage_numeric_work(solver_call *call, int64_t ido_internal)
{
    numeric_run<value_t> run{};
    open_run(call, ido_internal, &run);
    for (numeric_step next = first_step(&run); next != numeric_step::end;) {
        switch (next) {
        case numeric_step::hybrid:
            next = hybrid_step(&run);
            break;
        case numeric_step::decide:
            next = decide_step(&run);
            break;
        case numeric_step::factor:
            next = factor_step(&run);
            break;
        case numeric_step::direct:
            next = direct_step(&run);
            break;
        case numeric_step::end:
            break;
        }
    }
}

#define INSTANTIATE(V)                                                                                                                     \
    template bool open_store<V>(numeric_run<V> *, ooc_purpose);                                                                            \
    template void close_store<V>(numeric_run<V> *, ooc_purpose);                                                                           \
    template void stage_numeric_work<V>(solver_call *, int64_t);
INSTANTIATE(double)
INSTANTIATE(float)
INSTANTIATE(std::complex<double>)
INSTANTIATE(std::complex<float>)
