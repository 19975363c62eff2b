/* Time of the matching on generated matrices, processor seconds on one core, best of five, beside one run of the packaged partitioner's
   node ordering of the same pattern where the machine has it. Usage: matching_bench [rows] */
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <numeric>
#include <random>

#include "analysis/analysis.h"
#include "generators.h"
#include "measure.h"
#include "node_ordering.h"

static double best_seconds(int repeats, const std::function<void()> &work)
{
    double best = HUGE_VAL;
    for (int k = 0; k < repeats; ++k) {
        const std::clock_t start = std::clock();
        work();
        best = std::min(best, static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC);
    }
    return best;
}

/* The rows in random order, so that nothing lies on the diagonal by construction. */
static market_matrix shuffled_rows(const market_matrix &a)
{
    std::vector<int64_t> to(static_cast<size_t>(a.rows)), row;
    std::iota(to.begin(), to.end(), 1);
    std::shuffle(to.begin(), to.end(), std::mt19937_64(12));
    for (size_t i = 0; i < to.size(); ++i) row.insert(row.end(), static_cast<size_t>(a.ia[i + 1] - a.ia[i]), to[i]);
    market_matrix b;
    b.rows = b.columns = a.rows;
    market_compress(row, a.ja, a.value, &b);
    return b;
}

/* Five entries a row anywhere, random over six decades: an assignment problem with nothing to go by. */
static market_matrix scattered(int64_t n)
{
    std::mt19937_64 random(13);
    std::uniform_real_distribution<double> unit(0, 1);
    std::vector<int64_t> row, column;
    std::vector<double> value;
    for (int64_t i = 1; i <= n; ++i) {
        for (int k = 0; k < 5; ++k) {
            row.push_back(i);
            column.push_back(k == 0 ? i : 1 + static_cast<int64_t>(unit(random) * static_cast<double>(n)));
            value.push_back(std::pow(10.0, -6 * unit(random)));
        }
    }
    market_matrix a;
    a.rows = a.columns = n;
    market_compress(row, column, value, &a);
    return a;
}

/* One ordering of the pattern of a and its transpose. */
static double ordering_seconds(const market_matrix &a)
{
    const market_matrix whole = a.symmetry == market_symmetry::general ? a : market_expand(a), across = market_transpose(whole);
    std::vector<int64_t> start{0}, neighbour, perm(static_cast<size_t>(a.rows)), invp(perm.size());
    for (size_t i = 0; i < perm.size(); ++i) {
        std::vector<int64_t> row(whole.ja.begin() + whole.ia[i] - 1, whole.ja.begin() + whole.ia[i + 1] - 1);
        row.insert(row.end(), across.ja.begin() + across.ia[i] - 1, across.ja.begin() + across.ia[i + 1] - 1);
        std::sort(row.begin(), row.end());
        row.erase(std::unique(row.begin(), row.end()), row.end());
        for (const int64_t j : row)
            if (j != static_cast<int64_t>(i) + 1) neighbour.push_back(j - 1);
        start.push_back(static_cast<int64_t>(neighbour.size()));
    }
    const auto order = packaged_node_ordering(a.rows, start.data(), neighbour.data(), perm.data(), invp.data());
    return order ? best_seconds(1, [&] { order(); }) : NAN;
}

int main(int argc, char **argv)
{
    const int64_t rows = argc > 1 ? std::atoll(argv[1]) : 100000, side = static_cast<int64_t>(std::cbrt(static_cast<double>(rows)));
    const struct {
        const char *name;
        int64_t type;
        market_matrix a;
    } cases[] = {{"circuit", 11, circuit(rows)},
                 {"circuit, shuffled", 11, shuffled_rows(circuit(rows))},
                 {"convection, shuffled", 11, shuffled_rows(convection_3d(side, side, side, 2.0, difference::upwind))},
                 {"saddle point", -2, market_transpose(saddle_point(rows))},
                 {"scattered", 11, scattered(rows)}};
    bench_table table{{"matrix", "rows", "entries", "method 1 s", "method 2 s", "ordering s", "method 1 / ordering", "matched"}, {}};
    for (const auto &c : cases) {
        const size_t n = static_cast<size_t>(c.a.rows);
        const int64_t entries = c.a.ia[n] - 1;
        std::vector<int64_t> order(n), work(static_cast<size_t>(matching_work_words(c.a.rows, entries, c.type)));
        std::vector<double> row(n), col(n);
        double seconds[3];
        int64_t matched = 0;
        for (const int64_t method : {2, 1}) {
            seconds[method] = best_seconds(5, [&] {
                matched = matching_step<double>(c.type, method, c.a.rows, c.a.ia.data(), c.a.ja.data(), c.a.value.data(), order.data(),
                                                row.data(), col.data(), work.data());
            });
        }
        const double ordering = ordering_seconds(c.a);
        table.rows.push_back({c.name, std::to_string(n), std::to_string(entries), bench_number(seconds[1], 4), bench_number(seconds[2], 4),
                              bench_number(ordering, 3), bench_number(seconds[1] / ordering, 3), std::to_string(matched)});
    }
    bench_print(table);
    return 0;
}
