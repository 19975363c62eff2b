#include <algorithm>

#include <omp.h>

#include "factor/factor.h"
#include "service/claim_memory.h"

/* Two bucket lists are made per side: first (row, source) pairs per column of the factor, counted and distributed without a search, then
   the rows are turned into destinations with the places that the supernode gives its rows. A symmetric type keeps the sign of a transposed
   image in the row until then. The entries of a bucket stand in no particular order: they are only ever placed, all of them.

   Threads. A row of a domain meets no column of another domain, so the domains fill their buckets side by side; the rows above them follow
   alone. The result does not depend on the number of threads. */

namespace
{
constexpr int64_t parallel_rows = 5000; /* smaller matrices are done before a second thread has started */

struct map_side {
    int64_t *start, *dest, *src, *col;
};

int64_t magnitude(int64_t x)
{
    return x < 0 ? -x : x;
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

/* Symmetric form: entry (i, j) of the stored triangle lands in column min, row max of the new numbers; negative when the stored entry is
   the transpose of that. */
int64_t fill_symmetric_buckets(const position_map_input &in, const map_side &side)
{
    const supernodal_structure &s = *in.structure;
    clear(s.neqns + 1, side.start);
    over_domains(in, [&](int64_t first, int64_t last) {
        for (int64_t ip = first; ip <= last; ++ip) {
            const int64_t i = s.perm[ip - 1];
            for (int64_t p = in.ia[i - 1]; p < in.ia[i]; ++p) {
                const int64_t jp = s.invp[in.ja[p - 1] - 1];
                ++side.start[ip < jp ? ip : jp];
            }
        }
    });
    const int64_t length = starts_from_counts(s.neqns, side.start, in.scratch_a);
    service_claim_memory(side.dest, length * static_cast<int64_t>(sizeof(int64_t)), in.nproc);
    over_domains(in, [&](int64_t first, int64_t last) {
        for (int64_t ip = first; ip <= last; ++ip) {
            const int64_t i = s.perm[ip - 1];
            for (int64_t p = in.ia[i - 1]; p < in.ia[i]; ++p) {
                const int64_t jp = s.invp[in.ja[p - 1] - 1];
                const int64_t at = in.scratch_a[(ip < jp ? ip : jp) - 1]++;
                side.dest[at - 1] = ip < jp ? -jp : ip;
                side.src[at - 1] = p;
            }
        }
    });
    return length;
}

/* Full form: entry (i, j) goes to column j of lnz from the first row of the supernode of j on, otherwise it lies right of the diagonal
   block of its row and goes to the row's column of unz. */
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
            service_claim_memory(lower.dest, map->length_l * static_cast<int64_t>(sizeof(int64_t)), in.nproc);
            service_claim_memory(upper.dest, map->length_u * static_cast<int64_t>(sizeof(int64_t)), in.nproc);
        }
    }
}

/* The bucket of column c into destinations; offset_of(r) is the place of row r below the first entry of the column. */
template <typename offset_t>
void place_bucket(const position_map_input &in, const map_side &side, int64_t c, int64_t column_start, bool row_factors,
                  const offset_t &offset_of)
{
    for (int64_t p = side.start[c - 1] - 1; p < side.start[c] - 1; ++p) {
        const int64_t r = magnitude(side.dest[p]), dest = column_start + offset_of(r);
        side.dest[p] = side.dest[p] < 0 ? -dest : dest;
        if (in.scaling_on == 0) continue;
        const int64_t given = in.structure->perm[r - 1];
        side.col[p] = row_factors && in.row_order != nullptr ? in.row_order[given - 1] : given;
    }
}

/* Turn the rows of the buckets into destinations. column_start is xlnz or xunz; upper: the panel has no rows for the supernode's own
   columns. Few entries are looked up in the row list; for many a map of all rows is made. */
void rows_to_destinations(const position_map_input &in, const map_side &side, const int64_t *column_start, bool upper, bool row_factors)
{
    const supernodal_structure &s = *in.structure;
    const int64_t wanted = s.neqns < parallel_rows || in.nproc < 2 ? 1 : in.nproc;
    const int threads = static_cast<int>(wanted < position_map_threads ? wanted : position_map_threads);
#pragma omp parallel num_threads(threads) if (threads > 1)
    {
        const int64_t me = omp_get_thread_num();
        int64_t *offset = me == 0 ? in.scratch_c : in.work + (me - 1) * (s.neqns + 1);
#pragma omp for schedule(dynamic, 64)
        for (int64_t number = 1; number <= s.supernodes; ++number) {
            const int64_t first = s.xsuper[number - 1], end = s.xsuper[number], skipped = upper ? end - first : 0;
            const int64_t *list = supernode_row_list(s, number) + skipped;
            const int64_t rows = supernode_rows(s, number) - skipped, entries = side.start[end - 1] - side.start[first - 1];
            if (entries < rows / 8) {
                const auto search = [&](int64_t r) { return std::lower_bound(list, list + rows, r) - list; };
                for (int64_t c = first; c < end; ++c) place_bucket(in, side, c, column_start[c - 1], row_factors, search);
                continue;
            }
            for (int64_t i = 0; i < rows; ++i) offset[list[i] - 1] = i;
            for (int64_t c = first; c < end; ++c)
                place_bucket(in, side, c, column_start[c - 1], row_factors, [&](int64_t r) { return offset[r - 1]; });
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
        map->length_l = fill_symmetric_buckets(in, lower);
        rows_to_destinations(in, lower, s.xlnz, false, false);
        return 0;
    }
    const map_side upper = {map->start_u, map->dest_u, map->src_u, map->col_u};
    fill_full_buckets(in, lower, upper, map);
    rows_to_destinations(in, lower, s.xlnz, false, true);
    rows_to_destinations(in, upper, s.xunz, true, false);
    return 0;
}
