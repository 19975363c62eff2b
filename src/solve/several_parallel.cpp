/* Several right-hand sides on several threads, without reading a factor more than once: each thread takes whole domains, for all vectors,
   and adds their updates of the separators to copies of its own. For the separators each thread takes a share of the vectors, so that no
   thread waits there, and adds up the copies in thread order: the bits depend on the thread count alone. */
#include "solve/solve_internal.h"

#include <atomic>

/* Supernodes of the domains that a thread takes; first > last when they are empty. */
static void range_of_thread(const supernodal_structure *s, int64_t threads, int64_t t, int64_t *first, int64_t *last)
{
    *first = 1;
    *last = 0;
    for (int64_t d = s->domains * t / threads + 1; d <= s->domains * (t + 1) / threads; ++d) {
        const int64_t from = s->domain_table[2 * d - 2], to = s->domain_table[2 * d - 1];
        if (from > to) continue;
        if (*first > *last) *first = from;
        *last = to;
    }
}

/* Entries of the factor before a supernode. */
static int64_t entries_before(const supernodal_structure *s, int64_t number)
{
    return number > s->supernodes ? s->nnz_l : s->xlnz[s->xsuper[number - 1] - 1] - 1;
}

/* Worth while when the domains come out even, and their copies of the separators' rows are few beside all rows. */
domain_split split_domains(const supernodal_structure *s, int64_t threads)
{
    domain_split split = {1, 0, 0, 0};
    if (threads < 2 || s->domains < threads || s->domains % threads != 0 || !domains_chain(s)) return split;
    int64_t longest = 0;
    for (int64_t t = 0; t < threads; ++t) {
        int64_t first = 0, last = 0;
        range_of_thread(s, threads, t, &first, &last);
        if (first > last) continue;
        split.last = last;
        const int64_t entries = entries_before(s, last + 1) - entries_before(s, first);
        if (entries > longest) longest = entries;
    }
    split.top_row = s->xsuper[split.last];
    split.top_rows = s->neqns + 1 - split.top_row;
    const int64_t top_share = (s->nnz_l - entries_before(s, split.last + 1)) / threads, even_share = s->nnz_l / threads;
    if (longest + top_share <= even_share + even_share / 8 && split.top_rows <= s->neqns / (4 * threads)) split.threads = threads;
    return split;
}

/* The part of the vectors that thread t works on in the separators. */
template <typename value_t>
static vector_panel<value_t> share_of_vectors(const vector_panel<value_t> &p, int64_t threads, int64_t t)
{
    constexpr int64_t unit = interleaved_lanes<value_t>;
    const int64_t units = p.lanes / unit, from = units * t / threads * unit, end = units * (t + 1) / threads * unit;
    vector_panel<value_t> share = p;
    share.lanes = end - from;
    share.width = (end < p.width ? end : p.width) - from;
    share.rhs += from * p.n;
    share.solution += from * p.n;
    share.x += from;
    return share;
}

template <typename value_t>
static bool solve_separators(const sweep<value_t> *w, const domain_split &split, const vector_panel<value_t> &p)
{
    if (p.lanes < 1) return true;
    gather_rows(w, p, split.top_row, p.n);
    for (int64_t t = 0; t < split.threads; ++t)
        for (int64_t i = 0; i < split.top_rows; ++i) {
            value_t *const row = p.x + (split.top_row + i) * p.stride;
            const value_t *const copy = p.x + (p.n + 1 + t * split.top_rows + i) * p.stride;
            for (int64_t k = 0; k < p.lanes; ++k) row[k] += copy[k];
        }
    const supernode_range<value_t> range = {split.last + 1, w->structure->supernodes, p.x, nullptr, false, true};
    return forward_range(w, p, range) && backward_range(w, p, range);
}

template <typename value_t>
bool solve_several_parallel(const sweep<value_t> *w, const domain_split &split, const vector_panel<value_t> &p)
{
    const auto range = [&](int64_t t) {
        supernode_range<value_t> own = {};
        range_of_thread(w->structure, split.threads, t, &own.first, &own.last);
        own.beyond = p.x + (p.n + 1 + t * split.top_rows - split.top_row) * p.stride;
        own.in_place = p.in_place + (own.first - 1) / 64 + t; /* no word is shared */
        own.gathers = own.scatters = true;
        return own;
    };
    std::atomic<bool> complete = true;
    const auto on_all = [&](const auto &step) {
#pragma omp parallel for num_threads(static_cast <int>(split.threads)) schedule(static, 1)
        for (int64_t t = 0; t < split.threads; ++t)
            if (complete.load(std::memory_order_relaxed) && !step(t)) complete.store(false, std::memory_order_relaxed);
    };
    on_all([&](int64_t t) {
        const supernode_range<value_t> own = range(t);
        value_t *const copies = own.beyond + split.top_row * p.stride;
        for (int64_t i = 0; i < split.top_rows * p.stride; ++i) copies[i] = value_t(0);
        return forward_range(w, p, own);
    });
    on_all([&](int64_t t) { return solve_separators(w, split, share_of_vectors(p, split.threads, t)); });
    on_all([&](int64_t t) { return backward_range(w, p, range(t)); });
    return complete.load();
}

#define INSTANTIATE(V) template bool solve_several_parallel<V>(const sweep<V> *, const domain_split &, const vector_panel<V> &);
INSTANTIATE(double)
INSTANTIATE(float)
INSTANTIATE(std::complex<double>)
INSTANTIATE(std::complex<float>)
