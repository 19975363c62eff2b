/* Inside the solve room: what one application of the factors needs to know, decided once per call. */
#pragma once

#include <complex>
#include <cstdint>
#include <type_traits>

#include "dense/dense.h"
#include "solve/solve.h"
#include "state/matrix_types.h"

/* n * nb as a size of memory: held below 2^54, which no allocation grants and from which no later factor overflows. */
inline constexpr int64_t size_bound = int64_t{1} << 54;
inline int64_t bounded_product(int64_t n, int64_t nb)
{
    int64_t size = 0;
    return __builtin_mul_overflow(n, nb, &size) || size > size_bound ? size_bound : size;
}

template <typename value_t>
inline constexpr bool is_complex_value = !std::is_floating_point_v<value_t>;

template <typename value_t>
inline value_t conjugated(const value_t &x)
{
    if constexpr (is_complex_value<value_t>)
        return std::conj(x);
    else
        return x;
}

/* Written out, since operator* of std::complex calls a routine that recovers from NaN. */
template <typename value_t>
inline value_t product(const value_t &a, const value_t &b)
{
    if constexpr (is_complex_value<value_t>)
        return value_t(a.real() * b.real() - a.imag() * b.imag(), a.real() * b.imag() + a.imag() * b.real());
    else
        return a * b;
}

/* How right-hand sides enter and leave the working vectors: entry i of a working vector is entry index(i) of the caller's vector times
   (or divided by) scale at the same place. */
struct transfer_rule {
    const int64_t *perm;
    const int64_t *row_order; /* index(i) = row_order[perm[i]] when set, else perm[i] */
    const double *scale;      /* by given number; null for a plain copy */
    bool divide;
    bool conjugate;
    int64_t first_row; /* rows first_row..n take part */
};

/* The part of the sweeps that a partial solve runs; see solve_window.cpp. */
struct solve_window {
    int64_t gather_first_row, scatter_first_row, forward_first_supernode, backward_last_supernode;
    int64_t zero_from, zero_to; /* rows to clear after the gather; empty when from > to */
    bool allows_domains;
};

template <typename value_t>
struct sweep {
    const supernodal_structure *structure;
    const factor_store<value_t> *store;
    factor_kind kind;
    bool hermitian;
    bool transposed; /* LU only: U' forward, L' backward */
    bool forward, diagonal, backward;
    solve_window window;
    transfer_rule gather, scatter;
};

void choose_window(const supernodal_structure *s, int64_t window_first, int64_t window_count, int64_t solve_step_code,
                   solve_window *window);

/* One supernode as a step of a sweep sees it. */
template <typename value_t>
struct supernode_block {
    int64_t first, columns, rows, below; /* rows = columns + below */
    const int64_t *row;                  /* [below] row numbers under the diagonal block */
    const value_t *diagonal;             /* columns by columns, leading dimension rows */
    const value_t *panel;                /* below by columns: under the diagonal block, or of the upper side */
    int64_t panel_ld;
};

/* Forward steps of L and L', of U' and U: which triangle of the diagonal block a sweep works with. The upper one goes with the panel of the
   upper side, the unit one with the row exchanges. */
template <typename value_t>
inline block_triangle triangle_of(const sweep<value_t> *w, bool forward)
{
    if (w->kind == factor_kind::cholesky) return block_triangle::lower;
    return w->kind == factor_kind::lu && w->transposed == forward ? block_triangle::upper : block_triangle::lower_unit;
}

/* The sweep goes on to `last`. False when a block could not be had; nothing is then held. */
template <typename value_t>
inline bool open_supernode(const sweep<value_t> *w, int64_t number, int64_t last, block_triangle triangle, supernode_block<value_t> *b)
{
    const supernodal_structure &s = *w->structure;
    if (const block_pager *pager = w->store->pager; pager != nullptr) {
        pager->follow(pager->context, factor_side::lower, number, last);
        if (triangle == block_triangle::upper) pager->follow(pager->context, factor_side::upper, number, last);
    }
    b->first = s.xsuper[number - 1];
    b->columns = s.xsuper[number] - b->first;
    b->rows = supernode_rows(s, number);
    b->below = b->rows - b->columns;
    b->row = supernode_row_list(s, number) + b->columns;
    b->diagonal = acquire_block(*w->store, s, factor_side::lower, number, block_use::read);
    if (b->diagonal == nullptr) return false;
    b->panel = b->diagonal + b->columns;
    b->panel_ld = b->rows;
    if (triangle != block_triangle::upper || b->below < 1) return true;
    b->panel = acquire_block(*w->store, s, factor_side::upper, number, block_use::read);
    b->panel_ld = b->below;
    if (b->panel == nullptr) release_block(*w->store, factor_side::lower, number, block_use::read);
    return b->panel != nullptr;
}

template <typename value_t>
inline void close_supernode(const sweep<value_t> *w, int64_t number, block_triangle triangle, const supernode_block<value_t> &b)
{
    if (triangle == block_triangle::upper && b.below > 0) release_block(*w->store, factor_side::upper, number, block_use::read);
    release_block(*w->store, factor_side::lower, number, block_use::read);
}

/* Rows of list (ascending) that are at most last_row. */
inline int64_t rows_up_to(int64_t count, const int64_t *list, int64_t last_row)
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

/* ---- one vector: entry i of x is row i of the factored matrix; false when a block could not be had ---- */

/* Forward steps of the supernodes first..last. Updates of rows past last_row go to beyond (length n, indexed as x), the others to x. */
template <typename value_t>
bool forward_supernodes(const sweep<value_t> *w, int64_t first, int64_t last, value_t *x, int64_t last_row, value_t *beyond);
/* Diagonal and backward steps, each as the sweep asks, of the supernodes last..first. */
template <typename value_t>
bool backward_supernodes(const sweep<value_t> *w, int64_t first, int64_t last, value_t *x);

