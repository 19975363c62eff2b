#include <cstring>

#include "solver/control.h"

/* True when the call works in single precision: an analysis and a handle without one take iparam(28), every other call what the analysis
   chose. */
bool precision_select(void *const *handle, int64_t ido, int64_t *iparam)
{
    int64_t first_digit = ido / 10;
    if (first_digit > 9) first_digit /= 10;
    int64_t call_count = 0;
    std::memcpy(&call_count, &handle[slot_call_count], sizeof call_count);
    const auto *state = static_cast<const solver_state *>(handle[slot_state]);
    const bool analysed = call_count != 0 && state != nullptr && state->analysed != 0;
    if (first_digit != phase_analysis && analysed) return state->control->single_precision != 0;
    return iparam_at(iparam, iparam_single_precision) == 1;
}
