/* One application of the factors: gather the right-hand sides into working vectors, sweep, scatter the result. */
#include "solve/solve_internal.h"

#include <algorithm>

#include "service/service.h"

static factor_kind kind_of(int64_t matrix_type, bool *hermitian)
{
    for (const matrix_type_row &row : matrix_type_rows) {
        if (row.code != matrix_type) continue;
        *hermitian = row.hermitian;
        return row.kind;
    }
    *hermitian = false;
    return matrix_type % 2 != 0 ? factor_kind::lu : factor_kind::ldlt;
}

/* The rules make the three single steps compose to the whole solve for every type and scaling: between the steps a vector stands in the
   numbering of perm, unscaled for LU, and in caller's units for symmetric factors (so a forward step divides when it scatters and a
   backward step divides when it gathers). */
template <typename value_t>
static void choose_transfers(const solve_input<value_t> *in, sweep<value_t> *w)
{
    const bool scaled = in->scaling_on != 0 && in->scale_row != nullptr && in->scale_col != nullptr;
    const int64_t code = in->solve_step_code;
    const int64_t *perm = in->structure->perm;
    const bool into = code <= 1, out_of = code == 0 || code == 3;
    /* A symmetric type equals its transpose, a Hermitian one its conjugate transpose: the other one of the two conjugates A. */
    const int64_t conjugating = w->hermitian ? 1 : 2;
    const bool conjugate = is_complex_value<value_t> && in->transpose_mode == conjugating;
    w->gather = {perm, nullptr, nullptr, false, conjugate, w->window.gather_first_row};
    w->scatter = {perm, nullptr, nullptr, false, conjugate, w->window.scatter_first_row};
    if (w->kind != factor_kind::lu) {
        if (!scaled) return;
        w->gather.scale = w->scatter.scale = in->scale_row;
        w->gather.divide = code == 3;
        w->scatter.divide = code == 1;
        return;
    }
    transfer_rule *const row_side = w->transposed ? &w->scatter : &w->gather;
    transfer_rule *const column_side = w->transposed ? &w->gather : &w->scatter;
    const bool row_used = w->transposed ? out_of : into, column_used = w->transposed ? into : out_of;
    if (row_used) row_side->row_order = in->row_order;
    if (row_used && scaled) row_side->scale = in->scale_row;
    if (column_used && scaled) column_side->scale = in->scale_col;
}

bool domains_chain(const supernodal_structure *s)
{
    int64_t end = 0;
    for (int64_t d = 1; d <= s->domains; ++d) {
        const int64_t first = s->domain_table[2 * d - 2], last = s->domain_table[2 * d - 1];
        if (first > last) continue;
        if (first != end + 1) return false;
        end = last;
    }
    for (int64_t d = s->domains + 2; d <= 2 * s->domains; ++d) {
        const int64_t first = s->domain_table[2 * d - 2], last = s->domain_table[2 * d - 1];
        if (first > last) continue;
        if (first != end + 1) return false;
        end = last;
    }
    return end == s->supernodes && s->domain_table[2 * s->domains] >= 1;
}

/* Below this order a second thread costs more than it brings. */
static constexpr int64_t parallel_single_least_order = 500;
static constexpr int64_t most_single_threads = 32;

template <typename value_t>
static int64_t single_vector_threads(const solve_input<value_t> *in, const sweep<value_t> *w)
{
    const supernodal_structure &s = *in->structure;
    int64_t threads = in->threads < s.domains ? in->threads : s.domains;
    if (threads > most_single_threads) threads = most_single_threads;
    if (in->entries_per_thread > 0) threads = std::min(threads, (s.nnz_l + s.nnz_u) / in->entries_per_thread);
    const bool usable = threads >= 2 && s.domains <= most_single_threads && s.neqns >= parallel_single_least_order &&
                        in->reproducible_units == 0 && in->iparam25_copy != 1 && w->window.allows_domains && domains_chain(&s);
    return usable ? threads : 1;
}

/* Vectors interleaved in one panel: an even share of the threads, within the limit. */
static int64_t panel_width(int64_t nb, int64_t threads)
{
    const int64_t share = (nb - 1) / threads + 1;
    const int64_t panels = (share - 1) / solve_width_limit + 1;
    return (share - 1) / panels + 1;
}

