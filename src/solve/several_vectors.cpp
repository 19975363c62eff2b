/* Sweeps for several right-hand sides at once. The vectors are interleaved, entry i of vector k at x[i * stride + k], so that a row of all
   vectors is contiguous: each entry of a factor meets all vectors while it is in a register, and scattered rows cost nothing extra.

   The working vectors do not fit in a cache, so that every pass over them costs as much as one over the factors of a grid in two
   dimensions. Their rows are therefore brought in by the forward sweep shortly before the first supernode that reaches them, and taken out
   by the backward sweep when they are final. */
#include "solve/solve_internal.h"

/* Working rows of the supernodes between two transfers: a part of the second-level cache. */
static constexpr int64_t stretch_bytes = int64_t{1} << 18;

template <typename value_t>
static interleaved_block<value_t> interleaved(const supernode_block<value_t> &b, block_triangle triangle, mirror kind,
                                              const vector_panel<value_t> &p)
{
    return {triangle, kind,       b.columns, b.below, b.diagonal, b.rows,
            b.panel,  b.panel_ld, b.row,     p.lanes, p.stride,   p.x + b.first * p.stride,
            p.x,      b.below,    p.x};
}

template <typename value_t>
static bool forward_block(const sweep<value_t> *w, const vector_panel<value_t> &p, const supernode_range<value_t> &range, int64_t number)
{
    const block_triangle triangle = triangle_of(w, true);
    supernode_block<value_t> b;
    if (!open_supernode(w, number, range.last, triangle, &b)) return false;
    interleaved_block<value_t> block = interleaved(b, triangle, mirror::symmetric, p);
    if (range.beyond != p.x) {
        block.near = rows_up_to(b.below, b.row, w->structure->xsuper[range.last] - 1);
        block.beyond = range.beyond;
    }
    if (triangle == block_triangle::lower_unit)
        exchange_rows(b.columns, w->store->pivots + (b.first - 1), false, p.lanes, block.own, p.stride);
    kernel_interleaved_forward(&block);
    close_supernode(w, number, triangle, b);
    return true;
}

template <typename value_t>
static bool backward_block(const sweep<value_t> *w, const vector_panel<value_t> &p, const supernode_range<value_t> &range, int64_t number)
{
    const block_triangle triangle = triangle_of(w, false);
    supernode_block<value_t> b;
    if (!open_supernode(w, number, range.first, triangle, &b)) return false;
    const interleaved_block<value_t> block = interleaved(b, triangle, w->hermitian ? mirror::hermitian : mirror::symmetric, p);
    const int64_t *const pivots = w->store->pivots + (b.first - 1);
    if (w->kind == factor_kind::ldlt && w->diagonal)
        apply_inverse_diagonal(w->hermitian, b.columns, b.diagonal, b.rows, pivots, p.lanes, block.own, p.stride);
    if (w->backward) {
        kernel_interleaved_backward(&block);
        if (triangle == block_triangle::lower_unit) exchange_rows(b.columns, pivots, true, p.lanes, block.own, p.stride);
    }
    close_supernode(w, number, triangle, b);
    return true;
}

/* Brings in the rows of a supernode and of its ancestors in the range, as far as they are not in place. Those of `number` up to `last` are
   left to the caller, and only marked; returns whether those of `number` are wanted. */
template <typename value_t>
static bool gather_ancestors(const sweep<value_t> *w, const vector_panel<value_t> &p, const supernode_range<value_t> &range, int64_t number,
                             int64_t last)
{
    const supernodal_structure &s = *w->structure;
    const auto mark = [&](int64_t k) {
        uint64_t &word = range.in_place[(k - range.first) / 64];
        const uint64_t bit = uint64_t{1} << ((k - range.first) % 64);
        const bool fresh = (word & bit) == 0;
        word |= bit;
        return fresh;
    };
    if (!mark(number)) return false; /* and so are the ancestors */
    for (int64_t up = s.sparent[number - 1]; up > last && up <= range.last && mark(up); up = s.sparent[up - 1])
        gather_rows(w, p, s.xsuper[up - 1], s.xsuper[up] - 1);
    return true;
}

