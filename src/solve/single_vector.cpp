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

template <typename value_t>
static void panel_forward(int64_t q, int64_t w, const value_t *panel, int64_t ld, const value_t *x, const int64_t *row, value_t *vector)
{
    if (w > 1) {
        kernel_panel_forward(q, w, panel, ld, x, row, vector);
        return;
    }
    const value_t t = x[0];
    for (int64_t i = 0; i < q; ++i) vector[row[i] - 1] -= product(panel[i], t);
}

template <typename value_t>
static void panel_backward(bool hermitian, int64_t q, int64_t w, const value_t *panel, int64_t ld, const int64_t *row,
                           const value_t *vector, value_t *x)
{
    if (w > 1) {
        if (hermitian)
            kernel_panel_backward<value_t, mirror::hermitian>(q, w, panel, ld, row, vector, x);
        else
            kernel_panel_backward<value_t, mirror::symmetric>(q, w, panel, ld, row, vector, x);
        return;
    }
    value_t even = value_t(0), odd = value_t(0);
    int64_t i = 0;
    for (; i + 1 < q; i += 2) {
        even += product(hermitian ? conjugated(panel[i]) : panel[i], vector[row[i] - 1]);
        odd += product(hermitian ? conjugated(panel[i + 1]) : panel[i + 1], vector[row[i + 1] - 1]);
    }
    if (i < q) even += product(hermitian ? conjugated(panel[i]) : panel[i], vector[row[i] - 1]);
    x[0] -= even + odd;
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
        if (columns == 1)
            xs[0] /= block[0];
        else
            kernel_solve_lower(false, columns, block, rows, xs);
    } else if (columns > 1) {
        exchange_rows(columns, w->store->pivots + (first - 1), false, 1, xs, 1);
        kernel_solve_lower(true, columns, block, rows, xs);
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
    if (columns == 1) {
        if (!unit) xs[0] /= block[0];
        return;
    }
    if (w->hermitian)
        kernel_solve_lower_transposed<value_t, mirror::hermitian>(unit, columns, block, rows, xs);
    else
        kernel_solve_lower_transposed<value_t, mirror::symmetric>(unit, columns, block, rows, xs);
    if (unit) exchange_rows(columns, pivots, true, 1, xs, 1);
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
            kernel_solve_lower_transposed<value_t, mirror::symmetric>(true, columns, block, rows, xs);
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
