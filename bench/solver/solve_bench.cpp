/* Speed of the solves: one vector against the memory bandwidth over the bytes of the factors, which each of the two sweeps reads once;
   32 vectors against one; the gain of the second thread. One thread is measured in processor time, so that neighbours on the machine weigh
   less; two threads need the clock and are compared with one thread by the clock. Times are the least of the rounds.
   Usage: solve_bench [csv file or -] [part of a case's name] [rounds] */
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "bench_host.h"
#include "measure.h"

namespace
{
struct timing {
    double processor, clock;
};

timing least_time(int rounds, const std::function<void()> &work)
{
    timing least = {1e30, 1e30};
    work();
    for (int r = 0; r < rounds; ++r) {
        const double clock = bench_seconds(), processor = processor_seconds();
        work();
        least.processor = std::min(least.processor, processor_seconds() - processor);
        least.clock = std::min(least.clock, bench_seconds() - clock);
    }
    return least;
}

/* Bytes a second of the triad in processor time, so that it compares with the solves. */
double processor_bandwidth(int rounds)
{
    const int64_t n = 8 << 20;
    std::vector<double> a(static_cast<size_t>(n), 1.0), b(a), c(a);
    const timing t = least_time(rounds, [&] { bench_triad(n, a.data(), b.data(), c.data(), 0.5, 1); });
    return 24.0 * static_cast<double>(n) / t.processor;
}

void measure_case(bench_host *host, int rounds, double bandwidth, bench_table *table)
{
    timing one[2], many[2];
    for (const int32_t threads : {1, 2}) {
        use_threads(threads);
        if (host->call(12, 1) != 0) {
            std::fprintf(stderr, "%s: error %lld\n", host->name.c_str(), static_cast<long long>(host->error));
            return;
        }
        one[threads - 1] = least_time(rounds, [&] { host->call(33, 1); });
        many[threads - 1] = least_time(rounds / 3 + 1, [&] { host->call(33, 32); });
    }
    const double bytes = 8.0 * static_cast<double>(host->parameter(iparam_factor_nonzeros)) * (host->is_complex() ? 2 : 1);
    /* each sweep reads one of L and U, or L again */
    const double read = host->type % 2 == 0 ? 2 * bytes : bytes;
    table->rows.push_back({host->name, bench_number(bytes / 1e6, 1), bench_number(1e3 * one[0].processor, 2),
                           bench_number(read / one[0].processor / bandwidth, 2), bench_number(many[0].processor / one[0].processor, 2),
                           bench_number(one[0].clock / one[1].clock, 2), bench_number(many[0].clock / many[1].clock, 2)});
}
} // namespace

int main(int argc, char **argv)
{
    const char *csv = argc > 1 ? argv[1] : "-", *part = argc > 2 ? argv[2] : "";
    const int rounds = argc > 3 ? std::atoi(argv[3]) : 15;
    struct bench_case {
        const char *name;
        int64_t type;
        std::function<market_matrix()> make;
    };
    const bench_case cases[] = {
        {"elasticity 25", 2, [] { return elasticity(25, 25, 25); }},
        {"27-point 40", 2, [] { return grid_3d_27(40, 40, 40); }},
        {"2D 1000", 2, [] { return grid_2d_5(1000, 1000); }},
        {"2D 300", 2, [] { return grid_2d_5(300, 300); }},
        {"27-point 30, indefinite", -2, [] { return grid_3d_27(30, 30, 30); }},
        {"2D 500, indefinite", -2, [] { return grid_2d_5(500, 500); }},
        {"convection 30", 11, [] { return convection_3d(30, 30, 30, 1.0, difference::upwind); }},
        {"circuit 50000", 11, [] { return circuit(50000); }},
        {"helmholtz 25", 6, [] { return helmholtz_3d(25, 25, 25); }},
        {"convection 20, complex", 13, [] { return convection_complex_3d(20, 20, 20); }},
    };
    const double bandwidth = processor_bandwidth(rounds);
    std::printf("triad, one thread: %.1f GB/s\n", bandwidth / 1e9);
    bench_table table{{"case", "factors MB", "one vector ms", "of bandwidth", "32 to 1", "2 threads, 1", "2 threads, 32"}, {}};
    for (const bench_case &c : cases) {
        if (std::strstr(c.name, part) == nullptr) continue;
        const auto host = std::make_unique<bench_host>(c.name, c.type, c.make());
        measure_case(host.get(), rounds, bandwidth, &table);
    }
    bench_print(table);
    return std::strcmp(csv, "-") == 0 || bench_write_csv(table, csv) ? 0 : 1;
}
