/* The table of domains and separators beside an ordering. Pairs count from 1 here: 1..P leaf domains, P + 1 all separators, P + 2 .. 2P
   the separators one by one; pair k stands in words 2k - 2 and 2k - 1. Until the supernodes are known an empty pair is (k + 1, k). */
#include "analysis/ordering.h"

namespace
{
/* Pre-order to post-order: the first of count pairs goes behind the others, which are two such ranges. */
void rotate_to_post_order(int64_t *pair, int64_t count)
{
    if (count < 3) return;
    const int64_t first = pair[0], last = pair[1];
    for (int64_t w = 0; w < 2 * count - 2; ++w) pair[w] = pair[w + 2];
    pair[2 * count - 2] = first;
    pair[2 * count - 1] = last;
    const int64_t half = (count - 1) / 2;
    rotate_to_post_order(pair, half);
    rotate_to_post_order(pair + 2 * half, half);
}
} // namespace

void single_domain_table(int64_t neqns, int64_t *domains, int64_t *domain_table)
{
    *domains = 1;
    domain_table[0] = 1;
    domain_table[1] = neqns - 1;
    domain_table[2] = domain_table[3] = neqns;
}

void table_without_domains(int64_t neqns, int64_t domains, int64_t *domain_table)
{
    for (int64_t d = 1; d < domains; ++d) {
        domain_table[2 * d - 2] = 1;
        domain_table[2 * d - 1] = 0;
    }
    domain_table[2 * domains - 2] = 1;
    domain_table[2 * domains - 1] = neqns - 1;
    domain_table[2 * domains] = domain_table[2 * domains + 1] = neqns;
    for (int64_t k = domains + 2; k <= 2 * domains; ++k) {
        domain_table[2 * k - 2] = neqns + 1;
        domain_table[2 * k - 1] = neqns;
    }
}

void repair_last_pair(int64_t neqns, int64_t domains, int64_t *domain_table)
{
    if (domain_table[2 * domains - 1] != neqns) return;
    domain_table[2 * domains] = neqns;
    domain_table[2 * domains + 1] = neqns - 1;
}

void regroup_domains(int64_t neqns, int64_t domains, int64_t *domain_table, int64_t *perm, int64_t *label, int64_t *old_perm)
{
    for (int64_t k = 0; k < neqns; ++k) {
        label[k] = domains + 1;
        old_perm[k] = perm[k];
    }
    for (int64_t k = 1; k <= 2 * domains; ++k) {
        if (domain_table[2 * k - 2] == 0 && domain_table[2 * k - 1] == 0) domain_table[2 * k - 1] = -1;
    }
    int64_t place = 0;
    for (int64_t d = 1; d <= domains; ++d) { /* a pair is one range of old places, so the walk for label d is that range */
        const int64_t first = domain_table[2 * d - 2], last = domain_table[2 * d - 1];
        domain_table[2 * d - 2] = place + 1;
        for (int64_t k = first < 1 ? 1 : first; k <= last && k <= neqns; ++k) {
            if (label[k - 1] <= domains) continue;
            label[k - 1] = d;
            perm[place++] = old_perm[k - 1];
        }
        domain_table[2 * d - 1] = place;
    }
    int64_t start = place + 1;
    domain_table[2 * domains] = start;
    domain_table[2 * domains + 1] = neqns;
    for (int64_t k = 0; k < neqns; ++k) {
        if (label[k] == domains + 1) perm[place++] = old_perm[k];
    }
    int64_t *separators = domain_table + 2 * domains + 2;
    rotate_to_post_order(separators, domains - 1);
    for (int64_t k = 0; k < domains - 1; ++k) {
        const int64_t length = separators[2 * k + 1] - separators[2 * k];
        separators[2 * k] = start;
        separators[2 * k + 1] = start + (length >= 0 ? length : -1);
        if (length >= 0) start += length + 1;
    }
}

int64_t finish_domain_table(int64_t domains, int64_t *domain_table)
{
    const int64_t above_last = domain_table[2 * domains + 1];
    int64_t *top = domain_table + 4 * domains - 2;
    if (top[1] != above_last) {
        if (top[0] > top[1]) top[0] = above_last + 1;
        top[1] = above_last;
    }
    if (top[0] > top[1]) {
        int64_t k = 2 * domains - 1;
        while (k > domains + 1 && domain_table[2 * k - 2] > domain_table[2 * k - 1]) --k;
        if (k > domains + 1) {
            top[0] = domain_table[2 * k - 2];
            top[1] = domain_table[2 * k - 1];
            domain_table[2 * k - 2] = 2;
            domain_table[2 * k - 1] = 1;
        }
    }
    for (int64_t k = 1; k <= 2 * domains; ++k) {
        if (k == domains + 1) continue;
        if (domain_table[2 * k - 2] < 1 || domain_table[2 * k - 2] > domain_table[2 * k - 1]) return 1;
    }
    return 0;
}