/* Block-solve threads for several vectors; each takes whole panels. */
template <typename value_t>
static int64_t several_vector_threads(const solve_input<value_t> *in)
{
    int64_t threads = in->reproducible_units != 0 ? in->reproducible_units : in->threads;
    if (in->iparam25_copy == 1 || threads < 1) threads = 1;
    return threads < in->nb ? threads : in->nb;
}

template <typename value_t>
static bool solve_serial(const sweep<value_t> *w, value_t *x)
{
    const int64_t supernodes = w->structure->supernodes;
    if (w->forward && !forward_supernodes(w, w->window.forward_first_supernode, supernodes, x, supernodes, x)) return false;
    return (!w->diagonal && !w->backward) || backward_supernodes(w, w->window.backward_last_supernode, supernodes, x);
}

/* Entries of a row of interleaved vectors. */
template <typename value_t>
static constexpr int64_t row_stride(int64_t width)
{
    constexpr int64_t lanes = interleaved_lanes<value_t>;
    return width == 1 ? 1 : (width + lanes - 1) / lanes * lanes;
}

/* Entries that the working vectors of a pass, the copies of separator rows and the bits behind them take; the bits are aligned as the rows
   are. */
template <typename value_t>
static int64_t panel_entries(const supernodal_structure *s, int64_t width, const domain_split &split)
{
    constexpr int64_t in_a_word = static_cast<int64_t>(sizeof(uint64_t)) / static_cast<int64_t>(sizeof(value_t));
    const int64_t copies = split.threads > 1 ? split.threads * split.top_rows : 0;
    const int64_t rows = (s->neqns + 1 + copies) * row_stride<value_t>(width);
    if (width == 1) return rows;
    const int64_t words = (gathered_words(s->supernodes) + split.threads + 3) / 4 * 4;
    return rows + (in_a_word > 0 ? words * in_a_word : words);
}
static constexpr domain_split no_split = {1, 0, 0, 0};

template <typename value_t>
static vector_panel<value_t> panel_of(const solve_input<value_t> *in, int64_t first, int64_t width, const domain_split &split,
                                      value_t *work)
{
    const int64_t n = in->structure->neqns, stride = row_stride<value_t>(width);
    const int64_t rows = n + 1 + (split.threads > 1 ? split.threads * split.top_rows : 0);
    return {n,
            width,
            stride,
            stride,
            in->b + first * n,
            (in->overwrite_rhs == 1 ? in->b : in->x) + first * n,
            work,
            width == 1 ? nullptr : reinterpret_cast<uint64_t *>(work + rows * stride)};
}

/* Below the first order threads meet too often. Below the second, vectors and factors stay in the caches of each thread: when there are
   enough vectors to share out, that takes less. */
static constexpr int64_t split_least_order = 500, split_cached_order = 10000, split_cached_share = 16;

/* Domains side by side, if they can be used; each thread must have vectors to work on in the separators. */
template <typename value_t>
static domain_split choose_split(const solve_input<value_t> *in, const sweep<value_t> *w)
{
    const int64_t registers = row_stride<value_t>(panel_width(in->nb, 1)) / interleaved_lanes<value_t>;
    const bool usable = in->threads >= 2 && in->threads <= registers &&
                        in->structure->neqns >= (in->nb / in->threads >= split_cached_share ? split_cached_order : split_least_order) &&
                        in->reproducible_units == 0 && in->iparam25_copy != 1 && w->forward && w->backward && sweeps_whole(w);
    return usable ? split_domains(in->structure, in->threads) : no_split;
}

template <typename value_t>
static bool solve_panel(const sweep<value_t> *w, const vector_panel<value_t> &p)
{
    if (p.width > 1) return solve_several(w, p);
    gather_window(w, p);
    if (!solve_serial(w, p.x + 1)) return false;
    scatter_window(w, p);
    return true;
}

