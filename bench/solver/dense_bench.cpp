/* Own dense kernels against the BLAS library, one thread, in one run: rates, and medians of the ratios of neighbouring samples.
   Times are those of the thread, so that a busy machine disturbs little. Usage: dense_bench [family type 0..5] */
#include <time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <random>
#include <vector>

#include "dense/frame.h"

extern "C" {
void openblas_set_num_threads(int count);
void dgemm_(const char *, const char *, const int64_t *, const int64_t *, const int64_t *, const double *, const double *, const int64_t *,
            const double *, const int64_t *, const double *, double *, const int64_t *);
void sgemm_(const char *, const char *, const int64_t *, const int64_t *, const int64_t *, const float *, const float *, const int64_t *,
            const float *, const int64_t *, const float *, float *, const int64_t *);
void zgemm_(const char *, const char *, const int64_t *, const int64_t *, const int64_t *, const void *, const void *, const int64_t *,
            const void *, const int64_t *, const void *, void *, const int64_t *);
void cgemm_(const char *, const char *, const int64_t *, const int64_t *, const int64_t *, const void *, const void *, const int64_t *,
            const void *, const int64_t *, const void *, void *, const int64_t *);
void dtrsm_(const char *, const char *, const char *, const char *, const int64_t *, const int64_t *, const double *, const double *,
            const int64_t *, double *, const int64_t *);
void dpotrf_(const char *, const int64_t *, double *, const int64_t *, int64_t *);
void dgetrf_(const int64_t *, const int64_t *, double *, const int64_t *, int64_t *, int64_t *);
void dgemv_(const char *, const int64_t *, const int64_t *, const double *, const double *, const int64_t *, const double *,
            const int64_t *, const double *, double *, const int64_t *);
}

