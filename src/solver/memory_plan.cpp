/* Sizes of the work arrays, stage by stage, as soon as the analysis result that fixes them is known. All sizes are in 8-byte words. The
   formulas below are the least each array gets; the arrays of the position map, the lists and the adjacency grow beyond them where their
   contents need more. */
#include <initializer_list>

#include "factor/factor.h"
#include "platform/platform.h"
#include "service/service.h"
#include "solve/solve.h"
#include "solver/control.h"

namespace
{
constexpr int64_t largest_words = INT64_MAX / 16; /* keeps byte counts and sums of sizes in range */

int64_t larger(int64_t a, int64_t b)
{
    return a > b ? a : b;
}

/* a * b, capped: a capped size cannot be had, and fails as an allocation does. Both >= 0. */
int64_t product(int64_t a, int64_t b)
{
    int64_t result = 0;
    if (__builtin_mul_overflow(a, b, &result) || result > largest_words) return largest_words;
    return result;
}

int64_t sum(int64_t a, int64_t b)
{
    return a > largest_words - b ? largest_words : a + b;
}

/* One run over the arrays of a stage. */
struct planner {
    solver_state *state;
    int64_t stage;
    bool count_only, failed;
};

void record_failure(planner *plan, int64_t words)
{
    plan->state->memory_error_stage = plan->stage;
    plan->state->memory_error_size = words < largest_words ? 8 * words : INT64_MAX;
    plan->failed = true;
}

void account(solver_state *state, int64_t bytes)
{
    state->memory_current += bytes;
    if (state->memory_current > state->memory_peak) state->memory_peak = state->memory_current;
    service_flush_output();
}

/* Give block words words, of which the first `used` take memory and count; an array that is there already is grown and keeps its contents.
   Neither figure ever shrinks. */
void give(planner *plan, array_block *block, int64_t words, int64_t used)
{
    const int64_t old = block->data == nullptr ? 0 : block->count, held = old - block->absent;
    if (plan->failed || (words <= old && used <= held)) return;
    words = larger(words, old);
    used = larger(used, held);
    if (plan->count_only) {
        plan->state->memory_count_only = sum(plan->state->memory_count_only, 8 * (used - held));
        return;
    }
    void *data = nullptr;
    if (words < largest_words) {
        const uint64_t bytes = 8 * static_cast<uint64_t>(used);
        data = old == 0 ? service_alloc_direct(bytes, 128) : service_realloc(block->data, bytes);
    }
    if (data == nullptr) {
        record_failure(plan, words);
        return;
    }
    block->data = data;
    block->count = words;
    block->absent = words - used;
    account(plan->state, 8 * (used - held));
}

void give(planner *plan, array_block *block, int64_t words)
{
    give(plan, block, words, words);
}

void give(planner *plan, array_number number, int64_t words)
{
    give(plan, plan->state->array[number], words, words);
}

/* As give, of memory that an array held which no later stage reads: its pages are touched already. That array is released. */
void give_from(planner *plan, array_number number, array_number spent, int64_t words)
{
    array_block *block = plan->state->array[number], *donor = plan->state->array[spent];
    if (plan->failed || block->data != nullptr || donor->data == nullptr) {
        give(plan, number, words);
        return;
    }
    const int64_t more = words - (donor->count - donor->absent);
    if (plan->count_only) {
        plan->state->memory_count_only = sum(plan->state->memory_count_only, 8 * more);
        return;
    }
    void *data = words < largest_words ? service_realloc(donor->data, 8 * static_cast<uint64_t>(words)) : nullptr;
    if (data == nullptr) {
        record_failure(plan, words);
        return;
    }
    *block = {words, 0, data};
    *donor = {0, 0, nullptr};
    account(plan->state, 8 * more);
}

/* Words that hold entries reals of the handle's precision. */
int64_t real_words(const solver_state *state, int64_t entries)
{
    return state->control->single_precision != 0 ? entries / 2 + entries % 2 : entries;
}

void plan_matching(planner *plan)
{
    const int64_t n = plan->state->neqns;
    give(plan, array_matching_order, sum(n, 1));
    give(plan, array_scale, sum(product(2, n), 1));
    give(plan, array_row_order, sum(product(n, plan->state->max_fac_store), 1));
}

void plan_reordering(planner *plan)
{
    const solver_state *s = plan->state;
    const int64_t n = s->neqns;
    for (const array_number number : {array_perm, array_invp, array_snode, array_xsuper, array_xlnz, array_xunz}) {
        give(plan, number, n + 1);
    }
    give(plan, array_domain_table, s->ordering_slack + 1);
    for (const array_number number : {array_parent, array_colcnt}) give(plan, number, n + 1);
    give(plan, s->array[array_ordering_lists], s->ordering_lists_size + 1, s->ordering_lists_used + 1);
    for (const array_number number : {array_scratch_a, array_separator_tail, array_scratch_b}) give(plan, number, n + 1);
    give(plan, s->array[array_ordering_work], s->ordering_work_size + 1, s->ordering_work_used + 1);
    give(plan, array_xadj, n + 1);
    give(plan, array_adj, larger(sum(n, s->adjacency_size) + 1, 2 * s->nnz_a + 1));
}

void plan_symbolic(planner *plan)
{
    const solver_state *s = plan->state;
    give(plan, array_lindx, s->lindx_size + 1);
    for (const array_number number : {array_xlindx, array_sparent, array_update_count, array_sentinel_a, array_sentinel_b}) {
        give(plan, number, s->supernodes + 1);
    }
    give(plan, array_work_order, s->two_level != 0 ? larger(s->domains + 1, s->supernodes) + 1 : s->supernodes + 1);
}

/* The map of the values: sources of both factors in one array, the unz part behind the lnz part. */
void plan_position_map(planner *plan)
{
    const solver_state *s = plan->state;
    const int64_t n = s->neqns, z = s->nnz_a, threads = s->nproc, c = s->column_count_bound;
    const bool symmetric = s->symmetric_structure == 1;
    const int64_t side = z + n;
    const int64_t sources = larger(sum(product(c + 1, threads), z + 2), symmetric ? side + 2 : 2 * side + 2);
    give_from(plan, array_map_src, array_adj, sources);
    if (s->scaling_on != 0) give(plan, array_map_col, sources);
    give(plan, array_map_start_l, n + 1);
    give(plan, array_map_start_u, symmetric ? 1 : n + 1);
    give(plan, array_map_dest_l, larger(sum(product(c, threads), z + 4), side + 1));
    give(plan, array_map_dest_u, symmetric ? 1 : larger(n + s->adjacency_size + 1, side + 1));
}

void plan_parallel_data(planner *plan)
{
    const solver_state *s = plan->state;
    const int64_t n = s->neqns, supernodes = s->supernodes, threads = s->nproc;
    const bool sequential = s->sequential_analysis == 1;
    plan_position_map(plan);
    if (s->control->program_words > 0) give(plan, array_program, s->control->program_words / 2 + 1);
    give(plan, array_pivots, sum(product(n + 1, s->max_fac_store), 1));
    give(plan, array_list_count, sequential ? 1 : supernodes + 2);
    if (s->two_level == 0) give(plan, array_cursor, sequential ? 1 : supernodes + 2);
    const int64_t lists = s->two_level != 0 ? sum(product(s->domains + 1, supernodes), 1) : supernodes + 2;
    give(plan, array_list_start, sequential ? 1 : lists);
    give(plan, array_thread_rows, sum(supernodes + 1, product(sum(product(2, threads), 1), n)));
    const int64_t entries = sequential ? 1 : larger(s->lindx_size, s->task_count) + 1, listed = sequential ? 1 : s->task_count + 1;
    give(plan, s->array[array_list_source], entries, listed);
    give(plan, s->array[array_list_rows], entries, listed);
    give(plan, s->array[array_ordering_work], sum(3 * n + 19, s->adjacency_size), threads > 1 ? position_map_work_words(n) : 1);
}

void plan_after_reordering(planner *plan)
{
    const solver_state *s = plan->state;
    if (s->symmetric_structure != 1) {
        give(plan, array_map_dest_l, s->update_bound_a + 1);
        give(plan, array_map_dest_u, s->update_bound_b + 1);
    }
    if (s->sequential_analysis != 1) {
        give(plan, array_list_source, s->task_count + 1);
        give(plan, array_list_rows, s->task_count + 1);
        give(plan, array_ready_source, s->parallel_list_size + 1);
        give(plan, array_ready_rows, s->parallel_list_size + 1);
        give(plan, array_status, s->supernodes + 1);
    }
    if (s->two_level != 0) give(plan, array_cursor, sum(product(s->domains + 1, s->task_bound), 2));
}

void plan_ooc_tree(planner *plan)
{
    /* eleven files, each with two tables of S + 1 words and two of S + 2; the file layer works with the first table of files 2 and 3 */
    const int64_t supernodes = plan->state->supernodes, group = 4 * supernodes + 6;
    const int64_t used = (plan->state->symmetric_structure == 1 ? group : 2 * group) + supernodes + 1;
    give(plan, plan->state->array[array_ooc_tree], 11 * group, used);
}

void plan_ooc_arrays(planner *plan)
{
    const solver_state *s = plan->state;
    const int64_t threads = s->nproc, c = s->column_count_bound;
    const int64_t sources = sum(product(s->symmetric_structure == 1 ? c + 1 : 2 * c + 1, threads), 1);
    give(plan, array_lindx, s->ooc_buffer_l + 1);
    give(plan, array_map_src, sources);
    if (s->scaling_on != 0) give(plan, array_map_col, sources);
    give(plan, array_map_dest_l, sum(product(c + 3, threads), 1));
    give(plan, array_map_dest_u, sum(product(c + 3, threads), 1));
}

/* Words of the first factors from which on the system gets back before what the analysis freed: 20 MB beside 200 MB. */
constexpr int64_t large_factor = int64_t{1} << 22;

/* The window of factors in files is transferred into again and again, which large pages make twice as fast, since a transfer pins page by
   page. Solve of a grid of 70^3: 0.7 GB/s with pages of 4 kB, 1.4 with large ones. */
void give_factors(planner *plan, array_block *block, int64_t words)
{
    const void *const before = block->data;
    give(plan, block, words);
    if (plan->state->core_mode == core_out && before == nullptr && block->data != nullptr)
        platform_prefer_large_pages(block->data, 8 * static_cast<uint64_t>(words));
}

void plan_factors(planner *plan)
{
    const solver_state *s = plan->state;
    const bool out_of_core = s->core_mode == core_out;
    const int64_t e = s->element_words, n = s->neqns;
    const int64_t words_l = sum(real_words(s, product(e, out_of_core ? s->ooc_buffer_u : s->nnz_l)), 1);
    if (!plan->count_only && s->factor_current_l->data == nullptr && words_l >= large_factor) platform_trim_memory();
    give_factors(plan, s->factor_current_l, words_l);
    give_factors(plan, s->factor_current_u, sum(real_words(s, product(e, out_of_core ? s->ooc_buffer_v : s->nnz_u)), 1));
    const bool indefinite = s->matrix_type == -4 || s->matrix_type == -2 || s->matrix_type == 6;
    const int64_t third = indefinite && s->pivoting != 0 ? 2 : 1;
    give(plan, s->factor_current_perm, out_of_core ? sum(real_words(s, product(third * e, n)), 1) : 1);
}

void plan_numeric_work(planner *plan)
{
    const solver_state *s = plan->state;
    if (s->solve_work_a > 0) give(plan, array_update_buffer, sum(real_words(s, s->solve_work_a), 1));
    if (s->solve_work_b >= 1) give(plan, array_solve_work, sum(real_words(s, s->solve_work_b), 1));
}

/* Refinement: right-hand side or residual, and correction; with the extended residual the solution in extended numbers as well. */
void plan_refinement(planner *plan)
{
    const solver_state *s = plan->state;
    const int64_t nb = larger(s->nb, 0);
    const int64_t blocks = s->refinement_steps >= 0 ? 2 : s->symmetric_structure == 1 ? 5 : 4;
    const int64_t least = product(sum(product(blocks, s->neqns), product(2, s->nproc)), nb);
    const int64_t needed = refinement_work_entries(s->neqns, nb, s->refinement_steps);
    give(plan, array_solve_work, sum(real_words(s, product(larger(least, needed), s->element_words)), 1));
}

using stage_plan = void(planner *);
constexpr stage_plan *stage_plans[] = {plan_matching, plan_reordering, plan_symbolic, plan_parallel_data, plan_after_reordering,
                                       plan_ooc_tree, plan_ooc_arrays, plan_factors,  plan_numeric_work,  plan_refinement};
} // namespace

