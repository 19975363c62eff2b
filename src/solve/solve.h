/* Solve: applying the factors, refinement, hybrid iteration. */
#pragma once

#include <cstdint>

#include "state/factor_store.h"
#include "state/records.h"
#include "state/structure.h"

/* One application of the factors to nb right-hand sides. b and x are column-major with leading dimension n. */
template <typename value_t>
struct solve_input {
    int64_t matrix_type; /* 1 and 3 arrive as 11 and 13 */
    int64_t symmetric;   /* 1: symmetric factors, 0: L and U */
    int64_t pivoting;    /* which kernel made the symmetric indefinite factors */
    int64_t nb;
    int64_t threads;            /* T */
    int64_t entries_per_thread; /* of the factors, that make one more thread worth its start for one vector; 0: T take part */
    int64_t reproducible_units; /* not 0: replaces T in the block solves and closes the parallel single-vector kernel */
    int64_t iparam25_copy;
    int64_t solve_step_code; /* 0 all, 1 forward, 2 diagonal, 3 backward */
    int64_t transpose_mode;  /* 0 A x = b, 1 transpose, 2 conjugate transpose */
    int64_t overwrite_rhs;   /* 1: the result goes over b, x is working space */
    int64_t matching, scaling_on;
    int64_t window_first, window_count; /* partial solves */
    const double *scale_row, *scale_col;
    const int64_t *row_order; /* types 11, 13; null for the identity */
    const supernodal_structure *structure;
    const factor_store<value_t> *store;
    value_t *b, *x;
    value_t *work; /* work_entries entries */
    int64_t work_entries;
};
/* A setting of entries_per_thread. The sweeps open a region for each level of the domains: on 2D grids two threads lose at 67,000 entries
   (76 us against 71) and gain at 125,000 (114 against 148). */
inline constexpr int64_t solve_entries_per_thread = 40000;
/* Returns 0, or -2 when memory ran out; a pager failure is recorded by the pager and gives -1. */
template <typename value_t>
int64_t solution_step(const solve_input<value_t> *input);

/* Workspace entries that solution_step needs for nb right-hand sides and T threads, beyond x. */
int64_t solve_work_entries(const supernodal_structure *s, int64_t nb, int64_t threads);

/* The matrix as the caller gave it, for residuals. */
template <typename value_t>
struct residual_matrix {
    int64_t matrix_type, n;
    int64_t symmetric; /* 1: upper triangle stored */
    int64_t transpose_mode;
    const int64_t *ia, *ja;
    const value_t *a;
    int64_t one_order = 0; /* not 0: products have the same bits on any number of threads */
};

/* Iterative refinement of a first solution: residual against the matrix, solve against the factors, add. The loop ends after |request|
   steps (two when request is 0), or when a step no longer contracts the residual by 0.9.
   solve    as for the first solution; its b, x, overwrite_rhs say where right-hand side and solution stand, its step code and window are
            not read. The solution is in b when overwrite_rhs is 1, and x is then working space; else in x, and b stays.
   request  iparam(8): magnitude is the step limit, negative asks for a solution in extended precision (80-bit on x86-64)
            and residuals that are exact to working precision
   sum_rhs  sum of the absolute values of the real components of the right-hand sides
   work     refinement_work_entries entries; with overwrite_rhs 1 the first n * nb hold a copy of the right-hand sides
   Returns 0, -112 (the residual did not contract and the last correction was not small, or one of the two is not finite), or the failure
   of a solve (-1, -2). The
   solution stands as it is after the last step in every case. */
struct refinement_result {
    int64_t steps;               /* for iparam(7) */
    int64_t automatic_limit;     /* 1: request was 0 and the two automatic steps are done; the caller stores -34 in iparam(20) */
    double residual, correction; /* of the last step: sums of absolute values over those of right-hand side and solution, or plain */
};
template <typename value_t>
int64_t refine_solution(const solve_input<value_t> *solve, const residual_matrix<value_t> *matrix, int64_t request, double sum_rhs,
                        value_t *work, refinement_result *result);
/* In entries of value_t. */
int64_t refinement_work_entries(int64_t n, int64_t nb, int64_t request);

/* Sum of the absolute values of all real components. */
template <typename value_t>
double sum_of_moduli(int64_t count, const value_t *v);

/* Iteration on A x = b with the factors, of this or of an earlier matrix of the pattern, as preconditioner: conjugate gradients when |mode|
   is 2, else conjugate gradients squared (Sonneveld 1989).
   solve    the factors; x holds the starting iterate (the solution with these factors), b the right-hand sides; step code, window and
            overwrite_rhs are not read
   work     hybrid_work_entries entries, exactly
   On success x holds the solution, copied over b with overwrite 1. On failure x holds the starting iterate, and no NaN comes into it. */
struct hybrid_request {
    int64_t mode;
    double tolerance, divergence_bound;
    int64_t max_iterations, check_iteration;
    int64_t overwrite;
};
struct hybrid_result {
    int64_t status; /* 0 converged, -1 diverged or broken down, -2 stalled, -3 out of iterations, -4 wrong work size */
    int64_t iterations;
    int64_t solve_error; /* failure of a preconditioning solve, else 0 */
};
template <typename value_t>
void hybrid_iteration(const solve_input<value_t> *solve, const residual_matrix<value_t> *matrix, const hybrid_request *request,
                      value_t *work, int64_t work_entries, hybrid_result *result);
/* In entries of value_t. */
int64_t hybrid_work_entries(int64_t n, int64_t nb, int64_t mode);
