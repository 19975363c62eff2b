#include "service/message_numbers.h"
#include "service/service.h"
#include "state/state.h"

void *get_from_c_structure(int64_t swtch, const solver_state *state)
{
    switch (swtch) {
    case array_lnz:
        return state->factor_current_l->data;
    case array_unz:
        return state->factor_current_u->data;
    case array_third:
        return state->factor_current_perm->data;
    case array_ordering_lists_n: {
        auto *lists = static_cast<int64_t *>(state->array[array_ordering_lists]->data);
        return lists == nullptr ? nullptr : lists + state->neqns;
    }
    default:
        break;
    }
    if (swtch < 1 || swtch > array_third || state->array[swtch] == nullptr) {
        service_print_message(0, message_wide(message_error_unclassified_array), 1, swtch);
        return nullptr;
    }
    return state->array[swtch]->data;
}

supernodal_structure state_structure(const solver_state *state)
{
    const auto words = [state](int64_t number) { return static_cast<const int64_t *>(state_array(state, number)); };
    const control_block &control = *state->control;
    return {control.neqns,        control.supernodes,  words(array_perm),  words(array_invp), words(array_xsuper),
            words(array_snode),   words(array_xlindx), words(array_lindx), words(array_xlnz), words(array_xunz),
            words(array_sparent), control.nnz_l,       control.nnz_u,      control.domains,   words(array_domain_table)};
}
