/* What a solve for some unknowns alone costs: 1 % of the points of a grid are marked, and the backward sweep that gives them is compared
   with the full one on the same factors.
   Usage: partial_bench [side] [rounds] */
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "bench_host.h"
#include "measure.h"

namespace
{
/* A cube of points in the middle of the grid that holds about 1 % of them. */
void mark_cube(int64_t side, std::vector<int64_t> *perm)
{
    const int64_t edge = static_cast<int64_t>(0.2154 * static_cast<double>(side) + 0.5), from = (side - edge) / 2;
    const auto within = [&](int64_t v) { return v >= from && v < from + edge; };
    for (int64_t i = 0; i < side * side * side; ++i) {
        const bool marked = within(i % side) && within(i / side % side) && within(i / (side * side));
        (*perm)[static_cast<size_t>(i)] = marked ? 1 : 0;
    }
}

double least_processor_time(int rounds, const std::function<void()> &work)
{
    double least = 1e30;
    for (int r = 0; r <= rounds; ++r) {
        const double start = processor_seconds();
        work();
        if (r > 0) least = std::min(least, processor_seconds() - start);
    }
    return least;
}
} // namespace

int main(int argc, char **argv)
{
    const int64_t side = argc > 1 ? std::atoi(argv[1]) : 40;
    const int rounds = argc > 2 ? std::atoi(argv[2]) : 15;
    use_threads(1);
    bench_table table{{"case", "marked", "of rows", "backward ms", "window ms", "ratio", "full solve ms", "solve with window ms"}, {}};
    const auto measure = [&](const char *name, int64_t type, const market_matrix &matrix) {
        bench_host host(name, type, matrix);
        mark_cube(side, &host.perm);
        host.parameter(iparam_partial_solve) = 3;
        if (host.call(12, 1) != 0) {
            std::fprintf(stderr, "%s: error %lld\n", name, static_cast<long long>(host.error));
            return;
        }
        const auto time_of = [&](int64_t ido, int64_t window) {
            host.parameter(iparam_partial_solve) = window;
            return least_processor_time(rounds, [&] { host.call(ido, 1); });
        };
        const double full = time_of(333, 0), window = time_of(333, 3), whole = time_of(33, 0), partial = time_of(33, 3);
        const double marked = static_cast<double>(host.parameter(iparam_partial_window));
        table.rows.push_back({name, bench_number(marked, 0), bench_number(marked / static_cast<double>(host.matrix.rows), 4),
                              bench_number(1e3 * full, 3), bench_number(1e3 * window, 3), bench_number(window / full, 3),
                              bench_number(1e3 * whole, 3), bench_number(1e3 * partial, 3)});
    };
    measure("7-point", 2, grid_3d_7(side, side, side));
    measure("27-point", 2, grid_3d_27(side, side, side));
    measure("convection", 11, convection_3d(side, side, side, 1.0, difference::upwind));
    bench_print(table);
    return 0;
}
