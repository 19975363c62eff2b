#include <cmath>

#include "analysis/matching.h"

/* Half of what each row's and column's largest entry lacks goes to its factor. */
static void equilibrate_once(const cost_rows &rows, double *row_log, double *col_log, double *row_least, double *col_least)
{
    const int64_t n = rows.n;
    for (int64_t i = 0; i < n; ++i) row_least[i] = col_least[i] = HUGE_VAL;
    for (int64_t i = 0; i < n; ++i) {
        for (int64_t p = rows.start[i]; p < rows.start[i + 1]; ++p) {
            const double cost = rows.cost[p - 1];
            double *column = &col_least[rows.column[p - 1] - 1];
            if (cost < row_least[i]) row_least[i] = cost;
            if (cost < *column) *column = cost;
        }
    }
    for (int64_t i = 0; i < n; ++i) {
        row_least[i] = row_least[i] < HUGE_VAL ? 0.5 * row_least[i] : 0; /* nothing to scale in an empty row or column */
        col_least[i] = col_least[i] < HUGE_VAL ? 0.5 * col_least[i] : 0;
        row_log[i] += row_least[i];
        col_log[i] += col_least[i];
    }
    for (int64_t i = 0; i < n; ++i)
        for (int64_t p = rows.start[i]; p < rows.start[i + 1]; ++p) rows.cost[p - 1] -= row_least[i] + col_least[rows.column[p - 1] - 1];
}

void equilibrate_costs(const cost_rows &rows, double *row_log, double *col_log, double *work)
{
    for (int64_t i = 0; i < rows.n; ++i) row_log[i] = col_log[i] = 0;
    /* each sweep halves the distance in logarithms: ten take a factor 1e300 to within 2 of its place */
    for (int64_t sweep = 0; sweep < 10; ++sweep) equilibrate_once(rows, row_log, col_log, work, work + rows.n);
}

void complete_matching(int64_t n, row_matching *matching)
{
    int64_t i = 1;
    for (int64_t j = 1; j <= n; ++j) {
        if (matching->column_row[j - 1] != 0) continue;
        while (matching->row_edge[i - 1] != 0) ++i;
        matching->column_row[j - 1] = i++;
    }
}

static double centre(int64_t n, const double *logs)
{
    double least = logs[0], largest = logs[0];
    for (int64_t i = 1; i < n; ++i) {
        if (logs[i] < least) least = logs[i];
        if (logs[i] > largest) largest = logs[i];
    }
    return 0.5 * (least + largest);
}

static double bounded_exp(double x)
{
    const double most = 690;
    return std::exp(x > most ? most : x < -most ? -most : x);
}

void scale_from_logs(int64_t n, bool symmetric, double *row, double *col)
{
    if (n < 1) return;
    const double shift = 0.5 * (centre(n, row) - centre(n, col));
    for (int64_t i = 0; i < n; ++i) {
        const double r = symmetric ? 0.5 * (row[i] + col[i]) : row[i] - shift;
        const double c = symmetric ? r : col[i] + shift;
        row[i] = bounded_exp(r);
        col[i] = bounded_exp(c);
    }
}
