/* Multiple minimum degree of a whole graph. */
#include "analysis/minimum_degree.h"
#include "analysis/ordering.h"

void invert_permutation(int64_t neqns, const int64_t *perm, int64_t *invp)
{
    for (int64_t k = 0; k < neqns; ++k) invp[perm[k] - 1] = k + 1;
}

degree_state<int64_t> degree_state_in_lists(int64_t neqns, const int64_t *xadj, int64_t *adj, int64_t *invp, int64_t *perm, int64_t *lists,
                                            int64_t integer_limit)
{
    degree_state<int64_t> s{};
    s.n = neqns;
    s.xadj = xadj;
    s.adj = adj;
    s.head_size = neqns + 1;
    s.tag_limit = integer_limit;
    s.next = invp;
    s.prev = perm;
    s.head = lists;
    s.weight = s.head + s.head_size;
    s.marker = s.weight + neqns;
    s.chain = s.marker + neqns;
    s.place = s.chain + neqns;
    return s;
}

void mmd_order(int64_t neqns, const int64_t *xadj, int64_t *adj, int64_t *invp, int64_t *perm, int64_t delta, int64_t *lists,
               int64_t integer_limit)
{
    degree_state<int64_t> s = degree_state_in_lists(neqns, xadj, adj, invp, perm, lists, integer_limit);
    start_degrees(&s, static_cast<const int64_t *>(nullptr));
    eliminate_all(&s, delta);
    number_vertices(&s, invp);
    invert_permutation(neqns, invp, perm);
}
