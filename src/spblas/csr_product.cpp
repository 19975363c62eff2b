#include "service/service.h"
#include "spblas/csr_bodies.h"
#include "spblas/spblas.h"

#include <algorithm>
#include <complex>
#include <omp.h>

namespace
{

constexpr int64_t most_vectors = 1024; /* slots of a vector table; no team is asked to be larger */
constexpr int32_t vector_alignment = 128;

/* One call: the arguments and the size of y. */
template <typename value_t>
struct product {
    int64_t m;
    int64_t y_length;
    value_t alpha, beta;
    const value_t *a;
    const int64_t *ja, *pntrb, *pntre;
    const value_t *x;
    value_t *y;
};

struct row_range {
    int64_t first, last; /* 1-based; empty when last < first */
};

/* Rows of thread t among p: blocks of m / p rows, the last thread takes the rest. */
row_range rows_of_thread(int64_t m, int64_t p, int64_t t)
{
    const int64_t block = m / p;
    return {t * block + 1, t == p - 1 ? m : (t + 1) * block};
}

/* Threads for the forms that pay for private vectors. */
int capped_thread_count(int64_t m)
{
    const int64_t count = service_max_threads();
    if (count <= 1 || service_dynamic() == 0) return static_cast<int>(std::min(count, most_vectors));
    return static_cast<int>(std::min({count, int64_t{8}, std::max(m / 100, int64_t{1})}));
}

/* All rows by the calling thread, on the caller's y. */
template <typename value_t>
void run_serial(csr_row_body<value_t> *body, const product<value_t> &q)
{
    body(1, q.m, 1, q.y_length, q.alpha, q.a, q.ja, q.pntrb, q.pntre, q.x, q.y, q.beta);
}

/* Each thread computes the entries of y that belong to its rows. */
template <typename value_t>
void run_own_rows(csr_row_body<value_t> *body, const product<value_t> &q)
{
    const int team = service_max_threads();
    if (team <= 1) {
        run_serial(body, q);
        return;
    }
#pragma omp parallel num_threads(team)
    {
        const row_range rows = rows_of_thread(q.m, omp_get_num_threads(), omp_get_thread_num());
        body(rows.first, rows.last, 1, 0, q.alpha, q.a, q.ja, q.pntrb, q.pntre, q.x, q.y, q.beta);
    }
}

/* Thread 0 works on y, every other one on a vector as long as y; all vectors come from one allocation. The threads then share the entries
   of y between them, each adding the vectors in ascending order. */
template <typename value_t>
void run_full_vectors(csr_row_body<value_t> *body, const product<value_t> &q)
{
    const int team = capped_thread_count(q.m);
    value_t *vectors = nullptr;
    int64_t bytes = 0;
    if (team > 1 && !__builtin_mul_overflow((team - 1) * int64_t{sizeof(value_t)}, q.y_length, &bytes)) {
        vectors = static_cast<value_t *>(service_alloc(static_cast<uint64_t>(bytes), vector_alignment));
    }
    if (vectors == nullptr) {
        run_serial(body, q);
        return;
    }
    const value_t *table[most_vectors];
    for (int64_t s = 0; s < team - 1; ++s) table[s] = vectors + s * q.y_length;
    csr_reduce_body<value_t> *reduce = csr_bodies_chosen<value_t>().reduce;
#pragma omp parallel num_threads(team)
    {
        const int64_t p = omp_get_num_threads(), t = omp_get_thread_num();
        const row_range rows = rows_of_thread(q.m, p, t);
        value_t *target = t == 0 ? q.y : vectors + (t - 1) * q.y_length;
        body(rows.first, rows.last, 1, q.y_length, q.alpha, q.a, q.ja, q.pntrb, q.pntre, q.x, target, t == 0 ? q.beta : value_t(0));
#pragma omp barrier
        const row_range entries = rows_of_thread(q.y_length, p, t);
        reduce(entries.last - entries.first + 1, p - 1, table, entries.first - 1, 0, q.y + entries.first - 1);
    }
    service_free(vectors);
}

/* Block i (1..p-1) of the reduction, part `part` of `parts`: adds up the vectors that reach the block, in ascending order of their threads.
   Lower: entries (i-1)c+1 .. ic receive threads i-1 .. p-2, whose vectors start at entry 1. Upper: the rows of thread i receive threads
   1 .. i, whose vectors start at their own first rows. */
template <bool upper, typename value_t>
void reduce_block_part(const product<value_t> &q, value_t *const *table, int64_t p, int64_t i, int64_t part, int64_t parts)
{
    csr_reduce_body<value_t> *reduce = csr_bodies_chosen<value_t>().reduce;
    const int64_t block = q.m / p;
    const row_range rows = rows_of_thread(q.m, p, upper ? i : i - 1);
    const row_range share = rows_of_thread(rows.last - rows.first + 1, parts, part); /* entries within the block */
    const int64_t length = share.last - share.first + 1;
    value_t *y = q.y + (rows.first - 1) + (share.first - 1);
    if (upper)
        reduce(length, i, table + 1, (i - 1) * block + share.first - 1, -block, y);
    else
        reduce(length, p - i, table + i - 1, (i - 1) * block + share.first - 1, 0, y);
}

/* A thread's turn on its rows: the thread that owns y scales all of it, the others fill the vector they hold from zero. A row of the lower
   triangle reaches back to entry 1, so a private vector ends at the thread's last row; one of the upper triangle reaches forward. */
template <bool upper, typename value_t>
void run_thread_rows(csr_row_body<value_t> *body, const product<value_t> &q, value_t *const *table, int64_t p, int64_t t)
{
    const row_range rows = rows_of_thread(q.m, p, t);
    const bool owner = upper ? t == 0 : t == p - 1;
    const int64_t origin = upper ? rows.first : 1;
    const int64_t length = upper ? q.m - rows.first + 1 : rows.last;
    if (owner)
        body(rows.first, rows.last, 1, q.m, q.alpha, q.a, q.ja, q.pntrb, q.pntre, q.x, q.y, q.beta);
    else
        body(rows.first, rows.last, origin, length, q.alpha, q.a, q.ja, q.pntrb, q.pntre, q.x + origin - 1, table[t], value_t(0));
}

/* One stored triangle, each thread with a vector only as long as its rows can reach, from its own pool. */
template <bool upper, typename value_t>
void run_triangle_vectors(csr_row_body<value_t> *body, const product<value_t> &q)
{
    const int team = capped_thread_count(q.m);
    if (team <= 1) {
        run_serial(body, q);
        return;
    }
    value_t *table[most_vectors];
    int64_t failed = 0;
#pragma omp parallel num_threads(team)
    {
        const int64_t p = omp_get_num_threads(), t = omp_get_thread_num();
        const row_range rows = rows_of_thread(q.m, p, t);
        const bool owner = upper ? t == 0 : t == p - 1;
        table[t] = nullptr;
        if (!owner) {
            const int64_t length = upper ? q.m - rows.first + 1 : rows.last;
            table[t] = static_cast<value_t *>(service_alloc(static_cast<uint64_t>(length) * sizeof(value_t), vector_alignment));
            if (table[t] == nullptr) {
#pragma omp atomic write
                failed = 1;
            }
        }
#pragma omp barrier
        if (failed == 0) { /* nobody writes it any more */
            run_thread_rows<upper>(body, q, table, p, t);
#pragma omp barrier
            if (q.m < 1001) {
#pragma omp single
                for (int64_t i = 1; i < p; ++i) reduce_block_part<upper>(q, table, p, i, 0, 1);
            } else {
                /* Blocks are cut into a part for each thread: with two threads there is but one block. */
#pragma omp for schedule(static)
                for (int64_t piece = 0; piece < (p - 1) * p; ++piece) {
                    reduce_block_part<upper>(q, table, p, piece / p + 1, piece % p, p);
                }
            }
        }
        service_free(table[t]);
    }
    if (failed != 0) run_serial(body, q);
}

template <typename value_t>
void multiply_mirrored(const csr_form &form, const product<value_t> &q)
{
    const bool skew = form.structure == csr_structure::antisymmetric;
    int conjugation = form.operation == csr_operation::conjugate_transpose ? conjugate_both : conjugate_none;
    if (form.structure == csr_structure::hermitian) {
        conjugation = form.operation == csr_operation::transpose ? conjugate_entry : conjugate_mirror;
    }
    const int diagonal = skew ? diagonal_skew : form.diagonal == csr_diagonal::unit ? diagonal_unit : diagonal_stored;
    const bool upper = form.triangle == csr_triangle::upper;
    csr_row_body<value_t> *body = csr_bodies_chosen<value_t>().mirrored[upper ? side_upper : side_lower][diagonal][conjugation];
    if (diagonal != diagonal_stored)
        run_full_vectors(body, q);
    else if (upper)
        run_triangle_vectors<true>(body, q);
    else
        run_triangle_vectors<false>(body, q);
}

} // namespace

