/* One stage of real work on the arrays that the memory plan has made. Keeps nothing between calls: what it learns goes to control_block,
   ooc_state and iparam. Everything that happened since the last timed stretch, allocations above all, counts as time_malloc. */
#include <complex>

#include "analysis/analysis.h"
#include "factor/factor.h"
#include "service/service.h"
#include "solver/control.h"
#include "solver/stage_arrays.h"

namespace
{
/* Returns the time, which is also the stage's time stamp until a step of it ends. */
double open_stretch(solver_call *call)
{
    phase_times &times = call->control->times;
    const double now = service_seconds();
    times.time_malloc += now - times.time_stamp;
    times.time_stamp = now;
    call->flags.malloc = 1;
    return now;
}

/* The steps of the numeric stage leave the stamp of their end: a reading of the clock takes a fiftieth of a solve with a hundred rows. */
void close_stretch(solver_call *call, double opened)
{
    phase_times &times = call->control->times;
    if (times.time_stamp == opened) times.time_stamp = service_seconds();
}

void order(solver_call *call)
{
    const solver_state *s = call->state;
    ordering_arrays arrays{};
    arrays.perm = stage_words(s, array_perm);
    arrays.invp = stage_words(s, array_invp);
    arrays.parent = stage_words(s, array_parent);
    arrays.colcnt = stage_words(s, array_colcnt);
    arrays.xsuper = stage_words(s, array_xsuper);
    arrays.snode = stage_words(s, array_snode);
    arrays.xadj = stage_words(s, array_xadj);
    arrays.adj = stage_words(s, array_adj);
    arrays.domain_table = stage_words(s, array_domain_table);
    arrays.lists = stage_words(s, array_ordering_lists);
    arrays.work = stage_words(s, array_ordering_work);
    arrays.scratch_a = stage_words(s, array_scratch_a);
    arrays.scratch_b = stage_words(s, array_scratch_b);
    arrays.matching_order = stage_words(s, array_matching_order);
    arrays.pairs = call->pairs;
    arrays.ordering_lists_size = s->ordering_lists_used;
    arrays.ordering_work_size = s->ordering_work_used;
    arrays.ordering_slack = s->ordering_slack;
    control_block *control = call->control;
    control->internal_code = reorder_step(control, &control->times, call->work_ia, call->work_ja, call->work_perm, &arrays);
    call->flags.fulladj = call->flags.reorder = call->flags.symbfct = 1;
}

void factor_symbolically(solver_call *call)
{
    const solver_state *s = call->state;
    control_block *control = call->control;
    symbolic_arrays arrays{};
    arrays.perm = stage_words(s, array_perm);
    arrays.invp = stage_words(s, array_invp);
    arrays.xadj = stage_words(s, array_xadj);
    arrays.adj = stage_words(s, array_adj);
    arrays.xsuper = stage_words(s, array_xsuper);
    arrays.snode = stage_words(s, array_snode);
    arrays.parent = stage_words(s, array_parent);
    arrays.colcnt = stage_words(s, array_colcnt);
    arrays.lindx = stage_words(s, array_lindx);
    arrays.xlindx = stage_words(s, array_xlindx);
    arrays.xlnz = stage_words(s, array_xlnz);
    arrays.xunz = stage_words(s, array_xunz);
    arrays.sparent = stage_words(s, array_sparent);
    arrays.work_order = stage_words(s, array_work_order);
    arrays.update_count = stage_words(s, array_update_count);
    arrays.separator_tail = stage_words(s, array_separator_tail);
    arrays.sentinel_a = stage_words(s, array_sentinel_a);
    arrays.sentinel_b = stage_words(s, array_sentinel_b);
    arrays.domain_table = stage_words(s, array_domain_table);
    arrays.lists = stage_words(s, array_ordering_lists);
    arrays.work = stage_words(s, array_ordering_work);
    arrays.scratch = stage_words(s, array_scratch_a);
    control->internal_code = symbolic_step(control, &control->times, &arrays);
    call->flags.symbfct = 1;
    if (control->internal_code != code_none) return;

    const supernodal_structure structure = state_structure(s);
    block_bounds(control, call->ooc, &structure, arrays.xadj);
    /* a single level adds in the order of arrival, which reproducible units exclude; empty domains cost two levels only balance */
    if (control->domain_table_invalid != 0 && control->reproducible_units == 0) control->two_level = 0;
    control->subgraphs = control->domains;
    if (control->sequential_analysis == 0) work_list_sizes(control, &structure);
    const bool may_share =
        control->sequential_analysis == 0 && (control->two_level == 2 || control->nnz_l >= 2 * factor_entries_per_thread);
    const bool in_core = iparam_at(call->iparam, iparam_core_mode) == 0;
    control->program_words = may_share || !in_core ? 0 : update_program_words(control->matrix_type, &structure);
}

/* The ordering for a caller who asked for it with a negative perm_mode. */
void hand_back_ordering(const solver_call *call)
{
    if (iparam_at(call->iparam, iparam_perm_mode) >= 0) return;
    const int64_t *perm = stage_words(call->state, array_perm);
    for (int64_t i = 0; i < call->neqns; ++i) call->work_perm[i] = perm[i];
}

int64_t map_values(solver_call *call, const supernodal_structure *structure)
{
    solver_state *s = call->state;
    const control_block *control = call->control;
    position_map_input input{};
    input.matrix_type = control->matrix_type;
    input.symmetric = control->symmetric_structure;
    input.scaling_on = control->scaling_on;
    input.ia = call->work_ia;
    input.ja = call->work_ja;
    input.row_order = stage_row_order(s, array_matching_order);
    input.structure = structure;
    input.scratch_a = stage_words(s, array_scratch_a);
    input.scratch_b = stage_words(s, array_ordering_lists);
    input.scratch_c = stage_words(s, array_scratch_b);
    input.work = stage_words(s, array_ordering_work);
    input.nproc = control->nproc;
    position_map map = stage_position_map(s);
    const int64_t code = build_position_map(&input, &map);
    s->map_length_l = map.length_l;
    s->map_length_u = map.length_u;
    return code;
}

void build_lists(solver_call *call, const supernodal_structure *structure)
{
    const solver_state *s = call->state;
    phase_times &times = call->control->times;
    const double start = service_seconds();
    work_list_arrays lists{stage_words(s, array_work_order),  stage_words(s, array_list_count), stage_words(s, array_list_start),
                           stage_words(s, array_list_source), stage_words(s, array_list_rows),  stage_words(s, array_cursor),
                           stage_words(s, array_update_count)};
    build_work_lists(call->control, structure, &lists);
    times.time_parlist += service_seconds() - start;
    call->flags.parlist = 1;
}

void count_operations(solver_call *call, const supernodal_structure *structure)
{
    control_block *control = call->control;
    int64_t &wanted = iparam_at(call->iparam, iparam_operation_count);
    if (control->message_flag == 0 && wanted >= 0 && call->ooc->core_mode != core_out) return;
    control->times.gflop_count = operation_count(structure, control->matrix_type);
    wanted = static_cast<int64_t>(control->times.gflop_count);
}

void prepare_numeric(solver_call *call)
{
    control_block *control = call->control;
    const supernodal_structure structure = state_structure(call->state);
    int64_t &factor_nonzeros = iparam_at(call->iparam, iparam_factor_nonzeros);
    if (factor_nonzeros < 0) factor_nonzeros = control->nnz_l + control->nnz_u;
    hand_back_ordering(call);
    control->internal_code = map_values(call, &structure);
    if (control->internal_code != code_none) return;
    if (control->program_words > 0) {
        const position_map map = stage_position_map(call->state);
        const update_program_input input = {control->matrix_type,
                                            &structure,
                                            &map,
                                            control->program_words,
                                            stage_words(call->state, array_scratch_a),
                                            stage_words(call->state, array_ordering_lists),
                                            stage_words(call->state, array_scratch_b)};
        build_update_program(&input, static_cast<int32_t *>(get_from_c_structure(array_program, call->state)));
    }
    control->independent_blocks = control->mode_two = 1;
    if (control->sequential_analysis == 0) build_lists(call, &structure);
    count_operations(call, &structure);
}

void run_numeric_stage(solver_call *call, int64_t ido_internal)
{
    const bool complex_type = call->element_words == 2;
    if (call->real_bytes == 4) {
        if (complex_type)
            stage_numeric_work<std::complex<float>>(call, ido_internal);
        else
            stage_numeric_work<float>(call, ido_internal);
    } else if (complex_type)
        stage_numeric_work<std::complex<double>>(call, ido_internal);
    else
        stage_numeric_work<double>(call, ido_internal);
}
} // namespace

