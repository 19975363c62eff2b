/* The memory plan by itself: counting runs, growth, capped sizes, the files' windows. */
#include <gtest/gtest.h>

#include "session.h"
#include "solver/control.h"

namespace
{
struct planned_state {
    int64_t failed = 0;
    solver_state *state = state_create(2, &failed);

    planned_state()
    {
        state->neqns = state->control->neqns = 10;
        state->adjacency_size = 30;
        state->nproc = state->element_words = 1;
        state->ordering_slack = 1024;
        state->supernodes = 4;
        state->domains = 1;
        state->lindx_size = 12;
        state->nnz_a = 25;
        state->nnz_l = 40;
        state->nnz_u = 1;
        state->symmetric_structure = 1;
    }
    ~planned_state()
    {
        release_arrays(0, 0, state);
        state_destroy(state);
    }
    int64_t count(int64_t number) const
    {
        return state->array[number]->count;
    }
};
} // namespace

TEST(memory_plan, counting_foretells_what_allocating_takes)
{
    planned_state p;
    for (const int64_t stage : {1, 2, 3, 4, 5, 8, 9, 10}) {
        const int64_t before = p.state->memory_current;
        p.state->memory_count_only = 0;
        memory_plan(stage, 1, p.state);
        EXPECT_EQ(p.state->memory_current, before) << "nothing is taken";
        memory_plan(stage, 0, p.state);
        EXPECT_EQ(p.state->memory_current - before, p.state->memory_count_only) << "stage " << stage;
        EXPECT_EQ(p.state->memory_peak, p.state->memory_current);
        p.state->memory_count_only = 0;
        memory_plan(stage, 1, p.state);
        EXPECT_EQ(p.state->memory_count_only, 0) << "a stage that stands takes no more";
    }
    EXPECT_EQ(p.count(array_map_start_u), 1) << "symmetric types have no unz side";
    EXPECT_EQ(p.count(array_map_dest_u), 1);
    EXPECT_EQ(p.state->factor_current_l->count, 41);
    EXPECT_EQ(p.state->factor_current_perm->count, 1);
}

TEST(memory_plan, factors_too_large_fail_as_an_allocation_does_but_fit_in_windows_of_files)
{
    planned_state p;
    p.state->nnz_l = INT64_MAX / 8;
    p.state->element_words = 2;
    memory_plan(memory_factors, 0, p.state);
    EXPECT_EQ(p.state->memory_error_stage, 8);
    EXPECT_GT(p.state->memory_error_size, 0);
    p.state->nb = INT64_MAX / 4;
    memory_plan(memory_refinement_work, 0, p.state);
    EXPECT_EQ(p.state->memory_error_stage, 10);

    p.state->element_words = 1;
    p.state->core_mode = core_out;
    p.state->ooc_buffer_u = 8;
    p.state->ooc_buffer_v = 6;
    memory_plan(memory_factors, 0, p.state);
    EXPECT_EQ(p.state->memory_error_stage, 0);
    EXPECT_EQ(p.state->factor_current_l->count, 9);
    EXPECT_EQ(p.state->factor_current_u->count, 7);
}

TEST(memory_plan, unknown_array_numbers_are_told)
{
    planned_state p;
    for (const int64_t number : {0, 11, 59, -3}) {
        output_capture capture;
        EXPECT_EQ(get_from_c_structure(number, p.state), nullptr);
        EXPECT_EQ(capture.text(), "Error in get_from_c_structure: unclassified swtch !!! swtch=" + std::to_string(number) + "\n\n");
    }
    memory_plan(memory_before_reordering, 0, p.state);
    p.state->ordering_lists_size = 40;
    memory_plan(memory_before_reordering, 0, p.state);
    EXPECT_EQ(get_from_c_structure(10, p.state), static_cast<int64_t *>(get_from_c_structure(9, p.state)) + 10);
}
