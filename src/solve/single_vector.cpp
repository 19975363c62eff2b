/* Sweeps for one right-hand side. Every block is read once per sweep, so that memory bandwidth is the limit; supernodes of one column are
   handled here, without a call, since on two-dimensional grids they are most of all supernodes. */
#include "solve/solve_internal.h"

/* The work of a supernode of few columns is of the size of a kernel call: below this width the loops stand here. */
static constexpr int64_t inline_columns = 4;

template <int64_t columns, typename value_t>
static inline void narrow_forward(int64_t q, const value_t *panel, int64_t ld, const value_t *x, const int64_t *row, value_t *vector)
{
    value_t t[columns];
    for (int64_t c = 0; c < columns; ++c) t[c] = x[c];
    for (int64_t i = 0; i < q; ++i) {
        value_t sum = product(panel[i], t[0]);
        for (int64_t c = 1; c < columns; ++c) sum += product(panel[c * ld + i], t[c]);
        vector[row[i] - 1] -= sum;
    }
}

/* From the far rows to the near: the first row is the one found last, so that the others need not wait for it. Two sums a column, so that
   an addition need not wait for the one before. */
template <int64_t columns, bool hermitian, typename value_t>
static inline void narrow_backward(int64_t q, const value_t *panel, int64_t ld, const int64_t *row, const value_t *vector, value_t *x)
{
    const auto entry = [&](int64_t c, int64_t i) { return hermitian ? conjugated(panel[c * ld + i]) : panel[c * ld + i]; };
    if (q < 1) return;
    value_t even[columns] = {}, odd[columns] = {};
    int64_t i = q - 1;
    for (; i > 1; i -= 2) {
        const value_t v = vector[row[i] - 1], next = vector[row[i - 1] - 1];
        for (int64_t c = 0; c < columns; ++c) {
            even[c] += product(entry(c, i), v);
            odd[c] += product(entry(c, i - 1), next);
        }
    }
    if (i == 1)
        for (int64_t c = 0; c < columns; ++c) even[c] += product(entry(c, 1), vector[row[1] - 1]);
    const value_t near = vector[row[0] - 1];
    for (int64_t c = 0; c < columns; ++c) x[c] = x[c] - (even[c] + odd[c]) - product(entry(c, 0), near);
}

template <typename value_t>
static inline void panel_forward(int64_t q, int64_t w, const value_t *panel, int64_t ld, const value_t *x, const int64_t *row,
                                 value_t *vector)
{
    switch (w) {
    case 1:
        return narrow_forward<1>(q, panel, ld, x, row, vector);
    case 2:
        return narrow_forward<2>(q, panel, ld, x, row, vector);
    case 3:
        return narrow_forward<3>(q, panel, ld, x, row, vector);
    case 4:
        return narrow_forward<4>(q, panel, ld, x, row, vector);
    default:
        kernel_panel_forward(q, w, panel, ld, x, row, vector);
    }
}

template <bool hermitian, typename value_t>
static inline void panel_backward_of(int64_t q, int64_t w, const value_t *panel, int64_t ld, const int64_t *row, const value_t *vector,
                                     value_t *x)
{
    switch (w) {
    case 1:
        return narrow_backward<1, hermitian>(q, panel, ld, row, vector, x);
    case 2:
        return narrow_backward<2, hermitian>(q, panel, ld, row, vector, x);
    case 3:
        return narrow_backward<3, hermitian>(q, panel, ld, row, vector, x);
    case 4:
        return narrow_backward<4, hermitian>(q, panel, ld, row, vector, x);
    default:
        kernel_panel_backward<value_t, hermitian ? mirror::hermitian : mirror::symmetric>(q, w, panel, ld, row, vector, x);
    }
}
template <typename value_t>
static inline void panel_backward(bool hermitian, int64_t q, int64_t w, const value_t *panel, int64_t ld, const int64_t *row,
                                  const value_t *vector, value_t *x)
{
    if (hermitian)
        panel_backward_of<true>(q, w, panel, ld, row, vector, x);
    else
        panel_backward_of<false>(q, w, panel, ld, row, vector, x);
}

