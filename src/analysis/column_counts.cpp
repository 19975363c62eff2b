#include "analysis/symbolic.h"

/* order[k - 1]: k-th column of a postorder of the forest. Consumes first_child. */
static void postorder(int64_t neqns, const int64_t *parent, int64_t *first_child, const int64_t *sibling, int64_t *order)
{
    int64_t k = 0;
    for (int64_t root = 1; root <= neqns; ++root) {
        if (parent[root - 1] != 0) continue;
        for (int64_t j = root;;) {
            while (first_child[j - 1] != 0) {
                const int64_t child = first_child[j - 1];
                first_child[j - 1] = sibling[child - 1];
                j = child;
            }
            order[k++] = j;
            if (j == root) break;
            j = parent[j - 1];
        }
    }
}

/* What is known of a row's subtree while the columns pass in postorder. */
struct row_state {
    int64_t reach;     /* largest first-descendant position among the neighbours seen, 0 none */
    int64_t last_leaf; /* last leaf of the row's subtree found, 0 none */
};

/* Representative of leaf in the forest of finished columns: its least common ancestor with the column at hand. */
static int64_t find_top(int64_t leaf, int64_t *ancestor)
{
    int64_t top = leaf;
    while (ancestor[top - 1] != top) top = ancestor[top - 1];
    while (leaf != top) {
        const int64_t next = ancestor[leaf - 1];
        ancestor[leaf - 1] = top;
        leaf = next;
    }
    return top;
}

int64_t column_counts(int64_t neqns, const int64_t *xadj, const int64_t *adj, const int64_t *perm, const int64_t *invp,
                      const int64_t *parent, int64_t *colcnt, int64_t *work, const int64_t *twin, const int64_t *row_weight)
{
    const auto weight_of = [=](int64_t i) { return row_weight != nullptr ? row_weight[perm[i - 1] - 1] : 1; };
    int64_t *order = work, *first = work + neqns, *ancestor = work + 2 * neqns;
    row_state *row = reinterpret_cast<row_state *>(work + 3 * neqns);
    child_lists(neqns, parent, work + 3 * neqns, work + 4 * neqns);
    postorder(neqns, parent, work + 3 * neqns, work + 4 * neqns, order);

    /* first[j]: position of the first descendant of j. A count starts at zero, at the leaves of the tree with the column itself. */
    for (int64_t j = 1; j <= neqns; ++j) {
        first[j - 1] = 0;
        colcnt[j - 1] = 0;
        ancestor[j - 1] = j;
        row[j - 1] = {0, 0};
    }
    for (int64_t k = 1; k <= neqns; ++k) {
        int64_t j = order[k - 1];
        if (first[j - 1] == 0) colcnt[j - 1] = weight_of(j);
        for (; j != 0 && first[j - 1] == 0; j = parent[j - 1]) first[j - 1] = k;
    }

    /* Column j is a leaf of the subtree of row i when no earlier neighbour of i lies below j, that is when its first descendant stands
       behind all of theirs. A leaf adds the path from j up to where it meets the path of the leaf before. */
    for (int64_t k = 1; k <= neqns; ++k) {
        const int64_t j = order[k - 1], up = parent[j - 1], begin = first[j - 1], given = perm[j - 1];
        const bool no_leaf = twin != nullptr && twin[j - 1] != 0; /* the column below meets the same rows */
        int64_t added = 0;
        for (int64_t p = xadj[given - 1]; p < xadj[given] && !no_leaf; ++p) {
            const int64_t i = invp[adj[p - 1] - 1];
            if (static_cast<int>(i <= j) | static_cast<int>(begin <= row[i - 1].reach)) continue;
            const int64_t leaf = row[i - 1].last_leaf;
            row[i - 1] = {begin, j};
            const int64_t weight = weight_of(i);
            added += weight;
            if (leaf != 0) colcnt[find_top(leaf, ancestor) - 1] -= weight;
        }
        colcnt[j - 1] += added;
        if (up == 0) continue;
        colcnt[up - 1] -= weight_of(j);
        ancestor[j - 1] = up;
    }

    int64_t total = 0;
    for (int64_t j = 1; j <= neqns; ++j) {
        total += colcnt[j - 1];
        if (parent[j - 1] != 0) colcnt[parent[j - 1] - 1] += colcnt[j - 1];
    }
    return total;
}
