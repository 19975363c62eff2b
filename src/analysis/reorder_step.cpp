/* Stage 1 of the analysis: symmetric adjacency, ordering, table of domains, and the tree prelude. */
#include <omp.h>

#include "analysis/ordering.h"
#include "analysis/symbolic.h"
#include "service/claim_memory.h"
#include "service/message_numbers.h"
#include "service/service.h"

namespace
{
bool is_unsymmetric(int64_t matrix_type)
{
    return matrix_type == 11 || matrix_type == 13;
}

void clear_words(int64_t count, int64_t *words)
{
    for (int64_t i = 0; i < count; ++i) words[i] = 0;
}

void copy_words(int64_t count, const int64_t *from, int64_t *to)
{
    for (int64_t i = 0; i < count; ++i) to[i] = from[i];
}

void build_adjacency(control_block *control, const int64_t *ia, const int64_t *ja, ordering_arrays *arrays)
{
    const int64_t n = control->neqns;
    clear_words(n, arrays->perm);
    clear_words(n, arrays->invp);
    clear_words(n, arrays->parent);
    clear_words(n, arrays->colcnt);
    const bool triangle = control->symmetric_structure == 1;
    if (arrays->pairs != nullptr) { /* the pattern in which pairs stay alike */
        copy_words(n + 1, arrays->pairs->xadj, arrays->xadj);
        copy_words(arrays->xadj[n] - 1, arrays->pairs->adj, arrays->adj);
        control->adjacency_size = arrays->xadj[n] - 1;
        return;
    }
    const int64_t entries = (triangle ? 2 : 1) * (ia[n] - 1 - n); /* all but the diagonal, where it is there */
    service_claim_memory(arrays->adj, entries * static_cast<int64_t>(sizeof(int64_t)), control->nproc);
    /* structurally symmetric types whose pattern is not: the graph has to be symmetric all the same */
    if (is_unsymmetric(control->matrix_type) || (!triangle && !pattern_is_symmetric(n, ia, ja, arrays->scratch_a))) {
        const int64_t *row_order = control->matching > 0 ? arrays->matching_order : nullptr;
        symmetrise_unsymmetric(n, control->nproc, ia, ja, row_order, arrays->xadj, arrays->adj, arrays->work, arrays->ordering_work_size);
    } else {
        symmetrise_pattern(n, control->nproc, control->sequential_analysis, ia, ja, arrays->xadj, arrays->adj, control->symmetric_structure,
                           arrays->scratch_a);
    }
    control->adjacency_size = arrays->xadj[n] - 1;
}

/* A permutation of the caller is checked whatever the level of the other checks. */
int64_t take_caller_order(control_block *control, const int64_t *caller_perm, ordering_arrays *arrays)
{
    int64_t out_of_range = 0, position = 0;
    const int64_t verdict = check_permutation(control->neqns, caller_perm, arrays->invp, &out_of_range, &position);
    if (verdict == 1 && control->message_flag != 0) {
        service_print_message(0, message_error_permutation_range, 3, static_cast<long long>(out_of_range), static_cast<long long>(position),
                              static_cast<long long>(caller_perm[position - 1]));
    }
    if (verdict != 0) return -20;
    copy_words(control->neqns, caller_perm, arrays->perm);
    single_domain_table(control->neqns, &control->domains, arrays->domain_table);
    return 0;
}

/* Minimum degree destroys its adjacency, so it gets a copy in work. */
int64_t order_by_degree(control_block *control, ordering_arrays *arrays)
{
    const int64_t n = control->neqns, entries = arrays->xadj[n] - 1;
    int64_t error = 0;
    if (control->preprocessing == 1) {
        int64_t held = 0;
        error = constrained_order(n, control->nproc, arrays->xadj, arrays->adj, arrays->perm, arrays->invp, control->mode_one,
                                  control->delta, control->integer_limit, arrays->lists, arrays->work, &held, &control->peak_analysis_kb);
    } else {
        copy_words(entries, arrays->adj, arrays->work);
        mmd_order(n, arrays->xadj, arrays->work, arrays->invp, arrays->perm, control->delta, arrays->lists, control->integer_limit);
    }
    if (error == 0 && control->domains > 1) table_without_domains(n, control->domains, arrays->domain_table);
    return error;
}

int64_t choose_ordering(control_block *control, int64_t *caller_perm, ordering_arrays *arrays, column_groups *groups)
{
    const int64_t n = control->neqns;
    if (control->perm_mode == 1 || control->perm_mode > 2) return take_caller_order(control, caller_perm, arrays);
    const bool dissected = control->preprocessing >= 2, paired = arrays->pairs != nullptr;
    int64_t error = 0;
    if (paired) {
        control->domains = arrays->pairs->domains;
        copy_words(n, arrays->pairs->order, arrays->perm);
        copy_words(4 * control->domains, arrays->pairs->domain_table, arrays->domain_table);
        invert_permutation(n, arrays->perm, arrays->invp);
    } else if (dissected) {
        const int64_t threads = control->preprocessing == 3 ? control->nproc : 1;
        error = nested_dissection_driver(n, threads, arrays->xadj, arrays->adj, nullptr, arrays->perm, arrays->invp, &control->domains,
                                         arrays->domain_table, groups);
    } else {
        error = order_by_degree(control, arrays);
    }
    if (error != 0) return error;
    if (control->domains < 2) {
        single_domain_table(n, &control->domains, arrays->domain_table);
        return 0;
    }
    if (paired || dissected) repair_last_pair(n, control->domains, arrays->domain_table);
    if (dissected && !paired) {
        regroup_domains(n, control->domains, arrays->domain_table, arrays->perm, arrays->scratch_a, arrays->scratch_b);
        invert_permutation(n, arrays->perm, arrays->invp);
    }
    return 0;
}
} // namespace

int64_t reorder_step(control_block *control, phase_times *times, const int64_t *ia, const int64_t *ja, int64_t *caller_perm,
                     ordering_arrays *arrays)
{
    const double start = omp_get_wtime();
    build_adjacency(control, ia, ja, arrays);
    const double adjacency_made = omp_get_wtime();
    times->time_fulladj += adjacency_made - start;
    column_groups groups{};
    control->internal_code = choose_ordering(control, caller_perm, arrays, &groups);
    if (control->internal_code != 0) return control->internal_code;
    const double ordered = omp_get_wtime();
    times->time_reorder += ordered - adjacency_made;
    control->internal_code = analysis_prelude(control, arrays, &groups);
    release_groups(&groups);
    if (control->internal_code != 0) return control->internal_code;
    control->domain_table_invalid = finish_domain_table(control->domains, arrays->domain_table);
    times->time_symbfct += omp_get_wtime() - ordered;
    if (control->perm_mode == 2) copy_words(control->neqns, arrays->perm, caller_perm);
    return 0;
}
