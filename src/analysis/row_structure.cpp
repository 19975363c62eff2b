#include <algorithm>
#include <cstring>

#include <omp.h>

#include "analysis/symbolic.h"
#include "service/claim_memory.h"

/* What one thread works with. marker[i - 1] is the last supernode that met row i; extra collects rows that are not in order yet. */
struct list_builder {
    row_structure_output out;
    int64_t *first_child, *sibling, *marker, *extra;
    int64_t widest; /* columns of the widest supernode */
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

/* The first of the ascending base .. end that is not below row; without branches, since nobody can predict them. */
static const int64_t *first_from(const int64_t *base, const int64_t *end, int64_t row)
{
    for (int64_t left = end - base; left > 0;) {
        const int64_t half = (left + 1) / 2;
        const bool below = base[half - 1] < row;
        base += below ? half : 0;
        left = below ? left - half : half - 1;
    }
    return base;
}

/* What a merge put beside the base: rows, and supernodes that the base does not meet. */
struct merge_result {
    int64_t rows, targets;
};

/* Merge the ascending base[kept] and what is new in the ascending extra[found], no more than wanted rows of it, into tail. */
static merge_result merge_rows(const int64_t *snode, const int64_t *base, int64_t kept, const int64_t *extra, int64_t found, int64_t wanted,
                               int64_t *tail)
{
    const int64_t *end = base + kept, *start = tail;
    merge_result added = {0, 0};
    for (int64_t k = 0; k < found && added.rows < wanted; ++k) {
        const int64_t row = extra[k], *next = first_from(base, end, row);
        if ((next < end && *next == row) || (k > 0 && extra[k - 1] == row)) continue;
        const int64_t target = snode[row - 1];
        tail = std::copy(base, next, tail);
        if ((tail == start || snode[tail[-1] - 1] != target) && (next == end || snode[*next - 1] != target)) ++added.targets;
        *tail++ = row;
        ++added.rows;
        base = next;
    }
    std::copy(base, end, tail);
    return added;
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

/* The rows of the matrix columns of s that lie behind it, in any order and with repetitions, in extra[0 .. room]. Returns how many there
   are, or a number above room when they are more than that. */
static int64_t matrix_rows(const row_structure_input &in, int64_t s, int64_t room, int64_t *extra)
{
    const int64_t last = in.xsuper[s] - 1;
    int64_t count = 0;
    for (int64_t j = in.xsuper[s - 1]; j <= last && count <= room; ++j) {
        if (adds_nothing(in, s, j)) continue;
        const int64_t given = in.perm[j - 1];
        for (int64_t p = in.xadj[given - 1]; p < in.xadj[given]; ++p) { /* without a branch that nobody can predict */
            const int64_t row = in.invp[in.adj[p - 1] - 1];
            extra[count < room ? count : room] = row;
            count += row > last ? 1 : 0;
        }
    }
    return count;
}

/* What the other children and the matrix columns of s have behind it, ascending, in extra. Few rows are taken as they are, some of them
   twice or in the base as well; for many the base is marked, and what comes out is new and no more than wanted. Returns how many. */
static int64_t rows_to_merge(const row_structure_input &in, const list_builder &b, int64_t s, int64_t base_child, const int64_t *base,
                             int64_t kept, int64_t wanted)
{
    const int64_t last = in.xsuper[s] - 1, few = kept / 16;
    int64_t *extra = b.extra, found = matrix_rows(in, s, few, extra), added = 0, count;
    for (int64_t child = b.first_child[s - 1]; child != 0 && found <= few; child = b.sibling[child - 1]) {
        if (child == base_child) continue;
        const int64_t *row = rows_behind(in, b.out.lindx, child, last, &count);
        if (found + count <= few) std::copy(row, row + count, extra + found);
        found += count;
    }
    if (found <= few) {
        std::sort(extra, extra + found);
        return found;
    }
    for (int64_t k = 0; k < kept; ++k) b.marker[base[k] - 1] = s;
    for (int64_t child = b.first_child[s - 1]; child != 0 && added < wanted; child = b.sibling[child - 1]) {
        const int64_t *row = rows_behind(in, b.out.lindx, child, last, &count);
        if (child != base_child) added += collect(row, count, s, wanted - added, b.marker, extra + added);
    }
    for (int64_t j = in.xsuper[s - 1]; j <= last && added < wanted; ++j) {
        if (adds_nothing(in, s, j)) continue;
        const int64_t given = in.perm[j - 1];
        for (int64_t p = in.xadj[given - 1]; p < in.xadj[given]; ++p) {
            const int64_t row = in.invp[in.adj[p - 1] - 1];
            if (row > last) added += collect(&row, 1, s, wanted - added, b.marker, extra + added);
        }
    }
    std::sort(extra, extra + added);
    return added;
}

/* The largest block that a supernode with these rows behind its columns sends to one target. */
static int64_t largest_sent(const row_structure_input &in, const int64_t *row, const int64_t *end)
{
    int64_t largest = 0;
    while (row < end) {
        const int64_t run = rows_in_target(row, end, in.xsuper[in.snode[*row - 1]]), left = end - row;
        const int64_t sent = left * run - run * (run - 1) / 2;
        if (sent > largest) largest = sent;
        row += run;
    }
    return largest;
}

/* Whether a tail of that many rows could send more than the bound says: its targets have no more than widest columns. */
static bool may_pass_bound(const list_builder &b, int64_t rows)
{
    const int64_t run = rows < b.widest ? rows : b.widest;
    return rows * run - run * (run - 1) / 2 > b.out.bound;
}

/* The rows of s behind its own columns: the union of what its children and its matrix columns have there. The count is known, so the
   union ends as soon as it is complete; mostly one child has it all. That child's targets are those of s and s itself. */
static bool fill_tail(const row_structure_input &in, list_builder *b, int64_t s, int64_t *tail, int64_t wanted)
{
    const int64_t last = in.xsuper[s] - 1;
    int64_t longest = 0, kept = 0;
    const int64_t *base = nullptr;
    for (int64_t child = b->first_child[s - 1]; child != 0; child = b->sibling[child - 1]) {
        int64_t count;
        const int64_t *row = rows_behind(in, b->out.lindx, child, last, &count);
        if (count <= kept) continue;
        base = row;
        kept = count;
        longest = child;
        if (kept >= wanted) break;
    }
    if (kept > wanted) return false;
    const int64_t found = kept < wanted ? rows_to_merge(in, *b, s, longest, base, kept, wanted - kept) : 0;
    const merge_result added = merge_rows(in.snode, base, kept, b->extra, found, wanted - kept, tail);
    if (kept + added.rows != wanted) return false;
    b->out.update_count[s - 1] = added.targets + (kept > 0 ? b->out.update_count[longest - 1] - 1 : 0);
    b->out.updates += b->out.update_count[s - 1];
    /* without a new row it sends no more to anyone than the child did */
    if (added.rows > 0 && may_pass_bound(*b, wanted)) b->out.bound = std::max(b->out.bound, largest_sent(in, tail, tail + wanted));
    return true;
}

/* Row lists of the supernodes first..last, ascending, which form a union of subtrees or what stands above finished subtrees. Parents
   outside the range are not told of their children here. */
static bool build_range(const row_structure_input &in, int64_t first, int64_t last, list_builder *b)
{
    for (int64_t s = first; s <= last; ++s) {
        int64_t *list = b->out.lindx + (in.xlindx[s - 1] - 1), *end = b->out.lindx + (in.xlindx[s] - 1);
        const int64_t columns = in.xsuper[s] - in.xsuper[s - 1];
        const int64_t wanted = end - list - columns;
        if (wanted < 0) return false;
        for (int64_t k = 0; k < columns; ++k) list[k] = in.xsuper[s - 1] + k;
        if (!fill_tail(in, b, s, list + columns, wanted)) return false;
        b->out.bound = std::max(b->out.bound, columns * wanted);
        b->out.separator_tail[s - 1] = end - std::lower_bound(list, end, in.first_separator_column);
        const int64_t up = wanted > 0 ? in.snode[list[columns] - 1] : 0;
        b->out.sparent[s - 1] = up;
        if (up < first || up > last) continue;
        b->sibling[s - 1] = b->first_child[up - 1];
        b->first_child[up - 1] = s;
    }
    return true;
}

/* The domains, which are independent subtrees, each by one thread. Returns false when a list does not have its length. */
static bool build_domains(const row_structure_input &in, int64_t domains, int threads, const list_builder &shared,
                          row_structure_output *out)
{
    int64_t updates = 0, bound = 0;
    int32_t complete = 1;
#pragma omp parallel num_threads(threads) reduction(min : complete) reduction(+ : updates) reduction(max : bound) if (threads > 1)
    {
        list_builder mine = shared;
        mine.marker += omp_get_thread_num() * 2 * in.neqns;
        mine.extra += omp_get_thread_num() * 2 * in.neqns;
        std::memset(mine.marker, 0, static_cast<size_t>(in.neqns) * sizeof(int64_t));
#pragma omp for schedule(dynamic, 1)
        for (int64_t d = 1; d <= domains; ++d) {
            int64_t first, last;
            if (domain_pair(in.domain_table, d, in.supernodes, &first, &last) && !build_range(in, first, last, &mine)) complete = 0;
        }
        updates += mine.out.updates;
        bound = mine.out.bound;
    }
    out->updates = updates;
    out->bound = bound;
    return complete != 0;
}

int64_t row_structure(const row_structure_input *input, row_structure_output *out, int64_t *work)
{
    const row_structure_input in = *input;
    domain_walk walk = open_domain_walk(in.supernodes, in.domains, in.domain_table);
    const int64_t wanted_threads = in.nproc < walk.domains ? in.nproc : walk.domains;
    const int threads = static_cast<int>(wanted_threads > 1 ? wanted_threads : 1);
    out->updates = out->bound = 0;
    list_builder top = {*out, work, work + in.supernodes, work + 2 * in.supernodes, work + 2 * in.supernodes + in.neqns, 1};
    std::memset(top.first_child, 0, static_cast<size_t>(in.supernodes) * sizeof(int64_t));
    for (int64_t s = 1; s <= in.supernodes; ++s) top.widest = std::max(top.widest, in.xsuper[s] - in.xsuper[s - 1]);
    service_claim_memory(out->lindx, (in.xlindx[in.supernodes] - 1) * static_cast<int64_t>(sizeof(int64_t)), in.nproc);
    if (!build_domains(in, walk.domains, threads, top, &top.out)) return -2;
    int64_t first, last;
    for (int64_t d = 1; d <= walk.domains; ++d) {
        if (!domain_pair(in.domain_table, d, in.supernodes, &first, &last)) continue;
        for (int64_t s = first; s <= last; ++s) {
            const int64_t up = out->sparent[s - 1];
            if (up == 0 || (up >= first && up <= last)) continue;
            top.sibling[s - 1] = top.first_child[up - 1];
            top.first_child[up - 1] = s;
        }
    }
    while (next_range(&walk, &first, &last))
        if (walk.step > walk.domains && !build_range(in, first, last, &top)) return -2;
    *out = top.out;
    return 0;
}
