#include <algorithm>
#include <cstring>

#include <omp.h>

#include "analysis/symbolic.h"

static constexpr int64_t words_apart = 512; /* a touch for each 4 kB */

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

/* Merge the ascending base[kept] and extra[added], which share no row, into tail. */
static void merge_rows(const int64_t *base, int64_t kept, const int64_t *extra, int64_t added, int64_t *tail)
{
    const int64_t *end = base + kept;
    for (int64_t k = 0; k < added; ++k) {
        const int64_t *next = std::lower_bound(base, end, extra[k]);
        tail = std::copy(base, next, tail);
        *tail++ = extra[k];
        base = next;
    }
    std::copy(base, end, tail);
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

/* Column j of s meets the same rows as the column before it in s. */
static bool adds_nothing(const row_structure_input &in, int64_t s, int64_t j)
{
    return j > in.xsuper[s - 1] && in.twin != nullptr && in.twin[j - 1] != 0;
}

/* The rows of the matrix columns of s that lie behind it, in any order and with repetitions, at most room. Returns how many there are. */
static int64_t matrix_rows(const row_structure_input &in, int64_t s, int64_t room, int64_t *extra)
{
    const int64_t last = in.xsuper[s] - 1;
    int64_t count = 0;
    for (int64_t j = in.xsuper[s - 1]; j <= last; ++j) {
        if (adds_nothing(in, s, j)) continue;
        const int64_t given = in.perm[j - 1];
        for (int64_t p = in.xadj[given - 1]; p < in.xadj[given]; ++p) {
            const int64_t row = in.invp[in.adj[p - 1] - 1];
            if (row <= last) continue;
            if (count < room) extra[count] = row;
            ++count;
        }
    }
    return count;
}

/* What the other children and the matrix columns of s add to the base. Few rows are sorted and looked up in the base; for many the base is
   marked. At most wanted rows are taken; extra comes out ascending. Returns how many. */
static int64_t rows_to_add(const row_structure_input &in, const int64_t *lindx, const int64_t *first_child, const int64_t *sibling,
                           int64_t s, int64_t base_child, const int64_t *base, int64_t kept, int64_t wanted, const merge_scratch &scratch)
{
    const int64_t last = in.xsuper[s] - 1, few = kept / 16;
    int64_t *extra = scratch.extra, found = matrix_rows(in, s, few, extra), added = 0, count;
    for (int64_t child = first_child[s - 1]; child != 0 && found <= few; child = sibling[child - 1]) {
        if (child == base_child) continue;
        const int64_t *row = rows_behind(in, lindx, child, last, &count);
        if (found + count <= few) std::copy(row, row + count, extra + found);
        found += count;
    }
    if (found <= few) {
        std::sort(extra, extra + found);
        for (int64_t k = 0; k < found && added < wanted; ++k) {
            if ((added == 0 || extra[k] != extra[added - 1]) && !std::binary_search(base, base + kept, extra[k])) extra[added++] = extra[k];
        }
        return added;
    }
    for (int64_t k = 0; k < kept; ++k) scratch.marker[base[k] - 1] = s;
    for (int64_t child = first_child[s - 1]; child != 0 && added < wanted; child = sibling[child - 1]) {
        const int64_t *row = rows_behind(in, lindx, child, last, &count);
        if (child != base_child) added += collect(row, count, s, wanted - added, scratch.marker, extra + added);
    }
    for (int64_t j = in.xsuper[s - 1]; j <= last && added < wanted; ++j) {
        if (adds_nothing(in, s, j)) continue;
        const int64_t given = in.perm[j - 1];
        for (int64_t p = in.xadj[given - 1]; p < in.xadj[given]; ++p) {
            const int64_t row = in.invp[in.adj[p - 1] - 1];
            if (row > last) added += collect(&row, 1, s, wanted - added, scratch.marker, extra + added);
        }
    }
    std::sort(extra, extra + added);
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
    int64_t added = 0;
    if (kept < wanted) added = rows_to_add(in, lindx, first_child, sibling, s, longest, base, kept, wanted - kept, scratch);
    if (kept + added != wanted) return false;
    merge_rows(base, kept, scratch.extra, added, tail);
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
    const int64_t touches = threads > 1 ? (in.xlindx[in.supernodes] - 1) / words_apart : 0;
    int32_t complete = 1;

    /* the domains are independent subtrees */
#pragma omp parallel num_threads(threads) reduction(min : complete) if (threads > 1)
    {
        const merge_scratch scratch = {per_thread + omp_get_thread_num() * 2 * in.neqns,
                                       per_thread + (omp_get_thread_num() * 2 + 1) * in.neqns};
        std::memset(scratch.marker, 0, static_cast<size_t>(in.neqns) * sizeof(int64_t));
        /* The first touch of long lists costs more than writing them, and the domains may be uneven. */
#pragma omp for schedule(static)
        for (int64_t k = 0; k < touches; ++k) lindx[k * words_apart] = 0;
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
