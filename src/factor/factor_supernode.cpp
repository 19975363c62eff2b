#include "factor/block_ldlt.h"
#include "factor/factor_run.h"
#include "factor/value_helpers.h"

#include <limits>

/* The diagonal block of a supernode and the panels beside it. */

namespace
{

/* Record the pivot at local column k (0-based) of the target as the failing one; of several, the first column is kept. */
template <typename value_t>
void fail_at(factor_run<value_t> *run, const target_block<value_t> *target, int64_t k)
{
#pragma omp critical(stats_lock)
    {
        const int64_t column = target->first + k;
        if (run->failed_column == 0 || column < run->failed_column) run->failed_column = column;
    }
    fail(run, -1);
}

/* The diagonal after elimination, for a host that watches the pivots. */
template <typename value_t, factor_kind kind>
void keep_pivots(const factor_run<value_t> *run, const target_block<value_t> *target)
{
    value_t *kept = run->in->store->diagonal;
    if (kept == nullptr) return;
    for (int64_t c = 0; c < target->columns; ++c) {
        const value_t d = target->lower[c + c * target->rows];
        kept[target->first + c - 1] = kind == factor_kind::cholesky ? product(d, d) : d;
    }
}

template <typename value_t>
void factor_cholesky(factor_run<value_t> *run, thread_space<value_t> *space, target_block<value_t> *target)
{
    if (target->columns == 1) { /* most supernodes of a 2D problem */
        const real_of<value_t> d = real_part(target->lower[0]);
        if (!(d > 0)) {
            fail_at(run, target, 0);
            return;
        }
        const real_of<value_t> root = std::sqrt(d);
        target->lower[0] = value_t(root);
        const real_of<value_t> inverse = 1 / root; /* normal, since no root is as small or as large as its square may be */
        for (int64_t i = 1; i < target->rows; ++i) target->lower[i] *= inverse;
        ++space->positive;
        return;
    }
    const int64_t info = kernel_potrf_panel(target->rows, target->columns, target->lower, target->rows, space->work);
    if (info > 0)
        fail_at(run, target, info - 1);
    else
        space->positive += target->columns;
}

/* First pivot of the block that is not a finite number, -1 for none: small pivots were replaced, so an input or an overflow made it. */
template <typename value_t>
int64_t first_not_finite(const target_block<value_t> *target)
{
    for (int64_t c = 0; c < target->columns; ++c)
        if (!std::isfinite(size_of(target->lower[c + c * target->rows]))) return c;
    return -1;
}

/* Exchange the columns of a panel as the rows of the block were. A pair of 2x2 pivot words exchanges its second column. */
template <typename value_t>
void exchange_columns(const int64_t *pivots, int64_t columns, int64_t rows, value_t *panel, int64_t ld)
{
    for (int64_t c = 0; c < columns; ++c) {
        int64_t other = pivots[c] - 1;
        if (pivots[c] < 0) {
            other = -pivots[c] - 1;
            ++c;
        }
        if (other == c) continue;
        value_t *x = panel + c * ld, *y = panel + other * ld;
        for (int64_t i = 0; i < rows; ++i) swap_values(&x[i], &y[i]);
    }
}

/* panel = panel * inverse(D). */
template <typename value_t, mirror sym>
void divide_by_pivots(const int64_t *pivots, int64_t columns, const value_t *block, int64_t rows, value_t *panel, int64_t ld)
{
    for (int64_t c = 0; c < columns; ++c) {
        value_t *x = panel + c * ld;
        const value_t d1 = block[c + c * ld];
        if (pivots[c] > 0) {
            const value_t r1 = value_t(1) / d1;
            for (int64_t i = 0; i < rows; ++i) x[i] = product(x[i], r1);
            continue;
        }
        value_t *y = x + ld;
        const value_t d2 = block[c + 1 + (c + 1) * ld], above = block[c + (c + 1) * ld], below = mirrored<sym>(above);
        /* scaled by the off-diagonal entry, which is the large one of a 2x2 pivot, so that the determinant does not overflow */
        const value_t s1 = d1 / above, s2 = d2 / below;
        const value_t t = value_t(1) / (product(s1, s2) - value_t(1));
        const value_t to_one = t / above, to_two = t / below;
        for (int64_t i = 0; i < rows; ++i) {
            const value_t u = x[i], v = y[i];
            x[i] = product(to_one, product(s2, u) - v);
            y[i] = product(to_two, product(s1, v) - u);
        }
        ++c;
    }
}

/* x = x / pivot. Divisions are slow, complex ones call a routine for each: the pivot is inverted, unless the inverse is not a normal
   number. */
template <typename value_t>
void divide_column(int64_t rows, const value_t &pivot, value_t *x)
{
    using limits = std::numeric_limits<real_of<value_t>>;
    const value_t inverse = value_t(1) / pivot;
    if (std::is_floating_point_v<value_t> && !(size_of(pivot) >= limits::min() && size_of(inverse) >= limits::min())) {
        for (int64_t i = 0; i < rows; ++i) x[i] /= pivot;
        return;
    }
    for (int64_t i = 0; i < rows; ++i) x[i] = product(x[i], inverse);
}

/* Panels with fewer entries are solved here: the kernels take longer to start. A refactorization of memplus (18,000 unknowns) takes 2.9 ms
   with it and 5.0 ms without. */
constexpr int64_t short_panel = 96;

/* panel = panel * inverse(U), U the upper triangle of block. */
template <typename value_t>
void solve_short_upper(int64_t rows, int64_t columns, const value_t *block, int64_t ld, value_t *panel, int64_t ldp)
{
    for (int64_t c = 0; c < columns; ++c) {
        value_t *x = panel + c * ldp;
        for (int64_t j = 0; j < c; ++j)
            for (int64_t i = 0; i < rows; ++i) x[i] -= product(panel[i + j * ldp], block[j + c * ld]);
        divide_column(rows, block[c + c * ld], x);
    }
}

/* panel = panel * inverse(mirrored L), L the unit lower triangle of block. */
template <typename value_t, mirror sym>
void solve_short_unit(int64_t rows, int64_t columns, const value_t *block, int64_t ld, value_t *panel, int64_t ldp)
{
    for (int64_t c = 1; c < columns; ++c)
        for (int64_t j = 0; j < c; ++j) {
            const value_t f = mirrored<sym>(block[c + j * ld]);
            for (int64_t i = 0; i < rows; ++i) panel[i + c * ldp] -= product(panel[i + j * ldp], f);
        }
}

template <typename value_t, mirror sym>
void factor_ldlt(factor_run<value_t> *run, thread_space<value_t> *space, target_block<value_t> *target)
{
    const factor_input<value_t> &in = *run->in;
    const int64_t n = target->columns, ld = target->rows, below = ld - n, first = target->first - 1;
    int64_t *pivots = in.store->pivots + first;
    value_t *block = target->lower, *panel = block + n;
    pivot_counts counts = {};
    int64_t info = 0;
    if (in.pivoting != 0) {
        info = block_ldlt_bunch_kaufman<value_t, sym>(n, block, ld, pivots, &counts, run->epsilon, space->work);
    } else {
        const bool use_hook = in.callback_on == 1;
        const value_t *diagonal = use_hook ? in.store->diagonal_unscaled + first : nullptr;
        info = block_ldlt_diagonal<value_t, sym>(n, block, ld, pivots, &counts, run->epsilon, diagonal, use_hook, space->work);
    }
    space->perturbed += counts.perturbed;
    space->positive += counts.positive;
    space->negative += counts.negative;
    const int64_t broken = info != 0 ? 0 : first_not_finite(target);
    if (broken >= 0) {
        fail_at(run, target, broken);
        return;
    }
    if (below == 0) return;
    exchange_columns(pivots, n, below, panel, ld);
    if (below * n <= short_panel)
        solve_short_unit<value_t, sym>(below, n, block, ld, panel, ld);
    else
        kernel_trsm('R', 'L', sym == mirror::hermitian ? 'C' : 'T', 'U', below, n, value_t(1), block, ld, panel, ld, space->work);
    divide_by_pivots<value_t, sym>(pivots, n, block, below, panel, ld);
}

template <typename value_t>
void factor_lu(factor_run<value_t> *run, thread_space<value_t> *space, target_block<value_t> *target)
{
    const int64_t n = target->columns, ld = target->rows, below = ld - n;
    int64_t *pivots = run->in->store->pivots + (target->first - 1);
    value_t *block = target->lower;
    const auto epsilon = static_cast<real_of<value_t>>(run->epsilon > 0 ? run->epsilon : -1); /* -1: replace nothing */
    if (n == 1) {                                                                             /* most supernodes of a circuit */
        const real_of<value_t> size = size_of(block[0]);
        if (size > 0 && size > 2 * epsilon && std::isfinite(size)) {
            pivots[0] = 1;
            divide_column(below, block[0], block + 1);
            return;
        }
    }
    const int64_t info = kernel_getrf(n, n, block, ld, pivots, epsilon, &space->perturbed, space->work);
    const int64_t broken = info != 0 ? info - 1 : first_not_finite(target);
    if (broken >= 0) {
        fail_at(run, target, broken);
        return;
    }
    if (below == 0) return;
    if (below * n <= short_panel) {
        solve_short_upper(below, n, block, ld, block + n, ld);
        exchange_columns(pivots, n, below, target->upper, below);
        solve_short_unit<value_t, mirror::symmetric>(below, n, block, ld, target->upper, below);
        return;
    }
    kernel_trsm('R', 'U', 'N', 'N', below, n, value_t(1), block, ld, block + n, ld, space->work);
    exchange_columns(pivots, n, below, target->upper, below);
    kernel_trsm('R', 'L', 'T', 'U', below, n, value_t(1), block, ld, target->upper, below, space->work);
}

} // namespace

template <typename value_t, factor_kind kind, mirror sym>
void factor_supernode(factor_run<value_t> *run, thread_space<value_t> *space, target_block<value_t> *target)
{
    if constexpr (kind == factor_kind::cholesky) factor_cholesky(run, space, target);
    if constexpr (kind == factor_kind::ldlt) factor_ldlt<value_t, sym>(run, space, target);
    if constexpr (kind == factor_kind::lu) factor_lu(run, space, target);
    if (run->in->callback_on != 0) keep_pivots<value_t, kind>(run, target);
}

#define INSTANTIATE(V, kind, sym) template void factor_supernode<V, kind, sym>(factor_run<V> *, thread_space<V> *, target_block<V> *);
FOR_EACH_MEMBER(INSTANTIATE)
