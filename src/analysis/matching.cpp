#include "analysis/matching.h"

#include <cmath>
#include <complex>

#include "analysis/analysis.h"

static bool stores_one_triangle(int64_t matrix_type)
{
    return matrix_type == 2 || matrix_type == -2 || matrix_type == 4 || matrix_type == -4 || matrix_type == 6;
}

/* Logarithm of the magnitude; false for zero and for what is not a number. Infinity counts as the largest number. */
static bool log_magnitude(double x, double *result)
{
    const double size = std::fabs(x);
    if (!(size > 0)) return false;
    *result = std::log(size <= 1.7976931348623157e308 ? size : 1.7976931348623157e308);
    return true;
}

static bool log_magnitude(float x, double *result)
{
    return log_magnitude(static_cast<double>(x), result);
}

template <typename real_t>
static bool log_magnitude(const std::complex<real_t> &z, double *result)
{
    const double re = std::fabs(static_cast<double>(z.real())), im = std::fabs(static_cast<double>(z.imag()));
    if (std::isnan(re) || std::isnan(im)) return false;
    const double large = re > im ? re : im, small = re > im ? im : re;
    if (!log_magnitude(large, result)) return false;
    const double ratio = small < large ? small / large : 1; /* no square of the parts: they could pass the range */
    *result += 0.5 * std::log1p(ratio * ratio);
    return true;
}

/* The present entries with both triangles; start[i] counts on the way and points at the next free place of row i + 1 while filling. */
template <typename value_t>
static void collect_rows(bool symmetric, int64_t n, const int64_t *ia, const int64_t *ja, const value_t *a, cost_rows *rows)
{
    double unused;
    for (int64_t i = 0; i <= n; ++i) rows->start[i] = 0;
    for (int64_t i = 1; i <= n; ++i) {
        for (int64_t p = ia[i - 1]; p < ia[i]; ++p) {
            if (!log_magnitude(a[p - 1], &unused)) continue;
            ++rows->start[i];
            if (symmetric && ja[p - 1] != i) ++rows->start[ja[p - 1]];
        }
    }
    int64_t next = 1;
    for (int64_t i = 1; i <= n; ++i) {
        const int64_t count = rows->start[i];
        rows->start[i] = next;
        next += count;
    }
    for (int64_t i = 1; i <= n; ++i) {
        for (int64_t p = ia[i - 1]; p < ia[i]; ++p) {
            double size;
            if (!log_magnitude(a[p - 1], &size)) continue;
            const int64_t j = ja[p - 1], place = rows->start[i]++;
            rows->column[place - 1] = j;
            rows->cost[place - 1] = -size;
            if (!symmetric || j == i) continue;
            const int64_t image = rows->start[j]++;
            rows->column[image - 1] = i;
            rows->cost[image - 1] = -size;
        }
    }
    rows->start[0] = 1;
}

int64_t matching_work_words(int64_t neqns, int64_t nnz, int64_t matrix_type)
{
    const int64_t entries = stores_one_triangle(matrix_type) ? 2 * nnz : nnz;
    return 2 * entries + 7 * neqns + 1;
}

template <typename value_t>
int64_t matching_step(int64_t matrix_type, int64_t method, int64_t n, const int64_t *ia, const int64_t *ja, const value_t *a,
                      int64_t *row_order, double *scale_row, double *scale_col, int64_t *work)
{
    if (method < 1) {
        for (int64_t i = 0; i < n; ++i) {
            row_order[i] = i + 1;
            scale_row[i] = scale_col[i] = 1;
        }
        return n;
    }
    const bool symmetric = stores_one_triangle(matrix_type);
    const int64_t entries = (symmetric ? 2 : 1) * (ia[n] - 1);
    cost_rows rows = {n, work, work + n + 1, reinterpret_cast<double *>(work + n + 1 + entries)};
    int64_t *rest = work + n + 1 + 2 * entries;
    row_matching matching = {rest, row_order, 0};
    collect_rows(symmetric, n, ia, ja, a, &rows);
    if (method == 2) {
        equilibrate_costs(rows, scale_row, scale_col, reinterpret_cast<double *>(rest + n));
        threshold_matching(rows, &matching, rest + n);
    } else {
        shortest_path_matching(rows, &matching, scale_row, scale_col, rest + n);
    }
    complete_matching(n, &matching);
    scale_from_logs(n, symmetric, scale_row, scale_col);
    return matching.count;
}

#define INSTANTIATE(V)                                                                                                                     \
    template int64_t matching_step<V>(int64_t, int64_t, int64_t, const int64_t *, const int64_t *, const V *, int64_t *, double *,         \
                                      double *, int64_t *);
INSTANTIATE(double)
INSTANTIATE(float)
INSTANTIATE(std::complex<double>)
INSTANTIATE(std::complex<float>)
