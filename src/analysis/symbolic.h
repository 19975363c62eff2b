/* The steps of the symbolic analysis, for this room only. Columns and supernodes are numbered from 1 in the new order; an array with the
   length [n] has a word for each column, one with [S] a word for each supernode. None of these routines allocates unless it says so. */
#pragma once

#include <cstdint>

#include "analysis/analysis.h"
#include "analysis/ordering.h"

/* Runs at the end of the ordering: elimination tree, column counts, supernode partition, domain table in supernode numbers.
   in    control  neqns, domains, panel_columns, nproc
         arrays   perm, invp, xadj, adj; domain_table in column numbers
   out   arrays   parent, colcnt, snode, xsuper; domain_table in supernode numbers; the first n words of work: mark_twins
         control  supernodes, lindx_size, largest_supernode, l_entries; domains falls to 1 (and the table to its form for one domain) when
                  the table does not describe independent subtrees, so read it again
         groups   of the ordering, or null
   work  arrays   lists (5n words), scratch_a, scratch_b
   Returns 0. */
int64_t analysis_prelude(control_block *control, const ordering_arrays *arrays, const column_groups *groups = nullptr);

/* ---- walks over the domain table ---- */

/* All numbers 1..count once, as ascending ranges: the pairs 1..domains of the table first, then what lies before, between and after them.
   A table whose non-empty pairs are not ascending and disjoint counts as empty. */
struct domain_walk {
    int64_t count, domains;
    const int64_t *table;
    int64_t step, reached;
};
domain_walk open_domain_walk(int64_t count, int64_t domains, const int64_t *table);
/* False at the end; otherwise a range of one number or more. */
bool next_range(domain_walk *walk, int64_t *first, int64_t *last);

/* True when pair number domain (from 1) lies inside 1..count and is not empty. */
inline bool domain_pair(const int64_t *table, int64_t domain, int64_t count, int64_t *first, int64_t *last)
{
    *first = table[2 * domain - 2];
    *last = table[2 * domain - 1];
    return *first >= 1 && *first <= *last && *last <= count;
}

/* One past the last supernode of the domains; 1 when all are empty. */
int64_t first_above_domains(int64_t supernodes, int64_t domains, const int64_t *table);

/* ---- tree and counts ---- */

/* Columns that need no look at their neighbours, as with several unknowns at one node: twin[j-1] is 1 where columns j-1 and j are
   neighbours and have the same ones apart from each other, else 0. perm null: columns as given. Lists in different orders are not
   recognised. */
void mark_twins(int64_t neqns, int64_t nproc, const int64_t *xadj, const int64_t *adj, const int64_t *perm, int64_t *twin);

/* Elimination tree, 0 at a root (Liu 1990), with path compression. Domains are independent and run in parallel; the result does not depend
   on the table. twin[n] of mark_twins or null; work ancestor[n]; nearly linear in the entries of adj. */
void elimination_tree(int64_t neqns, int64_t nproc, int64_t domains, const int64_t *domain_table, const int64_t *xadj, const int64_t *adj,
                      const int64_t *perm, const int64_t *invp, int64_t *parent, int64_t *ancestor, const int64_t *twin = nullptr);

/* Children of each node as linked lists, ascending: first_child[n] and sibling[n] out, 0 ends a list; roots are on no list. */
void child_lists(int64_t count, const int64_t *parent, int64_t *first_child, int64_t *sibling);

/* Entries of each column of L, the diagonal included: colcnt[n] out. Nearly linear in the entries of adj (Gilbert, Ng and Peyton 1994).
   twin[n] of mark_twins or null; row_weight[n], what an entry counts in each row by given numbers, or null for ones; work[5 n]. Returns
   their sum. */
int64_t column_counts(int64_t neqns, const int64_t *xadj, const int64_t *adj, const int64_t *perm, const int64_t *invp,
                      const int64_t *parent, int64_t *colcnt, int64_t *work, const int64_t *twin = nullptr,
                      const int64_t *row_weight = nullptr);

/* Tree and counts of all columns from those of their groups, which have fewer edges.
   in    perm, xadj, adj, groups  an order by groups; domain_table in column numbers
   out   parent[n], colcnt[n], twin[n] as mark_twins gives it
   work  snode[n], xsuper[n], scratch_a[n], scratch_b[n], lists[5n], and work[n + 2 domains] behind twin
   Returns the sum of the counts. */
int64_t grouped_tree(const control_block *control, const ordering_arrays *arrays, const column_groups *groups);

