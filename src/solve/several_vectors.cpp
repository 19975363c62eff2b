/* Sweeps for several right-hand sides at once. The vectors are interleaved, entry i of vector k at x[i * stride + k], so that a row of all
   vectors is contiguous: each entry of a factor meets all vectors while it is in a register, and scattered rows cost nothing extra. */
#include "solve/solve_internal.h"

template <typename value_t>
static interleaved_block<value_t> interleaved(const supernode_block<value_t> &b, block_triangle triangle, mirror kind, int64_t stride,
                                              value_t *x)
{
    return {triangle, kind, b.columns, b.below, b.diagonal, b.rows, b.panel, b.panel_ld, b.row, stride, x + b.first * stride, x};
}

template <typename value_t>
static bool forward_block(const sweep<value_t> *w, int64_t number, int64_t last, int64_t stride, value_t *x)
{
    const block_triangle triangle = triangle_of(w, true);
    supernode_block<value_t> b;
    if (!open_supernode(w, number, last, triangle, &b)) return false;
    const interleaved_block<value_t> block = interleaved(b, triangle, mirror::symmetric, stride, x);
    if (triangle == block_triangle::lower_unit)
        exchange_rows(b.columns, w->store->pivots + (b.first - 1), false, stride, block.own, stride);
    kernel_interleaved_forward(&block);
    close_supernode(w, number, triangle, b);
    return true;
}

template <typename value_t>
static bool backward_block(const sweep<value_t> *w, int64_t number, int64_t last, int64_t stride, value_t *x)
{
    const block_triangle triangle = triangle_of(w, false);
    supernode_block<value_t> b;
    if (!open_supernode(w, number, last, triangle, &b)) return false;
    const interleaved_block<value_t> block = interleaved(b, triangle, w->hermitian ? mirror::hermitian : mirror::symmetric, stride, x);
    const int64_t *const pivots = w->store->pivots + (b.first - 1);
    if (w->kind == factor_kind::ldlt && w->diagonal)
        apply_inverse_diagonal(w->hermitian, b.columns, b.diagonal, b.rows, pivots, stride, block.own, stride);
    if (w->backward) {
        kernel_interleaved_backward(&block);
        if (triangle == block_triangle::lower_unit) exchange_rows(b.columns, pivots, true, stride, block.own, stride);
    }
    close_supernode(w, number, triangle, b);
    return true;
}

template <typename value_t>
bool solve_several(const sweep<value_t> *w, int64_t stride, value_t *x)
{
    const int64_t supernodes = w->structure->supernodes;
    if (w->forward)
        for (int64_t number = w->window.forward_first_supernode; number <= supernodes; ++number)
            if (!forward_block(w, number, supernodes, stride, x)) return false;
    if (w->diagonal || w->backward)
        for (int64_t number = supernodes; number >= w->window.backward_last_supernode; --number)
            if (!backward_block(w, number, w->window.backward_last_supernode, stride, x)) return false;
    return true;
}

#define INSTANTIATE(V) template bool solve_several<V>(const sweep<V> *, int64_t, V *);
INSTANTIATE(double)
INSTANTIATE(float)
INSTANTIATE(std::complex<double>)
INSTANTIATE(std::complex<float>)