/* 1 / d for the diagonal of a Cholesky factor, which is real. It does not wait for x, as a division would. */
template <typename value_t>
static inline real_of<value_t> inverse_of(const value_t &d)
{
    return real_of<value_t>(1) / std::real(d);
}

/* x = inverse(L) x with the lower triangle of a block. */
template <typename value_t>
static inline void solve_lower(bool unit, int64_t n, const value_t *l, int64_t ld, value_t *x)
{
    if (n > inline_columns) return kernel_solve_lower(unit, n, l, ld, x);
    for (int64_t j = 0; j < n; ++j) {
        if (!unit) x[j] *= inverse_of(l[j * ld + j]);
        for (int64_t i = j + 1; i < n; ++i) x[i] -= product(l[j * ld + i], x[j]);
    }
}

/* x = inverse(L') x, where ' also conjugates for Hermitian factors. */
template <typename value_t>
static inline void solve_lower_transposed(bool hermitian, bool unit, int64_t n, const value_t *l, int64_t ld, value_t *x)
{
    if (n > inline_columns) {
        if (hermitian) return kernel_solve_lower_transposed<value_t, mirror::hermitian>(unit, n, l, ld, x);
        return kernel_solve_lower_transposed<value_t, mirror::symmetric>(unit, n, l, ld, x);
    }
    for (int64_t j = n - 1; j >= 0; --j) {
        value_t t = x[j];
        for (int64_t i = n - 1; i > j; --i) t -= product(hermitian ? conjugated(l[j * ld + i]) : l[j * ld + i], x[i]);
        x[j] = unit ? t : t * inverse_of(l[j * ld + j]);
    }
}

/* x = inverse(U) x and x = inverse(U') x with the upper triangle of a block. */
template <typename value_t>
static void solve_upper(int64_t n, const value_t *u, int64_t ld, value_t *x)
{
    for (int64_t j = n - 1; j >= 0; --j) {
        const value_t t = x[j] / u[j * ld + j];
        x[j] = t;
        for (int64_t i = 0; i < j; ++i) x[i] -= product(u[j * ld + i], t);
    }
}
template <typename value_t>
static void solve_upper_transposed(int64_t n, const value_t *u, int64_t ld, value_t *x)
{
    for (int64_t j = 0; j < n; ++j) {
        value_t t = x[j];
        for (int64_t i = 0; i < j; ++i) t -= product(u[j * ld + i], x[i]);
        x[j] = t / u[j * ld + j];
    }
}

/* The supernodes of one column between others, in core. */
template <typename value_t>
static column_run<value_t> run_of(const sweep<value_t> *w, block_triangle triangle, bool forward, int64_t row_limit, value_t *x)
{
    const supernodal_structure &s = *w->structure;
    const factor_store<value_t> &store = *w->store;
    const bool upper = triangle == block_triangle::upper, divides = triangle != block_triangle::lower_unit;
    const bool before = forward ? divides : w->kind == factor_kind::ldlt && w->diagonal;
    return {s.xsuper,
            s.xlindx,
            s.lindx,
            s.xlnz,
            store.lnz,
            upper ? s.xunz : s.xlnz,
            upper ? store.unz : store.lnz,
            upper ? 0 : 1,
            before,
            !forward && divides,
            w->hermitian && !forward ? mirror::hermitian : mirror::symmetric,
            row_limit,
            x};
}

/* From so many columns on average the panel kernels are faster. */
static constexpr int64_t narrow_columns = 8;

/* Cholesky factors of narrow supernodes, in core, are swept by kernels of their own. */
template <typename value_t>
static bool is_narrow(const sweep<value_t> *w)
{
    const supernodal_structure &s = *w->structure;
    return w->kind == factor_kind::cholesky && w->store->pager == nullptr && s.neqns <= narrow_columns * s.supernodes;
}
template <typename value_t>
static narrow_factor<value_t> narrow_view(const sweep<value_t> *w, int64_t row_limit, value_t *beyond)
{
    const supernodal_structure &s = *w->structure;
    return {s.xsuper, s.xlindx, s.lindx, s.xlnz, w->store->lnz, row_limit, beyond};
}

