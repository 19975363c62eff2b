/* Numeric factorization: the position map, the supernodal drivers and the block kernels. */
#pragma once

#include <cstdint>

#include "state/factor_store.h"
#include "state/records.h"
#include "state/structure.h"

/* ---- layout of the factors, which the solves rely on -----------------------------------------------------------------------------

   A supernode has c columns and r rows; its lnz block is r by c, column-major, leading dimension r; pivot records are local, 1..c.

   Cholesky (2, 4)       lower triangle of the top square and the rows below it hold L, with its true (real, positive) diagonal. The strict
                         upper triangle is undefined. P A P' = L L^H.
   LDL^T (-2, -4, 6)     both pivoting kernels leave the same layout, in which all exchanges are applied to the whole block (also to the
                         columns of L computed before, and to the columns of the panel): with E the product of the exchanges,
                         E A_ss E' = L D L' inside the block. The strict lower triangle holds the unit lower L, with 0 in (k+1, k) of a
                         2x2 pivot; the diagonal holds that of D; of a 2x2 pivot, (k, k+1) in the upper triangle holds D(k, k+1)
                         (conjugate of D(k+1, k) for Hermitian types); the rest of the upper triangle is undefined. The panel holds
                         L_panel = A_panel E' L^-T D^-1 (not scaled by D). ' conjugates for Hermitian types.
                         pivots: 1x1: the row exchanged with, positive; 2x2 at k, k+1: minus the row that k+1 was exchanged with, in both.
   LU (11, 13, 1, 3)     getrf layout: unit L below, U on and above the diagonal of the top square, exchanges applied to whole rows of the
                         square and to the rows of the U panel; pivots: the row exchanged with. The rows below the square hold the L panel
                         (times the inverse of U_ss). unz: (r - c) by c, column i = row i of U right of the square (after the exchanges). */

/* ---- position map --------------------------------------------------------------------------------------------------------------- */

struct position_map_input {
    int64_t matrix_type;
    int64_t symmetric; /* 1: upper triangle stored, lnz side only */
    int64_t scaling_on;
    const int64_t *ia, *ja;   /* 1-based working input */
    const int64_t *row_order; /* types 11, 13: row row_order[i-1] of A is row i of the factored matrix; null for the identity */
    const supernodal_structure *structure;
    int64_t *scratch_a, *scratch_b, *scratch_c; /* [n + 1] */
    int64_t *work;                              /* position_map_work_words(n) with two threads and more */
    int64_t nproc;
};
inline constexpr int64_t position_map_threads = 4; /* that look up rows side by side, each with a table of its own */
inline int64_t position_map_work_words(int64_t neqns)
{
    return (position_map_threads - 1) * (neqns + 1);
}
/* Built once per analysis; fills the arrays of map (each with room for length nnz + n) and its lengths. O(nnz log) at worst, no
   search at a later factorization. Returns 0 or -2. */
int64_t build_position_map(const position_map_input *input, position_map *map);

/* ---- update program --------------------------------------------------------------------------------------------------------------- */

/* 32-bit words of the program for a structure with narrow supernodes; 0 when it would not pay. */
int64_t update_program_words(int64_t matrix_type, const supernodal_structure *structure);
struct update_program_input {
    int64_t matrix_type;
    const supernodal_structure *structure;
    const position_map *map;                    /* read for LU */
    int64_t words;                              /* of the program, as counted above */
    int64_t *scratch_a, *scratch_b, *scratch_c; /* [supernodes] */
};
void build_update_program(const update_program_input *input, int32_t *program);

/* ---- factorization -------------------------------------------------------------------------------------------------------------- */

/* One numeric factorization. All arrays are borrowed. */
template <typename value_t>
struct factor_input {
    int64_t matrix_type;   /* 1 and 3 arrive as 11 and 13 where their factors are unsymmetric */
    int64_t nproc;         /* threads */
    int64_t single_thread; /* 1: the serial driver */
    int64_t pivoting;      /* 0 diagonal pivoting, else Bunch-Kaufman (symmetric indefinite) */
    int64_t perturbation_exponent;
    int64_t callback_on;  /* pivot hook */
    int64_t message_flag; /* percent prints */
    int64_t scaling_on;
    int64_t nnz_a;
    const value_t *a;
    const double *scale_row, *scale_col; /* by given row and column; null without scaling */
    const int64_t *row_order;            /* as in position_map_input */
    const supernodal_structure *structure;
    const position_map *map;
    const work_lists *lists; /* single_thread 1: only work_order may be absent */
    const int32_t *program;  /* of the updates, for one thread in core; null where there is none */
    factor_store<value_t> *store;
    int64_t *thread_rows;   /* supernodes + (2 nproc + 1) n words */
    value_t *update_buffer; /* nproc rows of buffer_entries */
    int64_t buffer_entries;
    int64_t entries_per_thread; /* entries of lnz that make one more thread worth its start; 0: all nproc threads take part */
};
/* A setting of entries_per_thread: a small factorization of half a millisecond stays with one thread. */
inline constexpr int64_t factor_entries_per_thread = 20000;
struct factor_result {
    int64_t error;      /* 0; -1 failed pivot, kernel failure or a stop asked by the progress hook; -2 update buffer too small; a pager
                           failure is reported by the pager itself and gives -1 */
    int64_t failed_row; /* 1-based number, in the caller's rows, of the pivot that failed; 0 none */
    int64_t stopped;    /* 1 when the progress hook asked to stop */
    int64_t perturbed, positive, negative;
};
/* Chooses the driver by type, symmetry and thread count, computes the epsilon, factors. Allocates nothing. */
template <typename value_t>
void numeric_dispatch(const factor_input<value_t> *input, factor_result *result);

/* Entries of one thread's update buffer that the drivers need (value_t entries). control->update_size is the bound from the symbolic
   step; the memory plan gives every thread max(update_size, n). */
