/* Analysis: from the pattern of A to the supernodal structure, its counts and the parallel work lists. Routines take the arrays they work
   on; all index arrays hold 1-based values. They print nothing and return codes: 0, or negative as each says. Memory that grows with the
   problem is the caller's; where a routine must allocate, it says so, and a failure is the code -2. */
#pragma once

#include <cstdint>

#include "state/records.h"
#include "state/structure.h"

/* ---- matching and scaling ------------------------------------------------------------------------------------------------------- */

/* Workspace in 8-byte words that matching_step needs. */
int64_t matching_work_words(int64_t neqns, int64_t nnz, int64_t matrix_type);

/* Maximum-product transversal with scale factors (Duff and Koster 2001). Symmetric types (-2, -4, 6) store the upper triangle and are
   matched as the full matrix; their scale factors are symmetrised and scale_row equals scale_col.
   in    method         0 no matching: identity row order and unit scale factors; 1 shortest augmenting paths; 2 the alternative method:
                        equilibration in the largest magnitude (Ruiz 2001), then a matching whose smallest entry is within a factor of
                        ten of the best possible (Pothen and Fan 1990). It costs no more than some passes over the entries whatever the
                        values are, and its scaling does not depend on one optimal matching; but matched entries are only large, not 1
         a              values, read by magnitude
   out   row_order[n]   row row_order[i-1] of A becomes row i, so that the diagonal holds large entries; for symmetric types the matching
                        itself (row_order[i-1] is the row matched to column i)
         scale_row[n], scale_col[n]   |scale_row(i) a(i,j) scale_col(j)| <= 1, equal to 1 on matched entries
   work  work           matching_work_words words
   Entries that are zero or not a number count as absent. row_order is a whole permutation and the scale factors are finite, positive and
   bound all entries by 1 in every case (as far as the range of double allows: they stay within 1e-300 .. 1e300).
   Returns n when all rows were matched, else the (smaller) number of matched rows: the structural rank. Allocates nothing. */
template <typename value_t>
int64_t matching_step(int64_t matrix_type, int64_t method, int64_t n, const int64_t *ia, const int64_t *ja, const value_t *a,
                      int64_t *row_order, double *scale_row, double *scale_col, int64_t *work);

/* The 1x1 and 2x2 pivots that a symmetric matching suggests (Duff and Pralet 2005). A column whose scaled diagonal entry is large enough is
   a pivot by itself; what lies between such columns on a cycle of the matching is cut into pairs.
   in    ia, ja, a, scale[n]  the upper triangle and the scale factors of matching_step
   inout match[n]             in: the matching. out: match[i] = i: 1x1; match[i] = j and match[j] = i: 2x2; match[i] = j alone: the diagonal
                              entry of i is small, and it becomes a good 1x1 pivot by the elimination of a neighbour such as j
   work  work[3 n] */
template <typename value_t>
void suggest_pivots(int64_t n, const int64_t *ia, const int64_t *ja, const value_t *a, const double *scale, int64_t *match, int64_t *work);

/* Ordering of the graph compressed by such pivots: the two columns of a pair get adjacent numbers, and a column that waits for a neighbour
   comes behind one. Allocates; release_compressed_order frees.
   in    match[n]  of suggest_pivots
   out   result    order[n] as new position -> given column; domain_table of 2 * domains pairs in column numbers; domains; xadj[n + 1], adj:
                   adjacency by given columns in which the columns of a pair have the same rows in the factors; tied[n]: 1 at the new
                   position of the second column of a pair, else 0
   Returns 0, or -2 with everything freed. */
struct compressed_order {
    int64_t *order;
    int64_t *domain_table;
    int64_t domains;
    int64_t *xadj, *adj, *tied;
};
int64_t compress_pairs(const control_block *control, const int64_t *ia, const int64_t *ja, const int64_t *match, compressed_order *result);
void release_compressed_order(compressed_order *result);

/* ---- ordering ------------------------------------------------------------------------------------------------------------------- */