const int64_t *stage_row_order(const solver_state *state, int64_t number)
{
    const bool ordered = state->control->matrix_type > 10 && state->control->matching > 0;
    return ordered ? static_cast<const int64_t *>(get_from_c_structure(number, state)) : nullptr;
}

position_map stage_position_map(const solver_state *state)
{
    const bool symmetric = state->symmetric_structure == 1;
    const int64_t side = state->nnz_a + state->neqns;
    position_map map{};
    map.start_l = stage_words(state, array_map_start_l);
    map.dest_l = stage_words(state, array_map_dest_l);
    map.src_l = stage_words(state, array_map_src);
    map.col_l = stage_words(state, array_map_col);
    map.length_l = state->map_length_l;
    if (symmetric) return map;
    map.start_u = stage_words(state, array_map_start_u);
    map.dest_u = stage_words(state, array_map_dest_u);
    map.src_u = map.src_l + side;
    map.col_u = map.col_l == nullptr ? nullptr : map.col_l + side;
    map.length_u = state->map_length_u;
    return map;
}

void stage_controller(solver_call *call, int64_t stage_number, int64_t ido_internal)
{
    call->control->refinement_done = 0;
    call->control->internal_code = code_none;
    call->ooc->stage_error = 0;
    const double opened = open_stretch(call);
    switch (stage_number) {
    case stage_ordering:
        order(call);
        break;
    case stage_symbolic:
        factor_symbolically(call);
        break;
    case stage_lists:
        prepare_numeric(call);
        break;
    case stage_ooc:
        call->control->internal_code = stage_prepare_ooc(call);
        break;
    case stage_numeric:
        run_numeric_stage(call, ido_internal);
        break;
    default:
        break;
    }
    close_stretch(call, opened);
}
