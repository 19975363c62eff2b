/* Views of the analysis results, borrowed from solver_state: what the factorization and the solves read. Nothing here owns memory. */
#pragma once

#include <cstdint>

/* The supernodal structure of the factors. Supernode s has columns xsuper[s-1] .. xsuper[s]-1 and the row list
   lindx[xlindx[s-1]-1 .. xlindx[s]-2], ascending, own columns first. Its block of lnz starts at xlnz[first-1], is column-major, and its
   leading dimension is its row count. Its block of unz (types with a separate U) starts at xunz[first-1] and has rows - columns rows:
   column c of it is row c of U right of the diagonal block. */
struct supernodal_structure {
    int64_t neqns, supernodes;
    const int64_t *perm, *invp;
    const int64_t *xsuper, *snode, *xlindx, *lindx, *xlnz, *xunz, *sparent;
    int64_t nnz_l, nnz_u;
    int64_t domains;             /* P, a power of two */
    const int64_t *domain_table; /* 2P pairs in supernode numbers; an empty pair is (2, 1) */
};

inline int64_t supernode_columns(const supernodal_structure &s, int64_t number)
{
    return s.xsuper[number] - s.xsuper[number - 1];
}
inline int64_t supernode_rows(const supernodal_structure &s, int64_t number)
{
    return s.xlindx[number] - s.xlindx[number - 1];
}
/* Were supernode number and the next one a single supernode before they were cut for their width? The rows of the next one are then those
   of this one behind its own columns. */
inline bool continues_in_next(const supernodal_structure &s, int64_t number)
{
    return s.sparent[number - 1] == number + 1 && supernode_rows(s, number + 1) == supernode_rows(s, number) - supernode_columns(s, number);
}
/* Columns that such supernodes have together when a parallel factorization updates them as one: more would keep the other threads
   waiting. */
inline constexpr int64_t parallel_span_columns = 256;
inline const int64_t *supernode_row_list(const supernodal_structure &s, int64_t number)
{
    return s.lindx + (s.xlindx[number - 1] - 1);
}

/* Parallel work lists, see analysis/work_lists.cpp for how they are built.
   Single level (two_level == 0): supernode s updates the targets list_source[p-1], p = list_start[s-1] .. list_start[s]-1, and
   list_rows[p-1] is the count of rows of s from the first row inside the target to the end of its row list. ready_start[s-1] ..
   ready_start[s]-1 is the segment of ready_source and ready_rows that s fills up as its descendants finish (their difference is the
   number of updates s must receive).
   Two-level: domain j owns the supernodes domain_table pair j; top supernodes are first_top .. supernodes. For the top supernode number
   first_top + i - 1 and j = 1 .. domains + 1, the list number l = (i - 1)(domains + 1) + j holds the entries list_start[l-1] ..
   list_start[l]-1: descendant supernode and its remaining rows, from domain j, or from the top for j = domains + 1; ascending. */
struct work_lists {
    int64_t two_level;         /* 0, 1 or 2 */
    int64_t first_top;         /* first supernode above the domains; supernodes + 1 when there is none */
    const int64_t *work_order; /* [supernodes] every descendant before its targets; a leaf is stored negative */
    const int64_t *list_start, *list_source, *list_rows;
    const int64_t *ready_start; /* [supernodes + 1] */
    int64_t *ready_source, *ready_rows;
    int64_t *status;           /* [supernodes] */
    int64_t *cursor;           /* two-level: [(domains + 1) * top supernodes] */
    int64_t tasks;             /* single level: pieces of the work order that a thread takes at a time */
    const int64_t *task_start; /* [tasks + 1] places in the work order, from 0; several supernodes are a whole subtree, numbered in a row */
};

/* Where each entry of the matrix goes. For column c of the factor (new numbering) the lnz entries are p = start_l[c-1] .. start_l[c]-1:
   |dest_l[p-1]| is the 1-based index in lnz, src_l[p-1] the 1-based index in a. dest_l below 1 marks the transpose image of a stored
   entry (to be conjugated for Hermitian types). The same for the unz side of column c. col is only there with scaling: the given number
   of the other scale factor. */
struct position_map {
    int64_t *start_l, *dest_l, *src_l, *col_l;
    int64_t *start_u, *dest_u, *src_u, *col_u;
    int64_t length_l, length_u;
};
