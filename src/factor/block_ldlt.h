/* Factors of the diagonal block of a supernode of a symmetric indefinite (Hermitian, complex symmetric) matrix. Exchanges stay inside the
   block, and a pivot that is too small is replaced and counted, so that the structure always holds. */
#pragma once

#include <cstdint>

#include "dense/dense.h"

/* Widest block that the kernels take: their panel of scaled columns lies on the stack. */
inline constexpr int64_t block_columns_limit = 3072;

struct pivot_counts {
    int64_t perturbed, positive, negative; /* added to */
};

/* Bunch and Kaufman's diagonal pivoting with 1x1 and 2x2 pivots (Math. Comp. 31, 1977), in panels as in LAPACK's xLASYF.
   inout a        n by n, lda >= n; in: lower triangle; out: unit lower L with all exchanges applied to it, D on the diagonal; of a 2x2
   pivot at k, k+1: D(k,k+1) above the diagonal, 0 below out   pivots[n] 1x1: the 1-based row exchanged with k; 2x2: minus the row exchanged
   with k+1, in both in    epsilon  a column whose largest entry is at most this, or at most the largest entry of the block times this where
   the whole block is no larger, gets the pivot +-epsilon; 0: only a zero column, which gets 1e-8 work     of the dense kernels The strict
   upper triangle is otherwise undefined. Returns 0, -2 for a bad n, -4 for a bad lda. */
template <typename value_t, mirror sym>
int64_t block_ldlt_bunch_kaufman(int64_t n, value_t *a, int64_t lda, int64_t *pivots, pivot_counts *counts, double epsilon, void *work);

/* Diagonal pivoting: the largest remaining diagonal entry is the next pivot (the last of equals), always 1x1. Layout and results as above.
   diagonal[n]  unscaled diagonal of the matrix, for the hook; read only with use_hook
   use_hook     the pivot hook decides on every pivot; otherwise |pivot| <= epsilon is replaced by +-epsilon (1e-8 where that is 0) */
template <typename value_t, mirror sym>
int64_t block_ldlt_diagonal(int64_t n, value_t *a, int64_t lda, int64_t *pivots, pivot_counts *counts, double epsilon,
                            const value_t *diagonal, bool use_hook, void *work);
