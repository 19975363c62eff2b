/* Drives the nested dissection: choice of the index width and of pruning, groups of equal columns, table of domains, permutations. */
#include "analysis/nested_dissection.h"
#include "analysis/ordering.h"
#include "analysis/symbolic.h"
#include "service/service.h"

namespace
{
/* The narrow partitioner takes half the memory and less time; sums of a few lists must still fit. */
constexpr int64_t narrow_rows = int64_t{1} << 28;
constexpr int64_t narrow_entries = int64_t{1} << 30;

constexpr double compressed_share = 0.85; /* of the columns: with more groups than that the graph stays as it is */

bool has_dense_row(int64_t neqns, const int64_t *xadj)
{
    int64_t longest = 1;
    for (int64_t i = 0; i < neqns; ++i) {
        if (xadj[i + 1] - xadj[i] > longest) longest = xadj[i + 1] - xadj[i];
    }
    return longest >= neqns / 8;
}

/* Give the pairs without a range an empty one behind what came before, and go over to numbers from 1. */
void complete_table(int64_t neqns, int64_t domains, int64_t *domain_table)
{
    int64_t largest = -1;
    for (int64_t k = 0; k < 2 * domains; ++k) {
        int64_t *pair = domain_table + 2 * k;
        if (pair[0] < 0) {
            pair[0] = largest + 1;
            pair[1] = largest;
        }
        if (pair[1] > largest) largest = pair[1];
        const int64_t shift = pair[0] >= neqns ? 0 : 1; /* an empty pair behind the last column moves down by one */
        pair[0] += shift;
        pair[1] += shift;
    }
}
int64_t dissect(const dissection_request *request)
{
    const bool narrow = request->neqns < narrow_rows && request->xadj[request->neqns] < narrow_entries;
    return narrow ? dissect_narrow(request) : dissect_wide(request);
}

/* ---- groups of equal columns ---- */

/* A group is one vertex for the partitioner. It compresses graphs itself, but needs all entries for it in its own numbers; what stands side
   by side is found at less cost. */

/* member[j - 1]: group of column j. Returns how many groups there are. */
int64_t number_groups(const dissection_request *request, int64_t *member)
{
    int64_t count = 0;
    mark_twins(request->neqns, request->threads, request->xadj, request->adj, nullptr, member);
    for (int64_t j = 0; j < request->neqns; ++j) {
        count += member[j] == 0 ? 1 : 0;
        member[j] = count;
    }
    return count;
}

/* The columns of a group have the same neighbours, so the first one's list serves, and in it the first column of each group. */
void connect_groups(const dissection_request *request, const int64_t *member, column_groups *groups)
{
    int64_t at = 0;
    for (int64_t j = 1; j <= request->neqns; ++j) {
        const int64_t g = member[j - 1], own = request->weight != nullptr ? request->weight[j - 1] : 1;
        if (j > 1 && member[j - 2] == g) {
            groups->weight[g - 1] += own;
            continue;
        }
        groups->first[g - 1] = j;
        groups->weight[g - 1] = own;
        groups->xadj[g - 1] = at + 1;
        for (int64_t p = request->xadj[j - 1]; p < request->xadj[j]; ++p) {
            const int64_t u = request->adj[p - 1], other = member[u - 1];
            if (other != g && (u == 1 || member[u - 2] != other)) groups->adj[at++] = other;
        }
    }
    groups->first[groups->count] = request->neqns + 1;
    groups->xadj[groups->count] = at + 1;
}

/* From places of groups to places of columns, in the order and in the table. first_place[count + 1] is work. */
void expand_groups(const dissection_request *request, const column_groups *groups, int64_t *first_place)
{
    first_place[0] = 0;
    for (int64_t g = 0; g < groups->count; ++g) first_place[groups->place[g] + 1] = groups->first[g + 1] - groups->first[g];
    for (int64_t k = 0; k < groups->count; ++k) first_place[k + 1] += first_place[k];
    for (int64_t g = 0; g < groups->count; ++g) {
        int64_t place = first_place[groups->place[g]];
        for (int64_t j = groups->first[g]; j < groups->first[g + 1]; ++j) request->order[j - 1] = place++;
    }
    for (int64_t k = 0; k < 2 * request->domains; ++k) {
        int64_t *pair = request->domain_table + 2 * k;
        if (pair[0] < 0) continue; /* no range */
        pair[0] = first_place[pair[0]];
        pair[1] = first_place[pair[1] + 1] - 1;
    }
}

/* Dissect the graph of the groups. member[n], the group of each column, is work afterwards. Returns 0 or -2. */
int64_t dissect_groups(const dissection_request *request, int64_t count, int64_t *member, column_groups *groups)
{
    int64_t entries = 0; /* no fewer than there will be */
    for (int64_t j = 1; j <= request->neqns; ++j)
        if (j == 1 || member[j - 2] != member[j - 1]) entries += request->xadj[j] - request->xadj[j - 1];
    int64_t *block = static_cast<int64_t *>(service_alloc_direct(static_cast<uint64_t>(4 * count + 3 + entries) * sizeof(int64_t), 64));
    if (block == nullptr) return -2;
    *groups = {count, block, block + count + 1, block + 2 * count + 2, block + 3 * count + 2, block + 4 * count + 3};
    connect_groups(request, member, groups);
    dissection_request reduced = *request;
    reduced.neqns = count;
    reduced.xadj = groups->xadj;
    reduced.adj = groups->adj;
    reduced.weight = groups->weight;
    reduced.order = groups->place;
    const int64_t error = dissect(&reduced);
    if (error == 0) expand_groups(request, groups, member);
    return error;
}
} // namespace

void release_groups(column_groups *groups)
{
    service_free_direct(groups->first);
    *groups = {};
}

int64_t nested_dissection_driver(int64_t neqns, int64_t threads, int64_t *xadj, int64_t *adj, const int64_t *weight, int64_t *perm,
                                 int64_t *invp, int64_t *domains, int64_t *domain_table, column_groups *kept)
{
    int64_t width = 1;
    while (width < *domains) width *= 2;
    for (int64_t w = 0; w < 4 * width; ++w) domain_table[w] = -1;
    const dissection_request request = {neqns, threads, xadj, adj, weight, neqns, has_dense_row(neqns, xadj), width, invp, domain_table};
    const int64_t groups = request.dense_rows ? neqns : number_groups(&request, perm);
    const bool grouped = static_cast<double>(groups) < compressed_share * static_cast<double>(neqns);
    column_groups own{};
    const int64_t error = grouped ? dissect_groups(&request, groups, perm, &own) : dissect(&request);
    if (kept == nullptr || error != 0)
        release_groups(&own);
    else
        *kept = own;
    if (error != 0) return error;
    complete_table(neqns, width, domain_table);
    *domains = width;
    for (int64_t v = 0; v < neqns; ++v) {
        ++invp[v];
        perm[invp[v] - 1] = v + 1;
    }
    return 0;
}
