/* The exit sequence: figures into iparam, words about a failure, the report, and the record put back in order. */
#include "service/message_numbers.h"
#include "service/service.h"
#include "solver/control.h"

namespace
{
void publish_figures(const solver_call *call)
{
    const control_block *control = call->control;
    int64_t *iparam = call->iparam;
    iparam_at(iparam, iparam_peak_analysis_kb) = control->peak_analysis_kb;
    iparam_at(iparam, iparam_current_analysis_kb) = control->current_analysis_kb;
    iparam_at(iparam, iparam_solve_extra_kb) = control->solve_extra_kb;
    iparam_at(iparam, iparam_peak_analysis_kb_again) = control->peak_analysis_kb;
    iparam_at(iparam, iparam_ooc_min_kb) = call->ooc->ooc_min_kb;
    iparam_at(iparam, iparam_ooc_solve_kb) = call->ooc->ooc_solve_kb;
    iparam_at(iparam, iparam_version) = internal_version;
    if (call->msglvl == 2) service_print_message(0, message_local_version, 1, static_cast<long>(internal_version));
}

/* A silent call tells a fault found in the matrix itself by the code alone. */
void report_failure(solver_call *call)
{
    if (call->error >= 0) return;
    if (call->msglvl != 0)
        error_report(call);
    else if (call->error == error_input && call->internal_code < 0)
        call->error = error_diagonal;
}

/* The caller's code of a structurally symmetric type. */
void leave_numeric_type(solver_call *call)
{
    control_block *control = call->control;
    if (control->matrix_type - 10 != call->matrix_type) return;
    control->matrix_type = call->state->matrix_type = call->matrix_type;
}

/* A refused call ran nothing that could be reported. */
bool has_report(const solver_call *call)
{
    const bool refused = call->error == error_input || call->error == error_diagonal;
    return call->control->message_flag > 0 && !refused;
}

/* The computed ordering for a caller who counts from 0. */
void hand_back_ordering(const solver_call *call)
{
    const bool wanted = call->analysis_done && call->control->zero_based != 0 && iparam_at(call->iparam, iparam_perm_mode) == 2;
    if (!wanted) return;
    for (int64_t i = 0; i < call->neqns; ++i) call->perm[i] = call->work_perm[i] - 1;
}
} // namespace

void exit_sequence(solver_call *call)
{
    if (call->control == nullptr) { /* nothing was loaded: an ido below -1, or no memory for the record */
        report_failure(call);
        return;
    }
    publish_figures(call);
    report_failure(call);
    leave_numeric_type(call);
    if (has_report(call)) run_statistics(call);
    call->control->internal_code = code_none;
    hand_back_ordering(call);
}
