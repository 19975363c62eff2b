/* One call, from the caller's arguments to the result: the steps in their order, and the ways a call may end. */
#include "service/service.h"
#include "solver/control.h"

bool refuse(solver_call *call, int64_t code)
{
    call->error = error_input;
    call->internal_code = code;
    return false;
}

bool out_of_memory(solver_call *call, int64_t stage, int64_t bytes)
{
    call->error = error_memory;
    call->internal_code = code_memory;
    call->memory_stage = stage;
    call->memory_bytes = bytes;
    return false;
}

bool plan_failed(solver_call *call)
{
    return out_of_memory(call, call->state->memory_error_stage, call->state->memory_error_size);
}

namespace
{
/* 331 to 334 are single steps of 33. The two digits of the result are the first and the last phase that run. */
void decode_ido(solver_call *call)
{
    const bool single_step = call->ido >= ido_solve_forward && call->ido <= ido_solve_last;
    call->ido_internal = single_step ? int64_t{ido_solve} : call->ido;
    call->first_digit = call->ido_internal / 10;
    call->last_digit = call->ido_internal % 10;
    call->analyses = call->ido >= ido_analyse && call->ido <= ido_analyse_factor_solve;
}

/* The caller's word for the core mode, where -1 stands for in core. */
void decode_core_mode(solver_call *call)
{
    int64_t &wanted = iparam_at(call->iparam, iparam_core_mode);
    call->ooc_seed = wanted == core_in ? -1 : 0;
    if (wanted != iparam_core_mode_forced) return;
    wanted = core_out;
    call->ooc_seed = core_out;
}

bool open_call(solver_call *call)
{
    service_flush_output();
    iparam_at(call->iparam, iparam_domain_exponent) = 0;
    decode_ido(call);
    if (call->ido < ido_release_all) return refuse(call, code_ido_below_minus_one);
    decode_core_mode(call);
    return true;
}
} // namespace

void phase_driver(solver_call *call)
{
    const bool finished = open_call(call) &&        /* what is asked */
                          attach_handle(call) &&    /* the record behind the handle */
                          release_or_reset(call) && /* ido 0 and -1 end here; an analysis starts clean */
                          prepare_input(call) &&    /* 1-based working arrays */
                          check_parameters(call) && /* refusals; iparam into the record */
                          run_analysis(call) &&     /* stages 1 to 3 */
                          run_numeric(call);        /* stages 4 and 5 */
    if (finished) call->error = error_none;
    if (call->skip_exit == 0) exit_sequence(call);
}
