/* The record behind the handle: made by the first call, cleaned before an analysis, given back by ido 0 and -1. */
#include <cstring>
#include <initializer_list>

#include "ooc/ooc.h"
#include "service/service.h"
#include "solver/control.h"

namespace
{
int64_t read_call_count(void *const *handle)
{
    int64_t count = 0;
    std::memcpy(&count, &handle[slot_call_count], sizeof count);
    return count;
}

bool leave_with_success(solver_call *call)
{
    call->error = error_none;
    call->skip_exit = 1;
    return false;
}

void load_records(solver_call *call)
{
    call->state = static_cast<solver_state *>(call->handle[slot_state]);
    call->control = call->state->control;
    call->ooc = call->state->ooc;
    call->copies = static_cast<input_copies *>(call->handle[slot_copies]);
}

void free_file_block(void **handle)
{
    service_free_direct(handle[slot_ooc_file]);
    handle[slot_ooc_file] = nullptr;
}

/* Everything that slots 2 and 4 lead to. */
void free_records(void **handle)
{
    auto *copies = static_cast<input_copies *>(handle[slot_copies]);
    auto *state = static_cast<solver_state *>(handle[slot_state]);
    if (copies != nullptr) {
        free_input_copies(copies);
        service_free_direct(copies);
    }
    if (state != nullptr) {
        release_arrays(0, 0, state);
        release_arrays(-1, 0, state);
        state_destroy(state);
    }
    handle[slot_state] = handle[slot_copies] = nullptr;
}

bool make_file_block(solver_call *call)
{
    if (call->handle[slot_ooc_file] != nullptr) return true;
    call->handle[slot_ooc_file] = service_calloc(1, ooc_file_block_bytes, 128);
    return call->handle[slot_ooc_file] != nullptr;
}

/* What outlives every analysis on the handle. */
void start_records(solver_call *call)
{
    call->control->callback_on = iparam_at(call->iparam, iparam_pivot_callback) != 0 ? 1 : 0;
    call->ooc->msglvl_raw = call->msglvl;
    call->ooc->word_bytes = 8;
    call->ooc->state_link = call->state;
}

/* The first call on a handle. A record that a refused earlier call left in slot 2 is replaced. */
bool create_records(solver_call *call)
{
    void **handle = call->handle;
    const bool shared_file = read_call_count(handle) == call_count_shared_file;
    if (call->ido == ido_release_all) {
        free_records(handle);
        if (!shared_file) free_file_block(handle);
        return leave_with_success(call);
    }
    if (call->ido < 1 && iparam_at(call->iparam, iparam_transpose) == -1) return leave_with_success(call);

    free_records(handle);
    handle[slot_call_count] = nullptr;
    int64_t bytes = 0;
    handle[slot_state] = state_create(call->max_fac_store, &bytes);
    if (handle[slot_state] == nullptr) return out_of_memory(call, memory_global_structure, bytes);
    load_records(call);
    if (!shared_file && !make_file_block(call)) return out_of_memory(call, memory_global_structure, ooc_file_block_bytes);
    start_records(call);
    if (call->ido < 1) {
        call->control->scale_state = -1;
        return refuse(call, code_initialization);
    }
    handle[slot_copies] = service_calloc(1, sizeof(input_copies), 128);
    if (handle[slot_copies] == nullptr) return out_of_memory(call, memory_global_structure, sizeof(input_copies));
    load_records(call);
    call->diagonal_count = -1;
    return true;
}

bool release_number(solver_call *call)
{
    call->control->message_flag = call->msglvl != 0 ? 1 : 0;
    if (call->matrix_number < 1 || call->matrix_number > call->control->max_fac_store) return refuse(call, code_clean_number);
    solver_state *state = call->state;
    state_select(state, call->matrix_number);
    release_arrays(1, 0, state);
    state->factor_table[call->matrix_number - 1] = factor_record{};
    if (call->ooc->core_mode == core_out) ooc_delete(call->ooc, call->matrix_number);
    call->flags = run_flags{};
    call->error = error_none;
    return false;
}

/* Give back what an earlier analysis and its factorizations hold; the record itself stays. */
void clean(solver_call *call)
{
    for (const iparam_position position : {iparam_peak_analysis_kb, iparam_current_analysis_kb, iparam_solve_extra_kb}) {
        iparam_at(call->iparam, position) = 0;
    }
    if (call->ooc->tree_link != nullptr) ooc_delete(call->ooc, 0);
    free_input_copies(call->copies);
    release_arrays(0, 0, call->state);
    call->state->analysed = 0;
    call->state->ooc_prepared = 0;
    call->diagonal_count = -1;
}

bool release_everything(solver_call *call)
{
    free_records(call->handle);
    free_file_block(call->handle);
    call->handle[slot_call_count] = nullptr;
    return leave_with_success(call);
}

/* The record as an analysis expects it. */
bool start_analysis(solver_call *call)
{
    int64_t bytes = 0;
    if (!state_resize_tables(call->state, call->max_fac_store, &bytes)) return out_of_memory(call, memory_global_structure, bytes);
    control_defaults(call->handle, call->iparam, call->control, call->matrix_type);
    call->control->single_precision = call->real_bytes == 4 ? 1 : 0;
    call->ooc->core_mode = core_undecided;
    call->ooc->core_mode_result = call->ooc_seed;
    call->ooc->stage_error = 0;
    return true;
}

/* What the handle remembers of earlier calls, before this one changes it. */
void remember_stored(solver_call *call)
{
    const control_block *control = call->control;
    call->stored_max_fac_store = control->max_fac_store;
    call->stored_matrix_type = control->matrix_type;
    call->stored_neqns = control->neqns;
    call->stored_nnz = control->nnz_a;
    call->stored_nb = call->state->nb;
}
} // namespace

bool attach_handle(solver_call *call)
{
    const int64_t call_count = read_call_count(call->handle);
    if (call_count == 0 || call_count == call_count_shared_file || call->handle[slot_state] == nullptr ||
        call->handle[slot_copies] == nullptr) {
        return create_records(call);
    }
    load_records(call);
    const int64_t *list = call->copies->diagonal_list;
    call->diagonal_count = list != nullptr ? list[0] : 0;
    return true;
}

bool release_or_reset(solver_call *call)
{
    if (call->ido == ido_release_number) return release_number(call);
    if (call->analyses || call->ido == ido_release_all) clean(call);
    if (call->ido == ido_release_all) return release_everything(call);
    if (call->analyses && !start_analysis(call)) return false;
    if (!call->analyses && call->state->analysed == 0) { /* copies of an analysis that did not come about may have any size */
        free_input_copies(call->copies);
        call->diagonal_count = 0;
    }
    remember_stored(call);
    return true;
}

void free_input_copies(input_copies *copies)
{
    service_free_direct(copies->ia);
    service_free_direct(copies->ja);
    service_free_direct(copies->a);
    service_free_direct(copies->perm);
    service_free_direct(copies->diagonal_list);
    *copies = input_copies{};
}
