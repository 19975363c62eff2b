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
constexpr int64_t piece_length = 512; /* entries of a reduction at a time */

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
    bool one_order;
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

/* Work through entries in pieces that stay in the first-level cache. */
template <typename work_t>
void for_each_piece(row_range entries, const work_t &work)
{
    for (int64_t e = entries.first; e <= entries.last; e += piece_length) work(row_range{e, std::min(e + piece_length - 1, entries.last)});
}

/* Threads for the forms that pay for private vectors. */
template <typename value_t>
int capped_thread_count(const product<value_t> &q)
{
    const int64_t m = q.m, count = q.one_order ? 1 : service_max_threads();
    if (count <= 1 || service_dynamic() == 0) return static_cast<int>(std::min(count, most_vectors));
    return static_cast<int>(std::min({count, int64_t{8}, std::max(m / 100, int64_t{1})}));
}

/* Each thread computes the entries of y that belong to its rows. */
template <typename value_t>
void run_own_rows(csr_row_body<value_t> *body, const product<value_t> &q)
{
    const auto run = [&](row_range rows) { body(rows.first, rows.last, q.alpha, q.a, q.ja, q.pntrb, q.pntre, q.x, q.y, q.beta); };
    const int team = service_max_threads();
    if (team <= 1) {
        run({1, q.m});
        return;
    }
#pragma omp parallel num_threads(team)
    run(rows_of_thread(q.m, omp_get_num_threads(), omp_get_thread_num()));
}

/* Thread 0 works on y, every other one on a vector as long as y; all vectors come from one allocation. The threads then share the entries
   of y between them, each adding the vectors in ascending order. `work(rows, vector)` adds the products of the rows to a scaled vector. */
template <typename value_t, typename work_t>
void run_full_vectors(const product<value_t> &q, const work_t &work)
{
    const csr_bodies<value_t> &bodies = csr_bodies_chosen<value_t>();
    const int team = capped_thread_count(q);
    value_t *vectors = nullptr;
    int64_t bytes = 0;
    if (team > 1 && !__builtin_mul_overflow((team - 1) * int64_t{sizeof(value_t)}, q.y_length, &bytes)) {
        vectors = static_cast<value_t *>(service_alloc(static_cast<uint64_t>(bytes), vector_alignment));
    }
    if (vectors == nullptr) {
        bodies.scale(q.y_length, q.beta, q.y);
        work(row_range{1, q.m}, q.y);
        return;
    }
#pragma omp parallel num_threads(team)
    {
        const int64_t p = omp_get_num_threads(), t = omp_get_thread_num();
        value_t *target = t == 0 ? q.y : vectors + (t - 1) * q.y_length;
        bodies.scale(q.y_length, t == 0 ? q.beta : value_t(0), target);
        work(rows_of_thread(q.m, p, t), target);
#pragma omp barrier
        for_each_piece(rows_of_thread(q.y_length, p, t), [&](row_range piece) {
            for (int64_t s = 0; s < p - 1; ++s) {
                bodies.add(piece.last - piece.first + 1, vectors + s * q.y_length + piece.first - 1, q.y + piece.first - 1);
            }
        });
    }
    service_free(vectors);
}

/* ---- one stored triangle ----

   Thread t writes its own rows into y and what its rows send to the rows of others into a private vector. These stand before its first row
   (lower) or behind its last one (upper), so that vectors are as long as the rows can reach, and one thread, the first or the last, has
   none. Only the entries that were reached are ever touched. The sums of an entry are added in an order of their own: first those of the
   leading thread, which bring beta * y (the last thread for lower, the first one for upper), then those of the others as they follow. */

template <typename value_t>
void run_triangle_rows(csr_mirror_body<value_t> *body, const product<value_t> &q, row_range rows, value_t beta,
                       csr_outside<value_t> *outside)
{
    body(rows.first, rows.last, q.alpha, q.a, q.ja, q.pntrb, q.pntre, q.x, q.y, beta, outside);
}

/* The private vector of a thread with these rows, from its own pool; its value is null when there is no memory, or no entry to hold. */
template <bool upper, typename value_t>
csr_outside<value_t> make_outside(int64_t m, row_range rows)
{
    csr_outside<value_t> outside = {nullptr, upper ? rows.last + 1 : 1, upper ? m : rows.first - 1, rows.last + 1, rows.first - 1};
    if (upper)
        outside.last = rows.last;
    else
        outside.first = rows.first;
    const int64_t length = outside.room_last - outside.room_first + 1;
    outside.value = static_cast<value_t *>(service_alloc(static_cast<uint64_t>(length) * sizeof(value_t), vector_alignment));
    return outside;
}

/* Start the leading thread's vector from beta * y, which the other threads are about to overwrite. With a beta of 0 it starts as it is
   reached, like all others. */
template <typename value_t>
void start_from_y(const product<value_t> &q, csr_outside<value_t> *outside)
{
    if (q.beta == value_t(0)) return;
    const int64_t length = outside->room_last - outside->room_first + 1;
    std::copy_n(q.y + outside->room_first - 1, length, outside->value);
    csr_bodies_chosen<value_t>().scale(length, q.beta, outside->value);
    outside->first = outside->room_first;
    outside->last = outside->room_last;
}