/* Fundamental supernodes of at most panel_columns columns.
   in    tied[n]  1 where the limit must not cut between a column and the one before it; null for nowhere
   out   snode[n], xsuper[S + 1]; lindx_size, the sum of the row list lengths; largest_supernode, the longest run of columns before the
         limit cuts it
   Returns S. */
int64_t supernode_partition(int64_t neqns, const int64_t *parent, const int64_t *colcnt, int64_t panel_columns, int64_t *snode,
                            int64_t *xsuper, int64_t *lindx_size, int64_t *largest_supernode, const int64_t *tied = nullptr);

/* ---- domain table ---- */

/* Column numbers to supernode numbers, all 2 * domains pairs in place. A supernode that crosses the end of a pair counts to what
   follows; an empty pair becomes (2, 1) or stays empty. */
void translate_table(int64_t neqns, int64_t supernodes, int64_t domains, const int64_t *snode, int64_t *domain_table);

/* Whether the pairs 1..domains (supernode numbers) cover everything below the top without a gap and no supernode of one has its parent in
   another: what the two-level schemes rely on. */
bool domains_are_independent(int64_t supernodes, int64_t domains, const int64_t *domain_table, const int64_t *xsuper, const int64_t *snode,
                             const int64_t *parent);

/* ---- structure of the factors ---- */

/* Where each column starts in lnz and unz, in domain order, so that the factors of a domain are contiguous: xlnz[n + 1], xunz[n + 1] out.
   Returns 0, or -20 when a position would pass 2^61 - 3 - n. */
int64_t column_pointers(int64_t neqns, int64_t supernodes, int64_t domains, const int64_t *domain_table, const int64_t *xsuper,
                        const int64_t *colcnt, int64_t *xlnz, int64_t *xunz);

struct row_structure_input {
    int64_t neqns, supernodes, nproc, domains;
    const int64_t *domain_table; /* independent, as analysis_prelude leaves it */
    const int64_t *xadj, *adj, *perm, *invp, *xsuper, *snode, *xlindx;
    const int64_t *twin;            /* [n] of mark_twins, or null */
    int64_t first_separator_column; /* first column above the domains */
};
struct row_structure_output {
    int64_t *lindx;          /* row lists of all supernodes, ascending, at the places that xlindx gives */
    int64_t *sparent;        /* [S] */
    int64_t *update_count;   /* [S] targets of each supernode */
    int64_t *separator_tail; /* [S] rows of each that stand above the domains */
    int64_t updates;         /* sum of update_count */
    int64_t bound;           /* entries of the largest block sent to one target, where the triangle above the target's diagonal counts as
                                nothing, or of the largest part of a panel below its diagonal block */
};
/* Row lists of all supernodes (Ng and Peyton 1993) and what is counted along them. The domains run in parallel.
   out   the arrays are the caller's, their contents and the two numbers are written
   work[2 S + 2 n min(nproc, domains)], at least 2 S + 2 n
   Returns 0, or -2 when a list does not have the length that xlindx says. */
int64_t row_structure(const row_structure_input *input, row_structure_output *out, int64_t *work);

/* How many of the ascending rows row..end-1 lie in the supernode of the first one, whose columns end before behind. Mostly it is met to
   its end. */
inline int64_t rows_in_target(const int64_t *row, const int64_t *end, int64_t behind)
{
    const int64_t left = end - row, whole = behind - *row;
    if (whole <= left && row[whole - 1] == behind - 1) return whole;
    int64_t run = 1;
    while (run < left && row[run] < behind) ++run;
    return run;
}

/* Threads for a loop over the supernodes: one where a second one would not have started before the end. */
inline int symbolic_threads(int64_t neqns, int64_t nproc)
{
    return neqns < 5000 || nproc < 2 ? 1 : static_cast<int>(nproc);
}

/* ---- work order ---- */

/* Estimated work that each supernode costs a left-looking factorization, in operations: the updates it receives and its own block. lists:
   those of a single level. */
void update_costs(const supernodal_structure *s, const work_list_arrays *lists, double *cost);

/* Rewrite work_order[S] (a valid order on entry) for a dynamic loop of nproc threads: every descendant before its targets, leaves negative,
   and cut it into tasks. Reads the other lists of a single level. Allocates 9 words for each supernode; when that fails the order stays as
   it is and each supernode is a task. */
void fill_work_order(const supernodal_structure *s, int64_t nproc, work_list_arrays *arrays);