void memory_plan(int64_t stage, int64_t count_only, solver_state *state)
{
    state->memory_error_stage = state->memory_error_size = 0;
    if (stage < memory_matching || stage > memory_refinement_work) return;
    planner plan{state, stage, count_only != 0, false};
    stage_plans[stage - 1](&plan);
}

int64_t kilobytes(int64_t bytes)
{
    return bytes / 1024 + 1;
}

void solve_sizes(solver_state *state, int64_t ido_internal, int64_t nb)
{
    const control_block *control = state->control;
    const bool solves = ido_internal % 10 == phase_solve;
    const int64_t columns = larger(nb, 0), threads = control->nproc, e = state->element_words;
    int64_t row = larger(larger(control->update_size, control->growth_numerator), control->neqns);
    state->control->blocks_scratch = row;
    state->solve_work_a = product(product(row, threads), e);
    state->control->work_words = product(row, threads);
    state->solve_work_b = 0;
    if (!solves) return;
    const supernodal_structure structure = state_structure(state);
    const int64_t team = larger(threads, control->reproducible_units);
    const int64_t vectors = product(product(columns, control->neqns), e);
    if (vectors == largest_words) state->solve_work_a = largest_words; /* no address space has right-hand sides of that size */
    state->solve_work_a = larger(state->solve_work_a, product(solve_work_entries(&structure, columns, team), e));
    if (control->cg_mode == 0) return;
    const int64_t least = product(sum(5 * control->neqns + 9, product(2, threads)), columns);
    state->control->hybrid_work_words = hybrid_work_entries(control->neqns, columns, control->cg_mode);
    state->solve_work_b = product(larger(least, state->control->hybrid_work_words), e);
}