/* sum += the entries of `outside` that were reached; sum[0] stands for column piece.first. */
template <typename value_t>
void add_reached(const csr_outside<value_t> &outside, row_range piece, value_t *sum)
{
    const int64_t first = std::max(piece.first, outside.first), last = std::min(piece.last, outside.last);
    if (first > last) return;
    csr_bodies_chosen<value_t>().add(last - first + 1, outside.value + (first - outside.room_first), sum + (first - piece.first));
}

/* Bring the sums for a piece of the rows of thread `owner`, which stand in y, together with what the other threads send there. */
template <bool upper, typename value_t>
void reduce_piece(const product<value_t> &q, const csr_outside<value_t> *outside, int64_t p, int64_t owner, row_range piece)
{
    value_t *y = q.y + piece.first - 1;
    if (upper && owner > 1) { /* threads 0, 1, .. and then the owner */
        value_t sum[piece_length] = {};
        for (int64_t t = 0; t < owner; ++t) add_reached(outside[t], piece, sum);
        csr_bodies_chosen<value_t>().add(piece.last - piece.first + 1, sum, y);
    } else if (upper) {
        add_reached(outside[0], piece, y);
    } else { /* the last thread, the owner and then the ones between them */
        add_reached(outside[p - 1], piece, y);
        for (int64_t t = owner + 1; t < p - 1; ++t) add_reached(outside[t], piece, y);
    }
}

/* Part `part` of `parts` of the rows of one thread. */
template <bool upper, typename value_t>
void reduce_part(const product<value_t> &q, const csr_outside<value_t> *outside, int64_t p, int64_t owner, int64_t part, int64_t parts)
{
    const row_range rows = rows_of_thread(q.m, p, owner);
    const row_range share = rows_of_thread(rows.last - rows.first + 1, parts, part);
    for_each_piece({rows.first + share.first - 1, rows.first + share.last - 1},
                   [&](row_range piece) { reduce_piece<upper>(q, outside, p, owner, piece); });
}

template <bool upper, typename value_t>
void run_triangle(csr_mirror_body<value_t> *body, const product<value_t> &q)
{
    const int team = capped_thread_count(q);
    csr_outside<value_t> outside[most_vectors];
    int64_t failed = team <= 1;
    if (team > 1) {
#pragma omp parallel num_threads(team)
        {
            const int64_t p = omp_get_num_threads(), t = omp_get_thread_num();
            const int64_t leading = upper ? 0 : p - 1, without = upper ? p - 1 : 0;
            const row_range rows = rows_of_thread(q.m, p, t);
            outside[t] = {};
            if (t != without) {
                outside[t] = make_outside<upper, value_t>(q.m, rows);
                if (outside[t].value == nullptr) {
#pragma omp atomic write
                    failed = 1;
                } else if (t == leading)
                    start_from_y(q, &outside[t]);
            }
#pragma omp barrier
            if (failed == 0) { /* nobody writes it any more */
                run_triangle_rows(body, q, rows, t == leading ? q.beta : value_t(0), &outside[t]);
#pragma omp barrier
                if (q.m < 1001) {
#pragma omp single
                    for (int64_t i = 0; i < p - 1; ++i) reduce_part<upper>(q, outside, p, upper ? i + 1 : i, 0, 1);
                } else {
                    /* Rows of a thread are cut into a part for each thread: with two threads there is but one that receives. */
#pragma omp for schedule(static)
                    for (int64_t piece = 0; piece < (p - 1) * p; ++piece) {
                        reduce_part<upper>(q, outside, p, upper ? piece / p + 1 : piece / p, piece % p, p);
                    }
                }
            }
            service_free(outside[t].value);
        }
    }
    if (failed == 0) return;
    csr_outside<value_t> none = {nullptr, 1, 0, upper ? q.m + 1 : 1, upper ? q.m : 0};
    run_triangle_rows(body, q, {1, q.m}, q.beta, &none);
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
    csr_mirror_body<value_t> *body = csr_bodies_chosen<value_t>().mirrored[upper ? side_upper : side_lower][diagonal][conjugation];
    if (diagonal != diagonal_stored) {
        run_full_vectors(q, [&](row_range rows, value_t *vector) {
            csr_outside<value_t> outside = {vector, 1, q.m, upper ? rows.last + 1 : 1, upper ? q.m : rows.first - 1};
            body(rows.first, rows.last, q.alpha, q.a, q.ja, q.pntrb, q.pntre, q.x, vector, value_t(1), &outside);
        });
    } else if (upper)
        run_triangle<true>(body, q);
    else
        run_triangle<false>(body, q);
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
    product<value_t> q = {m, m, alpha, beta, a, ja, pntrb, pntre, x, y, form.one_order};
    const auto run_scatter = [&](csr_row_body<value_t> *body) {
        run_full_vectors(q, [&](row_range rows, value_t *vector) {
            body(rows.first, rows.last, q.alpha, q.a, q.ja, q.pntrb, q.pntre, q.x, vector, value_t(1));
        });
    };
    switch (form.structure) {
    case csr_structure::general:
        if (transposed) q.y_length = k;
        if (transposed)
            run_scatter(bodies.scatter[side_all][diagonal_stored][conjugated]);
        else
            run_own_rows(bodies.gather[side_all][diagonal_stored][0], q);
        break;
    case csr_structure::triangular:
        if (transposed)
            run_scatter(bodies.scatter[side][unit][conjugated]);
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
