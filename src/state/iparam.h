/* Positions of the caller's 64-entry parameter array, 1-based. Use iparam_at(iparam, position). */
#pragma once

#include <cstdint>

enum iparam_position : int64_t {
    iparam_use_defaults = 1,       /* in, out: 0 asks for defaults; the query ido -2 writes 23 */
    iparam_preprocessing = 2,      /* in: 0 minimum degree, 1 constrained, 2 nested dissection, 3 the same in parallel */
    iparam_threads = 3,            /* in, out: always overwritten with the computed count */
    iparam_hybrid = 4,             /* in: 10 * digits of the tolerance + mode, signed */
    iparam_perm_mode = 5,          /* in: 1 caller's ordering, 2 hand it back, negative: hand back after the analysis */
    iparam_overwrite_rhs = 6,      /* in: 1 writes the solution over b */
    iparam_refinement_done = 7,    /* out */
    iparam_refinement_request = 8, /* in: magnitude is the step limit, negative asks for the extended residual */
    iparam_perturbation_exponent = 10,
    iparam_scaling = 11,
    iparam_transpose = 12,
    iparam_matching = 13,
    iparam_perturbed_pivots = 14,
    iparam_peak_analysis_kb = 15,
    iparam_current_analysis_kb = 16,
    iparam_solve_extra_kb = 17,
    iparam_factor_nonzeros = 18,
    iparam_operation_count = 19,
    iparam_hybrid_result = 20,
    iparam_pivoting = 21,
    iparam_positive_pivots = 22,
    iparam_negative_pivots = 23,
    iparam_scheme = 24,
    iparam_solve_scheme = 25,
    iparam_matrix_checker = 27,
    iparam_single_precision = 28,
    iparam_failing_row = 30,
    iparam_partial_solve = 31,
    iparam_check_left = 32,
    iparam_check_right = 33,
    iparam_reproducible_units = 34,
    iparam_zero_based = 35,
    iparam_partial_window = 48,
    iparam_domain_exponent = 50,
    iparam_pivot_callback = 56,
    iparam_core_mode_result = 57,
    iparam_core_mode = 60,
    iparam_peak_analysis_kb_again = 61,
    iparam_ooc_min_kb = 62,
    iparam_ooc_solve_kb = 63,
    iparam_version = 64
};
inline constexpr int64_t iparam_count = 64;

inline int64_t &iparam_at(int64_t *iparam, iparam_position position)
{
    return iparam[position - 1];
}
