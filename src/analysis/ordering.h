/* The parts of the ordering step, for this room only. All numbers are 1-based unless a comment says otherwise. Routines that allocate say
   so and return -2 when memory runs out; the others cannot fail. */
#pragma once

#include <cstdint>

#include "analysis/analysis.h"

/* ---- pattern ---- */

/* Symmetric adjacency without the diagonal from the stored pattern of a symmetric or structurally symmetric matrix, linear time.
   in   nproc       threads
        sequential  1: one worker fills the lists; 0: two workers, where only a triangle is stored
        triangle    1: ia, ja hold the upper triangle and each row starts with its diagonal; 0: both triangles, the diagonal anywhere
   out  xadj[n + 1], adj[xadj[n] - 1]
   work counts[n + 1], used when two workers fill the triangle */
void symmetrise_pattern(int64_t neqns, int64_t nproc, int64_t sequential, const int64_t *ia, const int64_t *ja, int64_t *xadj, int64_t *adj,
                        int64_t triangle, int64_t *counts);

/* True when a pattern with both triangles holds the transpose of every entry. work next[n] */
bool pattern_is_symmetric(int64_t neqns, const int64_t *ia, const int64_t *ja, int64_t *next);

/* Adjacency of B + B' without the diagonal, row i of B being row row_order[i-1] of the given pattern (row_order null: row i), linear time.
   out  xadj[n + 1], adj: at most 2 nnz entries
   work work[work_words]; nnz + 2n + 1 words are needed, and n more for each thread above the first that takes part */
void symmetrise_unsymmetric(int64_t neqns, int64_t nproc, const int64_t *ia, const int64_t *ja, const int64_t *row_order, int64_t *xadj,
                            int64_t *adj, int64_t *work, int64_t work_words);

/* ---- permutations ---- */

/* A caller's permutation: entries out of range are counted, the first one is told; invp[n] is the inverse when all is well.
   Returns 0 for a permutation, 1 for entries out of range, 2 for a repeated entry. */
int64_t check_permutation(int64_t neqns, const int64_t *perm, int64_t *invp, int64_t *out_of_range, int64_t *first_position);

/* invp[perm[k]] = k for a valid permutation. */
void invert_permutation(int64_t neqns, const int64_t *perm, int64_t *invp);

/* ---- minimum degree, see minimum_degree.h for the method ---- */

/* Multiple minimum degree of a whole graph. adj is destroyed; lists[5n + 5]; perm and invp out. */
void mmd_order(int64_t neqns, const int64_t *xadj, int64_t *adj, int64_t *invp, int64_t *perm, int64_t delta, int64_t *lists,
               int64_t integer_limit);

/* Multiple minimum degree that keeps the interface between nproc parts for the end.
   in    mode_one    1: the interface is ordered by minimum degree; 0: it keeps the order of the decomposition
   inout xadj, adj   only borrowed: the same on return
   out   perm, invp; held_count interface vertices; *peak_kb grows by what the domain starts take, in bytes
   work  lists[5n + 5], work[2n + xadj[n]]
   Allocates its partitioner's graph. Returns 0 or -2. */
int64_t constrained_order(int64_t neqns, int64_t nproc, int64_t *xadj, int64_t *adj, int64_t *perm, int64_t *invp, int64_t mode_one,
                          int64_t delta, int64_t integer_limit, int64_t *lists, int64_t *work, int64_t *held_count, int64_t *peak_kb);

/* Decomposition into nproc parts and their interface (0-based graph, both directions of each edge stored).
   out  order[n]         order[k] is the vertex at place k, both from 0: the interior of part 0, 1, ..., then the interface part by part
        part_start[nproc + 1]  places where the interiors start; part_start[nproc] is where the interface starts
   work part[n], on_interface[n]
   Returns 0 or -2. */
int64_t interface_decomposition(int64_t n, int64_t nproc, int64_t *xadj, int64_t *adj, int64_t *order, int64_t *part_start, int64_t *part,
                                int64_t *on_interface);

/* ---- nested dissection ---- */

/* Columns that stand side by side and have the same rows, as the unknowns of one node have them, form a group. An ordering by groups keeps
   the columns of each together and ascending. */
struct column_groups {
    int64_t count;       /* 0: there are none worth while */
    int64_t *first;      /* [count + 1] first column of each group; one block with the arrays below */
    int64_t *place;      /* [count + 1] of the group in the order, from 0 */
    int64_t *weight;     /* [count] columns, or the sum of their weights */
    int64_t *xadj, *adj; /* [count + 1], and the edges between groups */
};
void release_groups(column_groups *groups);

/* Nested dissection with up to threads threads.
   in    weight[n]     of the vertices, or null for ones
   inout domains       P, raised to a power of two
   inout xadj, adj     only borrowed: the same on return
   out   perm, invp
         domain_table  2P pairs in column numbers: the leaf domains, a free pair, the separators in pre-order; an empty pair is (k + 1, k)
         kept          null, or gets the groups that were ordered in the place of their columns; the caller releases them
   Allocates the partitioner's graphs. The result depends on the graph and P, not on the number of threads. Returns 0 or -2. */
int64_t nested_dissection_driver(int64_t neqns, int64_t threads, int64_t *xadj, int64_t *adj, const int64_t *weight, int64_t *perm,
                                 int64_t *invp, int64_t *domains, int64_t *domain_table, column_groups *kept = nullptr);

/* The table for one domain: (1, n - 1), (n, n). */
void single_domain_table(int64_t neqns, int64_t *domains, int64_t *domain_table);

/* The table of an ordering without domains, for P >= 2: everything but the last column in pair P, the last column above. */
void table_without_domains(int64_t neqns, int64_t domains, int64_t *domain_table);

/* When pair P ends at the last column, nothing is left for the separators: pair P + 1 becomes empty. P >= 2. */
void repair_last_pair(int64_t neqns, int64_t domains, int64_t *domain_table);

/* Move the leaf domains to the front, domain by domain, and number the separators behind them in post-order.
   inout perm, domain_table (P >= 2)   work label[n], old_perm[n] */
void regroup_domains(int64_t neqns, int64_t domains, int64_t *domain_table, int64_t *perm, int64_t *label, int64_t *old_perm);

/* After the table holds supernode numbers: the last separator ends where all separators end, and is not empty when one is not.
   Returns 1 when a pair other than P + 1 is empty or out of order, else 0. */
int64_t finish_domain_table(int64_t domains, int64_t *domain_table);
