#include <algorithm>
#include <cstring>

#include <omp.h>

#include "analysis/symbolic.h"

/* Scratch of one thread: marker[i - 1] is the last supernode that met row i; extra collects rows that are not in order yet. */
struct merge_scratch {
    int64_t *marker, *extra;
};

/* The rows of a finished child that lie behind column last. */
static const int64_t *rows_behind(const row_structure_input &in, const int64_t *lindx, int64_t child, int64_t last, int64_t *count)
{
    const int64_t *row = lindx + (in.xlindx[child - 1] - 1) + (in.xsuper[child] - in.xsuper[child - 1]);
    const int64_t *end = lindx + (in.xlindx[child] - 1);
    while (row < end && *row <= last) ++row;
    *count = end - row;
    return row;
}

/* Merge the ascending extra[added] into the ascending tail[kept], which has room for both. */
static void merge_into(int64_t *tail, int64_t kept, const int64_t *extra, int64_t added)
{
    while (added > 0) {
        if (kept > 0 && tail[kept - 1] > extra[added - 1]) {
            tail[kept + added - 1] = tail[kept - 1];
            --kept;
        } else {
            tail[kept + added - 1] = extra[added - 1];
            --added;
        }
    }
}

/* Take the rows that are not marked yet into extra, never more than room. Returns how many. */
static int64_t collect(const int64_t *row, int64_t count, int64_t s, int64_t room, int64_t *marker, int64_t *extra)
{
    int64_t added = 0;
    for (int64_t k = 0; k < count && added < room; ++k) {
        if (marker[row[k] - 1] == s) continue;
        marker[row[k] - 1] = s;
        extra[added++] = row[k];
    }
    return added;
}

/* The rows of s behind its own columns: the union of what its children and its matrix columns have there. The count is known, so the
   union ends as soon as it is complete; mostly one child has it all. */
static bool fill_tail(const row_structure_input &in, const int64_t *lindx, const int64_t *first_child, const int64_t *sibling, int64_t s,
                      int64_t *tail, int64_t wanted, const merge_scratch &scratch)
{
    const int64_t last = in.xsuper[s] - 1;
    int64_t longest = 0, kept = 0;
    const int64_t *base = nullptr;
    for (int64_t child = first_child[s - 1]; child != 0; child = sibling[child - 1]) {
        int64_t count;
        const int64_t *row = rows_behind(in, lindx, child, last, &count);
        if (count <= kept) continue;
        base = row;
        kept = count;
        longest = child;
        if (kept >= wanted) break;
    }
    if (kept > wanted) return false;
    if (kept > 0) std::memcpy(tail, base, static_cast<size_t>(kept) * sizeof(int64_t));
    if (kept == wanted) return true;

    for (int64_t k = 0; k < kept; ++k) scratch.marker[tail[k] - 1] = s;
    int64_t added = 0;
    for (int64_t child = first_child[s - 1]; child != 0 && kept + added < wanted; child = sibling[child - 1]) {
        int64_t count;
        const int64_t *row = rows_behind(in, lindx, child, last, &count);
        if (child != longest) added += collect(row, count, s, wanted - kept - added, scratch.marker, scratch.extra + added);
    }
    for (int64_t j = in.xsuper[s - 1]; j <= last && kept + added < wanted; ++j) {
        const int64_t given = in.perm[j - 1];
        for (int64_t p = in.xadj[given - 1]; p < in.xadj[given]; ++p) {
            const int64_t row = in.invp[in.adj[p - 1] - 1];
            if (row > last) added += collect(&row, 1, s, wanted - kept - added, scratch.marker, scratch.extra + added);
        }
    }
    if (kept + added != wanted) return false;
    std::sort(scratch.extra, scratch.extra + added);
    merge_into(tail, kept, scratch.extra, added);
    return true;
}

/* Row lists of the supernodes first..last, ascending, which form a union of subtrees or what stands above finished subtrees. Parents
   outside the range are not told of their children here. */
static bool build_range(const row_structure_input &in, int64_t first, int64_t last, int64_t *lindx, int64_t *sparent, int64_t *first_child,
                        int64_t *sibling, const merge_scratch &scratch)
{
    for (int64_t s = first; s <= last; ++s) {
        int64_t *list = lindx + (in.xlindx[s - 1] - 1);
        const int64_t columns = in.xsuper[s] - in.xsuper[s - 1];
        const int64_t wanted = in.xlindx[s] - in.xlindx[s - 1] - columns;
        if (wanted < 0) return false;
        for (int64_t k = 0; k < columns; ++k) list[k] = in.xsuper[s - 1] + k;
        if (!fill_tail(in, lindx, first_child, sibling, s, list + columns, wanted, scratch)) return false;
        const int64_t up = wanted > 0 ? in.snode[list[columns] - 1] : 0;
        sparent[s - 1] = up;
        if (up < first || up > last) continue;
        sibling[s - 1] = first_child[up - 1];
        first_child[up - 1] = s;
    }
    return true;
}

int64_t row_structure(const row_structure_input *input, int64_t *lindx, int64_t *sparent, int64_t *work)
{
    const row_structure_input in = *input;
    int64_t *first_child = work, *sibling = work + in.supernodes, *per_thread = work + 2 * in.supernodes;
    domain_walk walk = open_domain_walk(in.supernodes, in.domains, in.domain_table);
    const int64_t wanted_threads = in.nproc < walk.domains ? in.nproc : walk.domains;
    const int threads = static_cast<int>(wanted_threads > 1 ? wanted_threads : 1);
    std::memset(first_child, 0, static_cast<size_t>(in.supernodes) * sizeof(int64_t));
    int32_t complete = 1;

    /* the domains are independent subtrees */
#pragma omp parallel num_threads(threads) reduction(min : complete) if (threads > 1)
    {
        const merge_scratch scratch = {per_thread + omp_get_thread_num() * 2 * in.neqns,
                                       per_thread + (omp_get_thread_num() * 2 + 1) * in.neqns};
        std::memset(scratch.marker, 0, static_cast<size_t>(in.neqns) * sizeof(int64_t));
#pragma omp for schedule(dynamic, 1)
        for (int64_t d = 1; d <= walk.domains; ++d) {
            int64_t first, last;
            if (domain_pair(in.domain_table, d, in.supernodes, &first, &last) &&
                !build_range(in, first, last, lindx, sparent, first_child, sibling, scratch))
                complete = 0;
        }
    }
    if (complete == 0) return -2;
    for (int64_t d = 1; d <= walk.domains; ++d) {
        int64_t first, last;
        if (!domain_pair(in.domain_table, d, in.supernodes, &first, &last)) continue;
        for (int64_t s = first; s <= last; ++s) {
            const int64_t up = sparent[s - 1];
            if (up == 0 || (up >= first && up <= last)) continue;
            sibling[s - 1] = first_child[up - 1];
            first_child[up - 1] = s;
        }
    }
    int64_t first, last;
    while (next_range(&walk, &first, &last))
        if (walk.step > walk.domains &&
            !build_range(in, first, last, lindx, sparent, first_child, sibling, {per_thread, per_thread + in.neqns}))
            return -2;
    return 0;
}
