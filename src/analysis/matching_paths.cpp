#include <cmath>

#include "analysis/matching_depth.h"

static constexpr double unreached = HUGE_VAL;

/* One search for a shortest augmenting path. Columns that a search has reached stand in the heap (position from 1) or are done. */
struct path_search {
    double *distance;  /* [n] unreached outside a search */
    int64_t *via_edge; /* [n] entry by which a column was reached */
    int64_t *via_row;  /* [n] and its row */
    int64_t *order;    /* [n] the heap from the front, the done columns from the back */
    int64_t *place;    /* [n] heap position, 0 not reached, column_done or column_dead */
    int64_t heap_count, done_count;
    int64_t entries; /* looked at in all searches so far */
};
static constexpr int64_t column_done = -1;
static constexpr int64_t column_dead = -2; /* no free column can be reached from here, now or later */

static void sift_up(path_search *search, int64_t hole, int64_t column)
{
    const double key = search->distance[column - 1];
    while (hole > 1 && search->distance[search->order[hole / 2 - 1] - 1] > key) {
        search->order[hole - 1] = search->order[hole / 2 - 1];
        search->place[search->order[hole - 1] - 1] = hole;
        hole /= 2;
    }
    search->order[hole - 1] = column;
    search->place[column - 1] = hole;
}

static int64_t pop_nearest(path_search *search)
{
    const int64_t nearest = search->order[0], moved = search->order[--search->heap_count];
    const double key = search->distance[moved - 1];
    int64_t hole = 1;
    for (;;) {
        int64_t below = 2 * hole;
        if (below > search->heap_count) break;
        if (below < search->heap_count && search->distance[search->order[below] - 1] < search->distance[search->order[below - 1] - 1])
            ++below;
        if (search->distance[search->order[below - 1] - 1] >= key) break;
        search->order[hole - 1] = search->order[below - 1];
        search->place[search->order[hole - 1] - 1] = hole;
        hole = below;
    }
    if (search->heap_count > 0) {
        search->order[hole - 1] = moved;
        search->place[moved - 1] = hole;
    }
    return nearest;
}

/* Smallest costs by column as first duals. */
static void first_duals(const cost_rows &rows, double *v)
{
    const int64_t n = rows.n;
    for (int64_t j = 0; j < n; ++j) v[j] = unreached;
    for (int64_t p = 0; p < rows.start[n] - 1; ++p) {
        double *least = &v[rows.column[p] - 1];
        if (rows.cost[p] < *least) *least = rows.cost[p];
    }
    for (int64_t j = 0; j < n; ++j)
        if (v[j] == unreached) v[j] = 0;
}

/* The row duals that go with v; then a matching on tight entries, with one exchange where all tight columns of a row are taken. scan[n]:
   next entry of a row to be tried as the way out of an exchange. */
static void begin_on_tight_entries(const cost_rows &rows, row_matching *matching, double *u, const double *v, int64_t *scan)
{
    const int64_t n = rows.n;
    matching->count = 0;
    for (int64_t j = 0; j < n; ++j) {
        matching->row_edge[j] = matching->column_row[j] = 0;
        scan[j] = rows.start[j];
    }
    for (int64_t i = 1; i <= n; ++i) {
        double least = unreached;
        int64_t edge = 0;
        for (int64_t p = rows.start[i - 1]; p < rows.start[i]; ++p) {
            const double reduced = rows.cost[p - 1] - v[rows.column[p - 1] - 1];
            if (reduced > least || (reduced == least && matching->column_row[rows.column[p - 1] - 1] != 0)) continue;
            least = reduced;
            edge = p;
        }
        u[i - 1] = edge != 0 ? least : 0;
        if (edge == 0 || matching->column_row[rows.column[edge - 1] - 1] != 0) continue;
        match_entry(rows, matching, i, edge);
        ++matching->count;
    }
    for (int64_t i = 1; i <= n; ++i) {
        if (matching->row_edge[i - 1] != 0) continue;
        for (int64_t p = rows.start[i - 1]; p < rows.start[i] && matching->row_edge[i - 1] == 0; ++p) {
            const int64_t j = rows.column[p - 1];
            if (rows.cost[p - 1] - v[j - 1] > u[i - 1]) continue;
            const int64_t owner = matching->column_row[j - 1];
            int64_t *next = &scan[owner - 1];
            for (; *next < rows.start[owner]; ++*next) {
                const int64_t other = rows.column[*next - 1];
                if (matching->column_row[other - 1] != 0 || rows.cost[*next - 1] - v[other - 1] > u[owner - 1]) continue;
                match_entry(rows, matching, owner, *next);
                match_entry(rows, matching, i, p);
                ++matching->count;
                break;
            }
        }
    }
}

/* The matching on tight entries made as large as it can be, before the searches by length: where many entries cost the same, each of those
   would go through a good part of the matrix. 27-point grid of 35^3 with a small diagonal: analysis 4.6 s without, 0.5 s with this. */
static void extend_on_tight_entries(const cost_rows &rows, row_matching *matching, const double *u, const double *v, int64_t *work)
{
    const int64_t n = rows.n, most_passes = 32;
    const depth_search search = make_depth_search(n, work);
    const auto tight = [&](int64_t i, int64_t p) { return !(rows.cost[p - 1] - v[rows.column[p - 1] - 1] > u[i - 1]); };
    for (int64_t i = 0; i < n; ++i) search.ahead[i] = rows.start[i];
    for (int64_t pass = 1; pass <= most_passes && matching->count < n; ++pass)
        if (augment_free_rows(rows, matching, tight, pass, search) == 0) return;
}

