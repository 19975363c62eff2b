#include <cmath>

#include "factor/ldlt_panel.h"

namespace
{

constexpr double alpha = 0.6403882032022076; /* (1 + sqrt(17)) / 8 */

/* Index of the largest entry of x[from..to-1], -1 for none; the first of equals. */
template <typename value_t>
int64_t largest_of(const value_t *x, int64_t from, int64_t to)
{
    int64_t at = -1;
    real_of<value_t> largest = -1;
    for (int64_t i = from; i < to; ++i)
        if (size_of(x[i]) > largest) {
            largest = size_of(x[i]);
            at = i;
        }
    return at;
}

/* Size of the entry that largest_of found; 0 for none. */
template <typename value_t>
double size_at(const value_t *x, int64_t at)
{
    return at < 0 ? 0 : static_cast<double>(size_of(x[at]));
}

struct thresholds {
    double replacement, tau;
};

template <typename value_t>
thresholds choose_thresholds(int64_t n, const value_t *a, int64_t lda, double epsilon)
{
    if (epsilon == 0) return {1e-8, 0};
    double amax = 0;
    for (int64_t j = 0; j < n; ++j)
        for (int64_t i = j; i < n; ++i) {
            const double x = static_cast<double>(size_of(a[i + j * lda]));
            if (x > amax) amax = x;
        }
    return {epsilon, amax <= epsilon ? amax * epsilon : epsilon};
}

struct pivot_choice {
    int64_t step, row; /* 1x1 or 2x2; the row that k + step - 1 is exchanged with */
    bool replace;
};

/* Choose the pivot of column k, which stands in column wk of w; column wk + 1 of w is used to look at the row of the largest entry. */
template <typename value_t, mirror sym>
pivot_choice choose_pivot(const ldlt_panel<value_t> &p, int64_t k, int64_t wk, double tau)
{
    value_t *x = p.w + wk * p.n;
    const int64_t r = largest_of(x, k + 1, p.n);
    const double absakk = size_at(x, k), colmax = size_at(x, r);
    if (std::fmax(absakk, colmax) <= tau) return {1, k, true};
    if (!(absakk < alpha * colmax)) return {1, k, false};
    updated_column<value_t, sym>(p, r, k, wk + 1);
    value_t *y = p.w + (wk + 1) * p.n;
    make_diagonal_real<sym>(&y[r]);
    const double rowmax = std::fmax(size_at(y, largest_of(y, k, r)), size_at(y, largest_of(y, r + 1, p.n)));
    if (!(absakk < alpha * colmax * (colmax / rowmax))) return {1, k, false};
    if (size_at(y, r) < alpha * rowmax) return {2, r, false};
    for (int64_t i = k; i < p.n; ++i) x[i] = y[i];
    return {1, r, false};
}

template <typename value_t, mirror sym>
void eliminate_one(const ldlt_panel<value_t> &p, int64_t k, int64_t wk, pivot_counts *counts)
{
    const value_t *x = p.w + wk * p.n;
    value_t *column = p.a + k * p.lda;
    const value_t r1 = value_t(1) / x[k];
    const bool positive = k + 1 < p.n ? real_part(r1) >= 0 : real_part(x[k]) >= 0;
    if (positive)
        ++counts->positive;
    else
        ++counts->negative;
    column[k] = x[k];
    for (int64_t i = k + 1; i < p.n; ++i) column[i] = product(x[i], r1);
}

template <typename value_t, mirror sym>
void eliminate_two(const ldlt_panel<value_t> &p, int64_t k, int64_t wk, pivot_counts *counts)
{
    const value_t *x = p.w + wk * p.n, *y = x + p.n;
    value_t *first = p.a + k * p.lda, *second = first + p.lda;
    const value_t b = x[k + 1];
    const value_t d11 = y[k + 1] / b, d22 = x[k] / mirrored<sym>(b);
    value_t t = value_t(1) / (product(d11, d22) - value_t(1));
    make_diagonal_real<sym>(&t);
    const value_t scale_two = t / b, scale_one = t / mirrored<sym>(b);
    for (int64_t j = k + 2; j < p.n; ++j) {
        first[j] = product(scale_one, product(d11, x[j]) - y[j]);
        second[j] = product(scale_two, product(d22, y[j]) - x[j]);
    }
    first[k] = x[k];
    second[k + 1] = y[k + 1];
    second[k] = mirrored<sym>(b); /* D above the diagonal, so that the triangle below is L alone */
    first[k + 1] = value_t(0);
    if (real_part(t) <= 0) {
        ++counts->positive;
        ++counts->negative;
    } else if (real_part(x[k]) <= 0 || real_part(y[k + 1]) <= 0) {
        counts->negative += 2;
    } else {
        counts->positive += 2;
    }
}

} // namespace

template <typename value_t, mirror sym>
int64_t block_ldlt_bunch_kaufman(int64_t n, value_t *a, int64_t lda, int64_t *pivots, pivot_counts *counts, double epsilon, void *work)
{
    if (n < 0 || n > block_columns_limit) return -2;
    if (lda < (n > 1 ? n : 1)) return -4;
    if (n == 0) return 0;
    const thresholds limits = choose_thresholds(n, a, lda, epsilon);
    alignas(64) value_t w[panel_entries];
    const int64_t width = panel_width(n);
    ldlt_panel<value_t> p = {n, lda, a, w, 0, work};
    for (int64_t k = 0; k < n;) {
        const int64_t wk = k - p.begin;
        updated_column<value_t, sym>(p, k, k, wk);
        make_diagonal_real<sym>(&w[k + wk * n]);
        const pivot_choice pivot = choose_pivot<value_t, sym>(p, k, wk, limits.tau);
        if (pivot.replace) {
            ++counts->perturbed;
            w[k + wk * n] = static_cast<value_t>(static_cast<real_of<value_t>>(std::copysign(limits.replacement, sign_of(w[k + wk * n]))));
        }
        const int64_t moved = k + pivot.step - 1;
        if (pivot.row != moved) exchange<value_t, sym>(p, moved, pivot.row, k, wk + pivot.step);
        if (pivot.step == 1) {
            eliminate_one<value_t, sym>(p, k, wk, counts);
            pivots[k] = pivot.row + 1;
        } else {
            eliminate_two<value_t, sym>(p, k, wk, counts);
            pivots[k] = pivots[k + 1] = -(pivot.row + 1);
        }
        k += pivot.step;
        if (k - p.begin + 2 > width && k < n) {
            update_trailing<value_t, sym>(p, k);
            p.begin = k;
        }
    }
    return 0;
}

#define INSTANTIATE(V, sym)                                                                                                                \
    template int64_t block_ldlt_bunch_kaufman<V, sym>(int64_t, V *, int64_t, int64_t *, pivot_counts *, double, void *);
FOR_EACH_MIRROR(INSTANTIATE)
