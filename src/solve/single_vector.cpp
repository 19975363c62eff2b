/* Sweeps for one right-hand side. Every block is read once per sweep, so that memory bandwidth is the limit; supernodes of one column are
   handled here, without a call, since on two-dimensional grids they are most of all supernodes. */
#include "solve/solve_internal.h"

/* Rows of list (ascending) that are at most last_row. */
static int64_t rows_up_to(int64_t count, const int64_t *list, int64_t last_row)
{
    if (count < 1 || list[count - 1] <= last_row) return count;
    int64_t low = 0, high = count - 1; /* list[high] > last_row */
    while (low < high) {
        const int64_t middle = (low + high) / 2;
        if (list[middle] > last_row)
            high = middle;
        else
            low = middle + 1;
    }
    return low;
}

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

/* Two sums a column, so that an addition need not wait for the one before. */
template <int64_t columns, bool hermitian, typename value_t>
static inline void narrow_backward(int64_t q, const value_t *panel, int64_t ld, const int64_t *row, const value_t *vector, value_t *x)
{
    const auto entry = [&](int64_t c, int64_t i) { return hermitian ? conjugated(panel[c * ld + i]) : panel[c * ld + i]; };
    value_t even[columns] = {}, odd[columns] = {};
    int64_t i = 0;
    for (; i + 1 < q; i += 2) {
        const value_t v = vector[row[i] - 1], next = vector[row[i + 1] - 1];
        for (int64_t c = 0; c < columns; ++c) {
            even[c] += product(entry(c, i), v);
            odd[c] += product(entry(c, i + 1), next);
        }
    }
    for (int64_t c = 0; c < columns; ++c) {
        if (i < q) even[c] += product(entry(c, i), vector[row[i] - 1]);
        x[c] -= even[c] + odd[c];
    }
}

template <typename value_t>
static void panel_forward(int64_t q, int64_t w, const value_t *panel, int64_t ld, const value_t *x, const int64_t *row, value_t *vector)
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
static void panel_backward_of(int64_t q, int64_t w, const value_t *panel, int64_t ld, const int64_t *row, const value_t *vector, value_t *x)
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
static void panel_backward(bool hermitian, int64_t q, int64_t w, const value_t *panel, int64_t ld, const int64_t *row,
                           const value_t *vector, value_t *x)
{
    if (hermitian)
        panel_backward_of<true>(q, w, panel, ld, row, vector, x);
    else
        panel_backward_of<false>(q, w, panel, ld, row, vector, x);
}

/* x = inverse(L) x with the lower triangle of a block. */
template <typename value_t>
static void solve_lower(bool unit, int64_t n, const value_t *l, int64_t ld, value_t *x)
{
    if (n > inline_columns) {
        kernel_solve_lower(unit, n, l, ld, x);
        return;
    }
    for (int64_t j = 0; j < n; ++j) {
        if (!unit) x[j] /= l[j * ld + j];
        for (int64_t i = j + 1; i < n; ++i) x[i] -= product(l[j * ld + i], x[j]);
    }
}