static double thread_seconds()
{
    timespec t;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

static double sample(const std::function<void()> &run, int64_t repeats)
{
    const double start = thread_seconds();
    for (int64_t r = 0; r < repeats; ++r) run();
    return (thread_seconds() - start) / static_cast<double>(repeats);
}

static double median(std::vector<double> x)
{
    std::sort(x.begin(), x.end());
    return x[x.size() / 2];
}

/* Rates of both in units of 1e9 per second, and the median ratio own / library. */
static void compare(const char *what, double work, const std::function<void()> &library, const std::function<void()> &own)
{
    const int64_t repeats = std::max<int64_t>(1, static_cast<int64_t>(3e7 / work));
    std::vector<double> a, b, ratio;
    library();
    own();
    for (int s = 0; s < 11; ++s) {
        a.push_back(sample(library, repeats));
        b.push_back(sample(own, repeats));
        ratio.push_back(a.back() / b.back());
    }
    std::printf("%-44s library %7.2f  own %7.2f  own/library %5.2f\n", what, 1e-9 * work / median(a), 1e-9 * work / median(b),
                median(ratio));
}

template <typename value_t>
static std::vector<value_t> random_values(size_t n)
{
    std::mt19937 generator(7);
    std::uniform_real_distribution<float> uniform(-1, 1);
    std::vector<value_t> x(n);
    for (auto &entry : x) entry = uniform(generator);
    return x;
}

template <typename value_t>
static void call_gemm(char ta, char tb, int64_t m, int64_t n, int64_t k, value_t alpha, const value_t *a, int64_t lda, const value_t *b,
                      int64_t ldb, value_t beta, value_t *c, int64_t ldc)
{
    if constexpr (std::is_same_v<value_t, double>)
        dgemm_(&ta, &tb, &m, &n, &k, &alpha, a, &lda, b, &ldb, &beta, c, &ldc);
    else if constexpr (std::is_same_v<value_t, float>)
        sgemm_(&ta, &tb, &m, &n, &k, &alpha, a, &lda, b, &ldb, &beta, c, &ldc);
    else if constexpr (std::is_same_v<value_t, std::complex<double>>)
        zgemm_(&ta, &tb, &m, &n, &k, &alpha, a, &lda, b, &ldb, &beta, c, &ldc);
    else
        cgemm_(&ta, &tb, &m, &n, &k, &alpha, a, &lda, b, &ldb, &beta, c, &ldc);
}

static int32_t family = 5;
static void *work = nullptr;

template <typename value_t>
static void gemm_shapes(const char *type, const std::vector<std::array<int64_t, 4>> &shapes)
{
    const kernel_table<value_t> *table = dense_family_table<value_t>(family);
    const std::vector<value_t> a = random_values<value_t>(5200 * 520), b = a;
    std::vector<value_t> c = a;
    for (const auto &[m, n, k, ld] : shapes) {
        char name[80];
        std::snprintf(name, sizeof name, "%sgemm NT m %ld n %ld k %ld ld %ld", type, m, n, k, ld);
        const double flops = (sizeof(value_t) == sizeof(real_of<value_t>) ? 2.0 : 8.0) * static_cast<double>(m * n * k);
        compare(
            name, flops,
            [&, m = m, n = n, k = k, ld = ld] { call_gemm<value_t>('N', 'T', m, n, k, -1, a.data(), ld, b.data(), ld, 1, c.data(), ld); },
            [&, m = m, n = n, k = k, ld = ld] { table->gemm('N', 'T', m, n, k, -1, a.data(), ld, b.data(), ld, 1, c.data(), ld, work); });
    }
}

/* The update of a descendant: the library's product into a buffer and a scattered subtraction, against one call. rows: run length. */
static void scatter_shapes()
{
    const kernel_table<double> *table = dense_family_table<double>(family);
    for (const auto &[q, k, w, run] : std::vector<std::array<int64_t, 4>>{{5, 2, 1, 5},
                                                                          {10, 3, 2, 5},
                                                                          {20, 5, 3, 7},
                                                                          {40, 8, 4, 8},
                                                                          {60, 12, 8, 10},
                                                                          {60, 12, 8, 1},
                                                                          {200, 30, 16, 20},
                                                                          {500, 80, 40, 50},
                                                                          {500, 80, 40, 1}}) {
        std::vector<int64_t> position;
        for (int64_t i = 0; i < q; ++i) position.push_back(i + 2 * (i / run));
        const int64_t ld = position.back() + 1;
        const std::vector<double> a = random_values<double>(static_cast<size_t>((q + 10) * w));
        std::vector<double> c = random_values<double>(static_cast<size_t>(ld * (position[static_cast<size_t>(k - 1)] + 1)));
        std::vector<double> product(static_cast<size_t>(q * k));
        const int64_t lda = q + 10;
        const update_segment<double> segment = {a.data(), lda, a.data(), lda, w};
        const auto library = [&, q = q, k = k, w = w] {
            call_gemm<double>('N', 'T', q, k, w, 1, a.data(), lda, a.data(), lda, 0, product.data(), q);
            for (int64_t j = 0; j < k; ++j) {
                double *column = c.data() + position[static_cast<size_t>(j)] * ld;
                for (int64_t i = j; i < q; ++i) column[position[static_cast<size_t>(i)]] -= product[static_cast<size_t>(i + j * q)];
            }
        };
        const auto own = [&, q = q, k = k] {
            table->update(mirror::symmetric, update_shape::lower, q, k, 1, &segment, position.data(), position.data(), c.data(), ld, work);
        };
        char name[80];
        std::snprintf(name, sizeof name, "scattered update q %ld k %ld w %ld runs of %ld", q, k, w, run);
        compare(name, static_cast<double>((2 * q - k) * k * w), library, own);
    }
}

static void factor_shapes()
{
    const kernel_table<double> *table = dense_family_table<double>(family);
    for (const auto &[m, n] : std::vector<std::array<int64_t, 2>>{
             {6, 2}, {20, 4}, {40, 8}, {60, 16}, {32, 32}, {200, 32}, {64, 64}, {128, 128}, {600, 80}, {2000, 128}, {512, 512}}) {
        std::vector<double> x(static_cast<size_t>(m * n)); /* the identity is its own factor: no copy between the runs */
        for (int64_t j = 0; j < n; ++j) {
            for (int64_t i = 0; i < m; ++i) x[static_cast<size_t>(i + j * m)] = i == j ? 1 : 0;
        }
        const auto library = [&, m = m, n = n] {
            int64_t info = 0;
            const int64_t below = m - n;
            const double one = 1;
            dpotrf_("L", &n, x.data(), &m, &info);
            if (below > 0) dtrsm_("R", "L", "T", "N", &below, &n, &one, x.data(), &m, x.data() + n, &m);
        };
        const auto own = [&, m = m, n = n] { table->potrf_panel(m, n, x.data(), m, work); };
        char name[80];
        std::snprintf(name, sizeof name, "Cholesky panel m %ld n %ld", m, n);
        const double d = static_cast<double>(n);
        compare(name, d * d * d / 3 + d * d * static_cast<double>(m - n), library, own);
        std::vector<int64_t> pivots(static_cast<size_t>(n));
        std::snprintf(name, sizeof name, "LU panel m %ld n %ld", m, n);
        compare(
            name, static_cast<double>(m) * d * d - d * d * d / 3,
            [&, m = m, n = n] {
                int64_t info = 0;
                dgetrf_(&m, &n, x.data(), &m, pivots.data(), &info);
            },
            [&, m = m, n = n] {
                int64_t perturbed = 0;
                table->getrf(m, n, x.data(), m, pivots.data(), 0, &perturbed, work);
            });
    }
}

/* Steps of a solve with one vector; GB/s of the panel. */
static void sweep_shapes()
{
    const kernel_table<double> *table = dense_family_table<double>(family);
    for (const auto &[q, w] : std::vector<std::array<int64_t, 2>>{{5, 1}, {10, 3}, {40, 8}, {500, 80}, {4000, 128}}) {
        const std::vector<double> panel = random_values<double>(static_cast<size_t>(q * w)),
                                  x = random_values<double>(static_cast<size_t>(w));
        std::vector<double> vector = random_values<double>(static_cast<size_t>(2 * q)), y(static_cast<size_t>(q)), z = x;
        std::vector<int64_t> row;
        for (int64_t i = 0; i < q; ++i) row.push_back(1 + i + i / 4);
        const double one = 1, minus = -1, zero = 0;
        const int64_t unit = 1;
        char name[80];
        std::snprintf(name, sizeof name, "forward step q %ld w %ld", q, w);
        compare(
            name, static_cast<double>(8 * q * w),
            [&, q = q, w = w] {
                dgemv_("N", &q, &w, &one, panel.data(), &q, x.data(), &unit, &zero, y.data(), &unit);
                for (int64_t i = 0; i < q; ++i) vector[static_cast<size_t>(row[static_cast<size_t>(i)] - 1)] -= y[static_cast<size_t>(i)];
            },
            [&, q = q, w = w] { table->panel_forward(q, w, panel.data(), q, x.data(), row.data(), vector.data()); });
        std::snprintf(name, sizeof name, "backward step q %ld w %ld", q, w);
        compare(
            name, static_cast<double>(8 * q * w),
            [&, q = q, w = w] {
                for (int64_t i = 0; i < q; ++i) y[static_cast<size_t>(i)] = vector[static_cast<size_t>(row[static_cast<size_t>(i)] - 1)];
                dgemv_("T", &q, &w, &minus, panel.data(), &q, y.data(), &unit, &one, z.data(), &unit);
            },
            [&, q = q, w = w] { table->panel_backward(mirror::symmetric, q, w, panel.data(), q, row.data(), vector.data(), z.data()); });
    }
}

int main(int argument_count, char **arguments)
{
    if (argument_count > 1) family = std::atoi(arguments[1]);
    openblas_set_num_threads(1);
    work = service_alloc_direct(static_cast<uint64_t>(kernel_work_bytes), 64);
    if (work == nullptr) return 1;
    std::printf("family %d; flops in GF/s, steps of a solve in GB/s; medians of 11 samples\n", family);
    gemm_shapes<double>("d", {{1600, 1600, 500, 1600},
                              {500, 80, 80, 500},
                              {2000, 80, 80, 2000},
                              {5000, 80, 80, 5000},
                              {2000, 80, 80, 2048},
                              {5000, 128, 128, 5003},
                              {2000, 32, 32, 2000},
                              {1000, 80, 320, 1000},
                              {200, 200, 200, 200},
                              {64, 64, 64, 64},
                              {32, 32, 32, 32},
                              {24, 8, 8, 30},
                              {16, 16, 16, 16},
                              {60, 8, 8, 60},
                              {20, 6, 4, 30},
                              {12, 4, 2, 20},
                              {5, 2, 1, 10}});
    for (const char *type : {"s", "z", "c"}) {
        const std::vector<std::array<int64_t, 4>> shapes = {
            {1000, 1000, 500, 1000}, {2000, 80, 80, 2000}, {64, 64, 64, 64}, {20, 6, 4, 30}};
        if (*type == 's')
            gemm_shapes<float>(type, shapes);
        else if (*type == 'z')
            gemm_shapes<std::complex<double>>(type, shapes);
        else
            gemm_shapes<std::complex<float>>(type, shapes);
    }
    scatter_shapes();
    factor_shapes();
    sweep_shapes();
    service_free_direct(work);
    return 0;
}
