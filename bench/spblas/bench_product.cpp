/* The symmetric product at one and two threads: as a fraction of the triad bandwidth of the same rounds, and against a plain loop.
   Usage: bench_product [edge of the 7-point grid, default 100] [CSV file] */
#include "generators.h"
#include "measure.h"
#include "service/service.h"
#include "spblas/spblas.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <omp.h>

using plain_product = void(int64_t m, const double *a, const int64_t *ia, const int64_t *ja, const double *x, double *y);
plain_product plain_product_sse2, plain_product_avx2;

namespace
{

void library_product(const market_matrix &a, const char *uplo, const std::vector<double> &x, std::vector<double> *y, int threads)
{
    omp_set_num_threads(threads);
    symv_dispatch(uplo, &a.rows, a.value.data(), a.ia.data(), a.ja.data(), x.data(), y->data(), 1);
}

/* False when the two products differ by more than rounding. */
bool agree(const std::vector<double> &y, const std::vector<double> &z)
{
    double difference = 0.0, size = 0.0;
    for (size_t i = 0; i < y.size(); ++i) {
        difference = std::fmax(difference, std::fabs(y[i] - z[i]));
        size = std::fmax(size, std::fabs(z[i]));
    }
    return difference <= 1e-13 * size;
}

bool measure(const std::string &name, const market_matrix &a, const char *uplo, bench_table *table)
{
    const size_t n = static_cast<size_t>(a.rows), triad_length = size_t{1} << 22;
    std::vector<double> x(n), y(n), z(n), t1(triad_length, 0.0), t2(triad_length, 1.0), t3(triad_length, 2.0);
    for (size_t i = 0; i < n; ++i) x[i] = 1.0 + static_cast<double>(i % 17) / 17.0;
    plain_product *plain = service_cpu_type() == 5 ? plain_product_avx2 : plain_product_sse2;
    const auto triad = [&](int threads) { bench_triad(static_cast<int64_t>(triad_length), t1.data(), t2.data(), t3.data(), 3.0, threads); };
    const std::vector<double> seconds =
        bench_medians(41, {[&] { triad(1); }, [&] { library_product(a, uplo, x, &y, 1); },
                           [&] { plain(a.rows, a.value.data(), a.ia.data(), a.ja.data(), x.data(), z.data()); }, [&] { triad(2); },
                           [&] { library_product(a, uplo, x, &y, 2); }});
    if (!agree(y, z)) {
        std::fprintf(stderr, "%s %s: the products differ\n", name.c_str(), uplo);
        return false;
    }
    const double bytes = static_cast<double>(16 * a.ja.size() + 8 * (n + 1) + 16 * n),
                 triad_bytes = 24.0 * static_cast<double>(triad_length);
    const auto fraction = [&](size_t product, size_t limit) { return bytes / seconds[product] / (triad_bytes / seconds[limit]); };
    table->rows.push_back({name, uplo, bench_number(seconds[1] * 1e3, 3), bench_number(seconds[4] * 1e3, 3),
                           bench_number(bytes / seconds[1] * 1e-9, 2), bench_number(triad_bytes / seconds[0] * 1e-9, 2),
                           bench_number(triad_bytes / seconds[3] * 1e-9, 2), bench_number(fraction(1, 0), 2),
                           bench_number(fraction(4, 3), 2), bench_number(seconds[1] / seconds[4], 2),
                           bench_number(seconds[2] / seconds[1], 2)});
    return true;
}

} // namespace

int main(int argc, char **argv)
{
    const int64_t edge = argc > 1 ? std::atoll(argv[1]) : 100;
    bench_table table = {
        {"matrix", "uplo", "ms 1t", "ms 2t", "GB/s 1t", "triad 1t", "triad 2t", "of triad 1t", "of triad 2t", "1t / 2t", "plain / 1t"}, {}};
    std::printf("processor type %d\n", service_cpu_type());
    bool good = true;
    const std::pair<const char *, market_matrix> matrices[] = {{"grid 7", grid_3d_7(edge, edge, edge)},
                                                               {"grid 27", grid_3d_27(edge / 2, edge / 2, edge / 2)},
                                                               {"elasticity", elasticity(edge / 4, edge / 4, edge / 4)}};
    for (const auto &[name, lower] : matrices) {
        good = measure(name, lower, "L", &table) && good;
        good = measure(name, market_transpose(lower), "U", &table) && good;
    }
    bench_print(table);
    if (argc > 2) good = bench_write_csv(table, argv[2]) && good;
    return good ? 0 : 1;
}