/* Subtrees of domain_table in parallel. beyond: threads vectors of n entries. */
template <typename value_t>
bool solve_single_parallel(const sweep<value_t> *w, int64_t threads, value_t *x, value_t *beyond);

/* ---- working vectors of one pass: entry i of vector k is x[i * stride + k], i = 1..n; row 0 of x is not used ---- */

/* Most vectors that are interleaved at a time: the gain from more is small. */
inline constexpr int64_t solve_width_limit = 32;

template <typename value_t>
struct vector_panel {
    int64_t n, width;
    int64_t stride;     /* 1, or a multiple of interleaved_lanes */
    int64_t lanes;      /* the entries of a row that are worked on: width, rounded up to such a multiple */
    value_t *rhs;       /* the caller's first vector of this pass; vectors are n apart */
    value_t *solution;  /* where its result goes; may be rhs */
    value_t *x;         /* [(n + 1) * stride] */
    uint64_t *in_place; /* several vectors: one bit for each supernode */
};
inline int64_t gathered_words(int64_t supernodes)
{
    return (supernodes + 63) / 64;
}

/* Supernodes that one thread takes with several vectors. Updates of rows past the last one's go to beyond, indexed as x. */
template <typename value_t>
struct supernode_range {
    int64_t first, last;
    value_t *beyond;
    uint64_t *in_place; /* a bit for each of them */
    bool gathers, scatters;
};
template <typename value_t>
bool forward_range(const sweep<value_t> *w, const vector_panel<value_t> &p, const supernode_range<value_t> &range);
template <typename value_t>
bool backward_range(const sweep<value_t> *w, const vector_panel<value_t> &p, const supernode_range<value_t> &range);

/* Do the sweeps run over all rows and supernodes, with every block in memory? */
template <typename value_t>
inline bool sweeps_whole(const sweep<value_t> *w)
{
    const solve_window &window = w->window;
    return w->store->pager == nullptr && window.gather_first_row == 1 && window.scatter_first_row == 1 &&
           window.forward_first_supernode == 1 && window.backward_last_supernode == 1 && window.zero_from > window.zero_to;
}

/* Do the leaf domains follow each other without a gap, with the separators behind them up to the last supernode? */
bool domains_chain(const supernodal_structure *s);

/* Several vectors with the domains of a thread side by side, see several_parallel.cpp. */
struct domain_split {
    int64_t threads;  /* 1: not to be used */
    int64_t last;     /* last supernode of the domains */
    int64_t top_row;  /* first row behind them */
    int64_t top_rows; /* each thread has its own copies of these */
};
domain_split split_domains(const supernodal_structure *s, int64_t threads);
/* p.x has threads * top_rows more rows. */
template <typename value_t>
bool solve_several_parallel(const sweep<value_t> *w, const domain_split &split, const vector_panel<value_t> &p);

/* Rows first..last into the working vectors and out of them; and the rows of the window, with those to be cleared. */
template <typename value_t>
void gather_rows(const sweep<value_t> *w, const vector_panel<value_t> &p, int64_t first, int64_t last);
template <typename value_t>
void scatter_rows(const sweep<value_t> *w, const vector_panel<value_t> &p, int64_t first, int64_t last);
template <typename value_t>
void gather_window(const sweep<value_t> *w, const vector_panel<value_t> &p);
template <typename value_t>
void scatter_window(const sweep<value_t> *w, const vector_panel<value_t> &p);

/* Gather, sweeps and scatter of several vectors. False when a block could not be had. */
template <typename value_t>
bool solve_several(const sweep<value_t> *w, const vector_panel<value_t> &p);

/* x_s = inverse(D) x_s for the block of one supernode; entry i of vector k at x[i * stride + k]. */
template <typename value_t>
void apply_inverse_diagonal(bool hermitian, int64_t columns, const value_t *block, int64_t ld, const int64_t *pivots, int64_t width,
                            value_t *x, int64_t stride);
/* Exchanges of a block's pivot records, in order or undone. */
template <typename value_t>
void exchange_rows(int64_t columns, const int64_t *pivots, bool undo, int64_t width, value_t *x, int64_t stride);

/* y = op(A) x for each of nb columns, A as the caller gave it. */
template <typename value_t>
void multiply_matrix(const residual_matrix<value_t> *matrix, int64_t nb, const value_t *x, value_t *y);
/* residual = rhs - op(A) x for each of nb columns; scratch: as long as residual. Returns the sum of the residual's moduli. */
template <typename value_t>
double plain_residual(const residual_matrix<value_t> *matrix, int64_t nb, const value_t *rhs, const value_t *x, value_t *scratch,
                      value_t *residual);
/* to += v. Returns the sum of the moduli of v. */
template <typename value_t>
double add_vector(int64_t count, const value_t *v, value_t *to);

/* residual = rhs - op(A) * x for an extended x, exact to about twice the extended digits, then rounded once per entry. Returns the sum of
   the absolute values of the rounded residual's real components. */
template <typename value_t>
struct extended_value {
    using type = long double;
};
template <typename real_t>
struct extended_value<std::complex<real_t>> {
    using type = std::complex<long double>;
};
template <typename value_t>
using extended_of = typename extended_value<value_t>::type;
template <typename value_t>
double extended_residual(const residual_matrix<value_t> *matrix, int64_t nb, const value_t *rhs, const extended_of<value_t> *x,
                         extended_of<value_t> *scratch, value_t *residual);
/* In extended entries. */
int64_t extended_scratch_entries(int64_t n);
