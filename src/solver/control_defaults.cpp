#include "solver/control.h"

/* Start values of an analysis: everything that an earlier one left is cleared, but for the wish for the pivot hook, which the handle keeps
   for its life. */
void control_defaults(void **handle, int64_t *iparam, control_block *control, int64_t matrix_type)
{
    const int64_t callback_on = control->callback_on;
    handle[slot_call_count] = nullptr;
    *control = control_block{};
    control->callback_on = callback_on;

    const int64_t matching = iparam_at(iparam, iparam_matching);
    const bool may_match = matrix_type == -4 || matrix_type == -2 || matrix_type == 6 || matrix_type == 11 || matrix_type == 13;
    if (may_match && matching > 0) {
        control->matching = matching;
        control->scaling_on = iparam_at(iparam, iparam_scaling) == 1 ? 1 : 0;
    }
    control->nproc = iparam_at(iparam, iparam_threads);
    control->mode_one = control->mode_two = control->mode_three = 1;
    control->integer_limit = integer_limit_default;
    control->scale_state = 6;
    control->preprocessing = 2;
    control->cgs_divergence_bound = 10000;
    control->two_level = control->reproducible_units = -1; /* not decided yet */
    control->times.cgs_bound_ten = 10.0;
    control->times.cgs_unit = 1.0;
    control->times.cgs_tolerance = 1e-12;
    control->times.cgs_tiny = 1e-30;
}
