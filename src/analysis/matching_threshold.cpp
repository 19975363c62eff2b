#include <cmath>

#include "analysis/matching_depth.h"

void threshold_matching(const cost_rows &rows, row_matching *matching, int64_t *work)
{
    const int64_t n = rows.n, steps = 16; /* the last step takes every entry */
    const depth_search search = make_depth_search(n, work);
    for (int64_t i = 0; i < n; ++i) matching->row_edge[i] = matching->column_row[i] = 0;
    matching->count = 0;
    int64_t pass = 0;
    for (int64_t step = 0; step <= steps && matching->count < n; ++step) {
        const double limit = step < steps ? 1e-6 + static_cast<double>(step) * 2.302585092994046 : HUGE_VAL;
        const auto cheap = [&](int64_t, int64_t p) { return !(rows.cost[p - 1] > limit); };
        for (int64_t i = 0; i < n; ++i) search.ahead[i] = rows.start[i];
        while (matching->count < n && augment_free_rows(rows, matching, cheap, ++pass, search) > 0) {}
    }
}
