/* From a matching of a symmetric matrix to the pivots that its ordering should prepare (Duff and Pralet 2005, "Strategies for scaling and
   pivoting for sparse symmetric indefinite problems"). */
#include <cmath>
#include <complex>

#include "analysis/analysis.h"

namespace
{
/* A scaled diagonal entry of at least this size serves as a pivot by itself. The entries beside it are at most 1, so that a multiplier is
   at most 100; with 0.1 the factors of optimization problems get up to a third longer and the solutions no better. */
constexpr double good_size = 0.01;

template <typename value_t>
double size_of(const value_t &x)
{
    if constexpr (std::is_floating_point_v<value_t>)
        return std::fabs(static_cast<double>(x));
    else
        return std::hypot(static_cast<double>(x.real()), static_cast<double>(x.imag()));
}

/* Scaled magnitudes of the diagonal; 0 for what is missing or not a number. */
template <typename value_t>
void scaled_diagonal(int64_t n, const int64_t *ia, const int64_t *ja, const value_t *a, const double *scale, double *diagonal)
{
    for (int64_t i = 1; i <= n; ++i) {
        diagonal[i - 1] = 0;
        for (int64_t p = ia[i - 1]; p < ia[i]; ++p) {
            if (ja[p - 1] != i) continue;
            const double size = size_of(a[p - 1]) * scale[i - 1] * scale[i - 1];
            if (size > 0) diagonal[i - 1] = size;
            break;
        }
    }
}

/* Neighbouring columns run[count] of a cycle, none with a good diagonal: pairs. When their number is odd, the first one is left for the
   column before it. */
void pair_run(int64_t count, const int64_t *run, int64_t before, int64_t *match)
{
    const int64_t odd = count % 2;
    if (odd != 0) match[run[0] - 1] = before;
    for (int64_t k = odd; k < count; k += 2) {
        match[run[k] - 1] = run[k + 1];
        match[run[k + 1] - 1] = run[k];
    }
}

/* Cut a cycle that begins with its largest diagonal entry: good columns stand alone, the runs between them are paired. */
void cut_cycle(int64_t length, const int64_t *cycle, const double *diagonal, int64_t *match)
{
    const auto stands_alone = [&](int64_t k) { return length == 1 || diagonal[cycle[k] - 1] >= good_size; };
    for (int64_t from = 0, to; from < length; from = to) {
        to = from + 1;
        if (stands_alone(from)) {
            match[cycle[from] - 1] = cycle[from];
            continue;
        }
        while (to < length && !stands_alone(to)) ++to;
        pair_run(to - from, cycle + from, cycle[from > 0 ? from - 1 : length - 1], match);
    }
}
} // namespace

template <typename value_t>
void suggest_pivots(int64_t n, const int64_t *ia, const int64_t *ja, const value_t *a, const double *scale, int64_t *match, int64_t *work)
{
    auto *diagonal = reinterpret_cast<double *>(work);
    int64_t *seen = work + n, *cycle = work + 2 * n;
    scaled_diagonal(n, ia, ja, a, scale, diagonal);
    for (int64_t i = 0; i < n; ++i) seen[i] = 0;
    for (int64_t i = 1; i <= n; ++i) {
        if (seen[i - 1] != 0) continue;
        int64_t length = 0, first = i;
        for (int64_t column = i; seen[column - 1] == 0; column = match[column - 1], ++length) {
            seen[column - 1] = 1;
            if (diagonal[column - 1] > diagonal[first - 1]) first = column;
        }
        for (int64_t k = 0, column = first; k < length; ++k, column = match[column - 1]) cycle[k] = column;
        cut_cycle(length, cycle, diagonal, match);
    }
}

#define INSTANTIATE(V)                                                                                                                     \
    template void suggest_pivots<V>(int64_t, const int64_t *, const int64_t *, const V *, const double *, int64_t *, int64_t *);
INSTANTIATE(double)
INSTANTIATE(float)
INSTANTIATE(std::complex<double>)
INSTANTIATE(std::complex<float>)