/* x = inverse(L') x, where ' also conjugates for Hermitian factors. */
template <typename value_t>
static void solve_lower_transposed(bool hermitian, bool unit, int64_t n, const value_t *l, int64_t ld, value_t *x)
{
    if (n > inline_columns) {
        if (hermitian)
            kernel_solve_lower_transposed<value_t, mirror::hermitian>(unit, n, l, ld, x);
        else
            kernel_solve_lower_transposed<value_t, mirror::symmetric>(unit, n, l, ld, x);
        return;
    }
    for (int64_t j = n - 1; j >= 0; --j) {
        value_t t = x[j];
        for (int64_t i = j + 1; i < n; ++i) t -= product(hermitian ? conjugated(l[j * ld + i]) : l[j * ld + i], x[i]);
        x[j] = unit ? t : t / (hermitian ? conjugated(l[j * ld + j]) : l[j * ld + j]);
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

template <typename value_t>
bool forward_supernode(const sweep<value_t> *w, int64_t number, value_t *x, int64_t last_row, value_t *beyond)
{
    const supernodal_structure &s = *w->structure;
    const int64_t first = s.xsuper[number - 1], columns = supernode_columns(s, number), rows = supernode_rows(s, number);
    value_t *const xs = x + (first - 1);
    const value_t *const block = acquire_block(*w->store, s, factor_side::lower, number, block_use::read);
    if (block == nullptr) return false;
    const value_t *panel = block + columns;
    int64_t ld = rows;
    bool held_upper = false, complete = true;
    if (w->kind == factor_kind::lu && w->transposed) {
        solve_upper_transposed(columns, block, rows, xs);
        ld = rows - columns;
        if (ld > 0) {
            panel = acquire_block(*w->store, s, factor_side::upper, number, block_use::read);
            held_upper = panel != nullptr;
            complete = held_upper;
        }
    } else if (w->kind == factor_kind::cholesky) {
        solve_lower(false, columns, block, rows, xs);
    } else if (columns > 1) {
        exchange_rows(columns, w->store->pivots + (first - 1), false, 1, xs, 1);
        solve_lower(true, columns, block, rows, xs);
    }
    if (complete) {
        const int64_t *list = supernode_row_list(s, number) + columns;
        const int64_t below = rows - columns, near = beyond == x ? below : rows_up_to(below, list, last_row);
        panel_forward(near, columns, panel, ld, xs, list, x);
        if (near < below) panel_forward(below - near, columns, panel + near, ld, xs, list + near, beyond);
    }
    if (held_upper) release_block(*w->store, factor_side::upper, number, block_use::read);
    release_block(*w->store, factor_side::lower, number, block_use::read);
    return complete;
}

template <typename value_t>
static void backward_symmetric(const sweep<value_t> *w, const value_t *block, int64_t first, int64_t columns, int64_t rows,
                               const int64_t *list, value_t *x)
{
    value_t *const xs = x + (first - 1);
    const int64_t *pivots = w->store->pivots + (first - 1);
    /* Between the forward and the backward step the rows of a block stand in pivoted order, also where single steps leave and come back. */
    if (w->kind == factor_kind::ldlt && w->diagonal) apply_inverse_diagonal(w->hermitian, columns, block, rows, pivots, 1, xs, 1);
    if (!w->backward) return;
    panel_backward(w->hermitian, rows - columns, columns, block + columns, rows, list, x, xs);
    const bool unit = w->kind == factor_kind::ldlt;
    solve_lower_transposed(w->hermitian, unit, columns, block, rows, xs);
    if (unit && columns > 1) exchange_rows(columns, pivots, true, 1, xs, 1);
}

template <typename value_t>
bool backward_supernode(const sweep<value_t> *w, int64_t number, value_t *x)
{
    const supernodal_structure &s = *w->structure;
    const int64_t first = s.xsuper[number - 1], columns = supernode_columns(s, number), rows = supernode_rows(s, number);
    const int64_t *list = supernode_row_list(s, number) + columns;
    const value_t *const block = acquire_block(*w->store, s, factor_side::lower, number, block_use::read);
    if (block == nullptr) return false;
    bool complete = true;
    if (w->kind != factor_kind::lu) {
        backward_symmetric(w, block, first, columns, rows, list, x);
    } else if (w->backward && w->transposed) {
        value_t *const xs = x + (first - 1);
        panel_backward(false, rows - columns, columns, block + columns, rows, list, x, xs);
        if (columns > 1) {
            solve_lower_transposed(false, true, columns, block, rows, xs);
            exchange_rows(columns, w->store->pivots + (first - 1), true, 1, xs, 1);
        }
    } else if (w->backward) {
        value_t *const xs = x + (first - 1);
        if (rows > columns) {
            const value_t *const panel = acquire_block(*w->store, s, factor_side::upper, number, block_use::read);
            complete = panel != nullptr;
            if (complete) {
                panel_backward(false, rows - columns, columns, panel, rows - columns, list, x, xs);
                release_block(*w->store, factor_side::upper, number, block_use::read);
            }
        }
        if (complete) solve_upper(columns, block, rows, xs);
    }
    release_block(*w->store, factor_side::lower, number, block_use::read);
    return complete;
}

template <typename value_t>
bool solve_single_serial(const sweep<value_t> *w, value_t *x)
{
    const int64_t supernodes = w->structure->supernodes;
    if (w->forward)
        for (int64_t number = w->window.forward_first_supernode; number <= supernodes; ++number)
            if (!forward_supernode(w, number, x, supernodes, x)) return false;
    if (w->diagonal || w->backward)
        for (int64_t number = supernodes; number >= w->window.backward_last_supernode; --number)
            if (!backward_supernode(w, number, x)) return false;
    return true;
}

#define INSTANTIATE(V)                                                                                                                     \
    template bool forward_supernode<V>(const sweep<V> *, int64_t, V *, int64_t, V *);                                                      \
    template bool backward_supernode<V>(const sweep<V> *, int64_t, V *);                                                                   \
    template bool solve_single_serial<V>(const sweep<V> *, V *);
INSTANTIATE(double)
INSTANTIATE(float)
INSTANTIATE(std::complex<double>)
INSTANTIATE(std::complex<float>)