template <typename value_t>
bool forward_supernodes(const sweep<value_t> *w, int64_t first, int64_t last, value_t *x, int64_t last_row, value_t *beyond)
{
    const int64_t row_limit = beyond == x ? w->structure->neqns : last_row;
    if (is_narrow(w)) {
        const narrow_factor<value_t> factor = narrow_view(w, row_limit, beyond);
        kernel_narrow_forward(&factor, first, last, x);
        return true;
    }
    const block_triangle triangle = triangle_of(w, true);
    const bool in_core = w->store->pager == nullptr;
    const column_run<value_t> run = run_of(w, triangle, true, row_limit, x);
    for (int64_t number = first; number <= last; ++number) {
        if (in_core && supernode_columns(*w->structure, number) == 1) {
            number = kernel_columns_forward(&run, number, last);
            if (number > last) break;
        }
        supernode_block<value_t> b;
        if (!open_supernode(w, number, last, triangle, &b)) return false;
        value_t *const own = x + (b.first - 1);
        if (triangle == block_triangle::upper) {
            solve_upper_transposed(b.columns, b.diagonal, b.rows, own);
        } else {
            const bool unit = triangle == block_triangle::lower_unit;
            if (unit && b.columns > 1) exchange_rows(b.columns, w->store->pivots + (b.first - 1), false, 1, own, 1);
            solve_lower(unit, b.columns, b.diagonal, b.rows, own);
        }
        const int64_t near = beyond == x ? b.below : rows_up_to(b.below, b.row, last_row);
        panel_forward(near, b.columns, b.panel, b.panel_ld, own, b.row, x);
        if (near < b.below) panel_forward(b.below - near, b.columns, b.panel + near, b.panel_ld, own, b.row + near, beyond);
        close_supernode(w, number, triangle, b);
    }
    return true;
}

template <typename value_t>
bool backward_supernodes(const sweep<value_t> *w, int64_t first, int64_t last, value_t *x)
{
    if (is_narrow(w)) {
        if (!w->backward) return true; /* the diagonal is in L */
        const narrow_factor<value_t> factor = narrow_view<value_t>(w, w->structure->neqns, nullptr);
        kernel_narrow_backward(&factor, first, last, x);
        return true;
    }
    const block_triangle triangle = triangle_of(w, false);
    const bool in_core = w->store->pager == nullptr;
    const column_run<value_t> run = run_of(w, triangle, false, w->structure->neqns, x);
    for (int64_t number = last; number >= first; --number) {
        if (in_core && w->backward && supernode_columns(*w->structure, number) == 1) {
            number = kernel_columns_backward(&run, number, first);
            if (number < first) break;
        }
        supernode_block<value_t> b;
        if (!open_supernode(w, number, first, triangle, &b)) return false;
        value_t *const own = x + (b.first - 1);
        const int64_t *const pivots = w->store->pivots + (b.first - 1);
        /* Between the forward and the backward step the rows of a block stand in pivoted order, also where single steps leave and come
           back. */
        if (w->kind == factor_kind::ldlt && w->diagonal)
            apply_inverse_diagonal(w->hermitian, b.columns, b.diagonal, b.rows, pivots, 1, own, 1);
        if (w->backward) {
            panel_backward(w->hermitian, b.below, b.columns, b.panel, b.panel_ld, b.row, x, own);
            if (triangle == block_triangle::upper) {
                solve_upper(b.columns, b.diagonal, b.rows, own);
            } else {
                const bool unit = triangle == block_triangle::lower_unit;
                solve_lower_transposed(w->hermitian, unit, b.columns, b.diagonal, b.rows, own);
                if (unit && b.columns > 1) exchange_rows(b.columns, pivots, true, 1, own, 1);
            }
        }
        close_supernode(w, number, triangle, b);
    }
    return true;
}

#define INSTANTIATE(V)                                                                                                                     \
    template bool forward_supernodes<V>(const sweep<V> *, int64_t, int64_t, V *, int64_t, V *);                                            \
    template bool backward_supernodes<V>(const sweep<V> *, int64_t, int64_t, V *);
INSTANTIATE(double)
INSTANTIATE(float)
INSTANTIATE(std::complex<double>)
INSTANTIATE(std::complex<float>)
