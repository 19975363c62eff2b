#include <cmath>

#include "factor/ldlt_panel.h"
#include "service/service.h"

namespace
{

/* The largest diagonal entry from k on; the last of equals. */
template <typename value_t>
int64_t largest_diagonal(const value_t *d, int64_t k, int64_t n)
{
    int64_t at = k;
    for (int64_t i = k + 1; i < n; ++i)
        if (std::abs(d[at]) <= std::abs(d[i])) at = i;
    return at;
}

/* The pivot as the rules leave it; counts what was changed. A complex pivot goes to the hook as its magnitude with the sign of its real
   part. */
template <typename value_t>
value_t settle_pivot(const value_t &pivot, double epsilon, bool use_hook, const value_t *aux, pivot_counts *counts)
{
    const double sign = sign_of(pivot), magnitude = static_cast<double>(std::abs(pivot));
    if (use_hook) {
        const double unscaled = static_cast<double>(real_part(*aux));
        double value = std::copysign(magnitude, sign);
        if (service_pivot(&unscaled, &value, &epsilon) == 0) return pivot;
        ++counts->perturbed;
        return static_cast<value_t>(static_cast<real_of<value_t>>(value));
    }
    if (!(magnitude <= epsilon)) return pivot;
    ++counts->perturbed;
    return static_cast<value_t>(static_cast<real_of<value_t>>(std::copysign(epsilon == 0 ? 1e-8 : epsilon, sign)));
}

} // namespace

template <typename value_t, mirror sym>
int64_t block_ldlt_diagonal(int64_t n, value_t *a, int64_t lda, int64_t *pivots, pivot_counts *counts, double epsilon,
                            const value_t *diagonal, bool use_hook, void *work)
{
    if (n < 0 || n > block_columns_limit) return -2;
    if (lda < (n > 1 ? n : 1)) return -4;
    if (n == 0) return 0;
    alignas(64) value_t w[panel_entries], d[block_columns_limit]; /* d: the diagonal, kept up to date */
    const int64_t width = panel_width(n);
    ldlt_panel<value_t> p = {n, lda, a, w, 0, work};
    for (int64_t i = 0; i < n; ++i) d[i] = a[i + i * lda];
    for (int64_t k = 0; k < n; ++k) {
        const int64_t wk = k - p.begin, row = largest_diagonal(d, k, n);
        updated_column<value_t, sym>(p, row, k, wk);
        value_t *x = w + wk * n;
        if (row != k) {
            exchange<value_t, sym>(p, k, row, k, wk + 1);
            swap_values(&d[k], &d[row]);
        }
        make_diagonal_real<sym>(&d[k]);
        const value_t pivot = settle_pivot(d[k], epsilon, use_hook, use_hook ? &diagonal[k] : nullptr, counts);
        if (real_part(pivot) <= 0)
            ++counts->negative;
        else
            ++counts->positive;
        const value_t r1 = value_t(1) / pivot;
        value_t *column = a + k * lda;
        column[k] = x[k] = pivot;
        for (int64_t i = k + 1; i < n; ++i) {
            column[i] = product(x[i], r1);
            d[i] -= product(column[i], mirrored<sym>(x[i]));
        }
        pivots[k] = row + 1;
        if (wk + 1 == width && k + 1 < n) {
            update_trailing<value_t, sym>(p, k + 1);
            p.begin = k + 1;
        }
    }
    return 0;
}

#define INSTANTIATE(V, sym)                                                                                                                \
    template int64_t block_ldlt_diagonal<V, sym>(int64_t, V *, int64_t, int64_t *, pivot_counts *, double, const V *, bool, void *);
FOR_EACH_MIRROR(INSTANTIATE)