/* Dijkstra's method from the free row root over reduced costs. Returns the nearest free column, 0 none; *length is its distance. */
static int64_t find_path(const cost_rows &rows, const row_matching &matching, const double *u, const double *v, int64_t root,
                         path_search *search, double *length)
{
    int64_t free_column = 0, i = root;
    double base = 0, shortest = unreached;
    search->heap_count = search->done_count = 0;
    for (;;) {
        search->entries += rows.start[i] - rows.start[i - 1];
        for (int64_t p = rows.start[i - 1]; p < rows.start[i]; ++p) {
            const int64_t j = rows.column[p - 1];
            const double reduced = rows.cost[p - 1] - u[i - 1] - v[j - 1];
            const double reach = base + (reduced > 0 ? reduced : 0); /* below 0 by rounding only */
            if (reach >= shortest || search->place[j - 1] < 0 || reach >= search->distance[j - 1]) continue;
            search->via_edge[j - 1] = p;
            search->via_row[j - 1] = i;
            if (matching.column_row[j - 1] == 0) {
                free_column = j;
                shortest = reach;
                if (reach <= base) break; /* none is nearer */
                continue;
            }
            search->distance[j - 1] = reach;
            sift_up(search, search->place[j - 1] != 0 ? search->place[j - 1] : ++search->heap_count, j);
        }
        if (search->heap_count == 0 || search->distance[search->order[0] - 1] >= shortest) break;
        const int64_t j = pop_nearest(search);
        base = search->distance[j - 1];
        search->place[j - 1] = column_done;
        search->order[rows.n - ++search->done_count] = j;
        i = matching.column_row[j - 1];
    }
    *length = shortest;
    return free_column;
}

/* Forget the search: its columns become unreached, or dead when it found no free column and so went everywhere. */
static void clear_search(path_search *search, int64_t n, bool dead)
{
    for (int64_t k = 0; k < search->heap_count; ++k) {
        search->distance[search->order[k] - 1] = unreached;
        search->place[search->order[k] - 1] = 0;
    }
    for (int64_t k = 1; k <= search->done_count; ++k) {
        search->distance[search->order[n - k] - 1] = unreached;
        search->place[search->order[n - k] - 1] = dead ? column_dead : 0;
    }
}

/* Augment from every free row. False when the searches looked at more than limit entries before the end. */
static bool augment_all(const cost_rows &rows, row_matching *matching, double *u, double *v, path_search *search, int64_t limit)
{
    const int64_t n = rows.n;
    for (int64_t j = 0; j < n; ++j) {
        search->distance[j] = unreached;
        search->place[j] = 0;
    }
    for (int64_t root = 1; root <= n && search->entries <= limit; ++root) {
        if (matching->row_edge[root - 1] != 0) continue;
        double length;
        const int64_t free_column = find_path(rows, *matching, u, v, root, search, &length);
        for (int64_t k = 1; k <= search->done_count && free_column != 0; ++k) {
            const int64_t j = search->order[n - k];
            const double slack = length - search->distance[j - 1];
            v[j - 1] -= slack;
            u[matching->column_row[j - 1] - 1] += slack;
        }
        clear_search(search, n, free_column == 0);
        if (free_column == 0) continue;
        u[root - 1] += length;
        ++matching->count;
        for (int64_t j = free_column;;) {
            const int64_t i = search->via_row[j - 1], before = matching->row_edge[i - 1];
            match_entry(rows, matching, i, search->via_edge[j - 1]);
            if (i == root) break;
            j = rows.column[before - 1];
        }
    }
    return search->entries <= limit;
}

void shortest_path_matching(const cost_rows &rows, row_matching *matching, double *u, double *v, int64_t *work)
{
    const int64_t n = rows.n, passes = 2; /* over all entries; the searches of real circuits and grids stay below that */
    path_search search = {reinterpret_cast<double *>(work), work + n, work + 2 * n, work + 3 * n, work + 4 * n, 0, 0, 0};
    first_duals(rows, v);
    begin_on_tight_entries(rows, matching, u, v, search.order);
    extend_on_tight_entries(rows, matching, u, v, work);
    if (!augment_all(rows, matching, u, v, &search, passes * (rows.start[n] - 1))) {
        improve_duals(rows, v, search.via_edge);
        begin_on_tight_entries(rows, matching, u, v, search.order);
        extend_on_tight_entries(rows, matching, u, v, work);
        augment_all(rows, matching, u, v, &search, INT64_MAX);
    }
    /* The duals of the rows afresh: exactly tight where that can be, otherwise (columns were skipped as dead) at least feasible. */
    for (int64_t i = 1; i <= n; ++i) {
        const int64_t edge = matching->row_edge[i - 1];
        if (edge != 0) u[i - 1] = rows.cost[edge - 1] - v[rows.column[edge - 1] - 1];
        if (matching->count == n || rows.start[i - 1] == rows.start[i]) continue;
        for (int64_t p = rows.start[i - 1]; p < rows.start[i]; ++p) {
            const double reduced = rows.cost[p - 1] - v[rows.column[p - 1] - 1];
            if (reduced < u[i - 1] || (p == rows.start[i - 1] && edge == 0)) u[i - 1] = reduced;
        }
    }
}
