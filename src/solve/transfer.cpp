/* Between the caller's vectors and the working ones: permutation, scaling, conjugation. */
#include "solve/solve_internal.h"

/* Rows that vectors bring or take at a time: where they come from or go to, from 0, and their factors. The interleaved entries of so many
   rows, and those of the caller's vectors, stay in the first cache. */
static constexpr int64_t transfer_rows = 64;
template <typename value_t>
struct transfer_block {
    int64_t count;
    int64_t index[transfer_rows];
    real_of<value_t> factor[transfer_rows];
};

template <typename value_t>
static void look_up_rows(const transfer_rule &rule, int64_t start, transfer_block<value_t> *block)
{
    for (int64_t i = 0; i < block->count; ++i) {
        const int64_t column = rule.perm[start + i - 1];
        block->index[i] = (rule.row_order == nullptr ? column : rule.row_order[column - 1]) - 1;
        if (rule.scale == nullptr) continue;
        const double factor = rule.scale[block->index[i]];
        block->factor[i] = static_cast<real_of<value_t>>(rule.divide ? 1.0 / factor : factor);
    }
}

enum class direction { gather, scatter };

/* Call move with what becomes of an entry on its way, given the factor of a place. */
template <typename value_t, typename factor_type, typename move_type>
static inline void choose_change(const transfer_rule &rule, const factor_type &factor, const move_type &move)
{
    if (rule.scale == nullptr && !rule.conjugate)
        move([](const value_t &v, int64_t) { return v; });
    else if (rule.scale == nullptr)
        move([](const value_t &v, int64_t) { return conjugated(v); });
    else if (!rule.conjugate)
        move([&](const value_t &v, int64_t i) { return v * factor(i); });
    else
        move([&](const value_t &v, int64_t i) { return conjugated(v) * factor(i); });
}

/* Vectors k .. k + vectors - 1 for the rows of a block: entry i of vector k between inside[i * stride + k] and outside[k * n + index[i]].
 */
template <direction way, int64_t vectors, typename value_t>
static inline void transfer_entries(const transfer_rule &rule, const transfer_block<value_t> &block, int64_t n, int64_t stride,
                                    value_t *inside, value_t *outside)
{
    value_t *vector[vectors];
    for (int64_t k = 0; k < vectors; ++k) vector[k] = outside + k * n;
    const auto move = [&](const auto &changed) {
        for (int64_t i = 0; i < block.count; ++i)
            for (int64_t k = 0; k < vectors; ++k) {
                value_t &in = inside[i * stride + k], &out = vector[k][block.index[i]];
                if constexpr (way == direction::gather)
                    in = changed(out, i);
                else
                    out = changed(in, i);
            }
    };
    choose_change<value_t>(
        rule, [&](int64_t i) { return block.factor[i]; }, move);
}

/* One vector: the places are not kept, which would take longer than the transfer. */
template <direction way, typename value_t>
static void transfer_vector(const transfer_rule &rule, int64_t first, int64_t last, value_t *x, value_t *outside)
{
    const int64_t *const perm = rule.perm, *const row_order = rule.row_order;
    const double *const scale = rule.scale;
    const bool divide = rule.divide;
    const auto move = [&](const auto &changed) {
        for (int64_t i = first; i <= last; ++i) {
            const int64_t column = perm[i - 1], at = (row_order == nullptr ? column : row_order[column - 1]) - 1;
            if constexpr (way == direction::gather)
                x[i] = changed(outside[at], at);
            else
                outside[at] = changed(x[i], at);
        }
    };
    choose_change<value_t>(
        rule, [=](int64_t at) { return static_cast<real_of<value_t>>(divide ? 1.0 / scale[at] : scale[at]); }, move);
}

template <direction way, typename value_t>
static void transfer_vectors(const transfer_rule &rule, int64_t first, int64_t last, const vector_panel<value_t> &p, value_t *outside)
{
    if (p.stride == 1) return transfer_vector<way>(rule, first, last, p.x, outside);
    transfer_block<value_t> block;
    for (int64_t start = first; start <= last; start += transfer_rows) {
        block.count = start + transfer_rows <= last + 1 ? transfer_rows : last + 1 - start;
        look_up_rows(rule, start, &block);
        value_t *const inside = p.x + start * p.stride;
        int64_t k = 0;
        for (; k + 8 <= p.width; k += 8) transfer_entries<way, 8>(rule, block, p.n, p.stride, inside + k, outside + k * p.n);
        for (; k + 4 <= p.width; k += 4) transfer_entries<way, 4>(rule, block, p.n, p.stride, inside + k, outside + k * p.n);
        for (; k < p.width; ++k) transfer_entries<way, 1>(rule, block, p.n, p.stride, inside + k, outside + k * p.n);
        if (way == direction::scatter || p.width == p.lanes) continue;
        for (int64_t i = 0; i < block.count; ++i)
            for (k = p.width; k < p.lanes; ++k) inside[i * p.stride + k] = value_t(0);
    }
}

template <typename value_t>
void gather_rows(const sweep<value_t> *w, const vector_panel<value_t> &p, int64_t first, int64_t last)
{
    transfer_vectors<direction::gather>(w->gather, first, last, p, p.rhs);
}
template <typename value_t>
void scatter_rows(const sweep<value_t> *w, const vector_panel<value_t> &p, int64_t first, int64_t last)
{
    transfer_vectors<direction::scatter>(w->scatter, first, last, p, p.solution);
}

template <typename value_t>
void gather_window(const sweep<value_t> *w, const vector_panel<value_t> &p)
{
    gather_rows(w, p, w->gather.first_row, p.n);
    for (int64_t i = w->window.zero_from * p.stride; i < (w->window.zero_to + 1) * p.stride; ++i) p.x[i] = value_t(0);
}
template <typename value_t>
void scatter_window(const sweep<value_t> *w, const vector_panel<value_t> &p)
{
    scatter_rows(w, p, w->scatter.first_row, p.n);
}

#define INSTANTIATE(V)                                                                                                                     \
    template void gather_rows<V>(const sweep<V> *, const vector_panel<V> &, int64_t, int64_t);                                             \
    template void scatter_rows<V>(const sweep<V> *, const vector_panel<V> &, int64_t, int64_t);                                            \
    template void gather_window<V>(const sweep<V> *, const vector_panel<V> &);                                                             \
    template void scatter_window<V>(const sweep<V> *, const vector_panel<V> &);
INSTANTIATE(double)
INSTANTIATE(float)
INSTANTIATE(std::complex<double>)
INSTANTIATE(std::complex<float>)
