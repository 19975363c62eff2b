/* Ordering of the graph compressed by the pivots that a symmetric matching suggests (Duff and Pralet 2005, "Strategies for scaling and
   pivoting for sparse symmetric indefinite problems"). A cycle of the matching is cut into pairs of neighbours along it, and a cycle of
   odd length leaves one single column. */
#include "analysis/ordering.h"
#include "service/service.h"

namespace
{
/* All workspace of one compression, in one block. n columns, m groups of one or two of them. */
struct pair_work {
    int64_t *block;
    int64_t *xadj, *adj;             /* [n + 1], [2 entries]: the full graph, then scratch */
    int64_t *group, *member;         /* [n] column -> group; [2 n] columns of group g at 2g - 2 and 2g - 1, 0 for none */
    int64_t *group_xadj, *group_adj; /* [n + 1], [2 entries] */
    int64_t *weight, *perm, *invp;   /* [n] */
    int64_t *scratch;                /* [2 n + 2] */
    int64_t *lists;                  /* [5 n + 5], for minimum degree only */
};

int64_t allocate_work(int64_t n, int64_t entries, bool with_lists, pair_work *w)
{
    const int64_t words = 2 * (n + 1) + 4 * entries + 8 * n + 2 + (with_lists ? 5 * n + 5 : 0);
    w->block = static_cast<int64_t *>(service_alloc_direct(static_cast<uint64_t>(words) * sizeof(int64_t), 128));
    if (w->block == nullptr) return -2;
    w->xadj = w->block;
    w->adj = w->xadj + n + 1;
    w->group_xadj = w->adj + 2 * entries;
    w->group_adj = w->group_xadj + n + 1;
    w->group = w->group_adj + 2 * entries;
    w->member = w->group + n;
    w->weight = w->member + 2 * n;
    w->perm = w->weight + n;
    w->invp = w->perm + n;
    w->scratch = w->invp + n;
    w->lists = w->scratch + 2 * n + 2;
    return 0;
}

/* Pairs along the cycles of the matching; returns the number of groups. */
int64_t group_columns(int64_t n, const int64_t *match, pair_work *w)
{
    int64_t groups = 0;
    for (int64_t i = 0; i < n; ++i) w->group[i] = 0;
    for (int64_t i = 1; i <= n; ++i) {
        for (int64_t column = i; w->group[column - 1] == 0;) {
            const int64_t partner = match[column - 1];
            w->group[column - 1] = ++groups;
            w->member[2 * groups - 2] = column;
            w->member[2 * groups - 1] = 0;
            if (w->group[partner - 1] != 0) break;
            w->group[partner - 1] = groups;
            w->member[2 * groups - 1] = partner;
            column = match[partner - 1];
        }
    }
    return groups;
}

/* Graph of the groups, each edge once in each direction. */
void compress_graph(int64_t groups, pair_work *w)
{
    int64_t *marker = w->scratch, at = 0;
    for (int64_t g = 0; g < groups; ++g) marker[g] = 0;
    w->group_xadj[0] = 1;
    for (int64_t g = 1; g <= groups; ++g) {
        marker[g - 1] = g;
        w->weight[g - 1] = 0;
        for (int64_t side = 0; side < 2; ++side) {
            const int64_t column = w->member[2 * g - 2 + side];
            if (column == 0) continue;
            ++w->weight[g - 1];
            for (int64_t p = w->xadj[column - 1]; p < w->xadj[column]; ++p) {
                const int64_t other = w->group[w->adj[p - 1] - 1];
                if (marker[other - 1] == g) continue;
                marker[other - 1] = g;
                w->group_adj[at++] = other;
            }
        }
        w->group_xadj[g] = at + 1;
    }
}

/* Columns in the order of their groups; the table goes from groups to columns. start[groups + 1] is work. */
void expand_order(int64_t groups, const pair_work *w, int64_t *start, compressed_order *result, bool with_table)
{
    int64_t place = 0;
    for (int64_t k = 1; k <= groups; ++k) {
        const int64_t g = w->perm[k - 1];
        start[k - 1] = place;
        for (int64_t side = 0; side < 2; ++side) {
            if (w->member[2 * g - 2 + side] != 0) result->order[place++] = w->member[2 * g - 2 + side];
        }
    }
    start[groups] = place;
    if (!with_table) return;
    for (int64_t k = 0; k < 2 * result->domains; ++k) {
        int64_t *pair = result->domain_table + 2 * k;
        pair[0] = start[pair[0] - 1] + 1;
        pair[1] = start[pair[1]];
    }
}

int64_t order_groups(const control_block *control, int64_t groups, pair_work *w, compressed_order *result)
{
    const int64_t n = control->neqns;
    const bool dissected = control->preprocessing >= 2;
    int64_t error = 0;
    if (dissected) {
        const int64_t threads = control->preprocessing == 3 ? control->nproc : 1;
        error = nested_dissection_driver(groups, threads, w->group_xadj, w->group_adj, w->weight, w->perm, w->invp, &result->domains,
                                         result->domain_table);
    } else {
        mmd_order(groups, w->group_xadj, w->group_adj, w->invp, w->perm, control->delta, w->lists, control->integer_limit);
    }
    if (error != 0) return error;
    const bool with_table = dissected && result->domains > 1;
    if (with_table) regroup_domains(groups, result->domains, result->domain_table, w->perm, w->scratch, w->xadj);
    expand_order(groups, w, w->scratch, result, with_table);
    if (result->domains < 2)
        single_domain_table(n, &result->domains, result->domain_table);
    else if (!dissected)
        table_without_domains(n, result->domains, result->domain_table);
    return 0;
}
} // namespace

int64_t compress_pairs(const control_block *control, const int64_t *ia, const int64_t *ja, const int64_t *match, compressed_order *result)
{
    const int64_t n = control->neqns;
    pair_work w{};
    result->domains = 1;
    while (result->domains < control->domains) result->domains *= 2;
    result->order = static_cast<int64_t *>(service_alloc_direct(static_cast<uint64_t>(n) * sizeof(int64_t), 128));
    result->domain_table = static_cast<int64_t *>(service_alloc_direct(static_cast<uint64_t>(4 * result->domains) * sizeof(int64_t), 128));
    int64_t error = result->order == nullptr || result->domain_table == nullptr ? -2 : 0;
    if (error == 0) error = allocate_work(n, ia[n] - 1, control->preprocessing < 2, &w);
    if (error == 0) {
        symmetrise_pattern(n, control->nproc, control->sequential_analysis, ia, ja, w.xadj, w.adj, 1, w.scratch);
        const int64_t groups = group_columns(n, match, &w);
        compress_graph(groups, &w);
        error = order_groups(control, groups, &w, result);
    }
    if (w.block != nullptr) service_free_direct(w.block);
    if (error == 0) return 0;
    if (result->order != nullptr) service_free_direct(result->order);
    if (result->domain_table != nullptr) service_free_direct(result->domain_table);
    *result = {nullptr, nullptr, 0};
    return error;
}
