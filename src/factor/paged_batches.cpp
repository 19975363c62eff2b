/* Where batches of supernodes begin when factors are in files. A source outside a batch is read once if it updates any member, so the
   batches that read least are a shortest path over the places where a batch may begin: the cost of a batch is that of the sources of each
   member, without those that an earlier member has brought. */
#include "factor/paged_batches.h"

namespace
{

/* Supernodes above the subtrees by their ordinal numbers, from 1 on; tables are indexed by the ordinal. */
struct batch_plan {
    int64_t count, band;
    int64_t *held;   /* entries of the supernode's blocks */
    int64_t *read;   /* entries of all sources of the supernode */
    int64_t *repeat; /* [band] of those, the ones whose target before is so many supernodes back, or which are that supernode */
    int64_t *best;   /* least entries to read for all supernodes up to this one */
    int64_t *begin;  /* first member of the last batch of that plan */
};
constexpr int64_t tables = 4;

bool lay_out(batch_plan *plan, int64_t count, int64_t most_members, int64_t *work, int64_t words)
{
    const int64_t left = words - tables * (count + 1);
    plan->count = count;
    plan->band = count < 1 || left < 0 ? 0 : left / (count + 1);
    if (plan->band > most_members) plan->band = most_members;
    plan->held = work;
    plan->read = plan->held + count + 1;
    plan->best = plan->read + count + 1;
    plan->begin = plan->best + count + 1;
    plan->repeat = plan->begin + count + 1;
    return plan->band > 1;
}

void count_source(const supernodal_structure &s, const batch_plan &plan, int64_t number, int64_t entries, const int64_t *ordinal)
{
    const int64_t *list = supernode_row_list(s, number), rows = supernode_rows(s, number);
    int64_t before = ordinal[number - 1] > 0 ? ordinal[number - 1] : 0;
    for (int64_t p = supernode_columns(s, number); p < rows;) {
        const int64_t target = s.snode[list[p] - 1], at = ordinal[target - 1];
        if (at > 0) {
            plan.read[at] += entries;
            if (before > 0 && at - before < plan.band) plan.repeat[at * plan.band + at - before] += entries;
            before = at;
        }
        while (p < rows && list[p] < s.xsuper[target]) ++p;
    }
}

void find_least(const batch_plan &plan, int64_t room)
{
    plan.best[0] = 0;
    for (int64_t b = 1; b <= plan.count; ++b) plan.best[b] = INT64_MAX;
    for (int64_t a = 1; a <= plan.count; ++a) {
        int64_t held = 0, read = plan.best[a - 1];
        for (int64_t b = a; b <= plan.count && b - a < plan.band; ++b) {
            held += plan.held[b];
            if (b > a && held > room) break;
            read += plan.read[b];
            for (int64_t back = 1; back <= b - a; ++back) read -= plan.repeat[b * plan.band + back];
            if (read >= plan.best[b]) continue;
            plan.best[b] = read;
            plan.begin[b] = a;
        }
    }
}

} // namespace

void plan_batches(const supernodal_structure &s, bool two_sides, int64_t room, int64_t most_members, int64_t *status, int64_t *work,
                  int64_t words)
{
    int64_t count = 0;
    for (int64_t i = 0; i < s.supernodes; ++i)
        if (status[i] > 0) ++count;
    batch_plan plan;
    if (!lay_out(&plan, count, most_members, work, words)) return;
    for (int64_t k = 0; k < (tables + plan.band) * (count + 1); ++k) work[k] = 0;
    for (int64_t i = 1, last = 0; i <= s.supernodes; ++i) {
        if (status[i - 1] <= 0) continue;
        status[i - 1] = ++last;
        plan.held[last] = block_entries(s, i, two_sides);
    }
    for (int64_t i = 1; i <= s.supernodes; ++i) count_source(s, plan, i, block_entries(s, i, two_sides), status);
    find_least(plan, room);
    for (int64_t i = s.supernodes, end = count; i >= 1; --i) {
        if (status[i - 1] <= 0) continue;
        const bool begins = status[i - 1] == plan.begin[end];
        if (begins) end = status[i - 1] - 1;
        status[i - 1] = begins ? supernode_begins_batch : 1;
    }
}
