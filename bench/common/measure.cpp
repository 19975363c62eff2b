#include "measure.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>

extern "C" {
void dgemm_(const char *transa, const char *transb, const int64_t *m, const int64_t *n, const int64_t *k, const double *alpha,
            const double *a, const int64_t *lda, const double *b, const int64_t *ldb, const double *beta, double *c, const int64_t *ldc,
            size_t, size_t);
void openblas_set_num_threads(int threads);
}

double bench_seconds()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

static double median_of(std::vector<double> times)
{
    std::sort(times.begin(), times.end());
    const size_t half = times.size() / 2;
    return times.size() % 2 != 0 ? times[half] : (times[half - 1] + times[half]) / 2;
}

std::vector<double> bench_medians(int runs, const std::vector<std::function<void()>> &works)
{
    std::vector<std::vector<double>> times(works.size());
    for (const auto &work : works) work();
    for (int r = 0; r < runs; ++r) {
        for (size_t w = 0; w < works.size(); ++w) {
            const double start = bench_seconds();
            works[w]();
            times[w].push_back(bench_seconds() - start);
        }
    }
    std::vector<double> result;
    for (const auto &t : times) result.push_back(median_of(t));
    return result;
}

double bench_median(int runs, const std::function<void()> &work)
{
    return bench_medians(runs, {work})[0];
}

double bench_geometric_mean(const std::vector<double> &values)
{
    double sum = 0.0;
    for (const double v : values) sum += std::log(v);
    return values.empty() ? 1.0 : std::exp(sum / static_cast<double>(values.size()));
}

std::string bench_number(double value, int decimals)
{
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    return text;
}

void bench_print(const bench_table &table)
{
    std::vector<size_t> width;
    for (const std::string &cell : table.head) width.push_back(cell.size());
    for (const auto &row : table.rows) {
        for (size_t c = 0; c < row.size(); ++c) width[c] = std::max(width[c], row[c].size());
    }
    const auto print_row = [&](const std::vector<std::string> &row) {
        for (size_t c = 0; c < row.size(); ++c) std::printf(c == 0 ? "%-*s" : "  %*s", static_cast<int>(width[c]), row[c].c_str());
        std::printf("\n");
    };
    print_row(table.head);
    for (const auto &row : table.rows) print_row(row);
    std::fflush(stdout);
}

bool bench_write_csv(const bench_table &table, const std::string &path)
{
    FILE *file = std::fopen(path.c_str(), "w");
    if (file == nullptr) {
        std::perror(path.c_str());
        return false;
    }
    const auto write_row = [&](const std::vector<std::string> &row) {
        for (size_t c = 0; c < row.size(); ++c) std::fprintf(file, "%s%s", c == 0 ? "" : ",", row[c].c_str());
        std::fprintf(file, "\n");
    };
    write_row(table.head);
    for (const auto &row : table.rows) write_row(row);
    return std::fclose(file) == 0;
}

void bench_triad(int64_t n, double *a, const double *b, const double *c, double s, int threads)
{
#pragma omp parallel for num_threads(threads) schedule(static)
    for (int64_t i = 0; i < n; ++i) a[i] = b[i] + s * c[i];
}

double bench_triad_bandwidth(int threads)
{
    const int64_t n = int64_t{1} << 23;
    std::vector<double> a(static_cast<size_t>(n), 0.0), b(a.size(), 1.0), c(a.size(), 2.0);
    const double seconds = bench_median(15, [&] { bench_triad(n, a.data(), b.data(), c.data(), 3.0, threads); });
    return 24.0 * static_cast<double>(n) / seconds;
}

double bench_dgemm_rate(int64_t n)
{
    const double alpha = 1.0, beta = 0.0;
    std::vector<double> a(static_cast<size_t>(n * n), 0.5), b(a.size(), 0.25), c(a.size(), 0.0);
    openblas_set_num_threads(1);
    const double seconds =
        bench_median(5, [&] { dgemm_("N", "N", &n, &n, &n, &alpha, a.data(), &n, b.data(), &n, &beta, c.data(), &n, 1, 1); });
    const double size = static_cast<double>(n);
    return 2.0 * size * size * size / seconds;
}
