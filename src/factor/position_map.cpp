#include <omp.h>

#include "factor/factor.h"

/* Two bucket lists are made per side: first (row, source) pairs per column of the factor, counted and distributed without a search, then
   the rows are turned into destinations with a relative map of each supernode. A symmetric type keeps the sign of a transposed image in
   the row until then.

   Threads. A row of a domain meets no column of another domain, so the domains fill their buckets side by side; the rows above them follow
   alone, which also keeps the buckets in the order of the rows. The result does not depend on the number of threads. */

namespace
{
constexpr int64_t parallel_rows = 5000; /* smaller matrices are done before a second thread has started */

struct map_side {
    int64_t *start, *dest, *src, *col;
};

/* Entries that stand in their row of A right of the diagonal in the new numbers, grouped by their column: group r is
   start[r-1] .. start[r]-1. They are the transposed images of the symmetric form. */
struct image {
    int64_t column, src; /* new number of the row, place in A */
};
struct image_groups {
    int64_t *start, *next; /* [n + 1], [n]: next free place of each group */
    image *entry;          /* no more than half as many as the adjacency has */
};

int64_t magnitude(int64_t x)
{
    return x < 0 ? -x : x;
}

/* Restore the heap order of dest[root..count-1] (by magnitude, largest at the root), moving src along. */
void sift_down(int64_t *dest, int64_t *src, int64_t root, int64_t count)
{
    const int64_t key = dest[root], payload = src[root];
    for (int64_t child = 2 * root + 1; child < count; child = 2 * root + 1) {
        if (child + 1 < count && magnitude(dest[child + 1]) > magnitude(dest[child])) ++child;
        if (magnitude(dest[child]) <= magnitude(key)) break;
        dest[root] = dest[child];
        src[root] = src[child];
        root = child;
    }
    dest[root] = key;
    src[root] = payload;
}

/* Sort a bucket by the magnitude of dest. Rows of a matrix are short and mostly in order, so insertion serves all but dense ones. */
void sort_bucket(int64_t *dest, int64_t *src, int64_t count)
{
    constexpr int64_t insertion_limit = 32;
    if (count <= insertion_limit) {
        for (int64_t i = 1; i < count; ++i) {
            const int64_t key = dest[i], payload = src[i];
            int64_t k = i;
            for (; k > 0 && magnitude(dest[k - 1]) > magnitude(key); --k) {
                dest[k] = dest[k - 1];
                src[k] = src[k - 1];
            }
            dest[k] = key;
            src[k] = payload;
        }
        return;
    }
    for (int64_t root = count / 2; root > 0; --root) sift_down(dest, src, root - 1, count);
    for (int64_t last = count - 1; last > 0; --last) {
        const int64_t key = dest[last], payload = src[last];
        dest[last] = dest[0];
        src[last] = src[0];
        dest[0] = key;
        src[0] = payload;
        sift_down(dest, src, 0, last);
    }
}

/* Counts in start[1..n] (of column c in start[c]) become starts in start[0..n]; cursor[c-1] = start[c-1]. Returns the sum. */
int64_t starts_from_counts(int64_t n, int64_t *start, int64_t *cursor)
{
    start[0] = 1;
    for (int64_t c = 1; c <= n; ++c) {
        cursor[c - 1] = start[c - 1];
        start[c] += start[c - 1];
    }
    return start[n] - 1;
}

void clear(int64_t count, int64_t *x)
{
    for (int64_t i = 0; i < count; ++i) x[i] = 0;
}

/* Domains of columns that begin with the first one and follow each other without a gap, or none. */
struct domain_cover {
    int64_t domains, first_above; /* first column above them */
};

domain_cover cover_by_domains(const position_map_input &in)
{
    const supernodal_structure &s = *in.structure;
    if (in.nproc < 2 || s.domains < 2 || s.neqns < parallel_rows) return {0, 1};
    int64_t next = 1;
    for (int64_t d = 1; d <= s.domains; ++d) {
        const int64_t *pair = s.domain_table + 2 * d - 2;
        if (pair[0] > pair[1]) continue;
        if (pair[0] != next || pair[1] > s.supernodes) return {0, 1};
        next = pair[1] + 1;
    }
    return {s.domains, s.xsuper[next - 1]};
}

/* work(first, last) for the rows of all domains, side by side, then for the rows above them. */
template <typename work_t>
void over_domains(const position_map_input &in, const work_t &work)
{
    const supernodal_structure &s = *in.structure;
    const domain_cover cover = cover_by_domains(in);
    const int threads = static_cast<int>(cover.domains < in.nproc ? cover.domains : in.nproc);
    if (threads > 1) {
#pragma omp parallel for schedule(dynamic, 1) num_threads(threads)
        for (int64_t d = 1; d <= cover.domains; ++d) {
            const int64_t *pair = s.domain_table + 2 * d - 2;
            if (pair[0] <= pair[1]) work(s.xsuper[pair[0] - 1], s.xsuper[pair[1]] - 1);
        }
    }
    work(cover.first_above, s.neqns);
}

/* Add 1 to the counter of a column and return what it was. Columns above a domain are counted by all domains; the order inside a group does
   not matter. */
int64_t advance(int64_t *counter, bool own)
{
    return own ? (*counter)++ : __atomic_fetch_add(counter, 1, __ATOMIC_RELAXED);
}

/* Symmetric form: entry (i, j) of the stored triangle lands in column min, row max of the new numbers; negative when the stored entry is
   the transpose of that. By ascending max, so that the buckets come out sorted. */
int64_t fill_symmetric_buckets(const position_map_input &in, const map_side &side, const image_groups &images)
{
    const supernodal_structure &s = *in.structure;
    const int64_t n = s.neqns;
    clear(n + 1, side.start);
    clear(n + 1, images.start);
    over_domains(in, [&](int64_t first, int64_t last) {
        for (int64_t ip = first; ip <= last; ++ip) {
            const int64_t i = s.perm[ip - 1];
            for (int64_t p = in.ia[i - 1]; p < in.ia[i]; ++p) {
                const int64_t jp = s.invp[in.ja[p - 1] - 1];
                ++side.start[ip < jp ? ip : jp];
                if (ip < jp) advance(&images.start[jp], jp <= last);
            }
        }
    });
    const int64_t length = starts_from_counts(n, side.start, in.scratch_a);
    starts_from_counts(n, images.start, images.next);
    over_domains(in, [&](int64_t first, int64_t last) {
        for (int64_t ip = first; ip <= last; ++ip) {
            const int64_t i = s.perm[ip - 1];
            for (int64_t p = in.ia[i - 1]; p < in.ia[i]; ++p) {
                const int64_t jp = s.invp[in.ja[p - 1] - 1];
                if (jp > ip) images.entry[advance(&images.next[jp - 1], jp <= last) - 1] = {ip, p};
            }
        }
    });
    over_domains(in, [&](int64_t first, int64_t last) {
        for (int64_t r = first; r <= last; ++r) {
            const int64_t i = s.perm[r - 1];
            for (int64_t p = in.ia[i - 1]; p < in.ia[i]; ++p) {
                const int64_t jp = s.invp[in.ja[p - 1] - 1];
                if (jp > r) continue;
                const int64_t at = in.scratch_a[jp - 1]++;
                side.dest[at - 1] = r;
                side.src[at - 1] = p;
            }
            for (int64_t k = images.start[r - 1]; k < images.start[r]; ++k) {
                const int64_t at = in.scratch_a[images.entry[k - 1].column - 1]++;
                side.dest[at - 1] = -r;
                side.src[at - 1] = images.entry[k - 1].src;
            }
        }
    });
    return length;
}

/* Full form: entry (i, j) goes to column j of lnz from the first row of the supernode of j on, otherwise it lies right of the diagonal
   block of its row and goes to the row's column of unz. Rows are taken in new order, so that the lnz buckets come out sorted. */
void fill_full_buckets(const position_map_input &in, const map_side &lower, const map_side &upper, position_map *map)
{
    const supernodal_structure &s = *in.structure;
    const int64_t n = s.neqns;
    clear(n + 1, lower.start);
    clear(n + 1, upper.start);
    for (int64_t pass = 1; pass <= 2; ++pass) {
        over_domains(in, [&](int64_t first, int64_t last) {
            for (int64_t ip = first; ip <= last; ++ip) {
                const int64_t i = s.perm[ip - 1];
                const int64_t row = in.row_order == nullptr ? i : in.row_order[i - 1];
                for (int64_t p = in.ia[row - 1]; p < in.ia[row]; ++p) {
                    const int64_t jp = s.invp[in.ja[p - 1] - 1];
                    const bool in_lower = ip >= s.xsuper[s.snode[jp - 1] - 1];
                    const map_side &side = in_lower ? lower : upper;
                    const int64_t bucket = in_lower ? jp : ip;
                    if (pass == 1) {
                        ++side.start[bucket];
                        continue;
                    }
                    int64_t *cursor = in_lower ? in.scratch_a : in.scratch_b;
                    const int64_t at = cursor[bucket - 1]++;
                    side.dest[at - 1] = in_lower ? ip : jp;
                    side.src[at - 1] = p;
                }
            }
        });
        if (pass == 1) {
            map->length_l = starts_from_counts(n, lower.start, in.scratch_a);
            map->length_u = starts_from_counts(n, upper.start, in.scratch_b);
        }
    }
}

/* Turn the rows of the buckets into destinations. column_start is xlnz or xunz; upper: the rows of the buckets stand in no order, and the
   panel has no rows for the supernode's own columns. */
void rows_to_destinations(const position_map_input &in, const map_side &side, const int64_t *column_start, bool upper, bool row_factors)
{
    const supernodal_structure &s = *in.structure;
    const int threads = s.neqns < parallel_rows || in.nproc < 2 ? 1
                        : in.nproc < 4                          ? static_cast<int>(in.nproc)
                                                                : 4; /* work has room for three more relative maps */
#pragma omp parallel num_threads(threads) if (threads > 1)
    {
        const int64_t me = omp_get_thread_num();
        int64_t *offset = me == 0 ? in.scratch_c : in.work + (me - 1) * (s.neqns + 1);
#pragma omp for schedule(dynamic, 64)
        for (int64_t number = 1; number <= s.supernodes; ++number) {
            const int64_t rows = supernode_rows(s, number), columns = supernode_columns(s, number), skipped = upper ? columns : 0;
            const int64_t *list = supernode_row_list(s, number);
            for (int64_t i = skipped; i < rows; ++i) offset[list[i] - 1] = i - skipped;
            for (int64_t c = s.xsuper[number - 1]; c < s.xsuper[number]; ++c) {
                const int64_t from = side.start[c - 1] - 1, count = side.start[c] - side.start[c - 1];
                if (upper) sort_bucket(side.dest + from, side.src + from, count);
                for (int64_t p = from; p < from + count; ++p) {
                    const int64_t r = magnitude(side.dest[p]);
                    const int64_t dest = column_start[c - 1] + offset[r - 1];
                    side.dest[p] = side.dest[p] < 0 ? -dest : dest;
                    if (in.scaling_on == 0) continue;
                    const int64_t given = s.perm[r - 1];
                    side.col[p] = row_factors && in.row_order != nullptr ? in.row_order[given - 1] : given;
                }
            }
        }
    }
}

} // namespace

int64_t build_position_map(const position_map_input *input, position_map *map)
{
    const position_map_input &in = *input;
    const supernodal_structure &s = *in.structure;
    const map_side lower = {map->start_l, map->dest_l, map->src_l, map->col_l};
    map->length_u = 0;
    if (in.symmetric == 1) {
        map->length_l = fill_symmetric_buckets(in, lower, {in.scratch_b, in.scratch_c, reinterpret_cast<image *>(in.work)});
        rows_to_destinations(in, lower, s.xlnz, false, false);
        return 0;
    }
    const map_side upper = {map->start_u, map->dest_u, map->src_u, map->col_u};
    fill_full_buckets(in, lower, upper, map);
    rows_to_destinations(in, lower, s.xlnz, false, true);
    rows_to_destinations(in, upper, s.xunz, true, false);
    return 0;
}
