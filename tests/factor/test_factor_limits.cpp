#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>

#include "rebuild.h"
#include "service/service.h"

namespace
{

using small_problem_steps::z;

/* ---- the progress hook: the first registration wins, so one is made for all tests of this program ---- */
std::atomic<int64_t> calls_until_stop{-1}; /* below 0: never */
std::atomic<int64_t> last_percent{-1}, wrong_calls{0};

int64_t progress(const int64_t *thread, const int64_t *percent, const char *stage, int32_t length)
{
    if (*thread != 0 || *percent < 0 || *percent > 100 || length != 28 || std::strncmp(stage, "Solvara: factorization phase", 28) != 0)
        ++wrong_calls;
    last_percent = *percent;
    return calls_until_stop >= 0 && calls_until_stop-- == 0 ? 1 : 0;
}

const int registered = (service_set_progress_hook(progress), 0);

/* A wait that never ends, a thread that leaves work behind, a stop that is lost. */
TEST(factor_stress, stops_and_full_runs_end_with_any_number_of_threads)
{
    (void)registered;
    std::mt19937 engine(7);
    for (int round = 0; round < 3200; ++round) {
        const int64_t threads = round % 17;
        const problem_shape shape = {static_cast<int64_t>(20 + engine() % 80), 0.01 + 0.001 * static_cast<double>(engine() % 100),
                                     1 + static_cast<int64_t>(engine() % 12), int64_t{1} << engine() % 4, static_cast<unsigned>(round)};
        const auto q = make_problem<double>(round % 2 == 0 ? 2 : 11, shape, round % 3);
        factorization<double> f;
        prepare(q, threads, &f);
        const int64_t stop = round % 4 == 3 ? static_cast<int64_t>(engine() % 12) : -1;
        calls_until_stop = stop;
        numeric_dispatch(&f.input, &f.result);
        const bool asked = stop >= 0 && calls_until_stop < 0;
        calls_until_stop = -1;
        EXPECT_EQ(f.result.stopped, asked ? 1 : 0);
        EXPECT_EQ(f.result.error, asked ? -1 : 0);
        if (asked) continue;
        EXPECT_EQ(last_percent, 100);
        ASSERT_LE(rebuild_error(q, f), 1e-14) << round;
    }
    EXPECT_EQ(wrong_calls, 0);
}

/* A failing pivot overlooked, or reported in the numbering of the factor. */
TEST(factor_limits, tells_the_row_of_a_pivot_that_is_not_positive)
{
    for (const double bad : {0.0, -1e3, std::numeric_limits<double>::quiet_NaN()})
        for (const int64_t threads : {-1, 0, 1, 2}) { /* -1: so few entries that a program of pushes pays */
            auto q = make_problem<double>(2, {40, threads < 0 ? 0.02 : 0.1, threads < 0 ? 2 : 6, 2, 3});
            const int64_t row = 17;
            q.a[z(q.ia[z(row - 1)] - 1)] = bad;
            factorization<double> f;
            prepare(q, threads < 0 ? 0 : threads, &f);
            if (threads < 0) { ASSERT_GT(f.program.at(0), 255); }
            numeric_dispatch(&f.input, &f.result);
            EXPECT_EQ(f.result.error, -1);
            EXPECT_EQ(f.result.failed_row, row);
            EXPECT_EQ(f.result.stopped, 0);
        }
    for (int64_t row = 1; row <= 40; ++row) { /* of supernodes with one column and with several */
        auto q = make_problem<double>(11, {40, 0.1, 6, 1, 3});
        for (int64_t p = q.ia[z(row - 1)]; p < q.ia[z(row)]; ++p) q.a[z(p - 1)] = 0; /* a zero pivot, not replaced with exponent 0 */
        factorization<double> f;
        prepare(q, 1, &f);
        f.input.perturbation_exponent = 0;
        numeric_dispatch(&f.input, &f.result);
        EXPECT_EQ(f.result.error, -1);
        EXPECT_GT(f.result.failed_row, 0);
        f.input.perturbation_exponent = 13;
        numeric_dispatch(&f.input, &f.result);
        EXPECT_EQ(f.result.error, 0);
        EXPECT_EQ(f.result.perturbed, 1);
    }
}

/* The largest product of a source with several columns and scattered rows: q * k. */
int64_t largest_scattered(const small_problem<double> &q)
{
    int64_t largest = 0;
    for (int64_t s = 1; s <= q.structure.supernodes; ++s) {
        if (supernode_columns(q.structure, s) < 2) continue;
        const int64_t rows = supernode_rows(q.structure, s);
        const int64_t *list = supernode_row_list(q.structure, s);
        for (const auto &[target, left] : small_problem_steps::targets_of(q, s)) {
            if (left == supernode_rows(q.structure, target)) continue;
            int64_t k = 0;
            while (k < left && q.snode[z(list[rows - left + k] - 1)] == target) ++k;
            const int64_t *of_target = supernode_row_list(q.structure, target);
            const auto offset = [&](int64_t row) { return std::find(of_target, of_target + q.n, row) - of_target; };
            if (offset(list[rows - 1]) - offset(list[rows - left]) >= left) largest = std::max(largest, left * k);
        }
    }
    return largest;
}

/* The size check of the update buffer off by one. */
TEST(factor_limits, product_that_just_fits_the_buffer_passes)
{
    const auto q = make_problem<double>(2, {200, 0.012, 40, 1, 11});
    const int64_t need = largest_scattered(q);
    ASSERT_GT(need, 128); /* past the sizes that need no buffer */
    for (const int64_t entries : {need, need - 1}) {
        factorization<double> f;
        prepare(q, 1, &f);
        f.input.buffer_entries = entries;
        numeric_dispatch(&f.input, &f.result);
        EXPECT_EQ(f.result.error, entries == need ? 0 : -2);
    }
}

/* ---- the seam: blocks that live elsewhere ---- */
struct paged_blocks {
    const small_problem<double> *q;
    std::vector<double> lower, upper;        /* "the file" */
    std::vector<std::vector<double>> window; /* [2 * supernodes] */
    std::vector<int64_t> users;
    std::atomic<int64_t> fail_after{-1};
    int64_t held = 0;
};

size_t window_of(factor_side side, int64_t number)
{
    return z(2 * number - (side == factor_side::lower ? 2 : 1));
}

std::pair<double *, int64_t> file_part(paged_blocks *b, factor_side side, int64_t number)
{
    const supernodal_structure &s = b->q->structure;
    const int64_t first = s.xsuper[number - 1], columns = supernode_columns(s, number), rows = supernode_rows(s, number);
    if (side == factor_side::lower) return {b->lower.data() + s.xlnz[first - 1] - 1, rows * columns};
    return {b->upper.data() + s.xunz[first - 1] - 1, (rows - columns) * columns};
}

void *acquire(void *context, factor_side side, int64_t number, block_use use)
{
    auto *b = static_cast<paged_blocks *>(context);
    void *result = nullptr;
#pragma omp critical(test_pager)
    {
        if (b->fail_after < 0 || b->fail_after-- != 0) {
            const auto [from, count] = file_part(b, side, number);
            auto &w = b->window[window_of(side, number)];
            if (b->users[window_of(side, number)]++ == 0) {
                w.assign(z(count + 1), std::nan(""));
                if (use != block_use::create) std::copy(from, from + count, w.begin());
            }
            ++b->held;
            result = w.data();
        }
    }
    return result;
}

void release(void *context, factor_side side, int64_t number, block_use use)
{
    auto *b = static_cast<paged_blocks *>(context);
#pragma omp critical(test_pager)
    {
        const auto [to, count] = file_part(b, side, number);
        auto &w = b->window[window_of(side, number)];
        if (use != block_use::read) std::copy(w.begin(), w.begin() + count, to);
        --b->held;
        if (--b->users[window_of(side, number)] == 0) w.assign(w.size(), std::nan(""));
    }
}

/* A block used after its release, not written back, not released after a failure, or reached around the seam. */
TEST(factor_limits, works_on_paged_blocks_and_gives_all_of_them_back)
{
    for (const int64_t type : {2, -2, 11})
        for (const int64_t threads : {1, 2})
            for (const int64_t fail_after : {-1, 0, 7, 40}) {
                const auto q = make_problem<double>(type, {60, 0.06, 5, 2, 5}, threads == 1 ? 0 : 1);
                factorization<double> f;
                prepare(q, threads, &f);
                paged_blocks blocks;
                blocks.q = &q;
                blocks.lower = f.lnz;
                blocks.upper = f.unz;
                blocks.window.resize(z(2 * q.structure.supernodes));
                blocks.users.assign(z(2 * q.structure.supernodes), 0);
                blocks.fail_after = fail_after;
                const block_pager pager = {&blocks, acquire, release, nullptr, nullptr, nullptr, nullptr, 0};
                f.store.lnz = f.store.unz = nullptr;
                f.store.pager = &pager;
                numeric_dispatch(&f.input, &f.result);
                EXPECT_EQ(blocks.held, 0);
                EXPECT_EQ(f.result.error, fail_after < 0 ? 0 : -1);
                if (fail_after >= 0) continue;
                f.lnz = blocks.lower;
                f.unz = blocks.upper;
                EXPECT_LE(rebuild_error(q, f), 1e-14) << type;
            }
}

/* ---- repetition ---- */
int64_t system_calls = 0;
bool refuse = false;
void *counted_allocate(uint64_t size)
{
    ++system_calls;
    return refuse ? nullptr : std::malloc(size);
}

/* Memory taken from the system again and again; results that depend on what the arrays held before; work memory that cannot be had. */
TEST(factor_limits, repeats_itself_bit_by_bit_without_new_memory)
{
    for (const int64_t type : {2, -2, 11}) {
        const auto q = make_problem<double>(type, {90, 0.05, 12, 2, 4}, 2);
        for (const int64_t threads : {0, 1, 2}) { /* two threads: strict list order gives the same bits each time */
            factorization<double> f;
            prepare(q, threads, &f);
            numeric_dispatch(&f.input, &f.result);
            const auto lower = f.lnz, upper = f.unz;
            const service_system_allocator before = service_system;
            service_system.allocate = counted_allocate;
            for (int round = 0; round < 2; ++round) {
                refuse = round == 1;
                system_calls = 0;
                std::fill(f.lnz.begin(), f.lnz.end(), std::nan(""));
                numeric_dispatch(&f.input, &f.result);
                EXPECT_EQ(system_calls, 0);
                EXPECT_EQ(f.result.error, 0);
                for (int64_t s = 0; s < q.structure.supernodes; ++s) {
                    const int64_t first = q.xsuper[z(s)], rows = q.xlindx[z(s + 1)] - q.xlindx[z(s)];
                    for (int64_t c = first; c < q.xsuper[z(s + 1)]; ++c)
                        for (int64_t i = c - first; i < rows; ++i) {
                            const size_t at = z(q.xlnz[z(c - 1)] - 1 + i);
                            ASSERT_EQ(std::memcmp(&f.lnz[at], &lower[at], sizeof(double)), 0);
                        }
                }
                if (type == 11) { EXPECT_EQ(f.unz, upper); }
            }
            service_system = before;
        }
    }
}

/* ---- placing ---- */
/* Scale factors swapped between rows and columns, or taken by the wrong numbering; transposed images not conjugated. */
template <typename value_t>
void check_scaling(int64_t type, bool shuffle_rows)
{
    auto q = make_problem<value_t>(type, {45, 0.1, 5, 1, 21, -1, shuffle_rows});
    std::vector<double> row(z(q.n)), column(z(q.n));
    for (int64_t i = 0; i < q.n; ++i) {
        row[z(i)] = 1 + 0.01 * static_cast<double>(i);
        column[z(i)] = q.symmetric == 1 ? row[z(i)] : 2 - 0.02 * static_cast<double>(i);
    }
    factorization<value_t> f;
    prepare(q, type == 2 ? 1 : 0, &f, 1);
    f.input.scale_row = row.data();
    f.input.scale_col = column.data();
    numeric_dispatch(&f.input, &f.result);
    ASSERT_EQ(f.result.error, 0);
    for (int64_t j = 0; j < q.n; ++j)
        for (int64_t i = 0; i < q.n; ++i)
            q.dense[z(i + j * q.n)] *= static_cast<real_part_t<value_t>>(row[z(q.row_order[z(i)] - 1)] * column[z(j)]);
    EXPECT_LE(rebuild_error(q, f), 4 * static_cast<double>(std::numeric_limits<real_part_t<value_t>>::epsilon())) << type;
}

TEST(factor_limits, scales_entries_by_given_rows_and_columns)
{
    check_scaling<double>(2, false);
    check_scaling<double>(11, true);
    check_scaling<std::complex<float>>(4, false);
    check_scaling<std::complex<double>>(-4, false);
    check_scaling<std::complex<double>>(13, true);
}

/* The two diagonals that a host with a pivot hook gets. */
TEST(factor_limits, keeps_the_diagonal_for_the_pivot_hook)
{
    for (const int64_t type : {2, -2}) {
        const auto q = make_problem<double>(type, {20, 0.2, 4, 1, 2});
        factorization<double> f;
        prepare(q, type == 2 ? 0 : 1, &f);
        f.input.pivoting = 0;
        f.input.callback_on = 1;
        numeric_dispatch(&f.input, &f.result);
        for (int64_t c = 0; c < q.n; ++c) {
            EXPECT_EQ(f.diagonal_unscaled[z(c)], q.at(c, c));
            const int64_t local = c + 1 - q.xsuper[z(q.snode[z(c)] - 1)];
            const double d = f.lnz[z(q.xlnz[z(c)] - 1 + local)];
            EXPECT_EQ(f.diagonal[z(c)], type == 2 ? d * d : d);
        }
    }
}

} // namespace
