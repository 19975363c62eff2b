#include "analysis/symbolic.h"

domain_walk open_domain_walk(int64_t count, int64_t domains, const int64_t *table)
{
    int64_t reached = 0;
    for (int64_t d = 1; d <= domains; ++d) {
        int64_t first, last;
        if (!domain_pair(table, d, count, &first, &last)) continue;
        if (first <= reached) return {count, 0, table, 0, 0};
        reached = last;
    }
    return {count, domains, table, 0, 0};
}

bool next_range(domain_walk *walk, int64_t *first, int64_t *last)
{
    while (walk->step < walk->domains) { /* the domains */
        ++walk->step;
        if (domain_pair(walk->table, walk->step, walk->count, first, last)) return true;
    }
    while (walk->step < 2 * walk->domains) { /* what lies before each domain */
        ++walk->step;
        int64_t begin, end;
        if (!domain_pair(walk->table, walk->step - walk->domains, walk->count, &begin, &end)) continue;
        *first = walk->reached + 1;
        *last = begin - 1;
        walk->reached = end;
        if (*first <= *last) return true;
    }
    ++walk->step;
    *first = walk->reached + 1;
    *last = walk->count;
    walk->reached = walk->count;
    return *first <= *last;
}

int64_t first_above_domains(int64_t supernodes, int64_t domains, const int64_t *table)
{
    int64_t above = 1;
    for (int64_t d = 1; d <= domains; ++d) {
        int64_t first, last;
        if (domain_pair(table, d, supernodes, &first, &last) && last >= above) above = last + 1;
    }
    return above;
}

void translate_table(int64_t neqns, int64_t supernodes, int64_t domains, const int64_t *snode, int64_t *domain_table)
{
    for (int64_t pair = 1; pair <= 2 * domains; ++pair) {
        int64_t *first = &domain_table[2 * pair - 2], *last = &domain_table[2 * pair - 1];
        /* an empty pair at the very end may begin past the last column */
        if (*first < 1 || *last < 1 || *first > neqns || *last > neqns) {
            *first = 2;
            *last = 1;
            continue;
        }
        const int64_t end = *last;
        *first = snode[*first - 1];
        *last = snode[end - 1];
        if (end < neqns && snode[end] == *last) --*last;
        if (*last < 1) {
            *first = 2;
            *last = 1;
        }
    }
    domain_table[2 * domains] = first_above_domains(supernodes, domains, domain_table);
    domain_table[2 * domains + 1] = supernodes;
}

bool domains_are_independent(int64_t supernodes, int64_t domains, const int64_t *domain_table, const int64_t *xsuper, const int64_t *snode,
                             const int64_t *parent)
{
    const int64_t above = first_above_domains(supernodes, domains, domain_table);
    int64_t reached = 0;
    for (int64_t d = 1; d <= domains; ++d) {
        int64_t first, last;
        if (!domain_pair(domain_table, d, supernodes, &first, &last)) continue;
        if (first != reached + 1) return false;
        reached = last;
        for (int64_t s = first; s <= last; ++s) {
            const int64_t up = parent[xsuper[s] - 2];
            if (up >= 1 && snode[up - 1] > last && snode[up - 1] < above) return false;
        }
    }
    return true;
}
