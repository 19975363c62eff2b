#include "factor/update_groups.h"

#include <complex>

namespace
{

/* By falling number: parents before their children. */
void sort_pending(pending_update *pending, int64_t count)
{
    for (int64_t i = 1; i < count; ++i) {
        const pending_update key = pending[i];
        int64_t k = i;
        for (; k > 0 && pending[k - 1].source < key.source; --k) pending[k] = pending[k - 1];
        pending[k] = key;
    }
}

/* Place of a source among those sorted by falling number; -1 when it is not there. */
int64_t find_pending(const pending_update *pending, int64_t count, int64_t source)
{
    int64_t low = 0, high = count;
    while (low < high) {
        const int64_t middle = (low + high) / 2;
        if (pending[middle].source > source)
            low = middle + 1;
        else
            high = middle;
    }
    return low < count && pending[low].source == source ? low : -1;
}

void append(pending_update *pending, int64_t at, update_group *group)
{
    pending[at].next = -1;
    if (group->last >= 0)
        pending[group->last].next = at;
    else
        group->first = at;
    group->last = at;
}

} // namespace

template <typename value_t, factor_kind kind>
int64_t make_groups(factor_run<value_t> *run, thread_space<value_t> *space, const target_block<value_t> &target, update_group *group)
{
    const supernodal_structure &s = *run->s;
    constexpr update_costs cost = costs_of<value_t>();
    pending_update *pending = space->pending;
    const int64_t last_column = target.first + target.columns - 1;
    update_group whole = {-1, target.rows, target.columns, -1, -1};
    int64_t groups = 0;
    sort_pending(pending, space->pending_count);
    for (int64_t i = 0; i < space->pending_count; ++i) {
        pending_update &one = pending[i];
        const int64_t *list = supernode_row_list(s, one.source) + (supernode_rows(s, one.source) - one.rows);
        const int64_t width = supernode_columns(s, one.source), up = s.sparent[one.source - 1];
        one.columns = 0;
        while (one.columns < one.rows && list[one.columns] <= last_column) ++one.columns;
        const bool full = one.rows == target.rows;
        const bool run_of_rows = full || space->relative[list[one.rows - 1] - 1] - space->relative[list[0] - 1] == one.rows - 1;
        if (!run_of_rows && !target.front && target.spanned == 0 && width > 1 && one.rows * one.columns > space->buffer_entries) {
            fail(run, -2);
            return 0;
        }
        const double alone = update_entries<kind>(one.rows, one.columns) * (run_of_rows ? cost.in_place : cost.scattered) + cost.call;

        const bool inside = up > 0 && s.xsuper[up - 1] >= target.first;
        const int64_t parent = inside ? -1 : find_pending(pending, i, up);
        update_group *joined = nullptr; /* one source alone stays as it is */
        if (space->pending_count > 1 && inside)
            joined = &whole;
        else if (parent >= 0)
            joined = pending[parent].group < 0 ? &whole : &group[pending[parent].group];
        if (joined != nullptr && joined->rows != one.rows) {
            const double entries = update_entries<kind>(joined->rows, joined->columns);
            double together = static_cast<double>(width) * (entries + cost.copied * static_cast<double>(joined->rows));
            if (joined->first < 0) together += cost.in_place * entries;
            if (together > alone || width * packed_entries<kind>(joined->rows, joined->columns) > space->buffer_entries) joined = nullptr;
        }
        if (joined == nullptr) {
            joined = &group[groups];
            *joined = {i, one.rows, one.columns, -1, -1};
            ++groups;
        }
        one.group = joined == &whole ? -1 : joined - group;
        append(pending, i, joined);
    }
    if (whole.first >= 0) group[groups++] = whole;
    return groups;
}

#define INSTANTIATE_KIND(V, kind)                                                                                                          \
    template int64_t make_groups<V, kind>(factor_run<V> *, thread_space<V> *, const target_block<V> &, update_group *);
#define INSTANTIATE(V)                                                                                                                     \
    INSTANTIATE_KIND(V, factor_kind::cholesky)                                                                                             \
    INSTANTIATE_KIND(V, factor_kind::ldlt)                                                                                                 \
    INSTANTIATE_KIND(V, factor_kind::lu)
FOR_EACH_VALUE(INSTANTIATE)
