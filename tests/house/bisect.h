/* Jobs for the partitioner, once per index width. Each returns the code of its guard: 0 or -2. Numbers count from 0, as METIS counts. */
#pragma once

#include <cstdint>
#include <vector>

#include "wkl_metis_guard.h"

struct plain_graph {
    std::vector<int64_t> start;  /* [n + 1] */
    std::vector<int64_t> target; /* neighbours of vertex i: target[start[i]] .. target[start[i+1]-1] */
};

/* What a job leaves: for each vertex 0 or 1 (halves) or 2 (separator); for an ordering the new number of each vertex. */
using vertex_marks = std::vector<int64_t>;

struct metis_jobs {
    int64_t (*bisect)(wkl_metis_arena *arena, const plain_graph &graph, int64_t seed, vertex_marks &marks);
    int64_t (*order)(wkl_metis_arena *arena, const plain_graph &graph, int64_t seed, vertex_marks &marks);
    int64_t (*kway)(wkl_metis_arena *arena, const plain_graph &graph, int64_t seed, vertex_marks &marks);
    /* Bisect, split, and bisect both halves, in two OpenMP sections when parallel; marks 0..2 and 3..5 in the halves, 6 the first
       separator. The halves are freed by the sections, having been made by the thread that splits. */
    int64_t (*dissect)(const plain_graph &graph, bool parallel, vertex_marks &marks);
};
extern const metis_jobs metis_jobs_64;
extern const metis_jobs metis_jobs_32;
