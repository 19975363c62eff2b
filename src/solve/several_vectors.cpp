/* Sweeps for several right-hand sides at once. The vectors are interleaved, entry i of vector k at x[i * width + k], so that a row of all
   vectors is contiguous: the scatter of an update and the gather before a backward step then copy runs of `width` entries, and every
   block operation is a product with `width` rows. For Hermitian factors the backward sweep runs on the conjugated vectors, which turns
   its conjugated blocks into plain ones. */
#include "solve/solve_internal.h"

/* x_rows -= panel * x_s, through the row list; panel is q by columns. */
template <typename value_t>
static void several_forward(int64_t q, int64_t columns, int64_t width, const value_t *panel, int64_t ld, const int64_t *list,
                            const value_t *xs, value_t *x, void *work)
{
    static constexpr int64_t identity_size = 64;
    static constexpr auto identity = [] {
        struct {
            int64_t at[identity_size];
        } table = {};
        for (int64_t i = 0; i < identity_size; ++i) table.at[i] = i;
        return table;
    }();
    static_assert(solve_width_limit <= identity_size);
    if (q < 1) return;
    kernel_update_scatter<value_t, mirror::symmetric>(update_shape::full, width, q, columns, xs, width, panel, ld, identity.at, list, x,
                                                      width, work);
}

/* x_s -= panel' * x_rows */
template <typename value_t>
static void several_backward(int64_t q, int64_t columns, int64_t width, const value_t *panel, int64_t ld, const int64_t *list, value_t *xs,
                             const value_t *x, value_t *scratch, void *work)
{
    for (int64_t start = 0; start < q; start += gather_rows) {
        const int64_t rows = q - start < gather_rows ? q - start : gather_rows;
        for (int64_t i = 0; i < rows; ++i) {
            const value_t *const from = x + list[start + i] * width;
            value_t *const to = scratch + i * width;
            for (int64_t k = 0; k < width; ++k) to[k] = from[k];
        }
        kernel_gemm('N', 'N', width, columns, rows, value_t(-1), scratch, width, panel + start, ld, value_t(1), xs, width, work);
    }
}

template <typename value_t>
static bool forward_block(const sweep<value_t> *w, int64_t number, int64_t width, value_t *x, void *work)
{
    const supernodal_structure &s = *w->structure;
    const int64_t first = s.xsuper[number - 1], columns = supernode_columns(s, number), rows = supernode_rows(s, number);
    const int64_t *list = supernode_row_list(s, number) + columns;
    value_t *const xs = x + first * width;
    const value_t *const block = acquire_block(*w->store, s, factor_side::lower, number, block_use::read);
    if (block == nullptr) return false;
    bool complete = true;
    if (w->kind == factor_kind::lu && w->transposed) {
        kernel_trsm('R', 'U', 'N', 'N', width, columns, value_t(1), block, rows, xs, width, work);
        if (rows > columns) {
            const value_t *const panel = acquire_block(*w->store, s, factor_side::upper, number, block_use::read);
            complete = panel != nullptr;
            if (complete) {
                several_forward(rows - columns, columns, width, panel, rows - columns, list, xs, x, work);
                release_block(*w->store, factor_side::upper, number, block_use::read);
            }
        }
    } else {
        if (w->kind != factor_kind::cholesky) exchange_rows(columns, w->store->pivots + (first - 1), false, width, xs, width);
        kernel_trsm('R', 'L', 'T', w->kind == factor_kind::cholesky ? 'N' : 'U', width, columns, value_t(1), block, rows, xs, width, work);
        several_forward(rows - columns, columns, width, block + columns, rows, list, xs, x, work);
    }
    release_block(*w->store, factor_side::lower, number, block_use::read);
    return complete;
}

template <typename value_t>
static void conjugate_rows(int64_t count, value_t *x)
{
    for (int64_t i = 0; i < count; ++i) x[i] = conjugated(x[i]);
}

template <typename value_t>
static bool backward_block(const sweep<value_t> *w, int64_t number, int64_t width, value_t *x, value_t *scratch, void *work)
{
    const supernodal_structure &s = *w->structure;
    const int64_t first = s.xsuper[number - 1], columns = supernode_columns(s, number), rows = supernode_rows(s, number);
    const int64_t *list = supernode_row_list(s, number) + columns;
    value_t *const xs = x + first * width;
    const int64_t *const pivots = w->store->pivots + (first - 1);
    const value_t *const block = acquire_block(*w->store, s, factor_side::lower, number, block_use::read);
    if (block == nullptr) return false;
    bool complete = true;
    if (w->kind == factor_kind::lu && !w->transposed) {
        if (w->backward && rows > columns) {
            const value_t *const panel = acquire_block(*w->store, s, factor_side::upper, number, block_use::read);
            complete = panel != nullptr;
            if (complete) {
                several_backward(rows - columns, columns, width, panel, rows - columns, list, xs, x, scratch, work);
                release_block(*w->store, factor_side::upper, number, block_use::read);
            }
        }
        if (w->backward && complete) kernel_trsm('R', 'U', 'T', 'N', width, columns, value_t(1), block, rows, xs, width, work);
    } else {
        if (w->kind == factor_kind::ldlt && w->diagonal)
            apply_inverse_diagonal(w->hermitian, columns, block, rows, pivots, width, xs, width);
        if (w->backward) {
            if (w->hermitian) conjugate_rows(columns * width, xs);
            several_backward(rows - columns, columns, width, block + columns, rows, list, xs, x, scratch, work);
            kernel_trsm('R', 'L', 'N', w->kind == factor_kind::cholesky ? 'N' : 'U', width, columns, value_t(1), block, rows, xs, width,
                        work);
            if (w->kind != factor_kind::cholesky) exchange_rows(columns, pivots, true, width, xs, width);
        }
    }
    release_block(*w->store, factor_side::lower, number, block_use::read);
    return complete;
}

template <typename value_t>
bool solve_several(const sweep<value_t> *w, int64_t width, value_t *x, value_t *scratch, void *work)
{
    const supernodal_structure &s = *w->structure;
    const int64_t last = w->window.backward_last_supernode;
    if (w->forward)
        for (int64_t number = w->window.forward_first_supernode; number <= s.supernodes; ++number)
            if (!forward_block(w, number, width, x, work)) return false;
    if (!w->diagonal && !w->backward) return true;
    for (int64_t number = s.supernodes; number >= last; --number)
        if (!backward_block(w, number, width, x, scratch, work)) return false;
    if (w->hermitian && w->backward && s.supernodes >= last) {
        const int64_t first_row = s.xsuper[last - 1];
        conjugate_rows((s.neqns - first_row + 1) * width, x + first_row * width);
    }
    return true;
}

#define INSTANTIATE(V) template bool solve_several<V>(const sweep<V> *, int64_t, V *, V *, void *);
INSTANTIATE(double)
INSTANTIATE(float)
INSTANTIATE(std::complex<double>)
INSTANTIATE(std::complex<float>)
