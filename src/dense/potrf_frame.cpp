/* Blocked Cholesky factorization, right-looking over panels of the triangle: diagonal square, panel solve, trailing update. The same tiles
   in the same order of sums for every team, so that the bits do not depend on the threads. */
#include <omp.h>

#include "dense/frame.h"

/* Columns of a panel, and the unit in which rows are shared out: the block size that the published query routine answers for "POTRF". */
constexpr int64_t potrf_block = 64;

template <typename value_t>
struct potrf_call {
    bool lower;
    int64_t n;
    value_t *a;
    int64_t lda;
    int64_t info;
};

/* Tiles of the triangle in blocks, column by column, so that what a panel updates is the tail of the table. */
struct potrf_tile {
    int64_t row;
    int64_t column;
};

static potrf_tile *make_tiles(int64_t blocks)
{
    int64_t bytes = 0;
    if (__builtin_mul_overflow(blocks, blocks + 1, &bytes) || __builtin_mul_overflow(bytes / 2, sizeof(potrf_tile), &bytes)) return nullptr;
    potrf_tile *tile = static_cast<potrf_tile *>(service_alloc(static_cast<uint64_t>(bytes), 128));
    if (tile == nullptr) return nullptr;
    int64_t t = 0;
    for (int64_t q = 0; q < blocks; ++q) {
        for (int64_t p = q; p < blocks; ++p) tile[t++] = {p, q};
    }
    return tile;
}

/* Factor the square of `count` columns at j; an upper one goes through its mirrored copy. */
template <typename value_t>
static void factor_square(potrf_call<value_t> *x, int64_t j, int64_t count)
{
    const kernel_table<value_t> *table = dense_table<value_t>();
    value_t *corner = x->a + j + j * x->lda;
    int64_t failed = 0;
    if (x->lower)
        failed = table->potrf_panel(count, count, corner, x->lda, nullptr);
    else {
        value_t copy[potrf_block * potrf_block];
        for (int64_t r = 0; r < count; ++r) {
            for (int64_t s = 0; s <= r; ++s) copy[r + s * potrf_block] = conjugate_of(corner[s + r * x->lda]);
        }
        failed = table->potrf_panel(count, count, copy, potrf_block, nullptr);
        for (int64_t r = 0; r < count; ++r) {
            for (int64_t s = 0; s <= r; ++s) corner[s + r * x->lda] = conjugate_of(copy[r + s * potrf_block]);
        }
    }
    if (failed != 0) x->info = j + failed;
}

/* Tile (p, q) of the trailing triangle, p >= q counted in blocks, minus its product of the panel at j. */
template <typename value_t>
static void update_tile(const potrf_call<value_t> &x, int64_t j, int64_t p, int64_t q, void *work)
{
    const kernel_table<value_t> *table = dense_table<value_t>();
    const int64_t rows = x.n - p * potrf_block < potrf_block ? x.n - p * potrf_block : potrf_block;
    const int64_t columns = x.n - q * potrf_block < potrf_block ? x.n - q * potrf_block : potrf_block;
    const int64_t step = x.lower ? 1 : x.lda;
    const value_t *panel = x.a + (x.lower ? j * x.lda : j);
    const value_t *mine = panel + p * potrf_block * step;
    const value_t *other = panel + q * potrf_block * step;
    value_t *c = x.lower ? x.a + p * potrf_block + q * potrf_block * x.lda : x.a + q * potrf_block + p * potrf_block * x.lda;
    if (x.lower && p == q) {
        const update_segment<value_t> segment = {mine, x.lda, mine, x.lda, potrf_block};
        table->update(mirror::hermitian, update_shape::lower, rows, rows, 1, &segment, nullptr, nullptr, c, x.lda, work);
    } else if (x.lower) {
        table->gemm('N', 'C', rows, columns, potrf_block, value_t(-1), mine, x.lda, other, x.lda, value_t(1), c, x.lda, work);
    } else if (p == q) {
        value_t square[potrf_block * potrf_block];
        table->gemm('C', 'N', rows, rows, potrf_block, value_t(1), mine, x.lda, mine, x.lda, value_t(0), square, potrf_block, work);
        for (int64_t s = 0; s < rows; ++s) {
            for (int64_t r = 0; r <= s; ++r) c[r + s * x.lda] -= square[r + s * potrf_block];
        }
    } else {
        table->gemm('C', 'N', columns, rows, potrf_block, value_t(-1), other, x.lda, mine, x.lda, value_t(1), c, x.lda, work);
    }
}

/* All panels, by the team that runs this (a team of one outside a region). Without the table of tiles only a team of one may. */
template <typename value_t>
static void walk_panels(potrf_call<value_t> *x, const potrf_tile *tile, void *work)
{
    const kernel_table<value_t> *table = dense_table<value_t>();
    const int64_t blocks = (x->n + potrf_block - 1) / potrf_block;
    for (int64_t b = 0; b < blocks; ++b) {
        const int64_t j = b * potrf_block;
        const int64_t count = x->n - j < potrf_block ? x->n - j : potrf_block;
#pragma omp single
        factor_square(x, j, count);
        if (x->info != 0) return; /* all see it: the single ends with a barrier, and nobody writes before the next one */
        value_t *corner = x->a + j + j * x->lda;
#pragma omp for schedule(dynamic, 1)
        for (int64_t p = b + 1; p < blocks; ++p) {
            const int64_t first = p * potrf_block;
            const int64_t rows = x->n - first < potrf_block ? x->n - first : potrf_block;
            if (x->lower)
                table->trsm('R', 'L', 'C', 'N', rows, count, value_t(1), corner, x->lda, x->a + first + j * x->lda, x->lda, work);
            else
                table->trsm('L', 'U', 'C', 'N', count, rows, value_t(1), corner, x->lda, x->a + j + first * x->lda, x->lda, work);
        }
        if (tile == nullptr) {
            for (int64_t q = b + 1; q < blocks; ++q) {
                for (int64_t p = q; p < blocks; ++p) update_tile(*x, j, p, q, work);
            }
            continue;
        }
        const int64_t done = (b + 1) * blocks - (b + 1) * b / 2; /* tiles of columns up to b */
#pragma omp for schedule(dynamic, 1)
        for (int64_t t = done; t < blocks * (blocks + 1) / 2; ++t) update_tile(*x, j, tile[t].row, tile[t].column, work);
    }
}

template <typename value_t>
void wkl_lapack_potrf(char uplo, int64_t n, value_t *a, int64_t lda, int64_t *info)
{
    potrf_call<value_t> call = {frame_letter(uplo) == 'L', n, a, lda, 0};
    *info = 0;
    if (n == 0) return;
    int64_t threads = service_max_threads();
    if (threads < 1 || n < 4 * potrf_block) threads = 1;
    potrf_tile *tile = threads > 1 ? make_tiles((n + potrf_block - 1) / potrf_block) : nullptr;
    if (tile == nullptr) threads = 1;
#pragma omp parallel num_threads(static_cast <int>(threads)) if (threads > 1)
    {
        const frame_work work = frame_work_take(n > potrf_block);
        walk_panels(&call, tile, work.space);
        frame_work_return(work);
    }
    service_free(tile);
    *info = call.info;
}

#define INSTANTIATE(V) template decltype(wkl_lapack_potrf<V>) wkl_lapack_potrf<V>;
INSTANTIATE(double)
INSTANTIATE(float)
INSTANTIATE(std::complex<double>)
INSTANTIATE(std::complex<float>)
