#include <cstring>

#include "service/service.h"
#include "state/state.h"

/* The record and everything of fixed size that it points to: one allocation, so that it exists whole or not at all. */
namespace
{
struct state_block {
    solver_state state;
    control_block control;
    ooc_state ooc;
    ooc_transfer_stats transfer;
    array_block header[array_third + 1];
    char file_name[1025];
};

constexpr int64_t kept_tables = 5;
constexpr int64_t largest_store = int64_t{1} << 40; /* keeps the sizes below far from overflow */

/* Bytes of the tables for count factorizations: five tables of pointers, their headers, and the records of the factorizations. */
int64_t table_bytes(int64_t count)
{
    return count *
           (kept_tables * static_cast<int64_t>(sizeof(array_block *) + sizeof(array_block)) + static_cast<int64_t>(sizeof(factor_record)));
}

/* Cut a zero-filled block into the tables of count factorizations. */
void lay_out_tables(solver_state *state, void *block, int64_t count)
{
    auto **pointer = static_cast<array_block **>(block);
    auto *header = reinterpret_cast<array_block *>(pointer + kept_tables * count);
    array_block ***tables[kept_tables] = {&state->factor_table_l, &state->factor_table_u, &state->factor_table_perm,
                                          &state->scale_table_row, &state->scale_table_col};
    for (array_block ***table : tables) {
        *table = pointer;
        for (int64_t number = 0; number < count; ++number) *pointer++ = header++;
    }
    state->factor_table = reinterpret_cast<factor_record *>(header);
    state->table_block = block;
    state->table_capacity = count;
}
} // namespace

bool state_resize_tables(solver_state *state, int64_t max_fac_store, int64_t *failed_bytes)
{
    const int64_t count = max_fac_store < 1 ? 1 : max_fac_store;
    if (count > state->table_capacity) {
        const int64_t bytes = count > largest_store ? INT64_MAX : table_bytes(count);
        void *block = count > largest_store ? nullptr : service_calloc(1, bytes, 128);
        if (block == nullptr) {
            *failed_bytes = bytes;
            return false;
        }
        service_free_direct(state->table_block);
        lay_out_tables(state, block, count);
    }
    state->max_fac_store = count;
    state_select(state, 1);
    return true;
}

solver_state *state_create(int64_t max_fac_store, int64_t *failed_bytes)
{
    constexpr int64_t bytes = sizeof(state_block);
    *failed_bytes = bytes;
    auto *block = static_cast<state_block *>(service_calloc(1, bytes, 128));
    if (block == nullptr) return nullptr;
    solver_state *state = &block->state;
    for (int64_t number = 1; number <= array_third; ++number) {
        const bool borrowed = number == array_lnz || number == array_unz || number == array_third;
        if (number != 11 && number != array_ordering_lists_n && !borrowed) state->array[number] = &block->header[number];
    }
    state->control = &block->control;
    state->ooc = &block->ooc;
    state->transfer = &block->transfer;
    state->ooc_file_name = block->file_name;
    std::memset(block->file_name, ' ', sizeof block->file_name - 1);
    if (!state_resize_tables(state, max_fac_store, failed_bytes)) {
        service_free_direct(block);
        return nullptr;
    }
    state->memory_current = state->memory_peak = bytes;
    return state;
}

void state_destroy(solver_state *state)
{
    if (state == nullptr) return;
    service_free_direct(state->table_block);
    service_free_direct(state); /* first member of its block */
}

void state_select(solver_state *state, int64_t matrix_number)
{
    const int64_t entry = matrix_number - 1;
    state->factor_current_l = state->factor_table_l[entry];
    state->factor_current_u = state->factor_table_u[entry];
    state->factor_current_perm = state->factor_table_perm[entry];
    state->scale_current_row = state->scale_table_row[entry];
    state->scale_current_col = state->scale_table_col[entry];
}
