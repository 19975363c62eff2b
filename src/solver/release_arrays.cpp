#include "service/service.h"
#include "solver/control.h"

namespace
{
void release(array_block *block, bool count_only, solver_state *state)
{
    if (block == nullptr || block->data == nullptr) return;
    const int64_t bytes = 8 * (block->count - block->absent);
    if (count_only) {
        state->memory_count_only -= bytes;
        return;
    }
    service_free_direct(block->data);
    block->data = nullptr;
    block->count = block->absent = 0;
    state->memory_current -= bytes;
}

void release_current_factors(bool count_only, solver_state *state)
{
    release(state->factor_current_l, count_only, state);
    release(state->factor_current_u, count_only, state);
    release(state->factor_current_perm, count_only, state);
}

void release_all_factors(solver_state *state)
{
    for (int64_t entry = 0; entry < state->table_capacity; ++entry) {
        release(state->factor_table_l[entry], false, state);
        release(state->factor_table_u[entry], false, state);
        release(state->factor_table_perm[entry], false, state);
        release(state->scale_table_row[entry], false, state);
        release(state->scale_table_col[entry], false, state);
        state->factor_table[entry] = factor_record{};
    }
}

void release_work_arrays(bool count_only, solver_state *state)
{
    for (array_block *block : state->array) release(block, count_only, state);
}
} // namespace

void release_analysis_arrays(solver_state *state)
{
    constexpr array_number only_analysis[] = {array_parent,         array_colcnt,    array_ordering_lists, array_scratch_a,
                                              array_separator_tail, array_scratch_b, array_xadj,           array_adj,
                                              array_ordering_work};
    for (const array_number number : only_analysis) release(state->array[number], false, state);
}

void release_core_lists(int64_t count_only, solver_state *state)
{
    release(state->array[array_ready_source], count_only != 0, state);
    release(state->array[array_ready_rows], count_only != 0, state);
    release(state->array[array_program], count_only != 0, state);
}

void release_update_lists(int64_t count_only, solver_state *state)
{
    release(state->array[array_list_source], count_only != 0, state);
    release(state->array[array_list_rows], count_only != 0, state);
}

void release_arrays(int64_t mode, int64_t count_only, solver_state *state)
{
    const bool counting = count_only != 0;
    switch (mode) {
    case 0:
        release_work_arrays(counting, state);
        if (counting)
            release_current_factors(counting, state);
        else
            release_all_factors(state);
        break;
    case 1:
        release_current_factors(counting, state);
        break;
    case -1:
        if (!counting) state->memory_current -= work_array_headers * static_cast<int64_t>(sizeof(array_block));
        break;
    default:
        break;
    }
}