/* All rows of the range that its supernodes first..last work on. */
template <typename value_t>
static void gather_stretch(const sweep<value_t> *w, const vector_panel<value_t> &p, const supernode_range<value_t> &range, int64_t first,
                           int64_t last)
{
    const supernodal_structure &s = *w->structure;
    int64_t wanted = first; /* rows of wanted..number - 1 are to be brought in together */
    for (int64_t number = first; number <= last; ++number) {
        if (gather_ancestors(w, p, range, number, last)) continue;
        gather_rows(w, p, s.xsuper[wanted - 1], s.xsuper[number - 1] - 1);
        wanted = number + 1;
    }
    gather_rows(w, p, s.xsuper[wanted - 1], s.xsuper[last] - 1);
}

template <typename value_t>
bool forward_range(const sweep<value_t> *w, const vector_panel<value_t> &p, const supernode_range<value_t> &range)
{
    const supernodal_structure &s = *w->structure;
    const int64_t rows = stretch_bytes / (p.lanes * static_cast<int64_t>(sizeof(value_t)));
    for (int64_t word = 0; range.gathers && word < gathered_words(range.last - range.first + 1); ++word) range.in_place[word] = 0;
    for (int64_t number = range.first; number <= range.last;) {
        int64_t end = number;
        while (end < range.last && s.xsuper[end + 1] - s.xsuper[number - 1] <= rows) ++end;
        if (range.gathers) gather_stretch(w, p, range, number, end);
        for (; number <= end; ++number)
            if (!forward_block(w, p, range, number)) return false;
    }
    return true;
}

template <typename value_t>
bool backward_range(const sweep<value_t> *w, const vector_panel<value_t> &p, const supernode_range<value_t> &range)
{
    const supernodal_structure &s = *w->structure;
    const int64_t rows = stretch_bytes / (p.lanes * static_cast<int64_t>(sizeof(value_t)));
    for (int64_t number = range.last; number >= range.first;) {
        const int64_t from = number;
        int64_t end = number;
        while (end > range.first && s.xsuper[from] - s.xsuper[end - 2] <= rows) --end;
        for (; number >= end; --number)
            if (!backward_block(w, p, range, number)) return false;
        if (range.scatters) scatter_rows(w, p, s.xsuper[end - 1], s.xsuper[from] - 1);
    }
    return true;
}

/* A window has its own rows, and a block from a file may be missing when some rows have already left: both move all rows at once. */
template <typename value_t>
bool solve_several(const sweep<value_t> *w, const vector_panel<value_t> &p)
{
    const bool whole = sweeps_whole(w), backward = w->diagonal || w->backward;
    const int64_t supernodes = w->structure->supernodes;
    supernode_range<value_t> range = {
        w->window.forward_first_supernode, supernodes, p.x, p.in_place, whole && w->forward, whole && backward};
    if (!range.gathers) gather_window(w, p);
    if (w->forward && !forward_range(w, p, range)) return false;
    range.first = w->window.backward_last_supernode;
    if (backward && !backward_range(w, p, range)) return false;
    if (!range.scatters) scatter_window(w, p);
    return true;
}

#define INSTANTIATE(V)                                                                                                                     \
    template bool forward_range<V>(const sweep<V> *, const vector_panel<V> &, const supernode_range<V> &);                                 \
    template bool backward_range<V>(const sweep<V> *, const vector_panel<V> &, const supernode_range<V> &);                                \
    template bool solve_several<V>(const sweep<V> *, const vector_panel<V> &);
INSTANTIATE(double)
INSTANTIATE(float)
INSTANTIATE(std::complex<double>)
INSTANTIATE(std::complex<float>)
