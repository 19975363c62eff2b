/* Sweeps for several right-hand sides at once. The vectors are interleaved, entry i of vector k at x[i * stride + k], so that a row of all
   vectors is contiguous: each entry of a factor meets all vectors while it is in a register, and scattered rows cost nothing extra.

   The working vectors do not fit in a cache, so that every pass over them costs as much as one over the factors of a grid in two
   dimensions. Their rows are therefore brought in by the forward sweep shortly before the first supernode that reaches them, and taken out
   by the backward sweep when they are final. */
#include "solve/solve_internal.h"

/* Working rows of the supernodes between two transfers: a part of the second-level cache. */
static constexpr int64_t stretch_bytes = int64_t{1} << 18;

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

/* Brings in the rows of a supernode and of its ancestors, as far as they are not in place. Those of `number` up to `last` are left to the
   caller, and only marked; returns whether those of `number` are wanted. */
template <typename value_t>
static bool gather_ancestors(const sweep<value_t> *w, const vector_panel<value_t> &p, int64_t number, int64_t last)
{
    const supernodal_structure &s = *w->structure;
    const auto mark = [&](int64_t k) {
        uint64_t &word = p.in_place[(k - 1) / 64];
        const uint64_t bit = uint64_t{1} << ((k - 1) % 64);
        const bool fresh = (word & bit) == 0;
        word |= bit;
        return fresh;
    };
    if (!mark(number)) return false; /* and so are the ancestors */
    for (int64_t up = s.sparent[number - 1]; up > last && mark(up); up = s.sparent[up - 1])
        gather_rows(w, p, s.xsuper[up - 1], s.xsuper[up] - 1);
    return true;
}

/* All rows that the supernodes first..last work on. */
template <typename value_t>
static void gather_stretch(const sweep<value_t> *w, const vector_panel<value_t> &p, int64_t first, int64_t last)
{
    const supernodal_structure &s = *w->structure;
    int64_t wanted = first; /* rows of wanted..number - 1 are to be brought in together */
    for (int64_t number = first; number <= last; ++number) {
        if (gather_ancestors(w, p, number, last)) continue;
        gather_rows(w, p, s.xsuper[wanted - 1], s.xsuper[number - 1] - 1);
        wanted = number + 1;
    }
    gather_rows(w, p, s.xsuper[wanted - 1], s.xsuper[last] - 1);
}

template <typename value_t>
static bool forward_sweep(const sweep<value_t> *w, const vector_panel<value_t> &p, bool gathers)
{
    const supernodal_structure &s = *w->structure;
    const int64_t rows = stretch_bytes / (p.stride * static_cast<int64_t>(sizeof(value_t)));
    for (int64_t word = 0; gathers && word < gathered_words(s.supernodes); ++word) p.in_place[word] = 0;
    for (int64_t number = w->window.forward_first_supernode; number <= s.supernodes;) {
        int64_t end = number;
        while (end < s.supernodes && s.xsuper[end + 1] - s.xsuper[number - 1] <= rows) ++end;
        if (gathers) gather_stretch(w, p, number, end);
        for (; number <= end; ++number)
            if (!forward_block(w, number, s.supernodes, p.stride, p.x)) return false;
    }
    return true;
}

template <typename value_t>
static bool backward_sweep(const sweep<value_t> *w, const vector_panel<value_t> &p, bool scatters)
{
    const supernodal_structure &s = *w->structure;
    const int64_t rows = stretch_bytes / (p.stride * static_cast<int64_t>(sizeof(value_t))), last = w->window.backward_last_supernode;
    for (int64_t number = s.supernodes; number >= last;) {
        const int64_t from = number;
        int64_t end = number;
        while (end > last && s.xsuper[from] - s.xsuper[end - 2] <= rows) --end;
        for (; number >= end; --number)
            if (!backward_block(w, number, last, p.stride, p.x)) return false;
        if (scatters) scatter_rows(w, p, s.xsuper[end - 1], s.xsuper[from] - 1);
    }
    return true;
}

/* A window has its own rows, and a block from a file may be missing when some rows have already left: both move all rows at once. */
template <typename value_t>
bool solve_several(const sweep<value_t> *w, const vector_panel<value_t> &p)
{
    const solve_window &window = w->window;
    const bool whole = w->store->pager == nullptr && window.gather_first_row == 1 && window.scatter_first_row == 1 &&
                       window.forward_first_supernode == 1 && window.backward_last_supernode == 1 && window.zero_from > window.zero_to;
    const bool gathers = whole && w->forward, backward = w->diagonal || w->backward, scatters = whole && backward;
    if (!gathers) gather_window(w, p);
    if (w->forward && !forward_sweep(w, p, gathers)) return false;
    if (backward && !backward_sweep(w, p, scatters)) return false;
    if (!scatters) scatter_window(w, p);
    return true;
}

#define INSTANTIATE(V) template bool solve_several<V>(const sweep<V> *, const vector_panel<V> &);
INSTANTIATE(double)
INSTANTIATE(float)
INSTANTIATE(std::complex<double>)
INSTANTIATE(std::complex<float>)