struct ordering_arrays {
    int64_t *perm, *invp, *parent, *colcnt, *xsuper, *snode; /* out */
    int64_t *xadj, *adj;                                     /* out: symmetrised pattern, diagonal excluded */
    int64_t *domain_table;                                   /* out, ordering_slack words */
    int64_t *lists;                                          /* ordering_lists_size words */
    int64_t *work;                                           /* ordering_work_size words; the first n go on to symbolic_step */
    int64_t *scratch_a, *scratch_b;                          /* [n + 1] */
    const int64_t *matching_order;                           /* array 44: row order of a matching (11, 13), read when matching > 0 */
    const compressed_order *pairs;                           /* for -4, -2, 6 with matching, else null */
    int64_t ordering_lists_size, ordering_work_size, ordering_slack;
};

/* Stage 1: symmetrised adjacency, fill-reducing ordering, domain table, elimination tree, column counts, supernode partition.
   inout caller_perm  read when perm_mode is 1 or above 2 (checked: see failing below), written when perm_mode is 2; may be null otherwise
   out   control      adjacency_size, domains, supernodes, lindx_size, largest_supernode, l_entries, internal_code, ...
   Returns internal_code: 0, -2 memory, -20 (a caller's permutation out of range or with repeated entries; its message was printed when
   control->message_flag is set), others negative. */
int64_t reorder_step(control_block *control, phase_times *times, const int64_t *ia, const int64_t *ja, int64_t *caller_perm,
                     ordering_arrays *arrays);

/* ---- symbolic factorization ----------------------------------------------------------------------------------------------------- */

struct symbolic_arrays {
    const int64_t *perm, *invp, *xadj, *adj, *xsuper, *snode;
    int64_t *parent, *colcnt; /* parent is recomputed */
    int64_t *lindx, *xlindx, *xlnz, *xunz, *sparent, *work_order, *update_count, *separator_tail, *sentinel_a, *sentinel_b;
    const int64_t *domain_table;
    int64_t *lists;      /* as in stage 1 */
    const int64_t *work; /* its first n words as stage 1 left them */
    int64_t *scratch;
};

/* Stage 2: row lists, column pointers, per-supernode tables, update bounds, and the number of all updates in task_count. Returns 0, -182
   (the factors would pass 2^61 entries), -180. */
int64_t symbolic_step(control_block *control, phase_times *times, symbolic_arrays *arrays);

/* Block bounds after symbolic_step: factor_block_l, _u, _v of ooc and column_count_bound of control. */
void block_bounds(control_block *control, ooc_state *ooc, const supernodal_structure *s, const int64_t *xadj);

/* Real operations (one addition or multiplication each; complex counted in real operations) of one factorization, in millions. */
double operation_count(const supernodal_structure *s, int64_t matrix_type);

/* ---- parallel work lists -------------------------------------------------------------------------------------------------------- */

/* Stage 3. The sizes are known only after a counting pass, so there are two calls: work_list_sizes after stage 2 (it fills
   control->parallel_list_size, task_count, task_bound, subgraphs; of a single level it takes the task_count of stage 2), then
   build_work_lists into arrays of these sizes. The initial arrays 32 to 36 of the memory plan may be used as scratch by neither call. */
void work_list_sizes(control_block *control, const supernodal_structure *s);
struct work_list_arrays {
    int64_t *work_order;              /* inout [S]: leaves-first order of symbolic_step, rewritten so that it also suits the domains */
    int64_t *ready_start;             /* [S + 1] */
    int64_t *list_start;              /* [S + 1], or [(P + 1) top + 1] */
    int64_t *list_source, *list_rows; /* [task_count] */
    int64_t *tasks;                   /* single level: [S + 2] number of tasks, then their starts in the work order, and its end */
    const int64_t *update_count;      /* in, single level: [S] of symbolic_step */
};
void build_work_lists(const control_block *control, const supernodal_structure *s, work_list_arrays *arrays);
/* First supernode above the domains: one past the last supernode of domain P; supernodes + 1 when there is none. */
int64_t first_top_supernode(const supernodal_structure *s);
