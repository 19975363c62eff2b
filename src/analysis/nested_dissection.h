/* The recursive part of nested dissection, which exists once for each index width of the partitioner; the driver picks one. */
#pragma once

#include <cstdint>

struct dissection_request {
    int64_t neqns, threads; /* n vertices */
    int64_t *xadj;          /* [n + 1] from 1; the wide form shifts both to numbers from 0 while it works */
    int64_t *adj;           /* from 1 */
    const int64_t *weight;  /* [n] of the vertices, or null for ones */
    int64_t columns;        /* of the matrix; above n where vertices are groups of equal columns */
    bool dense_rows;        /* some row is long: prune such vertices and order them last */
    int64_t domains;        /* P, a power of two */
    int64_t *order;         /* out [n]: vertex -> place, from 0 */
    int64_t *domain_table;  /* inout: 2P pairs of places from 0; all words -1 on entry, pairs without a range stay so */
};

/* Returns 0 or -2. */
int64_t dissect_narrow(const dissection_request *request); /* 32-bit indices: n and the entries of adj below 2^31 */
int64_t dissect_wide(const dissection_request *request);   /* 64-bit indices */