template <typename value_t>
void csr_product(const csr_form &form, int64_t m, int64_t k, value_t alpha, const value_t *a, const int64_t *ja, const int64_t *pntrb,
                 const int64_t *pntre, const value_t *x, value_t beta, value_t *y)
{
    const csr_bodies<value_t> &bodies = csr_bodies_chosen<value_t>();
    const bool transposed = form.operation != csr_operation::none;
    const int conjugated = form.operation == csr_operation::conjugate_transpose;
    const int unit = form.diagonal == csr_diagonal::unit;
    const int side = form.triangle == csr_triangle::upper ? side_upper : side_lower;
    product<value_t> q = {m, m, alpha, beta, a, ja, pntrb, pntre, x, y};
    switch (form.structure) {
    case csr_structure::general:
        if (transposed) q.y_length = k;
        if (transposed)
            run_full_vectors(bodies.scatter[side_all][diagonal_stored][conjugated], q);
        else
            run_own_rows(bodies.gather[side_all][diagonal_stored][0], q);
        break;
    case csr_structure::triangular:
        if (transposed)
            run_full_vectors(bodies.scatter[side][unit][conjugated], q);
        else
            run_own_rows(bodies.gather[side][unit][0], q);
        break;
    case csr_structure::diagonal:
        run_own_rows(bodies.gather[side_diagonal][unit][conjugated], q);
        break;
    case csr_structure::antisymmetric:
        if (transposed) q.alpha = -alpha;
        multiply_mirrored(form, q);
        break;
    case csr_structure::symmetric:
    case csr_structure::hermitian:
        multiply_mirrored(form, q);
        break;
    }
}

#define WKL_INSTANTIATE(V)                                                                                                                 \
    template void csr_product<V>(const csr_form &, int64_t, int64_t, V, const V *, const int64_t *, const int64_t *, const int64_t *,      \
                                 const V *, V, V *);
WKL_INSTANTIATE(float)
WKL_INSTANTIATE(double)
WKL_INSTANTIATE(std::complex<float>)
WKL_INSTANTIATE(std::complex<double>)
