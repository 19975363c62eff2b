#include "peers.h"

#include <malloc.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

bench_system make_system(const std::string &name, bench_group group, int64_t type, const market_matrix &matrix)
{
    bench_system s;
    s.name = name;
    s.group = group;
    s.type = type;
    s.whole = market_expand(matrix);
    if (s.is_symmetric_type()) s.upper = market_transpose(matrix);
    const bool complex_values = s.is_complex();
    for (size_t i = 0; i < static_cast<size_t>(s.whole.rows); ++i) {
        double sum = 0;
        for (auto k = static_cast<size_t>(s.whole.ia[i] - 1); k < static_cast<size_t>(s.whole.ia[i + 1] - 1); ++k)
            sum += complex_values ? std::hypot(s.whole.value[2 * k], s.whole.value[2 * k + 1]) : std::fabs(s.whole.value[k]);
        s.norm = std::max(s.norm, sum);
    }
    return s;
}

void system_product(const bench_system &s, const double *x, double *y, int64_t nb)
{
    const market_matrix &a = s.whole;
    const size_t n = static_cast<size_t>(a.rows), words = s.words();
    for (size_t c = 0; c < static_cast<size_t>(nb); ++c) {
        const double *from = x + c * n * words;
        double *to = y + c * n * words;
        for (size_t i = 0; i < n; ++i) {
            double real = 0, imaginary = 0;
            for (auto k = static_cast<size_t>(a.ia[i] - 1); k < static_cast<size_t>(a.ia[i + 1] - 1); ++k) {
                const size_t j = static_cast<size_t>(a.ja[k] - 1);
                if (words == 1) {
                    real += a.value[k] * from[j];
                    continue;
                }
                real += a.value[2 * k] * from[2 * j] - a.value[2 * k + 1] * from[2 * j + 1];
                imaginary += a.value[2 * k] * from[2 * j + 1] + a.value[2 * k + 1] * from[2 * j];
            }
            to[words * i] = real;
            if (words == 2) to[2 * i + 1] = imaginary;
        }
    }
}

double system_backward_error(const bench_system &s, const double *x, const double *b, int64_t nb)
{
    const size_t n = static_cast<size_t>(s.whole.rows), words = s.words();
    std::vector<double> r(n * words);
    const auto magnitude = [words](const double *v, size_t i) { return words == 1 ? std::fabs(v[i]) : std::hypot(v[2 * i], v[2 * i + 1]); };
    double worst = 0;
    for (size_t c = 0; c < static_cast<size_t>(nb); ++c) {
        const double *xc = x + c * n * words, *bc = b + c * n * words;
        system_product(s, xc, r.data(), 1);
        double residual = 0, norm_x = 0, norm_b = 0;
        for (size_t i = 0; i < n * words; ++i) r[i] = bc[i] - r[i];
        for (size_t i = 0; i < n; ++i) {
            const double e = magnitude(r.data(), i);
            if (!(e <= residual)) residual = e;
            norm_x = std::max(norm_x, magnitude(xc, i));
            norm_b = std::max(norm_b, magnitude(bc, i));
        }
        const double error = residual / (s.norm * norm_x + norm_b);
        if (!(error <= worst)) worst = error;
    }
    return worst;
}

/* Rows of a record, taken as columns. */
static int_columns rows_as_columns(const market_matrix &a)
{
    int_columns c;
    for (const int64_t p : a.ia) c.start.push_back(static_cast<int>(p - 1));
    for (const int64_t j : a.ja) c.row.push_back(static_cast<int>(j - 1));
    c.value = a.value;
    return c;
}

int_columns columns_of_whole(const bench_system &s)
{
    return rows_as_columns(market_transpose(s.whole));
}

int_columns columns_of_lower(const bench_system &s)
{
    int_columns c = rows_as_columns(s.upper);
    if (s.type == 4 || s.type == -4) /* entry (j, i) of the other triangle is the conjugate of (i, j) */
        for (size_t k = 1; k < c.value.size(); k += 2) c.value[k] = -c.value[k];
    return c;
}

const std::vector<competitor> &competitors()
{
    static const std::vector<competitor> all = {
        {"ours", open_own},
#ifdef WKL_BENCH_CHOLMOD
        {"CHOLMOD", open_cholmod}, {"simplicial", open_simplicial},
#endif
#ifdef WKL_BENCH_MUMPS
        {"MUMPS", open_mumps},
#endif
#ifdef WKL_BENCH_UMFPACK
        {"UMFPACK", open_umfpack}, {"KLU", open_klu},
#endif
#ifdef WKL_BENCH_SUPERLU
        {"SuperLU", open_superlu},
#endif
#ifdef WKL_BENCH_EIGEN
        {"Eigen", open_eigen},
#endif
    };
    return all;
}

/* A line of /proc/self/status in bytes, negative when it is not there. */
static double status_bytes(const char *label)
{
    FILE *file = std::fopen("/proc/self/status", "r");
    if (file == nullptr) return -1;
    char line[256];
    double kilobytes = -1;
    while (std::fgets(line, sizeof line, file) != nullptr)
        if (std::strncmp(line, label, std::strlen(label)) == 0) std::sscanf(line + std::strlen(label), "%lf", &kilobytes);
    std::fclose(file);
    return 1024 * kilobytes;
}

static double memory_base = -1;

void memory_peak_reset()
{
    malloc_trim(0);
    FILE *file = std::fopen("/proc/self/clear_refs", "w");
    const bool done = file != nullptr && std::fputs("5", file) >= 0;
    if (file != nullptr && std::fclose(file) == 0 && done)
        memory_base = status_bytes("VmRSS:");
    else
        memory_base = -1;
}

double memory_peak()
{
    return memory_base < 0 ? -1 : status_bytes("VmHWM:") - memory_base;
}
