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
};

/* Iterative refinement of x (or of b with overwrite_rhs 1).
   saved_rhs: with overwrite_rhs 1 a copy of the right-hand side, else null (b is read).
   Returns 0, -112 (contraction failure), or the failure of a solve. */
struct refinement_result {
    int64_t steps;           /* refinement_done */
    int64_t automatic_limit; /* 1: the run ended by the two-step limit of iparam(8) == 0, the caller stores -34 in iparam(20) */
};
template <typename value_t>
int64_t refine_solution(const solve_input<value_t> *solve, const residual_matrix<value_t> *matrix, int64_t refinement_request,
                        double sum_rhs, value_t *work, int64_t work_entries, refinement_result *result);

/* CGS (or CG when |mode| is 2) preconditioned by the factors. See hybrid.cpp for the layout of work. */
struct hybrid_request {
    int64_t mode;
    double tolerance, divergence_bound;
    int64_t max_iterations, check_iteration;
};
struct hybrid_result {
    int64_t status; /* 0 converged, -1 diverged, -2 stalled, -3 out of iterations, -4 wrong work size */
    int64_t iterations;
    int64_t solve_error; /* failure of a preconditioning solve, else 0 */
};
template <typename value_t>
void hybrid_iteration(const solve_input<value_t> *solve, const residual_matrix<value_t> *matrix, const hybrid_request *request,
                      value_t *work, int64_t work_entries, hybrid_result *result);