template <typename value_t>
static bool solve_panels(const solve_input<value_t> *in, const sweep<value_t> *w, value_t *work)
{
    const int64_t threads = several_vector_threads(in), width = panel_width(in->nb, threads);
    const int64_t panels = (in->nb + width - 1) / width, team = panels < threads ? panels : threads;
    const auto share = [=](int64_t t) {
        value_t *const own = work + t * panel_entries<value_t>(in->structure, width, no_split);
        bool complete = true;
        for (int64_t panel = t; panel < panels && complete; panel += team) {
            const int64_t first = panel * width, rest = in->nb - first;
            complete = solve_panel(w, panel_of(in, first, rest < width ? rest : width, no_split, own));
        }
        return complete;
    };
    if (team == 1) return share(0);
    bool complete = true;
#pragma omp parallel for num_threads(static_cast <int>(team)) schedule(static, 1) reduction(&& : complete)
    for (int64_t t = 0; t < team; ++t) complete = share(t);
    return complete;
}

template <typename value_t>
static bool solve_split(const solve_input<value_t> *in, const sweep<value_t> *w, const domain_split &split, value_t *work)
{
    const int64_t most = panel_width(in->nb, 1);
    for (int64_t first = 0; first < in->nb; first += most) {
        const int64_t width = in->nb - first < most ? in->nb - first : most;
        const bool complete = width == 1 ? solve_panel(w, panel_of(in, first, width, no_split, work))
                                         : solve_several_parallel(w, split, panel_of(in, first, width, split, work));
        if (!complete) return false;
    }
    return true;
}

template <typename value_t>
static bool solve_one(const solve_input<value_t> *in, const sweep<value_t> *w, int64_t threads, value_t *work)
{
    const vector_panel<value_t> p = panel_of(in, 0, 1, no_split, work);
    if (threads == 1) return solve_panel(w, p);
    gather_window(w, p);
    const bool complete = solve_single_parallel(w, threads, work + 1, work + p.n + 1);
    if (complete) scatter_window(w, p);
    return complete;
}

int64_t solve_work_entries(const supernodal_structure *s, int64_t nb, int64_t threads)
{
    const int64_t team = threads < 1 ? 1 : threads, n = s->neqns;
    if (nb <= 1) return team > 1 ? (std::min(team, most_single_threads) + 1) * (n + 1) : n + 1;
    const int64_t parts = team < nb ? team : nb; /* below: of the longest rows, those of the shortest type */
    return std::max(parts * panel_entries<float>(s, panel_width(nb, parts), no_split),
                    panel_entries<float>(s, panel_width(nb, 1), split_domains(s, team)));
}

template <typename value_t>
int64_t solution_step(const solve_input<value_t> *in)
{
    if (in->structure->supernodes < 1 || in->nb < 1) return 0;
    sweep<value_t> w = {};
    w.structure = in->structure;
    w.store = in->store;
    w.kind = kind_of(in->matrix_type, &w.hermitian);
    w.transposed = w.kind == factor_kind::lu && in->transpose_mode != 0;
    w.forward = in->solve_step_code <= 1;
    w.diagonal = in->solve_step_code == 0 || in->solve_step_code == 2;
    w.backward = in->solve_step_code == 0 || in->solve_step_code == 3;
    choose_window(in->structure, in->window_first, in->window_count, in->solve_step_code, &w.window);
    choose_transfers(in, &w);

    const int64_t single_threads = in->nb == 1 ? single_vector_threads(in, &w) : 1;
    const int64_t threads = in->nb == 1 ? single_threads : several_vector_threads(in);
    const int64_t need = solve_work_entries(in->structure, in->nb, threads);
    value_t *work = in->work, *own = nullptr;
    if (work == nullptr || in->work_entries < need) {
        own = static_cast<value_t *>(service_alloc_direct(static_cast<uint64_t>(need) * sizeof(value_t), 128));
        if (own == nullptr) return -2;
        work = own;
    }
    const domain_split split = in->nb == 1 ? no_split : choose_split(in, &w);
    const bool complete = in->nb == 1         ? solve_one(in, &w, single_threads, work)
                          : split.threads > 1 ? solve_split(in, &w, split, work)
                                              : solve_panels(in, &w, work);
    service_free_direct(own);
    return complete ? 0 : -1;
}

#define INSTANTIATE(V) template int64_t solution_step<V>(const solve_input<V> *);
INSTANTIATE(double)
INSTANTIATE(float)
INSTANTIATE(std::complex<double>)
INSTANTIATE(std::complex<float>)
